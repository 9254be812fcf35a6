// One switch's part of the publisher: finds the entity that holds the switch's orders, and decides which probes concern
// the switch and through which of its groups. ZebPublisherSm owns one for each switch that reports, and passes on what
// happens in the directory of those entities. Neither makes such an entity, or takes one away.
//
// A switch takes part in a probe through a group when it reports the group, the group exists, the probe exists, and the
// probe is one of the group's. Until the switch's entity is complete nothing is recorded at all; then everything is
// looked at once, so that what happened before needs no queue.
#pragma once

#include "config/ZebPublisherClientProbeSm.h"
#include "runtime/Dir.h"

namespace Zeb {

class ZebPublisherClientSm : public Rix::Reactor<ZebPublisherClientSm> {
 public:
  // Nothing may be null.
  ZebPublisherClientSm(Rix::Ptr<ZebClient const> const& client, Rix::Ptr<ZebConfig const> const& config,
                       Rix::Ptr<ZebStatus const> const& status, Rix::Ptr<Rix::Dir> const& waveConfigDir);

  template <class F>
  void rixParts(F&& f) {
    f(client_);
    f(config_);
    f(status_);
    f(probeSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ZebClient const>(client_.notifier()), Rix::Ptr<ZebConfig const>(config_.notifier()),
                      Rix::Ptr<ZebStatus const>(status_.notifier()), waveConfigDir_);
  }
  static constexpr std::array rixParameterNames{"client", "config", "status", "waveConfigDir"};
  void doCleanup();

  // Something happened in the directory under that name. The switch's own entity is looked for, whatever the name: the
  // result is the same for a name that is another switch's, and only its lines in the trace are more.
  void handleClientEntry(Rix::Name const& name);

  // This switch's orders; null until they are found, and from then on the same object.
  ZebSonarConfigV1* waveConfig() const { return waveConfig_.get(); }
  ZebProbeGroupList* probeGroupList(Rix::Name const& probe) const { return probeGroupList_.find(probe); }
  ZebProbeGroupList* probeGroupListIs(Rix::Name const& probe) {
    return probeGroupList_.is(
        probe, [](Rix::Name const&) {}, probe);
  }
  void probeGroupListDel(Rix::Name const& probe) {
    probeGroupList_.del(probe, [](Rix::Name const&) {});
  }
  U32 probeGroupLists() const { return probeGroupList_.size(); }
  ZebPublisherClientProbeSm* probeSm(Rix::Name const& probe) const { return probeSm_.find(probe); }
  U32 probeSms() const { return probeSm_.size(); }
  // Other arguments than those that it was made with: NameInUseException.
  ZebPublisherClientProbeSm* probeSmIs(Fabric::SystemId const& systemId,
                                       Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                       Rix::Ptr<ZebProbeGroupList const> const& groupList,
                                       Rix::Ptr<ZebStatus const> const& status,
                                       Rix::Ptr<ZebSonarConfigV1> const& waveConfig) {
    return probeSm_.is(probeConfig->rixKey(), systemId, probeConfig, groupList, status, waveConfig);
  }
  void probeSmDel(Rix::Name const& probe) { probeSm_.del(probe); }

 private:
  struct RixClient : Rix::Watch<RixClient, ZebClient const, ZebPublisherClientSm> {
    using Watch::Watch;
    void onReachabilityGroup(Rix::Name const& name) override {
      pass(&ZebPublisherClientSm::handleClientReachabilityGroup, name);
    }
  };
  struct RixConfig : Rix::Watch<RixConfig, ZebConfig const, ZebPublisherClientSm> {
    using Watch::Watch;
    void onProbeConfig(Rix::Name const& name) override { pass(&ZebPublisherClientSm::handleProbe, name); }
  };
  struct RixStatus : Rix::Watch<RixStatus, ZebStatus const, ZebPublisherClientSm> {
    using Watch::Watch;
    void onGroup(Rix::Name const& name) override { pass(&ZebPublisherClientSm::handleGroup, name); }
  };

  void handleInitialized();
  void doAddWaveConfig();
  void handleProbe(Rix::Name const& name);
  void handleClientReachabilityGroup();
  void handleClientReachabilityGroup(Rix::Name const& name);
  void handleGroup();
  void handleGroup(Rix::Name const& name);
  void doAddRemoveAllProbesForGroup(Rix::Name const& group);
  void doAddRemoveProbeForItsGroups(ZebProbeConfig const& probe);
  void doAddRemoveProbeForGroup(Rix::Name const& probe, Rix::Name const& group);
  Fabric::SystemId const& systemId() const { return client_->rixKey(); }

  Rix::Ptr<Rix::Dir> const waveConfigDir_;
  Rix::Ptr<ZebSonarConfigV1> waveConfig_;
  Rix::EntityMap<Rix::Name, ZebProbeGroupList> probeGroupList_;
  RixClient client_{this};
  RixConfig config_{this};
  RixStatus status_{this};
  Rix::OwnedMap<Rix::Name, ZebPublisherClientProbeSm> probeSm_;
};

Rix::Ptr<ZebPublisherClientSm> zebPublisherClientSmFactory(Rix::Ptr<ZebClient const> const& client,
                                                           Rix::Ptr<ZebConfig const> const& config,
                                                           Rix::Ptr<ZebStatus const> const& status,
                                                           Rix::Ptr<Rix::Dir> const& waveConfigDir);

}  // namespace Zeb
