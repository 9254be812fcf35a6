// Two forks: the process in between gives up its place among the machine's namespaces, so that its child is the first
// in the new ones, while the caller stays where it is. Each of the two is killed by the kernel when its parent ends.
#include "lab/Sandbox.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#include "lab/Command.h"

namespace Lab {

namespace {

struct Pipe {
  Platform::Descriptor read;
  Platform::Descriptor write;

  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw LabError(std::string("pipe: ") + std::strerror(errno));
    read = Platform::Descriptor(ends[0]);
    write = Platform::Descriptor(ends[1]);
  }
};

std::string readAll(int fd) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return text;
    text.append(buffer, static_cast<std::size_t>(got));
  }
}

void writeFile(const char* path, const std::string& text) {
  const Platform::Descriptor file(::open(path, O_WRONLY | O_CLOEXEC));
  if (!file || ::write(file.fd(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    throw LabError(std::string(path) + ": " + std::strerror(errno));
}

[[noreturn]] void refuse(const char* call) {
  throw LabError(
      std::string("this machine does not let this user make namespaces (") + call + ": " + std::strerror(errno) +
      "); what helps: run as root, or allow user namespaces (sysctl user.max_user_namespaces above 0, and where they "
      "exist kernel.unprivileged_userns_clone=1 and kernel.apparmor_restrict_unprivileged_userns=0), or in a container "
      "give it the right to administer namespaces");
}

void leaveNamespaces() {
  const int wanted = CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWUTS;
  const unsigned uid = ::geteuid();
  const unsigned gid = ::getegid();
  if (::unshare(wanted) != 0) {
    if (errno != EPERM) refuse("unshare");
    if (::unshare(CLONE_NEWUSER | wanted) != 0) refuse("unshare");
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
  }
  // Some systems make the namespaces and then give no rights in them.
  if (::sethostname("zeb-lab", 7) != 0) refuse("sethostname");
}

void endWithParent(int stop) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The parent may have ended before the line above; nobody holds the other end of this pipe then.
  pollfd end{stop, 0, 0};
  if (::poll(&end, 1, 0) > 0) ::_exit(1);
}

int statusOf(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) return 1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs `action`; an exception's text goes to `errors`. Buffered output must not be lost or be written twice.
int guarded(int errors, const std::function<int()>& action) {
  int status = 1;
  try {
    status = action();
  } catch (const std::exception& error) {
    ::dprintf(errors, "%s", error.what());
  }
  std::fflush(nullptr);
  return status;
}

}  // namespace

Sandbox::Sandbox(const std::function<int(const Inside&)>& body) {
  Pipe stop;
  Pipe result;
  Pipe alive;
  Pipe refusal;
  std::fflush(nullptr);
  pid_ = ::fork();
  if (pid_ < 0) throw LabError(std::string("fork: ") + std::strerror(errno));
  if (pid_ == 0) {
    stop.write = {};
    result.read = {};
    alive.read = {};
    ::setsid();  // what a terminal sends is for the process outside, which asks the inside to end in order
    ::_exit(guarded(refusal.write.fd(), [&] {
      leaveNamespaces();
      endWithParent(stop.read.fd());
      const pid_t first = ::fork();
      if (first < 0) refuse("fork");
      if (first == 0) {
        refusal.write = {};
        endWithParent(stop.read.fd());
        const Inside inside{stop.read.fd(), result.write.fd(), alive.write.fd()};
        ::_exit(guarded(STDERR_FILENO, [&] { return body(inside); }));
      }
      refusal.write = {};
      alive.write = {};
      result.write = {};
      return statusOf(first);
    }));
  }
  refusal.write = {};
  const std::string refused = readAll(refusal.read.fd());
  if (!refused.empty()) {
    statusOf(pid_);
    throw LabError(refused);
  }
  stop_ = std::move(stop.write);
  stopReader_ = std::move(stop.read);
  result_ = std::move(result.read);
  alive_ = std::move(alive.read);
}

Sandbox::~Sandbox() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  int status = 0;
  wait(status);
}

void Sandbox::stop() {
  const char word = 's';
  [[maybe_unused]] const ssize_t written = ::write(stop_.fd(), &word, 1);
}

std::string Sandbox::wait(int& status) {
  std::string result = readAll(result_.fd());
  // The end of this pipe is the end of the last process inside, also if the one in between was killed before.
  readAll(alive_.fd());
  status = statusOf(pid_);
  pid_ = -1;
  return result;
}

}  // namespace Lab
