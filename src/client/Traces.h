// The trace facility of the client side.
#pragma once

#include "runtime/Trace.h"

namespace Zeb {

inline Rix::TraceHandle clientTraceHandle("ZebClient");

}  // namespace Zeb
