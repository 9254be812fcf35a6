// The tap: sees the probes that end at this switch, because their hop limit runs out here or because they bear one of
// its addresses, before the kernel drops or delivers them. A packet socket with a ring that the kernel fills, and a
// filter in the kernel, so that probes in transit never reach this process. Needs CAP_NET_RAW at construction.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <span>
#include <vector>

#include "model/Netkit.h"
#include "platform/Descriptor.h"

struct sock_filter;

namespace Sonar {

/// The kernel's filter for probes to `port` that end here: packets to this host, UDP, unfragmented, with a hop limit
/// of at most 1 or to one of `addresses`. With more addresses than a filter can hold, all
/// probes that come up to this host pass.
std::vector<sock_filter> tapFilter(U16 port, std::span<Netkit::IpAddr const> addresses);

class Tap {
 public:
  /// Takes one packet, from its IP header on; the bytes are valid during the call only.
  using Taker = std::function<void(std::span<U8 const> packet, Netkit::IntfId interface)>;

  /// Opens the tap in the network namespace of the calling thread. Throws std::system_error.
  explicit Tap(U16 port);
  ~Tap();
  Tap(Tap const&) = delete;
  Tap& operator=(Tap const&) = delete;

  int fd() const { return socket_.fd(); }

  /// Renews the filter and forgets the interfaces' names: after any change of addresses or interfaces.
  /// Throws std::system_error.
  void localAddressesAre(std::span<Netkit::IpAddr const> addresses);

  /// Hands over what the ring holds by now, at most one round of it.
  void drain(Taker const& taker);

  /// Packets that passed the filter and found the ring full, since construction.
  U64 dropped();

 private:
  void drainBlock(U8* block, Taker const& taker);
  Netkit::IntfId interface(int index);

  Platform::Descriptor socket_;
  U16 port_;
  U8* ring_ = nullptr;
  std::size_t nextBlock_ = 0;
  U64 dropped_ = 0;
  std::map<int, Netkit::IntfId> interfaces_;
};

}  // namespace Sonar
