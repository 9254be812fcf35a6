// An activity: one agent's thread of handlers, with its time, its timers and what the agent calls global.
//
// A *dispatch* is one timer firing or one piece of input; a *turn* is a dispatch and its flush. Rix::now() stands
// still during a dispatch. A firing timer sees its own deadline, or the last now() if that is later, however late
// the thread woke: time never goes back. Due timers run before input.
//
// Many activities can stand in one process on one thread, two central agents among them: what is called global (the
// root directory, the clock, the root object, where messages go) is reached through the *current* activity, which
// whoever dispatches sets. What one agent sends to another becomes input of the other, never a call nested in the
// sender.
//
// Nothing here reads a clock of the system: time is handed in.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "runtime/Clock.h"

namespace Rix {

class Dir;
class LogHandle;

// Where an activity's time comes from, in seconds.
class TimeSource {
 public:
  virtual ~TimeSource() = default;
  // Monotonic; the scale of Rix::now().
  virtual double now() = 0;
  // Wall-clock seconds since 1970.
  virtual double utcNow() = 0;
};

// Time that a test or a simulation advances.
class VirtualTime : public TimeSource {
 public:
  explicit VirtualTime(double now = 0, double utcOffset = 1.7e9) : now_(now), utcOffset_(utcOffset) {}
  double now() override { return now_; }
  double utcNow() override { return now_ + utcOffset_; }
  // Never back.
  void nowIs(double now);

 private:
  double now_;
  double utcOffset_;
};

// A structured message on its way to the operator's log.
struct LogMessage {
  LogHandle const* handle;
  double time;     // Rix::now()
  double utcTime;  // Rix::utcNow()
  std::string text;
  std::vector<std::string> arguments;
};

class Activity {
 public:
  // `time` must outlive the activity.
  explicit Activity(TimeSource& time);
  ~Activity();
  Activity(Activity const&) = delete;
  Activity& operator=(Activity const&) = delete;

  // The activity on whose behalf the thread now runs. There must be one.
  static Activity& current();
  static Activity* currentOrNull();

  // Makes an activity the current one for a scope.
  class Use {
   public:
    explicit Use(Activity& activity);
    ~Use();
    Use(Use const&) = delete;
    Use& operator=(Use const&) = delete;

   private:
    Activity* before_;
  };

  // Runs one piece of input as a turn of its own, after all that is due by then.
  void dispatch(std::function<void()> const& input);
  // Leaves a piece of input for a turn of its own, after those left before it.
  void post(std::function<void()> input);
  // Runs every timer that is due by the time source's now, in order, and then what was posted, each as a turn.
  void runDueTimers();
  // When something is due next, on the scale of now(); `never` if nothing is.
  double nextDeadline() { return posted_.empty() ? timers_.firstTime() : now_; }

  double now();
  double utcNow() { return time_.utcNow(); }
  // How many seconds the latest timer fired after its deadline.
  double worstTimerLateness() const { return worstTimerLateness_; }

  Clock& clock() { return *clock_; }
  Dir& globalDir() { return *globalDir_; }
  // What the agent keeps as its one root object, until the activity ends.
  Ptr<Entity>& rootObject() { return rootObject_; }

  // Called at the end of each turn, in order of adding.
  void flushIs(std::function<void()> flush) { flushes_.push_back(std::move(flush)); }
  // Takes the messages of log handles. Without one they are dropped.
  void logSinkIs(std::function<void(LogMessage const&)> sink) { logSink_ = std::move(sink); }
  void log(LogMessage const& message) const {
    if (logSink_) logSink_(message);
  }

 private:
  friend class Clock::NotifieeConst;
  void turn(double now, std::function<void()> const& body);
  void runDue(double until);
  void fireFirst();

  TimeSource& time_;
  TimerQueue timers_;
  std::deque<std::function<void()>> posted_;
  double now_;
  bool dispatching_ = false;
  double worstTimerLateness_ = 0;
  Ptr<Clock> clock_;
  Ptr<Dir> globalDir_;
  Ptr<Entity> rootObject_;
  std::vector<std::function<void()>> flushes_;
  std::function<void(LogMessage const&)> logSink_;
};

// Seconds on the current activity's monotonic scale; stands still during a dispatch.
double now();
// Wall-clock seconds of the current activity.
double utcNow();
// The root directory of the current activity.
Ptr<Dir> globalDir();

struct ActivityManagerConfig {
  // The base clock of the current activity.
  static Ptr<Clock> clock() { return &Activity::current().clock(); }
};
using ActivityFacility = ActivityManagerConfig;

}  // namespace Rix
