// Two queues by time, pairs that wait and pairs that were logged, each with the timer of its head.
#include "analysis/ZebSysloggerSm.h"

#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {

namespace {

Rix::TraceHandle traceHandle("ZebSysloggerSm");

Rix::LogHandle ZEB_LOSS_EVENT("ZEB_LOSS_EVENT", Rix::LogSeverity{6},
                              "Zeb detected probe loss between devices %s and %s.",
                              "Indicates the inferred location of a loss event.", Rix::NoActionRequired, 0.0, 1.0, 0);

bool holds(Rix::LinkQueue<PairTime> const& queue, DevicePair const& pair) {
  return queue.anyOf([&](PairTime const& entry) { return entry.devicePair() == pair; });
}

// A wake-up that is still to come stands.
template <class Timer>
bool isSetForLater(Timer const& timer) {
  return timer.timeMin() > Rix::now() && timer.timeMin() <= Rix::largestFiniteTime;
}

}  // namespace

ZebSysloggerSm::ZebSysloggerSm(Rix::Ptr<ZebStatus const> const& status) {
  status_.notifierIs(status);
  handleInitialized();
}

void ZebSysloggerSm::handleInitialized() {
  unloggedPairTimer_.notifierIs(Rix::ActivityManagerConfig::clock());
  doSetUnloggedPairTimer();
  loggedPairTimer_.notifierIs(Rix::ActivityManagerConfig::clock());
  doSetLoggedPairTimer();
  initializedIs(true);
  handleLossStatus();
}

void ZebSysloggerSm::handleLossStatus() {
  if (initialized()) lossStatus_.notifierIs(status_->lossStatus());
}

void ZebSysloggerSm::handleDevicePair(DevicePair const& pair) {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebSysloggerSm::handleDevicePair(Zeb::DevicePair) devicePair: " << pair);
  // A pair that went away waits on, and is judged when its time comes.
  if (lossStatus_->devicePairLossRecord(pair)) doAddUnloggedPair(pair);
}

void ZebSysloggerSm::doAddUnloggedPair(DevicePair const& pair) {
  if (holds(unloggedPair_, pair)) return;
  unloggedPair_.enq(PairTime(pair, Rix::now()));
  doSetUnloggedPairTimer();
}

void ZebSysloggerSm::doAddLoggedPair(DevicePair const& pair) {
  if (holds(loggedPair_, pair)) return;
  loggedPair_.enq(PairTime(pair, Rix::now()));
  doSetLoggedPairTimer();
}

void ZebSysloggerSm::doSetUnloggedPairTimer() {
  if (isSetForLater(unloggedPairTimer_)) return;
  if (unloggedPair_.empty()) {
    RIX_TRACE(traceHandle, 8, "void Zeb::ZebSysloggerSm::doSetUnloggedPairTimer() turning off timer");
    unloggedPairTimer_.timeMinIs(Rix::never);
    return;
  }
  PairTime const pt = unloggedPair_.front();
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebSysloggerSm::doSetUnloggedPairTimer() resetting timer for devicePair: " << pt.devicePair());
  RIX_ASSERT(pt.time() + unloggedWait() > Rix::now(), pt.devicePair(), pt.time(), Rix::now());
  unloggedPairTimer_.timeMinIs(pt.time() + unloggedWait());
}

void ZebSysloggerSm::doSetLoggedPairTimer() {
  if (isSetForLater(loggedPairTimer_)) return;
  if (loggedPair_.empty()) {
    RIX_TRACE(traceHandle, 8, "void Zeb::ZebSysloggerSm::doSetLoggedPairTimer() turning off timer");
    loggedPairTimer_.timeMinIs(Rix::never);
    return;
  }
  PairTime const pt = loggedPair_.front();
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebSysloggerSm::doSetLoggedPairTimer() resetting timer for devicePair: " << pt.devicePair());
  loggedPairTimer_.timeMinIs(pt.time() + loggedWait());
}

void ZebSysloggerSm::handleUnloggedPairTimer() {
  if (unloggedPairTimer_.timeMin() == 0) return;
  while (!unloggedPair_.empty()) {
    PairTime const pt = unloggedPair_.front();
    if (pt.time() + unloggedWait() > Rix::now()) break;
    RIX_TRACE(traceHandle, 8, "void Zeb::ZebSysloggerSm::handleUnloggedPairTimer() devicePair: " << pt.devicePair());
    if (lossStatus_ && lossStatus_->devicePairLossRecord(pt.devicePair())) {
      doSyslog(pt.devicePair());
      doAddLoggedPair(pt.devicePair());
    }
    unloggedPair_.deq();
  }
  doSetUnloggedPairTimer();
}

void ZebSysloggerSm::handleLoggedPairTimer() {
  if (loggedPairTimer_.timeMin() == 0) return;
  loggedPair_.deq();
  doSetLoggedPairTimer();
}

void ZebSysloggerSm::doSyslog(DevicePair const& pair) {
  if (holds(loggedPair_, pair)) {
    RIX_TRACE(traceHandle, 8, "Pair was logged too recently");
    return;
  }
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebSysloggerSm::doSyslog(Zeb::DevicePair) devicePair: " << pair);
  ZebClient const* silent = status_->client(pair.dev2SysId());
  RIX_ASSERT_TEXT(silent != nullptr, "status.client(pair.dev2SysId())", pair.dev2SysId());
  ZebClient const* good = status_->client(pair.dev1SysId());
  RIX_ASSERT_TEXT(good != nullptr, "status.client(pair.dev1SysId())", pair.dev1SysId());
  Rix::log(ZEB_LOSS_EVENT, good->hostname(), silent->hostname());
}

Rix::Ptr<ZebSysloggerSm> zebSysloggerSmFactory(Rix::Ptr<ZebStatus const> const& status) {
  return Rix::make<ZebSysloggerSm>(status);
}

}  // namespace Zeb
