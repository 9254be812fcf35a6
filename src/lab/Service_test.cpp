// The service as a whole goes off and on, loss records are cleared, and agents die of a failed assertion: what becomes
// of streams, orders and messages.
#include <gtest/gtest.h>

#include "lab/Flows.h"
#include "lab/MovesTest.h"
#include "model/SystemId.h"

#if defined(__has_feature)
#define ZEB_HAS_FEATURE(x) __has_feature(x)
#else
#define ZEB_HAS_FEATURE(x) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || ZEB_HAS_FEATURE(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#endif

namespace Lab {
namespace {

void serviceIs(VirtualFabric& fabric, bool enabled) {
  Change change;
  change.kind = ChangeKind::service;
  change.enabled = enabled;
  fabric.apply(change);
}
void clear(VirtualFabric& fabric) {
  Change change;
  change.kind = ChangeKind::clear;
  fabric.apply(change);
}

std::size_t orders(VirtualFabric& fabric) {
  std::size_t count = 0;
  for (std::size_t node = 0; node < fabric.topology().nodes(); ++node)
    count += fabric.node(node).orders().transmitters();
  return count;
}
std::size_t egressRows(VirtualFabric& fabric) {
  std::size_t count = 0;
  for (std::size_t node = 0; node < fabric.topology().nodes(); ++node) count += fabric.node(node).egressRows().size();
  return count;
}

// An agent that has failed is put aside and never destroyed, and its maps pack their pointers, so that the leak
// detector cannot see what still hangs on them.
struct LeaksAreMeant {
#if defined(__SANITIZE_ADDRESS__) || ZEB_HAS_FEATURE(address_sanitizer)
  __lsan::ScopedDisabler disabler;
#endif
};

class Service : public testing::TestWithParam<std::uint64_t> {
 protected:
  LeaksAreMeant leaksAreMeant;
  Draw run{GetParam(), threeSpines};
  VirtualFabric& fabric = run.fabric;

