// The identity of a probe stream, the key of every per-stream table. It is computed from the header fields of the
// probes, so that the switch that sends a stream and every switch that receives it arrive at the same id unaided.
#pragma once

#include <compare>
#include <iosfwd>
#include <string>

#include "model/Netkit.h"

namespace Zeb {

class ProbeStreamId {
 public:
  /// The fields of an id, each zero by default.
  struct Fields {
    Netkit::EthAddr srcEthAddr{};
    Netkit::EthAddr dstEthAddr{};
    Bridging::VlanIdOrNone vlanId{};
    Netkit::IpAddr dstIp{};
    Netkit::IpAddr auxIp{};  ///< a third address of the stream; part of the identity, and printed nowhere
    Netkit::IpAddr srcIp{};
    Netkit::IpProto ipProto{};
    U16 streamPort = 0;
    U32 streamTag = 0;

    friend constexpr bool operator==(Fields const&, Fields const&) = default;
    friend constexpr auto operator<=>(Fields const&, Fields const&) = default;
  };

  constexpr ProbeStreamId() = default;
  constexpr explicit ProbeStreamId(Fields const& fields) : hash_(hashOfFields(fields)), fields_(fields) {}

  constexpr Fields const& fields() const { return fields_; }
  constexpr Netkit::EthAddr const& srcEthAddr() const { return fields_.srcEthAddr; }
  constexpr Netkit::EthAddr const& dstEthAddr() const { return fields_.dstEthAddr; }
  constexpr Bridging::VlanIdOrNone vlanId() const { return fields_.vlanId; }
  constexpr Netkit::IpAddr dstIp() const { return fields_.dstIp; }
  constexpr Netkit::IpAddr auxIp() const { return fields_.auxIp; }
  constexpr Netkit::IpAddr srcIp() const { return fields_.srcIp; }
  constexpr Netkit::IpProto ipProto() const { return fields_.ipProto; }
  constexpr U16 streamPort() const { return fields_.streamPort; }
  constexpr U32 streamTag() const { return fields_.streamTag; }

  /// The exclusive or of the fields' hashes, kept. A stream and its reverse share theirs.
  constexpr U32 hash() const { return hash_; }

  /// "srcIp->dstIp srcEthAddr->dstEthAddr".
  std::string stringValue() const;

  friend constexpr bool operator==(ProbeStreamId const& left, ProbeStreamId const& right) {
    return left.hash_ == right.hash_ && left.fields_ == right.fields_;
  }
  friend constexpr auto operator<=>(ProbeStreamId const& left, ProbeStreamId const& right) {
    return left.fields_ <=> right.fields_;
  }

 private:
  static constexpr U32 hashOfFields(Fields const& fields) {
    return fields.srcEthAddr.hash() ^ fields.dstEthAddr.hash() ^ fields.vlanId.hash() ^ fields.dstIp.hash() ^
           fields.auxIp.hash() ^ fields.srcIp.hash() ^ fields.ipProto.hash() ^ U32 { fields.streamPort } ^
           fields.streamTag;
  }

  // The hash of the default fields is zero: a zero field hashes to zero.
  U32 hash_ = 0;
  Fields fields_;
};

std::ostream& operator<<(std::ostream& out, ProbeStreamId const& id);

}  // namespace Zeb
