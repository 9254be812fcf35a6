// The way of an event into its queue, and what stays of it through a disable.
#include "analysis/ZebLossAnalyzerSm.h"

#include "analysis/AnalysisTest.h"
#include "analysis/ZebEventsAnalyzerSm.h"

namespace Zeb {
namespace {

struct Dispatch : AnalysisTest {
  ProbeStreamId const id = streamId(1, 9);
  Rix::Ptr<ZebLossAnalyzerSm> lossAnalyzer;
  Rix::Ptr<ZebEventsAnalyzerSm> eventsAnalyzer;

  void start() {
    lossAnalyzer = zebLossAnalyzerSmFactory(root, root->eventTable(), status);
    if (!eventsAnalyzer) eventsAnalyzer = zebEventsAnalyzerSmFactory(root, root->zebStreamEventsDir());
  }
  ProbeStreamEvent& event() { return *root->eventTable()->eventIs(id); }
  ProbeStreamEventsQueue* queue() { return root->zebStreamEventsDir()->streamEventsQueue(id); }
  std::vector<ProbeStreamEventRecord> queued() {
    std::vector<ProbeStreamEventRecord> records;
    queue()->eventRecord().forEach([&](ProbeStreamEventRecord const& record) { records.push_back(record); });
    return records;
  }
  // One event as the collector writes it.
  void write(EventType type, U32 count) {
    event().upIs(false);
    event().ttlIs(3);
    event().eventTypeIs(type);
    event().countIs(count);
    event().upIs(true);
  }
};

TEST_F(Dispatch, TwoEventsInARowGiveTwoRecordsWithTimesThatDoNotFall) {
  start();
  at(101, [&] {
    write(EventType::eventProbesLost, 2);
    write(EventType::eventProbesLost, 2);
  });
  at(101.5, [&] { write(EventType::eventProbesReceived, 7); });
  auto const records = queued();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0].timeStamp, 101);
  EXPECT_EQ(records[1].timeStamp, 101);
  EXPECT_EQ(records[2].timeStamp, 101.5);
  EXPECT_EQ(queue()->queuedEvents(), 3u);
}

TEST_F(Dispatch, NothingIsQueuedWhenUpFalls) {
  start();
  write(EventType::eventProbesLost, 2);
  EXPECT_EQ(queue()->eventRecords(), 1u);
  event().upIs(false);
  EXPECT_EQ(queue()->eventRecords(), 1u);
}

TEST_F(Dispatch, AStreamThatGoesAndComesBackUsesItsOldQueueAndAnalyzer) {
  start();
  write(EventType::eventProbesLost, 2);
  ProbeStreamEventsQueue* const before = queue();
  ZebStreamEventsAnalyzerSm* const analyzer = eventsAnalyzer->streamEventsAnalyzerSm(id);
  ASSERT_NE(analyzer, nullptr);
  root->eventTable()->eventDel(id);
  EXPECT_EQ(lossAnalyzer->streamLossAnalyzerSm(id), nullptr);
  EXPECT_EQ(queue(), before);
  EXPECT_EQ(queue()->eventRecords(), 1u);
  write(EventType::eventProbesLost, 3);
  EXPECT_NE(lossAnalyzer->streamLossAnalyzerSm(id), nullptr);
  EXPECT_EQ(queue(), before);
  EXPECT_EQ(queue()->eventRecords(), 2u);
  EXPECT_EQ(eventsAnalyzer->streamEventsAnalyzerSm(id), analyzer);
}

TEST_F(Dispatch, AnEventThatIsCompleteAtTheStartIsQueuedOnce) {
  write(EventType::eventProbesLost, 2);
  start();
  EXPECT_EQ(queue()->eventRecords(), 1u);
  EXPECT_EQ(queue()->queuedEvents(), 1u);
}

TEST_F(Dispatch, ARecordIsACopyOfTheWholeEvent) {
  start();
  event().ttlIs(7);
  event().ingressSwitchIdIs(systemId(5));
  event().epochIs(Sonar::Epoch{11});
  event().currentSequenceNumberIs(21);
  event().lastSequenceNumberIs(20);
  event().probesReceivedIs(31);
  event().probesLostIs(32);
  event().probesMisorderedIs(33);
  event().probesDuplicatedIs(34);
  event().eventTypeIs(EventType::eventProbesDuplicated);
  event().countIs(6);
  event().upIs(true);
  ProbeStreamEventRecord wanted;
  wanted.timeStamp = 100;
  wanted.eventType = EventType::eventProbesDuplicated;
  wanted.ttl = 7;
  wanted.ingressSwitchId = systemId(5);
  wanted.epoch = Sonar::Epoch{11};
  wanted.currentSequenceNumber = 21;
  wanted.lastSequenceNumber = 20;
  wanted.probesReceived = 31;
  wanted.probesLost = 32;
  wanted.probesMisordered = 33;
  wanted.probesDuplicated = 34;
  wanted.count = 6;
  EXPECT_EQ(queued(), std::vector{wanted});
}

