// The service as a whole on virtual time: two switches and a wire between them that carries bytes.
#include "sonar/Sonar.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>

#include "sonar/TestPackets.h"
#include "sonar/TestSwitch.h"

namespace Sonar {
namespace {

class WirePacketIo : public PacketIo {
 public:
  std::deque<std::vector<U8>> arrived;
  WirePacketIo* other = nullptr;
  bool carries = true;
  std::vector<Netkit::IpAddr> addresses;
  std::set<SourceEndpoint> endpoints;

  std::vector<int> fds() const override { return {}; }
  void localAddressesAre(std::span<Netkit::IpAddr const> local) override {
    addresses.assign(local.begin(), local.end());
  }
  void drain(Taker const& taker) override {
    for (; !arrived.empty(); arrived.pop_front()) taker(arrived.front(), intf("eth1"));
  }
  U64 dropped() override { return 0; }
  void send(std::span<OutgoingPacket const> packets, std::span<SendResult> results) override {
    for (std::size_t i = 0; i < packets.size(); ++i) {
      if (carries) other->arrived.push_back(ipPacket(packets[i].flow, packets[i].payload, packets[i].hopLimit));
      results[i] = SendResult::sent;
    }
  }
  void endpointsAre(std::set<SourceEndpoint> const& those) override { endpoints = those; }
};

struct Node {
  TestSwitch view;
  WirePacketIo packets;
  TestIngressTable ingress;
  TestEgressTable egress;
  TestTransmitterMap map;
  U64 lastEpoch = 0;
  Service service;

  Node(Netkit::IpAddr address, Keyring const& keys)
      : view(withAddress(address)),
        service({.keys = keys, .nextEpoch = [this] { return ++lastEpoch; }}, {view, packets, ingress, egress, map}) {}

  static TestSwitch withAddress(Netkit::IpAddr address) {
    TestSwitch view;
    view.addresses["lo"] = address;
    return view;
  }

  void probes(Netkit::IpAddr destination, Rix::Seconds now) {
    Orders orders;
    orders.enabled = true;
    orders.robustness = 5;
    orders.transmitters["p1:leaves"] = {.enabled = true,
                                        .sources = {intf("lo")},
                                        .destinations = {destination},
                                        .hopsRate = {{1, {10, 1, 1}}, {2, {10, 1, 1}}},
                                        .ports = {20000}};
    service.ordersAre(now, orders);
  }
};

class Services : public testing::Test {
 protected:
  Services() { join(a, b); }

  static void join(Node& left, Node& right) {
    left.packets.other = &right.packets;
    right.packets.other = &left.packets;
  }

  // Follows the deadlines of both, as their event loops would.
  void run(Rix::Seconds length) {
    for (Rix::Seconds const end = now + length;;) {
      Rix::Seconds const next = std::min(a.service.nextDeadline(), b.service.nextDeadline());
      if (next > end) {
        now = end;
        return;
      }
      now = std::max(now, next);
      for (Node* node : {&a, &b}) {
        if (node->service.nextDeadline() <= now) node->service.onTimer(now);
      }
      for (Node* node : {&a, &b}) {
        if (!node->packets.arrived.empty()) node->service.onReadable(now);
      }
    }
  }

