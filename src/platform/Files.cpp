// The order of steps in the writers is the point of this file: content, fsync, rename, fsync of the directory.
#include "platform/Files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>

#include "platform/Descriptor.h"

namespace Platform {

namespace {

[[noreturn]] void fail(const std::string& path, const char* doing) {
  throw FileError(path + ": cannot " + doing + ": " + std::generic_category().message(errno));
}

Descriptor open(const std::string& path, int flags, const char* doing, mode_t mode = 0) {
  Descriptor file(::open(path.c_str(), flags | O_CLOEXEC, mode));
  if (!file) fail(path, doing);
  return file;
}

Descriptor openDirectoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  Descriptor result(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!result) fail(path, "open its directory");
  return result;
}

// One fixed name: what a crash leaves behind is overwritten by the next writer.
std::string freshNameOf(const std::string& path) {
  return path + ".new";
}

Descriptor makeFile(const std::string& path, std::string_view content, mode_t mode) {
  ::unlink(path.c_str());  // the mode holds only for a file that is made
  Descriptor file = open(path, O_WRONLY | O_CREAT | O_EXCL, "make", mode);
  while (!content.empty()) {
    const ssize_t count = ::write(file.fd(), content.data(), content.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail(path, "write");
    content.remove_prefix(static_cast<std::size_t>(count));
  }
  return file;
}

template <typename Number>
std::optional<Number> parseNumber(std::string_view text, int base = 10) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// One line of a key file without its comment. Returns nothing for a line that says nothing, else a key, or throws
// what was expected instead.
std::optional<ProbeKey> parseKeyLine(std::string_view line) {
  std::istringstream words{std::string(line.substr(0, line.find('#')))};
  std::string id, digits, more;
  if (!(words >> id)) return std::nullopt;
  const auto number = parseNumber<unsigned>(id);
  if (!number || *number > std::numeric_limits<std::uint8_t>::max()) throw FileError("a key id from 0 to 255");
  ProbeKey key{static_cast<std::uint8_t>(*number), {}};
  if (!(words >> digits) || digits.size() != 2 * key.bytes.size()) {
    throw FileError("after the key id a key of 32 hexadecimal digits");
  }
  for (std::size_t i = 0; i < key.bytes.size(); ++i) {
    const auto byte = parseNumber<std::uint8_t>(std::string_view(digits).substr(2 * i, 2), 16);
    if (!byte) throw FileError("after the key id a key of 32 hexadecimal digits");
    key.bytes[i] = *byte;
  }
  if (words >> more) throw FileError("nothing after the key");
  return key;
}

}  // namespace

std::string readSmallFile(const std::string& path, std::size_t maxSize) {
  const Descriptor file = open(path, O_RDONLY, "open");
  std::string content(maxSize + 1, '\0');
  std::size_t size = 0;
  for (;;) {
    const ssize_t count = ::read(file.fd(), content.data() + size, content.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail(path, "read");
    size += static_cast<std::size_t>(count);
    if (size > maxSize) throw FileError(path + ": expected at most " + std::to_string(maxSize) + " bytes");
    if (count == 0) break;
  }
  content.resize(size);
  return content;
}

void writeFileAtomically(const std::string& path, std::string_view content, bool secret) {
  const Descriptor directory = openDirectoryOf(path);
  const std::string fresh = freshNameOf(path);
  const Descriptor file = makeFile(fresh, content, secret ? 0600 : 0644);
  if (::fsync(file.fd()) != 0) fail(fresh, "write to disk");
  if (::rename(fresh.c_str(), path.c_str()) != 0) fail(path, "replace");
  if (::fsync(directory.fd()) != 0) fail(path, "write its directory to disk");
}

void replaceFile(const std::string& path, std::string_view content) {
  const std::string fresh = freshNameOf(path);
  makeFile(fresh, content, 0644);
  if (::rename(fresh.c_str(), path.c_str()) != 0) fail(path, "replace");
}

RisingCounter::RisingCounter(std::string path, std::uint64_t floor, std::uint64_t blockSize)
    : path_(std::move(path)), blockSize_(std::max<std::uint64_t>(blockSize, 1)) {
  reserve(floor);
}

std::uint64_t RisingCounter::next() {
  if (next_ == end_) reserve(end_);
  return next_++;
}

void RisingCounter::reserve(std::uint64_t floor) {
  // The directory stands for the lock: the file itself is replaced, and a lock on it would go with the old one.
  const Descriptor directory = openDirectoryOf(path_);
  while (::flock(directory.fd(), LOCK_EX) != 0) {
    if (errno != EINTR) fail(path_, "lock its directory");
  }
  std::uint64_t first = floor;
  if (::access(path_.c_str(), F_OK) == 0) {
    std::string text = readSmallFile(path_, 64);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    const auto stored = parseNumber<std::uint64_t>(text);
    if (!stored) throw FileError(path_ + ":1: expected one number, the first value that was never given out");
    first = std::max(first, *stored);
  } else if (errno != ENOENT) {
    fail(path_, "look for the file");
  }
  if (first > std::numeric_limits<std::uint64_t>::max() - blockSize_) {
    throw FileError(path_ + ":1: expected a number that leaves room to count on");
  }
  writeFileAtomically(path_, std::to_string(first + blockSize_) + "\n");
  next_ = first;
  end_ = first + blockSize_;
}

std::vector<ProbeKey> readKeyFile(const std::string& path) {
  std::istringstream lines(readSmallFile(path));
  std::vector<ProbeKey> keys;
  std::size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    try {
      const auto key = parseKeyLine(line);
      if (!key) continue;
      if (std::ranges::find(keys, key->id, &ProbeKey::id) != keys.end()) {
        throw FileError("a key id that no line before has, not " + std::to_string(key->id) + " again");
      }
      keys.push_back(*key);
    } catch (const FileError& expected) {
      throw FileError(path + ":" + std::to_string(number) + ": expected " + expected.what());
    }
  }
  if (keys.empty()) throw FileError(path + ":" + std::to_string(number + 1) + ": expected at least one key");
  return keys;
}

}  // namespace Platform
