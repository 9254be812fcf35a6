// One event loop. Its timers are the run's plan: starts, faults, changes, new routes, the end; its inputs are the
// processes' lines, whose end tells of a death, and the request to stop.
#include "lab/Supervisor.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <list>
#include <map>

#include "lab/Command.h"
#include "lab/KernelFabric.h"
#include "lab/Report.h"
#include "lab/Seed.h"
#include "platform/EventLoop.h"

namespace Lab {

namespace {

constexpr double patience = 30;     // seconds for the processes to be set up, and again to end
constexpr double heartbeat = 0.01;  // how often the loop's lateness is looked at when there is nothing else to do

// A centre may end by an assertion, by design, and is started again so many seconds later; but not for ever.
constexpr double revival = 0.5;
constexpr std::size_t mostDeaths = 100;

class Supervisor {
 public:
  Supervisor(const Scenario& scenario, const RunOptions& options, const SupervisorPlace& place)
      : scenario_(scenario),
        options_(options),
        place_(place),
        topology_(scenario),
        active_(scenario.faults.size()),
        faultTimes_(scenario.faults.size()),
        changeTimes_(scenario.changes.size(), -1),
        condition_(conditionOf(scenario, active_)),
        fabric_(topology_, options.probePort, options.seed) {}

  void run() {
    loop_.stopOnSignals();
    loop_.timersAre([this] { return plan_.empty() ? infinity : plan_.begin()->first; }, [this] { fire(); });
    loop_.turnEndIs([this] { idleSince_ = Platform::monotonicSeconds(); });
    loop_.add(place_.inside.stop, EPOLLIN, [this](std::uint32_t) { fail("the run was stopped from outside"); });
    flows_ = flowsOf(topology_);
    coverage_ = coverageOf(topology_, fabric_.paths(flows_));
    beat();
    startDeadline_ = after(patience + options_.spread, [this] { failLate("set up"); });
    if (options_.bodies.centre)
      start(Role::centre, std::nullopt);
    else
      startSwitches();
    if (loop_.run() != 0) fail("the run was stopped by a signal");
  }

  // What is known by now, also of a run that failed.
  nlohmann::json report() {
    nlohmann::json report = {{"scenario", scenario_.name}, {"fabric", "kernel"}, {"seed", options_.seed}};
    report["faults"] = nlohmann::json::array();
    for (std::size_t fault = 0; fault < scenario_.faults.size(); ++fault)
      report["faults"].push_back(faultReport(scenario_, scenario_.faults[fault], faultTimes_[fault]));
    report["configured"] = configurationReport(topology_);
    report["changes"] = nlohmann::json::array();
    for (std::size_t change = 0; change < scenario_.changes.size(); ++change)
      report["changes"].push_back(changeReport(scenario_, scenario_.changes[change], changeTimes_[change]));
    report["deaths"] = deaths_;
    report["coverage"] = coverageReport(scenario_, coverage_);
    report["lateness"]["supervisor"] = lateness_;
    for (const Process& process : processes_) joinPart(report, process);
    return report;
  }

  const std::string& error() const { return error_; }

 private:
  static constexpr double infinity = std::numeric_limits<double>::infinity();

  using Plan = std::multimap<double, std::function<void()>>;

  struct Process {
    Role role;
    std::optional<std::size_t> node;
    std::string name;
    std::string reportFile;
    pid_t pid;
    Platform::Descriptor control;
    bool ready = false;
    bool killed = false;  // by a fault or a restart
    bool ended = false;
  };

  // --- time

  Plan::iterator at(double time, std::function<void()> action) { return plan_.emplace(time, std::move(action)); }
  Plan::iterator after(double seconds, std::function<void()> action) {
    return at(Platform::monotonicSeconds() + seconds, std::move(action));
  }

  void fire() {
    while (!plan_.empty() && plan_.begin()->first <= Platform::monotonicSeconds()) {
      // Own work, such as a fault's commands, delays what comes after it and is no lateness of the machine.
      lateness_ = std::max(lateness_, Platform::monotonicSeconds() - std::max(plan_.begin()->first, idleSince_));
      const auto action = std::move(plan_.begin()->second);
      plan_.erase(plan_.begin());
      action();
      idleSince_ = Platform::monotonicSeconds();
    }
  }

  void beat() {
    after(heartbeat, [this] { beat(); });
  }

  double sinceZero() const { return Platform::monotonicSeconds() - zero_; }

  void tell(const std::string& line) const {
    if (options_.tell) options_.tell(zero_ > 0 ? sinceZero() : 0, line);
  }

  void fail(const std::string& what) {
    if (error_.empty()) error_ = what;
    loop_.stop();
  }

