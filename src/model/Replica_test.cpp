// The attribute log and the replica on their own: what a reader of a replica sees, beside what one of the writer's own
// tree sees.
#include "runtime/Replica.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "model/gen/Config.h"
#include "model/gen/ProbeStream.h"
#include "runtime/AttributeLog.h"
#include "runtime/Json.h"
#include "runtime/Reactor.h"
#include "runtime/Type.h"

namespace {

using Rix::Entity;
using Rix::Field;
using Rix::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

// A reader of any tree that notes every deletion that it is told of, by its path, in order.
class DeletionReader {
 public:
  explicit DeletionReader(Ptr<Entity> const& root) { rootIs(root); }
  void rootIs(Ptr<Entity> const& root) { root_ = root ? std::make_unique<Node>(*this, *root, "") : nullptr; }
  std::vector<std::string> take() { return std::exchange(seen_, {}); }

 private:
  struct Node final : Rix::ObserverSink {
    Node(DeletionReader& r, Entity& e, std::string p)
        : reader(r), entity(e), path(std::move(p)), record(Rix::recordOf(e)), observer(record.observe(e, *this)) {
      for (auto const& field : record.fields()) {
        if (!field->ownsEntities()) continue;
        for (auto const& member : field->members(entity)) {
          Rix::ByteWriter key;
          if (field->kind() == Rix::AttributeKind::entities) field->child().fields()[0]->encode(*member, key);
          come(*field, std::string(key.view()), *member);
        }
      }
    }
    void changed(unsigned index) override {
      if (record.fields()[index]->kind() == Rix::AttributeKind::owned) member(*record.fields()[index], {});
    }
    void changed(unsigned index, std::string_view key) override {
      Field const& field = *record.fields()[index];
      if (field.kind() == Rix::AttributeKind::entities) return member(field, std::string(key));
      if (!field.hasKey(entity, key)) reader.seen_.push_back(pathOf(field, std::string(key)));
    }
    void member(Field const& field, std::string const& key) {
      Entity* const now = field.member(entity, key);
      auto const known = children.find(pathOf(field, key));
      if (known != children.end() && (!now || &known->second->entity != now)) {
        reader.seen_.push_back(known->first);
        children.erase(known);
      }
      if (now) come(field, key, *now);
    }
    void come(Field const& field, std::string const& key, Entity& child) {
      std::string const where = pathOf(field, key);
      if (!children.contains(where)) children[where] = std::make_unique<Node>(reader, child, where);
    }
    std::string pathOf(Field const& field, std::string const& key) const {
      std::string text = path + "/" + std::string(field.name());
      for (char const c : key) text += ":" + std::to_string(static_cast<U8>(c));
      return text;
    }

    DeletionReader& reader;
    Entity& entity;
    std::string const path;
    Rix::Record const& record;
    std::map<std::string, std::unique_ptr<Node>> children;
    std::unique_ptr<Rix::Observer> observer;
  };

  std::vector<std::string> seen_;
  std::unique_ptr<Node> root_;
};

// Every record of a tree by its path.
void walk(Ptr<Entity> const& entity, std::string const& path, std::map<std::string, Ptr<Entity>>& all) {
  all[path] = entity;
  for (auto const& field : Rix::recordOf(*entity).fields()) {
    if (!field->ownsEntities()) continue;
    for (auto const& member : field->members(*entity)) {
      Rix::ByteWriter key;
      if (field->kind() == Rix::AttributeKind::entities) field->child().fields()[0]->encode(*member, key);
      std::string where = path + "/" + std::string(field->name());
      for (char const c : key.view()) where += ":" + std::to_string(static_cast<U8>(c));
      walk(member, where, all);
    }
  }
}
std::map<std::string, Ptr<Entity>> walk(Ptr<Entity> const& root) {
  std::map<std::string, Ptr<Entity>> all;
  if (root) walk(root, "", all);
  return all;
}

// A writer's tree, its log, and a replica of it, with a reader on each.
template <class T>
struct Pair {
  Pair() : local(Rix::make<T>()), log(local), localReader(local) { sync(); }

  void sync() {
    if (log.recording()) {
      if (log.hasChanges()) replica.delta(log.flush());
    } else {
      replica.snapshot(log.snapshot(), true);
    }
  }
  T& here() { return *local; }
  T& there() { return static_cast<T&>(*replica.root()); }
  void expectEqual() { EXPECT_EQ(Rix::jsonText(*local), Rix::jsonText(*replica.root())); }
  void forget() {
    localReader.take();
    reader.take();
  }

