// The order entity that comes, goes and is replaced.
#include "config/ZebEchoConfigSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebEchoConfigSm");
}

ZebEchoConfigSm::ZebEchoConfigSm(Rix::Ptr<ClientConfig const> const& clientConfig,
                                 Rix::Ptr<Rix::Dir const> const& zebEchoConfigDir,
                                 Rix::Ptr<Sonar::Config> const& echoZebConfig)
    : clientConfig_(clientConfig), echoZebConfig_(echoZebConfig) {
  zebEchoConfigDir_.notifierIs(zebEchoConfigDir);
  handleInitialized();
}

void ZebEchoConfigSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebEchoConfigSm::handleInitialized()");
  if (!initialized()) {
    initializedIs(true);
    handleEchoZebConfigDir();
  }
  echoZebConfig_->enabledIs(clientConfig_->enabled());
}

void ZebEchoConfigSm::handleEchoZebConfigDir() {
  Rix::sweepKeys(zebEchoConfigDir_->entryIterator(), [this](Rix::Name const& name) { handleEchoZebConfigDir(name); });
}

void ZebEchoConfigSm::handleEchoZebConfigDir(Rix::Name const& name) {
  if (!initialized()) return;
  Rix::Dir::Entry const* const entry = zebEchoConfigDir_->entry(name);
  // An entry stands before its entity has been made. It also stands, complete, while the loss of its entity is told.
  if (!zebEchoConfigDir_->entityPtrHas(name) && entry && entry->status() != Rix::Dir::Entry::statusComplete) {
    RIX_TRACE(traceHandle, 8, name << " entry subdir added, but not instantiated ");
    return;
  }
  Rix::Ptr<Rix::Entity> const entity = zebEchoConfigDir_->entityPtr(name);
  if (!entity) {
    RIX_TRACE(traceHandle, 8, " entry subdir deleted for " << name);
    zebEchoConfigCopySm_.del();
    return;
  }
  RIX_TRACE(traceHandle, 8, name << " entry subdir added ");
  Rix::Ptr<ZebSonarConfigV1 const> const zebEchoConfig = Rix::dynamicCast<ZebSonarConfigV1>(entity);
  if (!zebEchoConfig) return;
  // A fresh entity means a fresh copy.
  zebEchoConfigCopySm_.del();
  zebEchoConfigCopySm_.is(zebEchoConfig, echoZebConfig_);
}

Rix::Ptr<ZebEchoConfigSm> zebEchoConfigSmFactory(Rix::Ptr<ClientConfig const> const& clientConfig,
                                                 Rix::Ptr<Rix::Dir const> const& zebEchoConfigDir,
                                                 Rix::Ptr<Sonar::Config> const& echoZebConfig) {
  return Rix::make<ZebEchoConfigSm>(clientConfig, zebEchoConfigDir, echoZebConfig);
}

}  // namespace Zeb
