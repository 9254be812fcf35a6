// DaemonKit: the base of long-running agents.
//
// A host makes an agent, hands it the handle of its state database, and runs its activity. The agent's hooks are called
// one after another, each as input of its own: doInit once, when the database is reachable, and doMountsComplete when
// the group that it closed is done. An exception that leaves a hook leaves the activity's run, and so ends the program.
#pragma once

#include "runtime/Atlas.h"

namespace DaemonKit {

class CAgent : public Atlas::Mounter {
 public:
  using Mounter::Mounter;

  // The handle of the agent's own state database; null until the host sets it.
  Rix::Ptr<Atlas::EntityManager> const& entityManager() const { return entityManager_; }
  // The database is reachable: calls doPreInit and doInit as the next input of the current activity. Once.
  void entityManagerIs(Rix::Ptr<Atlas::EntityManager> const& entityManager);

  virtual void doUpdateWarm() {}
  virtual void doPreInit() {}
  virtual void doInit() {}
  virtual void handleStageProgressionComplete() {}
  virtual void doStage(Rix::Name const&) {}
  virtual void doStageForInstance(Rix::Name const&, Rix::Name const&) {}
  virtual void handleStageInstance(Rix::Name const&) {}
  virtual bool agentPingResponderEnabled() const { return false; }
  virtual bool agentSyncConfigEnabled() const { return false; }
  virtual void handleFlushEntityLogComplete() {}

 private:
  Rix::Ptr<Atlas::EntityManager> entityManager_;
};

}  // namespace DaemonKit
