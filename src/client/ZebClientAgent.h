// Zeb::ClientAgent: the long-running object on every switch.
//
// It does little itself. It mounts what the switch side needs, sets one option of the probing service, and creates the
// one reactor that does the work, ClientRootSm. It runs whether or not the service is enabled on the switch, and knows
// nothing of the exchange with the centre.
//
// Before it starts the store must hold all that it mounts; what is missing is an assertion that names it.
#pragma once

#include "client/ClientRootSm.h"
#include "runtime/DaemonKit.h"

namespace Zeb {

class ClientAgent : public DaemonKit::CAgent {
 public:
  explicit ClientAgent(Rix::Name const& name) : CAgent(name) {}
  ~ClientAgent() override;
  Rix::Type const& fwkType() const override;

  void doMountsComplete(Atlas::MountStatus mountStatus, Rix::Ptr<Atlas::EntityManager> const& entityManager) override;
  void doInit() override;

  ClientRootSm* rootSm() const { return rootSm_.get(); }

 private:
  Rix::Owned<ClientRootSm> rootSm_;
};

// The entry of the switch side.
Rix::Ptr<ClientAgent> clientAgentFactory(Rix::Name const& name);

}  // namespace Zeb
