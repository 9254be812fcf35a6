// What the operator has configured and the platform shows at one moment of a scenario: its beginning, and what the
// changes until then have made of it. Pure data and computation: the scenario's reader checks changes against it,
// whoever writes configuration makes the records say the same (Operator.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lab/Scenario.h"

namespace Lab {

class Topology;

struct Configuration {
  struct Switch {
    std::map<std::string, std::vector<std::string>> groups;  // group name to its interfaces
    std::map<std::string, std::uint32_t> addresses;          // by interface, host byte order; absent: it has none
    std::string hostname;
    bool enabled = true;  // its own side of the service
    bool operator==(const Switch&) const = default;
  };

  bool enabled = true;       // the whole service
  std::uint32_t clears = 0;  // how often the loss records were to be cleared
  std::map<std::string, Probe> probes;
  std::vector<Switch> switches;  // by node
  bool operator==(const Configuration&) const = default;
};

Configuration initialConfiguration(const Topology& topology);
void applyChange(const Change& change, Configuration& configuration);
// After the first `changes` of the scenario's list.
Configuration configurationAfter(const Topology& topology, std::size_t changes);

}  // namespace Lab
