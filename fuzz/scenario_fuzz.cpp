// Any bytes as a scenario: they are read, or refused with one line that names the file and a line in it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "lab/Configuration.h"
#include "lab/Flows.h"
#include "lab/Routing.h"
#include "lab/Scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const Lab::Scenario scenario =
        Lab::readScenario(std::string_view(reinterpret_cast<const char*>(data), size), "scenario.yaml");
    // What was read is used without further checks; so it must be good for everything that is made of it.
    const Lab::Topology topology(scenario);
    if (scenario.nodes.size() <= 16) Lab::configurationAfter(topology, scenario.changes.size());
    if (scenario.nodes.size() <= 16) Lab::shortestRoutes(topology, std::vector<bool>(scenario.links.size(), true));
    if (scenario.nodes.size() <= 16 && scenario.probes.size() <= 4) Lab::flowsOf(topology);
  } catch (const Lab::ScenarioError& error) {
    const std::string text = error.what();
    if (text.compare(0, 14, "scenario.yaml:") != 0 || text.find_first_of("\r\n") != std::string::npos) std::abort();
  }
  return 0;
}
