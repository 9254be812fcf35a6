// Where a loss is placed, and when a stream has nothing left to report.
#include "analysis/StreamProbeLossOrDormantAnalyzer.h"

#include "analysis/AnalysisTest.h"

namespace Zeb {
namespace {

struct LossOrDormant : AnalysisTest {
  ProbeStreamId const id = streamId(1, 9);
  ProbeStreamRecord& record = stream(id, 1, 9);
  Rix::Ptr<ProbeStreamEventsQueue> const queue = Rix::make<ProbeStreamEventsQueue>(id);
  Rix::Ptr<StreamProbeLossOrDormantAnalyzer> const analyzer = StreamProbeLossOrDormantAnalyzerIs();
  StreamLossRecord& loss = *lossStatus().lossRecordIs(id, "leaf1", "leaf9", ipAddr(9), 0);

  LossOrDormant() {
    client(1, "leaf1");
    client(9, "leaf9");
  }
  void analyse() { analyzer->doAnalyze(root, queue); }
  // A TTL that a switch completed to dormant.
  void dormant(U8 ttl, U8 number) {
    loss.streamTtlLossRecordIs(ttl)->dormantIs(true);
    loss.streamTtlLossRecordIs(ttl)->dormantSwitchIdIs(systemId(number));
  }
  // A TTL at which a switch last received a probe.
  void active(U8 ttl, U8 number) {
    record.ingressRecordIs(ttl)->currentActiveIngressRecordIs(&ingress(record, ttl, number));
  }
  void expectPlace(U8 minLossTtl, Fabric::SystemId minLossDeviceId, U8 minNoLossTtl,
                   Fabric::SystemId minNoLossDeviceId) {
    EXPECT_EQ(loss.minLossTtl(), minLossTtl);
    EXPECT_EQ(loss.minLossDeviceId(), minLossDeviceId);
    EXPECT_EQ(loss.minNoLossTtl(), minNoLossTtl);
    EXPECT_EQ(loss.minNoLossDeviceId(), minNoLossDeviceId);
  }
};

TEST_F(LossOrDormant, TheLowestDormantTtlAndTheNearestAnsweringHopBelowItPlaceTheLoss) {
  dormant(7, 12);
  dormant(5, 11);
  active(7, 12);
  active(5, 11);
  active(4, 13);
  active(3, 14);
  analyse();
  expectPlace(5, systemId(11), 4, systemId(13));
  EXPECT_EQ(loss.updateCounter(), 1u);
}

TEST_F(LossOrDormant, WithTtlOneDormantTheSourceIsTheLastGoodDevice) {
  dormant(1, 11);
  active(1, 11);
  analyse();
  expectPlace(1, systemId(11), 0, systemId(1));
}

TEST_F(LossOrDormant, TtlsWithoutIngressRecordsAreWalkedOver) {
  dormant(5, 11);
  active(5, 11);
  active(2, 12);
  analyse();
  expectPlace(5, systemId(11), 2, systemId(12));
}

TEST_F(LossOrDormant, ATtlThatNoSwitchHasReceivedIsWalkedOver) {
  dormant(5, 11);
  active(5, 11);
  ingress(record, 4, 13);
  active(3, 12);
  analyse();
  expectPlace(5, systemId(11), 3, systemId(12));
}

TEST_F(LossOrDormant, TheActiveSwitchAnswersAlsoWhenItHasLeftTheRecords) {
  dormant(5, 11);
  active(4, 13);
  record.ingressRecord(4)->switchIngressRecordDel(systemId(13));
  analyse();
  expectPlace(5, systemId(11), 4, systemId(13));
}

TEST_F(LossOrDormant, LossWithoutDormancyHasNoPlaceAndKeepsTheLastGoodDevice) {
  dormant(5, 11);
  active(4, 13);
  analyse();
  loss.streamTtlLossRecordIs(5)->dormantIs(false);
  loss.streamTtlLossRecordIs(5)->lossyIs(true);
  analyse();
  expectPlace(255, Fabric::SystemId(), 4, systemId(13));
  EXPECT_EQ(loss.updateCounter(), 2u);
}

TEST_F(LossOrDormant, AStreamWithNothingLeftToReportLosesItsRecord) {
  loss.streamTtlLossRecordIs(3)->lossyIs(true);
  analyse();
  EXPECT_NE(lossStatus().lossRecord(id), nullptr);
  loss.streamTtlLossRecordIs(3)->lossyIs(false);
  analyse();
  EXPECT_EQ(lossStatus().lossRecord(id), nullptr);
}

TEST_F(LossOrDormant, OneMisorderedOrDuplicatedProbeKeepsTheRecord) {
  loss.streamTtlLossRecordIs(3)->misorderingCountIs(1);
  analyse();
  EXPECT_NE(lossStatus().lossRecord(id), nullptr);
  loss.streamTtlLossRecordIs(3)->misorderingCountIs(0);
  loss.streamTtlLossRecordIs(4)->duplicationCountIs(1);
  analyse();
  EXPECT_NE(lossStatus().lossRecord(id), nullptr);
  EXPECT_EQ(loss.updateCounter(), 2u);
}

TEST_F(LossOrDormant, ADormantDestinationIsNotedForGoodAndTheTtlsAreNotLookedAt) {
  loss.destDormantIs(true);
  TraceLines traces;
  analyse();
  EXPECT_EQ(loss.lossRecordType(), LossRecordType::lossRecordDestDormant);
  EXPECT_EQ(static_cast<int>(loss.lossRecordType()), 1);
  EXPECT_EQ(loss.updateCounter(), 1u);
  EXPECT_EQ(traces.count(" destDormant: 1"), 1);
  EXPECT_EQ(traces.count(" partial dormancy/loss observed"), 0);
  loss.destDormantIs(false);
  loss.streamTtlLossRecordIs(3)->lossyIs(true);
  analyse();
  EXPECT_EQ(traces.count(" lossy"), 1);
  EXPECT_EQ(traces.count(" partial dormancy/loss observed"), 1);
  EXPECT_EQ(loss.lossRecordType(), LossRecordType::lossRecordDestDormant);
}

TEST_F(LossOrDormant, ARecordWithoutTtlsIsDeleted) {
  TraceLines traces;
  analyse();
  EXPECT_EQ(lossStatus().lossRecord(id), nullptr);
  EXPECT_EQ(traces.count(" deleting loss record"), 1);
}

TEST_F(LossOrDormant, ADormantTtlOfZeroLeavesTheSourceAsTheLastGoodDevice) {
  dormant(0, 11);
  analyse();
  expectPlace(0, systemId(11), 0, systemId(1));
}

// Notes whether the place stood when the counter moved.
struct PlaceReader : Rix::PtrInterface {
  struct RixLoss : Rix::Watch<RixLoss, StreamLossRecord const, PlaceReader> {
    using Watch::Watch;
    void onUpdateCounter() override { pass(&PlaceReader::handleUpdate); }
  };
  explicit PlaceReader(Rix::Ptr<StreamLossRecord const> const& loss) { loss_.notifierIs(loss); }
  void handleUpdate() {
    complete = loss_->minLossTtl() == 5 && loss_->minLossDeviceId() == systemId(11) && loss_->minNoLossTtl() == 4 &&
               loss_->minNoLossDeviceId() == systemId(13);
  }
  bool complete = false;
  RixLoss loss_{this};
};

TEST_F(LossOrDormant, AllFourFieldsAreCompleteWhenTheCounterMoves) {
  auto reader = Rix::make<PlaceReader>(&loss);
  dormant(5, 11);
  active(4, 13);
  analyse();
  EXPECT_TRUE(reader->complete);
}

TEST_F(LossOrDormant, AStreamWithoutRecordOrLossRecordIsPassedOver) {
  TraceLines traces;
  lossStatus().lossRecordDel(id);
  analyse();
  EXPECT_EQ(traces.count(" has no lr"), 1);
  root->zebStreamTable()->streamRecordDel(id);
  analyse();
  EXPECT_EQ(traces.count(" has no psr"), 1);
}

TEST_F(LossOrDormant, TracesTheWalkAndThePlace) {
  dormant(5, 11);
  active(5, 11);
  ingress(record, 3, 12);
  TraceLines traces;
  analyse();
  EXPECT_EQ(traces.count(" dormant=1"), 1);
  EXPECT_EQ(traces.count(" ttl: 4 no ingressRecord, assuming dormant"), 1);
  EXPECT_EQ(traces.count(" ttl: 3 no current ingressRecord, assuming dormant"), 1);
  EXPECT_EQ(traces.count(" minLossTtl:5 minNoLossTtl:0 minLossDeviceId:02:00:00:00:00:0b "
                         "minNoLossDeviceId:02:00:00:00:00:01"),
            1);
}

}  // namespace
}  // namespace Zeb
