// Rix::LinkQueue: a collection that keeps values in first-in-first-out order, each under a rising U32 index.
//
// Values stand in chunks of four, so that a short queue costs one small allocation and an empty one none.
#pragma once

#include <array>
#include <memory>
#include <utility>

#include "runtime/Exceptions.h"
#include "runtime/Types.h"

namespace Rix {

// The head's index and the next index to give.
struct LinkQueueMetadata {
  U32 head = 0;
  U32 next = 0;
  bool operator==(LinkQueueMetadata const&) const = default;
};

// `Index` is what an index is counted in: a test of the end of the index space takes a small one.
template <class T, class Index = U32>
class LinkQueue {
 public:
  LinkQueue() = default;
  LinkQueue(LinkQueue const&) = delete;
  LinkQueue& operator=(LinkQueue const&) = delete;
  ~LinkQueue() { delAll(); }

  bool empty() const { return metadata_.head == metadata_.next; }
  U32 size() const { return static_cast<Index>(metadata_.next - metadata_.head); }
  LinkQueueMetadata metadata() const { return metadata_; }
  // Only of an empty queue: where its indices go on.
  void metadataIs(LinkQueueMetadata const& value) {
    if (!empty() || value.head != value.next) throwRangeException("link queue metadata of a queue that is not empty");
    metadata_ = value;
    tailUsed_ = 0;
  }

  // Adds at the tail under the next index.
  void enq(T value) {
    if (following(metadata_.next) == metadata_.head) throwRangeException("linkqueue index space full");
    if (!tail_ || tailUsed_ == chunkSize) {
      auto chunk = std::make_unique<Chunk>();
      Chunk* added = chunk.get();
      (tail_ ? tail_->next : head_) = std::move(chunk);
      if (!tail_) headUsed_ = 0;
      tail_ = added;
      tailUsed_ = 0;
    }
    tail_->values[tailUsed_++] = std::move(value);
    metadata_.next = following(metadata_.next);
  }
  // Takes the head; the default value if the queue is empty.
  T deq() {
    if (empty()) return T{};
    T value = std::move(head_->values[headUsed_++]);
    metadata_.head = following(metadata_.head);
    if (empty()) {
      dropChunks();
    } else if (headUsed_ == chunkSize) {
      head_ = std::move(head_->next);
      headUsed_ = 0;
    }
    return value;
  }
  // The head, or the default value if the queue is empty.
  T front() const { return empty() ? T{} : head_->values[headUsed_]; }
  // Writes the value at an index that the queue holds, or at the next one.
  void is(U32 index, T value) {
    if (index == metadata_.next) return enq(std::move(value));
    if (static_cast<Index>(index - metadata_.head) >= size())
      throwRangeException("link queue index is not in the queue");
    Chunk* chunk = head_.get();
    U32 place = headUsed_ + static_cast<Index>(index - metadata_.head);
    for (; place >= chunkSize; place -= chunkSize) chunk = chunk->next.get();
    chunk->values[place] = std::move(value);
  }
  void delAll() {
    metadata_.head = metadata_.next;
    dropChunks();
  }

  // Calls visit(value) from the head on; stops early when it returns true, and tells whether it did.
  template <class Visit>
  bool anyOf(Visit&& visit) const {
    Chunk const* chunk = head_.get();
    U32 place = headUsed_;
    for (U32 left = size(); left > 0; --left) {
      if (place == chunkSize) {
        chunk = chunk->next.get();
        place = 0;
      }
      if (visit(chunk->values[place++])) return true;
    }
    return false;
  }
  template <class Visit>
  void forEach(Visit&& visit) const {
    anyOf([&visit](T const& value) {
      visit(value);
      return false;
    });
  }

 private:
  static constexpr U32 chunkSize = 4;
  struct Chunk {
    std::array<T, chunkSize> values{};
    std::unique_ptr<Chunk> next;
  };
  static U32 following(U32 index) { return static_cast<Index>(index + 1); }
  // One after the other: a long chain of owners would end in a deep recursion.
  void dropChunks() {
    while (head_) head_ = std::move(head_->next);
    tail_ = nullptr;
    headUsed_ = tailUsed_ = 0;
  }

  std::unique_ptr<Chunk> head_;
  Chunk* tail_ = nullptr;
  U32 headUsed_ = 0;
  U32 tailUsed_ = 0;
  LinkQueueMetadata metadata_;
};

}  // namespace Rix
