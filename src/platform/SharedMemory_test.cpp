// Tables in real files: processes' views of one file, the writer's lock, replacement, and files that lose their bytes
// while they are mapped.
#include "platform/SharedMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "runtime/ShelfSample.h"
#include "runtime/Vesta.h"

namespace Platform {
namespace {

using Shelf::Hint;
using Shelf::Sample::Key;
using Row = Shelf::Sample::Row<55>;
using Reader = Shelf::Sample::Reader<55>;
using Writer = Shelf::Sample::Writer<55>;
using testing::HasSubstr;

constexpr std::uint32_t kRows = 300;  // Many pages.

Key keyOf(std::uint32_t number) {
  return {"eth0", number, 1};
}

class SharedMemoryTest : public testing::Test {
 protected:
  SharedMemoryTest() {
    Vesta::Platform::debugSinkIs([](std::string_view) {});
  }
  ~SharedMemoryTest() override {
    Vesta::Platform::debugSinkIs({});
    std::filesystem::remove_all(root_.path);
  }

  Writer writer(std::uint32_t capacity = 512) { return {memory_, root_, "probes", "Sample::Row", {capacity}}; }
  static void fill(Writer& writer, std::uint64_t value = 0) {
    for (std::uint32_t i = 0; i < kRows; ++i) {
      ASSERT_NE(writer.rowIs(Row::of(keyOf(i), value)), Shelf::WriteResult::kRefused);
    }
  }
  static std::uint32_t rowsOf(Reader& reader) {
    std::uint32_t rows = 0;
    Row row;
    Hint hint = 0;
    for (bool more = reader.first(row, hint); more; more = reader.next(Key(row.key), row, hint)) {
      EXPECT_TRUE(row.whole());
      ++rows;
    }
    return rows;
  }

  static std::string newFolder() {
    std::string folder = testing::TempDir() + "shelfXXXXXX";
    return mkdtemp(folder.data());
  }

