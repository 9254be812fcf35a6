// The model's values, field by field.
#include "model/ValueCodec.h"

#include <algorithm>

#include "runtime/Exceptions.h"

namespace {

// Lists of fields: written and read in one order, told once.
template <class... Values>
void encodeAll(Rix::ByteWriter& writer, Values const&... values) {
  (encodeValue(writer, values), ...);
}
template <class... Values>
void decodeAll(Rix::ByteReader& reader, Values&... values) {
  (decodeValue(reader, values), ...);
}

template <class Enumeration>
void decodeEnumeration(Rix::ByteReader& reader, Enumeration& value, Enumeration last) {
  U8 const number = reader.fixed<U8>("enumerator");
  if (number > static_cast<U8>(last)) {
    reader.malformed("enumerator", "at most " + std::to_string(static_cast<unsigned>(last)), std::to_string(number));
  }
  value = static_cast<Enumeration>(number);
}

}  // namespace

namespace Netkit {

void encodeValue(Rix::ByteWriter& writer, EthAddr const& value) {
  for (U8 const byte : value.bytes()) writer.fixed(byte);
}
void decodeValue(Rix::ByteReader& reader, EthAddr& value) {
  std::string_view const found = reader.raw(6, "Ethernet address");
  std::array<U8, 6> bytes{};
  std::transform(found.begin(), found.end(), bytes.begin(), [](char c) { return static_cast<U8>(c); });
  value = EthAddr(bytes);
}

void encodeValue(Rix::ByteWriter& writer, IpAddr value) {
  writer.fixed(value.value());
}
void decodeValue(Rix::ByteReader& reader, IpAddr& value) {
  value = IpAddr(reader.fixed<U32>("IP address"));
}

void encodeValue(Rix::ByteWriter& writer, IpProto value) {
  writer.fixed(value.value());
}
void decodeValue(Rix::ByteReader& reader, IpProto& value) {
  value = IpProto(reader.fixed<U8>("IP protocol"));
}

void encodeValue(Rix::ByteWriter& writer, IntfId value) {
  writer.text(value.view());
}
void decodeValue(Rix::ByteReader& reader, IntfId& value) {
  std::string_view const name = reader.text("interface", IntfId::maxNameLength);
  try {
    value = name.empty() ? IntfId() : IntfId(name);
  } catch (Rix::RangeException const& exception) {
    reader.malformed("interface", "a name that can be kept", exception.what());
  }
}

}  // namespace Netkit

namespace Bridging {

void encodeValue(Rix::ByteWriter& writer, VlanIdOrNone value) {
  writer.fixed(value.value());
}
void decodeValue(Rix::ByteReader& reader, VlanIdOrNone& value) {
  value = VlanIdOrNone(reader.fixed<U16>("VLAN"));
}

}  // namespace Bridging

namespace Fabric {

void encodeValue(Rix::ByteWriter& writer, SystemId const& value) {
  encodeValue(writer, value.ethAddr());
}
void decodeValue(Rix::ByteReader& reader, SystemId& value) {
  value = SystemId(Rix::decoded<Netkit::EthAddr>(reader));
}

}  // namespace Fabric

namespace Sonar {

void encodeValue(Rix::ByteWriter& writer, Epoch value) {
  writer.variable(value.value);
}
void decodeValue(Rix::ByteReader& reader, Epoch& value) {
  value.value = reader.variable("epoch");
}

void encodeValue(Rix::ByteWriter& writer, ProbeRate const& value) {
  writer.fixed(value.rate);
  writer.fixed(value.scale);
  writer.variable(value.marker);
}
void decodeValue(Rix::ByteReader& reader, ProbeRate& value) {
  value.rate = reader.fixed<U16>("rate");
  value.scale = reader.fixed<U16>("scale");
  value.marker = Rix::decoded<U32>(reader);
}

void encodeValue(Rix::ByteWriter& writer, SourcePortConfig const& value) {
  writer.variable(value.sourcePortType);
  writer.fixed(value.value1);
  writer.fixed(value.value2);
  writer.fixed(value.value3);
}
void decodeValue(Rix::ByteReader& reader, SourcePortConfig& value) {
  value.sourcePortType = Rix::decoded<U32>(reader);
  value.value1 = reader.fixed<U16>("source port value");
  value.value2 = reader.fixed<U16>("source port value");
  value.value3 = reader.fixed<U16>("source port value");
}

}  // namespace Sonar

