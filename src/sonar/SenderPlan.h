// The sending half: which streams run, which probe is due when, and the rows and names that go with them. Pure: orders,
// changes of the switch and the time come in; probes to send, rows and names go out.
//
// A stream is one source address, destination and source port. Transmitters that come to the same stream share it,
// at the higher of their rates. Orders are compared by content: what is deleted and written again unchanged goes on as
// it was, with its epoch and sequence. Each stream and ttl has its own deadlines, spread over its interval, and never
// moves off them: a probe that is too late by a whole interval is left out.
//
// As the source of its streams this switch is where the switches on their ways meet: it hears who has taken a ttl over
// and tells those who had it before; it answers who asks; and it says when it ends a stream.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "sonar/Endings.h"
#include "sonar/Holders.h"
#include "sonar/Notices.h"
#include "sonar/Orders.h"
#include "sonar/ProbeSender.h"
#include "sonar/SwitchView.h"
#include "sonar/Tables.h"

namespace Sonar {

struct OutgoingProbe {
  Flow flow;
  Probe probe;
};

class SenderPlan {
 public:
  struct Counts {
    U64 sent = 0;
    U64 busy = 0;  ///< see `SendResult`; none of these used up a sequence number
    U64 failed = 0;
    U64 skipped = 0;  ///< left out because this process came too late
    Rix::Seconds worstLateness = 0;
    std::size_t refused = 0;  ///< streams and ttls ordered at present that were more than `maxSubStreams`
    U64 staleNotices = 0;     ///< takeovers by a switch that has been followed already
    U64 oddNotices = 0;       ///< takeovers of probes that were never sent
  };

  /// So long rows from before wait for orders that name them; then they are ended.
  static constexpr Rix::Seconds adoptedFor = 10.0;

  /// `nextEpoch` gives a number above all that it has ever given on this switch, across restarts too.
  SenderPlan(SwitchView const& view, EgressTable& table, StreamTransmitterMap& map, Notices& notices,
             std::function<U64()> nextEpoch, std::size_t maxSubStreams);
  ~SenderPlan();

  /// Takes over rows that stand in the table since before this began. Those that the orders name go on, in a new
  /// epoch; the others are ended once there are orders.
  void adopt(Rix::Seconds now, std::span<EgressStreamTable const> rows);

  /// The configuration at the end of a turn.
  void ordersAre(Rix::Seconds now, Orders orders);

  /// Addresses of the switch are others now.
  void switchChanged(Rix::Seconds now);

  /// Ends all streams, and follows no orders any more.
  void stop(Rix::Seconds now);
  /// The switch's agent is another one, which does not know what was there before.
  void agentRestarted(Rix::Seconds now) { endings_.agentRestarted(now); }

  /// A switch says that a ttl of a stream ends there now. False if this is not the time to answer.
  bool takeover(Rix::Seconds now, ReceivedPacket const& packet);
  /// A switch asks whether a ttl of a stream is still sent.
  void question(Rix::Seconds now, ReceivedPacket const& packet);

  /// When the next probe is due, `Rix::never` if nothing runs.
  Rix::Seconds nextDue() const;
  /// When `run` is wanted next, `Rix::never` if it is not.
  Rix::Seconds nextRun() const;
  /// What is to be done at a time and is no probe: end marks, and looks at the ways that streams leave by.
  void run(Rix::Seconds now);
  /// Whether the end of some stream is still to be marked.
  bool marking() const { return endings_.marking(); }

  /// Adds to `probes` those that are due by `now`, at most `most`. `results` must follow before the next change.
  void takeDue(Rix::Seconds now, std::size_t most, std::vector<OutgoingProbe>& probes);
  /// What became of each probe of the last `takeDue`.
  void results(std::span<SendResult const> results);

  /// Where the present streams are sent from.
  std::set<SourceEndpoint> endpoints() const;
  /// How many streams serve that transmitter.
  std::size_t streamsOf(std::string const& transmitter) const;
  Counts const& counts() const { return counts_; }

 private:
  using Key = std::pair<Flow, U8>;
  struct Wanted;
  struct Stream;
  struct SubStream;
  struct Due {
    Rix::Seconds when;
    SubStream* sub;
  };

  std::map<Flow, Wanted> wanted();
  void want(std::map<Flow, Wanted>& streams, std::string const& name, TransmitterOrder const& order) const;
  void follow(Rix::Seconds now);
  void followStream(Rix::Seconds now, Flow const& flow, Wanted const& wanted);
  SubStream newSubStream(Rix::Seconds now, Flow const& flow, Stream const& stream, U8 ttl, U8 distance, U32 interval);
  void endStream(Rix::Seconds now, Stream& stream);
  void endSubStream(Rix::Seconds now, SubStream& sub);
  void endAdopted(Rix::Seconds now);
  bool hasTaken(Rix::Seconds now, SubStream& sub, Netkit::IpAddr address, ProbeNumber since);
  void tellFreeze(Rix::Seconds now, SubStream const& sub, Netkit::IpAddr to, U64 sequence);
  SubStream* find(Notice const& notice);
  void lookAtWays(Rix::Seconds now);
  void schedule();
  U64 epochOfThisTurn();

  SwitchView const& view_;
  EgressTable& table_;
  StreamTransmitterMap& map_;
  Notices& notices_;
  std::function<U64()> const nextEpoch_;
  std::size_t const maxSubStreams_;
  std::optional<Orders> orders_;
  bool stopped_ = false;
  bool knowsOrders_ = false;  // or that there are none
  std::map<Key, EgressStreamTable> adopted_;
  Rix::Seconds adoptedUntil_ = Rix::never;
  Endings endings_;
  std::vector<Flow> ways_;  // of the streams whose way is still to be looked at
  Rix::Seconds nextLook_ = Rix::never;
  std::optional<U64> epoch_;  // of all that begins in one turn
  std::map<Flow, std::unique_ptr<Stream>> streams_;
  std::vector<Due> due_;           // a heap, earliest first
  std::vector<SubStream*> taken_;  // by the last takeDue
  Counts counts_;
};

}  // namespace Sonar
