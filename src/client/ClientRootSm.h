// The switch of the client side: follows the operator's `enabled` and creates the machines that do the work.
//
// Disabling deletes nothing: a machine, once created, lives until the agent ends. A switch decides for itself; there is
// no test of leadership here.
#pragma once

#include "config/ZebClientConfigSm.h"
#include "config/ZebEchoConfigSm.h"
#include "model/SonarLocalStatus.h"
#include "model/gen/Config.h"
#include "model/gen/Platform.h"
#include "model/gen/ProbeStream.h"
#include "model/gen/Sonar.h"
#include "runtime/Dir.h"
#include "runtime/Reactor.h"
#include "status/ZebEchoStatusExporterSm.h"

namespace Zeb {

class ClientRootSm : public Rix::Reactor<ClientRootSm> {
 public:
  // None of the arguments may be null.
  ClientRootSm(Rix::Ptr<ClientConfig const> const& config, Rix::Ptr<ClientStatus> const& status,
               Rix::Ptr<ClientConfig> const& mountedConfig, Rix::Ptr<Ip::Status const> const& ipStatus,
               Rix::Ptr<System::NetConfig const> const& netConfig, Rix::Ptr<Rix::Dir const> const& zebEchoConfigDir,
               Rix::Ptr<Sonar::Config> const& echoZebConfig, Rix::Ptr<Sonar::Status const> const& echoStatus,
               Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus,
               Rix::Ptr<ZebSonarStatusV1> const& zebEchoStatus);

  void handleInitialized();
  // Writes the status and, when enabled, creates the machines that are not there yet.
  void handleEnabled();

  ZebClientConfigSm* configSm() const { return configSm_.get(); }
  ZebEchoConfigSm* zebEchoConfigSm() const { return zebEchoConfigSm_.get(); }
  ZebEchoStatusExporterSm* echoStatusExporterSm() const { return echoStatusExporterSm_.get(); }

  template <class F>
  void rixParts(F&& part) {
    part(config_);
    part(configSm_);
    part(zebEchoConfigSm_);
    part(echoStatusExporterSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ClientConfig const>(config_.notifier()), status_, mountedConfig_, ipStatus_, netConfig_,
                      zebEchoConfigDir_, echoZebConfig_, echoStatus_, echoLocalStatus_, zebEchoStatus_);
  }

 private:
  struct RixConfig : Rix::Watch<RixConfig, ClientConfig const, ClientRootSm> {
    using Watch::Watch;
    void onEnabled() override { pass(&ClientRootSm::handleEnabled); }
  };

  RixConfig config_{this};
  Rix::Ptr<ClientStatus> const status_;
  Rix::Ptr<ClientConfig> const mountedConfig_;
  Rix::Ptr<Ip::Status const> const ipStatus_;
  Rix::Ptr<System::NetConfig const> const netConfig_;
  Rix::Ptr<Rix::Dir const> const zebEchoConfigDir_;
  Rix::Ptr<Sonar::Config> const echoZebConfig_;
  Rix::Ptr<Sonar::Status const> const echoStatus_;
  Rix::Ptr<Sonar::LocalStatus const> const echoLocalStatus_;
  Rix::Ptr<ZebSonarStatusV1> const zebEchoStatus_;
  Rix::Owned<ZebClientConfigSm> configSm_;
  Rix::Owned<ZebEchoConfigSm> zebEchoConfigSm_;
  Rix::Owned<ZebEchoStatusExporterSm> echoStatusExporterSm_;
};

Rix::Ptr<ClientRootSm> clientRootSmFactory(
    Rix::Ptr<ClientConfig const> const& config, Rix::Ptr<ClientStatus> const& status,
    Rix::Ptr<ClientConfig> const& mountedConfig, Rix::Ptr<Ip::Status const> const& ipStatus,
    Rix::Ptr<System::NetConfig const> const& netConfig, Rix::Ptr<Rix::Dir const> const& zebEchoConfigDir,
    Rix::Ptr<Sonar::Config> const& echoZebConfig, Rix::Ptr<Sonar::Status const> const& echoStatus,
    Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus, Rix::Ptr<ZebSonarStatusV1> const& zebEchoStatus);

}  // namespace Zeb
