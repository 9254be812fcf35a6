// The rows: every field at its offset, and back again; what is unsaid stays zero.
#include "model/SonarRows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

namespace Sonar {
namespace {

// Keeps the names that do not fit in a map, under a number that stands in the last four bytes.
class Names : public IntfNames {
 public:
  IntfBytes encode(Netkit::IntfId interface) override {
    if (auto bytes = intfBytesInPlace(interface)) return *bytes;
    names_.push_back(interface);
    return {0, 0, 0, 0, 0, 0, static_cast<U8>(names_.size() - 1), 0xff};
  }
  Netkit::IntfId decode(IntfBytes const& bytes) override {
    if (auto interface = intfInPlace(bytes)) return *interface;
    return names_.at(bytes[6]);
  }

 private:
  std::vector<Netkit::IntfId> names_;
};

template <class Stream>
Stream stream() {
  Stream stream;
  stream.srcEthAddr = Netkit::EthAddr({1, 2, 3, 4, 5, 6});
  stream.dstEthAddr = Netkit::EthAddr({7, 8, 9, 10, 11, 12});
  stream.vlanId = Bridging::VlanIdOrNone(0x0e0d);
  stream.dstIp = Netkit::IpAddr(0x1211100f);
  stream.auxIp = Netkit::IpAddr(0x201f1e1d);
  stream.srcIp = Netkit::IpAddr(0x24232221);
  stream.ttl = 0x25;
  stream.ipProto = Netkit::IpProto(0x26);
  stream.streamPort = 0x2827;
  stream.streamTag = 0x2c2b2a29;
  return stream;
}

EgressStream egressStream() {
  auto key = stream<EgressStream>();
  key.egressIntf = Netkit::IntfId("eth7");
  return key;
}

IngressStream ingressStream() {
  auto key = stream<IngressStream>();
  key.ingressIntf = Netkit::IntfId("eth9");
  key.discriminator = 0x35;
  return key;
}

// The first 44 bytes of both keys, with each byte of a field one more than its offset.
std::vector<U8> streamBytes(std::string interface) {
  std::vector<U8> bytes(44);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<U8>(i + 1);
  bytes[18] = bytes[19] = 0;
  interface.resize(8);
  std::copy(interface.begin(), interface.end(), bytes.begin() + 20);
  return bytes;
}

template <class Bytes>
std::vector<U8> slice(Bytes const& bytes, std::size_t from, std::size_t to) {
  return {bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

TEST(EgressStream, StandsAtItsOffsets) {
  Names names;
  auto bytes = egressStream().encode(names);
  EXPECT_EQ(slice(bytes, 0, 44), streamBytes("eth7"));
  EXPECT_EQ(EgressStream::decode(bytes, names), egressStream());
  bytes[18] = bytes[19] = 0xff;
  EXPECT_EQ(EgressStream::decode(bytes, names), egressStream());
}

TEST(EgressStreamTable, StandsAtItsOffsets) {
  Names names;
  EgressStreamTable row{egressStream(), 0x0807060504030201};
  auto bytes = row.encode(names);
  EXPECT_EQ(slice(bytes, 0, 44), streamBytes("eth7"));
  EXPECT_EQ(slice(bytes, 44, 52), (std::vector<U8>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(EgressStreamTable::decode(bytes, names), row);
}

TEST(IngressStream, StandsAtItsOffsetsAndLeavesTheEgressInterfaceUnread) {
  Names names;
  auto bytes = ingressStream().encode(names);
  EXPECT_EQ(slice(bytes, 0, 44), streamBytes(""));
  EXPECT_EQ(slice(bytes, 44, 53), (std::vector<U8>{'e', 't', 'h', '9', 0, 0, 0, 0, 0x35}));
  std::fill(bytes.begin() + 20, bytes.begin() + 28, U8{0xee});
  EXPECT_EQ(IngressStream::decode(bytes, names), ingressStream());
}

TEST(IngressStreamStatisticsTableEntry, StandsAtItsOffsetsWithZerosBetween) {
  Names names;
  IngressStreamStatisticsTableEntry row;
  row.key = ingressStream();
  row.dormant = true;
  row.epoch.value = 1;
  row.probesReceived = 2;
  row.probesLost = 3;
  row.probesMisordered = 4;
  row.probesDuplicated = 5;
  row.lastSequenceNumber = 6;
  row.currentSequenceNumber = 0x0807060504030201;
  auto bytes = row.encode(names);
  ASSERT_EQ(bytes.size(), 452U);
  std::map<std::size_t, U8> expected{{56, 1}, {60, 1}, {68, 2}, {76, 3}, {84, 4}, {92, 5}, {100, 6}};
  for (U8 i = 0; i < 8; ++i) expected[172U + i] = static_cast<U8>(i + 1);
  for (std::size_t i = 53; i < bytes.size(); ++i) EXPECT_EQ(bytes[i], expected[i]) << i;
  EXPECT_EQ(IngressStreamStatisticsTableEntry::decode(bytes, names), row);
  for (std::size_t i = 53; i < bytes.size(); ++i) {
    if (!expected.contains(i) || expected[i] == 0) continue;
    auto changed = bytes;
    changed[i] = 0;
    EXPECT_NE(IngressStreamStatisticsTableEntry::decode(changed, names), row) << i;
  }
  std::fill(bytes.begin() + 108, bytes.begin() + 172, U8{0xee});
  std::fill(bytes.begin() + 180, bytes.end(), U8{0xee});
  EXPECT_EQ(IngressStreamStatisticsTableEntry::decode(bytes, names), row);
}

TEST(IntfBytes, HoldANameOfSevenBytes) {
  EXPECT_EQ(intfBytesInPlace(Netkit::IntfId("eth1234")), (IntfBytes{'e', 't', 'h', '1', '2', '3', '4', 0}));
  EXPECT_EQ(intfBytesInPlace(Netkit::IntfId()), IntfBytes{});
  EXPECT_FALSE(intfBytesInPlace(Netkit::IntfId("eth12345")));
  EXPECT_FALSE(intfBytesInPlace(Netkit::IntfId(std::string_view("a\0b", 3))));
  EXPECT_EQ(intfInPlace({'e', 't', 'h', '1', '2', '3', '4', 0}), Netkit::IntfId("eth1234"));
  EXPECT_EQ(intfInPlace(IntfBytes{}), Netkit::IntfId());
  EXPECT_FALSE(intfInPlace({'e', 't', 'h', '1', '2', '3', '4', '5'}));
  EXPECT_FALSE(intfInPlace({0, 'x', 0, 0, 0, 0, 0, 0}));
}

TEST(IntfBytes, ALongerNameGoesThroughTheTranslator) {
  Names names;
  EgressStream key = egressStream();
  key.egressIntf = Netkit::IntfId("Ethernet49/1");
  EXPECT_EQ(EgressStream::decode(key.encode(names), names), key);
}

TEST(SonarKeys, RowsThatDifferInTtlOrInterfaceHaveOneStreamId) {
  EgressStream one = egressStream();
  EgressStream other = one;
  other.ttl = 9;
  EXPECT_NE(one, other);
  EXPECT_NE(one.hash(), other.hash());
  EXPECT_EQ(Zeb::egressStreamToStreamId(one), Zeb::egressStreamToStreamId(other));
  other = one;
  other.egressIntf = Netkit::IntfId("eth8");
  EXPECT_NE(one, other);
  EXPECT_NE(one.hash(), other.hash());
  EXPECT_EQ(Zeb::egressStreamToStreamId(one), Zeb::egressStreamToStreamId(other));
  EXPECT_EQ(Zeb::egressStreamToStreamId(one), Zeb::egressStreamToStreamId(ingressStream()));
  other = one;
  other.streamTag = 1;
  EXPECT_NE(Zeb::egressStreamToStreamId(one), Zeb::egressStreamToStreamId(other));
}

TEST(SonarKeys, TheLastByteOfAnIngressKeyIsCompared) {
  IngressStream one = ingressStream();
  IngressStream other = one;
  other.discriminator = 1;
  EXPECT_NE(one, other);
  EXPECT_NE(one.hash(), other.hash());
  EXPECT_NE(one < other, other < one);
}

TEST(SonarKeys, Print) {
  std::ostringstream out;
  out << egressStream();
  EXPECT_EQ(out.str(), "36.35.34.33->18.17.16.15 01:02:03:04:05:06->07:08:09:0a:0b:0c ttl 37 to eth7");
  EXPECT_EQ(ingressStream().stringValue(),
            "36.35.34.33->18.17.16.15 01:02:03:04:05:06->07:08:09:0a:0b:0c ttl 37 from eth9");
}

}  // namespace
}  // namespace Sonar
