// Writing, reading, walking, following changes, and taking over from a writer that is gone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "runtime/ShelfMemory.h"
#include "runtime/ShelfSample.h"
#include "runtime/Vesta.h"

namespace Shelf {
namespace {

using Sample::Key;
using Row = Sample::Row<5>;
using Reader = Sample::Reader<5>;
using Writer = Sample::Writer<5>;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const RootPath kRoot{"/tables"};
const std::string kPath = "/tables/probes";

Key keyOf(std::uint32_t number) {
  return {"eth" + std::to_string(number % 3), number, 7};
}
Row rowOf(std::uint32_t number, std::uint64_t value) {
  return Row::of(keyOf(number), value);
}

class ShelfTable : public testing::Test {
 protected:
  void SetUp() override {
    Vesta::Platform::debugSinkIs([](std::string_view) {});
  }
  void TearDown() override { Vesta::Platform::debugSinkIs({}); }

  Writer writer(TableSize size = {.capacity = 8, .nameCapacity = 2, .ringSize = 16}) {
    return {storage_, kRoot, "probes", "Sample::Row", size};
  }
  Reader& reader() {
    EXPECT_TRUE(reader_.attached() || reader_.attach());
    return reader_;
  }
  std::map<std::uint32_t, std::uint64_t> walk() {
    std::map<std::uint32_t, std::uint64_t> rows;
    Row row;
    Hint hint = 0;
    for (bool more = reader().first(row, hint); more; more = reader().next(Key(row.key), row, hint)) {
      EXPECT_TRUE(row.whole());
      EXPECT_TRUE(rows.emplace(row.key.number, row.value()).second) << "met twice: " << row.key.number;
    }
    return rows;
  }
  std::vector<std::uint32_t> poll(PollResult* result = nullptr) {
    std::vector<std::uint32_t> numbers;
    const PollResult done = reader().poll([&](const Key& key) { numbers.push_back(key.number); });
    if (result != nullptr) *result = done;
    return numbers;
  }
  std::vector<std::uint64_t> words() const {
    const auto bytes = storage_.file(kPath);
    std::vector<std::uint64_t> words(bytes.size() / 8);
    std::memcpy(words.data(), bytes.data(), bytes.size());
    return words;
  }
  void wordsAre(const std::vector<std::uint64_t>& words) { storage_.fileIs(kPath, std::as_bytes(std::span(words))); }

