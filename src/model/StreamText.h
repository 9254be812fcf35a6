// How trace lines name a stream: by the host names at its ends, where the centre's root object knows them.
#pragma once

#include <string>

#include "model/ProbeStreamId.h"

namespace Zeb {

// "source->destination srcEthAddr->dstEthAddr", the first two as host names; addresses stand in their place where a
// host name is not known, and always where there is no root object. Changes nothing.
std::string probeStreamStringValue(ProbeStreamId const& streamId);

}  // namespace Zeb
