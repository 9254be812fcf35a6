// One order and its transmitter: what is brought into step at the start, and what a change of one key writes.
#include "config/ZebTransmitterConfigSm.h"

#include <random>

#include "config/SwitchConfigTest.h"

namespace Zeb::ConfigTest {
namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr ZebProbeRate slow{1, 1};
constexpr ZebProbeRate fast{50, 1};
constexpr Sonar::SourcePortConfig listedPorts{2, 0, 0, 0};
constexpr Sonar::SourcePortConfig noPorts{0, 1, 0, 0};
constexpr Sonar::SourcePortConfig untouched{7, 7, 7, 7};

Netkit::IntfId intf(std::string const& name) {
  return Netkit::IntfId(name);
}

class TransmitterConfig : public SwitchConfig {
 protected:
  TransmitterConfig() { target->sourcePortConfigIs(untouched); }
  void start() { transmitterSm = zebTransmitterConfigSmFactory(order, target); }

  Rix::Ptr<ZebTransmitterConfig> order = Rix::make<ZebTransmitterConfig>("p:leaves");
  Rix::Ptr<Sonar::TransmitterConfig> target = Rix::make<Sonar::TransmitterConfig>("p:leaves");
  Rix::Ptr<ZebTransmitterConfigSm> transmitterSm;
};

// --- ports ---

TEST_F(TransmitterConfig, AnOrderWithoutPortsLeavesThePortPolicyAsItIs) {
  order->enabledIs(true);
  start();
  EXPECT_TRUE(target->enabled());
  EXPECT_EQ(target->sourcePortConfig(), untouched);
}

TEST_F(TransmitterConfig, TheFirstPortSetsThePolicyAndOnlyTheLastToGoSetsItBack) {
  start();
  order->portIs(20000, true);
  EXPECT_EQ(target->sourcePortConfig(), listedPorts);
  EXPECT_TRUE(target->optionalSourcePortList(20000));
  EXPECT_THAT(traces, Contains("port: 20000 present: 1"));
  order->portIs(20001, true);
  order->portDel(20000);
  EXPECT_EQ(target->sourcePortConfig(), listedPorts);
  EXPECT_EQ(target->optionalSourcePortLists(), 1u);
  order->portDel(20001);
  EXPECT_EQ(target->sourcePortConfig(), noPorts);
  EXPECT_EQ(target->optionalSourcePortLists(), 0u);
  EXPECT_THAT(traces, Contains("port: 20001 present: 0"));
}

TEST_F(TransmitterConfig, ThePolicyIsWrittenBeforeThePortAndBehindItsRemoval) {
  start();
  WriteList<Sonar::TransmitterConfig> writes(target);
  order->portIs(20000, true);
  EXPECT_THAT(writes.take(), ElementsAre("sourcePortConfig", "optionalSourcePortList 20000"));
  order->portDel(20000);
  EXPECT_THAT(writes.take(), ElementsAre("optionalSourcePortList 20000", "sourcePortConfig"));
}

TEST_F(TransmitterConfig, APortOfValueFalseCountsAsAbsent) {
  order->portIs(20000, false);
  start();
  EXPECT_EQ(target->optionalSourcePortLists(), 0u);
  EXPECT_EQ(target->sourcePortConfig(), noPorts);
  order->portIs(20000, true);
  EXPECT_EQ(target->sourcePortConfig(), listedPorts);
  order->portIs(20000, false);
  EXPECT_EQ(target->optionalSourcePortLists(), 0u);
}

TEST_F(TransmitterConfig, SurplusPortsOfTheTransmitterStay) {
  target->optionalSourcePortListIs(19999, true);
  order->portIs(20000, true);
  start();
  EXPECT_TRUE(target->optionalSourcePortList(19999));
  order->portDel(20000);
  EXPECT_TRUE(target->optionalSourcePortList(19999));
  EXPECT_EQ(target->sourcePortConfig(), listedPorts);
}

// --- destinations and interfaces ---

TEST_F(TransmitterConfig, ADestinationIsAddedToAndRemovedFromBothSets) {
  constexpr Netkit::IpAddr ip(0x0a000001);
  start();
  order->ipDestIs(ip, true);
  EXPECT_TRUE(target->ipDest(ip));
  EXPECT_TRUE(target->fullIpDest(ip));
  order->ipDestDel(ip);
  EXPECT_FALSE(target->ipDestHas(ip));
  EXPECT_FALSE(target->fullIpDestHas(ip));
}

TEST_F(TransmitterConfig, WhatTheTransmitterHasBeyondItsOrderIsRemovedAtTheStart) {
  target->sourceInterfaceIs(intf("old"), true);
  target->ipDestIs(Netkit::IpAddr(1), true);
  target->fullIpDestIs(Netkit::IpAddr(1), true);
  target->hopsRateIs(9, {1, 1, 1});
  order->sourceInterfaceIs(intf("eth1"), true);
  order->ipDestIs(Netkit::IpAddr(2), true);
  order->hopsRateIs(1, slow);
  WriteList<Sonar::TransmitterConfig> writes(target);
  start();
  EXPECT_THAT(writes.take(),
              ElementsAre("sourceInterface eth1", "sourceInterface old", "ipDest 0.0.0.2", "fullIpDest 0.0.0.2",
                          "ipDest 0.0.0.1", "fullIpDest 0.0.0.1", "hopsRate 1", "hopsRate 9"));
}

TEST_F(TransmitterConfig, WhatIsInStepAtTheStartIsNotWritten) {
  order->ipDestIs(Netkit::IpAddr(1), true);
  order->hopsRateIs(1, slow);
  order->enabledIs(true);
  start();
  transmitterSm = nullptr;
  WriteList<Sonar::TransmitterConfig> writes(target);
  start();
  EXPECT_THAT(writes.take(), ElementsAre());
}

TEST_F(TransmitterConfig, AKeyOfValueFalseIsNotKept) {
  order->ipDestIs(Netkit::IpAddr(1), false);
  order->sourceInterfaceIs(intf("eth1"), false);
  start();
  EXPECT_EQ(target->ipDests(), 0u);
  EXPECT_EQ(target->sourceInterfaces(), 0u);
  order->ipDestIs(Netkit::IpAddr(1), true);
  EXPECT_TRUE(target->ipDest(Netkit::IpAddr(1)));
  WriteList<Sonar::TransmitterConfig> writes(target);
  order->ipDestIs(Netkit::IpAddr(1), false);
  EXPECT_THAT(writes.take(), ElementsAre("ipDest 0.0.0.1", "fullIpDest 0.0.0.1"));
  EXPECT_EQ(target->ipDests(), 0u);
}

// --- hops ---

TEST_F(TransmitterConfig, AHopGetsItsRateWithTheMark) {
  start();
  order->hopsRateIs(3, fast);
  EXPECT_EQ(target->hopsRate(3), (Sonar::ProbeRate{50, 1, 1}));
}

TEST_F(TransmitterConfig, ARateThatChangesInOneStepStaysTheOldOne) {
  order->hopsRateIs(1, slow);
  start();
  WriteList<Sonar::TransmitterConfig> writes(target);
  order->hopsRateIs(1, fast);
  transmitterSm->sync();
  EXPECT_EQ(target->hopsRate(1), (Sonar::ProbeRate{1, 1, 1}));
  EXPECT_THAT(writes.take(), ElementsAre());
}

TEST_F(TransmitterConfig, ARateThatIsRemovedAndAddedIsTheNewOne) {
  order->hopsRateIs(1, slow);
  order->hopsRateIs(2, slow);
  start();
  order->hopsRateDelAll();
  EXPECT_EQ(target->hopsRates(), 0u);
  order->hopsRateIs(1, fast);
  order->hopsRateIs(2, fast);
  EXPECT_EQ(target->hopsRate(1), (Sonar::ProbeRate{50, 1, 1}));
  EXPECT_EQ(target->hopsRate(2), (Sonar::ProbeRate{50, 1, 1}));
}

TEST_F(TransmitterConfig, ARateOfTheTransmitterFromBeforeIsKeptAtTheStart) {
  target->hopsRateIs(1, {9, 1, 1});
  order->hopsRateIs(1, fast);
  start();
  EXPECT_EQ(target->hopsRate(1), (Sonar::ProbeRate{9, 1, 1}));
}

TEST_F(TransmitterConfig, AnOrderThatLosesAllItsHopsLeavesNone) {
  for (U16 hop = 1; hop <= 4; ++hop) order->hopsRateIs(hop, slow);
  start();
  ASSERT_EQ(target->hopsRates(), 4u);
  order->hopsRateDelAll();
  EXPECT_EQ(target->hopsRates(), 0u);
}

TEST_F(TransmitterConfig, AnOrderWithoutHopsAddsNoneAndRemovesWhatIsThere) {
  target->hopsRateIs(1, {9, 1, 1});
  start();
  EXPECT_EQ(target->hopsRates(), 0u);
}

// --- the whole ---

TEST_F(TransmitterConfig, ItIsSwitchedOnWhenAllElseIsInPlace) {
  order->enabledIs(true);
  order->sourceInterfaceIs(intf("eth1"), true);
  order->ipDestIs(Netkit::IpAddr(1), true);
  order->hopsRateIs(1, slow);
  order->portIs(20000, true);
  WriteList<Sonar::TransmitterConfig> writes(target);
  start();
  EXPECT_THAT(writes.take(), ElementsAre("sourceInterface eth1", "ipDest 0.0.0.1", "fullIpDest 0.0.0.1", "hopsRate 1",
                                         "sourcePortConfig", "optionalSourcePortList 20000", "enabled"));
  EXPECT_THAT(traces, Contains(" enabled:1"));
  order->enabledIs(false);
  EXPECT_FALSE(target->enabled());
  EXPECT_THAT(traces, Contains(" enabled:0"));
}

TEST_F(TransmitterConfig, ADeletedMachineLeavesTheTransmitterAndHearsNothing) {
  order->ipDestIs(Netkit::IpAddr(1), true);
  start();
  transmitterSm = nullptr;
  order->ipDestIs(Netkit::IpAddr(2), true);
  EXPECT_EQ(target->ipDests(), 1u);
  EXPECT_EQ(order->notifieeCount(), 0u);
}

// What a run over whole collections would do, for holding the machine against.
void syncWhole(ZebTransmitterConfig const& order, Sonar::TransmitterConfig& target) {
  for (auto const& entry : order.sourceInterfaceIterator()) target.sourceInterfaceIs(entry.key, true);
  for (auto const& entry : target.sourceInterfaceIterator()) {
    if (!order.sourceInterfaceHas(entry.key)) target.sourceInterfaceDel(entry.key);
  }
  for (auto const& entry : order.ipDestIterator()) {
    target.ipDestIs(entry.key, true);
    target.fullIpDestIs(entry.key, true);
  }
  for (auto const& entry : target.ipDestIterator()) {
    Netkit::IpAddr const ip = entry.key;
    if (order.ipDestHas(ip)) continue;
    target.ipDestDel(ip);
    target.fullIpDestDel(ip);
  }
  for (auto const& entry : order.hopsRateIterator()) {
    if (!target.hopsRateHas(entry.key)) target.hopsRateIs(entry.key, {entry.value.rate, entry.value.scale, 1});
  }
  for (auto const& entry : target.hopsRateIterator()) {
    if (!order.hopsRateHas(entry.key)) target.hopsRateDel(entry.key);
  }
}

// One random change of the order, of the kinds that its writer makes.
void changeAtRandom(ZebTransmitterConfig& order, std::mt19937& random) {
  auto const draw = [&random](U32 below) { return static_cast<U32>(random() % below); };
  switch (draw(7)) {
    case 0:
      return order.sourceInterfaceIs(intf("eth" + std::to_string(draw(5))), true);
    case 1:
      return order.sourceInterfaceDel(intf("eth" + std::to_string(draw(5))));
    case 2:
    case 3:
      return order.ipDestIs(Netkit::IpAddr(1 + draw(20)), true);
    case 4:
      return order.ipDestDel(Netkit::IpAddr(1 + draw(20)));
    case 5:
      return order.hopsRateIs(static_cast<U16>(1 + draw(6)), draw(2) == 0 ? slow : fast);
    default:
      return order.hopsRateDel(static_cast<U16>(1 + draw(6)));
  }
}

TEST_F(TransmitterConfig, AChangedKeyIsWrittenAsARunOverWholeCollectionsWouldWriteIt) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    std::mt19937 random(seed);
    order = Rix::make<ZebTransmitterConfig>("p:leaves");
    target = Rix::make<Sonar::TransmitterConfig>("p:leaves");
    auto const whole = Rix::make<Sonar::TransmitterConfig>("p:leaves");
    // Left behind by an earlier agent.
    auto const before = Rix::make<ZebTransmitterConfig>("p:leaves");
    for (unsigned i = 0; i < 10; ++i) changeAtRandom(*before, random);
    syncWhole(*before, *target);
    syncWhole(*before, *whole);
    for (unsigned i = 0; i < 10; ++i) changeAtRandom(*order, random);

    WriteList<Sonar::TransmitterConfig> writes(target);
    WriteList<Sonar::TransmitterConfig> expected(whole);
    start();
    syncWhole(*order, *whole);
    ASSERT_EQ(writes.take(), expected.take()) << "seed " << seed << " at the start";
    for (unsigned i = 0; i < 200; ++i) {
      changeAtRandom(*order, random);
      syncWhole(*order, *whole);
      ASSERT_EQ(writes.take(), expected.take()) << "seed " << seed << " change " << i;
    }
    for (auto const& entry : whole->hopsRateIterator()) {
      EXPECT_EQ(target->hopsRate(entry.key), entry.value) << "seed " << seed << " hop " << entry.key;
    }
    transmitterSm = nullptr;
  }
}

}  // namespace
}  // namespace Zeb::ConfigTest
