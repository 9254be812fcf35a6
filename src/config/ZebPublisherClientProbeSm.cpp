// The directions of one probe on one switch.
#include "config/ZebPublisherClientProbeSm.h"

#include "config/PublisherTrace.h"

namespace Zeb {

ZebPublisherClientProbeSm::ZebPublisherClientProbeSm(Fabric::SystemId const& systemId,
                                                     Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                                     Rix::Ptr<ZebProbeGroupList const> const& groupList,
                                                     Rix::Ptr<ZebStatus const> const& status,
                                                     Rix::Ptr<ZebSonarConfigV1> const& waveConfig)
    : systemId_(systemId), probeConfig_(probeConfig), status_(status), waveConfig_(waveConfig) {
  groupList_.notifierIs(groupList);
  handleInitialized();
}

void ZebPublisherClientProbeSm::handleInitialized() {
  RIX_TRACE(publisherTraceHandle, 8, "client " << systemId_ << " probe " << probeConfig_->rixKey());
  Rix::sweepKeys(groupList_->groupIterator(), [this](Rix::String8 const& name) { handleGroup(name); });
}

void ZebPublisherClientProbeSm::handleGroup(Rix::String8 const& name) {
  Rix::Name const peer = name == probeConfig_->srcGroup() ? probeConfig_->dstGroup() : probeConfig_->srcGroup();
  if (!groupList_->group(name)) {
    groupSmDel(peer);
    return;
  }
  // A probe with one side alone has nobody to reach.
  ReachabilityGroup const* const group = status_->group(peer);
  if (!group) return;
  ZebClient const* const client = status_->client(systemId_);
  RIX_ASSERT(client != nullptr, systemId_);
  ClientReachabilityGroup const* const clientGroup = client->reachabilityGroup(name);
  RIX_ASSERT(clientGroup != nullptr, systemId_, name);
  groupSmIs(systemId_, group, clientGroup, probeConfig_, status_, waveConfig_);
}

void ZebPublisherClientProbeSm::doCleanup() {
  RIX_TRACE(publisherTraceHandle, 8, "client " << systemId_ << " probe " << probeConfig_->rixKey());
  groupSm_.delAll();
}

Rix::Ptr<ZebPublisherClientProbeSm> zebPublisherClientProbeSmFactory(Fabric::SystemId const& systemId,
                                                                     Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                                                     Rix::Ptr<ZebProbeGroupList const> const& groupList,
                                                                     Rix::Ptr<ZebStatus const> const& status,
                                                                     Rix::Ptr<ZebSonarConfigV1> const& waveConfig) {
  return Rix::make<ZebPublisherClientProbeSm>(systemId, probeConfig, groupList, status, waveConfig);
}

}  // namespace Zeb
