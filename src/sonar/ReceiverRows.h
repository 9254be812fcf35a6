// The receiving half: one row for each (stream, ttl, interface) on which probes have ended here, with its counters and
// the judgement whether its silence means that probes are being lost. A pure state machine: packets, the sweep's ticks
// and changes of the switch come in with their time, rows go out to a table.
//
// That judgement is taken back by nobody, so it is made carefully: a silence that this switch can explain (its own
// link is down, it has no route to one end of the stream, the stream comes by another interface now) or that has been
// explained to it (another switch has taken the ttl over) freezes a row instead. A row is judged anew at each sweep.
//
// Switches tell each other by way of the stream's source: who hears a ttl for the first time, or again after a silence,
// tells the source, which tells those who had it before. A row whose sender has ended the stream is held for some
// seconds, until the sender's own row has surely been told to be gone, and then removed. A row that has long been
// silent asks. What is told names the probe from which on it holds, so that what is old, or comes twice, moves nothing.
//
// Rows of one stream and ttl share their counters. A stream that comes by another interface gets a second row; the
// first stays, frozen, since a row that goes would be read as the end of the stream here.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "sonar/Bell.h"
#include "sonar/DepartedRows.h"
#include "sonar/Notices.h"
#include "sonar/Probe.h"
#include "sonar/SequenceWindow.h"
#include "sonar/SwitchView.h"
#include "sonar/Tables.h"

namespace Sonar {

enum class RowState {
  live,     ///< probes come, or have not been silent for long
  dormant,  ///< silent, and nothing that is seen from here explains it
  frozen,   ///< silent, for a reason that is known
  held      ///< the sender has ended the stream
};

/// The shortest silence that is ever judged.
inline constexpr Rix::Seconds minSilence = 0.1;

/// How long a row stays whose sender has ended the stream.
inline constexpr Rix::Seconds heldFor = 8.0;

/// How long a sub-stream may be silent before it is judged.
Rix::Seconds dormancyThreshold(Probe const& probe);

class ReceiverRows {
 public:
  /// Packets that were authentic and still moved no row.
  struct Ignored {
    U64 ownSource = 0;      ///< sent by this very switch
    U64 staleEpoch = 0;     ///< of a counting that has been followed by another
    U64 staleSequence = 0;  ///< behind the window, or more than twice: perhaps replayed
    U64 noRoom = 0;         ///< would have needed a row more than `maxRows`
    U64 staleNotice = 0;    ///< says what was so before a probe that has been heard
  };

  ReceiverRows(SwitchView const& view, IngressTable& table, Notices& notices, std::size_t maxRows);
  ~ReceiverRows();

  /// Goes on with rows that stand in the table since before this began. Their counters go on; what was missed meanwhile
  /// is not lost, and their silence is judged only when a probe has come or their source has said that it should.
  void adopt(Rix::Seconds now, std::span<IngressStreamStatisticsTableEntry const> rows);

  /// A probe ended here. `interface` is where it came in.
  void received(Rix::Seconds now, ReceivedPacket const& packet, Netkit::IntfId interface);

  /// The sender has ended that stream at that ttl.
  void ended(Rix::Seconds now, Notice const& notice);
  /// Another switch has taken that ttl over, or it has left the way that leads here.
  void takenOver(Rix::Seconds now, Notice const& notice);
  /// A question of this switch's has been answered: the stream is being sent.
  void running(Rix::Seconds now, Notice const& notice);

  /// Judges every row whose time has come, after all packets that came in by `now` have been handed over.
  void sweep(Rix::Seconds now);

  /// Links, routes or addresses of the switch are others now.
  void switchChanged(Rix::Seconds now);
  /// The switch's agent is another one, which does not know what was there before.
  void agentRestarted(Rix::Seconds now) { departed_.agentRestarted(now); }

  /// Whether there is nothing to sweep.
  bool idle() const { return schedule_.empty() && departed_.empty() && !bell_.busy(); }
  Ignored const& ignored() const { return ignored_; }
  std::size_t rows() const { return schedule_.size(); }
  /// The state of the row of that key, nothing if there is none.
  std::optional<RowState> state(IngressStream const& key) const;

 private:
  struct Row;
  struct SubStream;
  struct Stream;
  enum class Counted { ignored, older, newest };
  struct IdHash {
    std::size_t operator()(Zeb::ProbeStreamId const& id) const { return id.hash(); }
  };
  // What the sweep looks at for every row, kept close together: nearly always the time alone.
  struct Scheduled {
    Rix::Seconds nextCheck;
    Row* row;
  };

  static Zeb::ProbeStreamId idOf(Flow const& flow, U32 streamTag, Netkit::IpAddr auxIp);
  SubStream* find(Notice const& notice) const;
  SubStream* find(Zeb::ProbeStreamId const& id, U8 ttl) const;
  void begin(Rix::Seconds now, ReceivedPacket const& packet, Zeb::ProbeStreamId const& id, Netkit::IntfId interface);
  static bool isSilent(SubStream const& sub, Rix::Seconds now);
  Counted count(Rix::Seconds now, SubStream& sub, Probe const& probe, Netkit::IntfId interface);
  Row& rowOn(SubStream& sub, Netkit::IntfId interface);
  Row& addRow(SubStream& sub, Netkit::IntfId interface);
  void adopt(Rix::Seconds now, IngressStreamStatisticsTableEntry const& row);
  void heard(Rix::Seconds now, SubStream& sub);
  void judgeAll(SubStream& sub, Rix::Seconds now);
  void tellTakeover(Rix::Seconds now, SubStream& sub);
  void ask(Rix::Seconds now, SubStream& sub);
  Notice noticeOf(SubStream const& sub, PacketKind kind) const;
  void remove(Rix::Seconds now, SubStream& sub);
  IngressStream keyOf(Row const& row) const;
  IngressStreamStatisticsTableEntry entryOf(Row const& row) const;
  void judge(Row& row, Rix::Seconds now);
  void stateIs(Row& row, RowState state);
  void write(Row const& row);

  SwitchView const& view_;
  IngressTable& table_;
  Notices& notices_;
  std::size_t const maxRows_;
  Bell bell_;
  DepartedRows departed_;
  Ignored ignored_;
  std::unordered_map<Zeb::ProbeStreamId, std::unique_ptr<Stream>, IdHash> streams_;
  std::vector<Scheduled> schedule_;
  std::vector<SubStream*> over_;  // what a sweep has found to remove
};

}  // namespace Sonar
