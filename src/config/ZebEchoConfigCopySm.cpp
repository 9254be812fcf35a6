// Transmitters that are ordered and withdrawn.
#include "config/ZebEchoConfigCopySm.h"

#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebEchoConfigCopySm");
}

ZebEchoConfigCopySm::ZebEchoConfigCopySm(Rix::Ptr<ZebSonarConfigV1 const> const& zebEchoConfig,
                                         Rix::Ptr<Sonar::Config> const& echoZebConfig)
    : echoZebConfig_(echoZebConfig) {
  zebEchoConfig_.notifierIs(zebEchoConfig);
  handleInitialized();
}

void ZebEchoConfigCopySm::handleInitialized() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebEchoConfigCopySm::handleInitialized()");
  if (initialized()) return;
  initializedIs(true);
  handleTransmitter();
}

void ZebEchoConfigCopySm::handleTransmitter() {
  Rix::sweepKeys(zebEchoConfig_->transmitterIterator(), [this](Rix::Name const& name) { handleTransmitter(name); });
}

void ZebEchoConfigCopySm::handleTransmitter(Rix::Name const& name) {
  if (!initialized()) return;
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebEchoConfigCopySm::handleTransmitter(Rix::Name)"
                << " transmitter=" << name);
  Rix::Ptr<ZebTransmitterConfig const> const source = zebEchoConfig_->transmitter(name);
  if (!source) {
    zebTransmitterConfigSm_.del(name);
    echoZebConfig_->transmitterDel(name);
    return;
  }
  Rix::Ptr<Sonar::TransmitterConfig> const target = echoZebConfig_->transmitterIs(name);
  if (ZebTransmitterConfigSm* const transmitterSm = zebTransmitterConfigSm(name)) {
    transmitterSm->sync();
  } else {
    zebTransmitterConfigSm_.is(name, source, target);
  }
  target->genIdIs(Rix::now());
}

Rix::Ptr<ZebEchoConfigCopySm> zebEchoConfigCopySmFactory(Rix::Ptr<ZebSonarConfigV1 const> const& zebEchoConfig,
                                                         Rix::Ptr<Sonar::Config> const& echoZebConfig) {
  return Rix::make<ZebEchoConfigCopySm>(zebEchoConfig, echoZebConfig);
}

}  // namespace Zeb
