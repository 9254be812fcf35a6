// A writer and its readers at the same time, on one mapping. Under ThreadSanitizer these tests also show that the
// order of the copies is right: what the writer did before a row is plain memory here, and reading it after the row is
// a race unless the row's own words put the two in order.
#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

#include "runtime/ShelfMemory.h"
#include "runtime/ShelfSample.h"
#include "runtime/Vesta.h"

namespace Shelf {
namespace {

using Sample::Key;
using Row = Sample::Row<55>;  // Rows of 456 bytes.

#if defined(__SANITIZE_THREAD__)
#define SHELF_UNDER_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define SHELF_UNDER_THREAD_SANITIZER
#endif
#endif

const RootPath kRoot{"/tables"};
constexpr std::uint32_t kKeys = 24;  // Several to a chain.

Key keyOf(std::uint32_t number) {
  return {"eth0", number, 1};
}

class ShelfConcurrent : public testing::Test {
 protected:
  void SetUp() override {
    Vesta::Platform::debugSinkIs([](std::string_view) {});
  }
  void TearDown() override { Vesta::Platform::debugSinkIs({}); }
};

// Two readers look up, walk and poll until the writer has finished its changes.
TEST_F(ShelfConcurrent, ReadersNeverSeeATornRowNorMissOneThatStands) {
  constexpr std::uint64_t kChanges = 60000;
  MemoryStorage storage;
  Sample::Writer<55> writer(storage, kRoot, "probes", "Sample::Row", {.capacity = 32, .ringSize = 64});
  for (std::uint32_t i = 0; i < kKeys; ++i) writer.rowIs(Row::of(keyOf(i), 0));
  std::vector<std::uint64_t> published(kChanges + 1);  // Plain: only the rows order it.
  std::atomic<bool> done = false;
  std::array<std::uint64_t, 2> reads{};
  std::array<std::uint64_t, 2> wrong{};

  const auto read = [&](std::size_t which) {
    Sample::Reader<55> reader(storage, kRoot, "probes");
    reader.attach();
    reader.notifying(true);
    const auto judge = [&](const Row& row) {
      ++reads[which];
      if (!row.whole() || row.value() > kChanges || published[row.value()] != row.value()) ++wrong[which];
    };
    for (std::uint32_t turn = 0; !done || turn < 100; ++turn) {
      bool found = false;
      const Row row = reader.lookup(keyOf(turn % kKeys), found);
      if (found) judge(row);
      // Even keys are never removed.
      if (!found && turn % 2 == 0) ++wrong[which];
      reader.poll([&](const Key& key) {
        const Row changed = reader.lookup(key, found);
        if (found) judge(changed);
      });
      if (turn % 16 != 0) continue;
      Row walked;
      Hint hint = 0;
      for (bool more = reader.first(walked, hint); more; more = reader.next(keyOf(0), walked, hint)) judge(walked);
    }
  };
  std::vector<std::thread> readers;
  for (std::size_t which = 0; which < reads.size(); ++which) readers.emplace_back(read, which);
  std::uint64_t refused = 0;
  for (std::uint64_t change = 1; change <= kChanges; ++change) {
    published[change] = change;
    const auto number = static_cast<std::uint32_t>(change * 7 % kKeys);
    if (number % 2 == 1 && change % 5 == 0) {
      writer.rowDel(keyOf(number));
    } else if (writer.rowIs(Row::of(keyOf(number), change)) == WriteResult::kRefused) {
      ++refused;
    }
  }
  done = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(refused, 0U);
  for (std::size_t which = 0; which < reads.size(); ++which) {
    EXPECT_EQ(wrong[which], 0U);
    EXPECT_GT(reads[which], 100U);
  }
}

// The end state that a poller arrives at is the table's, however far it fell behind.
TEST_F(ShelfConcurrent, APollerEndsWithWhatStands) {
  MemoryStorage storage;
  Sample::Writer<55> writer(storage, kRoot, "probes", "Sample::Row", {.capacity = 32, .ringSize = 16});
  std::atomic<bool> ready = false;
  std::atomic<bool> done = false;
  std::array<std::uint64_t, kKeys> followed{};
  std::thread poller([&] {
    Sample::Reader<55> reader(storage, kRoot, "probes");
    reader.attach();
    reader.notifying(true);
    reader.sampleIs(8);
    ready = true;
    ready.notify_one();
    bool last = false;
    for (bool more = true; more || !last;) {
      last = done;
      more = reader
                 .poll([&](const Key& key) {
                   bool found = false;
                   const Row row = reader.lookup(key, found);
                   followed[key.number] = found ? row.value() : 0;
                 })
                 .more;
    }
  });
  ready.wait(false);
  std::array<std::uint64_t, kKeys> model{};
  for (std::uint64_t change = 1; change <= 20000; ++change) {
    const std::uint64_t number = change * 11 % kKeys;
    if (change % 3 == 0) {
      writer.rowDel(keyOf(static_cast<std::uint32_t>(number)));
      model[number] = 0;
    } else {
      writer.rowIs(Row::of(keyOf(static_cast<std::uint32_t>(number)), change));
      model[number] = change;
    }
  }
  done = true;
  poller.join();
  EXPECT_EQ(followed, model);
}

// A word that was seen implies all that was stored before it.
template <typename Order>
std::uint64_t passedOn() {
  std::uint64_t word = 0;
  std::uint64_t plain = 0;
  std::thread writer([&] {
    plain = 7;
    storeWord<Order>(&word, 1);
  });
  while (loadWord<Order>(&word) == 0) std::this_thread::yield();
  const std::uint64_t seen = plain;
  writer.join();
  return seen;
}

TEST_F(ShelfConcurrent, AWordPassesOnWhatWasBeforeIt) {
  EXPECT_EQ(passedOn<Ordered>(), 7U);
}

#ifdef SHELF_UNDER_THREAD_SANITIZER
// What the tables' order would be without its halves.
struct Unordered {
  static constexpr std::memory_order kLoad = std::memory_order_relaxed;
  static constexpr std::memory_order kStore = std::memory_order_relaxed;
};

TEST(ShelfConcurrentDeathTest, ARemovedOrderIsReported) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(std::exit(passedOn<Unordered>() == 7 ? 0 : 1), testing::ExitedWithCode(66), "data race");
}
#endif

}  // namespace
}  // namespace Shelf
