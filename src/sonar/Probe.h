// One packet on the wire: 72 bytes of UDP payload, little-endian, with a tag that proves who made it. A probe:
//
//   offset width                       offset width
//   0      4  magic "ZEBP"             32     8  sendTime, ns of the sender's clock
//   4      1  version                  40     4  interval, µs between two probes of this ttl
//   5      1  kind                     44     2  robustness
//   6      1  ttl as sent              46     1  distance, the highest ttl of the stream
//   7      1  id of the key            47     1  zero
//   8      4  streamTag                48     8  auxiliary
//   12     4  auxIp                    56     8  zero
//   16     8  epoch                    64     8  tag: SipHash-2-4 over addresses, ports and bytes 0 to 63
//   24     8  sequence, per ttl
//
// The other kinds are notices, by which switches tell each other what has become of a stream. They name it in full, for
// most of them do not travel as its probes do. From offset 32 on they differ:
//
//   32     4  the stream's source      46     2  the stream's source port
//   36     4  the stream's destination 48     8  serial
//   40     4  interval, or zero        56     4  holder
//   44     2  robustness, or zero      60     4  zero
//
// The tag covers what a forwarder leaves alone, so never the packet's own hop limit. `parsePacket` is a total
// function: any bytes give a packet or the reason why they are none. Nothing here makes a system call.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "model/Netkit.h"
#include "sonar/Keys.h"

namespace Sonar {

/// The UDP port that every probe is sent to. The ports of a transmitter are source ports: they choose the path.
inline constexpr U16 probePort = 17439;
/// The source port of a transmitter that names none.
inline constexpr U16 defaultSourcePort = 17440;

inline constexpr std::size_t probePayloadSize = 72;
using ProbePayload = std::array<U8, probePayloadSize>;

inline constexpr std::size_t minIpHeaderSize = 20;
inline constexpr std::size_t udpHeaderSize = 8;

/// What a packet says.
enum class PacketKind : U8 {
  probe = 0,
  // From the stream's source.
  end = 1,     ///< the stream is sent no more at this ttl; `number` is the last. On the probes' own way, or to a holder
  freeze = 2,  ///< to a switch that had the ttl: from `number` on another one has it, or its way has been left
  running = 3,  ///< answers a question: the stream runs, `number` was its last, `holder` has it as far as is known
  // To the stream's source.
  takeover = 4,  ///< the ttl ends here; `number` was the first that came
  question = 5,  ///< is that stream still sent at this ttl? `number` was the last that came
  // Either way.
  acknowledgement = 6  ///< the packet of that serial has come
};
inline constexpr std::size_t packetKindCount = 7;

/// The addresses and ports of a packet; ports in the host's order.
struct Flow {
  Netkit::IpAddr source{};
  Netkit::IpAddr destination{};
  U16 sourcePort = 0;
  U16 destinationPort = probePort;

  friend bool operator==(Flow const&, Flow const&) = default;
  friend auto operator<=>(Flow const&, Flow const&) = default;
};

/// A probe's place in the counting of its stream and ttl. A later one is greater, also across epochs.
struct ProbeNumber {
  U64 epoch = 0;
  U64 sequence = 0;

  friend auto operator<=>(ProbeNumber const&, ProbeNumber const&) = default;
};

/// What the payload of a probe carries.
struct Probe {
  U8 ttl = 1;          ///< the hop limit with which it was sent, at least 1
  U8 distance = 1;     ///< the highest hop limit of its stream
  U16 robustness = 5;  ///< so many intervals of silence mean dormancy, at least 1
  U32 interval = 0;    ///< µs from one probe of this ttl to the next, at least 1
  U32 streamTag = 0;
  Netkit::IpAddr auxIp{};
  U64 epoch = 0;      ///< rises each time the sender starts the counting of this ttl again
  U64 sequence = 0;   ///< of this stream and ttl, from 1
  U64 sendTime = 0;   ///< ns, on a clock of the sender's; for diagnosis alone
  U64 auxiliary = 0;  ///< unused by a probe

  ProbeNumber number() const { return {epoch, sequence}; }

  bool operator==(Probe const&) const = default;
};

/// What the payload of a notice carries.
struct Notice {
  PacketKind kind = PacketKind::end;  ///< not `probe`
  // What it is about.
  U8 ttl = 1;     ///< at least 1
  Flow stream{};  ///< always to `probePort`
  U32 streamTag = 0;
  Netkit::IpAddr auxIp{};
  // What it says.
  ProbeNumber number{};     ///< the sequence number is at least 1
  U64 serial = 0;           ///< rises with each matter that a switch tells; repeated and answered as it is
  Netkit::IpAddr holder{};  ///< the switch at which the ttl ends, as far as is known; else zero. Of `end` and `freeze`,
                            ///< the switch that it is to be passed on to, by another way than its source has
  U32 interval = 0;         ///< as in a probe, if `running`; else zero
  U16 robustness = 0;       ///< as `interval`

  bool operator==(Notice const&) const = default;
};

/// Why a packet is not taken. In the order in which the tests are made.
enum class Rejection : U8 {
  none,
  notIpv4,
  badHeaderLength,
  badTotalLength,
  notUdp,
  fragment,
  badUdpLength,
  otherPort,
  badPayloadSize,
  badMagic,
  badVersion,
  badKind,
  reservedBytes,
  badTtl,
  badInterval,
  badRobustness,
  badSequence,
  unknownKey,
  badTag,
};
inline constexpr std::size_t rejectionCount = static_cast<std::size_t>(Rejection::badTag) + 1;
std::string_view rejectionName(Rejection rejection);

/// A packet that was taken in.
struct ReceivedPacket {
  Flow flow;
  U8 ipTtl = 0;  ///< the hop limit that the packet still had on arrival
  PacketKind kind = PacketKind::probe;
  Probe probe;    ///< if that is its kind
  Notice notice;  ///< else
};

/// Reads an IPv4 packet from its first header byte on. `packet` may be longer than the packet that it holds (link
/// padding). Fills `out` and returns `none`, or returns the first reason against it.
Rejection parsePacket(std::span<U8 const> packet, Keyring const& keys, ReceivedPacket& out);

/// The payload of a packet on its way along `flow`, signed. Precondition: `keys` is not empty.
ProbePayload encodeProbe(Probe const& probe, Flow const& flow, Keyring const& keys);
ProbePayload encodeNotice(Notice const& notice, Flow const& flow, Keyring const& keys);

}  // namespace Sonar
