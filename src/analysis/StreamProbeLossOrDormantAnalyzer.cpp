// The judgement itself, from the lowest dormant TTL down to the nearest one at which a switch still answers.
#include "analysis/StreamProbeLossOrDormantAnalyzer.h"

#include "model/StreamText.h"
#include "runtime/Trace.h"

namespace Zeb {

namespace {

Rix::TraceHandle traceHandle("StreamProbeLossOrDormantAnalyzer");

constexpr U8 noTtl = 255;

// Whether any TTL of the stream has something to report.
bool anythingToReport(StreamLossRecord const& lossRecord) {
  bool any = false;
  auto const note = [&](bool seen, U8 ttl, char const* what) {
    if (!seen) return;
    any = true;
    RIX_TRACE(traceHandle, 1, probeStreamStringValue(lossRecord.streamId()) << " ttl: " << unsigned{ttl} << what);
  };
  for (auto const& ttlRecord : lossRecord.streamTtlLossRecordIterator()) {
    note(ttlRecord->dormant(), ttlRecord->ttl(), " dormant");
    note(ttlRecord->lossy(), ttlRecord->ttl(), " lossy");
    note(ttlRecord->misorderingCount() != 0, ttlRecord->ttl(), " misordering");
    note(ttlRecord->duplicationCount() != 0, ttlRecord->ttl(), " duplication");
  }
  return any;
}

// The switch that answers at a TTL, or null: the one that last received a probe there, unless the TTL is dormant.
ProbeStreamSwitchIngressRecord const* answering(ProbeStreamRecord const& streamRecord,
                                                StreamLossRecord const& lossRecord, U8 ttl) {
  StreamTtlLossRecord const* ttlRecord = lossRecord.streamTtlLossRecord(ttl);
  if (ttlRecord && ttlRecord->dormant()) {
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamRecord.streamId())
                  << " ttl: " << unsigned{ttl} << " dormant=" << ttlRecord->dormant());
    return nullptr;
  }
  ProbeStreamIngressRecord const* ingressRecord = streamRecord.ingressRecord(ttl);
  if (!ingressRecord) {
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamRecord.streamId())
                  << " ttl: " << unsigned{ttl} << " no ingressRecord, assuming dormant");
    return nullptr;
  }
  if (!ingressRecord->currentActiveIngressRecord()) {
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamRecord.streamId())
                  << " ttl: " << unsigned{ttl} << " no current ingressRecord, assuming dormant");
  }
  return ingressRecord->currentActiveIngressRecord().get();
}

}  // namespace

void StreamProbeLossOrDormantAnalyzer::doAnalyze(Rix::Ptr<Root> const& root,
                                                 Rix::Ptr<ProbeStreamEventsQueue> const& queue) {
  ProbeStreamId const& streamId = queue->streamId();
  ProbeStreamRecord const* streamRecord = root->zebStreamTable()->streamRecord(streamId);
  if (!streamRecord) {
    RIX_TRACE(traceHandle, 1, "streamId: " << probeStreamStringValue(streamId) << " has no psr");
    return;
  }
  ProbeLossStatus* lossStatus = root->zebStatus()->lossStatus();
  RIX_ASSERT(lossStatus != nullptr);
  StreamLossRecord* lossRecord = lossStatus->lossRecord(streamId);
  if (!lossRecord) {
    RIX_TRACE(traceHandle, 8, "streamId: " << probeStreamStringValue(streamId) << " has no lr");
    return;
  }
  if (lossRecord->destDormant()) {
    lossRecord->lossRecordTypeIs(LossRecordType::lossRecordDestDormant);
    updateStreamLossPair(*streamRecord, *lossRecord);
    RIX_TRACE(traceHandle, 8,
              "streamId: " << probeStreamStringValue(streamId) << " destDormant: " << lossRecord->destDormant());
  } else if (anythingToReport(*lossRecord)) {
    RIX_TRACE(traceHandle, 8, "streamId: " << probeStreamStringValue(streamId) << " partial dormancy/loss observed");
    updateStreamLossPair(*streamRecord, *lossRecord);
  } else {
    RIX_TRACE(traceHandle, 8, "streamId: " << probeStreamStringValue(streamId) << " deleting loss record");
    lossStatus->lossRecordDel(streamId);
  }
}

void StreamProbeLossOrDormantAnalyzer::updateStreamLossPair(ProbeStreamRecord const& streamRecord,
                                                            StreamLossRecord& lossRecord) {
  U8 minTtl = noTtl;
  Fabric::SystemId minDevice;
  for (auto const& ttlRecord : lossRecord.streamTtlLossRecordIterator()) {
    if (!ttlRecord->dormant() || ttlRecord->ttl() >= minTtl) continue;
    minTtl = ttlRecord->ttl();
    minDevice = ttlRecord->dormantSwitchId();
  }
  lossRecord.minLossTtlIs(minTtl);
  lossRecord.minLossDeviceIdIs(minDevice);
  if (minTtl != noTtl) {
    ProbeStreamSwitchIngressRecord const* good = nullptr;
    U8 ttl = minTtl;
    while (ttl != 0 && !(good = answering(streamRecord, lossRecord, ttl))) --ttl;
    // Below the lowest TTL stands the source.
    lossRecord.minNoLossTtlIs(ttl);
    lossRecord.minNoLossDeviceIdIs(good ? good->switchId() : streamRecord.sourceId());
    RIX_TRACE(traceHandle, 8,
              probeStreamStringValue(streamRecord.streamId())
                  << " minLossTtl:" << unsigned{lossRecord.minLossTtl()} << " minNoLossTtl:"
                  << unsigned{lossRecord.minNoLossTtl()} << " minLossDeviceId:" << lossRecord.minLossDeviceId()
                  << " minNoLossDeviceId:" << lossRecord.minNoLossDeviceId());
  }
  lossRecord.updateCounterInc(1);
}

Rix::Ptr<StreamProbeLossOrDormantAnalyzer> StreamProbeLossOrDormantAnalyzerIs() {
  return Rix::make<StreamProbeLossOrDormantAnalyzer>("StreamProbeLossOrDormantAnalyzer");
}

}  // namespace Zeb
