// Random histories of what operators and platforms do, through the real agents of a whole fabric: the orders that each
// probing service is given are always those that a reading of the history says. Nothing is probed here.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "config/OrdersReading.h"
#include "lab/VirtualFabric.h"

namespace Lab {
namespace {

namespace Reading = Zeb::OrdersReading;

constexpr int histories = 1000;
constexpr int steps = 25;

// Two probes over three groups; leaf1 is in both groups of each.
const Scenario& fabricOfThreeGroups() {
  static const Scenario scenario = readScenario(
      "name: histories\n"
      "topology:\n"
      "  nodes:\n"
      "    spine1: {tier: 2, groups: {x: [lo], z: [eth1]}}\n"
      "    spine2: {tier: 2, groups: {z: [lo]}}\n"
      "    leaf1: {tier: 1, groups: {x: [lo], y: [lo, eth1], z: [eth2]}}\n"
      "    leaf2: {tier: 1, groups: {x: [lo]}}\n"
      "    leaf3: {tier: 1, groups: {y: [lo]}}\n"
      "  links:\n"
      "    - endpoints: [\"leaf1:eth1\", \"spine1:eth1\"]\n"
      "    - endpoints: [\"leaf1:eth2\", \"spine2:eth1\"]\n"
      "    - endpoints: [\"leaf2:eth1\", \"spine1:eth2\"]\n"
      "    - endpoints: [\"leaf2:eth2\", \"spine2:eth2\"]\n"
      "    - endpoints: [\"leaf3:eth1\", \"spine1:eth3\"]\n"
      "    - endpoints: [\"leaf3:eth2\", \"spine2:eth3\"]\n"
      "probes:\n"
      "  p: {srcGroup: x, dstGroup: y, rate: 10, distance: 3, ports: [20000]}\n"
      "  q: {srcGroup: y, dstGroup: z, rate: 5, distance: 2, ports: [20001, 20002]}\n"
      "duration: 60\n",
      "histories.yaml");
  return scenario;
}

// Of one switch, as its probing service has them.
Reading::Orders ordersAt(VirtualSwitch& node, const std::string& name) {
  Reading::Orders orders;
  for (const auto& made : node.orders().transmitterIterator()) {
    Reading::Order& order = orders[{name, std::string(made->name().view())}];
    order.enabled = made->enabled();
    for (const auto& [interface, on] : made->sourceInterfaceIterator()) order.sources.insert(interface.stringValue());
    for (const auto& [address, on] : made->ipDestIterator()) order.destinations.insert(address.value());
    for (const auto& [hop, rate] : made->hopsRateIterator()) order.hops[hop] = rate.scale == 1 ? rate.rate : ~0U;
    for (const auto& [port, on] : made->optionalSourcePortListIterator()) order.ports.insert(port);
  }
  return orders;
}

struct Seen {
  std::size_t orders = 0;
  std::size_t destinations = 0;
  std::size_t stale = 0;  // orders with addresses that nobody has
};

// A fabric, those who change it, and what its orders have to be after each change.
class History {
 public:
  explicit History(std::uint32_t seed)
      : random_(seed),
        fabric_(fabricOfThreeGroups(), {.seed = seed, .spread = 0, .sonar = false}),
        runs_(fabric_.topology().nodes()),
        starts_(runs_.size()),
        untold_(runs_.size()),
        standing_(runs_.size()) {
    fabric_.runUntil(0.1);
    observe();
  }

  void step(bool restarts) {
    if (restarts && below(4) == 0) {
      restart();
    } else {
      fabric_.apply(someChange());
    }
    fabric_.runUntil(fabric_.now());
    observe();
    pass(0.01 * (1 + below(10)));
  }
  void pass(double seconds) {
    fabric_.runUntil(fabric_.now() + seconds);
    observe();
  }

  bool allRun() { return centreRuns_ && std::find(runs_.begin(), runs_.end(), false) == runs_.end(); }
  // Empty if every service that can be asked has the orders that it should have.
  std::string wrong() {
    std::ostringstream text;
    for (const auto& failure : fabric_.failures()) text << "an agent died: " << failure << "\n";
    for (std::size_t node = 0; node < runs_.size(); ++node) {
      if (!runs_[node]) continue;
      const auto found = ordersAt(fabric_.node(node), name(node));
      if (found == standing_[node]) continue;
      text << "found at " << name(node) << testing::PrintToString(found) << "\nexpected "
           << testing::PrintToString(standing_[node]) << "\n";
    }
    return text.str().empty() ? "" : text.str() + "after" + said_.str();
  }
  void count(Seen& seen) const {
    Reading::Reading fresh;
    fresh.inputsAre(inputs_);
    const auto unforgotten = fresh.orders();
    for (const auto& [key, order] : reading_.orders()) {
      ++seen.orders;
      seen.destinations += order.destinations.size();
      seen.stale += order == unforgotten.at(key) ? 0u : 1u;
    }
  }

