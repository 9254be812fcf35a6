// What the faults that are in force make of a fabric: which ends of links are down, what is dropped where, which
// nodes are dead. Computed anew from the set of faults whenever that changes, so that faults that overlap and end in
// any order come out right. Pure data: a fabric makes itself so.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "lab/Scenario.h"

namespace Lab {

// Of what an end of a link sends, this is lost.
struct Drop {
  double share;                      // above 0, at most 1
  std::vector<std::uint16_t> ports;  // source ports that are hit; empty: all
  bool operator==(const Drop&) const = default;
};

struct Condition {
  std::vector<std::array<bool, 2>> down;        // per link and side: taken down there, visible at both ends
  std::vector<bool> frozen;                     // per node: its links are up and nothing passes, in or out
  std::vector<bool> dead;                       // per node: its processes are gone
  std::map<LinkSide, std::vector<Drop>> drops;  // silent, each applied on its own

  // Per link: both ends are up. What a routing protocol sees.
  std::vector<bool> linksUp() const;
  bool operator==(const Condition&) const = default;
};

// `active`: per fault of the scenario, whether it is in force.
Condition conditionOf(const Scenario& scenario, const std::vector<bool>& active);

}  // namespace Lab
