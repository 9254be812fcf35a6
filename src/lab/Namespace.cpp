// Making the namespaces puts this thread into them; the open files then keep them, wherever the thread goes.
#include "lab/Namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "lab/Command.h"

namespace Lab {

namespace {

[[noreturn]] void fail(const char* call) {
  throw LabError(std::string(call) + ": " + std::strerror(errno));
}

}  // namespace

Namespace Namespace::current() {
  Namespace result;
  result.network_ = Platform::Descriptor(::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
  result.hostName_ = Platform::Descriptor(::open("/proc/self/ns/uts", O_RDONLY | O_CLOEXEC));
  if (!result.network_ || !result.hostName_) fail("/proc/self/ns");
  return result;
}

Namespace Namespace::create(const std::string& hostName) {
  if (::unshare(CLONE_NEWNET | CLONE_NEWUTS) != 0) fail("unshare");
  if (::sethostname(hostName.c_str(), hostName.size()) != 0) fail("sethostname");
  return current();
}

void Namespace::enter() const {
  if (::setns(network_.fd(), CLONE_NEWNET) != 0 || ::setns(hostName_.fd(), CLONE_NEWUTS) != 0) fail("setns");
}

}  // namespace Lab
