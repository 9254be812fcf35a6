// What the receiving half keeps of each row, each (stream, ttl) and each stream. Shared by the sources of
// `ReceiverRows`, and by nobody else.
#pragma once

#include "sonar/ReceiverRows.h"

namespace Sonar {

struct ReceiverRows::Row {
  SubStream* sub;
  Netkit::IntfId interface;
  std::size_t place;  // in the schedule
  RowState state = RowState::live;
  bool linkUp = true;
  bool explained = false;       // its silence had a reason when it was judged last
  Rix::Seconds heard = 0;       // when the last probe of this row came
  Rix::Seconds silentFrom = 0;  // the same, or the last moment at which its silence had a reason
};

struct ReceiverRows::SubStream {
  Stream* stream;
  U8 ttl;
  Epoch epoch;
  SequenceWindow window;
  Rix::Seconds threshold;
  // Its row stood when this service began, and no probe has come since: what its silence means is not known.
  bool adopted = false;
  bool owesTakeover = false;        // told too lately, or there was no room
  Rix::Seconds unansweredFrom = 0;  // of one adopted: since when it could have been told
  Row* current = nullptr;           // where the newest probe came in
  U64 lastSequence = 0;
  U64 received = 0;
  U64 lost = 0;
  U64 misordered = 0;
  U64 duplicated = 0;
  std::vector<std::unique_ptr<Row>> rows;  // one for each interface, seldom more than one

  // Another switch has it since that probe.
  std::optional<ProbeNumber> takenOver{};
  // The sender has ended it.
  struct Ended {
    ProbeNumber last;
    U64 serial;
    Rix::Seconds removeAt;
  };
  std::optional<Ended> ended{};
  // What has been told to the source, and when something may be again.
  U64 takeoverSerial = 0;
  U64 questionSerial = 0;
  Rix::Seconds nextTakeover = -Rix::never;
  Rix::Seconds nextQuestion = Rix::never;

  ProbeNumber newest() const { return {epoch.value, window.highest()}; }
};

struct ReceiverRows::Stream {
  Zeb::ProbeStreamId id;
  bool routed = true;
  // Where and when the newest probe of any ttl came.
  Netkit::IntfId interface;
  Rix::Seconds heard = 0;
  Rix::Seconds threshold = 0;
  std::vector<std::unique_ptr<SubStream>> subStreams;  // one for each ttl that ends here

  // Whether probes of this stream come by another interface than that of `row`, and have since its last one.
  bool comesElsewhere(Row const& row, Rix::Seconds now) const {
    return interface != row.interface && heard > row.heard && now - heard <= threshold;
  }
};

}  // namespace Sonar