  void failLate(const char* what) {
    std::string names;
    for (const Process& process : processes_)
      if (stopping_ ? !process.ended : !process.ready) names += (names.empty() ? "" : ", ") + process.name;
    fail("not " + std::string(what) + " within " + std::to_string(static_cast<int>(patience)) + " s: " + names);
  }

  // --- processes

  // Where the processes of a node, or the centre, keep what is theirs.
  std::string directoryOf(std::optional<std::size_t> node) const {
    return place_.directory + (node ? "/nodes/" + scenario_.nodes[*node].name : "/centre");
  }

  void start(Role role, std::optional<std::size_t> node) {
    const int generation = generations_[{role, node}]++;
    Process& process = processes_.emplace_back();
    process.role = role;
    process.node = node;
    process.name = node ? scenario_.nodes[*node].name + "'s " + std::string(roleName(role)) : "the centre";
    const std::string directory = directoryOf(node);
    std::filesystem::create_directories(directory);
    process.reportFile =
        directory + "/" + std::string(roleName(role)) + "-report-" + std::to_string(generation) + ".json";
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
      throw LabError(std::string("socketpair: ") + std::strerror(errno));
    process.control = Platform::Descriptor(ends[0]);
    Platform::Descriptor theirs(ends[1]);
    std::fflush(nullptr);
    process.pid = ::fork();
    if (process.pid < 0) throw LabError(std::string("fork: ") + std::strerror(errno));
    if (process.pid == 0) runBody(process, std::move(theirs), generation);
    loop_.add(process.control.fd(), EPOLLIN, [this, &process](std::uint32_t) { handleLine(process); });
  }

  [[noreturn]] void runBody(const Process& process, Platform::Descriptor socket, int generation) {
    int status = 1;
    try {
      if (process.node) fabric_.enter(*process.node);
      keepOnly({socket.fd(), place_.lock, place_.inside.alive});
      sigset_t none;
      sigemptyset(&none);
      ::sigprocmask(SIG_SETMASK, &none, nullptr);
      Control control(std::move(socket));
      const std::size_t number = process.node ? 3 * (*process.node + 1) : 0;
      const NodeContext context{
          scenario_,
          topology_,
          control,
          process.role,
          process.node,
          process.node ? scenario_.nodes[*process.node].name : std::string(roleName(process.role)),
          process.node ? topology_.systemId(*process.node) : 0,
          process.node ? topology_.loopback(*process.node) : 0,
          place_.directory,
          directoryOf(process.node),
          place_.directory + "/centre.socket",
          process.reportFile,
          derivedSeed(options_.seed, number + static_cast<std::size_t>(process.role)),
          generation,
          zero_ > 0,
          changes_};
      const Bodies& bodies = options_.bodies;
      status = (process.role == Role::centre  ? bodies.centre
                : process.role == Role::agent ? bodies.agent
                                              : bodies.sonar)(context);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s: %s\n", process.name.c_str(), error.what());
    }
    std::fflush(nullptr);
    ::_exit(status);
  }

  // Closes all that this process has open but the standard streams and these.
  static void keepOnly(std::vector<int> kept) {
    std::sort(kept.begin(), kept.end());
    unsigned from = 3;
    for (const int fd : kept) {
      if (static_cast<unsigned>(fd) > from) ::close_range(from, static_cast<unsigned>(fd) - 1, 0);
      from = static_cast<unsigned>(fd) + 1;
    }
    ::close_range(from, ~0u, 0);
  }

  void handleLine(Process& process) {
    char letter = 0;
    const ssize_t got = ::recv(process.control.fd(), &letter, 1, MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (got == 1) {
      process.ready = true;
      handleReady(process);
    } else {
      handleEnd(process);
    }
  }

  void handleReady(const Process& process) {
    if (zero_ > 0)
      order(process, Control::Order::start);  // it was started again after a fault
    else if (process.role == Role::centre)
      startSwitches();
    else
      beginIfReady();
  }

  void handleEnd(Process& process) {
    loop_.remove(process.control.fd());
    process.ended = true;
    int status = 0;
    while (::waitpid(process.pid, &status, 0) < 0 && errno == EINTR) {
    }
    const bool inOrder = stopping_ && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!process.killed && !inOrder && mayRevive(process, status)) return revive(process);
    if (!process.killed && !inOrder)
      return fail(process.name + " died unasked at " + std::to_string(zero_ > 0 ? sinceZero() : 0) + " s: " +
                  (WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                     : "signal " + std::string(::strsignal(WTERMSIG(status)))));
    if (stopping_) stopNext();
  }

