// Shows what survives in files, and what is said about those that hold something else.
#include "platform/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

namespace Platform {
namespace {

class FilesTest : public testing::Test {
 protected:
  FilesTest() {
    std::string name = testing::TempDir() + "zeb-files-XXXXXX";
    if (!mkdtemp(name.data())) std::abort();
    folder = name;
  }
  ~FilesTest() override { std::filesystem::remove_all(folder); }

  std::string path(const std::string& name) const { return (folder / name).string(); }
  std::string put(const std::string& name, const std::string& content) const {
    std::ofstream(path(name)) << content;
    return path(name);
  }
  // What a call says when it throws.
  template <typename Call>
  static std::string errorOf(Call call) {
    try {
      call();
    } catch (const FileError& error) {
      return error.what();
    }
    return "";
  }

  std::filesystem::path folder;
};

TEST_F(FilesTest, AFileIsReplacedAsAWholeAndLeavesNothingBeside) {
  put("state", "a longer content than the next");
  put("state.new", "what a crash left");
  writeFileAtomically(path("state"), "next");
  EXPECT_EQ(readSmallFile(path("state")), "next");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
}

TEST_F(FilesTest, ASecretFileIsReadableForItsOwnerOnly) {
  put("keys.new", "what a crash left, readable for all");
  writeFileAtomically(path("keys"), "secret", true);
  struct stat status {};
  ASSERT_EQ(::stat(path("keys").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(FilesTest, AFileThatCannotBeReadOrWrittenIsNamed) {
  EXPECT_THAT(errorOf([&] { readSmallFile(path("none")); }), testing::HasSubstr(path("none") + ": cannot open: "));
  EXPECT_THAT(errorOf([&] { readSmallFile(put("large", "12345"), 4); }), testing::HasSubstr("at most 4 bytes"));
  EXPECT_EQ(readSmallFile(put("fits", "1234"), 4), "1234");
  EXPECT_THAT(errorOf([&] { writeFileAtomically(path("no/such"), ""); }), testing::HasSubstr(path("no/such")));
}

TEST_F(FilesTest, ACounterRisesAcrossRestartsAndCrashes) {
  std::uint64_t last = 0;
  for (int start = 0; start < 5; ++start) {
    RisingCounter counter(path("epoch"), 1, 4);  // forgotten at the end of the loop's body, as in a crash
    for (int i = 0; i < 10; ++i) {
      const std::uint64_t value = counter.next();
      EXPECT_GT(value, last);
      last = value;
    }
  }
}

TEST_F(FilesTest, ACounterIsOnDiskBeforeAValueIsGiven) {
  RisingCounter counter(path("epoch"), 1, 4);
  for (int i = 0; i < 9; ++i) {
    const std::uint64_t value = counter.next();
    EXPECT_GT(std::stoull(readSmallFile(path("epoch"))), value);
  }
}

TEST_F(FilesTest, AFloorRaisesACounterAndNeverLowersIt) {
  EXPECT_EQ(RisingCounter(path("epoch"), 1000).next(), 1000U);
  EXPECT_GT(RisingCounter(path("epoch"), 500).next(), 1000U);  // the clock has stepped back
}

TEST_F(FilesTest, TwoCountersOnOneFileNeverGiveTheSame) {
  RisingCounter first(path("epoch"), 1, 3);
  RisingCounter second(path("epoch"), 1, 3);
  std::set<std::uint64_t> values;
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(values.insert(first.next()).second);
    EXPECT_TRUE(values.insert(second.next()).second);
  }
}

TEST_F(FilesTest, AFileThatIsNoCounterIsRefused) {
  for (const char* content : {"", "\n", "12x\n", "-3\n", " 7\n", "1\n2\n", "99999999999999999999\n"}) {
    const std::string file = put("epoch", content);
    EXPECT_THAT(errorOf([&] { RisingCounter counter(file); }), testing::HasSubstr(file + ":1: expected one number"));
  }
  put("epoch", "18446744073709551615\n");
  EXPECT_THAT(errorOf([&] { RisingCounter counter(path("epoch")); }), testing::HasSubstr("room to count"));
}

TEST_F(FilesTest, KeysComeInTheOrderOfTheirFile) {
  const auto keys = readKeyFile(put("keys",
                                    "# the new one signs\n"
                                    "\n"
                                    "7 000102030405060708090a0b0c0d0e0f\n"
                                    "  255   FFfeFDfcFBfaF9f8F7f6F5f4F3f2F1f0  # the old one\n"));
  ASSERT_EQ(keys.size(), 2U);
  EXPECT_EQ(keys[0].id, 7);
  EXPECT_THAT(keys[0].bytes, testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  EXPECT_EQ(keys[1].id, 255);
  EXPECT_EQ(keys[1].bytes.front(), 0xff);
  EXPECT_EQ(keys[1].bytes.back(), 0xf0);
}

TEST_F(FilesTest, AKeyFileIsRefusedWithTheLineAndWhatWasExpected) {
  const std::string key = " 000102030405060708090a0b0c0d0e0f";
  const struct {
    std::string content, expected;
  } cases[] = {
      {"", ":1: expected at least one key"},
      {"# nothing\n", ":2: expected at least one key"},
      {"\n256" + key, ":2: expected a key id from 0 to 255"},
      {"one" + key, ":1: expected a key id from 0 to 255"},
      {"-1" + key, ":1: expected a key id from 0 to 255"},
      {"1", ":1: expected after the key id a key of 32 hexadecimal digits"},
      {"1" + key + "0", ":1: expected after the key id a key of 32 hexadecimal digits"},
      {"1 0x0102030405060708090a0b0c0d0e0f", ":1: expected after the key id a key of 32 hexadecimal digits"},
      {"1 g00102030405060708090a0b0c0d0e0f", ":1: expected after the key id a key of 32 hexadecimal digits"},
      {"1" + key + " more", ":1: expected nothing after the key"},
      {"1" + key + "\n1" + key, ":2: expected a key id that no line before has, not 1 again"},
  };
  for (const auto& [content, expected] : cases) {
    const std::string file = put("keys", content);
    const std::string error = errorOf([&] { readKeyFile(file); });
    EXPECT_THAT(error, testing::HasSubstr(file + expected)) << content;
    EXPECT_THAT(error, testing::Not(testing::HasSubstr("0203"))) << "a key in an error's text";
  }
}

}  // namespace
}  // namespace Platform
