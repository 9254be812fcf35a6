// The snapshot's answers to the service's questions.
#include "sonar/NetworkView.h"

#include <algorithm>

#include "sonar/Probe.h"

namespace Sonar {

void NetworkView::update() {
  local_.clear();
  for (auto const& route : watcher_.snapshot().routes) {
    bool const address = route.kind == Platform::NetworkRoute::Kind::local && route.length == 32;
    if (address) local_.emplace_back(route.destination);
  }
  std::sort(local_.begin(), local_.end());
  local_.erase(std::unique(local_.begin(), local_.end()), local_.end());
}

bool NetworkView::linkUp(Netkit::IntfId interface) const {
  auto const* const found = watcher_.snapshot().interface(interface.view());
  return found && found->up && found->carrier;
}

bool NetworkView::hasRoute(Netkit::IpAddr address) const {
  return watcher_.snapshot().hasRouteTo(address.value());
}

Netkit::IpAddr NetworkView::sourceAddress(Netkit::IntfId interface) const {
  auto const* const found = watcher_.snapshot().interface(interface.view());
  return Netkit::IpAddr(found ? found->address.value_or(0) : 0);
}

Netkit::IntfId NetworkView::egressIntf(Netkit::IpAddr source, Netkit::IpAddr destination, U16 sourcePort) const {
  auto const index = watcher_.egressInterface({source.value(), destination.value(), sourcePort, probePort});
  auto const* const found = index ? watcher_.snapshot().interface(*index) : nullptr;
  return found ? Netkit::IntfId(found->name) : Netkit::IntfId();
}

bool NetworkView::isLocal(Netkit::IpAddr address) const {
  return std::binary_search(local_.begin(), local_.end(), address);
}

}  // namespace Sonar