  Ptr<T> local;
  Rix::AttributeLog log;
  DeletionReader localReader;
  DeletionReader reader{nullptr};
  Rix::Replica replica{*T::rixType().record(), Rix::Replica::NewWriter::patches,
                       [this](Ptr<Entity> const& root) { reader.rootIs(root); }};
};

using Orders = Pair<Zeb::ZebSonarConfigV1>;
using Status = Pair<Zeb::ZebSonarStatusV1>;

Zeb::ProbeStreamId stream(U32 number) {
  Zeb::ProbeStreamId::Fields fields;
  fields.srcIp = Netkit::IpAddr(0x0a000001);
  fields.dstIp = Netkit::IpAddr(number);
  return Zeb::ProbeStreamId(fields);
}

TEST(AttributeLog, ADeletionAndARecreationWithinOneTurnAreTwoStepsWithTwoObjects) {
  Orders pair;
  pair.here().transmitterIs("p1:a")->portIs(7, true);
  pair.sync();
  Ptr<Entity> const before(pair.there().transmitter("p1:a"));
  pair.forget();
  pair.here().transmitterDel("p1:a");
  pair.here().transmitterIs("p1:a")->portIs(8, true);
  pair.sync();
  EXPECT_NE(before.get(), pair.there().transmitter("p1:a"));
  EXPECT_EQ(pair.reader.take(), pair.localReader.take());
  EXPECT_TRUE(Rix::dynamicCast<Zeb::ZebTransmitterConfig>(before)->port(7)) << "the old object keeps its content";
  pair.expectEqual();
}

TEST(AttributeLog, AStreamsLastTtlAndTheStreamItselfGoInTwoSteps) {
  Status pair;
  auto& table = *pair.here().probeStreamTable();
  table.streamRecordIs(stream(1))->egressRecordIs(3)->egressStatsIs()->numProbesTxIs(5);
  pair.sync();
  pair.forget();
  table.streamRecord(stream(1))->egressRecordDel(3);
  table.streamRecordDel(stream(1));
  pair.sync();
  auto const seen = pair.reader.take();
  EXPECT_EQ(seen, pair.localReader.take());
  EXPECT_EQ(seen.size(), 2U);
  pair.expectEqual();
}

TEST(AttributeLog, ARateDeletedAndRewrittenInOneTurnIsSeenToGo) {
  Orders pair;
  pair.here().transmitterIs("p1:a")->hopsRateIs(1, {10, 1});
  pair.sync();
  pair.forget();
  pair.here().transmitter("p1:a")->hopsRateDelAll();
  pair.here().transmitter("p1:a")->hopsRateIs(1, {20, 1});
  pair.sync();
  auto const seen = pair.reader.take();
  EXPECT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen, pair.localReader.take());
  pair.expectEqual();
}

TEST(AttributeLog, ARateRewrittenWhileDisconnectedIsSeenToGo) {
  Orders pair;
  pair.here().transmitterIs("p1:a")->hopsRateIs(1, {10, 1});
  pair.here().transmitter("p1:a")->hopsRateIs(2, {10, 1});
  pair.sync();
  Ptr<Entity> const before(pair.there().transmitter("p1:a"));
  pair.forget();
  pair.log.stop();
  pair.here().transmitter("p1:a")->hopsRateDelAll();
  pair.here().transmitter("p1:a")->hopsRateIs(1, {20, 1});
  pair.here().transmitter("p1:a")->hopsRateIs(2, {10, 1});
  pair.sync();
  EXPECT_THAT(pair.reader.take(), ElementsAre("/transmitter:4:112:49:58:97/hopsRate:1:0"));
  EXPECT_EQ(before.get(), pair.there().transmitter("p1:a"));
  pair.expectEqual();
}

