// Two searches per destination, both from the destination outwards: first the nodes that reach it without ever going
// up, then those that must go up, or sideways, to a node that is nearer. No next hop leads from the first kind to the
// second, and along next hops the distance falls with every step: so there are no loops.
#include "lab/Routing.h"

#include <limits>

namespace Lab {

namespace {

constexpr std::size_t unreached = std::numeric_limits<std::size_t>::max();

class Search {
 public:
  Search(const Topology& topology, const std::vector<bool>& linksUp)
      : topology_(topology), linksUp_(linksUp), distance_(topology.nodes()), neverUp_(topology.nodes()) {}

  void run(std::size_t destination) {
    distance_.assign(topology_.nodes(), unreached);
    distance_[destination] = 0;
    spread(false);
    for (std::size_t node = 0; node < distance_.size(); ++node) neverUp_[node] = distance_[node] != unreached;
    spread(true);
  }

  NextHops nextHops(std::size_t node) const {
    NextHops result;
    if (distance_[node] == unreached || distance_[node] == 0) return result;
    for (const LinkSide side : topology_.sides(node)) {
      const std::size_t other = topology_.node(side.peer());
      // A node below may be nearer and yet no way: it would have to go up.
      if (neverUp_[node] && !neverUp_[other]) continue;
      if (usable(side, !neverUp_[node]) && distance_[other] == distance_[node] - 1) result.push_back(side);
    }
    return result;
  }

 private:
  // Whether a route may take this hop; those that go up are wanted in the second search only, those that go down in
  // the first only: a node that could go down has been reached by then.
  bool usable(LinkSide side, bool second) const {
    if (!linksUp_[side.link]) return false;
    const auto from = topology_.scenario().nodes[topology_.node(side)].tier;
    const auto to = topology_.scenario().nodes[topology_.node(side.peer())].tier;
    if (!from || !to || *from == *to) return true;
    return second == (*to > *from);
  }

  // Gives every node that has none yet its distance, ring by ring.
  void spread(bool second) {
    std::vector<std::vector<std::size_t>> rings(distance_.size() + 1);
    for (std::size_t node = 0; node < distance_.size(); ++node)
      if (distance_[node] != unreached) rings[distance_[node]].push_back(node);
    for (std::size_t ring = 0; ring + 1 < rings.size(); ++ring)
      for (const std::size_t node : rings[ring])
        for (const LinkSide side : topology_.sides(node)) {
          const std::size_t other = topology_.node(side.peer());
          if (distance_[other] != unreached || !usable(side.peer(), second)) continue;
          distance_[other] = ring + 1;
          rings[ring + 1].push_back(other);
        }
  }

  const Topology& topology_;
  const std::vector<bool>& linksUp_;
  std::vector<std::size_t> distance_;
  std::vector<bool> neverUp_;
};

}  // namespace

Routes shortestRoutes(const Topology& topology, const std::vector<bool>& linksUp) {
  Routes routes(topology.nodes(), std::vector<NextHops>(topology.nodes()));
  Search search(topology, linksUp);
  for (std::size_t destination = 0; destination < topology.nodes(); ++destination) {
    search.run(destination);
    for (std::size_t node = 0; node < topology.nodes(); ++node) routes[node][destination] = search.nextHops(node);
  }
  return routes;
}

}  // namespace Lab
