// A probe works in both directions, so each pair of members makes streams both ways, one for each port.
#include "lab/Flows.h"

#include <algorithm>
#include <tuple>

namespace Lab {

namespace {

struct Member {
  std::size_t node;
  std::uint32_t address;
};

std::vector<Member> membersOf(const Topology& topology, const std::string& group) {
  std::vector<Member> members;
  for (std::size_t node = 0; node < topology.nodes(); ++node) {
    const auto& groups = topology.scenario().nodes[node].groups;
    if (const auto found = groups.find(group); found != groups.end())
      for (const std::string& interface : found->second) members.push_back({node, topology.address(node, interface)});
  }
  return members;
}

}  // namespace

std::vector<Flow> flowsOf(const Topology& topology) {
  std::vector<Flow> flows;
  for (const Probe& probe : topology.scenario().probes) {
    if (!probe.enabled) continue;
    const std::vector<Member> ends[2] = {membersOf(topology, probe.srcGroup), membersOf(topology, probe.dstGroup)};
    for (const auto& [from, to] : {std::pair(0, 1), std::pair(1, 0)})
      for (const Member& source : ends[from])
        for (const Member& destination : ends[to])
          for (const std::uint16_t port : probe.ports)
            if (source.node != destination.node)
              flows.push_back(
                  {source.node, destination.node, source.address, destination.address, port, probe.distance});
  }
  // Two probes, or the two directions of one within a group, may ask for the same stream; it goes as far as either.
  std::sort(flows.begin(), flows.end(), [](const Flow& a, const Flow& b) { return b < a; });
  const auto stream = [](const Flow& flow) {
    return std::tuple(flow.sourceAddress, flow.destinationAddress, flow.port);
  };
  flows.erase(
      std::unique(flows.begin(), flows.end(), [&](const Flow& a, const Flow& b) { return stream(a) == stream(b); }),
      flows.end());
  std::reverse(flows.begin(), flows.end());
  return flows;
}

Coverage coverageOf(const Topology& topology, const std::vector<std::vector<LinkSide>>& paths) {
  Coverage coverage;
  for (std::size_t node = 0; node < topology.nodes(); ++node)
    for (const LinkSide side : topology.sides(node)) coverage[{node, topology.node(side.peer())}] = 0;
  for (const auto& path : paths)
    for (const LinkSide side : path) ++coverage[{topology.node(side), topology.node(side.peer())}];
  return coverage;
}

}  // namespace Lab
