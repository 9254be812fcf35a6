// What runs at the centre of the lab: the central agent with the embedded state database, the place where its messages
// go, and its part of the run's report.
#pragma once

#include "lab/NodeProcess.h"

namespace Lab {

struct CentreOptions {
  bool systemLog = false;  // what is logged goes to this host's system log as well
};

// The body of the centre's process; see NodeProcess.h. What is logged goes to standard output, with what led to it.
int runCentre(const NodeContext& context, const CentreOptions& options);

}  // namespace Lab
