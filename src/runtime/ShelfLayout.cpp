// The places of a table's parts, and the header in bytes.
#include "runtime/ShelfLayout.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "runtime/ShelfWords.h"
#include "runtime/Vesta.h"

namespace Shelf {

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);
constexpr std::size_t kLine = 64 / kWord;
constexpr std::size_t kTextWords = 8;
constexpr std::uint32_t kMinRing = 16;
constexpr std::uint32_t kMaxRing = 1U << 24;
constexpr std::uint32_t kMaxChosenRing = 1U << 20;

constexpr std::size_t roundedUp(std::size_t words) {
  return (words + kLine - 1) / kLine * kLine;
}

constexpr std::uint64_t pair(std::uint32_t high, std::uint32_t low) {
  return std::uint64_t{high} << 32 | low;
}
constexpr std::uint32_t high(std::uint64_t word) {
  return static_cast<std::uint32_t>(word >> 32);
}
constexpr std::uint32_t low(std::uint64_t word) {
  return static_cast<std::uint32_t>(word);
}

std::uint64_t headerSum(std::span<const std::uint64_t> words) {
  WordSum sum(Layout::kMagic);
  for (std::size_t at = 0; at < Layout::kChecksumAt; ++at) sum.add(loadWord(&words[at]));
  return sum.value();
}

void storeText(std::span<std::uint64_t> words, std::size_t at, std::string_view text) {
  std::array<std::uint64_t, kTextWords> cell{};
  std::memcpy(cell.data(), text.data(), text.size());
  for (std::size_t i = 0; i < kTextWords; ++i) storeWord(&words[at + i], cell[i]);
}

std::string loadText(std::span<const std::uint64_t> words, std::size_t at) {
  std::array<std::uint64_t, kTextWords> cell{};
  for (std::size_t i = 0; i < kTextWords; ++i) cell[i] = loadWord(&words[at + i]);
  std::array<char, kTextWords * kWord> text{};
  std::memcpy(text.data(), cell.data(), text.size());
  return {text.begin(), std::find(text.begin(), text.end(), '\0')};
}

void require(bool holds, const std::string& what) {
  if (!holds) throw std::invalid_argument("Shelf table: " + what);
}

}  // namespace

Layout::Layout(TableShape shape) : shape_(std::move(shape)) {
  require(shape_.rowSize >= 1 && shape_.rowSize <= kMaxRowSize, "row size is 1 to 65536 bytes");
  require(shape_.keySize >= 1 && shape_.keySize <= shape_.rowSize, "key size is 1 byte to the row size");
  require(shape_.capacity >= 1 && shape_.capacity <= kMaxCapacity, "capacity is 1 to 16777216 rows");
  require(shape_.nameCapacity <= kMaxNames, "at most 65536 names");
  require(shape_.type.size() <= kMaxText, "type has at most 63 characters");
  require(shape_.name.size() <= kMaxText, "name has at most 63 characters");
  buckets_ = std::bit_ceil(shape_.capacity);
  if (shape_.ringSize == 0) shape_.ringSize = std::clamp(buckets_, kMinRing, kMaxChosenRing);
  require(std::has_single_bit(shape_.ringSize) && shape_.ringSize <= kMaxRing,
          "ring size is a power of two, at most 16777216");
  slotWords_ = roundedUp(kRow + (shape_.rowSize + kWord - 1) / kWord);
  namesAt_ = kJournalAt + slotWords_;
  ringAt_ = namesAt_ + shape_.nameCapacity * kNameWords;
  bucketsAt_ = roundedUp(ringAt_ + shape_.ringSize);
  slotsAt_ = roundedUp(bucketsAt_ + buckets_);
}

std::size_t Layout::bytes() const {
  return (slotsAt_ + shape_.capacity * slotWords_) * kWord;
}

Layout Layout::of(const Mapping& mapping) {
  const auto words = mapping.words();
  const auto refuse = [](const std::string& what) { throw Vesta::CorruptionDetectedException(what); };
  if (words.size() <= kJournalAt) {
    refuse("file of " + std::to_string(mapping.size()) + " bytes is too short for a table's header");
  }
  if (loadWord(&words[kMagicAt]) != kMagic) refuse("file does not begin with a table's magic");
  const std::uint64_t version = loadWord(&words[kVersionAt]);
  if (version != kVersion) {
    refuse("layout version " + std::to_string(version) + " where " + std::to_string(kVersion) + " is read");
  }
  if (loadWord(&words[kChecksumAt]) != headerSum(words)) refuse("header does not match its checksum");
  TableShape shape;
  shape.keySize = high(loadWord(&words[kSizesAt]));
  shape.rowSize = low(loadWord(&words[kSizesAt]));
  shape.capacity = high(loadWord(&words[kCapacityAt]));
  shape.ringSize = low(loadWord(&words[kCapacityAt]));
  shape.nameCapacity = high(loadWord(&words[kEntriesAt]));
  shape.type = loadText(words, kTypeAt);
  shape.name = loadText(words, kNameAt);
  if (shape.ringSize == 0) refuse("header: ring size is 0");
  try {
    Layout layout(std::move(shape));
    if (low(loadWord(&words[kEntriesAt])) != layout.buckets_) refuse("header: number of buckets is not the capacity's");
    if (mapping.size() != layout.bytes()) {
      refuse("file of " + std::to_string(mapping.size()) + " bytes where its header asks for " +
             std::to_string(layout.bytes()));
    }
    if (mapping.damaged()) refuse("file was cut short while it was read");
    return layout;
  } catch (const std::invalid_argument& range) {
    throw Vesta::CorruptionDetectedException(std::string("header: ") + range.what());
  }
}

void Layout::format(const Mapping& mapping) const {
  const auto words = mapping.words();
  storeWord(&words[kVersionAt], kVersion);
  storeWord(&words[kSizesAt], pair(shape_.keySize, shape_.rowSize));
  storeWord(&words[kCapacityAt], pair(shape_.capacity, shape_.ringSize));
  storeWord(&words[kEntriesAt], pair(shape_.nameCapacity, buckets_));
  storeText(words, kTypeAt, shape_.type);
  storeText(words, kNameAt, shape_.name);
  for (const std::size_t at : {kMembersAt, kSlotsUsedAt, kNamesAt}) storeWord(&words[at], checkedWord(0, at));
  for (std::uint32_t bucket = 0; bucket < buckets_; ++bucket) {
    storeWord(&words[bucketAt(bucket)], checkedWord(0, bucketAt(bucket)));
  }
  storeWord(&words[kMagicAt], kMagic);
  storeWord(&words[kChecksumAt], headerSum(words));
}

}  // namespace Shelf
