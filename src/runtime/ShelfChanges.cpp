// Following the ring. The number of changes is read first and the slots after it, so a slot that was looked at once in
// a poll covers all of its changes up to then.
#include "runtime/ShelfChanges.h"

#include <algorithm>

#include "runtime/ShelfWords.h"
#include "runtime/Vesta.h"

namespace Shelf {

namespace {
constexpr std::uint32_t kOverrun = ~0U;
}  // namespace

ChangeFollower::ChangeFollower(TableView& view)
    : view_(view), keySize_(view.layout().shape().keySize), position_(view.changes()) {
  const std::uint32_t end = view_.slotsUsed();
  for (std::uint32_t slot = 0; slot < end; ++slot) know(slot, view_.read(slot).used);
}

void ChangeFollower::know(std::uint32_t slot, bool used) {
  if (slot >= present_.size()) {
    // By halves, so that a table that fills up row by row is not copied for each.
    const std::size_t size = std::min<std::size_t>(view_.layout().shape().capacity, slot + 1 + present_.size() / 2);
    present_.resize(size, false);
    seen_.resize(size, 0);
    known_.resize(size * keySize_);
  }
  present_[slot] = used;
  seen_[slot] = polls_;
  if (used) std::ranges::copy(view_.key(), known_.begin() + static_cast<std::ptrdiff_t>(slot * keySize_));
}

void ChangeFollower::look(std::uint32_t slot, std::vector<std::byte>& keys) {
  if (slot < seen_.size() && seen_[slot] == polls_) return;
  const bool used = view_.read(slot).used;
  if (slot < present_.size() && present_[slot]) {
    const auto before = std::span(known_).subspan(slot * keySize_, keySize_);
    if (!used || !sameBytes(before, view_.key())) keys.insert(keys.end(), before.begin(), before.end());
  }
  if (used) keys.insert(keys.end(), view_.key().begin(), view_.key().end());
  know(slot, used);
}

std::uint32_t ChangeFollower::changedSlot(std::uint64_t change) const {
  const Layout& layout = view_.layout();
  const std::uint64_t entry = loadWord(view_.mapping().words().data() + layout.ringAt(change));
  const auto ahead = static_cast<std::uint32_t>((entry >> 32) - change);
  const auto slot = static_cast<std::uint32_t>(entry);
  if (ahead % layout.shape().ringSize != 0 || slot >= layout.shape().capacity) {
    throw Vesta::CorruptionDetectedException("ring of changes is spoiled at change " + std::to_string(change));
  }
  return ahead == 0 ? slot : kOverrun;
}

void ChangeFollower::startWalk() {
  walking_ = true;
  walkAt_ = 0;
  position_ = view_.changes();
}

PollResult ChangeFollower::poll(std::size_t limit, std::vector<std::byte>& keys) {
  view_.requireAlive();
  const std::size_t before = keys.size();
  PollResult result;
  ++polls_;
  std::size_t left = std::max<std::size_t>(limit, 1);
  if (!walking_) {
    const std::uint64_t changes = view_.changes();
    if (changes < position_) throw Vesta::CorruptionDetectedException("number of changes went back");
    bool overrun = changes - position_ > view_.layout().shape().ringSize;
    for (; !overrun && position_ != changes && left > 0; --left) {
      const std::uint32_t slot = changedSlot(position_);
      overrun = slot == kOverrun;
      if (overrun) break;
      look(slot, keys);
      ++position_;
    }
    result.more = position_ != changes;
    if (overrun) {
      startWalk();
      result.overrun = true;
    }
  }
  if (walking_) {
    const std::uint32_t end = view_.slotsUsed();
    for (; walkAt_ < end && left > 0; --left, ++walkAt_) look(walkAt_, keys);
    walking_ = walkAt_ < end;
    result.more = walking_ || view_.changes() != position_;
  }
  result.keys = (keys.size() - before) / keySize_;
  return result;
}

}  // namespace Shelf
