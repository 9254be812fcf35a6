// Any bytes given to the probe parser, as one IPv4 packet from the tap. What it takes must be one that this fabric's
// sender would have made, to the byte.
#include <algorithm>
#include <cstdlib>

#include "sonar/Probe.h"
#include "sonar/TestPackets.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  static Sonar::Keyring const keys = Sonar::testKeys();
  Sonar::ReceivedPacket packet;
  auto const rejection = Sonar::parsePacket({data, size}, keys, packet);
  if (Sonar::rejectionName(rejection).empty()) std::abort();
  if (rejection != Sonar::Rejection::none) return 0;
  // The payload ends where the IP header says; key 9 is accepted too, and does not sign.
  bool const isProbe = packet.kind == Sonar::PacketKind::probe;
  if (!isProbe && packet.notice.kind != packet.kind) std::abort();
  auto const payload = isProbe ? Sonar::encodeProbe(packet.probe, packet.flow, keys)
                               : Sonar::encodeNotice(packet.notice, packet.flow, keys);
  std::size_t const start = static_cast<std::size_t>(data[0] & 15) * 4 + Sonar::udpHeaderSize;
  bool const signedByUs = data[start + 7] == keys.signingId();
  if (signedByUs && !std::equal(payload.begin(), payload.end(), data + start)) std::abort();
  return 0;
}
