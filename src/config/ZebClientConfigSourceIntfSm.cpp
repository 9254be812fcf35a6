// An address on its way into the report.
#include "config/ZebClientConfigSourceIntfSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebClientConfigSourceIntfSm");
}

ZebClientConfigSourceIntfSm::ZebClientConfigSourceIntfSm(Rix::Ptr<Ip::SourceIntf::SourceIntf> const& sourceIntf,
                                                         Rix::Ptr<ClientReachabilityGroup const> const& group,
                                                         Rix::Ptr<ClientConfig> const& mountedConfig)
    : group_(group), mountedConfig_(mountedConfig) {
  sourceIntf_.notifierIs(sourceIntf);
  handleInitialized();
}

void ZebClientConfigSourceIntfSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebClientConfigSourceIntfSm::handleInitialized()");
  handleSourceIntfIp();
}

void ZebClientConfigSourceIntfSm::handleSourceIntfIp() {
  Netkit::IntfId const intf = sourceIntf_->intfId();
  RIX_TRACE(traceHandle, 8, "Adding IP " << sourceIntf_->ipAddr() << " intf " << intf << " group " << group_->name());
  ClientReachabilityGroup* const mountedGroup = mountedConfig_->group(group_->name());
  RIX_ASSERT(mountedGroup, group_->name(), intf);
  mountedGroup->interfaceIpIs(intf.stringValue(), sourceIntf_->ipAddr());
}

Rix::Ptr<ZebClientConfigSourceIntfSm> zebClientConfigSourceIntfSmFactory(
    Rix::Ptr<Ip::SourceIntf::SourceIntf> const& sourceIntf, Rix::Ptr<ClientReachabilityGroup const> const& group,
    Rix::Ptr<ClientConfig> const& mountedConfig) {
  return Rix::make<ZebClientConfigSourceIntfSm>(sourceIntf, group, mountedConfig);
}

}  // namespace Zeb