  MemoryStorage storage_;
  Reader reader_{storage_, kRoot, "probes"};
  const Layout layout_{
      TableShape{Sample::Ops<5>::kKeySize, Sample::Ops<5>::kRowSize, 8, 16, 2, "Sample::Row", "probes"}};
};

TEST_F(ShelfTable, ReadsWhatWasWritten) {
  auto table = writer();
  EXPECT_EQ(table.rowIs(rowOf(1, 100)), WriteResult::kAdded);
  EXPECT_EQ(table.rowIs(rowOf(2, 200)), WriteResult::kAdded);
  EXPECT_EQ(table.rowIs(rowOf(1, 101)), WriteResult::kChanged);
  bool found = false;
  EXPECT_EQ(reader().lookup(keyOf(1), found), rowOf(1, 101));
  EXPECT_TRUE(found);
  EXPECT_EQ(walk(), (std::map<std::uint32_t, std::uint64_t>{{1, 101}, {2, 200}}));
  EXPECT_EQ(reader().members(), 2U);
}

TEST_F(ShelfTable, TellsAnEqualRowApartFromAChange) {
  auto table = writer();
  table.rowIs(rowOf(1, 100));
  const auto before = reader().sequence();
  EXPECT_EQ(table.rowIs(rowOf(1, 100)), WriteResult::kUnchanged);
  EXPECT_EQ(reader().sequence(), before);
}

TEST_F(ShelfTable, GivesTheEmptyRowForAnAbsentKey) {
  auto table = writer();
  table.rowIs(rowOf(1, 100));
  bool found = true;
  EXPECT_EQ(reader().lookup(keyOf(2), found), Row());
  EXPECT_FALSE(found);
  EXPECT_EQ(reader().emptyRow().key, Key());
}

TEST_F(ShelfTable, DescribesItself) {
  auto table = writer();
  EXPECT_EQ(reader().mountStatus(), MountStatus::kMounted);
  EXPECT_EQ(reader().capacity(), 8U);
  EXPECT_EQ(reader().minSize(), 0U);
  EXPECT_EQ(reader().maxSize(), 8U);
  EXPECT_EQ(reader().type(), "Sample::Row");
  EXPECT_EQ(reader().shelfName(), "probes");
  EXPECT_EQ(reader().rootPath().path, "/tables");
}

TEST_F(ShelfTable, RefusesARowWhenFullAndCountsIt) {
  auto table = writer();
  for (std::uint32_t i = 0; i < 8; ++i) EXPECT_EQ(table.rowIs(rowOf(i, i)), WriteResult::kAdded);
  EXPECT_EQ(table.rowIs(rowOf(8, 8)), WriteResult::kRefused);
  EXPECT_EQ(table.rowRefusals(), 1U);
  EXPECT_EQ(table.rowIs(rowOf(3, 33)), WriteResult::kChanged) << "a full table still takes changes";
  EXPECT_TRUE(table.rowDel(keyOf(5)));
  EXPECT_EQ(table.rowIs(rowOf(8, 8)), WriteResult::kAdded);
  EXPECT_THAT(walk(), SizeIs(8));
}

TEST_F(ShelfTable, RemovesAndTakesInAgain) {
  auto table = writer();
  table.rowIs(rowOf(1, 100));
  EXPECT_TRUE(table.rowDel(keyOf(1)));
  EXPECT_FALSE(table.rowDel(keyOf(1)));
  bool found = true;
  reader().lookup(keyOf(1), found);
  EXPECT_FALSE(found);
  EXPECT_THAT(walk(), IsEmpty());
  EXPECT_EQ(table.rowIs(rowOf(1, 500)), WriteResult::kAdded);
  EXPECT_EQ(walk(), (std::map<std::uint32_t, std::uint64_t>{{1, 500}}));
  table.rowDelAll();
  EXPECT_EQ(table.members(), 0U);
}

TEST_F(ShelfTable, WalksOnWithoutAHintAndEndsWhereTheKeyIsGone) {
  auto table = writer();
  for (std::uint32_t i = 0; i < 3; ++i) table.rowIs(rowOf(i, i));
  Row row;
  Hint hint = 0;
  EXPECT_TRUE(reader().next(keyOf(1), row, hint));
  EXPECT_EQ(row.key, keyOf(2));
  hint = 0;
  EXPECT_FALSE(reader().next(keyOf(9), row, hint));
}

TEST_F(ShelfTable, HoldsLikeAMapOverALongRandomRun) {
  auto table = writer({.capacity = 64, .nameCapacity = 0, .ringSize = 64});
  reader().notifying(true);
  std::map<std::uint32_t, std::uint64_t> model;
  std::map<std::uint32_t, std::uint64_t> followed;
  std::mt19937 random(1);  // NOLINT(bugprone-random-generator-seed): the same run each time.
  for (std::uint64_t step = 0; step < 20000; ++step) {
    const auto number = static_cast<std::uint32_t>(random() % 90);
    if (random() % 3 == 0) {
      EXPECT_EQ(table.rowDel(keyOf(number)), model.erase(number) == 1);
    } else if (table.rowIs(rowOf(number, step)) != WriteResult::kRefused) {
      model[number] = step;
    } else {
      EXPECT_EQ(model.size(), 64U);
    }
    if (step % 37 != 0) continue;
    for (const std::uint32_t changed : poll()) {
      bool found = false;
      const Row row = reader().lookup(keyOf(changed), found);
      if (found) {
        followed[changed] = row.value();
      } else {
        followed.erase(changed);
      }
    }
    ASSERT_EQ(followed, model);
    ASSERT_EQ(walk(), model);
  }
}

TEST_F(ShelfTable, KeepsShortNamesInTheRowAndLongOnesInTheirTable) {
  auto table = writer();
  const Key inRow{"Eth1/12", 1, 0};
  const Key inTable{"Ethernet12/1", 1, 0};
  const Key second{"Port-Channel7", 1, 0};
  for (const Key& key : {inRow, inTable, second}) EXPECT_EQ(table.rowIs(Row::of(key, 4)), WriteResult::kAdded);
  for (const Key& key : {inRow, inTable, second}) {
    bool found = false;
    EXPECT_EQ(reader().lookup(key, found).key, key);
    EXPECT_TRUE(found);
  }
  bool found = true;
  reader().lookup({"Ethernet99/9", 1, 0}, found);
  EXPECT_FALSE(found) << "a name that no row can bear";
}

TEST_F(ShelfTable, RefusesANameForWhichThereIsNoRoomAndCountsIt) {
  auto table = writer();
  for (const char* name : {"Ethernet1/1", "Ethernet1/2"}) table.rowIs(Row::of({name, 1, 0}, 1));
  EXPECT_EQ(table.rowIs(Row::of({"Ethernet1/3", 1, 0}, 1)), WriteResult::kRefused);
  EXPECT_EQ(table.rowIs(Row::of({std::string(56, 'x'), 1, 0}, 1)), WriteResult::kRefused);
  EXPECT_EQ(table.nameRefusals(), 2U);
  EXPECT_EQ(table.rowIs(Row::of({"Ethernet1/2", 2, 0}, 1)), WriteResult::kAdded);
}

TEST_F(ShelfTable, SeesANameThatCameAfterTheAttach) {
  auto table = writer();
  bool found = true;
  reader().lookup({"Ethernet1/1", 1, 0}, found);
  EXPECT_FALSE(found);
  table.rowIs(Row::of({"Ethernet1/1", 1, 0}, 1));
  reader().lookup({"Ethernet1/1", 1, 0}, found);
  EXPECT_TRUE(found);
}

TEST_F(ShelfTable, TellsWhichRowsChangedWithoutAWalk) {
  auto table = writer();
  table.rowIs(rowOf(1, 1));
  reader().notifying(true);
  EXPECT_THAT(poll(), IsEmpty()) << "what stood is known";
  table.rowIs(rowOf(2, 2));
  table.rowIs(rowOf(2, 3));
  table.rowIs(rowOf(1, 4));
  PollResult result;
  EXPECT_THAT(poll(&result), ElementsAre(2, 1));
  EXPECT_FALSE(result.overrun);
  EXPECT_THAT(poll(), IsEmpty());
  table.rowDel(keyOf(1));
  EXPECT_THAT(poll(), ElementsAre(1));
}

TEST_F(ShelfTable, TellsTheKeyThatLeftASlotAndTheOneThatTookIt) {
  auto table = writer();
  table.rowIs(rowOf(1, 1));
  reader().notifying(true);
  table.rowDel(keyOf(1));
  table.rowIs(rowOf(2, 2));
  EXPECT_THAT(poll(), ElementsAre(1, 2));
  table.rowDel(keyOf(2));
  table.rowIs(rowOf(3, 3));
  table.rowDel(keyOf(3));
  EXPECT_THAT(poll(), ElementsAre(2)) << "3 came and went unseen";
}

TEST_F(ShelfTable, WalksWhenTheRingWasOverrun) {
  auto table = writer();
  for (std::uint32_t i = 0; i < 6; ++i) table.rowIs(rowOf(i, 0));
  reader().notifying(true);
  table.rowDel(keyOf(4));
  for (std::uint64_t value = 1; value <= 20; ++value) table.rowIs(rowOf(1, value));
  PollResult result;
  EXPECT_THAT(poll(&result), UnorderedElementsAre(0, 1, 2, 3, 4, 5)) << "also the one that is gone";
  EXPECT_TRUE(result.overrun);
  table.rowIs(rowOf(3, 9));
  EXPECT_THAT(poll(&result), ElementsAre(3)) << "then the ring again";
  EXPECT_FALSE(result.overrun);
}

TEST_F(ShelfTable, TellsExactlyARingFullWithoutAWalk) {
  auto table = writer();
  table.rowIs(rowOf(1, 0));
  table.rowIs(rowOf(2, 0));
  reader().notifying(true);
  for (std::uint64_t value = 1; value <= 16; ++value) table.rowIs(rowOf(1, value));
  PollResult result;
  EXPECT_THAT(poll(&result), ElementsAre(1));
  EXPECT_FALSE(result.overrun);
}

TEST_F(ShelfTable, BoundsWhatOnePollLooksAt) {
  auto table = writer();
  reader().notifying(true);
  reader().sampleIs(2);
  for (std::uint32_t i = 0; i < 5; ++i) table.rowIs(rowOf(i, 0));
  PollResult result;
  EXPECT_THAT(poll(&result), ElementsAre(0, 1));
  EXPECT_TRUE(result.more);
  EXPECT_THAT(poll(), ElementsAre(2, 3));
  EXPECT_THAT(poll(&result), ElementsAre(4));
  EXPECT_FALSE(result.more);
  for (std::uint64_t value = 1; value <= 20; ++value) table.rowIs(rowOf(1, value));
  std::set<std::uint32_t> told;
  int polls = 0;
  do {
    for (const std::uint32_t number : poll(&result)) told.insert(number);
    ++polls;
  } while (result.more);
  EXPECT_THAT(told, ElementsAre(0, 1, 2, 3, 4));
  EXPECT_EQ(polls, 3) << "a walk in pieces of two";
}

TEST_F(ShelfTable, LetsACallbackEndTheAttachment) {
  auto table = writer();
  reader().notifying(true);
  for (std::uint32_t i = 0; i < 3; ++i) table.rowIs(rowOf(i, 0));
  int told = 0;
  reader_.poll([&](const Key&) {
    ++told;
    reader_.detach();
  });
  EXPECT_EQ(told, 1);
}

TEST_F(ShelfTable, KeepsRowsAndNamesWhenTheWriterComesBack) {
  const Key named{"Ethernet1/1", 5, 1};
  {
    auto table = writer();
    for (std::uint32_t i = 0; i < 5; ++i) table.rowIs(rowOf(i, i));
    table.rowDel(keyOf(2));
    table.rowIs(Row::of(named, 77));
  }
  reader().notifying(true);
  auto table = writer();
  EXPECT_EQ(table.replacedBecause(), "");
  std::set<std::uint32_t> numbers;
  table.rows([&](const Row& row) { numbers.insert(row.key.number); });
  EXPECT_THAT(numbers, ElementsAre(0, 1, 3, 4, 5));
  EXPECT_EQ(table.members(), 5U);
  PollResult result;
  EXPECT_THAT(poll(&result), SizeIs(5)) << "what the last writer did not come to tell is unknown";
  EXPECT_TRUE(result.overrun);
  EXPECT_EQ(table.rowIs(Row::of(named, 78)), WriteResult::kChanged);
  for (std::uint32_t i = 10; i < 13; ++i) EXPECT_EQ(table.rowIs(rowOf(i, i)), WriteResult::kAdded);
  EXPECT_EQ(table.rowIs(rowOf(13, 13)), WriteResult::kRefused);
  EXPECT_THAT(poll(), SizeIs(4));
}

TEST_F(ShelfTable, HasOneWriter) {
  auto table = writer();
  EXPECT_THROW(writer(), Vesta::StorageException);
}

TEST_F(ShelfTable, MakesTheTableAnewForAnotherShapeAndTellsItsReaders) {
  {
    auto table = writer();
    table.rowIs(rowOf(1, 1));
  }
  reader();
  auto table = writer({.capacity = 16, .nameCapacity = 2, .ringSize = 16});
  EXPECT_EQ(table.replacedBecause(), "it was made for another shape");
  EXPECT_EQ(table.members(), 0U);
  bool found = false;
  try {
    reader().lookup(keyOf(1), found);
    FAIL() << "read on in a table that has no writer any more";
  } catch (const Vesta::CorruptionDetectedException& replaced) {
    EXPECT_STREQ(replaced.what(), "table was replaced by another one");
  }
}

// A writer that was killed: what it leaves is made from the states before and after the operation.

TEST_F(ShelfTable, ReadsTheNewRowOfAWriterKilledInTheMiddleOfIt) {
  std::vector<std::uint64_t> cut;
  {
    auto table = writer();
    table.rowIs(rowOf(1, 100));
    const auto before = words();
    table.rowIs(rowOf(1, 200));
    cut = words();
    const std::size_t at = layout_.slotAt(0);
    for (std::size_t word = Layout::kSum; word < Layout::kRow + 4; ++word) cut[at + word] = before[at + word];
    cut[at] -= 1;
  }
  wordsAre(cut);
  bool found = false;
  EXPECT_EQ(reader().lookup(keyOf(1), found), rowOf(1, 200)) << "from the journal";
  reader_.detach();
  auto table = writer();
  EXPECT_EQ(table.replacedBecause(), "");
  EXPECT_EQ(words()[layout_.slotAt(0)] % 2, 0U);
  table.rowIs(rowOf(2, 1));  // The journal holds another slot now.
  EXPECT_EQ(reader().lookup(keyOf(1), found), rowOf(1, 200));
}

TEST_F(ShelfTable, FinishesAnAdditionThatWasCutOff) {
  std::vector<std::uint64_t> cut;
  {
    auto table = writer();
    table.rowIs(rowOf(0, 1));
    const auto before = words();
    table.rowIs(rowOf(1, 2));
    cut = words();
    for (std::uint32_t bucket = 0; bucket < layout_.buckets(); ++bucket) {
      cut[layout_.bucketAt(bucket)] = before[layout_.bucketAt(bucket)];
    }
  }
  wordsAre(cut);
  auto table = writer();
  EXPECT_EQ(table.replacedBecause(), "");
  EXPECT_EQ(table.members(), 2U);
  bool found = false;
  EXPECT_EQ(reader().lookup(keyOf(1), found), rowOf(1, 2));
}

TEST_F(ShelfTable, FinishesARemovalThatWasCutOff) {
  std::vector<std::uint64_t> cut;
  {
    auto table = writer();
    for (std::uint32_t i = 0; i < 8; ++i) table.rowIs(rowOf(i, i));
    const auto before = words();
    table.rowDel(keyOf(4));
    cut = words();
    for (std::size_t at = layout_.bucketAt(0); at < cut.size(); ++at) {
      const bool link = at < layout_.slotAt(0) || (at - layout_.slotAt(0)) % layout_.slotWords() == Layout::kNext;
      if (link) cut[at] = before[at];
    }
  }
  wordsAre(cut);
  EXPECT_THAT(walk(), SizeIs(7)) << "readers pass the free slot in its chain";
  for (std::uint32_t i = 0; i < 8; ++i) {
    bool found = false;
    reader().lookup(keyOf(i), found);
    EXPECT_EQ(found, i != 4);
  }
  reader_.detach();
  auto table = writer();
  EXPECT_EQ(table.replacedBecause(), "");
  EXPECT_EQ(table.members(), 7U);
  EXPECT_EQ(table.rowIs(rowOf(20, 1)), WriteResult::kAdded);
  EXPECT_THAT(walk(), SizeIs(8));
}

TEST_F(ShelfTable, SaysWhichNumberOfAShapeIsOutOfRange) {
  EXPECT_THROW(writer({.capacity = 0}), std::invalid_argument);
  EXPECT_THROW(writer({.capacity = Layout::kMaxCapacity + 1}), std::invalid_argument);
  EXPECT_THROW(writer({.capacity = 8, .nameCapacity = Layout::kMaxNames + 1}), std::invalid_argument);
  EXPECT_THROW(writer({.capacity = 8, .nameCapacity = 1, .ringSize = 24}), std::invalid_argument);
  EXPECT_THROW(kRoot.file("../probes"), std::invalid_argument);
  EXPECT_THROW(kRoot.file(".."), std::invalid_argument);
  EXPECT_THROW(kRoot.file(""), std::invalid_argument);
}

}  // namespace
}  // namespace Shelf
