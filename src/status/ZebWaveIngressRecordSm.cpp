// Two orders of copying: at construction the record's attributes go first, at a replacement the stats do.
#include "status/ZebWaveIngressRecordSm.h"

#include "status/Mirror.h"

namespace Zeb {

using Client = ClientProbeStreamIngressRecord;
using Switch = ProbeStreamSwitchIngressRecord;
using Stats = ProbeStreamIngressStats;

ZebWaveIngressRecordSm::ZebWaveIngressRecordSm(
    Rix::Ptr<ClientProbeStreamIngressRecord const> const& clientIngressRecord,
    Rix::Ptr<ProbeStreamIngressRecord> const& zebIngressRecord,
    Rix::Ptr<ProbeStreamSwitchIngressRecord> const& zebSwitchIngressRecord, U8 ttl)
    : zebIngressRecord_(zebIngressRecord), zebSwitchIngressRecord_(zebSwitchIngressRecord), ttl_(ttl) {
  clientIngressRecord_.notifierIs(clientIngressRecord);
  handleIngressIntf();
  handleIngressIntfIp();
  handleDormant();
  handleIngressStats();
}

void ZebWaveIngressRecordSm::clientIngressRecordIs(Rix::Ptr<ClientProbeStreamIngressRecord const> const& record) {
  if (record == clientIngressRecord_.notifier()) return;
  clientIngressRecord_.notifierIs(record);
  handleIngressStats();
  handleIngressIntf();
  handleIngressIntfIp();
  handleDormant();
}

void ZebWaveIngressRecordSm::handleIngressStats() {
  clientIngressStats_.notifierIs(clientIngressRecord_ ? clientIngressRecord_->ingressStats() : nullptr);
  handleIngressTtl();
  handleEpoch();
  handleProbesReceived();
  handleProbesLost();
  handleProbesMisordered();
  handleProbesDuplicated();
  handleLastSequenceNumber();
  handleCurrentSequenceNumber();
}

template <class Read, class Written>
void ZebWaveIngressRecordSm::mirrorRecord(Read (Client::*read)() const, void (Switch::*write)(Written)) {
  mirrorAttribute(clientIngressRecord_.notifier(), read, zebSwitchIngressRecord_.get(), write);
}
template <class Read, class Written>
void ZebWaveIngressRecordSm::mirrorStats(Read (Stats::*read)() const, void (Stats::*write)(Written)) {
  mirrorAttribute(clientIngressStats_.notifier(), read,
                  zebSwitchIngressRecord_ ? zebSwitchIngressRecord_->ingressStats() : nullptr, write);
}

void ZebWaveIngressRecordSm::handleIngressIntf() {
  mirrorRecord(&Client::ingressIntf, &Switch::ingressIntfIs);
}
void ZebWaveIngressRecordSm::handleIngressIntfIp() {
  mirrorRecord(&Client::ingressIntfIp, &Switch::ingressIntfIpIs);
}
void ZebWaveIngressRecordSm::handleDormant() {
  mirrorRecord(&Client::dormant, &Switch::dormantIs);
}

void ZebWaveIngressRecordSm::handleEpoch() {
  mirrorStats(&Stats::epoch, &Stats::epochIs);
}
void ZebWaveIngressRecordSm::handleIngressTtl() {
  mirrorStats(&Stats::ingressTtl, &Stats::ingressTtlIs);
}
void ZebWaveIngressRecordSm::handleCurrentSequenceNumber() {
  mirrorStats(&Stats::currentSequenceNumber, &Stats::currentSequenceNumberIs);
}
void ZebWaveIngressRecordSm::handleLastSequenceNumber() {
  mirrorStats(&Stats::lastSequenceNumber, &Stats::lastSequenceNumberIs);
}
void ZebWaveIngressRecordSm::handleProbesReceived() {
  mirrorStats(&Stats::probesReceived, &Stats::probesReceivedIs);
}
void ZebWaveIngressRecordSm::handleProbesLost() {
  mirrorStats(&Stats::probesLost, &Stats::probesLostIs);
}
void ZebWaveIngressRecordSm::handleProbesMisordered() {
  mirrorStats(&Stats::probesMisordered, &Stats::probesMisorderedIs);
}
void ZebWaveIngressRecordSm::handleProbesDuplicated() {
  mirrorStats(&Stats::probesDuplicated, &Stats::probesDuplicatedIs);
}

}  // namespace Zeb
