// What must stand in the central state database before the central agent starts.
//
// A platform makes these entities; the agent mounts them and makes none of them itself.
#pragma once

#include "runtime/Atlas.h"

namespace Zeb {

// Puts an empty entity at every path that the agent mounts first and that holds none, with the cluster "default".
void fillCentralStore(Atlas::EntityManager& store);

}  // namespace Zeb
