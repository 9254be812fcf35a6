// The parts of the document, in the form in which scripts and tests read it.
#include "lab/Report.h"

#include <algorithm>

#include "lab/Configuration.h"

namespace Lab {

nlohmann::json faultReport(const Scenario& scenario, const Fault& fault, const FaultTimes& times) {
  nlohmann::json entry = {{"kind", faultKindName(fault.kind)}, {"at", fault.at}};
  if (fault.until) entry["until"] = *fault.until;
  switch (fault.kind) {
    case FaultKind::loss:
      entry["from"] = scenario.endName(fault.where);
      entry["to"] = scenario.endName(fault.where.peer());
      entry["share"] = fault.share;
      if (!fault.ports.empty()) entry["ports"] = fault.ports;
      break;
    case FaultKind::linkDown:
      entry["link"] = scenario.endName(fault.where);
      break;
    case FaultKind::powerOff:
    case FaultKind::freeze:
      entry["node"] = scenario.nodes[fault.node].name;
      break;
  }
  if (times.began >= 0) entry["began"] = times.began;
  if (times.ended >= 0) entry["ended"] = times.ended;
  return entry;
}

namespace {

nlohmann::json probeReport(const Probe& probe) {
  return {{"srcGroup", probe.srcGroup}, {"dstGroup", probe.dstGroup}, {"rate", probe.rate},
          {"distance", probe.distance}, {"ports", probe.ports},       {"enabled", probe.enabled}};
}

}  // namespace

nlohmann::json configurationReport(const Topology& topology) {
  const Configuration configuration = initialConfiguration(topology);
  nlohmann::json report = {{"probes", nlohmann::json::object()}, {"switches", nlohmann::json::object()}};
  for (const auto& [name, probe] : configuration.probes) report["probes"][name] = probeReport(probe);
  for (std::size_t node = 0; node < topology.nodes(); ++node) {
    const Configuration::Switch& each = configuration.switches[node];
    nlohmann::json addresses = nlohmann::json::object();
    for (const auto& [interface, address] : each.addresses) addresses[interface] = addressText(address);
    report["switches"][topology.scenario().nodes[node].name] = {
        {"groups", each.groups}, {"addresses", addresses}, {"hostname", each.hostname}};
  }
  return report;
}

nlohmann::json changeReport(const Scenario& scenario, const Change& change, double done) {
  nlohmann::json entry = {{"kind", changeKindName(change.kind)}, {"at", change.at}};
  if (change.node) entry["node"] = scenario.nodes[*change.node].name;
  switch (change.kind) {
    case ChangeKind::probe:
      entry["name"] = change.name;
      if (change.probe) entry["probe"] = probeReport(*change.probe);
      break;
    case ChangeKind::group:
      entry["name"] = change.name;
      if (change.interfaces) entry["interfaces"] = *change.interfaces;
      break;
    case ChangeKind::address:
      entry["interface"] = change.interface;
      entry["to"] = change.address ? addressText(*change.address) : "none";
      break;
    case ChangeKind::hostname:
      entry["to"] = change.name;
      break;
    case ChangeKind::service:
      entry["enabled"] = change.enabled;
      break;
    case ChangeKind::clear:
    case ChangeKind::hash:
      break;
    case ChangeKind::restart:
      entry["what"] = restartedName(change.restarted);
      entry["down"] = change.down;
      break;
  }
  if (done >= 0) entry["done"] = done;
  return entry;
}

std::string changeText(const Scenario& scenario, const Change& change) {
  const std::string of = change.node ? " of " + scenario.nodes[*change.node].name : "";
  switch (change.kind) {
    case ChangeKind::probe:
      return "probe " + change.name + (change.probe ? " is configured anew" : " is removed");
    case ChangeKind::group:
      return "group " + change.name + of + (change.interfaces ? " is configured anew" : " is removed");
    case ChangeKind::address:
      return change.interface + of +
             (change.address ? " has the address " + addressText(*change.address) : " loses its address");
    case ChangeKind::hostname:
      return "the host name" + of + " is " + change.name;
    case ChangeKind::service:
      return "the service" + of + (change.enabled ? " is enabled" : " is disabled");
    case ChangeKind::clear:
      return "the loss records are cleared";
    case ChangeKind::hash:
      return "the choice among equal paths" + of + " is another one";
    case ChangeKind::restart:
      break;
  }
  return "restart of the " + std::string(restartedName(change.restarted)) + of;
}

nlohmann::json coverageReport(const Scenario& scenario, const Coverage& coverage) {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& [pair, count] : coverage)
    list.push_back({scenario.nodes[pair.first].name, scenario.nodes[pair.second].name, count});
  return list;
}

void join(nlohmann::json& report, const nlohmann::json& part) {
  if (report.is_object() && part.is_object()) {
    for (const auto& [key, value] : part.items()) join(report[key], value);
  } else if (report.is_array() && part.is_array()) {
    report.insert(report.end(), part.begin(), part.end());
  } else if (report.is_number() && part.is_number()) {
    report = std::max(report, part);
  } else {
    report = part;
  }
}

}  // namespace Lab
