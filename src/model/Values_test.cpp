// The identity values: what they hold, how they compare, hash and print, and that texts and bytes read back.
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <sstream>
#include <vector>

#include "model/DevicePair.h"
#include "model/EventValues.h"
#include "model/Netkit.h"
#include "model/ProbeRate.h"
#include "model/ProbeStreamId.h"
#include "model/Strep.h"
#include "model/SystemId.h"
#include "runtime/Exceptions.h"

namespace Zeb {
namespace {

Fabric::SystemId switchId(U8 number) {
  return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, 0, number}));
}

template <class Value>
std::string printed(Value const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

template <class Value>
Value fromText(std::string const& text) {
  return Value(text.data(), text.data() + text.size());
}

template <class Value>
std::string failureOf(std::string const& text) {
  try {
    static_cast<void>(fromText<Value>(text));
  } catch (Rix::DeserializeException const& failure) {
    return failure.what();
  }
  return "read without a failure";
}

// Every two of these values, given in rising order, compare as their places do.
template <class Value>
void expectTotalOrder(std::vector<Value> const& rising) {
  for (std::size_t i = 0; i < rising.size(); ++i) {
    for (std::size_t j = 0; j < rising.size(); ++j) {
      EXPECT_EQ(rising[i] == rising[j], i == j) << i << ' ' << j;
      EXPECT_EQ(rising[i] != rising[j], i != j) << i << ' ' << j;
      EXPECT_EQ(rising[i] < rising[j], i < j) << i << ' ' << j;
      EXPECT_EQ(rising[i] >= rising[j], i >= j) << i << ' ' << j;
    }
  }
}

TEST(EthAddr, TextReadsBack) {
  Netkit::EthAddr address({2, 0, 0x0a, 0xff, 0, 1});
  EXPECT_EQ(address.stringValue(), "02:00:0a:ff:00:01");
  EXPECT_EQ(Netkit::EthAddr::parse("02:00:0a:ff:00:01"), address);
  EXPECT_EQ(Netkit::EthAddr::parse("02:00:0A:FF:00:01"), address);
  for (auto* text : {"", "02:00:0a:ff:00", "02:00:0a:ff:00:01:", "02-00-0a-ff-00-01", "02:00:0a:ff:00:0g",
                     "2:00:0a:ff:00:011", "02:00:0a:ff:00:+1", "02:00:0a:ff:00: 1"}) {
    EXPECT_FALSE(Netkit::EthAddr::parse(text)) << text;
  }
}

TEST(EthAddr, OrdersByItsBytes) {
  expectTotalOrder<Netkit::EthAddr>(
      {Netkit::EthAddr(), Netkit::EthAddr({0, 0, 0, 0, 1, 0}), Netkit::EthAddr({1, 0, 0, 0, 0, 0})});
}

TEST(IpAddr, TextReadsBack) {
  EXPECT_EQ(Netkit::IpAddr(0x0a000102).stringValue(), "10.0.1.2");
  EXPECT_EQ(Netkit::IpAddr::parse("10.0.1.2"), Netkit::IpAddr(0x0a000102));
  EXPECT_EQ(Netkit::IpAddr::parse("0.0.0.0"), Netkit::IpAddr());
  EXPECT_EQ(Netkit::IpAddr::parse("255.255.255.255"), Netkit::IpAddr(0xffffffff));
  EXPECT_EQ(printed(Netkit::IpAddr(0xc0a80001)), "192.168.0.1");
  for (auto* text : {"", "10", "10.0.0", "10.0.0.", "10.0.0.256", "10.0.0.1.", "10.0.0.1.2", "10.0.0.01", "10..0.1",
                     "-1.0.0.0", " 10.0.0.1"}) {
    EXPECT_FALSE(Netkit::IpAddr::parse(text)) << text;
  }
}

TEST(IpAddr, HashKeepsAMeshOfConsecutiveAddressesApart) {
  // 600 x 600 ordered pairs make 180,300 unordered ones, each with a hash of its own in the best case.
  std::set<U32> hashes;
  for (U32 source = 0; source < 600; ++source) {
    for (U32 destination = 0; destination < 600; ++destination) {
      hashes.insert(Netkit::IpAddr(0x0a000000 + source).hash() ^ Netkit::IpAddr(0x0a000000 + destination).hash());
    }
  }
  EXPECT_GT(hashes.size(), 179'000U);
}

TEST(IntfId, IsItsName) {
  Netkit::IntfId eth1("eth1");
  EXPECT_EQ(eth1, Netkit::IntfId(std::string("eth") + "1"));
  EXPECT_EQ(eth1.stringValue(), "eth1");
  EXPECT_EQ(printed(eth1), "eth1");
  EXPECT_NE(eth1, Netkit::IntfId("eth2"));
  EXPECT_TRUE(Netkit::IntfId().isEmpty());
  EXPECT_EQ(Netkit::IntfId(""), Netkit::IntfId());
  EXPECT_EQ(sizeof(Netkit::IntfId), sizeof(void*));
}

TEST(IntfId, OrderAndHashAreThoseOfTheText) {
  // Interned against the order of the texts.
  Netkit::IntfId last("order-z");
  Netkit::IntfId middle("order-m");
  Netkit::IntfId first("order-a");
  expectTotalOrder<Netkit::IntfId>({Netkit::IntfId(), first, middle, last});
  EXPECT_EQ(first.hash(), Rix::hashBytes("order-a", 7));
}

TEST(IntfId, RefusesANameTooLong) {
  EXPECT_NO_THROW(Netkit::IntfId(std::string(255, 'e')));
  EXPECT_THROW(Netkit::IntfId(std::string(256, 'e')), Rix::RangeException);
}

TEST(VlanIdOrNone, ZeroIsNone) {
  EXPECT_TRUE(Bridging::VlanIdOrNone().isNone());
  EXPECT_TRUE(Bridging::vlanNone.isNone());
  EXPECT_FALSE(Bridging::VlanIdOrNone(7).isNone());
  EXPECT_EQ(printed(Bridging::vlanNone) + printed(Bridging::VlanIdOrNone(7)), "none7");
}

TEST(SystemId, FromStringInvertsStringValue) {
  Fabric::SystemId id = switchId(1);
  EXPECT_EQ(id.stringValue(), "02:00:00:00:00:01");
  EXPECT_EQ(Fabric::systemIdFromString(id.stringValue()), id);
  EXPECT_EQ(fromText<Fabric::SystemId>(id.stringValue()), id);
  EXPECT_EQ(printed(id), "02:00:00:00:00:01");
  EXPECT_EQ(Fabric::valueToStrep(id), "'02:00:00:00:00:01'");
}

TEST(SystemId, NoSystemIdGivesTheEmptyOne) {
  for (auto* text : {"", "leaf1", "02:00:00:00:00", "02:00:00:00:00:0A", "02:00:00:00:00:01 "}) {
    EXPECT_TRUE(Fabric::systemIdFromString(text).isEmpty()) << text;
  }
}

TEST(SystemId, EmptyIsAValueOfAField) {
  Fabric::SystemId empty;
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_FALSE(switchId(1).isEmpty());
  EXPECT_LT(empty, switchId(1));
  DevicePair pair(empty, switchId(1));
  EXPECT_NE(pair, DevicePair());
  EXPECT_EQ(fromText<DevicePair>(valueToStrep(pair)), pair);
}

TEST(SystemId, HashIsThatOfItsAddress) {
  EXPECT_EQ(switchId(9).hash(), Netkit::EthAddr({2, 0, 0, 0, 0, 9}).hash());
}

ProbeStreamId::Fields streamFields() {
  ProbeStreamId::Fields fields;
  fields.srcEthAddr = Netkit::EthAddr({2, 0, 0, 0, 0, 1});
  fields.dstEthAddr = Netkit::EthAddr({2, 0, 0, 0, 0, 2});
  fields.vlanId = Bridging::VlanIdOrNone(5);
  fields.dstIp = Netkit::IpAddr(0x0a000002);
  fields.auxIp = Netkit::IpAddr(0x0a000003);
  fields.srcIp = Netkit::IpAddr(0x0a000001);
  fields.ipProto = Netkit::IpProto(17);
  fields.streamPort = 20'000;
  fields.streamTag = 0x12345678;
  return fields;
}

TEST(ProbeStreamId, HashIsTheExclusiveOrOfItsFields) {
  ProbeStreamId::Fields f = streamFields();
  EXPECT_EQ(ProbeStreamId(f).hash(), f.srcEthAddr.hash() ^ f.dstEthAddr.hash() ^ 5U ^ f.dstIp.hash() ^ f.auxIp.hash() ^
                                         f.srcIp.hash() ^ 17U ^ 20'000U ^ 0x12345678U);
  ProbeStreamId::Fields reverse = f;
  std::swap(reverse.srcIp, reverse.dstIp);
  EXPECT_EQ(ProbeStreamId(reverse).hash(), ProbeStreamId(f).hash());
  EXPECT_NE(ProbeStreamId(reverse), ProbeStreamId(f));
  EXPECT_EQ(sizeof(ProbeStreamId), 40U);
}

TEST(ProbeStreamId, EveryFieldIsPartOfTheIdentity) {
  std::vector<std::function<void(ProbeStreamId::Fields&)>> changes = {
      [](auto& f) { f.srcEthAddr = {}; }, [](auto& f) { f.dstEthAddr = {}; }, [](auto& f) { f.vlanId = {}; },
      [](auto& f) { f.dstIp = {}; },      [](auto& f) { f.auxIp = {}; },      [](auto& f) { f.srcIp = {}; },
      [](auto& f) { f.ipProto = {}; },    [](auto& f) { f.streamPort = 0; },  [](auto& f) { f.streamTag = 0; }};
  ProbeStreamId id(streamFields());
  for (auto const& change : changes) {
    ProbeStreamId::Fields fields = streamFields();
    change(fields);
    ProbeStreamId other(fields);
    EXPECT_NE(other, id);
    EXPECT_NE(other.hash(), id.hash());
    EXPECT_NE(other < id, id < other);
  }
}

TEST(ProbeStreamId, TwoThatDifferInAuxIpAreDifferentAndPrintAlike) {
  ProbeStreamId::Fields fields = streamFields();
  ProbeStreamId one(fields);
  fields.auxIp = Netkit::IpAddr(0x0a000004);
  ProbeStreamId other(fields);
  EXPECT_NE(one, other);
  EXPECT_EQ(one.stringValue(), other.stringValue());
  EXPECT_EQ(one.stringValue(), "10.0.0.1->10.0.0.2 02:00:00:00:00:01->02:00:00:00:00:02");
}

// Written out step by step, beside the loop that the code has.
U32 oneAtATime(std::vector<U8> const& bytes) {
  U32 hash = 0;
  for (U8 byte : bytes) {
    hash += byte;
    hash += hash << 10;
    hash ^= hash >> 6;
  }
  hash += hash << 3;
  hash ^= hash >> 11;
  hash += hash << 15;
  return hash;
}

TEST(DevicePair, HashFeedsTheHashesOfBothLowestByteFirst) {
  // "a" of the hash's published test values, so that the reference itself is right.
  EXPECT_EQ(oneAtATime({'a'}), 0xca2e9442U);
  std::vector<U8> bytes;
  for (U32 hash : {switchId(1).hash(), switchId(2).hash()}) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<U8>(hash >> shift));
  }
  EXPECT_EQ(DevicePair(switchId(1), switchId(2)).hash(), oneAtATime(bytes));
}

TEST(DevicePair, ItsReverseIsAnotherKey) {
  DevicePair forth(switchId(1), switchId(2));
  DevicePair back(switchId(2), switchId(1));
  EXPECT_NE(forth, back);
  EXPECT_NE(forth.hash(), back.hash());
  EXPECT_EQ((std::set<DevicePair>{forth, back}.size()), 2U);
  expectTotalOrder<DevicePair>({DevicePair(), forth, back});
}

TEST(DevicePair, TextReadsBack) {
  DevicePair pair(switchId(1), switchId(2));
  EXPECT_EQ(printed(pair), "02:00:00:00:00:01->02:00:00:00:00:02");
  std::string text = valueToStrep(pair);
  EXPECT_EQ(text, "Value('Zeb::DevicePair', ** {'dev1SysId': '02:00:00:00:00:01', 'dev2SysId': '02:00:00:00:00:02'})");
  EXPECT_EQ(fromText<DevicePair>(text), pair);
  EXPECT_EQ(failureOf<DevicePair>(text + "x"), "cannot read attribute 'dev2SysId': expected the end, found \"x\"");
  EXPECT_EQ(failureOf<DevicePair>("Value('Zeb::DevicePair', ** {'dev1SysId': 'leaf1'"),
            "cannot read attribute 'dev1SysId': expected a system id, found \"'leaf1'\"");
}

TEST(EventType, NumbersAndNames) {
  EXPECT_EQ(static_cast<int>(EventType::eventProbesReceived), 6);
  EXPECT_EQ(static_cast<int>(LossRecordType::lossRecordDestDormant), 1);
  EXPECT_EQ(printed(EventType::eventProbesMisordered), "eventProbesMisordered");
  EXPECT_EQ(printed(LossRecordType::lossRecordUnknown), "lossRecordUnknown");
  EXPECT_EQ(printed(static_cast<EventType>(77)), "77");
  EXPECT_EQ(valueToStrep(EventType::eventDormant), "'eventDormant'");
  for (int number = 0; number <= 6; ++number) {
    auto type = static_cast<EventType>(number);
    EventType read{};
    EXPECT_TRUE(sequenceToValue(printed(type), read));
    EXPECT_EQ(read, type);
  }
  EventType kept = EventType::eventDeleted;
  EXPECT_FALSE(sequenceToValue("eventUnheardOf", kept));
  EXPECT_EQ(kept, EventType::eventDeleted);
}

TEST(ZebStreamEvent, TextIsExact) {
  ZebStreamEvent event(12.5, EventType::eventProbesLost, 3, switchId(7), 42);
  std::string text =
      "Value('Zeb::ZebStreamEvent', ** {'timeStamp': 12.5, 'eventType': 'eventProbesLost', 'ttl': 3, "
      "'ingressSwitchId': '02:00:00:00:00:07', 'count': 42})";
  EXPECT_EQ(valueToStrep(event), text);
  EXPECT_EQ(printed(event), text);
  EXPECT_EQ(fromText<ZebStreamEvent>(text), event);
  ZebStreamEvent odd(0.1 + 0.2, EventType::eventNone, 255, {}, 0xffffffff);
  EXPECT_EQ(fromText<ZebStreamEvent>(valueToStrep(odd)), odd);
}

TEST(ZebStreamEvent, ParsingNamesTheAttributeThatFails) {
  std::string text = valueToStrep(ZebStreamEvent(12.5, EventType::eventProbesLost, 3, switchId(7), 42));
  auto with = [&](std::string const& from, std::string const& to) {
    std::string changed = text;
    changed.replace(changed.find(from), from.size(), to);
    return failureOf<ZebStreamEvent>(changed);
  };
  EXPECT_EQ(with("Value(", "value("),
            "cannot read attribute 'timeStamp': expected \"Value('Zeb::ZebStreamEvent', ** {'timeStamp': \", found "
            "\"value('Zeb::ZebStreamEvent', ** {'timeSt\"");
  EXPECT_EQ(with("12.5", "soon").find("cannot read attribute 'timeStamp': expected a number"), 0U);
  EXPECT_EQ(with("12.5", "nan").find("cannot read attribute 'timeStamp': expected a number"), 0U);
  EXPECT_EQ(with("eventProbesLost", "eventX").find("cannot read attribute 'eventType': expected the name"), 0U);
  EXPECT_EQ(with("'ttl': 3", "'ttl': 256").find("cannot read attribute 'ttl': expected a smaller number"), 0U);
  EXPECT_EQ(with(", 'ttl'", " 'ttl'").find("cannot read attribute 'ttl'"), 0U);
  EXPECT_EQ(with("02:00:00:00:00:07", "leaf").find("cannot read attribute 'ingressSwitchId'"), 0U);
  EXPECT_EQ(with("42", "-1").find("cannot read attribute 'count': expected a number"), 0U);
  EXPECT_EQ(with("})", "}"), "cannot read attribute 'count': expected \"})\", found \"}\"");
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_NE(failureOf<ZebStreamEvent>(text.substr(0, length)), "read without a failure") << length;
  }
}

