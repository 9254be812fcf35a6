// How a table sees memory: a mapping of a file, and the storage that opens, makes and replaces such files. The layout
// and the rules of reading and writing stand above this; the system's calls stand below it (platform/SharedMemory.h),
// or nothing does (runtime/ShelfMemory.h).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Shelf {

/// One file in memory. The bytes may be changed by another process at any time, so all access is by words, through
/// ShelfWords.h. A mapping outlives the views of it.
class Mapping {
 public:
  Mapping() = default;
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  virtual ~Mapping() = default;

  /// The file's size in bytes, as it was when it was opened.
  std::size_t size() const { return size_; }

  /// The file's whole words. Storing into them is for the one writer; a reader's mapping may not allow it.
  std::span<std::uint64_t> words() const { return {words_, size_ / sizeof(std::uint64_t)}; }

  /// True once the file turned out to have lost bytes below us, which then read as zero. It never turns false again.
  /// What was read from the mapping counts only if this is false after the reading.
  bool damaged() const { return damaged_.load(std::memory_order_acquire); }

 protected:
  std::uint64_t* words_ = nullptr;
  std::size_t size_ = 0;
  std::atomic<bool> damaged_ = false;
};

/// Files of tables. Throws Vesta::StorageException, with the file's name, where the system refuses.
class Storage {
 public:
  virtual ~Storage() = default;

  /// The file at `path`, for reading only; null if there is none.
  virtual std::unique_ptr<Mapping> openForReading(const std::string& path) = 0;

  /// The file at `path`, for its one writer; null if there is none. Throws if it has a writer already.
  virtual std::unique_ptr<Mapping> openForWriting(const std::string& path) = 0;

  /// Makes a file of `size` zero bytes, lets `fill` write it, and only then puts it at `path`, in place of what
  /// stands there. Nobody ever sees it half made.
  virtual std::unique_ptr<Mapping> create(const std::string& path, std::size_t size,
                                          const std::function<void(Mapping&)>& fill) = 0;

  /// Writes a small text file.
  virtual void textFileIs(const std::string& path, std::string_view text) = 0;
};

}  // namespace Shelf
