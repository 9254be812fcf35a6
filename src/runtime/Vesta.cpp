// The debug stream's one sink. It is process-wide: a table has no other way to say that it was given up.
#include "runtime/Vesta.h"

#include <iostream>
#include <utility>

namespace Vesta::Platform {

namespace {

DebugSink& sinkInUse() {
  static DebugSink sink;
  return sink;
}

}  // namespace

DebugSink debugSinkIs(DebugSink sink) {
  return std::exchange(sinkInUse(), std::move(sink));
}

DebugStream::~DebugStream() {
  try {
    if (sinkInUse()) {
      sinkInUse()(text_.str());
    } else {
      std::clog << text_.str() << '\n';
    }
  } catch (...) {  // NOLINT(bugprone-empty-catch): a lost debug line must not end the process from a destructor.
  }
}

}  // namespace Vesta::Platform
