// The analysis of a stream's queue: when a batch is analysed, and what each event writes into the loss records.
#include "analysis/ZebStreamEventsAnalyzerSm.h"

#include "analysis/AnalysisTest.h"

namespace Zeb {
namespace {

// Notes when it had its turn, and how many events it saw.
struct AnalyzerLog : ProbeEventsAnalyzerBase {
  using ProbeEventsAnalyzerBase::ProbeEventsAnalyzerBase;
  void doAnalyze(Rix::Ptr<Root> const&, Rix::Ptr<ProbeStreamEventsQueue> const& queue) override {
    turns.emplace_back(Rix::now(), queue->eventRecords());
  }
  std::vector<std::pair<double, U32>> turns;
};
using Turns = std::vector<std::pair<double, U32>>;

struct StreamEvents : AnalysisTest {
  ProbeStreamId const id = streamId(1, 9);
  ProbeStreamRecord& record = stream(id, 1, 9);
  Rix::Ptr<ProbeStreamEventsQueue> const queue = root->zebStreamEventsDir()->streamEventsQueueIs(id);
  Rix::Ptr<AnalyzerLog> const analyzer = Rix::make<AnalyzerLog>("log");
  Rix::Ptr<ZebStreamEventsAnalyzerSm> sm;

  StreamEvents() {
    client(1, "leaf1");
    client(9, "leaf9");
    ingress(record, 3, 5);
    root->analyzerRegistry()->analyzerIs("log", analyzer);
    sm = zebStreamEventsAnalyzerSmFactory(id, root, queue);
  }
  ProbeStreamEventRecord event(EventType type, U32 count = 1, U8 ttl = 3, U8 number = 5) {
    ProbeStreamEventRecord made;
    made.timeStamp = Rix::now();
    made.eventType = type;
    made.ttl = ttl;
    made.ingressSwitchId = systemId(number);
    made.count = count;
    return made;
  }
  void queueEvent(ProbeStreamEventRecord const& made) {
    queue->eventRecordEnq(made);
    queue->queuedEventsInc(1);
  }
  // Queues one event and lets the batch be analysed.
  void analyse(ProbeStreamEventRecord const& made) {
    queueEvent(made);
    runTo(time.now() + 1);
  }
  // Opens the loss record by an event that says nothing else.
  void open() { analyse(event(EventType::eventDormant, 0)); }
  StreamTtlLossRecord& ttlRecord(U8 ttl = 3) { return *lossRecord(id).streamTtlLossRecord(ttl); }
  SwitchHostLossRecord& host(U8 number = 5, U8 ttl = 3) { return *ttlRecord(ttl).hostLossRecord(systemId(number)); }
};

TEST_F(StreamEvents, ABatchWaitsOneSecondFromItsFirstEventAndTheNextBeginsAnew) {
  for (double when : {100.0, 100.4, 100.9}) {
    at(when, [&] { queueEvent(event(EventType::eventProbesReceived)); });
  }
  EXPECT_EQ(sm->deferTimeMin(), 101);
  at(101.2, [&] { queueEvent(event(EventType::eventProbesReceived)); });
  EXPECT_EQ(analyzer->turns, (Turns{{101.0, 3u}}));
  EXPECT_EQ(sm->deferTimeMin(), 102.2);
  runTo(110);
  EXPECT_EQ(analyzer->turns, (Turns{{101.0, 3u}, {102.2, 1u}}));
  EXPECT_EQ(sm->deferTimeMin(), Rix::never);
  EXPECT_EQ(queue->eventRecords(), 0u);
  EXPECT_EQ(queue->queuedEvents(), 0u);
}

TEST_F(StreamEvents, ABatchOfReceivedEventsAloneLeavesNoLossRecordAndIsDeleted) {
  queueEvent(event(EventType::eventProbesReceived));
  queueEvent(event(EventType::eventProbesReceived));
  runTo(101);
  EXPECT_EQ(lossStatus().lossRecords(), 0u);
  EXPECT_EQ(queue->eventRecords(), 0u);
  EXPECT_EQ(analyzer->turns, (Turns{{101.0, 2u}}));
}

TEST_F(StreamEvents, TheFirstEventOfAnotherTypeOpensTheLossRecordForTheRestOfTheBatch) {
  queueEvent(event(EventType::eventProbesReceived));
  queueEvent(event(EventType::eventDormant, 0));
  queueEvent(event(EventType::eventProbesReceived, 2));
  runTo(101);
  StreamLossRecord const& opened = lossRecord(id);
  EXPECT_EQ(opened.srcHostname(), "leaf1");
  EXPECT_EQ(opened.dstHostname(), "leaf9");
  EXPECT_EQ(opened.dstIp(), ipAddr(9));
  EXPECT_EQ(opened.createTime(), 101 + 1.7e9);
  EXPECT_EQ(host().successfulSinceLoss(), 2u);
}

TEST_F(StreamEvents, ThreeProbesReceivedSinceTheLossForgiveIt) {
  analyse(event(EventType::eventProbesLost));
  analyse(event(EventType::eventProbesReceived, 1));
  analyse(event(EventType::eventProbesReceived, 1));
  EXPECT_TRUE(ttlRecord().lossy());
  analyse(event(EventType::eventProbesReceived, 1));
  EXPECT_FALSE(ttlRecord().lossy());
}

TEST_F(StreamEvents, OneEventOfThreeReceivedProbesForgivesTheLossAsWell) {
  analyse(event(EventType::eventProbesLost));
  EXPECT_TRUE(ttlRecord().lossy());
  analyse(event(EventType::eventProbesReceived, 3));
  EXPECT_FALSE(ttlRecord().lossy());
}

TEST_F(StreamEvents, AnotherLossOrDormancyOnTheSameSwitchBeginsTheCountAgain) {
  analyse(event(EventType::eventProbesLost));
  analyse(event(EventType::eventProbesReceived, 2));
  analyse(event(EventType::eventDormant, 0));
  analyse(event(EventType::eventProbesReceived, 2));
  EXPECT_TRUE(ttlRecord().lossy());
}

TEST_F(StreamEvents, ProbesReceivedByAnotherSwitchForgiveTheTtlAsWell) {
  ingress(record, 3, 6);
  analyse(event(EventType::eventProbesLost, 1, 3, 5));
  analyse(event(EventType::eventProbesReceived, 3, 3, 6));
  EXPECT_FALSE(ttlRecord().lossy());
}

TEST_F(StreamEvents, ATtlWithOneDormantSwitchOfTwoIsNotDormant) {
  ingress(record, 3, 6);
  analyse(event(EventType::eventProbesLost, 1, 3, 6));
  analyse(event(EventType::eventDormant, 1, 3, 5));
  EXPECT_TRUE(host(5).dormant());
  EXPECT_FALSE(ttlRecord().dormant());
  EXPECT_TRUE(ttlRecord().dormantSwitchId().isEmpty());
  analyse(event(EventType::eventDormant, 1, 3, 6));
  EXPECT_TRUE(ttlRecord().dormant());
  EXPECT_EQ(ttlRecord().dormantSwitchId(), systemId(6));
  analyse(event(EventType::eventDormant, 0, 3, 5));
  EXPECT_FALSE(ttlRecord().dormant());
  EXPECT_TRUE(ttlRecord().dormantSwitchId().isEmpty());
}

TEST_F(StreamEvents, AReceivedEventAddsItsSwitchAndRecomputesNoDormancy) {
  ingress(record, 3, 6);
  analyse(event(EventType::eventDormant, 1, 3, 5));
  EXPECT_TRUE(ttlRecord().dormant());
  analyse(event(EventType::eventProbesReceived, 1, 3, 6));
  EXPECT_EQ(ttlRecord().hostLossRecords(), 2u);
  EXPECT_TRUE(ttlRecord().dormant());
  EXPECT_EQ(ttlRecord().dormantSwitchId(), systemId(5));
}

TEST_F(StreamEvents, AnEventForATtlThatHasLeftTheStreamIsDropped) {
  open();
  record.ingressRecordDel(3);
  analyse(event(EventType::eventProbesLost));
  EXPECT_FALSE(ttlRecord().lossy());
  EXPECT_EQ(host().lastEventTime(), 100);
}

TEST_F(StreamEvents, AnEventForASwitchThatHasLeftTheTtlIsDropped) {
  open();
  ingress(record, 3, 6);
  record.ingressRecord(3)->switchIngressRecordDel(systemId(5));
  analyse(event(EventType::eventProbesLost));
  EXPECT_FALSE(ttlRecord().lossy());
}

TEST_F(StreamEvents, ADroppedEventOpensALossRecordWithoutTtls) {
  record.ingressRecordDel(3);
  analyse(event(EventType::eventProbesLost));
  EXPECT_EQ(lossRecord(id).streamTtlLossRecords(), 0u);
}

TEST_F(StreamEvents, ADeletedEventActsAsADormantOne) {
  analyse(event(EventType::eventDeleted, 1));
  EXPECT_TRUE(host().dormant());
  EXPECT_EQ(host().dormantChangeCount(), 1u);
  EXPECT_TRUE(ttlRecord().dormant());
  EXPECT_EQ(ttlRecord().dormantSwitchId(), systemId(5));
  analyse(event(EventType::eventDeleted, 0));
  EXPECT_FALSE(host().dormant());
  EXPECT_EQ(host().dormantChangeCount(), 2u);
  EXPECT_FALSE(ttlRecord().dormant());
}

TEST_F(StreamEvents, TheDestinationsDormancyIsTheStreams) {
  ingress(record, 4, 9);
  analyse(event(EventType::eventDormant, 1, 3, 5));
  EXPECT_FALSE(lossRecord(id).destDormant());
  analyse(event(EventType::eventDormant, 1, 4, 9));
  EXPECT_TRUE(lossRecord(id).destDormant());
  analyse(event(EventType::eventDormant, 0, 4, 9));
  EXPECT_FALSE(lossRecord(id).destDormant());
}

TEST_F(StreamEvents, AnOlderEventIsStaleAndOneOfTheSameTimeIsNot) {
  analyse(event(EventType::eventProbesLost));
  auto older = event(EventType::eventProbesMisordered);
  older.timeStamp = 99.9;
  older.probesMisordered = 7;
  older.epoch = Sonar::Epoch{5};
  analyse(older);
  EXPECT_EQ(ttlRecord().misorderingCount(), 0u);
  EXPECT_EQ(host().epochChangeCount(), 0u);
  EXPECT_EQ(host().lastEventTime(), 100);
  auto equal = older;
  equal.timeStamp = 100;
  analyse(equal);
  EXPECT_EQ(ttlRecord().misorderingCount(), 7u);
}

TEST_F(StreamEvents, EveryOtherEpochIsAChangeInNoOrder) {
  auto made = event(EventType::eventProbesLost);
  made.epoch = Sonar::Epoch{8};
  analyse(made);
  EXPECT_EQ(host().epochChangeCount(), 1u);
  made.epoch = Sonar::Epoch{3};
  analyse(made);
  analyse(made);
  EXPECT_EQ(host().epochChangeCount(), 2u);
  EXPECT_EQ(host().epoch(), Sonar::Epoch{3});
  EXPECT_EQ(host().lastEpoch(), Sonar::Epoch{8});
}

TEST_F(StreamEvents, TheFirstEventOfTheDefaultEpochIsNoChange) {
  analyse(event(EventType::eventProbesLost));
  EXPECT_EQ(host().epochChangeCount(), 0u);
}

TEST_F(StreamEvents, RecordsHoldTheAbsoluteCountersOfTheirEvents) {
  auto made = event(EventType::eventProbesLost, 2);
  made.probesReceived = 101;
  made.probesLost = 102;
  made.probesMisordered = 103;
  made.probesDuplicated = 104;
  for (auto type : {EventType::eventProbesLost, EventType::eventProbesMisordered, EventType::eventProbesDuplicated,
                    EventType::eventProbesReceived}) {
    made.eventType = type;
    queueEvent(made);
  }
  runTo(101);
  EXPECT_EQ(host().lossCount(), 102u);
  EXPECT_EQ(ttlRecord().lossCount(), 102u);
  EXPECT_EQ(host().misorderingCount(), 103u);
  EXPECT_EQ(ttlRecord().misorderingCount(), 103u);
  EXPECT_EQ(host().duplicationCount(), 104u);
  EXPECT_EQ(ttlRecord().duplicationCount(), 104u);
  EXPECT_EQ(host().successfulCount(), 101u);
  EXPECT_EQ(ttlRecord().successfulCount(), 101u);
  EXPECT_EQ(host().successfulSinceLoss(), 2u);
  EXPECT_EQ(host().lastEventType(), EventType::eventProbesReceived);
}

TEST_F(StreamEvents, EachOtherReportingSwitchOfATtlIsCountedAndTheFirstOneToo) {
  ingress(record, 3, 6);
  analyse(event(EventType::eventProbesLost, 1, 3, 5));
  EXPECT_EQ(ttlRecord().ingressSwitchChangeCount(), 1u);
  analyse(event(EventType::eventProbesLost, 1, 3, 5));
  EXPECT_EQ(ttlRecord().ingressSwitchChangeCount(), 1u);
  analyse(event(EventType::eventProbesReceived, 1, 3, 6));
  EXPECT_EQ(ttlRecord().ingressSwitchChangeCount(), 2u);
  EXPECT_EQ(ttlRecord().lastIngressSwitchId(), systemId(6));
}

TEST_F(StreamEvents, AnEventOfNoTypeIsNotedAndWritesNothingElse) {
  open();
  analyse(event(EventType::eventNone));
  EXPECT_EQ(host().lastEventType(), EventType::eventNone);
  EXPECT_EQ(host().lastEventTime(), 101);
  EXPECT_FALSE(ttlRecord().lossy());
}

TEST_F(StreamEvents, ABatchOfAStreamThatHasNoRecordIsDropped) {
  queueEvent(event(EventType::eventProbesLost));
  root->zebStreamTable()->streamRecordDel(id);
  TraceLines traces;
  runTo(101);
  EXPECT_EQ(traces.count(" has no psr"), 1);
  EXPECT_EQ(queue->eventRecords(), 0u);
  EXPECT_EQ(lossStatus().lossRecords(), 0u);
}

TEST_F(StreamEvents, AClearedStreamsNextLossOpensAFreshRecord) {
  analyse(event(EventType::eventProbesLost));
  lossStatus().lossRecordDelAll();
  analyse(event(EventType::eventProbesReceived));
  EXPECT_EQ(lossStatus().lossRecords(), 0u);
  analyse(event(EventType::eventProbesLost));
  EXPECT_EQ(host().successfulCount(), 0u);
}

TEST_F(StreamEvents, UpdatingTheTimerWithoutEventsTurnsItOff) {
  queueEvent(event(EventType::eventProbesLost));
  EXPECT_EQ(sm->deferTimeMin(), 101);
  queue->queuedEventsIs(0);
  EXPECT_EQ(sm->deferTimeMin(), 101);
  TraceLines traces;
  sm->doUpdateDeferTimer();
  EXPECT_EQ(sm->deferTimeMin(), Rix::never);
  EXPECT_EQ(traces.count(" no queued events, cancelling timer"), 1);
}

TEST_F(StreamEvents, AFiringWithoutEventsAnalysesNothing) {
  queueEvent(event(EventType::eventProbesLost));
  queue->queuedEventsIs(0);
  runTo(101);
  EXPECT_EQ(analyzer->turns, Turns{});
  EXPECT_EQ(queue->eventRecords(), 1u);
}

TEST_F(StreamEvents, TracesWhatItMakesOfAnEvent) {
  TraceLines traces;
  analyse(event(EventType::eventProbesLost, 2));
  EXPECT_EQ(traces.count("processing event for streamId: leaf1->leaf9"), 1);
  EXPECT_EQ(traces.count(" lossy: true lossCount:0"), 1);
  EXPECT_EQ(traces.count(" ingressSwitchChangeCount:1 lastIngressSwitchId:"), 1);
  analyse(event(EventType::eventProbesReceived, 3));
  EXPECT_EQ(traces.count(" successfulSinceLoss:3, reseting lossy"), 1);
  analyse(event(EventType::eventProbesLost, 1, 3, 7));
  EXPECT_EQ(traces.count(" no switchIngressRecord for:02:00:00:00:00:07"), 1);
  analyse(event(EventType::eventProbesLost, 1, 4, 7));
  EXPECT_EQ(traces.count(" no ingressRecord"), 1);
}

using StreamEventsDeathTest = StreamEvents;

TEST_F(StreamEventsDeathTest, ATtlOfZeroEndsTheProcess) {
  queueEvent(event(EventType::eventProbesLost, 1, 0));
  EXPECT_DEATH(runTo(101), "assertion failed: ttl");
}

TEST_F(StreamEventsDeathTest, ALossOfAStreamWhoseSourceHasNoClientEndsTheProcess) {
  status->clientDel(systemId(1));
  queueEvent(event(EventType::eventProbesLost));
  EXPECT_DEATH(runTo(101), "client != nullptr with 02:00:00:00:00:01");
}

}  // namespace
}  // namespace Zeb
