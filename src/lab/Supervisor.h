// The first process of a run's sandbox: it builds the fabric, starts the centre and the switches' processes, keeps the
// scenario's time, and gathers what the processes report. It judges nothing that they find and restarts nothing that
// dies unasked: such a death ends the run and is its error.
#pragma once

#include <string>

#include "lab/Lab.h"
#include "lab/Sandbox.h"

namespace Lab {

struct SupervisorPlace {
  std::string directory;  // of the run
  int lock;               // of that directory
  Sandbox::Inside inside;
};

// Runs the scenario and writes {"error": TEXT, "report": OBJECT} to the sandbox's result. Returns the exit status.
int supervise(const Scenario& scenario, const RunOptions& options, const SupervisorPlace& place);

}  // namespace Lab
