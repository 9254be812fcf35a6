// From the centre's records to the report.
#include "lab/CentreReport.h"

#include <map>
#include <set>

#include "runtime/Json.h"

namespace Lab {
namespace {

using nlohmann::json;

// The devices by hop as the probes were last seen: the source, then who last answered at each TTL; "" for a hole.
json hopsReport(const NodeNames& names, const Zeb::ProbeStreamRecord& stream) {
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

json pairReport(const NodeNames& names, const Zeb::DevicePair& pair) {
  return json::array({names(pair.dev1SysId()), names(pair.dev2SysId())});
}

json clientsReport(const NodeNames& names, const Zeb::ZebStatus& status) {
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

// What probes name, and who is in it.
json groupsReport(const NodeNames& names, const Zeb::ZebStatus& status) {
  json groups = json::object();
  for (const auto& group : status.groupIterator()) {
    std::set<std::string> members;
    for (const auto& member : group->memberIterator()) members.insert(names(member->systemId()));
    std::set<std::string> probes;
    for (const auto& probe : group->probeIterator()) probes.emplace(probe->name().view());
    groups[std::string(group->name().view())] = {{"members", members}, {"probes", probes}};
  }
  return groups;
}

json probeStatusReport(const Zeb::ZebStatus& status) {
  json probes = json::object();
  for (const auto& probe : status.probeStatusIterator())
    probes[std::string(probe->name().view())] = json::parse(Rix::jsonText(*probe));
  return probes;
}

json pairStreamsReport(const NodeNames& names, const Zeb::ZebStatus& status) {
  json sources = json::object();
  for (const auto& source : status.pairStreamStatus()->sourceIterator()) {
    json& destinations = sources[names(source->sourceId())] = json::object();
    for (const auto& destination : source->destinationIterator()) {
      std::set<json> streams;
      for (const auto& stream : destination->streamIterator()) streams.insert(streamReport(stream.key));
      destinations[names(destination->destinationId())] = streams;
    }
  }
  return sources;
}

json standingLossReport(const Zeb::ZebStatus& status) {
  json records = json::array();
  for (const auto& record : status.lossStatus()->lossRecordIterator()) {
    std::set<unsigned> ttls;
    for (const auto& ttl : record->streamTtlLossRecordIterator()) ttls.insert(ttl->ttl());
    records.push_back({{"stream", streamReport(record->streamId())}, {"ttls", ttls}});
  }
  return records;
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

json centreReport(const Topology& topology, const Zeb::Root& root, const CentreJournal& journal, double zero) {
  const NodeNames names(topology);
  const Zeb::ZebStatus& status = *root.zebStatus();
  const auto& streams = *root.zebStreamTable();
  json report = journal.report(zero);
  report.update({{"clients", clientsReport(names, status)},
                 {"groups", groupsReport(names, status)},
                 {"probeStatus", probeStatusReport(status)},
                 {"pairStreams", pairStreamsReport(names, status)},
                 {"standingLossRecords", standingLossReport(status)},
                 {"streams", sentStreams(streams)},
                 {"paths", pathsReport(status)}});
  json& pairs = report["pairs"] = json::array();
  for (const auto& pair : status.lossStatus()->devicePairLossRecordIterator()) {
    json carried = json::array();
    for (const auto& record : pair->streamLossRecordIterator()) carried.push_back(streamReport(record->streamId()));
    pairs.push_back({{"devices", pairReport(names, pair->devicePair())}, {"streams", carried}});
  }
  std::map<json, json> hops;
  for (const auto& stream : streams.streamRecordIterator())
    hops[streamReport(stream->streamId())] = hopsReport(names, *stream);
  for (json& loss : report["lossRecords"]) {
    const auto found = hops.find(loss["stream"]);
    loss["hops"] = found == hops.end() ? json::array() : found->second;
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
