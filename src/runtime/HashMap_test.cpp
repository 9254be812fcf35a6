// The map against a plain model and at its edges: its size, its order, and sweeps during which it changes.
#include "runtime/HashMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <vector>

#include "runtime/Collections.h"

namespace Rix {
namespace {

// A key that brings its hash along, so that tests choose which keys collide.
struct TestKey {
  U32 number = 0;
  U32 chosenHash = 0;
  U32 hash() const { return chosenHash; }
  friend bool operator==(TestKey const&, TestKey const&) = default;
};

struct Record : PtrInterface {
  explicit Record(TestKey k) : key(k) { ++alive; }
  ~Record() override {
    --alive;
    if (atEnd) atEnd();
  }
  TestKey key;
  std::function<void()> atEnd;
  static inline int alive = 0;
};

struct KeyOf {
  TestKey const& operator()(Record const& record) const { return record.key; }
};
using Map = HashMap<KeyOf, TestKey, Ptr<Record>>;

TestKey keyOf(U32 number) {
  return {number, mixHash(number + 1)};
}
void add(Map& map, TestKey key) {
  map.insert(make<Record>(key));
}

std::vector<U32> numbers(Map const& map) {
  std::vector<U32> found;
  for (auto&& record : map) found.push_back(record->key.number);
  return found;
}

// The stated order: by reversed hash, ties as they came.
std::vector<U32> inOrder(std::vector<TestKey> keys) {
  std::stable_sort(keys.begin(), keys.end(),
                   [](TestKey a, TestKey b) { return bitReverse(a.chosenHash) < bitReverse(b.chosenHash); });
  std::vector<U32> result;
  for (TestKey key : keys) result.push_back(key.number);
  return result;
}

TEST(HashMap, IsEightBytesAndHoldsNoMemoryForNoneOrOneMember) {
  static_assert(sizeof(Map) == 8);
  Map map;
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.tableBytes(), 0U);
  add(map, keyOf(1));
  EXPECT_EQ(map.size(), 1U);
  EXPECT_EQ(map.tableBytes(), 0U);
  for (U32 i = 2; i <= 8; ++i) add(map, keyOf(i));
  EXPECT_LE(map.tableBytes(), 128U);
  for (U32 i = 2; i <= 8; ++i) map.erase(keyOf(i));
  EXPECT_EQ(map.tableBytes(), 0U);
  EXPECT_NE(map.find(keyOf(1)), nullptr);
  EXPECT_TRUE(map.erase(keyOf(1)));
  EXPECT_TRUE(map.empty());
}

TEST(HashMap, HoldsAtMostTwentyBytesAMemberAtEverySize) {
  Map map;
  for (U32 i = 0; i < 200'000; ++i) {
    add(map, keyOf(i));
    if (i >= 100) {
      ASSERT_LE(map.tableBytes(), std::size_t{i + 1} * 20) << i;
    }
  }
  for (U32 i = 0; i < 200'000; ++i) {
    map.erase(keyOf(i));
    ASSERT_LE(map.tableBytes(), std::size_t{map.size()} * 60 + 400) << i;
  }
}

// A million took minutes while members that came in order piled up, which the time that a test may take would not hold.
TEST(HashMap, IsFilledAndEmptiedInItsOwnOrderAsFastAsInAnyOther) {
  constexpr U32 members = 1'000'000;
  Rix::ValueMap<U64, U32> any;
  for (U32 i = 0; i < members; ++i) any.is(U64{Rix::mixHash(i)}, i, [](U64) {});
  Rix::ValueMap<U64, U32> filled;
  for (auto const& entry : any) filled.is(entry.key, entry.value, [](U64) {});
  EXPECT_EQ(filled.size(), members);
  filled.delAll([](U64) {});
  EXPECT_EQ(filled.size(), 0U);
}

TEST(HashMap, HoldsLittleMoreWhenItIsFilledInItsOwnOrder) {
  std::vector<TestKey> keys;
  for (U32 i = 0; i < 200'000; ++i) keys.push_back(keyOf(i));
  std::sort(keys.begin(), keys.end(),
            [](TestKey a, TestKey b) { return bitReverse(a.chosenHash) < bitReverse(b.chosenHash); });
  Map map;
  for (TestKey key : keys) add(map, key);
  EXPECT_LE(map.tableBytes(), std::size_t{map.size()} * 24);
  for (U32 hash : {0U, 8U, 0xffffffffU}) {
    Map equals;
    for (U32 i = 0; i < 2'000; ++i) add(equals, {i, hash});
    EXPECT_LE(equals.tableBytes(), std::size_t{equals.size()} * 32) << hash;
  }
}

TEST(HashMap, FindsByKeyAndByHash) {
  Map map;
  for (U32 i = 0; i < 1'000; ++i) add(map, keyOf(i));
  for (U32 i = 0; i < 1'000; ++i) {
    ASSERT_NE(map.find(keyOf(i)), nullptr);
    EXPECT_EQ(map.find(keyOf(i), keyOf(i).hash())->key.number, i);
    map.prefetch(keyOf(i).hash());
    map.prefetchMember(keyOf(i).hash());
  }
  EXPECT_EQ(map.find(keyOf(1'000)), nullptr);
  EXPECT_FALSE(map.erase(keyOf(1'000)));
  TestKey sameHash{7'777, keyOf(5).hash()};
  EXPECT_EQ(map.find(sameHash), nullptr);
}

TEST(HashMap, FindOrCreateMakesOnlyWhatIsMissing) {
  Map map;
  int made = 0;
  auto make5 = [&] {
    ++made;
    return make<Record>(keyOf(5));
  };
  Record* first = map.findOrCreate(keyOf(5), make5);
  EXPECT_EQ(map.findOrCreate(keyOf(5), make5), first);
  EXPECT_EQ(made, 1);
}

TEST(HashMap, CountsReferencesAndDropsThem) {
  int before = Record::alive;
  Ptr<Record> kept = make<Record>(keyOf(1));
  {
    Map map;
    map.insert(kept);
    EXPECT_EQ(kept->references(), 2U);
    for (U32 i = 2; i < 50; ++i) add(map, keyOf(i));
    EXPECT_EQ(Record::alive, before + 49);
    map.erase(keyOf(7));
    EXPECT_EQ(Record::alive, before + 48);
    Ptr<Record> other = make<Record>(keyOf(1));
    EXPECT_TRUE(map.replace(other));
    EXPECT_EQ(kept->references(), 1U);
    EXPECT_EQ(map.find(keyOf(1)), other.get());
    EXPECT_FALSE(map.replace(make<Record>(keyOf(99))));
    map.clear();
    EXPECT_EQ(Record::alive, before + 2);
    add(map, keyOf(3));
  }
  EXPECT_EQ(Record::alive, before + 1);
}

TEST(HashMap, OrderIsThatOfReversedHashesWhateverTheSizeAndTheHistory) {
  std::vector<TestKey> keys;
  Map grown;
  for (U32 i = 0; i < 3'000; ++i) {
    keys.push_back(keyOf(i));
    add(grown, keys.back());
    if (i < 40 || i % 333 == 0) {
      EXPECT_EQ(numbers(grown), inOrder(keys)) << i;
    }
  }
  // The same members, come in the reverse order, through a table that was far larger.
  Map shrunk;
  for (U32 i = 60'000; i-- > 0;) add(shrunk, keyOf(i));
  for (U32 i = 3'000; i < 60'000; ++i) shrunk.erase(keyOf(i));
  EXPECT_EQ(numbers(shrunk), numbers(grown));
}

TEST(HashMap, EqualHashesKeepTheOrderInWhichTheyCame) {
  for (U32 hash : {0U, 1U, 0x12345678U, 0xffffffffU}) {
    Map map;
    std::vector<TestKey> keys;
    for (U32 i = 0; i < 5'000; ++i) {
      keys.push_back({i, hash});
      add(map, keys.back());
    }
    for (U32 i = 0; i < 1'000; ++i) {
      keys.push_back(keyOf(10'000 + i));
      add(map, keys.back());
    }
    EXPECT_EQ(numbers(map), inOrder(keys));
    EXPECT_EQ(map.find({4'999, hash})->key.number, 4'999U);
    for (U32 i = 0; i < 5'000; i += 2) EXPECT_TRUE(map.erase({i, hash}));
    std::erase_if(keys, [](TestKey key) { return key.number < 5'000 && key.number % 2 == 0; });
    EXPECT_EQ(numbers(map), inOrder(keys));
  }
}

TEST(HashMap, HashesThatCrowdAtTheEndAreFoundThroughEveryGrowth) {
  Map map;
  std::vector<TestKey> keys;
  for (U32 i = 0; i < 4'000; ++i) {
    keys.push_back({i, bitReverse(0xffffffffU - i % 50)});
    add(map, keys.back());
  }
  for (TestKey key : keys) ASSERT_NE(map.find(key), nullptr) << key.number;
  EXPECT_EQ(numbers(map), inOrder(keys));
}

TEST(HashMap, ASecondMemberOfOneKeyIsAnAssertion) {
  Map map;
  add(map, keyOf(1));
  EXPECT_DEATH(add(map, keyOf(1)), "!find\\(key, hash\\)");
}

TEST(HashMapSweep, TheMemberItStandsOnMayBeDeletedThroughTheCursor) {
  for (U32 count : {1U, 2U, 8U, 9U, 500U}) {
    Map map;
    for (U32 i = 0; i < count; ++i) add(map, keyOf(i));
    std::set<U32> seen;
    for (auto cursor = map.begin(); cursor != map.end(); ++cursor) {
      EXPECT_TRUE(seen.insert((*cursor)->key.number).second);
      EXPECT_TRUE(map.del(cursor));
      EXPECT_FALSE(map.del(cursor));
    }
    EXPECT_EQ(seen.size(), count);
    EXPECT_TRUE(map.empty());
  }
}

TEST(HashMapSweep, KeepsTheMemberItStandsOnAlive) {
  Map map;
  for (U32 i = 0; i < 20; ++i) add(map, keyOf(i));
  for (auto&& record : map) {
    U32 number = record->key.number;
    map.clear();
    EXPECT_EQ(record->key.number, number);
    EXPECT_EQ(record->references(), 1U);
  }
}

TEST(HashMapSweep, EndsWhenTheMapIsCleared) {
  Map map;
  for (U32 i = 0; i < 100; ++i) add(map, keyOf(i));
  int visits = 0;
  for (auto&& record : map) {
    static_cast<void>(record);
    if (++visits == 10) map.clear();
  }
  EXPECT_EQ(visits, 10);
}

TEST(HashMapSweep, EndsWhenTheMapIsDestroyed) {
  for (U32 count : {1U, 5U, 100U}) {
    auto map = std::make_unique<Map>();
    for (U32 i = 0; i < count; ++i) add(*map, keyOf(i));
    int visits = 0;
    for (auto&& record : *map) {
      static_cast<void>(record);
      ++visits;
      map.reset();
    }
    EXPECT_EQ(visits, 1);
  }
}

TEST(HashMapSweep, GoesOnWhileTheMapGrowsFromOneMemberToATable) {
  Map map;
  std::vector<U32> order;
  std::vector<TestKey> keys;
  for (U32 i = 0; i < 400; ++i) keys.push_back(keyOf(i));
  std::vector<U32> const expected = inOrder(keys);
  add(map, keyOf(expected.front()));
  for (auto&& record : map) {
    order.push_back(record->key.number);
    if (order.size() > 1) continue;
    for (TestKey key : keys) {
      if (key.number != expected.front()) add(map, key);
    }
  }
  EXPECT_EQ(order, expected);
}

TEST(HashMapSweep, AMemberThatIsMadeAgainAtEachVisitIsVisitedOnce) {
  for (U32 count : {1U, 3U, 30U}) {
    Map map;
    for (U32 i = 0; i < count; ++i) add(map, {i, 5});
    U32 visits = 0;
    for (auto&& record : map) {
      TestKey key = record->key;
      ASSERT_LE(++visits, count);
      map.erase(key);
      add(map, key);
    }
    EXPECT_EQ(visits, count);
  }
}

TEST(HashMapSweep, TheDestructorOfAMemberMayChangeTheMap) {
  Map map;
  for (U32 i = 0; i < 50; ++i) {
    auto record = make<Record>(keyOf(i));
    if (i % 2 == 0) record->atEnd = [&map, i] { map.erase(keyOf(i + 1)); };
    map.insert(record);
  }
  for (auto cursor = map.begin(); cursor != map.end(); ++cursor) map.del(cursor);
  EXPECT_TRUE(map.empty());
}

// Random changes, with sweeps nested in one another, beside a plain sorted list. Each sweep keeps what it must still
// visit: what was there when it began and what came behind its place, less what has been taken out.
class Model {
 public:
  Model(U32 seed, U32 hashes, U32 keys) : random_(seed), hashes_(hashes), keys_(keys) {}

  void run(int steps) {
    for (int i = 0; i < steps; ++i) {
      change();
      if (random_() % 8 == 0) sweep(0);
      if (random_() % 16 == 0) check();
    }
    check();
  }

 private:
  struct Expected {
    TestKey key;
    U32 serial;
    std::pair<U32, U32> order() const { return {bitReverse(key.chosenHash), serial}; }
  };
  struct Sweep {
    std::set<std::pair<U32, U32>> due;
    std::optional<U32> reversed;  // where it stands
  };

  TestKey randomKey() {
    U32 number = static_cast<U32>(random_() % keys_);
    // Few hashes collide by the dozen; the ends of the range are among them.
    if (hashes_ == 0) return keyOf(number);
    U32 choice = number % hashes_;
    return {number, choice == 0 ? 0U : choice == 1 ? 0xffffffffU : bitReverse(choice * 0x1000U)};
  }

  void change() {
    TestKey key = randomKey();
    auto found = std::find_if(expected_.begin(), expected_.end(), [&](auto& e) { return e.second.key == key; });
    U64 choice = random_() % 100;
    if (choice == 0) {
      map_.clear();
      expected_.clear();
      for (Sweep* sweep : sweeps_) sweep->due.clear();
    } else if (found != expected_.end()) {
      if (choice < 60 || growing_) return;
      for (Sweep* sweep : sweeps_) sweep->due.erase(found->first);
      expected_.erase(found);
      ASSERT_TRUE(map_.erase(key));
    } else {
      Expected added{key, serial_++};
      expected_.emplace(added.order(), added);
      serials_[key.number] = added.serial;
      for (Sweep* sweep : sweeps_) {
        if (!sweep->reversed || added.order().first > *sweep->reversed) sweep->due.insert(added.order());
      }
      add(map_, key);
    }
    if (random_() % 200 == 0) growing_ = !growing_;
  }

  void sweep(int depth) {
    Sweep sweep;
    for (auto& [order, expected] : expected_) sweep.due.insert(order);
    sweeps_.push_back(&sweep);
    for (auto cursor = map_.begin(); cursor != map_.end(); ++cursor) {
      TestKey key = (*cursor)->key;
      std::pair<U32, U32> order{bitReverse(key.chosenHash), serials_.at(key.number)};
      // What is due is due in order, and nothing else is visited.
      ASSERT_FALSE(sweep.due.empty());
      ASSERT_EQ(*sweep.due.begin(), order);
      sweep.due.erase(order);
      sweep.reversed = order.first;
      for (U64 changes = random_() % 3; changes > 0; --changes) change();
      if (depth < 3 && random_() % 40 == 0) this->sweep(depth + 1);
      if (testing::Test::HasFatalFailure()) return;
      if (random_() % 6 == 0 && map_.del(cursor)) {
        for (Sweep* other : sweeps_) other->due.erase(order);
        expected_.erase(order);
      }
    }
    ASSERT_TRUE(sweep.due.empty());
    sweeps_.pop_back();
  }

  void check() {
    std::vector<U32> order;
    for (auto& [place, expected] : expected_) order.push_back(expected.key.number);
    ASSERT_EQ(numbers(map_), order);
    ASSERT_EQ(map_.size(), order.size());
    for (U32 i = 0; i < 20; ++i) {
      TestKey key = randomKey();
      bool isThere = std::any_of(expected_.begin(), expected_.end(), [&](auto& e) { return e.second.key == key; });
      ASSERT_EQ(map_.find(key) != nullptr, isThere);
    }
  }

  std::mt19937_64 random_;
  U32 hashes_;
  U32 keys_;
  bool growing_ = false;
  U32 serial_ = 0;
  Map map_;
  std::map<std::pair<U32, U32>, Expected> expected_;
  std::map<U32, U32> serials_;
  std::vector<Sweep*> sweeps_;
};

class HashMapModel : public testing::TestWithParam<std::pair<U32, U32>> {};

TEST_P(HashMapModel, AgreesThroughRandomChangesAndNestedSweeps) {
  auto [hashes, keys] = GetParam();
  for (U32 seed = 1; seed <= 12; ++seed) {
    Model(seed, hashes, keys).run(2'000);
    ASSERT_FALSE(HasFatalFailure()) << "seed " << seed;
  }
}

// (number of different hashes, zero for as many as keys; number of keys)
INSTANTIATE_TEST_SUITE_P(Hashes, HashMapModel,
                         testing::Values(std::pair{0U, 4U}, std::pair{0U, 20U}, std::pair{0U, 150U}, std::pair{1U, 10U},
                                         std::pair{2U, 40U}, std::pair{5U, 60U}, std::pair{40U, 300U}));

struct Entry {
  U32 key;
  std::unique_ptr<int> value;
};
struct KeyOfEntry {
  U32 operator()(Entry const& entry) const { return entry.key; }
};

TEST(HashMapOfValues, KeepsEachEntryWhereItIs) {
  HashMap<KeyOfEntry, U32, Entry> map;
  Entry* first = map.insert({7, std::make_unique<int>(70)});
  for (U32 key = 8; key < 2'000; ++key) map.insert({key, std::make_unique<int>(static_cast<int>(key))});
  EXPECT_EQ(map.find(7), first);
  EXPECT_EQ(*first->value, 70);
  for (Entry& entry : map) *entry.value += 1;
  EXPECT_EQ(*map.find(1'999)->value, 2'000);
  EXPECT_TRUE(map.erase(7));
  EXPECT_EQ(map.find(7), nullptr);
  EXPECT_EQ(map.size(), 1'992U);
}

TEST(HashMapOfValues, AnIntegerIsItsOwnHash) {
  HashMap<KeyOfEntry, U32, Entry> map;
  for (U32 key : {1U, 2U, 3U, 4U}) map.insert({key, nullptr});
  std::vector<U32> order;
  for (Entry& entry : map) order.push_back(entry.key);
  EXPECT_EQ(order, (std::vector<U32>{4, 2, 1, 3}));
}

}  // namespace
}  // namespace Rix