TEST(AttributeLog, AStreamThatWasAnotherOneWhileDisconnectedIsSeenToGoWithItsTtlsFirst) {
  Status pair;
  auto& table = *pair.here().probeStreamTable();
  table.streamRecordIs(stream(1))->egressRecordIs(3)->egressStatsIs()->numProbesTxIs(5);
  table.streamRecordIs(stream(2))->egressRecordIs(3);
  pair.sync();
  Ptr<Entity> const kept(pair.there().probeStreamTable()->streamRecord(stream(2)));
  pair.forget();
  pair.log.stop();
  table.streamRecord(stream(1))->egressRecordDel(3);
  table.streamRecordDel(stream(1));
  table.streamRecordIs(stream(1))->egressRecordIs(4);
  pair.sync();
  EXPECT_EQ(pair.reader.take(), pair.localReader.take());
  EXPECT_EQ(kept.get(), pair.there().probeStreamTable()->streamRecord(stream(2)));
  pair.expectEqual();
}

// A watcher of one directory level that takes note of what it finds in a new child.
struct CompleteSm : Rix::Reactor<CompleteSm> {
  struct RixTable : Rix::Watch<RixTable, Zeb::ClientProbeStreamTable const, CompleteSm> {
    using Watch::Watch;
    void onStreamRecord(Zeb::ProbeStreamId const& id) override { pass(&CompleteSm::handleStream, id); }
  };
  explicit CompleteSm(Zeb::ClientProbeStreamTable const* table) { table_.notifierIs(table); }
  template <class F>
  void rixParts(F&& f) {
    f(table_);
  }
  void handleStream(Zeb::ProbeStreamId const& id) {
    auto const* record = table_->streamRecord(id);
    found.push_back(record ? Rix::jsonText(*record) : "gone");
  }
  std::vector<std::string> found;
  RixTable table_{this};
};

TEST(AttributeLog, ANewChildIsAnnouncedComplete) {
  Status pair;
  auto reactor = Rix::make<CompleteSm>(pair.there().probeStreamTable());
  auto* record = pair.here().probeStreamTable()->streamRecordIs(stream(1));
  record->probeNameIs("p1:a", true);
  record->ingressRecordIs(2)->ingressStatsIs()->probesReceivedIs(9);
  record->ingressRecord(2)->ingressIntfIs(Netkit::IntfId("Ethernet1/1"));
  pair.sync();
  EXPECT_THAT(reactor->found, ElementsAre(Rix::jsonText(*record)));
}

// The order in which a reader hears of plain attributes.
struct OrderSm : Rix::Reactor<OrderSm> {
  struct RixStats : Rix::Watch<RixStats, Zeb::ProbeStreamIngressStats const, OrderSm> {
    using Watch::Watch;
    void onProbesReceived() override { pass(&OrderSm::hear, 'r'); }
    void onProbesLost() override { pass(&OrderSm::hear, 'l'); }
  };
  struct RixRecord : Rix::Watch<RixRecord, Zeb::ClientProbeStreamIngressRecord const, OrderSm> {
    using Watch::Watch;
    void onDormant() override { pass(&OrderSm::hear, 'd'); }
  };
  explicit OrderSm(Zeb::ClientProbeStreamIngressRecord const* record) {
    record_.notifierIs(record);
    stats_.notifierIs(record->ingressStats());
  }
  template <class F>
  void rixParts(F&& f) {
    f(record_);
    f(stats_);
  }
  void hear(char what) { heard += what; }
  std::string heard;
  RixRecord record_{this};
  RixStats stats_{this};
};

TEST(AttributeLog, WritesCoalesceToTheLastOneAndItsPlace) {
  Status pair;
  auto* record = pair.here().probeStreamTable()->streamRecordIs(stream(1))->ingressRecordIs(2);
  record->ingressStatsIs();
  pair.sync();
  auto reactor = Rix::make<OrderSm>(pair.there().probeStreamTable()->streamRecord(stream(1))->ingressRecord(2));
  record->ingressStats()->probesReceivedIs(1);
  record->dormantIs(true);
  record->ingressStats()->probesLostIs(1);
  for (U64 i = 2; i < 1000; ++i) record->ingressStats()->probesReceivedIs(i);
  EXPECT_EQ(pair.log.changes(), 3U);
  pair.sync();
  EXPECT_EQ(reactor->heard, "dlr");
  pair.expectEqual();
}

TEST(AttributeLog, WhatWasWrittenBeforeADeletionIsToldBeforeIt) {
  Status pair;
  auto* record = pair.here().probeStreamTable()->streamRecordIs(stream(1))->ingressRecordIs(2);
  record->ingressStatsIs();
  pair.sync();
  auto reactor = Rix::make<OrderSm>(pair.there().probeStreamTable()->streamRecord(stream(1))->ingressRecord(2));
  record->ingressStats()->probesReceivedIs(7);
  pair.here().probeStreamTable()->streamRecordDel(stream(1));
  pair.sync();
  EXPECT_EQ(reactor->heard, "r");
  EXPECT_EQ(reactor->stats_->probesReceived(), 7U);
}

