// Where probes leave this switch and come in. `PacketIo` is what the service needs of it; `KernelPacketIo` is the one
// that talks to the kernel, and with the tap, the senders and the ports the only part of Sonar that makes system calls.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "sonar/ProbeSender.h"
#include "sonar/Tap.h"

namespace Sonar {

class PacketIo {
 public:
  using Taker = Tap::Taker;

  virtual ~PacketIo() = default;

  /// Descriptors to wait on until they are readable; they stay the same.
  virtual std::vector<int> fds() const = 0;

  /// This switch's addresses, or its interfaces' names, are others now.
  virtual void localAddressesAre(std::span<Netkit::IpAddr const> addresses) = 0;

  /// Hands over the packets that came in since the last call.
  virtual void drain(Taker const& taker) = 0;

  /// Packets that were lost on their way from the kernel, since the start.
  virtual U64 dropped() = 0;

  /// See `ProbeSender`.
  virtual void send(std::span<OutgoingPacket const> packets, std::span<SendResult> results) = 0;
  virtual void endpointsAre(std::set<SourceEndpoint> const& endpoints) = 0;
};

class KernelPacketIo : public PacketIo {
 public:
  enum class TapMode {
    open,
    closed  ///< sees no probe at all; needs no privilege
  };

  /// Opens the tap and the port that probes go to, in the network namespace of the calling thread, which must also be
  /// the one that calls `send`. Throws std::system_error.
  explicit KernelPacketIo(TapMode mode = TapMode::open);

  std::vector<int> fds() const override;
  void localAddressesAre(std::span<Netkit::IpAddr const> addresses) override;
  void drain(Taker const& taker) override;
  U64 dropped() override;
  void send(std::span<OutgoingPacket const> packets, std::span<SendResult> results) override;
  void endpointsAre(std::set<SourceEndpoint> const& endpoints) override;

 private:
  std::optional<Tap> tap_;
  Platform::Descriptor sink_;
  ProbeSender sender_;
};

}  // namespace Sonar
