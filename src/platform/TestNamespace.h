// A test in a network and a host name namespace of its own, by a forked child, so that neither privileges nor this
// machine's own network and name take part.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

namespace Platform {

inline void writeTo(const std::string& path, const std::string& content) {
  std::ofstream file(path);
  if (!(file << content).flush()) throw std::runtime_error("cannot write " + path);
}

inline void enterOwnNamespaces() {
  constexpr int wanted = CLONE_NEWNET | CLONE_NEWUTS;
  const std::string user = std::to_string(::getuid()), group = std::to_string(::getgid());
  if (::unshare(CLONE_NEWUSER | wanted) == 0) {
    writeTo("/proc/self/setgroups", "deny");
    writeTo("/proc/self/uid_map", "0 " + user + " 1");
    writeTo("/proc/self/gid_map", "0 " + group + " 1");
  } else if (::unshare(wanted) != 0) {  // which root may also where user namespaces are not to be had
    throw std::runtime_error("may make neither a user namespace nor, as root, network and host name namespaces");
  }
}

// Runs the body in namespaces of its own. What fails in there is printed there, and fails the test here.
template <typename Body>
void inOwnNamespace(Body body) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    try {
      enterOwnNamespaces();
      body();
    } catch (const std::exception& error) {
      ADD_FAILURE() << error.what();
    }
    std::cout << std::flush;
    ::_exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "see what the child printed above";
}

inline void run(const std::string& arguments) {
  if (std::system(("ip " + arguments).c_str()) != 0) throw std::runtime_error("ip " + arguments);
}

}  // namespace Platform
