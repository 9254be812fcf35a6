// Whole runs with small bodies in the place of the agents: what the supervisor promises them, and that nothing of a
// run outlives it.
#include "lab/Lab.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include "lab/Command.h"
#include "lab/LabTest.h"
#include "platform/EventLoop.h"

namespace Lab {
namespace {

using nlohmann::json;
using Platform::monotonicSeconds;

class Base {
 public:
  Base() {
    path_ = ::testing::TempDir() + "zeb-lab-test.XXXXXX";
    if (!::mkdtemp(path_.data())) throw LabError("mkdtemp");
  }
  ~Base() { std::filesystem::remove_all(path_); }
  const std::string& path() const { return path_; }
  std::set<std::string> content() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) names.insert(entry.path().filename());
    return names;
  }

 private:
  std::string path_;
};

int write(const NodeContext& context, const json& part) {
  std::ofstream(context.reportFile) << part;
  return 0;
}

// Does what is asked of every body and nothing else.
int quiet(const NodeContext& context) {
  context.control.ready();
  if (context.control.wait() != Control::Order::start) return 0;
  return context.control.wait() == Control::Order::stop ? 0 : 1;
}

RunOptions optionsFor(const Base& base) {
  RunOptions options;
  options.bodies = {quiet, quiet, quiet};
  options.seed = 11;
  options.probePort = 49500;
  options.spread = 0.2;
  options.base = base.path();
  return options;
}

std::string hostName() {
  char name[65] = {};
  ::gethostname(name, sizeof name - 1);
  return name;
}

sockaddr_un unixAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

