// Which probes concern a switch, and through which of its groups.
#include "config/ZebPublisherClientSm.h"

#include "config/PublisherTrace.h"

namespace Zeb {

ZebPublisherClientSm::ZebPublisherClientSm(Rix::Ptr<ZebClient const> const& client,
                                           Rix::Ptr<ZebConfig const> const& config,
                                           Rix::Ptr<ZebStatus const> const& status,
                                           Rix::Ptr<Rix::Dir> const& waveConfigDir)
    : waveConfigDir_(waveConfigDir) {
  RIX_ASSERT(waveConfigDir);
  client_.notifierIs(client);
  config_.notifierIs(config);
  status_.notifierIs(status);
  if (publisherTraces()) {
    auto const tell = [this](Rix::Name const& name) { handleClientEntry(name); };
    Rix::sweepKeys(waveConfigDir->entryIterator(), tell);
    Rix::sweepKeys(waveConfigDir->entityPtrIterator(), tell);
  }
  handleInitialized();
}

// ---- the switch's entity ----

void ZebPublisherClientSm::handleClientEntry(Rix::Name const& name) {
  RIX_TRACE(publisherTraceHandle, 8, "client " << name);
  handleInitialized();
}

void ZebPublisherClientSm::handleInitialized() {
  RIX_TRACE(publisherTraceHandle, 8, "client " << systemId());
  doAddWaveConfig();
  if (!waveConfig_) return;
  initializedIs(true);
  Rix::sweepKeys(config_->probeConfigIterator(), [this](Rix::Name const& probe) { handleProbe(probe); });
  handleClientReachabilityGroup();
}

void ZebPublisherClientSm::doAddWaveConfig() {
  Rix::Name const name(systemId().stringValue());
  if (!waveConfigDir_->entityPtrHas(name)) return;
  Rix::Dir::Entry const* const entry = waveConfigDir_->entry(name);
  if (!entry || entry->status() != Rix::Dir::Entry::statusComplete) return;
  RIX_TRACE(publisherTraceHandle, 7, "Adding waveConfig for client " << name);
  Rix::Ptr<ZebSonarConfigV1> const uc = Rix::dynamicCast<ZebSonarConfigV1>(waveConfigDir_->entityPtr(name));
  RIX_ASSERT(uc, name);
  waveConfig_ = uc;
}

// ---- groups and probes ----

void ZebPublisherClientSm::handleProbe(Rix::Name const& name) {
  if (!initialized()) return;
  RIX_TRACE(publisherTraceHandle, 8, "client " << systemId() << " probe " << name);
  ZebProbeConfig const* const probe = config_->probeConfig(name);
  if (!probe) {
    probeSmDel(name);
    probeGroupListDel(name);
    return;
  }
  probeGroupListIs(name);
  if (publisherTraces()) {
    handleClientReachabilityGroup();
    handleGroup();
  } else {
    doAddRemoveProbeForItsGroups(*probe);
  }
}

void ZebPublisherClientSm::handleClientReachabilityGroup() {
  Rix::sweepKeys(client_->reachabilityGroupIterator(),
                 [this](Rix::Name const& name) { handleClientReachabilityGroup(name); });
}

void ZebPublisherClientSm::handleClientReachabilityGroup(Rix::Name const& name) {
  if (initialized()) doAddRemoveAllProbesForGroup(name);
}

void ZebPublisherClientSm::handleGroup() {
  Rix::sweepKeys(status_->groupIterator(), [this](Rix::Name const& name) { handleGroup(name); });
}

void ZebPublisherClientSm::handleGroup(Rix::Name const& name) {
  if (!initialized()) return;
  RIX_TRACE(publisherTraceHandle, 8, "client " << systemId() << " group " << name);
  handleClientReachabilityGroup(name);
}

void ZebPublisherClientSm::doAddRemoveAllProbesForGroup(Rix::Name const& group) {
  if (ReachabilityGroup const* const standing = status_->group(group)) {
    Rix::sweepKeys(standing->probeIterator(),
                   [this, &group](Rix::Name const& probe) { doAddRemoveProbeForGroup(probe, group); });
    return;
  }
  // The group has gone, and its list of probes with it.
  for (auto const& probe : config_->probeConfigIterator()) {
    if (probe->srcGroup() == group || probe->dstGroup() == group) doAddRemoveProbeForGroup(probe->rixKey(), group);
  }
}

// What a walk over all groups and their probes comes to when only this probe has changed: the same groups, in the same
// order.
void ZebPublisherClientSm::doAddRemoveProbeForItsGroups(ZebProbeConfig const& probe) {
  Rix::Name const name = probe.rixKey();
  Rix::Name first = probe.srcGroup();
  Rix::Name second = probe.dstGroup();
  if (Rix::bitReverse(second.hash()) < Rix::bitReverse(first.hash())) std::swap(first, second);
  for (Rix::Name const& group : {first, second}) {
    ReachabilityGroup const* const standing = status_->group(group);
    if (!standing || standing->probe(name)) doAddRemoveProbeForGroup(name, group);
  }
}

void ZebPublisherClientSm::doAddRemoveProbeForGroup(Rix::Name const& probe, Rix::Name const& group) {
  if (!initialized()) return;
  ZebProbeConfig const* const probeConfig = config_->probeConfig(probe);
  ZebProbeGroupList* const list = probeGroupList(probe);
  if (client_->reachabilityGroup(group) && status_->group(group) && probeConfig && list) {
    list->groupIs(group, true);
    if (probeSm(probe)) return;
    RIX_TRACE(publisherTraceHandle, 7, "Adding client " << systemId() << " probe " << probe << " group " << group);
    probeSmIs(systemId(), probeConfig, list, status_.notifier(), waveConfig_);
  } else {
    if (list) {
      list->groupDel(group);
      if (list->groups() != 0) return;
    }
    RIX_TRACE(publisherTraceHandle, 7, "Removing client " << systemId() << " probe " << probe << " group " << group);
    probeSmDel(probe);
  }
}

void ZebPublisherClientSm::doCleanup() {
  RIX_TRACE(publisherTraceHandle, 8, "client " << systemId());
  // The switch's entity stays in its directory; ending the probes takes out what was in it.
  probeSm_.delAll();
}

Rix::Ptr<ZebPublisherClientSm> zebPublisherClientSmFactory(Rix::Ptr<ZebClient const> const& client,
                                                           Rix::Ptr<ZebConfig const> const& config,
                                                           Rix::Ptr<ZebStatus const> const& status,
                                                           Rix::Ptr<Rix::Dir> const& waveConfigDir) {
  return Rix::make<ZebPublisherClientSm>(client, config, status, waveConfigDir);
}

}  // namespace Zeb
