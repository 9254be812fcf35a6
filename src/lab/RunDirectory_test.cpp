// A run's directory is there as long as the run, and what a killed run left goes at the next start, and only that.
#include "lab/RunDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>

#include "lab/Command.h"

namespace Lab {
namespace {

class RunDirectoryTest : public ::testing::Test {
 protected:
  RunDirectoryTest() {
    base_ = ::testing::TempDir() + "zeb-lab-test.XXXXXX";
    if (!::mkdtemp(base_.data())) throw LabError("mkdtemp");
  }
  ~RunDirectoryTest() override { std::filesystem::remove_all(base_); }

  std::string base_;
};

TEST_F(RunDirectoryTest, IsThereUntilTheRunIsOver) {
  std::string path;
  {
    const RunDirectory directory(base_);
    path = directory.path();
    EXPECT_EQ(path.compare(0, base_.size() + 9, base_ + "/zeb-lab."), 0) << path;
    std::filesystem::create_directories(path + "/leaf1");
    std::ofstream(path + "/leaf1/table") << "rows";
    EXPECT_NE(RunDirectory(base_).path(), path) << "a run in progress was taken for a dead one";
    EXPECT_TRUE(std::filesystem::exists(path + "/leaf1/table"));
  }
  EXPECT_TRUE(std::filesystem::is_empty(base_));
}

TEST_F(RunDirectoryTest, RemovesWhatADeadRunLeftOnceItsLastProcessHasEnded) {
  int ready[2];
  int hold[2];
  ASSERT_EQ(::pipe(ready) + ::pipe(hold), 0);
  const pid_t run = ::fork();
  if (run == 0) {
    const RunDirectory directory(base_);
    std::ofstream(directory.path() + "/table") << "rows";
    if (::fork() == 0) {  // a process of the run that outlives the first one for a while
      char letter = 0;
      ::close(hold[1]);
      ::_exit(::read(hold[0], &letter, 1) == 0 ? 0 : 1);
    }
    ::_exit(::write(ready[1], "r", 1) == 1 ? 0 : 1);  // as if it had been killed
  }
  char letter = 0;
  ASSERT_EQ(::read(ready[0], &letter, 1), 1);
  ::waitpid(run, nullptr, 0);
  { const RunDirectory other(base_); }
  EXPECT_FALSE(std::filesystem::is_empty(base_)) << "removed while a process of the run was alive";
  ::close(hold[1]);
  // The lock goes with that process, which is nobody's child here.
  for (int patience = 0; patience < 200 && !std::filesystem::is_empty(base_); ++patience) {
    ::usleep(10000);
    const RunDirectory another(base_);
  }
  EXPECT_TRUE(std::filesystem::is_empty(base_));
  for (const int fd : {ready[0], ready[1], hold[0]}) ::close(fd);
}

TEST_F(RunDirectoryTest, TouchesNothingThatIsNotADeadRunsDirectory) {
  std::filesystem::create_directory(base_ + "/other");
  std::filesystem::create_directory(base_ + "/target");
  std::ofstream(base_ + "/target/precious") << "content";
  std::filesystem::create_directory_symlink(base_ + "/target", base_ + "/zeb-lab.symlnk");
  std::ofstream(base_ + "/zeb-lab.aaaaaa") << "a file";
  { const RunDirectory directory(base_); }
  EXPECT_TRUE(std::filesystem::exists(base_ + "/other"));
  EXPECT_TRUE(std::filesystem::exists(base_ + "/target/precious"));
  EXPECT_TRUE(std::filesystem::exists(base_ + "/zeb-lab.aaaaaa"));
}

TEST_F(RunDirectoryTest, SaysWhereItCannotBeMade) {
  try {
    const RunDirectory directory(base_ + "/nowhere");
    FAIL() << "no error";
  } catch (const LabError& error) {
    EXPECT_EQ(std::string(error.what()), "cannot make a directory in " + base_ + "/nowhere: No such file or directory");
  }
}

TEST_F(RunDirectoryTest, IsMadeWhereTheUserKeepsSuchThings) {
  ::setenv("XDG_RUNTIME_DIR", base_.c_str(), 1);
  EXPECT_EQ(RunDirectory::defaultBase(), base_);
  ::setenv("XDG_RUNTIME_DIR", (base_ + "/nowhere").c_str(), 1);
  EXPECT_EQ(RunDirectory::defaultBase(), "/tmp");
  ::unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(RunDirectory::defaultBase(), "/tmp");
}

}  // namespace
}  // namespace Lab
