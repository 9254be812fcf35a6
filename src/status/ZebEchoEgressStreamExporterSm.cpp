// One row's way into the client table, and out of it.
#include "status/ZebEchoEgressStreamExporterSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebEchoEgressStreamExporterSm");
}

ZebEchoEgressStreamExporterSm::ZebEchoEgressStreamExporterSm(Rix::Ptr<Sonar::Status const> const& echoStatus,
                                                             Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus,
                                                             Rix::Ptr<ClientProbeStreamTable> const& probeStreamTable)
    : ZebEchoStreamExporter(probeStreamTable) {
  echoStatus_.notifierIs(echoStatus);
  echoLocalStatus_.notifierIs(echoLocalStatus);
  handleInitialized();
}

void ZebEchoEgressStreamExporterSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebEchoEgressStreamExporterSm::handleInitialized()");
  standingRowsMark(echoLocalStatus_->egressStreamTable());
}

void ZebEchoEgressStreamExporterSm::doProcessEgressStreamEntry(Sonar::EgressStream const& key) {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebEchoEgressStreamExporterSm::doProcessEgressStreamEntry(Sonar::EgressStream)"
                << " key=" << key);
  Sonar::EgressStreamTable const row = Sonar::guardedRow(echoLocalStatus_->egressStreamTable(), key);
  ProbeStreamId const id = egressStreamToStreamId(key);
  if (row.key != key) {
    doDeleteEgressRecord(key, id);
    return;
  }
  Rix::Ptr<ClientProbeStreamRecord> record = probeStreamTable_->streamRecord(id);
  if (!record) {
    RIX_TRACE(traceHandle, 5, "new egress stream entry " << key);
    record = probeStreamTable_->streamRecordIs(id);
  }
  Rix::Ptr<ClientProbeStreamEgressRecord> egress = record->egressRecord(key.ttl);
  if (!egress) {
    RIX_TRACE(traceHandle, 5, "new egress record " << key << " ttl:" << U32{key.ttl});
    egress = record->egressRecordIs(key.ttl);
    egress->egressStatsIs();
    egress->egressIntfIs(key.egressIntf);
  }
  RIX_ASSERT(egress->egressStats(), key);
  egress->egressStats()->numProbesTxIs(row.numProbesTx);
}

void ZebEchoEgressStreamExporterSm::doDeleteEgressRecord(Sonar::EgressStream const& key, ProbeStreamId const& id) {
  RIX_TRACE(traceHandle, 5, "egress stream entry deleted for " << key);
  Rix::Ptr<ClientProbeStreamRecord> const streamRecord = probeStreamTable_->streamRecord(id);
  // A row that came and went between two runs, or that shared its record with one that went before it.
  if (!streamRecord) return;
  streamRecord->egressRecordDel(key.ttl);
  if (streamRecord->egressRecords() != 0) return;
  RIX_ASSERT(streamRecord->ingressRecords() == 0 && "Both egress and ingress records present for the stream", key);
  probeStreamTable_->streamRecordDel(id);
}

void ZebEchoEgressStreamExporterSm::handleStream(Sonar::EgressStream const& key) {
  if (!initialized()) return;
  if (Sonar::TransmitterList const* list = echoStatus_->streamTransmitterMap(key)) {
    transmitterSm_.is(key, key, Rix::Ptr<Sonar::TransmitterList const>(list), probeStreamTable_);
  } else {
    transmitterSm_.del(key);
  }
}

void ZebEchoEgressStreamExporterSm::handleStream() {
  if (!initialized()) return;
  Rix::sweepKeys(echoStatus_->streamTransmitterMapIterator(),
                 [this](Sonar::EgressStream const& key) { handleStream(key); });
}

}  // namespace Zeb
