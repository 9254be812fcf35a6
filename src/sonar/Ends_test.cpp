// What becomes of rows when a stream ends on purpose, and when a service or an agent restarts: whole services on a
// small fabric, on virtual time, each case with a number of seeds. Nothing may look like loss, and nothing may be left
// of a stream that has ended.
#include <gtest/gtest.h>

#include "sonar/TestClos.h"

namespace Sonar {
namespace {

// The longest that rows of an ended stream stay: the hold, and what it takes to hear of the end.
constexpr Rix::Seconds longestHold = heldFor + 0.6;

TEST(Ends, aStreamThatIsEndedIsHeldAndGoes) {
  forSeeds([](Clos& fabric) {
    std::size_t const before = fabric.ingressRows();
    fabric.endAll();
    fabric.run(1);
    for (auto const& node : fabric.nodes()) {
      EXPECT_TRUE(node->egress.rows.empty());
      for (auto const& [key, row] : node->ingress.rows) {
        EXPECT_EQ(node->service->receiver().state(key), RowState::held);
      }
    }
    fabric.run(heldFor - 1.2);
    EXPECT_EQ(fabric.ingressRows(), before);
    fabric.run(longestHold + 1.2 - heldFor);
    fabric.expectNothingLeft();
    fabric.run(60);
    fabric.expectNothingLeft();
    fabric.expectQuiet();
  });
}

TEST(Ends, aSmallerDistanceEndsThatTtlAlone) {
  forSeeds([](Clos& fabric) {
    for (int i = 1; i <= Clos::leafCount; ++i) {
      auto orders = Clos::ordersOf(i);
      orders.transmitters.begin()->second.hopsRate.erase(3);
      fabric.order(fabric.node(Clos::leafName(i)), orders);
    }
    fabric.run(20);
    EXPECT_EQ(fabric.ingressRows(), 3U * 2 * 6 * 2);
    fabric.expectLive();
    fabric.expectQuiet();
  });
}

TEST(Ends, aStreamThatIsEndedJustAfterItMovedGoesEverywhere) {
  for (Rix::Seconds const after : {0.0, 0.1, 0.25, 0.4, 1.0}) {
    forSeeds([&](Clos& fabric) {
      fabric.linkDown("leaf1", "spine1");
      if (after < convergence) {
        fabric.run(after);
        fabric.endAll();
        fabric.run(convergence - after);
        fabric.converge();
      } else {
        fabric.routesFollow();
        fabric.run(after - convergence);
        fabric.endAll();
      }
      // Rows that no mark reaches, and no source knows of, ask.
      fabric.run(25);
      fabric.expectNothingLeft();
      fabric.expectQuiet();
    });
  }
}

TEST(Ends, aStreamThatIsEndedDuringALossEndsItsDormancyFirst) {
  forSeeds([](Clos& fabric) {
    fabric.lossIs("spine1", "leaf2", 1);
    fabric.run(12);
    std::size_t const shown = fabric.dormancies.size();
    ASSERT_GT(shown, 0U);
    ASSERT_EQ(fabric.dormant().size(), shown);
    Rix::Seconds const end = fabric.now;
    fabric.endAll();
    fabric.run(40);
    fabric.expectNothingLeft();
    EXPECT_EQ(fabric.dormancies.size(), shown);
    EXPECT_TRUE(fabric.earlyRemovals.empty()) << fabric.text(fabric.earlyRemovals);
    for (auto const& dormancy : fabric.dormancies) EXPECT_LT(dormancy.until, end + 3) << fabric.text({dormancy});
  });
}

TEST(Ends, aStreamThatStartsAgainIsRevived) {
  for (Rix::Seconds const after : {0.0, 0.3, 3.0, 7.9, 8.3, 20.0}) {
    forSeeds([&](Clos& fabric) {
      fabric.endAll();
      fabric.run(after);
      for (int i = 1; i <= Clos::leafCount; ++i) fabric.order(fabric.node(Clos::leafName(i)), Clos::ordersOf(i));
      fabric.run(25);
      EXPECT_EQ(fabric.ingressRows(), 3U * 2 * 6 * 3);
      fabric.expectLive();
      fabric.expectQuiet();
    });
  }
}

TEST(Ends, aStreamThatStartsAgainOnAnotherWayIsNotMissedWhereItWasHeld) {
  forSeeds([](Clos& fabric) {
    fabric.endAll();
    fabric.run(3);
    fabric.linkDown("leaf1", "spine1");
    fabric.routesFollow();
    for (int i = 1; i <= Clos::leafCount; ++i) fabric.order(fabric.node(Clos::leafName(i)), Clos::ordersOf(i));
    fabric.run(25);
    fabric.expectLive();
    fabric.expectQuiet();
  });
}

TEST(Ends, anEndWithANewAgentShowsTheRowsOnceMoreBeforeReceiversLetTheirsGo) {
  for (Rix::Seconds const after : {0.5, 3.0}) {
    forSeeds([&](Clos& fabric) {
      auto& leaf = fabric.node("leaf1");
      auto const sent = leaf.egress.rows;
      fabric.order(leaf, Clos::noOrders());
      fabric.run(after);
      ASSERT_TRUE(leaf.egress.rows.empty());
      leaf.service->agentRestarted(fabric.now);
      EXPECT_EQ(leaf.egress.rows, sent);
      fabric.run(shownAgainFor - 0.1);
      EXPECT_EQ(leaf.egress.rows, sent);
      fabric.run(0.2);
      EXPECT_TRUE(leaf.egress.rows.empty());
      fabric.run(20);
      EXPECT_EQ(fabric.ingressRows(), 2U * 2 * 6 * 3);
      fabric.expectQuiet();
    });
  }
}

TEST(Ends, aReceivedRowThatHasGoneIsShownToANewAgentOnceMore) {
  forSeeds([](Clos& fabric) {
    fabric.endAll();
    fabric.run(longestHold + 1);
    auto& spine = fabric.node("spine1");
    ASSERT_TRUE(spine.ingress.rows.empty());
    spine.service->agentRestarted(fabric.now);
    EXPECT_FALSE(spine.ingress.rows.empty());
    for (auto const& [key, row] : spine.ingress.rows) EXPECT_FALSE(row.dormant);
    fabric.run(shownAgainFor + 0.1);
    fabric.expectNothingLeft();
    fabric.expectQuiet();
    // A while later there is nothing to show.
    fabric.run(departedFor);
    spine.service->agentRestarted(fabric.now);
    EXPECT_TRUE(spine.ingress.rows.empty());
  });
}

TEST(Ends, aNewAgentChangesNothingWhileStreamsRun) {
  forSeeds([](Clos& fabric) {
    for (auto const& node : fabric.nodes()) node->service->agentRestarted(fabric.now);
    fabric.run(10);
    EXPECT_EQ(fabric.ingressRows(), 3U * 2 * 6 * 3);
    for (auto const& node : fabric.nodes()) {
      for (auto const& [key, row] : node->ingress.rows) EXPECT_EQ(row.epoch.value, row.epoch.value);
    }
    fabric.expectLive();
    fabric.expectQuiet();
  });
}

TEST(Ends, anAddressThatIsGoneEndsItsStreamsByWayOfAnotherOne) {
  forSeeds([](Clos& fabric) {
    auto& leaf = fabric.node("leaf1");
    leaf.view.addresses["lo"] = ip(51);
    fabric.converge();
    leaf.service->switchChanged(fabric.now);
    fabric.run(30);
    // Its own streams run from the new address, to which nobody sends; those to the old one find no way.
    std::set<Netkit::IpAddr> sources;
    for (auto const& node : fabric.nodes()) {
      for (auto const& [key, row] : node->ingress.rows) sources.insert(key.srcIp);
    }
    EXPECT_FALSE(sources.contains(ip(1)));
    EXPECT_TRUE(sources.contains(ip(51)));
    fabric.expectQuiet();
  });
}

TEST(Restarts, ofASenderWithinItsThresholdGoUnseen) {
  forSeeds([](Clos& fabric) {
    auto& leaf = fabric.node("leaf1");
    auto const sent = leaf.egress.rows;
    fabric.kill(leaf);
    fabric.run(0.2);
    fabric.start(leaf);
    fabric.run(0.01);
    for (auto const& [key, count] : sent) EXPECT_GE(leaf.egress.rows.at(key), count);
    fabric.run(20);
    fabric.expectLive();
    fabric.expectQuiet();
    EXPECT_EQ(fabric.ingressRows(), 3U * 2 * 6 * 3);
    for (auto const& node : fabric.nodes()) EXPECT_EQ(fabric.lostAt(node->name), 0U);
  });
}

TEST(Restarts, ofASenderAfterTwoSecondsAreOverWhenItIsBack) {
  forSeeds([](Clos& fabric) {
    auto& leaf = fabric.node("leaf1");
    fabric.kill(leaf);
    fabric.run(2);
    fabric.start(leaf);
    fabric.run(1);
    EXPECT_TRUE(fabric.dormant().empty()) << fabric.text(fabric.dormant());
    std::size_t const shown = fabric.dormancies.size();
    fabric.run(20);
    EXPECT_EQ(fabric.dormancies.size(), shown);
    EXPECT_TRUE(fabric.earlyRemovals.empty());
    fabric.expectLive();
  });
}

TEST(Restarts, thatArePlannedGoUnseenHoweverLongTheyTake) {
  for (Rix::Seconds const down : {0.3, 2.0, 7.0, 9.0, 30.0}) {
    forSeeds([&](Clos& fabric) {
      auto& leaf = fabric.node("leaf1");
      leaf.service->stop(fabric.now);
      EXPECT_TRUE(leaf.egress.rows.empty());
      EXPECT_FALSE(leaf.service->stopped());
      // As one that ends at once.
      fabric.kill(leaf);
      fabric.run(down);
      fabric.start(leaf);
      fabric.run(25);
      fabric.expectLive();
      fabric.expectQuiet();
      EXPECT_EQ(fabric.ingressRows(), 3U * 2 * 6 * 3);
    });
  }
}

TEST(Restarts, thatArePlannedMarkTheirEndsForAsLongAsTheyAreGiven) {
  forSeeds([](Clos& fabric) {
    auto& leaf = fabric.node("leaf1");
    leaf.service->stop(fabric.now);
    Rix::Seconds const start = fabric.now;
    while (!leaf.service->stopped() && fabric.now < start + 10) fabric.run(0.1);
    EXPECT_GE(fabric.now - start, 2.0);
    EXPECT_LE(fabric.now - start, 3.0);
    // Orders are not followed any more.
    leaf.service->ordersAre(fabric.now, Clos::ordersOf(1));
    EXPECT_TRUE(leaf.egress.rows.empty());
  });
}

TEST(Restarts, ofAReceiverCountNothingLostAndJudgeNothingThatTheyHaveNotHeard) {
  for (Rix::Seconds const down : {0.2, 2.0, 9.0}) {
    forSeeds([&](Clos& fabric) {
      auto& spine = fabric.node("spine1");
      auto const before = spine.ingress.rows;
      fabric.kill(spine);
      fabric.run(down);
      fabric.start(spine);
      fabric.run(20);
      fabric.expectLive();
      fabric.expectQuiet();
      EXPECT_EQ(fabric.lostAt("spine1"), 0U);
      for (auto const& [key, row] : before) {
        EXPECT_EQ(spine.ingress.rows.at(key).epoch, row.epoch);
        EXPECT_GT(spine.ingress.rows.at(key).probesReceived, row.probesReceived);
      }
    });
  }
}

TEST(Restarts, ofAReceiverWhoseStreamsMovedMeanwhileLeaveItsRowsFrozen) {
  forSeeds([](Clos& fabric) {
    auto& spine = fabric.node("spine1");
    fabric.kill(spine);
    fabric.run(1);
    fabric.node("leaf1").seed += 77;
    fabric.node("leaf1").service->switchChanged(fabric.now);
    fabric.run(3);
    fabric.start(spine);
    fabric.run(30);
    fabric.expectLive();
    fabric.expectQuiet();
  });
}

TEST(Restarts, ofAReceiverWhoseStreamsEndedMeanwhileLetItsRowsGo) {
  forSeeds([](Clos& fabric) {
    auto& spine = fabric.node("spine1");
    fabric.kill(spine);
    fabric.endAll();
    fabric.run(20);
    fabric.start(spine);
    fabric.run(15);
    fabric.expectNothingLeft();
    fabric.expectQuiet();
  });
}

TEST(Restarts, ofAReceiverDuringALossFindItAgain) {
  forSeeds([](Clos& fabric) {
    auto& spine = fabric.node("spine1");
    fabric.kill(spine);
    fabric.lossIs("leaf1", "spine1", 1);
    fabric.run(1);
    std::size_t const elsewhere = fabric.dormant().size();
    fabric.start(spine);
    // The answers of their source are lost, too.
    fabric.run(10);
    EXPECT_EQ(fabric.dormant().size(), elsewhere);
    fabric.run(8);
    std::size_t expected = 0;
    for (auto const& [key, row] : spine.ingress.rows) {
      if (key.srcIp != ip(1)) continue;
      ++expected;
      EXPECT_TRUE(row.dormant) << fabric.text({{"spine1", key}});
    }
    EXPECT_GT(expected, 0U);
    EXPECT_EQ(fabric.dormant().size(), elsewhere + expected);
  });
}

TEST(Restarts, ofAReceiverDuringALossFartherOnFindItAtOnce) {
  std::size_t expected = 0;
  forSeeds([&](Clos& fabric) {
    auto& leaf = fabric.node("leaf2");
    fabric.kill(leaf);
    fabric.port("leaf1", "spine1").drops = [](OutgoingPacket const& packet) { return packet.payload[5] == 0; };
    fabric.run(1);
    fabric.start(leaf);
    fabric.run(2);
    for (auto const& [key, row] : leaf.ingress.rows) {
      bool const lossy = key.srcIp == ip(1) && key.ingressIntf == intf("to-spine1");
      EXPECT_EQ(row.dormant, lossy) << fabric.text({{"leaf2", key}});
      expected += lossy ? 1U : 0U;
    }
  });
  EXPECT_GT(expected, 0U);
}

TEST(Restarts, ofASenderWhoseOrdersHaveChangedEndWhatIsNotOrderedAnyMore) {
  forSeeds([](Clos& fabric) {
    auto& leaf = fabric.node("leaf1");
    fabric.kill(leaf);
    leaf.orders.transmitters.begin()->second.ports = {20000, 20001};
    fabric.run(0.2);
    fabric.start(leaf);
    fabric.run(20);
    EXPECT_EQ(leaf.egress.rows.size(), 2U * 2 * 3);
    EXPECT_EQ(fabric.ingressRows(), 2U * 2 * 6 * 3 + 2U * 2 * 3);
    fabric.expectLive();
    fabric.expectQuiet();
  });
}

TEST(Restarts, ofASenderThatIsGivenNoOrdersEndWhatStands) {
  forSeeds([](Clos& fabric) {
    auto& leaf = fabric.node("leaf1");
    fabric.kill(leaf);
    leaf.orders = {.configuration = 1, .enabled = false};
    fabric.run(0.2);
    fabric.start(leaf);
    fabric.run(SenderPlan::adoptedFor - 0.1);
    EXPECT_FALSE(leaf.egress.rows.empty());
    fabric.run(0.2);
    EXPECT_TRUE(leaf.egress.rows.empty());
    fabric.run(15);
    EXPECT_EQ(fabric.ingressRows(), 2U * 2 * 6 * 3);
    EXPECT_TRUE(fabric.earlyRemovals.empty());
  });
}

}  // namespace
}  // namespace Sonar
