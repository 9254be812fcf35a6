// What the tests of moves, losses and restarts share: cases, each run with many seeds on a small fabric, and what may
// be asked of the outcome.
#pragma once

#include <algorithm>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/Seed.h"
#include "lab/VirtualFabric.h"
#include "lab/VirtualTest.h"

namespace Lab {

inline constexpr std::uint64_t chance = 0x6d6f766573;  // keeps the draws below apart from the fabric's own

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
      if (fabric.node(node).sonarRuns())
        rows += fabric.node(node).ingressRows().size() + fabric.node(node).egressRows().size();
    expect(rows == 0, std::to_string(rows) + " rows left");
    expect(fabric.streams() == 0, std::to_string(fabric.streams()) + " streams left");
    expect(fabric.standingPairs().empty(), "a pair left");
    const auto records = fabric.status().lossStatus()->lossRecords();
    expect(records == 0, std::to_string(records) + " loss records left");
  }
  // No message by then, nor when the probe is stopped after that, and nothing left.
  void expectNoMessageFor(double seconds) {
    fabric.runUntil(fabric.now() + seconds);
    expectNoMessage();
    expectNothingLeftOnceStopped();
  }
  // The same once the probe is stopped, with no message for that.
  void expectNothingLeftOnceStopped() {
    const std::size_t messages = fabric.log().size();
    if (fabric.configuration().probes.at("p1").enabled) {
      fabric.probeEnabledIs("p1", false);
      fabric.runUntil(fabric.now() + 40);
    }
    expect(fabric.log().size() == messages, "said when the probe was stopped: " + fabric.logText());
    expectNothingLeft();
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
inline void PrintTo(const Case& each, std::ostream* out) {
  *out << each.name;
}

inline constexpr VirtualShape threeSpines{.spines = 3, .leaves = 3, .ports = 2};
inline constexpr VirtualShape twoSpines{.spines = 2, .leaves = 3, .ports = 2};

// What came out wrong, with the seeds; empty if nothing did.
inline std::string wrongOf(const Case& each, std::uint64_t seeds) {
  std::string failing;
  std::string first;
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    Draw run(seed, each.shape);
    run.fabric.runUntil(run.draw(9, 14));
    each.run(run);
    if (run.wrong.empty()) continue;
    failing += " " + std::to_string(seed);
    if (first.empty()) first = run.wrong;
  }
  return failing.empty() ? "" : "seeds" + failing + ", the first of them: " + first;
}

}  // namespace Lab
