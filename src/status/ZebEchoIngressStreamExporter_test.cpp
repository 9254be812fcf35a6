// From the ingress table to the client's ingress records, and where that differs from the egress side.
#include "status/StatusTest.h"
#include "status/ZebEchoStatusExporterSm.h"

namespace Zeb::StatusTest {
namespace {

using testing::Contains;
using testing::HasSubstr;

class IngressExporter : public Switch {
 protected:
  ZebEchoIngressStreamExporterSm& exporter() { return *frame->ingressStreamExporterSm(); }
  ClientProbeStreamIngressRecord* record(U32 tag, U8 ttl) {
    auto* stream = clientTable().streamRecord(streamId(tag));
    return stream ? stream->ingressRecord(ttl) : nullptr;
  }

  Rix::Ptr<ZebEchoStatusExporterSm> frame =
      zebEchoStatusExporterSmFactory(echoStatus, localStatus, zebEchoStatus, ipStatus);
};
using IngressExporterDeathTest = IngressExporter;

TEST_F(IngressExporter, CopiesAllCountersOfARow) {
  auto row = ingressRow(ingressKey(1, 5), 2);
  row.dormant = true;
  row.epoch = {1};
  row.probesLost = 3;
  row.probesMisordered = 4;
  row.probesDuplicated = 5;
  row.lastSequenceNumber = 6;
  row.currentSequenceNumber = 7;
  ingressRowIs(row);
  runTo(100);
  auto const* stats = record(1, 5)->ingressStats();
  EXPECT_EQ(stats->epoch(), Sonar::Epoch{1});
  EXPECT_EQ(stats->ingressTtl(), 5);
  EXPECT_EQ(stats->probesReceived(), 2u);
  EXPECT_EQ(stats->probesLost(), 3u);
  EXPECT_EQ(stats->probesMisordered(), 4u);
  EXPECT_EQ(stats->probesDuplicated(), 5u);
  EXPECT_EQ(stats->lastSequenceNumber(), 6u);
  EXPECT_EQ(stats->currentSequenceNumber(), 7u);
  EXPECT_EQ(record(1, 5)->ingressIntf(), Netkit::IntfId("eth2"));
  EXPECT_TRUE(record(1, 5)->dormant());
}

// Notes the order in which the stats of one record are told.
struct StatsOrderSm : Rix::Reactor<StatsOrderSm> {
  struct RixStats : Rix::Watch<RixStats, ProbeStreamIngressStats const, StatsOrderSm> {
    using Watch::Watch;
    void onEpoch() override { owner().heard.push_back("epoch"); }
    void onIngressTtl() override { owner().heard.push_back("ingressTtl"); }
    void onCurrentSequenceNumber() override { owner().heard.push_back("currentSequenceNumber"); }
    void onLastSequenceNumber() override { owner().heard.push_back("lastSequenceNumber"); }
    void onProbesReceived() override { owner().heard.push_back("probesReceived"); }
    void onProbesLost() override { owner().heard.push_back("probesLost"); }
    void onProbesMisordered() override { owner().heard.push_back("probesMisordered"); }
    void onProbesDuplicated() override { owner().heard.push_back("probesDuplicated"); }
  };
  struct RixRecord : Rix::Watch<RixRecord, ClientProbeStreamIngressRecord const, StatsOrderSm> {
    using Watch::Watch;
    void onDormant() override { owner().heard.push_back("dormant"); }
  };
  explicit StatsOrderSm(ClientProbeStreamIngressRecord const* record) {
    record_.notifierIs(record);
    stats_.notifierIs(record->ingressStats());
  }
  template <class F>
  void rixParts(F&& f) {
    f(record_);
    f(stats_);
  }
  std::vector<std::string> heard;
  RixRecord record_{this};
  RixStats stats_{this};
};

TEST_F(IngressExporter, WritesTheSequenceNumbersBeforeTheCountersAndDormantLast) {
  ingressRowIs(ingressRow(ingressKey(1, 5), 1));
  runTo(100);
  auto order = Rix::make<StatsOrderSm>(record(1, 5));
  auto row = ingressRow(ingressKey(1, 5), 2);
  row.dormant = true;
  row.epoch = {1};
  row.probesLost = 3;
  row.probesMisordered = 4;
  row.probesDuplicated = 5;
  row.lastSequenceNumber = 6;
  row.currentSequenceNumber = 7;
  ingressRowIs(row);
  runTo(105);
  EXPECT_EQ(order->heard,
            (std::vector<std::string>{"epoch", "currentSequenceNumber", "lastSequenceNumber", "probesReceived",
                                      "probesLost", "probesMisordered", "probesDuplicated", "dormant"}));
}

TEST_F(IngressExporter, KeepsThePaceOfTheEgressSide) {
  runTo(100);
  EXPECT_EQ(exporter().entryQueueTime(), Rix::never);
  ingressRowIs(ingressRow(ingressKey(1, 1), 1));
  EXPECT_EQ(exporter().entryQueueTime(), 100.1);
  runTo(100.1);
  ingressRowIs(ingressRow(ingressKey(1, 1), 2));
  EXPECT_EQ(exporter().entryQueueTime(), 105.1);
  runTo(101);
  ingressRowIs(ingressRow(ingressKey(2, 1), 1));
  EXPECT_EQ(exporter().entryQueueTime(), 101.1);
  runTo(101.1);
  EXPECT_EQ(record(1, 1)->ingressStats()->probesReceived(), 2u);
}

TEST_F(IngressExporter, AnInterfaceWithoutAnAddressLeavesZeroUntilALaterChangeFindsOne) {
  ingressRowIs(ingressRow(ingressKey(1, 1), 1));
  runTo(100);
  EXPECT_EQ(record(1, 1)->ingressIntfIp(), Netkit::IpAddr());
  ipStatus->intfStatusIs(Netkit::IntfId("eth2"))->addressIs(Netkit::IpAddr(0x0a010203));
  runTo(120);
  EXPECT_EQ(record(1, 1)->ingressIntfIp(), Netkit::IpAddr());
  ingressRowIs(ingressRow(ingressKey(1, 1), 2));
  runTo(125);
  EXPECT_EQ(record(1, 1)->ingressIntfIp(), Netkit::IpAddr(0x0a010203));
}

TEST_F(IngressExporter, AnInterfaceThatHasLostItsEntryLeavesTheOldAddress) {
  ipStatus->intfStatusIs(Netkit::IntfId("eth2"))->addressIs(Netkit::IpAddr(0x0a010203));
  ingressRowIs(ingressRow(ingressKey(1, 1), 1));
  runTo(100);
  ipStatus->intfStatusDel(Netkit::IntfId("eth2"));
  ingressRowIs(ingressRow(ingressKey(1, 1), 2));
  runTo(105);
  EXPECT_EQ(record(1, 1)->ingressStats()->probesReceived(), 2u);
  EXPECT_EQ(record(1, 1)->ingressIntfIp(), Netkit::IpAddr(0x0a010203));
}

TEST_F(IngressExporter, ARowThatOnlyFallsDormantReachesItsRecordAtTheNextRun) {
  auto row = ingressRow(ingressKey(1, 1), 1);
  ingressRowIs(row);
  runTo(100);
  EXPECT_FALSE(record(1, 1)->dormant());
  row.dormant = true;
  ingressRowIs(row);
  EXPECT_EQ(exporter().entryQueueTime(), 105);
  runTo(105);
  EXPECT_TRUE(record(1, 1)->dormant());
}

TEST_F(IngressExporter, RowsThatDifferInInterfaceOrLastKeyByteShareOneRecord) {
  auto const first = ingressKey(1, 1, "eth2");
  for (auto const& second : {ingressKey(1, 1, "eth3"), ingressKey(1, 1, "eth2", 1)}) {
    double const start = Rix::now();
    ingressRowIs(ingressRow(first, 10));
    runTo(start + 1);
    ingressRowIs(ingressRow(second, 20));
    runTo(start + 6);
    EXPECT_EQ(clientTable().streamRecord(streamId(1))->ingressRecords(), 1u);
    EXPECT_EQ(record(1, 1)->ingressIntf(), Netkit::IntfId("eth2"));
    EXPECT_EQ(record(1, 1)->ingressStats()->probesReceived(), 20u);
    ingressRowDel(first);
    runTo(start + 11);
    EXPECT_EQ(record(1, 1), nullptr);
    ingressRowIs(ingressRow(second, 30));
    runTo(start + 12);
    EXPECT_EQ(record(1, 1)->ingressIntf(), second.ingressIntf);
    EXPECT_EQ(record(1, 1)->ingressStats()->probesReceived(), 30u);
    ingressRowDel(second);
    runTo(start + 20);
    EXPECT_EQ(record(1, 1), nullptr);
  }
}

TEST_F(IngressExporter, ARowThatCameAndWentBetweenTwoRunsIsSkippedByTheDeletePath) {
  runTo(100);
  ingressRowIs(ingressRow(ingressKey(1, 1), 1));
  ingressRowDel(ingressKey(1, 1));
  runTo(100.1);
  EXPECT_EQ(clientTable().streamRecords(), 0u);
  EXPECT_EQ(exporter().entryQueues(), 0u);
}

TEST_F(IngressExporter, StatsThatAreMissingAreMadeOnDemand) {
  ingressRowIs(ingressRow(ingressKey(1, 1), 1));
  runTo(100);
  record(1, 1)->ingressStatsDel();
  ingressRowIs(ingressRow(ingressKey(1, 1), 2));
  runTo(105);
  ASSERT_NE(record(1, 1)->ingressStats(), nullptr);
  EXPECT_EQ(record(1, 1)->ingressStats()->probesReceived(), 2u);
}

TEST_F(IngressExporter, OfACorruptTableQueuedRowsCountAsGoneAndTheOthersKeepTheirRecords) {
  ingressRowIs(ingressRow(ingressKey(1, 1), 1));
  ingressRowIs(ingressRow(ingressKey(2, 1), 2));
  runTo(100);
  ingressRowIs(ingressRow(ingressKey(1, 1), 5));
  spoil(storage, "/tables/ingressStreamStatisticsTable");
  localStatus->poll();  // finds it out first; the run then finds no table any more
  EXPECT_FALSE(localStatus->ingressStreamStatisticsTable().attached());
  runTo(105);
  EXPECT_EQ(record(1, 1), nullptr);
  EXPECT_EQ(record(2, 1)->ingressStats()->probesReceived(), 2u);
  EXPECT_NE(storage.textFile("/tables/ingressStreamStatisticsTable.corruption"), "");
}

TEST_F(IngressExporter, TracesWhatItDoes) {
  std::string const key = ingressKey(1, 4).stringValue();
  ingressRowIs(ingressRow(ingressKey(1, 4), 1));
  runTo(100);
  EXPECT_THAT(traces, Contains(HasSubstr(" key=" + key)));
  EXPECT_THAT(traces, Contains("ingress stream entry added for " + key));
  EXPECT_THAT(traces, Contains("ingress record added for " + key + " ttl:4"));
  ingressRowDel(ingressKey(1, 4));
  runTo(105);
  EXPECT_THAT(traces, Contains("ingress stream entry deleted for " + key));
}

TEST_F(IngressExporterDeathTest, TheLastIngressRecordMayNotLeaveEgressRecordsBehind) {
  egressRowIs(egressKey(1, 1), 1);
  ingressRowIs(ingressRow(ingressKey(1, 1), 1));
  runTo(100);
  ingressRowDel(ingressKey(1, 1));
  EXPECT_DEATH(runTo(110),
               "streamRecord->egressRecords\\(\\) == 0 && "
               "\"Both egress and ingress records present for the stream\"");
}

}  // namespace
}  // namespace Zeb::StatusTest
