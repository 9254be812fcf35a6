// The trace facility of the publisher, which all its reactors share.
#pragma once

#include "runtime/Trace.h"

namespace Zeb {

inline Rix::TraceHandle publisherTraceHandle("ZebPublisherSm");

// Whether the publisher's lines are wanted. Where a short walk ends in the same state as a long one, the long one is
// made then, so that all its lines come.
inline bool publisherTraces() {
  return publisherTraceHandle.enabled(8) || publisherTraceHandle.enabled(7);
}

}  // namespace Zeb