TEST(ZebStreamEvent, OrdersByItsFieldsInTurn) {
  using enum EventType;
  expectTotalOrder<ZebStreamEvent>({ZebStreamEvent(),
                                    {0, eventNone, 0, {}, 1},
                                    {0, eventNone, 0, switchId(1), 0},
                                    {0, eventNone, 1, {}, 0},
                                    {0, eventDormant, 0, {}, 0},
                                    {1, eventNone, 0, {}, 0}});
}

TEST(PairTime, OrdersByPairThenByTime) {
  DevicePair one(switchId(1), switchId(2));
  DevicePair two(switchId(2), switchId(1));
  expectTotalOrder<PairTime>({PairTime(), PairTime(one, 5), PairTime(one, 6), PairTime(two, 1)});
  EXPECT_EQ(PairTime(one, 5).hash(), PairTime(one, 6).hash());
  EXPECT_EQ(PairTime(one, 5).hash(), one.hash());
}

TEST(PairTime, TextReadsBack) {
  PairTime pairTime(DevicePair(switchId(1), switchId(2)), 10.25);
  std::string text = valueToStrep(pairTime);
  EXPECT_EQ(text,
            "Value('Zeb::PairTime', ** {'devicePair': " + valueToStrep(pairTime.devicePair()) + ", 'time': 10.25})");
  EXPECT_EQ(fromText<PairTime>(text), pairTime);
  EXPECT_EQ(
      failureOf<PairTime>("Value('Zeb::PairTime', ** {'devicePair': 7").find("cannot read attribute 'devicePair'"), 0U);
  EXPECT_EQ(failureOf<PairTime>(text + " ").find("cannot read attribute 'time'"), 0U);
}

