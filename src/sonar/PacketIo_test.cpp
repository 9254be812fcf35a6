// Real probes between two network namespaces that the test makes for itself: what is sent leaves as ordered, and the
// tap sees what ends there and nothing else. A namespace cannot be left again by a test program that has others to run,
// so each scene plays in a child process, which hands back what it found wrong.
#include "sonar/PacketIo.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "sonar/Sonar.h"
#include "sonar/TestNamespaces.h"
#include "sonar/TestPackets.h"
#include "sonar/TestSwitch.h"

namespace Sonar {
namespace {

struct Seen {
  ReceivedPacket packet;
  std::string interface;
};

// One probe at a time from the one to the other, over the real thing.
class Line {
 public:
  TwoSwitches switches;
  KernelPacketIo sender{KernelPacketIo::TapMode::closed};
  std::unique_ptr<KernelPacketIo> receiver;

  Line() {
    switches.inReceiver([&] { receiver = std::make_unique<KernelPacketIo>(); });
    receiver->localAddressesAre(std::array{switches.destination});
  }

  OutgoingProbe probe(Netkit::IpAddr destination, U8 ttl, U64 sequence, U16 port = 20000) const {
    OutgoingProbe result;
    result.flow = {switches.source, destination, port, probePort};
    result.probe.ttl = ttl;
    result.probe.interval = 1000;
    result.probe.sequence = sequence;
    return result;
  }

  std::vector<SendResult> send(std::vector<OutgoingProbe> const& probes) {
    std::vector<SendResult> results(probes.size(), SendResult::failed);
    std::vector<OutgoingPacket> packets;
    for (auto const& [flow, probe] : probes) packets.push_back({flow, probe.ttl, encodeProbe(probe, flow, keys)});
    sender.send(packets, results);
    return results;
  }

  // All that the tap sees until the probe of that sequence number comes.
  std::vector<Seen> seenUntil(U64 sequence) {
    std::vector<Seen> seen;
    for (;;) {
      pollfd wait{receiver->fds().at(0), POLLIN, 0};
      require(poll(&wait, 1, 5000) > 0, "no probe came within 5 s; seen before: " + std::to_string(seen.size()));
      receiver->drain([&](std::span<U8 const> bytes, Netkit::IntfId interface) {
        Seen one;
        auto const rejection = parsePacket(bytes, keys, one.packet);
        require(rejection == Rejection::none, "rejected: " + std::string(rejectionName(rejection)));
        one.interface = interface.stringValue();
        seen.push_back(one);
      });
      if (!seen.empty() && seen.back().packet.probe.sequence == sequence) return seen;
    }
  }

