// Sends probes: one unconnected UDP socket for each source address and port, whose bindings let the kernel choose the
// path from the same five fields as for any flow, and the hop limit handed over with each packet. It never waits: a
// neighbour that does not answer costs its own probes only.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <span>
#include <utility>

#include "platform/Descriptor.h"
#include "sonar/Probe.h"

namespace Sonar {

/// A packet ready to leave: its payload is signed for `flow`.
struct OutgoingPacket {
  Flow flow;
  U8 hopLimit = 64;  ///< at least 1
  ProbePayload payload;
};

/// What became of a packet on this switch. Only `sent` may count as sent: the others are troubles of the sender's
/// own, and no receiver shall take them for loss.
enum class SendResult : U8 {
  sent,
  busy,   ///< no room: the socket's buffer or a queue is full
  failed  ///< no route, no such source address, the port is taken
};

/// A source address and port.
using SourceEndpoint = std::pair<Netkit::IpAddr, U16>;

class ProbeSender {
 public:
  ProbeSender();
  ~ProbeSender();

  /// Sends each of `packets` and says at the same place in `results` what became of it. Sockets are opened at first
  /// use, in the network namespace of the calling thread. Precondition: `results` is as long as `packets`.
  void send(std::span<OutgoingPacket const> packets, std::span<SendResult> results);

  /// Closes the sockets of all endpoints but these.
  void endpointsAre(std::set<SourceEndpoint> const& endpoints);

 private:
  struct Batch;

  int socketOf(SourceEndpoint const& endpoint);
  void sendBatch(int fd, std::span<SendResult> results);

  std::map<SourceEndpoint, Platform::Descriptor> sockets_;
  std::unique_ptr<Batch> batch_;
};

}  // namespace Sonar
