// The payload's layout, byte by byte, and every reason against a packet.
#include "sonar/Probe.h"

#include <algorithm>
#include <concepts>

namespace Sonar {

namespace {

constexpr U32 magic = 0x5042455a;  // "ZEBP"
constexpr U8 version = 1;
constexpr std::size_t tagOffset = 64;
constexpr U8 udp = 17;

template <std::unsigned_integral T>
void put(U8* to, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) to[i] = static_cast<U8>(value >> (8 * i));
}

template <std::unsigned_integral T>
T get(U8 const* from) {
  T value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) value = static_cast<T>(value | static_cast<T>(T{from[i]} << (8 * i)));
  return value;
}

// Packet headers are in network order.
U16 get16(U8 const* from) {
  return static_cast<U16>(from[0] << 8 | from[1]);
}
U32 get32(U8 const* from) {
  return static_cast<U32>(get16(from)) << 16 | get16(from + 2);
}

U64 tagOf(Flow const& flow, std::span<U8 const> payload, SipKey const& key) {
  std::array<U8, 12 + tagOffset> covered;
  put(covered.data(), flow.source.value());
  put(covered.data() + 4, flow.destination.value());
  put(covered.data() + 8, flow.sourcePort);
  put(covered.data() + 10, flow.destinationPort);
  std::copy_n(payload.begin(), tagOffset, covered.begin() + 12);
  return sipHash(key, covered);
}

Rejection parseProbe(U8 const* bytes, Probe& out) {
  if (bytes[47] != 0 || get<U64>(bytes + 56) != 0) return Rejection::reservedBytes;
  out.ttl = bytes[6];
  out.streamTag = get<U32>(bytes + 8);
  out.auxIp = Netkit::IpAddr(get<U32>(bytes + 12));
  out.epoch = get<U64>(bytes + 16);
  out.sequence = get<U64>(bytes + 24);
  out.sendTime = get<U64>(bytes + 32);
  out.interval = get<U32>(bytes + 40);
  out.robustness = get<U16>(bytes + 44);
  out.distance = bytes[46];
  out.auxiliary = get<U64>(bytes + 48);
  if (out.ttl == 0) return Rejection::badTtl;
  if (out.interval == 0) return Rejection::badInterval;
  if (out.robustness == 0) return Rejection::badRobustness;
  if (out.sequence == 0) return Rejection::badSequence;
  return Rejection::none;
}

Rejection parseNotice(U8 const* bytes, Notice& out) {
  if (get<U32>(bytes + 60) != 0) return Rejection::reservedBytes;
  out.kind = static_cast<PacketKind>(bytes[5]);
  out.ttl = bytes[6];
  out.streamTag = get<U32>(bytes + 8);
  out.auxIp = Netkit::IpAddr(get<U32>(bytes + 12));
  out.number = {get<U64>(bytes + 16), get<U64>(bytes + 24)};
  out.stream = {Netkit::IpAddr(get<U32>(bytes + 32)), Netkit::IpAddr(get<U32>(bytes + 36)), get<U16>(bytes + 46),
                probePort};
  out.interval = get<U32>(bytes + 40);
  out.robustness = get<U16>(bytes + 44);
  out.serial = get<U64>(bytes + 48);
  out.holder = Netkit::IpAddr(get<U32>(bytes + 56));
  bool const paced = out.kind == PacketKind::running;
  if (out.ttl == 0) return Rejection::badTtl;
  if ((out.interval != 0) != paced) return Rejection::badInterval;
  if ((out.robustness != 0) != paced) return Rejection::badRobustness;
  if (out.number.sequence == 0) return Rejection::badSequence;
  return Rejection::none;
}

Rejection parsePayload(std::span<U8 const> payload, Keyring const& keys, ReceivedPacket& out) {
  if (payload.size() != probePayloadSize) return Rejection::badPayloadSize;
  U8 const* const bytes = payload.data();
  if (get<U32>(bytes) != magic) return Rejection::badMagic;
  if (bytes[4] != version) return Rejection::badVersion;
  if (bytes[5] >= packetKindCount) return Rejection::badKind;
  out.kind = static_cast<PacketKind>(bytes[5]);
  auto const rejection = out.kind == PacketKind::probe ? parseProbe(bytes, out.probe) : parseNotice(bytes, out.notice);
  if (rejection != Rejection::none) return rejection;
  SipKey const* const key = keys.key(bytes[7]);
  if (!key) return Rejection::unknownKey;
  if (get<U64>(bytes + tagOffset) != tagOf(out.flow, payload, *key)) return Rejection::badTag;
  return Rejection::none;
}

