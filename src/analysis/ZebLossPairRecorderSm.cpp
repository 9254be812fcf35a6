// The reactor on one loss record, which moves its stream from pair to pair, then the one on all of them.
#include "analysis/ZebLossPairRecorderSm.h"

#include "model/StreamText.h"
#include "runtime/Trace.h"

namespace Zeb {

namespace {

Rix::TraceHandle traceHandle("ZebLossPairRecorderSm");

// A pair in trace lines: the last good device, then the first silent one.
std::string pairText(DevicePair const& pair) {
  return pair.dev1SysId().stringValue() + "=>" + pair.dev2SysId().stringValue();
}

}  // namespace

ZebStreamLossPairRecorderSm::ZebStreamLossPairRecorderSm(Rix::Ptr<StreamLossRecord const> const& streamLossRecord,
                                                         Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
                                                         Rix::Ptr<ProbeLossStatus> const& lossStatus)
    : streamRecord_(streamRecord), lossStatus_(lossStatus) {
  streamLossRecord_.notifierIs(streamLossRecord);
  handleInitialized();
}

DevicePair ZebStreamLossPairRecorderSm::createDevicePair(Fabric::SystemId const& dev1SysId,
                                                         Fabric::SystemId const& dev2SysId) {
  RIX_ASSERT(dev1SysId != dev2SysId, dev1SysId);
  return {dev1SysId, dev2SysId};
}

void ZebStreamLossPairRecorderSm::handleInitialized() {
  initializedIs(true);
  handleLossPoint();
}

void ZebStreamLossPairRecorderSm::handleLossPoint() {
  StreamLossRecord const& lr = *streamLossRecord_;
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebStreamLossPairRecorderSm::handleLossPoint() streamId: "
                << probeStreamStringValue(lr.streamId()) << " updateCounter: " << lr.updateCounter());
  if (!initialized() || lr.minLossTtl() == 255) return;
  if (lr.minNoLossDeviceId().isEmpty() || lr.minLossDeviceId().isEmpty()) {
    RIX_TRACE(traceHandle, 8, "lossDeviceIds not set");
    doDeleteLossRecord(currentLossDevicePair_);
    return;
  }
  // The switch that fell silent at the lowest TTL may be the one that still answers below it.
  if (lr.minNoLossDeviceId() == lr.minLossDeviceId()) {
    RIX_TRACE(traceHandle, 8, "minNoLossDeviceId == minLossDeviceId == " << lr.minLossDeviceId());
    return;
  }
  DevicePair const pair = createDevicePair(lr.minNoLossDeviceId(), lr.minLossDeviceId());
  if (pair != currentLossDevicePair_) {
    RIX_TRACE(traceHandle, 8,
              "new loss pair, deleting currentLossDevicePair:" << pairText(currentLossDevicePair_) << " for stream:"
                                                               << probeStreamStringValue(lr.streamId()));
    doDeleteLossRecord(currentLossDevicePair_);
  }
  DevicePairLossRecord* record = lossStatus_->devicePairLossRecord(pair);
  if (record) {
    RIX_TRACE(traceHandle, 8, "existing devicePairLossRecord:" << pairText(pair));
  } else {
    record = lossStatus_->devicePairLossRecordIs(pair);
    RIX_TRACE(traceHandle, 8, "new devicePairLossRecord:" << pairText(pair));
  }
  record->streamLossRecordIs(streamLossRecord_.notifier());
  currentLossDevicePair_ = pair;
}

void ZebStreamLossPairRecorderSm::doDeleteLossRecord(DevicePair const& pair) {
  RIX_TRACE(
      traceHandle, 8,
      "void Zeb::ZebStreamLossPairRecorderSm::doDeleteLossRecord(Zeb::DevicePair) devicePair: " << pairText(pair));
  DevicePairLossRecord* record = lossStatus_->devicePairLossRecord(pair);
  if (!record) return;
  record->streamLossRecordDel(streamLossRecord_->streamId());
  if (record->streamLossRecords() != 0) return;
  RIX_TRACE(traceHandle, 8, " deleting devicePair: " << pairText(pair));
  lossStatus_->devicePairLossRecordDel(pair);
}

void ZebStreamLossPairRecorderSm::doCleanup() {
  doDeleteLossRecord(currentLossDevicePair_);
}

ZebLossPairRecorderSm::ZebLossPairRecorderSm(Rix::Ptr<ZebStatus> const& zebStatus,
                                             Rix::Ptr<ProbeStreamTable const> const& streamTable)
    : streamTable_(streamTable) {
  zebStatus_.notifierIs(zebStatus);
  handleLossStatus();
}

ZebStreamLossPairRecorderSm* ZebLossPairRecorderSm::streamLossPairRecorderSmIs(
    Rix::Ptr<StreamLossRecord const> const& streamLossRecord, Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
    Rix::Ptr<ProbeLossStatus> const& lossStatus) {
  return streamLossPairRecorderSm_.is(streamLossRecord->streamId(), streamLossRecord, streamRecord, lossStatus);
}

ZebStreamEventPathSm* ZebLossPairRecorderSm::eventPathSmIs(Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
                                                           Rix::Ptr<ZebStatus> const& zebStatus) {
  return eventPathSm_.is(streamRecord->streamId(), streamRecord, zebStatus);
}

void ZebLossPairRecorderSm::handleLossStatus() {
  lossStatus_.notifierIs(zebStatus_->lossStatus());
}

void ZebLossPairRecorderSm::handleStreamLossRecord(ProbeStreamId const& streamId) {
  StreamLossRecord* streamLossRecord = lossStatus_->lossRecord(streamId);
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebLossPairRecorderSm::handleStreamLossRecord(Zeb::ProbeStreamId) streamId: "
                << probeStreamStringValue(streamId) << " add=" << (streamLossRecord != nullptr));
  if (!streamLossRecord) {
    streamLossPairRecorderSmDel(streamId);
    eventPathSmDel(streamId);
    return;
  }
  RIX_ASSERT_TEXT(!streamLossPairRecorderSm(streamId), "!streamLossPairRecorderSm( streamId )", streamId);
  Rix::Ptr<ProbeStreamRecord const> const streamRecord = streamTable_->streamRecord(streamId);
  RIX_ASSERT(streamRecord, streamId);
  streamLossPairRecorderSmIs(streamLossRecord, streamRecord, lossStatus_.notifier());
  eventPathSmIs(streamRecord, zebStatus_.notifier());
}

Rix::Ptr<ZebLossPairRecorderSm> zebLossPairRecorderSmFactory(Rix::Ptr<ZebStatus> const& zebStatus,
                                                             Rix::Ptr<ProbeStreamTable const> const& streamTable) {
  return Rix::make<ZebLossPairRecorderSm>(zebStatus, streamTable);
}

Rix::Ptr<ZebStreamLossPairRecorderSm> zebStreamLossPairRecorderSmFactory(
    Rix::Ptr<StreamLossRecord const> const& streamLossRecord, Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
    Rix::Ptr<ProbeLossStatus> const& lossStatus) {
  return Rix::make<ZebStreamLossPairRecorderSm>(streamLossRecord, streamRecord, lossStatus);
}

}  // namespace Zeb
