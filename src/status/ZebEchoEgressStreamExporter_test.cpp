// From the egress table to the client's egress records: when a run comes, what it writes and what it removes.
#include "status/StatusTest.h"
#include "status/ZebEchoStatusExporterSm.h"

namespace Zeb::StatusTest {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;

class EgressExporter : public Switch {
 protected:
  EgressExporter() { EXPECT_TRUE(exporter().initialized()); }

  ZebEchoEgressStreamExporterSm& exporter() { return *frame->egressStreamExporterSm(); }
  U64 sent(U32 tag, U8 ttl) {
    auto* record = clientTable().streamRecord(streamId(tag));
    return record && record->egressRecord(ttl) ? record->egressRecord(ttl)->egressStats()->numProbesTx() : 0;
  }
  Sonar::TransmitterList* listIs(Sonar::EgressStream const& key, std::initializer_list<char const*> names) {
    auto* list = echoStatus->streamTransmitterMapIs(key);
    for (auto const* name : names) list->transmitterIs(name, true);
    return list;
  }
  std::vector<std::string> probeNames(U32 tag) {
    std::vector<std::string> names;
    for (auto const& entry : clientTable().streamRecord(streamId(tag))->probeNameIterator()) {
      names.emplace_back(entry.key.view());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  Rix::Ptr<ZebEchoStatusExporterSm> frame =
      zebEchoStatusExporterSmFactory(echoStatus, localStatus, zebEchoStatus, ipStatus);
};
using EgressExporterDeathTest = EgressExporter;

TEST_F(EgressExporter, AnEmptyTableAtStartLeavesTheClockUnsetAfterTheFirstRun) {
  EXPECT_EQ(exporter().entryQueueTime(), 100);
  runTo(100);
  EXPECT_EQ(exporter().entryQueueTime(), Rix::never);
  EXPECT_EQ(clientTable().streamRecords(), 0u);
}

TEST_F(EgressExporter, ANewStreamPullsARunForwardAndAllQueuedRowsRideAlong) {
  egressRowIs(egressKey(1, 1), 1);
  runTo(100);
  egressRowIs(egressKey(1, 1), 2);
  runTo(101);
  EXPECT_EQ(exporter().entryQueueTime(), 105);
  egressRowIs(egressKey(2, 1), 7);
  EXPECT_EQ(exporter().entryQueueTime(), 101.1);
  runTo(101.1);
  EXPECT_EQ(sent(1, 1), 2u);
  EXPECT_EQ(sent(2, 1), 7u);
  EXPECT_EQ(exporter().entryQueues(), 0u);
  EXPECT_EQ(exporter().entryQueueTime(), Rix::never);
}

TEST_F(EgressExporter, AChangeOfAKnownStreamIsExportedFiveSecondsLaterAndALaterChangePutsNothingOff) {
  egressRowIs(egressKey(1, 1), 1);
  runTo(100);
  runTo(110);
  egressRowIs(egressKey(1, 1), 2);
  EXPECT_EQ(exporter().entryQueueTime(), 115);
  runTo(111);
  egressRowIs(egressKey(1, 1), 3);
  EXPECT_EQ(exporter().entryQueueTime(), 115);
  runTo(114.9);
  EXPECT_EQ(sent(1, 1), 1u);
  runTo(115);
  EXPECT_EQ(sent(1, 1), 3u);
}

TEST_F(EgressExporter, AKnownStreamsChangeLeavesAClockThatFiresWithinTheFastInterval) {
  egressRowIs(egressKey(1, 1), 1);
  runTo(100);
  egressRowIs(egressKey(2, 1), 1);
  runTo(100.05);
  egressRowIs(egressKey(1, 1), 2);
  EXPECT_EQ(exporter().entryQueueTime(), 100.1);
  egressRowIs(egressKey(3, 1), 1);
  EXPECT_EQ(exporter().entryQueueTime(), 100.1);
  runTo(100.1);
  EXPECT_EQ(sent(1, 1), 2u);
  EXPECT_EQ(sent(3, 1), 1u);
}

TEST_F(EgressExporter, IntervalsThatWereChangedSetThePace) {
  runTo(100);
  exporter().fastExportIntervalIs(0.5);
  exporter().exportIntervalIs(2);
  egressRowIs(egressKey(1, 1), 1);
  EXPECT_EQ(exporter().entryQueueTime(), 100.5);
  runTo(100.5);
  egressRowIs(egressKey(1, 1), 2);
  EXPECT_EQ(exporter().entryQueueTime(), 102.5);
}

TEST_F(EgressExporter, ARowThatCameAndWentBetweenTwoRunsIsSkippedByTheDeletePath) {
  runTo(100);
  egressRowIs(egressKey(1, 1), 1);
  egressRowDel(egressKey(1, 1));
  runTo(100.1);
  EXPECT_EQ(clientTable().streamRecords(), 0u);
  EXPECT_EQ(exporter().entryQueues(), 0u);
  EXPECT_THAT(traces, Contains(HasSubstr("egress stream entry deleted for ")));
}

TEST_F(EgressExporter, RowsThatDifferOnlyInInterfaceShareOneRecord) {
  runTo(100);
  auto const first = egressKey(1, 1, "eth1");
  auto const second = egressKey(1, 1, "eth2");
  egressRowIs(first, 10);
  runTo(101);
  egressRowIs(second, 20);
  runTo(106);
  auto* record = clientTable().streamRecord(streamId(1));
  EXPECT_EQ(record->egressRecords(), 1u);
  EXPECT_EQ(record->egressRecord(1)->egressIntf(), Netkit::IntfId("eth1"));
  EXPECT_EQ(sent(1, 1), 20u);
  egressRowDel(first);
  runTo(111);
  EXPECT_EQ(clientTable().streamRecord(streamId(1)), nullptr);
  runTo(112);
  egressRowIs(second, 30);
  runTo(112.1);
  EXPECT_EQ(clientTable().streamRecord(streamId(1))->egressRecord(1)->egressIntf(), Netkit::IntfId("eth2"));
  EXPECT_EQ(sent(1, 1), 30u);
}

TEST_F(EgressExporter, RowsThatDifferOnlyInTtlOrInterfaceLandUnderOneStreamRecord) {
  egressRowIs(egressKey(1, 1, "eth1"), 1);
  egressRowIs(egressKey(1, 2, "eth1"), 2);
  egressRowIs(egressKey(1, 3, "eth2"), 3);
  runTo(100);
  EXPECT_EQ(clientTable().streamRecords(), 1u);
  EXPECT_EQ(clientTable().streamRecord(streamId(1))->egressRecords(), 3u);
  EXPECT_EQ(sent(1, 3), 3u);
}

TEST_F(EgressExporter, TheStreamRecordGoesInTheSameRunAsItsLastTtl) {
  egressRowIs(egressKey(1, 1), 1);
  egressRowIs(egressKey(1, 2), 1);
  runTo(100);
  egressRowDel(egressKey(1, 1));
  runTo(105);
  EXPECT_EQ(clientTable().streamRecord(streamId(1))->egressRecords(), 1u);
  egressRowDel(egressKey(1, 2));
  runTo(110);
  EXPECT_EQ(clientTable().streamRecords(), 0u);
}

TEST_F(EgressExporter, NeverWritesTheEpoch) {
  egressRowIs(egressKey(1, 1), 1);
  runTo(100);
  EXPECT_EQ(clientTable().streamRecord(streamId(1))->egressRecord(1)->egressStats()->epoch(), Sonar::Epoch{});
}

TEST_F(EgressExporter, RowsThatStandAtTheStartAreExportedByTheFirstRun) {
  frame = nullptr;
  egressRowIs(egressKey(1, 1), 1);
  egressRowIs(egressKey(2, 1), 2);
  frame = zebEchoStatusExporterSmFactory(echoStatus, localStatus, zebEchoStatus, ipStatus);
  EXPECT_EQ(exporter().entryQueueTime(), 100);
  runTo(100);
  EXPECT_EQ(sent(1, 1), 1u);
  EXPECT_EQ(sent(2, 1), 2u);
}

TEST_F(EgressExporter, ARecordWithoutARowAtTheStartIsNotVisited) {
  frame = nullptr;
  clientTable().streamRecordIs(streamId(9))->egressRecordIs(1);
  frame = zebEchoStatusExporterSmFactory(echoStatus, localStatus, zebEchoStatus, ipStatus);
  runTo(100);
  EXPECT_EQ(clientTable().streamRecords(), 1u);
}

TEST_F(EgressExporter, OfACorruptTableQueuedRowsCountAsGoneAndTheOthersKeepTheirRecords) {
  egressRowIs(egressKey(1, 1), 1);
  egressRowIs(egressKey(2, 1), 2);
  runTo(100);
  egressRowIs(egressKey(1, 1), 5);
  spoil(storage, "/tables/egressStreamTable");
  runTo(105);
  EXPECT_EQ(clientTable().streamRecord(streamId(1)), nullptr);
  EXPECT_EQ(sent(2, 1), 2u);
  EXPECT_FALSE(localStatus->egressStreamTable().attached());
  EXPECT_THAT(debugLines, Contains(AllOf(HasSubstr("ShelfMap::corruptionDetected() egressStreamTable"),
                                         HasSubstr("header was erased"))));
  EXPECT_NE(storage.textFile("/tables/egressStreamTable.corruption"), "");
  // The other table goes on.
  ingressRowIs(ingressRow(ingressKey(3, 1), 1));
  runTo(106);
  EXPECT_NE(clientTable().streamRecord(streamId(3)), nullptr);
}

TEST_F(EgressExporter, CorruptionDuringTheFirstWalkEndsItAndSetsTheClockAllTheSame) {
  frame = nullptr;
  egressRowIs(egressKey(1, 1), 1);
  clientTable().streamRecordIs(streamId(1))->egressRecordIs(1);
  spoil(storage, "/tables/egressStreamTable");
  frame = zebEchoStatusExporterSmFactory(echoStatus, localStatus, zebEchoStatus, ipStatus);
  EXPECT_EQ(exporter().entryQueueTime(), 100);
  EXPECT_EQ(exporter().entryQueues(), 0u);
  EXPECT_FALSE(localStatus->egressStreamTable().attached());
  runTo(100);
  EXPECT_NE(clientTable().streamRecord(streamId(1)), nullptr);
}

TEST_F(EgressExporter, TransmittersOfAStreamBecomeItsProbeNames) {
  runTo(100);
  auto* list = listIs(egressKey(1, 9), {"p1:leaves"});
  EXPECT_NE(exporter().transmitterSm(egressKey(1, 9)), nullptr);
  egressRowIs(egressKey(1, 1), 1);
  runTo(100.1);
  EXPECT_EQ(probeNames(1), (std::vector<std::string>{"p1:leaves"}));
  list->transmitterIs("p2:leaves", true);
  EXPECT_EQ(probeNames(1), (std::vector<std::string>{"p1:leaves", "p2:leaves"}));
  list->transmitterDel("p1:leaves");
  EXPECT_EQ(probeNames(1), (std::vector<std::string>{"p2:leaves"}));
  echoStatus->streamTransmitterMapDel(egressKey(1, 9));
  EXPECT_EQ(exporter().transmitterSm(egressKey(1, 9)), nullptr);
  EXPECT_EQ(probeNames(1), std::vector<std::string>{});
}

TEST_F(EgressExporter, ListsThatStandAtTheStartAreMappedByTheFirstRun) {
  frame = nullptr;
  listIs(egressKey(1, 9), {"p1:leaves"});
  egressRowIs(egressKey(1, 1), 1);
  frame = zebEchoStatusExporterSmFactory(echoStatus, localStatus, zebEchoStatus, ipStatus);
  EXPECT_EQ(exporter().transmitterSm(egressKey(1, 9)), nullptr);
  runTo(100);
  EXPECT_EQ(probeNames(1), (std::vector<std::string>{"p1:leaves"}));
}

TEST_F(EgressExporter, ATransmitterReactorLeavesOtherStreamsAlone) {
  runTo(100);
  listIs(egressKey(1, 9), {"p1:leaves"});
  egressRowIs(egressKey(2, 1), 1);
  runTo(100.1);
  EXPECT_EQ(probeNames(2), std::vector<std::string>{});
}

TEST_F(EgressExporter, ARecordThatIsMadeAnewGetsItsProbeNamesAgain) {
  runTo(100);
  listIs(egressKey(1, 9), {"p1:leaves"});
  egressRowIs(egressKey(1, 1), 1);
  runTo(100.1);
  egressRowDel(egressKey(1, 1));
  runTo(105.1);
  EXPECT_EQ(clientTable().streamRecords(), 0u);
  egressRowIs(egressKey(1, 1), 1);
  runTo(105.2);
  EXPECT_EQ(probeNames(1), (std::vector<std::string>{"p1:leaves"}));
}

TEST_F(EgressExporter, TheEndOfTheFrameTakesTheProbeNamesAndLeavesTheRecords) {
  listIs(egressKey(1, 9), {"p1:leaves"});
  egressRowIs(egressKey(1, 1), 1);
  runTo(100);
  frame = nullptr;
  EXPECT_EQ(probeNames(1), std::vector<std::string>{});
  EXPECT_EQ(sent(1, 1), 1u);
  EXPECT_EQ(localStatus->notifieeCount(), 0u);
  EXPECT_EQ(activity.nextDeadline(), Rix::never);
}

TEST_F(EgressExporter, TracesWhatItDoes) {
  std::ostringstream key;
  key << egressKey(1, 4);
  egressRowIs(egressKey(1, 4), 1);
  runTo(100);
  EXPECT_THAT(traces, Contains(HasSubstr(" key=" + key.str())));
  EXPECT_THAT(traces, Contains("new egress stream entry " + key.str()));
  EXPECT_THAT(traces, Contains("new egress record " + key.str() + " ttl:4"));
  egressRowDel(egressKey(1, 4));
  runTo(105);
  EXPECT_THAT(traces, Contains("egress stream entry deleted for " + key.str()));
}

TEST_F(EgressExporterDeathTest, TheLastEgressRecordMayNotLeaveIngressRecordsBehind) {
  egressRowIs(egressKey(1, 1), 1);
  ingressRowIs(ingressRow(ingressKey(1, 1), 1));
  runTo(100);
  egressRowDel(egressKey(1, 1));
  EXPECT_DEATH(runTo(110),
               "streamRecord->ingressRecords\\(\\) == 0 && "
               "\"Both egress and ingress records present for the stream\"");
}

TEST_F(EgressExporterDeathTest, ATransmitterReactorNeedsItsList) {
  egressRowIs(egressKey(1, 1), 1);
  runTo(100);
  EXPECT_DEATH(Rix::make<ZebEchoEgressStreamTransmitterSm>(egressKey(1, 1), nullptr,
                                                           Rix::Ptr<ClientProbeStreamTable>(&clientTable())),
               "!!transmitterList\\(\\)");
}

}  // namespace
}  // namespace Zeb::StatusTest
