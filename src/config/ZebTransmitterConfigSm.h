// Keeps one transmitter of the probing service as its order says. It reads the order and writes the transmitter, both
// of which are there before it and stay after it.
//
// At construction everything is brought into step; from then on a changed key is handled for itself, since all others
// are in step already. An order may have thousands of destinations.
#pragma once

#include "model/gen/Config.h"
#include "model/gen/Sonar.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebTransmitterConfigSm : public Rix::Reactor<ZebTransmitterConfigSm> {
 public:
  // Neither argument may be null.
  ZebTransmitterConfigSm(Rix::Ptr<ZebTransmitterConfig const> const& zebTransmitterConfig,
                         Rix::Ptr<Sonar::TransmitterConfig> const& transmitterConfig);

  template <class F>
  void rixParts(F&& f) {
    f(zebTransmitterConfig_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ZebTransmitterConfig const>(zebTransmitterConfig_.notifier()), transmitterConfig_);
  }
  static constexpr std::array rixParameterNames{"zebTransmitterConfig", "transmitterConfig"};

  // Brings everything into step; `enabled` comes last, so that a transmitter is complete when it is switched on. Of a
  // hop that has a rate on both sides the rate is not compared: rates change by removing the hop and adding it again.
  // Ports of the transmitter that the order does not name stay.
  void sync();

 private:
  struct RixZebTransmitterConfig
      : Rix::Watch<RixZebTransmitterConfig, ZebTransmitterConfig const, ZebTransmitterConfigSm> {
    using Watch::Watch;
    void onEnabled() override { pass(&ZebTransmitterConfigSm::handleEnabled); }
    void onHopsRate(U16 hop) override { pass<U16>(&ZebTransmitterConfigSm::syncHopsRate, hop); }
    void onHopsRate() override { pass(&ZebTransmitterConfigSm::syncHopsRate); }
    void onIpDest(Netkit::IpAddr const& ip) override { pass<Netkit::IpAddr>(&ZebTransmitterConfigSm::syncIpDest, ip); }
    void onIpDest() override { pass(&ZebTransmitterConfigSm::syncIpDest); }
    void onPort(U16 port) override { pass<U16>(&ZebTransmitterConfigSm::handlePort, port); }
    void onSourceInterface(Netkit::IntfId const& intf) override {
      pass<Netkit::IntfId>(&ZebTransmitterConfigSm::syncSourceInterface, intf);
    }
    void onSourceInterface() override { pass(&ZebTransmitterConfigSm::syncSourceInterface); }
  };

  void handleInitialized();
  void handleEnabled();
  void handlePort();
  void handlePort(U16 port);
  // Each of these three: what the order has is added first, then what it has not is removed.
  void syncSourceInterface();
  void syncSourceInterface(Netkit::IntfId intf);
  void syncIpDest();
  void syncIpDest(Netkit::IpAddr ip);
  void syncHopsRate();
  void syncHopsRate(U16 hop);
  void addSourceInterface(Netkit::IntfId intf);
  void removeSourceInterface(Netkit::IntfId intf);
  void addIpDest(Netkit::IpAddr ip);
  void removeIpDest(Netkit::IpAddr ip);
  void addHopsRate(U16 hop);
  void removeHopsRate(U16 hop);

  Rix::Ptr<Sonar::TransmitterConfig> const transmitterConfig_;
  RixZebTransmitterConfig zebTransmitterConfig_{this};
};

Rix::Ptr<ZebTransmitterConfigSm> zebTransmitterConfigSmFactory(
    Rix::Ptr<ZebTransmitterConfig const> const& zebTransmitterConfig,
    Rix::Ptr<Sonar::TransmitterConfig> const& transmitterConfig);

}  // namespace Zeb
