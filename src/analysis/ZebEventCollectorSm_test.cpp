// The event collector: which changes of a counter become which events, and which switch is the active one.
#include "analysis/ZebEventCollectorSm.h"

#include "analysis/AnalysisTest.h"

namespace Zeb {
namespace {

struct Seen {
  EventType type;
  U32 count;
  bool operator==(Seen const&) const = default;
};
std::ostream& operator<<(std::ostream& out, Seen const& seen) {
  return out << seen.type << ' ' << seen.count;
}

// Notes each event of a stream as its slot becomes complete.
struct EventLog : Rix::Reactor<EventLog> {
  struct RixEvent : Rix::Watch<RixEvent, ProbeStreamEvent const, EventLog> {
    using Watch::Watch;
    void onUp() override { pass(&EventLog::handleUp); }
  };
  explicit EventLog(Rix::Ptr<ProbeStreamEvent const> const& event) { event_.notifierIs(event); }
  template <class F>
  void rixParts(F&& f) {
    f(event_);
  }
  void handleUp() {
    ++changes;
    if (event_->up()) seen.push_back({event_->eventType(), event_->count()});
  }
  int changes = 0;
  std::vector<Seen> seen;
  RixEvent event_{this};
};

struct EventCollector : AnalysisTest {
  ProbeStreamId const id = streamId(1, 9);
  ProbeStreamRecord& record = stream(id, 1, 9);
  ProbeStreamSwitchIngressRecord& host = ingress(record, 3, 5);
  ProbeStreamIngressStats& stats = *host.ingressStats();
  Rix::Ptr<ZebEventCollectorSm> collector;
  Rix::Ptr<EventLog> log;

  void start() {
    collector = zebEventCollectorSmFactory(root->zebStreamTable(), root->eventTable(), status);
    log = Rix::make<EventLog>(event());
  }
  ProbeStreamEvent* event() { return root->eventTable()->event(id); }
  std::vector<Seen> taken() { return std::exchange(log->seen, {}); }
};
using Events = std::vector<Seen>;

TEST_F(EventCollector, ARiseCountsItsDifferenceAFallAllOfTheNewValueAndAFallToZeroMakesNoEvent) {
  stats.probesLostIs(5);
  start();
  stats.probesLostIs(8);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesLost, 3}}));
  stats.probesLostIs(2);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesLost, 2}}));
  stats.probesLostIs(0);
  EXPECT_EQ(taken(), Events{});
  EXPECT_TRUE(event()->up());
  stats.probesLostIs(4);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesLost, 4}}));
}

TEST_F(EventCollector, AFlagThatRisesCountsOneAndOneThatFallsCountsZeroAndBothAreEvents) {
  start();
  host.dormantIs(true);
  host.dormantIs(false);
  host.deletedIs(true);
  host.deletedIs(false);
  EXPECT_EQ(taken(), (Events{{EventType::eventDormant, 1},
                             {EventType::eventDormant, 0},
                             {EventType::eventDeleted, 1},
                             {EventType::eventDeleted, 0}}));
}

TEST_F(EventCollector, CountersThatStandWhenASwitchBeginsToReportMakeNoEventUntilTheyMove) {
  start();
  auto newcomer = Rix::make<ProbeStreamSwitchIngressRecord>(systemId(6));
  newcomer->ingressStatsIs()->probesReceivedIs(100);
  auto reactor =
      Rix::make<ZebEventCollectorIngressStreamSm::RixIngressRecord>(newcomer, collector->streamSm(id)->ingressSm(3));
  EXPECT_EQ(taken(), Events{});
  EXPECT_EQ(reactor->probesReceivedLast(), 100u);
  newcomer->ingressStats()->probesReceivedIs(103);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesReceived, 3}}));
}

TEST_F(EventCollector, StandingCountersAreABaselineWhenTheCollectorStarts) {
  stats.probesReceivedIs(100);
  host.dormantIs(true);
  start();
  EXPECT_EQ(event()->eventType(), EventType::eventNone);
  EXPECT_FALSE(event()->up());
  stats.probesReceivedIs(101);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesReceived, 1}}));
}

