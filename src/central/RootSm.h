// RootSm, the single switch of the central side.
//
// It computes one boolean, configuration enabled and this member standalone or leader, writes it to
// ZebStatus::enabled, and creates or deletes the machines that do the work. Only one member of the cluster is to run
// the system: any other keeps its agent and its mounts, and has no machines.
//
// Three machines, the analyzer of event queues, the one that clears loss records and the statistics, stay through every
// later disable: queues are still emptied, and records can still be cleared, while the service is off. They go with
// RootSm itself. The statistics need the clients of the streams that they walk, which a disable takes away: whoever
// disables the service withdraws its orders before.
#pragma once

#include "analysis/ZebEventCollectorSm.h"
#include "analysis/ZebEventsAnalyzerSm.h"
#include "analysis/ZebLossAnalyzerSm.h"
#include "analysis/ZebStatsEngineSm.h"
#include "central/ZebCliConfigSm.h"
#include "central/ZebRoot.h"
#include "config/ZebConfigMountSm.h"
#include "config/ZebGroupBuilderSm.h"
#include "config/ZebPublisherSm.h"
#include "model/gen/Platform.h"
#include "model/gen/Status.h"
#include "runtime/Dir.h"
#include "runtime/Reactor.h"
#include "status/ZebCollectorSm.h"
#include "status/ZebPairStreamSm.h"

namespace Zeb {

class RootSm : public Rix::Reactor<RootSm> {
 public:
  // Configuration, status, root and the two cluster records may not be null. The directories may: they are passed on
  // as they are.
  RootSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status, Rix::Ptr<Root> const& root,
         Rix::Ptr<Fabricdb::Status const> const& fabricdbStatus,
         Rix::Ptr<FabricCluster::ClusterStatus const> const& defaultClusterStatus,
         Rix::Ptr<Rix::Dir> const& clientConfigDir, Rix::Ptr<Rix::Dir> const& waveConfigDir,
         Rix::Ptr<Rix::Dir const> const& waveStatusDir, Rix::Ptr<ProbeStreamTable> const& streamTable,
         Rix::Ptr<ProbeStreamEventTable> const& eventTable);

  void handleInitialized();
  // Computes `enabled` anew, writes it, and creates or deletes the machines.
  void handleEnabled();

  ZebConfigMountSm* configMountSm() const { return configMountSm_.get(); }
  ZebGroupBuilderSm* groupBuilderSm() const { return groupBuilderSm_.get(); }
  ZebPublisherSm* publisherSm() const { return publisherSm_.get(); }
  ZebCollectorSm* collectorSm() const { return collectorSm_.get(); }
  ZebEventCollectorSm* eventCollectorSm() const { return eventCollectorSm_.get(); }
  ZebLossAnalyzerSm* lossAnalyzerSm() const { return lossAnalyzerSm_.get(); }
  ZebEventsAnalyzerSm* eventsAnalyzerSm() const { return eventsAnalyzerSm_.get(); }
  ZebCliConfigSm* cliConfigSm() const { return cliConfigSm_.get(); }
  ZebStatsEngineSm* statsEngineSm() const { return statsEngineSm_.get(); }
  ZebPairStreamSm* pairStreamSm() const { return pairStreamSm_.get(); }

  template <class F>
  void rixParts(F&& part) {
    part(config_);
    part(fabricdbStatus_);
    part(defaultClusterStatus_);
    part(configMountSm_);
    part(groupBuilderSm_);
    part(publisherSm_);
    part(collectorSm_);
    part(eventCollectorSm_);
    part(lossAnalyzerSm_);
    part(eventsAnalyzerSm_);
    part(cliConfigSm_);
    part(statsEngineSm_);
    part(pairStreamSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ZebConfig const>(config_.notifier()), status_, root_,
                      Rix::Ptr<Fabricdb::Status const>(fabricdbStatus_.notifier()),
                      Rix::Ptr<FabricCluster::ClusterStatus const>(defaultClusterStatus_.notifier()), clientConfigDir_,
                      waveConfigDir_, waveStatusDir_, streamTable_, eventTable_);
  }

 private:
  friend struct RootSmPeer;  // a test stands at the moment before the machine is initialized

  struct RixConfig : Rix::Watch<RixConfig, ZebConfig const, RootSm> {
    using Watch::Watch;
    void onEnabled() override { pass(&RootSm::handleEnabled); }
  };
  // Its notification only causes a new evaluation; its value takes no part.
  struct RixFabricdbStatus : Rix::Watch<RixFabricdbStatus, Fabricdb::Status const, RootSm> {
    using Watch::Watch;
    void onEnabled() override { pass(&RootSm::handleEnabled); }
  };
  struct RixDefaultClusterStatus : Rix::Watch<RixDefaultClusterStatus, FabricCluster::ClusterStatus const, RootSm> {
    using Watch::Watch;
    void onIsStandaloneOrLeader() override { pass(&RootSm::handleEnabled); }
  };

  void createMachines();
  void deleteMachines();

  RixConfig config_{this};
  Rix::Ptr<ZebStatus> const status_;
  Rix::Ptr<Root> const root_;
  RixFabricdbStatus fabricdbStatus_{this};
  RixDefaultClusterStatus defaultClusterStatus_{this};
  Rix::Ptr<Rix::Dir> const clientConfigDir_;
  Rix::Ptr<Rix::Dir> const waveConfigDir_;
  Rix::Ptr<Rix::Dir const> const waveStatusDir_;
  Rix::Ptr<ProbeStreamTable> const streamTable_;
  Rix::Ptr<ProbeStreamEventTable> const eventTable_;
  Rix::Owned<ZebConfigMountSm> configMountSm_;
  Rix::Owned<ZebGroupBuilderSm> groupBuilderSm_;
  Rix::Owned<ZebPublisherSm> publisherSm_;
  Rix::Owned<ZebCollectorSm> collectorSm_;
  Rix::Owned<ZebEventCollectorSm> eventCollectorSm_;
  Rix::Owned<ZebLossAnalyzerSm> lossAnalyzerSm_;
  Rix::Owned<ZebEventsAnalyzerSm> eventsAnalyzerSm_;
  Rix::Owned<ZebCliConfigSm> cliConfigSm_;
  Rix::Owned<ZebStatsEngineSm> statsEngineSm_;
  Rix::Owned<ZebPairStreamSm> pairStreamSm_;
};

}  // namespace Zeb
