// The figures of each probe: what is counted, at which hop, and of which switch.
#include "analysis/ZebStatsEngineSm.h"

#include "analysis/AnalysisTest.h"

namespace Zeb {
namespace {

struct StatsEngine : AnalysisTest {
  Rix::Ptr<ZebConfig> config = Rix::make<ZebConfig>();
  Rix::Ptr<ZebStatsEngineSm> engine;

  StatsEngine() {
    config->probeConfigIs("p");
    client(1, "a");
    client(2, "b");
    client(3, "c");
  }
  void start() {
    engine = zebStatsEngineSmFactory(config, status, Rix::Ptr<ProbeStreamTable const>(root->zebStreamTable()),
                                     Rix::Ptr<ProbeStreamEventTable const>(root->eventTable()));
    engine->hasNotificationActiveIs(true);
  }
  ProbeStatus& probeStatus(char const* name = "p") {
    ProbeStatus* found = status->probeStatus(name);
    RIX_ASSERT(found != nullptr);
    return *found;
  }
  // A stream from switch 1 to switch 2 that serves one transmitter.
  ProbeStreamRecord& stream(U32 tag, char const* transmitter = "p:leaves") {
    ProbeStreamRecord& record = AnalysisTest::stream(streamId(1, 2, tag), 1, 2);
    record.probeNameIs(transmitter, true);
    return record;
  }
  // The switch that receives the TTL, with its counters.
  ProbeStreamSwitchIngressRecord& received(ProbeStreamRecord& record, U8 ttl, U8 number, U64 probesReceived,
                                           U64 probesLost = 0) {
    ProbeStreamSwitchIngressRecord& switchRecord = ingress(record, ttl, number);
    switchRecord.ingressStats()->probesReceivedIs(probesReceived);
    switchRecord.ingressStats()->probesLostIs(probesLost);
    record.ingressRecord(ttl)->currentActiveIngressRecordIs(&switchRecord);
    return switchRecord;
  }
  void sent(ProbeStreamRecord& record, U8 ttl, U64 numProbesTx) {
    record.egressRecordIs(ttl, record.streamId())->egressStatsIs()->numProbesTxIs(numProbesTx);
  }
  static std::vector<U32> ttls(ProbeStreamRecord const& record) {
    std::vector<U32> met;
    for (auto const& each : record.ingressRecordIterator()) met.push_back(each->ttl());
    return met;
  }
};
using StatsEngineDeathTest = StatsEngine;

TEST_F(StatsEngine, WithoutStreamsAllIsZeroAndTheHopStaysAsItWas) {
  status->probeStatusIs("p")->maxHopDistanceIs(7);
  probeStatus().txCountIs(5);
  probeStatus().maxLoadedSwitchIs("a");
  probeStatus().maxLoadedSwitchRxCountIs(9);
  start();
  EXPECT_EQ(probeStatus().activeStreamCount(), 0u);
  EXPECT_EQ(probeStatus().txCount(), 0u);
  EXPECT_EQ(probeStatus().rxCount(), 0u);
  EXPECT_EQ(probeStatus().lossCount(), 0u);
  EXPECT_TRUE(probeStatus().maxLoadedSwitch().empty());
  EXPECT_EQ(probeStatus().maxLoadedSwitchRxCount(), 0u);
  EXPECT_EQ(probeStatus().maxHopDistance(), 7);
}

TEST_F(StatsEngine, ComputesAtOnceAndThenEverySecond) {
  ProbeStreamRecord& record = stream(1);
  auto* const stats = received(record, 1, 2, 10).ingressStats();
  start();
  EXPECT_EQ(probeStatus().rxCount(), 10u);
  stats->probesReceivedIs(20);
  runTo(100.9);
  EXPECT_EQ(probeStatus().rxCount(), 10u);
  runTo(101);
  EXPECT_EQ(probeStatus().rxCount(), 20u);
  stats->probesReceivedIs(30);
  runTo(102);
  EXPECT_EQ(probeStatus().rxCount(), 30u);
}

TEST_F(StatsEngine, OnlyTheLastHopIsCounted) {
  ProbeStreamRecord& record = stream(1);
  sent(record, 1, 100);
  sent(record, 2, 101);
  received(record, 1, 3, 90, 4);
  received(record, 2, 2, 80, 5);
  start();
  EXPECT_EQ(probeStatus().txCount(), 101u);
  EXPECT_EQ(probeStatus().rxCount(), 80u);
  EXPECT_EQ(probeStatus().lossCount(), 5u);
  EXPECT_EQ(probeStatus().activeStreamCount(), 1u);
  EXPECT_EQ(probeStatus().maxHopDistance(), 2);
}

TEST_F(StatsEngine, TtlsBeyondTheLastSwitchDoNotLengthenThePath) {
  ProbeStreamRecord& record = stream(1);
  received(record, 1, 1, 11);
  received(record, 2, 2, 12);
  received(record, 3, 2, 13);
  received(record, 4, 2, 14);
  start();
  EXPECT_EQ(probeStatus().maxHopDistance(), 2);
  EXPECT_EQ(probeStatus().rxCount(), 12u);
}

// In rising order the hop would be 4: A at 1, B at 2, still B at 3, A anew at 4. The collection's order is by reversed
// bits of the TTL, and there it is 3.
TEST_F(StatsEngine, WhenASwitchComesTwiceOnThePathTheOrderOfTheCollectionDecidesTheHop) {
  ProbeStreamRecord& record = stream(1);
  received(record, 1, 1, 11);
  received(record, 2, 2, 12);
  received(record, 3, 2, 13);
  received(record, 4, 1, 14);
  ASSERT_EQ(ttls(record), (std::vector<U32>{4, 2, 1, 3}));
  start();
  EXPECT_EQ(probeStatus().maxHopDistance(), 3);
  EXPECT_EQ(probeStatus().rxCount(), 13u);
}

TEST_F(StatsEngine, TheMostLoadedSwitchIsFoundOverAllTtls) {
  ProbeStreamRecord& record = stream(1);
  received(record, 1, 3, 50);
  received(record, 2, 3, 51);
  received(record, 3, 2, 100);
  start();
  EXPECT_EQ(probeStatus().maxLoadedSwitch(), "c");
  EXPECT_EQ(probeStatus().maxLoadedSwitchRxCount(), 101u);
}

TEST_F(StatsEngine, AmongEquallyLoadedSwitchesTheFirstInTheOrderOfHostNamesByHashStays) {
  Rix::String8 first;
  for (U8 number = 1; number <= 9; ++number) {
    Rix::String8 const hostname("leaf" + std::to_string(number));
    client(number, hostname.charPtr());
    received(stream(number), 1, number, 50);
    bool const isFirst = first.empty() || Rix::bitReverse(hostname.hash()) < Rix::bitReverse(first.hash());
    if (isFirst) first = hostname;
  }
  client(10, "idle");
  received(stream(10), 1, 10, 49);
  start();
  EXPECT_EQ(probeStatus().maxLoadedSwitch(), first);
  EXPECT_EQ(probeStatus().maxLoadedSwitchRxCount(), 50u);
}

TEST_F(StatsEngine, TwoSwitchesOfOneHostNameAreOne) {
  client(3, "b");
  received(stream(1), 1, 1, 50);
  received(stream(2), 1, 2, 30);
  received(stream(3), 1, 3, 30);
  start();
  EXPECT_EQ(probeStatus().maxLoadedSwitch(), "b");
  EXPECT_EQ(probeStatus().maxLoadedSwitchRxCount(), 60u);
}

TEST_F(StatsEngine, ASwitchWithoutAHostNameIsNobodysLoadButItsProbesCount) {
  client(2, "");
  received(stream(1), 1, 2, 30);
  start();
  EXPECT_TRUE(probeStatus().maxLoadedSwitch().empty());
  EXPECT_EQ(probeStatus().maxLoadedSwitchRxCount(), 0u);
  EXPECT_EQ(probeStatus().rxCount(), 30u);
}

TEST_F(StatsEngine, AStreamOfTwoTransmittersOfOneProbeCountsTwice) {
  ProbeStreamRecord& record = stream(1);
  record.probeNameIs("p:hosts", true);
  sent(record, 1, 10);
  received(record, 1, 2, 8, 2);
  start();
  EXPECT_EQ(probeStatus().activeStreamCount(), 2u);
  EXPECT_EQ(probeStatus().txCount(), 20u);
  EXPECT_EQ(probeStatus().rxCount(), 16u);
  EXPECT_EQ(probeStatus().lossCount(), 4u);
  EXPECT_EQ(probeStatus().maxLoadedSwitchRxCount(), 16u);
}

TEST_F(StatsEngine, AStreamOfTwoProbesCountsForEach) {
  config->probeConfigIs("q");
  ProbeStreamRecord& record = stream(1);
  record.probeNameIs("q:leaves", true);
  received(record, 1, 2, 8);
  received(stream(2, "q:leaves"), 3, 3, 9);
  start();
  EXPECT_EQ(probeStatus("p").rxCount(), 8u);
  EXPECT_EQ(probeStatus("q").rxCount(), 17u);
  EXPECT_EQ(probeStatus("p").activeStreamCount(), 1u);
  EXPECT_EQ(probeStatus("q").activeStreamCount(), 2u);
  EXPECT_EQ(probeStatus("p").maxHopDistance(), 1);
  EXPECT_EQ(probeStatus("q").maxLoadedSwitch(), "c");
}

TEST_F(StatsEngine, OnlyTheNameUpToTheFirstColonIsTheProbes) {
  received(stream(1, "p:odd:group"), 1, 2, 8);
  received(stream(2, "pp:leaves"), 1, 2, 1);
  start();
  EXPECT_EQ(probeStatus().rxCount(), 8u);
}

TEST_F(StatsEngine, AStreamThatNamesNoProbeCountsNowhere) {
  ProbeStreamRecord& record = AnalysisTest::stream(streamId(1, 2), 1, 2);
  received(record, 1, 2, 8);
  start();
  EXPECT_EQ(probeStatus().rxCount(), 0u);
  EXPECT_EQ(probeStatus().activeStreamCount(), 0u);
}

TEST_F(StatsEngine, AStreamDormantAtItsHopAddsItsCountersAndIsNotActive) {
  ProbeStreamRecord& record = stream(1);
  received(record, 1, 3, 4);
  received(record, 2, 2, 8, 1).dormantIs(true);
  start();
  EXPECT_EQ(probeStatus().activeStreamCount(), 0u);
  EXPECT_EQ(probeStatus().rxCount(), 8u);
  EXPECT_EQ(probeStatus().lossCount(), 1u);
}

TEST_F(StatsEngine, AStreamThatNoSwitchEverReceivedAddsNothing) {
  ProbeStreamRecord& record = stream(1);
  sent(record, 1, 10);
  ingress(record, 1, 2).ingressStats()->probesReceivedIs(8);  // but it is no TTL's current one
  start();
  EXPECT_EQ(probeStatus().txCount(), 0u);
  EXPECT_EQ(probeStatus().rxCount(), 0u);
  EXPECT_EQ(probeStatus().maxHopDistance(), 0);
  EXPECT_TRUE(probeStatus().maxLoadedSwitch().empty());
}

TEST_F(StatsEngine, ACurrentRecordWithoutCountersIsPassedOver) {
  ProbeStreamRecord& record = stream(1);
  received(record, 2, 2, 8).ingressStatsDel();
  received(record, 1, 3, 4);
  start();
  EXPECT_EQ(probeStatus().maxHopDistance(), 1);
  EXPECT_EQ(probeStatus().rxCount(), 4u);
}

TEST_F(StatsEngine, ACurrentRecordThatIsNoLongerListedStillCounts) {
  ProbeStreamRecord& record = stream(1);
  received(record, 1, 2, 8);
  record.ingressRecord(1)->switchIngressRecordDel(systemId(2));
  start();
  EXPECT_EQ(probeStatus().rxCount(), 8u);
}

TEST_F(StatsEngine, AStreamThatHasEndedCountsWhileItKeepsItsName) {
  ProbeStreamRecord& record = stream(1);
  sent(record, 1, 10);
  received(record, 1, 2, 8).deletedIs(true);
  record.egressRecordDel(1);
  start();
  EXPECT_EQ(probeStatus().rxCount(), 8u);
  EXPECT_EQ(probeStatus().txCount(), 0u);
  EXPECT_EQ(probeStatus().activeStreamCount(), 1u);
  record.probeNameDel("p:leaves");
  runTo(101);
  EXPECT_EQ(probeStatus().rxCount(), 0u);
  EXPECT_EQ(probeStatus().activeStreamCount(), 0u);
  EXPECT_EQ(probeStatus().maxHopDistance(), 1);
}

TEST_F(StatsEngine, TheLastStreamOfTheWalkDecidesTheHopNotTheLongest) {
  received(stream(1), 5, 2, 1);
  received(stream(2), 3, 2, 1);
  start();
  U8 last = 0;
  for (auto const& record : root->zebStreamTable()->streamRecordIterator()) last = record->ingressRecord(5) ? 5 : 3;
  EXPECT_EQ(probeStatus().maxHopDistance(), last);
}

TEST_F(StatsEngine, OnlyTheLowHalfOfACounterIsAdded) {
  ProbeStreamRecord& record = stream(1);
  sent(record, 1, 0x100000003ULL);
  received(record, 1, 2, 0x200000002ULL, 0x300000001ULL);
  start();
  EXPECT_EQ(probeStatus().txCount(), 3u);
  EXPECT_EQ(probeStatus().rxCount(), 2u);
  EXPECT_EQ(probeStatus().lossCount(), 1u);
  EXPECT_EQ(probeStatus().maxLoadedSwitchRxCount(), 2u);
}

TEST_F(StatsEngine, AProbesRowComesAndGoesWithItsConfiguration) {
  received(stream(1, "q:leaves"), 1, 2, 8);
  start();
  EXPECT_EQ(status->probeStatus("q"), nullptr);
  config->probeConfigIs("q");
  EXPECT_EQ(probeStatus("q").rxCount(), 0u);
  runTo(101);
  EXPECT_EQ(probeStatus("q").rxCount(), 8u);
  config->probeConfigDel("q");
  EXPECT_EQ(status->probeStatus("q"), nullptr);
  runTo(102);
  EXPECT_EQ(status->probeStatuss(), 1u);
  EXPECT_EQ(probeStatus("p").rxCount(), 0u);
}

// Watchers of a probe's figures hear of each at most once a second, however many streams there are.
struct FiguresHeard : Rix::Reactor<FiguresHeard> {
  struct RixProbeStatus : Rix::Watch<RixProbeStatus, ProbeStatus const, FiguresHeard> {
    using Watch::Watch;
    void onRxCount() override { ++owner().count; }
    void onMaxHopDistance() override { ++owner().count; }
  };
  explicit FiguresHeard(ProbeStatus const* status) { status_.notifierIs(status); }
  template <class F>
  void rixParts(F&& f) {
    f(status_);
  }
  int count = 0;
  RixProbeStatus status_{this};
};

TEST_F(StatsEngine, EachFigureIsWrittenOnceForEachComputation) {
  auto heard = Rix::make<FiguresHeard>(status->probeStatusIs("p"));
  for (U32 tag = 1; tag <= 50; ++tag) received(stream(tag), static_cast<U8>(1 + tag % 2), 2, tag);
  start();
  EXPECT_EQ(heard->count, 2);
}

TEST_F(StatsEngine, ItsEndStopsTheClock) {
  received(stream(1), 1, 2, 8);
  start();
  EXPECT_TRUE(engine->initialized());
  EXPECT_TRUE(engine->probeActivitySm()->hasNotificationActive());
  engine = nullptr;
  probeStatus().rxCountIs(1);
  runTo(110);
  EXPECT_EQ(probeStatus().rxCount(), 1u);
  EXPECT_EQ(config->notifieeCount(), 0u);
}

TEST_F(StatsEngineDeathTest, AStreamReceivedByASwitchWithoutAClientEndsTheProcessAlsoIfNoProbeOfThatNameStands) {
  ProbeStreamRecord& record = stream(1);
  received(record, 1, 9, 8);
  EXPECT_DEATH(start(), "assertion failed: client != nullptr with 02:00:00:00:00:09");
  record.probeNameDel("p:leaves");
  record.probeNameIs("gone:leaves", true);
  EXPECT_DEATH(start(), "assertion failed: client != nullptr with 02:00:00:00:00:09");
}

TEST_F(StatsEngineDeathTest, AClientThatGoesWhileItsStreamsStandEndsTheProcessAtTheNextSecond) {
  received(stream(1), 1, 2, 8);
  start();
  status->clientDel(systemId(2));
  runTo(100.9);
  EXPECT_DEATH(runTo(101), "assertion failed: client != nullptr with 02:00:00:00:00:02");
}

}  // namespace
}  // namespace Zeb
