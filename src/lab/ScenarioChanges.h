// The part of a scenario's reader that reads `changes`: what an operator or the platform does during the run.
#pragma once

#include "lab/ScenarioValues.h"

namespace Lab {

// Reads the list into `scenario`, whose topology, probes, faults and duration are there already. Each change is held
// against what is configured at its time, by the changes before it. Throws ScenarioError.
void readChanges(const YamlNode& list, const Values& values, const TopologyNames& names, Scenario& scenario);

}  // namespace Lab
