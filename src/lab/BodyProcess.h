// What the processes of a run have in common: one loop with an activity in it, and the line to the supervisor. A body
// makes its parts in its constructor, says here what is to be done when, and leaves the loop to this.
#pragma once

#include <limits>
#include <nlohmann/json.hpp>

#include "lab/NodeProcess.h"
#include "platform/EventLoop.h"
#include "platform/SystemTime.h"
#include "runtime/Activity.h"

namespace Lab {

class BodyProcess {
 public:
  BodyProcess(const BodyProcess&) = delete;
  BodyProcess& operator=(const BodyProcess&) = delete;
  virtual ~BodyProcess() = default;

  // From the word that all is set up to the order to stop.
  void run();

 protected:
  // `context` outlives this.
  explicit BodyProcess(const NodeContext& context);

  // The first `changes` of the scenario's changes hold. Called when probing starts, and then when the last of them,
  // `latest`, concerns this process.
  virtual void changesAre(std::size_t changes, const Change* latest) = 0;
  // When something beside the activity's timers is due, and the doing of it.
  virtual double nextDeadline() { return std::numeric_limits<double>::infinity(); }
  virtual void handleDeadline(double /*now*/) {}

  // This process's part of the run's report; with the worst lateness of its timers since probing started.
  void write(nlohmann::json report);

  const NodeContext& context_;

 private:
  Platform::SystemTime time_;

 protected:
  Rix::Activity activity_{time_};
  Rix::Activity::Use use_{activity_};
  Platform::EventLoop loop_;

 private:
  void handleOrders();
  void handleTimers();
};

}  // namespace Lab
