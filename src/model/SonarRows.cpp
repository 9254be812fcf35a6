// Each row field by field at its offset, written and read in the same order.
#include "model/SonarRows.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <ostream>
#include <string_view>

#include "runtime/Hash.h"

namespace Sonar {

namespace {

static_assert(std::endian::native == std::endian::little, "rows are copied as this machine orders its bytes");

// Offsets from the first byte of the key.
namespace Offset {
constexpr std::size_t srcEthAddr = 0;
constexpr std::size_t dstEthAddr = 6;
constexpr std::size_t vlanId = 12;
constexpr std::size_t dstIp = 14;
constexpr std::size_t egressIntf = 20;
constexpr std::size_t auxIp = 28;
constexpr std::size_t srcIp = 32;
constexpr std::size_t ttl = 36;
constexpr std::size_t ipProto = 37;
constexpr std::size_t streamPort = 38;
constexpr std::size_t streamTag = 40;
constexpr std::size_t numProbesTx = 44;
constexpr std::size_t ingressIntf = 44;
constexpr std::size_t discriminator = 52;
constexpr std::size_t dormant = 56;
constexpr std::size_t epoch = 60;
constexpr std::size_t probesReceived = 68;
constexpr std::size_t probesLost = 76;
constexpr std::size_t probesMisordered = 84;
constexpr std::size_t probesDuplicated = 92;
constexpr std::size_t lastSequenceNumber = 100;
constexpr std::size_t currentSequenceNumber = 172;
}  // namespace Offset

template <class Field>
void put(U8* bytes, std::size_t offset, Field const& field) {
  std::memcpy(bytes + offset, &field, sizeof(field));
}

template <class Field>
Field get(U8 const* bytes, std::size_t offset) {
  Field field;
  std::memcpy(&field, bytes + offset, sizeof(field));
  return field;
}

void putStream(U8* bytes, StreamFields const& stream) {
  put(bytes, Offset::srcEthAddr, stream.srcEthAddr.bytes());
  put(bytes, Offset::dstEthAddr, stream.dstEthAddr.bytes());
  put(bytes, Offset::vlanId, stream.vlanId.value());
  put(bytes, Offset::dstIp, stream.dstIp.value());
  put(bytes, Offset::auxIp, stream.auxIp.value());
  put(bytes, Offset::srcIp, stream.srcIp.value());
  put(bytes, Offset::ttl, stream.ttl);
  put(bytes, Offset::ipProto, stream.ipProto.value());
  put(bytes, Offset::streamPort, stream.streamPort);
  put(bytes, Offset::streamTag, stream.streamTag);
}

void getStream(U8 const* bytes, StreamFields& stream) {
  stream.srcEthAddr = Netkit::EthAddr(get<std::array<U8, 6>>(bytes, Offset::srcEthAddr));
  stream.dstEthAddr = Netkit::EthAddr(get<std::array<U8, 6>>(bytes, Offset::dstEthAddr));
  stream.vlanId = Bridging::VlanIdOrNone(get<U16>(bytes, Offset::vlanId));
  stream.dstIp = Netkit::IpAddr(get<U32>(bytes, Offset::dstIp));
  stream.auxIp = Netkit::IpAddr(get<U32>(bytes, Offset::auxIp));
  stream.srcIp = Netkit::IpAddr(get<U32>(bytes, Offset::srcIp));
  stream.ttl = get<U8>(bytes, Offset::ttl);
  stream.ipProto = Netkit::IpProto(get<U8>(bytes, Offset::ipProto));
  stream.streamPort = get<U16>(bytes, Offset::streamPort);
  stream.streamTag = get<U32>(bytes, Offset::streamTag);
}

U32 hashOfKey(StreamFields const& stream, Netkit::IntfId interface, U8 discriminator) {
  U32 rest = interface.hash() ^ U32 { stream.ttl } << 8 ^ U32 { discriminator };
  return Zeb::ProbeStreamId(stream).hash() ^ Rix::mixHash(rest);
}

std::string streamString(StreamFields const& stream, std::string_view direction, Netkit::IntfId interface) {
  return Zeb::ProbeStreamId(stream).stringValue() + " ttl " + std::to_string(stream.ttl) + std::string(direction) +
         interface.stringValue();
}

}  // namespace

std::optional<IntfBytes> intfBytesInPlace(Netkit::IntfId interface) {
  IntfBytes bytes{};
  std::string_view name = interface.view();
  if (name.size() >= bytes.size() || name.find('\0') != std::string_view::npos) return std::nullopt;
  std::copy(name.begin(), name.end(), bytes.begin());
  return bytes;
}

std::optional<Netkit::IntfId> intfInPlace(IntfBytes const& bytes) {
  auto end = std::find(bytes.begin(), bytes.end(), 0);
  if (std::any_of(end, bytes.end(), [](U8 byte) { return byte != 0; }) || end == bytes.end()) return std::nullopt;
  return Netkit::IntfId(std::string(bytes.begin(), end));
}

std::array<U8, EgressStream::encodedSize> EgressStream::encode(IntfNames& names) const {
  std::array<U8, encodedSize> bytes{};
  putStream(bytes.data(), *this);
  put(bytes.data(), Offset::egressIntf, names.encode(egressIntf));
  return bytes;
}

EgressStream EgressStream::decode(std::span<U8 const, encodedSize> bytes, IntfNames& names) {
  EgressStream stream;
  getStream(bytes.data(), stream);
  stream.egressIntf = names.decode(get<IntfBytes>(bytes.data(), Offset::egressIntf));
  return stream;
}

U32 EgressStream::hash() const {
  return hashOfKey(*this, egressIntf, 0);
}

std::array<U8, EgressStreamTable::encodedSize> EgressStreamTable::encode(IntfNames& names) const {
  std::array<U8, encodedSize> bytes{};
  put(bytes.data(), 0, key.encode(names));
  put(bytes.data(), Offset::numProbesTx, numProbesTx);
  return bytes;
}

EgressStreamTable EgressStreamTable::decode(std::span<U8 const, encodedSize> bytes, IntfNames& names) {
  return {EgressStream::decode(bytes.first<EgressStream::encodedSize>(), names),
          get<U64>(bytes.data(), Offset::numProbesTx)};
}

std::array<U8, IngressStream::encodedSize> IngressStream::encode(IntfNames& names) const {
  std::array<U8, encodedSize> bytes{};
  putStream(bytes.data(), *this);
  put(bytes.data(), Offset::ingressIntf, names.encode(ingressIntf));
  put(bytes.data(), Offset::discriminator, discriminator);
  return bytes;
}

IngressStream IngressStream::decode(std::span<U8 const, encodedSize> bytes, IntfNames& names) {
  IngressStream stream;
  getStream(bytes.data(), stream);
  stream.ingressIntf = names.decode(get<IntfBytes>(bytes.data(), Offset::ingressIntf));
  stream.discriminator = get<U8>(bytes.data(), Offset::discriminator);
  return stream;
}

U32 IngressStream::hash() const {
  return hashOfKey(*this, ingressIntf, discriminator);
}

std::string IngressStream::stringValue() const {
  return streamString(*this, " from ", ingressIntf);
}

std::array<U8, IngressStreamStatisticsTableEntry::encodedSize> IngressStreamStatisticsTableEntry::encode(
    IntfNames& names) const {
  std::array<U8, encodedSize> bytes{};
  U8* row = bytes.data();
  put(row, 0, key.encode(names));
  put(row, Offset::dormant, U8{dormant});
  put(row, Offset::epoch, epoch.value);
  put(row, Offset::probesReceived, probesReceived);
  put(row, Offset::probesLost, probesLost);
  put(row, Offset::probesMisordered, probesMisordered);
  put(row, Offset::probesDuplicated, probesDuplicated);
  put(row, Offset::lastSequenceNumber, lastSequenceNumber);
  put(row, Offset::currentSequenceNumber, currentSequenceNumber);
  return bytes;
}

IngressStreamStatisticsTableEntry IngressStreamStatisticsTableEntry::decode(std::span<U8 const, encodedSize> bytes,
                                                                            IntfNames& names) {
  U8 const* row = bytes.data();
  IngressStreamStatisticsTableEntry entry;
  entry.key = IngressStream::decode(bytes.first<IngressStream::encodedSize>(), names);
  entry.dormant = get<U8>(row, Offset::dormant) != 0;
  entry.epoch = Epoch{get<U64>(row, Offset::epoch)};
  entry.probesReceived = get<U64>(row, Offset::probesReceived);
  entry.probesLost = get<U64>(row, Offset::probesLost);
  entry.probesMisordered = get<U64>(row, Offset::probesMisordered);
  entry.probesDuplicated = get<U64>(row, Offset::probesDuplicated);
  entry.lastSequenceNumber = get<U64>(row, Offset::lastSequenceNumber);
  entry.currentSequenceNumber = get<U64>(row, Offset::currentSequenceNumber);
  return entry;
}

std::ostream& operator<<(std::ostream& out, EgressStream const& stream) {
  return out << streamString(stream, " to ", stream.egressIntf);
}

std::ostream& operator<<(std::ostream& out, IngressStream const& stream) {
  return out << stream.stringValue();
}

std::ostream& operator<<(std::ostream& out, EgressStreamTable const& row) {
  return out << row.key << " sent " << row.numProbesTx;
}

std::ostream& operator<<(std::ostream& out, IngressStreamStatisticsTableEntry const& row) {
  return out << row.key << (row.dormant ? " dormant" : "") << " epoch " << row.epoch << " received "
             << row.probesReceived << " lost " << row.probesLost << " misordered " << row.probesMisordered
             << " duplicated " << row.probesDuplicated << " sequence " << row.currentSequenceNumber << ' '
             << row.lastSequenceNumber;
}

}  // namespace Sonar

namespace Zeb {

ProbeStreamId egressStreamToStreamId(Sonar::StreamFields const& stream) {
  return ProbeStreamId(stream);
}

}  // namespace Zeb