// Waits for `count` words from agents on the socket, then tells who came.
int hearingCentre(const NodeContext& context, std::size_t count) {
  const Platform::Descriptor listener(::socket(AF_UNIX, SOCK_SEQPACKET, 0));
  const sockaddr_un address = unixAddress(context.centreSocket);
  if (::bind(listener.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return 2;
  if (::listen(listener.fd(), 16) != 0) return 3;
  context.control.ready();
  json names = json::array();
  for (std::size_t heard = 0; heard < count; ++heard) {
    const Platform::Descriptor peer(::accept(listener.fd(), nullptr, nullptr));
    char word[65] = {};
    if (::recv(peer.fd(), word, sizeof word - 1, 0) <= 0) return 4;
    names.push_back(word);
  }
  if (context.control.wait() != Control::Order::start) return 5;
  if (context.control.wait() != Control::Order::stop) return 6;
  std::sort(names.begin(), names.end());
  return write(context, {{"heard", names}, {"lateness", {{"test", 0.25}}}});
}

int speakingAgent(const NodeContext& context) {
  const Platform::Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0));
  const sockaddr_un address = unixAddress(context.centreSocket);
  if (::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return 2;
  if (::send(socket.fd(), context.name.data(), context.name.size(), 0) < 0) return 3;
  context.control.ready();
  if (context.control.wait() != Control::Order::start) return 4;
  const double started = monotonicSeconds();
  if (context.control.wait() != Control::Order::stop) return 5;
  return write(context, {{"agents",
                          {{context.name,
                            {{"host", hostName()},
                             {"loopback", addressText(context.loopback)},
                             {"id", ethernetText(context.systemId)},
                             {"startedLate", started - context.control.zero()},
                             {"ran", monotonicSeconds() - started}}}}},
                         {"lateness", {{"test", 0.125}}}});
}

TEST(Lab, RunsTheBodiesWhereTheyBelongAndGathersTheirReports) {
  const Base base;
  RunOptions options = optionsFor(base);
  options.bodies.centre = [](const NodeContext& context) { return hearingCentre(context, 6); };
  options.bodies.agent = speakingAgent;
  const RunOutcome outcome = runScenario(fabricScenario("duration: 0.5\n"), options);
  ASSERT_TRUE(outcome.completed) << outcome.error;
  EXPECT_EQ(outcome.report["scenario"], "test");
  EXPECT_EQ(outcome.report["fabric"], "kernel");
  EXPECT_EQ(outcome.report["seed"], 11);
  EXPECT_EQ(outcome.report["heard"], json({"leaf1", "leaf2", "leaf3", "leaf4", "spine1", "spine2"}));
  EXPECT_EQ(outcome.report["lateness"]["test"], 0.25) << "the worst of all processes";
  EXPECT_TRUE(outcome.report["lateness"]["supervisor"].is_number());
  ASSERT_EQ(outcome.report["agents"].size(), 6u);
  for (const auto& [name, agent] : outcome.report["agents"].items()) {
    EXPECT_EQ(agent["host"], name);
    EXPECT_GE(agent["startedLate"], 0.0);
    EXPECT_GE(agent["ran"], 0.4);
  }
  EXPECT_EQ(outcome.report["agents"]["leaf1"]["loopback"], "10.0.0.3");
  EXPECT_EQ(outcome.report["agents"]["leaf1"]["id"], "02:00:00:00:00:03");
  EXPECT_EQ(base.content(), std::set<std::string>());
}

TEST(Lab, CoversEveryDirectedLinkWithSixPorts) {
  const Base base;
  const RunOutcome outcome = runScenario(fabricScenario("duration: 0.1\n"), optionsFor(base));
  ASSERT_TRUE(outcome.completed) << outcome.error;
  ASSERT_EQ(outcome.report["coverage"].size(), 16u);
  std::size_t passages = 0;
  for (const json& entry : outcome.report["coverage"]) {
    EXPECT_GT(entry[2], 0u) << entry;
    passages += entry[2].get<std::size_t>();
  }
  EXPECT_EQ(passages, 2u * 4 * 3 * 6) << "two links for each of the streams";
}

TEST(Lab, WorksForAnOrdinaryUser) {
  EXPECT_EQ(asOrdinaryUser([] {
              const Base base;
              const RunOutcome outcome = runScenario(fabricScenario("duration: 0.1\n"), optionsFor(base));
              return outcome.error;
            }),
            "");
}

TEST(Lab, EndsARunWhoseProcessDiesUnasked) {
  const Base base;
  RunOptions options = optionsFor(base);
  options.bodies.sonar = [](const NodeContext& context) {
    context.control.ready();
    context.control.wait();
    if (context.name == "leaf3") ::raise(SIGKILL);
    return context.control.wait() == Control::Order::stop ? 0 : 1;
  };
  const double start = monotonicSeconds();
  const RunOutcome outcome = runScenario(fabricScenario("duration: 60\n"), options);
  EXPECT_FALSE(outcome.completed);
  EXPECT_EQ(outcome.error.find("leaf3's sonar died unasked at 0."), 0u) << outcome.error;
  EXPECT_NE(outcome.error.find("signal Killed"), std::string::npos) << outcome.error;
  EXPECT_LT(monotonicSeconds() - start, 30);
  EXPECT_EQ(base.content(), std::set<std::string>());
}

TEST(Lab, TellsOfABodyThatFailsAtItsStart) {
  const Base base;
  RunOptions options = optionsFor(base);
  options.bodies.centre = [](const NodeContext&) { return 7; };
  const RunOutcome outcome = runScenario(fabricScenario("duration: 60\n"), options);
  EXPECT_EQ(outcome.error.find("the centre died unasked at 0."), 0u) << outcome.error;
  EXPECT_NE(outcome.error.find("exit status 7"), std::string::npos) << outcome.error;
}

TEST(Lab, RefusesAReportThatIsNoObject) {
  const Base base;
  RunOptions options = optionsFor(base);
  options.bodies.centre = [](const NodeContext& context) {
    std::ofstream(context.reportFile) << "{\"log\": [";
    return quiet(context);
  };
  const RunOutcome outcome = runScenario(fabricScenario("duration: 0.1\n"), options);
  EXPECT_EQ(outcome.error, "the report of the centre is no JSON object");
}

// Each node tells when it was started and whether probing was told of, by a file that outlives its death.
int lifeWriter(const NodeContext& context) {
  context.control.ready();
  if (context.control.wait() != Control::Order::start) return 1;
  const double now = monotonicSeconds() - context.control.zero();
  std::ofstream(context.runDirectory + "/lives", std::ios::app)
      << context.name + " " + std::to_string(context.generation) + " " + std::to_string(now) + "\n";
  return context.control.wait() == Control::Order::stop ? 0 : 2;
}

TEST(Lab, KillsWhatAFaultKillsAndStartsItAgainAfterwards) {
  for (const std::string kind : {"power-off", "freeze"}) {
    const Base base;
    RunOptions options = optionsFor(base);
    options.bodies.agent = lifeWriter;
    options.bodies.centre = [](const NodeContext& context) {
      const int status = quiet(context);
      std::ifstream lives(context.runDirectory + "/lives");
      json list = json::array();
      std::string name;
      int generation = 0;
      double at = 0;
      while (lives >> name >> generation >> at)
        if (name == "spine2") list.push_back({generation, at});
      write(context, {{"lives", list}});
      return status;
    };
    const RunOutcome outcome = runScenario(
        fabricScenario("duration: 1.5\nfaults: [{at: 0.3, until: 0.9, kind: " + kind + ", node: spine2}]\n"), options);
    ASSERT_TRUE(outcome.completed) << outcome.error;
    ASSERT_EQ(outcome.report["lives"].size(), 2u) << outcome.report["lives"];
    EXPECT_EQ(outcome.report["lives"][0][0], 0);
    EXPECT_EQ(outcome.report["lives"][1][0], 1);
    EXPECT_GE(outcome.report["lives"][1][1], 0.9);
    const json& fault = outcome.report["faults"][0];
    EXPECT_EQ(fault["kind"], kind);
    EXPECT_GE(fault["began"], 0.3);
    EXPECT_GE(fault["ended"], 0.9);
    EXPECT_GE(outcome.report["lives"][1][1], fault["ended"]);
  }
}

Platform::Descriptor udp(std::uint32_t address, std::uint16_t port) {
  Platform::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0));
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(address);
  local.sin_port = htons(port);
  if (::bind(socket.fd(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) throw LabError("bind");
  return socket;
}

// leaf2 sends to leaf1 from each port every 5 ms, and leaf1 tells for each port the longest time without a packet.
int silenceMeter(const NodeContext& context) {
  const std::vector<std::uint16_t>& ports = context.scenario.probes[0].ports;
  const bool sends = context.name == "leaf2";
  const bool receives = context.name == "leaf1";
  std::vector<Platform::Descriptor> sockets;
  for (const std::uint16_t port : ports)
    if (sends) sockets.push_back(udp(context.loopback, port));
  if (receives) sockets.push_back(udp(context.loopback, 49500));
  context.control.ready();
  if (context.control.wait() != Control::Order::start) return 1;
  std::map<std::uint16_t, double> last;
  std::map<std::string, double> longest;
  while (context.control.next() != Control::Order::stop) {
    pollfd inputs[2] = {{context.control.descriptor(), POLLIN, 0}, {receives ? sockets[0].fd() : -1, POLLIN, 0}};
    ::poll(inputs, 2, 5);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_addr.s_addr = htonl(context.topology.loopback(2));
    peer.sin_port = htons(49500);
    for (const Platform::Descriptor& socket : sockets)
      if (sends) ::sendto(socket.fd(), "probe", 5, 0, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
    char data[16];
    socklen_t length = sizeof peer;
    while (receives &&
           ::recvfrom(sockets[0].fd(), data, sizeof data, 0, reinterpret_cast<sockaddr*>(&peer), &length) > 0) {
      const std::uint16_t port = ntohs(peer.sin_port);
      const double now = monotonicSeconds();
      if (last.count(port)) {
        double& gap = longest[std::to_string(port)];
        gap = std::max(gap, now - last[port]);
      }
      last[port] = now;
    }
  }
  return receives ? write(context, {{"silence", longest}}) : 0;
}

TEST(Lab, RoutesAroundALinkOnceTheProtocolHasConverged) {
  const Base base;
  RunOptions options = optionsFor(base);
  options.bodies.sonar = silenceMeter;
  const RunOutcome outcome = runScenario(
      fabricScenario("convergence: 0.4\nduration: 2\nfaults: [{at: 0.5, kind: link-down, link: \"leaf1:eth1\"}]\n"),
      options);
  ASSERT_TRUE(outcome.completed) << outcome.error;
  const json& silence = outcome.report["silence"];
  ASSERT_EQ(silence.size(), 6u) << silence;
  int moved = 0;
  for (const auto& [port, seconds] : silence.items()) {
    // A flow either never touched the link or waited for the new routes; what never came back is not in the list.
    if (seconds > 0.35) ++moved;
    EXPECT_LT(seconds, 1.2) << port << " " << outcome.report["lateness"];
  }
  EXPECT_GT(moved, 0) << silence;
  EXPECT_LT(moved, 6) << silence;
}

TEST(Lab, EndsInOrderWhenItIsInterrupted) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const Base base;
    RunOptions options = optionsFor(base);
    const pid_t outer = ::getpid();
    options.bodies.centre = [=](const NodeContext& context) {
      context.control.ready();
      context.control.wait();
      std::ofstream(context.runDirectory + "/../started") << "yes";
      return context.control.wait() == Control::Order::stop ? 0 : 1;
    };
    // The signal comes from outside, once probing has started.
    const pid_t helper = ::fork();
    if (helper == 0) {
      while (!std::filesystem::exists(base.path() + "/started"))
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      ::kill(outer, signal);
      ::_exit(0);
    }
    const RunOutcome outcome = runScenario(fabricScenario("duration: 60\n"), options);
    ::waitpid(helper, nullptr, 0);
    EXPECT_FALSE(outcome.completed);
    EXPECT_EQ(outcome.error, "the run was stopped from outside");
    EXPECT_EQ(base.content(), std::set<std::string>{"started"});
  }
}

