// One order: writes the transmitter of one direction of one probe on one switch, and keeps it at what configuration
// and reports say. ZebPublisherClientProbeSm owns one for each of the switch's groups in the probe, keyed by the peer
// group. The transmitter lives as long as this reactor; it is filled from empty, and enabled last.
#pragma once

#include "config/ZebPublisherClientProbeGroupMemberSm.h"
#include "model/gen/Status.h"
#include "runtime/OwnedMap.h"

namespace Zeb {

class ZebPublisherClientProbeGroupSm : public Rix::Reactor<ZebPublisherClientProbeGroupSm> {
 public:
  // `systemId` is the switch that gets the order, `group` the peer group, `clientGroup` the switch's entry for its own
  // group, and `waveConfig` where its orders stand. Nothing may be null. Every member of `group` has to stand in
  // `status` and to report that group. A configured distance is below 255.
  ZebPublisherClientProbeGroupSm(Fabric::SystemId const& systemId, Rix::Ptr<ReachabilityGroup const> const& group,
                                 Rix::Ptr<ClientReachabilityGroup const> const& clientGroup,
                                 Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                 Rix::Ptr<ZebStatus const> const& status, Rix::Ptr<ZebSonarConfigV1> const& waveConfig);

  template <class F>
  void rixParts(F&& f) {
    f(group_);
    f(clientGroup_);
    f(probeConfig_);
    f(memberSm_);
  }
  auto rixParameters() const {
    return std::tuple(systemId_, Rix::Ptr<ReachabilityGroup const>(group_.notifier()),
                      Rix::Ptr<ClientReachabilityGroup const>(clientGroup_.notifier()),
                      Rix::Ptr<ZebProbeConfig const>(probeConfig_.notifier()), status_, waveConfig_);
  }
  static constexpr std::array rixParameterNames{"systemId",    "group",  "clientGroup",
                                                "probeConfig", "status", "waveConfig"};
  Rix::Name const& rixKey() const { return group_->rixKey(); }
  void doCleanup();

  Rix::String8 const& transmitterName() const { return transmitterName_; }
  ZebPublisherClientProbeGroupMemberSm* memberSm(Fabric::SystemId const& memberId) const {
    return memberSm_.find(memberId);
  }
  U32 memberSms() const { return memberSm_.size(); }
  ZebPublisherClientProbeGroupMemberSm* memberSmIs(Fabric::SystemId const& memberId, Fabric::SystemId const& systemId,
                                                   Rix::Ptr<ZebTransmitterConfig> const& transmitter,
                                                   Rix::Ptr<ClientReachabilityGroup const> const& clientGroup) {
    return memberSm_.is(memberId, memberId, systemId, transmitter, clientGroup);
  }
  void memberSmDel(Fabric::SystemId const& memberId) { memberSm_.del(memberId); }

 private:
  struct RixGroup : Rix::Watch<RixGroup, ReachabilityGroup const, ZebPublisherClientProbeGroupSm> {
    using Watch::Watch;
    void onMember(Fabric::SystemId const& id) override { pass(&ZebPublisherClientProbeGroupSm::handleGroupMember, id); }
  };
  struct RixClientGroup : Rix::Watch<RixClientGroup, ClientReachabilityGroup const, ZebPublisherClientProbeGroupSm> {
    using Watch::Watch;
    void onInterfaceIp(Rix::String8 const& intfName) override {
      pass(&ZebPublisherClientProbeGroupSm::handleIntfIp, intfName);
    }
  };
  struct RixProbeConfig : Rix::Watch<RixProbeConfig, ZebProbeConfig const, ZebPublisherClientProbeGroupSm> {
    using Watch::Watch;
    void onRate() override { pass(&ZebPublisherClientProbeGroupSm::handleRate); }
    void onDistance() override { pass(&ZebPublisherClientProbeGroupSm::handleDistance); }
    void onPort(U16 port) override { pass<U16>(&ZebPublisherClientProbeGroupSm::handlePort, port); }
    void onEnabled() override { pass(&ZebPublisherClientProbeGroupSm::handleEnabled); }
  };

  // The keyed handlers do nothing until the transmitter stands: attaching runs them before that.
  void handleInitialized();
  void handleIntfIp(Rix::String8 const& intfName);
  void handleGroupMember(Fabric::SystemId const& memberId);
  void handleRate();
  void handleDistance();
  void handlePort(U16 port);
  void handleEnabled();
  void doSyncHopsRate();
  Rix::Ptr<ZebTransmitterConfig> transmitter() const { return waveConfig_->transmitter(transmitterName_); }

  Fabric::SystemId const systemId_;
  Rix::Ptr<ZebStatus const> const status_;
  Rix::Ptr<ZebSonarConfigV1> const waveConfig_;
  Rix::Name transmitterName_;
  RixGroup group_{this};
  RixClientGroup clientGroup_{this};
  RixProbeConfig probeConfig_{this};
  Rix::OwnedSet<Fabric::SystemId, ZebPublisherClientProbeGroupMemberSm> memberSm_;
};

Rix::Ptr<ZebPublisherClientProbeGroupSm> zebPublisherClientProbeGroupSmFactory(
    Fabric::SystemId const& systemId, Rix::Ptr<ReachabilityGroup const> const& group,
    Rix::Ptr<ClientReachabilityGroup const> const& clientGroup, Rix::Ptr<ZebProbeConfig const> const& probeConfig,
    Rix::Ptr<ZebStatus const> const& status, Rix::Ptr<ZebSonarConfigV1> const& waveConfig);

}  // namespace Zeb
