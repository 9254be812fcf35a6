// The reporter: turns what the operator set on this switch into what the centre can use. The operator names groups and
// their source interfaces; the report has the same groups, each interface's present address, and the host name.
//
// It reads the operator's configuration, the switch's IP state and its network identity, and is the only writer of the
// reported configuration. The client agent's root machine owns it. It does not look at `enabled`: a switch that is
// disabled later goes on reporting.
#pragma once

#include "config/SourceIntfSm.h"
#include "config/ZebClientConfigSourceIntfSm.h"

namespace Zeb {

class ZebClientConfigSm : public Rix::Reactor<ZebClientConfigSm> {
 public:
  class RixGroup;

  // `config` is the operator's, `mountedConfig` the reported one. None of the arguments may be null.
  ZebClientConfigSm(Rix::Ptr<ClientConfig const> const& config, Rix::Ptr<System::NetConfig const> const& netConfig,
                    Rix::Ptr<ClientConfig> const& mountedConfig, Rix::Ptr<Ip::Status const> const& ipStatus);
  ~ZebClientConfigSm() override;

  template <class F>
  void rixParts(F&& f);
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ClientConfig const>(config_.notifier()),
                      Rix::Ptr<System::NetConfig const>(netConfig_.notifier()), mountedConfig_, ipStatus_);
  }
  static constexpr std::array rixParameterNames{"config", "netConfig", "mountedConfig", "ipStatus"};

  Rix::Ptr<ClientConfig> const& mountedConfig() const { return mountedConfig_; }
  Rix::Ptr<Ip::Status const> const& ipStatus() const { return ipStatus_; }

  RixGroup* group(Rix::Name const& name) const { return group_.find(name); }
  U32 groups() const { return group_.size(); }
  // The reactor of that group of the operator's. Null: RangeException. Another group of the same name:
  // NameInUseException.
  RixGroup* groupIs(Rix::Ptr<ClientReachabilityGroup const> const& group);
  void groupDel(Rix::Name const& name);

 private:
  struct RixConfig : Rix::Watch<RixConfig, ClientConfig const, ZebClientConfigSm> {
    using Watch::Watch;
    void onGroup(Rix::Name const& name) override { pass(&ZebClientConfigSm::handleGroup, name); }
  };
  struct RixNetConfig : Rix::Watch<RixNetConfig, System::NetConfig const, ZebClientConfigSm> {
    using Watch::Watch;
    void onHostname() override { pass(&ZebClientConfigSm::handleHostname); }
  };

  void handleInitialized();
  void handleHostname();
  void handleGroup(Rix::Name const& name);

  Rix::Ptr<ClientConfig> const mountedConfig_;
  Rix::Ptr<Ip::Status const> const ipStatus_;
  RixConfig config_{this};
  RixNetConfig netConfig_{this};
  Rix::OwnedMap<Rix::Name, RixGroup> group_;
};

// One group of the operator's: registers its interfaces with the platform and keeps the group in the report.
class ZebClientConfigSm::RixGroup : public Rix::Reactor<RixGroup> {
 public:
  RixGroup(Rix::Ptr<ClientReachabilityGroup const> const& group, ZebClientConfigSm* clientConfigSm);

  template <class F>
  void rixParts(F&& f) {
    f(group_);
    f(sourceIntfSm_);
    f(zebSourceIntfSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ClientReachabilityGroup const>(group_.notifier()), clientConfigSm_);
  }
  static constexpr std::array rixParameterNames{"group", "clientConfigSm"};
  // The interfaces are registered when the notifications are first turned on.
  void hasNotificationActiveIs(bool active) override;
  // The group leaves the report in one step, with its interfaces.
  void doCleanup();

  // The interfaces registered for this group.
  Rix::Ptr<Ip::SourceIntf::SourceIntfDir> const& sourceIntfDir() const { return sourceIntfDir_; }
  ZebClientConfigSourceIntfSm* zebSourceIntfSm(Netkit::IntfId intf) const { return zebSourceIntfSm_.find(intf); }
  U32 zebSourceIntfSms() const { return zebSourceIntfSm_.size(); }

 private:
  struct RixReachabilityGroup : Rix::Watch<RixReachabilityGroup, ClientReachabilityGroup const, RixGroup> {
    using Watch::Watch;
    void onInterfaceIp(Rix::String8 const& intfName) override {
      pass<Rix::String8 const&>(&RixGroup::handleInterface, intfName);
    }
  };

  void handleInitialized();
  void handleInterface();
  void handleInterface(Rix::String8 const& intfName);
  void doUnregisterStaleSourceIntf();

  ZebClientConfigSm* const clientConfigSm_;
  Rix::Ptr<ClientConfig> const mountedConfig_;
  Rix::Ptr<Ip::SourceIntf::SourceIntfDir> sourceIntfDir_;
  RixReachabilityGroup group_{this};
  Rix::Owned<Ip::SourceIntf::SourceIntfSm> sourceIntfSm_;
  Rix::OwnedMap<Netkit::IntfId, ZebClientConfigSourceIntfSm> zebSourceIntfSm_;
};

template <class F>
void ZebClientConfigSm::rixParts(F&& f) {
  f(config_);
  f(netConfig_);
  f(group_);
}

Rix::Ptr<ZebClientConfigSm> zebClientConfigSmFactory(Rix::Ptr<ClientConfig const> const& config,
                                                     Rix::Ptr<System::NetConfig const> const& netConfig,
                                                     Rix::Ptr<ClientConfig> const& mountedConfig,
                                                     Rix::Ptr<Ip::Status const> const& ipStatus);

}  // namespace Zeb
