// Which key signs and which are accepted.
#include "sonar/Keys.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>

namespace Sonar {
namespace {

TEST(Keys, theFirstKeySignsAndAllAreAccepted) {
  Keyring keys;
  EXPECT_TRUE(keys.isEmpty());
  EXPECT_TRUE(keys.keyIs(9, {1, 2}));
  EXPECT_TRUE(keys.keyIs(0, {3, 4}));
  EXPECT_FALSE(keys.isEmpty());
  EXPECT_EQ(keys.signingId(), 9);
  EXPECT_EQ(keys.signingKey(), (SipKey{1, 2}));
  ASSERT_TRUE(keys.key(0));
  EXPECT_EQ(*keys.key(0), (SipKey{3, 4}));
  EXPECT_FALSE(keys.key(1));
}

TEST(Keys, anIdIsGivenOnce) {
  Keyring keys;
  keys.keyIs(9, {1, 2});
  EXPECT_FALSE(keys.keyIs(9, {3, 4}));
  EXPECT_EQ(*keys.key(9), (SipKey{1, 2}));
}

TEST(Keys, aKeyIsReadFromItsBytesLowestFirst) {
  std::array<U8, 16> bytes{};
  std::iota(bytes.begin(), bytes.end(), U8{0});
  EXPECT_EQ(SipKey::of(bytes), (SipKey{0x0706050403020100ULL, 0x0f0e0d0c0b0a0908ULL}));
}

}  // namespace
}  // namespace Sonar
