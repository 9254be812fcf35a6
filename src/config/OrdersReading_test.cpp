// Random histories of what operator, switches and fabric do: after every single change the orders are those that the
// reading of the history says.
#include <random>

#include "config/PublisherTest.h"

namespace Zeb::ConfigTest {
namespace {

OrdersReading::Orders ordersOf(Centre const& centre) {
  OrdersReading::Orders orders;
  for (auto const& [name, entity] : centre.waveConfigDir->entityPtrIterator()) {
    for (auto const& made : dynamic_cast<ZebSonarConfigV1 const&>(*entity).transmitterIterator()) {
      auto& order = orders[{std::string(name.view()), std::string(made->rixKey().view())}];
      order.enabled = made->enabled();
      for (auto const& [intf, on] : made->sourceInterfaceIterator()) order.sources.insert(intf.stringValue());
      for (auto const& [ip, on] : made->ipDestIterator()) order.destinations.insert(ip.value());
      for (auto const& [hop, rate] : made->hopsRateIterator()) order.hops[hop] = rate.scale == 1 ? rate.rate : ~0U;
      for (auto const& [port, on] : made->portIterator()) order.ports.insert(port);
    }
  }
  return orders;
}

// A small network and its operator, who do anything at any time, one thing at a time.
class History {
 public:
  explicit History(U32 seed) : random_(seed) {
    inputs_.enabled = true;
    reading_.inputsAre(inputs_);
  }

  // Makes one change, to the centre and to the inputs, and says what it was.
  std::string step() {
    said_.str("");
    switch (below(16)) {
      case 0:
        serviceIs(below(8) != 0);
        break;
      case 1:
        ready();
        break;
      case 2:
        below(5) != 0 ? connect() : disconnect();
        break;
      case 3:
      case 4:
        groupIs();
        break;
      case 5:
        groupDel();
        break;
      case 6:
      case 7:
      case 8:
        addressIs();
        break;
      case 9:
        interfaceDel();
        break;
      case 10:
      case 11:
        probeIs();
        break;
      case 12:
        probeDel();
        break;
      default:
        probeChanges();
        break;
    }
    reading_.inputsAre(inputs_);
    return said_.str();
  }
  OrdersReading::Orders expected() const { return reading_.orders(); }
  Centre const& centre() const { return centre_; }

 private:
  U32 below(U32 bound) { return static_cast<U32>(random_() % bound); }
  U8 someSwitch() { return static_cast<U8>(1 + below(5)); }
  char const* some(std::initializer_list<char const*> names) {
    return names.begin()[below(static_cast<U32>(names.size()))];
  }
  char const* someGroup() { return some({"x", "y", "z"}); }
  char const* someProbe() { return some({"p", "q", "r"}); }
  static std::string nameOf(U8 number) { return switchId(number).stringValue(); }

