// Files that no writer leaves behind: cut, zeroed, with flipped bits, of another version. The reader either raises
// its one exception or gives rows as they were written; the writer either keeps them or makes the table anew.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "runtime/ShelfMemory.h"
#include "runtime/ShelfSample.h"
#include "runtime/Vesta.h"

namespace Shelf {
namespace {

using Sample::Key;
using Row = Sample::Row<2>;
using Reader = Sample::Reader<2>;
using Writer = Sample::Writer<2>;
using testing::HasSubstr;
using testing::StartsWith;

const RootPath kRoot{"/tables"};
const std::string kPath = "/tables/probes";
constexpr std::uint32_t kRows = 6;
constexpr TableSize kSize{.capacity = 8, .nameCapacity = 2, .ringSize = 16};

Key keyOf(std::uint32_t number) {
  return {number % 2 == 0 ? "eth0" : "Ethernet1/1", number, 1};
}
Row rowOf(std::uint32_t number) {
  return Row::of(keyOf(number), number + 1000);
}

class ShelfHostile : public testing::Test {
 protected:
  ShelfHostile() {
    Vesta::Platform::debugSinkIs([](std::string_view) {});
    Writer writer(storage_, kRoot, "probes", "Sample::Row", kSize);
    for (std::uint32_t i = 0; i <= kRows; ++i) writer.rowIs(rowOf(i));
    writer.rowDel(keyOf(kRows));
    image_ = storage_.file(kPath);
  }
  ~ShelfHostile() override { Vesta::Platform::debugSinkIs({}); }

  // Reads all in every way. The exception's text, or nothing if all was as written.
  std::optional<std::string> readAll(std::span<const std::byte> bytes) {
    storage_.fileIs(kPath, bytes);
    Reader reader(storage_, kRoot, "probes");
    try {
      EXPECT_TRUE(reader.attach());
      reader.notifying(true);
      std::uint32_t rows = 0;
      Row row;
      Hint hint = 0;
      for (bool more = reader.first(row, hint); more; more = reader.next(Key(row.key), row, hint)) {
        EXPECT_EQ(row, rowOf(row.key.number));
        ++rows;
      }
      EXPECT_EQ(rows, kRows);
      for (std::uint32_t i = 0; i <= kRows; ++i) {
        bool found = false;
        row = reader.lookup(keyOf(i), found);
        EXPECT_EQ(found, i < kRows);
        if (found) {
          EXPECT_EQ(row, rowOf(i));
        }
      }
      reader.poll([](const Key&) {});
      EXPECT_EQ(reader.members(), kRows);
    } catch (const Vesta::CorruptionDetectedException& corruption) {
      return corruption.what();
    }
    return std::nullopt;
  }
  // What a writer makes of it: its rows as written, or a table made anew for a reason.
  void takeOver(std::span<const std::byte> bytes) {
    storage_.fileIs(kPath, bytes);
    Writer writer(storage_, kRoot, "probes", "Sample::Row", kSize);
    EXPECT_EQ(writer.members(), writer.replacedBecause().empty() ? kRows : 0);
    std::uint32_t rows = 0;
    try {
      writer.rows([&](const Row& row) {
        EXPECT_EQ(row, rowOf(row.key.number));
        ++rows;
      });
      EXPECT_EQ(rows, writer.members());
      EXPECT_NE(writer.rowIs(rowOf(0)), WriteResult::kRefused);
    } catch (const Vesta::CorruptionDetectedException&) {
      // A name that only the row's marshalling looks at.
    }
  }
  void bothWays(std::span<const std::byte> bytes) {
    readAll(bytes);
    takeOver(bytes);
  }
  std::vector<std::byte> with(std::size_t word, std::uint64_t value) const {
    auto bytes = image_;
    std::memcpy(&bytes[word * 8], &value, sizeof(value));
    return bytes;
  }
  std::uint64_t word(std::size_t at) const {
    std::uint64_t value = 0;
    std::memcpy(&value, &image_[at * 8], sizeof(value));
    return value;
  }
  // A header whose checksum is right all the same.
  std::optional<std::string> withHeaderWord(std::size_t at, std::uint64_t value) {
    auto bytes = with(at, value);
    WordSum sum(Layout::kMagic);
    for (std::size_t i = 0; i < Layout::kChecksumAt; ++i) {
      std::uint64_t next = 0;
      std::memcpy(&next, &bytes[i * 8], sizeof(next));
      sum.add(next);
    }
    const std::uint64_t checksum = sum.value();
    std::memcpy(&bytes[Layout::kChecksumAt * 8], &checksum, sizeof(checksum));
    takeOver(bytes);
    return readAll(bytes);
  }

