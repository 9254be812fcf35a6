// UDP ports that Sonar holds without ever reading from them: the ones it sends from, and the one that probes go to,
// which must be somebody's or the kernel would answer each probe with an ICMP error.
#pragma once

#include "model/Netkit.h"
#include "platform/Descriptor.h"

namespace Sonar {

/// A UDP socket bound to `address` (zero for any) and `port`, in the network namespace of the
/// calling thread. What arrives there is dropped in silence. Without a descriptor, and errno set, if it cannot be had.
Platform::Descriptor openProbePort(Netkit::IpAddr address, U16 port);

}  // namespace Sonar
