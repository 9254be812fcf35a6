// The builder, one probe, one client.
#include "config/ZebGroupBuilderSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebGroupBuilderSm");
}

// The builder.

ZebGroupBuilderSm::ZebGroupBuilderSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status) {
  config_.notifierIs(config);
  status_.notifierIs(status);
  handleInitialized();
}

// Probes first, so that their groups stand when the clients are looked at.
void ZebGroupBuilderSm::handleInitialized() {
  initializedIs(true);
  handleProbeConfig();
  handleClient();
}

void ZebGroupBuilderSm::handleProbeConfig() {
  Rix::sweepKeys(config_->probeConfigIterator(), [this](Rix::Name const& name) { handleProbeConfig(name); });
}

void ZebGroupBuilderSm::handleProbeConfig(Rix::Name const& name) {
  if (!initialized()) return;
  if (Rix::Ptr<ZebProbeConfig const> const probeConfig = config_->probeConfig(name)) {
    RIX_TRACE(traceHandle, 8, "void Zeb::ZebGroupBuilderSm::handleProbeConfig(Rix::Name const&) Adding: " << name);
    probeSmIs(probeConfig, status_.notifier());
  } else {
    RIX_TRACE(traceHandle, 8, "void Zeb::ZebGroupBuilderSm::handleProbeConfig(Rix::Name const&) Removing: " << name);
    probeSmDel(name);
  }
}

void ZebGroupBuilderSm::handleClient() {
  Rix::sweepKeys(status_->clientIterator(), [this](Fabric::SystemId const& id) { handleClient(id); });
}

void ZebGroupBuilderSm::handleClient(Fabric::SystemId const& id) {
  if (!initialized()) return;
  if (Rix::Ptr<ZebClient const> const client = status_->client(id)) {
    RIX_TRACE(traceHandle, 8, "void Zeb::ZebGroupBuilderSm::handleClient(Fabric::SystemId const&) Adding: " << id);
    clientSmIs(client, status_.notifier());
  } else {
    RIX_TRACE(traceHandle, 8, "void Zeb::ZebGroupBuilderSm::handleClient(Fabric::SystemId const&) Removing: " << id);
    clientSmDel(id);
  }
}

void ZebGroupBuilderSm::doCleanup() {
  probeSmDelAll();
  clientSmDelAll();
}

// One probe.

ZebGroupBuilderProbeSm::ZebGroupBuilderProbeSm(Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                               Rix::Ptr<ZebStatus> const& status)
    : probeConfig_(probeConfig), status_(status) {
  handleInitialized();
}

void ZebGroupBuilderProbeSm::handleInitialized() {
  initializedIs(true);
  handleGroup();
}

void ZebGroupBuilderProbeSm::handleGroup() {
  handleSrcGroup();
  handleDstGroup();
}

void ZebGroupBuilderProbeSm::handleSrcGroup() {
  doMoveGroup(lastSrcGroup_, probeConfig_->srcGroup(), probeConfig_->dstGroup());
}

void ZebGroupBuilderProbeSm::handleDstGroup() {
  doMoveGroup(lastDstGroup_, probeConfig_->dstGroup(), probeConfig_->srcGroup());
}

void ZebGroupBuilderProbeSm::doMoveGroup(Rix::String8& last, Rix::String8 const& current, Rix::String8 const& other) {
  if (!last.empty() && last != other) doRemoveGroup(last);
  last = current;
  if (!current.empty()) doAddGroup(current);
}

void ZebGroupBuilderProbeSm::doAddGroup(Rix::Name const& name) {
  RIX_TRACE(traceHandle, 8, "Adding group " << name << " to probe " << probeConfig_->rixKey());
  status_->groupIs(name)->probeIs(probeConfig_);
}

void ZebGroupBuilderProbeSm::doRemoveGroup(Rix::Name const& name) {
  if (name.empty()) return;
  RIX_TRACE(traceHandle, 8, "Removing group " << name << " from probe " << probeConfig_->rixKey());
  Rix::Ptr<ReachabilityGroup> const group = status_->group(name);
  if (!group) return;
  group->probeDel(probeConfig_->rixKey());
  if (group->probes() == 0) status_->groupDel(name);
}

void ZebGroupBuilderProbeSm::doCleanup() {
  doRemoveGroup(probeConfig_->srcGroup());
  doRemoveGroup(probeConfig_->dstGroup());
}

// One client.

ZebGroupBuilderClientSm::ZebGroupBuilderClientSm(Rix::Ptr<ZebClient const> const& client,
                                                 Rix::Ptr<ZebStatus> const& status) {
  client_.notifierIs(client);
  status_.notifierIs(status);
  handleInitialized();
}

void ZebGroupBuilderClientSm::handleInitialized() {
  initializedIs(true);
  handleClientGroup();
}

void ZebGroupBuilderClientSm::handleClientGroup() {
  Rix::sweepKeys(client_->reachabilityGroupIterator(), [this](Rix::Name const& name) { handleClientGroup(name); });
}

void ZebGroupBuilderClientSm::handleClientGroup(Rix::Name const& name) {
  if (!initialized()) return;
  Rix::Ptr<ReachabilityGroup> const group = status_->group(name);
  if (!group) return;  // no probe uses it; should one begin to, handleGroup catches up
  Fabric::SystemId const& id = client_->systemId();
  if (client_->reachabilityGroup(name)) {
    RIX_TRACE(traceHandle, 8, "Adding member " << id << " to group " << name);
    group->memberIs(client_.notifier());
  } else {
    RIX_TRACE(traceHandle, 8, "Removing member " << id << " from group " << name);
    group->memberDel(id);
  }
}

void ZebGroupBuilderClientSm::handleGroup() {
  if (!initialized()) return;
  Rix::sweepKeys(status_->groupIterator(), [this](Rix::Name const& name) { handleGroup(name); });
}

// The members of a group that has gone went with it.
void ZebGroupBuilderClientSm::handleGroup(Rix::Name const& name) {
  if (status_->group(name)) handleClientGroup(name);
}

void ZebGroupBuilderClientSm::doCleanup() {
  Rix::sweepKeys(client_->reachabilityGroupIterator(), [this](Rix::Name const& name) {
    if (Rix::Ptr<ReachabilityGroup> const group = status_->group(name)) group->memberDel(client_->systemId());
  });
}

Rix::Ptr<ZebGroupBuilderSm> zebGroupBuilderSmFactory(Rix::Ptr<ZebConfig const> const& config,
                                                     Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebGroupBuilderSm>(config, status);
}
Rix::Ptr<ZebGroupBuilderProbeSm> zebGroupBuilderProbeSmFactory(Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                                               Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebGroupBuilderProbeSm>(probeConfig, status);
}
Rix::Ptr<ZebGroupBuilderClientSm> zebGroupBuilderClientSmFactory(Rix::Ptr<ZebClient const> const& client,
                                                                 Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebGroupBuilderClientSm>(client, status);
}

}  // namespace Zeb
