// Runs a scenario from its beginning to its end: builds the fabric, starts the processes, injects the faults, collects
// the reports, takes everything down. This is what the programs and the tests call; the work is the supervisor's.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "lab/NodeProcess.h"
#include "lab/Scenario.h"

namespace Lab {

struct RunOptions {
  Bodies bodies;
  std::uint64_t seed = 0;
  std::uint16_t probePort = 0;  // the UDP port that probes are sent to
  double spread = 5;            // seconds over which the switches' processes are started
  std::string base;             // where the run's directory is made; empty: see RunDirectory
  // Told, in the supervisor's process, what happens: seconds since probing started and a line of text. May be empty.
  std::function<void(double time, const std::string& line)> tell;
};

struct RunOutcome {
  bool completed = false;  // the scenario's time has passed and every process did what it was asked
  std::string error;       // else, in one line, what happened
  nlohmann::json report;   // what there is of it, also if the run was not completed
};

// Returns when nothing of the run is left but the outcome. SIGINT and SIGTERM end the run in order. This process must
// be single-threaded. Throws LabError if the run could not begin.
RunOutcome runScenario(const Scenario& scenario, const RunOptions& options);

}  // namespace Lab
