// From the centre's records to the report.
#include "lab/CentreReport.h"

#include <map>

#include "model/SystemId.h"
#include "runtime/Trace.h"

namespace Lab {
namespace {

using nlohmann::json;

// Names of switches for readers of the report.
class Names {
 public:
  explicit Names(const Topology& topology) {
    for (std::size_t node = 0; node < topology.nodes(); ++node) {
      names_[ethernetText(topology.systemId(node))] = topology.scenario().nodes[node].name;
    }
  }
  std::string operator()(const Fabric::SystemId& id) const {
    if (id.isEmpty()) return "";
    const auto found = names_.find(id.stringValue());
    return found == names_.end() ? id.stringValue() : found->second;
  }

 private:
  std::map<std::string, std::string> names_;
};

json streamReport(const Zeb::ProbeStreamId& id) {
  return {{"source", id.srcIp().stringValue()}, {"destination", id.dstIp().stringValue()}, {"port", id.streamPort()}};
}

// The devices by hop as the probes were last seen: the source, then who last answered at each TTL; "" for a hole.
json hopsReport(const Names& names, const Zeb::ProbeStreamRecord& stream) {
  json hops = json::array({names(stream.sourceId())});
  U8 last = 0;
  for (const auto& record : stream.ingressRecordIterator()) last = std::max(last, record->ttl());
  for (unsigned ttl = 1; ttl <= last; ++ttl) {
    const auto* record = stream.ingressRecord(static_cast<U8>(ttl));
    const auto current = record ? record->currentActiveIngressRecord() : nullptr;
    hops.push_back(current ? names(current->switchId()) : "");
  }
  return hops;
}

json pairReport(const Names& names, const Zeb::DevicePair& pair) {
  return json::array({names(pair.dev1SysId()), names(pair.dev2SysId())});
}

json logReport(const std::vector<Rix::LogMessage>& messages, double zero) {
  json log = json::array();
  for (const Rix::LogMessage& message : messages) {
    log.push_back({{"time", message.time - zero},
                   {"name", message.handle->name()},
                   {"severity", static_cast<int>(message.handle->severity())},
                   {"text", message.text},
                   {"devices", message.arguments}});
  }
  return log;
}

json clientsReport(const Names& names, const Zeb::ZebStatus& status) {
  json clients = json::object();
  for (const auto& client : status.clientIterator()) {
    json groups = json::object();
    for (const auto& group : client->reachabilityGroupIterator()) {
      json& interfaces = groups[std::string(group->name().view())] = json::object();
      for (const auto& entry : group->interfaceIpIterator()) {
        interfaces[std::string(entry.key.view())] = entry.value.stringValue();
      }
    }
    clients[names(client->systemId())] = {{"id", client->systemId().stringValue()},
                                          {"hostname", std::string(client->hostname().view())},
                                          {"groups", groups}};
  }
  return clients;
}

// Streams that some switch sends; the table also holds the reserved ones by which a switch asks to be heard at once.
std::size_t sentStreams(const Zeb::ProbeStreamTable& streams) {
  std::size_t sent = 0;
  for (const auto& stream : streams.streamRecordIterator()) sent += stream->sourceId().isEmpty() ? 0U : 1U;
  return sent;
}

json pathsReport(const Zeb::ZebStatus& status) {
  json paths = json::array();
  for (const auto& path : status.lossStatus()->lossEventStreamPathIterator()) {
    json devices = json::object();
    for (const auto& hop : path->deviceByHopDistanceIterator()) {
      devices[std::to_string(hop.key)] = {{"ipAddr", hop.value.ipAddr.stringValue()},
                                          {"hostname", std::string(hop.value.hostname.view())},
                                          {"intf", hop.value.intf.stringValue()}};
    }
    paths.push_back({{"stream", streamReport(path->streamId())}, {"deviceByHopDistance", devices}});
  }
  return paths;
}

}  // namespace

json centreReport(const Topology& topology, const Zeb::Root& root, const LossHistory& history,
                  const std::vector<Rix::LogMessage>& messages, double zero) {
  const Names names(topology);
  const Zeb::ZebStatus& status = *root.zebStatus();
  const auto& streams = *root.zebStreamTable();
  json report = {{"log", logReport(messages, zero)}, {"clients", clientsReport(names, status)},
                 {"groups", json::object()},         {"orders", json::object()},
                 {"probeStatus", json::object()},    {"pairStreams", json::object()},
                 {"streams", sentStreams(streams)},  {"paths", pathsReport(status)}};
  json& pairs = report["pairs"] = json::array();
  for (const auto& pair : status.lossStatus()->devicePairLossRecordIterator()) {
    json carried = json::array();
    for (const auto& record : pair->streamLossRecordIterator()) carried.push_back(streamReport(record->streamId()));
    pairs.push_back({{"devices", pairReport(names, pair->devicePair())}, {"streams", carried}});
  }
  json& lives = report["pairHistory"] = json::array();
  const auto time = [zero](const std::optional<double>& moment) { return moment ? json(*moment - zero) : json(); };
  for (const LossHistory::PairLife& life : history.pairs()) {
    lives.push_back({{"devices", pairReport(names, life.pair)},
                     {"made", life.made - zero},
                     {"logged", time(life.logged)},
                     {"gone", time(life.gone)}});
  }
  json& losses = report["lossRecords"] = json::array();
  for (const auto& [key, past] : history.ttls()) {
    const auto* stream = streams.streamRecord(key.first);
    losses.push_back({{"stream", streamReport(key.first)},
                      {"ttl", key.second},
                      {"lossy", past.lossy},
                      {"dormant", past.dormant},
                      {"hops", stream ? hopsReport(names, *stream) : json::array()}});
  }
  return report;
}

std::vector<std::string> evidence(const Zeb::ZebStatus& status, const Rix::LogMessage& message) {
  std::vector<std::string> lines;
  const auto name = [&status](const Fabric::SystemId& id) {
    const auto* client = status.client(id);
    return client ? std::string(client->hostname().view()) : id.stringValue();
  };
  for (const auto& pair : status.lossStatus()->devicePairLossRecordIterator()) {
    if (message.arguments.size() != 2 || name(pair->devicePair().dev1SysId()) != message.arguments[0] ||
        name(pair->devicePair().dev2SysId()) != message.arguments[1])
      continue;
    lines.push_back(std::to_string(pair->streamLossRecords()) + " streams put their loss there; of these");
    std::size_t shown = 0;
    for (const auto& record : pair->streamLossRecordIterator()) {
      if (++shown > 3) break;
      const auto& id = record->streamId();
      lines.push_back(id.srcIp().stringValue() + " -> " + id.dstIp().stringValue() + " port " +
                      std::to_string(id.streamPort()) + ": TTL " + std::to_string(record->minLossTtl()) +
                      " went silent at " + name(record->minLossDeviceId()) + ", TTL " +
                      std::to_string(record->minNoLossTtl()) +
                      (record->minNoLossTtl() == 0 ? ", the source, is " : " still arrives at ") +
                      name(record->minNoLossDeviceId()));
    }
  }
  return lines;
}

}  // namespace Lab
