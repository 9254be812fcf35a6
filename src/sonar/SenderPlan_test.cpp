// What is sent when, on virtual time, and what a change of orders changes.
#include "sonar/SenderPlan.h"

#include <gtest/gtest.h>

#include "sonar/TestSwitch.h"

namespace Sonar {
namespace {

struct SentProbe {
  Rix::Seconds time;
  OutgoingProbe what;
};

// A switch that sends from lo (10.0.0.9), by default to 10.0.0.1 by port 20000, ttl 1 to 3, ten a second.
class Sender : public testing::Test {
 protected:
  Sender() {
    view.addresses["lo"] = ip(9);
    view.egress = "eth1";
    orders.configuration = 1;
    orders.enabled = true;
    orders.robustness = 5;
    orders.transmitters["p1:leaves"] = {.enabled = true,
                                        .sources = {intf("lo")},
                                        .destinations = {ip(1)},
                                        .hopsRate = {{1, rate(10)}, {2, rate(10)}, {3, rate(10)}},
                                        .ports = {20000}};
  }

  static ProbeRate rate(U16 perSecond) { return {.rate = perSecond, .scale = 1, .marker = 1}; }
  TransmitterOrder& order() { return orders.transmitters["p1:leaves"]; }
  void apply() { plan.ordersAre(now, orders); }

  // Lets time pass in steps of a millisecond and sends what is due.
  std::vector<SentProbe> run(Rix::Seconds length, SendResult outcome = SendResult::sent) {
    std::vector<SentProbe> sent;
    for (Rix::Seconds const end = now + length; now + 1e-9 < end;) {
      now += 0.001;
      std::vector<OutgoingProbe> probes;
      plan.takeDue(now, 1000, probes);
      std::vector<SendResult> const results(probes.size(), outcome);
      plan.results(results);
      for (auto const& probe : probes) sent.push_back({now, probe});
    }
    return sent;
  }

  EgressStream key(U8 ttl, U8 destination = 1, U16 port = 20000, std::string const& egress = "eth1") const {
    EgressStream result;
    result.srcIp = ip(9);
    result.dstIp = ip(destination);
    result.ipProto = Netkit::IpProto(17);
    result.streamPort = port;
    result.ttl = ttl;
    result.egressIntf = intf(egress);
    return result;
  }
  static EgressStream listed(EgressStream stream) {
    stream.ttl = 0;
    stream.egressIntf = Netkit::IntfId();
    return stream;
  }

