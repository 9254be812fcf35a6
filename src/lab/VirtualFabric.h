// A whole system on virtual time, in one process and on one thread: the real central agent, the real agent and probing
// service of each switch, joined by the exchange in memory, and a network of arithmetic. The same scenario and seed
// give the same run, to the byte.
//
// Whoever makes one advances its time. It runs always what is due first; nothing sleeps and nothing waits.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "central/ZebAgent.h"
#include "lab/Configuration.h"
#include "lab/LossHistory.h"
#include "lab/VirtualSwitch.h"
#include "runtime/Trace.h"

namespace Lab {

class VirtualFabric {
 public:
  struct Options {
    std::uint64_t seed = 1;
    double spread = 5;          // seconds over which the switches start before probing does
    double routeSpread = 0.02;  // seconds from the first to the last switch that a new route reaches
    bool sonar = true;          // false: no probing services, for runs that are about orders alone
  };

  // All is set up and probing starts: the time is 0. The scenario's faults and changes follow as time advances.
  VirtualFabric(Scenario scenario, const Options& options);
  ~VirtualFabric();
  VirtualFabric(const VirtualFabric&) = delete;
  VirtualFabric& operator=(const VirtualFabric&) = delete;

  // Seconds since probing started; this scale is that of every time below.
  double now();
  // Runs all that is due until then, that moment included. Never back.
  void runUntil(double time);
  // Runs to the end of the scenario.
  void run() { runUntil(scenario_.duration); }
  // Something else to do at a time, after what is due then and was asked for before.
  void at(double time, std::function<void()> action);

  // --- what can be done to it at any time, beside the scenario

  // A fault that the scenario does not have, from now on to its `until`; its `at` does not count.
  void begin(Fault fault);
  // A change that the scenario does not have, carried out now; its `at` does not count.
  void apply(const Change& change);
  // One of those: a probe stops, or goes on. Precondition: it is configured.
  void probeEnabledIs(const std::string& name, bool enabled);
  // This switch shares flows out over equal paths in another way from now on.
  void hashSeedIs(std::size_t node, std::uint64_t seed);
  // Somebody else at that node sends this packet.
  void send(const VirtualNetwork::Sending& packet);
  // Each dies now and is there again `down` seconds later.
  void agentRestart(std::size_t node, double down);
  void sonarRestart(std::size_t node, double down);
  void centreRestart(double down);
  // Sonar is told to stop, goes when it has told of that, and is there again `down` seconds from now.
  void sonarRestartPlanned(std::size_t node, double down);

  // --- the outcome

  struct Message {
    double time;
    Rix::LogMessage message;
  };
  const std::vector<Message>& log() const { return log_; }
  // The log as lines, each with its time to the last digit.
  std::string logText() const;
  // All that the tables of the switches hold, and all that the centre has made of it, as text.
  std::string stateText();
  // Names of the two hosts of a message or of a standing device pair.
  using Names = std::pair<std::string, std::string>;
  // By each message about a pair, in the order of the log.
  std::vector<Names> namedPairs() const;
  std::vector<Names> standingPairs() const;
  // The texts of the failed assertions, each of which has ended an agent: it is put aside and started anew.
  const std::vector<std::string>& failures() const { return failures_; }

  const Scenario& scenario() const { return scenario_; }
  const Topology& topology() const { return topology_; }
  // As it is now.
  const Configuration& configuration() const { return configuration_; }
  VirtualNetwork& network() { return network_; }
  const Sonar::Keyring& keys() const { return keys_; }
  VirtualSwitch& node(std::size_t node) { return *switches_[node]; }
  // The node of that name. Precondition: there is one.
  std::size_t nodeNamed(const std::string& name) const;
  LinkSide sideNamed(const std::string& node, const std::string& interface) const;
  // How many of the scenario's flows pass this side now.
  std::size_t flowsOver(LinkSide side) const;

  bool centreRuns() const { return centre_ != nullptr; }
  // Precondition of these: the centre runs.
  Zeb::Agent& centre() const;
  Zeb::ZebStatus& status() const { return *centre().status(); }
  Zeb::Root& root() const { return *centre().root(); }
  const LossHistory& history() const;
  // Streams that the centre knows to be sent by some switch, and that still are.
  std::size_t streams() const;
  Rix::Activity& centreActivity() const;

 private:
  class Centre;
  static constexpr double zero = 1000;      // of the scenario on the scale of the activities
  static constexpr double failureDown = 1;  // seconds until what has failed is started anew

  void centreIs();
  void centreFailed();
  void nodeStarts(std::size_t node);
  void agentStarts(std::size_t node);
  void writePlatform(std::size_t node, Atlas::EntityManager& store) const;
  void configureCentre();
  void configureSwitch(std::size_t node);
  void sonarStopped(std::size_t node, double latest);
  void faultIs(std::size_t fault, bool active);
  void routeSoon();
  void advance(double until);
  void step(std::size_t actor, const std::function<void()>& run);
  void deliver();
  void refresh();
  void refresh(std::size_t node) { due_[node] = switches_[node]->nextDeadline(); }

  Scenario scenario_;
  const Options options_;
  const Topology topology_;
  Rix::VirtualTime time_{zero - 100};
  Fabric::MemoryNetwork exchange_;
  Fabric::MemoryReportStore reports_;
  VirtualNetwork network_;
  Sonar::Keyring keys_;
  Configuration configuration_;
  std::map<std::string, Probe> probes_;  // while probing has not started
  std::vector<bool> active_;             // per fault
  std::vector<std::unique_ptr<VirtualSwitch>> switches_;
  std::unique_ptr<Centre> centre_;
  U64 incarnations_ = 0;  // of the centre
  std::multimap<double, std::function<void()>> plan_;
  std::vector<double> due_;  // of the switches, and at last of the centre
  std::vector<Message> log_;
  std::vector<std::string> failures_;
};

}  // namespace Lab
