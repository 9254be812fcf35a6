// The probing service: sends what its orders say, counts what ends here, and judges what is silent. It ties the sending
// plan and the receivers' rows to the packets, and is driven from outside: an event loop waits on `fds()` and until
// `nextDeadline()`, and calls in with the time. What switches have to tell each other leaves in the same turn. It knows
// the system by its orders and its tables alone, and owns no clock, file or thread.
#pragma once

#include <array>
#include <functional>
#include <span>
#include <vector>

#include "sonar/Notices.h"
#include "sonar/PacketIo.h"
#include "sonar/ReceiverRows.h"
#include "sonar/SenderPlan.h"

namespace Sonar {

class Service {
 public:
  struct Options {
    Keyring keys;                          ///< at least one key
    std::function<U64()> nextEpoch;        ///< see `SenderPlan`
    std::size_t maxRows = 1U << 18;        ///< rows of received streams
    std::size_t maxSubStreams = 1U << 18;  ///< streams and ttls sent
  };

  /// What others gave it; all of it outlives the service.
  struct Surroundings {
    SwitchView const& view;
    PacketIo& packets;
    IngressTable& ingress;
    EgressTable& egress;
    StreamTransmitterMap& transmitters;
  };

  /// Rows are judged this often, in seconds.
  static constexpr Rix::Seconds sweepPeriod = 0.01;
  /// Probes that are due so close together leave together.
  static constexpr Rix::Seconds sendPeriod = 0.001;

  Service(Options const& options, Surroundings const& surroundings);

  std::vector<int> fds() const { return packets_.fds(); }
  /// When `onTimer` is wanted next, on the scale of the times that are handed in; `Rix::never` if nothing is to do.
  Rix::Seconds nextDeadline() const;

  void onReadable(Rix::Seconds now);
  void onTimer(Rix::Seconds now);

  /// Links, routes or addresses of the switch are others now.
  void switchChanged(Rix::Seconds now);
  /// The configuration at the end of a turn.
  void ordersAre(Rix::Seconds now, Orders orders);

  /// What the tables hold from a service that ran before on this switch. At most once, before anything else.
  void adopt(Rix::Seconds now, std::span<IngressStreamStatisticsTableEntry const> ingress,
             std::span<EgressStreamTable const> egress);
  /// The switch's agent is a new one, which has the tables still to read, or is about to.
  void agentRestarted(Rix::Seconds now);
  /// Ends all that is sent, on purpose, and follows no orders any more. Those who receive should be told for some
  /// seconds: whoever has the time goes on driving the service until it has `stopped`.
  void stop(Rix::Seconds now);
  bool stopped() const;

  /// What became of the packets that the tap saw: `none` counts those that were taken.
  U64 packets(Rejection rejection) const { return parsed_[static_cast<std::size_t>(rejection)]; }
  U64 packetsDropped() const { return packets_.dropped(); }
  SenderPlan const& sender() const { return sender_; }
  ReceiverRows const& receiver() const { return receiver_; }
  Notices const& notices() const { return notices_; }

 private:
  void drain(Rix::Seconds now);
  void hearNotice(Rix::Seconds now, ReceivedPacket const& packet);
  void send(Rix::Seconds now);
  void sendNotices(Rix::Seconds now);
  void passOn(Rix::Seconds now, ReceivedPacket const& packet);
  bool goesAround(OutgoingNotice const& out) const;
  bool isSourceOf(Notice const& notice) const;
  void handleAddresses();
  void handleEndpoints();

  Keyring keys_;
  SwitchView const& view_;
  PacketIo& packets_;
  Notices notices_;
  SenderPlan sender_;
  ReceiverRows receiver_;
  std::array<U64, rejectionCount> parsed_{};
  Rix::Seconds nextSweep_ = 0;
  Rix::Seconds nextSend_ = 0;
  std::vector<OutgoingProbe> due_;
  std::vector<OutgoingPacket> outgoing_;
  std::vector<OutgoingNotice> told_;
  std::vector<SendResult> results_;
};

}  // namespace Sonar
