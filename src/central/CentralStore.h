// What must stand in the central state database before the central agent starts.
//
// A platform makes these entities; the agent mounts them and makes none of them itself.
#pragma once

#include "runtime/Atlas.h"

namespace Zeb {

// Puts an empty entity at every path that the agent mounts first and that holds none, with the cluster "default".
void fillCentralStore(Atlas::EntityManager& store);

// Before the agent is made anew over a store: its own root object and its status, from which nothing is taken over,
// give way. What the operator and the platform write stays. The agent before must be gone.
void renewCentralStore(Atlas::EntityManager& store);

}  // namespace Zeb
