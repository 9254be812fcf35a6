// A line is written at once and as a whole; the last one that holds of a pair or a TTL counts.
#include "lab/CentreJournal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>

#include "lab/Command.h"
#include "runtime/Trace.h"

namespace Lab {
namespace {

using nlohmann::json;

json moment(const json& time, double zero) {
  return time.is_number() ? json(time.get<double>() - zero) : json();
}

json optional(const std::optional<double>& time) {
  return time ? json(*time) : json();
}

}  // namespace

json streamReport(const Zeb::ProbeStreamId& id) {
  return {{"source", id.srcIp().stringValue()}, {"destination", id.dstIp().stringValue()}, {"port", id.streamPort()}};
}

CentreJournal::CentreJournal(const Topology& topology, const std::string& path, int generation, double now)
    : names_(topology),
      path_(path),
      generation_(generation),
      file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) {
  if (!file_) throw LabError(path + ": " + std::strerror(errno));
  add({{"begins", now}});
}

void CentreJournal::add(const json& line) const {
  const std::string text = line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
  if (::write(file_.fd(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    throw LabError(path_ + ": " + std::strerror(errno));
}

void CentreJournal::note(const Rix::LogMessage& message) const {
  add({{"log",
        {{"time", message.time},
         {"name", message.handle->name()},
         {"severity", static_cast<int>(message.handle->severity())},
         {"text", message.text},
         {"devices", message.arguments}}}});
}

void CentreJournal::note(std::size_t index, const LossHistory::PairLife& life) const {
  add({{"pair",
        {{"centre", generation_},
         {"index", index},
         {"devices", {names_(life.pair.dev1SysId()), names_(life.pair.dev2SysId())}},
         {"made", life.made},
         {"logged", optional(life.logged)},
         {"gone", optional(life.gone)}}}});
}

void CentreJournal::note(const LossHistory::TtlKey& key, const LossHistory::TtlPast& past) const {
  add({{"ttl",
        {{"stream", streamReport(key.first)}, {"ttl", key.second}, {"lossy", past.lossy}, {"dormant", past.dormant}}}});
}

json CentreJournal::report(double zero) const {
  json log = json::array();
  std::map<std::pair<int, std::size_t>, json> pairs;
  std::map<json, json> ttls;
  std::ifstream file(path_);
  for (std::string text; std::getline(file, text);) {
    const json line = json::parse(text, nullptr, false);
    if (!line.is_object()) continue;  // a centre died as it wrote it
    if (line.contains("begins")) {
      // What stood at the centre before went with it.
      for (auto& [place, pair] : pairs)
        if (pair["gone"].is_null()) pair["gone"] = line["begins"];
    } else if (line.contains("log")) {
      log.push_back(line["log"]);
      log.back()["time"] = moment(line["log"]["time"], zero);
    } else if (line.contains("pair")) {
      json pair = line["pair"];
      const std::pair<int, std::size_t> place{pair["centre"], pair["index"]};
      pair.erase("centre");
      pair.erase("index");
      pairs[place] = std::move(pair);
    } else if (line.contains("ttl")) {
      const json& ttl = line["ttl"];
      json& known = ttls[{ttl["stream"], ttl["ttl"]}];
      if (known.is_null())
        known = ttl;
      else
        for (const char* flag : {"lossy", "dormant"}) known[flag] = known[flag].get<bool>() || ttl[flag].get<bool>();
    }
  }
  json report = {{"log", log}, {"pairHistory", json::array()}, {"lossRecords", json::array()}};
  for (auto& [place, pair] : pairs) {
    for (const char* time : {"made", "logged", "gone"}) pair[time] = moment(pair[time], zero);
    report["pairHistory"].push_back(pair);
  }
  for (const auto& [key, ttl] : ttls) report["lossRecords"].push_back(ttl);
  return report;
}

}  // namespace Lab
