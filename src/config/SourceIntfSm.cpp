// The registered interfaces and their addresses.
#include "config/SourceIntfSm.h"

namespace Ip::SourceIntf {

SourceIntfSm::SourceIntfSm(Rix::Ptr<SourceIntfDir> const& sourceIntfDir, Rix::Ptr<Ip::Status const> const& ipStatus)
    : sourceIntfDir_(sourceIntfDir) {
  ipStatus_.notifierIs(ipStatus);
}

SourceIntfSm::~SourceIntfSm() = default;

Rix::Ptr<SourceIntf> SourceIntfSm::registerSourceIntf(Netkit::IntfId intf) {
  Rix::Ptr<SourceIntf> sourceIntf = sourceIntfDir_->sourceIntfIs(intf);
  tracker_.is(intf, sourceIntf, Rix::Ptr<Ip::Status const>(ipStatus_.notifier()));
  return sourceIntf;
}

void SourceIntfSm::unregisterSourceIntf(Rix::Ptr<SourceIntf> const& sourceIntf) {
  Netkit::IntfId const intf = sourceIntf->intfId();
  RIX_ASSERT(sourceIntfDir_->sourceIntf(intf) == sourceIntf.get(), intf);
  tracker_.del(intf);
  sourceIntfDir_->sourceIntfDel(intf);
}

void SourceIntfSm::handleIntfStatus(Netkit::IntfId intf) {
  if (Tracker* const tracker = tracker_.find(intf)) tracker->handleIntfStatus();
}

SourceIntfSm::Tracker::Tracker(Rix::Ptr<SourceIntf> const& sourceIntf, Rix::Ptr<Ip::Status const> const& ipStatus)
    : sourceIntf_(sourceIntf), ipStatus_(ipStatus) {
  handleIntfStatus();
}

void SourceIntfSm::Tracker::handleIntfStatus() {
  intfStatus_.notifierIs(ipStatus_->intfStatus(sourceIntf_->intfId()));
  handleAddress();
}

void SourceIntfSm::Tracker::handleAddress() {
  sourceIntf_->ipAddrIs(intfStatus_ ? intfStatus_->address() : Netkit::IpAddr());
}

}  // namespace Ip::SourceIntf
