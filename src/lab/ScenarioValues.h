// How a scenario's readers take values out of the tree of its text: each call gives a value that is good, or throws
// the error that names the file, the line, what is there and what was expected.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/ConfigurationCheck.h"
#include "lab/Scenario.h"
#include "lab/Yaml.h"

namespace Lab {

// A number as one writes it: no more digits than it needs.
std::string plain(double number);

// A node's name and a host name: letters, digits and inner "-", at most 63.
bool isHostName(const std::string& name);
// What the kernel and its tools take without quoting. The loopback is there without a link.
bool isInterfaceName(const std::string& name);

// `what` names the value in the error.
class Values {
 public:
  // `file` outlives this.
  explicit Values(const std::string& file) : file_(file) {}

  [[noreturn]] void fail(const YamlNode& at, const std::string& what) const { fail(at.line, what); }
  [[noreturn]] void fail(std::size_t line, const std::string& what) const { throw ScenarioError(file_, line, what); }
  void check(std::size_t line, const std::optional<Zeb::ConfigurationFinding>& finding) const {
    if (finding) fail(line, finding->text());
  }

  // The entries of a map whose keys must all be among `known`.
  void checkKeys(const YamlNode& node, const std::string& what, const std::vector<std::string_view>& known) const;
  const std::vector<YamlNode::Entry>& entries(const YamlNode& node, const std::string& what) const;
  // Null if the map has no such key.
  static const YamlNode* find(const YamlNode& map, std::string_view key);
  const YamlNode& need(const YamlNode& map, const std::string& what, std::string_view key) const;

  const std::string& text(const YamlNode& node, const std::string& what) const;
  const std::vector<YamlNode>& items(const YamlNode& node, const std::string& what, std::size_t most) const;
  std::uint64_t whole(const YamlNode& node, const std::string& what, std::uint64_t least, std::uint64_t most) const;
  double seconds(const YamlNode& node, const std::string& what, double most) const;
  double share(const YamlNode& node) const;
  bool truth(const YamlNode& node, const std::string& what) const;
  std::vector<std::uint16_t> ports(const YamlNode& node) const;
  // The name of a group or a probe.
  const std::string& name(std::size_t line, const std::string& what, const std::string& name) const;

  // What a probe's map says. One that is not `whole` changes only the settings that it names, at least one.
  enum class Extent { whole, part };
  void readProbe(const YamlNode& map, const std::string& what, Extent extent, Probe& probe) const;

  std::string place(std::size_t line) const { return file_ + ":" + std::to_string(line) + ": "; }

 private:
  const std::string& file_;
};

// Names of a scenario's topology, as its readers look them up.
class TopologyNames {
 public:
  // Both outlive this.
  TopologyNames(const Values& values, const Scenario& scenario) : values_(values), scenario_(scenario) {}

  void nodeIs(const std::string& name, std::size_t node) { nodeByName_.emplace(name, node); }
  // Whether it is the first of that name.
  bool sideIs(std::size_t node, const std::string& interface, LinkSide side) {
    return sideByName_.emplace(std::pair(node, interface), side).second;
  }

  std::size_t node(const YamlNode& at) const { return node(at, at.text); }
  std::size_t node(const YamlNode& at, const std::string& name) const;
  // "leaf1:eth1": the node, and what stands behind the colon.
  std::pair<std::size_t, std::string> endpoint(const YamlNode& at) const;
  LinkSide side(const YamlNode& at) const;
  // The name of an interface that this node has: the loopback or one that is on a link.
  const std::string& interface(const YamlNode& at, std::size_t node) const;
  // A list of them, each once.
  std::vector<std::string> interfaces(const YamlNode& at, std::size_t node, const std::string& what) const;

 private:
  const Values& values_;
  const Scenario& scenario_;
  std::map<std::string, std::size_t> nodeByName_;
  std::map<std::pair<std::size_t, std::string>, LinkSide> sideByName_;
};

}  // namespace Lab
