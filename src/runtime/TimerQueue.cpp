// Ring and heap of the timer queue.
#include "runtime/TimerQueue.h"

#include <algorithm>

#include "runtime/Assert.h"

namespace Rix {

void TimerQueue::set(TimerSlot& slot, double time, U8 rank) {
  RIX_ASSERT(time < never, time);
  cancel(slot);
  Entry const entry{time, (U64{rank} << 56) | serial_++, &slot};
  slot.time_ = time;
  ++size_;
  if (ring_.empty() || !(entry < ring_.back())) {
    slot.place_ = TimerSlot::Place::ring;
    slot.position_ = ringHead_ + ring_.size();
    ring_.push_back(entry);
  } else {
    heap_.push_back(entry);
    slot.place_ = TimerSlot::Place::heap;
    heapUp(heap_.size() - 1, entry);
  }
}

void TimerQueue::cancel(TimerSlot& slot) {
  if (slot.place_ == TimerSlot::Place::none) return;
  if (slot.place_ == TimerSlot::Place::ring) {
    ring_[slot.position_ - ringHead_].slot = nullptr;
    ++ringCancelled_;
    trimRing();
  } else {
    heapRemove(slot.position_);
  }
  slot.place_ = TimerSlot::Place::none;
  slot.time_ = never;
  --size_;
}

TimerSlot* TimerQueue::first() {
  if (ring_.empty()) return heap_.empty() ? nullptr : heap_.front().slot;
  if (heap_.empty() || ring_.front() < heap_.front()) return ring_.front().slot;
  return heap_.front().slot;
}

TimerSlot& TimerQueue::takeFirst() {
  TimerSlot* slot = first();
  RIX_ASSERT(slot != nullptr);
  cancel(*slot);
  return *slot;
}

// Nulls leave from both ends, so that the head is always a live timer and the tail a true bound for the next one.
// What is cancelled in between is bounded by what is live.
void TimerQueue::trimRing() {
  while (!ring_.empty() && !ring_.front().slot) {
    ring_.pop_front();
    ++ringHead_;
    --ringCancelled_;
  }
  while (!ring_.empty() && !ring_.back().slot) {
    ring_.pop_back();
    --ringCancelled_;
  }
  if (ringCancelled_ <= 64 || ringCancelled_ * 2 <= ring_.size()) return;
  std::erase_if(ring_, [](Entry const& entry) { return !entry.slot; });
  ringCancelled_ = 0;
  for (std::size_t i = 0; i < ring_.size(); ++i) ring_[i].slot->position_ = ringHead_ + i;
}

void TimerQueue::heapPlace(std::size_t index, Entry const& entry) {
  heap_[index] = entry;
  entry.slot->position_ = index;
}

void TimerQueue::heapUp(std::size_t index, Entry const& entry) {
  while (index > 0) {
    std::size_t const parent = (index - 1) / 4;
    if (!(entry < heap_[parent])) break;
    heapPlace(index, heap_[parent]);
    index = parent;
  }
  heapPlace(index, entry);
}

void TimerQueue::heapDown(std::size_t index, Entry const& entry) {
  for (;;) {
    std::size_t const begin = 4 * index + 1;
    if (begin >= heap_.size()) break;
    std::size_t const end = std::min(begin + 4, heap_.size());
    std::size_t least = begin;
    for (std::size_t child = begin + 1; child < end; ++child) {
      if (heap_[child] < heap_[least]) least = child;
    }
    if (!(heap_[least] < entry)) break;
    heapPlace(index, heap_[least]);
    index = least;
  }
  heapPlace(index, entry);
}

void TimerQueue::heapRemove(std::size_t index) {
  Entry const last = heap_.back();
  heap_.pop_back();
  if (index == heap_.size()) return;
  if (index > 0 && last < heap_[(index - 1) / 4]) {
    heapUp(index, last);
  } else {
    heapDown(index, last);
  }
}

}  // namespace Rix
