// The watchers only ask for the path; doComputePath() draws it, hop by hop.
#include "analysis/ZebStreamEventPathSm.h"

#include "model/StreamText.h"
#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebStreamEventPathSm");
}

using EgressRecord = ZebStreamEventPathSm::RixEgressRecord;
using TtlRecord = ZebStreamEventPathSm::RixZebIngressRecord;
using SwitchRecord = TtlRecord::RixIngressRecord;

EgressRecord::RixEgressRecord(Rix::Ptr<ProbeStreamEgressRecord const> const& record, ZebStreamEventPathSm* owner)
    : owner_(owner) {
  record_.notifierIs(record);
  handleRecord();
}

void EgressRecord::handleRecord() {
  owner_->handleRecord();
}

SwitchRecord::RixIngressRecord(Rix::Ptr<ProbeStreamSwitchIngressRecord const> const& record,
                               ZebStreamEventPathSm* owner)
    : owner_(owner) {
  record_.notifierIs(record);
  handleRecord();
}

void SwitchRecord::handleRecord() {
  owner_->handleRecord();
}

TtlRecord::RixZebIngressRecord(Rix::Ptr<ProbeStreamIngressRecord const> const& record, ZebStreamEventPathSm* owner)
    : owner_(owner) {
  record_.notifierIs(record);
}

void TtlRecord::handleSwitchIngressRecord(Fabric::SystemId const& switchId) {
  if (ProbeStreamSwitchIngressRecord const* record = record_->switchIngressRecord(switchId)) {
    ingressRecord_.is(switchId, Rix::Ptr<ProbeStreamSwitchIngressRecord const>(record), owner_);
  } else {
    ingressRecord_.del(switchId);
  }
}

ZebStreamEventPathSm::ZebStreamEventPathSm(Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
                                           Rix::Ptr<ZebStatus> const& zebStatus)
    : zebStatus_(zebStatus) {
  streamRecord_.notifierIs(streamRecord);
  handleInitialized();
}

ProbeLossStatus& ZebStreamEventPathSm::lossStatus() const {
  ProbeLossStatus* lossStatus = zebStatus_->lossStatus();
  RIX_ASSERT(lossStatus != nullptr);
  return *lossStatus;
}

void ZebStreamEventPathSm::handleInitialized() {
  initializedIs(true);
  path_ = lossStatus().lossEventStreamPathIs(streamRecord_->streamId());
  doComputePath();
}

void ZebStreamEventPathSm::handleEgressRecord(U8 ttl) {
  if (ProbeStreamEgressRecord const* record = streamRecord_->egressRecord(ttl)) {
    egressRecord_.is(ttl, Rix::Ptr<ProbeStreamEgressRecord const>(record), this);
  } else {
    egressRecord_.del(ttl);
  }
}

void ZebStreamEventPathSm::handleIngressRecord(U8 ttl) {
  if (ProbeStreamIngressRecord const* record = streamRecord_->ingressRecord(ttl)) {
    zebIngressRecord_.is(ttl, Rix::Ptr<ProbeStreamIngressRecord const>(record), this);
  } else {
    zebIngressRecord_.del(ttl);
  }
}

void ZebStreamEventPathSm::handleRecord() {
  if (initialized()) doComputePath();
}

void ZebStreamEventPathSm::doComputePath() {
  ProbeStreamRecord const& streamRecord = *streamRecord_;
  RIX_TRACE(
      traceHandle, 8,
      "void Zeb::ZebStreamEventPathSm::doComputePath() streamId: " << probeStreamStringValue(streamRecord.streamId()));
  ZebStatus const& status = *zebStatus_;
  ProbeStreamEgressRecord const* egressRecord = streamRecord.egressRecord(1);
  if (!egressRecord) return;
  ZebClient const* source = status.client(egressRecord->egressSwitchId());
  if (!source) return;
  path_->deviceByHopDistanceIs(0, {streamRecord.streamId().srcIp(), source->hostname(), egressRecord->egressIntf()});
  for (auto const& ingressRecord : streamRecord.ingressRecordIterator()) {
    auto const& active = ingressRecord->currentActiveIngressRecord();
    if (!active) continue;
    ZebClient const* client = status.client(active->switchId());
    if (!client) continue;
    path_->deviceByHopDistanceIs(ingressRecord->ttl(),
                                 {active->ingressIntfIp(), client->hostname(), active->ingressIntf()});
  }
}

void ZebStreamEventPathSm::doCleanup() {
  lossStatus().lossEventStreamPathDel(streamRecord_->streamId());
}

Rix::Ptr<ZebStreamEventPathSm> zebStreamEventPathSmFactory(Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
                                                           Rix::Ptr<ZebStatus> const& zebStatus) {
  return Rix::make<ZebStreamEventPathSm>(streamRecord, zebStatus);
}

}  // namespace Zeb
