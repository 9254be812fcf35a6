// When the bell rings, and the reserved streams that it rings with.
#include "sonar/Bell.h"

namespace Sonar {

namespace {

// Of the block that is reserved for good: no host ever has one.
constexpr Netkit::IpAddr bellSource{0xf0000001};
constexpr Netkit::IpAddr bellDestination{0xf0000002};
constexpr Netkit::IpProto udp{17};

}  // namespace

IngressStream Bell::reservedStream(U32 tag) {
  IngressStream key;
  key.srcIp = bellSource;
  key.dstIp = bellDestination;
  key.ipProto = udp;
  key.streamTag = tag;
  return key;
}

bool Bell::isReserved(IngressStream const& key) {
  return key.srcIp == bellSource && key.dstIp == bellDestination;
}

void Bell::sweep(Rix::Seconds now) {
  if (now - rungAt_ < period) return;
  if (ringing_) table_.rowDel(*ringing_);
  ringing_.reset();
  if (!asked_) return;
  asked_ = false;
  rungAt_ = now;
  ringing_ = reservedStream(nextTag_);
  nextTag_ = (nextTag_ + 1) % tags;
  IngressStreamStatisticsTableEntry row;
  row.key = *ringing_;
  table_.rowIs(row);
}

}  // namespace Sonar
