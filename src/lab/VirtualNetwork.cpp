// Hop by hop at the moment of sending: the whole way takes less than any change that matters.
#include "lab/VirtualNetwork.h"

#include <algorithm>

#include "lab/Seed.h"
#include "runtime/Assert.h"

namespace Lab {
namespace {

// In which of so many equal parts of its range a number lies.
std::size_t partOf(std::uint64_t number, std::size_t parts) {
  return static_cast<std::size_t>(((number >> 32) * parts) >> 32);
}

// The packet as a tap would see it. Checksums are zero: nobody who reads this looks at them.
void writePacket(std::span<std::uint8_t> bytes, const Sonar::Flow& flow, std::uint8_t hopLimit,
                 const Sonar::ProbePayload& payload) {
  const auto put16 = [&](std::size_t offset, std::size_t value) {
    bytes[offset] = static_cast<std::uint8_t>(value >> 8);
    bytes[offset + 1] = static_cast<std::uint8_t>(value);
  };
  bytes[0] = 0x45;
  put16(2, bytes.size());
  bytes[8] = hopLimit;
  bytes[9] = 17;
  put16(12, flow.source.value() >> 16);
  put16(14, flow.source.value());
  put16(16, flow.destination.value() >> 16);
  put16(18, flow.destination.value());
  put16(20, flow.sourcePort);
  put16(22, flow.destinationPort);
  put16(24, Sonar::udpHeaderSize + payload.size());
  std::copy(payload.begin(), payload.end(), bytes.begin() + Sonar::minIpHeaderSize + Sonar::udpHeaderSize);
}

std::uint64_t flowNumber(const Sonar::Flow& flow) {
  const std::uint64_t ends = std::uint64_t{flow.source.value()} << 32 | flow.destination.value();
  return derivedSeed(ends, std::uint64_t{flow.sourcePort} << 16 | flow.destinationPort);
}

}  // namespace

// One switch's own look at itself.
class VirtualNetwork::View : public Sonar::SwitchView {
 public:
  View(const VirtualNetwork& network, std::size_t node) : network_(network), node_(node) {}

  bool linkUp(Netkit::IntfId interface) const override {
    const Interface* const found = interfaceOf(interface);
    return found && (!found->side || network_.linkUp(found->side->link));
  }
  bool hasRoute(Netkit::IpAddr address) const override {
    return isLocal(address) || network_.nextHop(node_, {.source = {}, .destination = address}).has_value();
  }
  Netkit::IpAddr sourceAddress(Netkit::IntfId interface) const override {
    const Interface* const found = interfaceOf(interface);
    return Netkit::IpAddr(found ? found->address : 0);
  }
  Netkit::IntfId egressIntf(Netkit::IpAddr source, Netkit::IpAddr destination, U16 sourcePort) const override {
    const auto side = network_.nextHop(node_, {.source = source, .destination = destination, .sourcePort = sourcePort});
    return side ? network_.sideNames_[2 * side->link + side->side] : Netkit::IntfId();
  }
  std::vector<Netkit::IpAddr> localAddresses() const override {
    std::vector<Netkit::IpAddr> addresses;
    for (const Interface& interface : network_.nodes_[node_].interfaces)
      if (interface.address != 0) addresses.emplace_back(interface.address);
    return addresses;
  }
  bool isLocal(Netkit::IpAddr address) const override {
    return network_.isLocal(network_.nodes_[node_], address.value());
  }

 private:
  const Interface* interfaceOf(Netkit::IntfId id) const {
    for (const Interface& interface : network_.nodes_[node_].interfaces)
      if (interface.id == id) return &interface;
    return nullptr;
  }