// --- nothing outlives a run

std::vector<pid_t> processes() {
  std::vector<pid_t> result;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }))
      result.push_back(static_cast<pid_t>(std::stol(name)));
  }
  return result;
}

pid_t parentOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t bracket = line.rfind(')');
  return bracket == std::string::npos || bracket + 4 > line.size()
             ? 0
             : static_cast<pid_t>(std::strtol(line.c_str() + bracket + 4, nullptr, 10));
}

std::vector<pid_t> familyOf(pid_t root) {
  std::vector<pid_t> family = {root};
  const std::vector<pid_t> all = processes();
  for (std::size_t index = 0; index < family.size(); ++index)
    for (const pid_t process : all)
      if (parentOf(process) == family[index]) family.push_back(process);
  return family;
}

// "net:[4026532000]" and the like, of these processes; none of a process that has gone meanwhile.
std::set<std::string> namespacesOf(const std::vector<pid_t>& family) {
  std::set<std::string> result;
  for (const pid_t process : family)
    for (const char* kind : {"net", "uts", "pid_for_children"}) {
      char target[64] = {};
      const std::string path = "/proc/" + std::to_string(process) + "/ns/" + kind;
      if (::readlink(path.c_str(), target, sizeof target - 1) > 0) result.insert(target);
    }
  return result;
}