 private:
  std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }
  template <class T>
  T some(std::initializer_list<T> values) {
    return values.begin()[below(static_cast<std::uint32_t>(values.size()))];
  }
  std::string name(std::size_t node) const { return fabric_.scenario().nodes[node].name; }
  std::size_t someNode() { return below(static_cast<std::uint32_t>(runs_.size())); }

  Change someChange() {
    const Configuration& now = fabric_.configuration();
    Change change;
    switch (below(20)) {
      case 0:
        change.kind = ChangeKind::service;
        change.enabled = !now.enabled;
        said_ << "\nservice " << change.enabled;
        break;
      case 1:
        change.kind = ChangeKind::service;
        change.node = someNode();
        change.enabled = !runs_[*change.node] || !now.switches[*change.node].enabled;
        said_ << "\nservice of " << name(*change.node) << " " << change.enabled;
        break;
      case 2:
        change.kind = ChangeKind::hostname;
        change.node = someNode();
        change.name = "host" + std::to_string(below(100));
        said_ << "\nname of " << name(*change.node);
        break;
      case 3:
        change.kind = ChangeKind::clear;
        said_ << "\nclear";
        break;
      case 4:
      case 5:
      case 6:
      case 7:
      case 8:
        someAddress(change);
        break;
      case 9:
      case 10:
      case 11:
      case 12:
      case 13:
        someGroup(change, now);
        break;
      default:
        someProbe(change, now);
        break;
    }
    return change;
  }
  // Each interface of each switch has a few addresses of its own, and no other has them ever.
  void someAddress(Change& change) {
    change.kind = ChangeKind::address;
    change.node = someNode();
    const std::uint32_t interface = below(3);
    const std::uint32_t version = below(3);
    change.interface = interface == 0 ? "lo" : "eth" + std::to_string(interface);
    if (version != 0)
      change.address = 0x0ac00000 + 0x10000 * static_cast<std::uint32_t>(*change.node) + 0x100 * interface + version;
    said_ << "\naddress " << version << " of " << name(*change.node) << ":" << change.interface;
  }
  void someGroup(Change& change, const Configuration& now) {
    change.kind = ChangeKind::group;
    change.node = someNode();
    change.name = some({"x", "y", "z"});
    said_ << "\ngroup " << change.name << " of " << name(*change.node);
    const auto& groups = now.switches[*change.node].groups;
    const auto standing = groups.find(change.name);
    if (standing != groups.end() && below(4) == 0) return;  // it is removed
    change.interfaces = standing == groups.end() ? std::vector<std::string>{} : standing->second;
    const std::string interface = some({"lo", "eth1", "eth2"});
    if (std::erase(*change.interfaces, interface) == 0) change.interfaces->push_back(interface);
    said_ << " with or without " << interface;
  }
  void someProbe(Change& change, const Configuration& now) {
    change.kind = ChangeKind::probe;
    change.name = some({"p", "q"});
    said_ << "\nprobe " << change.name;
    const auto standing = now.probes.find(change.name);
    if (standing == now.probes.end()) {
      change.probe.emplace();
      change.probe->name = change.name;
      change.probe->rate = 10;
      change.probe->distance = 3;
      change.probe->ports = {20000};
    } else if (below(8) == 0) {
      said_ << " removed";
      return;
    } else {
      change.probe = standing->second;
    }
    const std::uint32_t what = standing == now.probes.end() ? 4 : below(5);
    said_ << " changes in " << what;
    switch (what) {
      case 0:
        change.probe->enabled = !change.probe->enabled;
        break;
      case 1:
        change.probe->rate = static_cast<std::uint16_t>(1 + below(20));
        break;
      case 2:
        change.probe->distance = static_cast<std::uint8_t>(1 + below(5));
        break;
      case 3:
        change.probe->ports.clear();
        for (std::uint16_t port = 20000; port < 20003; ++port)
          if (below(2) == 0) change.probe->ports.push_back(port);
        break;
      default:
        change.probe->srcGroup = some({"x", "y", "z"});
        change.probe->dstGroup = some({"x", "y", "z"});
        break;
    }
  }
  // A switch whose own service is off would start without reporting and without following orders: not looked at here.
  void restart() {
    const double down = 0.01 * (1 + below(40));
    const std::size_t node = someNode();
    if (below(3) == 0) {
      fabric_.centreRestart(down);
      centreRuns_ = false;
      said_ << "\ncentre restarts";
    } else if (fabric_.configuration().switches[node].enabled) {
      fabric_.agentRestart(node, down);
      const double start = fabric_.now() + down;
      starts_[node] = runs_[node] ? start : std::min(starts_[node], start);
      runs_[node] = false;
      said_ << "\nagent of " << name(node) << " restarts";
    }
  }