TEST(ProbeStreamEventRecord, ComparesByAllItsFields) {
  ProbeStreamEventRecord record;
  ProbeStreamEventRecord other = record;
  EXPECT_EQ(record, other);
  other.count = 1;
  EXPECT_LT(record, other);
  record.timeStamp = 1;
  EXPECT_GT(record, other);
}

TEST(ProbeRate, ComparesByAllItsFields) {
  EXPECT_EQ((ZebProbeRate{10, 1}), (ZebProbeRate{10, 1}));
  EXPECT_NE((ZebProbeRate{10, 1}), ZebProbeRate());
  EXPECT_NE((Sonar::ProbeRate{10, 1, 0}), (Sonar::ProbeRate{10, 1, 1}));
  EXPECT_NE((Sonar::SourcePortConfig{2, 0, 0, 0}), (Sonar::SourcePortConfig{0, 1, 0, 0}));
}

TEST(DeviceInfo, ComparesByAllItsFields) {
  DeviceInfo info{Netkit::IpAddr(1), "leaf1", Netkit::IntfId("eth1")};
  expectTotalOrder<DeviceInfo>(
      {DeviceInfo(), info, {Netkit::IpAddr(1), "leaf2", {}}, {Netkit::IpAddr(2), "leaf1", {}}});
}

TEST(Strep, QuotesWhatWouldEndTheText) {
  EXPECT_EQ(Rix::valueToStrep("it's \\ so"), "'it\\'s \\\\ so'");
  std::string quoted = Rix::valueToStrep("it's \\ so");
  EXPECT_EQ(Rix::StrepReader(quoted.data(), quoted.data() + quoted.size()).quoted(), "it's \\ so");
  EXPECT_EQ(Rix::valueToStrep(0.1), "0.1");
  EXPECT_EQ(Rix::valueToStrep(U8{7}), "7");
}

}  // namespace
}  // namespace Zeb
