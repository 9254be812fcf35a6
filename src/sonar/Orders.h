// What Sonar is told to send: the content of its configuration at the end of a turn.
#pragma once

#include <map>
#include <set>
#include <string>

#include "model/Netkit.h"
#include "model/ProbeRate.h"

namespace Sonar {

class Config;

/// One transmitter: from each source, to each destination, by each port, at each hop limit.
struct TransmitterOrder {
  bool enabled = false;
  std::set<Netkit::IntfId> sources{};
  std::set<Netkit::IpAddr> destinations{};
  std::map<U16, ProbeRate> hopsRate{};  ///< by hop limit; only 1 to 255 can be sent
  std::set<U16> ports{};                ///< source ports; none means `defaultSourcePort`
};

struct Orders {
  /// Tells one configuration from the one that took its place. A fresh one is written piece by piece and `enabled`
  /// last, so until then what runs goes on; in the one that runs, `enabled` turning false ends it.
  U64 configuration = 0;
  bool enabled = false;
  U32 robustness = 0;                                      ///< intervals of silence until a row is dormant; 0 means 5
  std::map<std::string, TransmitterOrder> transmitters{};  ///< by name
};

/// The content of `config`. `configuration` tells this object from those that stood in its place before.
Orders ordersOf(Config const& config, U64 configuration);

}  // namespace Sonar
