// The parts of the document, in the form in which scripts and tests read it.
#include "lab/Report.h"

#include <algorithm>

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
