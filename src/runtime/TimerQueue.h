// The order of an activity's timers: by time, then rank, then order of setting.
//
// Most timers are set no earlier than all before them (each stream waits the same second), so they stand in a ring
// in order of arrival, where setting and firing cost a few nanoseconds however many are armed. The rest stand in
// an indexed 4-ary heap. The queue knows its timers by the slot that each carries, and cancels by it.
#pragma once

#include <deque>
#include <vector>

#include "runtime/Types.h"

namespace Rix {

// What a timer carries for the queue. Owned by the timer; written by the queue alone.
class TimerSlot {
 public:
  TimerSlot() = default;
  TimerSlot(TimerSlot const&) = delete;
  TimerSlot& operator=(TimerSlot const&) = delete;

  double time() const { return time_; }

 private:
  friend class TimerQueue;
  enum class Place : U8 { none, ring, heap };
  double time_ = never;
  U64 position_ = 0;  // ring: the serial of its entry; heap: its index
  Place place_ = Place::none;
};

class TimerQueue {
 public:
  // Arms `slot` for `time`, which must be finite, instead of what it was armed for.
  void set(TimerSlot& slot, double time, U8 rank);
  void cancel(TimerSlot& slot);
  // The earliest timer, or null; `never` as its time if there is none.
  TimerSlot* first();
  double firstTime() {
    TimerSlot* slot = first();
    return slot ? slot->time() : never;
  }
  // Takes the earliest timer out; it reads as not set. There must be one.
  TimerSlot& takeFirst();
  std::size_t size() const { return size_; }

 private:
  struct Entry {
    double time;
    U64 order;  // rank in the top byte, then the serial of the setting
    TimerSlot* slot;
    bool operator<(Entry const& other) const { return time != other.time ? time < other.time : order < other.order; }
  };

  void heapPlace(std::size_t index, Entry const& entry);
  void heapUp(std::size_t index, Entry const& entry);
  void heapDown(std::size_t index, Entry const& entry);
  void heapRemove(std::size_t index);
  void trimRing();

  std::deque<Entry> ring_;  // cancelled entries keep their place with a null slot until they reach the head
  U64 ringHead_ = 0;        // the serial of ring_.front()
  std::size_t ringCancelled_ = 0;
  std::vector<Entry> heap_;
  U64 serial_ = 0;
  std::size_t size_ = 0;
};

}  // namespace Rix
