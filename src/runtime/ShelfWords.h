// The words of a table: how they cross between processes, and how a word or a row shows that it was not spoiled. All
// access to mapped memory goes through loadWord and storeWord.
//
// Every load acquires and every store releases. So whoever read a word also sees all that the writer stored before
// that word, which is what a sequence lock needs on both of its sides: a row that was read in part while it was being
// written implies that the sequence number now reads differently. Two fences around relaxed copies would say the same,
// but a race detector does not see fences, and on the common machines these loads and stores are plain moves.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace Shelf {

/// The order that the tables need. Only a test that shows what goes wrong without it gives another one.
struct Ordered {
  static constexpr std::memory_order kLoad = std::memory_order_acquire;
  static constexpr std::memory_order kStore = std::memory_order_release;
};

template <typename Order = Ordered>
inline std::uint64_t loadWord(const std::uint64_t* word) {
  // The language has no atomic reference to what is const; a lock-free load never writes.
  return std::atomic_ref<std::uint64_t>(*const_cast<std::uint64_t*>(word)).load(Order::kLoad);
}

template <typename Order = Ordered>
inline void storeWord(std::uint64_t* word, std::uint64_t value) {
  std::atomic_ref<std::uint64_t>(*word).store(value, Order::kStore);
}

static_assert(std::atomic_ref<std::uint64_t>::is_always_lock_free);

/// A 32-bit value that carries proof of itself and of its place in the file in the other half of its word. A zero
/// word is never a valid one, so that erased memory shows.
inline std::uint64_t checkedWord(std::uint32_t value, std::size_t place) {
  const std::uint64_t mixed = (std::uint64_t{value} + (std::uint64_t{place} << 32) + 0x7f4a7c15) * 0x9e3779b97f4a7c15;
  const std::uint64_t check = ((mixed >> 32) ^ (std::uint64_t{place} * 0x85ebca6b)) & 0xffffffff;
  return ((check | 1) << 32) | value;
}

/// True if `word` is the checked word of its value at `place`.
inline bool checkedWordHolds(std::uint64_t word, std::size_t place) {
  return word == checkedWord(static_cast<std::uint32_t>(word), place);
}

/// A sum over words that any single changed bit changes, and that depends on their order. Additions alone, in two
/// lanes, so that it costs little beside the copying of the words.
class WordSum {
 public:
  explicit WordSum(std::uint64_t seed) : even_(seed * kFactor + 1), odd_(~seed) {}

  void add(std::uint64_t a, std::uint64_t b) {
    even_ += a;
    odd_ += b;
    evenOrder_ += even_;
    oddOrder_ += odd_;
  }
  void add(std::uint64_t word) { add(word, 0); }

  std::uint64_t value() const {
    return (std::rotl((even_ ^ std::rotl(evenOrder_, 21)) * kFactor, 31) ^ odd_ ^ std::rotl(oddOrder_, 43)) * kFactor;
  }

 private:
  static constexpr std::uint64_t kFactor = 0x9e3779b97f4a7c15;

  std::uint64_t even_;
  std::uint64_t odd_;
  std::uint64_t evenOrder_ = 0;
  std::uint64_t oddOrder_ = 0;
};

/// A hash of a key's bytes, good enough for a table's buckets; the same in every process of one machine.
inline std::uint32_t keyHash(std::span<const std::byte> key) {
  constexpr std::uint64_t kFactor = 0x9e3779b97f4a7c15;
  std::uint64_t hash = 0x2545f4914f6cdd1d ^ key.size();
  std::uint64_t word = 0;
  std::size_t at = 0;
  for (; at + sizeof(word) <= key.size(); at += sizeof(word)) {
    std::memcpy(&word, &key[at], sizeof(word));
    hash = std::rotl((hash ^ word) * kFactor, 29);
  }
  word = 0;
  for (; at < key.size(); ++at) word = word << 8 | std::to_integer<std::uint64_t>(key[at]);
  hash = (hash ^ word) * kFactor;
  return static_cast<std::uint32_t>(((hash ^ hash >> 32) * 0xd6e8feb86659fd93) >> 32);
}

/// True if two keys or rows of a table are the same bytes.
inline bool sameBytes(std::span<const std::byte> a, std::span<const std::byte> b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace Shelf
