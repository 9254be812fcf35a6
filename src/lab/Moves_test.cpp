// A path that changes for a good reason is no loss, and neither is the end of a stream or a restart; a loss beside them
// is still named. Each case runs with a hundred seeds, through the real agents and probing services.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "lab/Seed.h"
#include "lab/VirtualFabric.h"
#include "lab/VirtualTest.h"

namespace Lab {
namespace {

constexpr std::uint64_t seeds = 100;
constexpr std::uint64_t chance = 0x6d6f766573;  // keeps the draws below apart from the fabric's own

// One run of one case: the fabric, what the case draws for itself, and what came out wrong.
struct Draw {
  std::uint64_t seed;
  VirtualFabric fabric;
  std::uint64_t drawn = 0;
  std::string wrong;  // empty: as it should be

  Draw(std::uint64_t seedOfRun, const VirtualShape& shape)
      : seed(seedOfRun), fabric(virtualScenario("duration: 60\n", shape), {.seed = seedOfRun}) {}

  double draw(double from, double to) {
    const auto bits = derivedSeed(seed ^ chance, ++drawn) >> 11;
    return from + (to - from) * static_cast<double>(bits) * 0x1p-53;
  }
  std::size_t drawNumber(std::size_t below) { return static_cast<std::size_t>(draw(0, static_cast<double>(below))); }
  std::size_t drawNode(const std::string& kind, std::size_t count) {
    return fabric.nodeNamed(kind + std::to_string(1 + drawNumber(count)));
  }
  LinkSide drawSide() {
    const std::size_t number = drawNumber(2 * fabric.topology().links());
    return {number / 2, number % 2};
  }
  // One that carries streams.
  LinkSide drawCovered() {
    for (;;)
      if (const LinkSide side = drawSide(); fabric.flowsOver(side) > 0) return side;
  }
  static Fault fault(FaultKind kind, LinkSide side, std::size_t node = 0) {
    Fault result;
    result.kind = kind;
    result.where = side;
    result.node = node;
    return result;
  }
  static Fault linkDown(LinkSide side) { return fault(FaultKind::linkDown, side); }
  static Fault loss(LinkSide side) { return fault(FaultKind::loss, side); }
  static Fault powerOff(std::size_t node) { return fault(FaultKind::powerOff, {}, node); }
  VirtualFabric::Names pair(LinkSide side) const {
    const auto name = [&](LinkSide of) { return fabric.scenario().nodes[fabric.topology().node(of)].name; };
    return {name(side), name(side.peer())};
  }

