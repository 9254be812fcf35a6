// DaemonKit::ServiceAgent: the base of an agent of the central cluster that offers a service to the switches.
//
// Beside its own state database it has the handle of the cluster's, where the directories of per-switch state stand.
// Its host says who serves the exchange before the agent starts. The road of its hooks: the derived agent mounts what
// it needs from its own database, calls this class's doInit, declares its service in doServiceAgentInit, hears from
// its service mounter when the group stands, mounts the directories in doFabricMounts, and is told of them in
// doFabricMountsComplete.
#pragma once

#include <map>

#include "runtime/DaemonKit.h"
#include "runtime/Fabric.h"

namespace DaemonKit {

class ServiceAgent : public CAgent {
 public:
  explicit ServiceAgent(Rix::Name const& name);
  ~ServiceAgent() override;

  // Who serves the exchange with the switches; it must outlive the agent. Set before the agent starts.
  void serviceHostIs(Fabric::ServiceHost* host) { serviceHost_ = host; }
  // The handle of the cluster's state database; null until doInit.
  Rix::Ptr<Atlas::EntityManager> const& fabricdbEntityManager() const { return fabricdbEntityManager_; }

  // Sets up the connection to the cluster's database and calls doServiceAgentInit. There must be a service host.
  void doInit() override;

  virtual void doFabricMounts() {}
  virtual void doFabricMountsComplete(Atlas::MountStatus, Rix::Ptr<Atlas::EntityManager> const&) {}
  virtual void doServiceAgentInit() {}

  // The services by name: finds or makes.
  Fabric::FabricdbService* fabricdbServiceIs(Rix::Name const& name, Rix::Ptr<Atlas::EntityManager> const& entityManager,
                                             Rix::Ptr<Atlas::EntityManager> const& fabricdbEntityManager);

 protected:
  // The mounter for mounts on the cluster's database: its completion calls doFabricMountsComplete.
  Atlas::Mounter* fabricdbMounter() const;

 private:
  class FabricdbMounter;

  Fabric::ServiceHost* serviceHost_ = nullptr;
  Rix::Ptr<Atlas::EntityManager> fabricdbEntityManager_;
  Rix::Ptr<FabricdbMounter> fabricdbMounter_;
  std::map<Rix::Name, Rix::Ptr<Fabric::FabricdbService>> fabricdbService_;
};

}  // namespace DaemonKit
