// Small files that must survive a crash: a file replaced as a whole, a counter that only rises, and the keys that
// a fabric's probes are signed with. The daemons and the lab call these at start and, the counter, now and then;
// nothing here watches a file for changes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

// A file that cannot be read or written, or holds something else than it should. `what()` names the file, the line
// where there is one, and what was expected.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The whole content of a file of at most `maxSize` bytes. Throws FileError.
std::string readSmallFile(const std::string& path, std::size_t maxSize = 1 << 20);

// Replaces the content of a file, or makes the file. After a crash at any moment it holds the old content or the new
// one, whole, and when this returns the new one is on the disk. Two writers of one file must not meet in time. The
// file is made readable for its owner only if `secret`. Throws FileError.
void writeFileAtomically(const std::string& path, std::string_view content, bool secret = false);

// The same without waiting for the disk: what holds after the death of the process may not hold after that of the
// machine, when the file may be empty. For what comes again by itself, and often.
void replaceFile(const std::string& path, std::string_view content);

// A counter for the generations of something, kept in a file: each value is greater than all that were ever taken
// from that file, also across crashes, by other processes, and if the clock steps back. Values are reserved on disk
// a block at a time before the first of them is given out; a crash skips what is left of a block.
class RisingCounter {
 public:
  // Reserves the first block. `floor`: no value is smaller than this; a caller that hands in the time of day keeps
  // the counter rising also if its file is lost. Throws FileError if the file cannot be written or is no counter.
  explicit RisingCounter(std::string path, std::uint64_t floor = 1, std::uint64_t blockSize = 1024);

  // The next value. Throws FileError if a new block is due and cannot be reserved.
  std::uint64_t next();

 private:
  void reserve(std::uint64_t floor);

  std::string path_;
  std::uint64_t blockSize_;
  std::uint64_t next_ = 0;
  std::uint64_t end_ = 0;  // the first value that is not reserved
};

// A key that probes are signed with, and the number by which a probe names it.
struct ProbeKey {
  std::uint8_t id;
  std::array<std::uint8_t, 16> bytes;
  bool operator==(const ProbeKey&) const = default;
};

// The keys of a fabric in the order of their file, at least one: the first signs, each of them is accepted. A line
// holds an id from 0 to 255 and the key as 32 hexadecimal digits; an empty line, and what follows a '#', say
// nothing. Throws FileError, whose text never shows a key.
std::vector<ProbeKey> readKeyFile(const std::string& path);

}  // namespace Platform