  void expect(bool holds, const std::string& what) {
    if (!holds) wrong += what + "; ";
  }
  void expectNoMessage() {
    expect(fabric.log().empty(), "said " + fabric.logText());
    expect(fabric.failures().empty(), "an agent died");
  }
  // No message but one that names this pair.
  void expectNamed(const VirtualFabric::Names& right) {
    expect(fabric.namedPairs() == std::vector{right},
           "expected " + right.first + ", " + right.second + " alone, said " + fabric.logText());
    expect(fabric.failures().empty(), "an agent died");
  }
  // All streams have ended: no trace of them is left.
  void expectNothingLeft() {
    std::size_t rows = 0;
    for (std::size_t node = 0; node < fabric.topology().nodes(); ++node)
      rows += fabric.node(node).ingressRows().size() + fabric.node(node).egressRows().size();
    expect(rows == 0, std::to_string(rows) + " rows left");
    expect(fabric.standingPairs().empty(), "a pair left");
    const auto records = fabric.status().lossStatus()->lossRecords();
    expect(records == 0, std::to_string(records) + " loss records left");
  }
  std::vector<std::pair<Sonar::IngressStream, U64>> epochs() {
    std::vector<std::pair<Sonar::IngressStream, U64>> result;
    for (std::size_t node = 0; node < fabric.topology().nodes(); ++node)
      for (const auto& row : fabric.node(node).ingressRows()) result.emplace_back(row.key, row.epoch.value);
    std::sort(result.begin(), result.end(), [](const auto& a, const auto& b) {
      return std::pair(a.first.stringValue(), a.second) < std::pair(b.first.stringValue(), b.second);
    });
    return result;
  }
};

struct Case {
  const char* name;
  VirtualShape shape;
  std::function<void(Draw&)> run;
};
void PrintTo(const Case& each, std::ostream* out) {
  *out << each.name;
}

constexpr VirtualShape threeSpines{.spines = 3, .leaves = 3, .ports = 2};
constexpr VirtualShape twoSpines{.spines = 2, .leaves = 3, .ports = 2};

// What came out wrong, with the seeds; empty if nothing did.
std::string wrongOf(const Case& each) {
  std::string failing;
  std::string first;
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    Draw run(seed, each.shape);
    run.fabric.runUntil(run.draw(12, 20));
    each.run(run);
    if (run.wrong.empty()) continue;
    failing += " " + std::to_string(seed);
    if (first.empty()) first = run.wrong;
  }
  return failing.empty() ? "" : "seeds" + failing + ", the first of them: " + first;
}

class Moves : public testing::TestWithParam<Case> {};

TEST_P(Moves, AreNoLoss) {
  EXPECT_EQ(wrongOf(GetParam()), "");
}

const Case moves[] = {
    {"ALinkGoesDown", threeSpines,
     [](Draw& run) {
       run.fabric.begin(run.linkDown(run.drawCovered()));
       run.fabric.runUntil(60);
       run.expectNoMessage();
     }},
    {"ASpineIsPoweredOff", threeSpines,
     [](Draw& run) {
       run.fabric.begin(run.powerOff(run.drawNode("spine", 3)));
       run.fabric.runUntil(60);
       run.expectNoMessage();
     }},
    {"ALinkComesUp", threeSpines,
     [](Draw& run) {
       Fault fault = run.linkDown(run.drawSide());
       fault.until = run.fabric.now() + 20;
       run.fabric.begin(fault);
       run.fabric.runUntil(75);
       run.expectNoMessage();
     }},
    {"ALeafSharesItsFlowsOutInAnotherWay", threeSpines,
     [](Draw& run) {
       run.fabric.hashSeedIs(run.drawNode("leaf", 3), run.seed);
       run.fabric.runUntil(60);
       run.expectNoMessage();
     }},
    {"ALinkGoesDownAndReturns", threeSpines,
     [](Draw& run) {
       Fault fault = run.linkDown(run.drawCovered());
       fault.until = run.fabric.now() + run.draw(0.3, 12);
       run.fabric.begin(fault);
       run.fabric.runUntil(70);
       run.expectNoMessage();
     }},
    {"ASpineIsPoweredOffAndReturns", threeSpines,
     [](Draw& run) {
       Fault fault = run.powerOff(run.drawNode("spine", 3));
       fault.until = run.fabric.now() + run.draw(1, 15);
       run.fabric.begin(fault);
       run.fabric.runUntil(70);
       run.expectNoMessage();
     }},
    {"BothLinksOfALeafGoDownAndReturn", twoSpines,
     [](Draw& run) {
       const double until = run.fabric.now() + run.draw(1, 15);
       for (const LinkSide side : run.fabric.topology().sides(run.drawNode("leaf", 3))) {
         Fault fault = run.linkDown(side);
         fault.until = until;
         run.fabric.begin(fault);
       }
       run.fabric.runUntil(70);
       run.expectNoMessage();
     }},
    {"AnAgentIsRestarted", threeSpines,
     [](Draw& run) {
       run.fabric.agentRestart(run.drawNumber(run.fabric.topology().nodes()), run.draw(0.1, 3));
       run.fabric.runUntil(60);
       run.expectNoMessage();
     }},
    {"SonarIsRestarted", threeSpines,
     [](Draw& run) {
       run.fabric.sonarRestart(run.drawNumber(run.fabric.topology().nodes()), run.draw(0.1, 2));
       run.fabric.runUntil(60);
       run.expectNoMessage();
     }},
    {"SonarIsStoppedAndStartsAfterNineSeconds", threeSpines,
     [](Draw& run) {
       run.fabric.sonarRestartPlanned(run.drawNumber(run.fabric.topology().nodes()), 9);
       run.fabric.runUntil(60);
       run.expectNoMessage();
     }},
    {"AProbeIsStopped", threeSpines,
     [](Draw& run) {
       run.fabric.probeEnabledIs("p1", false);
       run.fabric.runUntil(60);
       run.expectNoMessage();
       run.expectNothingLeft();
     }},
    {"AProbeIsStoppedJustAfterALinkWentDown", threeSpines,
     [](Draw& run) {
       run.fabric.begin(run.linkDown(run.drawCovered()));
       run.fabric.runUntil(run.fabric.now() + run.draw(0.05, 1));
       run.fabric.probeEnabledIs("p1", false);
       run.fabric.runUntil(60);
       run.expectNoMessage();
       run.expectNothingLeft();
     }},
    {"AProbeIsStoppedDuringALoss", threeSpines,
     [](Draw& run) {
       const LinkSide side = run.drawCovered();
       run.fabric.begin(run.loss(side));
       run.fabric.runUntil(run.fabric.now() + run.draw(13, 20));
       run.expectNamed(run.pair(side));
       run.fabric.probeEnabledIs("p1", false);
       run.fabric.runUntil(75);
       run.expectNamed(run.pair(side));
       run.expectNothingLeft();
     }},
    {"AProbeIsStoppedAndASendersAgentRestarts", threeSpines,
     [](Draw& run) {
       run.fabric.probeEnabledIs("p1", false);
       run.fabric.runUntil(run.fabric.now() + 0.5);
       run.fabric.agentRestart(run.drawNode("leaf", 3), run.draw(0.1, 2));
       run.fabric.runUntil(60);
       run.expectNoMessage();
       run.expectNothingLeft();
     }},
    {"TheCentreIsRestarted", threeSpines,
     [](Draw& run) {
       run.fabric.centreRestart(run.draw(0.1, 3));
       run.fabric.runUntil(60);
       run.expectNoMessage();
     }},
    {"StreamsGoOnAcrossRestartsOfCentreAndAgent", threeSpines,
     [](Draw& run) {
       const auto before = run.epochs();
       run.fabric.centreRestart(run.draw(0.1, 3));
       run.fabric.runUntil(run.fabric.now() + run.draw(0, 10));
       run.fabric.agentRestart(run.drawNumber(run.fabric.topology().nodes()), run.draw(0.1, 3));
       run.fabric.runUntil(60);
       run.expectNoMessage();
       run.expect(!before.empty() && run.epochs() == before, "a stream began again");
     }},
};
INSTANTIATE_TEST_SUITE_P(Cases, Moves, testing::ValuesIn(moves),
                         [](const auto& each) { return std::string(each.param.name); });

class Losses : public testing::TestWithParam<Case> {};

TEST_P(Losses, AreNamedBesideMoves) {
  EXPECT_EQ(wrongOf(GetParam()), "");
}

// Flows of one leaf move, and `after` seconds later one of the links that they use begins to lose.
LinkSide moveAndLose(Draw& run, double after) {
  run.fabric.hashSeedIs(run.drawNode("leaf", 3), run.seed);
  run.fabric.runUntil(run.fabric.now() + after);
  const LinkSide side = run.drawCovered();
  run.fabric.begin(run.loss(side));
  run.fabric.runUntil(run.fabric.now() + 30);
  return side;
}

const Case losses[] = {
    {"TenSecondsAfterAMove", threeSpines, [](Draw& run) { run.expectNamed(run.pair(moveAndLose(run, 10))); }},
    {"SoonAfterAMove", threeSpines,
     [](Draw& run) {
       const auto right = run.pair(moveAndLose(run, run.draw(0, 10)));
       const auto named = run.fabric.namedPairs();
       run.expect(std::count(named.begin(), named.end(), right) == 1 && named.size() <= 2,
                  "expected " + right.first + ", " + right.second + ", said " + run.fabric.logText());
     }},
    {"ThatStandWhileTheCentreRestarts", threeSpines,
     [](Draw& run) {
       const LinkSide side = run.drawCovered();
       run.fabric.begin(run.loss(side));
       run.fabric.runUntil(run.fabric.now() + run.draw(13, 25));
       run.expectNamed(run.pair(side));
       const double restart = run.fabric.now();
       run.fabric.centreRestart(run.draw(0.1, 3));
       run.fabric.runUntil(restart + 30);
       const auto named = run.fabric.namedPairs();
       run.expect(
           named == std::vector{run.pair(side), run.pair(side)},
           "expected " + run.pair(side).first + ", " + run.pair(side).second + " twice, said " + run.fabric.logText());
       run.expect(run.fabric.log().back().time > restart, "not named after the restart");
     }},
    {"ThatBeginWithinTheSecondBeforeTheCentreRestarts", threeSpines,
     [](Draw& run) {
       const LinkSide side = run.drawCovered();
       run.fabric.begin(run.loss(side));
       run.fabric.runUntil(run.fabric.now() + run.draw(0, 1));
       run.fabric.centreRestart(run.draw(0.1, 3));
       run.fabric.runUntil(run.fabric.now() + 30);
       run.expectNamed(run.pair(side));
     }},
};
INSTANTIATE_TEST_SUITE_P(Cases, Losses, testing::ValuesIn(losses),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace Lab
