// The rows of the probing service's two tables and their keys: as typed values, and as the packed little-endian bytes
// that lie in shared memory. Bytes are copied in and out at fixed offsets and never looked at through a type; what the
// layout leaves unsaid is written as zero and not read.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>

#include "model/EventValues.h"
#include "model/Netkit.h"
#include "model/ProbeStreamId.h"
#include "runtime/Types.h"

namespace Sonar {

/// What stands for an interface in a row.
using IntfBytes = std::array<U8, 8>;

/// Turns interfaces into the eight bytes of a row and back. The owner of a table provides it: a name that does not fit
/// is kept in a table of names beside the rows.
class IntfNames {
 public:
  virtual ~IntfNames() = default;
  virtual IntfBytes encode(Netkit::IntfId interface) = 0;
  virtual Netkit::IntfId decode(IntfBytes const& bytes) = 0;
};

/// The bytes of an interface whose name, of at most seven bytes and none of them zero, stands in the row itself,
/// followed by zeros; nothing for another. The last byte is then zero, which tells these bytes from any other form.
std::optional<IntfBytes> intfBytesInPlace(Netkit::IntfId interface);
/// The interface whose name stands in `bytes`; nothing if `bytes` are of another form. All zeros is no interface.
std::optional<Netkit::IntfId> intfInPlace(IntfBytes const& bytes);

/// What the keys of both tables share: the fields of the stream's identity and the hop limit.
struct StreamFields : Zeb::ProbeStreamId::Fields {
  U8 ttl = 0;  ///< the hop limit with which the probes were sent

  friend bool operator==(StreamFields const&, StreamFields const&) = default;
  friend std::strong_ordering operator<=>(StreamFields const&, StreamFields const&) = default;
};

/// The key of the egress table.
struct EgressStream : StreamFields {
  static constexpr std::size_t encodedSize = 44;

  Netkit::IntfId egressIntf{};

  std::array<U8, encodedSize> encode(IntfNames& names) const;
  static EgressStream decode(std::span<U8 const, encodedSize> bytes, IntfNames& names);

  U32 hash() const;
  friend bool operator==(EgressStream const&, EgressStream const&) = default;
  friend std::strong_ordering operator<=>(EgressStream const&, EgressStream const&) = default;
};

/// A row of the egress table.
struct EgressStreamTable {
  static constexpr std::size_t encodedSize = 52;

  EgressStream key{};
  U64 numProbesTx = 0;

  std::array<U8, encodedSize> encode(IntfNames& names) const;
  static EgressStreamTable decode(std::span<U8 const, encodedSize> bytes, IntfNames& names);

  friend bool operator==(EgressStreamTable const&, EgressStreamTable const&) = default;
  friend std::strong_ordering operator<=>(EgressStreamTable const&, EgressStreamTable const&) = default;
};

/// The key of the ingress table.
struct IngressStream : StreamFields {
  static constexpr std::size_t encodedSize = 53;

  Netkit::IntfId ingressIntf{};
  U8 discriminator = 0;  ///< tells keys apart that are otherwise equal, and means nothing else here

  std::array<U8, encodedSize> encode(IntfNames& names) const;
  static IngressStream decode(std::span<U8 const, encodedSize> bytes, IntfNames& names);

  U32 hash() const;
  /// The stream, its hop limit and the interface.
  std::string stringValue() const;
  friend bool operator==(IngressStream const&, IngressStream const&) = default;
  friend std::strong_ordering operator<=>(IngressStream const&, IngressStream const&) = default;
};

/// A row of the ingress table. Counters are absolute and belong to `epoch`.
struct IngressStreamStatisticsTableEntry {
  static constexpr std::size_t encodedSize = 452;

  IngressStream key{};
  bool dormant = false;
  Epoch epoch{};
  U64 probesReceived = 0;
  U64 probesLost = 0;
  U64 probesMisordered = 0;
  U64 probesDuplicated = 0;
  U64 lastSequenceNumber = 0;
  U64 currentSequenceNumber = 0;

  std::array<U8, encodedSize> encode(IntfNames& names) const;
  static IngressStreamStatisticsTableEntry decode(std::span<U8 const, encodedSize> bytes, IntfNames& names);

  friend bool operator==(IngressStreamStatisticsTableEntry const&, IngressStreamStatisticsTableEntry const&) = default;
  friend std::strong_ordering operator<=>(IngressStreamStatisticsTableEntry const&,
                                          IngressStreamStatisticsTableEntry const&) = default;
};

std::ostream& operator<<(std::ostream& out, EgressStream const& stream);
std::ostream& operator<<(std::ostream& out, IngressStream const& stream);
std::ostream& operator<<(std::ostream& out, EgressStreamTable const& row);
std::ostream& operator<<(std::ostream& out, IngressStreamStatisticsTableEntry const& row);

}  // namespace Sonar

namespace Zeb {

/// The id of the stream to which a row of either table belongs. Rows that differ only in hop limit or interface have
/// the same.
ProbeStreamId egressStreamToStreamId(Sonar::StreamFields const& stream);

}  // namespace Zeb