TEST(AttributeLog, AChildDeletedBelowANewParentIsSeenToGo) {
  Status pair;
  auto* record = pair.here().probeStreamTable()->streamRecordIs(stream(1));
  record->egressRecordIs(1);
  record->egressRecordIs(2);
  record->egressRecordDel(1);
  record->probeNameIs("p", true);
  record->probeNameDel("p");
  pair.sync();
  auto const seen = pair.reader.take();
  EXPECT_EQ(seen.size(), 2U);
  EXPECT_EQ(seen, pair.localReader.take());
  pair.expectEqual();
}

TEST(AttributeLog, NothingIsNotedWhileNobodyReads) {
  Status pair;
  pair.log.stop();
  for (U32 i = 0; i < 100; ++i) {
    pair.here().probeStreamTable()->streamRecordIs(stream(1))->egressRecordIs(1);
    pair.here().probeStreamTable()->streamRecordDel(stream(1));
  }
  EXPECT_FALSE(pair.log.hasChanges());
  EXPECT_EQ(pair.log.records(), 2U);
}

// A long random history of one tree.
struct RandomHistory {
  explicit RandomHistory(U32 seed) : random(seed) {}
  U32 below(U32 limit) { return static_cast<U32>(random() % limit); }

  void change(Zeb::ZebSonarStatusV1& status) {
    auto& table = *status.probeStreamTable();
    auto const id = stream(below(3));
    auto* record = table.streamRecord(id);
    auto const ttl = static_cast<U8>(below(3));
    switch (below(12)) {
      case 0:
      case 1:
        table.streamRecordIs(id);
        return;
      case 2:
        table.streamRecordDel(id);
        return;
      default:
        break;
    }
    if (!record) return;
    switch (below(9)) {
      case 0:
        record->egressRecordIs(ttl)->egressStatsIs()->numProbesTxIs(below(5));
        break;
      case 1:
        record->egressRecordDel(ttl);
        break;
      case 2:
        record->probeNameIs(below(2) ? "p1:a" : "p2:b", below(2) == 0);
        break;
      case 3:
        record->probeNameDel(below(2) ? "p1:a" : "p2:b");
        break;
      case 4:
        record->ingressRecordIs(ttl);
        break;
      case 5:
        record->ingressRecordDel(ttl);
        break;
      case 6:
        if (auto* ingress = record->ingressRecord(ttl)) ingress->dormantIs(below(2) == 0);
        break;
      case 7:
        if (auto* ingress = record->ingressRecord(ttl)) {
          ingress->ingressStatsIs()->probesReceivedIs(below(9));
          ingress->ingressStats()->epochIs({below(3)});
        }
        break;
      default:
        if (auto* ingress = record->ingressRecord(ttl)) ingress->ingressStatsDel();
    }
  }
  void change(Zeb::ZebSonarConfigV1& orders) {
    Rix::Name const name(below(2) ? "p1:a" : "p2:b");
    auto* order = orders.transmitter(name);
    switch (below(10)) {
      case 0:
      case 1:
        orders.transmitterIs(name);
        return;
      case 2:
        orders.transmitterDel(name);
        return;
      default:
        break;
    }
    if (!order) return;
    auto const hop = static_cast<U16>(below(3));
    switch (below(7)) {
      case 0:
        order->hopsRateDelAll();
        for (U16 h = 0; h < 3; ++h) order->hopsRateIs(h, {static_cast<U16>(1 + below(3)), 1});
        break;
      case 1:
        order->hopsRateDel(hop);
        break;
      case 2:
        if (!order->hopsRateHas(hop)) order->hopsRateIs(hop, {static_cast<U16>(1 + below(3)), 1});
        break;
      case 3:
        order->portIs(hop, below(2) == 0);
        break;
      case 4:
        order->portDel(hop);
        break;
      case 5:
        order->sourceInterfaceIs(Netkit::IntfId(below(2) ? "lo" : "Ethernet1"), true);
        break;
      default:
        order->enabledIs(below(2) == 0);
    }
  }

  std::mt19937 random;
};

