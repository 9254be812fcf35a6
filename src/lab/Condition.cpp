// One pass over the faults in force, each of which only adds to what is down, dropped or dead.
#include "lab/Condition.h"

namespace Lab {

std::vector<bool> Condition::linksUp() const {
  std::vector<bool> up;
  up.reserve(down.size());
  for (const auto& sides : down) up.push_back(!sides[0] && !sides[1]);
  return up;
}

Condition conditionOf(const Scenario& scenario, const std::vector<bool>& active) {
  Condition condition;
  condition.down.resize(scenario.links.size());
  condition.frozen.resize(scenario.nodes.size());
  condition.dead.resize(scenario.nodes.size());
  for (std::size_t index = 0; index < scenario.faults.size(); ++index) {
    const Fault& fault = scenario.faults[index];
    if (!active[index]) continue;
    switch (fault.kind) {
      case FaultKind::loss:
        condition.drops[fault.where].push_back({fault.share, fault.ports});
        break;
      case FaultKind::linkDown:
        condition.down[fault.where.link][fault.where.side] = true;
        break;
      case FaultKind::powerOff:
        condition.dead[fault.node] = true;
        for (std::size_t link = 0; link < scenario.links.size(); ++link)
          for (const std::size_t side : {0u, 1u})
            if (scenario.links[link].ends[side].node == fault.node) condition.down[link][side] = true;
        break;
      case FaultKind::freeze:
        condition.dead[fault.node] = true;
        condition.frozen[fault.node] = true;
        break;
    }
  }
  return condition;
}

}  // namespace Lab
