// Routes on small fabrics, as they are and with links gone, and what follows for a fabric from its faults.
#include "lab/Routing.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "lab/Condition.h"
#include "lab/Flows.h"
#include "lab/LabTest.h"

namespace Lab {
namespace {

constexpr std::size_t spine1 = 0, spine2 = 1, leaf1 = 2, leaf2 = 3, leaf4 = 5;

std::vector<std::string> names(const Scenario& scenario, const NextHops& hops) {
  std::vector<std::string> result;
  for (const LinkSide side : hops) result.push_back(scenario.endName(side));
  return result;
}

using Names = std::vector<std::string>;

Scenario fabricOf(const std::string& nodes, const std::vector<std::pair<std::string, std::string>>& links) {
  std::string text = "{name: t, duration: 1, topology: {nodes: {" + nodes + "}, links: [";
  for (const auto& [a, b] : links) text += "{endpoints: [\"" + a + "\", \"" + b + "\"]}, ";
  return readScenario(text + "]}}", "test");
}

TEST(Routing, UsesAllShortestWays) {
  const Scenario scenario = fabricScenario("duration: 1\n");
  const Topology topology(scenario);
  const Routes routes = shortestRoutes(topology, std::vector<bool>(8, true));
  EXPECT_EQ(names(scenario, routes[leaf1][leaf4]), (Names{"leaf1:eth1", "leaf1:eth2"}));
  EXPECT_EQ(names(scenario, routes[leaf1][spine2]), Names{"leaf1:eth2"});
  EXPECT_EQ(names(scenario, routes[spine1][leaf4]), Names{"spine1:eth4"});
  EXPECT_EQ(routes[leaf1][leaf1], NextHops());
}

TEST(Routing, NeverGoesUpAgainAfterItWentDown) {
  const Scenario scenario = fabricScenario("duration: 1\n");
  const Topology topology(scenario);
  std::vector<bool> up(8, true);
  EXPECT_EQ(shortestRoutes(topology, up)[spine1][spine2], NextHops()) << "a leaf carries what is between spines";
  up[6] = false;  // leaf4 to spine1
  const Routes routes = shortestRoutes(topology, up);
  EXPECT_EQ(routes[spine1][leaf4], NextHops()) << "spine1 would go down to a leaf and up again";
  EXPECT_EQ(names(scenario, routes[leaf1][leaf4]), Names{"leaf1:eth2"});
  EXPECT_EQ(names(scenario, routes[leaf4][leaf1]), Names{"leaf4:eth2"});
  EXPECT_EQ(names(scenario, routes[leaf1][leaf2]), (Names{"leaf1:eth1", "leaf1:eth2"})) << "others are not touched";
}

TEST(Routing, PassesByANearerNeighbourBelowThatWouldGoUp) {
  // From t to d there is a long way down by a and b. Its neighbour x is nearer to d, but only by going up to s.
  const Scenario scenario =
      fabricOf("t: {tier: 4}, s: {tier: 4}, a: {tier: 3}, b: {tier: 2}, x: {tier: 2}, d: {tier: 1}",
               {{"t:1", "a:1"}, {"a:2", "b:1"}, {"b:2", "d:1"}, {"t:2", "x:1"}, {"x:2", "s:1"}, {"s:2", "d:2"}});
  const Topology topology(scenario);
  const Routes routes = shortestRoutes(topology, std::vector<bool>(6, true));
  EXPECT_EQ(names(scenario, routes[0][5]), Names{"t:1"});
  EXPECT_EQ(names(scenario, routes[4][5]), Names{"x:2"});
}

TEST(Routing, WithoutTiersTakesTheShortestWayWhateverItIs) {
  const Scenario ring =
      fabricOf("a: , b: , c: , d: ", {{"a:1", "b:2"}, {"b:1", "c:2"}, {"c:1", "d:2"}, {"d:1", "a:2"}});
  const Topology topology(ring);
  Routes routes = shortestRoutes(topology, std::vector<bool>(4, true));
  EXPECT_EQ(names(ring, routes[0][2]), (Names{"a:1", "a:2"}));
  EXPECT_EQ(names(ring, routes[0][1]), Names{"a:1"});
  routes = shortestRoutes(topology, {false, true, true, true});
  EXPECT_EQ(names(ring, routes[0][1]), Names{"a:2"});
}

TEST(Routing, UsesParallelLinksSideBySide) {
  const Scenario scenario = fabricOf("a: {tier: 1}, b: {tier: 2}", {{"a:1", "b:1"}, {"a:2", "b:2"}});
  const Topology topology(scenario);
  EXPECT_EQ(names(scenario, shortestRoutes(topology, {true, true})[0][1]), (Names{"a:1", "a:2"}));
}

// Whatever the fabric: along next hops every way ends at its destination and never goes up after it went down.
TEST(Routing, HasNoLoopAndNoValleyOnRandomFabrics) {
  std::mt19937 random(3);
  for (int round = 0; round < 200; ++round) {
    const std::size_t count = 3 + random() % 8;
    std::string nodes;
    for (std::size_t node = 0; node < count; ++node) {
      const std::size_t tier = random() % 5;
      nodes += "n" + std::to_string(node) + ": " + (tier == 0 ? "" : "{tier: " + std::to_string(tier) + "}") + ", ";
    }
    std::vector<std::pair<std::string, std::string>> links;
    for (std::size_t link = 0; link < 2 * count; ++link) {
      const std::size_t a = random() % count;
      const std::size_t b = (a + 1 + random() % (count - 1)) % count;
      const std::string name = ":e" + std::to_string(link);
      links.emplace_back("n" + std::to_string(a) + name, "n" + std::to_string(b) + name);
    }
    const Scenario scenario = fabricOf(nodes, links);
    const Topology topology(scenario);
    std::vector<bool> up;
    for (std::size_t link = 0; link < links.size(); ++link) up.push_back(random() % 4 != 0);
    const Routes routes = shortestRoutes(topology, up);
    for (std::size_t destination = 0; destination < count; ++destination) {
      // All that can be met on the way from a node, with whether it went down before.
      for (std::size_t source = 0; source < count; ++source) {
        std::set<std::pair<std::size_t, bool>> reached = {{source, false}};
        for (std::size_t step = 0; step <= count && !reached.empty(); ++step) {
          std::set<std::pair<std::size_t, bool>> next;
          for (const auto& [node, wentDown] : reached)
            for (const LinkSide side : routes[node][destination]) {
              ASSERT_TRUE(up[side.link]);
              const std::size_t other = topology.node(side.peer());
              const auto from = scenario.nodes[node].tier;
              const auto to = scenario.nodes[other].tier;
              ASSERT_FALSE(wentDown && from && to && *to > *from) << "up after down, round " << round;
              if (other != destination) {
                ASSERT_NE(routes[other][destination], NextHops()) << "a dead end, round " << round;
                next.insert({other, wentDown || (from && to && *to < *from)});
              }
            }
          reached = std::move(next);
        }
        ASSERT_TRUE(reached.empty()) << "a loop, round " << round;
      }
    }
  }
}

TEST(Topology, GivesAddressesInTheOrderOfTheScenario) {
  const Scenario scenario = fabricScenario("duration: 1\n");
  const Topology topology(scenario);
  EXPECT_EQ(addressText(topology.loopback(leaf1)), "10.0.0.3");
  EXPECT_EQ(ethernetText(topology.systemId(leaf1)), "02:00:00:00:00:03");
  EXPECT_EQ(addressText(topology.address({1, 0})), "10.1.0.2");
  EXPECT_EQ(addressText(topology.address({1, 1})), "10.1.0.3");
  EXPECT_EQ(topology.address(leaf1, "lo"), topology.loopback(leaf1));
  EXPECT_EQ(topology.address(leaf1, "eth2"), topology.address(LinkSide{1, 0}));
  EXPECT_EQ(topology.address(leaf1, "eth3"), 0u);
  EXPECT_EQ(ethernetText(topology.ethernetAddress({1, 1})), "02:01:00:00:00:03");
}

TEST(Condition, FollowsFaultsThatOverlapAndEndInAnyOrder) {
  const Scenario scenario = fabricScenario(R"(
faults:
  - {at: 20, kind: loss, from: "leaf1:eth1", to: "spine1:eth1"}
  - {at: 20, kind: loss, from: "leaf1:eth1", to: "spine1:eth1", share: 0.5, ports: [20000]}
  - {at: 20, kind: link-down, link: "leaf1:eth1"}
  - {at: 20, kind: power-off, node: spine1}
  - {at: 20, kind: freeze, node: spine1}
duration: 60
)");
  const auto with = [&](std::set<std::size_t> active) {
    std::vector<bool> set(scenario.faults.size());
    for (const std::size_t fault : active) set[fault] = true;
    return conditionOf(scenario, set);
  };
  EXPECT_EQ(with({}).linksUp(), std::vector<bool>(8, true));
  EXPECT_EQ(with({0, 1}).drops.at({0, 0}), (std::vector<Drop>{{1, {}}, {0.5, {20000}}}));
  EXPECT_EQ(with({1}).drops.at({0, 0}), (std::vector<Drop>{{0.5, {20000}}}));
  EXPECT_EQ(with({0, 1}).linksUp(), std::vector<bool>(8, true)) << "a silent loss is not visible";
  EXPECT_EQ(with({2}).linksUp()[0], false);
  EXPECT_EQ(with({2, 3}).linksUp(), (std::vector<bool>{false, true, false, true, false, true, false, true}));
  EXPECT_EQ(with({3}).linksUp()[0], false) << "the end of one fault does not mend what another broke";
  EXPECT_TRUE(with({3, 4}).dead[spine1]);
  EXPECT_TRUE(with({3, 4}).frozen[spine1]);
  EXPECT_TRUE(with({4}).dead[spine1]);
  EXPECT_EQ(with({4}).linksUp(), std::vector<bool>(8, true)) << "a frozen node's links stay up";
  EXPECT_FALSE(with({3}).dead[spine2]);
}

TEST(Flows, AreOnePerStreamInBothDirections) {
  const Scenario scenario = readScenario(R"(
name: t
duration: 1
topology:
  nodes: {a: {groups: {one: [lo, e1], both: [lo]}}, b: {groups: {two: [lo], both: [lo]}}}
  links: [{endpoints: ["a:e1", "b:e1"]}]
probes:
  p1: {srcGroup: one, dstGroup: two, rate: 1, distance: 2, ports: [1, 2]}
  p2: {srcGroup: both, dstGroup: both, rate: 1, distance: 3, ports: [2, 3]}
  p3: {srcGroup: one, dstGroup: two, rate: 1, distance: 2, ports: [9], enabled: false}
)",
                                         "test");
  const Topology topology(scenario);
  const std::uint32_t a = topology.loopback(0), e = topology.address(LinkSide{0, 0}), b = topology.loopback(1);
  // a sends from two addresses to b, b to both; p2 shares port 2 between the loopbacks, and goes farther.
  EXPECT_EQ(flowsOf(topology), (std::vector<Flow>{{0, 1, a, b, 1, 2},
                                                  {0, 1, a, b, 2, 3},
                                                  {0, 1, a, b, 3, 3},
                                                  {0, 1, e, b, 1, 2},
                                                  {0, 1, e, b, 2, 2},
                                                  {1, 0, b, a, 1, 2},
                                                  {1, 0, b, a, 2, 3},
                                                  {1, 0, b, a, 3, 3},
                                                  {1, 0, b, e, 1, 2},
                                                  {1, 0, b, e, 2, 2}}));
}

TEST(Flows, CoverWhatTheyPassAndTellWhatTheyDoNot) {
  const Scenario scenario = fabricScenario("duration: 1\n");
  const Topology topology(scenario);
  const Coverage coverage = coverageOf(topology, {{{0, 0}, {2, 1}}, {{0, 0}}});
  EXPECT_EQ(coverage.size(), 16u);
  EXPECT_EQ(coverage.at({leaf1, spine1}), 2u);
  EXPECT_EQ(coverage.at({spine1, leaf2}), 1u);
  EXPECT_EQ(coverage.at({spine1, leaf1}), 0u);
}

}  // namespace
}  // namespace Lab