  // Several ordinary events end the centre by an assertion, on purpose: it comes back and rebuilds its state.
  bool mayRevive(const Process& process, int status) const {
    return process.role == Role::centre && zero_ > 0 && WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT &&
           deaths_.size() < mostDeaths;
  }

  void revive(const Process& process) {
    deaths_.push_back({{"time", sinceZero()}, {"process", process.name}, {"signal", SIGABRT}});
    tell(process.name + " ended by an assertion");
    after(stopping_ ? 0 : revival, [this] { startCentre(); });
  }

  // Also one whose restart was due after the scenario's end: its report tells of those before it.
  void startCentre() {
    if (centreRuns()) {
      after(heartbeat, [this] { startCentre(); });  // the one before is still to be buried
      return;
    }
    start(Role::centre, std::nullopt);
    if (stopping_) order(processes_.back(), Control::Order::stop);
  }

  bool centreRuns() const {
    return std::any_of(processes_.begin(), processes_.end(),
                       [](const Process& each) { return each.role == Role::centre && !each.ended; });
  }

  // A process that is gone is told of by the end of its line.
  void order(const Process& process, Control::Order order) const {
    Control::send(process.control.fd(), order, zero_, changes_);
  }

  // --- the run's course

  void startSwitches() {
    for (std::size_t node = 0; node < topology_.nodes(); ++node) {
      const auto share = static_cast<double>(derivedSeed(options_.seed, node) >> 11) / static_cast<double>(1ull << 53);
      after(share * options_.spread, [this, node] {
        startNode(node);
        ++nodesStarted_;
        beginIfReady();
      });
    }
  }

  void startNode(std::size_t node) {
    if (options_.bodies.sonar) start(Role::sonar, node);
    if (options_.bodies.agent) start(Role::agent, node);
  }

  void beginIfReady() {
    if (nodesStarted_ < topology_.nodes()) return;
    if (!std::all_of(processes_.begin(), processes_.end(), [](const Process& each) { return each.ready; })) return;
    plan_.erase(startDeadline_);
    zero_ = Platform::monotonicSeconds();
    lateness_ = 0;  // from here on it would show in what is measured
    tell("probing starts");
    for (const Process& process : processes_) order(process, Control::Order::start);
    for (std::size_t fault = 0; fault < scenario_.faults.size(); ++fault) {
      at(zero_ + scenario_.faults[fault].at, [this, fault] { faultIs(fault, true); });
      if (scenario_.faults[fault].until)
        at(zero_ + *scenario_.faults[fault].until, [this, fault] { faultIs(fault, false); });
    }
    for (std::size_t change = 0; change < scenario_.changes.size(); ++change)
      at(zero_ + scenario_.changes[change].at, [this, change] { changeIs(change); });
    at(zero_ + scenario_.duration, [this] { stopAll(); });
  }

  // --- changes

  void changeIs(std::size_t index) {
    const Change& change = scenario_.changes[index];
    changes_ = index + 1;
    switch (change.kind) {
      case ChangeKind::probe:
      case ChangeKind::clear:
        orderChange(Role::centre, std::nullopt);
        break;
      case ChangeKind::service:
        orderChange(change.node ? Role::agent : Role::centre, change.node);
        break;
      case ChangeKind::group:
        orderChange(Role::agent, change.node);
        break;
      case ChangeKind::address:
        fabric_.addressIs(*change.node, change.interface, change.address);
        after(scenario_.convergence, [this] { fabric_.route(condition_.linksUp()); });
        break;
      case ChangeKind::hostname:
        fabric_.hostNameIs(*change.node, change.name);
        break;
      case ChangeKind::hash:
        fabric_.hashIs(*change.node, derivedSeed(options_.seed, topology_.nodes() + index));
        break;
      case ChangeKind::restart:
        if (change.restarted == Restarted::centre)
          restartCentre(change.down);
        else
          orderChange(Role::agent, change.node);  // which carries it out itself, for both live in that process
        break;
    }
    changeTimes_[index] = sinceZero();
    tell(changeText(scenario_, change));
  }

  // One that is not set up yet hears of all changes until then when it is.
  void orderChange(Role role, std::optional<std::size_t> node) const {
    for (const Process& process : processes_)
      if (process.role == role && process.node == node && process.ready && !process.ended && !process.killed)
        order(process, Control::Order::change);
  }

  void restartCentre(double down) {
    for (Process& process : processes_)
      if (process.role == Role::centre && !process.ended) {
        process.killed = true;
        ::kill(process.pid, SIGKILL);
      }
    after(down, [this] { startCentre(); });
  }

