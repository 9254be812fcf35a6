// The kernel's packets: the tap, the senders and the port that probes go to, put together.
#include "sonar/PacketIo.h"

#include <cerrno>
#include <system_error>

#include "sonar/ProbePorts.h"

namespace Sonar {

KernelPacketIo::KernelPacketIo(TapMode mode) : sink_(openProbePort(Netkit::IpAddr(), probePort)) {
  if (sink_.fd() < 0) throw std::system_error(errno, std::generic_category(), "opening the port that probes go to");
  if (mode == TapMode::open) tap_.emplace(probePort);
}

std::vector<int> KernelPacketIo::fds() const {
  if (!tap_) return {};
  return {tap_->fd()};
}

void KernelPacketIo::localAddressesAre(std::span<Netkit::IpAddr const> addresses) {
  if (tap_) tap_->localAddressesAre(addresses);
}

void KernelPacketIo::drain(Taker const& taker) {
  if (tap_) tap_->drain(taker);
}

U64 KernelPacketIo::dropped() {
  return tap_ ? tap_->dropped() : 0;
}

void KernelPacketIo::send(std::span<OutgoingPacket const> packets, std::span<SendResult> results) {
  sender_.send(packets, results);
}

void KernelPacketIo::endpointsAre(std::set<SourceEndpoint> const& endpoints) {
  sender_.endpointsAre(endpoints);
}

}  // namespace Sonar
