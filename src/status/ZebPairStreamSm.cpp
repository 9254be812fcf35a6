// The table, and one stream's entry in the index.
#include "status/ZebPairStreamSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebPairStreamSm");
}

using RixStreamRecord = ZebPairStreamSm::RixStreamRecord;

ZebPairStreamSm::ZebPairStreamSm(Rix::Ptr<ProbeStreamTable const> const& zebStreamTable,
                                 Rix::Ptr<PairStreamStatus> const& pairStreamStatus)
    : pairStreamStatus_(pairStreamStatus) {
  zebStreamTable_.notifierIs(zebStreamTable);
}

void ZebPairStreamSm::handleStreamRecord(ProbeStreamId const& id) {
  if (ProbeStreamRecord const* const record = zebStreamTable_->streamRecord(id)) {
    streamRecordIs(record);
  } else {
    streamRecordDel(id);
  }
}

RixStreamRecord* ZebPairStreamSm::streamRecordIs(Rix::Ptr<ProbeStreamRecord const> const& record) {
  if (!record) {
    Rix::throwRangeException(
        "null _streamRecord parameter to mutator for Zeb::ZebPairStreamSm::streamRecord not allowed\"");
  }
  return streamRecord_.is(record->streamId(), record, this);
}

RixStreamRecord::RixStreamRecord(Rix::Ptr<ProbeStreamRecord const> const& streamRecord, ZebPairStreamSm* owner)
    : owner_(owner) {
  streamRecord_.notifierIs(streamRecord);
  handleInitialized();
}

void RixStreamRecord::handleInitialized() {
  initializedIs(true);
  handleId();
}

void RixStreamRecord::handleId() {
  ProbeStreamRecord const& record = *streamRecord_;
  Fabric::SystemId const sourceId = record.sourceId();
  Fabric::SystemId const destinationId = record.destinationId();
  RIX_TRACE(traceHandle, 8, "streamId=" << record.streamId() << " srcId=" << sourceId << " dstId=" << destinationId);
  if (sourceId.isEmpty() || destinationId.isEmpty()) return;
  Rix::Ptr<PairSourceStatus> const source = owner_->pairStreamStatus_->sourceIs(sourceId);
  Rix::Ptr<PairDestinationStatus> const destination = source->destinationIs(destinationId);
  destination->streamIs(record.streamId(), true);
}

void RixStreamRecord::doCleanup() {
  ProbeStreamRecord const& record = *streamRecord_;
  RIX_TRACE(traceHandle, 8, "streamId=" << record.streamId());
  if (record.sourceId().isEmpty() || record.destinationId().isEmpty()) return;
  PairStreamStatus& index = *owner_->pairStreamStatus_;
  Rix::Ptr<PairSourceStatus> const source = index.source(record.sourceId());
  if (!source) return;
  if (Rix::Ptr<PairDestinationStatus> const destination = source->destination(record.destinationId())) {
    destination->streamDel(record.streamId());
    if (destination->streams() == 0) source->destinationDel(record.destinationId());
  }
  if (source->destinations() == 0) index.sourceDel(record.sourceId());
}

Rix::Ptr<ZebPairStreamSm> zebPairStreamSmFactory(Rix::Ptr<ProbeStreamTable const> const& zebStreamTable,
                                                 Rix::Ptr<PairStreamStatus> const& pairStreamStatus) {
  return Rix::make<ZebPairStreamSm>(zebStreamTable, pairStreamStatus);
}

}  // namespace Zeb