namespace Zeb {
namespace {

void encodeFields(Rix::ByteWriter& writer, ProbeStreamId::Fields const& value) {
  encodeAll(writer, value.srcEthAddr, value.dstEthAddr, value.vlanId, value.dstIp, value.auxIp, value.srcIp,
            value.ipProto);
  writer.fixed(value.streamPort);
  writer.variable(value.streamTag);
}
void decodeFields(Rix::ByteReader& reader, ProbeStreamId::Fields& value) {
  decodeAll(reader, value.srcEthAddr, value.dstEthAddr, value.vlanId, value.dstIp, value.auxIp, value.srcIp,
            value.ipProto);
  value.streamPort = reader.fixed<U16>("stream port");
  value.streamTag = Rix::decoded<U32>(reader);
}

}  // namespace

void encodeValue(Rix::ByteWriter& writer, ProbeStreamId const& value) {
  encodeFields(writer, value.fields());
}
void decodeValue(Rix::ByteReader& reader, ProbeStreamId& value) {
  ProbeStreamId::Fields fields;
  decodeFields(reader, fields);
  value = ProbeStreamId(fields);
}

void encodeValue(Rix::ByteWriter& writer, ZebProbeRate const& value) {
  writer.fixed(value.rate);
  writer.fixed(value.scale);
}
void decodeValue(Rix::ByteReader& reader, ZebProbeRate& value) {
  value.rate = reader.fixed<U16>("rate");
  value.scale = reader.fixed<U16>("scale");
}

void encodeValue(Rix::ByteWriter& writer, EventType value) {
  writer.fixed(static_cast<U8>(value));
}
void decodeValue(Rix::ByteReader& reader, EventType& value) {
  decodeEnumeration(reader, value, EventType::eventProbesReceived);
}

void encodeValue(Rix::ByteWriter& writer, LossRecordType value) {
  writer.fixed(static_cast<U8>(value));
}
void decodeValue(Rix::ByteReader& reader, LossRecordType& value) {
  decodeEnumeration(reader, value, LossRecordType::lossRecordDestDormant);
}

void encodeValue(Rix::ByteWriter& writer, DevicePair const& value) {
  encodeAll(writer, value.dev1SysId(), value.dev2SysId());
}
void decodeValue(Rix::ByteReader& reader, DevicePair& value) {
  auto const first = Rix::decoded<Fabric::SystemId>(reader);
  value = DevicePair(first, Rix::decoded<Fabric::SystemId>(reader));
}

void encodeValue(Rix::ByteWriter& writer, DeviceInfo const& value) {
  encodeValue(writer, value.ipAddr);
  Rix::encodeValue(writer, value.hostname);
  encodeValue(writer, value.intf);
}
void decodeValue(Rix::ByteReader& reader, DeviceInfo& value) {
  decodeValue(reader, value.ipAddr);
  Rix::decodeValue(reader, value.hostname);
  decodeValue(reader, value.intf);
}

}  // namespace Zeb

namespace Sonar {

void encodeValue(Rix::ByteWriter& writer, EgressStream const& value) {
  Zeb::encodeFields(writer, value);
  writer.fixed(value.ttl);
  encodeValue(writer, value.egressIntf);
}
void decodeValue(Rix::ByteReader& reader, EgressStream& value) {
  Zeb::decodeFields(reader, value);
  value.ttl = reader.fixed<U8>("TTL");
  decodeValue(reader, value.egressIntf);
}

}  // namespace Sonar
