// The host name and the groups of the report.
#include "config/ZebClientConfigSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebClientConfigSm");
}

ZebClientConfigSm::ZebClientConfigSm(Rix::Ptr<ClientConfig const> const& config,
                                     Rix::Ptr<System::NetConfig const> const& netConfig,
                                     Rix::Ptr<ClientConfig> const& mountedConfig,
                                     Rix::Ptr<Ip::Status const> const& ipStatus)
    : mountedConfig_(mountedConfig), ipStatus_(ipStatus) {
  config_.notifierIs(config);  // makes the reactors of the groups that are there
  netConfig_.notifierIs(netConfig);
  handleInitialized();
}

ZebClientConfigSm::~ZebClientConfigSm() = default;

void ZebClientConfigSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebClientConfigSm::handleInitialized()");
  initializedIs(true);
  handleHostname();
}

void ZebClientConfigSm::handleHostname() {
  RIX_TRACE(traceHandle, 8, "Hostname: " << netConfig_->hostname());
  mountedConfig_->hostnameIs(netConfig_->hostname());
}

void ZebClientConfigSm::handleGroup(Rix::Name const& name) {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebClientConfigSm::handleGroup(Rix::Name)"
                << " group=" << name);
  if (Rix::Ptr<ClientReachabilityGroup const> const group = config_->group(name)) {
    groupIs(group);
  } else {
    groupDel(name);
  }
}

ZebClientConfigSm::RixGroup* ZebClientConfigSm::groupIs(Rix::Ptr<ClientReachabilityGroup const> const& group) {
  if (!group) {
    Rix::throwRangeException("null _group parameter to mutator for Zeb::ZebClientConfigSm::group not allowed\"");
  }
  return group_.is(group->name(), group, this);
}

void ZebClientConfigSm::groupDel(Rix::Name const& name) {
  group_.del(name);
}

ZebClientConfigSm::RixGroup::RixGroup(Rix::Ptr<ClientReachabilityGroup const> const& group,
                                      ZebClientConfigSm* clientConfigSm)
    : clientConfigSm_(clientConfigSm), mountedConfig_(clientConfigSm->mountedConfig()) {
  group_.notifierIs(group);
  handleInitialized();
}

void ZebClientConfigSm::RixGroup::handleInitialized() {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebClientConfigSm::RixGroup::handleInitialized()"
                << " group=" << group_->name());
  sourceIntfDir_ = Rix::make<Ip::SourceIntf::SourceIntfDir>("sourceIntfDir");
  sourceIntfSm_.is(sourceIntfDir_, clientConfigSm_->ipStatus());
  initializedIs(true);
  mountedConfig_->groupIs(group_->name());
}

void ZebClientConfigSm::RixGroup::hasNotificationActiveIs(bool active) {
  bool const turnedOn = active && !hasNotificationActive();
  Reactor::hasNotificationActiveIs(active);
  if (turnedOn) handleInterface();
}

void ZebClientConfigSm::RixGroup::handleInterface() {
  Rix::sweepKeys(group_->interfaceIpIterator(), [this](Rix::String8 const& intfName) { handleInterface(intfName); });
}

void ZebClientConfigSm::RixGroup::handleInterface(Rix::String8 const& intfName) {
  if (!initialized()) return;
  Netkit::IntfId const intf(intfName.view());
  if (group_->interfaceIpHas(intfName)) {
    doUnregisterStaleSourceIntf();
    RIX_TRACE(traceHandle, 8, "Registering interface " << intfName << " on group " << group_->name());
    Rix::Ptr<Ip::SourceIntf::SourceIntf> const sourceIntf = sourceIntfSm_->registerSourceIntf(intf);
    zebSourceIntfSm_.is(intf, sourceIntf, Rix::Ptr<ClientReachabilityGroup const>(group_.notifier()), mountedConfig_);
    return;
  }
  zebSourceIntfSm_.del(intf);
  if (Rix::Ptr<Ip::SourceIntf::SourceIntf> const entry = sourceIntfDir_->sourceIntf(intf)) {
    sourceIntfSm_->unregisterSourceIntf(entry);
  }
  ClientReachabilityGroup* const mountedGroup = mountedConfig_->group(group_->name());
  RIX_ASSERT(mountedGroup, group_->name(), intfName);
  mountedGroup->interfaceIpDel(intfName);
}

// An entry whose name the operator's list has with a zero address, or not at all, no longer stands. Its report stays
// until the name leaves the list.
void ZebClientConfigSm::RixGroup::doUnregisterStaleSourceIntf() {
  Rix::sweepKeys(sourceIntfDir_->sourceIntfIterator(), [this](Netkit::IntfId intf) {
    if (group_->interfaceIp(intf.stringValue()) != Netkit::IpAddr()) return;
    RIX_TRACE(traceHandle, 8, "Unregistering interface " << intf << " from group " << group_->name());
    sourceIntfSm_->unregisterSourceIntf(sourceIntfDir_->sourceIntf(intf));
  });
}

void ZebClientConfigSm::RixGroup::doCleanup() {
  RIX_TRACE(traceHandle, 8, "Cleaning up " << group_->name());
  mountedConfig_->groupDel(group_->name());
  sourceIntfSm_.del();
}

Rix::Ptr<ZebClientConfigSm> zebClientConfigSmFactory(Rix::Ptr<ClientConfig const> const& config,
                                                     Rix::Ptr<System::NetConfig const> const& netConfig,
                                                     Rix::Ptr<ClientConfig> const& mountedConfig,
                                                     Rix::Ptr<Ip::Status const> const& ipStatus) {
  return Rix::make<ZebClientConfigSm>(config, netConfig, mountedConfig, ipStatus);
}

}  // namespace Zeb
