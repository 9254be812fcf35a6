// The one loop of a process: waits for the next deadline or for input, whichever comes first, and hands each over.
// A program's main() makes it, adds what it opened and runs it. It owns no descriptor that it was given, starts no
// thread, and knows nothing of what a deadline or an input means.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

#include "platform/Descriptor.h"

namespace Platform {

// Seconds on CLOCK_MONOTONIC, the scale of every deadline here.
double monotonicSeconds();

class EventLoop {
 public:
  // `events`: what is there, as EPOLLIN, EPOLLOUT, EPOLLPRI, EPOLLERR, EPOLLHUP in any combination.
  using InputHandler = std::function<void(std::uint32_t events)>;

  EventLoop();  // throws std::system_error, as do the calls below that the kernel can refuse
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop();

  // Watches `fd`, which stays the caller's and must be removed before it is closed. Precondition: not yet watched.
  void add(int fd, std::uint32_t events, InputHandler handler);
  // Watches for other events from now on. Precondition: watched.
  void eventsIs(int fd, std::uint32_t events);
  // Its handler is not called again, not even for what has already been seen. Any handler may call this, for its
  // own descriptor too; one that is not watched is passed over.
  void remove(int fd);

  // The timers: `next` gives the earliest deadline, or infinity, and `fire` is called while that is no later than
  // the present; it must take what is due out of `next`. All that is due fires before any input is handed over.
  void timersAre(std::function<double()> next, std::function<void()> fire);

  // Called once after each firing and each input, and once when the loop starts: the place to flush what it caused.
  void turnEndIs(std::function<void()> atTurnEnd);

  // From now on SIGTERM and SIGINT end run(). They are blocked as long as this object lives. A child process that
  // is to take them must be given back the mask.
  void stopOnSignals();

  // Hands over until stop(). An exception from a handler passes through, and run() may be called again. Returns the
  // signal that ended it, 0 if it was stop().
  int run();
  void stop() { stopped_ = true; }

  // How late the latest timer fired, in seconds, since the start or the last reset.
  double worstLateness() const { return worstLateness_; }
  void resetWorstLateness() { worstLateness_ = 0; }

 private:
  struct Input;

  double nextDeadline() const;
  void fireTimers();
  void endTurn();
  void handleInput(std::uint64_t tag, std::uint32_t events);

  Descriptor epoll_;
  Descriptor signals_;
  std::unordered_map<int, std::shared_ptr<Input>> inputs_;
  std::uint32_t lastSerial_ = 0;
  std::function<double()> next_;
  std::function<void()> fire_;
  std::function<void()> atTurnEnd_;
  double worstLateness_ = 0;
  int signal_ = 0;
  bool stopped_ = false;
};

}  // namespace Platform
