// What the tests on virtual time share: a fabric of three spines and three leaves, small and yet with paths to choose.
#pragma once

#include <string>

#include "lab/Scenario.h"

namespace Lab {

struct VirtualShape {
  int spines = 3;
  int leaves = 3;
  int ports = 4;
};

// `rest` is put behind it, the duration at least.
inline std::string virtualText(const std::string& rest, const VirtualShape& shape = {}) {
  const auto numbered = [](const char* name, int number) { return name + std::to_string(number); };
  std::string text = "name: virtual\ntopology:\n  nodes:\n";
  for (int spine = 1; spine <= shape.spines; ++spine)
    text += "    " + numbered("spine", spine) + ": {tier: 2, groups: {spines: [lo]}}\n";
  for (int leaf = 1; leaf <= shape.leaves; ++leaf)
    text += "    " + numbered("leaf", leaf) + ": {tier: 1, groups: {leaves: [lo]}}\n";
  text += "  links:\n";
  for (int leaf = 1; leaf <= shape.leaves; ++leaf)
    for (int spine = 1; spine <= shape.spines; ++spine)
      text += "    - endpoints: [\"" + numbered("leaf", leaf) + ":" + numbered("eth", spine) + "\", \"" +
              numbered("spine", spine) + ":" + numbered("eth", leaf) + "\"]\n";
  text += "probes:\n  p1: {srcGroup: leaves, dstGroup: leaves, rate: 10, distance: 3, ports: [";
  for (int port = 0; port < shape.ports; ++port) text += (port ? ", " : "") + std::to_string(20000 + port);
  return text + "]}\n" + rest;
}

inline Scenario virtualScenario(const std::string& rest, const VirtualShape& shape = {}) {
  return readScenario(virtualText(rest, shape), "virtual.yaml");
}

}  // namespace Lab
