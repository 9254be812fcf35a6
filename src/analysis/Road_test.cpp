// The whole road at the centre, from counters that move in the stream table to the message in the operator's log: two
// spines and four leaves, one flow from every leaf to every other through each spine, on virtual time.
#include <map>
#include <set>

#include "analysis/AnalysisTest.h"
#include "analysis/ZebEventCollectorSm.h"
#include "analysis/ZebEventsAnalyzerSm.h"
#include "analysis/ZebLossAnalyzerSm.h"

namespace Zeb {
namespace {

constexpr U8 spine1 = 11;
constexpr U8 spine2 = 12;
constexpr U8 leaves = 4;  // numbered from 1

// One flow: TTL 1 ends at the spine, TTLs 2 and 3 at the leaf that it is sent to.
struct Flow {
  U8 from;
  U8 spine;
  U8 to;
  ProbeStreamRecord* record;
  std::map<U8, U64> missed;  // probes lost on the way since the TTL was last received, by TTL
};

using Link = std::pair<U8, U8>;  // directed
using Messages = std::vector<Logged>;

struct Road : AnalysisTest {
  std::vector<Flow> flows;
  std::set<Link> silent;  // links that drop every probe
  Rix::Ptr<ZebEventCollectorSm> eventCollector;
  Rix::Ptr<ZebLossAnalyzerSm> lossAnalyzer;
  Rix::Ptr<ZebEventsAnalyzerSm> eventsAnalyzer;

  Road() {
    for (U8 leaf = 1; leaf <= leaves; ++leaf) client(leaf, ("leaf" + std::to_string(leaf)).c_str());
    client(spine1, "spine1");
    client(spine2, "spine2");
    enable();
    for (U8 from = 1; from <= leaves; ++from) {
      for (U8 to = 1; to <= leaves; ++to) {
        if (from == to) continue;
        for (U8 spine : {spine1, spine2}) addFlow(from, spine, to);
      }
    }
  }
  void addFlow(U8 from, U8 spine, U8 to) {
    ProbeStreamId const id = streamId(from, to, spine);
    ProbeStreamRecord& record = stream(id, from, to);
    for (U8 ttl = 1; ttl <= 3; ++ttl) {
      ProbeStreamEgressRecord* egress = record.egressRecordIs(ttl, id);
      egress->egressSwitchIdIs(systemId(from));
      egress->egressIntfIs(Netkit::IntfId("uplink" + std::to_string(spine)));
    }
    ingress(record, 1, spine);
    ingress(record, 2, to);
    ingress(record, 3, to);
    flows.push_back({from, spine, to, &record, {}});
  }
  // The machines as the root machine makes and deletes them.
  void enable() {
    eventCollector = zebEventCollectorSmFactory(root->zebStreamTable(), root->eventTable(), status);
    lossAnalyzer = zebLossAnalyzerSmFactory(root, root->eventTable(), status);
    if (!eventsAnalyzer) eventsAnalyzer = zebEventsAnalyzerSmFactory(root, root->zebStreamEventsDir());
  }
  void disable() {
    eventCollector = nullptr;
    lossAnalyzer = nullptr;
  }

