// A scenario's fabric made of this machine's kernel: a network namespace per node, a veth pair per link, the kernel's
// own forwarding with equal-cost paths. It brings faults about by the kernel's own means and puts routes in force.
// The supervisor drives it inside its sandbox; it decides nothing, starts no node's process and keeps no time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lab/Condition.h"
#include "lab/Configuration.h"
#include "lab/Flows.h"
#include "lab/Namespace.h"
#include "lab/Routing.h"
#include "lab/Topology.h"

namespace Lab {

class KernelFabric {
 public:
  // Builds the fabric with all links up and routed. This process must be single-threaded, in a sandbox, and is where
  // it was afterwards. `probePort`: the UDP port that probes are sent to. `seed`: of the switches' choice among
  // equal paths, where the kernel has one for each. Throws LabError.
  KernelFabric(const Topology& topology, std::uint16_t probePort, std::uint64_t seed);
  KernelFabric(const KernelFabric&) = delete;

  // Makes links and drops what `condition` says. Routes stay as they are. Throws LabError.
  void apply(const Condition& condition);

  // Puts the shortest routes over these links in force, to the addresses that there are. Throws LabError.
  void route(const std::vector<bool>& linksUp);

  // Gives an interface another address in place of the one that it has, or none: the new one is there and reachable
  // before the old one goes, and packets to the old one are routed on until the next route(). Throws LabError.
  void addressIs(std::size_t node, const std::string& interface, std::optional<std::uint32_t> address);

  // Lets a node share flows out over equal paths in another way. Where the kernel has no seed for that, by unequal
  // weights of its next hops. Throws LabError.
  void hashIs(std::size_t node, std::uint64_t seed);

  // The host name of a node's namespace. Throws LabError.
  void hostNameIs(std::size_t node, const std::string& name) const;

  // Moves this process into a node. A process that is forked for a node stays there; any other returns by leave().
  void enter(std::size_t node) const { namespaces_[node].enter(); }
  void leave() const { home_.enter(); }

  // Asks the kernel which way each flow takes now: the sides that send it, hop by hop, as far as its probes go. A way
  // that ends early was not routed further. Throws LabError.
  std::vector<std::vector<LinkSide>> paths(const std::vector<Flow>& flows) const;

 private:
  void makeNode(std::size_t node, std::uint64_t seed);
  void makeLinks();
  void configureNode(std::size_t node) const;
  void applyLinks(const Condition& condition);
  void applyDrops(const Condition& condition);
  std::string dropsOf(std::size_t node, const Condition& condition) const;
  std::string neighbour(LinkSide side) const;
  std::string prefixed(std::size_t node, const std::string& interface, std::uint32_t address) const;
  void removeAddress(std::size_t node, const std::string& interface, std::uint32_t address);
  void writeRoutes();
  std::map<std::uint32_t, NextHops> wantedRoutes(std::size_t node) const;
  std::string routeTo(std::size_t node, std::uint32_t address, const NextHops& hops) const;
  std::optional<LinkSide> sideNamed(std::size_t node, const std::string& interface) const;
  std::vector<std::optional<LinkSide>> nextSides(std::size_t node, const std::string& questions,
                                                 std::size_t count) const;
  std::string runIn(std::size_t node, std::vector<std::string> words, std::string input) const;

  const Topology& topology_;
  const std::uint16_t probePort_;
  Namespace home_;
  std::vector<Namespace> namespaces_;
  Condition condition_;
  std::vector<Configuration::Switch> switches_;                 // addresses as they are
  std::vector<std::set<std::string>> announced_;                // per node: the interfaces that others must reach
  std::vector<std::pair<std::size_t, std::uint32_t>> leaving_;  // by node: gone, and routed to until the next route()
  Routes routes_;
  std::vector<std::map<std::uint32_t, NextHops>> written_;  // per node: by destination address
  std::vector<unsigned> firstWeight_;                       // per node: of the first of several next hops
  std::vector<bool> disturbed_;  // nodes whose routes the kernel has changed by itself since they were written
};

}  // namespace Lab
