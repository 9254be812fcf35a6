// The text forms of the values of a probing order.
#include "model/ProbeRate.h"

#include <ostream>

namespace Zeb {

std::ostream& operator<<(std::ostream& out, ZebProbeRate const& rate) {
  return out << rate.rate << '/' << rate.scale;
}

}  // namespace Zeb

namespace Sonar {

std::ostream& operator<<(std::ostream& out, ProbeRate const& rate) {
  return out << rate.rate << '/' << rate.scale << " marker " << rate.marker;
}

std::ostream& operator<<(std::ostream& out, SourcePortConfig const& config) {
  return out << "type " << config.sourcePortType << " values " << config.value1 << ' ' << config.value2 << ' '
             << config.value3;
}

}  // namespace Sonar
