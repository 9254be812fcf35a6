// From the leaf up: the counters of one switch, one TTL, one stream, the table.
#include "analysis/ZebEventCollectorSm.h"

#include "model/StreamText.h"
#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebEventCollectorSm");
}

using IngressRecord = ZebEventCollectorIngressStreamSm::RixIngressRecord;

// One switch that reports one TTL.

IngressRecord::RixIngressRecord(Rix::Ptr<ProbeStreamSwitchIngressRecord> const& record,
                                ZebEventCollectorIngressStreamSm* owner)
    : owner_(owner) {
  record_.notifierIs(record);
  handleInitialized();
}

void IngressRecord::handleInitialized() {
  handleStats();
}

void IngressRecord::handleStats() {
  ProbeStreamIngressStats const* stats = record_->ingressStats();
  ingressStats_.notifierIs(stats);
  if (!stats) return;
  probesLostLast_ = stats->probesLost();
  probesMisorderedLast_ = stats->probesMisordered();
  probesDuplicatedLast_ = stats->probesDuplicated();
  probesReceivedLast_ = stats->probesReceived();
}

// The way to the stream's event: by the reactor of the TTL.
void IngressRecord::RixIngressStats::rixPrefetch(unsigned step) {
  ZebEventCollectorIngressStreamSm const* const ttlSm = owner().owner_;
  if (step == 0) {
    Rix::prefetch(ttlSm);
    Rix::prefetch(owner().record_.notifier());
  } else {
    if (step == 1) Rix::prefetch(ttlSm->zebIngressRecord_.notifier());
    Rix::Entity::rixPrefetch(ttlSm->event_.get(), step - 1);
  }
}

// Differences are computed in 32 bits: a counter's upper half takes no part.

void IngressRecord::handleProbesLost() {
  U64 const count = ingressStats_->probesLost();
  doAddEvent(EventType::eventProbesLost, static_cast<U32>(count), static_cast<U32>(probesLostLast_));
  probesLostLast_ = count;
}

void IngressRecord::handleProbesMisordered() {
  U64 const count = ingressStats_->probesMisordered();
  doAddEvent(EventType::eventProbesMisordered, static_cast<U32>(count), static_cast<U32>(probesMisorderedLast_));
  probesMisorderedLast_ = count;
}

void IngressRecord::handleProbesDuplicated() {
  U64 const count = ingressStats_->probesDuplicated();
  doAddEvent(EventType::eventProbesDuplicated, static_cast<U32>(count), static_cast<U32>(probesDuplicatedLast_));
  probesDuplicatedLast_ = count;
}

void IngressRecord::handledProbesReceived() {
  ProbeStreamIngressRecord& zebIngressRecord = *owner_->zebIngressRecord_;
  if (!(zebIngressRecord.currentActiveIngressRecord() == record_.notifier())) {
    zebIngressRecord.previousActiveIngressRecordIs(zebIngressRecord.currentActiveIngressRecord());
    zebIngressRecord.currentActiveIngressRecordIs(record_.notifier());
  }
  U64 const count = ingressStats_->probesReceived();
  doAddEvent(EventType::eventProbesReceived, static_cast<U32>(count), static_cast<U32>(probesReceivedLast_));
  probesReceivedLast_ = count;
}

void IngressRecord::handleDormant() {
  bool const dormant = record_->dormant();
  doAddEvent(EventType::eventDormant, dormant ? 1 : 0, dormant ? 0 : 1);
}

void IngressRecord::handleDeleted() {
  bool const deleted = record_->deleted();
  doAddEvent(EventType::eventDeleted, deleted ? 1 : 0, deleted ? 0 : 1);
}

void IngressRecord::doAddEvent(EventType type, U32 count, U32 lastCount) {
  ProbeStreamEvent& event = *owner_->event_;
  U8 const ttl = owner_->zebIngressRecord_->ttl();
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebEventCollectorIngressStreamSm::RixIngressRecord::doAddEvent(Zeb::EventType, U32, U32) "
            "streamId: "
                << probeStreamStringValue(event.streamId()) << " ttl:" << unsigned{ttl} << " type: " << type
                << " count: " << count << " lastCount: " << lastCount);
  bool const flag = type == EventType::eventDormant || type == EventType::eventDeleted;
  if (count == 0 && !flag) return;
  // A counter that went backwards began again, so all of it is new.
  U32 const delta = count < lastCount ? count : count - lastCount;
  ProbeStreamIngressStats const& stats = *ingressStats_;
  event.upIs(false);
  event.ttlIs(ttl);
  event.ingressSwitchIdIs(record_->switchId());
  event.epochIs(stats.epoch());
  event.currentSequenceNumberIs(stats.currentSequenceNumber());
  event.lastSequenceNumberIs(stats.lastSequenceNumber());
  event.probesReceivedIs(stats.probesReceived());
  event.probesLostIs(stats.probesLost());
  event.probesMisorderedIs(stats.probesMisordered());
  event.probesDuplicatedIs(stats.probesDuplicated());
  event.eventTypeIs(type);
  event.countIs(delta);
  event.upIs(true);
  lastEvent_ = type;
}

// One TTL.

ZebEventCollectorIngressStreamSm::ZebEventCollectorIngressStreamSm(
    Rix::Ptr<ProbeStreamRecord> const& streamRecord, Rix::Ptr<ProbeStreamIngressRecord> const& zebIngressRecord,
    Rix::Ptr<ProbeStreamEventTable> const& eventTable, Rix::Ptr<ZebStatus> const& status)
    : streamRecord_(streamRecord),
      eventTable_(eventTable),
      status_(status),
      event_(eventTable->event(streamRecord->streamId())) {
  zebIngressRecord_.notifierIs(zebIngressRecord);
}

