// The plain types that every record is made of. Nothing here has behaviour.
#pragma once

#include <cstdint>
#include <limits>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

namespace Rix {

/// A moment or a length of time in seconds.
using Seconds = double;

/// The moment that does not come: a timer set to it is idle.
inline constexpr Seconds never = std::numeric_limits<Seconds>::infinity();

}  // namespace Rix