  void SetUp() override { fabric.runUntil(run.draw(12, 20)); }
  void TearDown() override { EXPECT_EQ(run.wrong, ""); }
};
INSTANTIATE_TEST_SUITE_P(Seeds, Service, testing::Range<std::uint64_t>(1, 11));

// The statistics still count streams of switches that are not known any more, and end the centre at their next second.
// By then the orders have been withdrawn, and the new centre is told that the service is off.
TEST_P(Service, DisabledWithLiveStreamsEndsTheCentreAndLeavesNoStream) {
  ASSERT_EQ(orders(fabric), 3u);
  ASSERT_GT(egressRows(fabric), 0u);
  serviceIs(fabric, false);
  fabric.runUntil(fabric.now() + 0.1);
  EXPECT_EQ(orders(fabric), 0u);
  EXPECT_EQ(egressRows(fabric), 0u);

  fabric.runUntil(fabric.now() + 1);
  ASSERT_EQ(fabric.failures().size(), 1u);
  EXPECT_NE(fabric.failures()[0].find("ZebStatsEngineSm.cpp"), std::string::npos) << fabric.failures()[0];

  fabric.runUntil(fabric.now() + 60);
  EXPECT_EQ(fabric.failures().size(), 1u);
  ASSERT_TRUE(fabric.centreRuns());
  EXPECT_FALSE(fabric.status().enabled());
  EXPECT_EQ(orders(fabric), 0u);
  EXPECT_EQ(fabric.logText(), "");
  run.expectNothingLeft();
}

TEST_P(Service, DisabledAndEnabledAgainGoesOnInSilence) {
  serviceIs(fabric, false);
  fabric.runUntil(fabric.now() + run.draw(0, 12));
  serviceIs(fabric, true);
  fabric.runUntil(fabric.now() + 40);
  EXPECT_EQ(orders(fabric), 3u);
  EXPECT_EQ(fabric.streams(), flowsOf(fabric.topology()).size());
  EXPECT_EQ(fabric.logText(), "");
  EXPECT_TRUE(fabric.standingPairs().empty());

  // It finds losses as before.
  const LinkSide side = run.drawCovered();
  fabric.begin(run.loss(side));
  fabric.runUntil(fabric.now() + 30);
  EXPECT_EQ(fabric.namedPairs(), std::vector{run.pair(side)}) << fabric.logText();
}

// With every stream that it had gone, and the loss mended meanwhile, nothing is left of it.
TEST_P(Service, DisabledDuringALossForgetsIt) {
  Fault loss = run.loss(run.drawCovered());
  loss.until = fabric.now() + 25;
  fabric.begin(loss);
  fabric.runUntil(fabric.now() + 20);
  run.expectNamed(run.pair(loss.where));
  serviceIs(fabric, false);
  fabric.runUntil(fabric.now() + 30);
  run.expectNothingLeft();
  serviceIs(fabric, true);
  fabric.runUntil(fabric.now() + 30);
  EXPECT_EQ(fabric.namedPairs(), std::vector{run.pair(loss.where)}) << fabric.logText();
  EXPECT_TRUE(fabric.standingPairs().empty());
}

// A row that has been dormant all the time tells nothing new: only another loss, or the same one once more, is found
// again.
TEST_P(Service, ALossThatStandsDoesNotComeBackAfterItsRecordsAreCleared) {
  Fault loss = run.loss(run.drawCovered());
  loss.until = fabric.now() + 60;
  fabric.begin(loss);
  fabric.runUntil(fabric.now() + 20);
  const VirtualFabric::Names pair = run.pair(loss.where);
  run.expectNamed(pair);
  EXPECT_EQ(fabric.standingPairs(), std::vector{pair});
  clear(fabric);
  fabric.runUntil(fabric.now() + 0.1);
  EXPECT_TRUE(fabric.standingPairs().empty());
  EXPECT_EQ(fabric.status().lossStatus()->lossRecords(), 0u);
  fabric.runUntil(*loss.until);
  EXPECT_EQ(fabric.namedPairs(), std::vector{pair}) << fabric.logText();
  EXPECT_TRUE(fabric.standingPairs().empty());

  // One pair is logged again after a minute and a half at the earliest.
  fabric.runUntil(fabric.now() + 60);
  fabric.begin(run.loss(loss.where));
  fabric.runUntil(fabric.now() + 30);
  EXPECT_EQ(fabric.namedPairs(), (std::vector{pair, pair})) << fabric.logText();
}

// It has no part in anything until it is enabled. What its probing service was ordered last stands, for nobody is there
// to withdraw it.
TEST_P(Service, OfOneSwitchThatIsOffWhenItsAgentStartsReportsNothing) {
  const std::size_t node = run.drawNode("leaf", 3);
  Change change;
  change.kind = ChangeKind::service;
  change.node = node;
  change.enabled = false;
  fabric.apply(change);
  fabric.runUntil(fabric.now() + 20);
  EXPECT_EQ(fabric.streams(), flowsOf(fabric.topology()).size());  // off from now on, and yet it goes on

  fabric.agentRestart(node, 0.5);
  fabric.runUntil(fabric.now() + 5);
  ASSERT_TRUE(fabric.node(node).agentRuns());
  const auto* client =
      fabric.status().client(Fabric::systemIdFromString(ethernetText(fabric.topology().systemId(node))));
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->reachabilityGroups(), 0u);
  EXPECT_EQ(fabric.node(node).orders().transmitters(), 1u);

  change.enabled = true;
  fabric.apply(change);
  fabric.runUntil(fabric.now() + 40);
  EXPECT_EQ(client->reachabilityGroups(), 1u);
  EXPECT_EQ(fabric.streams(), flowsOf(fabric.topology()).size());
  EXPECT_EQ(fabric.logText(), "");
  EXPECT_TRUE(fabric.failures().empty());
}

// A switch's agent that dies of itself is started anew as one that was ended: its streams go on.
TEST_P(Service, AnAgentThatFailsIsReplacedAndItsStreamsGoOn) {
  const auto before = run.epochs();
  const std::size_t node = run.drawNumber(fabric.topology().nodes());
  fabric.node(node).activity().post([] { RIX_ASSERT(false && "told to"); });
  fabric.runUntil(fabric.now() + 0.5);
  ASSERT_EQ(fabric.failures().size(), 1u);
  EXPECT_NE(fabric.failures()[0].find("told to"), std::string::npos) << fabric.failures()[0];
  EXPECT_FALSE(fabric.node(node).agentRuns());
  fabric.runUntil(fabric.now() + 40);
  EXPECT_TRUE(fabric.node(node).agentRuns());
  EXPECT_EQ(fabric.failures().size(), 1u);
  EXPECT_EQ(run.epochs(), before);
  EXPECT_EQ(fabric.logText(), "");
  EXPECT_EQ(orders(fabric), 3u);
}

}  // namespace
}  // namespace Lab
