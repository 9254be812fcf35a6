// Dispatching: due timers first, time fixed for each turn, a flush at its end.
#include "runtime/Activity.h"

#include <algorithm>

#include "runtime/Dir.h"
#include "runtime/Type.h"

namespace Rix {
namespace {
thread_local Activity* currentActivity = nullptr;
}

void VirtualTime::nowIs(double now) {
  RIX_ASSERT(now >= now_, now, now_);
  now_ = now;
}

Type const& Clock::fwkType() const {
  static Type const type = plainType("Rix::Clock");
  return type;
}

Clock::NotifieeConst::~NotifieeConst() {
  if (timer_.slot.time() > largestFiniteTime) return;
  static_cast<Clock*>(rixNotifier())->activity_.timers_.cancel(timer_.slot);
}

void Clock::NotifieeConst::timeMinIs(double time) {
  auto* clock = static_cast<Clock*>(rixNotifier());
  if (time > largestFiniteTime) {
    if (timer_.slot.time() <= largestFiniteTime) clock->activity_.timers_.cancel(timer_.slot);
    return;
  }
  RIX_ASSERT(clock != nullptr, time);
  clock->activity_.timers_.set(timer_.slot, time, rank());
}

Activity::Activity(TimeSource& time)
    : time_(time), now_(time.now()), clock_(make<Clock>(*this)), globalDir_(make<Dir>(Name())) {}

Activity::~Activity() {
  Use use(*this);
  rootObject_ = nullptr;
  globalDir_ = nullptr;
}

Activity& Activity::current() {
  RIX_ASSERT(currentActivity != nullptr);
  return *currentActivity;
}
Activity* Activity::currentOrNull() {
  return currentActivity;
}

Activity::Use::Use(Activity& activity) : before_(currentActivity) {
  currentActivity = &activity;
}
Activity::Use::~Use() {
  currentActivity = before_;
}

double Activity::now() {
  if (!dispatching_) now_ = std::max(now_, time_.now());
  return now_;
}

void Activity::turn(double now, std::function<void()> const& body) {
  RIX_ASSERT(!dispatching_);
  Use use(*this);
  struct Dispatching {
    bool& flag;
    explicit Dispatching(bool& f) : flag(f) { flag = true; }
    ~Dispatching() { flag = false; }
  } dispatching(dispatching_);
  now_ = std::max(now_, now);
  body();
  for (auto const& flush : flushes_) flush();
}

void Activity::dispatch(std::function<void()> const& input) {
  // One reading of the clock: what falls due while the timers run waits, or it would run behind later input.
  double const until = time_.now();
  runDue(until);
  turn(until, input);
}

void Activity::post(std::function<void()> input) {
  posted_.push_back(std::move(input));
}

void Activity::runDueTimers() {
  runDue(time_.now());
}

void Activity::runDue(double until) {
  for (;;) {
    if (timers_.firstTime() <= until) {
      double const deadline = timers_.firstTime();
      worstTimerLateness_ = std::max(worstTimerLateness_, until - deadline);
      turn(deadline, [this] { fireFirst(); });
    } else if (!posted_.empty()) {
      auto const input = std::move(posted_.front());
      posted_.pop_front();
      turn(until, input);
    } else {
      return;
    }
  }
}

void Activity::fireFirst() {
  TimerSlot& slot = timers_.takeFirst();
  auto& watcher = *reinterpret_cast<Clock::NotifieeConst::Timer*>(&slot)->watcher;
  if (!watcher.isRegisteredNotifiee() || watcher.isZombie()) return;
  try {
    watcher.onTime();
  } catch (std::exception const& exception) {
    watcher.onNotificationException(exception);
  }
}

double now() {
  return Activity::current().now();
}
double utcNow() {
  return Activity::current().utcNow();
}
Ptr<Dir> globalDir() {
  return &Activity::current().globalDir();
}

}  // namespace Rix
