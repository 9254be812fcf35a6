// The timer of a batch, then what one event changes in its TTL's record, then the fold and the analyzers.
#include "analysis/ZebStreamEventsAnalyzerSm.h"

#include "model/StreamText.h"
#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebStreamEventsAnalyzerSm");

// So many probes received by one switch since its last loss or dormancy forgive the TTL.
constexpr U64 forgivingCount = 3;
}  // namespace

ZebStreamEventsAnalyzerSm::ZebStreamEventsAnalyzerSm(ProbeStreamId const& streamId, Rix::Ptr<Root> const& root,
                                                     Rix::Ptr<ProbeStreamEventsQueue> const& streamEventsQueue)
    : root_(root) {
  RIX_ASSERT(streamEventsQueue->streamId() == streamId, streamEventsQueue->streamId(), streamId);
  streamEventsQueue_.notifierIs(streamEventsQueue);
  handleInitialized();
}

void ZebStreamEventsAnalyzerSm::handleInitialized() {
  deferTimer_.notifierIs(Rix::ActivityManagerConfig::clock());
  deferTimer_.timeMinIs(Rix::never);
  initializedIs(true);
  handleEvent();
}

void ZebStreamEventsAnalyzerSm::handleEvent() {
  if (!initialized() || streamEventsQueue_->queuedEvents() == 0) return;
  doUpdateDeferTimer();
}

void ZebStreamEventsAnalyzerSm::doUpdateDeferTimer() {
  if (streamEventsQueue_->queuedEvents() == 0) {
    RIX_TRACE(traceHandle, 8, probeStreamStringValue(streamId()) << " no queued events, cancelling timer");
    deferTimer_.timeMinIs(Rix::never);
  } else if (deferTimer_.timeMin() > Rix::largestFiniteTime) {
    deferTimer_.timeMinIs(Rix::now() + deferInterval());
  }
}

void ZebStreamEventsAnalyzerSm::handleDeferTimer() {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebStreamEventsAnalyzerSm::handleDeferTimer() streamId: "
                << probeStreamStringValue(streamId()) << " queuedEvents: " << streamEventsQueue_->queuedEvents());
  if (streamEventsQueue_->queuedEvents() == 0) return;
  Rix::Ptr<ProbeStreamEventsQueue> const queue = streamEventsQueue_.notifier();
  doAnalyzeCommon(root_, queue);
  for (auto const& analyzer : root_->analyzerRegistry()->analyzerIterator()) {
    analyzer.value->doAnalyze(root_, queue);
  }
  queue->eventRecordDelAll();
  queue->queuedEventsIs(0);
}

void ZebStreamEventsAnalyzerSm::doAnalyzeCommon(Rix::Ptr<Root> const& root,
                                                Rix::Ptr<ProbeStreamEventsQueue> const& queue) {
  ProbeStreamId const& id = queue->streamId();
  ProbeStreamRecord const* streamRecord = root->zebStreamTable()->streamRecord(id);
  if (!streamRecord) {
    RIX_TRACE(traceHandle, 1, "streamId: " << probeStreamStringValue(id) << " has no psr");
    return;
  }
  ProbeLossStatus* lossStatus = root->zebStatus()->lossStatus();
  RIX_ASSERT(lossStatus != nullptr);
  StreamLossRecord* lossRecord = lossStatus->lossRecord(id);
  queue->eventRecord().forEach([&](ProbeStreamEventRecord const& record) {
    if (record.eventType == EventType::eventProbesReceived && !lossRecord) return;
    RIX_TRACE(traceHandle, 8,
              "processing event for streamId: " << probeStreamStringValue(id) << " ttl: " << unsigned{record.ttl}
                                                << " timeStamp: " << record.timeStamp << " eventType: "
                                                << record.eventType << " ingressSwitchId: " << record.ingressSwitchId
                                                << " count: " << record.count);
    if (!lossRecord) {
      lossRecord = lossStatus->lossRecordIs(id, streamSrcHostname(root, id), streamDstHostname(root, id), id.dstIp(),
                                            Rix::utcNow());
    }
    updateHostLossRecord(*streamRecord, *lossRecord, record);
  });
}

void ZebStreamEventsAnalyzerSm::updateHostLossRecord(ProbeStreamRecord const& streamRecord,
                                                     StreamLossRecord& lossRecord,
                                                     ProbeStreamEventRecord const& eventRecord) {
  U8 const ttl = eventRecord.ttl;
  RIX_ASSERT(ttl);
  Fabric::SystemId const& ingressSwitchId = eventRecord.ingressSwitchId;
  ProbeStreamIngressRecord const* ingressRecord = streamRecord.ingressRecord(ttl);
  if (!ingressRecord) {
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamRecord.streamId()) << " ttl: " << unsigned{ttl} << " no ingressRecord");
    return;
  }
  if (!ingressRecord->switchIngressRecord(ingressSwitchId)) {
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamRecord.streamId())
                  << " ttl: " << unsigned{ttl} << " no switchIngressRecord for:" << ingressSwitchId);
    return;
  }
  StreamTtlLossRecord& ttlRecord = *lossRecord.streamTtlLossRecordIs(ttl);
  SwitchHostLossRecord& host = *ttlRecord.hostLossRecordIs(ingressSwitchId);
  if (host.lastEventTime() > eventRecord.timeStamp) {
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamRecord.streamId())
                  << " stale event record. event timestamp:" << eventRecord.timeStamp
                  << " record timestamp:" << host.lastEventTime());
    return;
  }
  updateEpoch(host, eventRecord.epoch);
  host.lastEventTimeIs(eventRecord.timeStamp);
  host.lastEventTypeIs(eventRecord.eventType);
  RIX_TRACE(traceHandle, 8,
            probeStreamStringValue(streamRecord.streamId())
                << " ttl: " << unsigned{ttl} << " eventType:" << eventRecord.eventType
                << " eventCount:" << eventRecord.count << " ingressSwitchId:" << ingressSwitchId);
  updateByType(streamRecord, lossRecord, ttlRecord, host, eventRecord);
  updateLastIngressSwitch(ttlRecord, ingressSwitchId);
}

