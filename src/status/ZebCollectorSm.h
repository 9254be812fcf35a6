// The collector: merges the client stream tables of all switches into the one central stream table. It holds one
// ZebClientWaveStatusSm for each switch in the directory of the switches' status; the central root machine owns it.
// A switch that leaves the directory takes nothing with it: what it reported last stays in the central table.
#pragma once

#include "runtime/Dir.h"
#include "status/ZebClientWaveStatusSm.h"

namespace Zeb {

class ZebCollectorSm : public Rix::Reactor<ZebCollectorSm> {
 public:
  ZebCollectorSm(Rix::Ptr<ZebStatus const> const& zebStatus, Rix::Ptr<Rix::Dir const> const& waveStatusDir,
                 Rix::Ptr<ProbeStreamTable> const& zebStreamTable);

  template <class F>
  void rixParts(F&& f) {
    f(waveStatusDir_);
    f(clientSm_);
  }
  auto rixParameters() const {
    return std::tuple(zebStatus_, Rix::Ptr<Rix::Dir const>(waveStatusDir_.notifier()), zebStreamTable_);
  }
  static constexpr std::array rixParameterNames{"zebStatus", "waveStatusDir", "zebStreamTable"};

  ZebClientWaveStatusSm* clientSm(Fabric::SystemId const& id) const { return clientSm_.find(id); }
  U32 clientSms() const { return clientSm_.size(); }
  ZebClientWaveStatusSm* clientSmIs(Fabric::SystemId const& systemId, Rix::Ptr<ZebStatus const> const& zebStatus,
                                    Rix::Ptr<ZebSonarStatusV1 const> const& clientWaveStatus,
                                    Rix::Ptr<ProbeStreamTable> const& zebStreamTable) {
    return clientSm_.is(systemId, systemId, zebStatus, clientWaveStatus, zebStreamTable);
  }
  void clientSmDel(Fabric::SystemId const& id) { clientSm_.del(id); }

 private:
  struct RixWaveStatusDir : Rix::Watch<RixWaveStatusDir, Rix::Dir const, ZebCollectorSm> {
    using Watch::Watch;
    void onEntityPtr(Rix::Name const& name) override { pass(&ZebCollectorSm::handleClientEntry, name); }
  };

  void handleInitialized();
  void handleClientEntry(Rix::Name const& name);

  Rix::Ptr<ZebStatus const> const zebStatus_;
  Rix::Ptr<ProbeStreamTable> const zebStreamTable_;
  RixWaveStatusDir waveStatusDir_{this};
  Rix::OwnedMap<Fabric::SystemId, ZebClientWaveStatusSm> clientSm_;
};

Rix::Ptr<ZebCollectorSm> zebCollectorSmFactory(Rix::Ptr<ZebStatus const> const& zebStatus,
                                               Rix::Ptr<Rix::Dir const> const& waveStatusDir,
                                               Rix::Ptr<ProbeStreamTable> const& zebStreamTable);

}  // namespace Zeb