  void faultIs(std::size_t fault, bool active) {
    active_[fault] = active;
    const Condition condition = conditionOf(scenario_, active_);
    for (Process& process : processes_)
      if (process.node && condition.dead[*process.node] && !process.ended) {
        process.killed = true;
        ::kill(process.pid, SIGKILL);
      }
    const bool visible = condition.linksUp() != condition_.linksUp();
    const std::vector<bool> deadBefore = condition_.dead;
    fabric_.apply(condition);
    condition_ = condition;
    (active ? faultTimes_[fault].began : faultTimes_[fault].ended) = sinceZero();
    tell(describe(fault) + (active ? " begins" : " ends"));
    if (visible) after(scenario_.convergence, [this] { fabric_.route(condition_.linksUp()); });
    for (std::size_t node = 0; node < topology_.nodes(); ++node)
      if (deadBefore[node] && !condition.dead[node]) startNode(node);
  }

  std::string describe(std::size_t index) const {
    const Fault& fault = scenario_.faults[index];
    const std::string kind(faultKindName(fault.kind));
    if (fault.kind == FaultKind::loss)
      return kind + " from " + scenario_.endName(fault.where) + " to " + scenario_.endName(fault.where.peer());
    return kind + " of " +
           (fault.kind == FaultKind::linkDown ? scenario_.endName(fault.where) : scenario_.nodes[fault.node].name);
  }

  // The centre first: what it reports is the state at the end, which the end of the others would disturb.
  void stopAll() {
    stopping_ = true;
    plan_.clear();
    beat();
    after(patience, [this] { failLate("ended"); });
    if (options_.bodies.centre && !centreRuns()) startCentre();
    stopNext();
  }

  void stopNext() {
    bool centre = false;
    bool any = false;
    for (const Process& process : processes_) {
      if (process.ended) continue;
      any = true;
      centre = centre || process.role == Role::centre;
    }
    if (!any) return loop_.stop();
    const int phase = centre ? 1 : 2;
    if (phase == phaseStopped_) return;
    phaseStopped_ = phase;
    for (const Process& process : processes_)
      if (!process.ended && (process.role == Role::centre) == centre) order(process, Control::Order::stop);
  }

  void joinPart(nlohmann::json& report, const Process& process) {
    std::ifstream file(process.reportFile);
    if (!file) return;  // it had nothing to report
    const auto part = nlohmann::json::parse(file, nullptr, false);
    if (part.is_object())
      join(report, part);
    else if (error_.empty())
      error_ = "the report of " + process.name + " is no JSON object";
  }

  const Scenario& scenario_;
  const RunOptions& options_;
  const SupervisorPlace& place_;
  const Topology topology_;
  std::vector<bool> active_;  // per fault
  std::vector<FaultTimes> faultTimes_;
  std::vector<double> changeTimes_;  // when it was carried out; negative: it was not
  std::size_t changes_ = 0;          // how many of the scenario's changes hold
  nlohmann::json deaths_ = nlohmann::json::array();
  Condition condition_;
  KernelFabric fabric_;
  std::vector<Flow> flows_;
  Coverage coverage_;
  Platform::EventLoop loop_;
  Plan plan_;  // by CLOCK_MONOTONIC
  Plan::iterator startDeadline_;
  std::list<Process> processes_;
  std::map<std::pair<Role, std::optional<std::size_t>>, int> generations_;
  std::size_t nodesStarted_ = 0;
  double zero_ = 0;  // 0: probing has not started
  double idleSince_ = 0;
  double lateness_ = 0;
  bool stopping_ = false;
  int phaseStopped_ = 0;
  std::string error_;
};

void writeAll(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = ::write(fd, text.data() + done, text.size() - done);
    if (written < 0 && errno != EINTR) return;  // nobody is left to read it
    if (written > 0) done += static_cast<std::size_t>(written);
  }
}

}  // namespace

int supervise(const Scenario& scenario, const RunOptions& options, const SupervisorPlace& place) {
  std::string error;
  nlohmann::json report = nlohmann::json::object();
  try {
    runCommand({{"ip", "link", "set", "dev", "lo", "up"}});
    Supervisor supervisor(scenario, options, place);
    try {
      supervisor.run();
    } catch (const std::exception& failure) {
      error = failure.what();
    }
    report = supervisor.report();
    if (error.empty()) error = supervisor.error();
  } catch (const std::exception& failure) {
    error = failure.what();
  }
  const auto replace = nlohmann::json::error_handler_t::replace;
  writeAll(place.inside.result, nlohmann::json{{"error", error}, {"report", report}}.dump(-1, ' ', false, replace));
  return error.empty() ? 0 : 1;
}

}  // namespace Lab
