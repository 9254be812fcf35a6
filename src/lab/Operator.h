// The operator of a scenario: makes the configuration records say what is configured at a moment, the centre's and each
// switch's own, and writes nothing else. It knows no process and no time: whoever hosts the records calls it, within a
// dispatch, at the beginning, at each change, and when a process starts that has missed some.
#pragma once

#include "lab/Configuration.h"
#include "model/gen/Config.h"

namespace Lab {

// The centre's, at "zeb/config". Writes only what differs; `enabled` last when it rises and first when it falls. A
// probe whose groups are others now is removed and added, since the groups of one that stands are not followed.
void configure(const Configuration& configuration, Zeb::ZebConfig& config);

// A switch's own, at "mgmt/zeb/config".
void configure(const Configuration::Switch& configuration, Zeb::ClientConfig& config);

}  // namespace Lab
