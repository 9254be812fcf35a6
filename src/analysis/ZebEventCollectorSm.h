// The event collector: turns every change of a counter in the central stream table into an event of its stream.
//
// Its reactors form a tree that mirrors the table: the table, a stream, a TTL of the stream, a switch that reports that
// TTL, and the switch's counters. The leaves write the stream's one-slot event, and tell which switch last received a
// probe at a TTL. They never touch a counter, and never judge what an event means.
//
// What stands when a reactor starts is a baseline: it gets its reactors, and makes no event.
#pragma once

#include "model/gen/Loss.h"
#include "model/gen/ProbeStream.h"
#include "model/gen/Status.h"
#include "runtime/OwnedMap.h"
#include "runtime/Watch.h"

namespace Zeb {

// One TTL of one stream: holds a reactor for each switch that reports it.
class ZebEventCollectorIngressStreamSm : public Rix::Reactor<ZebEventCollectorIngressStreamSm> {
 public:
  struct RixZebIngressRecord
      : Rix::Watch<RixZebIngressRecord, ProbeStreamIngressRecord, ZebEventCollectorIngressStreamSm> {
    using Watch::Watch;
    void onSwitchIngressRecord(Fabric::SystemId const& switchId) override {
      pass(&ZebEventCollectorIngressStreamSm::handleSwitchIngressRecord, switchId);
    }
  };

  // One switch that reports the TTL.
  class RixIngressRecord : public Rix::Reactor<RixIngressRecord> {
   public:
    struct RixRecord : Rix::Watch<RixRecord, ProbeStreamSwitchIngressRecord, RixIngressRecord> {
      using Watch::Watch;
      void onIngressStats() override { pass(&RixIngressRecord::handleStats); }
      void onDormant() override { pass(&RixIngressRecord::handleDormant); }
      void onDeleted() override { pass(&RixIngressRecord::handleDeleted); }
    };
    struct RixIngressStats : Rix::Watch<RixIngressStats, ProbeStreamIngressStats const, RixIngressRecord> {
      using Watch::Watch;
      void onProbesReceived() override { pass(&RixIngressRecord::handledProbesReceived); }
      void onProbesLost() override { pass(&RixIngressRecord::handleProbesLost); }
      void onProbesMisordered() override { pass(&RixIngressRecord::handleProbesMisordered); }
      void onProbesDuplicated() override { pass(&RixIngressRecord::handleProbesDuplicated); }
      void rixPrefetch(unsigned step) override;
    };

    // `owner` outlives this reactor.
    RixIngressRecord(Rix::Ptr<ProbeStreamSwitchIngressRecord> const& record, ZebEventCollectorIngressStreamSm* owner);
    template <class F>
    void rixParts(F&& f) {
      f(record_);
      f(ingressStats_);
    }
    auto rixParameters() const {
      return std::tuple(Rix::Ptr<ProbeStreamSwitchIngressRecord>(record_.notifier()), owner_);
    }
    static constexpr std::array rixParameterNames{"record", "zebEventCollectorIngressStreamSm"};

    Fabric::SystemId const& rixKey() const { return record_.notifier()->switchId(); }
    // The counters at the last look, and the last event that was written.
    U64 probesLostLast() const { return probesLostLast_; }
    U64 probesMisorderedLast() const { return probesMisorderedLast_; }
    U64 probesDuplicatedLast() const { return probesDuplicatedLast_; }
    U64 probesReceivedLast() const { return probesReceivedLast_; }
    EventType lastEvent() const { return lastEvent_; }

    void handleInitialized();
    // The counters that stand become what the next change is measured from. No event.
    void handleStats();
    void handleProbesLost();
    void handleProbesMisordered();
    void handleProbesDuplicated();
    void handledProbesReceived();
    void handleDormant();
    void handleDeleted();
    // Writes the stream's event, with the change from `lastCount` to `count` and the counters as they now stand. A
    // counter that fell to 0 makes none.
    void doAddEvent(EventType type, U32 count, U32 lastCount);

   private:
    EventType lastEvent_ = EventType::eventNone;
    ZebEventCollectorIngressStreamSm* const owner_;
    U64 probesLostLast_ = 0;
    U64 probesMisorderedLast_ = 0;
    U64 probesDuplicatedLast_ = 0;
    U64 probesReceivedLast_ = 0;
    RixRecord record_{this};
    RixIngressStats ingressStats_{this};
  };

  // The stream's event must stand in `eventTable`.
  ZebEventCollectorIngressStreamSm(Rix::Ptr<ProbeStreamRecord> const& streamRecord,
                                   Rix::Ptr<ProbeStreamIngressRecord> const& zebIngressRecord,
                                   Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                   Rix::Ptr<ZebStatus> const& status);
  template <class F>
  void rixParts(F&& f) {
    f(zebIngressRecord_);
    f(ingressRecord_);
  }
  auto rixParameters() const {
    return std::tuple(streamRecord_, Rix::Ptr<ProbeStreamIngressRecord>(zebIngressRecord_.notifier()), eventTable_,
                      status_);
  }
  static constexpr std::array rixParameterNames{"streamRecord", "zebIngressRecord", "eventTable", "status"};
  U8 rixKey() const { return zebIngressRecord_.notifier()->ttl(); }

  RixIngressRecord* ingressRecord(Fabric::SystemId const& switchId) const { return ingressRecord_.find(switchId); }
  RixIngressRecord* ingressRecordIs(Rix::Ptr<ProbeStreamSwitchIngressRecord> const& record);
  void ingressRecordDel(Fabric::SystemId const& switchId) { ingressRecord_.del(switchId); }

