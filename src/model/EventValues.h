// The values in which an event of a stream travels: as it is queued, as it is condensed to a text, and as the pair and
// the moment that the logger queues; with the epoch of counters and what is known of a device on a path.
#pragma once

#include <compare>
#include <iosfwd>
#include <string>

#include "model/DevicePair.h"
#include "model/EventType.h"
#include "model/Netkit.h"
#include "model/SystemId.h"
#include "runtime/String8.h"
#include "runtime/Types.h"

namespace Sonar {

/// The generation of the probing service's counters. Its number has no meaning here but being equal or not: when it
/// changes, the counters began again.
struct Epoch {
  U64 value = 0;

  friend constexpr bool operator==(Epoch const&, Epoch const&) = default;
  friend constexpr auto operator<=>(Epoch const&, Epoch const&) = default;
};

std::ostream& operator<<(std::ostream& out, Epoch epoch);

}  // namespace Sonar

namespace Zeb {

/// A device at one hop of a stream's path.
struct DeviceInfo {
  Netkit::IpAddr ipAddr{};
  Rix::String8 hostname{};
  Netkit::IntfId intf{};

  friend bool operator==(DeviceInfo const&, DeviceInfo const&) = default;
  friend std::strong_ordering operator<=>(DeviceInfo const&, DeviceInfo const&) = default;
};

std::ostream& operator<<(std::ostream& out, DeviceInfo const& info);

/// A copy of a stream's event, as it waits in the stream's queue. Counters are absolute.
struct ProbeStreamEventRecord {
  Rix::Seconds timeStamp = 0;  ///< when it was queued
  EventType eventType = EventType::eventNone;
  U8 ttl = 0;
  Fabric::SystemId ingressSwitchId{};
  Sonar::Epoch epoch{};
  U64 currentSequenceNumber = 0;
  U64 lastSequenceNumber = 0;
  U64 probesReceived = 0;
  U64 probesLost = 0;
  U64 probesMisordered = 0;
  U64 probesDuplicated = 0;
  U32 count = 0;  ///< 1 or 0 for a state that came or went, else by how much the counter moved

  friend std::weak_ordering operator<=>(ProbeStreamEventRecord const& left, ProbeStreamEventRecord const& right);
  friend bool operator==(ProbeStreamEventRecord const& left, ProbeStreamEventRecord const& right) {
    return (left <=> right) == 0;
  }
};

std::ostream& operator<<(std::ostream& out, ProbeStreamEventRecord const& record);

/// The condensed form of an event. Ordered by its fields, the time first and the count last.
struct ZebStreamEvent {
  ZebStreamEvent() = default;
  ZebStreamEvent(Rix::Seconds timeStampOfEvent, EventType type, U8 ttlOfEvent, Fabric::SystemId switchId,
                 U32 countOfEvent)
      : timeStamp(timeStampOfEvent), eventType(type), ttl(ttlOfEvent), ingressSwitchId(switchId), count(countOfEvent) {}
  /// The event whose text form stands from `begin` to `end`. Raises `Rix::DeserializeException`, which names the
  /// attribute, for another text.
  ZebStreamEvent(char const* begin, char const* end);

  Rix::Seconds timeStamp = 0;
  EventType eventType = EventType::eventNone;
  U8 ttl = 0;
  Fabric::SystemId ingressSwitchId{};
  U32 count = 0;

  friend std::weak_ordering operator<=>(ZebStreamEvent const& left, ZebStreamEvent const& right);
  friend bool operator==(ZebStreamEvent const& left, ZebStreamEvent const& right) { return (left <=> right) == 0; }
};

std::ostream& operator<<(std::ostream& out, ZebStreamEvent const& event);
std::string valueToStrep(ZebStreamEvent const& event);

/// A device pair and a moment. Ordered by the pair, then by the time; all times of one pair share a hash. The default
/// stands for the head of an empty queue.
class PairTime {
 public:
  PairTime() = default;
  PairTime(DevicePair const& devicePair, Rix::Seconds time) : devicePair_(devicePair), time_(time) {}
  /// As for `ZebStreamEvent`.
  PairTime(char const* begin, char const* end);

  DevicePair const& devicePair() const { return devicePair_; }
  Rix::Seconds time() const { return time_; }
  U32 hash() const { return devicePair_.hash(); }

  friend std::weak_ordering operator<=>(PairTime const& left, PairTime const& right);
  friend bool operator==(PairTime const& left, PairTime const& right) { return (left <=> right) == 0; }

 private:
  DevicePair devicePair_;
  Rix::Seconds time_ = 0;
};

std::ostream& operator<<(std::ostream& out, PairTime const& pairTime);
std::string valueToStrep(PairTime const& pairTime);

}  // namespace Zeb
