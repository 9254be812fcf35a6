// The life of a typed reader: what it refuses, what it says, and what it is after a detach.
#include "runtime/ShelfMap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/RixShelf.h"
#include "runtime/ShelfMemory.h"
#include "runtime/ShelfSample.h"
#include "runtime/Vesta.h"

namespace Shelf {
namespace {

using Sample::Key;
using Row = Sample::Row<2>;
using testing::ElementsAre;
using testing::IsEmpty;

const RootPath kRoot{"/tables"};

class ShelfMapTest : public testing::Test {
 protected:
  ShelfMapTest() {
    Vesta::Platform::debugSinkIs([this](std::string_view line) { lines_.emplace_back(line); });
    writer_.rowIs(Row::of({"lo", 1, 1}, 11));
    EXPECT_TRUE(map_.attach());
  }
  ~ShelfMapTest() override { Vesta::Platform::debugSinkIs({}); }

  template <typename Exception, typename Operation>
  std::string textOf(Operation operation) {
    try {
      operation();
    } catch (const Exception& raised) {
      return raised.what();
    }
    return "nothing raised";
  }
  template <typename Operation>
  std::string lineOf(Operation operation) {
    lines_.clear();
    operation();
    return lines_.size() == 1 ? lines_[0] : std::to_string(lines_.size()) + " lines";
  }

