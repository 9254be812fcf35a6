// The lock is on the directory itself: it is there from the first moment and needs no file. Who makes a directory
// and who sweeps may meet before the maker has locked it; the maker then sees that its directory is gone and makes
// another.
#include "lab/RunDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "lab/Command.h"

namespace Lab {

namespace {

constexpr std::string_view prefix = "zeb-lab.";

// The directory, opened and locked by nobody else; none if it is not there, someone else's, or in use.
Platform::Descriptor lockedDirectory(const std::string& path) {
  Platform::Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!directory || ::fstat(directory.fd(), &status) != 0 || status.st_uid != ::geteuid() ||
      ::flock(directory.fd(), LOCK_EX | LOCK_NB) != 0)
    return {};
  return directory;
}

bool isAt(const Platform::Descriptor& directory, const std::string& path) {
  struct stat opened {};
  struct stat named {};
  return ::fstat(directory.fd(), &opened) == 0 && ::lstat(path.c_str(), &named) == 0 && opened.st_ino == named.st_ino &&
         opened.st_dev == named.st_dev;
}

void removeTree(const std::string& path) {
  std::error_code ignored;  // what cannot be removed now is tried again at the next start
  std::filesystem::remove_all(path, ignored);
}

void sweep(const std::string& base) {
  std::error_code ignored;
  std::vector<std::string> found;
  for (std::filesystem::directory_iterator entry(base, ignored), end; !ignored && entry != end;
       entry.increment(ignored))
    if (entry->path().filename().string().compare(0, prefix.size(), prefix) == 0) found.push_back(entry->path());
  for (const std::string& path : found)
    if (const Platform::Descriptor locked = lockedDirectory(path)) removeTree(path);
}

}  // namespace

RunDirectory::RunDirectory(const std::string& base) {
  sweep(base);
  while (!lock_) {
    path_ = base + "/" + std::string(prefix) + "XXXXXX";
    if (!::mkdtemp(path_.data())) throw LabError("cannot make a directory in " + base + ": " + std::strerror(errno));
    lock_ = lockedDirectory(path_);
    if (lock_ && !isAt(lock_, path_)) lock_ = {};
  }
}

RunDirectory::~RunDirectory() {
  removeTree(path_);
}

std::string RunDirectory::defaultBase() {
  const char* own = std::getenv("XDG_RUNTIME_DIR");
  return own && *own && ::access(own, W_OK | X_OK) == 0 ? own : "/tmp";
}

}  // namespace Lab
