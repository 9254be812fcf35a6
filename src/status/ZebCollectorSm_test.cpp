// What the collector makes of the switches' reports: which central records stand, who is source and destination, and
// what stays when a TTL, a stream or a switch goes.
#include "status/ZebCollectorSm.h"
#include "status/CollectorTest.h"

namespace Zeb::StatusTest {
namespace {

using testing::Contains;
using testing::Not;

class Collector : public testing::Test {
 protected:
  Collector() {
    Rix::traceSinkIs([this](Rix::TraceLine const& line) { traces.emplace_back(line.text); });
    Rix::traceLevelsIs("*", ~0U);
    for (auto* reporter : {&sender, &receiver, &spine}) reporter->connect();
  }
  ~Collector() override {
    Rix::traceLevelsIs("*", 0);
    Rix::traceSinkIs({});
  }

  ProbeStreamRecord* stream(U32 tag) { return streamTable->streamRecord(streamId(tag)); }
  ProbeStreamSwitchIngressRecord* switchRecord(U32 tag, U8 ttl, SwitchStatus const& reporter) {
    auto* record = stream(tag) ? stream(tag)->ingressRecord(ttl) : nullptr;
    return record ? record->switchIngressRecord(reporter.id()) : nullptr;
  }
  ZebClientWaveStatusSm::RixStreamRecord* reactor(SwitchStatus const& reporter, U32 tag) {
    return collector->clientSm(reporter.id())->streamRecord(streamId(tag));
  }
  void addressIs(SwitchStatus const& owner, Netkit::IpAddr address) {
    zebStatus->clientIs(owner.id())->reachabilityGroupIs("leaves")->interfaceIpIs("lo", address);
  }