 private:
  Keyring keys = testKeys();
};

TEST(PacketIo, aProbeWhoseHopLimitRunsOutIsSeenWithItsInterfaceAndHopLimit) {
  EXPECT_EQ(play([] {
              Line line;
              line.send({line.probe(line.switches.beyond, 1, 1)});
              auto const seen = line.seenUntil(1);
              require(seen.size() == 1, "seen: " + std::to_string(seen.size()));
              require(seen[0].interface == "b0", "arrived on " + seen[0].interface);
              require(seen[0].packet.ipTtl == 1, "hop limit " + std::to_string(seen[0].packet.ipTtl));
              require(seen[0].packet.flow == line.probe(line.switches.beyond, 1, 1).flow, "other addresses or ports");
            }),
            "");
}

TEST(PacketIo, aProbeToAnAddressOfTheSwitchIsSeenWithAnyHopLimit) {
  EXPECT_EQ(play([] {
              Line line;
              line.send({line.probe(line.switches.destination, 7, 1), line.probe(line.switches.destination, 255, 2)});
              auto const seen = line.seenUntil(2);
              require(seen.size() == 2, "seen: " + std::to_string(seen.size()));
              require(seen[0].packet.ipTtl == 7 && seen[1].packet.ipTtl == 255, "other hop limits");
            }),
            "");
}

TEST(PacketIo, aProbeInTransitIsNotSeen) {
  EXPECT_EQ(play([] {
              Line line;
              line.send({line.probe(line.switches.beyond, 2, 1)});
              line.send({line.probe(line.switches.beyond, 1, 2)});
              require(line.seenUntil(2).size() == 1, "the probe in transit was seen");
            }),
            "");
}

TEST(PacketIo, anotherPortIsNotSeen) {
  EXPECT_EQ(play([] {
              Line line;
              auto other = line.probe(line.switches.beyond, 1, 1);
              other.flow.destinationPort = probePort + 1;
              line.send({other});
              line.send({line.probe(line.switches.beyond, 1, 2)});
              require(line.seenUntil(2).size() == 1, "the other port was seen");
            }),
            "");
}

TEST(PacketIo, theFilterFollowsTheAddressesOfTheSwitch) {
  EXPECT_EQ(play([] {
              Line line;
              std::vector<Netkit::IpAddr> many;
              for (U32 i = 0; i < 900; ++i) many.emplace_back(0x0b000000U + i);
              line.receiver->localAddressesAre(many);
              line.send({line.probe(line.switches.destination, 9, 1)});
              line.send({line.probe(line.switches.beyond, 1, 2)});
              require(line.seenUntil(2).size() == 1, "an address that is not the switch's was taken for one");
              many.push_back(line.switches.destination);
              line.receiver->localAddressesAre(many);
              line.send({line.probe(line.switches.destination, 9, 3)});
              require(line.seenUntil(3).size() == 1, "the last of many addresses was not seen");
              // More than a filter can hold: the service looks for itself.
              many.resize(5000, line.switches.beyond);
              line.receiver->localAddressesAre(many);
              line.send({line.probe(line.switches.destination, 9, 4)});
              line.seenUntil(4);
            }),
            "");
}

TEST(PacketIo, oneProbeThatCannotBeSentCostsNoOther) {
  EXPECT_EQ(play([] {
              Line line;
              auto foreign = line.probe(line.switches.beyond, 1, 3);
              foreign.flow.source = line.switches.nowhere;
              auto const results =
                  line.send({line.probe(line.switches.nowhere, 1, 1), line.probe(line.switches.beyond, 1, 2), foreign,
                             line.probe(line.switches.nowhere, 1, 4), line.probe(line.switches.beyond, 1, 5)});
              using enum SendResult;
              require(results == std::vector{failed, sent, failed, failed, sent}, "other results");
              require(line.seenUntil(5).size() == 2, "not the two that could be sent");
            }),
            "");
}

TEST(PacketIo, everyPortIsASourceOfItsOwn) {
  EXPECT_EQ(play([] {
              Line line;
              std::vector<OutgoingProbe> probes;
              for (U16 i = 0; i < 300; ++i) {
                U16 const port = static_cast<U16>(20000 + i % 3);
                probes.push_back(line.probe(line.switches.beyond, 1, i + 1U, port));
              }
              // The port that probes go to may be a source, too.
              probes.push_back(line.probe(line.switches.beyond, 1, 301, probePort));
              line.sender.endpointsAre({});
              // The first ones wait for the neighbour's address, of which a few may.
              line.send({line.probe(line.switches.beyond, 1, 1000)});
              line.seenUntil(1000);
              for (auto const& probe : probes) {
                require(line.send({probe}).front() == SendResult::sent, "not sent");
                require(line.seenUntil(probe.probe.sequence).back().packet.flow == probe.flow, "another source port");
              }
            }),
            "");
}

// From the same source port, so by the same socket.
TEST(PacketIo, aNeighbourThatDoesNotAnswerNeitherBlocksNorStarvesTheOthers) {
  EXPECT_EQ(play([] {
              Line line;
              ip("route add 10.0.0.4/32 via 192.168.0.7 dev a0 onlink");
              line.send({line.probe(line.switches.beyond, 1, 1)});
              line.seenUntil(1);
              auto const start = std::chrono::steady_clock::now();
              std::vector<OutgoingProbe> probes;
              for (U64 i = 0; i < 1000; ++i) probes.push_back(line.probe(Netkit::IpAddr(0x0a000004), 1, 2 + i));
              line.send(probes);
              auto const after = line.send({line.probe(line.switches.beyond, 1, 2000)});
              require(std::chrono::steady_clock::now() - start < std::chrono::seconds(1), "sending waited");
              require(after.front() == SendResult::sent, "another neighbour's probe found no room");
              line.seenUntil(2000);
            }),
            "");
}

// The whole service on both sides, with as little of the platform as will do.
class Services {
 public:
  TwoSwitches switches;
  TestSwitch senderView;
  TestSwitch receiverView;
  TestIngressTable ingress;
  TestEgressTable egress;
  TestTransmitterMap map;
  TestIngressTable unusedIngress;
  TestEgressTable unusedEgress;
  KernelPacketIo senderPackets{KernelPacketIo::TapMode::open};
  std::unique_ptr<KernelPacketIo> receiverPackets;
  std::unique_ptr<Service> sender;
  std::unique_ptr<Service> receiver;

