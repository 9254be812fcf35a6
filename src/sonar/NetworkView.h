// The switch as the kernel's tables show it: links, addresses and routes of one network namespace. Follows a watcher
// that somebody else's event loop drives; decides nothing.
#pragma once

#include "platform/Netlink.h"
#include "sonar/SwitchView.h"

namespace Sonar {

class NetworkView : public SwitchView {
 public:
  /// `watcher` outlives this.
  explicit NetworkView(Platform::NetworkWatcher& watcher) : watcher_(watcher) { update(); }

  /// The watcher's snapshot is another one now. To be called before the service is told.
  void update();

  bool linkUp(Netkit::IntfId interface) const override;
  bool hasRoute(Netkit::IpAddr address) const override;
  Netkit::IpAddr sourceAddress(Netkit::IntfId interface) const override;
  Netkit::IntfId egressIntf(Netkit::IpAddr source, Netkit::IpAddr destination, U16 sourcePort) const override;
  std::vector<Netkit::IpAddr> localAddresses() const override { return local_; }
  bool isLocal(Netkit::IpAddr address) const override;

 private:
  Platform::NetworkWatcher& watcher_;
  std::vector<Netkit::IpAddr> local_;  // in order: asked for every packet
};

}  // namespace Sonar