  bool arrives(Flow const& flow, U8 ttl) const {
    if (silent.contains({flow.from, flow.spine})) return false;
    return ttl == 1 || !silent.contains({flow.spine, flow.to});
  }
  // Sends one probe of each TTL of each flow. What a switch receives again after a silence it counts, with what it
  // missed as lost, and no longer calls dormant.
  void sendProbes() {
    for (Flow& flow : flows) {
      for (U8 ttl = 1; ttl <= 3; ++ttl) {
        if (!arrives(flow, ttl)) {
          ++flow.missed[ttl];
          continue;
        }
        ProbeStreamSwitchIngressRecord& host = ingress(*flow.record, ttl, ttl == 1 ? flow.spine : flow.to);
        U64 const missed = std::exchange(flow.missed[ttl], 0);
        host.ingressStats()->probesReceivedIs(host.ingressStats()->probesReceived() + 1);
        host.ingressStats()->probesLostIs(host.ingressStats()->probesLost() + missed);
        host.dormantIs(false);
      }
    }
  }
  // What has missed a probe is dormant.
  void noteDormancy() {
    for (Flow& flow : flows) {
      for (U8 ttl = 1; ttl <= 3; ++ttl) {
        if (flow.missed[ttl] != 0) ingress(*flow.record, ttl, ttl == 1 ? flow.spine : flow.to).dormantIs(true);
      }
    }
  }
  // Sends probes twice a second until then, starting in half a second; a miss is seen as dormancy at once.
  void probeUntil(double until) {
    double const start = time.now();
    for (int sent = 1; start + 0.5 * sent <= until; ++sent) {
      at(start + 0.5 * sent, [this] {
        sendProbes();
        noteDormancy();
      });
    }
  }
  // Everything has been received and analysed, and nothing waits: the next event begins a batch.
  void settle() {
    at(101, [this] { sendProbes(); });
    runTo(105);
  }
  std::set<DevicePair> pairs() {
    std::set<DevicePair> found;
    for (auto const& record : lossStatus().devicePairLossRecordIterator()) found.insert(record->devicePair());
    return found;
  }
};

TEST_F(Road, ALinkFromALeafToASpineIsNamedElevenSecondsAfterItsFlowsFellSilent) {
  settle();
  at(110, [this] {
    silent.insert({1, spine1});
    sendProbes();
    noteDormancy();
  });
  runTo(110.999);
  EXPECT_EQ(lossStatus().lossRecords(), 0u);
  runTo(111);
  EXPECT_EQ(lossStatus().lossRecords(), 3u);
  ASSERT_EQ(pairs(), (std::set<DevicePair>{{systemId(1), systemId(spine1)}}));
  EXPECT_EQ(lossStatus().devicePairLossRecord({systemId(1), systemId(spine1)})->streamLossRecords(), 3u);
  runTo(300);
  EXPECT_EQ(logged, (Messages{{121, "Zeb detected probe loss between devices leaf1 and spine1."}}));
}

TEST_F(Road, ALinkFromASpineToALeafIsNamedByTheSpineThatStillAnswers) {
  settle();
  at(110, [this] {
    silent.insert({spine1, 4});
    sendProbes();
    noteDormancy();
  });
  runTo(300);
  EXPECT_EQ(pairs(), (std::set<DevicePair>{{systemId(spine1), systemId(4)}}));
  EXPECT_EQ(logged, (Messages{{121, "Zeb detected probe loss between devices spine1 and leaf4."}}));
  EXPECT_EQ(lossRecord(streamId(1, 4, spine1)).lossRecordType(), LossRecordType::lossRecordDestDormant);
}

TEST_F(Road, UnderTrafficALossIsNamedAtMostElevenSecondsAfterItsDormancyAndOnce) {
  probeUntil(110);
  silent.insert({1, spine1});
  probeUntil(400);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(logged[0].text, "Zeb detected probe loss between devices leaf1 and spine1.");
  EXPECT_GE(logged[0].time, 120.5);
  EXPECT_LE(logged[0].time, 121.5);
}

TEST_F(Road, ALossThatGoesAwayWithinTenSecondsLogsNothing) {
  probeUntil(110);
  silent.insert({1, spine1});
  probeUntil(116);
  EXPECT_EQ(pairs().size(), 1u);
  silent.clear();
  probeUntil(200);
  EXPECT_EQ(logged, Messages{});
  EXPECT_EQ(lossStatus().lossRecords(), 0u);
  EXPECT_EQ(pairs().size(), 0u);
  EXPECT_EQ(lossStatus().lossEventStreamPaths(), 0u);
}

TEST_F(Road, AHealthyFabricHasNothingToReport) {
  probeUntil(200);
  EXPECT_EQ(lossStatus().lossRecords(), 0u);
  EXPECT_EQ(logged, Messages{});
}

TEST_F(Road, TwoLinksOneAfterTheOtherAreTwoMessages) {
  probeUntil(110);
  silent.insert({1, spine1});
  probeUntil(130);
  silent.insert({spine2, 3});
  probeUntil(200);
  ASSERT_EQ(logged.size(), 2u);
  EXPECT_EQ(logged[0].text, "Zeb detected probe loss between devices leaf1 and spine1.");
  EXPECT_EQ(logged[1].text, "Zeb detected probe loss between devices spine2 and leaf3.");
}

TEST_F(Road, ASpineThatFallsSilentIsNamedWithEachLeafAsTheLastOneKnownToAnswer) {
  probeUntil(110);
  for (U8 leaf = 1; leaf <= leaves; ++leaf) silent.insert({spine1, leaf});
  probeUntil(200);
  std::set<std::string> texts;
  for (auto const& message : logged) texts.insert(message.text);
  EXPECT_EQ(logged.size(), 4u);
  EXPECT_EQ(texts, (std::set<std::string>{"Zeb detected probe loss between devices spine1 and leaf1.",
                                          "Zeb detected probe loss between devices spine1 and leaf2.",
                                          "Zeb detected probe loss between devices spine1 and leaf3.",
                                          "Zeb detected probe loss between devices spine1 and leaf4."}));
}

TEST_F(Road, TheSameFaultReturningAfterTheSilenceOfItsMessageIsNamedAgain) {
  probeUntil(110);
  silent.insert({1, spine1});
  probeUntil(130);
  silent.clear();
  probeUntil(150);
  silent.insert({1, spine1});
  probeUntil(170);
  EXPECT_EQ(logged.size(), 1u);
  silent.clear();
  probeUntil(220);
  silent.insert({1, spine1});
  probeUntil(240);
  EXPECT_EQ(logged.size(), 2u);
}

TEST_F(Road, TheFailingStreamsPathIsShown) {
  settle();
  at(110, [this] {
    silent.insert({spine1, 4});
    sendProbes();
    noteDormancy();
  });
  runTo(111);
  LossEventStreamPath const* path = lossStatus().lossEventStreamPath(streamId(1, 4, spine1));
  ASSERT_NE(path, nullptr);
  EXPECT_EQ(path->deviceByHopDistance(0).hostname, "leaf1");
  EXPECT_EQ(path->deviceByHopDistance(0).intf, Netkit::IntfId("uplink11"));
  EXPECT_EQ(path->deviceByHopDistance(1).hostname, "spine1");
  EXPECT_EQ(path->deviceByHopDistance(3).hostname, "leaf4");
}

TEST_F(Road, ALossThatStandsThroughADisableIsNamedAgainTenSecondsAfterTheEnable) {
  settle();
  at(110, [this] {
    silent.insert({1, spine1});
    sendProbes();
    noteDormancy();
  });
  at(130, [this] { disable(); });
  EXPECT_EQ(root->eventTable()->events(), 0u);
  EXPECT_EQ(pairs().size(), 0u);
  EXPECT_EQ(lossStatus().lossRecords(), 3u);
  at(140, [this] { enable(); });
  runTo(300);
  EXPECT_EQ(logged, (Messages{{121, "Zeb detected probe loss between devices leaf1 and spine1."},
                              {150, "Zeb detected probe loss between devices leaf1 and spine1."}}));
}

TEST_F(Road, WhatStandsWhenTheServiceIsEnabledIsABaseline) {
  disable();
  silent.insert({1, spine1});
  at(101, [this] {
    sendProbes();
    noteDormancy();
  });
  at(102, [this] { enable(); });
  runTo(200);
  EXPECT_EQ(lossStatus().lossRecords(), 0u);
  EXPECT_EQ(logged, Messages{});
}

TEST_F(Road, TracingChangesNothing) {
  TraceLines traces;
  probeUntil(110);
  silent.insert({1, spine1});
  probeUntil(125);
  EXPECT_EQ(logged.size(), 1u);
  silent.clear();
  probeUntil(140);
  EXPECT_EQ(lossStatus().lossRecords(), 0u);
  EXPECT_EQ(traces.count(" partial dormancy/loss observed") > 0, true);
}

}  // namespace
}  // namespace Zeb