  explicit Services(KernelPacketIo::TapMode receiverTap) {
    senderView.addresses["lo"] = switches.source;
    receiverView.addresses["lo"] = switches.destination;
    switches.inReceiver([&] { receiverPackets = std::make_unique<KernelPacketIo>(receiverTap); });
    auto const epoch = [] { return U64{1}; };
    sender = std::make_unique<Service>(Service::Options{.keys = testKeys(), .nextEpoch = epoch},
                                       Service::Surroundings{senderView, senderPackets, unusedIngress, egress, map});
    receiver =
        std::make_unique<Service>(Service::Options{.keys = testKeys(), .nextEpoch = epoch},
                                  Service::Surroundings{receiverView, *receiverPackets, ingress, unusedEgress, map});
    Orders orders;
    orders.enabled = true;
    orders.robustness = 5;
    orders.transmitters["p1:leaves"] = {.enabled = true,
                                        .sources = {Netkit::IntfId("lo")},
                                        .destinations = {switches.destination},
                                        .hopsRate = {{1, {100, 1, 1}}, {2, {100, 1, 1}}},
                                        .ports = {20000, 20001}};
    sender->ordersAre(now(), orders);
  }

  static Rix::Seconds now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }

  void runUntil(std::function<bool()> const& reached) const {
    Rix::Seconds const end = now() + 20;
    while (!reached()) {
      require(now() < end, "not reached within 20 s: " + std::to_string(ingress.rows.size()) + " rows, " +
                               std::to_string(sender->sender().counts().sent) + " probes sent");
      Rix::Seconds const next = std::min(sender->nextDeadline(), receiver->nextDeadline());
      std::vector<pollfd> waits;
      for (int const fd : receiver->fds()) waits.push_back({fd, POLLIN, 0});
      int const wait = static_cast<int>(std::clamp((next - now()) * 1000, 0.0, 100.0));
      poll(waits.data(), waits.size(), wait);
      // What it answers must leave from its own namespace.
      switches.inReceiver([&] {
        receiver->onReadable(now());
        receiver->onTimer(now());
      });
      sender->onTimer(now());
    }
  }

  U64 fewestReceived() const {
    U64 fewest = ~U64{0};
    for (auto const& [key, row] : ingress.rows) fewest = std::min(fewest, row.probesReceived);
    return fewest;
  }
};

TEST(PacketIo, twoServicesCountTheSameProbesAndALossIsSeen) {
  EXPECT_EQ(play([] {
              Services services(KernelPacketIo::TapMode::open);
              services.runUntil([&] { return services.ingress.rows.size() == 4 && services.fewestReceived() >= 20; });
              for (auto const& [key, row] : services.ingress.rows) {
                require(row.probesLost == 0 && row.probesMisordered == 0 && row.probesDuplicated == 0, "lost some");
                require(!row.dormant, "dormant while probes come");
                require(key.ingressIntf.stringValue() == "b0", "on another interface");
                EgressStream sent;
                static_cast<StreamFields&>(sent) = key;
                sent.egressIntf = Netkit::IntfId("lo");
                require(services.egress.rows.at(sent) >= row.probesReceived, "more received than sent");
              }
              services.switches.inReceiver([] { ip("link set dev lo down"); });
              ip("route replace blackhole 10.0.0.2/32");
              services.runUntil([&] {
                return std::all_of(services.ingress.rows.begin(), services.ingress.rows.end(), [](auto const& entry) {
                  return entry.second.dormant || entry.first == Bell::reservedStream(0);
                });
              });
              require(services.sender->sender().counts().failed > 0, "a blackhole at the source is an error there");
            }),
            "");
}

TEST(PacketIo, whatSwitchesTellEachOtherTravelsToo) {
  EXPECT_EQ(play([] {
              Services services(KernelPacketIo::TapMode::open);
              services.runUntil([&] {
                return services.ingress.rows.size() == 4 && services.receiver->notices().counts().answered == 4;
              });
              services.sender->stop(Services::now());
              services.runUntil([&] {
                return std::all_of(services.ingress.rows.begin(), services.ingress.rows.end(), [&](auto const& entry) {
                  return services.receiver->receiver().state(entry.first) == RowState::held;
                });
              });
              require(services.egress.rows.empty(), "rows of what has ended");
              require(services.sender->notices().counts().sent >= 8, "neither marks nor answers");
            }),
            "");
}

TEST(PacketIo, aClosedTapCountsNothing) {
  EXPECT_EQ(play([] {
              Services services(KernelPacketIo::TapMode::closed);
              services.runUntil([&] { return services.sender->sender().counts().sent >= 200; });
              require(services.ingress.rows.empty(), "rows");
            }),
            "");
}

}  // namespace
}  // namespace Sonar
