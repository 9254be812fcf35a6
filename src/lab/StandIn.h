// Writes what the machines that distribute configuration will write: the switches' entries at the centre, and the
// orders of each switch's probing service. Goes when those machines exist.
#pragma once

#include "lab/Topology.h"
#include "model/gen/Sonar.h"
#include "model/gen/Status.h"

namespace Lab {

// Every node of the scenario with its host name, groups and addresses.
void writeClients(const Topology& topology, Zeb::ZebStatus& status);

// The transmitters of one node, and `enabled` last.
void writeTransmitters(const Topology& topology, std::size_t node, Sonar::Config& config);

}  // namespace Lab