  MemoryStorage storage_;
  std::vector<std::byte> image_;
  const Layout layout_{TableShape{Sample::Ops<2>::kKeySize, Sample::Ops<2>::kRowSize, kSize.capacity, kSize.ringSize,
                                  kSize.nameCapacity, "Sample::Row", "probes"}};
};

TEST_F(ShelfHostile, AnUntouchedFileReadsWhole) {
  EXPECT_EQ(readAll(image_), std::nullopt);
}

TEST_F(ShelfHostile, EveryFlippedBit) {
  // The ring and what follows the last used slot say nothing to a reader that comes now; refusals are only counted.
  std::size_t silent = 0;
  for (std::size_t bit = 0; bit < image_.size() * 8; ++bit) {
    auto bytes = image_;
    bytes[bit / 8] ^= std::byte{1} << (bit % 8);
    const auto text = readAll(bytes);
    if (!text) ++silent;
    const bool header = bit / 64 <= Layout::kChecksumAt;
    EXPECT_TRUE(text || !header) << "in the header";
    const std::size_t slots = layout_.slotAt(0) * 64;
    const std::size_t inSlot = bit < slots ? 0 : (bit - slots) / 64 % layout_.slotWords();
    const bool row =
        bit >= slots && bit < layout_.slotAt(kRows) * 64 && inSlot > 0 && inSlot < Layout::kRow + layout_.rowWords();
    EXPECT_TRUE(text || !row) << "in a slot";
    if (bit % 3 == 0) takeOver(bytes);
    if (HasFailure()) FAIL() << "bit " << bit << " of word " << bit / 64;
  }
  EXPECT_LT(silent, image_.size() * 8);
}

TEST_F(ShelfHostile, CutAtEveryLength) {
  for (std::size_t size = 0; size < image_.size(); ++size) {
    const auto cut = std::span(image_).first(size);
    const auto text = readAll(cut);
    ASSERT_TRUE(text) << size;
    if (size > Layout::kJournalAt * 8 + 8) {
      ASSERT_THAT(*text, StartsWith("file of " + std::to_string(size) + " bytes where its header asks for"));
    }
    takeOver(cut);
  }
  auto longer = image_;
  longer.resize(image_.size() + 8);
  EXPECT_TRUE(readAll(longer));
}

TEST_F(ShelfHostile, ZeroedAnywhere) {
  for (std::size_t begin = 0; begin < image_.size(); begin += 64) {
    for (const std::size_t size : {std::size_t{8}, std::size_t{64}, std::size_t{512}, image_.size()}) {
      auto bytes = image_;
      std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(begin), std::min(size, bytes.size() - begin),
                  std::byte{0});
      bothWays(bytes);
      if (HasFailure()) FAIL() << size << " bytes from " << begin;
    }
  }
}

TEST_F(ShelfHostile, AnotherLayoutVersion) {
  EXPECT_EQ(readAll(with(Layout::kVersionAt, 2)), "layout version 2 where 1 is read");
  takeOver(with(Layout::kVersionAt, 2));
}

TEST_F(ShelfHostile, HeadersThatLieWithARightChecksum) {
  const auto pair = [](std::uint64_t high, std::uint64_t low) { return high << 32 | low; };
  const std::uint64_t capacity = word(Layout::kCapacityAt);
  EXPECT_THAT(*withHeaderWord(Layout::kSizesAt, pair(0, 32)), HasSubstr("key size"));
  EXPECT_THAT(*withHeaderWord(Layout::kSizesAt, pair(33, 32)), HasSubstr("key size"));
  EXPECT_THAT(*withHeaderWord(Layout::kSizesAt, pair(1, 0)), HasSubstr("row size"));
  EXPECT_THAT(*withHeaderWord(Layout::kSizesAt, pair(13, 0xffffffff)), HasSubstr("row size"));
  EXPECT_THAT(*withHeaderWord(Layout::kCapacityAt, pair(0, 16)), HasSubstr("capacity"));
  EXPECT_THAT(*withHeaderWord(Layout::kCapacityAt, pair(0xffffffff, 16)), HasSubstr("capacity"));
  EXPECT_THAT(*withHeaderWord(Layout::kCapacityAt, pair(8, 15)), HasSubstr("ring size"));
  EXPECT_THAT(*withHeaderWord(Layout::kCapacityAt, pair(8, 0)), HasSubstr("ring size"));
  EXPECT_THAT(*withHeaderWord(Layout::kCapacityAt, capacity + (std::uint64_t{1} << 32)), HasSubstr("buckets"));
  EXPECT_THAT(*withHeaderWord(Layout::kCapacityAt, pair(7, 16)), HasSubstr("header asks for"));
  EXPECT_THAT(*withHeaderWord(Layout::kEntriesAt, pair(0xffffffff, 8)), HasSubstr("names"));
}

TEST_F(ShelfHostile, NumbersOutOfRangeWithARightCheck) {
  const auto checked = [&](std::size_t place, std::uint32_t value) {
    const auto bytes = with(place, checkedWord(value, place));
    takeOver(bytes);
    return readAll(bytes);
  };
  EXPECT_EQ(checked(Layout::kSlotsUsedAt, 9), "number of used slots is spoiled");
  EXPECT_EQ(checked(Layout::kMembersAt, 9), "number of rows is spoiled");
  EXPECT_EQ(checked(Layout::kNamesAt, 3), "number of names is spoiled");
  EXPECT_THAT(*checked(Layout::kNamesAt, 2), StartsWith("name 1 does not match its checksum"));
  EXPECT_THAT(*checked(Layout::kNamesAt, 0), StartsWith("row refers to name 0 of 0"));
  EXPECT_THAT(*checked(layout_.slotAt(0) + Layout::kNext, 9), StartsWith("link at word"));
  std::size_t loops = 0;
  for (std::uint32_t slot = 0; slot < kRows; ++slot) {  // A link to itself.
    const auto text = checked(layout_.slotAt(slot) + Layout::kNext, slot + 1);
    if (text && text->ends_with("does not end")) ++loops;
  }
  EXPECT_GT(loops, 0U);
}

TEST_F(ShelfHostile, ASlotInWritingWithAForeignJournal) {
  const std::size_t at = layout_.slotAt(2);
  EXPECT_EQ(readAll(with(at, word(at) + 1)), "slot 2 is being written by nobody");
  takeOver(with(at, word(at) + 1));
}

TEST_F(ShelfHostile, ARingThatLies) {
  storage_.fileIs(kPath, image_);
  Reader reader(storage_, kRoot, "probes");
  ASSERT_TRUE(reader.attach());
  reader.notifying(true);
  const auto mapping = storage_.openForWriting(kPath);
  const std::uint64_t changes = word(Layout::kChangesAt);
  const auto words = mapping->words();
  const auto pollText = [&]() -> std::string {
    try {
      reader.poll([](const Key&) {});
    } catch (const Vesta::CorruptionDetectedException& corruption) {
      return corruption.what();
    }
    return "";
  };
  storeWord(&words[Layout::kChangesAt], changes + 1);  // And no entry for it.
  EXPECT_EQ(pollText(), "ring of changes is spoiled at change " + std::to_string(changes));
  storeWord(&words[layout_.ringAt(changes)], changes << 32 | 8);  // A slot that is none.
  EXPECT_EQ(pollText(), "ring of changes is spoiled at change " + std::to_string(changes));
  storeWord(&words[Layout::kChangesAt], changes - 1);
  EXPECT_EQ(pollText(), "number of changes went back");
}

TEST_F(ShelfHostile, AFileThatIsErasedUnderItsReader) {
  storage_.fileIs(kPath, image_);
  Reader reader(storage_, kRoot, "probes");
  ASSERT_TRUE(reader.attach());
  for (std::uint64_t& word : storage_.openForWriting(kPath)->words()) storeWord(&word, 0);
  bool found = false;
  EXPECT_THROW(reader.lookup(keyOf(1), found), Vesta::CorruptionDetectedException);
  Row row;
  Hint hint = 0;
  EXPECT_THROW(reader.first(row, hint), Vesta::CorruptionDetectedException);
}

}  // namespace
}  // namespace Shelf
