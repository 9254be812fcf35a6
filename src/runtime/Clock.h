// Timers: Rix::Clock, the one timer entity of an activity, and the time that each watcher sets on it.
//
// The clock is shared by all reactors of an activity and lists none of them. `timeMin` stands on the watcher, so a
// million streams can each have their own:
//
//   struct RixDeferTimer : Rix::Watch<RixDeferTimer, Rix::Clock, ExampleSm> {
//     using Watch::Watch;
//     void onTime() override { pass(&ExampleSm::handleDeferTimer); }
//   };
//   deferTimer_.notifierIs(Rix::ActivityManagerConfig::clock());
//   deferTimer_.timeMinIs(Rix::now() + 1.0);
//
// A timer fires once, at the absolute time `timeMin` in seconds on the scale of Rix::now(), and reads as not set
// (positive infinity) before its handler runs, so that a handler's own setting stands. Positive infinity cancels.
// Timers with equal times fire by the rank that the watcher declares, lower first, then in order of setting.
#pragma once

#include "runtime/TimerQueue.h"
#include "runtime/Watch.h"

namespace Rix {

// `timeMin` above this means not set.
constexpr double largestFiniteTime = 1.7976931348623157e308;

class Activity;

class Clock : public Entity {
 public:
  class NotifieeConst : public NotifieeBase {
   public:
    ~NotifieeConst() override;

    virtual void onTime() {}
    // Of two timers with one deadline the lower rank fires first.
    virtual U8 rank() const { return 128; }

    double timeMin() const { return timer_.slot.time(); }
    // Without a clock attached, only positive infinity may be set.
    void timeMinIs(double time);

    void rixSweepCollections(Interest) {}

   private:
    friend class Activity;
    // The queue hands back the slot; the watcher is found from it.
    struct Timer {
      TimerSlot slot;
      NotifieeConst* watcher;
    };
    Timer timer_{{}, this};
  };
  using Notifiee = NotifieeConst;

  explicit Clock(Activity& activity) : activity_(activity) {}
  Type const& fwkType() const override;

  static constexpr Interest rixCollections = 0;
  // The clock visits nobody: its watchers hear from the activity when their time has come.
  template <class Derived>
  static constexpr Interest rixInterestOf() {
    return 0;
  }

 private:
  Activity& activity_;
};

}  // namespace Rix
