// Keeps one switch's central ingress record equal to that switch's client ingress record, attribute by attribute, while
// the collector keeps it alive. It decides nothing, and its end writes nothing: so the counters of a switch record that
// is marked deleted stand still.
#pragma once

#include "model/gen/ProbeStream.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebWaveIngressRecordSm : public Rix::Reactor<ZebWaveIngressRecordSm> {
 public:
  // It writes to the switch's record alone; the TTL's record is what the mirror is known by.
  ZebWaveIngressRecordSm(Rix::Ptr<ClientProbeStreamIngressRecord const> const& clientIngressRecord,
                         Rix::Ptr<ProbeStreamIngressRecord> const& zebIngressRecord,
                         Rix::Ptr<ProbeStreamSwitchIngressRecord> const& zebSwitchIngressRecord, U8 ttl);

  template <class F>
  void rixParts(F&& f) {
    f(clientIngressRecord_);
    f(clientIngressStats_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ClientProbeStreamIngressRecord const>(clientIngressRecord_.notifier()),
                      zebIngressRecord_, zebSwitchIngressRecord_, ttl_);
  }
  static constexpr std::array rixParameterNames{"clientIngressRecord", "zebIngressRecord", "zebSwitchIngressRecord",
                                                "ttl"};

  U8 ttl() const { return ttl_; }
  U8 rixKey() const { return ttl_; }
  // Follows another client record, or none, and copies all of it.
  void clientIngressRecordIs(Rix::Ptr<ClientProbeStreamIngressRecord const> const& record);

 private:
  struct RixClientIngressRecord
      : Rix::Watch<RixClientIngressRecord, ClientProbeStreamIngressRecord const, ZebWaveIngressRecordSm> {
    using Watch::Watch;
    void onIngressStats() override { pass(&ZebWaveIngressRecordSm::handleIngressStats); }
    void onIngressIntf() override { pass(&ZebWaveIngressRecordSm::handleIngressIntf); }
    void onIngressIntfIp() override { pass(&ZebWaveIngressRecordSm::handleIngressIntfIp); }
    void onDormant() override { pass(&ZebWaveIngressRecordSm::handleDormant); }
  };
  struct RixClientIngressStats
      : Rix::Watch<RixClientIngressStats, ProbeStreamIngressStats const, ZebWaveIngressRecordSm> {
    using Watch::Watch;
    void onEpoch() override { pass(&ZebWaveIngressRecordSm::handleEpoch); }
    void onIngressTtl() override { pass(&ZebWaveIngressRecordSm::handleIngressTtl); }
    void onCurrentSequenceNumber() override { pass(&ZebWaveIngressRecordSm::handleCurrentSequenceNumber); }
    void onLastSequenceNumber() override { pass(&ZebWaveIngressRecordSm::handleLastSequenceNumber); }
    void onProbesReceived() override { pass(&ZebWaveIngressRecordSm::handleProbesReceived); }
    void onProbesLost() override { pass(&ZebWaveIngressRecordSm::handleProbesLost); }
    void onProbesMisordered() override { pass(&ZebWaveIngressRecordSm::handleProbesMisordered); }
    void onProbesDuplicated() override { pass(&ZebWaveIngressRecordSm::handleProbesDuplicated); }
    void rixPrefetch(unsigned step) override {
      ProbeStreamSwitchIngressRecord const* const target = owner().zebSwitchIngressRecord_.get();
      if (step == 0) {
        Rix::prefetch(target);
      } else if (target) {
        Rix::Entity::rixPrefetch(target->ingressStats(), step - 1);
      }
    }
  };

  void handleIngressStats();
  void handleIngressIntf();
  void handleIngressIntfIp();
  void handleDormant();
  void handleEpoch();
  void handleIngressTtl();
  void handleCurrentSequenceNumber();
  void handleLastSequenceNumber();
  void handleProbesReceived();
  void handleProbesLost();
  void handleProbesMisordered();
  void handleProbesDuplicated();

  template <class Read, class Written>
  void mirrorRecord(Read (ClientProbeStreamIngressRecord::*read)() const,
                    void (ProbeStreamSwitchIngressRecord::*write)(Written));
  template <class Read, class Written>
  void mirrorStats(Read (ProbeStreamIngressStats::*read)() const, void (ProbeStreamIngressStats::*write)(Written));

  Rix::Ptr<ProbeStreamIngressRecord> const zebIngressRecord_;
  Rix::Ptr<ProbeStreamSwitchIngressRecord> const zebSwitchIngressRecord_;
  U8 const ttl_;
  RixClientIngressRecord clientIngressRecord_{this};
  RixClientIngressStats clientIngressStats_{this};
};

}  // namespace Zeb
