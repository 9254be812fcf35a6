// One peer of one order: enters the peer's addresses in the group into the order's destinations, and replaces an
// address by the one that follows it. ZebPublisherClientProbeGroupSm owns one for each other member of the peer group.
//
// There is one for each order and peer, millions in a large network, so it holds nothing twice and one interface's
// address in place.
//
// An address goes when another one of the same interface comes, or when this reactor ends while the member still
// reports it. An address that the member lost, with no other in its place, stays: an interface that loses its address
// is what probing is there to show.
#pragma once

#include "config/InterfaceAddresses.h"
#include "model/gen/Config.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebPublisherClientProbeGroupMemberSm : public Rix::Reactor<ZebPublisherClientProbeGroupMemberSm> {
 public:
  // `systemId` is the switch that gets the order, `transmitter` the order, and `clientGroup` the member's own entry for
  // the peer group. None may be null.
  ZebPublisherClientProbeGroupMemberSm(Fabric::SystemId const& memberId, Fabric::SystemId const& systemId,
                                       Rix::Ptr<ZebTransmitterConfig> const& transmitter,
                                       Rix::Ptr<ClientReachabilityGroup const> const& clientGroup);

  template <class F>
  void rixParts(F&& f) {
    f(clientGroup_);
  }
  auto rixParameters() const {
    return std::tuple(memberId_, systemId_, transmitter_,
                      Rix::Ptr<ClientReachabilityGroup const>(clientGroup_.notifier()));
  }
  static constexpr std::array rixParameterNames{"memberId", "systemId", "transmitter", "clientGroup"};
  Fabric::SystemId const& rixKey() const { return memberId_; }
  void doCleanup();

  // The address that this reactor has entered for that interface; zero if none.
  Netkit::IpAddr interfaceIp(Rix::String8 const& intfName) const { return interfaceIp_.interfaceIp(intfName); }
  U32 interfaceIps() const { return interfaceIp_.interfaceIps(); }

 private:
  struct RixClientGroup
      : Rix::Watch<RixClientGroup, ClientReachabilityGroup const, ZebPublisherClientProbeGroupMemberSm> {
    using Watch::Watch;
    void onInterfaceIp(Rix::String8 const& intfName) override {
      pass(&ZebPublisherClientProbeGroupMemberSm::handleIntfIp, intfName);
    }
  };

  void handleIntfIp(Rix::String8 const& intfName);

  // The ids fill up what the addresses leave of their last word.
  [[no_unique_address]] InterfaceAddresses interfaceIp_;
  Fabric::SystemId const memberId_;
  Fabric::SystemId const systemId_;
  Rix::Ptr<ZebTransmitterConfig> const transmitter_;
  RixClientGroup clientGroup_{this};
};
static_assert(sizeof(ZebPublisherClientProbeGroupMemberSm) == 72);

Rix::Ptr<ZebPublisherClientProbeGroupMemberSm> zebPublisherClientProbeGroupMemberSmFactory(
    Fabric::SystemId const& memberId, Fabric::SystemId const& systemId,
    Rix::Ptr<ZebTransmitterConfig> const& transmitter, Rix::Ptr<ClientReachabilityGroup const> const& clientGroup);

}  // namespace Zeb
