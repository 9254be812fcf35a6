// From the tree of a scenario's text to the scenario. Every value is looked at here, once; what comes out needs no
// further checks. The first error ends the reading.
#include "lab/Scenario.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <set>
#include <sstream>
#include <utility>

#include "platform/Files.h"

namespace Lab {

namespace {

constexpr std::pair<std::string_view, FaultKind> faultKinds[] = {{"loss", FaultKind::loss},
                                                                 {"link-down", FaultKind::linkDown},
                                                                 {"power-off", FaultKind::powerOff},
                                                                 {"freeze", FaultKind::freeze}};

std::string plain(double number) {
  std::ostringstream out;
  out << number;
  return out.str();
}

std::string joined(const std::vector<std::string_view>& words) {
  std::string result;
  for (const std::string_view word : words) result += (result.empty() ? "" : ", ") + std::string(word);
  return result;
}

// Reads values out of nodes; each throws with what was expected there. `what` names the value in the error.
class Values {
 public:
  explicit Values(const std::string& file) : file_(file) {}

  [[noreturn]] void fail(const YamlNode& at, const std::string& what) const {
    throw ScenarioError(file_, at.line, what);
  }

  // The entries of a map whose keys must all be among `known`.
  void checkKeys(const YamlNode& node, const std::string& what, const std::vector<std::string_view>& known) const {
    for (const YamlNode::Entry& entry : entries(node, what))
      if (std::find(known.begin(), known.end(), entry.key) == known.end())
        throw ScenarioError(file_, entry.keyLine,
                            "unknown key " + quoted(entry.key) + " in " + what + "; expected " + joined(known));
  }

  const std::vector<YamlNode::Entry>& entries(const YamlNode& node, const std::string& what) const {
    if (node.kind != YamlNode::Kind::map) fail(node, what + " is no map; expected keys with values");
    return node.entries;
  }

  static const YamlNode* find(const YamlNode& map, std::string_view key) {
    for (const YamlNode::Entry& entry : map.entries)
      if (entry.key == key) return &entry.value;
    return nullptr;
  }

  const YamlNode& need(const YamlNode& map, const std::string& what, std::string_view key) const {
    const YamlNode* value = find(map, key);
    if (!value) fail(map, what + " without " + quoted(key) + "; expected it here");
    return *value;
  }

  const std::string& text(const YamlNode& node, const std::string& what) const {
    if (node.kind != YamlNode::Kind::scalar || node.text.empty()) fail(node, what + " is empty; expected a word");
    return node.text;
  }

  const std::vector<YamlNode>& items(const YamlNode& node, const std::string& what, std::size_t most) const {
    if (node.kind != YamlNode::Kind::list || node.items.empty() || node.items.size() > most)
      fail(node, what + ": expected a list of 1 to " + std::to_string(most));
    return node.items;
  }

  std::uint64_t whole(const YamlNode& node, const std::string& what, std::uint64_t least, std::uint64_t most) const {
    std::uint64_t value = 0;
    if (!parse(node.text, value) || value < least || value > most)
      fail(node, what + " " + quoted(node.text) + "; expected a whole number from " + std::to_string(least) + " to " +
                     std::to_string(most));
    return value;
  }

  double seconds(const YamlNode& node, const std::string& what, double most) const {
    double value = 0;
    if (!parse(node.text, value) || !(value >= 0 && value <= most))
      fail(node, what + " " + quoted(node.text) + "; expected seconds from 0 to " + plain(most));
    return value;
  }

  double share(const YamlNode& node) const {
    double value = 0;
    if (!parse(node.text, value) || !(value > 0 && value <= 1))
      fail(node, "share " + quoted(node.text) + "; expected a number above 0 and at most 1");
    return value;
  }

  bool truth(const YamlNode& node, const std::string& what) const {
    if (node.text != "true" && node.text != "false")
      fail(node, what + " " + quoted(node.text) + "; expected true or false");
    return node.text == "true";
  }

  std::vector<std::uint16_t> ports(const YamlNode& node) const {
    std::vector<std::uint16_t> result;
    for (const YamlNode& item : items(node, "ports", maxPorts)) {
      const auto port = static_cast<std::uint16_t>(whole(item, "port", 1, 65535));
      if (std::find(result.begin(), result.end(), port) != result.end())
        fail(item, "port " + std::to_string(port) + " a second time; expected each port once");
      result.push_back(port);
    }
    return result;
  }

