// A path that changes for a good reason is no loss, and neither is the end of a stream or a restart; a loss beside them
// is still named. Each case runs with many seeds, through the real agents and probing services.
#include <gtest/gtest.h>

#include "lab/MovesTest.h"

namespace Lab {
namespace {

#if defined(__SANITIZE_ADDRESS__)
// What a sanitizer finds is in the code's paths, and a tenth of the seeds takes them all, at a tenfold price.
constexpr std::uint64_t seeds = 10;
#else
constexpr std::uint64_t seeds = 100;
#endif

class Moves : public testing::TestWithParam<Case> {};

TEST_P(Moves, AreNoLoss) {
  EXPECT_EQ(wrongOf(GetParam(), seeds), "");
}

const Case moves[] = {
    {"ALinkGoesDown", threeSpines,
     [](Draw& run) {
       run.fabric.begin(run.linkDown(run.drawCovered()));
       run.expectNoMessageFor(26);
     }},
    {"ASpineIsPoweredOff", threeSpines,
     [](Draw& run) {
       run.fabric.begin(run.powerOff(run.drawNode("spine", 3)));
       run.expectNoMessageFor(26);
     }},
    {"ALinkComesUp", threeSpines,
     [](Draw& run) {
       Fault fault = run.linkDown(run.drawSide());
       fault.until = run.fabric.now() + 20;
       run.fabric.begin(fault);
       run.expectNoMessageFor(45);
     }},
    {"ALeafSharesItsFlowsOutInAnotherWay", threeSpines,
     [](Draw& run) {
       run.fabric.hashSeedIs(run.drawNode("leaf", 3), run.seed);
       run.expectNoMessageFor(26);
     }},
    {"ALinkGoesDownAndReturns", threeSpines,
     [](Draw& run) {
       Fault fault = run.linkDown(run.drawCovered());
       fault.until = run.fabric.now() + run.draw(0.3, 12);
       run.fabric.begin(fault);
       run.expectNoMessageFor(*fault.until - run.fabric.now() + 25);
     }},
    {"ASpineIsPoweredOffAndReturns", threeSpines,
     [](Draw& run) {
       Fault fault = run.powerOff(run.drawNode("spine", 3));
       fault.until = run.fabric.now() + run.draw(1, 15);
       run.fabric.begin(fault);
       run.expectNoMessageFor(*fault.until - run.fabric.now() + 25);
     }},
    {"BothLinksOfALeafGoDownAndReturn", twoSpines,
     [](Draw& run) {
       const double until = run.fabric.now() + run.draw(1, 15);
       for (const LinkSide side : run.fabric.topology().sides(run.drawNode("leaf", 3))) {
         Fault fault = run.linkDown(side);
         fault.until = until;
         run.fabric.begin(fault);
       }
       run.expectNoMessageFor(until - run.fabric.now() + 25);
     }},
    {"AnAgentIsRestarted", threeSpines,
     [](Draw& run) {
       run.fabric.agentRestart(run.drawNumber(run.fabric.topology().nodes()), run.draw(0.1, 3));
       run.expectNoMessageFor(26);
     }},
    {"SonarIsRestarted", threeSpines,
     [](Draw& run) {
       run.fabric.sonarRestart(run.drawNumber(run.fabric.topology().nodes()), run.draw(0.1, 2));
       run.expectNoMessageFor(26);
     }},
    {"SonarIsStoppedAndStartsAfterNineSeconds", threeSpines,
     [](Draw& run) {
       run.fabric.sonarRestartPlanned(run.drawNumber(run.fabric.topology().nodes()), 9);
       run.expectNoMessageFor(34);
     }},
    {"AProbeIsStopped", threeSpines,
     [](Draw& run) {
       run.fabric.probeEnabledIs("p1", false);
       run.expectNoMessageFor(40);
     }},
    {"AProbeIsStoppedJustAfterALinkWentDown", threeSpines,
     [](Draw& run) {
       run.fabric.begin(run.linkDown(run.drawCovered()));
       run.fabric.runUntil(run.fabric.now() + run.draw(0.05, 1));
       run.fabric.probeEnabledIs("p1", false);
       run.expectNoMessageFor(40);
     }},
    {"AProbeIsStoppedDuringALoss", threeSpines,
     [](Draw& run) {
       const LinkSide side = run.drawCovered();
       run.fabric.begin(run.loss(side));
       run.fabric.runUntil(run.fabric.now() + run.draw(13, 20));
       run.expectNamed(run.pair(side));
       run.expectNothingLeftOnceStopped();
     }},
    {"AProbeIsStoppedAndASendersAgentRestarts", threeSpines,
     [](Draw& run) {
       run.fabric.probeEnabledIs("p1", false);
       run.fabric.runUntil(run.fabric.now() + 0.5);
       run.fabric.agentRestart(run.drawNode("leaf", 3), run.draw(0.1, 2));
       run.expectNoMessageFor(40);
     }},
    {"TheCentreIsRestarted", threeSpines,
     [](Draw& run) {
       run.fabric.centreRestart(run.draw(0.1, 3));
       run.expectNoMessageFor(26);
     }},
    {"StreamsGoOnAcrossRestartsOfCentreAndAgent", threeSpines,
     [](Draw& run) {
       const auto before = run.epochs();
       run.fabric.centreRestart(run.draw(0.1, 3));
       run.fabric.runUntil(run.fabric.now() + run.draw(0, 10));
       run.fabric.agentRestart(run.drawNumber(run.fabric.topology().nodes()), run.draw(0.1, 3));
       run.fabric.runUntil(run.fabric.now() + 33);
       run.expectNoMessage();
       run.expect(!before.empty() && run.epochs() == before, "a stream began again");
     }},
};
INSTANTIATE_TEST_SUITE_P(Cases, Moves, testing::ValuesIn(moves),
                         [](const auto& each) { return std::string(each.param.name); });

class Losses : public testing::TestWithParam<Case> {};

TEST_P(Losses, AreNamedBesideMoves) {
  EXPECT_EQ(wrongOf(GetParam(), seeds), "");
}

// Something moves flows for a good reason, another thing with each seed.
void move(Draw& run) {
  Fault fault = run.seed % 4 == 1 ? run.powerOff(run.drawNode("spine", 3)) : run.linkDown(run.drawCovered());
  switch (run.seed % 4) {
    case 0:
      return run.fabric.hashSeedIs(run.drawNode("leaf", 3), run.seed);
    case 1:
    case 2:
      fault.until = run.fabric.now() + run.draw(1, 10);
      run.fabric.begin(fault);
      return run.fabric.runUntil(*fault.until);
    default:
      return run.fabric.begin(fault);
  }
}

// `after` seconds after a move one of the links that are in use then begins to lose.
LinkSide moveAndLose(Draw& run, double after) {
  move(run);
  run.fabric.runUntil(run.fabric.now() + after);
  const LinkSide side = run.drawCovered();
  run.fabric.begin(run.loss(side));
  run.fabric.runUntil(run.fabric.now() + 20);
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
       run.fabric.runUntil(run.fabric.now() + run.draw(13, 20));
       run.expectNamed(run.pair(side));
       const double restart = run.fabric.now();
       run.fabric.centreRestart(run.draw(0.1, 3));
       run.fabric.runUntil(restart + 25);
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
       run.fabric.runUntil(run.fabric.now() + 25);
       run.expectNamed(run.pair(side));
     }},
};
INSTANTIATE_TEST_SUITE_P(Cases, Losses, testing::ValuesIn(losses),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace Lab
