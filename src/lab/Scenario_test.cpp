// What a scenario's text becomes, and each way in which it can be refused. The refusals stand in the corpus of the
// fuzz target, one file for each, whose first line says what is expected: "readable", "warning LINE: TEXT", or the
// error behind the file's name.
#include "lab/Scenario.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "lab/LabTest.h"

namespace Lab {
namespace {

const std::filesystem::path root = std::filesystem::path(__FILE__).parent_path() / "../..";

std::string contentOf(const std::filesystem::path& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

std::string whatComesOf(const std::string& text) {
  try {
    const Scenario scenario = readScenario(text, "FILE");
    return scenario.warnings.empty() ? "readable" : "warning " + scenario.warnings.front().substr(5);
  } catch (const ScenarioError& error) {
    const std::string what = error.what();
    return what.compare(0, 5, "FILE:") == 0 ? what.substr(5) : "an error that does not begin with the file: " + what;
  }
}

TEST(Scenario, EveryInputOfTheCorpusIsReadOrRefusedAsItSays) {
  const std::string mark = "# expected: ";
  std::size_t refused = 0;
  for (const auto& entry : std::filesystem::directory_iterator(root / "fuzz/corpus/scenario")) {
    const std::string text = contentOf(entry.path());
    ASSERT_EQ(text.compare(0, mark.size(), mark), 0) << entry.path();
    const std::string expected = text.substr(mark.size(), text.find('\n') - mark.size());
    EXPECT_EQ(whatComesOf(text), expected) << entry.path();
    if (expected[0] >= '0' && expected[0] <= '9') ++refused;
  }
  EXPECT_GE(refused, 100u);
}

TEST(Scenario, EveryExampleIsReadableAndNamedAsItsFile) {
  std::size_t examples = 0;
  for (const auto& entry : std::filesystem::directory_iterator(root / "examples")) {
    if (entry.path().extension() != ".yaml") continue;
    ++examples;
    const Scenario scenario = readScenarioFile(entry.path());
    EXPECT_EQ(scenario.name, entry.path().stem());
    EXPECT_EQ(scenario.warnings, std::vector<std::string>()) << entry.path();
  }
  EXPECT_GE(examples, 11u);
}

TEST(Scenario, KeepsWhatTheTextSays) {
  const Scenario scenario = fabricScenario(R"(
faults:
  - {at: 20, until: 50, kind: loss, from: "leaf1:eth1", to: "spine1:eth1", share: 0.25, ports: [20001, 20003]}
  - {at: 21.5, kind: link-down, link: "spine2:eth3"}
  - {at: 22, kind: power-off, node: spine2}
  - {at: 23, kind: freeze, node: leaf4}
duration: 60
seed: 18446744073709551615
convergence: 0.5
)");
  EXPECT_EQ(scenario.name, "test");
  EXPECT_EQ(scenario.duration, 60);
  EXPECT_EQ(scenario.convergence, 0.5);
  EXPECT_EQ(scenario.seed, UINT64_MAX);
  ASSERT_EQ(scenario.nodes.size(), 6u);
  EXPECT_EQ(scenario.nodes[0].name, "spine1");
  EXPECT_EQ(scenario.nodes[0].tier, 2u);
  EXPECT_EQ(scenario.nodes[2].groups.at("leaves"), std::vector<std::string>{"lo"});
  ASSERT_EQ(scenario.links.size(), 8u);
  EXPECT_EQ(scenario.endName({3, 0}), "leaf2:eth2");
  EXPECT_EQ(scenario.endName({3, 1}), "spine2:eth2");
  ASSERT_EQ(scenario.probes.size(), 1u);
  EXPECT_EQ(scenario.probes[0].srcGroup, "leaves");
  EXPECT_EQ(scenario.probes[0].rate, 10);
  EXPECT_EQ(scenario.probes[0].distance, 3);
  EXPECT_EQ(scenario.probes[0].ports.back(), 20005);
  EXPECT_TRUE(scenario.probes[0].enabled);
  ASSERT_EQ(scenario.faults.size(), 4u);
  EXPECT_EQ(scenario.endName(scenario.faults[0].where), "leaf1:eth1");
  EXPECT_EQ(scenario.faults[0].until, 50);
  EXPECT_EQ(scenario.faults[0].share, 0.25);
  EXPECT_EQ(scenario.faults[0].ports, (std::vector<std::uint16_t>{20001, 20003}));
  EXPECT_EQ(scenario.endName(scenario.faults[1].where), "spine2:eth3");
  EXPECT_EQ(scenario.faults[1].at, 21.5);
  EXPECT_EQ(scenario.faults[1].until, std::nullopt);
  EXPECT_EQ(scenario.faults[2].node, 1u);
  EXPECT_EQ(scenario.faults[3].kind, FaultKind::freeze);
}

TEST(Scenario, HasItsDefaults) {
  const Scenario scenario = readScenario("{name: one, duration: 1, topology: {nodes: {a: }}}", "FILE");
  EXPECT_EQ(scenario.convergence, 0.2);
  EXPECT_EQ(scenario.seed, std::nullopt);
  EXPECT_EQ(scenario.nodes[0].tier, std::nullopt);
  EXPECT_TRUE(scenario.links.empty() && scenario.probes.empty() && scenario.faults.empty());
}

TEST(Scenario, RefusesWhatIsTooLarge) {
  EXPECT_EQ(whatComesOf("name: a\n" + std::string(maxYamlSize, '#')), "1: too large; expected at most 1048576 bytes");
}

TEST(Scenario, NamesAFileThatCannotBeRead) {
  try {
    readScenarioFile("no-such-scenario.yaml");
    FAIL() << "no error";
  } catch (const ScenarioError& error) {
    EXPECT_STREQ(error.what(), "no-such-scenario.yaml:1: cannot open: No such file or directory; expected a scenario");
  }
}

}  // namespace
}  // namespace Lab
