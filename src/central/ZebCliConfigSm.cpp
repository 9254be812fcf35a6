// Clearing on the operator's request.
#include "central/ZebCliConfigSm.h"

#include "central/Traces.h"

namespace Zeb {

ZebCliConfigSm::ZebCliConfigSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status)
    : status_(status) {
  config_.notifierIs(config);
}

void ZebCliConfigSm::handleClearLossRecords() {
  RIX_TRACE(centralTraceHandle, 8,
            "void Zeb::ZebCliConfigSm::handleClearLossRecords() " << config_->clearLossRecords());
  if (config_->clearLossRecords() == 0) return;
  status_->lossStatus()->lossRecordDelAll();
}

Rix::Ptr<ZebCliConfigSm> zebCliConfigSmFactory(Rix::Ptr<ZebConfig const> const& config,
                                               Rix::Ptr<ZebStatus> const& status) {
  return Rix::make<ZebCliConfigSm>(config, status);
}

}  // namespace Zeb
