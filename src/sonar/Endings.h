// Streams, each at one ttl, that this switch has ended on purpose. Whoever receives must know it, or would take the
// silence for loss: so end marks follow the last probe along its own way, a few times over some seconds, and go
// straight to every switch that is known to have had the ttl. Pure; driven by the sender's plan.
//
// The egress rows go at once. An agent that is new meanwhile would never tell that they are gone, and whoever had them
// from the agent before would keep them: so they are shown once more, and removed again under its eyes. Receivers, who
// keep their own rows until the sender's have surely been told to be gone, are told to go on waiting.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <vector>

#include "sonar/Holders.h"
#include "sonar/Notices.h"
#include "sonar/SwitchView.h"
#include "sonar/Tables.h"

namespace Sonar {

class Endings {
 public:
  /// How often an end is marked: the more often, the nearer the silence is to being judged.
  static constexpr unsigned marks = 6;
  static constexpr std::array<Rix::Seconds, marks - 1> markPauses{0.1, 0.2, 0.4, 0.6, 0.9};
  /// For so long an ended stream may be shown again.
  static constexpr Rix::Seconds remembered = 30.0;

  struct Ended {
    Flow flow{};
    EgressStreamTable row{};
    ProbeNumber last{};  ///< sequence number zero if nothing was sent
    Holders holders{};
  };

  /// At most `most` are remembered; more are marked once and forgotten.
  Endings(SwitchView const& view, EgressTable& table, Notices& notices, std::size_t most)
      : view_(view), table_(table), notices_(notices), most_(most) {}

  /// Removes the row, and marks the end from `firstMark` on.
  void add(Rix::Seconds now, Ended ended, Rix::Seconds firstMark);
  /// The stream is about to be sent again at that ttl. What was known of it, if it is remembered.
  std::optional<Ended> take(Flow const& flow, U8 ttl);
  /// Somebody who has or had that ttl of a stream that is not sent shall know, by an answer. Precondition: the packet
  /// is a notice.
  void tell(ReceivedPacket const& packet);

  void agentRestarted(Rix::Seconds now);

  Rix::Seconds nextDue() const { return due_.empty() ? Rix::never : due_.front().when; }
  void run(Rix::Seconds now);
  /// Whether there are marks still to be sent.
  bool marking() const { return marking_ > 0; }

  /// From whose addresses marks are still to be sent.
  std::vector<Flow> flows() const;

 private:
  using Key = std::pair<Flow, U8>;
  struct Entry {
    Ended what;
    U64 serial = 0;
    unsigned marksLeft = 0;
    Rix::Seconds nextMark = Rix::never;
    Rix::Seconds shownUntil = Rix::never;
    Rix::Seconds forgetAt = 0;
    Rix::Seconds next() const { return std::min(std::min(nextMark, shownUntil), forgetAt); }
  };
  struct Due {
    Rix::Seconds when;
    Key key;
  };

  void markFrom(Entry& entry, Rix::Seconds first);
  void mark(Entry const& entry);
  void schedule(Key const& key, Entry const& entry);

  SwitchView const& view_;
  EgressTable& table_;
  Notices& notices_;
  std::size_t const most_;
  std::map<Key, Entry> entries_;
  std::vector<Due> due_;  // a heap, earliest first; what is not an entry's next time any more is passed over
  std::size_t marking_ = 0;
};

}  // namespace Sonar
