// Changes are read in the order of their times, against the configuration that those before have left.
#include "lab/ScenarioChanges.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "lab/Configuration.h"
#include "lab/Topology.h"

namespace Lab {

namespace {

constexpr std::pair<std::string_view, ChangeKind> changeKinds[] = {
    {"probe", ChangeKind::probe},       {"group", ChangeKind::group},     {"address", ChangeKind::address},
    {"hostname", ChangeKind::hostname}, {"service", ChangeKind::service}, {"clear", ChangeKind::clear},
    {"restart", ChangeKind::restart},   {"hash", ChangeKind::hash}};
constexpr std::pair<std::string_view, Restarted> restartedKinds[] = {
    {"agent", Restarted::agent}, {"sonar", Restarted::sonar}, {"centre", Restarted::centre}};

template <class Table>
const auto* findName(const Table& table, std::string_view name) {
  const auto* const found =
      std::find_if(std::begin(table), std::end(table), [&](const auto& entry) { return entry.first == name; });
  return found == std::end(table) ? nullptr : found;
}

class ChangeReader {
 public:
  ChangeReader(const Values& values, const TopologyNames& names, Scenario& scenario)
      : values_(values),
        names_(names),
        scenario_(scenario),
        topology_(scenario),
        configuration_(initialConfiguration(topology_)) {
    for (std::size_t node = 0; node < topology_.nodes(); ++node)
      for (const auto& [interface, address] : configuration_.switches[node].addresses)
        addresses_.addressIs(scenario.nodes[node].name, interface, address, addressText(address));
  }

  void read(const YamlNode& list) {
    std::vector<std::pair<double, const YamlNode*>> items;
    for (const YamlNode& item : values_.items(list, "changes", maxChanges)) {
      values_.entries(item, "a change");
      items.emplace_back(values_.seconds(values_.need(item, "a change", "at"), "at", scenario_.duration), &item);
    }
    std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [at, item] : items) {
      Change change = readChange(at, *item);
      applyChange(change, configuration_);
      scenario_.changes.push_back(std::move(change));
    }
  }

 private:
  Change readChange(double at, const YamlNode& item) {
    const YamlNode& kind = values_.need(item, "a change", "kind");
    const auto* const known = findName(changeKinds, values_.text(kind, "kind"));
    if (!known)
      values_.fail(kind, "unknown kind " + inQuotes(kind.text) +
                             " of a change; expected probe, group, address, hostname, service, clear, restart or hash");
    Change change;
    change.kind = known->second;
    change.at = at;
    what_ = "a change of kind " + kind.text;
    switch (change.kind) {
      case ChangeKind::probe:
        readProbe(item, change);
        break;
      case ChangeKind::group:
        readGroup(item, change);
        break;
      case ChangeKind::address:
        readAddress(item, change);
        break;
      case ChangeKind::hostname:
        readHostname(item, change);
        break;
      case ChangeKind::service:
        values_.checkKeys(item, what_, {"at", "kind", "enabled", "node"});
        change.enabled = values_.truth(values_.need(item, what_, "enabled"), "enabled");
        if (const YamlNode* node = Values::find(item, "node")) change.node = names_.node(*node);
        break;
      case ChangeKind::clear:
        values_.checkKeys(item, what_, {"at", "kind"});
        break;
      case ChangeKind::restart:
        readRestart(item, change);
        break;
      case ChangeKind::hash:
        values_.checkKeys(item, what_, {"at", "kind", "node"});
        change.node = names_.node(values_.need(item, what_, "node"));
        break;
    }
    return change;
  }

  // Which one of these keys the change has: it must be one.
  std::pair<std::string_view, const YamlNode*> action(const YamlNode& item,
                                                      const std::vector<std::string_view>& actions) const {
    std::pair<std::string_view, const YamlNode*> found{};
    std::string all;
    for (const std::string_view each : actions) {
      all += (all.empty() ? "" : each == actions.back() ? " or " : ", ") + inQuotes(each);
      const YamlNode* const value = Values::find(item, each);
      if (value && found.second)
        values_.fail(*value,
                     what_ + " with " + inQuotes(found.first) + " and " + inQuotes(each) + "; expected one of them");
      if (value) found = {each, value};
    }
    if (!found.second) values_.fail(item, what_ + " without " + all + "; expected one of them");
    return found;
  }

