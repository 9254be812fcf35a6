// The process outside the sandbox. It owns the run's directory and has nothing else to do than to wait.
#include "lab/Lab.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <cstring>

#include "lab/Command.h"
#include "lab/RunDirectory.h"
#include "lab/Sandbox.h"
#include "lab/Supervisor.h"

namespace Lab {

namespace {

// Takes SIGINT and SIGTERM as input as long as it lives.
class Signals {
 public:
  Signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &set, &before_);
    input_ = Platform::Descriptor(::signalfd(-1, &set, SFD_CLOEXEC));
    if (!input_) throw LabError(std::string("signalfd: ") + std::strerror(errno));
  }
  Signals(const Signals&) = delete;
  ~Signals() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

  int fd() const { return input_.fd(); }
  void take() const {
    signalfd_siginfo ignored;
    [[maybe_unused]] const ssize_t got = ::read(input_.fd(), &ignored, sizeof ignored);
  }

 private:
  sigset_t before_{};
  Platform::Descriptor input_;
};

}  // namespace

RunOutcome runScenario(const Scenario& scenario, const RunOptions& options) {
  const Signals signals;
  const RunDirectory directory(options.base.empty() ? RunDirectory::defaultBase() : options.base);
  Sandbox sandbox([&](const Sandbox::Inside& inside) {
    return supervise(scenario, options, {directory.path(), directory.lock(), inside});
  });
  for (;;) {
    pollfd inputs[2] = {{signals.fd(), POLLIN, 0}, {sandbox.ready(), POLLIN, 0}};
    if (::poll(inputs, 2, -1) < 0 && errno != EINTR) throw LabError(std::string("poll: ") + std::strerror(errno));
    if (inputs[0].revents != 0) {
      signals.take();
      sandbox.stop();
    }
    if (inputs[1].revents != 0) break;
  }
  int status = 0;
  const nlohmann::json result = nlohmann::json::parse(sandbox.wait(status), nullptr, false);
  RunOutcome outcome;
  if (result.is_discarded()) {
    outcome.error = "the run's supervisor ended without a report, with status " + std::to_string(status);
    return outcome;
  }
  outcome.error = result.at("error");
  outcome.completed = outcome.error.empty();
  outcome.report = result.at("report");
  return outcome;
}

}  // namespace Lab
