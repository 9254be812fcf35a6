// What the tests of this folder share: the fabric of two spines and four leaves, and ways to look at things from
// inside a sandbox and as an ordinary user, which need processes of their own and so report by text.
#pragma once

#include <grp.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "lab/Sandbox.h"
#include "lab/Scenario.h"

namespace Lab {

// Two spines, four leaves, probes among the leaves; `rest` is put behind it, faults and duration at least.
inline std::string fabricText(const std::string& rest) {
  std::string text = "name: test\ntopology:\n  nodes:\n";
  for (const char* spine : {"spine1", "spine2"})
    text += std::string("    ") + spine + ": {tier: 2, groups: {spines: [lo]}}\n";
  for (const char* leaf : {"leaf1", "leaf2", "leaf3", "leaf4"})
    text += std::string("    ") + leaf + ": {tier: 1, groups: {leaves: [lo]}}\n";
  text += "  links:\n";
  for (const char* leaf : {"1", "2", "3", "4"})
    for (const char* spine : {"1", "2"})
      text += std::string("    - endpoints: [\"leaf") + leaf + ":eth" + spine + "\", \"spine" + spine + ":eth" + leaf +
              "\"]\n";
  return text +
         "probes:\n  p1: {srcGroup: leaves, dstGroup: leaves, rate: 10, distance: 3,\n"
         "       ports: [20000, 20001, 20002, 20003, 20004, 20005]}\n" +
         rest;
}

inline Scenario fabricScenario(const std::string& rest) {
  return readScenario(fabricText(rest), "test.yaml");
}

// The text of everything that was expected inside another process and did not come; a test expects it empty.
class Failures {
 public:
  void expect(bool holds, const std::string& what) {
    if (!holds) text_ += what + "\n";
  }
  template <class A, class B>
  void equal(const A& is, const B& expected, const std::string& what) {
    expect(is == expected, what + " is " + std::to_string(is) + ", expected " + std::to_string(expected));
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// Runs `body` as the first process of a sandbox. Returns the failures, and what ended it if that was no return.
inline std::string inSandbox(const std::function<void(Failures&)>& body) {
  Sandbox sandbox([&](const Sandbox::Inside& inside) {
    Failures failures;
    try {
      body(failures);
    } catch (const std::exception& error) {
      failures.expect(false, error.what());
    }
    return ::dprintf(inside.result, "%s", failures.text().c_str()) < 0 ? 1 : 0;
  });
  int status = 0;
  const std::string text = sandbox.wait(status);
  return status == 0 ? text : text + "ended with status " + std::to_string(status);
}

// Runs `body` in a process without privileges and returns its text. Where the tests run without any it is the same.
inline std::string asOrdinaryUser(const std::function<std::string()>& body) {
  int ends[2];
  if (::pipe(ends) != 0) return "pipe failed";
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(ends[0]);
    constexpr unsigned nobody = 65534;
    std::string text;
    if (::geteuid() == 0 && (::setgroups(0, nullptr) != 0 || ::setresgid(nobody, nobody, nobody) != 0 ||
                             ::setresuid(nobody, nobody, nobody) != 0))
      text = "cannot become an ordinary user";
    // A process that changed its user gets back what one that was started by that user has: its own /proc files.
    ::prctl(PR_SET_DUMPABLE, 1);
    try {
      if (text.empty()) text = body();
    } catch (const std::exception& error) {
      text = error.what();
    }
    ::_exit(::dprintf(ends[1], "%s", text.c_str()) < 0 ? 1 : 0);
  }
  ::close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(got));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return status == 0 ? text : text + "ended with status " + std::to_string(status);
}

}  // namespace Lab