ProbePayload beginPayload(PacketKind kind, U8 ttl, Keyring const& keys) {
  ProbePayload payload{};
  put(payload.data(), magic);
  payload[4] = version;
  payload[5] = static_cast<U8>(kind);
  payload[6] = ttl;
  payload[7] = keys.signingId();
  return payload;
}

}  // namespace

std::string_view rejectionName(Rejection rejection) {
  static constexpr std::array<std::string_view, rejectionCount> names{
      "none",        "notIpv4",        "badHeaderLength", "badTotalLength", "notUdp",  "fragment",      "badUdpLength",
      "otherPort",   "badPayloadSize", "badMagic",        "badVersion",     "badKind", "reservedBytes", "badTtl",
      "badInterval", "badRobustness",  "badSequence",     "unknownKey",     "badTag",
  };
  return names[static_cast<std::size_t>(rejection)];
}

Rejection parsePacket(std::span<U8 const> packet, Keyring const& keys, ReceivedPacket& out) {
  if (packet.size() < minIpHeaderSize || packet[0] >> 4 != 4) return Rejection::notIpv4;
  std::size_t const headerSize = static_cast<std::size_t>(packet[0] & 15) * 4;
  if (headerSize < minIpHeaderSize || headerSize > packet.size()) return Rejection::badHeaderLength;
  std::size_t const totalSize = get16(&packet[2]);
  if (totalSize < headerSize || totalSize > packet.size()) return Rejection::badTotalLength;
  if (packet[9] != udp) return Rejection::notUdp;
  // More fragments to come, or not the first one.
  if ((get16(&packet[6]) & 0x3fff) != 0) return Rejection::fragment;
  auto const datagram = packet.subspan(headerSize, totalSize - headerSize);
  if (datagram.size() < udpHeaderSize || get16(&datagram[4]) != datagram.size()) return Rejection::badUdpLength;
  out.flow = {Netkit::IpAddr(get32(&packet[12])), Netkit::IpAddr(get32(&packet[16])), get16(&datagram[0]),
              get16(&datagram[2])};
  out.ipTtl = packet[8];
  if (out.flow.destinationPort != probePort) return Rejection::otherPort;
  return parsePayload(datagram.subspan(udpHeaderSize), keys, out);
}

ProbePayload encodeProbe(Probe const& probe, Flow const& flow, Keyring const& keys) {
  ProbePayload payload = beginPayload(PacketKind::probe, probe.ttl, keys);
  U8* const bytes = payload.data();
  put(bytes + 8, probe.streamTag);
  put(bytes + 12, probe.auxIp.value());
  put(bytes + 16, probe.epoch);
  put(bytes + 24, probe.sequence);
  put(bytes + 32, probe.sendTime);
  put(bytes + 40, probe.interval);
  put(bytes + 44, probe.robustness);
  bytes[46] = probe.distance;
  put(bytes + 48, probe.auxiliary);
  put(bytes + tagOffset, tagOf(flow, payload, keys.signingKey()));
  return payload;
}

ProbePayload encodeNotice(Notice const& notice, Flow const& flow, Keyring const& keys) {
  ProbePayload payload = beginPayload(notice.kind, notice.ttl, keys);
  U8* const bytes = payload.data();
  put(bytes + 8, notice.streamTag);
  put(bytes + 12, notice.auxIp.value());
  put(bytes + 16, notice.number.epoch);
  put(bytes + 24, notice.number.sequence);
  put(bytes + 32, notice.stream.source.value());
  put(bytes + 36, notice.stream.destination.value());
  put(bytes + 40, notice.interval);
  put(bytes + 44, notice.robustness);
  put(bytes + 46, notice.stream.sourcePort);
  put(bytes + 48, notice.serial);
  put(bytes + 56, notice.holder.value());
  put(bytes + tagOffset, tagOf(flow, payload, keys.signingKey()));
  return payload;
}

}  // namespace Sonar
