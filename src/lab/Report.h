// The run's report, put together from what the supervisor knows and what each process wrote.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "lab/Flows.h"

namespace Lab {

// When a fault really came and went, in seconds since probing started; negative: it did not.
struct FaultTimes {
  double began = -1;
  double ended = -1;
};

// The entry of `faults` for one fault: as in the scenario, and with `began` and `ended`.
nlohmann::json faultReport(const Scenario& scenario, const Fault& fault, const FaultTimes& times);

// What is configured, and which addresses there are, when probing starts: {"probes": {"p1": {...}}, "switches":
// {"leaf1":
// {"groups": {"leaves": ["lo"]}, "addresses": {"lo": "10.0.0.1"}, "hostname": "leaf1"}}}. With `changes` it is all that
// a reader needs to say what must have come of it.
nlohmann::json configurationReport(const Topology& topology);

// The entry of `changes` for one change: as in the scenario, and with `done`, when it was carried out, in seconds since
// probing started; negative: it was not.
nlohmann::json changeReport(const Scenario& scenario, const Change& change, double done);
// The same in words, for the terminal.
std::string changeText(const Scenario& scenario, const Change& change);

// [["leaf1", "spine1", 12], ...]
nlohmann::json coverageReport(const Scenario& scenario, const Coverage& coverage);

// Puts a process's part into the report: objects are joined key by key, lists one behind the other; of two numbers
// the larger stays, since where two processes report one number it is a worst case. Anything else replaces.
void join(nlohmann::json& report, const nlohmann::json& part);

}  // namespace Lab
