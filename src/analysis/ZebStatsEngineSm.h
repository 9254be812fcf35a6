// The statistics: once a second, one row of figures for each configured probe, summed up over the central stream table.
//
// Figures are sums of absolute counters at the moment of the walk, and no rates. Streams sent, received and lost are
// counted at each stream's last hop alone; the switch that takes most is found over all TTLs. The statistics follow the
// central records, not the configuration: a stream that has ended counts while its record keeps the probe's name.
//
// The central root machine makes ZebStatsEngineSm at the first enable and keeps it through every later disable. The
// clients do not stay: a walk that meets a stream received by a switch without a client ends the process, so that a
// disable while streams live ends the centre within a second.
#pragma once

#include "model/gen/Loss.h"
#include "model/gen/Status.h"
#include "runtime/Activity.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebProbeActivitySm : public Rix::Reactor<ZebProbeActivitySm> {
 public:
  static constexpr Rix::Seconds statsComputeInterval = 1.0;

  // Nothing may be null.
  ZebProbeActivitySm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status,
                     Rix::Ptr<ProbeStreamTable const> const& streamTable);

  template <class F>
  void rixParts(F&& f) {
    f(zebConfig_);
    f(streamStatsComputeClock_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ZebConfig const>(zebConfig_.notifier()), status_, streamTable_);
  }

  void handleProbeConfig(Rix::Name const& name);
  // Computes all figures anew and sets the clock for the next time.
  void handleStreamStatsComputeClock();

 private:
  struct RixZebConfig : Rix::Watch<RixZebConfig, ZebConfig const, ZebProbeActivitySm> {
    using Watch::Watch;
    void onProbeConfig(Rix::Name const& name) override { pass(&ZebProbeActivitySm::handleProbeConfig, name); }
  };
  struct RixStreamStatsComputeClock : Rix::Watch<RixStreamStatsComputeClock, Rix::Clock, ZebProbeActivitySm> {
    using Watch::Watch;
    void onTime() override { pass(&ZebProbeActivitySm::handleStreamStatsComputeClock); }
  };

  void handleInitialized();

  Rix::Ptr<ZebStatus> const status_;
  Rix::Ptr<ProbeStreamTable const> const streamTable_;
  RixZebConfig zebConfig_{this};
  RixStreamStatsComputeClock streamStatsComputeClock_{this};
};

class ZebStatsEngineSm : public Rix::Reactor<ZebStatsEngineSm> {
 public:
  // Configuration, status and stream table may not be null. The event table is held and not read.
  ZebStatsEngineSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status,
                   Rix::Ptr<ProbeStreamTable const> const& streamTable,
                   Rix::Ptr<ProbeStreamEventTable const> const& eventTable);

  template <class F>
  void rixParts(F&& f) {
    f(probeActivitySm_);
  }
  auto rixParameters() const { return std::tuple(config_, status_, streamTable_, eventTable_); }

  ZebProbeActivitySm* probeActivitySm() const { return probeActivitySm_.get(); }

 private:
  void handleInitialized();

  Rix::Ptr<ZebConfig const> const config_;
  Rix::Ptr<ZebStatus> const status_;
  Rix::Ptr<ProbeStreamTable const> const streamTable_;
  Rix::Ptr<ProbeStreamEventTable const> const eventTable_;
  Rix::Owned<ZebProbeActivitySm> probeActivitySm_;
};

Rix::Ptr<ZebStatsEngineSm> zebStatsEngineSmFactory(Rix::Ptr<ZebConfig const> const& config,
                                                   Rix::Ptr<ZebStatus> const& status,
                                                   Rix::Ptr<ProbeStreamTable const> const& streamTable,
                                                   Rix::Ptr<ProbeStreamEventTable const> const& eventTable);
Rix::Ptr<ZebProbeActivitySm> zebProbeActivitySmFactory(Rix::Ptr<ZebConfig const> const& config,
                                                       Rix::Ptr<ZebStatus> const& status,
                                                       Rix::Ptr<ProbeStreamTable const> const& streamTable);

}  // namespace Zeb
