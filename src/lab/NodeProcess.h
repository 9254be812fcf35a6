// What a process of a run is told and how it talks with the supervisor: the seam between the lab and what it runs.
// The agents, the probing service and the centre are functions that get a NodeContext; the lab knows no more of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "lab/Topology.h"
#include "platform/Descriptor.h"

namespace Lab {

enum class Role { centre, agent, sonar };

// "centre", "agent", "sonar"
std::string_view roleName(Role role);

// A process's line to the supervisor. The process says once that it is set up, then waits for the start; from then on
// it follows the scenario's changes and runs until it is asked to stop, writes its report and returns.
class Control {
 public:
  enum class Order {
    start,   // all are set up: probing starts now; `zero()` holds from now on
    change,  // one more of the scenario's changes concerns this process
    stop,    // write the report and end
  };

  explicit Control(Platform::Descriptor socket) : socket_(std::move(socket)) {}

  // Readable when an order has come; for the process's event loop.
  int descriptor() const { return socket_.fd(); }
  // The next order that has come, if one has. After the supervisor's end it is stop.
  std::optional<Order> next();
  // Waits for the next order.
  Order wait();

  // This process is set up: for the centre, that agents may connect; for an agent or a probing service, all that can
  // be done before probing starts.
  void ready();

  // The moment at which probing started, in seconds of CLOCK_MONOTONIC: 0 of the scenario's times. Valid after start.
  double zero() const { return zero_; }
  // How many of the scenario's changes hold, as of the latest start or change; after a change it is the last of them.
  std::size_t changes() const { return changes_; }

  // The supervisor's side: sends an order to the process at the other end of `socket`. One that is gone hears nothing.
  static void send(int socket, Order order, double zero, std::size_t changes);

 private:
  struct Message;
  std::optional<Order> receive(int flags);

  Platform::Descriptor socket_;
  double zero_ = 0;
  std::size_t changes_ = 0;
};

struct NodeContext {
  const Scenario& scenario;
  const Topology& topology;
  Control& control;
  Role role;
  std::optional<std::size_t> node;  // in the scenario's list; none for the centre
  std::string name;                 // the node's name; "centre" for the centre
  std::uint64_t systemId;           // 48 bits; of the centre, 0
  std::uint32_t loopback;           // host byte order; of the centre, 0
  std::string runDirectory;         // shared by all processes of the run
  std::string nodeDirectory;        // below it, shared by the processes of this node; it exists
  std::string centreSocket;         // path at which the centre listens for the switches' agents
  // Where this process writes its part of the run's report, if it has one: a JSON object, complete before it returns.
  std::string reportFile;
  std::uint64_t seed;   // of this process, from the run's seed
  int generation;       // how often this process was started before
  bool begun;           // probing has started before this process
  std::size_t changes;  // how many of the scenario's changes hold at this process's start
};

// Runs in a process of its own, inside the node's namespaces, as an ordinary child: single-threaded at the start,
// standard streams as the run's, signals as at a program's start, no other descriptors than it is given. Returns the
// exit status: 0 if it was asked to stop and did.
using Body = std::function<int(const NodeContext&)>;

// One that is empty is not started.
struct Bodies {
  Body centre;
  Body agent;
  Body sonar;
};

}  // namespace Lab