void ZebStreamEventsAnalyzerSm::updateEpoch(SwitchHostLossRecord& host, Sonar::Epoch epoch) const {
  if (epoch == host.epoch()) return;
  RIX_TRACE(traceHandle, 8, probeStreamStringValue(streamId()) << " epoch change:" << host.epoch() << "->" << epoch);
  host.epochChangeCountInc(1);
  host.lastEpochIs(host.epoch());
  host.epochIs(epoch);
}

void ZebStreamEventsAnalyzerSm::updateByType(ProbeStreamRecord const& streamRecord, StreamLossRecord& lossRecord,
                                             StreamTtlLossRecord& ttlRecord, SwitchHostLossRecord& host,
                                             ProbeStreamEventRecord const& eventRecord) const {
  switch (eventRecord.eventType) {
    case EventType::eventDormant:
    case EventType::eventDeleted:
      host.successfulSinceLossIs(0);
      host.dormantChangeCountInc(1);
      host.dormantIs(eventRecord.count != 0);
      updateDormancy(streamRecord, lossRecord, ttlRecord, eventRecord.ingressSwitchId);
      break;
    case EventType::eventProbesLost:
      host.successfulSinceLossIs(0);
      host.lossCountIs(eventRecord.probesLost);
      ttlRecord.lossCountIs(eventRecord.probesLost);
      ttlRecord.lossyIs(true);
      RIX_TRACE(traceHandle, 8,
                probeStreamStringValue(streamId()) << " lossy: true"
                                                   << " lossCount:" << eventRecord.probesLost);
      break;
    case EventType::eventProbesMisordered:
      host.misorderingCountIs(eventRecord.probesMisordered);
      ttlRecord.misorderingCountIs(eventRecord.probesMisordered);
      RIX_TRACE(traceHandle, 8,
                probeStreamStringValue(streamId()) << " misordering: true"
                                                   << " misorderingCount:" << eventRecord.probesMisordered);
      break;
    case EventType::eventProbesDuplicated:
      host.duplicationCountIs(eventRecord.probesDuplicated);
      ttlRecord.duplicationCountIs(eventRecord.probesDuplicated);
      RIX_TRACE(traceHandle, 8,
                probeStreamStringValue(streamId()) << " duplication: true"
                                                   << " duplicationCount:" << eventRecord.probesDuplicated);
      break;
    case EventType::eventProbesReceived:
      updateReceived(ttlRecord, host, eventRecord);
      break;
    case EventType::eventNone:
      break;
  }
}

void ZebStreamEventsAnalyzerSm::updateReceived(StreamTtlLossRecord& ttlRecord, SwitchHostLossRecord& host,
                                               ProbeStreamEventRecord const& eventRecord) const {
  host.successfulSinceLossInc(eventRecord.count);
  if (host.successfulSinceLoss() >= forgivingCount && ttlRecord.lossy()) {
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamId())
                  << " successfulSinceLoss:" << host.successfulSinceLoss() << ", reseting lossy");
    ttlRecord.lossyIs(false);
  }
  host.successfulCountIs(eventRecord.probesReceived);
  ttlRecord.successfulCountIs(eventRecord.probesReceived);
}

void ZebStreamEventsAnalyzerSm::updateDormancy(ProbeStreamRecord const& streamRecord, StreamLossRecord& lossRecord,
                                               StreamTtlLossRecord& ttlRecord,
                                               Fabric::SystemId const& ingressSwitchId) const {
  bool allDormant = true;
  for (auto const& host : ttlRecord.hostLossRecordIterator()) {
    if (!host->dormant()) {
      allDormant = false;
      break;
    }
  }
  ttlRecord.dormantIs(allDormant);
  ttlRecord.dormantSwitchIdIs(allDormant ? ingressSwitchId : Fabric::SystemId());
  if (ingressSwitchId == streamRecord.destinationId()) {
    lossRecord.destDormantIs(allDormant);
    RIX_TRACE(traceHandle, 8, probeStreamStringValue(streamId()) << " destination dormant: " << allDormant);
  } else {
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamId())
                  << " dormant: " << allDormant << " dormantSwitchId:" << ttlRecord.dormantSwitchId());
  }
}

void ZebStreamEventsAnalyzerSm::updateLastIngressSwitch(StreamTtlLossRecord& ttlRecord,
                                                        Fabric::SystemId const& ingressSwitchId) const {
  if (!(ingressSwitchId == ttlRecord.lastIngressSwitchId())) {
    ttlRecord.ingressSwitchChangeCountInc(1);
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamId()) << " ingressSwitchChangeCount:" << ttlRecord.ingressSwitchChangeCount()
                                                 << " lastIngressSwitchId:" << ttlRecord.lastIngressSwitchId());
  }
  ttlRecord.lastIngressSwitchIdIs(ingressSwitchId);
}

Rix::Ptr<ZebStreamEventsAnalyzerSm> zebStreamEventsAnalyzerSmFactory(
    ProbeStreamId const& streamId, Rix::Ptr<Root> const& root,
    Rix::Ptr<ProbeStreamEventsQueue> const& streamEventsQueue) {
  return Rix::make<ZebStreamEventsAnalyzerSm>(streamId, root, streamEventsQueue);
}

}  // namespace Zeb
