// Copies one order entity into the probing service's configuration: one ZebTransmitterConfigSm for each transmitter
// that it orders. It removes a transmitter only when it hears that the order has gone; what the service holds beyond
// the orders, from before this agent started, stays until an order names it and goes.
#pragma once

#include "config/ZebTransmitterConfigSm.h"
#include "runtime/OwnedMap.h"

namespace Zeb {

class ZebEchoConfigCopySm : public Rix::Reactor<ZebEchoConfigCopySm> {
 public:
  // Neither argument may be null.
  ZebEchoConfigCopySm(Rix::Ptr<ZebSonarConfigV1 const> const& zebEchoConfig,
                      Rix::Ptr<Sonar::Config> const& echoZebConfig);

  template <class F>
  void rixParts(F&& f) {
    f(zebEchoConfig_);
    f(zebTransmitterConfigSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ZebSonarConfigV1 const>(zebEchoConfig_.notifier()), echoZebConfig_);
  }
  static constexpr std::array rixParameterNames{"zebEchoConfig", "echoZebConfig"};

  ZebTransmitterConfigSm* zebTransmitterConfigSm(Rix::Name const& name) const {
    return zebTransmitterConfigSm_.find(name);
  }
  U32 zebTransmitterConfigSms() const { return zebTransmitterConfigSm_.size(); }

 private:
  struct RixZebEchoConfig : Rix::Watch<RixZebEchoConfig, ZebSonarConfigV1 const, ZebEchoConfigCopySm> {
    using Watch::Watch;
    void onTransmitter(Rix::Name const& name) override {
      pass<Rix::Name const&>(&ZebEchoConfigCopySm::handleTransmitter, name);
    }
  };

  void handleInitialized();
  void handleTransmitter();
  void handleTransmitter(Rix::Name const& name);

  Rix::Ptr<Sonar::Config> const echoZebConfig_;
  RixZebEchoConfig zebEchoConfig_{this};
  Rix::OwnedMap<Rix::Name, ZebTransmitterConfigSm> zebTransmitterConfigSm_;
};

Rix::Ptr<ZebEchoConfigCopySm> zebEchoConfigCopySmFactory(Rix::Ptr<ZebSonarConfigV1 const> const& zebEchoConfig,
                                                         Rix::Ptr<Sonar::Config> const& echoZebConfig);

}  // namespace Zeb
