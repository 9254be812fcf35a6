// The queue of rows and its clock, the same in the exporters of both directions.
//
// A change of a row only marks its key here; when the clock fires, one run reads every marked row as it is by then.
// So a row that changes a thousand times between two runs costs one read. A new stream waits at most
// `fastExportInterval`, a change of a known one at most `exportInterval`, and a clock that is set is never moved back:
// a steady flow of changes cannot put a run off.
//
// The queue holds keys alone. What bounds it is how many rows the service can touch within one interval; a run takes
// all of it.
#pragma once

#include "model/SonarTables.h"
#include "model/gen/ProbeStream.h"
#include "runtime/Activity.h"
#include "runtime/Collections.h"
#include "runtime/Reactor.h"

namespace Zeb {

// `Self`, the exporter, provides doProcessEntry(key), and handleQueueProcessed() if a run has more to do at its end.
template <class Self, class Key>
class ZebEchoStreamExporter : public Rix::Reactor<Self> {
 public:
  Rix::Seconds exportInterval() const { return exportInterval_; }
  void exportIntervalIs(Rix::Seconds interval) { exportInterval_ = interval; }
  Rix::Seconds fastExportInterval() const { return fastExportInterval_; }
  void fastExportIntervalIs(Rix::Seconds interval) { fastExportInterval_ = interval; }
  // When the next run is due; `never` if none is.
  Rix::Seconds entryQueueTime() const { return entryQueueClock_.timeMin(); }
  bool entryQueue(Key const& key) const { return entryQueue_.get(key); }
  U32 entryQueues() const { return entryQueue_.size(); }

  void handleClock() {
    if (!this->initialized()) return;
    doProcessEntryQueue();
    self().handleQueueProcessed();
    entryQueueClock_.timeMinIs(Rix::never);
  }

 protected:
  struct RixEntryQueueClock : Rix::Watch<RixEntryQueueClock, Rix::Clock, ZebEchoStreamExporter> {
    using Rix::Watch<RixEntryQueueClock, Rix::Clock, ZebEchoStreamExporter>::Watch;
    void onTime() override { this->pass(&ZebEchoStreamExporter::handleClock); }
  };

  explicit ZebEchoStreamExporter(Rix::Ptr<ClientProbeStreamTable> const& probeStreamTable)
      : probeStreamTable_(probeStreamTable) {
    entryQueueClock_.notifierIs(Rix::ActivityManagerConfig::clock());
  }

  // The end of construction: marks every row that stands, and lets the first run follow at once.
  template <class Table>
  void standingRowsMark(Table& table) {
    this->initializedIs(true);
    Sonar::visitKeys(table, [this](Key const& key) { handleEntry(key); });
    entryQueueClock_.timeMinIs(Rix::now());
  }

  void handleEntry(Key const& key) {
    if (!this->initialized()) return;
    entryQueue_.is(key, true, [](Key const&) {});
    Rix::Seconds const now = Rix::now();
    if (entryQueueClock_.timeMin() <= now + fastExportInterval_) return;
    if (!probeStreamTable_->streamRecord(egressStreamToStreamId(key))) {
      entryQueueClock_.timeMinIs(now + fastExportInterval_);
    } else if (entryQueueClock_.timeMin() > Rix::largestFiniteTime) {
      entryQueueClock_.timeMinIs(now + exportInterval_);
    }
  }
  void handleQueueProcessed() {}

  Rix::Ptr<ClientProbeStreamTable> const probeStreamTable_;
  RixEntryQueueClock entryQueueClock_{this};

 private:
  Self& self() { return static_cast<Self&>(*this); }

  void doProcessEntryQueue() {
    Rix::sweepKeys(entryQueue_, [this](Key const& key) {
      self().doProcessEntry(key);
      entryQueue_.del(key, [](Key const&) {});
    });
  }

  Rix::ValueMap<Key, bool> entryQueue_;
  Rix::Seconds exportInterval_ = 5.0;
  Rix::Seconds fastExportInterval_ = 0.1;
};

}  // namespace Zeb