// Reaps all children, also those that became ours because their parent was killed. Whether none is left in time.
bool allEnd() {
  const double end = monotonicSeconds() + 20;
  for (;;) {
    const pid_t reaped = ::waitpid(-1, nullptr, WNOHANG);
    if (reaped < 0 && errno == ECHILD) return true;
    if (reaped == 0) {
      if (monotonicSeconds() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
}

TEST(Lab, LeavesNothingBehindWhateverIsKilledWhenever) {
  const Base base;
  const Scenario scenario =
      fabricScenario("duration: 0.4\nfaults: [{at: 0.1, kind: link-down, link: \"leaf1:eth1\"}]\n");
  ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  const std::set<std::string> ours = namespacesOf({::getpid()});
  std::mt19937_64 random(20);
  std::size_t leftDirectories = 0;
  for (int round = 0; round < 20; ++round) {
    const pid_t outer = ::fork();
    if (outer == 0) {
      try {
        runScenario(scenario, optionsFor(base));
      } catch (const std::exception&) {
        // It was cut short before it could begin; what counts is what is left.
      }
      ::_exit(0);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 800000));
    const std::vector<pid_t> family = familyOf(outer);
    std::set<std::string> namespaces;
    for (const std::string& each : namespacesOf(family))
      if (!ours.count(each)) namespaces.insert(each);
    // Every other time the process that a user would kill, else any of its family.
    const pid_t victim = round % 2 == 0 ? outer : family[random() % family.size()];
    ::kill(victim, SIGKILL);
    ASSERT_TRUE(allEnd()) << "a process outlived its run, round " << round;
    for (const std::string& each : namespacesOf(processes()))
      EXPECT_EQ(namespaces.count(each), 0u) << each << " outlived its run, round " << round;
    leftDirectories += base.content().size();
    ASSERT_LE(base.content().size(), 1u) << "a start did not remove what was left before it";
  }
  ::prctl(PR_SET_CHILD_SUBREAPER, 0);
  EXPECT_GT(leftDirectories, 0u) << "no kill left a directory, so their removal was not tried";
  const RunOutcome outcome = runScenario(scenario, optionsFor(base));
  EXPECT_TRUE(outcome.completed) << outcome.error;
  EXPECT_EQ(base.content(), std::set<std::string>());
}

}  // namespace
}  // namespace Lab
