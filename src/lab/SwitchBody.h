// What runs on a switch of the lab: its agent and its probing service, in one process inside the switch's namespaces.
#pragma once

#include "lab/NodeProcess.h"

namespace Lab {

struct SwitchOptions {
  bool tapClosed = false;  // Sonar sees no probe: for the proof that nothing is said then
};

// The body of a switch's process; see NodeProcess.h.
int runSwitch(const NodeContext& context, const SwitchOptions& options);

}  // namespace Lab
