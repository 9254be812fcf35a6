// The fabric's packets as arithmetic: where a packet ends, by which interface and when, from the links, the routes and
// a seed. It also shows each switch what a kernel would show it. No packet is ever touched by a kernel, and nothing
// here knows what a packet says beyond the addresses and ports of its flow.
//
// Whoever runs a fabric on virtual time owns it, changes the fabric's condition, and takes the packets that arrive.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "lab/Condition.h"
#include "lab/Routing.h"
#include "sonar/Probe.h"
#include "sonar/SwitchView.h"

namespace Lab {

class VirtualNetwork {
 public:
  static constexpr double hopDelay = 50e-6;  // seconds; and up to as much again, by the seed

  // All links up, everything routed, and on every interface its address of the topology, which must outlive this.
  VirtualNetwork(const Topology& topology, std::uint64_t seed);
  ~VirtualNetwork();
  VirtualNetwork(const VirtualNetwork&) = delete;
  VirtualNetwork& operator=(const VirtualNetwork&) = delete;

  const Condition& condition() const { return condition_; }
  // In force at once; a next hop over a link that is down is left out, but no node has other routes yet.
  void conditionIs(const Condition& condition) { condition_ = condition; }
  // The routing protocol reaches this node: it has the shortest routes over the links that are up, to the addresses
  // that the nodes have, all as of now.
  void route(std::size_t node);
  // Flows choose among equal next hops by another number from now on.
  void hashSeedIs(std::size_t node, std::uint64_t seed) { nodes_[node].hashSeed = seed; }
  // Zero: the interface has none. Others have no route to an address until they are routed anew.
  void addressIs(std::size_t node, const std::string& interface, std::uint32_t address);
  std::uint32_t address(std::size_t node, const std::string& interface) const;

  // What this switch sees of itself, always as of now.
  const Sonar::SwitchView& view(std::size_t node) const;

  // A packet leaves `node` at `now` with this hop limit, at least 1. False: it has no route.
  bool send(double now, std::size_t node, const Sonar::Flow& flow, std::uint8_t hopLimit,
            const Sonar::ProbePayload& payload);
  // A packet as it leaves its first node.
  struct Sending {
    std::size_t node;
    Sonar::Flow flow;
    std::uint8_t hopLimit;
    Sonar::ProbePayload payload;
    bool isProbe() const { return payload[5] == static_cast<std::uint8_t>(Sonar::PacketKind::probe); }
  };
  // Somebody who sees all that is sent. True: it is lost on its way.
  void lossIs(std::function<bool(const Sending&)> loses) { loses_ = std::move(loses); }

  // A packet that ended at a node, from its first header byte on.
  struct Arrival {
    double when = 0;
    std::size_t node = 0;
    Netkit::IntfId interface {};
    std::array<std::uint8_t, Sonar::minIpHeaderSize + Sonar::udpHeaderSize + Sonar::probePayloadSize> bytes{};
  };
  // When the next packet ends, Rix::never if none is under way.
  double nextArrival() const { return underWay_.empty() ? Rix::never : underWay_.front().when; }
  // Takes it out. It stands until the next call. Precondition: there is one.
  const Arrival& takeArrival();

  // The sides that would send a packet of this flow, from its source on, as of now; drops are not looked at.
  std::vector<LinkSide> path(std::size_t source, const Sonar::Flow& flow, std::uint8_t hopLimit) const;

 private:
  class View;
  struct Interface {
    std::string name;
    Netkit::IntfId id;
    std::optional<LinkSide> side;  // none: of the loopback
    std::uint32_t address;
  };
  struct Route {
    std::uint32_t address;
    std::size_t owner;
  };
  struct Node {
    std::uint64_t hashSeed;
    std::vector<Interface> interfaces;
    std::vector<Route> routed;   // by address: whose it was when this node was routed last
    std::vector<NextHops> hops;  // by destination node
    std::unique_ptr<View> view;
  };
  struct UnderWay {
    double when;
    std::uint64_t number;
    std::size_t place;
    bool operator<(const UnderWay& other) const {  // for a heap with the earliest in front
      return when != other.when ? when > other.when : number > other.number;
    }
  };

  bool linkUp(std::size_t link) const { return !condition_.down[link][0] && !condition_.down[link][1]; }
  bool isLocal(const Node& node, std::uint32_t address) const;
  std::optional<LinkSide> nextHop(std::size_t node, const Sonar::Flow& flow) const;
  bool dropped(LinkSide side, const Sonar::Flow& flow);
  std::uint64_t random();
  std::size_t freePlace();

  const Topology& topology_;
  std::uint64_t randomState_;
  std::function<bool(const Sending&)> loses_;
  Condition condition_;
  std::vector<Node> nodes_;
  std::vector<Netkit::IntfId> sideNames_;  // by link and side
  std::vector<UnderWay> underWay_;         // a heap
  std::vector<Arrival> places_;
  std::vector<std::size_t> freePlaces_;
  std::uint64_t sent_ = 0;
  Arrival taken_;
};

}  // namespace Lab