  // Tells the reading what has become of the change before, and who has started.
  void observe() {
    const bool centreBefore = std::exchange(centreRuns_, fabric_.centreRuns());
    noteStarted();
    noteGone();
    if (!centreRuns_) return;  // orders stand as they are
    if (centreBefore) withdrawRegrouped();
    configure();
    if (centreBefore) {
      reading_.inputsAre(inputs_);
    } else {
      reading_.centreStarted(inputs_);
    }
    for (const std::size_t node : order_)
      if (runs_[node]) report(node);
    const auto orders = reading_.orders();
    for (std::size_t node = 0; node < runs_.size(); ++node) {
      if (!runs_[node]) continue;
      standing_[node].clear();
      for (const auto& [key, order] : orders)
        if (key.first == name(node)) standing_[node][key] = order;
    }
  }
  void noteStarted() {
    std::vector<std::size_t> started;
    for (std::size_t node = 0; node < runs_.size(); ++node)
      if (!runs_[node] && fabric_.node(node).agentRuns()) started.push_back(node);
    std::stable_sort(started.begin(), started.end(),
                     [this](std::size_t left, std::size_t right) { return starts_[left] < starts_[right]; });
    for (const std::size_t node : started) {
      runs_[node] = true;
      untold_[node].started = true;
      std::erase(order_, node);
      order_.push_back(node);
    }
  }
  // A group that was removed is another when it stands again, also for a centre that has seen nothing of that.
  void noteGone() {
    for (std::size_t node = 0; node < runs_.size(); ++node)
      for (const auto& [group, interfaces] : inputs_.reports[name(node)])
        if (runs_[node] && !fabric_.configuration().switches[node].groups.contains(group))
          untold_[node].gone.insert(group);
  }
  void configure() {
    const Configuration& now = fabric_.configuration();
    inputs_.enabled = now.enabled;
    inputs_.probes.clear();
    for (const auto& [key, probe] : now.probes) {
      auto& input = inputs_.probes[key];
      input = {probe.srcGroup, probe.dstGroup, probe.rate, probe.distance, {}, probe.enabled};
      for (const auto port : probe.ports) input.ports[port] = true;
    }
  }
  void report(std::size_t node) {
    const Configuration::Switch& now = fabric_.configuration().switches[node];
    const Untold untold = std::exchange(untold_[node], {});
    inputs_.ready.insert(name(node));
    auto& groups = inputs_.reports[name(node)];
    for (const auto& group : untold.gone) groups.erase(group);
    if (!untold.gone.empty()) reading_.inputsAre(inputs_);
    groups.clear();
    for (const auto& [group, interfaces] : now.groups) {
      groups[group];
      for (const auto& interface : interfaces) {
        const auto address = now.addresses.find(interface);
        groups[group][interface] = address == now.addresses.end() ? 0 : address->second;
      }
    }
    if (untold.started) {
      reading_.reportReplaced(name(node), inputs_);
    } else {
      reading_.inputsAre(inputs_);
    }
  }
  // Other groups of a probe are another probe of that name.
  void withdrawRegrouped() {
    const auto& probes = fabric_.configuration().probes;
    std::erase_if(inputs_.probes, [&](const auto& each) {
      const auto now = probes.find(each.first);
      return now != probes.end() &&
             (now->second.srcGroup != each.second.srcGroup || now->second.dstGroup != each.second.dstGroup);
    });
    reading_.inputsAre(inputs_);
  }

  // What has become of a switch and is not known to the centre.
  struct Untold {
    bool started = false;
    std::set<std::string> gone;  // groups
  };

  std::mt19937 random_;
  std::ostringstream said_;
  VirtualFabric fabric_;
  bool centreRuns_ = false;
  std::vector<bool> runs_;
  std::vector<double> starts_;      // by switch: when the agent starts, or has started
  std::vector<std::size_t> order_;  // in which agents have started, which is that in which a new centre hears of them
  std::vector<Untold> untold_;
  std::vector<Reading::Orders> standing_;  // by switch: what its probing service has been ordered
  Reading::Inputs inputs_;                 // as far as the centre knows
  Reading::Reading reading_;
};

Seen run(bool restarts) {
  Seen seen;
  for (std::uint32_t seed = 1; seed <= histories; ++seed) {
    History history(seed);
    for (int step = 0; step < steps; ++step) {
      history.step(restarts);
      history.count(seen);
    }
    history.pass(0.5);
    EXPECT_TRUE(history.allRun()) << "seed " << seed;
    EXPECT_EQ(history.wrong(), "") << "seed " << seed;
    if (testing::Test::HasFailure()) break;
  }
  return seen;
}

TEST(Histories, EndWithTheOrdersThatTheReadingSays) {
  const Seen seen = run(false);
  // The histories are about something.
  EXPECT_GT(seen.orders, 50000u);
  EXPECT_GT(seen.destinations, 100000u);
  EXPECT_GT(seen.stale, 10000u);
}

TEST(Histories, EndWithTheOrdersThatTheReadingSaysAcrossRestarts) {
  const Seen seen = run(true);
  EXPECT_GT(seen.orders, 50000u);
  EXPECT_GT(seen.destinations, 100000u);
  EXPECT_GT(seen.stale, 1000u);
}

}  // namespace
}  // namespace Lab
