// The two lanes of what waits for an answer, the allowance by which they leave, and the times of repetition.
#include "sonar/Notices.h"

#include <algorithm>
#include <array>

namespace Sonar {

namespace {

// Quickly at first, while a silence has not been judged; later in case the source could not be reached for a while.
constexpr std::array<Rix::Seconds, 19> pauses{0.05, 0.05, 0.1, 0.1, 0.2, 0.4, 0.8, 1.6, 3.2, 5,
                                              5,    5,    5,   5,   5,   5,   5,   5,   5};

// A token is there when all but a rounding error of it is.
constexpr double oneToken = 1 - 1e-6;

constexpr auto later = [](auto const& left, auto const& right) {
  return left.when > right.when || (left.when == right.when && left.serial > right.serial);
};

}  // namespace

U64 Notices::nextSerial() {
  // An epoch is above all before it, across restarts too, so what is counted above it is.
  if (lastSerial_ == 0) lastSerial_ = nextEpoch_() << 32;
  return ++lastSerial_;
}

U64 Notices::tell(Rix::Seconds now, Netkit::IpAddr to, Notice notice, Urgency urgency) {
  if (waiting_.size() >= most_) {
    ++counts_.refused;
    return 0;
  }
  notice.serial = nextSerial();
  waiting_.emplace(notice.serial, Waiting{.to = to, .notice = notice, .urgency = urgency});
  Lane& heap = lane(urgency);
  heap.push_back({now, notice.serial});
  std::push_heap(heap.begin(), heap.end(), later);
  return notice.serial;
}

Flow Notices::flowTo(Netkit::IpAddr to, unsigned tries) const {
  return {ownAddress_, to, static_cast<U16>(noticePort + tries % noticePorts), probePort};
}

void Notices::tellOnce(Netkit::IpAddr to, Notice const& notice, unsigned attempt) {
  if (ownAddress_ == Netkit::IpAddr()) return;
  ready_.push_back({.flow = flowTo(to, attempt), .notice = notice});
}

void Notices::answer(Flow const& flow, Notice const& notice) {
  // By the port of its counterpart, so that another try is answered by another way.
  ready_.push_back({.flow = {flow.destination, flow.source, flow.sourcePort, probePort}, .notice = notice});
}

void Notices::tellInBand(Notice const& notice) {
  ready_.push_back({.flow = notice.stream, .hopLimit = notice.ttl, .notice = notice});
}

bool Notices::answered(U64 serial) {
  if (waiting_.erase(serial) == 0) return false;
  ++counts_.answered;
  return true;
}

Rix::Seconds Notices::nextDue() const {
  if (!ready_.empty()) return -Rix::never;
  Rix::Seconds due = Rix::never;
  if (ownAddress_ == Netkit::IpAddr()) return due;
  for (Lane const* heap : {&urgent_, &patient_}) {
    if (!heap->empty()) due = std::min(due, heap->front().when);
  }
  return tokens_ < oneToken ? std::max(due, filledAt_ + (1 - tokens_) / perSecond) : due;
}

void Notices::takeDue(Rix::Seconds now, std::vector<OutgoingNotice>& notices) {
  counts_.sent += ready_.size();
  notices.insert(notices.end(), ready_.begin(), ready_.end());
  ready_.clear();
  if (urgent_.empty() && patient_.empty()) return;
  tokens_ = std::min(burst, tokens_ + (now - filledAt_) * perSecond);
  filledAt_ = now;
  if (ownAddress_ == Netkit::IpAddr()) return;
  takeLane(urgent_, now, notices);
  takeLane(patient_, now, notices);
}

void Notices::takeLane(Lane& lane, Rix::Seconds now, std::vector<OutgoingNotice>& notices) {
  while (!lane.empty() && lane.front().when <= now && tokens_ >= oneToken) {
    std::pop_heap(lane.begin(), lane.end(), later);
    Due const due = lane.back();
    lane.pop_back();
    auto const known = waiting_.find(due.serial);
    if (known == waiting_.end()) continue;
    Waiting& waiting = known->second;
    tokens_ -= 1;
    ++counts_.sent;
    if (waiting.tries > 0) ++counts_.repeated;
    notices.push_back({.flow = flowTo(waiting.to, waiting.tries), .notice = waiting.notice});
    if (waiting.tries == pauses.size()) {
      waiting_.erase(known);
      ++counts_.givenUp;
      continue;
    }
    lane.push_back({now + pauses[waiting.tries++], due.serial});
    std::push_heap(lane.begin(), lane.end(), later);
  }
}

}  // namespace Sonar
