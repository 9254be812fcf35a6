// The mirrors: what they copy, in which order, and that their end copies nothing.
#include "status/CollectorTest.h"

namespace Zeb::StatusTest {
namespace {

// Notes in which order an egress record is told.
struct EgressRecordSm : Rix::Reactor<EgressRecordSm> {
  struct RixRecord : Rix::Watch<RixRecord, ProbeStreamEgressRecord const, EgressRecordSm> {
    using Watch::Watch;
    void onEgressIntf() override { owner().heard.push_back("egressIntf"); }
  };
  struct RixStats : Rix::Watch<RixStats, ProbeStreamEgressStats const, EgressRecordSm> {
    using Watch::Watch;
    void onNumProbesTx() override { owner().heard.push_back("numProbesTx"); }
    void onEpoch() override { owner().heard.push_back("epoch"); }
  };
  explicit EgressRecordSm(ProbeStreamEgressRecord const* record) {
    record_.notifierIs(record);
    stats_.notifierIs(record->egressStats());
  }
  template <class F>
  void rixParts(F&& f) {
    f(record_);
    f(stats_);
  }
  Heard heard;
  RixRecord record_{this};
  RixStats stats_{this};
};

class EgressMirror : public testing::Test {
 protected:
  EgressMirror() { central->egressStatsIs(); }
  static Rix::Ptr<ClientProbeStreamEgressRecord> clientRecord(char const* intf, U64 numProbesTx, U64 epoch) {
    auto record = Rix::make<ClientProbeStreamEgressRecord>(U8{4});
    record->egressIntfIs(Netkit::IntfId(intf));
    record->egressStatsIs()->numProbesTxIs(numProbesTx);
    record->egressStats()->epochIs({epoch});
    return record;
  }
  Rix::Ptr<ProbeStreamEgressRecord> central = Rix::make<ProbeStreamEgressRecord>(U8{4}, streamId(1));
};

TEST_F(EgressMirror, CopiesTheInterfaceFirstAtConstructionAndTheStatsFirstAtAReplacement) {
  auto listener = Rix::make<EgressRecordSm>(central.get());
  auto mirror = Rix::make<ZebWaveEgressRecordSm>(clientRecord("eth1", 10, 1), central, U8{4});
  EXPECT_EQ(listener->heard, (Heard{"egressIntf", "numProbesTx", "epoch"}));
  EXPECT_EQ(central->egressIntf(), Netkit::IntfId("eth1"));
  EXPECT_EQ(central->egressStats()->numProbesTx(), 10u);
  listener->heard.clear();
  mirror->clientEgressRecordIs(clientRecord("eth2", 20, 2));
  EXPECT_EQ(listener->heard, (Heard{"numProbesTx", "epoch", "egressIntf"}));
  EXPECT_EQ(central->egressStats()->epoch(), Sonar::Epoch{2});
}

TEST_F(EgressMirror, FollowsEachAttributeOnItsOwn) {
  auto client = clientRecord("eth1", 10, 1);
  auto mirror = Rix::make<ZebWaveEgressRecordSm>(client, central, U8{4});
  auto listener = Rix::make<EgressRecordSm>(central.get());
  client->egressStats()->epochIs({2});
  client->egressStats()->numProbesTxIs(11);
  client->egressIntfIs(Netkit::IntfId("eth2"));
  EXPECT_EQ(listener->heard, (Heard{"epoch", "numProbesTx", "egressIntf"}));
}

TEST_F(EgressMirror, WithoutClientStatsCopiesTheirDefaultsAndFillsInOnceTheyArrive) {
  central->egressStats()->numProbesTxIs(99);
  auto client = Rix::make<ClientProbeStreamEgressRecord>(U8{4});
  auto mirror = Rix::make<ZebWaveEgressRecordSm>(client, central, U8{4});
  EXPECT_EQ(central->egressStats()->numProbesTx(), 0u);
  client->egressStatsIs()->numProbesTxIs(5);
  EXPECT_EQ(central->egressStats()->numProbesTx(), 5u);
  client->egressStatsDel();
  EXPECT_EQ(central->egressStats()->numProbesTx(), 0u);
}

TEST_F(EgressMirror, WithoutATargetDoesNothing) {
  auto client = clientRecord("eth1", 10, 1);
  auto mirror = Rix::make<ZebWaveEgressRecordSm>(client, nullptr, U8{4});
  client->egressStats()->numProbesTxIs(11);
  central->egressStatsDel();
  auto other = Rix::make<ZebWaveEgressRecordSm>(client, central, U8{4});
  client->egressStats()->numProbesTxIs(12);
  EXPECT_EQ(central->egressIntf(), Netkit::IntfId("eth1"));
  EXPECT_EQ(central->egressStats(), nullptr);
}

TEST_F(EgressMirror, ItsEndLeavesTheCentralRecordAsItWas) {
  auto client = clientRecord("eth1", 10, 1);
  auto mirror = Rix::make<ZebWaveEgressRecordSm>(client, central, U8{4});
  auto listener = Rix::make<EgressRecordSm>(central.get());
  mirror = nullptr;
  client->egressStats()->numProbesTxIs(11);
  EXPECT_EQ(listener->heard, Heard{});
  EXPECT_EQ(central->egressStats()->numProbesTx(), 10u);
}

class IngressMirror : public testing::Test {
 protected:
  IngressMirror() { central->ingressStatsIs(); }
  // Every attribute holds a value of its own, above `base`.
  static Rix::Ptr<ClientProbeStreamIngressRecord> clientRecord(char const* intf, U64 base, bool dormant) {
    auto record = Rix::make<ClientProbeStreamIngressRecord>(U8{4});
    record->ingressIntfIs(Netkit::IntfId(intf));
    record->ingressIntfIpIs(Netkit::IpAddr(static_cast<U32>(base)));
    record->dormantIs(dormant);
    auto* stats = record->ingressStatsIs();
    stats->epochIs({base + 1});
    stats->ingressTtlIs(static_cast<U8>(base + 2));
    stats->currentSequenceNumberIs(base + 3);
    stats->lastSequenceNumberIs(base + 4);
    stats->probesReceivedIs(base + 5);
    stats->probesLostIs(base + 6);
    stats->probesMisorderedIs(base + 7);
    stats->probesDuplicatedIs(base + 8);
    return record;
  }
  void expectStats(U64 base) {
    auto const* stats = central->ingressStats();
    EXPECT_EQ(stats->epoch(), Sonar::Epoch{base + 1});
    EXPECT_EQ(stats->ingressTtl(), base + 2);
    EXPECT_EQ(stats->currentSequenceNumber(), base + 3);
    EXPECT_EQ(stats->lastSequenceNumber(), base + 4);
    EXPECT_EQ(stats->probesReceived(), base + 5);
    EXPECT_EQ(stats->probesLost(), base + 6);
    EXPECT_EQ(stats->probesMisordered(), base + 7);
    EXPECT_EQ(stats->probesDuplicated(), base + 8);
  }
  Rix::Ptr<ProbeStreamIngressRecord> ttlRecord = Rix::make<ProbeStreamIngressRecord>(U8{4});
  Rix::Ptr<ProbeStreamSwitchIngressRecord> central = ttlRecord->switchIngressRecordIs(switchId(1));
};

TEST_F(IngressMirror, CopiesTheRecordFirstAtConstructionAndTheStatsFirstAtAReplacement) {
  Heard const record{"ingressIntf", "ingressIntfIp", "dormant"};
  Heard const stats{"ingressTtl",         "epoch",
                    "probesReceived",     "probesLost",
                    "probesMisordered",   "probesDuplicated",
                    "lastSequenceNumber", "currentSequenceNumber"};
  auto listener = Rix::make<SwitchRecordSm>(central.get());
  auto mirror = Rix::make<ZebWaveIngressRecordSm>(clientRecord("eth1", 10, true), ttlRecord, central, U8{4});
  Heard expected = record;
  expected.insert(expected.end(), stats.begin(), stats.end());
  EXPECT_EQ(listener->heard, expected);
  expectStats(10);
  EXPECT_EQ(central->ingressIntf(), Netkit::IntfId("eth1"));
  EXPECT_EQ(central->ingressIntfIp(), Netkit::IpAddr(10));
  EXPECT_TRUE(central->dormant());
  listener->heard.clear();
  mirror->clientIngressRecordIs(clientRecord("eth2", 50, false));
  expected = stats;
  expected.insert(expected.end(), record.begin(), record.end());
  EXPECT_EQ(listener->heard, expected);
  expectStats(50);
}

TEST_F(IngressMirror, FollowsEachAttributeInTheOrderInWhichItIsWritten) {
  auto client = clientRecord("eth1", 10, false);
  auto mirror = Rix::make<ZebWaveIngressRecordSm>(client, ttlRecord, central, U8{4});
  auto listener = Rix::make<SwitchRecordSm>(central.get());
  auto* stats = client->ingressStats();
  stats->epochIs({51});
  stats->ingressTtlIs(52);
  stats->currentSequenceNumberIs(53);
  stats->lastSequenceNumberIs(54);
  stats->probesReceivedIs(55);
  stats->probesLostIs(56);
  stats->probesMisorderedIs(57);
  stats->probesDuplicatedIs(58);
  client->dormantIs(true);
  client->ingressIntfIs(Netkit::IntfId("eth2"));
  client->ingressIntfIpIs(Netkit::IpAddr(50));
  EXPECT_EQ(listener->heard,
            (Heard{"epoch", "ingressTtl", "currentSequenceNumber", "lastSequenceNumber", "probesReceived", "probesLost",
                   "probesMisordered", "probesDuplicated", "dormant", "ingressIntf", "ingressIntfIp"}));
  expectStats(50);
}

TEST_F(IngressMirror, WithoutClientStatsCopiesTheirDefaultsAndFillsInOnceTheyArrive) {
  central->ingressStats()->probesReceivedIs(99);
  central->ingressStats()->currentSequenceNumberIs(99);
  auto client = Rix::make<ClientProbeStreamIngressRecord>(U8{4});
  auto mirror = Rix::make<ZebWaveIngressRecordSm>(client, ttlRecord, central, U8{4});
  EXPECT_EQ(central->ingressStats()->probesReceived(), 0u);
  EXPECT_EQ(central->ingressStats()->currentSequenceNumber(), 0u);
  client->ingressStatsIs()->probesReceivedIs(5);
  EXPECT_EQ(central->ingressStats()->probesReceived(), 5u);
}

TEST_F(IngressMirror, ARecordThatIsGoneLeavesDefaults) {
  auto mirror = Rix::make<ZebWaveIngressRecordSm>(clientRecord("eth1", 10, true), ttlRecord, central, U8{4});
  mirror->clientIngressRecordIs(nullptr);
  EXPECT_TRUE(central->ingressIntf().isEmpty());
  EXPECT_FALSE(central->dormant());
  EXPECT_EQ(central->ingressStats()->probesReceived(), 0u);
}

TEST_F(IngressMirror, ItsEndLeavesTheCentralRecordAsItWas) {
  auto client = clientRecord("eth1", 10, true);
  auto mirror = Rix::make<ZebWaveIngressRecordSm>(client, ttlRecord, central, U8{4});
  auto listener = Rix::make<SwitchRecordSm>(central.get());
  mirror = nullptr;
  client->ingressStats()->probesReceivedIs(99);
  EXPECT_EQ(listener->heard, Heard{});
  expectStats(10);
  EXPECT_TRUE(central->dormant());
}

}  // namespace
}  // namespace Zeb::StatusTest
