// A switch's streams: a reactor for each, rebuilt when the table is another one.
#include "status/ZebClientWaveStatusSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebClientWaveStatusSm");
}

ZebClientWaveStatusSm::ZebClientWaveStatusSm(Fabric::SystemId const& systemId,
                                             Rix::Ptr<ZebStatus const> const& zebStatus,
                                             Rix::Ptr<ZebSonarStatusV1 const> const& clientWaveStatus,
                                             Rix::Ptr<ProbeStreamTable> const& zebStreamTable)
    : systemId_(systemId), zebStatus_(zebStatus), zebStreamTable_(zebStreamTable) {
  clientWaveStatus_.notifierIs(clientWaveStatus);
  handleProbeStreamTable();
  handleInitialized();
}

ZebClientWaveStatusSm::~ZebClientWaveStatusSm() = default;

void ZebClientWaveStatusSm::handleInitialized() {
  initializedIs(true);
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebClientWaveStatusSm::handleInitialized()"
                << " client=" << systemId_);
}

void ZebClientWaveStatusSm::handleProbeStreamTable() {
  ClientProbeStreamTable const* const table = clientWaveStatus_ ? clientWaveStatus_->probeStreamTable() : nullptr;
  if (table == clientStreamTable_.notifier()) return;
  streamRecord_.delAll();
  clientStreamTable_.notifierIs(table);
}

void ZebClientWaveStatusSm::handleStreamRecord(ProbeStreamId const& id) {
  if (ClientProbeStreamRecord const* const record = clientStreamTable_->streamRecord(id)) {
    streamRecordIs(record);
  } else {
    streamRecordDel(id);
  }
}

ZebClientWaveStatusSm::RixStreamRecord* ZebClientWaveStatusSm::streamRecordIs(
    Rix::Ptr<ClientProbeStreamRecord const> const& record) {
  if (!record) {
    Rix::throwRangeException(
        "null _streamRecord parameter to mutator for Zeb::ZebClientWaveStatusSm::streamRecord not allowed\"");
  }
  RixStreamRecord* const standing = streamRecord(record->streamId());
  if (standing && standing->clientRecord() != record.get()) streamRecordDel(record->streamId());
  return streamRecord_.is(record->streamId(), record, this);
}

void ZebClientWaveStatusSm::streamRecordDel(ProbeStreamId const& id) {
  streamRecord_.del(id);
}

}  // namespace Zeb
