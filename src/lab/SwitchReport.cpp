// From a switch's records and tables to its part of the report.
#include "lab/SwitchReport.h"

#include <set>

#include "sonar/Bell.h"

namespace Lab {
namespace {

using nlohmann::json;

// The members of a set, by a reading of their keys.
template <class Set, class Read>
json keys(const Set& set, const Read& read) {
  std::set<json> sorted;
  for (const auto& entry : set)
    if (entry.value) sorted.insert(read(entry.key));
  return sorted;
}

json row(const Sonar::StreamFields& key) {
  return {key.srcIp.stringValue(), key.dstIp.stringValue(), key.streamPort, key.ttl};
}

bool isBell(const Sonar::StreamFields& key) {
  static const Sonar::IngressStream reserved = Sonar::Bell::reservedStream(0);
  return key.srcIp == reserved.srcIp && key.dstIp == reserved.dstIp;
}

}  // namespace

json ordersReport(const Sonar::Config& config) {
  json orders = json::object();
  for (const auto& transmitter : config.transmitterIterator()) {
    json hops = json::object();
    for (const auto& hop : transmitter->hopsRateIterator()) hops[std::to_string(hop.key)] = hop.value.rate;
    orders[std::string(transmitter->name().view())] = {
        {"enabled", transmitter->enabled()},
        {"sources", keys(transmitter->sourceInterfaceIterator(), [](const auto& key) { return key.stringValue(); })},
        {"destinations", keys(transmitter->ipDestIterator(), [](const auto& key) { return key.stringValue(); })},
        {"hops", hops},
        {"ports", keys(transmitter->optionalSourcePortListIterator(), [](const auto& key) { return json(key); })}};
  }
  return orders;
}

json rowsReport(Sonar::LocalStatus& tables) {
  json egress = json::array();
  Sonar::visitKeys(tables.egressStreamTable(), [&](const Sonar::EgressStream& key) { egress.push_back(row(key)); });
  json ingress = json::array();
  Sonar::visitKeys(tables.ingressStreamStatisticsTable(), [&](const Sonar::IngressStream& key) {
    if (isBell(key)) return;
    ingress.push_back(row(key));
    ingress.back().push_back(Sonar::guardedRow(tables.ingressStreamStatisticsTable(), key).dormant);
  });
  return {{"egress", egress}, {"ingress", ingress}};
}

}  // namespace Lab