  std::vector<std::string> lines_;
  MemoryStorage storage_;
  Sample::Writer<2> writer_{storage_, kRoot, "probes", "Sample::Row", {.capacity = 4, .nameCapacity = 1}};
  Sample::Reader<2> map_{storage_, kRoot, "probes"};
};

TEST_F(ShelfMapTest, RefusesWritingOperationsWithTheirTexts) {
  using Refused = Vesta::NoPermissionException;
  EXPECT_EQ(textOf<Refused>([&] { map_.write({}); }), "write to read-only Shelf table");
  EXPECT_EQ(textOf<Refused>([&] { map_.remove({}); }), "remove to read-only Shelf table");
  EXPECT_EQ(textOf<Refused>([&] { map_.cleanup(); }), "cleanup to read-only Shelf table");
  EXPECT_EQ(textOf<Refused>([&] { map_.validateFiles(); }), "validateFiles to read-only Shelf table");
  EXPECT_EQ(textOf<Refused>([&] { map_.validate(); }), "validate to read-only Shelf table");
}

TEST_F(ShelfMapTest, HasNoCountersAndNoDirectWriting) {
  using Missing = Vesta::UnimplementedException;
  EXPECT_EQ(textOf<Missing>([&] { map_.readerCounters(); }), "readerCounters() not implemented");
  EXPECT_EQ(textOf<Missing>([&] { map_.writerCounters(); }), "writerCounters() not implemented");
  EXPECT_EQ(textOf<Missing>([&] { map_.flushed(); }), "flushed() not implemented");
  EXPECT_THROW(map_.directCommit(), Missing);
  EXPECT_THROW(map_.directWrite({}), Missing);
}

TEST_F(ShelfMapTest, SaysWhenItsContentCanBeRead) {
  EXPECT_THAT(lines_, ElementsAre("ShelfMap::collectionReadyIs() ready:1"));
  EXPECT_TRUE(map_.collectionReady());
}

TEST_F(ShelfMapTest, FindsNothingAfterADetachAndGoesOn) {
  EXPECT_EQ(lineOf([&] { map_.detach(); }), "ShelfMap::detach() probes");
  bool found = true;
  Row row;
  Hint hint = 3;
  EXPECT_EQ(map_.lookup({"lo", 1, 1}, found), map_.emptyRow());
  EXPECT_FALSE(found);
  EXPECT_FALSE(map_.first(row, hint));
  EXPECT_FALSE(map_.next({"lo", 1, 1}, row, hint));
  EXPECT_TRUE(map_.validate());
  EXPECT_TRUE(map_.validateFiles());
  EXPECT_EQ(map_.members(), 0U);
  EXPECT_EQ(map_.mountStatus(), MountStatus::kDetached);
  EXPECT_EQ(map_.shelfName(), "probes");
  EXPECT_EQ(map_.rootPath().path, "/tables");
}

TEST_F(ShelfMapTest, SaysEachOperationAfterADetach) {
  map_.detach();
  Row row;
  Hint hint = 0;
  bool found = false;
  const auto line = [](const std::string& operation) { return "ShelfBaseDummy::" + operation + "() probes"; };
  EXPECT_EQ(lineOf([&] { map_.first(row, hint); }), line("first"));
  EXPECT_EQ(lineOf([&] { map_.next(Key{"Ethernet1/1", 1, 1}, row, hint); }), line("next"));
  EXPECT_EQ(lineOf([&] { map_.lookup(Key{"Ethernet1/1", 1, 1}, found); }), line("lookup"));
  EXPECT_EQ(lineOf([&] { map_.members(); }), line("members"));
  EXPECT_EQ(lineOf([&] { map_.capacity(); }), line("capacity"));
  EXPECT_EQ(lineOf([&] { map_.minSize(); }), line("minSize"));
  EXPECT_EQ(lineOf([&] { map_.maxSize(); }), line("maxSize"));
  EXPECT_EQ(lineOf([&] { map_.type(); }), line("type"));
  EXPECT_EQ(lineOf([&] { map_.shelfName(); }), line("shelfName"));
  EXPECT_EQ(lineOf([&] { map_.mountStatus(); }), line("mountStatus"));
  EXPECT_EQ(lineOf([&] { map_.rootPath(); }), line("rootPath"));
  EXPECT_EQ(lineOf([&] { map_.notifying(true); }), line("notifying"));
  EXPECT_EQ(lineOf([&] { map_.yieldTimeIs(0.1); }), line("yieldTimeIs"));
  EXPECT_EQ(lineOf([&] { map_.sampleIs(1); }), line("sampleIs"));
  EXPECT_EQ(lineOf([&] { map_.sequence(); }), line("sequence"));
  EXPECT_EQ(lineOf([&] { map_.write({}); }), line("write"));
  EXPECT_EQ(lineOf([&] { map_.remove({}); }), line("remove"));
  EXPECT_EQ(lineOf([&] { map_.cleanup(); }), line("cleanup"));
  EXPECT_EQ(lineOf([&] { map_.validate(); }), "ShelfBaseDummy::validate() probes");
  EXPECT_EQ(lineOf([&] { map_.validateFiles(); }), line("validateFiles"));
  EXPECT_EQ(lineOf([&] { map_.readerCounters(); }), line("readerCounters"));
  EXPECT_EQ(lineOf([&] { map_.writerCounters(); }), line("writerCounters"));
  EXPECT_EQ(lineOf([&] { map_.flushed(); }), line("flushed"));
  EXPECT_EQ(lineOf([&] { map_.directCommit(); }), line("directCommit"));
  EXPECT_EQ(lineOf([&] { map_.directWrite({}); }), line("directWrite"));
}

TEST_F(ShelfMapTest, PollsNothingAndSaysNothingAfterADetach) {
  map_.notifying(true);
  writer_.rowIs(Row::of({"lo", 2, 1}, 1));
  map_.detach();
  lines_.clear();
  EXPECT_EQ(map_.poll([](const Key&) { FAIL(); }).keys, 0U);
  EXPECT_THAT(lines_, IsEmpty());
}

TEST_F(ShelfMapTest, GivesACorruptTableUpAndLeavesAFile) {
  lines_.clear();
  map_.corruptionDetected("slot 3 is spoiled");
  EXPECT_THAT(lines_,
              ElementsAre("ShelfMap::corruptionDetected() probes slot 3 is spoiled", "ShelfMap::detach() probes"));
  EXPECT_EQ(storage_.textFile("/tables/probes.corruption"), "slot 3 is spoiled\n");
  EXPECT_FALSE(map_.attached());
  EXPECT_FALSE(map_.collectionReady());
}

TEST_F(ShelfMapTest, RaisesOnCorruptionIfItIsTo) {
  map_.raiseOnCorruptionIs(true);
  EXPECT_EQ(textOf<Vesta::CorruptionDetectedException>([&] { map_.corruptionDetected("slot 3 is spoiled"); }),
            "slot 3 is spoiled");
  EXPECT_TRUE(map_.attached());
  EXPECT_EQ(storage_.textFile("/tables/probes.corruption"), "");
}

TEST_F(ShelfMapTest, IsUnmountedUntilThereIsATable) {
  Sample::Reader<2> other(storage_, kRoot, "others");
  EXPECT_FALSE(other.attach());
  EXPECT_EQ(other.mountStatus(), MountStatus::kNotMounted);
  Sample::Writer<2> writer(storage_, kRoot, "others", "Sample::Row", {.capacity = 4});
  EXPECT_TRUE(other.attach());
}

TEST_F(ShelfMapTest, RefusesATableOfOtherRowsOrAnotherName) {
  Sample::Reader<3> wider(storage_, kRoot, "probes");
  EXPECT_EQ(textOf<Vesta::CorruptionDetectedException>([&] { wider.attach(); }),
            "rows of 32 bytes with a key of 13 where 40 with 13 are read");
  storage_.fileIs("/tables/renamed", storage_.file("/tables/probes"));
  Sample::Reader<2> renamed(storage_, kRoot, "renamed");
  EXPECT_EQ(textOf<Vesta::CorruptionDetectedException>([&] { renamed.attach(); }),
            "file holds table \"probes\" where \"renamed\" is read");
}

TEST(MountInfo, IsPlainAndBlank) {
  const RixShelf::MountInfo info;
  EXPECT_EQ(info.firstWord, 0U);
  EXPECT_THAT(info.flags, testing::Each(false));
  EXPECT_THAT(info.collections, IsEmpty());
  EXPECT_EQ(info.lastWord, 0U);
}

}  // namespace
}  // namespace Shelf