TEST_F(EventCollector, ACounterThatComesAfterItsRecordIsAnEvent) {
  start();
  ProbeStreamSwitchIngressRecord& newcomer = ingress(record, 4, 6);
  newcomer.ingressStats()->probesReceivedIs(100);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesReceived, 100}}));
  EXPECT_EQ(event()->ttl(), 4);
  EXPECT_EQ(event()->ingressSwitchId(), systemId(6));
}

TEST_F(EventCollector, AReplacedStatsEntityWithLowerCountersIsTheNewBaseline) {
  stats.probesLostIs(50);
  start();
  Rix::Ptr<ProbeStreamIngressStats> const old = &stats;
  host.ingressStatsDel();
  host.ingressStatsIs();
  old->probesLostIs(60);
  EXPECT_EQ(taken(), Events{});
  host.ingressStats()->probesLostIs(70);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesLost, 70}}));
}

TEST_F(EventCollector, TheSwitchThatLastReceivedIsTheActiveOneAlsoWhereTheEventIsDropped) {
  ProbeStreamSwitchIngressRecord& other = ingress(record, 3, 6);
  other.ingressStats()->probesReceivedIs(40);
  start();
  ProbeStreamIngressRecord& ttlRecord = *record.ingressRecord(3);
  stats.probesReceivedIs(1);
  EXPECT_EQ(ttlRecord.currentActiveIngressRecord(), &host);
  EXPECT_EQ(ttlRecord.previousActiveIngressRecord(), nullptr);
  taken();
  other.ingressStats()->probesReceivedIs(0);
  EXPECT_EQ(taken(), Events{});
  EXPECT_EQ(ttlRecord.currentActiveIngressRecord(), &other);
  EXPECT_EQ(ttlRecord.previousActiveIngressRecord(), &host);
  other.ingressStats()->probesReceivedIs(2);
  EXPECT_EQ(ttlRecord.previousActiveIngressRecord(), &host);
}

TEST_F(EventCollector, NothingButReceptionMovesTheActiveSwitch) {
  start();
  host.dormantIs(true);
  stats.probesLostIs(3);
  stats.probesMisorderedIs(3);
  stats.probesDuplicatedIs(3);
  EXPECT_EQ(record.ingressRecord(3)->currentActiveIngressRecord(), nullptr);
}

TEST_F(EventCollector, AnEventCarriesTheCountersOfItsMoment) {
  start();
  stats.epochIs(Sonar::Epoch{4});
  stats.currentSequenceNumberIs(70);
  stats.lastSequenceNumberIs(69);
  stats.probesLostIs(2);
  EXPECT_EQ(event()->probesReceived(), 0u);
  stats.probesReceivedIs(10);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesLost, 2}, {EventType::eventProbesReceived, 10}}));
  EXPECT_EQ(event()->ttl(), 3);
  EXPECT_EQ(event()->ingressSwitchId(), systemId(5));
  EXPECT_EQ(event()->epoch(), Sonar::Epoch{4});
  EXPECT_EQ(event()->currentSequenceNumber(), 70u);
  EXPECT_EQ(event()->lastSequenceNumber(), 69u);
  EXPECT_EQ(event()->probesReceived(), 10u);
  EXPECT_EQ(event()->probesLost(), 2u);
  stats.probesMisorderedIs(1);
  stats.probesDuplicatedIs(1);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesMisordered, 1}, {EventType::eventProbesDuplicated, 1}}));
  EXPECT_EQ(event()->probesMisordered(), 1u);
  EXPECT_EQ(event()->probesDuplicated(), 1u);
}

TEST_F(EventCollector, UpFallsBeforeTheSlotIsWrittenAgain) {
  start();
  stats.probesLostIs(1);
  stats.probesLostIs(2);
  EXPECT_EQ(log->changes, 3);
  EXPECT_EQ(log->seen.size(), 2u);
}

TEST_F(EventCollector, DifferencesAreComputedIn32Bits) {
  U64 const wrap = U64{1} << 32;
  stats.probesReceivedIs(wrap - 2);
  start();
  stats.probesReceivedIs(wrap + 3);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesReceived, 3}}));
  stats.probesReceivedIs(2 * wrap);
  EXPECT_EQ(taken(), Events{});
  stats.probesReceivedIs(3 * wrap + 5);
  stats.probesReceivedIs(4 * wrap + 5);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesReceived, 5}, {EventType::eventProbesReceived, 0}}));
}