  std::vector<std::string> traces;
  Rix::Ptr<ZebStatus> zebStatus = Rix::make<ZebStatus>();
  Rix::Ptr<Rix::Dir> dir = Rix::make<Rix::Dir>("waveStatusDir");
  Rix::Ptr<ProbeStreamTable> streamTable = Rix::make<ProbeStreamTable>("streams");
  SwitchStatus sender{dir, 1};
  SwitchStatus receiver{dir, 2};
  SwitchStatus spine{dir, 3};
  Rix::Ptr<ZebCollectorSm> collector = zebCollectorSmFactory(zebStatus, dir, streamTable);
};

TEST_F(Collector, AnIngressRecordBeforeAnyEgressRecordIsCompleteAndFindsItsDestination) {
  addressIs(receiver, destinationIp);
  receiver.ingressIs(1, 4, 7);
  ASSERT_NE(stream(1), nullptr);
  EXPECT_TRUE(stream(1)->sourceId().isEmpty());
  EXPECT_EQ(stream(1)->destinationId(), receiver.id());
  EXPECT_EQ(stream(1)->egressRecords(), 0u);
  EXPECT_EQ(switchRecord(1, 4, receiver)->ingressStats()->probesReceived(), 7u);
  EXPECT_THAT(traces, Contains("destinationId: 02:00:00:00:00:02 stream: " + streamId(1).stringValue()));
  sender.egressIs(1, 4, 8);
  EXPECT_EQ(stream(1)->sourceId(), sender.id());
}

TEST_F(Collector, ASentTtlThatAReceiverDropsIsKeptAsDeletedWithItsCountersAndComesBackToLife) {
  sender.egressIs(1, 4, 10);
  auto* client = receiver.ingressIs(1, 4, 7);
  Rix::Ptr<ProbeStreamSwitchIngressRecord> const record = switchRecord(1, 4, receiver);
  Rix::Ptr<ProbeStreamIngressStats> const stats = record->ingressStats();
  Rix::Ptr<ClientProbeStreamIngressRecord> const gone = client;
  receiver.ingressDel(1, 4);
  EXPECT_TRUE(record->deleted());
  EXPECT_EQ(switchRecord(1, 4, receiver), record.get());
  EXPECT_EQ(reactor(receiver, 1)->ingressRecordSm(4), nullptr);
  gone->ingressStats()->probesReceivedIs(9);
  EXPECT_EQ(stats->probesReceived(), 7u);
  receiver.ingressIs(1, 4, 3);
  EXPECT_FALSE(record->deleted());
  EXPECT_EQ(switchRecord(1, 4, receiver), record.get());
  EXPECT_EQ(record->ingressStats(), stats.get());
  EXPECT_EQ(stats->probesReceived(), 3u);
}

TEST_F(Collector, ATtlThatIsSentNoMoreGoesWithItsLastReceiver) {
  sender.egressIs(1, 4, 10);
  receiver.ingressIs(1, 4, 7);
  spine.ingressIs(1, 4, 7);
  sender.egressDel(1, 4);
  EXPECT_EQ(stream(1)->egressRecord(4), nullptr);
  EXPECT_FALSE(switchRecord(1, 4, receiver)->deleted());
  receiver.ingressDel(1, 4);
  EXPECT_EQ(switchRecord(1, 4, receiver), nullptr);
  EXPECT_NE(switchRecord(1, 4, spine), nullptr);
  EXPECT_EQ(reactor(receiver, 1)->ingressRecordSm(4), nullptr);
  spine.ingressDel(1, 4);
  EXPECT_EQ(stream(1)->ingressRecord(4), nullptr);
  EXPECT_THAT(traces, Contains("ingress record deleted. ttl=4"));
  EXPECT_NE(stream(1), nullptr);
}

TEST_F(Collector, AReceiversRecordMarkedDeletedOutlivesTheStream) {
  sender.egressIs(1, 4, 10);
  receiver.ingressIs(1, 4, 7);
  receiver.ingressDel(1, 4);
  sender.egressDel(1, 4);
  EXPECT_TRUE(switchRecord(1, 4, receiver)->deleted());
}

TEST_F(Collector, TwoSwitchesOfOneTtlStandUnderOneIngressRecordAndEachCaresForItsOwn) {
  sender.egressIs(1, 4, 10);
  receiver.ingressIs(1, 4, 7);
  spine.ingressIs(1, 4, 5);
  EXPECT_EQ(stream(1)->ingressRecords(), 1u);
  EXPECT_EQ(stream(1)->ingressRecord(4)->switchIngressRecords(), 2u);
  spine.table().streamRecord(streamId(1))->ingressRecord(4)->ingressStats()->probesReceivedIs(6);
  EXPECT_EQ(switchRecord(1, 4, receiver)->ingressStats()->probesReceived(), 7u);
  EXPECT_EQ(switchRecord(1, 4, spine)->ingressStats()->probesReceived(), 6u);
  spine.ingressDel(1, 4);
  EXPECT_TRUE(switchRecord(1, 4, spine)->deleted());
  EXPECT_FALSE(switchRecord(1, 4, receiver)->deleted());
}

TEST_F(Collector, AStreamWhoseAddressIsInNoGroupOfTheSwitchHasNoDestination) {
  receiver.ingressIs(1, 4, 7);  // no client of that name
  EXPECT_TRUE(stream(1)->destinationId().isEmpty());
  addressIs(receiver, Netkit::IpAddr(0x0a0000ff));
  for (U8 ttl = 5; ttl < 20; ++ttl) receiver.ingressIs(1, ttl, ttl);
  EXPECT_TRUE(stream(1)->destinationId().isEmpty());
  addressIs(spine, sourceIp);
  spine.ingressIs(1, 4, 1);
  EXPECT_TRUE(stream(1)->destinationId().isEmpty());
}

TEST_F(Collector, AStreamThatIsOnlySentHasNoDestination) {
  addressIs(receiver, destinationIp);
  sender.egressIs(1, 4, 10);
  EXPECT_EQ(stream(1)->sourceId(), sender.id());
  EXPECT_TRUE(stream(1)->destinationId().isEmpty());
}

TEST_F(Collector, TheLastSwitchHandledIsTheDestinationAndItIsNeverCleared) {
  addressIs(receiver, destinationIp);
  addressIs(spine, destinationIp);
  receiver.ingressIs(1, 4, 7);
  spine.ingressIs(1, 4, 7);
  EXPECT_EQ(stream(1)->destinationId(), spine.id());
  spine.ingressDel(1, 4);
  EXPECT_EQ(stream(1)->destinationId(), spine.id());
}

TEST_F(Collector, AClientThatComesLateIsTheDestinationOnceATtlComesOrGoes) {
  receiver.ingressIs(1, 4, 7);
  addressIs(receiver, destinationIp);
  receiver.ingressIs(1, 4, 8);
  EXPECT_TRUE(stream(1)->destinationId().isEmpty());
  receiver.ingressIs(1, 5, 1);
  EXPECT_EQ(stream(1)->destinationId(), receiver.id());
}

TEST_F(Collector, ATtlThatNobodyKnowsIsPassedOverWithoutATrace) {
  sender.egressIs(1, 4, 10);
  auto* streamReactor = reactor(sender, 1);
  traces.clear();
  streamReactor->handleIngressRecord(9);
  EXPECT_EQ(traces.size(), 1u);  // the handler's own entry
  EXPECT_EQ(stream(1)->ingressRecord(9), nullptr);
}

TEST_F(Collector, ATtlThatOthersReportIsLeftAlone) {
  receiver.ingressIs(1, 4, 7);
  sender.egressIs(1, 4, 10);
  EXPECT_THAT(traces, Contains("no switch ingress record. switchId=02:00:00:00:00:01ttl=4"));
  EXPECT_FALSE(switchRecord(1, 4, receiver)->deleted());
}

TEST_F(Collector, ASwitchsOwnEgressChangeDecidesAnewOverItsKeptIngressRecord) {
  sender.egressIs(1, 4, 10);
  sender.ingressIs(1, 4, 1);
  sender.ingressDel(1, 4);
  EXPECT_TRUE(switchRecord(1, 4, sender)->deleted());
  sender.egressDel(1, 4);
  EXPECT_EQ(stream(1)->ingressRecord(4), nullptr);
}

TEST_F(Collector, ANewSwitchRecordIsMadeWithZeroStatsAndItsCountersComeAsChanges) {
  auto listener = Rix::make<SwitchRecordSm>(streamTable, streamId(1), U8{4}, receiver.id());
  receiver.disconnect();
  receiver.ingressIs(1, 4, 7);
  receiver.connect();
  EXPECT_EQ(listener->heard, Heard{"probesReceived"});
}

TEST_F(Collector, CountersThatAlreadyStoodAreNoChanges) {
  receiver.ingressIs(1, 4, 7);
  auto listener = Rix::make<SwitchRecordSm>(streamTable, streamId(1), U8{4}, receiver.id());
  receiver.disconnect();
  receiver.connect();
  EXPECT_EQ(listener->heard, Heard{});
  collector = nullptr;
  collector = zebCollectorSmFactory(zebStatus, dir, streamTable);
  EXPECT_EQ(listener->heard, Heard{});
}

TEST_F(Collector, ASwitchThatLeavesTakesNothingAndItsReturnBringsItsOwnValuesAlsoLowerOnes) {
  addressIs(receiver, destinationIp);
  sender.egressIs(1, 4, 10);
  receiver.ingressIs(1, 4, 7)->dormantIs(true);
  sender.disconnect();
  receiver.disconnect();
  EXPECT_EQ(collector->clientSm(receiver.id()), nullptr);
  EXPECT_EQ(stream(1)->sourceId(), sender.id());
  EXPECT_EQ(stream(1)->destinationId(), receiver.id());
  EXPECT_EQ(stream(1)->egressRecord(4)->egressStats()->numProbesTx(), 10u);
  EXPECT_FALSE(switchRecord(1, 4, receiver)->deleted());
  EXPECT_TRUE(switchRecord(1, 4, receiver)->dormant());
  EXPECT_THAT(traces, Contains("Stream deleted for 10.0.0.1<->10.0.0.2 at 02:00:00:00:00:02"));
  EXPECT_THAT(traces, Contains("Deleting clientSm of client=02:00:00:00:00:02"));
  receiver.status = Rix::make<ZebSonarStatusV1>();
  receiver.ingressIs(1, 4, 2);
  receiver.connect();
  EXPECT_EQ(switchRecord(1, 4, receiver)->ingressStats()->probesReceived(), 2u);
  EXPECT_FALSE(switchRecord(1, 4, receiver)->dormant());
}

TEST_F(Collector, TheEndOfAClientStreamEndsItsReactorAndLeavesTheCentralRecord) {
  sender.egressIs(1, 4, 10);
  sender.egressDel(1, 4);
  sender.table().streamRecordDel(streamId(1));
  EXPECT_EQ(reactor(sender, 1), nullptr);
  EXPECT_EQ(stream(1)->egressRecords(), 0u);
  EXPECT_EQ(stream(1)->sourceId(), sender.id());
}

TEST_F(Collector, AStreamThatVanishesWithItsTtlsUnseenLeavesThemAtTheCentre) {
  receiver.ingressIs(1, 4, 7);
  receiver.table().streamRecordDel(streamId(1));
  EXPECT_EQ(switchRecord(1, 4, receiver)->ingressStats()->probesReceived(), 7u);
  EXPECT_FALSE(switchRecord(1, 4, receiver)->deleted());
}

TEST_F(Collector, ProbeNamesFollowTheSendersRecord) {
  sender.egressIs(1, 4, 10);
  auto* record = sender.table().streamRecord(streamId(1));
  record->probeNameIs("p1:leaves", true);
  EXPECT_TRUE(stream(1)->probeName("p1:leaves"));
  record->probeNameDel("p1:leaves");
  EXPECT_FALSE(stream(1)->probeNameHas("p1:leaves"));
  EXPECT_THAT(traces, Contains("probeName: p1:leaves stream: " + streamId(1).stringValue()));
}

TEST_F(Collector, ProbeNamesThatStandAtTheAttachAreTakenAndNoneIsRemoved) {
  sender.disconnect();
  sender.egressIs(1, 4, 10);
  sender.table().streamRecord(streamId(1))->probeNameIs("p2:leaves", true);
  streamTable->streamRecordIs(streamId(1))->probeNameIs("p1:leaves", true);
  sender.connect();
  EXPECT_TRUE(stream(1)->probeName("p1:leaves"));
  EXPECT_TRUE(stream(1)->probeName("p2:leaves"));
}

TEST_F(Collector, AnotherTableOfTheSwitchRebuildsItsReactors) {
  receiver.ingressIs(1, 4, 7);
  receiver.status->probeStreamTableDel();
  EXPECT_EQ(collector->clientSm(receiver.id())->streamRecords(), 0u);
  receiver.status->probeStreamTableIs();
  receiver.ingressIs(2, 4, 5);
  EXPECT_EQ(collector->clientSm(receiver.id())->clientStreamTable(), receiver.status->probeStreamTable());
  EXPECT_EQ(reactor(receiver, 1), nullptr);
  EXPECT_NE(reactor(receiver, 2), nullptr);
  EXPECT_EQ(switchRecord(1, 4, receiver)->ingressStats()->probesReceived(), 7u);
}

TEST_F(Collector, AnotherRecordOfOneStreamReplacesTheReactor) {
  receiver.ingressIs(1, 4, 7);
  auto other = Rix::make<ClientProbeStreamRecord>(streamId(1));
  other->ingressRecordIs(4)->ingressStatsIs()->probesReceivedIs(9);
  auto* replaced = collector->clientSm(receiver.id())->streamRecordIs(other);
  EXPECT_EQ(replaced->clientRecord(), other.get());
  EXPECT_EQ(switchRecord(1, 4, receiver)->ingressStats()->probesReceived(), 9u);
}

TEST_F(Collector, AnEntityOfAnotherKindGivesAReactorWithNothingToWatch) {
  receiver.disconnect();
  dir->entityPtrIs(receiver.name(), Rix::make<Rix::Dir>("other"));
  ASSERT_NE(collector->clientSm(receiver.id()), nullptr);
  EXPECT_EQ(collector->clientSm(receiver.id())->clientStreamTable(), nullptr);
}

TEST_F(Collector, AnotherStatusUnderAStandingSystemIdIsANameInUse) {
  auto* standing = collector->clientSm(receiver.id());
  try {
    collector->clientSmIs(receiver.id(), zebStatus, Rix::make<ZebSonarStatusV1>(), streamTable);
    FAIL() << "expected NameInUseException";
  } catch (Rix::NameInUseException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute _clientWaveStatus has a "
                 "different value of an object than the current value of an object not allowed");
  }
  EXPECT_EQ(collector->clientSmIs(receiver.id(), zebStatus, receiver.status, streamTable), standing);
}

TEST_F(Collector, ANullStreamRecordIsARangeException) {
  try {
    collector->clientSm(receiver.id())->streamRecordIs(nullptr);
    FAIL() << "expected RangeException";
  } catch (Rix::RangeException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "null _streamRecord parameter to mutator for Zeb::ZebClientWaveStatusSm::streamRecord not allowed\"");
  }
}

