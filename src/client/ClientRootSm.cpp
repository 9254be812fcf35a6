// What `enabled` does on a switch.
#include "client/ClientRootSm.h"

#include "client/Traces.h"

namespace Zeb {

ClientRootSm::ClientRootSm(Rix::Ptr<ClientConfig const> const& config, Rix::Ptr<ClientStatus> const& status,
                           Rix::Ptr<ClientConfig> const& mountedConfig, Rix::Ptr<Ip::Status const> const& ipStatus,
                           Rix::Ptr<System::NetConfig const> const& netConfig,
                           Rix::Ptr<Rix::Dir const> const& zebEchoConfigDir,
                           Rix::Ptr<Sonar::Config> const& echoZebConfig,
                           Rix::Ptr<Sonar::Status const> const& echoStatus,
                           Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus,
                           Rix::Ptr<ZebSonarStatusV1> const& zebEchoStatus)
    : status_(status),
      mountedConfig_(mountedConfig),
      ipStatus_(ipStatus),
      netConfig_(netConfig),
      zebEchoConfigDir_(zebEchoConfigDir),
      echoZebConfig_(echoZebConfig),
      echoStatus_(echoStatus),
      echoLocalStatus_(echoLocalStatus),
      zebEchoStatus_(zebEchoStatus) {
  config_.notifierIs(config);
  handleInitialized();
}

void ClientRootSm::handleInitialized() {
  RIX_TRACE(clientTraceHandle, 7, "void Zeb::ClientRootSm::handleInitialized()");
  if (initialized()) return;
  initializedIs(true);
  handleEnabled();
}

void ClientRootSm::handleEnabled() {
  if (!initialized()) return;
  RIX_TWINLOG(clientTraceHandle, 1, "void Zeb::ClientRootSm::handleEnabled(): config::enabled=%s",
              config_->enabled() ? "1" : "0");
  status_->enabledIs(config_->enabled());
  if (!config_->enabled()) return;
  Rix::Ptr<ClientConfig const> const config = config_.notifier();
  configSm_.is(config, netConfig_, mountedConfig_, ipStatus_);
  zebEchoConfigSm_.is(config, zebEchoConfigDir_, echoZebConfig_);
  echoStatusExporterSm_.is(echoStatus_, echoLocalStatus_, zebEchoStatus_, ipStatus_);
}

Rix::Ptr<ClientRootSm> clientRootSmFactory(
    Rix::Ptr<ClientConfig const> const& config, Rix::Ptr<ClientStatus> const& status,
    Rix::Ptr<ClientConfig> const& mountedConfig, Rix::Ptr<Ip::Status const> const& ipStatus,
    Rix::Ptr<System::NetConfig const> const& netConfig, Rix::Ptr<Rix::Dir const> const& zebEchoConfigDir,
    Rix::Ptr<Sonar::Config> const& echoZebConfig, Rix::Ptr<Sonar::Status const> const& echoStatus,
    Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus, Rix::Ptr<ZebSonarStatusV1> const& zebEchoStatus) {
  return Rix::make<ClientRootSm>(config, status, mountedConfig, ipStatus, netConfig, zebEchoConfigDir, echoZebConfig,
                                 echoStatus, echoLocalStatus, zebEchoStatus);
}

}  // namespace Zeb
