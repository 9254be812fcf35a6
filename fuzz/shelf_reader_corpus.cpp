// Writes the corpus of the shared tables' fuzz target to a folder: a good table, and one input for each branch that
// rejects. Fails if an input does not reach the branch that it is for.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>

#include "shelf_reader.h"

namespace {

using namespace Shelf;        // NOLINT(google-build-using-namespace): a short program about one thing.
using namespace Shelf::Fuzz;  // NOLINT(google-build-using-namespace)
using Words = std::vector<std::uint64_t>;

struct Case {
  const char* name;
  const char* rejected;  // Part of the text; empty: read whole.
  std::uint8_t mode;
  std::uint8_t changes;
  std::function<void(Words&)> spoil;
};

Words goodTable() {
  MemoryStorage storage;
  Writer writer(storage, kRoot, "probes", "Sample::Row", kSize);
  writer.rowIs(Row::of({"eth0", 0, 1}, 10));
  writer.rowIs(Row::of({"eth0", 1, 1}, 11));
  writer.rowIs(Row::of({"Ethernet1/1", 2, 1}, 12));
  const auto bytes = storage.file(kPath);
  Words words(bytes.size() / sizeof(std::uint64_t));
  std::memcpy(words.data(), bytes.data(), bytes.size());
  return words;
}

constexpr std::uint8_t kAll = kRepairNumbers | kRepairSlots | kRepairHashes;

constexpr std::uint64_t pair(std::uint64_t high, std::uint64_t low) {
  return high << 32 | low;
}

std::vector<Case> cases(const Layout& at) {
  const auto set = [](std::size_t word, std::uint64_t value) {
    return [word, value](Words& words) { words[word] = value; };
  };
  const auto flip = [](std::size_t word) { return [word](Words& words) { words[word] ^= 4; }; };
  const std::size_t slot = at.slotAt(0);
  const std::size_t named = at.slotAt(2) + Layout::kRow;
  using L = Layout;
  return {
      {"good", "", 0, 0, [](Words&) {}},
      {"overrun", "", 0, 17, [](Words&) {}},
      {"empty", "too short", 0, 0, [](Words& words) { words.clear(); }},
      {"header_only", "too short", 0, 0, [](Words& words) { words.resize(L::kJournalAt); }},
      {"cut", "header asks for", 0, 0, [](Words& words) { words.pop_back(); }},
      {"longer", "header asks for", 0, 0, [](Words& words) { words.push_back(0); }},
      {"magic", "magic", 0, 0, flip(L::kMagicAt)},
      {"version", "layout version", 0, 0, set(L::kVersionAt, 9)},
      {"checksum", "checksum", 0, 0, flip(L::kChecksumAt)},
      {"row_size", "row size", kRepairHeader, 0, set(L::kSizesAt, pair(13, 65537))},
      {"key_size", "key size", kRepairHeader, 0, set(L::kSizesAt, pair(33, 32))},
      {"capacity", "capacity is", kRepairHeader, 0, set(L::kCapacityAt, pair(0, 16))},
      {"ring_size", "ring size is a power", kRepairHeader, 0, set(L::kCapacityAt, pair(4, 17))},
      {"no_ring", "ring size is 0", kRepairHeader, 0, set(L::kCapacityAt, pair(4, 0))},
      {"name_capacity", "names", kRepairHeader, 0, set(L::kEntriesAt, pair(65537, 4))},
      {"buckets", "buckets", kRepairHeader, 0, set(L::kEntriesAt, pair(2, 8))},
      {"other_row", "are read", kRepairHeader, 0, set(L::kSizesAt, pair(12, 32))},
      {"other_name", "file holds table", kRepairHeader, 0, flip(L::kNameAt)},
      {"retired", "replaced", 0, 0, set(L::kRetiredAt, 1)},
      {"members_check", "number of rows", 0, 0, flip(L::kMembersAt)},
      {"members", "number of rows", kRepairNumbers, 0, set(L::kMembersAt, 5)},
      {"slots_used_check", "used slots", 0, 0, flip(L::kSlotsUsedAt)},
      {"slots_used", "used slots", kRepairNumbers, 0, set(L::kSlotsUsedAt, 5)},
      {"names_check", "number of names", 0, 0, flip(L::kNamesAt)},
      {"names", "number of names", kRepairNumbers, 0, set(L::kNamesAt, 3)},
      {"name_sum", "does not match its checksum", 0, 0, flip(at.nameAt(0))},
      {"name_length", "characters", kRepairSlots, 0, set(at.nameAt(0), 56)},
      {"name_number", "refers to name", kAll, 0, set(named, pair(0x01000000, 1))},
      {"name_cell", "neither a name", kAll, 0, set(named, pair(0x02000000, 0))},
      {"name_gap", "neither a name", kAll, 0, set(named, 0x610061)},
      {"bucket_check", "link at word", 0, 0,
       [at](Words& words) {
         for (std::uint32_t i = 0; i < at.buckets(); ++i) words[at.bucketAt(i)] ^= pair(4, 0);
       }},
      {"bucket", "link at word", kRepairNumbers, 0,
       [at](Words& words) {
         for (std::uint32_t i = 0; i < at.buckets(); ++i) words[at.bucketAt(i)] = 5;
       }},
      {"next", "link at word", kRepairNumbers, 0, set(slot + L::kNext, 5)},
      {"loop", "does not end", kRepairNumbers, 0,
       [at](Words& words) {
         for (std::uint32_t i = 0; i < at.shape().capacity; ++i) words[at.slotAt(i) + L::kNext] = i + 1;
       }},
      {"state_check", "state of slot", 0, 0, flip(slot + L::kState)},
      {"slot_sum", "does not match its checksum", 0, 0, flip(slot + L::kRow + 2)},
      {"hash", "another hash", kRepairNumbers | kRepairSlots, 0,
       [slot](Words& words) { words[slot + L::kState] ^= 1U << 30; }},
      {"writing", "written by nobody", 0, 0, [slot](Words& words) { words[slot] += 1; }},
      {"ring", "ring of changes", 0, 1, [](Words&) {}},
      {"ring_slot", "ring of changes", 0, 1, set(at.ringAt(3), pair(3, 4))},
      {"changes_back", "went back", 0, 1, set(L::kChangesAt, ~std::uint64_t{0})},
  };
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: shelf_reader_corpus FOLDER\n");
    return 2;
  }
  std::filesystem::create_directories(arguments[1]);
  const Layout layout(TableShape{Sample::Ops<2>::kKeySize, Sample::Ops<2>::kRowSize, kSize.capacity, kSize.ringSize,
                                 kSize.nameCapacity, "Sample::Row", "probes"});
  bool all = true;
  for (const Case& one : cases(layout)) {
    Words words = goodTable();
    one.spoil(words);
    std::vector<std::uint8_t> input(kModeBytes + words.size() * sizeof(std::uint64_t));
    input[0] = one.mode;
    input[1] = one.changes;
    if (!words.empty()) std::memcpy(input.data() + kModeBytes, words.data(), input.size() - kModeBytes);
    const std::string text = read(input);
    const bool reached = *one.rejected == '\0' ? text.empty() : text.find(one.rejected) != std::string::npos;
    std::printf("%s %s: %s\n", reached ? "ok  " : "MISS", one.name, text.c_str());
    all = all && reached;
    std::ofstream file(std::filesystem::path(arguments[1]) / one.name, std::ios::binary);
    for (const std::uint8_t byte : input) file.put(static_cast<char>(byte));
  }
  return all ? 0 : 1;
}
