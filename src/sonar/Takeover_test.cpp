// What becomes of received rows when ways change: whole services on a small fabric, on virtual time, each case with a
// number of seeds. What is expected is that no dormancy is shown that no loss has caused, and that one that a loss has
// caused is; also where what switches tell each other is lost, forged or old.
#include <gtest/gtest.h>

#include "sonar/TestClos.h"

namespace Sonar {
namespace {

TEST(Moves, aFabricAtRestHasEveryRowOnceAndEverySourceKnowsItsHolders) {
  forSeeds([](Clos& fabric) {
    fabric.expectQuiet();
    fabric.expectLive();
    EXPECT_EQ(fabric.ingressRows(), 3U * 2 * 6 * 3);
    for (auto const& node : fabric.nodes()) EXPECT_EQ(node->service->notices().waiting(), 0U) << node->name;
  });
}

TEST(Moves, aLinkThatGoesDownIsNoDormancy) {
  forSeeds([](Clos& fabric) {
    fabric.linkDown("leaf1", "spine1");
    fabric.routesFollow();
    fabric.run(20);
    fabric.expectQuiet();
    fabric.expectLive();
  });
}

TEST(Moves, aSpineThatIsPoweredOffIsNoDormancy) {
  forSeeds([](Clos& fabric) {
    fabric.powerOff("spine1");
    fabric.routesFollow();
    fabric.run(20);
    fabric.expectQuiet();
  });
}

TEST(Moves, aLinkThatComesUpIsNoDormancy) {
  forSeeds([](Clos& fabric) {
    fabric.linkDown("leaf1", "spine1");
    fabric.routesFollow();
    fabric.run(15);
    fabric.linkIs("leaf1", "spine1", true);
    fabric.routesFollow();
    fabric.run(20);
    fabric.expectQuiet();
    fabric.expectLive();
  });
}

TEST(Moves, aLinkThatIsDownForAMomentIsNoDormancy) {
  for (Rix::Seconds const down : {0.05, 0.3, 0.6, 1.0, 2.0}) {
    forSeeds([&](Clos& fabric) {
      fabric.linkDown("leaf1", "spine1");
      if (down > convergence) {
        fabric.routesFollow();
        fabric.run(down - convergence);
      } else {
        fabric.run(down);
      }
      fabric.linkIs("leaf1", "spine1", true);
      fabric.routesFollow();
      fabric.run(15);
      fabric.expectQuiet();
      fabric.expectLive();
    });
  }
}

TEST(Moves, anotherHashSeedIsNoDormancy) {
  forSeeds([](Clos& fabric) {
    for (U64 i = 0; i < 5; ++i) {
      fabric.node("leaf1").seed += 77;
      fabric.node("leaf1").service->switchChanged(fabric.now);
      fabric.run(3);
    }
    fabric.run(15);
    fabric.expectQuiet();
    fabric.expectLive();
  });
}

// The source itself does not see it, so that all hangs on what the new holders tell.
TEST(Moves, anotherHashSeedThatNobodyIsToldOfIsNoDormancyEither) {
  forSeeds([](Clos& fabric) {
    for (U64 i = 0; i < 5; ++i) {
      fabric.node("leaf1").seed += 77;
      fabric.run(3);
    }
    fabric.run(15);
    fabric.expectQuiet();
    fabric.expectLive();
  });
}

TEST(Moves, aSpineThatReturnsWithWhatItsTablesHoldIsNoDormancy) {
  for (Rix::Seconds const off : {1.0, 10.0}) {
    forSeeds([&](Clos& fabric) {
      fabric.powerOff("spine1");
      fabric.routesFollow();
      fabric.run(off);
      fabric.powerOn("spine1");
      fabric.routesFollow();
      fabric.run(25);
      fabric.expectQuiet();
      fabric.expectLive();
      EXPECT_EQ(fabric.lostAt("spine1"), 0U);
    });
  }
}

TEST(Moves, bothLinksOfALeafDownAndBackAreNoDormancy) {
  forSeeds(
      [](Clos& fabric) {
        fabric.linkDown("leaf1", "spine1");
        fabric.linkDown("leaf1", "spine2");
        fabric.routesFollow();
        fabric.run(8);
        fabric.linkIs("leaf1", "spine1", true);
        fabric.linkIs("leaf1", "spine2", true);
        fabric.routesFollow();
        fabric.run(20);
        fabric.expectQuiet();
        fabric.expectLive();
      },
      2);
}

std::string nameOf(std::string const& node, StreamFields const& row) {
  return node + " " + row.srcIp.stringValue() + ">" + row.dstIp.stringValue() + " port " +
         std::to_string(row.streamPort) + " ttl " + std::to_string(row.ttl);
}

// Rows that a loss on the way from `from` to `to` must make dormant: those that end beyond it.
std::set<std::string> beyond(Clos const& fabric, std::string const& from, std::string const& to) {
  std::set<std::string> result;
  for (auto const& source : fabric.nodes()) {
    for (auto const& [sent, count] : source->egress.rows) {
      std::vector<std::string> hops{source->name};
      for (auto const& hop : fabric.way(sent.srcIp, sent.dstIp, sent.streamPort)) hops.push_back(hop);
      for (std::size_t hop = 1; hop < hops.size(); ++hop) {
        bool const crosses = hops[hop - 1] == from && hops[hop] == to;
        if (crosses && sent.ttl >= hop) {
          result.insert(nameOf(hops[std::min<std::size_t>(sent.ttl, hops.size() - 1)], sent));
        }
      }
    }
  }
  return result;
}

std::set<std::string> dormantNow(Clos const& fabric) {
  std::set<std::string> result;
  for (auto const& dormancy : fabric.dormant()) result.insert(nameOf(dormancy.node, dormancy.row));
  return result;
}

TEST(Moves, aLossSomeSecondsAfterAMoveIsDormantWhereItShouldBeAndNowhereElse) {
  forSeeds([](Clos& fabric) {
    fabric.linkDown("leaf1", "spine1");
    fabric.routesFollow();
    fabric.run(10);
    fabric.linkIs("leaf1", "spine1", true);
    fabric.routesFollow();
    fabric.run(10);
    fabric.expectQuiet();
    auto const expected = beyond(fabric, "leaf1", "spine1");
    ASSERT_FALSE(expected.empty());
    fabric.lossIs("leaf1", "spine1", 1);
    fabric.run(0.7);
    EXPECT_EQ(dormantNow(fabric), expected);
    // Neither what is asked meanwhile nor what is answered takes it back.
    fabric.run(90);
    EXPECT_EQ(dormantNow(fabric), expected);
    fabric.lossIs("leaf1", "spine1", 0);
    fabric.run(2);
    EXPECT_TRUE(fabric.dormant().empty());
    fabric.expectLive();
  });
}

TEST(Moves, aTenthOfAllPacketsLostOnTheWayOfNoticesLosesNone) {
  forSeeds([](Clos& fabric) {
    for (auto const& node : fabric.nodes()) {
      for (auto& [name, port] : node->ports) {
        auto random = std::make_shared<std::mt19937_64>(node->seed + name.size());
        port.drops = [random](OutgoingPacket const& packet) { return packet.payload[5] != 0 && (*random)() % 10 == 0; };
      }
    }
    fabric.linkDown("leaf1", "spine1");
    fabric.routesFollow();
    fabric.run(10);
    fabric.linkIs("leaf1", "spine1", true);
    fabric.routesFollow();
    fabric.run(10);
    for (U64 i = 0; i < 3; ++i) {
      fabric.node("leaf2").seed += 77;
      fabric.run(3);
    }
    fabric.run(60);
    for (auto const& node : fabric.nodes()) {
      EXPECT_EQ(node->service->notices().counts().givenUp, 0U) << node->name;
    }
    EXPECT_GT(fabric.node("spine1").service->notices().counts().repeated, 0U);
    fabric.expectQuiet();
    fabric.expectLive();
    fabric.endAll();
    fabric.run(30);
    fabric.expectNothingLeft();
    fabric.expectQuiet();
  });
}

// The way from the new first hop to the source is dead: what the source sees for itself must do.
TEST(Moves, theSourceFreezesAFirstHopThatItHasLeftItself) {
  forSeeds([](Clos& fabric) {
    fabric.linkDown("leaf1", "spine1");
    fabric.routesFollow();
    fabric.run(10);
    fabric.port("spine1", "leaf1").drops = [](OutgoingPacket const& packet) { return packet.payload[5] != 0; };
    fabric.linkIs("leaf1", "spine1", true);
    fabric.routesFollow();
    fabric.run(15);
    fabric.expectQuiet();
  });
}

TEST(Moves, noticesThatArePlayedAgainFreezeNothing) {
  forSeeds([](Clos& fabric) {
    struct Heard {
      TestFabric::Node* node;
      std::vector<U8> packet;
      std::string port;
    };
    std::vector<Heard> heard;
    fabric.onNotice = [&](TestFabric::Node& node, std::vector<U8> const& packet, std::string const& port) {
      heard.push_back({&node, packet, port});
    };
    for (int i = 0; i < 3; ++i) {
      fabric.node("leaf1").seed += 77;
      fabric.run(4);
    }
    // Some of the streams end and begin again.
    fabric.order(fabric.node("leaf2"), Clos::noOrders());
    fabric.run(1);
    fabric.order(fabric.node("leaf2"), Clos::ordersOf(2));
    fabric.run(10);
    fabric.onNotice = {};
    ASSERT_GT(heard.size(), 100U);
    // Each of them once more, to where it went then, while everything runs; and twice as often to one switch.
    for (int round = 0; round < 2; ++round) {
      for (auto const& [node, packet, port] : heard) {
        fabric.inject(*node, packet, port);
        fabric.run(0.002);
      }
    }
    fabric.expectLive();
    fabric.expectQuiet();
    // And none of the rows is kept from being judged.
    auto const expected = beyond(fabric, "leaf1", "spine1");
    fabric.lossIs("leaf1", "spine1", 1);
    fabric.run(0.7);
    for (auto const& [node, packet, port] : heard) fabric.inject(*node, packet, port);
    fabric.run(2);
    EXPECT_EQ(dormantNow(fabric), expected);
  });
}

TEST(Moves, aNoticeOfAnotherKeyFreezesNothing) {
  forSeeds([](Clos& fabric) {
    Keyring forged;
    forged.keyIs(testKeys().signingId(), {1, 2});
    auto& spine = fabric.node("spine1");
    for (PacketKind const kind : {PacketKind::end, PacketKind::freeze, PacketKind::takeover}) {
      for (auto const& [key, row] : std::map(spine.ingress.rows)) {
        Notice notice{.kind = kind,
                      .ttl = key.ttl,
                      .stream = {key.srcIp, key.dstIp, key.streamPort, probePort},
                      .number = {row.epoch.value + 1, 1000},
                      .serial = 1};
        Flow const flow{key.srcIp, spine.address, noticePort, probePort};
        fabric.inject(spine, ipPacket(flow, encodeNotice(notice, flow, forged), 60), "to-leaf1");
      }
    }
    EXPECT_GT(spine.service->packets(Rejection::badTag), 0U);
    fabric.run(2);
    fabric.expectLive();
    fabric.run(10);
    fabric.expectQuiet();
  });
}

}  // namespace
}  // namespace Sonar
