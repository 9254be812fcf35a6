// The start of an agent.
#include "runtime/DaemonKit.h"

#include "runtime/Activity.h"

namespace DaemonKit {

void CAgent::entityManagerIs(Rix::Ptr<Atlas::EntityManager> const& entityManager) {
  RIX_ASSERT(!entityManager_ && entityManager);
  entityManager_ = entityManager;
  Rix::Activity::current().post([agent = Rix::Ptr<CAgent>(this)] {
    agent->doPreInit();
    agent->doInit();
  });
}

}  // namespace DaemonKit
