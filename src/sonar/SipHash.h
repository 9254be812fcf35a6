// SipHash-2-4: the keyed hash that proves a probe to be one of the fabric's own. Pure arithmetic.
#pragma once

#include <span>

#include "runtime/Types.h"

namespace Sonar {

/// A key of 128 bits, as the two words that the hash starts from.
struct SipKey {
  U64 low = 0;   ///< bytes 0 to 7 of the key, lowest first
  U64 high = 0;  ///< bytes 8 to 15

  static SipKey of(std::span<U8 const, 16> bytes);

  friend bool operator==(SipKey const&, SipKey const&) = default;
};

/// The hash of `bytes` under `key`.
U64 sipHash(SipKey const& key, std::span<U8 const> bytes);

}  // namespace Sonar
