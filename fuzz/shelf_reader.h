// What the shared tables' fuzz target does with one input, and what its corpus is made with. The first byte says which
// checksums are made right first, so that a changed number gets past them and meets the checks behind; the second, how
// many changes the ring claims after the attach. The rest is a table's file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "runtime/ShelfMemory.h"
#include "runtime/ShelfSample.h"
#include "runtime/Vesta.h"

namespace Shelf::Fuzz {

inline constexpr std::uint8_t kRepairHeader = 1;
inline constexpr std::uint8_t kRepairNumbers = 2;
inline constexpr std::uint8_t kRepairSlots = 4;
inline constexpr std::uint8_t kRepairHashes = 8;
inline constexpr std::size_t kModeBytes = 2;

using Key = Sample::Key;
using Row = Sample::Row<2>;
using Reader = Sample::Reader<2>;
using Writer = Sample::Writer<2>;
inline constexpr TableSize kSize{.capacity = 4, .nameCapacity = 2, .ringSize = 16};
inline const RootPath kRoot{"/tables"};
inline const std::string kPath = "/tables/probes";

inline void repair(std::vector<std::uint64_t>& words, std::uint8_t mode) {
  if (words.size() <= Layout::kJournalAt) return;
  if ((mode & kRepairHeader) != 0) {
    WordSum sum(Layout::kMagic);
    for (std::size_t at = 0; at < Layout::kChecksumAt; ++at) sum.add(words[at]);
    words[Layout::kChecksumAt] = sum.value();
  }
  const Layout layout(TableShape{Sample::Ops<2>::kKeySize, Sample::Ops<2>::kRowSize, kSize.capacity, kSize.ringSize,
                                 kSize.nameCapacity, "Sample::Row", "probes"});
  if (words.size() * sizeof(std::uint64_t) != layout.bytes()) return;
  const auto recheck = [&](std::size_t at) { words[at] = checkedWord(static_cast<std::uint32_t>(words[at]), at); };
  if ((mode & kRepairHashes) != 0) {
    for (std::uint32_t slot = 0; slot < kSize.capacity; ++slot) {
      const std::size_t at = layout.slotAt(slot);
      const auto key = std::as_bytes(std::span(words).subspan(at + Layout::kRow)).first(Sample::Ops<2>::kKeySize);
      const std::uint64_t used = words[at + Layout::kState] & 1;
      words[at + Layout::kState] = (keyHash(key) & TableView::kHashMask) << 1 | used;
    }
  }
  if ((mode & kRepairNumbers) != 0) {
    for (const std::size_t at : {Layout::kMembersAt, Layout::kSlotsUsedAt, Layout::kNamesAt}) recheck(at);
    for (std::uint32_t bucket = 0; bucket < layout.buckets(); ++bucket) recheck(layout.bucketAt(bucket));
    recheck(Layout::kJournalAt);
    for (std::uint32_t slot = 0; slot < kSize.capacity; ++slot) {
      recheck(layout.slotAt(slot) + Layout::kNext);
      recheck(layout.slotAt(slot) + Layout::kState);
    }
  }
  if ((mode & kRepairSlots) != 0) {
    for (std::uint32_t slot = 0; slot < kSize.capacity; ++slot) {
      const std::size_t at = layout.slotAt(slot);
      WordSum sum(at);
      sum.add(words[at + Layout::kState]);
      const std::size_t row = at + Layout::kRow;
      for (std::size_t i = 0; i < layout.rowWords(); i += 2) sum.add(words[row + i], words[row + i + 1]);
      words[at + Layout::kSum] = sum.value();
    }
    for (std::uint32_t index = 0; index < kSize.nameCapacity; ++index) {
      WordSum sum(index);
      const std::size_t at = layout.nameAt(index);
      for (std::size_t i = 0; i + 1 < Layout::kNameWords; ++i) sum.add(words[at + i]);
      words[at + Layout::kNameWords - 1] = sum.value();
    }
  }
}

/// Reads the table in every way and then takes it over as its writer would. The texts of all exceptions.
inline std::string read(std::span<const std::uint8_t> input) {
  if (input.size() < kModeBytes) return "";
  Vesta::Platform::debugSinkIs([](std::string_view) {});
  const auto file = input.subspan(kModeBytes);
  std::vector<std::uint64_t> words((file.size() + 7) / 8);
  if (!file.empty()) std::memcpy(words.data(), file.data(), file.size());
  repair(words, input[0]);
  MemoryStorage storage;
  storage.fileIs(kPath, std::as_bytes(std::span(words)).first(file.size()));

  std::string text;
  Reader reader(storage, kRoot, "probes");
  const auto guarded = [&](const auto& operation) {
    try {
      operation();
    } catch (const Vesta::CorruptionDetectedException& corruption) {
      text.append(corruption.what()).append("; ");
    }
  };
  guarded([&] { reader.attach(); });
  if (!reader.attached()) return text;
  std::vector<Key> keys{{"Ethernet1/1", 2, 1}, {"Ethernet9/9", 2, 1}};
  for (std::uint32_t number = 0; number < 8; ++number) keys.push_back({"eth0", number, 1});
  for (const Key& key : keys) {
    guarded([&] {
      bool found = false;
      reader.lookup(key, found);
    });
  }
  guarded([&] {
    Row row;
    Hint hint = 0;
    for (bool more = reader.first(row, hint); more; more = reader.next(Key(row.key), row, hint)) {
    }
  });
  guarded([&] {
    reader.members();
    reader.notifying(true);
    const auto claimed = storage.openForWriting(kPath);
    std::uint64_t* const changes = &claimed->words()[Layout::kChangesAt];
    storeWord(changes, loadWord(changes) + input[1]);
    reader.sampleIs(3);
    for (int polls = 0; polls < 64 && reader.poll([](const Key&) {}).more; ++polls) {
    }
  });
  Writer writer(storage, kRoot, "probes", "Sample::Row", kSize);
  guarded([&] { writer.rows([](const Row&) {}); });
  guarded([&] {
    for (const Key& key : keys) writer.rowIs(Row::of(key, 7));
    for (const Key& key : keys) writer.rowDel(key);
  });
  return text;
}

}  // namespace Shelf::Fuzz
