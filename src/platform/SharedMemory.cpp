// Files, locks and mappings. A new file is made under another name and put in place whole.
#include "platform/SharedMemory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/SharedMemoryGuard.h"
#include "runtime/Vesta.h"

namespace Platform {

namespace {

[[noreturn]] void refuse(const std::string& path, const std::string& what) {
  const int reason = errno;
  throw Vesta::StorageException(path + ": " + what + ": " + std::generic_category().message(reason));
}

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  int get() const { return descriptor_; }
  bool open() const { return descriptor_ >= 0; }

 private:
  int descriptor_;
};

class FileMapping : public Shelf::Mapping {
 public:
  FileMapping(const std::string& path, Descriptor file, bool writes) : file_(std::move(file)) {
    struct stat status = {};
    if (fstat(file_.get(), &status) != 0) refuse(path, "cannot be looked at");
    if (!S_ISREG(status.st_mode)) throw Vesta::StorageException(path + ": is not a file");
    size_ = static_cast<std::size_t>(status.st_size);
    if (size_ == 0) return;
    const int protection = writes ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const memory = mmap(nullptr, size_, protection, MAP_SHARED, file_.get(), 0);
    if (memory == MAP_FAILED) refuse(path, "cannot be mapped");
    words_ = static_cast<std::uint64_t*>(memory);
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    guard_.emplace(memory, (size_ + page - 1) / page * page, protection, damaged_);
    if (!guard_->guarded()) {
      munmap(memory, size_);
      throw Vesta::StorageException(path + ": too many tables are mapped");
    }
  }
  ~FileMapping() override {
    guard_.reset();
    if (words_ != nullptr) munmap(words_, size_);
  }

 private:
  Descriptor file_;  // Bears the writer's lock.
  std::optional<SharedMemoryGuard> guard_;
};

// False if another one has the lock.
bool lock(const std::string& path, const Descriptor& file) {
  if (flock(file.get(), LOCK_EX | LOCK_NB) == 0) return true;
  if (errno != EWOULDBLOCK) refuse(path, "cannot be locked");
  return false;
}

bool stillStands(const std::string& path, const Descriptor& file) {
  struct stat opened = {};
  struct stat standing = {};
  return fstat(file.get(), &opened) == 0 && stat(path.c_str(), &standing) == 0 && opened.st_ino == standing.st_ino &&
         opened.st_dev == standing.st_dev;
}

}  // namespace

std::unique_ptr<Shelf::Mapping> SharedMemory::openForReading(const std::string& path) {
  Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.open()) {
    if (errno == ENOENT) return nullptr;
    refuse(path, "cannot be opened for reading");
  }
  return std::make_unique<FileMapping>(path, std::move(file), false);
}

std::unique_ptr<Shelf::Mapping> SharedMemory::openForWriting(const std::string& path) {
  Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (!file.open()) {
    if (errno == ENOENT) return nullptr;
    refuse(path, "cannot be opened for writing");
  }
  // Between our opening and our locking its writer may have put another file in its place.
  if (!lock(path, file) || !stillStands(path, file)) {
    throw Vesta::StorageException(path + ": has a writer already");
  }
  return std::make_unique<FileMapping>(path, std::move(file), true);
}

std::unique_ptr<Shelf::Mapping> SharedMemory::create(const std::string& path, std::size_t size,
                                                     const std::function<void(Shelf::Mapping&)>& fill) {
  std::error_code ignored;  // What is really wrong shows at the opening.
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  const std::string fresh = path + ".new";
  Descriptor file(open(fresh.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (!file.open()) refuse(fresh, "cannot be made");
  if (!lock(fresh, file) || !stillStands(fresh, file)) {
    throw Vesta::StorageException(path + ": has a writer already");
  }
  if (ftruncate(file.get(), 0) != 0 || ftruncate(file.get(), static_cast<off_t>(size)) != 0) {
    refuse(fresh, "cannot be made " + std::to_string(size) + " bytes long");
  }
  auto mapping = std::make_unique<FileMapping>(fresh, std::move(file), true);
  fill(*mapping);
  if (mapping->damaged()) throw Vesta::StorageException(fresh + ": no room for " + std::to_string(size) + " bytes");
  if (std::rename(fresh.c_str(), path.c_str()) != 0) refuse(path, "cannot be put in place");
  return mapping;
}

void SharedMemory::textFileIs(const std::string& path, std::string_view text) {
  std::ofstream file(path, std::ios::trunc);
  file << text;
  file.close();
  if (!file) throw Vesta::StorageException(path + ": cannot be written");
}

}  // namespace Platform
