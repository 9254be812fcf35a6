// The whole system on virtual time: healthy it is silent, a loss is named by its pair alone, and a seed is one run.
#include "lab/VirtualFabric.h"

#include <gtest/gtest.h>

#include "lab/Flows.h"
#include "lab/VirtualTest.h"

namespace Lab {
namespace {

class Seeds : public testing::TestWithParam<std::uint64_t> {};
INSTANTIATE_TEST_SUITE_P(Ten, Seeds, testing::Range<std::uint64_t>(1, 11));

TEST_P(Seeds, AHealthyFabricSaysNothing) {
  VirtualFabric fabric(virtualScenario("duration: 60\n"), {.seed = GetParam()});
  fabric.run();
  EXPECT_EQ(fabric.logText(), "");
  EXPECT_TRUE(fabric.standingPairs().empty());
  EXPECT_EQ(fabric.streams(), flowsOf(fabric.topology()).size());
  EXPECT_TRUE(fabric.failures().empty());
}

// Every link of the fabric that carries streams, each in one direction, with a seed of its own.
TEST(VirtualFabric, NamesARealLossByItsPairAlone) {
  std::uint64_t seed = 0;
  for (const int leaf : {1, 2, 3})
    for (const int spine : {1, 2, 3})
      for (const bool up : {true, false}) {
        const std::string leafEnd = "leaf" + std::to_string(leaf) + ":eth" + std::to_string(spine);
        const std::string spineEnd = "spine" + std::to_string(spine) + ":eth" + std::to_string(leaf);
        const std::string& from = up ? leafEnd : spineEnd;
        const std::string& to = up ? spineEnd : leafEnd;
        const Scenario scenario = virtualScenario(
            "faults:\n  - {at: 20, kind: loss, from: \"" + from + "\", to: \"" + to + "\"}\nduration: 45\n",
            {.ports = 6});
        // With some seeds no stream takes this link, and a loss on it could not show.
        while (VirtualFabric(scenario, {.seed = ++seed}).flowsOver(scenario.faults[0].where) == 0) {
        }
        SCOPED_TRACE("seed " + std::to_string(seed) + ", loss from " + from + " to " + to);
        VirtualFabric fabric(scenario, {.seed = seed});
        fabric.run();
        const VirtualFabric::Names pair{from.substr(0, from.find(':')), to.substr(0, to.find(':'))};
        EXPECT_EQ(fabric.namedPairs(), std::vector{pair}) << fabric.logText();
        EXPECT_EQ(fabric.standingPairs(), std::vector{pair});
        ASSERT_FALSE(fabric.log().empty());
        EXPECT_GT(fabric.log()[0].time, 30);
        EXPECT_LT(fabric.log()[0].time, 33);
      }
}

// Everything that a run leaves to chance is in here: a random loss, and what it makes of counters and messages.
TEST(VirtualFabric, IsTheSameRunToTheByteFromTheSameSeed) {
  const auto outcome = [](std::uint64_t seed) {
    VirtualFabric fabric(
        virtualScenario("faults:\n"
                        "  - {at: 12, until: 30, kind: loss, from: \"leaf1:eth1\", to: \"spine1:eth1\"}\n"
                        "  - {at: 15, kind: loss, from: \"spine2:eth3\", to: \"leaf3:eth2\", share: 0.3}\n"
                        "duration: 60\n"),
        {.seed = seed});
    fabric.run();
    return fabric.logText() + fabric.stateText();
  };
  const std::string first = outcome(7);
  EXPECT_NE(first, "");
  EXPECT_EQ(outcome(7), first);
  EXPECT_NE(outcome(8), first);
}

}  // namespace
}  // namespace Lab