TEST_F(Dispatch, StartRegistersTheOneAnalyzerAndMakesLoggerAndRecorder) {
  start();
  EXPECT_EQ(root->analyzerRegistry()->analyzers(), 1u);
  EXPECT_TRUE(root->analyzerRegistry()->analyzer("StreamProbeLossOrDormantAnalyzer"));
  EXPECT_NE(lossAnalyzer->sysloggerSm(), nullptr);
  EXPECT_NE(lossAnalyzer->lossPairRecorderSm(), nullptr);
}

TEST_F(Dispatch, AnotherEnableReplacesTheAnalyzerUnderItsName) {
  start();
  auto const first = root->analyzerRegistry()->analyzer("StreamProbeLossOrDormantAnalyzer");
  lossAnalyzer = nullptr;
  EXPECT_EQ(root->analyzerRegistry()->analyzers(), 1u);
  start();
  EXPECT_EQ(root->analyzerRegistry()->analyzers(), 1u);
  EXPECT_FALSE(root->analyzerRegistry()->analyzer("StreamProbeLossOrDormantAnalyzer") == first);
}

TEST_F(Dispatch, WhatWasQueuedBeforeADisableIsAnalysedWhenItsTimerFires) {
  ingress(stream(id, 1, 9), 3, 5);
  client(1, "leaf1");
  client(9, "leaf9");
  start();
  event().ingressSwitchIdIs(systemId(5));
  write(EventType::eventProbesLost, 2);
  lossAnalyzer = nullptr;
  root->eventTable()->eventDelAll();
  EXPECT_EQ(queue()->eventRecords(), 1u);
  runTo(101);
  EXPECT_EQ(queue()->eventRecords(), 0u);
  EXPECT_TRUE(lossRecord(id).streamTtlLossRecord(3)->lossy());
}

TEST_F(Dispatch, AQueueThatHoldsEventsBeforeItsAnalyzerComesIsAnalysedASecondLater) {
  lossAnalyzer = zebLossAnalyzerSmFactory(root, root->eventTable(), status);
  at(101, [&] { write(EventType::eventProbesReceived, 2); });
  at(105, [&] { eventsAnalyzer = zebEventsAnalyzerSmFactory(root, root->zebStreamEventsDir()); });
  EXPECT_EQ(eventsAnalyzer->streamEventsAnalyzerSm(id)->deferTimeMin(), 106);
}

TEST_F(Dispatch, AQueueThatGoesTakesItsAnalyzerAlong) {
  start();
  write(EventType::eventProbesLost, 2);
  root->zebStreamEventsDir()->streamEventsQueueDel(id);
  EXPECT_EQ(eventsAnalyzer->streamEventsAnalyzerSm(id), nullptr);
}

TEST_F(Dispatch, EqualArgumentsKeepTheMachines) {
  Rix::Owned<ZebLossAnalyzerSm> loss;
  auto* first = loss.is(root, root->eventTable(), status);
  EXPECT_EQ(loss.is(root, root->eventTable(), status), first);
  Rix::Owned<ZebEventsAnalyzerSm> events;
  auto* second = events.is(root, root->zebStreamEventsDir());
  EXPECT_EQ(events.is(root, root->zebStreamEventsDir()), second);
}

TEST_F(Dispatch, TracesEachStreamThatComesOrGoes) {
  start();
  TraceLines traces;
  write(EventType::eventProbesLost, 2);
  root->eventTable()->eventDel(id);
  EXPECT_EQ(traces.count("Zeb::ZebLossAnalyzerSm::handleStream(Zeb::ProbeStreamId) streamId:10.0.0.1->10.0.0.9 "
                         "02:00:00:00:01:01->02:00:00:00:01:09 add=1"),
            1);
  EXPECT_EQ(traces.count("ZebLossAnalyzerSm::handleStream(Zeb::ProbeStreamId) streamId:"), 2);
  EXPECT_EQ(traces.count(" add=0"), 1);
}

}  // namespace
}  // namespace Zeb
