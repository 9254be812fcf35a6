// Keeps one central egress record equal to one client egress record, attribute by attribute, while the collector keeps
// it alive. It decides nothing, and its end writes nothing.
#pragma once

#include "model/gen/ProbeStream.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebWaveEgressRecordSm : public Rix::Reactor<ZebWaveEgressRecordSm> {
 public:
  ZebWaveEgressRecordSm(Rix::Ptr<ClientProbeStreamEgressRecord const> const& clientEgressRecord,
                        Rix::Ptr<ProbeStreamEgressRecord> const& zebEgressRecord, U8 ttl);

  template <class F>
  void rixParts(F&& f) {
    f(clientEgressRecord_);
    f(clientEgressStats_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ClientProbeStreamEgressRecord const>(clientEgressRecord_.notifier()), zebEgressRecord_,
                      ttl_);
  }
  static constexpr std::array rixParameterNames{"clientEgressRecord", "zebEgressRecord", "ttl"};

  U8 ttl() const { return ttl_; }
  U8 rixKey() const { return ttl_; }
  // Follows another client record, or none, and copies all of it.
  void clientEgressRecordIs(Rix::Ptr<ClientProbeStreamEgressRecord const> const& record);

 private:
  struct RixClientEgressRecord
      : Rix::Watch<RixClientEgressRecord, ClientProbeStreamEgressRecord const, ZebWaveEgressRecordSm> {
    using Watch::Watch;
    void onEgressStats() override { pass(&ZebWaveEgressRecordSm::handleEgressStats); }
    void onEgressIntf() override { pass(&ZebWaveEgressRecordSm::handleEgressIntf); }
  };
  struct RixClientEgressStats : Rix::Watch<RixClientEgressStats, ProbeStreamEgressStats const, ZebWaveEgressRecordSm> {
    using Watch::Watch;
    void onNumProbesTx() override { pass(&ZebWaveEgressRecordSm::handleNumProbesTx); }
    void onEpoch() override { pass(&ZebWaveEgressRecordSm::handleEpoch); }
    void rixPrefetch(unsigned step) override {
      ProbeStreamEgressRecord const* const target = owner().zebEgressRecord_.get();
      if (step == 0) {
        Rix::prefetch(target);
      } else if (target) {
        Rix::Entity::rixPrefetch(target->egressStats(), step - 1);
      }
    }
  };

  void handleEgressStats();
  void handleEgressIntf();
  void handleNumProbesTx();
  void handleEpoch();
  ProbeStreamEgressStats* zebEgressStats();

  Rix::Ptr<ProbeStreamEgressRecord> const zebEgressRecord_;
  U8 const ttl_;
  RixClientEgressRecord clientEgressRecord_{this};
  RixClientEgressStats clientEgressStats_{this};
};

}  // namespace Zeb
