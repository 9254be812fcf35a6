// One row's way into the client table, and out of it.
#include "status/ZebEchoIngressStreamExporterSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {

Rix::TraceHandle traceHandle("ZebEchoIngressStreamExporterSm");

// Each of these is told on its own, in this order: the sequence numbers before the counters that they explain.
void copyStats(Sonar::IngressStreamStatisticsTableEntry const& row, ProbeStreamIngressStats& stats) {
  stats.epochIs(row.epoch);
  stats.ingressTtlIs(row.key.ttl);
  stats.currentSequenceNumberIs(row.currentSequenceNumber);
  stats.lastSequenceNumberIs(row.lastSequenceNumber);
  stats.probesReceivedIs(row.probesReceived);
  stats.probesLostIs(row.probesLost);
  stats.probesMisorderedIs(row.probesMisordered);
  stats.probesDuplicatedIs(row.probesDuplicated);
}

}  // namespace

ZebEchoIngressStreamExporterSm::ZebEchoIngressStreamExporterSm(
    Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus, Rix::Ptr<ClientProbeStreamTable> const& probeStreamTable,
    Rix::Ptr<Ip::Status const> const& ipStatus)
    : ZebEchoStreamExporter(probeStreamTable), ipStatus_(ipStatus) {
  echoLocalStatus_.notifierIs(echoLocalStatus);
  handleInitialized();
}

void ZebEchoIngressStreamExporterSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebEchoIngressStreamExporterSm::handleInitialized()");
  standingRowsMark(echoLocalStatus_->ingressStreamStatisticsTable());
}

void ZebEchoIngressStreamExporterSm::doProcessIngressStreamEntry(Sonar::IngressStream const& key) {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebEchoIngressStreamExporterSm::doProcessIngressStreamEntry(Sonar::IngressStream)"
                << " key=" << key);
  ProbeStreamId const id = egressStreamToStreamId(key);
  Sonar::IngressStreamStatisticsTableEntry const row =
      Sonar::guardedRow(echoLocalStatus_->ingressStreamStatisticsTable(), key);
  if (row.key != key) {
    doDeleteIngressRecord(key, id);
    return;
  }
  Rix::Ptr<ClientProbeStreamRecord> record = probeStreamTable_->streamRecord(id);
  if (!record) {
    RIX_TRACE(traceHandle, 5, "ingress stream entry added for " << key);
    record = probeStreamTable_->streamRecordIs(id);
  }
  Rix::Ptr<ClientProbeStreamIngressRecord> ingress = record->ingressRecord(key.ttl);
  if (!ingress) {
    RIX_TRACE(traceHandle, 5, "ingress record added for " << key << " ttl:" << U32{key.ttl});
    ingress = record->ingressRecordIs(key.ttl);
    ingress->ingressIntfIs(key.ingressIntf);
    ingress->ingressStatsIs();
  }
  if (Ip::IntfStatus const* intf = ipStatus_->intfStatus(key.ingressIntf)) ingress->ingressIntfIpIs(intf->address());
  if (!ingress->ingressStats()) ingress->ingressStatsIs();
  copyStats(row, *ingress->ingressStats());
  ingress->dormantIs(row.dormant);
}

void ZebEchoIngressStreamExporterSm::doDeleteIngressRecord(Sonar::IngressStream const& key, ProbeStreamId const& id) {
  RIX_TRACE(traceHandle, 5, "ingress stream entry deleted for " << key.stringValue());
  Rix::Ptr<ClientProbeStreamRecord> const streamRecord = probeStreamTable_->streamRecord(id);
  // A row that came and went between two runs, or that shared its record with one that went before it.
  if (!streamRecord) return;
  streamRecord->ingressRecordDel(key.ttl);
  if (streamRecord->ingressRecords() != 0) return;
  RIX_ASSERT(streamRecord->egressRecords() == 0 && "Both egress and ingress records present for the stream", key);
  probeStreamTable_->streamRecordDel(id);
}

}  // namespace Zeb