  Rix::Seconds now = 500;
  U64 lastEpoch = 100;
  Orders orders;
  TestSwitch view;
  TestEgressTable table;
  TestTransmitterMap map;
  Notices notices{[] { return U64{1}; }, 64};
  SenderPlan plan{view, table, map, notices, [this] { return ++lastEpoch; }, 64};
};

TEST_F(Sender, sendsEachTtlAtItsRateWithRisingSequence) {
  order().hopsRate[3] = rate(20);
  apply();
  auto const sent = run(10);
  std::map<U8, std::vector<SentProbe>> byTtl;
  for (auto const& probe : sent) byTtl[probe.what.probe.ttl].push_back(probe);
  ASSERT_EQ(byTtl.size(), 3U);
  EXPECT_EQ(byTtl[1].size(), 100U);
  EXPECT_EQ(byTtl[2].size(), 100U);
  EXPECT_EQ(byTtl[3].size(), 200U);
  for (auto const& [ttl, probes] : byTtl) {
    for (std::size_t i = 0; i < probes.size(); ++i) {
      Probe const& probe = probes[i].what.probe;
      EXPECT_EQ(probe.sequence, i + 1);
      EXPECT_EQ(probe.epoch, 101U);
      EXPECT_EQ(probe.interval, ttl == 3 ? 50000U : 100000U);
      EXPECT_EQ(probe.robustness, 5);
      EXPECT_EQ(probe.distance, 3);
      EXPECT_EQ(probes[i].what.flow, (Flow{ip(9), ip(1), 20000, probePort}));
    }
    EXPECT_EQ(table.rows.at(key(ttl)), probes.size());
  }
}

TEST_F(Sender, aRateMayBeOfLessThanOneASecond) {
  order().hopsRate = {{1, ProbeRate{.rate = 1, .scale = 4, .marker = 1}}};
  apply();
  EXPECT_EQ(run(40).size(), 10U);
}

TEST_F(Sender, spreadsTheTtlsOfAStreamOverItsInterval) {
  apply();
  auto const sent = run(0.1);
  ASSERT_EQ(sent.size(), 3U);
  EXPECT_NEAR(sent[1].time - sent[0].time, 0.0333, 0.002);
  EXPECT_NEAR(sent[2].time - sent[1].time, 0.0333, 0.002);
}

TEST_F(Sender, spreadsStreamsAndDoesSoTheSameInEachRun) {
  order().hopsRate = {{1, rate(10)}};
  order().ports.clear();
  for (U16 port = 20000; port < 20040; ++port) order().ports.insert(port);
  apply();
  SenderPlan second(
      view, table, map, notices, [] { return 1; }, 64);
  second.ordersAre(now, orders);
  EXPECT_EQ(second.nextDue(), plan.nextDue());
  auto const sent = run(0.1);
  ASSERT_EQ(sent.size(), 40U);
  std::map<int, int> perHundredth;
  for (auto const& probe : sent) ++perHundredth[static_cast<int>((probe.time - 500) * 100)];
  for (auto const& [hundredth, count] : perHundredth) EXPECT_LE(count, 12) << hundredth;
  EXPECT_GE(perHundredth.size(), 8U);
}

TEST_F(Sender, deadlinesAreAbsolute) {
  order().hopsRate = {{1, rate(10)}};
  apply();
  Rix::Seconds const first = plan.nextDue();
  std::vector<OutgoingProbe> probes;
  for (int i = 0; i < 1000; ++i) {
    EXPECT_NEAR(plan.nextDue(), first + i * 0.1, 1e-6);
    plan.takeDue(plan.nextDue() + 0.004, 10, probes);  // always a little late
    std::vector<SendResult> const results(1, SendResult::sent);
    plan.results(results);
  }
  EXPECT_NEAR(plan.counts().worstLateness, 0.004, 1e-6);
  EXPECT_EQ(plan.counts().skipped, 0U);
}

TEST_F(Sender, theFirstDeadlineMayBeMissedToo) {
  order().hopsRate = {{1, rate(10)}};
  apply();
  std::vector<OutgoingProbe> probes;
  plan.takeDue(plan.nextDue() + 0.03, 10, probes);
  ASSERT_EQ(probes.size(), 1U);
  EXPECT_NEAR(plan.counts().worstLateness, 0.03, 1e-9);
}

TEST_F(Sender, aLateProbeIsSentAndWhatWasMissedAltogetherIsLeftOutWithoutAGap) {
  order().hopsRate = {{1, rate(10)}};
  apply();
  run(1);
  now += 2;  // the process did not run
  auto const sent = run(1);
  EXPECT_EQ(sent.size(), 11U);
  EXPECT_EQ(plan.counts().skipped, 19U);
  EXPECT_EQ(sent.front().what.probe.sequence, 11U);
  EXPECT_EQ(table.rows.at(key(1)), 21U);
}

TEST_F(Sender, aProbeThatTheKernelRefusesIsNoLostProbe) {
  order().hopsRate = {{1, rate(10)}};
  apply();
  run(1);
  EXPECT_EQ(run(1, SendResult::failed).size(), 10U);
  EXPECT_EQ(run(1, SendResult::busy).size(), 10U);
  EXPECT_EQ(plan.counts().failed, 10U);
  EXPECT_EQ(plan.counts().busy, 10U);
  EXPECT_EQ(table.rows.at(key(1)), 10U);
  EXPECT_EQ(run(0.1).front().what.probe.sequence, 11U);
}

TEST_F(Sender, oneStreamPerSourceDestinationAndPort) {
  view.addresses["eth5"] = ip(8);
  order().sources = {intf("lo"), intf("eth5")};
  order().destinations = {ip(1), ip(2), ip(3)};
  order().ports = {20000, 20001};
  order().hopsRate = {{1, rate(1)}, {2, rate(1)}};
  apply();
  EXPECT_EQ(map.streams.size(), 12U);
  EXPECT_EQ(table.rows.size(), 24U);
  EXPECT_EQ(plan.streamsOf("p1:leaves"), 12U);
  EXPECT_EQ(plan.endpoints(),
            (std::set<SourceEndpoint>{{ip(8), 20000}, {ip(8), 20001}, {ip(9), 20000}, {ip(9), 20001}}));
}

TEST_F(Sender, aTransmitterWithoutPortsUsesTheDefaultOne) {
  order().ports.clear();
  apply();
  EXPECT_EQ(plan.endpoints(), (std::set<SourceEndpoint>{{ip(9), defaultSourcePort}}));
}

TEST_F(Sender, listsAStreamOnceWithAllItsTransmitters) {
  orders.transmitters["p2:leaves"] = order();
  apply();
  ASSERT_EQ(map.streams.size(), 1U);
  auto const& [stream, names] = *map.streams.begin();
  EXPECT_EQ(stream, listed(key(1)));
  EXPECT_EQ(names, (std::set<std::string>{"p1:leaves", "p2:leaves"}));
  EXPECT_EQ(run(1).size(), 30U);
  orders.transmitters.erase("p1:leaves");
  apply();
  EXPECT_EQ(map.streams.begin()->second, (std::set<std::string>{"p2:leaves"}));
  EXPECT_EQ(run(1).back().what.probe.epoch, 101U);
}

TEST_F(Sender, aSmallerDistanceLeavesTheStreamListed) {
  apply();
  order().hopsRate.erase(1);
  apply();
  EXPECT_TRUE(map.streams.contains(listed(key(2))));
  EXPECT_EQ(table.deleted, (std::vector{key(1)}));
}

TEST_F(Sender, transmittersThatShareAStreamRunAtTheHigherRate) {
  orders.transmitters["p2:leaves"] = order();
  orders.transmitters["p2:leaves"].hopsRate = {{3, rate(50)}, {4, rate(5)}};
  apply();
  std::map<U8, int> count;
  for (auto const& probe : run(10)) ++count[probe.what.probe.ttl];
  EXPECT_EQ(count, (std::map<U8, int>{{1, 100}, {2, 100}, {3, 500}, {4, 50}}));
}

TEST_F(Sender, hopsWrittenAgainUnchangedKeepTheirStreamItsEpochAndItsDeadlines) {
  apply();
  run(1.05);
  Rix::Seconds const due = plan.nextDue();
  auto const rows = table.rows;
  apply();
  EXPECT_EQ(plan.nextDue(), due);
  EXPECT_EQ(table.rows, rows);
  EXPECT_TRUE(table.deleted.empty());
  for (auto const& probe : run(1)) {
    EXPECT_EQ(probe.what.probe.epoch, 101U);
    EXPECT_GT(probe.what.probe.sequence, 10U);
  }
  EXPECT_EQ(lastEpoch, 101U);
}

TEST_F(Sender, aNewTtlOfARunningStreamBeginsItsOwnEpoch) {
  apply();
  run(1);
  order().hopsRate[4] = rate(10);
  apply();
  for (auto const& probe : run(1)) EXPECT_EQ(probe.what.probe.epoch, probe.what.probe.ttl == 4 ? 102U : 101U);
}

TEST_F(Sender, aStreamThatStartsAgainHasANewEpochAndItsRowsStartAgain) {
  apply();
  run(1);
  order().enabled = false;
  apply();
  EXPECT_TRUE(table.rows.empty());
  EXPECT_TRUE(map.streams.empty());
  EXPECT_EQ(plan.nextDue(), Rix::never);
  EXPECT_TRUE(run(1).empty());
  order().enabled = true;
  apply();
  EXPECT_EQ(table.rows.at(key(1)), 0U);
  auto const sent = run(1);
  ASSERT_EQ(sent.size(), 30U);
  EXPECT_EQ(sent.front().what.probe.epoch, 102U);
  EXPECT_EQ(sent.front().what.probe.sequence, 1U);
}

TEST_F(Sender, aFasterRateHoldsAtOnceAndKeepsTheEpoch) {
  order().hopsRate = {{1, rate(1)}};
  apply();
  run(5);
  order().hopsRate = {{1, rate(10)}};
  apply();
  auto const sent = run(1);
  EXPECT_GE(sent.size(), 9U);
  EXPECT_EQ(sent.front().what.probe.interval, 100000U);
  EXPECT_EQ(sent.front().what.probe.epoch, 101U);
  EXPECT_EQ(sent.front().what.probe.sequence, 6U);
}

// A receiver expects probes at the interval that it was told last.
TEST_F(Sender, aSlowerRateIsToldAtTheOldPaceFirst) {
  order().hopsRate = {{1, rate(10)}};
  apply();
  run(1);
  order().hopsRate = {{1, rate(1)}};
  apply();
  auto const sent = run(10);
  ASSERT_GE(sent.size(), 10U);
  for (std::size_t i = 0; i < sent.size(); ++i) EXPECT_EQ(sent[i].what.probe.interval, 1000000U);
  for (std::size_t i = 1; i < sent.size(); ++i) {
    EXPECT_NEAR(sent[i].time - sent[i - 1].time, i < 5 ? 0.1 : 1.0, 0.002) << i;
  }
}

TEST_F(Sender, aFreshConfigurationIsFollowedWhenItIsEnabled) {
  apply();
  run(1);
  Orders fresh;
  fresh.configuration = 2;
  plan.ordersAre(now, fresh);
  EXPECT_EQ(run(1).size(), 30U);
  fresh.transmitters["p1:leaves"] = order();
  plan.ordersAre(now, fresh);
  EXPECT_EQ(run(1).size(), 30U);
  fresh.enabled = true;
  plan.ordersAre(now, fresh);
  auto const sent = run(1);
  EXPECT_EQ(sent.size(), 30U);
  EXPECT_EQ(sent.front().what.probe.epoch, 101U);
  EXPECT_EQ(sent.front().what.probe.sequence, 31U);
}

TEST_F(Sender, nothingRunsBeforeAConfigurationIsEnabled) {
  orders.enabled = false;
  apply();
  EXPECT_TRUE(run(1).empty());
  EXPECT_TRUE(table.rows.empty());
}

TEST_F(Sender, theConfigurationThatRunsEndsAllWhenItIsDisabled) {
  apply();
  run(1);
  orders.enabled = false;
  apply();
  EXPECT_TRUE(run(1).empty());
  EXPECT_TRUE(table.rows.empty());
}

TEST_F(Sender, aSourceWithoutAnAddressWaitsInSilence) {
  view.addresses.erase("lo");
  apply();
  EXPECT_TRUE(run(1).empty());
  EXPECT_TRUE(table.rows.empty());
  EXPECT_EQ(plan.counts().failed, 0U);
  view.addresses["lo"] = ip(9);
  plan.switchChanged(now);
  EXPECT_EQ(run(1).size(), 30U);
}

TEST_F(Sender, anotherSourceAddressIsAnotherStream) {
  apply();
  run(1);
  view.addresses["lo"] = ip(7);
  plan.switchChanged(now);
  auto const sent = run(1);
  ASSERT_EQ(sent.size(), 30U);
  EXPECT_EQ(sent.front().what.flow.source, ip(7));
  EXPECT_EQ(sent.front().what.probe.epoch, 102U);
  EXPECT_EQ(table.deleted.size(), 3U);
}

TEST_F(Sender, whatCannotBeSentIsNotOrdered) {
  view.addresses["eth1"] = ip(2);
  order().destinations = {Netkit::IpAddr(), ip(2), ip(9)};
  apply();
  EXPECT_TRUE(table.rows.empty());
  order().destinations = {ip(1)};
  order().hopsRate = {{0, rate(10)}, {256, rate(10)}, {300, rate(10)}, {4, ProbeRate{}}};
  apply();
  EXPECT_TRUE(table.rows.empty());
  order().hopsRate[255] = rate(1);
  apply();
  EXPECT_EQ(table.rows.size(), 1U);
}

TEST_F(Sender, aStreamThatHasNoWayIsShownWithItsFirstProbe) {
  view.unrouted.insert(ip(1));
  apply();
  run(0.5, SendResult::failed);
  EXPECT_TRUE(table.rows.empty());
  view.unrouted.clear();
  run(0.2);
  EXPECT_EQ(table.rows.size(), 3U);
}

TEST_F(Sender, theEgressInterfaceOfARowStaysWhileItsStreamLives) {
  apply();
  view.egress = "eth2";
  plan.switchChanged(now);
  order().hopsRate[4] = rate(10);
  apply();
  EXPECT_TRUE(table.rows.contains(key(4)));
  EXPECT_TRUE(table.deleted.empty());
}

TEST_F(Sender, anEgressInterfaceThatIsNotKnownIsTheSource) {
  view.egress = "";
  apply();
  EXPECT_TRUE(table.rows.contains(key(1, 1, 20000, "lo")));
}

TEST_F(Sender, thereIsABoundToWhatIsSent) {
  order().ports.clear();
  for (U16 port = 20000; port < 20040; ++port) order().ports.insert(port);
  apply();
  EXPECT_EQ(table.rows.size(), 64U);
  EXPECT_EQ(plan.counts().refused, 120U - 64U);
  order().ports = {20000};
  apply();
  EXPECT_EQ(table.rows.size(), 3U);
  EXPECT_EQ(plan.counts().refused, 0U);
}

}  // namespace
}  // namespace Sonar
