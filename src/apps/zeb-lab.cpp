// zeb-lab: runs a scenario on a fabric on this machine, or only reads it.
// Exit status: 0 if the run completed, 2 for a scenario that cannot be read, 1 otherwise.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <optional>
#include <random>
#include <string>

#include "lab/CentreBody.h"
#include "lab/Command.h"
#include "lab/Demo.h"
#include "lab/Flows.h"
#include "lab/Lab.h"
#include "lab/Scenario.h"
#include "lab/SwitchBody.h"
#include "lab/Topology.h"
#include "sonar/Probe.h"

namespace {

struct Arguments {
  std::string scenario;
  std::string report;
  std::string fabric = "kernel";
  std::optional<std::uint64_t> seed;
  bool systemLog = false;
};

Lab::Scenario read(const std::string& path) {
  Lab::Scenario scenario = Lab::readScenarioFile(path);
  for (const std::string& warning : scenario.warnings) std::fprintf(stderr, "%s\n", warning.c_str());
  return scenario;
}

int check(const Arguments& arguments) {
  const Lab::Scenario scenario = read(arguments.scenario);
  const Lab::Topology topology(scenario);
  std::printf("%s: %zu nodes, %zu links, %zu probes with %zu streams, %zu faults, %g s\n", scenario.name.c_str(),
              scenario.nodes.size(), scenario.links.size(), scenario.probes.size(), Lab::flowsOf(topology).size(),
              scenario.faults.size(), scenario.duration);
  return 0;
}

int run(const Arguments& arguments) {
  const Lab::Scenario scenario = read(arguments.scenario);
  // Before the run, because a report that cannot be written is better known now than at its end.
  std::ofstream report;
  if (!arguments.report.empty()) {
    report.open(arguments.report);
    if (!report) throw Lab::LabError("cannot write " + arguments.report);
  }
  Lab::RunOptions options;
  options.seed = arguments.seed ? *arguments.seed : scenario.seed ? *scenario.seed : std::random_device()();
  options.bodies.centre = [systemLog = arguments.systemLog](const Lab::NodeContext& context) {
    return Lab::runCentre(context, {.systemLog = systemLog});
  };
  options.bodies.agent = [](const Lab::NodeContext& context) { return Lab::runSwitch(context, {}); };
  options.probePort = Sonar::probePort;
  options.tell = [](double time, const std::string& line) {
    std::fprintf(stderr, "%7.2f  %s\n", time, line.c_str());
    std::fflush(stderr);
  };
  const Lab::RunOutcome outcome = Lab::runScenario(scenario, options);
  if (!arguments.report.empty()) {
    report << outcome.report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    if (!report.flush()) throw Lab::LabError("cannot write " + arguments.report);
  }
  if (!outcome.completed) throw Lab::LabError(outcome.error);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("A fabric of switches on one machine: real agents, real probes, faults to order.", "zeb-lab");
  app.require_subcommand(1);
  Arguments arguments;
  CLI::App* runCommand = app.add_subcommand("run", "run a scenario and report what was found");
  CLI::App* checkCommand = app.add_subcommand("check", "read a scenario and say what is in it");
  for (CLI::App* command : {runCommand, checkCommand})
    command->add_option("SCENARIO", arguments.scenario, "file that says what to build and what to break")->required();
  runCommand->add_option("--report", arguments.report, "file for the report, JSON");
  runCommand->add_flag("--system-log", arguments.systemLog, "write what is logged to this host's system log too");
  runCommand->add_option("--fabric", arguments.fabric, "what the fabric is made of")
      ->check(CLI::IsMember({"kernel"}))
      ->capture_default_str();
  runCommand->add_option("--seed", arguments.seed,
                         "of all that is left to chance; else the scenario's, else a new one");
  Lab::DemoOptions demo;
  bool noFault = false;
  CLI::App* demoCommand =
      app.add_subcommand("demo", "a small fabric, a silent loss, and the line that names its place");
  demoCommand->add_flag("--no-fault", noFault, "drop nothing: the fabric is healthy");
  demoCommand->add_option("--link", demo.link, "the direction to drop, as FROM:TO")->capture_default_str();
  demoCommand->add_flag("--tap-closed", demo.tapClosed, "let the probing service see no probe");
  demoCommand->add_option("--seed", demo.seed, "of all that is left to chance")->capture_default_str();
  try {
    app.parse(argc, argv);
    demo.fault = !noFault;
    if (demoCommand->parsed()) return Lab::runDemo(demo) ? 0 : 1;
    return checkCommand->parsed() ? check(arguments) : run(arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 1;
  } catch (const Lab::ScenarioError& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zeb-lab: %s\n", error.what());
    return 1;
  }
}
