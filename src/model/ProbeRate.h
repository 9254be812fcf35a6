// The small values of a probing order: how often a hop is probed, and how source ports are chosen.
#pragma once

#include <compare>
#include <iosfwd>

#include "runtime/Types.h"

namespace Zeb {

/// The rate of a probe at one hop distance, in an order on its way to a switch. Zero stands for no rate.
struct ZebProbeRate {
  U16 rate = 0;   ///< probes in `scale` seconds
  U16 scale = 0;  ///< seconds

  friend constexpr bool operator==(ZebProbeRate const&, ZebProbeRate const&) = default;
  friend constexpr auto operator<=>(ZebProbeRate const&, ZebProbeRate const&) = default;
};

std::ostream& operator<<(std::ostream& out, ZebProbeRate const& rate);

}  // namespace Zeb

namespace Sonar {

/// The counterpart in the probing service. Zero stands for no rate.
struct ProbeRate {
  U16 rate = 0;   ///< probes in `scale` seconds
  U16 scale = 0;  ///< seconds
  U32 marker = 0;

  friend constexpr bool operator==(ProbeRate const&, ProbeRate const&) = default;
  friend constexpr auto operator<=>(ProbeRate const&, ProbeRate const&) = default;
};

/// How a transmitter chooses its source ports.
struct SourcePortConfig {
  U32 sourcePortType = 0;
  U16 value1 = 0;
  U16 value2 = 0;
  U16 value3 = 0;

  friend constexpr bool operator==(SourcePortConfig const&, SourcePortConfig const&) = default;
  friend constexpr auto operator<=>(SourcePortConfig const&, SourcePortConfig const&) = default;
};

std::ostream& operator<<(std::ostream& out, ProbeRate const& rate);
std::ostream& operator<<(std::ostream& out, SourcePortConfig const& config);

}  // namespace Sonar
