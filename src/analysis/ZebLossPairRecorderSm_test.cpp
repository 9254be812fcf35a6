// Which streams stand on which device pair, and for how long a pair stands.
#include "analysis/ZebLossPairRecorderSm.h"

#include "analysis/AnalysisTest.h"

namespace Zeb {
namespace {

// Notes each device pair that comes or goes.
struct PairLog : Rix::Reactor<PairLog> {
  struct RixLossStatus : Rix::Watch<RixLossStatus, ProbeLossStatus const, PairLog> {
    using Watch::Watch;
    void onDevicePairLossRecord(DevicePair const& pair) override { pass(&PairLog::handleDevicePair, pair); }
  };
  explicit PairLog(Rix::Ptr<ProbeLossStatus const> const& lossStatus) { lossStatus_.notifierIs(lossStatus); }
  template <class F>
  void rixParts(F&& f) {
    f(lossStatus_);
  }
  void handleDevicePair(DevicePair const& pair) {
    seen.emplace_back(lossStatus_->devicePairLossRecord(pair) != nullptr, pair);
  }
  std::vector<std::pair<bool, DevicePair>> seen;
  RixLossStatus lossStatus_{this};
};
using Pairs = std::vector<std::pair<bool, DevicePair>>;

struct PairRecorder : AnalysisTest {
  ProbeStreamId const first = streamId(1, 9, 1);
  ProbeStreamId const second = streamId(1, 9, 2);
  DevicePair const ab{systemId(1), systemId(2)};
  DevicePair const bc{systemId(2), systemId(3)};
  Rix::Ptr<ZebLossPairRecorderSm> recorder;
  Rix::Ptr<PairLog> log = Rix::make<PairLog>(status->lossStatus());