// Whether each record of the replica has stood exactly as long as the writer's.
void expectSameLives(std::map<std::string, Ptr<Entity>> const& localBefore,
                     std::map<std::string, Ptr<Entity>> const& replicaBefore,
                     std::map<std::string, Ptr<Entity>> const& local,
                     std::map<std::string, Ptr<Entity>> const& replica) {
  ASSERT_EQ(local.size(), replica.size());
  for (auto const& [path, entity] : local) {
    auto const before = localBefore.find(path);
    bool const stood = before != localBefore.end() && before->second == entity;
    auto const copy = replica.find(path);
    ASSERT_NE(copy, replica.end()) << path;
    auto const copyBefore = replicaBefore.find(path);
    bool const copyStood = copyBefore != replicaBefore.end() && copyBefore->second == copy->second;
    EXPECT_EQ(copyStood, stood) << path;
  }
}

template <class T>
void runRandomHistory(U32 seed) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  Pair<T> pair;
  RandomHistory history(seed);
  for (int turn = 0; turn < 60 && !testing::Test::HasFailure(); ++turn) {
    auto const localBefore = walk(pair.local);
    auto const replicaBefore = walk(pair.replica.root());
    bool const away = history.below(6) == 0;
    if (away) pair.log.stop();
    for (U32 left = history.below(12); left > 0; --left) history.change(pair.here());
    pair.sync();
    pair.expectEqual();
    EXPECT_EQ(pair.log.records(), pair.replica.records());
    auto const local = walk(pair.local);
    expectSameLives(localBefore, replicaBefore, local, walk(pair.replica.root()));
    auto const expected = pair.localReader.take();
    auto const seen = pair.reader.take();
    if (!away) {
      EXPECT_EQ(seen, expected);
      continue;
    }
    // Of what stood before, the local reader has seen exactly that go which the reader of the replica must see go.
    for (std::string const& path : expected) {
      auto const before = localBefore.find(path);
      if (before == localBefore.end()) continue;
      auto const now = local.find(path);
      if (now != local.end() && now->second == before->second) continue;
      // A record's one own part goes with the record, also if it went before.
      std::string const above = path.substr(0, path.rfind('/'));
      bool const own = path.find(':', above.size()) == std::string::npos;
      if (own && (!local.contains(above) || local.at(above) != localBefore.at(above))) continue;
      EXPECT_THAT(seen, testing::Contains(path));
    }
  }
}

TEST(AttributeLog, RandomHistoriesOfStatusLookAlikeFromBothSides) {
  for (U32 seed = 1; seed <= 150; ++seed) runRandomHistory<Zeb::ZebSonarStatusV1>(seed);
}

TEST(AttributeLog, RandomHistoriesOfOrdersLookAlikeFromBothSides) {
  for (U32 seed = 1; seed <= 150; ++seed) runRandomHistory<Zeb::ZebSonarConfigV1>(seed);
}

TEST(Replica, ASnapshotOfANewWriterIsPatchedByKeys) {
  Orders pair;
  pair.here().transmitterIs("p1:a")->hopsRateIs(1, {10, 1});
  pair.here().transmitterIs("p2:b")->portIs(1, true);
  pair.sync();
  Ptr<Entity> const root = pair.replica.root();
  Ptr<Entity> const kept(pair.there().transmitter("p1:a"));
  pair.forget();
  auto other = Rix::make<Zeb::ZebSonarConfigV1>();
  for (int i = 0; i < 5; ++i) {  // serial numbers as they come
    other->transmitterIs("p1:a");
    if (i < 4) other->transmitterDel("p1:a");
  }
  other->transmitter("p1:a")->hopsRateIs(1, {20, 1});
  Rix::AttributeLog log(other);
  pair.replica.snapshot(log.snapshot(), false);
  EXPECT_EQ(Rix::jsonText(*pair.replica.root()), Rix::jsonText(*other));
  EXPECT_EQ(pair.replica.root(), root);
  EXPECT_EQ(kept.get(), pair.there().transmitter("p1:a"));
  EXPECT_THAT(pair.reader.take(),
              testing::UnorderedElementsAre("/transmitter:4:112:50:58:98", "/transmitter:4:112:49:58:97/hopsRate:1:0"));
  other->transmitter("p1:a")->enabledIs(true);
  pair.replica.delta(log.flush());
  EXPECT_EQ(Rix::jsonText(*pair.replica.root()), Rix::jsonText(*other));
}

