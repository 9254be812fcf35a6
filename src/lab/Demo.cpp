// The demonstration's scenario, and what it says of the outcome.
#include "lab/Demo.h"

#include <cstdio>

#include "lab/CentreBody.h"
#include "lab/Command.h"
#include "lab/Lab.h"
#include "lab/SwitchBody.h"
#include "sonar/Probe.h"

namespace Lab {
namespace {

constexpr double faultAt = 10;
// The line comes 10.4 to 12.1 seconds after the drop.
constexpr double duration = faultAt + 12.5;

constexpr const char* fabric = R"(name: demo
topology:
  nodes:
    spine1: {tier: 2, groups: {spines: [lo]}}
    spine2: {tier: 2, groups: {spines: [lo]}}
    leaf1: {tier: 1, groups: {leaves: [lo]}}
    leaf2: {tier: 1, groups: {leaves: [lo]}}
    leaf3: {tier: 1, groups: {leaves: [lo]}}
    leaf4: {tier: 1, groups: {leaves: [lo]}}
  links:
    - endpoints: ["leaf1:eth1", "spine1:eth1"]
    - endpoints: ["leaf1:eth2", "spine2:eth1"]
    - endpoints: ["leaf2:eth1", "spine1:eth2"]
    - endpoints: ["leaf2:eth2", "spine2:eth2"]
    - endpoints: ["leaf3:eth1", "spine1:eth3"]
    - endpoints: ["leaf3:eth2", "spine2:eth3"]
    - endpoints: ["leaf4:eth1", "spine1:eth4"]
    - endpoints: ["leaf4:eth2", "spine2:eth4"]
probes:
  p1: {srcGroup: leaves, dstGroup: leaves, rate: 10, distance: 3,
       ports: [20000, 20001, 20002, 20003, 20004, 20005], enabled: true}
)";

// The side of the link from the first named node to the second that sends.
LinkSide sideOf(const Scenario& scenario, const std::string& link) {
  for (std::size_t i = 0; i < scenario.links.size(); ++i) {
    for (std::size_t side = 0; side < 2; ++side) {
      const LinkSide candidate{i, side};
      std::string name = scenario.nodes[scenario.end(candidate).node].name;
      name.append(":").append(scenario.nodes[scenario.end(candidate.peer()).node].name);
      if (name == link) return candidate;
    }
  }
  throw LabError(link + " is no directed link of the demo; expected one between a leaf (leaf1 to leaf4) and a spine " +
                 "(spine1, spine2), such as leaf3:spine2 or spine2:leaf3");
}

bool isWanted(const nlohmann::json& message, const Scenario& scenario, LinkSide dropped) {
  return message["devices"] == nlohmann::json{scenario.nodes[scenario.end(dropped).node].name,
                                              scenario.nodes[scenario.end(dropped.peer()).node].name};
}

// What an operator sees of the probe: its figures, and between how many pairs of switches its streams run.
void printStatistics(const nlohmann::json& report) {
  for (const auto& [name, status] : report["probeStatus"].items()) {
    std::size_t pairs = 0;
    for (const auto& destinations : report["pairStreams"]) pairs += destinations.size();
    std::printf("%s: %u streams alive between %zu pairs of switches; %u probes sent to their last hops, %u received.\n",
                name.c_str(), status.value("activeStreamCount", 0U), pairs, status.value("txCount", 0U),
                status.value("rxCount", 0U));
  }
}

}  // namespace

bool runDemo(const DemoOptions& options) {
  Scenario scenario = readScenario(std::string(fabric) + "duration: " + std::to_string(duration) + "\n", "demo");
  const LinkSide dropped = sideOf(scenario, options.link);
  if (options.fault) {
    Fault fault;
    fault.at = faultAt;
    fault.where = dropped;
    scenario.faults.push_back(fault);
  }
  RunOptions run;
  run.bodies.centre = [](const NodeContext& context) { return runCentre(context, {}); };
  run.bodies.agent = [tapClosed = options.tapClosed](const NodeContext& context) {
    return runSwitch(context, {.tapClosed = tapClosed});
  };
  run.seed = options.seed;
  run.probePort = Sonar::probePort;
  run.tell = [](double time, const std::string& line) {
    std::printf("%6.1f s  %s\n", time, line.c_str());
    std::fflush(stdout);
  };
  std::printf("A fabric of two spines and four leaves, a switch's agent and probing service on each, one centre.\n");
  std::fflush(stdout);
  const RunOutcome outcome = runScenario(scenario, run);
  if (!outcome.completed) throw LabError(outcome.error);

  const nlohmann::json& log = outcome.report["log"];
  std::printf("%zu streams were probed; the worst lateness of a timer was %.3f s.\n",
              outcome.report.value("streams", std::size_t{0}), outcome.report["lateness"].value("timers", 0.0));
  printStatistics(outcome.report);
  if (!options.fault) {
    std::printf(log.empty() ? "The fabric is healthy.\n" : "The fabric is healthy, and yet something was said.\n");
    return log.empty();
  }
  bool found = false;
  for (const auto& message : log) {
    const double after = message["time"].get<double>() - outcome.report["faults"][0]["began"].get<double>();
    std::printf("%.1f s after the drop: %s\n", after, message["text"].get<std::string>().c_str());
    found = found || isWanted(message, scenario, dropped);
  }
  if (!found) std::printf("The line did not come.\n");
  return found && log.size() == 1;
}

}  // namespace Lab
