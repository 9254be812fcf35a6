// The text form of a stream's id; that the id and its hash are known at compile time is checked here.
#include "model/ProbeStreamId.h"

#include <ostream>

namespace Zeb {

static_assert(ProbeStreamId(ProbeStreamId::Fields()).hash() == ProbeStreamId().hash());
static_assert(sizeof(ProbeStreamId) == 40);

std::string ProbeStreamId::stringValue() const {
  return srcIp().stringValue() + "->" + dstIp().stringValue() + " " + srcEthAddr().stringValue() + "->" +
         dstEthAddr().stringValue();
}

std::ostream& operator<<(std::ostream& out, ProbeStreamId const& id) {
  return out << id.stringValue();
}

}  // namespace Zeb