TEST_F(EventCollector, TheLastEventIsRememberedAndADroppedOneIsNone) {
  start();
  auto* reactor = collector->streamSm(id)->ingressSm(3)->ingressRecord(systemId(5));
  stats.probesLostIs(1);
  EXPECT_EQ(reactor->lastEvent(), EventType::eventProbesLost);
  stats.probesReceivedIs(1);
  stats.probesLostIs(0);
  EXPECT_EQ(reactor->lastEvent(), EventType::eventProbesReceived);
  EXPECT_EQ(reactor->probesLostLast(), 0u);
}

// Tells whether the stream's reactor still stands when its event goes.
struct TableLog : Rix::Reactor<TableLog> {
  struct RixEventTable : Rix::Watch<RixEventTable, ProbeStreamEventTable const, TableLog> {
    using Watch::Watch;
    void onEvent(ProbeStreamId const& streamId) override { pass(&TableLog::handleEvent, streamId); }
  };
  TableLog(Rix::Ptr<ProbeStreamEventTable const> const& table, ZebEventCollectorSm& collector) : collector_(collector) {
    table_.notifierIs(table);
    seen.clear();
  }
  template <class F>
  void rixParts(F&& f) {
    f(table_);
  }
  void handleEvent(ProbeStreamId const& streamId) {
    seen.push_back(std::string(table_->event(streamId) ? "event " : "no event ") +
                   (collector_.streamSm(streamId) ? "reactor" : "no reactor"));
  }
  ZebEventCollectorSm& collector_;
  std::vector<std::string> seen;
  RixEventTable table_{this};
};

TEST_F(EventCollector, AnEventComesBeforeTheReactorsThatWriteItAndGoesAfterThem) {
  start();
  auto tableLog = Rix::make<TableLog>(root->eventTable(), *collector);
  ProbeStreamId const other = streamId(2, 9);
  stream(other, 2, 9);
  EXPECT_NE(collector->streamSm(other), nullptr);
  root->zebStreamTable()->streamRecordDel(other);
  EXPECT_EQ(collector->streamSm(other), nullptr);
  EXPECT_EQ(tableLog->seen, (std::vector<std::string>{"event no reactor", "no event no reactor"}));
}

TEST_F(EventCollector, RecordsThatGoTakeTheirReactorsAlong) {
  start();
  auto* streamSm = collector->streamSm(id);
  ingress(record, 4, 6);
  EXPECT_NE(streamSm->ingressSm(4)->ingressRecord(systemId(6)), nullptr);
  record.ingressRecord(4)->switchIngressRecordDel(systemId(6));
  EXPECT_EQ(streamSm->ingressSm(4)->ingressRecord(systemId(6)), nullptr);
  record.ingressRecordDel(4);
  EXPECT_EQ(streamSm->ingressSm(4), nullptr);
}

TEST_F(EventCollector, ItsEndForgetsEveryEventAndTheNextStartIsANewBaseline) {
  start();
  stats.probesLostIs(1);
  log = nullptr;
  collector = nullptr;
  EXPECT_EQ(root->eventTable()->events(), 0u);
  stats.probesLostIs(20);
  start();
  EXPECT_FALSE(event()->up());
  stats.probesLostIs(21);
  EXPECT_EQ(taken(), (Events{{EventType::eventProbesLost, 1}}));
}

TEST_F(EventCollector, EqualArgumentsKeepTheMachine) {
  Rix::Owned<ZebEventCollectorSm> owned;
  auto* first = owned.is(root->zebStreamTable(), root->eventTable(), status);
  EXPECT_EQ(owned.is(root->zebStreamTable(), root->eventTable(), status), first);
}

TEST_F(EventCollector, TracesEachLookAtACounter) {
  start();
  client(1, "leaf1");
  client(9, "leaf9");
  TraceLines traces;
  stats.probesLostIs(8);
  EXPECT_EQ(traces.count("streamId: leaf1->leaf9 02:00:00:00:01:01->02:00:00:00:01:09 ttl:3 type: eventProbesLost "
                         "count: 8 lastCount: 0"),
            1);
}

}  // namespace
}  // namespace Zeb
