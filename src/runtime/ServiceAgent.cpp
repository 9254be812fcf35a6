// What every service agent does alike: the cluster's database, its mounter, its services.
#include "runtime/ServiceAgent.h"

namespace DaemonKit {

// Turns the completion of a group into the agent's hook. The agent owns it, and takes itself out when it goes.
class ServiceAgent::FabricdbMounter : public Atlas::Mounter {
 public:
  explicit FabricdbMounter(ServiceAgent* agent) : Mounter("fabricdbMounter"), agent_(agent) {}
  void agentGone() { agent_ = nullptr; }
  void doMountsComplete(Atlas::MountStatus status, Rix::Ptr<Atlas::EntityManager> const& entityManager) override {
    if (agent_) agent_->doFabricMountsComplete(status, entityManager);
  }

 private:
  ServiceAgent* agent_;
};

ServiceAgent::ServiceAgent(Rix::Name const& name) : CAgent(name), fabricdbMounter_(Rix::make<FabricdbMounter>(this)) {}

ServiceAgent::~ServiceAgent() {
  fabricdbMounter_->agentGone();
}

Atlas::Mounter* ServiceAgent::fabricdbMounter() const {
  return fabricdbMounter_.get();
}

void ServiceAgent::doInit() {
  RIX_ASSERT(serviceHost_ != nullptr);
  fabricdbEntityManager_ = serviceHost_->entityManager();
  doServiceAgentInit();
}

Fabric::FabricdbService* ServiceAgent::fabricdbServiceIs(Rix::Name const& name,
                                                         Rix::Ptr<Atlas::EntityManager> const& entityManager,
                                                         Rix::Ptr<Atlas::EntityManager> const& fabricdbEntityManager) {
  Rix::Ptr<Fabric::FabricdbService>& service = fabricdbService_[name];
  if (!service) {
    service = Rix::make<Fabric::FabricdbService>(name, entityManager, fabricdbEntityManager, serviceHost_);
  }
  return service.get();
}

}  // namespace DaemonKit
