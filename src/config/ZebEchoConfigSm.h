// The way from the centre's orders to the probing service: follows the directory in which this switch's order entity
// stands, and holds one ZebEchoConfigCopySm for it. It turns the probing service on and never off: a later disable of
// the switch does not reach the service, only the centre's removal of the orders stops the probes.
//
// The client agent's root machine owns it. What it leaves behind when it ends stays in the service's configuration.
#pragma once

#include "config/ZebEchoConfigCopySm.h"
#include "runtime/Dir.h"

namespace Zeb {

class ZebEchoConfigSm : public Rix::Reactor<ZebEchoConfigSm> {
 public:
  // None of the arguments may be null.
  ZebEchoConfigSm(Rix::Ptr<ClientConfig const> const& clientConfig, Rix::Ptr<Rix::Dir const> const& zebEchoConfigDir,
                  Rix::Ptr<Sonar::Config> const& echoZebConfig);

  template <class F>
  void rixParts(F&& f) {
    f(zebEchoConfigDir_);
    f(zebEchoConfigCopySm_);
  }
  auto rixParameters() const {
    return std::tuple(clientConfig_, Rix::Ptr<Rix::Dir const>(zebEchoConfigDir_.notifier()), echoZebConfig_);
  }
  static constexpr std::array rixParameterNames{"clientConfig", "zebEchoConfigDir", "echoZebConfig"};

  // The copy of the one order entity, or null.
  ZebEchoConfigCopySm* zebEchoConfigCopySm() const { return zebEchoConfigCopySm_.get(); }

 private:
  struct RixZebEchoConfigDir : Rix::Watch<RixZebEchoConfigDir, Rix::Dir const, ZebEchoConfigSm> {
    using Watch::Watch;
    void onEntityPtr(Rix::Name const& name) override {
      pass<Rix::Name const&>(&ZebEchoConfigSm::handleEchoZebConfigDir, name);
    }
  };

  void handleInitialized();
  void handleEchoZebConfigDir();
  void handleEchoZebConfigDir(Rix::Name const& name);

  Rix::Ptr<ClientConfig const> const clientConfig_;
  Rix::Ptr<Sonar::Config> const echoZebConfig_;
  RixZebEchoConfigDir zebEchoConfigDir_{this};
  Rix::Owned<ZebEchoConfigCopySm> zebEchoConfigCopySm_;
};

Rix::Ptr<ZebEchoConfigSm> zebEchoConfigSmFactory(Rix::Ptr<ClientConfig const> const& clientConfig,
                                                 Rix::Ptr<Rix::Dir const> const& zebEchoConfigDir,
                                                 Rix::Ptr<Sonar::Config> const& echoZebConfig);

}  // namespace Zeb
