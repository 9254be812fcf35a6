// The demonstration: two spines and four leaves, a silent loss on one direction of one link, and the line that names
// it.
#pragma once

#include <cstdint>
#include <string>

namespace Lab {

struct DemoOptions {
  bool fault = true;                  // false: a healthy fabric for as long
  std::string link = "leaf1:spine1";  // the direction that is dropped: from the first node to the second
  bool tapClosed = false;             // Sonar sees no probe
  std::uint64_t seed = 1;
};

// Tells on standard output what happens. True if what had to happen did: the line of the dropped direction and no
// other, or, without a fault, none. Throws LabError if the fabric cannot be had or `link` is no link of it.
bool runDemo(const DemoOptions& options);

}  // namespace Lab
