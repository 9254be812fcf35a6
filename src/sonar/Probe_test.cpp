// A probe comes back as it was sent, and nothing else is taken for one.
#include "sonar/Probe.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "sonar/TestPackets.h"

namespace Sonar {
namespace {

Flow const flow{Netkit::IpAddr(0x0a000001), Netkit::IpAddr(0x0a000002), 20000, probePort};

Probe everyFieldSet() {
  Probe probe;
  probe.ttl = 3;
  probe.distance = 4;
  probe.robustness = 0x0102;
  probe.interval = 0x01020304;
  probe.streamTag = 0x11121314;
  probe.auxIp = Netkit::IpAddr(0x21222324);
  probe.epoch = 0x3132333435363738;
  probe.sequence = 0x4142434445464748;
  probe.sendTime = 0x5152535455565758;
  probe.auxiliary = 0x6162636465666768;
  return probe;
}

std::vector<U8> validPacket() {
  return ipPacket(flow, encodeProbe(everyFieldSet(), flow, testKeys()));
}

Notice everyFieldSet(PacketKind kind) {
  bool const paced = kind == PacketKind::running;
  return {.kind = kind,
          .ttl = 3,
          .stream = {Netkit::IpAddr(0x0a000011), Netkit::IpAddr(0x0a000012), 20007, probePort},
          .streamTag = 0x11121314,
          .auxIp = Netkit::IpAddr(0x21222324),
          .number = {0x3132333435363738, 0x4142434445464748},
          .serial = 0x5152535455565758,
          .holder = Netkit::IpAddr(0x61626364),
          .interval = paced ? 0x71727374U : 0,
          .robustness = static_cast<U16>(paced ? 0x0102 : 0)};
}

Rejection parsed(std::vector<U8> const& packet) {
  ReceivedPacket out;
  return parsePacket(packet, testKeys(), out);
}

TEST(Probe, comesBackAsItWasSent) {
  ReceivedPacket out;
  ASSERT_EQ(parsePacket(validPacket(), testKeys(), out), Rejection::none);
  EXPECT_EQ(out.flow, flow);
  EXPECT_EQ(out.probe, everyFieldSet());
  EXPECT_EQ(out.ipTtl, 1);
}

TEST(Probe, isLaidOutLittleEndianWithItsTagAtTheEnd) {
  auto const payload = encodeProbe(everyFieldSet(), flow, testKeys());
  EXPECT_EQ(std::string(payload.begin(), payload.begin() + 4), "ZEBP");
  EXPECT_EQ(payload[4], 1);
  EXPECT_EQ(payload[6], 3);
  EXPECT_EQ(payload[7], 7);
  EXPECT_EQ(payload[16], 0x38);
  EXPECT_EQ(payload[23], 0x31);
  EXPECT_EQ(payload[24], 0x48);
  EXPECT_EQ(payload[40], 0x04);
}

TEST(Probe, isTakenWhateverItsHopLimitOnArrival) {
  auto packet = validPacket();
  packet[8] = 61;
  ReceivedPacket out;
  ASSERT_EQ(parsePacket(packet, testKeys(), out), Rejection::none);
  EXPECT_EQ(out.ipTtl, 61);
  EXPECT_EQ(out.probe.ttl, 3);
}

TEST(Probe, isTakenUnderAnyKeyOfTheRing) {
  Keyring other;
  other.keyIs(9, *testKeys().key(9));
  EXPECT_EQ(parsed(ipPacket(flow, encodeProbe(everyFieldSet(), flow, other))), Rejection::none);
}

TEST(Probe, ofAnotherKeyIsRejected) {
  Keyring stolenId;
  stolenId.keyIs(7, {1, 2});
  EXPECT_EQ(parsed(ipPacket(flow, encodeProbe(everyFieldSet(), flow, stolenId))), Rejection::badTag);
  Keyring unknownId;
  unknownId.keyIs(8, {1, 2});
  EXPECT_EQ(parsed(ipPacket(flow, encodeProbe(everyFieldSet(), flow, unknownId))), Rejection::unknownKey);
}

// Addresses, ports and every bit of the payload are covered.
TEST(Probe, withOneBitChangedIsRejected) {
  auto const valid = validPacket();
  for (std::size_t bit = std::size_t{12} * 8; bit < valid.size() * 8; ++bit) {
    auto forged = valid;
    forged[bit / 8] = static_cast<U8>(forged[bit / 8] ^ (1U << bit % 8));
    bool const checksum = bit / 8 == 26 || bit / 8 == 27;  // the kernel's business
    EXPECT_EQ(parsed(forged) == Rejection::none, checksum) << "bit " << bit % 8 << " of byte " << bit / 8;
  }
}

TEST(Probe, carriedOnAnotherFlowIsRejected) {
  auto const payload = encodeProbe(everyFieldSet(), flow, testKeys());
  Flow other = flow;
  other.sourcePort = 20001;
  EXPECT_EQ(parsed(ipPacket(other, payload)), Rejection::badTag);
}

TEST(Probe, cutShortAnywhereIsRejected) {
  auto const valid = validPacket();
  for (std::size_t size = 0; size < valid.size(); ++size) {
    EXPECT_NE(parsed({valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(size)}), Rejection::none) << size;
  }
}

TEST(Probe, withLinkPaddingBehindItIsTaken) {
  auto padded = validPacket();
  padded.resize(padded.size() + 20);
  EXPECT_EQ(parsed(padded), Rejection::none);
}

TEST(Probe, withIpOptionsIsTaken) {
  auto packet = validPacket();
  packet.insert(packet.begin() + 20, 4, U8{1});
  packet[0] = 0x46;
  packet[3] = static_cast<U8>(packet[3] + 4);
  EXPECT_EQ(parsed(packet), Rejection::none);
}

TEST(Probe, bytesAtRandomAreNeverTaken) {
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    auto packet = validPacket();
    auto const from = random() % packet.size();
    for (std::size_t at = from; at < packet.size(); ++at) packet[at] = static_cast<U8>(random());
    packet.resize(random() % 2 ? packet.size() : random() % packet.size());
    if (parsed(packet) != Rejection::none) continue;
    // Only the checksum may differ, or what is behind the packet.
    EXPECT_TRUE(std::equal(packet.begin() + 28, packet.end(), validPacket().begin() + 28));
  }
}

TEST(Notice, ofEachKindComesBackAsItWasSent) {
  for (std::size_t i = 1; i < packetKindCount; ++i) {
    auto const notice = everyFieldSet(static_cast<PacketKind>(i));
    ReceivedPacket out;
    ASSERT_EQ(parsePacket(ipPacket(flow, encodeNotice(notice, flow, testKeys()), 60), testKeys(), out),
              Rejection::none);
    EXPECT_EQ(out.kind, notice.kind);
    EXPECT_EQ(out.notice, notice);
    EXPECT_EQ(out.flow, flow);
  }
}

TEST(Notice, withOneBitChangedIsRejected) {
  auto const valid = ipPacket(flow, encodeNotice(everyFieldSet(PacketKind::running), flow, testKeys()));
  for (std::size_t bit = std::size_t{12} * 8; bit < valid.size() * 8; ++bit) {
    auto forged = valid;
    forged[bit / 8] = static_cast<U8>(forged[bit / 8] ^ (1U << bit % 8));
    bool const checksum = bit / 8 == 26 || bit / 8 == 27;
    EXPECT_EQ(parsed(forged) == Rejection::none, checksum) << "bit " << bit % 8 << " of byte " << bit / 8;
  }
}

TEST(Notice, ofAnotherKeyOrOnAnotherFlowIsRejected) {
  auto const notice = everyFieldSet(PacketKind::freeze);
  Keyring stolenId;
  stolenId.keyIs(7, {1, 2});
  EXPECT_EQ(parsed(ipPacket(flow, encodeNotice(notice, flow, stolenId))), Rejection::badTag);
  Flow other = flow;
  other.destination = Netkit::IpAddr(0x0a000009);
  EXPECT_EQ(parsed(ipPacket(other, encodeNotice(notice, flow, testKeys()))), Rejection::badTag);
}

TEST(Notice, saysOnlyWhatItsKindHasToSay) {
  auto const outcome = [](Notice const& notice) {
    return parsed(ipPacket(flow, encodeNotice(notice, flow, testKeys())));
  };
  auto notice = everyFieldSet(PacketKind::takeover);
  notice.interval = 1;
  EXPECT_EQ(outcome(notice), Rejection::badInterval);
  notice = everyFieldSet(PacketKind::takeover);
  notice.robustness = 1;
  EXPECT_EQ(outcome(notice), Rejection::badRobustness);
  notice = everyFieldSet(PacketKind::running);
  notice.interval = 0;
  EXPECT_EQ(outcome(notice), Rejection::badInterval);
  notice = everyFieldSet(PacketKind::end);
  notice.ttl = 0;
  EXPECT_EQ(outcome(notice), Rejection::badTtl);
  notice = everyFieldSet(PacketKind::end);
  notice.number.sequence = 0;
  EXPECT_EQ(outcome(notice), Rejection::badSequence);
}

// The inputs that the fuzzing starts from reach every branch: one file for each reason, named after it.
TEST(Probe, theCorpusHasAnInputForEveryRejection) {
  auto const folder = std::filesystem::path(__FILE__).parent_path() / "../../fuzz/corpus/probe";
  for (std::size_t i = 0; i < rejectionCount; ++i) {
    auto const rejection = static_cast<Rejection>(i);
    std::ifstream file(folder / rejectionName(rejection), std::ios::binary);
    ASSERT_TRUE(file) << rejectionName(rejection);
    std::vector<U8> const packet{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(rejectionName(parsed(packet)), rejectionName(rejection));
  }
}

TEST(Probe, theCorpusHasAnInputForEveryKind) {
  auto const folder = std::filesystem::path(__FILE__).parent_path() / "../../fuzz/corpus/probe";
  for (std::size_t i = 1; i < packetKindCount; ++i) {
    std::ifstream file(folder / ("notice_" + std::to_string(i)), std::ios::binary);
    std::vector<U8> const packet{std::istreambuf_iterator<char>(file), {}};
    ReceivedPacket out;
    ASSERT_EQ(parsePacket(packet, testKeys(), out), Rejection::none) << i;
    EXPECT_EQ(out.kind, static_cast<PacketKind>(i));
  }
}

}  // namespace
}  // namespace Sonar
