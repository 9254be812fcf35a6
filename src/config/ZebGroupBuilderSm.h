// The group builder: forms ZebStatus.group, one ReachabilityGroup for each group name that some configured probe uses,
// with the probes that name it and the clients that report it. A group is born with the first probe that names it and
// dies with the last, members or not; a name that only switches report is no group. Whoever makes orders reads this
// table and nothing else to learn who belongs where.
//
// ZebGroupBuilderSm, owned by the central root machine, holds one reactor for each probe and one for each client.
#pragma once

#include "model/gen/Status.h"
#include "runtime/OwnedMap.h"

namespace Zeb {

// One probe: enters it in its two groups when it comes, and takes it out when it goes. The groups of a probe are read
// at these two moments alone: to change them, the probe is removed and added again. A change in place leaves the probe
// in the group that it had before for good.
class ZebGroupBuilderProbeSm : public Rix::Reactor<ZebGroupBuilderProbeSm> {
 public:
  // Neither may be null.
  ZebGroupBuilderProbeSm(Rix::Ptr<ZebProbeConfig const> const& probeConfig, Rix::Ptr<ZebStatus> const& status);

  template <class F>
  void rixParts(F&&) {}
  auto rixParameters() const { return std::tuple(probeConfig_, status_); }
  static constexpr std::array rixParameterNames{"probeConfig", "status"};

  Rix::String8 const& lastSrcGroup() const { return lastSrcGroup_; }
  Rix::String8 const& lastDstGroup() const { return lastDstGroup_; }

  void handleGroup();
  void handleSrcGroup();
  void handleDstGroup();
  void doCleanup();

 private:
  void handleInitialized();
  // Moves the probe from the group `last` to the group `current`. It stays in `last` if its other side is `other` too.
  void doMoveGroup(Rix::String8& last, Rix::String8 const& current, Rix::String8 const& other);
  void doAddGroup(Rix::Name const& name);
  void doRemoveGroup(Rix::Name const& name);

  Rix::Ptr<ZebProbeConfig const> const probeConfig_;
  Rix::Ptr<ZebStatus> const status_;
  Rix::String8 lastSrcGroup_;
  Rix::String8 lastDstGroup_;
};

// One client: a member of every group that stands and that it reports.
class ZebGroupBuilderClientSm : public Rix::Reactor<ZebGroupBuilderClientSm> {
 public:
  // Neither may be null.
  ZebGroupBuilderClientSm(Rix::Ptr<ZebClient const> const& client, Rix::Ptr<ZebStatus> const& status);

  template <class F>
  void rixParts(F&& f) {
    f(client_);
    f(status_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ZebClient const>(client_.notifier()), Rix::Ptr<ZebStatus>(status_.notifier()));
  }
  static constexpr std::array rixParameterNames{"client", "status"};

  void handleClientGroup();
  void handleClientGroup(Rix::Name const& name);
  void handleGroup();
  void handleGroup(Rix::Name const& name);
  void doCleanup();

 private:
  struct RixClient : Rix::Watch<RixClient, ZebClient const, ZebGroupBuilderClientSm> {
    using Watch::Watch;
    void onReachabilityGroup(Rix::Name const& name) override {
      pass(&ZebGroupBuilderClientSm::handleClientGroup, name);
    }
  };
  struct RixStatus : Rix::Watch<RixStatus, ZebStatus, ZebGroupBuilderClientSm> {
    using Watch::Watch;
    void onGroup(Rix::Name const& name) override { pass(&ZebGroupBuilderClientSm::handleGroup, name); }
    // Overridden too, so that a client that comes does not walk all groups of the fabric.
    void onGroup() override { pass(&ZebGroupBuilderClientSm::handleGroup); }
  };

  void handleInitialized();

  RixClient client_{this};
  RixStatus status_{this};
};

class ZebGroupBuilderSm : public Rix::Reactor<ZebGroupBuilderSm> {
 public:
  // Neither may be null.
  ZebGroupBuilderSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status);

  template <class F>
  void rixParts(F&& f) {
    f(config_);
    f(status_);
    f(probeSm_);
    f(clientSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ZebConfig const>(config_.notifier()), Rix::Ptr<ZebStatus>(status_.notifier()));
  }
  static constexpr std::array rixParameterNames{"config", "status"};

  ZebGroupBuilderProbeSm* probeSm(Rix::Name const& name) const { return probeSm_.find(name); }
  U32 probeSms() const { return probeSm_.size(); }
  ZebGroupBuilderProbeSm* probeSmIs(Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                    Rix::Ptr<ZebStatus> const& status) {
    return probeSm_.is(probeConfig->rixKey(), probeConfig, status);
  }
  void probeSmDel(Rix::Name const& name) { probeSm_.del(name); }
  void probeSmDelAll() { probeSm_.delAll(); }
  ZebGroupBuilderClientSm* clientSm(Fabric::SystemId const& id) const { return clientSm_.find(id); }
  U32 clientSms() const { return clientSm_.size(); }
  ZebGroupBuilderClientSm* clientSmIs(Rix::Ptr<ZebClient const> const& client, Rix::Ptr<ZebStatus> const& status) {
    return clientSm_.is(client->systemId(), client, status);
  }
  void clientSmDel(Fabric::SystemId const& id) { clientSm_.del(id); }
  void clientSmDelAll() { clientSm_.delAll(); }

  void handleProbeConfig();
  void handleProbeConfig(Rix::Name const& name);
  void handleClient();
  void handleClient(Fabric::SystemId const& id);
  // Groups go with their last probe, so that the clients' reactors, which end after, find nothing left to clean.
  void doCleanup();

 private:
  struct RixConfig : Rix::Watch<RixConfig, ZebConfig const, ZebGroupBuilderSm> {
    using Watch::Watch;
    void onProbeConfig(Rix::Name const& name) override { pass(&ZebGroupBuilderSm::handleProbeConfig, name); }
  };
  struct RixStatus : Rix::Watch<RixStatus, ZebStatus, ZebGroupBuilderSm> {
    using Watch::Watch;
    void onClient(Fabric::SystemId const& id) override { pass(&ZebGroupBuilderSm::handleClient, id); }
  };

  void handleInitialized();

  RixConfig config_{this};
  RixStatus status_{this};
  Rix::OwnedMap<Rix::Name, ZebGroupBuilderProbeSm> probeSm_;
  Rix::OwnedMap<Fabric::SystemId, ZebGroupBuilderClientSm> clientSm_;
};

Rix::Ptr<ZebGroupBuilderSm> zebGroupBuilderSmFactory(Rix::Ptr<ZebConfig const> const& config,
                                                     Rix::Ptr<ZebStatus> const& status);
Rix::Ptr<ZebGroupBuilderProbeSm> zebGroupBuilderProbeSmFactory(Rix::Ptr<ZebProbeConfig const> const& probeConfig,
                                                               Rix::Ptr<ZebStatus> const& status);
Rix::Ptr<ZebGroupBuilderClientSm> zebGroupBuilderClientSmFactory(Rix::Ptr<ZebClient const> const& client,
                                                                 Rix::Ptr<ZebStatus> const& status);

}  // namespace Zeb