  PairRecorder() {
    stream(first, 1, 9);
    stream(second, 1, 9);
    client(1, "leaf1");
    client(9, "leaf9");
  }
  void start() { recorder = zebLossPairRecorderSmFactory(status, root->zebStreamTable()); }
  StreamLossRecord& open(ProbeStreamId const& id) {
    return *lossStatus().lossRecordIs(id, "leaf1", "leaf9", ipAddr(9), 0);
  }
  // Places a stream's loss, as the analyzer does.
  void place(ProbeStreamId const& id, Fabric::SystemId const& good, Fabric::SystemId const& silent, U8 ttl = 3) {
    StreamLossRecord& loss = open(id);
    loss.minLossTtlIs(ttl);
    loss.minLossDeviceIdIs(silent);
    loss.minNoLossDeviceIdIs(good);
    loss.updateCounterInc(1);
  }
  // How many streams stand on a pair; -1 without the pair.
  int streamsOn(DevicePair const& pair) {
    DevicePairLossRecord* found = lossStatus().devicePairLossRecord(pair);
    return found ? static_cast<int>(found->streamLossRecords()) : -1;
  }
};

TEST_F(PairRecorder, AStreamThatMovesLeavesItsOldPairWhichGoesBeforeTheNewOneComes) {
  start();
  place(first, systemId(1), systemId(2));
  EXPECT_EQ(streamsOn(ab), 1);
  log->seen.clear();
  place(first, systemId(2), systemId(3));
  EXPECT_EQ(log->seen, (Pairs{{false, ab}, {true, bc}}));
  EXPECT_EQ(streamsOn(bc), 1);
  EXPECT_EQ(recorder->streamLossPairRecorderSm(first)->currentLossDevicePair(), bc);
}

TEST_F(PairRecorder, APairStandsUntilItsLastStreamLeaves) {
  start();
  place(first, systemId(1), systemId(2));
  place(second, systemId(1), systemId(2));
  EXPECT_EQ(streamsOn(ab), 2);
  place(first, systemId(2), systemId(3));
  EXPECT_EQ(streamsOn(ab), 1);
  lossStatus().lossRecordDel(second);
  EXPECT_EQ(streamsOn(ab), -1);
}

TEST_F(PairRecorder, RepeatedRunsWithTheSameResultChangeNothing) {
  start();
  place(first, systemId(1), systemId(2));
  DevicePairLossRecord* const record = lossStatus().devicePairLossRecord(ab);
  log->seen.clear();
  place(first, systemId(1), systemId(2));
  EXPECT_EQ(log->seen, Pairs{});
  EXPECT_EQ(lossStatus().devicePairLossRecord(ab), record);
  EXPECT_EQ(streamsOn(ab), 1);
}

TEST_F(PairRecorder, EqualIdsMakeNoPairAndChangeNothing) {
  start();
  place(first, systemId(1), systemId(2));
  place(first, systemId(4), systemId(4));
  EXPECT_EQ(streamsOn(ab), 1);
  EXPECT_EQ(lossStatus().devicePairLossRecords(), 1u);
}

TEST_F(PairRecorder, AZeroIdTakesTheStreamOffItsPairWhichGoesOnBeingNamed) {
  start();
  place(first, systemId(1), systemId(2));
  place(second, systemId(1), systemId(2));
  place(first, Fabric::SystemId(), systemId(2));
  EXPECT_EQ(streamsOn(ab), 1);
  EXPECT_EQ(recorder->streamLossPairRecorderSm(first)->currentLossDevicePair(), ab);
  lossStatus().lossRecordDel(first);
  EXPECT_EQ(streamsOn(ab), 1);
  lossStatus().lossRecordDel(second);
  EXPECT_EQ(streamsOn(ab), -1);
}

TEST_F(PairRecorder, AStreamThatWasTakenOffReturnsToThePairItStillNames) {
  start();
  place(first, systemId(1), systemId(2));
  place(first, systemId(1), Fabric::SystemId());
  EXPECT_EQ(streamsOn(ab), -1);
  place(first, systemId(1), systemId(2));
  EXPECT_EQ(streamsOn(ab), 1);
}

TEST_F(PairRecorder, ALossWithoutPlaceKeepsThePairRecordedLast) {
  start();
  place(first, systemId(1), systemId(2));
  place(first, systemId(1), Fabric::SystemId(), 255);
  EXPECT_EQ(streamsOn(ab), 1);
}

TEST_F(PairRecorder, ANewLossRecordIsLookedAtBeforeItHasAPlaceWithoutHarm) {
  start();
  TraceLines traces;
  open(first);
  EXPECT_EQ(traces.count("lossDeviceIds not set"), 1);
  EXPECT_EQ(lossStatus().devicePairLossRecords(), 0u);
  EXPECT_EQ(recorder->streamLossPairRecorderSm(first)->currentLossDevicePair(), DevicePair());
}

TEST_F(PairRecorder, TheTwoDirectionsOfALinkAreTwoPairs) {
  start();
  place(first, systemId(1), systemId(2));
  place(second, systemId(2), systemId(1));
  EXPECT_EQ(lossStatus().devicePairLossRecords(), 2u);
}

TEST_F(PairRecorder, LossRecordsThatStandAtTheStartAreEnteredOnce) {
  place(first, systemId(1), systemId(2));
  start();
  EXPECT_EQ(streamsOn(ab), 1);
  EXPECT_NE(recorder->eventPathSm(first), nullptr);
  EXPECT_NE(lossStatus().lossEventStreamPath(first), nullptr);
}

TEST_F(PairRecorder, ItsEndTakesEveryStreamOffItsPairAndKeepsTheLossRecords) {
  start();
  place(first, systemId(1), systemId(2));
  place(second, systemId(2), systemId(3));
  recorder = nullptr;
  EXPECT_EQ(lossStatus().devicePairLossRecords(), 0u);
  EXPECT_EQ(lossStatus().lossEventStreamPaths(), 0u);
  EXPECT_EQ(lossStatus().lossRecords(), 2u);
}

TEST_F(PairRecorder, AClearOfTheLossRecordsClearsPairsAndPaths) {
  start();
  place(first, systemId(1), systemId(2));
  place(second, systemId(1), systemId(2));
  lossStatus().lossRecordDelAll();
  EXPECT_EQ(lossStatus().devicePairLossRecords(), 0u);
  EXPECT_EQ(lossStatus().lossEventStreamPaths(), 0u);
  place(first, systemId(1), systemId(2));
  EXPECT_EQ(streamsOn(ab), 1);
}

TEST_F(PairRecorder, FollowsAReplacedLossStatus) {
  start();
  Rix::Ptr<ProbeLossStatus> const old = status->lossStatus();
  status->lossStatusDel();
  status->lossStatusIs();
  old->lossRecordIs(second, "leaf1", "leaf9", ipAddr(9), 0);
  EXPECT_EQ(recorder->streamLossPairRecorderSm(second), nullptr);
  place(first, systemId(1), systemId(2));
  EXPECT_EQ(streamsOn(ab), 1);
}

TEST_F(PairRecorder, EqualArgumentsKeepTheMachine) {
  Rix::Owned<ZebLossPairRecorderSm> owned;
  Rix::Ptr<ProbeStreamTable const> const table = root->zebStreamTable();
  auto* made = owned.is(status, table);
  EXPECT_EQ(owned.is(status, root->zebStreamTable()), made);
}

TEST_F(PairRecorder, TracesEachPairThatComesStandsOrGoes) {
  start();
  TraceLines traces;
  std::string const a = "02:00:00:00:00:01";
  std::string const b = "02:00:00:00:00:02";
  place(first, systemId(1), systemId(2));
  EXPECT_EQ(traces.count("new loss pair, deleting currentLossDevicePair:00:00:00:00:00:00=>00:00:00:00:00:00 "
                         "for stream:leaf1->leaf9"),
            1);
  EXPECT_EQ(traces.count("new devicePairLossRecord:" + a + "=>" + b), 1);
  place(second, systemId(1), systemId(2));
  EXPECT_EQ(traces.count("existing devicePairLossRecord:" + a + "=>" + b), 1);
  place(first, systemId(4), systemId(4));
  EXPECT_EQ(traces.count("minNoLossDeviceId == minLossDeviceId == 02:00:00:00:00:04"), 1);
  lossStatus().lossRecordDelAll();
  EXPECT_EQ(traces.count(" deleting devicePair: " + a + "=>" + b), 1);
}

using PairRecorderDeathTest = PairRecorder;

TEST_F(PairRecorderDeathTest, ASecondSweepOfTheSameRecordsEndsTheProcess) {
  start();
  open(first);
  EXPECT_DEATH(lossStatus().lossRecordNotify(first), "assertion failed: !streamLossPairRecorderSm\\( streamId \\)");
}

TEST_F(PairRecorderDeathTest, APairOfOneDeviceEndsTheProcess) {
  EXPECT_DEATH(ZebStreamLossPairRecorderSm::createDevicePair(systemId(4), systemId(4)),
               "assertion failed: dev1SysId != dev2SysId");
}

TEST_F(PairRecorderDeathTest, ALossRecordOfAnUnknownStreamEndsTheProcess) {
  start();
  EXPECT_DEATH(open(streamId(1, 9, 3)), "assertion failed: streamRecord");
}

}  // namespace
}  // namespace Zeb
