// Hashes of 32 bits. They decide the order in which every collection is walked, so they depend on values alone:
// never on addresses, the compiler or the run.
#pragma once

#include <concepts>
#include <cstddef>
#include <type_traits>

#include "runtime/Types.h"

namespace Rix {

/// Spreads every bit of `value` over the whole word. Not linear: the exclusive or of two results tells nothing about
/// the exclusive or of their arguments. Zero stays zero.
constexpr U32 mixHash(U32 value) {
  value ^= value >> 16;
  value *= 0x85ebca6bU;
  value ^= value >> 13;
  value *= 0xc2b2ae35U;
  return value ^ (value >> 16);
}

/// The same for 64 bits, folded to 32.
constexpr U32 mixHash64(U64 value) {
  value ^= value >> 33;
  value *= 0xff51afd7ed558ccdULL;
  value ^= value >> 33;
  value *= 0xc4ceb9fe1a85ec53ULL;
  return static_cast<U32>(value ^ (value >> 32));
}

/// A well mixed hash of `length` bytes.
U32 hashBytes(void const* bytes, std::size_t length);

/// The bits of `value` in reverse order: the lowest becomes the highest.
constexpr U32 bitReverse(U32 value) {
  value = ((value >> 1) & 0x55555555U) | ((value & 0x55555555U) << 1);
  value = ((value >> 2) & 0x33333333U) | ((value & 0x33333333U) << 2);
  value = ((value >> 4) & 0x0f0f0f0fU) | ((value & 0x0f0f0f0fU) << 4);
  value = ((value >> 8) & 0x00ff00ffU) | ((value & 0x00ff00ffU) << 8);
  return (value >> 16) | (value << 16);
}

/// The hash by which a collection files a key: the key's own `hash()`, and for an integer or an enumerator the
/// number itself, whose upper half, where there is one, is folded in.
template <class Key>
requires requires(Key const& key) {
  { key.hash() } -> std::convertible_to<U32>;
}
U32 hashOf(Key const& key) {
  return key.hash();
}

template <class Key>
requires std::integral<Key> || std::is_enum_v<Key>
constexpr U32 hashOf(Key key) {
  auto number = static_cast<U64>(key);
  if constexpr (sizeof(Key) <= sizeof(U32)) return static_cast<U32>(number);
  return static_cast<U32>(number ^ (number >> 32));
}

}  // namespace Rix
