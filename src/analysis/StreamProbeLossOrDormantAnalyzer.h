// The one analyzer: after each batch it decides whether a stream still has something to report, and between which two
// devices its probes are lost.
//
// Probes go out with every TTL up to the path's length, and each TTL reaches one hop further. The lowest dormant TTL
// names the first silent device; the nearest TTL below it at which a switch still answers names the last good one.
// It writes the stream's loss record, or deletes it; it keeps nothing of its own.
#pragma once

#include "central/ZebRoot.h"

namespace Zeb {

class StreamProbeLossOrDormantAnalyzer : public ProbeEventsAnalyzerBase {
 public:
  using ProbeEventsAnalyzerBase::ProbeEventsAnalyzerBase;

  void doAnalyze(Rix::Ptr<Root> const& root, Rix::Ptr<ProbeStreamEventsQueue> const& queue) override;
  // Computes the four fields that place the loss, then raises updateCounter, at which they are read.
  void updateStreamLossPair(ProbeStreamRecord const& streamRecord, StreamLossRecord& lossRecord);
};

Rix::Ptr<StreamProbeLossOrDormantAnalyzer> StreamProbeLossOrDormantAnalyzerIs();

}  // namespace Zeb
