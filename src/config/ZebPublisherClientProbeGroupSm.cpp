// What one order says: where to send from and to, on which ports, how often and how far, and whether at all.
#include "config/ZebPublisherClientProbeGroupSm.h"

#include "config/PublisherTrace.h"

namespace Zeb {

ZebPublisherClientProbeGroupSm::ZebPublisherClientProbeGroupSm(
    Fabric::SystemId const& systemId, Rix::Ptr<ReachabilityGroup const> const& group,
    Rix::Ptr<ClientReachabilityGroup const> const& clientGroup, Rix::Ptr<ZebProbeConfig const> const& probeConfig,
    Rix::Ptr<ZebStatus const> const& status, Rix::Ptr<ZebSonarConfigV1> const& waveConfig)
    : systemId_(systemId), status_(status), waveConfig_(waveConfig) {
  group_.notifierIs(group);
  clientGroup_.notifierIs(clientGroup);
  probeConfig_.notifierIs(probeConfig);
  handleInitialized();
}

void ZebPublisherClientProbeGroupSm::handleInitialized() {
  transmitterName_ = probeConfig_->rixKey() + Rix::String8(":") + clientGroup_->rixKey();
  waveConfig_->transmitterIs(transmitterName_);
  initializedIs(true);
  Rix::sweepKeys(clientGroup_->interfaceIpIterator(), [this](Rix::String8 const& intfName) { handleIntfIp(intfName); });
  Rix::sweepKeys(group_->memberIterator(), [this](Fabric::SystemId const& id) { handleGroupMember(id); });
  handleRate();
  handleDistance();
  Rix::sweepKeys(probeConfig_->portIterator(), [this](U16 port) { handlePort(port); });
  handleEnabled();
}

void ZebPublisherClientProbeGroupSm::handleIntfIp(Rix::String8 const& intfName) {
  if (!initialized()) return;
  bool const present = clientGroup_->interfaceIpHas(intfName);
  RIX_TRACE(publisherTraceHandle, 8,
            "client " << systemId_ << " probe " << probeConfig_->rixKey() << " group " << group_->rixKey() << " intf "
                      << intfName << " present " << present);
  Rix::Ptr<ZebTransmitterConfig> const order = transmitter();
  Netkit::IntfId const intf(intfName.view());
  if (present) {
    order->sourceInterfaceIs(intf, true);
  } else {
    order->sourceInterfaceDel(intf);
  }
}

void ZebPublisherClientProbeGroupSm::handleGroupMember(Fabric::SystemId const& memberId) {
  if (!initialized()) return;
  RIX_TRACE(publisherTraceHandle, 8,
            "client " << systemId_ << " probe " << probeConfig_->rixKey() << " group " << group_->rixKey()
                      << " group member " << memberId);
  // A switch never probes itself, also where both groups are one.
  if (memberId == systemId_ || !group_->member(memberId)) {
    memberSmDel(memberId);
    return;
  }
  ZebClient const* const memberClient = status_->client(memberId);
  RIX_ASSERT(memberClient != nullptr, memberId);
  memberSmIs(memberId, systemId_, transmitter(), memberClient->reachabilityGroup(group_->rixKey()));
}

void ZebPublisherClientProbeGroupSm::handleRate() {
  RIX_TRACE(publisherTraceHandle, 8, "rate: " << probeConfig_->rate());
  doSyncHopsRate();
}

void ZebPublisherClientProbeGroupSm::handleDistance() {
  RIX_TRACE(publisherTraceHandle, 8, "distance: " << U32{probeConfig_->distance()});
  doSyncHopsRate();
}

// All hops are taken out and entered again: who reads an order takes hops in and out, and never another rate of one.
void ZebPublisherClientProbeGroupSm::doSyncHopsRate() {
  RIX_TRACE(publisherTraceHandle, 8,
            "client " << systemId_ << " probe " << probeConfig_->rixKey() << " group " << group_->rixKey());
  Rix::Ptr<ZebTransmitterConfig> const order = transmitter();
  if (!order) {
    RIX_TRACE(publisherTraceHandle, 8, "No transmitter: " << transmitterName_);
    return;
  }
  order->hopsRateDelAll();
  for (U16 hop = 1; hop <= probeConfig_->distance(); ++hop) order->hopsRateIs(hop, {probeConfig_->rate(), 1});
}

void ZebPublisherClientProbeGroupSm::handlePort(U16 port) {
  if (!initialized()) return;
  RIX_TRACE(publisherTraceHandle, 8, "port: " << port);
  Rix::Ptr<ZebTransmitterConfig> const order = transmitter();
  if (!order) return;
  if (probeConfig_->port(port)) {
    order->portIs(port, true);
  } else {
    order->portDel(port);
  }
}

void ZebPublisherClientProbeGroupSm::handleEnabled() {
  RIX_TRACE(publisherTraceHandle, 8, "enabled: " << probeConfig_->enabled());
  if (Rix::Ptr<ZebTransmitterConfig> const order = transmitter()) order->enabledIs(probeConfig_->enabled());
}

void ZebPublisherClientProbeGroupSm::doCleanup() {
  RIX_TRACE(publisherTraceHandle, 8,
            "client " << systemId_ << " probe " << probeConfig_->rixKey() << " group " << group_->rixKey());
  memberSm_.delAll();
  waveConfig_->transmitterDel(transmitterName_);
}

Rix::Ptr<ZebPublisherClientProbeGroupSm> zebPublisherClientProbeGroupSmFactory(
    Fabric::SystemId const& systemId, Rix::Ptr<ReachabilityGroup const> const& group,
    Rix::Ptr<ClientReachabilityGroup const> const& clientGroup, Rix::Ptr<ZebProbeConfig const> const& probeConfig,
    Rix::Ptr<ZebStatus const> const& status, Rix::Ptr<ZebSonarConfigV1> const& waveConfig) {
  return Rix::make<ZebPublisherClientProbeGroupSm>(systemId, group, clientGroup, probeConfig, status, waveConfig);
}

}  // namespace Zeb
