// Sees to it that each queue of events has its analyzer. It is made at the first enable and stays through later
// disables, so what was queued before a disable is still analysed. It never looks into a queue.
#pragma once

#include "analysis/ZebStreamEventsAnalyzerSm.h"
#include "runtime/OwnedMap.h"

namespace Zeb {

class ZebEventsAnalyzerSm : public Rix::Reactor<ZebEventsAnalyzerSm> {
 public:
  struct RixZebStreamEventsDir : Rix::Watch<RixZebStreamEventsDir, ZebProbeStreamEventsDir, ZebEventsAnalyzerSm> {
    using Watch::Watch;
    void onStreamEventsQueue(ProbeStreamId const& streamId) override {
      pass(&ZebEventsAnalyzerSm::handleStream, streamId);
    }
  };

  ZebEventsAnalyzerSm(Rix::Ptr<Root> const& root, Rix::Ptr<ZebProbeStreamEventsDir> const& zebStreamEventsDir);
  template <class F>
  void rixParts(F&& f) {
    f(zebStreamEventsDir_);
    f(streamEventsAnalyzerSm_);
  }
  auto rixParameters() const {
    return std::tuple(root_, Rix::Ptr<ZebProbeStreamEventsDir>(zebStreamEventsDir_.notifier()));
  }
  static constexpr std::array rixParameterNames{"root", "zebStreamEventsDir"};

  ZebStreamEventsAnalyzerSm* streamEventsAnalyzerSm(ProbeStreamId const& streamId) const {
    return streamEventsAnalyzerSm_.find(streamId);
  }
  ZebStreamEventsAnalyzerSm* streamEventsAnalyzerSmIs(ProbeStreamId const& streamId, Rix::Ptr<Root> const& root,
                                                      Rix::Ptr<ProbeStreamEventsQueue> const& queue) {
    return streamEventsAnalyzerSm_.is(streamId, streamId, root, queue);
  }
  void streamEventsAnalyzerSmDel(ProbeStreamId const& streamId) { streamEventsAnalyzerSm_.del(streamId); }

  void handleInitialized();
  void handleStream();
  void handleStream(ProbeStreamId const& streamId);

 private:
  Rix::Ptr<Root> const root_;
  RixZebStreamEventsDir zebStreamEventsDir_{this};
  Rix::OwnedSet<ProbeStreamId, ZebStreamEventsAnalyzerSm> streamEventsAnalyzerSm_;
};

Rix::Ptr<ZebEventsAnalyzerSm> zebEventsAnalyzerSmFactory(Rix::Ptr<Root> const& root,
                                                         Rix::Ptr<ZebProbeStreamEventsDir> const& zebStreamEventsDir);

}  // namespace Zeb
