// The intake: copies what each switch reports of itself into a ZebClient of the centre's status, so that all later
// logic works on the centre's own records. One ZebConfigClientMountSm stands for each switch in the directory of
// reports, and in it one RixGroup for each group that the switch reports; the central root machine owns the whole.
// A switch that loses its connection keeps its entry in the directory, and so stays a client with its last report.
// It never judges a report: an address of zero is copied like any other.
#pragma once

#include "model/gen/Status.h"
#include "runtime/Dir.h"
#include "runtime/OwnedMap.h"

namespace Zeb {

// One switch: its host name and its groups.
class ZebConfigClientMountSm : public Rix::Reactor<ZebConfigClientMountSm> {
 public:
  // One group that the switch reports: its interfaces and their addresses.
  class RixGroup : public Rix::Reactor<RixGroup> {
   public:
    // `owner` outlives this reactor, and its switch has a client.
    RixGroup(Rix::Ptr<ClientReachabilityGroup const> const& group, ZebConfigClientMountSm* owner);

    template <class F>
    void rixParts(F&& f) {
      f(group_);
    }
    auto rixParameters() const {
      return std::tuple(Rix::Ptr<ClientReachabilityGroup const>(group_.notifier()), owner_);
    }
    static constexpr std::array rixParameterNames{"group", "zebConfigClientMountSm"};

    void handleInterface();
    void handleInterface(Rix::String8 const& intfName);
    void doCleanup();

   private:
    struct RixClientGroup : Rix::Watch<RixClientGroup, ClientReachabilityGroup const, RixGroup> {
      using Watch::Watch;
      void onInterfaceIp(Rix::String8 const& intfName) override { pass(&RixGroup::handleInterface, intfName); }
    };

    void handleInitialized();

    ZebConfigClientMountSm* const owner_;
    RixClientGroup group_{this};
  };

  // Nothing may be null.
  ZebConfigClientMountSm(Fabric::SystemId const& systemId, Rix::Ptr<ClientConfig const> const& clientConfig,
                         Rix::Ptr<ZebStatus> const& status);

  template <class F>
  void rixParts(F&& f) {
    f(clientConfig_);
    f(group_);
  }
  auto rixParameters() const {
    return std::tuple(systemId_, Rix::Ptr<ClientConfig const>(clientConfig_.notifier()), status_);
  }
  static constexpr std::array rixParameterNames{"systemId", "clientConfig", "status"};

  Fabric::SystemId const& systemId() const { return systemId_; }
  RixGroup* group(Rix::Name const& name) const { return group_.find(name); }
  U32 groups() const { return group_.size(); }
  // Null: RangeException.
  RixGroup* groupIs(Rix::Ptr<ClientReachabilityGroup const> const& group);
  void groupDel(Rix::Name const& name) { group_.del(name); }

  void handleHostname();
  void handleGroup(Rix::Name const& name);
  void doCleanup();

 private:
  struct RixClientConfig : Rix::Watch<RixClientConfig, ClientConfig const, ZebConfigClientMountSm> {
    using Watch::Watch;
    void onHostname() override { pass(&ZebConfigClientMountSm::handleHostname); }
    void onGroup(Rix::Name const& name) override { pass(&ZebConfigClientMountSm::handleGroup, name); }
  };

  void handleInitialized();

  Fabric::SystemId const systemId_;
  Rix::Ptr<ZebStatus> const status_;
  RixClientConfig clientConfig_{this};
  Rix::OwnedMap<Rix::Name, RixGroup> group_;
};

// All switches in the directory of reports.
class ZebConfigMountSm : public Rix::Reactor<ZebConfigMountSm> {
 public:
  // Neither may be null. An entry's name is the text of a switch's id. Names that are none of these texts all mean the
  // empty id, so that only one of them can have a client: a second one is a NameInUseException, and the end of either
  // takes the client away.
  ZebConfigMountSm(Rix::Ptr<Rix::Dir const> const& clientConfigDir, Rix::Ptr<ZebStatus> const& status);

  template <class F>
  void rixParts(F&& f) {
    f(clientConfigDir_);
    f(clientSm_);
  }
  auto rixParameters() const { return std::tuple(Rix::Ptr<Rix::Dir const>(clientConfigDir_.notifier()), status_); }
  static constexpr std::array rixParameterNames{"clientConfigDir", "status"};

  ZebConfigClientMountSm* clientSm(Fabric::SystemId const& id) const { return clientSm_.find(id); }
  U32 clientSms() const { return clientSm_.size(); }
  ZebConfigClientMountSm* clientSmIs(Fabric::SystemId const& id, Rix::Ptr<ClientConfig const> const& clientConfig,
                                     Rix::Ptr<ZebStatus> const& status) {
    return clientSm_.is(id, id, clientConfig, status);
  }
  void clientSmDel(Fabric::SystemId const& id) { clientSm_.del(id); }

  void handleClientConfig();
  void handleClientConfig(Rix::Name const& name);

 private:
  struct RixClientConfigDir : Rix::Watch<RixClientConfigDir, Rix::Dir const, ZebConfigMountSm> {
    using Watch::Watch;
    void onEntityPtr(Rix::Name const& name) override { pass(&ZebConfigMountSm::handleClientConfig, name); }
  };

  void handleInitialized();

  Rix::Ptr<ZebStatus> const status_;
  RixClientConfigDir clientConfigDir_{this};
  Rix::OwnedMap<Fabric::SystemId, ZebConfigClientMountSm> clientSm_;
};

Rix::Ptr<ZebConfigMountSm> zebConfigMountSmFactory(Rix::Ptr<Rix::Dir const> const& clientConfigDir,
                                                   Rix::Ptr<ZebStatus> const& status);
Rix::Ptr<ZebConfigClientMountSm> zebConfigClientMountSmFactory(Fabric::SystemId const& systemId,
                                                               Rix::Ptr<ClientConfig const> const& clientConfig,
                                                               Rix::Ptr<ZebStatus> const& status);

}  // namespace Zeb
