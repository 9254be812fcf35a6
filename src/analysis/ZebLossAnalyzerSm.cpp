// The reactor on one event slot first, then the one that stands while the service is enabled.
#include "analysis/ZebLossAnalyzerSm.h"

#include "analysis/StreamProbeLossOrDormantAnalyzer.h"
#include "model/StreamText.h"
#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebLossAnalyzerSm");
}

ZebStreamLossAnalyzerSm::ZebStreamLossAnalyzerSm(Rix::Ptr<Root> const& root, ProbeStreamId const& streamId,
                                                 Rix::Ptr<ProbeStreamEvent const> const& event,
                                                 Rix::Ptr<ProbeStreamEventsQueue> const& queue)
    : root_(root), queue_(queue) {
  RIX_ASSERT(event->streamId() == streamId, event->streamId(), streamId);
  event_.notifierIs(event);
  handleInitialized();
}

void ZebStreamLossAnalyzerSm::handleInitialized() {
  initializedIs(true);
  handleEvent();
}

void ZebStreamLossAnalyzerSm::handleEvent() {
  ProbeStreamEvent const& event = *event_;
  if (!initialized() || !event.up()) return;
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebStreamLossAnalyzerSm::handleEvent() streamId:" << probeStreamStringValue(event.streamId()));
  ProbeStreamEventRecord record;
  record.timeStamp = Rix::now();
  record.eventType = event.eventType();
  record.ttl = event.ttl();
  record.ingressSwitchId = event.ingressSwitchId();
  record.epoch = event.epoch();
  record.currentSequenceNumber = event.currentSequenceNumber();
  record.lastSequenceNumber = event.lastSequenceNumber();
  record.probesReceived = event.probesReceived();
  record.probesLost = event.probesLost();
  record.probesMisordered = event.probesMisordered();
  record.probesDuplicated = event.probesDuplicated();
  record.count = event.count();
  queue_->eventRecordEnq(record);
  queue_->queuedEventsInc(1);
}

ZebLossAnalyzerSm::ZebLossAnalyzerSm(Rix::Ptr<Root> const& root, Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                     Rix::Ptr<ZebStatus> const& status)
    : root_(root), status_(status) {
  eventTable_.notifierIs(eventTable);
  handleInitialized();
}

void ZebLossAnalyzerSm::handleInitialized() {
  registerAnalyzers();
  sysloggerSmIs(status_);
  lossPairRecorderSmIs(status_, root_->zebStreamTable());
  initializedIs(true);
  handleStream();
}

void ZebLossAnalyzerSm::registerAnalyzers() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebLossAnalyzerSm::registerAnalyzers()");
  root_->analyzerRegistry()->analyzerIs("StreamProbeLossOrDormantAnalyzer", StreamProbeLossOrDormantAnalyzerIs());
}

void ZebLossAnalyzerSm::handleStream() {
  Rix::sweepKeys(eventTable_->eventIterator(), [this](ProbeStreamId const& streamId) { handleStream(streamId); });
}

void ZebLossAnalyzerSm::handleStream(ProbeStreamId const& streamId) {
  // A stream waits until all that its events lead to is there.
  if (!initialized()) return;
  ProbeStreamEvent* event = eventTable_->event(streamId);
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebLossAnalyzerSm::handleStream(Zeb::ProbeStreamId) streamId:"
                << probeStreamStringValue(streamId) << " add=" << (event != nullptr));
  if (event) {
    ProbeStreamEventsQueue* queue = root_->zebStreamEventsDir()->streamEventsQueueIs(streamId);
    streamLossAnalyzerSmIs(root_, streamId, event, queue);
  } else {
    streamLossAnalyzerSmDel(streamId);
  }
}

Rix::Ptr<ZebLossAnalyzerSm> zebLossAnalyzerSmFactory(Rix::Ptr<Root> const& root,
                                                     Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                                     Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebLossAnalyzerSm>(root, eventTable, status);
}

Rix::Ptr<ZebStreamLossAnalyzerSm> zebStreamLossAnalyzerSmFactory(Rix::Ptr<Root> const& root,
                                                                 ProbeStreamId const& streamId,
                                                                 Rix::Ptr<ProbeStreamEvent const> const& event,
                                                                 Rix::Ptr<ProbeStreamEventsQueue> const& queue) {
  return Rix::make<ZebStreamLossAnalyzerSm>(root, streamId, event, queue);
}

}  // namespace Zeb