IngressRecord* ZebEventCollectorIngressStreamSm::ingressRecordIs(
    Rix::Ptr<ProbeStreamSwitchIngressRecord> const& record) {
  return ingressRecord_.is(record->switchId(), record, this);
}

void ZebEventCollectorIngressStreamSm::handleSwitchIngressRecord(Fabric::SystemId const& switchId) {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebEventCollectorIngressStreamSm::handleSwitchIngressRecord(Fabric::SystemId) streamId: "
                << probeStreamStringValue(streamRecord_->streamId()) << " switchId:" << switchId);
  if (ProbeStreamSwitchIngressRecord* record = zebIngressRecord_->switchIngressRecord(switchId)) {
    ingressRecordIs(record);
  } else {
    ingressRecordDel(switchId);
  }
}

// One stream.

ZebEventCollectorStreamSm::ZebEventCollectorStreamSm(Rix::Ptr<ProbeStreamRecord> const& streamRecord,
                                                     Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                                     Rix::Ptr<ZebStatus> const& status)
    : eventTable_(eventTable), status_(status) {
  streamRecord_.notifierIs(streamRecord);
  handleInitialized();
}

ZebEventCollectorIngressStreamSm* ZebEventCollectorStreamSm::ingressSmIs(
    Rix::Ptr<ProbeStreamRecord> const& streamRecord, Rix::Ptr<ProbeStreamIngressRecord> const& ingressRecord,
    Rix::Ptr<ProbeStreamEventTable> const& eventTable, Rix::Ptr<ZebStatus> const& status) {
  return ingressSm_.is(ingressRecord->ttl(), streamRecord, ingressRecord, eventTable, status);
}

void ZebEventCollectorStreamSm::handleInitialized() {
  initializedIs(true);
  handleIngressRecord();
}

void ZebEventCollectorStreamSm::handleIngressRecord() {
  Rix::sweepKeys(streamRecord_->ingressRecordIterator(), [this](U8 ttl) { handleIngressRecord(ttl); });
}

void ZebEventCollectorStreamSm::handleIngressRecord(U8 ttl) {
  if (!initialized()) return;
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebEventCollectorStreamSm::handleIngressRecord(U8) streamId: "
                << probeStreamStringValue(streamRecord_->streamId()) << " ttl:" << unsigned{ttl});
  if (ProbeStreamIngressRecord* ingressRecord = streamRecord_->ingressRecord(ttl)) {
    ingressSmIs(streamRecord_.notifier(), ingressRecord, eventTable_, status_);
  } else {
    ingressSmDel(ttl);
  }
}

// The table.

ZebEventCollectorSm::ZebEventCollectorSm(Rix::Ptr<ProbeStreamTable> const& streamTable,
                                         Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                         Rix::Ptr<ZebStatus> const& status)
    : eventTable_(eventTable), status_(status) {
  streamTable_.notifierIs(streamTable);
  handleInitialized();
}

ZebEventCollectorStreamSm* ZebEventCollectorSm::streamSmIs(Rix::Ptr<ProbeStreamRecord> const& streamRecord,
                                                           Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                                           Rix::Ptr<ZebStatus> const& status) {
  return streamSm_.is(streamRecord->streamId(), streamRecord, eventTable, status);
}

void ZebEventCollectorSm::handleInitialized() {
  initializedIs(true);
  handleStream();
}

void ZebEventCollectorSm::handleStream() {
  Rix::sweepKeys(streamTable_->streamRecordIterator(),
                 [this](ProbeStreamId const& streamId) { handleStream(streamId); });
}

void ZebEventCollectorSm::handleStream(ProbeStreamId const& streamId) {
  if (!initialized()) return;
  RIX_TRACE(
      traceHandle, 8,
      "void Zeb::ZebEventCollectorSm::handleStream(Zeb::ProbeStreamId) streamId: " << probeStreamStringValue(streamId));
  if (ProbeStreamRecord* record = streamTable_->streamRecord(streamId)) {
    eventTable_->eventIs(streamId);
    streamSmIs(record, eventTable_, status_);
  } else {
    // The writers of the slot go before the slot.
    streamSmDel(streamId);
    eventTable_->eventDel(streamId);
  }
}

void ZebEventCollectorSm::doCleanup() {
  streamSmDelAll();
  eventTable_->eventDelAll();
}

Rix::Ptr<ZebEventCollectorSm> zebEventCollectorSmFactory(Rix::Ptr<ProbeStreamTable> const& streamTable,
                                                         Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                                         Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebEventCollectorSm>(streamTable, eventTable, status);
}

Rix::Ptr<ZebEventCollectorStreamSm> zebEventCollectorStreamSmFactory(Rix::Ptr<ProbeStreamRecord> const& streamRecord,
                                                                     Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                                                     Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebEventCollectorStreamSm>(streamRecord, eventTable, status);
}

Rix::Ptr<ZebEventCollectorIngressStreamSm> zebEventCollectorIngressStreamSmFactory(
    Rix::Ptr<ProbeStreamRecord> const& streamRecord, Rix::Ptr<ProbeStreamIngressRecord> const& zebIngressRecord,
    Rix::Ptr<ProbeStreamEventTable> const& eventTable, Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebEventCollectorIngressStreamSm>(streamRecord, zebIngressRecord, eventTable, status);
}

}  // namespace Zeb
