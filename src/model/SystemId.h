// The identity of a switch, under which every per-switch record and directory entry stands.
#pragma once

#include <compare>
#include <iosfwd>
#include <string>
#include <string_view>

#include "model/Netkit.h"

namespace Rix {
class StrepReader;
}

namespace Fabric {

/// 48 bits in the form of an Ethernet address. The empty one means an unknown switch: a field may hold it, but it is
/// never the key of a per-switch table.
class SystemId {
 public:
  constexpr SystemId() = default;
  constexpr explicit SystemId(Netkit::EthAddr address) : address_(address) {}
  /// The id whose text form stands from `begin` to `end`; empty for what is no system id.
  SystemId(char const* begin, char const* end);

  constexpr bool isEmpty() const { return address_ == Netkit::EthAddr(); }
  constexpr Netkit::EthAddr const& ethAddr() const { return address_; }
  constexpr U32 hash() const { return address_.hash(); }
  /// As in "02:00:00:00:00:01".
  std::string stringValue() const { return address_.stringValue(); }

  friend constexpr bool operator==(SystemId const&, SystemId const&) = default;
  friend constexpr auto operator<=>(SystemId const&, SystemId const&) = default;

 private:
  Netkit::EthAddr address_;
};

/// The id with this text form, and the empty id for a text that no id has. Letters are in lower case, so that a
/// directory entry's name and its id stand for each other in both directions.
SystemId systemIdFromString(std::string_view text);

std::ostream& operator<<(std::ostream& out, SystemId const& id);
std::string valueToStrep(SystemId const& id);
/// Reads what `valueToStrep` writes. The empty id has a text form too; any other text that is no id fails.
SystemId readSystemId(Rix::StrepReader& reader);

}  // namespace Fabric