  void serviceIs(bool enabled) {
    said_ << "service " << enabled;
    if (enabled == inputs_.enabled) return;
    centre_.enabledIs(inputs_.enabled = enabled);
  }
  void ready() {
    U8 const number = someSwitch();
    said_ << "ready " << U32{number};
    if (inputs_.ready.insert(nameOf(number)).second) centre_.ordersReady(number);
  }
  // A report stands complete, or begins empty.
  void connect() {
    U8 const number = someSwitch();
    said_ << "connect " << U32{number};
    if (centre_.report(number)) return;
    auto const report = Rix::make<ClientConfig>();
    auto& groups = inputs_.reports[nameOf(number)];
    for (auto const* name : {"x", "y", "z"}) {
      if (below(3) == 0) continue;
      auto* const group = report->groupIs(name);
      U32 const ip = address(number, 0, 1).value();
      group->interfaceIpIs("lo", Netkit::IpAddr(ip));
      groups[name]["lo"] = ip;
    }
    centre_.clientConfigDir->entityPtrIs(switchName(number), report);
  }
  void disconnect() {
    U8 const number = someSwitch();
    said_ << "disconnect " << U32{number};
    centre_.reportDel(number);
    inputs_.reports.erase(nameOf(number));
  }
  // Calls act(report, groups) for some switch that reports.
  template <class Act>
  void reporting(Act const& act) {
    U8 const number = someSwitch();
    said_ << " switch " << U32{number};
    if (ClientConfig* const report = centre_.report(number)) act(number, *report, inputs_.reports[nameOf(number)]);
  }
  void groupIs() {
    char const* const name = someGroup();
    said_ << "group " << name << " added to";
    reporting([&](U8, ClientConfig& report, auto& groups) {
      groups[name];
      report.groupIs(name);
    });
  }
  void groupDel() {
    char const* const name = someGroup();
    said_ << "group " << name << " removed from";
    reporting([&](U8, ClientConfig& report, auto& groups) {
      groups.erase(name);
      report.groupDel(name);
    });
  }
  void addressIs() {
    char const* const name = someGroup();
    U8 const intf = static_cast<U8>(below(3));
    U8 const version = static_cast<U8>(below(4));
    said_ << "interface e" << U32{intf} << " address " << U32{version} << " in " << name << " of";
    reporting([&](U8 number, ClientConfig& report, auto& groups) {
      if (!groups.contains(name)) return;
      auto const ip = version == 0 ? Netkit::IpAddr() : address(number, static_cast<U8>(intf + 1), version);
      std::string const key = "e" + std::to_string(intf);
      groups[name][key] = ip.value();
      report.group(name)->interfaceIpIs(key, ip);
    });
  }
  void interfaceDel() {
    char const* const name = someGroup();
    char const* const intf = some({"lo", "e0", "e1", "e2"});
    said_ << "interface " << intf << " removed from " << name << " of";
    reporting([&](U8, ClientConfig& report, auto& groups) {
      if (!groups.contains(name)) return;
      groups[name].erase(intf);
      report.group(name)->interfaceIpDel(intf);
    });
  }
  void probeIs() {
    char const* const name = someProbe();
    char const* const src = some({"x", "y", "z", "x", "y", ""});
    char const* const dst = some({"x", "y", "z", "x", "y", ""});
    said_ << "probe " << name << " added from " << src << " to " << dst;
    if (inputs_.probes.contains(name)) return;
    auto const distance = static_cast<U8>(below(4));
    inputs_.probes[name] = {src, dst, 10, distance, {{33434, true}}, true};
    centre_.probeIs(name, src, dst, 10, distance);
  }
  void probeDel() {
    char const* const name = someProbe();
    said_ << "probe " << name << " removed";
    inputs_.probes.erase(name);
    centre_.config->probeConfigDel(name);
  }
  void probeChanges() {
    char const* const name = someProbe();
    said_ << "probe " << name << " changed";
    if (!inputs_.probes.contains(name)) return;
    auto& input = inputs_.probes[name];
    auto* const probe = centre_.config->probeConfig(name);
    auto const value = static_cast<U8>(below(4));
    switch (below(5)) {
      case 0:
        probe->rateIs(value), input.rate = value;
        break;
      case 1:
        probe->distanceIs(value), input.distance = value;
        break;
      case 2:
        probe->portIs(value, value < 2), input.ports[value] = value < 2;
        break;
      case 3:
        probe->portDel(value), input.ports.erase(value);
        break;
      default:
        probe->enabledIs(value < 2), input.enabled = value < 2;
        break;
    }
  }

  std::mt19937 random_;
  std::ostringstream said_;
  OrdersReading::Inputs inputs_;
  OrdersReading::Reading reading_;
  Centre centre_;
};

// How many orders and destinations stood, over all moments of a history.
struct Seen {
  std::size_t orders = 0;
  std::size_t destinations = 0;
};

Seen run(U32 seed, int steps) {
  Seen seen;
  History history(seed);
  std::string said;
  for (int i = 0; i < steps; ++i) {
    said += "\n" + history.step();
    auto const expected = history.expected();
    EXPECT_EQ(ordersOf(history.centre()), expected) << "seed " << seed << said;
    if (testing::Test::HasFailure()) break;
    seen.orders += expected.size();
    for (auto const& [key, order] : expected) seen.destinations += order.destinations.size();
  }
  return seen;
}

TEST(OrdersReading, HoldsAfterEveryChangeOfEveryHistory) {
  Seen seen;
  for (U32 seed = 0; seed < 1000 && !HasFailure(); ++seed) {
    Seen const one = run(seed, 150);
    seen.orders += one.orders;
    seen.destinations += one.destinations;
  }
  // The histories are about something.
  EXPECT_GT(seen.orders, 200000u);
  EXPECT_GT(seen.destinations, 300000u);
}

// The long walks that are made for the sake of their lines end as the short ones do.
TEST(OrdersReading, HoldsWhileThePublisherTraces) {
  for (U32 seed = 0; seed < 20 && !HasFailure(); ++seed) {
    Traced traced;
    run(seed, 250);
    EXPECT_GT(traced.lines.size(), 250u);
  }
}

}  // namespace
}  // namespace Zeb::ConfigTest
