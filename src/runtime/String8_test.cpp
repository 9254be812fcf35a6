// Strings and names: value, order and hash, sharing, and the empty one that holds nothing.
#include "runtime/String8.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "runtime/Hash.h"

namespace Rix {
namespace {

TEST(String8, HoldsEightBytesAndNothingWhenEmpty) {
  EXPECT_EQ(sizeof(String8), 8U);
  EXPECT_EQ(sizeof(Name), 8U);
  String8 empty;
  EXPECT_TRUE(empty.empty());
  EXPECT_STREQ(empty.charPtr(), "");
  EXPECT_EQ(empty.begin(), empty.end());
  EXPECT_EQ(empty, String8(""));
  EXPECT_EQ(empty.hash(), String8("").hash());
}

TEST(String8, SharesItsCharactersWhenCopied) {
  String8 text = "leaf1";
  String8 copy = text;
  Name name = copy;
  String8 back = name;
  EXPECT_EQ(text.charPtr(), back.charPtr());
  text = "leaf2";
  EXPECT_EQ(copy, "leaf1");
  copy = *&copy;
  EXPECT_EQ(copy, "leaf1");
}

TEST(String8, TakesAPartOfAnArray) {
  String8 text;
  text.init("spine1:eth7", 7, 4);
  EXPECT_EQ(text, "eth7");
  text.init("spine1", 0, 0);
  EXPECT_TRUE(text.empty());
}

TEST(String8, JoinsCutsAndFinds) {
  String8 text = String8("p1") + ":" + "leaves";
  EXPECT_EQ(text, "p1:leaves");
  text += "!";
  EXPECT_EQ(text.length(), 10U);
  EXPECT_EQ(text.substr(3, 6), "leaves");
  EXPECT_EQ(text.substr(3), "leaves!");
  EXPECT_EQ(text.substr(99), "");
  EXPECT_EQ(text.pos(":"), 2U);
  EXPECT_EQ(text.pos('e', 5), 7U);
  EXPECT_EQ(text.pos("spine"), String8::npos);
  EXPECT_EQ(std::string(text.begin(), text.end()), "p1:leaves!");
  text += text;
  EXPECT_EQ(text, "p1:leaves!p1:leaves!");
}

TEST(String8, OrdersByBytes) {
  EXPECT_LT(String8("leaf1"), String8("leaf2"));
  EXPECT_LT(String8("leaf"), String8("leaf1"));
  EXPECT_LT(String8(), String8("a"));
  EXPECT_GT(String8("\xff"), String8("a"));
  EXPECT_NE(String8("a"), String8("b"));
  EXPECT_EQ(String8(std::string_view("a\0b", 3)).length(), 3U);
  EXPECT_NE(String8(std::string_view("a\0b", 3)), String8("a"));
}

TEST(String8, PrintsItsCharacters) {
  std::ostringstream out;
  out << String8("leaf1") << Name("x");
  EXPECT_EQ(out.str(), "leaf1x");
}

TEST(String8, HashesByContentAndSpreads) {
  EXPECT_EQ(String8("leaf1").hash(), Name("leaf1").hash());
  std::set<U32> hashes;
  std::set<U32> upper;
  for (int i = 0; i < 10'000; ++i) {
    U32 hash = String8("leaf" + std::to_string(i)).hash();
    hashes.insert(hash);
    upper.insert(bitReverse(hash) >> 20);
  }
  EXPECT_GE(hashes.size(), 9'998U);
  EXPECT_GE(upper.size(), 3'600U);
}

TEST(Hash, ReversesBits) {
  EXPECT_EQ(bitReverse(1), 0x80000000U);
  EXPECT_EQ(bitReverse(0x80000000U), 1U);
  EXPECT_EQ(bitReverse(0x00f0000fU), 0xf0000f00U);
  for (U32 value : {0U, 1U, 77U, 0xdeadbeefU}) EXPECT_EQ(bitReverse(bitReverse(value)), value);
}

TEST(Hash, OfAnIntegerIsTheInteger) {
  EXPECT_EQ(hashOf(U8{200}), 200U);
  EXPECT_EQ(hashOf(U16{50'000}), 50'000U);
  EXPECT_EQ(hashOf(0x1'0000'0000ULL), 1U);
}

}  // namespace
}  // namespace Rix
