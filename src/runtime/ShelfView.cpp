// Reading slots and chains.
//
// Chains: a new slot goes to the head of its chain; a removed one is marked free first, keeps its link, and is then
// taken out. So a reader that stands on a removed slot still finds its way on, and one whose slot was given to another
// chain meanwhile sees that by the hash and begins anew. A row that was there all the time is never missed.
#include "runtime/ShelfView.h"

#include "runtime/ShelfWords.h"
#include "runtime/Vesta.h"

namespace Shelf {

namespace {

// Each repetition means that the writer finished a row or moved a slot during some hundred nanoseconds of reading.
constexpr int kMaxReads = 1 << 20;
constexpr int kMaxWalks = 1 << 10;

// The sum of what was copied.
std::uint64_t copyRow(const std::uint64_t* from, std::span<std::uint64_t> to, std::size_t at, std::uint64_t state) {
  WordSum sum(at);
  sum.add(state);
  std::uint64_t* word = to.data();
  for (const std::uint64_t* const end = from + to.size(); from != end; from += 4, word += 4) {
    const std::uint64_t a = loadWord(from);
    const std::uint64_t b = loadWord(from + 1);
    const std::uint64_t c = loadWord(from + 2);
    const std::uint64_t d = loadWord(from + 3);
    word[0] = a;
    word[1] = b;
    word[2] = c;
    word[3] = d;
    sum.add(a, b);
    sum.add(c, d);
  }
  return sum.value();
}

// Asks for a slot's lines at once; else the wait for the first one, whose content decides, would come before the rest.
void expect(const std::uint64_t* slot, std::size_t words) {
  for (std::size_t word = 0; word < words; word += 8) __builtin_prefetch(slot + word);
}

[[noreturn]] void corrupt(const std::string& what) {
  throw Vesta::CorruptionDetectedException(what);
}

std::string slotText(std::uint32_t slot) {
  return "slot " + std::to_string(slot);
}

}  // namespace

TableView::TableView(const Mapping& mapping, KeyHash hash)
    : mapping_(mapping),
      layout_(Layout::of(mapping)),
      hash_(hash),
      words_(mapping.words().data()),
      scratch_(layout_.rowWords()) {}

std::uint64_t TableView::loadAt(std::size_t place) const {
  return loadWord(words_ + place);
}

void TableView::requireAlive() const {
  if (mapping_.damaged()) corrupt("file was cut short while it was mapped");
  if (loadAt(Layout::kMagicAt) != Layout::kMagic) corrupt("header was erased while it was mapped");
  if (loadAt(Layout::kRetiredAt) != 0) corrupt("table was replaced by another one");
}

std::uint32_t TableView::counter(std::size_t place, const char* what) const {
  const std::uint64_t word = loadAt(place);
  const auto value = static_cast<std::uint32_t>(word);
  if (!checkedWordHolds(word, place) || value > layout_.shape().capacity) corrupt(std::string(what) + " is spoiled");
  return value;
}

std::uint32_t TableView::linkValue(std::uint64_t word, std::size_t place) const {
  const auto value = static_cast<std::uint32_t>(word);
  if (!checkedWordHolds(word, place) || value > layout_.shape().capacity) {
    corrupt("link at word " + std::to_string(place) + " is spoiled");
  }
  return value;
}

std::uint32_t TableView::link(std::size_t place) const {
  return linkValue(loadAt(place), place);
}

template <bool kWithRow>
TableView::Slot TableView::readSlot(std::uint32_t slot) {
  const std::size_t at = layout_.slotAt(slot);
  std::uint64_t pending = 0;
  std::uint64_t next = 0;
  std::uint64_t state = 0;
  std::uint64_t stored = 0;
  std::uint64_t sum = 0;
  for (int reads = 0;; ++reads) {
    if (reads == kMaxReads) corrupt(slotText(slot) + " never rests");
    const std::uint64_t sequence = loadAt(at + Layout::kSequence);
    const bool writing = (sequence & 1) != 0;
    const std::uint64_t* image = words_ + (writing ? Layout::kJournalAt : at);
    pending = writing ? loadWord(image) : checkedWord(slot, Layout::kJournalAt);
    next = loadWord(image + Layout::kNext);
    state = loadWord(image + Layout::kState);
    if constexpr (kWithRow) {
      stored = loadWord(image + Layout::kSum);
      sum = copyRow(image + Layout::kRow, scratch_, at, state);
    }
    if (loadAt(at + Layout::kSequence) == sequence) break;
  }
  if (mapping_.damaged()) corrupt("file was cut short while it was mapped");
  if (pending != checkedWord(slot, Layout::kJournalAt)) corrupt(slotText(slot) + " is being written by nobody");
  if (!checkedWordHolds(state, at + Layout::kState)) corrupt("state of " + slotText(slot) + " is spoiled");
  if (kWithRow && stored != sum) corrupt(slotText(slot) + " does not match its checksum");
  const auto stateValue = static_cast<std::uint32_t>(state);
  return {(stateValue & 1) != 0, stateValue >> 1, linkValue(next, at + Layout::kNext)};
}

TableView::Slot TableView::read(std::uint32_t slot) {
  expect(words_ + layout_.slotAt(slot), layout_.slotWords());
  const Slot state = readSlot<true>(slot);
  if (state.used && hashOf(key()) != state.hash) corrupt(slotText(slot) + " has another hash than its key");
  return state;
}

std::span<const std::byte> TableView::row() const {
  return std::as_bytes(std::span(scratch_)).first(layout_.shape().rowSize);
}

std::optional<TableView::Found> TableView::find(std::span<const std::byte> key) {
  requireAlive();
  const std::uint32_t hash = hashOf(key);
  const std::size_t bucketAt = layout_.bucketAt(hash);
  for (int walks = 0; walks < kMaxWalks; ++walks) {
    std::size_t place = bucketAt;
    std::uint32_t following = link(place);
    bool astray = false;
    for (std::uint32_t steps = 0; following != 0 && !astray; ++steps) {
      const std::uint32_t slot = following - 1;
      expect(words_ + layout_.slotAt(slot), layout_.slotWords());
      Slot state = readSlot<false>(slot);
      if (state.used && state.hash == hash) {
        state = readSlot<true>(slot);
        if (state.used && sameBytes(this->key(), key)) return Found{slot, place};
      }
      astray = layout_.bucketAt(state.hash) != bucketAt || steps == layout_.shape().capacity;
      place = layout_.slotAt(slot) + Layout::kNext;
      following = state.next;
    }
    if (!astray) return std::nullopt;
  }
  requireAlive();
  corrupt("chain of bucket at word " + std::to_string(bucketAt) + " does not end");
}

}  // namespace Shelf
