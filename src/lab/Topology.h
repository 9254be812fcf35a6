// The fabric of a scenario with the numbers that it gets: addresses, identities, who is whose neighbour. Made once
// from the scenario, the same for every fabric, and never changed. It refers to the scenario, which must outlive it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/Scenario.h"

namespace Lab {

class Topology {
 public:
  explicit Topology(const Scenario& scenario);
  explicit Topology(Scenario&&) = delete;

  const Scenario& scenario() const { return scenario_; }
  std::size_t nodes() const { return scenario_.nodes.size(); }
  std::size_t links() const { return scenario_.links.size(); }

  // The ends that are at this node, in the order of the links.
  const std::vector<LinkSide>& sides(std::size_t node) const { return sides_[node]; }
  std::size_t node(LinkSide side) const { return scenario_.end(side).node; }

  // All addresses in host byte order. A loopback is a /32 of 10.0.0.0/16, in the order of the nodes from 10.0.0.1 on;
  // a link is a /31 from 10.1.0.0 on, its first end the even address.
  std::uint32_t loopback(std::size_t node) const { return 0x0a000001u + static_cast<std::uint32_t>(node); }
  std::uint32_t address(LinkSide side) const {
    return 0x0a010000u + static_cast<std::uint32_t>(2 * side.link + side.side);
  }
  // Of "lo" or of an interface that is on a link; 0 for a name that this node does not have.
  std::uint32_t address(std::size_t node, const std::string& interface) const;

  // 48 bits in the form of an Ethernet address, locally administered. A node's is its identity in the system.
  std::uint64_t systemId(std::size_t node) const { return 0x020000000001u + node; }
  std::uint64_t ethernetAddress(LinkSide side) const { return 0x020100000000u + 2 * side.link + side.side; }

 private:
  const Scenario& scenario_;
  std::vector<std::vector<LinkSide>> sides_;
};

// "10.0.0.1"
std::string addressText(std::uint32_t address);
// The address that `text` is, if it is one that an interface may have for others: not of the networks 0 and 127, and
// no group's.
std::optional<std::uint32_t> addressFromText(const std::string& text);
// "02:00:00:00:00:01"
std::string ethernetText(std::uint64_t address);

}  // namespace Lab
