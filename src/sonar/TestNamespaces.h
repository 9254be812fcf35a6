// Two network namespaces with a wire between them, for tests and benchmarks with real packets. Whoever makes them
// is in the first from then on, so it should be a process of its own.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>

#include "model/Netkit.h"
#include "platform/Descriptor.h"

namespace Sonar {

inline void require(bool holds, std::string const& what) {
  if (!holds) throw std::runtime_error(what);
}

inline std::string errorText(std::string const& what) {
  return what + ": " + std::strerror(errno);
}

inline void enterOwnNamespaces() {
  if (unshare(CLONE_NEWNET) == 0) return;
  unsigned const user = geteuid();
  require(unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0,
          errorText("this test needs network namespaces, as root or through unprivileged user namespaces "
                    "(kernel.unprivileged_userns_clone, user.max_user_namespaces), and got none"));
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
}

inline void ip(std::string const& arguments) {
  require(std::system(("ip " + arguments).c_str()) == 0, "failed: ip " + arguments);
}

// Two namespaces with a veth pair between them. The sender's side has 10.0.0.1, the receiver's 10.0.0.2; from the
// first, 10.0.0.2 and 10.0.0.3 are reached through the second, and 10.9.9.9 is not reached at all.
class TwoSwitches {
 public:
  Netkit::IpAddr const source = Netkit::IpAddr(0x0a000001);
  Netkit::IpAddr const destination = Netkit::IpAddr(0x0a000002);
  Netkit::IpAddr const beyond = Netkit::IpAddr(0x0a000003);
  Netkit::IpAddr const nowhere = Netkit::IpAddr(0x0a090909);

  TwoSwitches() {
    enterOwnNamespaces();
    senderNamespace_ = Platform::Descriptor(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
    // A process that does nothing but stay in the second namespace until this one ends.
    std::array<int, 2> ready{};
    std::array<int, 2> stay{};
    require(pipe(ready.data()) == 0 && pipe(stay.data()) == 0, errorText("pipe"));
    keeper_ = fork();
    if (keeper_ == 0) {
      close(stay[1]);
      char byte = unshare(CLONE_NEWNET) == 0 ? 1 : 0;
      bool const told = write(ready[1], &byte, 1) == 1;
      _exit(told && read(stay[0], &byte, 1) == 0 ? 0 : 1);
    }
    close(stay[0]);
    stay_ = Platform::Descriptor(stay[1]);
    char byte = 0;
    require(read(ready[0], &byte, 1) == 1 && byte == 1, "no second network namespace");
    auto const keeper = std::to_string(keeper_);
    receiverNamespace_ = Platform::Descriptor(open(("/proc/" + keeper + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC));
    ip("link add a0 type veth peer name b0 netns " + keeper);
    ip("link set dev lo up");
    ip("link set dev a0 up");
    ip("address add 10.0.0.1/32 dev lo");
    ip("address add 192.168.0.0/31 dev a0");
    inReceiver([] {
      ip("link set dev lo up");
      ip("link set dev b0 up");
      ip("address add 10.0.0.2/32 dev lo");
      ip("address add 192.168.0.1/31 dev b0");
      ip("route add 10.0.0.1/32 via 192.168.0.0");
    });
    ip("route add 10.0.0.2/32 via 192.168.0.1");
    ip("route add 10.0.0.3/32 via 192.168.0.1");
  }

  ~TwoSwitches() {
    stay_ = {};
    waitpid(keeper_, nullptr, 0);
  }

  void inReceiver(std::function<void()> const& act) const {
    require(setns(receiverNamespace_.fd(), CLONE_NEWNET) == 0, errorText("setns"));
    act();
    require(setns(senderNamespace_.fd(), CLONE_NEWNET) == 0, errorText("setns"));
  }

 private:
  Platform::Descriptor senderNamespace_;
  Platform::Descriptor receiverNamespace_;
  Platform::Descriptor stay_;
  pid_t keeper_ = -1;
};

// Plays a scene in a child process of its own. Gives back what went wrong there, or nothing.
inline std::string play(std::function<void()> const& scene) {
  std::array<int, 2> result{};
  if (pipe(result.data()) != 0) return errorText("pipe");
  pid_t const child = fork();
  if (child == 0) {
    std::string text;
    try {
      scene();
    } catch (std::exception const& error) {
      text = error.what();
    }
    bool const told = write(result[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(told ? 0 : 1);
  }
  close(result[1]);
  std::string text;
  std::array<char, 512> buffer{};
  for (ssize_t size = 0; (size = read(result[0], buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(size));
  }
  close(result[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0) text += " (the scene's process ended with status " + std::to_string(status) + ")";
  return text;
}

}  // namespace Sonar