  Rix::Seconds now = 100;
  Node a{ip(1), testKeys()};
  Node b{ip(2), testKeys()};
};

TEST_F(Services, withoutOrdersWantNothing) {
  EXPECT_EQ(a.service.nextDeadline(), Rix::never);
  run(10);
  EXPECT_TRUE(a.ingress.rows.empty());
  EXPECT_EQ(a.packets.addresses, std::vector{ip(1)});
}

TEST_F(Services, countOnBothSidesTheSame) {
  a.probes(ip(2), now);
  run(10);
  ASSERT_EQ(b.ingress.rows.size(), 2U);
  for (auto const& [key, row] : b.ingress.rows) {
    EgressStream sent;
    static_cast<StreamFields&>(sent) = key;
    sent.egressIntf = intf("lo");
    EXPECT_EQ(row.probesReceived, a.egress.rows.at(sent));
    EXPECT_EQ(row.probesReceived, 100U);
    EXPECT_EQ(row.currentSequenceNumber, 100U);
    EXPECT_EQ(row.epoch, (Epoch{1}));
    EXPECT_FALSE(row.dormant);
    // Sender and receiver come to the same identity unaided.
    EXPECT_EQ(Zeb::egressStreamToStreamId(key), Zeb::egressStreamToStreamId(a.map.streams.begin()->first));
  }
  EXPECT_TRUE(a.ingress.rows.empty());
  // And two acknowledgements.
  EXPECT_EQ(b.service.packets(Rejection::none), 202U);
  EXPECT_EQ(a.service.sender().counts().skipped, 0U);
}

TEST_F(Services, tellALossWithinItsThresholdAndASweep) {
  a.probes(ip(2), now);
  run(3);
  a.packets.carries = false;
  Rix::Seconds const fault = now;
  auto dormant = [&] {
    return std::count_if(b.ingress.rows.begin(), b.ingress.rows.end(),
                         [](auto const& entry) { return entry.second.dormant; });
  };
  for (long const rows : {1, 2}) {
    while (dormant() < rows && now < fault + 2) run(0.005);
    EXPECT_GE(now - fault, 0.39);
    EXPECT_LE(now - fault, 0.52);
  }
  EXPECT_TRUE(b.ingress.rows.contains(Bell::reservedStream(0)));
  a.packets.carries = true;
  run(1);
  EXPECT_EQ(dormant(), 0);
  for (auto const& [key, row] : b.ingress.rows) EXPECT_EQ(row.probesLost, 0U);
}

TEST_F(Services, thatCouldNotRunHearWhatHasComeBeforeTheyCallAnythingSilent) {
  a.probes(ip(2), now);
  run(3);
  // For five seconds b gets no processor, while a goes on.
  for (Rix::Seconds const end = now + 5; now < end; now += 0.01) a.service.onTimer(now);
  b.service.onTimer(now);
  for (auto const& [key, row] : b.ingress.rows) {
    EXPECT_FALSE(row.dormant);
    EXPECT_EQ(row.probesLost, 0U);
  }
}

TEST_F(Services, aForgedProbeMovesNoCounter) {
  a.probes(ip(2), now);
  run(1);
  auto const rows = b.ingress.rows;
  Keyring forged;
  forged.keyIs(testKeys().signingId(), {1, 2});
  Flow const flow{ip(1), ip(2), 20000, probePort};
  Probe probe;
  probe.interval = 1;
  probe.epoch = 99;
  probe.sequence = 1000;
  b.packets.arrived.push_back(ipPacket(flow, encodeProbe(probe, flow, forged)));
  b.service.onReadable(now);
  EXPECT_EQ(b.ingress.rows, rows);
  EXPECT_EQ(b.service.packets(Rejection::badTag), 1U);
}

TEST_F(Services, aProbeInTransitIsNotCountedWhateverTheFilterLetsThrough) {
  Flow const flow{ip(1), ip(3), 20000, probePort};
  Probe probe;
  probe.interval = 100000;
  probe.sequence = 1;
  auto const payload = encodeProbe(probe, flow, testKeys());
  b.packets.arrived.push_back(ipPacket(flow, payload, 2));
  b.service.onReadable(now);
  EXPECT_TRUE(b.ingress.rows.empty());
  b.packets.arrived.push_back(ipPacket(flow, payload, 1));
  b.service.onReadable(now);
  EXPECT_EQ(b.ingress.rows.size(), 1U);
}

TEST_F(Services, followTheAddressesOfTheirSwitch) {
  a.probes(ip(2), now);
  auto const endpoints = [](Netkit::IpAddr address) {
    std::set<SourceEndpoint> result{{address, 20000}};
    for (U16 port = noticePort; port < noticePort + noticePorts; ++port) result.emplace(address, port);
    return result;
  };
  EXPECT_EQ(a.packets.endpoints, endpoints(ip(1)));
  a.view.addresses["lo"] = ip(7);
  a.service.switchChanged(now);
  EXPECT_EQ(a.packets.addresses, std::vector{ip(7)});
  EXPECT_EQ(a.packets.endpoints, endpoints(ip(7)));
}

TEST_F(Services, aLinkThatIsSeenToFailIsNoDormancy) {
  a.probes(ip(2), now);
  run(3);
  a.packets.carries = false;
  b.view.downLinks = {"eth1"};
  b.service.switchChanged(now);
  run(10);
  for (auto const& [key, row] : b.ingress.rows) EXPECT_FALSE(row.dormant);
  EXPECT_EQ(b.ingress.deletions, 0U);
}

using ServicesDeathTest = Services;

TEST_F(ServicesDeathTest, withoutAKeyDoNotStart) {
  EXPECT_DEATH(Node(ip(3), Keyring()), "isEmpty");
}

}  // namespace
}  // namespace Sonar
