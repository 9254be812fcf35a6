// What must stand in a switch's state database before its agent starts.
//
// A platform makes these entities; the agent mounts them and makes none of them itself.
#pragma once

#include "model/SonarLocalStatus.h"
#include "runtime/Atlas.h"

namespace Zeb {

// Puts an empty entity at every path that the agent mounts and that holds none, and `localStatus`, the probing
// service's tables, at "sonar/localStatus".
void fillClientStore(Atlas::EntityManager& store, Rix::Ptr<Sonar::LocalStatus> const& localStatus);

// Before the agent is made anew over a store: what it reports to the centre is made by it from the beginning, so the
// two reports are new, empty entities. All else stays: the operator's configuration, the platform's records, the
// probing service's configuration, and the orders. The agent before, and its end of the exchange, must be gone.
void renewClientStore(Atlas::EntityManager& store);

}  // namespace Zeb
