// The algorithm, a word of eight bytes at a time.
#include "sonar/SipHash.h"

#include <bit>
#include <cstddef>

namespace Sonar {

namespace {

struct State {
  U64 v0;
  U64 v1;
  U64 v2;
  U64 v3;

  void round() {
    v0 += v1;
    v1 = std::rotl(v1, 13) ^ v0;
    v0 = std::rotl(v0, 32);
    v2 += v3;
    v3 = std::rotl(v3, 16) ^ v2;
    v0 += v3;
    v3 = std::rotl(v3, 21) ^ v0;
    v2 += v1;
    v1 = std::rotl(v1, 17) ^ v2;
    v2 = std::rotl(v2, 32);
  }

  void absorb(U64 word) {
    v3 ^= word;
    round();
    round();
    v0 ^= word;
  }
};

// The first `count` bytes at `bytes`, at most 8, lowest first.
U64 wordAt(U8 const* bytes, std::size_t count) {
  U64 word = 0;
  for (std::size_t i = 0; i < count; ++i) word |= static_cast<U64>(bytes[i]) << (8 * i);
  return word;
}

}  // namespace

SipKey SipKey::of(std::span<U8 const, 16> bytes) {
  return {wordAt(bytes.data(), 8), wordAt(bytes.data() + 8, 8)};
}

U64 sipHash(SipKey const& key, std::span<U8 const> bytes) {
  // The four constants spell the algorithm's seed text; they are part of its definition.
  State state{key.low ^ 0x736f6d6570736575ULL, key.high ^ 0x646f72616e646f6dULL, key.low ^ 0x6c7967656e657261ULL,
              key.high ^ 0x7465646279746573ULL};
  std::size_t const whole = bytes.size() / 8 * 8;
  for (std::size_t at = 0; at < whole; at += 8) state.absorb(wordAt(bytes.data() + at, 8));
  // The last word carries the bytes that are left and, in its top byte, the length.
  state.absorb(wordAt(bytes.data() + whole, bytes.size() - whole) | (static_cast<U64>(bytes.size()) << 56));
  state.v2 ^= 0xff;
  for (int i = 0; i < 4; ++i) state.round();
  return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

}  // namespace Sonar
