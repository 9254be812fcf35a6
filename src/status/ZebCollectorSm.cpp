// Switches that come and go.
#include "status/ZebCollectorSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebCollectorSm");
}

ZebCollectorSm::ZebCollectorSm(Rix::Ptr<ZebStatus const> const& zebStatus,
                               Rix::Ptr<Rix::Dir const> const& waveStatusDir,
                               Rix::Ptr<ProbeStreamTable> const& zebStreamTable)
    : zebStatus_(zebStatus), zebStreamTable_(zebStreamTable) {
  waveStatusDir_.notifierIs(waveStatusDir);
  handleInitialized();
}

void ZebCollectorSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebCollectorSm::handleInitialized()");
  initializedIs(true);
  Rix::sweepKeys(waveStatusDir_->entityPtrIterator(), [this](Rix::Name const& name) { handleClientEntry(name); });
}

void ZebCollectorSm::handleClientEntry(Rix::Name const& name) {
  RIX_TRACE(traceHandle, 8, "client=" << name);
  Fabric::SystemId const systemId = Fabric::systemIdFromString(name.view());
  if (Rix::Ptr<Rix::Entity> const entity = waveStatusDir_->entityPtr(name)) {
    // Null for an entity of another kind, which leaves the reactor with nothing to watch.
    Rix::Ptr<ZebSonarStatusV1 const> const status = Rix::dynamicCast<ZebSonarStatusV1>(entity);
    RIX_TRACE(traceHandle, 5, "Creating clientSm for client=" << name);
    clientSmIs(systemId, zebStatus_, status, zebStreamTable_);
  } else if (clientSm(systemId)) {
    RIX_TRACE(traceHandle, 5, "Deleting clientSm of client=" << name);
    clientSmDel(systemId);
  }
}

Rix::Ptr<ZebCollectorSm> zebCollectorSmFactory(Rix::Ptr<ZebStatus const> const& zebStatus,
                                               Rix::Ptr<Rix::Dir const> const& waveStatusDir,
                                               Rix::Ptr<ProbeStreamTable> const& zebStreamTable) {
  return Rix::make<ZebCollectorSm>(zebStatus, waveStatusDir, zebStreamTable);
}

}  // namespace Zeb