  // The name of a group or a probe. Orders are named by both with a colon between them.
  const std::string& name(std::size_t line, const std::string& what, const std::string& name) const {
    if (name.empty() || name.size() > 64 || name.find(':') != std::string::npos)
      throw ScenarioError(file_, line,
                          what + " " + quoted(name) + "; expected a name of 1 to 64 characters without \":\"");
    return name;
  }

 private:
  template <class Number>
  static bool parse(const std::string& text, Number& value) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
  }

  const std::string& file_;
};

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// A node's name becomes a host name.
bool isHostName(const std::string& name) {
  return !name.empty() && name.size() <= 63 && isLetterOrDigit(name.front()) && isLetterOrDigit(name.back()) &&
         std::all_of(name.begin(), name.end(), [](char c) { return isLetterOrDigit(c) || c == '-'; });
}

// What the kernel and its tools take without quoting. The loopback is there without a link.
bool isInterfaceName(const std::string& name) {
  return !name.empty() && name.size() <= 15 && name != "lo" && isLetterOrDigit(name.front()) &&
         std::all_of(name.begin(), name.end(),
                     [](char c) { return isLetterOrDigit(c) || c == '-' || c == '_' || c == '.'; });
}

class Reader {
 public:
  explicit Reader(const std::string& file) : file_(file), values_(file) {}

  Scenario read(const YamlNode& root) {
    values_.checkKeys(root, "a scenario", {"name", "topology", "probes", "faults", "duration", "seed", "convergence"});
    const YamlNode& name = values_.need(root, "a scenario", "name");
    scenario_.name = values_.text(name, "name");
    if (scenario_.name.size() > 100)
      values_.fail(name, "name " + quoted(name.text) + "; expected at most 100 characters");
    const YamlNode& duration = values_.need(root, "a scenario", "duration");
    scenario_.duration = values_.seconds(duration, "duration", maxDuration);
    if (scenario_.duration == 0) values_.fail(duration, "duration 0; expected seconds above 0");
    if (const YamlNode* node = Values::find(root, "convergence"))
      scenario_.convergence = values_.seconds(*node, "convergence", 60);
    if (const YamlNode* node = Values::find(root, "seed")) scenario_.seed = values_.whole(*node, "seed", 0, UINT64_MAX);
    readTopology(values_.need(root, "a scenario", "topology"));
    if (const YamlNode* node = Values::find(root, "probes")) readProbes(*node);
    if (const YamlNode* node = Values::find(root, "faults"))
      for (const YamlNode& item : values_.items(*node, "faults", maxFaults)) readFault(item);
    return std::move(scenario_);
  }

 private:
  void readTopology(const YamlNode& topology) {
    values_.checkKeys(topology, "topology", {"nodes", "links"});
    const YamlNode& nodes = values_.need(topology, "topology", "nodes");
    const auto& entries = values_.entries(nodes, "nodes");
    if (entries.empty() || entries.size() > maxNodes)
      values_.fail(nodes, "nodes: expected 1 to " + std::to_string(maxNodes) + " of them");
    for (const YamlNode::Entry& entry : entries) readNode(entry);
    if (const YamlNode* links = Values::find(topology, "links"))
      for (const YamlNode& item : values_.items(*links, "links", maxLinks)) readLink(item);
    for (std::size_t node = 0; node < entries.size(); ++node) readGroups(node, entries[node].value);
  }

  void readNode(const YamlNode::Entry& entry) {
    if (!isHostName(entry.key))
      throw ScenarioError(
          file_, entry.keyLine,
          "node " + quoted(entry.key) + "; expected a host name: 1 to 63 letters, digits and inner \"-\"");
    Node node;
    node.name = entry.key;
    if (entry.value.kind != YamlNode::Kind::none) {
      values_.checkKeys(entry.value, "a node", {"tier", "groups"});
      if (const YamlNode* tier = Values::find(entry.value, "tier"))
        node.tier = static_cast<unsigned>(values_.whole(*tier, "tier", 1, 16));
    }
    nodeByName_.emplace(node.name, scenario_.nodes.size());
    scenario_.nodes.push_back(std::move(node));
  }

