// Two orders of copying: at construction the interface goes first, at a replacement the stats do.
#include "status/ZebWaveEgressRecordSm.h"

#include "status/Mirror.h"

namespace Zeb {

ZebWaveEgressRecordSm::ZebWaveEgressRecordSm(Rix::Ptr<ClientProbeStreamEgressRecord const> const& clientEgressRecord,
                                             Rix::Ptr<ProbeStreamEgressRecord> const& zebEgressRecord, U8 ttl)
    : zebEgressRecord_(zebEgressRecord), ttl_(ttl) {
  clientEgressRecord_.notifierIs(clientEgressRecord);
  handleEgressIntf();
  handleEgressStats();
}

void ZebWaveEgressRecordSm::clientEgressRecordIs(Rix::Ptr<ClientProbeStreamEgressRecord const> const& record) {
  if (record == clientEgressRecord_.notifier()) return;
  clientEgressRecord_.notifierIs(record);
  handleEgressStats();
  handleEgressIntf();
}

void ZebWaveEgressRecordSm::handleEgressStats() {
  clientEgressStats_.notifierIs(clientEgressRecord_ ? clientEgressRecord_->egressStats() : nullptr);
  handleNumProbesTx();
  handleEpoch();
}

void ZebWaveEgressRecordSm::handleEgressIntf() {
  mirrorAttribute(clientEgressRecord_.notifier(), &ClientProbeStreamEgressRecord::egressIntf, zebEgressRecord_.get(),
                  &ProbeStreamEgressRecord::egressIntfIs);
}

void ZebWaveEgressRecordSm::handleNumProbesTx() {
  mirrorAttribute(clientEgressStats_.notifier(), &ProbeStreamEgressStats::numProbesTx, zebEgressStats(),
                  &ProbeStreamEgressStats::numProbesTxIs);
}

void ZebWaveEgressRecordSm::handleEpoch() {
  mirrorAttribute(clientEgressStats_.notifier(), &ProbeStreamEgressStats::epoch, zebEgressStats(),
                  &ProbeStreamEgressStats::epochIs);
}

ProbeStreamEgressStats* ZebWaveEgressRecordSm::zebEgressStats() {
  return zebEgressRecord_ ? zebEgressRecord_->egressStats() : nullptr;
}

}  // namespace Zeb
