// The window as bits: which of the last eight numbers have come, and which have come twice.
#include "sonar/SequenceWindow.h"

namespace Sonar {

// How many expected numbers of the window, from `youngest` behind the highest on, have not come.
U64 SequenceWindow::missingFrom(U64 youngest) const {
  U64 missing = 0;
  for (U64 age = youngest; age < width && expected(age); ++age) missing += (received_ >> age & 1) == 0 ? 1U : 0U;
  return missing;
}

void SequenceWindow::advance(U64 distance) {
  highest_ += distance;
  received_ = static_cast<U8>((distance < width ? received_ << distance : 0) | 1);
  duplicated_ = static_cast<U8>(distance < width ? duplicated_ << distance : 0);
}

SequenceWindow::Result SequenceWindow::take(U64 sequence) {
  if (sequence > highest_) {
    U64 const distance = sequence - highest_;
    // Those that leave the window, and those that it passes over altogether.
    U64 const lost = distance < width ? missingFrom(width - distance) : missingFrom(0) + (distance - width);
    advance(distance);
    return {Arrival::next, lost};
  }
  U64 const age = highest_ - sequence;
  if (age >= width) return {Arrival::stale, 0};
  auto const bit = static_cast<U8>(1U << age);
  if ((received_ & bit) == 0) {
    received_ |= bit;
    return {Arrival::misordered, 0};
  }
  if ((duplicated_ & bit) != 0) return {Arrival::stale, 0};
  duplicated_ |= bit;
  return {Arrival::duplicate, 0};
}

SequenceWindow::Result SequenceWindow::takeAfterSilence(U64 sequence) {
  U64 const lost = missingFrom(0);
  advance(sequence - highest_);
  first_ = sequence;
  return {Arrival::next, lost};
}

}  // namespace Sonar