TEST_F(Collector, TracesWhatItDecides) {
  std::string const key = streamId(1).stringValue();
  sender.egressIs(1, 4, 10);
  receiver.ingressIs(1, 4, 7);
  receiver.ingressDel(1, 4);
  sender.egressDel(1, 4);
  for (auto const& text :
       {std::string("client=02:00:00:00:00:01"), std::string("Creating clientSm for client=02:00:00:00:00:01"),
        std::string("client=02:00:00:00:00:01 srcIp=10.0.0.1 dstIp=10.0.0.2"), key + " egress record added, ttl=4",
        std::string("ingress record added. switchId=02:00:00:00:00:02ttl=4"),
        std::string("switch ingress record marked deleted. switchId=02:00:00:00:00:02ttl=4"),
        key + " egress record deleted, ttl=4"}) {
    EXPECT_THAT(traces, Contains(text));
  }
  EXPECT_THAT(traces, Not(Contains("ingress record deleted. ttl=4")));
  receiver.ingressIs(1, 4, 8);
  receiver.ingressDel(1, 4);
  EXPECT_THAT(traces, Contains("switch ingress record deleted. switchId=02:00:00:00:00:02ttl=4"));
  EXPECT_THAT(traces, Contains("ingress record deleted. ttl=4"));
}

TEST_F(Collector, ItsEndTakesAllReactorsAndLeavesTheCentralTable) {
  sender.egressIs(1, 4, 10);
  receiver.ingressIs(1, 4, 7);
  collector = nullptr;
  EXPECT_EQ(dir->notifieeCount(), 0u);
  EXPECT_EQ(receiver.table().notifieeCount(), 0u);
  EXPECT_EQ(receiver.table().streamRecord(streamId(1))->notifieeCount(), 0u);
  EXPECT_EQ(switchRecord(1, 4, receiver)->ingressStats()->probesReceived(), 7u);
}

}  // namespace
}  // namespace Zeb::StatusTest
