// The routing protocol that the lab plays: for every node and destination, the next hops of the shortest routes over
// the links that are up. Pure computation; a fabric puts the result in force.
#pragma once

#include <cstddef>
#include <vector>

#include "lab/Topology.h"

namespace Lab {

// A node's own ends over which a destination is reached, ascending; empty: not reached.
using NextHops = std::vector<LinkSide>;
// By node, then by destination node; a node's own entry is empty.
using Routes = std::vector<std::vector<NextHops>>;

// Where nodes have a tier, a route that has gone down a tier does not go up again: otherwise a leaf would carry other
// leaves' traffic once a link is gone. A node that can reach a destination without going up does so, and only such a
// node is a next hop for those above it, since what comes from above and what starts here take the same route.
// `linksUp`: per link.
Routes shortestRoutes(const Topology& topology, const std::vector<bool>& linksUp);

}  // namespace Lab
