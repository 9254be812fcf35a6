// The sending half: which streams run, which probe is due when, and the rows and names that go with them. Pure: orders,
// changes of the switch and the time come in; probes to send, rows and names go out.
//
// A stream is one source address, destination and source port. Transmitters that come to the same stream share it,
// at the higher of their rates. Orders are compared by content: what is deleted and written again unchanged goes on as
// it was, with its epoch and sequence. Each stream and ttl has its own deadlines, spread over its interval, and never
// moves off them: a probe that is too late by a whole interval is left out.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

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
  };

  /// `nextEpoch` gives a number above all that it has ever given on this switch, across restarts too.
  SenderPlan(SwitchView const& view, EgressTable& table, StreamTransmitterMap& map, std::function<U64()> nextEpoch,
             std::size_t maxSubStreams);
  ~SenderPlan();

  /// The configuration at the end of a turn.
  void ordersAre(Rix::Seconds now, Orders orders);

  /// Addresses of the switch are others now.
  void switchChanged(Rix::Seconds now);

  /// When the next probe is due, `Rix::never` if nothing runs.
  Rix::Seconds nextDue() const;

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
  void endStream(Stream const& stream);
  void schedule();
  U64 epochOfThisTurn();

  SwitchView const& view_;
  EgressTable& table_;
  StreamTransmitterMap& map_;
  std::function<U64()> const nextEpoch_;
  std::size_t const maxSubStreams_;
  std::optional<Orders> orders_;
  std::optional<U64> epoch_;  // of all that begins in one turn
  std::map<Flow, std::unique_ptr<Stream>> streams_;
  std::vector<Due> due_;           // a heap, earliest first
  std::vector<SubStream*> taken_;  // by the last takeDue
  Counts counts_;
};

}  // namespace Sonar
