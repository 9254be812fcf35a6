// A small Clos fabric with probing services on it, for tests of what becomes of rows when ways change and streams end,
// and what such tests ask of it in the end.
#pragma once

#include <gtest/gtest.h>

#include "sonar/TestFabric.h"

namespace Sonar {

inline constexpr U64 seeds = 5;
inline constexpr Rix::Seconds convergence = 0.2;

// Three spines above three leaves, each leaf probing the two others by six ports, ttl 1 to 3, ten a second.
class Clos : public TestFabric {
 public:
  explicit Clos(U64 seed, int spines = 3) : TestFabric(seed), spineCount_(spines) {
    for (int i = 1; i <= spines; ++i) addNode(spine(i), static_cast<U8>(100 + i), true);
    for (int i = 1; i <= leafCount; ++i) {
      auto& leaf = addNode(leafName(i), static_cast<U8>(i), false);
      for (int above = 1; above <= spines; ++above) addLink(leaf, node(spine(above)));
      leaf.orders = ordersOf(i);
    }
    startAll();
  }

  static constexpr int leafCount = 3;
  static std::string spine(int i) { return "spine" + std::to_string(i); }
  static std::string leafName(int i) { return "leaf" + std::to_string(i); }
  int spines() const { return spineCount_; }

  static Orders ordersOf(int leaf) {
    Orders orders{.configuration = 1, .enabled = true, .robustness = 5};
    ProbeRate const rate{.rate = 10, .scale = 1, .marker = 1};
    auto& order = orders.transmitters["p1:leaves"];
    order = {.enabled = true,
             .sources = {intf("lo")},
             .hopsRate = {{1, rate}, {2, rate}, {3, rate}},
             .ports = {20000, 20001, 20002, 20003, 20004, 20005}};
    for (int other = 1; other <= leafCount; ++other) {
      if (other != leaf) order.destinations.insert(ip(static_cast<U8>(other)));
    }
    return orders;
  }
  static Orders noOrders() { return {.configuration = 1, .enabled = true}; }

  void linkDown(std::string const& a, std::string const& b) { linkIs(a, b, false); }
  void routesFollow() {
    run(convergence);
    converge();
  }
  void powerOff(std::string const& name) {
    kill(node(name));
    for (auto const& [port, link] : node(name).ports) linkIs(name, link.peer->name, false);
  }
  void powerOn(std::string const& name) {
    for (auto const& [port, link] : node(name).ports) linkIs(name, link.peer->name, true);
    start(node(name));
  }
  void endAll() {
    for (int i = 1; i <= leafCount; ++i) order(node(leafName(i)), noOrders());
  }

  // Of the rows here, those that stand for a stream.
  std::size_t ingressRows() const {
    std::size_t count = 0;
    for (auto const& node : nodes()) {
      for (auto const& [key, row] : node->ingress.rows) count += Bell::isReserved(key) ? 0U : 1U;
    }
    return count;
  }
  std::size_t lostAt(std::string const& name) const {
    std::size_t count = 0;
    for (auto const& [key, row] : node(name).ingress.rows) count += row.probesLost;
    return count;
  }
  // Whether each stream's ttl is live at the switch where it ends.
  void expectLive() const {
    for (auto const& source : nodes()) {
      for (auto const& [sent, count] : source->egress.rows) {
        auto const hops = way(sent.srcIp, sent.dstIp, sent.streamPort);
        ASSERT_FALSE(hops.empty());
        auto const& at = node(hops[std::min<std::size_t>(sent.ttl, hops.size()) - 1]);
        bool live = false;
        for (auto const& [key, row] : at.ingress.rows) {
          bool const same = static_cast<StreamFields const&>(key) == static_cast<StreamFields const&>(sent);
          if (same) live = live || at.service->receiver().state(key) == RowState::live;
        }
        EXPECT_TRUE(live) << at.name << " ttl " << int{sent.ttl} << " port " << sent.streamPort;
      }
    }
  }
  void expectQuiet() const {
    EXPECT_EQ(dormancies.size(), 0U) << text(dormancies);
    EXPECT_EQ(earlyRemovals.size(), 0U) << text(earlyRemovals);
  }
  void expectNothingLeft() const {
    EXPECT_EQ(ingressRows(), 0U);
    EXPECT_EQ(rows(), ingressRows());
    for (auto const& node : nodes()) EXPECT_TRUE(node->map.streams.empty());
  }

  std::string text(std::vector<Dormancy> const& list) const {
    std::string result;
    for (auto const& one : list) {
      result += one.node + " " + one.row.stringValue() + " port " + std::to_string(one.row.streamPort) + " from " +
                std::to_string(one.from) + " until " + std::to_string(one.until) + "\n";
    }
    return result;
  }

 private:
  int spineCount_;
};

// Each case, with every seed, from a fabric that has run for some seconds.
template <class Case>
void forSeeds(Case const& test, int spines = 3) {
  for (U64 seed = 1; seed <= seeds; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Clos fabric(seed, spines);
    fabric.run(5 + static_cast<double>(seed) * 0.017);
    test(fabric);
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace Sonar
