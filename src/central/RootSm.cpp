// When the central machines exist, and in which order they come and go.
#include "central/RootSm.h"

#include "central/Traces.h"

namespace Zeb {

RootSm::RootSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status, Rix::Ptr<Root> const& root,
               Rix::Ptr<Fabricdb::Status const> const& fabricdbStatus,
               Rix::Ptr<FabricCluster::ClusterStatus const> const& defaultClusterStatus,
               Rix::Ptr<Rix::Dir> const& clientConfigDir, Rix::Ptr<Rix::Dir> const& waveConfigDir,
               Rix::Ptr<Rix::Dir const> const& waveStatusDir, Rix::Ptr<ProbeStreamTable> const& streamTable,
               Rix::Ptr<ProbeStreamEventTable> const& eventTable)
    : status_(status),
      root_(root),
      clientConfigDir_(clientConfigDir),
      waveConfigDir_(waveConfigDir),
      waveStatusDir_(waveStatusDir),
      streamTable_(streamTable),
      eventTable_(eventTable) {
  config_.notifierIs(config);
  fabricdbStatus_.notifierIs(fabricdbStatus);
  defaultClusterStatus_.notifierIs(defaultClusterStatus);
  handleInitialized();
}

void RootSm::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  handleEnabled();
}

void RootSm::handleEnabled() {
  if (!initialized()) return;
  RIX_TRACE(centralTraceHandle, 8,
            "void Zeb::RootSm::handleEnabled()"
                << " config::enabled:" << config_->enabled()
                << " isStandaloneOrLeader:" << defaultClusterStatus_->isStandaloneOrLeader());
  bool const enabled = config_->enabled() && defaultClusterStatus_->isStandaloneOrLeader();
  status_->enabledIs(enabled);
  if (enabled) {
    createMachines();
  } else {
    deleteMachines();
  }
}

void RootSm::createMachines() {
  Rix::Ptr<ZebConfig const> const config = config_.notifier();
  configMountSm_.is(Rix::Ptr<Rix::Dir const>(clientConfigDir_), status_);
  groupBuilderSm_.is(config, status_);
  publisherSm_.is(config, Rix::Ptr<ZebStatus const>(status_), waveConfigDir_);
  collectorSm_.is(Rix::Ptr<ZebStatus const>(status_), waveStatusDir_, streamTable_);
  eventCollectorSm_.is(Rix::Ptr<ProbeStreamTable>(root_->zebStreamTable()),
                       Rix::Ptr<ProbeStreamEventTable>(root_->eventTable()), status_);
  lossAnalyzerSm_.is(root_, Rix::Ptr<ProbeStreamEventTable>(root_->eventTable()), status_);
  eventsAnalyzerSm_.is(root_, Rix::Ptr<ZebProbeStreamEventsDir>(root_->zebStreamEventsDir()));
  cliConfigSm_.is(config, status_);
  statsEngineSm_.is(config, status_, Rix::Ptr<ProbeStreamTable const>(root_->zebStreamTable()),
                    Rix::Ptr<ProbeStreamEventTable const>(root_->eventTable()));
  pairStreamSm_.is(Rix::Ptr<ProbeStreamTable const>(root_->zebStreamTable()),
                   Rix::Ptr<PairStreamStatus>(status_->pairStreamStatus()));
}

void RootSm::deleteMachines() {
  configMountSm_.del();
  groupBuilderSm_.del();
  publisherSm_.del();
  collectorSm_.del();
  eventCollectorSm_.del();
  lossAnalyzerSm_.del();
  pairStreamSm_.del();
}

}  // namespace Zeb
