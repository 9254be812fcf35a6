// One probe on one switch: owns one ZebPublisherClientProbeGroupSm, that is one order, for each of the switch's groups
// through which it takes part. ZebPublisherClientSm owns it, for as long as there is such a group.
#pragma once

#include "config/ZebPublisherClientProbeGroupSm.h"

namespace Zeb {

class ZebPublisherClientProbeSm : public Rix::Reactor<ZebPublisherClientProbeSm> {
 public:
  // `groupList` holds the switch's groups in this probe. Every one of them has to be reported by the switch, which has
  // to stand in `status`. Nothing may be null.
  ZebPublisherClientProbeSm(Fabric::SystemId const& systemId, Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                            Rix::Ptr<ZebProbeGroupList const> const& groupList, Rix::Ptr<ZebStatus const> const& status,
                            Rix::Ptr<ZebSonarConfigV1> const& waveConfig);

  template <class F>
  void rixParts(F&& f) {
    f(groupList_);
    f(groupSm_);
  }
  auto rixParameters() const {
    return std::tuple(systemId_, probeConfig_, Rix::Ptr<ZebProbeGroupList const>(groupList_.notifier()), status_,
                      waveConfig_);
  }
  static constexpr std::array rixParameterNames{"systemId", "probeConfig", "groupList", "status", "waveConfig"};
  void doCleanup();

  // By the peer group's name, not by that of the switch's own group.
  ZebPublisherClientProbeGroupSm* groupSm(Rix::Name const& peer) const { return groupSm_.find(peer); }
  U32 groupSms() const { return groupSm_.size(); }
  // Other arguments than those that it was made with: NameInUseException.
  ZebPublisherClientProbeGroupSm* groupSmIs(Fabric::SystemId const& systemId,
                                            Rix::Ptr<ReachabilityGroup const> const& group,
                                            Rix::Ptr<ClientReachabilityGroup const> const& clientGroup,
                                            Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                            Rix::Ptr<ZebStatus const> const& status,
                                            Rix::Ptr<ZebSonarConfigV1> const& waveConfig) {
    return groupSm_.is(group->rixKey(), systemId, group, clientGroup, probeConfig, status, waveConfig);
  }
  void groupSmDel(Rix::Name const& peer) { groupSm_.del(peer); }

 private:
  struct RixGroupList : Rix::Watch<RixGroupList, ZebProbeGroupList const, ZebPublisherClientProbeSm> {
    using Watch::Watch;
    void onGroup(Rix::String8 const& name) override { pass(&ZebPublisherClientProbeSm::handleGroup, name); }
  };

  void handleInitialized();
  void handleGroup(Rix::String8 const& name);

  Fabric::SystemId const systemId_;
  Rix::Ptr<ZebProbeConfig const> const probeConfig_;
  Rix::Ptr<ZebStatus const> const status_;
  Rix::Ptr<ZebSonarConfigV1> const waveConfig_;
  RixGroupList groupList_{this};
  Rix::OwnedMap<Rix::Name, ZebPublisherClientProbeGroupSm> groupSm_;
};

Rix::Ptr<ZebPublisherClientProbeSm> zebPublisherClientProbeSmFactory(Fabric::SystemId const& systemId,
                                                                     Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                                                     Rix::Ptr<ZebProbeGroupList const> const& groupList,
                                                                     Rix::Ptr<ZebStatus const> const& status,
                                                                     Rix::Ptr<ZebSonarConfigV1> const& waveConfig);

}  // namespace Zeb
