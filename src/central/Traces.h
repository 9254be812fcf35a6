// The trace facility of the central side.
#pragma once

#include "runtime/Trace.h"

namespace Zeb {

inline Rix::TraceHandle centralTraceHandle("Zeb");

}  // namespace Zeb
