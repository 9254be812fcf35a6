// From a scenario's groups and probes to entries and orders.
#include "lab/StandIn.h"

#include "model/SystemId.h"
#include "runtime/Activity.h"

namespace Lab {
namespace {

void writeTransmitter(const Topology& topology, std::size_t node, const Probe& probe, const std::string& ownGroup,
                      const std::string& peerGroup, Sonar::Config& config) {
  const Scenario& scenario = topology.scenario();
  Sonar::TransmitterConfig& transmitter = *config.transmitterIs(Rix::Name(probe.name + ":" + ownGroup));
  for (const std::string& interface : scenario.nodes[node].groups.at(ownGroup)) {
    transmitter.sourceInterfaceIs(Netkit::IntfId(interface), true);
  }
  for (std::size_t peer = 0; peer < scenario.nodes.size(); ++peer) {
    const auto group = scenario.nodes[peer].groups.find(peerGroup);
    if (peer == node || group == scenario.nodes[peer].groups.end()) continue;
    for (const std::string& interface : group->second) {
      const Netkit::IpAddr address(topology.address(peer, interface));
      transmitter.ipDestIs(address, true);
      transmitter.fullIpDestIs(address, true);
    }
  }
  for (U16 hop = 1; hop <= probe.distance; ++hop) transmitter.hopsRateIs(hop, {probe.rate, 1, 1});
  for (const U16 port : probe.ports) {
    transmitter.sourcePortConfigIs({2, 0, 0, 0});
    transmitter.optionalSourcePortListIs(port, true);
  }
  transmitter.enabledIs(probe.enabled);
  transmitter.genIdIs(Rix::now());
}

}  // namespace

void writeClients(const Topology& topology, Zeb::ZebStatus& status) {
  for (std::size_t node = 0; node < topology.nodes(); ++node) {
    const Node& described = topology.scenario().nodes[node];
    Zeb::ZebClient& client = *status.clientIs(Fabric::systemIdFromString(ethernetText(topology.systemId(node))));
    client.hostnameIs(described.name);
    for (const auto& [name, interfaces] : described.groups) {
      Zeb::ClientReachabilityGroup& group = *client.reachabilityGroupIs(Rix::Name(name));
      for (const std::string& interface : interfaces) {
        group.interfaceIpIs(interface, Netkit::IpAddr(topology.address(node, interface)));
      }
    }
  }
}

void writeTransmitters(const Topology& topology, std::size_t node, Sonar::Config& config) {
  const auto& groups = topology.scenario().nodes[node].groups;
  for (const Probe& probe : topology.scenario().probes) {
    if (groups.contains(probe.srcGroup))
      writeTransmitter(topology, node, probe, probe.srcGroup, probe.dstGroup, config);
    if (groups.contains(probe.dstGroup))
      writeTransmitter(topology, node, probe, probe.dstGroup, probe.srcGroup, config);
  }
  config.enabledIs(true);
}

}  // namespace Lab
