// Carries out the operator's request to clear loss records.
//
// `clearLossRecords` is a request counter, not a flag: each change to a value that is not zero clears, one to zero does
// not. Only the records of streams are cleared; device pairs follow by themselves, paths and event queues stay.
#pragma once

#include "model/gen/Status.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebCliConfigSm : public Rix::Reactor<ZebCliConfigSm> {
 public:
  // Neither may be null.
  ZebCliConfigSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status);

  void handleClearLossRecords();

  template <class F>
  void rixParts(F&& part) {
    part(config_);
  }
  auto rixParameters() const { return std::tuple(Rix::Ptr<ZebConfig const>(config_.notifier()), status_); }

 private:
  struct RixConfig : Rix::Watch<RixConfig, ZebConfig const, ZebCliConfigSm> {
    using Watch::Watch;
    void onClearLossRecords() override { pass(&ZebCliConfigSm::handleClearLossRecords); }
  };

  RixConfig config_{this};
  Rix::Ptr<ZebStatus> const status_;
};

Rix::Ptr<ZebCliConfigSm> zebCliConfigSmFactory(Rix::Ptr<ZebConfig const> const& config,
                                               Rix::Ptr<ZebStatus> const& status);

}  // namespace Zeb
