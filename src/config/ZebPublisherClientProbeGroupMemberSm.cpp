// The addresses of one peer.
#include "config/ZebPublisherClientProbeGroupMemberSm.h"

#include "config/PublisherTrace.h"

namespace Zeb {

ZebPublisherClientProbeGroupMemberSm::ZebPublisherClientProbeGroupMemberSm(
    Fabric::SystemId const& memberId, Fabric::SystemId const& systemId,
    Rix::Ptr<ZebTransmitterConfig> const& transmitter, Rix::Ptr<ClientReachabilityGroup const> const& clientGroup)
    : memberId_(memberId), systemId_(systemId), transmitter_(transmitter) {
  RIX_ASSERT(transmitter && clientGroup, memberId);
  clientGroup_.notifierIs(clientGroup);  // enters all that is reported by now
}

void ZebPublisherClientProbeGroupMemberSm::handleIntfIp(Rix::String8 const& intfName) {
  Netkit::IpAddr const ip = clientGroup_->interfaceIp(intfName);
  if (ip != Netkit::IpAddr()) {
    RIX_TRACE(publisherTraceHandle, 8,
              "adding client " << memberId_ << " ip " << ip << " to group " << clientGroup_->rixKey());
    transmitter_->ipDestDel(interfaceIp_.interfaceIp(intfName));
    transmitter_->ipDestIs(ip, true);
    interfaceIp_.interfaceIpIs(intfName, ip);
  } else {
    RIX_TRACE(publisherTraceHandle, 8,
              "removing client " << memberId_ << " intf " << intfName << " from group " << clientGroup_->rixKey());
    // What is reported now, and that is no address: the one entered before stays in the order.
    transmitter_->ipDestDel(ip);
    interfaceIp_.interfaceIpDel(intfName);
  }
}

void ZebPublisherClientProbeGroupMemberSm::doCleanup() {
  // The order is named probe, colon, own group.
  RIX_TRACE(publisherTraceHandle, 8,
            "client " << systemId_ << " probe " << transmitter_->rixKey().substr(0, transmitter_->rixKey().pos(':'))
                      << " group " << clientGroup_->rixKey() << " member " << memberId_);
  for (auto const& [intfName, ip] : clientGroup_->interfaceIpIterator()) transmitter_->ipDestDel(ip);
}

Rix::Ptr<ZebPublisherClientProbeGroupMemberSm> zebPublisherClientProbeGroupMemberSmFactory(
    Fabric::SystemId const& memberId, Fabric::SystemId const& systemId,
    Rix::Ptr<ZebTransmitterConfig> const& transmitter, Rix::Ptr<ClientReachabilityGroup const> const& clientGroup) {
  return Rix::make<ZebPublisherClientProbeGroupMemberSm>(memberId, systemId, transmitter, clientGroup);
}

}  // namespace Zeb
