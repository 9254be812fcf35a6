// The model's values as bytes, for frames. What each writes is its content field by field: an interface travels as its
// full name, since the short forms of a table's rows mean something on one switch only.
//
// Included by the generated sources, where records learn to write themselves.
#pragma once

#include "model/DevicePair.h"
#include "model/EventType.h"
#include "model/EventValues.h"
#include "model/Netkit.h"
#include "model/ProbeRate.h"
#include "model/ProbeStreamId.h"
#include "model/SonarRows.h"
#include "model/SystemId.h"
#include "runtime/Codec.h"

namespace Netkit {

void encodeValue(Rix::ByteWriter& writer, EthAddr const& value);
void decodeValue(Rix::ByteReader& reader, EthAddr& value);
void encodeValue(Rix::ByteWriter& writer, IpAddr value);
void decodeValue(Rix::ByteReader& reader, IpAddr& value);
void encodeValue(Rix::ByteWriter& writer, IpProto value);
void decodeValue(Rix::ByteReader& reader, IpProto& value);
void encodeValue(Rix::ByteWriter& writer, IntfId value);
void decodeValue(Rix::ByteReader& reader, IntfId& value);

}  // namespace Netkit

namespace Bridging {

void encodeValue(Rix::ByteWriter& writer, VlanIdOrNone value);
void decodeValue(Rix::ByteReader& reader, VlanIdOrNone& value);

}  // namespace Bridging

namespace Fabric {

void encodeValue(Rix::ByteWriter& writer, SystemId const& value);
void decodeValue(Rix::ByteReader& reader, SystemId& value);

}  // namespace Fabric

namespace Sonar {

void encodeValue(Rix::ByteWriter& writer, Epoch value);
void decodeValue(Rix::ByteReader& reader, Epoch& value);
void encodeValue(Rix::ByteWriter& writer, ProbeRate const& value);
void decodeValue(Rix::ByteReader& reader, ProbeRate& value);
void encodeValue(Rix::ByteWriter& writer, SourcePortConfig const& value);
void decodeValue(Rix::ByteReader& reader, SourcePortConfig& value);
void encodeValue(Rix::ByteWriter& writer, EgressStream const& value);
void decodeValue(Rix::ByteReader& reader, EgressStream& value);

}  // namespace Sonar

namespace Zeb {

void encodeValue(Rix::ByteWriter& writer, ProbeStreamId const& value);
void decodeValue(Rix::ByteReader& reader, ProbeStreamId& value);
void encodeValue(Rix::ByteWriter& writer, ZebProbeRate const& value);
void decodeValue(Rix::ByteReader& reader, ZebProbeRate& value);
void encodeValue(Rix::ByteWriter& writer, EventType value);
void decodeValue(Rix::ByteReader& reader, EventType& value);
void encodeValue(Rix::ByteWriter& writer, LossRecordType value);
void decodeValue(Rix::ByteReader& reader, LossRecordType& value);
void encodeValue(Rix::ByteWriter& writer, DevicePair const& value);
void decodeValue(Rix::ByteReader& reader, DevicePair& value);
void encodeValue(Rix::ByteWriter& writer, DeviceInfo const& value);
void decodeValue(Rix::ByteReader& reader, DeviceInfo& value);

}  // namespace Zeb
