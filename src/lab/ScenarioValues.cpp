// Values of a scenario's text. What configuration may hold is not decided here but by its one check.
#include "lab/ScenarioValues.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace Lab {

namespace {

std::string joined(const std::vector<std::string_view>& words) {
  std::string result;
  for (const std::string_view word : words) result += (result.empty() ? "" : ", ") + std::string(word);
  return result;
}

template <class Number>
bool parse(const std::string& text, Number& value) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  return result.ec == std::errc() && result.ptr == end;
}

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

}  // namespace

std::string plain(double number) {
  std::ostringstream out;
  out << number;
  return out.str();
}

bool isHostName(const std::string& name) {
  return !name.empty() && name.size() <= 63 && isLetterOrDigit(name.front()) && isLetterOrDigit(name.back()) &&
         std::all_of(name.begin(), name.end(), [](char c) { return isLetterOrDigit(c) || c == '-'; });
}

bool isInterfaceName(const std::string& name) {
  return !name.empty() && name.size() <= 15 && name != "lo" && isLetterOrDigit(name.front()) &&
         std::all_of(name.begin(), name.end(),
                     [](char c) { return isLetterOrDigit(c) || c == '-' || c == '_' || c == '.'; });
}

void Values::checkKeys(const YamlNode& node, const std::string& what,
                       const std::vector<std::string_view>& known) const {
  for (const YamlNode::Entry& entry : entries(node, what))
    if (std::find(known.begin(), known.end(), entry.key) == known.end())
      fail(entry.keyLine, "unknown key " + inQuotes(entry.key) + " in " + what + "; expected " + joined(known));
}

const std::vector<YamlNode::Entry>& Values::entries(const YamlNode& node, const std::string& what) const {
  if (node.kind != YamlNode::Kind::map) fail(node, what + " is no map; expected keys with values");
  return node.entries;
}

const YamlNode* Values::find(const YamlNode& map, std::string_view key) {
  for (const YamlNode::Entry& entry : map.entries)
    if (entry.key == key) return &entry.value;
  return nullptr;
}

const YamlNode& Values::need(const YamlNode& map, const std::string& what, std::string_view key) const {
  const YamlNode* value = find(map, key);
  if (!value) fail(map, what + " without " + inQuotes(key) + "; expected it here");
  return *value;
}

const std::string& Values::text(const YamlNode& node, const std::string& what) const {
  if (node.kind != YamlNode::Kind::scalar || node.text.empty()) fail(node, what + " is empty; expected a word");
  return node.text;
}

const std::vector<YamlNode>& Values::items(const YamlNode& node, const std::string& what, std::size_t most) const {
  if (node.kind != YamlNode::Kind::list || node.items.empty() || node.items.size() > most)
    fail(node, what + ": expected a list of 1 to " + std::to_string(most));
  return node.items;
}

std::uint64_t Values::whole(const YamlNode& node, const std::string& what, std::uint64_t least,
                            std::uint64_t most) const {
  const Zeb::CheckedNumber number = Zeb::checkedNumber(what, node.text, {least, most});
  check(node.line, number.finding);
  return number.value;
}

double Values::seconds(const YamlNode& node, const std::string& what, double most) const {
  double value = 0;
  if (!parse(node.text, value) || !(value >= 0 && value <= most))
    fail(node, what + " " + inQuotes(node.text) + "; expected seconds from 0 to " + plain(most));
  return value;
}

double Values::share(const YamlNode& node) const {
  double value = 0;
  if (!parse(node.text, value) || !(value > 0 && value <= 1))
    fail(node, "share " + inQuotes(node.text) + "; expected a number above 0 and at most 1");
  return value;
}

bool Values::truth(const YamlNode& node, const std::string& what) const {
  if (node.text != "true" && node.text != "false")
    fail(node, what + " " + inQuotes(node.text) + "; expected true or false");
  return node.text == "true";
}

std::vector<std::uint16_t> Values::ports(const YamlNode& node) const {
  std::vector<std::uint16_t> result;
  for (const YamlNode& item : items(node, "ports", maxPorts)) {
    const auto port = static_cast<std::uint16_t>(whole(item, "port", Zeb::probePorts.least, Zeb::probePorts.most));
    check(item.line, Zeb::repetitionFinding("port", std::to_string(port), port, result));
    result.push_back(port);
  }
  return result;
}

const std::string& Values::name(std::size_t line, const std::string& what, const std::string& name) const {
  check(line, Zeb::nameFinding(what, name));
  return name;
}

void Values::readProbe(const YamlNode& map, const std::string& what, Extent extent, Probe& probe) const {
  checkKeys(map, what, {"srcGroup", "dstGroup", "rate", "distance", "ports", "enabled"});
  if (map.entries.empty()) fail(map, what + " is empty; expected at least one setting");
  const auto setting = [&](std::string_view key) {
    return extent == Extent::whole ? &need(map, what, key) : find(map, key);
  };
  for (const auto& [key, group] : {std::pair("srcGroup", &probe.srcGroup), std::pair("dstGroup", &probe.dstGroup)})
    if (const YamlNode* node = setting(key)) *group = name(node->line, key, node->text);
  if (const YamlNode* rate = setting("rate"))
    probe.rate = static_cast<std::uint16_t>(whole(*rate, "rate", Zeb::probeRates.least, Zeb::probeRates.most));
  if (const YamlNode* distance = setting("distance"))
    probe.distance =
        static_cast<std::uint8_t>(whole(*distance, "distance", Zeb::probeDistances.least, Zeb::probeDistances.most));
  if (const YamlNode* list = setting("ports")) probe.ports = ports(*list);
  if (const YamlNode* enabled = find(map, "enabled")) probe.enabled = truth(*enabled, "enabled");
}

std::size_t TopologyNames::node(const YamlNode& at, const std::string& name) const {
  const auto found = nodeByName_.find(name);
  if (found == nodeByName_.end())
    values_.fail(at, "unknown node " + inQuotes(name) + "; expected a name that stands under topology.nodes");
  return found->second;
}

std::pair<std::size_t, std::string> TopologyNames::endpoint(const YamlNode& at) const {
  const std::size_t colon = at.text.find(':');
  if (at.kind != YamlNode::Kind::scalar || colon == std::string::npos)
    values_.fail(at, "endpoint " + inQuotes(at.text) + "; expected \"NODE:INTERFACE\"");
  return {node(at, at.text.substr(0, colon)), at.text.substr(colon + 1)};
}

LinkSide TopologyNames::side(const YamlNode& at) const {
  const auto [owner, interface] = endpoint(at);
  const auto found = sideByName_.find({owner, interface});
  if (found == sideByName_.end())
    values_.fail(at, "unknown interface " + inQuotes(interface) + " of " + inQuotes(scenario_.nodes[owner].name) +
                         "; expected one that is on a link");
  return found->second;
}

const std::string& TopologyNames::interface(const YamlNode& at, std::size_t node) const {
  if (at.text != "lo" && sideByName_.count({node, at.text}) == 0)
    values_.fail(at, "unknown interface " + inQuotes(at.text) + " of " + inQuotes(scenario_.nodes[node].name) +
                         "; expected lo or one that is on a link");
  return at.text;
}

std::vector<std::string> TopologyNames::interfaces(const YamlNode& at, std::size_t node,
                                                   const std::string& what) const {
  std::vector<std::string> result;
  for (const YamlNode& item : values_.items(at, what, maxLinks)) {
    const std::string& name = interface(item, node);
    values_.check(item.line, Zeb::repetitionFinding("interface", inQuotes(name), name, result));
    result.push_back(name);
  }
  return result;
}

}  // namespace Lab
