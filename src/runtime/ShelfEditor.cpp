// Writing slots and chains, and taking a table over from a writer that is gone.
#include "runtime/ShelfEditor.h"

#include <algorithm>
#include <cstring>

#include "runtime/ShelfWords.h"
#include "runtime/Vesta.h"

namespace Shelf {

namespace {

bool sameTable(const TableShape& a, const TableShape& b) {
  return a.keySize == b.keySize && a.rowSize == b.rowSize && a.capacity == b.capacity && a.ringSize == b.ringSize &&
         a.nameCapacity == b.nameCapacity && a.type == b.type && a.name == b.name;
}

// Tells the readers of a table that it is about to be replaced. A file that never was a table is left alone.
void retire(const Mapping& mapping) {
  const auto words = mapping.words();
  if (words.size() <= Layout::kRetiredAt || loadWord(&words[Layout::kMagicAt]) != Layout::kMagic) return;
  storeWord(&words[Layout::kRetiredAt], 1);
}

}  // namespace

TableEditor::TableEditor(Storage& storage, const std::string& path, const TableShape& shape, KeyHash hash) {
  const Layout layout(shape);
  if (takeOver(storage, path, layout, hash)) return;
  standOn(storage.create(path, layout.bytes(), [&](Mapping& fresh) { layout.format(fresh); }), hash);
}

bool TableEditor::takeOver(Storage& storage, const std::string& path, const Layout& layout, KeyHash hash) {
  auto standing = storage.openForWriting(path);
  if (!standing) return false;
  const Mapping& old = *standing;
  try {
    if (!sameTable(Layout::of(old).shape(), layout.shape())) {
      replacedBecause_ = "it was made for another shape";
    } else {
      standOn(std::move(standing), hash);
      view_->requireAlive();
      recover();
      return true;
    }
  } catch (const Vesta::CorruptionDetectedException& spoiled) {
    replacedBecause_ = spoiled.what();
    if (!standing) standing = std::move(mapping_);
  }
  // The old mapping, and with it the writer's right to the path, is held until the new file stands in its place.
  retire(old);
  standOn(storage.create(path, layout.bytes(), [&](Mapping& fresh) { layout.format(fresh); }), hash);
  return true;
}

void TableEditor::standOn(std::unique_ptr<Mapping> mapping, KeyHash hash) {
  names_.reset();
  view_.reset();
  mapping_ = std::move(mapping);
  view_ = std::make_unique<TableView>(*mapping_, hash);
  names_ = std::make_unique<TableNames>(*mapping_, view_->layout(), TableNames::Use::kAppend);
  words_ = mapping_->words().data();
  image_.assign(view_->layout().slotWords(), 0);
  free_.clear();
  members_ = 0;
  slotsUsed_ = 0;
}

void TableEditor::recover() {
  names_->refresh();
  slotsUsed_ = view_->slotsUsed();
  for (std::uint32_t slot = 0; slot < slotsUsed_; ++slot) finishSlot(slot);
  const std::vector<bool> linked = sweepChains();
  std::uint32_t rows = 0;
  for (std::uint32_t slot = slotsUsed_; slot-- > 0;) {
    const TableView::Slot state = view_->read(slot);
    if (!state.used) {
      free_.push_back(slot);
      continue;
    }
    ++rows;
    if (!linked[slot]) {  // Written, but not yet found by its key.
      const std::vector<std::byte> row(view_->row().begin(), view_->row().end());
      insert(slot, state.hash, row);
    }
  }
  countRows(rows);
  // What the last writer did not come to tell is unknown. Moving on by more than the ring makes every reader walk.
  std::uint64_t* changes = words_ + Layout::kChangesAt;
  storeWord(changes, loadWord(changes) + view_->layout().shape().ringSize + 1);
}

// A slot whose writing was cut off: its image stands whole in the journal.
void TableEditor::finishSlot(std::uint32_t slot) {
  const std::size_t at = view_->layout().slotAt(slot);
  const std::uint64_t sequence = loadWord(words_ + at);
  if ((sequence & 1) == 0) return;
  view_->read(slot);
  for (std::size_t word = Layout::kNext; word < Layout::kRow + view_->layout().rowWords(); ++word) {
    storeWord(words_ + at + word, loadWord(words_ + Layout::kJournalAt + word));
  }
  storeWord(words_ + at, sequence + 1);
}

// Takes free slots out of the chains, and returns which slots the chains hold.
std::vector<bool> TableEditor::sweepChains() {
  const Layout& layout = view_->layout();
  std::vector<bool> linked(slotsUsed_, false);
  for (std::uint32_t bucket = 0; bucket < layout.buckets(); ++bucket) {
    std::size_t place = layout.bucketAt(bucket);
    while (const std::uint32_t following = view_->link(place)) {
      const std::uint32_t slot = following - 1;
      if (slot >= slotsUsed_ || linked[slot]) {
        throw Vesta::CorruptionDetectedException("chain " + std::to_string(bucket) + " is tangled");
      }
      const TableView::Slot state = view_->read(slot);
      if (layout.bucketAt(state.hash) != layout.bucketAt(bucket)) {
        throw Vesta::CorruptionDetectedException("chain " + std::to_string(bucket) + " holds a foreign slot");
      }
      if (state.used) {
        linked[slot] = true;
        place = layout.slotAt(slot) + Layout::kNext;
      } else {
        storeLink(place, state.next);
      }
    }
  }
  return linked;
}

void TableEditor::countRows(std::uint32_t rows) {
  members_ = rows;
  storeWord(words_ + Layout::kMembersAt, checkedWord(rows, Layout::kMembersAt));
}

void TableEditor::storeLink(std::size_t place, std::uint32_t value) {
  storeWord(words_ + place, checkedWord(value, place));
}

void TableEditor::storeSlot(std::uint32_t slot, bool used, std::uint32_t hash, std::uint32_t next,
                            std::span<const std::byte> row) {
  const Layout& layout = view_->layout();
  const std::size_t at = layout.slotAt(slot);
  std::fill(image_.begin(), image_.end(), 0);
  image_[Layout::kNext] = checkedWord(next, at + Layout::kNext);
  image_[Layout::kState] = checkedWord(hash << 1 | (used ? 1U : 0U), at + Layout::kState);
  std::memcpy(&image_[Layout::kRow], row.data(), row.size());
  WordSum sum(at);
  sum.add(image_[Layout::kState]);
  const std::size_t end = Layout::kRow + layout.rowWords();
  for (std::size_t word = Layout::kRow; word < end; word += 2) sum.add(image_[word], image_[word + 1]);
  image_[Layout::kSum] = sum.value();

  const auto copyTo = [&](std::size_t place) {
    for (std::size_t word = Layout::kNext; word < end; ++word) storeWord(words_ + place + word, image_[word]);
  };
  storeWord(words_ + Layout::kJournalAt, checkedWord(slot, Layout::kJournalAt));
  copyTo(Layout::kJournalAt);
  const std::uint64_t begun = loadWord(words_ + at) | 1;
  storeWord(words_ + at, begun);
  copyTo(at);
  storeWord(words_ + at, begun + 1);
}

void TableEditor::insert(std::uint32_t slot, std::uint32_t hash, std::span<const std::byte> row) {
  const std::size_t bucketAt = view_->layout().bucketAt(hash);
  storeSlot(slot, true, hash, view_->link(bucketAt), row);
  if (slot >= slotsUsed_) {
    slotsUsed_ = slot + 1;
    storeWord(words_ + Layout::kSlotsUsedAt, checkedWord(slotsUsed_, Layout::kSlotsUsedAt));
  }
  storeLink(bucketAt, slot + 1);
}

void TableEditor::told(std::uint32_t slot) {
  std::uint64_t* changes = words_ + Layout::kChangesAt;
  const std::uint64_t change = loadWord(changes);
  storeWord(words_ + view_->layout().ringAt(change), (change & 0xffffffff) << 32 | slot);
  storeWord(changes, change + 1);
  view_->requireAlive();
}

WriteResult TableEditor::write(std::span<const std::byte> row) {
  const TableShape& shape = view_->layout().shape();
  const auto key = row.first(shape.keySize);
  if (const auto found = view_->find(key)) {
    const TableView::Slot state = view_->read(found->slot);
    if (sameBytes(view_->row(), row)) return WriteResult::kUnchanged;
    storeSlot(found->slot, true, state.hash, state.next, row);
    told(found->slot);
    return WriteResult::kChanged;
  }
  std::uint32_t slot = slotsUsed_;
  if (!free_.empty()) {
    slot = free_.back();
    free_.pop_back();
  } else if (slot == shape.capacity) {
    std::uint64_t* refusals = words_ + Layout::kRowRefusalsAt;
    storeWord(refusals, loadWord(refusals) + 1);
    return WriteResult::kRefused;
  }
  insert(slot, view_->hashOf(key), row);
  countRows(members_ + 1);
  told(slot);
  return WriteResult::kAdded;
}

bool TableEditor::remove(std::span<const std::byte> key) {
  const auto found = view_->find(key);
  if (!found) return false;
  const TableView::Slot state = view_->read(found->slot);
  const std::vector<std::byte> row(view_->row().begin(), view_->row().end());
  storeSlot(found->slot, false, state.hash, state.next, row);
  storeLink(found->linkAt, state.next);
  free_.push_back(found->slot);
  countRows(members_ - 1);
  told(found->slot);
  return true;
}

void TableEditor::removeAll() {
  const std::uint32_t end = slotsUsed_;
  for (std::uint32_t slot = 0; slot < end; ++slot) {
    if (!view_->read(slot).used) continue;
    const std::vector<std::byte> key(view_->key().begin(), view_->key().end());
    remove(key);
  }
}

void TableEditor::rows(const std::function<void(std::span<const std::byte> row)>& callback) {
  for (std::uint32_t slot = 0; slot < slotsUsed_; ++slot) {
    if (view_->read(slot).used) callback(view_->row());
  }
}

}  // namespace Shelf
