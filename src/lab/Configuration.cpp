// A change says what holds from then on, so that applying it is to note it.
#include "lab/Configuration.h"

#include "lab/Topology.h"

namespace Lab {

namespace {

template <class Map, class Value>
void note(Map& map, const std::string& key, const std::optional<Value>& value) {
  if (value)
    map[key] = *value;
  else
    map.erase(key);
}

}  // namespace

Configuration initialConfiguration(const Topology& topology) {
  Configuration configuration;
  for (const Probe& probe : topology.scenario().probes) configuration.probes.emplace(probe.name, probe);
  for (std::size_t node = 0; node < topology.nodes(); ++node) {
    const Node& described = topology.scenario().nodes[node];
    Configuration::Switch& each = configuration.switches.emplace_back();
    each.groups = described.groups;
    each.hostname = described.name;
    each.addresses["lo"] = topology.loopback(node);
    for (const LinkSide side : topology.sides(node))
      each.addresses[topology.scenario().end(side).interface] = topology.address(side);
  }
  return configuration;
}

void applyChange(const Change& change, Configuration& configuration) {
  const auto ofNode = [&]() -> Configuration::Switch& { return configuration.switches[*change.node]; };
  switch (change.kind) {
    case ChangeKind::probe:
      note(configuration.probes, change.name, change.probe);
      break;
    case ChangeKind::group:
      note(ofNode().groups, change.name, change.interfaces);
      break;
    case ChangeKind::address:
      note(ofNode().addresses, change.interface, change.address);
      break;
    case ChangeKind::hostname:
      ofNode().hostname = change.name;
      break;
    case ChangeKind::service:
      (change.node ? ofNode().enabled : configuration.enabled) = change.enabled;
      break;
    case ChangeKind::clear:
      ++configuration.clears;
      break;
    case ChangeKind::restart:
    case ChangeKind::hash:
      break;
  }
}

Configuration configurationAfter(const Topology& topology, std::size_t changes) {
  Configuration configuration = initialConfiguration(topology);
  for (std::size_t change = 0; change < changes; ++change)
    applyChange(topology.scenario().changes[change], configuration);
  return configuration;
}

}  // namespace Lab
