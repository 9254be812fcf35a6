// The file serves for its wake-ups alone. They are counted from when it was opened and acknowledged by polling, so
// that opening it before the first reading misses none.
#include "platform/HostName.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Platform {

namespace {

constexpr const char* path = "/proc/sys/kernel/hostname";
constexpr std::size_t longest = 64;  // and a zero behind it

}  // namespace

HostName::HostName() : file_(::open(path, O_RDONLY | O_CLOEXEC)) {
  if (!file_) throw std::runtime_error(std::string(path) + ": " + std::strerror(errno));
  onChange();
}

bool HostName::onChange() {
  char name[longest + 1] = {};
  if (::gethostname(name, sizeof name) != 0)
    throw std::runtime_error(std::string("gethostname: ") + std::strerror(errno));
  if (name_ == name) return false;
  name_ = name;
  return true;
}

}  // namespace Platform
