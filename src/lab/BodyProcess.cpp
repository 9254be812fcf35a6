// The loop of a body: what is due is asked of the body and of its activity at each turn.
#include "lab/BodyProcess.h"

#include <sys/epoll.h>

#include <algorithm>
#include <fstream>

namespace Lab {

BodyProcess::BodyProcess(const NodeContext& context) : context_(context) {}

void BodyProcess::run() {
  loop_.stopOnSignals();
  loop_.add(context_.control.descriptor(), EPOLLIN, [this](std::uint32_t) { handleOrders(); });
  loop_.timersAre([this] { return std::min(activity_.nextDeadline(), nextDeadline()); }, [this] { handleTimers(); });
  loop_.turnEndIs([this] { activity_.runDueTimers(); });
  context_.control.ready();
  loop_.run();
  loop_.remove(context_.control.descriptor());
}

void BodyProcess::handleOrders() {
  while (const auto order = context_.control.next()) {
    if (*order == Control::Order::stop) return loop_.stop();
    const std::size_t changes = context_.control.changes();
    changesAre(changes, *order == Control::Order::change ? &context_.scenario.changes[changes - 1] : nullptr);
    // From here on it would show in what is measured.
    if (*order == Control::Order::start) loop_.resetWorstLateness();
  }
}

void BodyProcess::handleTimers() {
  const double now = Platform::monotonicSeconds();
  if (nextDeadline() <= now) handleDeadline(now);
  activity_.runDueTimers();
}

void BodyProcess::write(nlohmann::json report) {
  report["lateness"] = {{"timers", std::max(activity_.worstTimerLateness(), loop_.worstLateness())}};
  std::ofstream(context_.reportFile) << report;
}

}  // namespace Lab
