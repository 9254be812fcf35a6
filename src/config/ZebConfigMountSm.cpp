// From the top down: the directory of reports, one switch, one of its groups.
#include "config/ZebConfigMountSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebConfigMountSm");
}

using RixGroup = ZebConfigClientMountSm::RixGroup;

// The directory.

ZebConfigMountSm::ZebConfigMountSm(Rix::Ptr<Rix::Dir const> const& clientConfigDir, Rix::Ptr<ZebStatus> const& status)
    : status_(status) {
  clientConfigDir_.notifierIs(clientConfigDir);
  handleInitialized();
}

void ZebConfigMountSm::handleInitialized() {
  initializedIs(true);
  handleClientConfig();
}

void ZebConfigMountSm::handleClientConfig() {
  Rix::sweepKeys(clientConfigDir_->entityPtrIterator(), [this](Rix::Name const& name) { handleClientConfig(name); });
}

void ZebConfigMountSm::handleClientConfig(Rix::Name const& name) {
  if (!initialized()) return;
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebConfigMountSm::handleClientConfig(Rix::Name const&) " << name);
  Rix::Ptr<Rix::Entity> const entity = clientConfigDir_->entityPtr(name);
  Fabric::SystemId const systemId = Fabric::systemIdFromString(name.view());
  if (!entity) return clientSmDel(systemId);
  if (!clientConfigDir_->entry(name)) return;
  if (Rix::Ptr<ClientConfig const> const clientConfig = Rix::dynamicCast<ClientConfig>(entity)) {
    clientSmIs(systemId, clientConfig, status_);
  }
}

// One switch.

ZebConfigClientMountSm::ZebConfigClientMountSm(Fabric::SystemId const& systemId,
                                               Rix::Ptr<ClientConfig const> const& clientConfig,
                                               Rix::Ptr<ZebStatus> const& status)
    : systemId_(systemId), status_(status) {
  clientConfig_.notifierIs(clientConfig);
  handleInitialized();
}

// The client comes first: whoever watches it sees its groups come one by one, and a group's reactor needs it.
void ZebConfigClientMountSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebConfigClientMountSm::handleInitialized() client=" << systemId_);
  status_->clientIs(systemId_);
  handleHostname();
  initializedIs(true);
  Rix::sweepKeys(clientConfig_->groupIterator(), [this](Rix::Name const& name) { handleGroup(name); });
}

void ZebConfigClientMountSm::handleHostname() {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebConfigClientMountSm::handleHostname() hostname=" << clientConfig_->hostname());
  if (Rix::Ptr<ZebClient> const client = status_->client(systemId_)) client->hostnameIs(clientConfig_->hostname());
}

void ZebConfigClientMountSm::handleGroup(Rix::Name const& name) {
  if (!initialized()) return;
  if (Rix::Ptr<ClientReachabilityGroup const> const group = clientConfig_->group(name)) {
    groupIs(group);
  } else {
    groupDel(name);
  }
}

RixGroup* ZebConfigClientMountSm::groupIs(Rix::Ptr<ClientReachabilityGroup const> const& group) {
  if (!group) {
    Rix::throwRangeException("null _group parameter to mutator for Zeb::ZebConfigClientMountSm::group not allowed\"");
  }
  return group_.is(group->rixKey(), group, this);
}

// Takes the client away with all its groups, before the groups' own reactors end.
void ZebConfigClientMountSm::doCleanup() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebConfigClientMountSm::doCleanup() client=" << systemId_);
  status_->clientDel(systemId_);
}

// One group.

RixGroup::RixGroup(Rix::Ptr<ClientReachabilityGroup const> const& group, ZebConfigClientMountSm* owner)
    : owner_(owner) {
  group_.notifierIs(group);
  handleInitialized();
}

void RixGroup::handleInitialized() {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebConfigClientMountSm::RixGroup::handleInitialized() client=" << owner_->systemId_
                                                                                      << " group=" << group_->rixKey());
  Rix::Ptr<ZebClient> const client = owner_->status_->client(owner_->systemId_);
  client->reachabilityGroupIs(group_->rixKey());
  initializedIs(true);
  handleInterface();
}

void RixGroup::handleInterface() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebConfigClientMountSm::RixGroup::handleInterface()");
  if (!initialized()) return;
  Rix::sweepKeys(group_->interfaceIpIterator(), [this](Rix::String8 const& intfName) { handleInterface(intfName); });
}

void RixGroup::handleInterface(Rix::String8 const& intfName) {
  if (!initialized()) return;
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebConfigClientMountSm::RixGroup::handleInterface(Rix::String8 const&) client="
                << owner_->systemId_ << " group=" << group_->rixKey() << " intf=" << intfName);
  Rix::Ptr<ZebClient> const client = owner_->status_->client(owner_->systemId_);
  Rix::Ptr<ClientReachabilityGroup> const target = client->reachabilityGroup(group_->rixKey());
  if (group_->interfaceIpHas(intfName)) {
    target->interfaceIpIs(intfName, group_->interfaceIp(intfName));
  } else {
    target->interfaceIpDel(intfName);
  }
}

void RixGroup::doCleanup() {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebConfigClientMountSm::RixGroup::doCleanup() client=" << owner_->systemId_
                                                                              << " group=" << group_->rixKey());
  Rix::Ptr<ZebClient> const client = owner_->status_->client(owner_->systemId_);
  if (client) client->reachabilityGroupDel(group_->rixKey());
}

Rix::Ptr<ZebConfigMountSm> zebConfigMountSmFactory(Rix::Ptr<Rix::Dir const> const& clientConfigDir,
                                                   Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebConfigMountSm>(clientConfigDir, status);
}
Rix::Ptr<ZebConfigClientMountSm> zebConfigClientMountSmFactory(Fabric::SystemId const& systemId,
                                                               Rix::Ptr<ClientConfig const> const& clientConfig,
                                                               Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebConfigClientMountSm>(systemId, clientConfig, status);
}

}  // namespace Zeb
