#include "sonar/Keys.h"

#include <gtest/gtest.h>

namespace Sonar {
namespace {

TEST(Keys, theFirstKeySignsAndAllAreAccepted) {
  auto const file = parseKeyFile(
      "# the fabric's keys\n\n 9  000102030405060708090a0b0c0d0e0f \r\n3\tFFFFFFFFFFFFFFFF0000000000000000");
  ASSERT_EQ(file.error, "");
  EXPECT_EQ(file.keys.signingId(), 9);
  EXPECT_EQ(file.keys.signingKey(), (SipKey{0x0706050403020100ULL, 0x0f0e0d0c0b0a0908ULL}));
  ASSERT_TRUE(file.keys.key(3));
  EXPECT_EQ(*file.keys.key(3), (SipKey{~U64{0}, 0}));
  EXPECT_FALSE(file.keys.key(4));
}

struct Bad {
  char const* text;
  char const* error;
};

class BadKeyFile : public testing::TestWithParam<Bad> {};

TEST_P(BadKeyFile, isRejectedWithItsLineAndWhatWasExpected) {
  EXPECT_EQ(parseKeyFile(GetParam().text).error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, BadKeyFile,
    testing::Values(
        Bad{"", "expected at least one line with a key id and 32 hexadecimal digits"},
        Bad{"# nothing\n", "expected at least one line with a key id and 32 hexadecimal digits"},
        Bad{"7", "line 1: expected a key id, a blank and 32 hexadecimal digits"},
        Bad{"\n256 000102030405060708090a0b0c0d0e0f", "line 2: expected a key id from 0 to 255"},
        Bad{"-1 000102030405060708090a0b0c0d0e0f", "line 1: expected a key id from 0 to 255"},
        Bad{"x 000102030405060708090a0b0c0d0e0f", "line 1: expected a key id from 0 to 255"},
        Bad{"1 000102030405060708090a0b0c0d0e", "line 1: expected 32 hexadecimal digits after the key id"},
        Bad{"1 000102030405060708090a0b0c0d0e0g", "line 1: expected 32 hexadecimal digits after the key id"},
        Bad{"1 000102030405060708090a0b0c0d0e0f00", "line 1: expected 32 hexadecimal digits after the key id"},
        Bad{"1 000102030405060708090a0b0c0d0e0f\n1 100102030405060708090a0b0c0d0e0f",
            "line 2: expected a key id that no line above has"}));

}  // namespace
}  // namespace Sonar
