// What Sonar sees of the switch that it runs on. The platform keeps it up to date, and says when it has changed.
#pragma once

#include <vector>

#include "model/Netkit.h"

namespace Sonar {

class SwitchView {
 public:
  virtual ~SwitchView() = default;

  /// Whether the interface exists and can carry packets now.
  virtual bool linkUp(Netkit::IntfId interface) const = 0;

  /// Whether a packet to `address` could leave this switch now, or would stay on it.
  virtual bool hasRoute(Netkit::IpAddr address) const = 0;

  /// The address that Sonar sends from on that interface, zero if it has none.
  virtual Netkit::IpAddr sourceAddress(Netkit::IntfId interface) const = 0;

  /// The interface by which a UDP flow would leave now, empty if that is not known.
  virtual Netkit::IntfId egressIntf(Netkit::IpAddr source, Netkit::IpAddr destination, U16 sourcePort) const = 0;

  /// Every address of this switch.
  virtual std::vector<Netkit::IpAddr> localAddresses() const = 0;
  virtual bool isLocal(Netkit::IpAddr address) const = 0;
};

}  // namespace Sonar