TEST(Replica, ASnapshotOfANewWriterReplacesTheWholeWhereTheNewOneMayNotKnowAllYet) {
  std::vector<Entity*> roots;
  Rix::Replica replica(*Zeb::ZebSonarStatusV1::rixType().record(), Rix::Replica::NewWriter::replaces,
                       [&](Ptr<Entity> const& root) { roots.push_back(root.get()); });
  auto first = Rix::make<Zeb::ZebSonarStatusV1>();
  first->probeStreamTable()->streamRecordIs(stream(1));
  Rix::AttributeLog log(first);
  replica.snapshot(log.snapshot(), false);
  Ptr<Entity> const before = replica.root();
  DeletionReader reader(before);
  replica.snapshot(log.snapshot(), true);
  EXPECT_EQ(replica.root(), before);
  auto second = Rix::make<Zeb::ZebSonarStatusV1>();
  Rix::AttributeLog other(second);
  replica.snapshot(other.snapshot(), false);
  EXPECT_NE(replica.root(), before);
  EXPECT_THAT(roots, ElementsAre(before.get(), nullptr, replica.root().get()));
  EXPECT_THAT(reader.take(), IsEmpty()) << "the old tree goes as a whole";
}

// --- hostile bytes ---------------------------------------------------------------------------------------------------

class Malformed : public testing::Test {
 protected:
  Malformed() {
    pair.here().transmitterIs("p1:a")->hopsRateIs(1, {10, 1});
    pair.sync();
    before = Rix::jsonText(pair.there());
  }
  // Refused with a text that has `part` in it, and nothing has changed.
  void expectRefused(std::string const& payload, std::string const& part) {
    try {
      pair.replica.delta(payload);
      ADD_FAILURE() << "was taken: " << part;
    } catch (Rix::FrameException const& exception) {
      EXPECT_THAT(exception.what(), testing::HasSubstr(part));
    }
    EXPECT_EQ(Rix::jsonText(pair.there()), before);
  }
  static std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (int const value : values) text.push_back(static_cast<char>(value));
    return text;
  }

  Orders pair;
  std::string before;
};

// Slot 0 is the root, slot 1 the transmitter. Fields of the root: 0 transmitter. Of the transmitter: 0 name, 1 enabled,
// 2 sourceInterface, 3 ipDest, 4 hopsRate, 5 port.
TEST_F(Malformed, DeltasAreRefusedWithWhatWhereAndWhatWasExpected) {
  expectRefused(bytes({1}), "integer at byte 1: expected 1 bytes, found 0 left");
  expectRefused(bytes({0}), "step at byte 0: expected 1 to 6, found 0");
  expectRefused(bytes({7}), "step at byte 0: expected 1 to 6, found 7");
  expectRefused(bytes({2, 1, 1}), "step at byte 0: expected a record to be selected first, found 2");
  expectRefused(bytes({1, 9}), "slot at byte 0: expected one that is in use, found 9");
  expectRefused(bytes({1, 0x81, 0}), "integer at byte 1: expected an integer in its shortest form");
  expectRefused(bytes({1, 0xff, 0xff, 0xff, 0xff, 0x1f}), "integer at byte 1: expected at most 4294967295");
  expectRefused(bytes({1, 1, 2, 6}), "attribute of Zeb::ZebTransmitterConfig at byte 4: expected below 6, found 6");
  expectRefused(bytes({1, 1, 2, 1, 2}), "truth value at byte 5: expected 0 or 1, found 2");
  expectRefused(bytes({1, 1, 2, 0, 1, 'x'}), "step on name");
  expectRefused(bytes({1, 1, 3, 1, 1}), "step on enabled");
  expectRefused(bytes({1, 1, 4, 1}), "step on enabled");
  expectRefused(bytes({1, 1, 5, 5}), "step on port");
  expectRefused(bytes({1, 1, 3, 5, 1}), "integer at byte 4: expected 2 bytes, found 1 left");
  expectRefused(bytes({1, 0, 6}), "slot to remove at byte 2: expected one below the root, found 0");
  expectRefused(bytes({1, 1, 6, 1, 1}), "slot at byte 3: expected one that is in use, found 1");
  expectRefused(bytes({1, 1, 6, 2, 1, 1}), "step at byte 3: expected a record to be selected first");
  // A child whose key is in use, whose slot is, whose slot lies beyond what the frame fills, whose text is cut.
  expectRefused(bytes({1, 0, 5, 0, 2, 9, 4, 'p', '1', ':', 'a', 0, 0, 0, 0, 0}), "key of transmitter");
  expectRefused(bytes({1, 0, 5, 0, 1, 9, 1, 'x', 0, 0, 0, 0, 0}), "slot at byte 4: expected one that is free, found 1");
  expectRefused(bytes({1, 0, 5, 0, 99, 9, 1, 'x', 0, 0, 0, 0, 0}), "slots at byte 13: expected no gap behind 2");
  expectRefused(bytes({1, 0, 5, 0, 2, 9, 5, 'x'}), "name at byte 7: expected 5 bytes, found 1 left");
  expectRefused(bytes({1, 0, 5, 0, 2, 9, 1, 'x', 0, 200}), "number of values");
  // A good step before the bad one is not applied either.
  expectRefused(bytes({1, 1, 2, 1, 1, 1, 9}), "slot at byte 5");
}

