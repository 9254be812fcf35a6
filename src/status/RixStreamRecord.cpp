// The collector's decisions, all of them: which central records exist, and what they mean. Central stream records are
// made here and nowhere else, and removed by nobody.
#include "status/ZebClientWaveStatusSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebClientWaveStatusSm");
}

using RixStreamRecord = ZebClientWaveStatusSm::RixStreamRecord;

RixStreamRecord::RixStreamRecord(Rix::Ptr<ClientProbeStreamRecord const> const& clientRecord,
                                 ZebClientWaveStatusSm* parent)
    : zebClientWaveStatusSm_(parent) {
  clientRecord_.notifierIs(clientRecord);
  handleInit();
}

void RixStreamRecord::handleInit() {
  RIX_TRACE(traceHandle, 8, "client=" << systemId() << " srcIp=" << rixKey().srcIp() << " dstIp=" << rixKey().dstIp());
  initializedIs(true);
  zebStreamRecord_ = zebClientWaveStatusSm_->zebStreamTable().streamRecordIs(rixKey());
  RIX_ASSERT(zebStreamRecord());
  Rix::sweepKeys(clientRecord_->egressRecordIterator(), [this](U8 ttl) { handleEgressRecord(ttl); });
  Rix::sweepKeys(clientRecord_->ingressRecordIterator(), [this](U8 ttl) { handleIngressRecord(ttl); });
  handleProbeName();
}

void RixStreamRecord::handleEgressRecord(U8 ttl) {
  if (!initialized()) return;
  if (ClientProbeStreamEgressRecord const* const clientEgressRecord = clientRecord_->egressRecord(ttl)) {
    RIX_TRACE(traceHandle, 5, rixKey() << " egress record added, ttl=" << U32{ttl});
    doHandleEgressRecordPresent(*clientEgressRecord);
  } else {
    RIX_TRACE(traceHandle, 5, rixKey() << " egress record deleted, ttl=" << U32{ttl});
    egressRecordSm_.del(ttl);
    zebStreamRecord_->egressRecordDel(ttl);
  }
  // Whether the TTL is sent decides what becomes of this switch's own ingress record for it.
  handleIngressRecord(ttl);
}

void RixStreamRecord::doHandleEgressRecordPresent(ClientProbeStreamEgressRecord const& clientRecord) {
  U8 const ttl = clientRecord.ttl();
  Rix::Ptr<ClientProbeStreamEgressRecord const> const client = &clientRecord;
  Rix::Ptr<ProbeStreamEgressRecord> const egressRecord = zebStreamRecord_->egressRecordIs(ttl, rixKey());
  egressRecord->egressStatsIs();
  egressRecord->egressSwitchIdIs(systemId());
  doSetStreamSourceId();
  egressRecord->egressIntfIs(client->egressIntf());
  if (!egressRecordSm(ttl)) egressRecordSm_.is(ttl, client, egressRecord, ttl);
}

void RixStreamRecord::handleIngressRecord(U8 ttl) {
  if (!initialized()) return;
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebClientWaveStatusSm::RixStreamRecord::handleIngressRecord(U8)" << ' ' << rixKey());
  if (ClientProbeStreamIngressRecord const* const clientIngressRecord = clientRecord_->ingressRecord(ttl)) {
    doHandleIngressRecordPresent(*clientIngressRecord);
  } else {
    doHandleIngressRecordAbsent(ttl);
  }
}

void RixStreamRecord::doHandleIngressRecordPresent(ClientProbeStreamIngressRecord const& clientRecord) {
  U8 const ttl = clientRecord.ttl();
  RIX_TRACE(traceHandle, 5, "ingress record added. switchId=" << systemId() << "ttl=" << U32{ttl});
  Rix::Ptr<ClientProbeStreamIngressRecord const> const client = &clientRecord;
  Rix::Ptr<ProbeStreamIngressRecord> const ingressRecord = zebStreamRecord_->ingressRecordIs(ttl);
  Rix::Ptr<ProbeStreamSwitchIngressRecord> const switchRecord = ingressRecord->switchIngressRecordIs(systemId());
  switchRecord->deletedIs(false);
  // The stats stand, at zero if they are new, before the mirror copies: whoever watches them sees the copying as
  // counting.
  switchRecord->ingressStatsIs();
  doMaybeSetStreamDestinationId();
  ingressRecordSm_.is(ttl, client, ingressRecord, switchRecord, ttl);
}

void RixStreamRecord::doHandleIngressRecordAbsent(U8 ttl) {
  Rix::Ptr<ProbeStreamIngressRecord> const ingressRecord = zebStreamRecord_->ingressRecord(ttl);
  if (!ingressRecord) return;
  Rix::Ptr<ProbeStreamSwitchIngressRecord> const switchRecord = ingressRecord->switchIngressRecord(systemId());
  if (!switchRecord) {
    RIX_TRACE(traceHandle, 5, "no switch ingress record. switchId=" << systemId() << "ttl=" << U32{ttl});
    return;
  }
  if (zebStreamRecord_->egressRecord(ttl)) {
    RIX_TRACE(traceHandle, 5, "switch ingress record marked deleted. switchId=" << systemId() << "ttl=" << U32{ttl});
    switchRecord->deletedIs(true);
  } else {
    RIX_TRACE(traceHandle, 5, "switch ingress record deleted. switchId=" << systemId() << "ttl=" << U32{ttl});
    ingressRecord->switchIngressRecordDel(systemId());
    if (ingressRecord->switchIngressRecords() == 0) {
      RIX_TRACE(traceHandle, 5, "ingress record deleted. ttl=" << U32{ttl});
      zebStreamRecord_->ingressRecordDel(ttl);
    }
  }
  ingressRecordSm_.del(ttl);
}

void RixStreamRecord::doSetStreamSourceId() {
  zebStreamRecord_->sourceIdIs(systemId());
}

void RixStreamRecord::doMaybeSetStreamDestinationId() {
  ZebClient const* const client = zebClientWaveStatusSm_->zebStatus().client(systemId());
  if (!client) return;
  for (auto const& group : client->reachabilityGroupIterator()) {
    for (auto const& interface : group->interfaceIpIterator()) {
      if (interface.value != rixKey().dstIp()) continue;
      RIX_TRACE(traceHandle, 5, "destinationId: " << systemId() << " stream: " << rixKey());
      zebStreamRecord_->destinationIdIs(systemId());
      return;
    }
  }
}

void RixStreamRecord::handleProbeName() {
  Rix::sweepKeys(clientRecord_->probeNameIterator(), [this](Rix::Name const& name) { handleProbeName(name); });
}

void RixStreamRecord::handleProbeName(Rix::Name const& name) {
  // The names that stand when the record is attached come once the central record is there.
  if (!initialized()) return;
  if (clientRecord_->probeName(name)) {
    RIX_TRACE(traceHandle, 5, "probeName: " << name << " stream: " << rixKey());
    zebStreamRecord_->probeNameIs(name, true);
  } else {
    zebStreamRecord_->probeNameDel(name);
  }
}

void RixStreamRecord::doCleanup() {
  RIX_TRACE(traceHandle, 5,
            "Stream deleted for " << rixKey().srcIp() << "<->" << rixKey().dstIp() << " at " << systemId());
}

}  // namespace Zeb
