// Packets as the tap would see them, for tests and the fuzz target: a key ring and a whole IPv4 packet around a
// payload.
#pragma once

#include <span>
#include <vector>

#include "sonar/Probe.h"

namespace Sonar {

/// Two keys, of which id 7 signs.
inline Keyring testKeys() {
  Keyring keys;
  keys.keyIs(7, {0x0123456789abcdefULL, 0xfedcba9876543210ULL});
  keys.keyIs(9, {0x1111111111111111ULL, 0x2222222222222222ULL});
  return keys;
}

/// `payload` within UDP within IPv4. Checksums are zero: nobody who reads this looks at them.
inline std::vector<U8> ipPacket(Flow const& flow, std::span<U8 const> payload, U8 ipTtl = 1) {
  std::size_t const size = minIpHeaderSize + udpHeaderSize + payload.size();
  std::vector<U8> packet(size);
  auto put16 = [&](std::size_t at, std::size_t value) {
    packet[at] = static_cast<U8>(value >> 8);
    packet[at + 1] = static_cast<U8>(value);
  };
  packet[0] = 0x45;
  put16(2, size);
  packet[8] = ipTtl;
  packet[9] = 17;
  put16(12, flow.source.value() >> 16);
  put16(14, flow.source.value());
  put16(16, flow.destination.value() >> 16);
  put16(18, flow.destination.value());
  put16(20, flow.sourcePort);
  put16(22, flow.destinationPort);
  put16(24, udpHeaderSize + payload.size());
  for (std::size_t i = 0; i < payload.size(); ++i) packet[minIpHeaderSize + udpHeaderSize + i] = payload[i];
  return packet;
}

}  // namespace Sonar
