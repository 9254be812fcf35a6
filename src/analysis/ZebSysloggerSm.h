// The loss logger: writes the one message that this service sends to the operator's log, the inferred place of a loss.
//
// It does not speak of flickers and does not repeat itself. A pair of devices waits ten seconds from its first
// notification, and is logged if it stands at the end of them, whatever it did meanwhile; once logged, it is silent for
// ninety seconds. A standing pair notifies once, so it is logged once. Both queues are forgotten on a disable.
//
// Its timers fire before all others of the same deadline: whoever adds a pair at that moment finds the pairs that were
// due already dealt with.
#pragma once

#include "model/gen/Status.h"
#include "runtime/Clock.h"
#include "runtime/LinkQueue.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebSysloggerSm : public Rix::Reactor<ZebSysloggerSm> {
 public:
  struct RixStatus : Rix::Watch<RixStatus, ZebStatus const, ZebSysloggerSm> {
    using Watch::Watch;
    void onLossStatus() override { pass(&ZebSysloggerSm::handleLossStatus); }
  };
  struct RixLossStatus : Rix::Watch<RixLossStatus, ProbeLossStatus const, ZebSysloggerSm> {
    using Watch::Watch;
    void onDevicePairLossRecord(DevicePair const& pair) override { pass(&ZebSysloggerSm::handleDevicePair, pair); }
  };
  static constexpr U8 timerRank = 10;
  struct RixUnloggedPairTimer : Rix::Watch<RixUnloggedPairTimer, Rix::Clock, ZebSysloggerSm> {
    using Watch::Watch;
    void onTime() override { pass(&ZebSysloggerSm::handleUnloggedPairTimer); }
    U8 rank() const override { return timerRank; }
  };
  struct RixLoggedPairTimer : Rix::Watch<RixLoggedPairTimer, Rix::Clock, ZebSysloggerSm> {
    using Watch::Watch;
    void onTime() override { pass(&ZebSysloggerSm::handleLoggedPairTimer); }
    U8 rank() const override { return timerRank; }
  };

  explicit ZebSysloggerSm(Rix::Ptr<ZebStatus const> const& status);
  template <class F>
  void rixParts(F&& f) {
    f(status_);
    f(lossStatus_);
    f(unloggedPairTimer_);
    f(loggedPairTimer_);
  }
  auto rixParameters() const { return std::tuple(Rix::Ptr<ZebStatus const>(status_.notifier())); }
  static constexpr std::array rixParameterNames{"status"};

  // The pairs that wait to be logged, and those logged recently, oldest first.
  Rix::LinkQueue<PairTime> const& unloggedPair() const { return unloggedPair_; }
  Rix::LinkQueue<PairTime> const& loggedPair() const { return loggedPair_; }
  // How long a pair must stand, and how long a logged pair stays silent.
  static constexpr Rix::Seconds unloggedWait() { return 10.0; }
  static constexpr Rix::Seconds loggedWait() { return 90.0; }
  // When the timers will fire; never, if they are off.
  Rix::Seconds unloggedPairTimeMin() const { return unloggedPairTimer_.timeMin(); }
  Rix::Seconds loggedPairTimeMin() const { return loggedPairTimer_.timeMin(); }

  // Takes the clock for both timers first, since the loss status may hold pairs already.
  void handleInitialized();
  void handleLossStatus();
  void handleDevicePair(DevicePair const& pair);
  void handleUnloggedPairTimer();
  // Takes one pair for each firing: the one that the timer was set for.
  void handleLoggedPairTimer();
  // A pair that waits already keeps its time.
  void doAddUnloggedPair(DevicePair const& pair);
  // A pair that is silent already keeps its time, so that a repeat does not lengthen the silence.
  void doAddLoggedPair(DevicePair const& pair);
  // A pair at the head that is due must have been dealt with: else an assertion ends the process.
  void doSetUnloggedPairTimer();
  void doSetLoggedPairTimer();
  // Logs the pair, unless it was logged too recently. A device of the pair without a client entry ends the process.
  void doSyslog(DevicePair const& pair);

 private:
  Rix::LinkQueue<PairTime> unloggedPair_;
  Rix::LinkQueue<PairTime> loggedPair_;
  RixStatus status_{this};
  RixLossStatus lossStatus_{this};
  RixUnloggedPairTimer unloggedPairTimer_{this};
  RixLoggedPairTimer loggedPairTimer_{this};
};

Rix::Ptr<ZebSysloggerSm> zebSysloggerSmFactory(Rix::Ptr<ZebStatus const> const& status);

}  // namespace Zeb
