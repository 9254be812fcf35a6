// The system's clocks as the time of an activity.
#pragma once

#include <chrono>

#include "platform/EventLoop.h"
#include "runtime/Activity.h"

namespace Platform {

class SystemTime : public Rix::TimeSource {
 public:
  double now() override { return monotonicSeconds(); }
  double utcNow() override {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  }
};

}  // namespace Platform
