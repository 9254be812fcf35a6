// Zeb::Agent: the long-running object of the central side.
//
// It owns no analysis. It mounts its state in two stages, declares to the Fabric layer which state is exchanged with
// each switch, and then creates the one object that does the work, RootSm:
//
//   doInit                     makes the root object and mounts configuration, status and the cluster's records
//   doMountsComplete           stores them, and goes on to the cluster's database
//   doServiceAgentInit         declares the service "Zeb" and its group of per-switch mounts
//   doFabricMounts             when the group stands: mounts the three per-switch directories
//   doFabricMountsComplete     creates RootSm
//
// Whether anything runs after that is RootSm's business: the agent never looks at configuration or leadership, and
// there is no way back to an earlier stage. What is missing on the way is an assertion that names it. It passes on what
// RootSm decides: the exchange gives the switches' status only while there are machines to hear of it.
#pragma once

#include "central/RootSm.h"
#include "runtime/ServiceAgent.h"

namespace Zeb {

class Agent;

// Hears that the group of per-switch mounts stands. What single switches do is not observed here.
class ZebServiceMounter : public Fabric::FabricdbServiceMounter {
 public:
  // `agent` owns this object.
  explicit ZebServiceMounter(Agent* agent) : agent_(agent) {}
  void doMountsComplete(Rix::String8 groupName, Rix::Ptr<Atlas::EntityManager> const& entityManager) override;

  auto rixParameters() const { return std::tuple(agent_); }

 private:
  Agent* const agent_;
};

// Tells whoever serves the exchange whether the machines stand: from the making of RootSm on, and at each change of the
// status that it writes.
class MachinesSm : public Rix::Reactor<MachinesSm> {
 public:
  MachinesSm(Rix::Ptr<ZebStatus const> const& status, Rix::Ptr<Fabric::FabricdbService> const& service);
  void handleEnabled();

  template <class F>
  void rixParts(F&& part) {
    part(status_);
  }
  auto rixParameters() const { return std::tuple(Rix::Ptr<ZebStatus const>(status_.notifier()), service_); }

 private:
  struct RixStatus : Rix::Watch<RixStatus, ZebStatus const, MachinesSm> {
    using Watch::Watch;
    void onEnabled() override { pass(&MachinesSm::handleEnabled); }
  };
  RixStatus status_{this};
  Rix::Ptr<Fabric::FabricdbService> const service_;
};

class Agent : public DaemonKit::ServiceAgent {
 public:
  explicit Agent(Rix::Name const& name) : ServiceAgent(name) {}
  ~Agent() override;
  Rix::Type const& fwkType() const override;

  void doMountsComplete(Atlas::MountStatus mountStatus, Rix::Ptr<Atlas::EntityManager> const& entityManager) override;
  void doInit() override;
  void doFabricMounts() override;
  void doFabricMountsComplete(Atlas::MountStatus mountStatus,
                              Rix::Ptr<Atlas::EntityManager> const& entityManager) override;
  void doServiceAgentInit() override;

  // All null until the hook that sets them.
  Rix::Ptr<ZebConfig const> const& config() const { return config_; }
  Rix::Ptr<ZebStatus> const& status() const { return status_; }
  Rix::Ptr<Fabricdb::Status const> const& fabricdbStatus() const { return fabricdbStatus_; }
  Rix::Ptr<FabricCluster::ClusterStatus const> const& defaultClusterStatus() const { return defaultClusterStatus_; }
  ZebServiceMounter* serviceMounter() const { return serviceMounter_.get(); }
  Rix::Ptr<Root> const& root() const { return root_; }
  RootSm* rootSm() const { return rootSm_.get(); }

 private:
  Rix::Ptr<ZebConfig const> config_;
  Rix::Ptr<ZebStatus> status_;
  Rix::Ptr<Fabricdb::Status const> fabricdbStatus_;
  Rix::Ptr<FabricCluster::ClusterStatus const> defaultClusterStatus_;
  Rix::Owned<ZebServiceMounter> serviceMounter_;
  Rix::Ptr<Root> root_;
  Rix::Owned<RootSm> rootSm_;
  Rix::Owned<MachinesSm> machinesSm_;
};

// The entry of the central side.
Rix::Ptr<Agent> agentFactory(Rix::Name const& name);

}  // namespace Zeb