  void handleSwitchIngressRecord(Fabric::SystemId const& switchId);

 private:
  Rix::Ptr<ProbeStreamRecord> const streamRecord_;
  Rix::Ptr<ProbeStreamEventTable> const eventTable_;
  Rix::Ptr<ZebStatus> const status_;
  Rix::Ptr<ProbeStreamEvent> const event_;  // the stream's slot, so that no counter asks the table for it
  RixZebIngressRecord zebIngressRecord_{this};
  Rix::OwnedSet<Fabric::SystemId, RixIngressRecord> ingressRecord_;
};

// One stream: holds a reactor for each TTL.
class ZebEventCollectorStreamSm : public Rix::Reactor<ZebEventCollectorStreamSm> {
 public:
  struct RixStreamRecord : Rix::Watch<RixStreamRecord, ProbeStreamRecord, ZebEventCollectorStreamSm> {
    using Watch::Watch;
    void onIngressRecord(U8 ttl) override { pass(&ZebEventCollectorStreamSm::handleIngressRecord, ttl); }
  };

  ZebEventCollectorStreamSm(Rix::Ptr<ProbeStreamRecord> const& streamRecord,
                            Rix::Ptr<ProbeStreamEventTable> const& eventTable, Rix::Ptr<ZebStatus> const& status);
  template <class F>
  void rixParts(F&& f) {
    f(streamRecord_);
    f(ingressSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ProbeStreamRecord>(streamRecord_.notifier()), eventTable_, status_);
  }
  static constexpr std::array rixParameterNames{"streamRecord", "eventTable", "status"};
  ProbeStreamId const& rixKey() const { return streamRecord_.notifier()->streamId(); }

  ZebEventCollectorIngressStreamSm* ingressSm(U8 ttl) const { return ingressSm_.find(ttl); }
  ZebEventCollectorIngressStreamSm* ingressSmIs(Rix::Ptr<ProbeStreamRecord> const& streamRecord,
                                                Rix::Ptr<ProbeStreamIngressRecord> const& ingressRecord,
                                                Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                                Rix::Ptr<ZebStatus> const& status);
  void ingressSmDel(U8 ttl) { ingressSm_.del(ttl); }
  void ingressSmDelAll() { ingressSm_.delAll(); }

  void handleInitialized();
  void handleIngressRecord();
  void handleIngressRecord(U8 ttl);
  void doCleanup() { ingressSmDelAll(); }

 private:
  Rix::Ptr<ProbeStreamEventTable> const eventTable_;
  Rix::Ptr<ZebStatus> const status_;
  RixStreamRecord streamRecord_{this};
  Rix::OwnedSet<U8, ZebEventCollectorIngressStreamSm> ingressSm_;
};

// The whole table: gives each stream its event and its reactor, and takes both away again.
class ZebEventCollectorSm : public Rix::Reactor<ZebEventCollectorSm> {
 public:
  struct RixStreamTable : Rix::Watch<RixStreamTable, ProbeStreamTable, ZebEventCollectorSm> {
    using Watch::Watch;
    void onStreamRecord(ProbeStreamId const& streamId) override { pass(&ZebEventCollectorSm::handleStream, streamId); }
  };

  ZebEventCollectorSm(Rix::Ptr<ProbeStreamTable> const& streamTable, Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                      Rix::Ptr<ZebStatus> const& status);
  template <class F>
  void rixParts(F&& f) {
    f(streamTable_);
    f(streamSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ProbeStreamTable>(streamTable_.notifier()), eventTable_, status_);
  }
  static constexpr std::array rixParameterNames{"streamTable", "eventTable", "status"};

  ZebEventCollectorStreamSm* streamSm(ProbeStreamId const& streamId) const { return streamSm_.find(streamId); }
  ZebEventCollectorStreamSm* streamSmIs(Rix::Ptr<ProbeStreamRecord> const& streamRecord,
                                        Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                        Rix::Ptr<ZebStatus> const& status);
  void streamSmDel(ProbeStreamId const& streamId) { streamSm_.del(streamId); }
  void streamSmDelAll() { streamSm_.delAll(); }

  void handleInitialized();
  void handleStream();
  void handleStream(ProbeStreamId const& streamId);
  // A disable forgets every event.
  void doCleanup();

 private:
  Rix::Ptr<ProbeStreamEventTable> const eventTable_;
  Rix::Ptr<ZebStatus> const status_;
  RixStreamTable streamTable_{this};
  Rix::OwnedSet<ProbeStreamId, ZebEventCollectorStreamSm> streamSm_;
};

Rix::Ptr<ZebEventCollectorSm> zebEventCollectorSmFactory(Rix::Ptr<ProbeStreamTable> const& streamTable,
                                                         Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                                         Rix::Ptr<ZebStatus> const& status);
Rix::Ptr<ZebEventCollectorStreamSm> zebEventCollectorStreamSmFactory(Rix::Ptr<ProbeStreamRecord> const& streamRecord,
                                                                     Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                                                     Rix::Ptr<ZebStatus> const& status);
Rix::Ptr<ZebEventCollectorIngressStreamSm> zebEventCollectorIngressStreamSmFactory(
    Rix::Ptr<ProbeStreamRecord> const& streamRecord, Rix::Ptr<ProbeStreamIngressRecord> const& zebIngressRecord,
    Rix::Ptr<ProbeStreamEventTable> const& eventTable, Rix::Ptr<ZebStatus> const& status);

}  // namespace Zeb