  SharedMemory memory_;
  const Shelf::RootPath root_{newFolder()};
  const std::string path_ = root_.file("probes");
  Reader reader_{memory_, root_, "probes"};
};

TEST_F(SharedMemoryTest, ReadsInOneMappingWhatIsWrittenInAnother) {
  EXPECT_FALSE(reader_.attach()) << "no file yet";
  auto table = writer();
  fill(table);
  ASSERT_TRUE(reader_.attach());
  EXPECT_EQ(rowsOf(reader_), kRows);
  table.rowIs(Row::of(keyOf(5), 55));
  bool found = false;
  EXPECT_EQ(reader_.lookup(keyOf(5), found).value(), 55U);
}

TEST_F(SharedMemoryTest, KeepsRowsOverARestartOfTheWriter) {
  {
    auto table = writer();
    fill(table);
  }
  ASSERT_TRUE(reader_.attach());
  reader_.notifying(true);
  auto table = writer();
  EXPECT_EQ(table.replacedBecause(), "");
  EXPECT_EQ(table.members(), kRows);
  table.rowIs(Row::of(keyOf(1), 11));
  bool found = false;
  EXPECT_EQ(reader_.lookup(keyOf(1), found).value(), 11U) << "the reader's mapping is still the table";
  EXPECT_TRUE(reader_.poll([](const Key&) {}).overrun);
}

// The writer is a process of its own and is killed while it writes; whatever it was doing, nothing is lost or torn.
TEST_F(SharedMemoryTest, AKilledWriterLeavesWholeRows) {
  {
    auto table = writer();
    fill(table);
  }
  ASSERT_TRUE(reader_.attach());
  for (std::uint64_t round = 1; round <= 20; ++round) {
    const std::uint64_t before = reader_.sequence();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      auto table = writer();
      for (std::uint64_t value = round << 32;; ++value) {
        const auto number = static_cast<std::uint32_t>(value % kRows);
        if (value % 7 == 0) table.rowDel(keyOf(number));
        table.rowIs(Row::of(keyOf(number), value));
      }
    }
    while (reader_.sequence() < before + 2000 + 173 * round) sched_yield();
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    // The row that was being removed and added again may be away.
    EXPECT_GE(rowsOf(reader_), kRows - 1);
    auto table = writer();
    EXPECT_EQ(table.replacedBecause(), "");
    fill(table, round);
    EXPECT_EQ(rowsOf(reader_), kRows);
  }
}

TEST_F(SharedMemoryTest, HasOneWriterAndSaysSo) {
  auto table = writer();
  try {
    writer();
    FAIL() << "two writers";
  } catch (const Vesta::StorageException& refused) {
    EXPECT_EQ(std::string(refused.what()), path_ + ": has a writer already");
  }
}

TEST_F(SharedMemoryTest, ReplacesATableOfAnotherShapeWhole) {
  {
    auto table = writer();
    fill(table);
  }
  ASSERT_TRUE(reader_.attach());
  auto table = writer(1024);
  EXPECT_EQ(table.replacedBecause(), "it was made for another shape");
  EXPECT_THROW(rowsOf(reader_), Vesta::CorruptionDetectedException);
  Reader again(memory_, root_, "probes");
  ASSERT_TRUE(again.attach());
  EXPECT_EQ(again.capacity(), 1024U);
  EXPECT_THROW(writer(1024), Vesta::StorageException) << "the new file has its writer from the start";
}

TEST_F(SharedMemoryTest, RaisesForAFileThatIsCutShortWhileItIsMapped) {
  auto table = writer();
  fill(table);
  const auto size = std::filesystem::file_size(path_);
  for (const auto left : {size - 1, size / 2, std::uintmax_t{4096}, std::uintmax_t{100}, std::uintmax_t{0}}) {
    Reader reader(memory_, root_, "probes");
    std::filesystem::copy_file(path_, path_ + ".copy");
    std::filesystem::rename(path_ + ".copy", path_);  // The writer keeps the first file.
    ASSERT_TRUE(reader.attach());
    reader.notifying(true);
    std::filesystem::resize_file(path_, left);
    if (left < size / 2) {
      EXPECT_THROW(rowsOf(reader), Vesta::CorruptionDetectedException) << left;
    }
    int raised = 0;
    for (std::uint32_t i = 0; i < kRows; ++i) {
      bool found = false;
      try {
        const Row row = reader.lookup(keyOf(i), found);
        EXPECT_EQ(row, Row::of(keyOf(i), 0));
      } catch (const Vesta::CorruptionDetectedException&) {
        ++raised;
      }
    }
    EXPECT_EQ(raised > 0, left <= size / 2) << left;
    if (left == 0) {
      EXPECT_THROW(reader.poll([](const Key&) {}), Vesta::CorruptionDetectedException);
    }
    std::filesystem::resize_file(path_, size);
    if (raised > 0) {
      bool found = false;
      EXPECT_THROW(reader.lookup(keyOf(0), found), Vesta::CorruptionDetectedException) << "grown again, but empty";
    }
    std::filesystem::remove(path_);
    auto fresh = writer();
    fill(fresh);
  }
}

TEST_F(SharedMemoryTest, RaisesInTheWriterWhoseFileIsCutShort) {
  auto table = writer();
  fill(table);
  std::filesystem::resize_file(path_, 0);
  EXPECT_THROW(table.rowIs(Row::of(keyOf(1), 9)), Vesta::CorruptionDetectedException);
}

TEST_F(SharedMemoryTest, ReadersOnThreadsSurviveACutFile) {
  auto table = writer();
  fill(table);
  std::atomic<int> running = 0;
  std::atomic<int> raised = 0;
  std::vector<std::thread> readers;
  for (int which = 0; which < 2; ++which) {
    readers.emplace_back([&] {
      Reader reader(memory_, root_, "probes");
      reader.attach();
      try {
        for (std::uint32_t turn = 0;; ++turn) {
          bool found = false;
          reader.lookup(keyOf(turn % kRows), found);
          if (turn == kRows) ++running;
        }
      } catch (const Vesta::CorruptionDetectedException&) {
        ++raised;
      }
    });
  }
  while (running < 2) sched_yield();
  std::filesystem::resize_file(path_, 0);
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(raised, 2);
}

TEST_F(SharedMemoryTest, AWriterTakesNothingFromAFileThatIsNoTable) {
  std::ofstream(path_) << "something else\n";
  EXPECT_THROW(reader_.attach(), Vesta::CorruptionDetectedException);
  auto table = writer();
  EXPECT_THAT(table.replacedBecause(), HasSubstr("too short for a table's header"));
  EXPECT_TRUE(reader_.attach());
}

TEST_F(SharedMemoryTest, LeavesACorruptionFileBesideTheTable) {
  auto table = writer();
  ASSERT_TRUE(reader_.attach());
  reader_.corruptionDetected("slot 3 is spoiled");
  std::stringstream text;
  text << std::ifstream(path_ + ".corruption").rdbuf();
  EXPECT_EQ(text.str(), "slot 3 is spoiled\n");
}

TEST_F(SharedMemoryTest, GoesOnWhereItMayNotLeaveACorruptionFile) {
  std::vector<std::string> lines;
  Reader reader(memory_, {root_.path + "/nowhere"}, "probes");
  Vesta::Platform::debugSinkIs([&](std::string_view line) { lines.emplace_back(line); });
  reader.corruptionDetected("slot 3 is spoiled");
  EXPECT_THAT(lines, testing::Contains(HasSubstr("no corruption file: ")));
}

TEST_F(SharedMemoryTest, RefusesWhatIsNoFile) {
  std::filesystem::create_directory(path_);
  EXPECT_THROW(reader_.attach(), Vesta::StorageException);
  EXPECT_THROW(writer(), Vesta::StorageException);
}

// A fault outside the tables ends the process as it would have without them.
TEST(SharedMemoryDeathTest, LeavesOtherFaultsAlone) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  // A sanitizer has a handler of its own and ends the process with a status, not by the signal.
  const auto ended = [](int status) { return status != 0; };
  EXPECT_EXIT(
      {
        SharedMemory memory;
        const std::string path = testing::TempDir() + "shelf-fault";
        const auto table = memory.create(path, 4096, [](Shelf::Mapping&) {});
        std::filesystem::remove(path);
        std::FILE* const empty = std::tmpfile();
        void* const foreign = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fileno(empty), 0);
        std::exit(*static_cast<volatile char*>(foreign) & 0);
      },
      ended, "");
}

}  // namespace
}  // namespace Platform
