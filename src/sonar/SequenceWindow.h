// Tells, from sequence numbers alone, a lost probe from one that comes late and from one that comes twice. A number
// counts as lost only when it has left a window of the last eight, so that reordering is not taken for loss.
// Plain arithmetic; who drives it decides what a silence means.
#pragma once

#include "runtime/Types.h"

namespace Sonar {

class SequenceWindow {
 public:
  /// A number counts as lost once the highest number is so far ahead of it.
  static constexpr U64 width = 8;

  enum class Arrival {
    next,        ///< the highest number so far
    misordered,  ///< late, but for the first time
    duplicate,   ///< the second time; a copy
    stale        ///< behind the window, or the third time: perhaps replayed, so it says nothing
  };

  struct Result {
    Arrival arrival = Arrival::stale;
    U64 lost = 0;  ///< numbers that are known to be lost since this arrival
  };

  /// The first number of a counting is `sequence`: what is before it is not missed.
  explicit SequenceWindow(U64 sequence) : highest_(sequence), first_(sequence) {}

  /// Takes the arrival of `sequence`.
  Result take(U64 sequence);

  /// Takes `sequence`, above the highest, after a silence: what is missing since the highest number is not lost.
  /// What was missing before the silence is, at once.
  Result takeAfterSilence(U64 sequence);

  U64 highest() const { return highest_; }

 private:
  bool expected(U64 age) const { return highest_ - first_ >= age; }
  U64 missingFrom(U64 youngest) const;
  void advance(U64 distance);

  U64 highest_;
  U64 first_;          // the lowest number that is missed if it does not come
  U8 received_ = 1;    // bit i: `highest_ - i` has come
  U8 duplicated_ = 0;  // bit i: it has come twice
};

}  // namespace Sonar