  void mustBeTrue(const YamlNode& value, const std::string& what) const {
    if (value.text != "true") values_.fail(value, what + " " + inQuotes(value.text) + "; expected true");
  }

  void readProbe(const YamlNode& item, Change& change) {
    values_.checkKeys(item, what_, {"at", "kind", "name", "set", "add", "remove"});
    const YamlNode& name = values_.need(item, what_, "name");
    change.name = values_.name(name.line, "probe", name.text);
    const auto [verb, value] = action(item, {"set", "add", "remove"});
    const auto standing = configuration_.probes.find(change.name);
    const bool stands = standing != configuration_.probes.end();
    if (verb == "add") {
      if (stands)
        values_.fail(name, "probe " + inQuotes(change.name) + " is there; expected one that is not" + " at that time");
      if (configuration_.probes.size() == maxProbes)
        values_.fail(name, "probe " + inQuotes(change.name) + " is one too many; expected at most " +
                               std::to_string(maxProbes) + " at that time");
      change.probe = Probe{};
      change.probe->name = change.name;
      values_.readProbe(*value, "probe " + inQuotes(change.name), Values::Extent::whole, *change.probe);
      return;
    }
    if (!stands)
      values_.fail(name,
                   "unknown probe " + inQuotes(change.name) + "; expected one that is configured" + " at that time");
    if (verb == "remove") return mustBeTrue(*value, "remove");
    change.probe = standing->second;
    values_.readProbe(*value, "set", Values::Extent::part, *change.probe);
  }

  void readGroup(const YamlNode& item, Change& change) {
    values_.checkKeys(item, what_, {"at", "kind", "node", "name", "add", "remove"});
    const YamlNode& node = values_.need(item, what_, "node");
    change.node = names_.node(node);
    const YamlNode& name = values_.need(item, what_, "name");
    change.name = values_.name(name.line, "group", name.text);
    const auto [verb, value] = action(item, {"add", "remove"});
    const auto& groups = configuration_.switches[*change.node].groups;
    const auto standing = groups.find(change.name);
    if (standing != groups.end()) change.interfaces = standing->second;
    if (verb == "add") {
      if (standing == groups.end() && groups.size() == maxGroups)
        values_.fail(name, "group " + inQuotes(change.name) + " is one too many; expected at most " +
                               std::to_string(maxGroups) + " on a node" + " at that time");
      return addInterfaces(*value, change);
    }
    if (standing == groups.end())
      values_.fail(name, "unknown group " + inQuotes(change.name) + " of " + inQuotes(node.text) +
                             "; expected one that it has" + " at that time");
    if (value->kind == YamlNode::Kind::list) return removeInterfaces(*value, change);
    mustBeTrue(*value, "remove");
    change.interfaces.reset();
  }

  void addInterfaces(const YamlNode& list, Change& change) const {
    if (!change.interfaces) change.interfaces.emplace();
    for (const std::string& added : names_.interfaces(list, *change.node, "add")) {
      values_.check(list.line, Zeb::repetitionFinding("interface", inQuotes(added), added, *change.interfaces));
      change.interfaces->push_back(added);
    }
  }

  void removeInterfaces(const YamlNode& list, Change& change) const {
    for (const std::string& removed : names_.interfaces(list, *change.node, "remove"))
      if (std::erase(*change.interfaces, removed) == 0)
        values_.fail(list, "interface " + inQuotes(removed) + " is not in group " + inQuotes(change.name) + " of " +
                               inQuotes(scenario_.nodes[*change.node].name) + "; expected one that is" +
                               " at that time");
  }

  void readAddress(const YamlNode& item, Change& change) {
    values_.checkKeys(item, what_, {"at", "kind", "node", "interface", "to"});
    change.node = names_.node(values_.need(item, what_, "node"));
    change.interface = names_.interface(values_.need(item, what_, "interface"), *change.node);
    const YamlNode& to = values_.need(item, what_, "to");
    const auto& addresses = configuration_.switches[*change.node].addresses;
    const auto standing = addresses.find(change.interface);
    const std::string owner = scenario_.nodes[*change.node].name;
    if (to.text == "none") {
      if (standing == addresses.end())
        values_.fail(to, inQuotes(owner + ":" + change.interface) + " has no address; expected one that it loses" +
                             " at that time");
      return;
    }
    change.address = addressFromText(to.text);
    if (!change.address)
      values_.fail(to, "address " + inQuotes(to.text) +
                           "; expected none or an IPv4 address such as 10.9.9.9, not of the networks 0 and 127 and "
                           "below 224.0.0.0");
    if (standing != addresses.end() && standing->second == *change.address)
      values_.fail(to, inQuotes(owner + ":" + change.interface) + " has " + inQuotes(to.text) +
                           " already; expected another address");
    values_.check(to.line, addresses_.addressIs(owner, change.interface, *change.address, to.text));
  }

