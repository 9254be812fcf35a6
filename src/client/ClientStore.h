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

}  // namespace Zeb
