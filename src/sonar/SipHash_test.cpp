// The algorithm beside its published values.
#include "sonar/SipHash.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <vector>

namespace Sonar {
namespace {

// The algorithm's published values for the key 00 01 .. 0f and the message 00 01 .. of each length.
TEST(SipHash, givesThePublishedValues) {
  SipKey const key{0x0706050403020100ULL, 0x0f0e0d0c0b0a0908ULL};
  struct Known {
    std::size_t length;
    U64 hash;
  };
  constexpr std::array<Known, 10> known{{
      {0, 0x726fdb47dd0e0e31ULL},
      {1, 0x74f839c593dc67fdULL},
      {2, 0x0d6c8009d9a94f5aULL},
      {3, 0x85676696d7fb7e2dULL},
      {4, 0xcf2794e0277187b7ULL},
      {5, 0x18765564cd99a68dULL},
      {6, 0xcbc9466e58fee3ceULL},
      {7, 0xab0200f58b01d137ULL},
      {8, 0x93f5f5799a932462ULL},
      {15, 0xa129ca6149be45e5ULL},
  }};
  for (auto const& [length, hash] : known) {
    std::vector<U8> message(length);
    std::iota(message.begin(), message.end(), U8{0});
    EXPECT_EQ(sipHash(key, message), hash) << "length " << length;
  }
}

}  // namespace
}  // namespace Sonar
