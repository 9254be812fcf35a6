// Both functions compare what stands with what shall stand, so that one serves the beginning and every change.
#include "lab/Operator.h"

#include <algorithm>

namespace Lab {

namespace {

// What an operator's group says of an interface: that it is named. Addresses are the switch's to report. Zero would
// mean that the name no longer stands.
const Netkit::IpAddr named(1);

bool sameGroups(const Probe& probe, const Zeb::ZebProbeConfig& config) {
  return config.srcGroup() == probe.srcGroup && config.dstGroup() == probe.dstGroup;
}

void configure(const Probe& probe, Zeb::ZebProbeConfig& config) {
  config.rateIs(probe.rate);
  config.distanceIs(probe.distance);
  for (const auto& entry : config.portIterator())
    if (std::find(probe.ports.begin(), probe.ports.end(), entry.key) == probe.ports.end())
      config.portDel(U16(entry.key));
  for (const U16 port : probe.ports) config.portIs(port, true);
  config.enabledIs(probe.enabled);
}

// Complete before anybody hears of it: its groups are read once.
Rix::Ptr<Zeb::ZebProbeConfig> madeProbe(const Probe& probe) {
  auto config = Rix::make<Zeb::ZebProbeConfig>(Rix::Name(probe.name));
  config->srcGroupIs(probe.srcGroup);
  config->dstGroupIs(probe.dstGroup);
  configure(probe, *config);
  return config;
}

void configure(const std::vector<std::string>& interfaces, Zeb::ClientReachabilityGroup& group) {
  for (const auto& entry : group.interfaceIpIterator())
    if (std::find(interfaces.begin(), interfaces.end(), entry.key.view()) == interfaces.end())
      group.interfaceIpDel(Rix::String8(entry.key));
  for (const std::string& interface : interfaces) group.interfaceIpIs(interface, named);
}

}  // namespace

void configure(const Configuration& configuration, Zeb::ZebConfig& config) {
  if (!configuration.enabled) config.enabledIs(false);
  for (const auto& standing : config.probeConfigIterator()) {
    const auto wanted = configuration.probes.find(std::string(standing->name().view()));
    if (wanted == configuration.probes.end() || !sameGroups(wanted->second, *standing))
      config.probeConfigDel(Rix::Name(standing->name()));
  }
  for (const auto& [name, probe] : configuration.probes) {
    if (Zeb::ZebProbeConfig* const standing = config.probeConfig(Rix::Name(name)))
      configure(probe, *standing);
    else
      config.probeConfigAdopt(madeProbe(probe));
  }
  config.clearLossRecordsIs(configuration.clears);
  if (configuration.enabled) config.enabledIs(true);
}

void configure(const Configuration::Switch& configuration, Zeb::ClientConfig& config) {
  for (const auto& standing : config.groupIterator())
    if (!configuration.groups.contains(std::string(standing->name().view())))
      config.groupDel(Rix::Name(standing->name()));
  for (const auto& [name, interfaces] : configuration.groups) configure(interfaces, *config.groupIs(Rix::Name(name)));
  config.enabledIs(configuration.enabled);
}

}  // namespace Lab
