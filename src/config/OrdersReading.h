// What orders are right at rest, read from the history of inputs alone. It shares nothing with the machines that make
// orders, so that a test can hold them to it: it is told of the inputs after each single change, and says which orders
// stand and what is in them.
//
// An order P:G of switch S stands if and only if the service is on, S's entity is ready, S reports G, and P is
// configured with G as one of its groups and neither of them empty. Its destinations are the addresses that the other
// members of the peer group report, and the stale ones: an address that a member lost, by reporting zero or by the
// removal of the interface, while the order stood, until some member reports it again.
//
// Restarts are part of the history. They change no input by themselves, and yet end what only the order itself
// remembers.
//
// Addresses have to be unique among the members and interfaces of a group.
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <utility>

namespace Zeb::OrdersReading {

struct Probe {
  std::string srcGroup;
  std::string dstGroup;
  unsigned rate = 0;
  unsigned distance = 0;
  std::map<unsigned, bool> ports;
  bool enabled = false;
};

// By switch, group and interface; zero is an interface without an address.
using Interfaces = std::map<std::string, std::uint32_t>;
using Reports = std::map<std::string, std::map<std::string, Interfaces>>;

struct Inputs {
  bool enabled = false;
  std::set<std::string> ready;  // the switches whose entity for orders is complete
  Reports reports;
  std::map<std::string, Probe> probes;
};

struct Order {
  std::set<std::string> sources;
  std::set<std::uint32_t> destinations;
  std::map<unsigned, unsigned> hops;  // rate by hop
  std::set<unsigned> ports;
  bool enabled = false;

  friend bool operator==(Order const&, Order const&) = default;
};
inline std::ostream& operator<<(std::ostream& out, Order const& order) {
  out << (order.enabled ? "on from" : "off from");
  for (auto const& source : order.sources) out << ' ' << source;
  out << " to" << std::hex;
  for (auto const destination : order.destinations) out << ' ' << destination;
  out << std::dec << " hops";
  for (auto const& [hop, rate] : order.hops) out << ' ' << hop << '@' << rate;
  out << " ports";
  for (auto const port : order.ports) out << ' ' << port;
  return out;
}
// By switch, and probe:group.
using Orders = std::map<std::pair<std::string, std::string>, Order>;

class Reading {
 public:
  // The inputs after one more change.
  void inputsAre(Inputs const& next) {
    auto const before = std::exchange(stale_, {});
    eachOrder(next, [&](Key const& key, std::string const& peer) {
      auto& stale = stale_[key];
      auto const stood = before.find(key);
      if (stood == before.end()) return;
      stale = stood->second;
      eachMember(inputs_, key, peer, [&](std::string const& member, Interfaces const& had) {
        eachMember(next, key, peer, [&](std::string const& other, Interfaces const& has) {
          if (other != member) return;
          for (auto const& [intf, ip] : had) {
            if (ip != 0 && (!has.contains(intf) || has.at(intf) == 0)) stale.insert(ip);
          }
        });
      });
      for (auto const ip : reported(next, key, peer)) stale.erase(ip);
    });
    inputs_ = next;
  }

  // A switch's agent has started anew, and its report has replaced the one before, whole for whole: the switch leaves
  // its groups with the addresses that it had last, and comes again. So its own orders begin anew, without stale
  // addresses. In the orders of others nothing becomes stale by that, not even what it had last and has no more; what
  // was stale there before stays.
  void reportReplaced(std::string const& self, Inputs const& next) {
    Inputs without = inputs_;
    without.reports.erase(self);
    inputsAre(without);
    inputsAre(next);
  }
  // A new centre makes all orders from the reports that are stored, so that no address is stale; the switches' copies
  // are made equal to them. What a switch has lost while there was no centre is a change that comes after this.
  void centreStarted(Inputs const& next) {
    stale_.clear();
    inputs_ = {};
    inputsAre(next);
  }

  Orders orders() const {
    Orders orders;
    eachOrder(inputs_, [&](Key const& key, std::string const& peer) {
      auto const& [self, name, group] = key;
      Probe const& probe = inputs_.probes.at(name);
      Order& order = orders[{self, name + ":" + group}];
      for (auto const& [intf, ip] : inputs_.reports.at(self).at(group)) order.sources.insert(intf);
      order.destinations = reported(inputs_, key, peer);
      order.destinations.insert(stale_.at(key).begin(), stale_.at(key).end());
      for (unsigned hop = 1; hop <= probe.distance; ++hop) order.hops[hop] = probe.rate;
      for (auto const& [port, on] : probe.ports) {
        if (on) order.ports.insert(port);
      }
      order.enabled = probe.enabled;
    });
    return orders;
  }

 private:
  using Key = std::tuple<std::string, std::string, std::string>;  // switch, probe, own group

  template <class Visit>
  static void eachOrder(Inputs const& inputs, Visit const& visit) {
    if (!inputs.enabled) return;
    for (auto const& [self, groups] : inputs.reports) {
      if (!inputs.ready.contains(self)) continue;
      for (auto const& [group, interfaces] : groups) {
        for (auto const& [name, probe] : inputs.probes) {
          if (probe.srcGroup.empty() || probe.dstGroup.empty()) continue;
          if (group == probe.srcGroup) {
            visit(Key(self, name, group), probe.dstGroup);
          } else if (group == probe.dstGroup) {
            visit(Key(self, name, group), probe.srcGroup);
          }
        }
      }
    }
  }
  // The members of the peer group but the switch itself.
  template <class Visit>
  static void eachMember(Inputs const& inputs, Key const& key, std::string const& peer, Visit const& visit) {
    for (auto const& [member, groups] : inputs.reports) {
      if (member != std::get<0>(key) && groups.contains(peer)) visit(member, groups.at(peer));
    }
  }
  static std::set<std::uint32_t> reported(Inputs const& inputs, Key const& key, std::string const& peer) {
    std::set<std::uint32_t> addresses;
    eachMember(inputs, key, peer, [&](std::string const&, Interfaces const& interfaces) {
      for (auto const& [intf, ip] : interfaces) {
        if (ip != 0) addresses.insert(ip);
      }
    });
    return addresses;
  }

  Inputs inputs_;
  std::map<Key, std::set<std::uint32_t>> stale_;
};

}  // namespace Zeb::OrdersReading
