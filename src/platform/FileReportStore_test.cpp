// What a store of reports in files gives back, and what it makes of files that are no reports.
#include "platform/FileReportStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/Files.h"
#include "runtime/Trace.h"

namespace Platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char one[] = "02:00:00:00:00:01";
constexpr char two[] = "02:00:00:00:00:02";
constexpr char mount[] = "zeb/client/configDir";

class FileReportStoreTest : public testing::Test {
 protected:
  FileReportStoreTest() {
    std::string name = testing::TempDir() + "zeb-reports-XXXXXX";
    if (!mkdtemp(name.data())) std::abort();
    folder = name;
    Rix::traceLevelsIs("FileReportStore", 1);
    Rix::traceSinkIs([this](Rix::TraceLine const& line) { traced.emplace_back(line.text); });
  }
  ~FileReportStoreTest() override {
    Rix::traceSinkIs({});
    Rix::traceLevelsIs("FileReportStore", 0);
    std::filesystem::remove_all(folder);
  }

  std::string directory() const { return (folder / "reports").string(); }
  // What a new process finds.
  std::vector<std::string> loaded() const {
    std::vector<std::string> all;
    for (auto const& report : FileReportStore(directory()).load()) {
      all.push_back(report.systemId + " " + report.mount + " " + report.bytes);
    }
    return all;
  }
  std::filesystem::path onlyFile() const { return std::filesystem::directory_iterator(directory())->path(); }

  std::filesystem::path folder;
  std::vector<std::string> traced;
};

TEST_F(FileReportStoreTest, GivesBackWhatWasSavedLastInOrder) {
  EXPECT_THAT(loaded(), IsEmpty());
  FileReportStore store(directory());
  std::string const bytes("\0\n\xff%@\n", 6);
  store.save(two, mount, "first");
  store.save(two, mount, bytes);
  store.save(one, "a_b@c%2f/d", "");
  store.save(one, mount, "x");
  EXPECT_THAT(loaded(), ElementsAre(std::string(one) + " a_b@c%2f/d ", std::string(one) + " zeb/client/configDir x",
                                    std::string(two) + " zeb/client/configDir " + bytes));
  store.remove(two, mount);
  store.remove(two, mount);
  EXPECT_EQ(loaded().size(), 2U);
  EXPECT_THAT(traced, IsEmpty());
}

TEST_F(FileReportStoreTest, LeavesOutEveryFileThatIsNotWholeAndNamesIt) {
  FileReportStore store(directory());
  store.save(one, mount, "the report of a switch");
  std::string const path = onlyFile().string();
  std::string const whole = readSmallFile(path);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    std::ofstream(path, std::ios::trunc) << whole.substr(0, length);
    EXPECT_THAT(loaded(), IsEmpty()) << length;
    ASSERT_EQ(traced.size(), length + 1);
    EXPECT_THAT(traced.back(), testing::AllOf(HasSubstr(path), HasSubstr("expected \"zeb-report 1\""))) << length;
  }
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::string changed = whole;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    std::ofstream(path, std::ios::trunc) << changed;
    EXPECT_THAT(loaded(), IsEmpty()) << at;
  }
  std::ofstream(path, std::ios::trunc) << whole << "more";
  EXPECT_THAT(loaded(), IsEmpty());
  store.save(one, mount, "anew");
  EXPECT_EQ(loaded().size(), 1U) << "the next report takes its place";
}

TEST_F(FileReportStoreTest, LeavesOutWhatHasAnotherName) {
  FileReportStore store(directory());
  for (char const* name : {"README", "02:00@x", "@.repor", "a%zz@b.report", "a%2Fb@c.report", "a.report"}) {
    std::ofstream(directory() + "/" + name) << "x";
  }
  std::ofstream(directory() + "/a@b.report.new") << "what a crash left";
  std::filesystem::create_directory(directory() + "/c@d.report");
  EXPECT_THAT(loaded(), IsEmpty());
  EXPECT_EQ(traced.size(), 7U);
}

TEST_F(FileReportStoreTest, KeepsNothingThatIsTooLongOrCannotBeWrittenAndGoesOn) {
  FileReportStore store(directory());
  store.save(one, mount, "x");
  store.save(one, mount, std::string(FileReportStore::maxReportSize + 1, 'x'));
  EXPECT_THAT(loaded(), IsEmpty()) << "an old report in the place of a new one would be a wrong one";
  ASSERT_EQ(traced.size(), 1U);
  EXPECT_THAT(traced[0], HasSubstr("expected at most 1048576 bytes, found 1048577"));
  store.save(one, mount, std::string(FileReportStore::maxReportSize, 'x'));
  EXPECT_EQ(loaded().size(), 1U);
  std::filesystem::remove_all(directory());
  store.save(one, mount, "x");
  ASSERT_EQ(traced.size(), 2U);
  EXPECT_THAT(traced[1], HasSubstr("not kept: "));
  store.remove(one, mount);
  EXPECT_THAT(store.load(), IsEmpty());
  EXPECT_THAT(traced.back(), HasSubstr("cannot read the directory"));
}

TEST_F(FileReportStoreTest, ADirectoryThatCannotBeMadeIsSaidAtOnce) {
  std::ofstream(folder / "file") << "x";
  EXPECT_THROW(FileReportStore((folder / "file" / "reports").string()), FileError);
}

}  // namespace
}  // namespace Platform