  void readLink(const YamlNode& item) {
    values_.checkKeys(item, "a link", {"endpoints"});
    const YamlNode& endpoints = values_.need(item, "a link", "endpoints");
    if (endpoints.kind != YamlNode::Kind::list || endpoints.items.size() != 2)
      values_.fail(endpoints, "endpoints: expected a list of two, each \"NODE:INTERFACE\"");
    Link link;
    for (std::size_t side = 0; side < 2; ++side) {
      const YamlNode& end = endpoints.items[side];
      const auto [node, interface] = endpoint(end);
      if (!isInterfaceName(interface))
        values_.fail(end, "interface " + quoted(interface) +
                              "; expected 1 to 15 letters, digits, \"-\", \"_\" and \".\", and not \"lo\"");
      if (!sideByName_.emplace(std::pair(node, interface), LinkSide{scenario_.links.size(), side}).second)
        values_.fail(end, quoted(end.text) + " is on a link already; expected each interface on one link");
      link.ends[side] = {node, interface};
    }
    if (link.ends[0].node == link.ends[1].node)
      values_.fail(endpoints, "a link from " + quoted(scenario_.nodes[link.ends[0].node].name) +
                                  " to itself; expected two different nodes");
    scenario_.links.push_back(std::move(link));
  }

  // After the links, because a group's interfaces are theirs.
  void readGroups(std::size_t node, const YamlNode& map) {
    const YamlNode* groups = Values::find(map, "groups");
    if (!groups) return;
    if (values_.entries(*groups, "groups").size() > maxGroups)
      values_.fail(*groups, "groups: expected at most " + std::to_string(maxGroups) + " on a node");
    for (const YamlNode::Entry& entry : groups->entries) {
      auto& interfaces = scenario_.nodes[node].groups[values_.name(entry.keyLine, "group", entry.key)];
      for (const YamlNode& item : values_.items(entry.value, "group " + quoted(entry.key), maxLinks)) {
        if (item.text != "lo" && !sideByName_.count({node, item.text}))
          values_.fail(item, "unknown interface " + quoted(item.text) + " of " + quoted(scenario_.nodes[node].name) +
                                 "; expected lo or one that is on a link");
        if (std::find(interfaces.begin(), interfaces.end(), item.text) != interfaces.end())
          values_.fail(item, "interface " + quoted(item.text) + " a second time; expected each interface once");
        interfaces.push_back(item.text);
      }
    }
  }

  void readProbes(const YamlNode& probes) {
    if (values_.entries(probes, "probes").size() > maxProbes)
      values_.fail(probes, "probes: expected at most " + std::to_string(maxProbes));
    for (const YamlNode::Entry& entry : probes.entries) {
      const YamlNode& map = entry.value;
      const std::string what = "probe " + quoted(entry.key);
      Probe probe;
      probe.name = values_.name(entry.keyLine, "probe", entry.key);
      values_.checkKeys(map, what, {"srcGroup", "dstGroup", "rate", "distance", "ports", "enabled"});
      for (const auto& [key, group] :
           {std::pair("srcGroup", &probe.srcGroup), std::pair("dstGroup", &probe.dstGroup)}) {
        const YamlNode& node = values_.need(map, what, key);
        *group = values_.name(node.line, key, node.text);
      }
      probe.rate = static_cast<std::uint16_t>(values_.whole(values_.need(map, what, "rate"), "rate", 1, 65535));
      probe.distance =
          static_cast<std::uint8_t>(values_.whole(values_.need(map, what, "distance"), "distance", 1, 254));
      probe.ports = values_.ports(values_.need(map, what, "ports"));
      if (const YamlNode* enabled = Values::find(map, "enabled")) probe.enabled = values_.truth(*enabled, "enabled");
      warnOfEmptyGroups(map, probe);
      scenario_.probes.push_back(std::move(probe));
    }
  }

  void warnOfEmptyGroups(const YamlNode& at, const Probe& probe) {
    for (const std::string& group : std::set{probe.srcGroup, probe.dstGroup})
      if (std::none_of(scenario_.nodes.begin(), scenario_.nodes.end(),
                       [&](const Node& node) { return node.groups.count(group) != 0; }))
        warn(at, "no node is in group " + quoted(group) + " of probe " + quoted(probe.name));
  }

  void readFault(const YamlNode& item) {
    const std::string kind = values_.text(values_.need(mapOf(item), "a fault", "kind"), "kind");
    const auto* const known = std::find_if(std::begin(faultKinds), std::end(faultKinds),
                                           [&](const auto& entry) { return entry.first == kind; });
    if (known == std::end(faultKinds))
      values_.fail(item, "unknown kind " + quoted(kind) + " of a fault; expected loss, link-down, power-off or freeze");
    Fault fault;
    fault.kind = known->second;
    const std::string what = "a fault of kind " + kind;
    switch (fault.kind) {
      case FaultKind::loss:
        values_.checkKeys(item, what, {"at", "until", "kind", "from", "to", "share", "ports"});
        readLoss(item, what, fault);
        break;
      case FaultKind::linkDown:
        values_.checkKeys(item, what, {"at", "until", "kind", "link"});
        fault.where = linkSide(values_.need(item, what, "link"));
        break;
      case FaultKind::powerOff:
      case FaultKind::freeze:
        values_.checkKeys(item, what, {"at", "until", "kind", "node"});
        fault.node = nodeOf(values_.need(item, what, "node"), values_.need(item, what, "node").text);
        break;
    }
    readTimes(item, what, fault);
    scenario_.faults.push_back(std::move(fault));
  }

