// The streams that a scenario's probes make, as far as their way through the fabric depends on it, and which directed
// links they cover: a fault where no stream passes shows nothing. Pure computation; the ways come from the fabric.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "lab/Topology.h"

namespace Lab {

struct Flow {
  std::size_t source;  // nodes
  std::size_t destination;
  std::uint32_t sourceAddress;  // host byte order
  std::uint32_t destinationAddress;
  std::uint16_t port;     // the source port: what tells a stream from the others between the same addresses
  std::uint8_t distance;  // the largest TTL: how many links its probes pass at most

  auto operator<=>(const Flow&) const = default;
};

// One for each stream of an enabled probe. A probe works in both directions.
std::vector<Flow> flowsOf(const Topology& topology);

// Ordered pairs of adjacent nodes, each with the number of flows that pass from the first to the second; also those
// that none passes. `paths`: per flow, the sides that send it.
using Coverage = std::map<std::pair<std::size_t, std::size_t>, std::size_t>;
Coverage coverageOf(const Topology& topology, const std::vector<std::vector<LinkSide>>& paths);

}  // namespace Lab