  void readHostname(const YamlNode& item, Change& change) const {
    values_.checkKeys(item, what_, {"at", "kind", "node", "to"});
    change.node = names_.node(values_.need(item, what_, "node"));
    const YamlNode& to = values_.need(item, what_, "to");
    if (!isHostName(to.text))
      values_.fail(to, "host name " + inQuotes(to.text) + "; expected 1 to 63 letters, digits and inner \"-\"");
    change.name = to.text;
  }

  void readRestart(const YamlNode& item, Change& change) {
    values_.checkKeys(item, what_, {"at", "kind", "what", "node", "down", "planned"});
    const YamlNode& what = values_.need(item, what_, "what");
    const auto* const known = findName(restartedKinds, what.text);
    if (!known) values_.fail(what, "what " + inQuotes(what.text) + "; expected agent, sonar or centre");
    change.restarted = known->second;
    const YamlNode* const node = Values::find(item, "node");
    if (change.restarted == Restarted::centre) {
      if (node) values_.fail(*node, "a restart of the centre with " + inQuotes("node") + "; expected none");
    } else {
      change.node = names_.node(values_.need(item, what_, "node"));
    }
    const double most = scenario_.duration - change.at;
    change.down = usualDown;
    if (const YamlNode* down = Values::find(item, "down"))
      change.down = values_.seconds(*down, "down", most);
    else if (change.down > most)
      values_.fail(item, what_ + " at " + plain(change.at) + " s lasts " + plain(change.down) +
                             " s; expected its end within the duration, " + plain(scenario_.duration) + " s");
    if (const YamlNode* planned = Values::find(item, "planned")) {
      change.planned = values_.truth(*planned, "planned");
      if (change.planned && change.restarted != Restarted::sonar)
        values_.fail(*planned,
                     "a planned restart of the " + what.text + "; expected one of sonar, which alone is asked");
    }
    mustRun(item, change);
  }

  // What is restarted must be there.
  void mustRun(const YamlNode& item, const Change& change) {
    double& until = downUntil_[{change.restarted, change.node}];
    if (change.at < until)
      values_.fail(item, "a restart at " + plain(change.at) + " s of what is away until " + plain(until) +
                             " s; expected a time at which it is there");
    until = change.at + change.down;
    if (!change.node) return;
    for (const Fault& fault : scenario_.faults) {
      const bool kills = fault.kind == FaultKind::powerOff || fault.kind == FaultKind::freeze;
      if (kills && fault.node == *change.node && fault.at <= change.at && (!fault.until || change.at <= *fault.until))
        values_.fail(item, "a restart at " + plain(change.at) + " s on " + inQuotes(scenario_.nodes[fault.node].name) +
                               ", which a fault takes away at " + plain(fault.at) +
                               " s; expected a time at which it is there");
    }
  }

  const Values& values_;
  const TopologyNames& names_;
  Scenario& scenario_;
  const Topology topology_;
  Configuration configuration_;
  Zeb::AddressUse addresses_;
  std::map<std::pair<Restarted, std::optional<std::size_t>>, double> downUntil_;
  std::string what_;
};

}  // namespace

void readChanges(const YamlNode& list, const Values& values, const TopologyNames& names, Scenario& scenario) {
  ChangeReader(values, names, scenario).read(list);
}

std::string_view changeKindName(ChangeKind kind) {
  return std::find_if(std::begin(changeKinds), std::end(changeKinds),
                      [&](const auto& entry) { return entry.second == kind; })
      ->first;
}

std::string_view restartedName(Restarted restarted) {
  return std::find_if(std::begin(restartedKinds), std::end(restartedKinds),
                      [&](const auto& entry) { return entry.second == restarted; })
      ->first;
}

}  // namespace Lab
