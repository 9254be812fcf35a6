// The text of a scenario as a small tree that remembers lines. The scenario reader walks it; nothing else does.
// It reads a plain subset of YAML on purpose: no anchors, aliases or tags, so that what is read never grows beyond
// what was written, and no key twice in one map, so that no line is overridden by a later one unseen.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "config/ConfigurationCheck.h"

namespace Lab {

// A scenario that cannot be read. `what()` is one line: the file, the line, what is there and what was expected.
class ScenarioError : public std::runtime_error {
 public:
  ScenarioError(const std::string& file, std::size_t line, const std::string& what)
      : std::runtime_error(file + ":" + std::to_string(line) + ": " + what) {}
};

struct YamlNode {
  enum class Kind { none, scalar, list, map };

  struct Entry;

  Kind kind = Kind::none;
  std::size_t line = 1;
  std::string text;             // of a scalar
  std::vector<YamlNode> items;  // of a list
  std::vector<Entry> entries;   // of a map, in the order of the file
};

struct YamlNode::Entry {
  std::string key;
  std::size_t keyLine;
  YamlNode value;
};

constexpr std::size_t maxYamlSize = std::size_t{1024} * 1024;
constexpr std::size_t maxYamlDepth = 16;
constexpr std::size_t maxYamlKeys = 1024;  // of one map

// The one document of `text`; of kind none if it is empty. `file` is only for the errors. Throws ScenarioError, also
// for a text longer than maxYamlSize nested deeper than maxYamlDepth, or
// with more than maxYamlKeys in a map.
YamlNode parseYaml(std::string_view text, const std::string& file);

using Zeb::inQuotes;

}  // namespace Lab
