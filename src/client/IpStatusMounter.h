// The mounter of a switch's IP state: which mounts that takes is its business, not the agent's.
#pragma once

#include "runtime/Atlas.h"

namespace IpStatusMounter {

// Adds the mounts of "ip/status" to a group. The two flags ask for the addresses, and for more than the addresses; the
// store of this system has one entity for both.
inline void doMountEntities(Rix::Ptr<Atlas::MountGroup> const& group, bool, bool) {
  group->doMount({"ip/status", "Ip::Status", "r"});
}

}  // namespace IpStatusMounter
