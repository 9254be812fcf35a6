// What this switch tells other switches about streams, on its way out. A notice that must arrive is repeated until it
// is acknowledged or answered, for a minute at most; each time from another source port, so that equal-cost paths
// take it by another way. At most so many leave in a second, those that are urgent first: in a large fabric a
// million rows begin together. Pure: who owns it hands in the time and sends what is due.
#pragma once

#include <functional>
#include <unordered_map>
#include <vector>

#include "runtime/Clock.h"
#include "sonar/Probe.h"

namespace Sonar {

/// The source ports of notices are this one and those above it.
inline constexpr U16 noticePort = 17441;
inline constexpr U16 noticePorts = 8;

struct OutgoingNotice {
  Flow flow;
  U8 hopLimit = 64;
  Notice notice;
};

class Notices {
 public:
  enum class Urgency {
    urgent,  ///< a path has moved: a false alarm is half a second away
    patient
  };
  struct Counts {
    U64 sent = 0;      ///< each time, and answers too
    U64 repeated = 0;  ///< of these
    U64 answered = 0;
    U64 givenUp = 0;
    U64 refused = 0;  ///< there were more than `most`
  };

  /// How many notices leave in a second, beside answers and end marks, and how many of them at once.
  static constexpr double perSecond = 5000;
  static constexpr double burst = 250;

  /// `nextEpoch`: see `SenderPlan`. At most `most` notices wait to be acknowledged.
  Notices(std::function<U64()> nextEpoch, std::size_t most) : nextEpoch_(std::move(nextEpoch)), most_(most) {}

  /// Where notices come from. While it is zero only answers leave.
  void ownAddressIs(Netkit::IpAddr address) { ownAddress_ = address; }
  Netkit::IpAddr ownAddress() const { return ownAddress_; }

  /// Tells `to`, until `answered` or `forget` says that it is enough. Returns the serial under which it is told, zero
  /// if there is no room.
  U64 tell(Rix::Seconds now, Netkit::IpAddr to, Notice notice, Urgency urgency);
  /// Tells `to` once, at the next `takeDue`. The `attempt`s of one matter go by different ways.
  void tellOnce(Netkit::IpAddr to, Notice const& notice, unsigned attempt);
  /// Answers a packet to where it came from, from where it went to.
  void answer(Flow const& flow, Notice const& notice);
  /// Sends along the stream's own way, with the hop limit of its ttl.
  void tellInBand(Notice const& notice);

  /// Something that was told has been acknowledged or answered. False if nothing is known of it (any more), so that
  /// what it says is old.
  bool answered(U64 serial);
  void forget(U64 serial) { waiting_.erase(serial); }
  /// A number above all that this switch has ever used.
  U64 nextSerial();

  /// When `takeDue` is wanted next, `Rix::never` if nothing waits.
  Rix::Seconds nextDue() const;
  /// Adds to `notices` all that leave by `now`.
  void takeDue(Rix::Seconds now, std::vector<OutgoingNotice>& notices);

  std::size_t waiting() const { return waiting_.size(); }
  Counts const& counts() const { return counts_; }

 private:
  struct Waiting {
    Netkit::IpAddr to;
    Notice notice;
    Urgency urgency;
    unsigned tries = 0;
  };
  struct Due {
    Rix::Seconds when;
    U64 serial;
  };
  using Lane = std::vector<Due>;  // a heap, earliest first

  Lane& lane(Urgency urgency) { return urgency == Urgency::urgent ? urgent_ : patient_; }
  void takeLane(Lane& lane, Rix::Seconds now, std::vector<OutgoingNotice>& notices);
  Flow flowTo(Netkit::IpAddr to, unsigned tries) const;

  std::function<U64()> const nextEpoch_;
  std::size_t const most_;
  Netkit::IpAddr ownAddress_{};
  U64 lastSerial_ = 0;
  std::unordered_map<U64, Waiting> waiting_;
  Lane urgent_;  // what is not waiting any more is passed over
  Lane patient_;
  std::vector<OutgoingNotice> ready_;
  double tokens_ = burst;
  Rix::Seconds filledAt_ = -Rix::never;
  Counts counts_;
};

}  // namespace Sonar
