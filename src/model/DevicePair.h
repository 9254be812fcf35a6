// Two adjacent devices on the path of a stream: the last that answered and the first that is silent.
#pragma once

#include <compare>
#include <iosfwd>
#include <string>

#include "model/SystemId.h"

namespace Rix {
class StrepReader;
}

namespace Zeb {

/// An ordered pair: (a, b) and (b, a) are two keys.
class DevicePair {
 public:
  constexpr DevicePair() = default;
  constexpr DevicePair(Fabric::SystemId dev1SysId, Fabric::SystemId dev2SysId)
      : dev1SysId_(dev1SysId), dev2SysId_(dev2SysId) {}
  /// The pair whose text form stands from `begin` to `end`. Raises `Rix::DeserializeException` for another text.
  DevicePair(char const* begin, char const* end);
  /// Reads a pair that stands within a larger text.
  explicit DevicePair(Rix::StrepReader& reader);

  constexpr Fabric::SystemId const& dev1SysId() const { return dev1SysId_; }
  constexpr Fabric::SystemId const& dev2SysId() const { return dev2SysId_; }

  /// One-at-a-time over the hashes of the two ids.
  U32 hash() const;

  friend constexpr bool operator==(DevicePair const&, DevicePair const&) = default;
  friend constexpr auto operator<=>(DevicePair const&, DevicePair const&) = default;

 private:
  Fabric::SystemId dev1SysId_;
  Fabric::SystemId dev2SysId_;
};

std::ostream& operator<<(std::ostream& out, DevicePair const& pair);
/// "Value('Zeb::DevicePair', ** {'dev1SysId': ..., 'dev2SysId': ...})".
std::string valueToStrep(DevicePair const& pair);

}  // namespace Zeb
