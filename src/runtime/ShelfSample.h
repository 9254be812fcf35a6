// A small table for tests, fuzzing and benchmarks of the shared tables: a key with a name in it, and a row whose words
// all follow from one value, so that a torn row shows. Not used by the product.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "runtime/ShelfMap.h"
#include "runtime/ShelfWords.h"
#include "runtime/ShelfWriter.h"

namespace Shelf::Sample {

struct Key {
  std::string interface;
  std::uint32_t number = 0;
  std::uint8_t ttl = 0;

  bool operator==(const Key&) const = default;
};

template <std::size_t kWords>
struct Row {
  Key key;
  std::array<std::uint64_t, kWords> words{};

  bool operator==(const Row&) const = default;

  static Row of(const Key& key, std::uint64_t value) {
    Row row{key, {}};
    for (std::size_t i = 0; i < kWords; ++i) row.words[i] = (value + i) * 0x9e3779b97f4a7c15;
    return row;
  }
  std::uint64_t value() const { return words[0] * 0xf1de83e19937733d; }
  bool whole() const { return *this == of(key, value()); }
};

/// 13 bytes of key, padded to 16, then the words.
template <std::size_t kWords>
struct Ops {
  static constexpr std::size_t kKeySize = 13;
  static constexpr std::size_t kWordsAt = 16;
  static constexpr std::size_t kRowSize = kWordsAt + 8 * kWords;

  static std::uint32_t hash(std::span<const std::byte> key) { return keyHash(key); }

  static bool encodeKey(const Key& key, Names& names, std::span<std::byte> bytes) {
    const auto cell = names.cell(key.interface);
    if (!cell) return false;
    std::ranges::copy(*cell, bytes.begin());
    std::memcpy(&bytes[8], &key.number, sizeof(key.number));
    bytes[12] = std::byte{key.ttl};
    return true;
  }
  static Key decodeKey(std::span<const std::byte> bytes, Names& names) {
    NameCell cell;
    std::copy_n(bytes.begin(), cell.size(), cell.begin());
    Key key{names.name(cell), 0, std::to_integer<std::uint8_t>(bytes[12])};
    std::memcpy(&key.number, &bytes[8], sizeof(key.number));
    return key;
  }
  static bool encodeRow(const Row<kWords>& row, Names& names, std::span<std::byte> bytes) {
    if (!encodeKey(row.key, names, bytes)) return false;
    std::memcpy(&bytes[kWordsAt], row.words.data(), sizeof(row.words));
    return true;
  }
  static Row<kWords> decodeRow(std::span<const std::byte> bytes, Names& names) {
    Row<kWords> row{decodeKey(bytes, names), {}};
    std::memcpy(row.words.data(), &bytes[kWordsAt], sizeof(row.words));
    return row;
  }
};

template <std::size_t kWords>
using Reader = ShelfMap<Key, Row<kWords>, Ops<kWords>>;
template <std::size_t kWords>
using Writer = TableWriter<Key, Row<kWords>, Ops<kWords>>;

}  // namespace Shelf::Sample
