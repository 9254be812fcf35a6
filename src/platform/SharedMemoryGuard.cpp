// The handler reads a fixed array of atomics: it may come on any thread at any time, also while a guard is made.
#include "platform/SharedMemoryGuard.h"

#include <sys/mman.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>

namespace Platform {

namespace {

struct Guarded {
  std::atomic<std::uintptr_t> begin = 0;  // 0: free. Stored last, so that the rest is there when it is seen.
  std::atomic<std::size_t> size = 0;
  std::atomic<int> protection = 0;
  std::atomic<std::atomic<bool>*> damaged = nullptr;
};

constexpr int kMaxGuards = 4096;
std::array<Guarded, kMaxGuards> guards;
std::mutex guardsMutex;
bool installed = false;
struct sigaction before;

bool replaceByZeros(std::uintptr_t address) {
  for (Guarded& guard : guards) {
    const std::uintptr_t begin = guard.begin.load(std::memory_order_acquire);
    const std::size_t size = guard.size.load(std::memory_order_relaxed);
    if (begin == 0 || address < begin || address - begin >= size) continue;
    guard.damaged.load(std::memory_order_relaxed)->store(true, std::memory_order_release);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the address came to us as a number.
    void* const at = reinterpret_cast<void*>(begin);
    return mmap(at, size, guard.protection.load(std::memory_order_relaxed), MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1,
                0) != MAP_FAILED;
  }
  return false;
}

void handle(int signal, siginfo_t* info, void* context) {
  const int kept = errno;
  const bool ours = info->si_code > 0 && replaceByZeros(reinterpret_cast<std::uintptr_t>(info->si_addr));
  errno = kept;
  if (ours) return;
  if ((before.sa_flags & SA_SIGINFO) != 0) {
    before.sa_sigaction(signal, info, context);
  } else if (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN) {
    before.sa_handler(signal);
  } else {
    // Ends the process as it would have ended without us, when the touch is repeated.
    sigaction(signal, &before, nullptr);
    if (info->si_code <= 0) raise(signal);
  }
}

void install() {
  if (installed) return;
  struct sigaction action = {};
  action.sa_sigaction = &handle;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigemptyset(&action.sa_mask);
  installed = sigaction(SIGBUS, &action, &before) == 0;
}

}  // namespace

SharedMemoryGuard::SharedMemoryGuard(void* begin, std::size_t size, int protection, std::atomic<bool>& damaged) {
  const std::lock_guard lock(guardsMutex);
  install();
  for (int place = 0; place < kMaxGuards && installed; ++place) {
    Guarded& guard = guards[static_cast<std::size_t>(place)];
    if (guard.begin.load(std::memory_order_relaxed) != 0) continue;
    guard.size.store(size, std::memory_order_relaxed);
    guard.protection.store(protection, std::memory_order_relaxed);
    guard.damaged.store(&damaged, std::memory_order_relaxed);
    guard.begin.store(reinterpret_cast<std::uintptr_t>(begin), std::memory_order_release);
    place_ = place;
    return;
  }
}

SharedMemoryGuard::~SharedMemoryGuard() {
  if (guarded()) guards[static_cast<std::size_t>(place_)].begin.store(0, std::memory_order_release);
}

}  // namespace Platform
