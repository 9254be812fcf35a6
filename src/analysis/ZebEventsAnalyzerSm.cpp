// One handler: a queue that came gets its analyzer, one that went loses it.
#include "analysis/ZebEventsAnalyzerSm.h"

#include "model/StreamText.h"
#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebEventsAnalyzerSm");
}

ZebEventsAnalyzerSm::ZebEventsAnalyzerSm(Rix::Ptr<Root> const& root,
                                         Rix::Ptr<ZebProbeStreamEventsDir> const& zebStreamEventsDir)
    : root_(root) {
  zebStreamEventsDir_.notifierIs(zebStreamEventsDir);
  handleInitialized();
}

void ZebEventsAnalyzerSm::handleInitialized() {
  initializedIs(true);
  handleStream();
}

void ZebEventsAnalyzerSm::handleStream() {
  Rix::sweepKeys(zebStreamEventsDir_->streamEventsQueueIterator(),
                 [this](ProbeStreamId const& streamId) { handleStream(streamId); });
}

void ZebEventsAnalyzerSm::handleStream(ProbeStreamId const& streamId) {
  if (!initialized()) return;
  ProbeStreamEventsQueue* queue = zebStreamEventsDir_->streamEventsQueue(streamId);
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebEventsAnalyzerSm::handleStream(Zeb::ProbeStreamId) streamId:"
                << probeStreamStringValue(streamId) << " add=" << (queue != nullptr));
  if (!queue) {
    streamEventsAnalyzerSmDel(streamId);
  } else if (!streamEventsAnalyzerSm(streamId)) {
    streamEventsAnalyzerSmIs(streamId, root_, queue);
  }
}

Rix::Ptr<ZebEventsAnalyzerSm> zebEventsAnalyzerSmFactory(Rix::Ptr<Root> const& root,
                                                         Rix::Ptr<ZebProbeStreamEventsDir> const& zebStreamEventsDir) {
  return Rix::make<ZebEventsAnalyzerSm>(root, zebStreamEventsDir);
}

}  // namespace Zeb
