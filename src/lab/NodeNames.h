// What a switch is called in a report: its name in the scenario.
#pragma once

#include <map>
#include <string>

#include "lab/Topology.h"
#include "model/SystemId.h"

namespace Lab {

class NodeNames {
 public:
  explicit NodeNames(const Topology& topology) {
    for (std::size_t node = 0; node < topology.nodes(); ++node)
      names_[ethernetText(topology.systemId(node))] = topology.scenario().nodes[node].name;
  }
  // "" for no switch; the identity itself for one that the scenario does not have.
  std::string operator()(const Fabric::SystemId& id) const {
    if (id.isEmpty()) return "";
    const auto found = names_.find(id.stringValue());
    return found == names_.end() ? id.stringValue() : found->second;
  }

 private:
  std::map<std::string, std::string> names_;
};

}  // namespace Lab
