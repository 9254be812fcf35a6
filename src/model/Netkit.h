// The network's own values: addresses, protocol, VLAN and interface. Plain values that compare, hash and print by
// content; nothing here touches a network.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/Hash.h"
#include "runtime/Types.h"

namespace Netkit {

/// A 48-bit Ethernet address, zero by default.
class EthAddr {
 public:
  constexpr EthAddr() = default;
  constexpr explicit EthAddr(std::array<U8, 6> bytes) : bytes_(bytes) {}

  /// Reads six pairs of hexadecimal digits with colons between them, as `stringValue` writes; upper case is read too.
  static std::optional<EthAddr> parse(std::string_view text);

  /// The bytes in the order in which they are sent.
  constexpr std::array<U8, 6> const& bytes() const { return bytes_; }
  constexpr U32 hash() const { return Rix::mixHash64(value()); }
  /// As in "02:00:00:00:00:01".
  std::string stringValue() const;

  friend constexpr bool operator==(EthAddr const&, EthAddr const&) = default;
  friend constexpr auto operator<=>(EthAddr const&, EthAddr const&) = default;

 private:
  constexpr U64 value() const {
    U64 value = 0;
    for (U8 byte : bytes_) value = value << 8 | byte;
    return value;
  }

  std::array<U8, 6> bytes_{};
};

/// A 32-bit IPv4 address, zero by default.
class IpAddr {
 public:
  constexpr IpAddr() = default;
  /// `value` is in the host's order: 10.0.0.1 is 0x0a000001.
  constexpr explicit IpAddr(U32 value) : value_(value) {}

  /// Reads four decimal numbers with dots between them, none with a leading zero.
  static std::optional<IpAddr> parse(std::string_view text);

  constexpr U32 value() const { return value_; }
  /// Not linear: the identity of a stream is hashed as the exclusive or of its fields' hashes, and with a linear hash
  /// the pairs of consecutive addresses would meet by the hundreds.
  constexpr U32 hash() const { return Rix::mixHash(value_); }
  /// As in "10.0.0.1".
  std::string stringValue() const;

  friend constexpr bool operator==(IpAddr, IpAddr) = default;
  friend constexpr auto operator<=>(IpAddr, IpAddr) = default;

 private:
  U32 value_ = 0;
};

/// An IP protocol number.
class IpProto {
 public:
  constexpr IpProto() = default;
  constexpr explicit IpProto(U8 value) : value_(value) {}

  constexpr U8 value() const { return value_; }
  constexpr U32 hash() const { return value_; }

  friend constexpr bool operator==(IpProto, IpProto) = default;
  friend constexpr auto operator<=>(IpProto, IpProto) = default;

 private:
  U8 value_ = 0;
};

/// The identity of a network interface: its name. Names are interned for the life of the process, so that a value is
/// one pointer; order and hash are those of the text. The default is the interface without a name.
class IntfId {
 public:
  /// The most names that a process interns, and the longest name: a switch's interfaces are counted in thousands, and
  /// a name that comes from outside must not fill the memory.
  static constexpr std::size_t maxNames = 1U << 20;
  static constexpr std::size_t maxNameLength = 255;

  constexpr IntfId() = default;
  /// Raises `Rix::RangeException` when one of the two limits is passed.
  explicit IntfId(std::string_view name);

  bool isEmpty() const { return !interned_; }
  /// The name. It stays valid for the life of the process.
  std::string_view view() const { return interned_ ? std::string_view(interned_->name) : std::string_view(); }
  std::string stringValue() const { return std::string(view()); }
  U32 hash() const { return interned_ ? interned_->hash : 0; }

  friend bool operator==(IntfId left, IntfId right) { return left.interned_ == right.interned_; }
  friend std::strong_ordering operator<=>(IntfId left, IntfId right) { return left.view() <=> right.view(); }

 private:
  struct Interned {
    std::string name;
    U32 hash;
  };
  static Interned const* intern(std::string_view name);

  Interned const* interned_ = nullptr;
};

std::ostream& operator<<(std::ostream& out, EthAddr const& address);
std::ostream& operator<<(std::ostream& out, IpAddr address);
std::ostream& operator<<(std::ostream& out, IpProto protocol);
std::ostream& operator<<(std::ostream& out, IntfId interface);

std::string valueToStrep(EthAddr const& address);
std::string valueToStrep(IpAddr address);
std::string valueToStrep(IntfId interface);

}  // namespace Netkit

namespace Bridging {

/// A VLAN id, or none. Id 0 names no VLAN, so it stands for none, and a field of zeros reads as that.
class VlanIdOrNone {
 public:
  constexpr VlanIdOrNone() = default;
  constexpr explicit VlanIdOrNone(U16 value) : value_(value) {}

  constexpr bool isNone() const { return value_ == 0; }
  constexpr U16 value() const { return value_; }
  constexpr U32 hash() const { return value_; }

  friend constexpr bool operator==(VlanIdOrNone, VlanIdOrNone) = default;
  friend constexpr auto operator<=>(VlanIdOrNone, VlanIdOrNone) = default;

 private:
  U16 value_ = 0;
};

/// The VLAN of every routed probe.
inline constexpr VlanIdOrNone vlanNone;

std::ostream& operator<<(std::ostream& out, VlanIdOrNone vlan);

}  // namespace Bridging
