// What switches tell each other on the network may be lost there, and others may send what looks like it: neither makes
// a message of a move, or keeps a loss from being named.
#include <gtest/gtest.h>

#include "lab/MovesTest.h"

namespace Lab {
namespace {

constexpr std::uint64_t seeds = 20;

// One of ten packets by which switches tell each other of streams is lost, wherever it was sent.
void loseNotices(Draw& run, std::size_t& lost) {
  run.fabric.network().lossIs([&](const VirtualNetwork::Sending& sent) {
    const bool loses = !sent.isProbe() && run.draw(0, 1) < 0.1;
    lost += loses ? 1u : 0u;
    return loses;
  });
}

class NoticesAreLost : public testing::TestWithParam<Case> {};

TEST_P(NoticesAreLost, AndArriveAllTheSame) {
  EXPECT_EQ(wrongOf(GetParam(), seeds), "");
}

// Carries it out while notices are lost, and stops the probe in the end.
std::function<void(Draw&)> losing(const std::function<void(Draw&)>& move) {
  return [move](Draw& run) {
    std::size_t lost = 0;
    loseNotices(run, lost);
    move(run);
    run.fabric.runUntil(70);
    run.expectNoMessage();
    run.expectNothingLeftOnceStopped();
    run.expect(lost > 0, "no notice was lost");
    run.fabric.network().lossIs({});
  };
}

const Case lossy[] = {
    {"WhenALinkGoesDown", threeSpines, losing([](Draw& run) { run.fabric.begin(run.linkDown(run.drawCovered())); })},
    {"WhenALinkGoesDownAndReturns", threeSpines, losing([](Draw& run) {
       Fault fault = run.linkDown(run.drawCovered());
       fault.until = run.fabric.now() + run.draw(1, 15);
       run.fabric.begin(fault);
     })},
    {"WhenALeafSharesItsFlowsOutInAnotherWay", threeSpines,
     losing([](Draw& run) { run.fabric.hashSeedIs(run.drawNode("leaf", 3), run.seed); })},
    {"WhenASpineIsPoweredOffAndReturns", threeSpines, losing([](Draw& run) {
       Fault fault = run.powerOff(run.drawNode("spine", 3));
       fault.until = run.fabric.now() + run.draw(1, 15);
       run.fabric.begin(fault);
     })},
    {"WhenAProbeIsStoppedJustAfterALinkWentDown", threeSpines, losing([](Draw& run) {
       run.fabric.begin(run.linkDown(run.drawCovered()));
       run.fabric.runUntil(run.fabric.now() + run.draw(0.05, 1));
       run.fabric.probeEnabledIs("p1", false);
     })},
};
INSTANTIATE_TEST_SUITE_P(Cases, NoticesAreLost, testing::ValuesIn(lossy),
                         [](const auto& each) { return std::string(each.param.name); });

class NoticesThatAreFalse : public testing::TestWithParam<Case> {};

TEST_P(NoticesThatAreFalse, KeepNoLossFromBeingNamed) {
  EXPECT_EQ(wrongOf(GetParam(), seeds), "");
}

// A loss begins, and `tell` is called again and again while it is being found.
void loseWhile(Draw& run, const std::function<void()>& tell) {
  const LinkSide side = run.drawCovered();
  run.fabric.begin(run.loss(side));
  for (int round = 0; round < 12; ++round) {
    run.fabric.runUntil(run.fabric.now() + run.draw(0.05, 0.3));
    tell();
  }
  run.fabric.runUntil(run.fabric.now() + 30);
  run.expectNamed(run.pair(side));
}

// To each switch about each of its rows, as from the stream's source.
template <class Numbered>
void tellAll(Draw& run, const Sonar::Keyring& keys, const Numbered& numbered) {
  const std::size_t leaf = run.fabric.nodeNamed("leaf1");
  for (std::size_t node = 0; node < run.fabric.topology().nodes(); ++node)
    for (const auto& row : run.fabric.node(node).ingressRows()) {
      const Sonar::Flow flow{row.key.srcIp, Netkit::IpAddr(run.fabric.topology().loopback(node)), Sonar::noticePort,
                             Sonar::probePort};
      for (const auto kind : {Sonar::PacketKind::end, Sonar::PacketKind::freeze}) {
        Sonar::Notice notice;
        notice.kind = kind;
        notice.ttl = row.key.ttl;
        notice.stream = {row.key.srcIp, row.key.dstIp, row.key.streamPort, Sonar::probePort};
        notice.number = numbered(row);
        notice.serial = row.epoch.value + 1000000;
        if (notice.number.sequence == 0) continue;
        run.fabric.send({node == leaf ? leaf + 1 : leaf, flow, 64, Sonar::encodeNotice(notice, flow, keys)});
      }
    }
}

const Case falseNotices[] = {
    {"OfAnotherKey", threeSpines,
     [](Draw& run) {
       Sonar::Keyring forged;
       forged.keyIs(run.fabric.keys().signingId(), {run.seed, 2});
       loseWhile(run, [&] {
         tellAll(run, forged, [](const auto& row) { return Sonar::ProbeNumber{row.epoch.value + 1, 1000}; });
       });
       std::uint64_t refused = 0;
       for (std::size_t node = 0; node < run.fabric.topology().nodes(); ++node)
         refused += run.fabric.node(node).service().packets(Sonar::Rejection::badTag);
       run.expect(refused > 100, "hardly anything was forged");
     }},
    // By somebody who has the key, and says what is over.
    {"ThatAreStale", threeSpines,
     [](Draw& run) {
       const bool earlierEpoch = run.seed % 2 == 0;
       loseWhile(run, [&] {
         tellAll(run, run.fabric.keys(), [&](const auto& row) {
           return earlierEpoch ? Sonar::ProbeNumber{row.epoch.value - 1, 1000000}
                               : Sonar::ProbeNumber{row.epoch.value, row.currentSequenceNumber - 1};
         });
       });
       std::uint64_t stale = 0;
       for (std::size_t node = 0; node < run.fabric.topology().nodes(); ++node)
         stale += run.fabric.node(node).service().receiver().ignored().staleNotice;
       run.expect(stale > 100, "hardly anything was stale");
     }},
    // All that was ever said of moves and ends, by somebody who has listened.
    {"ThatAreReplayed", threeSpines,
     [](Draw& run) {
       std::vector<VirtualNetwork::Sending> heard;
       run.fabric.network().lossIs([&](const VirtualNetwork::Sending& sent) {
         if (!sent.isProbe()) heard.push_back(sent);
         return false;
       });
       for (std::uint64_t again = 0; again < 3; ++again) {
         run.fabric.hashSeedIs(run.drawNode("leaf", 3), run.seed + 1000 * again);
         run.fabric.runUntil(run.fabric.now() + 3);
       }
       run.fabric.probeEnabledIs("p1", false);
       run.fabric.runUntil(run.fabric.now() + 1);
       run.fabric.probeEnabledIs("p1", true);
       run.fabric.runUntil(run.fabric.now() + 25);
       run.fabric.network().lossIs({});
       run.expectNoMessage();
       run.expect(heard.size() > 100, "little was heard");
       loseWhile(run, [&] {
         for (const auto& each : heard) run.fabric.send(each);
       });
     }},
};
INSTANTIATE_TEST_SUITE_P(Cases, NoticesThatAreFalse, testing::ValuesIn(falseNotices),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace Lab
