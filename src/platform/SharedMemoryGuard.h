// The process's one handler of SIGBUS, and the mappings that it guards. Used by SharedMemory alone.
#pragma once

#include <atomic>
#include <cstddef>

namespace Platform {

/// Guards one mapping while it lives: a touch of bytes that the file has lost sets `damaged` and finds zeros. A signal
/// that is about anything else goes where it went before.
class SharedMemoryGuard {
 public:
  /// `protection` is that of the mapping, as for mmap. False from guarded() if there is no more room for guards.
  SharedMemoryGuard(void* begin, std::size_t size, int protection, std::atomic<bool>& damaged);
  SharedMemoryGuard(const SharedMemoryGuard&) = delete;
  SharedMemoryGuard& operator=(const SharedMemoryGuard&) = delete;
  ~SharedMemoryGuard();

  bool guarded() const { return place_ >= 0; }

 private:
  int place_ = -1;
};

}  // namespace Platform
