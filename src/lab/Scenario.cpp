// From the tree of a scenario's text to the scenario. Every value is looked at here, once; what comes out needs no
// further checks. The first error ends the reading.
#include "lab/Scenario.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "lab/ScenarioChanges.h"
#include "lab/ScenarioValues.h"
#include "platform/Files.h"

namespace Lab {

namespace {

constexpr std::pair<std::string_view, FaultKind> faultKinds[] = {{"loss", FaultKind::loss},
                                                                 {"link-down", FaultKind::linkDown},
                                                                 {"power-off", FaultKind::powerOff},
                                                                 {"freeze", FaultKind::freeze}};

class Reader {
 public:
  explicit Reader(const std::string& file) : values_(file), names_(values_, scenario_) {}

  Scenario read(const YamlNode& root) {
    values_.checkKeys(root, "a scenario",
                      {"name", "topology", "probes", "faults", "changes", "duration", "seed", "convergence"});
    const YamlNode& name = values_.need(root, "a scenario", "name");
    scenario_.name = values_.text(name, "name");
    if (scenario_.name.size() > 100)
      values_.fail(name, "name " + inQuotes(name.text) + "; expected at most 100 characters");
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
    if (const YamlNode* node = Values::find(root, "changes")) readChanges(*node, values_, names_, scenario_);
    if (const YamlNode* node = Values::find(root, "probes")) warnOfEmptyGroups(*node);
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
      values_.fail(entry.keyLine,
                   "node " + inQuotes(entry.key) + "; expected a host name: 1 to 63 letters, digits and inner \"-\"");
    Node node;
    node.name = entry.key;
    if (entry.value.kind != YamlNode::Kind::none) {
      values_.checkKeys(entry.value, "a node", {"tier", "groups"});
      if (const YamlNode* tier = Values::find(entry.value, "tier"))
        node.tier = static_cast<unsigned>(values_.whole(*tier, "tier", 1, 16));
    }
    names_.nodeIs(node.name, scenario_.nodes.size());
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
      const auto [node, interface] = names_.endpoint(end);
      if (!isInterfaceName(interface))
        values_.fail(end, "interface " + inQuotes(interface) +
                              "; expected 1 to 15 letters, digits, \"-\", \"_\" and \".\", and not \"lo\"");
      if (!names_.sideIs(node, interface, {scenario_.links.size(), side}))
        values_.fail(end, inQuotes(end.text) + " is on a link already; expected each interface on one link");
      link.ends[side] = {node, interface};
    }
    if (link.ends[0].node == link.ends[1].node)
      values_.fail(endpoints, "a link from " + inQuotes(scenario_.nodes[link.ends[0].node].name) +
                                  " to itself; expected two different nodes");
    scenario_.links.push_back(std::move(link));
  }

  // After the links, because a group's interfaces are theirs.
  void readGroups(std::size_t node, const YamlNode& map) {
    const YamlNode* groups = Values::find(map, "groups");
    if (!groups) return;
    if (values_.entries(*groups, "groups").size() > maxGroups)
      values_.fail(*groups, "groups: expected at most " + std::to_string(maxGroups) + " on a node");
    for (const YamlNode::Entry& entry : groups->entries)
      scenario_.nodes[node].groups[values_.name(entry.keyLine, "group", entry.key)] =
          names_.interfaces(entry.value, node, "group " + inQuotes(entry.key));
  }

  void readProbes(const YamlNode& probes) {
    if (values_.entries(probes, "probes").size() > maxProbes)
      values_.fail(probes, "probes: expected at most " + std::to_string(maxProbes));
    for (const YamlNode::Entry& entry : probes.entries) {
      Probe probe;
      probe.name = values_.name(entry.keyLine, "probe", entry.key);
      values_.readProbe(entry.value, "probe " + inQuotes(entry.key), Values::Extent::whole, probe);
      scenario_.probes.push_back(std::move(probe));
    }
  }

  // Groups that no switch is in at any time.
  void warnOfEmptyGroups(const YamlNode& probes) {
    std::set<std::string> filled;
    for (const Node& node : scenario_.nodes)
      for (const auto& [group, interfaces] : node.groups) filled.insert(group);
    for (const Change& change : scenario_.changes)
      if (change.kind == ChangeKind::group) filled.insert(change.name);
    for (std::size_t index = 0; index < scenario_.probes.size(); ++index) {
      const Probe& probe = scenario_.probes[index];
      for (const std::string& group : std::set{probe.srcGroup, probe.dstGroup})
        if (filled.count(group) == 0)
          warn(probes.entries[index].value,
               "no node is in group " + inQuotes(group) + " of probe " + inQuotes(probe.name));
    }
  }

  void readFault(const YamlNode& item) {
    const std::string kind = values_.text(values_.need(mapOf(item), "a fault", "kind"), "kind");
    const auto* const known = std::find_if(std::begin(faultKinds), std::end(faultKinds),
                                           [&](const auto& entry) { return entry.first == kind; });
    if (known == std::end(faultKinds))
      values_.fail(item,
                   "unknown kind " + inQuotes(kind) + " of a fault; expected loss, link-down, power-off or freeze");
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
        fault.where = names_.side(values_.need(item, what, "link"));
        break;
      case FaultKind::powerOff:
      case FaultKind::freeze:
        values_.checkKeys(item, what, {"at", "until", "kind", "node"});
        fault.node = names_.node(values_.need(item, what, "node"));
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
    fault.where = names_.side(values_.need(item, what, "from"));
    if (names_.side(to) != fault.where.peer())
      values_.fail(to, inQuotes(to.text) + " is not the other end; expected " +
                           inQuotes(scenario_.endName(fault.where.peer())) + ", to which " +
                           inQuotes(scenario_.endName(fault.where)) + " is linked");
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

  void warn(const YamlNode& at, const std::string& what) {
    scenario_.warnings.push_back(values_.place(at.line) + what);
  }

  Values values_;
  Scenario scenario_;
  TopologyNames names_;
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