TEST_F(Malformed, TwoChildrenOfOneKeyInOneFrameAreRefused) {
  std::string const child = bytes({5, 0, 2, 9, 1, 'x', 0, 0, 0, 0, 0});
  std::string const again = bytes({5, 0, 3, 9, 1, 'x', 0, 0, 0, 0, 0});
  expectRefused(bytes({1, 0}) + child + again, "key of transmitter");
  // With its removal in between it is another one.
  pair.replica.delta(bytes({1, 0}) + child + bytes({1, 2, 6, 1, 0}) + again);
  EXPECT_TRUE(pair.there().transmitter("x"));
  EXPECT_EQ(pair.replica.records(), 3U);
}

TEST_F(Malformed, SnapshotsAreRefusedAsAWhole) {
  std::string const good = pair.log.snapshot();
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_THROW(pair.replica.snapshot(good.substr(0, length), true), Rix::FrameException) << length;
  }
  EXPECT_THROW(pair.replica.snapshot(good + "x", true), Rix::FrameException);
  EXPECT_THROW(pair.replica.snapshot(bytes({1, 1, 0}), true), Rix::FrameException) << "slots count from zero";
  EXPECT_EQ(Rix::jsonText(pair.there()), before);
  pair.replica.snapshot(good, true);
}

TEST_F(Malformed, ADeltaBeforeAnySnapshotIsRefused) {
  Rix::Replica replica(pair.replica.record(), Rix::Replica::NewWriter::patches, [](Ptr<Entity> const&) {});
  EXPECT_THROW(replica.delta(""), Rix::FrameException);
}

TEST(Replica, FlippedBytesNeverDoMoreThanAFrameCan) {
  std::mt19937 random(7);
  Status pair;
  RandomHistory history(3);
  for (int round = 0; round < 400; ++round) {
    for (int i = 0; i < 20; ++i) history.change(pair.here());
    bool const whole = round % 3 == 0;
    std::string payload = whole ? pair.log.snapshot() : pair.log.flush();
    if (payload.empty()) continue;
    for (int flips = 0; flips < 3; ++flips) payload[random() % payload.size()] = static_cast<char>(random());
    auto const before = Rix::jsonText(pair.there());
    try {
      whole ? pair.replica.snapshot(payload, true) : pair.replica.delta(payload);
    } catch (Rix::FrameException const&) {
      EXPECT_EQ(Rix::jsonText(pair.there()), before);
    }
    pair.replica.snapshot(pair.log.snapshot(), true);
    pair.expectEqual();
  }
}

TEST(Json, TellsEveryAttributeByItsName) {
  Zeb::ZebTransmitterConfig order("p1:\"a\"");
  order.hopsRateIs(1, {10, 2});
  order.ipDestIs(Netkit::IpAddr(0x0a000001), true);
  order.sourceInterfaceIs(Netkit::IntfId("lo"), true);
  EXPECT_EQ(
      Rix::jsonText(order),
      R"({"name":"p1:\"a\"","enabled":false,"sourceInterface":{"lo":true},"ipDest":{"10.0.0.1":true},)"
      R"("hopsRate":{"1":")" +
          [&] {
            std::ostringstream text;
            text << order.hopsRate(1);
            return text.str();
          }() +
          R"("},"port":{}})");
}

}  // namespace
