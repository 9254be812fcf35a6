// The bell. A row of a stream that nobody has reported yet is exported within a tenth of a second, and all changed rows
// ride along; a change of a known row may wait for five seconds. So when a row falls dormant, a row of a reserved
// stream is shown for a second; and when one wakes again, or a loss that is over would be told all the same, for as
// long as the waking waits to be exported. Driven by the sweep of the rows.
#pragma once

#include <optional>

#include "sonar/Tables.h"

namespace Sonar {

class Bell {
 public:
  /// At most one ring in so many seconds, and each row stands as long.
  static constexpr Rix::Seconds period = 1.0;
  /// The reserved streams are used in turn: one whose row went a while ago may still be known to the agent.
  static constexpr U32 tags = 5;

  explicit Bell(IngressTable& table) : table_(table) {}

  /// Something is to be exported soon: rings at the next `sweep` that the period allows.
  void ring() { asked_ = true; }

  void sweep(Rix::Seconds now);
  /// Whether `sweep` has something to do yet.
  bool busy() const { return asked_ || ringing_; }

  /// The row's key of a reserved stream: between two addresses that nobody has, told apart by its tag.
  static IngressStream reservedStream(U32 tag);
  static bool isReserved(IngressStream const& key);

 private:
  IngressTable& table_;
  bool asked_ = false;
  U32 nextTag_ = 0;
  std::optional<IngressStream> ringing_;
  Rix::Seconds rungAt_ = -Rix::never;
};

}  // namespace Sonar