  const YamlNode& mapOf(const YamlNode& item) const {
    values_.entries(item, "a fault");
    return item;
  }

  void readLoss(const YamlNode& item, const std::string& what, Fault& fault) {
    const YamlNode& to = values_.need(item, what, "to");
    fault.where = linkSide(values_.need(item, what, "from"));
    if (linkSide(to) != fault.where.peer())
      values_.fail(to, quoted(to.text) + " is not the other end; expected " +
                           quoted(scenario_.endName(fault.where.peer())) + ", to which " +
                           quoted(scenario_.endName(fault.where)) + " is linked");
    if (const YamlNode* share = Values::find(item, "share")) fault.share = values_.share(*share);
    if (const YamlNode* ports = Values::find(item, "ports")) fault.ports = values_.ports(*ports);
  }

  void readTimes(const YamlNode& item, const std::string& what, Fault& fault) {
    const YamlNode& at = values_.need(item, what, "at");
    fault.at = values_.seconds(at, "at", scenario_.duration);
    if (fault.at < settled)
      warn(at, "a fault at " + plain(fault.at) + " s strikes before every stream is known to the centre, which takes " +
                   plain(settled) + " s; what follows from it may differ from run to run");
    if (const YamlNode* until = Values::find(item, "until")) {
      fault.until = values_.seconds(*until, "until", scenario_.duration);
      if (*fault.until <= fault.at)
        values_.fail(*until, "until " + plain(*fault.until) + "; expected a time after its \"at\", " + plain(fault.at));
    }
  }

  std::pair<std::size_t, std::string> endpoint(const YamlNode& node) const {
    const std::size_t colon = node.text.find(':');
    if (node.kind != YamlNode::Kind::scalar || colon == std::string::npos)
      values_.fail(node, "endpoint " + quoted(node.text) + "; expected \"NODE:INTERFACE\"");
    return {nodeOf(node, node.text.substr(0, colon)), node.text.substr(colon + 1)};
  }

  LinkSide linkSide(const YamlNode& node) const {
    const auto [owner, interface] = endpoint(node);
    const auto found = sideByName_.find({owner, interface});
    if (found == sideByName_.end())
      values_.fail(node, "unknown interface " + quoted(interface) + " of " + quoted(scenario_.nodes[owner].name) +
                             "; expected one that is on a link");
    return found->second;
  }

  std::size_t nodeOf(const YamlNode& at, const std::string& name) const {
    const auto found = nodeByName_.find(name);
    if (found == nodeByName_.end())
      values_.fail(at, "unknown node " + quoted(name) + "; expected a name that stands under topology.nodes");
    return found->second;
  }

  void warn(const YamlNode& at, const std::string& what) {
    scenario_.warnings.push_back(file_ + ":" + std::to_string(at.line) + ": " + what);
  }

  const std::string& file_;
  Values values_;
  Scenario scenario_;
  std::map<std::string, std::size_t> nodeByName_;
  std::map<std::pair<std::size_t, std::string>, LinkSide> sideByName_;
};

}  // namespace

Scenario readScenario(std::string_view text, const std::string& file) {
  return Reader(file).read(parseYaml(text, file));
}

Scenario readScenarioFile(const std::string& path) {
  std::string text;
  try {
    text = Platform::readSmallFile(path, maxYamlSize);
  } catch (const Platform::FileError& error) {
    std::string what = error.what();
    if (what.compare(0, path.size() + 2, path + ": ") == 0) what.erase(0, path.size() + 2);  // it comes first anyway
    throw ScenarioError(path, 1, what + "; expected a scenario");
  }
  return readScenario(text, path);
}

std::string_view faultKindName(FaultKind kind) {
  return std::find_if(std::begin(faultKinds), std::end(faultKinds),
                      [&](const auto& entry) { return entry.second == kind; })
      ->first;
}

}  // namespace Lab