  const VirtualNetwork& network_;
  const std::size_t node_;
};

VirtualNetwork::VirtualNetwork(const Topology& topology, std::uint64_t seed)
    : topology_(topology),
      randomState_(seed),
      condition_(conditionOf(topology.scenario(), std::vector<bool>(topology.scenario().faults.size()))),
      nodes_(topology.nodes()) {
  for (std::size_t link = 0; link < topology.links(); ++link)
    for (const std::size_t side : {0u, 1u})
      sideNames_.emplace_back(topology.scenario().links[link].ends[side].interface);
  for (std::size_t node = 0; node < nodes_.size(); ++node) {
    nodes_[node].hashSeed = derivedSeed(seed, node);
    nodes_[node].interfaces.push_back({"lo", Netkit::IntfId("lo"), std::nullopt, topology.loopback(node)});
    for (const LinkSide side : topology.sides(node)) {
      const std::string& name = topology.scenario().end(side).interface;
      nodes_[node].interfaces.push_back({name, Netkit::IntfId(name), side, topology.address(side)});
    }
    nodes_[node].view = std::make_unique<View>(*this, node);
  }
  for (std::size_t node = 0; node < nodes_.size(); ++node) route(node);
}

VirtualNetwork::~VirtualNetwork() = default;

const Sonar::SwitchView& VirtualNetwork::view(std::size_t node) const {
  return *nodes_[node].view;
}

void VirtualNetwork::route(std::size_t node) {
  Node& routed = nodes_[node];
  routed.hops = shortestRoutes(topology_, condition_.linksUp())[node];
  routed.routed.clear();
  for (std::size_t owner = 0; owner < nodes_.size(); ++owner)
    for (const Interface& interface : nodes_[owner].interfaces)
      if (owner != node && interface.address != 0) routed.routed.push_back({interface.address, owner});
  std::sort(routed.routed.begin(), routed.routed.end(),
            [](const Route& left, const Route& right) { return left.address < right.address; });
}

void VirtualNetwork::addressIs(std::size_t node, const std::string& interface, std::uint32_t address) {
  for (Interface& each : nodes_[node].interfaces)
    if (each.name == interface) each.address = address;
}

std::uint32_t VirtualNetwork::address(std::size_t node, const std::string& interface) const {
  for (const Interface& each : nodes_[node].interfaces)
    if (each.name == interface) return each.address;
  return 0;
}

bool VirtualNetwork::isLocal(const Node& node, std::uint32_t address) const {
  return address != 0 && std::any_of(node.interfaces.begin(), node.interfaces.end(),
                                     [address](const Interface& each) { return each.address == address; });
}

// Of the next hops whose links are up, the one in whose part of the range the flow's number lies: when one goes, the
// parts of all the others move, so that flows change their way that never went there.
std::optional<LinkSide> VirtualNetwork::nextHop(std::size_t node, const Sonar::Flow& flow) const {
  const Node& from = nodes_[node];
  const auto route = std::lower_bound(from.routed.begin(), from.routed.end(), flow.destination.value(),
                                      [](const Route& each, std::uint32_t address) { return each.address < address; });
  if (route == from.routed.end() || route->address != flow.destination.value()) return std::nullopt;
  const NextHops& hops = from.hops[route->owner];
  std::size_t up = 0;
  for (const LinkSide side : hops) up += linkUp(side.link) ? 1u : 0u;
  if (up == 0) return std::nullopt;
  std::size_t place = partOf(derivedSeed(from.hashSeed, flowNumber(flow)), up);
  for (const LinkSide side : hops)
    if (linkUp(side.link) && place-- == 0) return side;
  return std::nullopt;
}

std::uint64_t VirtualNetwork::random() {
  return derivedSeed(randomState_, ++sent_);
}

bool VirtualNetwork::dropped(LinkSide side, const Sonar::Flow& flow) {
  if (condition_.frozen[topology_.node(side)] || condition_.frozen[topology_.node(side.peer())]) return true;
  if (condition_.drops.empty()) return false;
  const auto drops = condition_.drops.find(side);
  if (drops == condition_.drops.end()) return false;
  return std::any_of(drops->second.begin(), drops->second.end(), [&](const Drop& drop) {
    const bool hit =
        drop.ports.empty() || std::find(drop.ports.begin(), drop.ports.end(), flow.sourcePort) != drop.ports.end();
    return hit && (drop.share >= 1 || static_cast<double>(random() >> 11) * 0x1p-53 < drop.share);
  });
}

bool VirtualNetwork::send(double now, std::size_t node, const Sonar::Flow& flow, std::uint8_t hopLimit,
                          const Sonar::ProbePayload& payload) {
  RIX_ASSERT(hopLimit > 0);
  std::optional<LinkSide> side = nextHop(node, flow);
  if (!side) return false;
  if (loses_ && loses_({node, flow, hopLimit, payload})) return true;
  double when = now;
  for (std::uint8_t left = hopLimit;; --left) {
    when += hopDelay * (1 + static_cast<double>(random() >> 11) * 0x1p-53);
    if (dropped(*side, flow)) return true;
    const LinkSide in = side->peer();
    const std::size_t at = topology_.node(in);
    if (left > 1 && !isLocal(nodes_[at], flow.destination.value())) {
      side = nextHop(at, flow);
      if (!side) return true;
      continue;
    }
    const std::size_t place = freePlace();
    Arrival& arrival = places_[place];
    arrival.when = when;
    arrival.node = at;
    arrival.interface = sideNames_[2 * in.link + in.side];
    writePacket(arrival.bytes, flow, left, payload);
    underWay_.push_back({when, sent_, place});
    std::push_heap(underWay_.begin(), underWay_.end());
    return true;
  }
}

std::size_t VirtualNetwork::freePlace() {
  if (freePlaces_.empty()) {
    places_.emplace_back();
    return places_.size() - 1;
  }
  const std::size_t place = freePlaces_.back();
  freePlaces_.pop_back();
  return place;
}

const VirtualNetwork::Arrival& VirtualNetwork::takeArrival() {
  RIX_ASSERT(!underWay_.empty());
  std::pop_heap(underWay_.begin(), underWay_.end());
  const std::size_t place = underWay_.back().place;
  underWay_.pop_back();
  taken_ = places_[place];
  freePlaces_.push_back(place);
  return taken_;
}

std::vector<LinkSide> VirtualNetwork::path(std::size_t source, const Sonar::Flow& flow, std::uint8_t hopLimit) const {
  std::vector<LinkSide> sides;
  for (std::size_t at = source; sides.size() < hopLimit && !isLocal(nodes_[at], flow.destination.value());) {
    const auto side = nextHop(at, flow);
    if (!side) break;
    sides.push_back(*side);
    at = topology_.node(side->peer());
  }
  return sides;
}

}  // namespace Lab
