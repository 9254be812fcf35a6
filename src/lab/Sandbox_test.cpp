// The process tree of a run by itself: its namespaces, its result, its end, and a machine that does not allow it.
#include "lab/Sandbox.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>

#include "lab/Command.h"
#include "lab/LabTest.h"

namespace Lab {
namespace {

TEST(Sandbox, IsAProcessTreeOfItsOwn) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              failures.equal(::getpid(), 1, "the first process's number");
              // The loopback alone, and that one down.
              failures.expect(runCommand({{"ip", "-oneline", "link"}}).find("1: lo: <LOOPBACK> ") == 0, "other links");
              failures.equal(runCommand({{"ip", "-oneline", "link"}}).find('\n') + 1,
                             runCommand({{"ip", "-oneline", "link"}}).size(), "one line of links");
            }),
            "");
}

TEST(Sandbox, HandsOutAResultLargerThanAPipeAndTheStatus) {
  Sandbox sandbox([](const Sandbox::Inside& inside) {
    const std::string large(300000, 'x');
    for (std::size_t done = 0; done < large.size();)
      done += static_cast<std::size_t>(::write(inside.result, large.data() + done, large.size() - done));
    return 3;
  });
  int status = 0;
  EXPECT_EQ(sandbox.wait(status), std::string(300000, 'x'));
  EXPECT_EQ(status, 3);
}

TEST(Sandbox, AsksItsFirstProcessToEnd) {
  Sandbox sandbox([](const Sandbox::Inside& inside) {
    pollfd wait{inside.stop, POLLIN, 0};
    return ::poll(&wait, 1, 20000) == 1 ? 0 : 1;
  });
  sandbox.stop();
  int status = 1;
  sandbox.wait(status);
  EXPECT_EQ(status, 0);
  sandbox.stop();  // nobody is left to hear it, and nothing happens
}

TEST(Sandbox, EndsWithTheObjectThatStandsForIt) {
  int alive[2];
  ASSERT_EQ(::pipe(alive), 0);
  {
    const Sandbox sandbox([](const Sandbox::Inside&) {
      ::pause();
      return 0;
    });
    ::close(alive[1]);  // now only the sandbox has the other end
  }
  char letter = 0;
  EXPECT_EQ(::read(alive[0], &letter, 1), 0) << "its processes are still there";
  ::close(alive[0]);
}

TEST(Sandbox, EndsWithTheProcessThatMadeItWhateverIsGoingOnInside) {
  int alive[2];
  ASSERT_EQ(::pipe(alive), 0);
  const pid_t outside = ::fork();
  if (outside == 0) {
    const Sandbox sandbox([](const Sandbox::Inside&) -> int {
      for (;;) ::pause();  // deaf to every request
    });
    ::kill(::getpid(), SIGKILL);
  }
  ::close(alive[1]);
  char letter = 0;
  EXPECT_EQ(::read(alive[0], &letter, 1), 0) << "its processes are still there";
  ::close(alive[0]);
  ::waitpid(outside, nullptr, 0);
}

TEST(Sandbox, SaysInOneLineWhatHelpsWhereNamespacesAreNotAllowed) {
  EXPECT_EQ(
      asOrdinaryUser([]() -> std::string {
        sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_unshare, 0, 1),
                                BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                                BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
        const sock_fprog program{4, filter};
        if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
            ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
          return "cannot forbid namespaces";
        try {
          Sandbox sandbox([](const Sandbox::Inside&) { return 0; });
          return "it was allowed";
        } catch (const LabError& error) {
          return error.what();
        }
      }),
      "this machine does not let this user make namespaces (unshare: Operation not permitted); what helps: run as "
      "root, or allow user namespaces (sysctl user.max_user_namespaces above 0, and where they exist "
      "kernel.unprivileged_userns_clone=1 and kernel.apparmor_restrict_unprivileged_userns=0), or in a container "
      "give it the right to administer namespaces");
}

}  // namespace
}  // namespace Lab
