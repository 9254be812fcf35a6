// Cells and the table of names. A name is stored whole before the count that makes it visible.
#include "runtime/ShelfNames.h"

#include <algorithm>
#include <cstring>

#include "runtime/ShelfWords.h"
#include "runtime/Vesta.h"

namespace Shelf {

namespace {

constexpr std::size_t kMarkAt = 7;
constexpr std::byte kIndexMark{1};
constexpr std::size_t kSumAt = Layout::kNameWords - 1;
using NameWords = std::array<std::uint64_t, Layout::kNameWords>;
using NameBytes = std::array<char, kSumAt * sizeof(std::uint64_t)>;

std::uint64_t nameSum(const NameWords& words, std::uint32_t index) {
  WordSum sum(index);
  for (std::size_t at = 0; at < kSumAt; ++at) sum.add(words[at]);
  return sum.value();
}

NameCell indexCell(std::uint32_t index) {
  NameCell cell{};
  for (std::size_t i = 0; i < sizeof(index); ++i) cell[i] = static_cast<std::byte>(index >> (8 * i) & 0xff);
  cell[kMarkAt] = kIndexMark;
  return cell;
}

std::uint32_t cellIndex(const NameCell& cell) {
  std::uint32_t index = 0;
  for (std::size_t i = 0; i < sizeof(index); ++i) index |= std::to_integer<std::uint32_t>(cell[i]) << (8 * i);
  return index;
}

}  // namespace

TableNames::TableNames(const Mapping& mapping, const Layout& layout, Use use)
    : mapping_(mapping), layout_(layout), use_(use) {}

std::optional<NameCell> TableNames::cell(std::string_view name) {
  if (name.find('\0') != std::string_view::npos) return std::nullopt;
  if (name.size() <= kInlineCharacters) {
    NameCell cell{};
    if (!name.empty()) std::memcpy(cell.data(), name.data(), name.size());  // an empty one may have no data
    return cell;
  }
  auto known = indexes_.find(name);
  if (known == indexes_.end() && use_ == Use::kRead) {
    refresh();
    known = indexes_.find(name);
  }
  if (known != indexes_.end()) return indexCell(known->second);
  return use_ == Use::kAppend ? append(name) : std::nullopt;
}

std::string TableNames::name(const NameCell& cell) {
  const auto inlineEnd = std::find(cell.begin(), cell.begin() + kMarkAt, std::byte{0});
  if (cell[kMarkAt] == std::byte{0} &&
      std::all_of(inlineEnd, cell.begin() + kMarkAt, [](std::byte b) { return b == std::byte{0}; })) {
    std::string text(static_cast<std::size_t>(inlineEnd - cell.begin()), '\0');
    std::memcpy(text.data(), cell.data(), text.size());
    return text;
  }
  const std::uint32_t index = cellIndex(cell);
  if (cell != indexCell(index))
    throw Vesta::CorruptionDetectedException("row holds neither a name nor a name's number");
  if (index >= texts_.size()) refresh();
  if (index >= texts_.size()) {
    throw Vesta::CorruptionDetectedException("row refers to name " + std::to_string(index) + " of " +
                                             std::to_string(texts_.size()));
  }
  return texts_[index];
}

void TableNames::refresh() {
  const std::uint64_t word = loadWord(&mapping_.words()[Layout::kNamesAt]);
  const auto count = static_cast<std::uint32_t>(word);
  if (!checkedWordHolds(word, Layout::kNamesAt) || count > layout_.shape().nameCapacity || count < texts_.size()) {
    throw Vesta::CorruptionDetectedException("number of names is spoiled");
  }
  while (texts_.size() < count) {
    const auto index = static_cast<std::uint32_t>(texts_.size());
    texts_.push_back(load(index));
    indexes_.emplace(texts_.back(), index);
  }
}

std::string TableNames::load(std::uint32_t index) const {
  NameWords words;
  for (std::size_t i = 0; i < words.size(); ++i) words[i] = loadWord(&mapping_.words()[layout_.nameAt(index) + i]);
  NameBytes bytes;
  std::memcpy(bytes.data(), words.data(), bytes.size());
  if (words[kSumAt] != nameSum(words, index)) {
    throw Vesta::CorruptionDetectedException("name " + std::to_string(index) + " does not match its checksum");
  }
  const auto length = static_cast<unsigned char>(bytes[0]);
  if (length <= kInlineCharacters || length > Layout::kMaxName) {
    throw Vesta::CorruptionDetectedException("name " + std::to_string(index) + " has " + std::to_string(length) +
                                             " characters");
  }
  return {bytes.data() + 1, length};
}

std::optional<NameCell> TableNames::append(std::string_view name) {
  const auto words = mapping_.words();
  const auto index = static_cast<std::uint32_t>(texts_.size());
  NameBytes bytes{};
  if (index == layout_.shape().nameCapacity || name.size() > Layout::kMaxName) {
    std::uint64_t* refusals = &words[Layout::kNameRefusalsAt];
    storeWord(refusals, loadWord(refusals) + 1);
    return std::nullopt;
  }
  bytes[0] = static_cast<char>(name.size());
  std::memcpy(bytes.data() + 1, name.data(), name.size());
  NameWords cell;
  std::memcpy(cell.data(), bytes.data(), bytes.size());
  cell[kSumAt] = nameSum(cell, index);
  for (std::size_t i = 0; i < cell.size(); ++i) storeWord(&words[layout_.nameAt(index) + i], cell[i]);
  texts_.emplace_back(name);
  indexes_.emplace(texts_.back(), index);
  storeWord(&words[Layout::kNamesAt], checkedWord(index + 1, Layout::kNamesAt));
  return indexCell(index);
}

}  // namespace Shelf
