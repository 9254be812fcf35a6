// A descriptor's number is used again as soon as it is closed, while what epoll reported for the old one may still
// wait in the list of this turn. So each entry has a serial, and an event counts only for the entry that it names.
#include "platform/EventLoop.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <ctime>
#include <limits>
#include <system_error>
#include <utility>

namespace Platform {

struct EventLoop::Input {
  std::uint32_t serial;
  InputHandler handler;
};

namespace {

// The longest wait, in seconds: far enough never to matter, near enough to fit the kernel's type.
constexpr double longestWait = 3600;

[[noreturn]] void fail(const char* doing) {
  throw std::system_error(errno, std::generic_category(), doing);
}

std::uint64_t tagOf(int fd, std::uint32_t serial) {
  return std::uint64_t{serial} << 32 | static_cast<std::uint32_t>(fd);
}

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  return set;
}

timespec toTimespec(double seconds) {
  // Rounded up: waking a moment too early would only cost another round.
  const double nanoseconds = std::ceil(std::clamp(seconds, 0.0, longestWait) * 1e9);
  const auto whole = static_cast<std::int64_t>(nanoseconds);
  return {whole / 1'000'000'000, whole % 1'000'000'000};
}

}  // namespace

double monotonicSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

EventLoop::EventLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) fail("epoll_create1");
}

EventLoop::~EventLoop() {
  if (!signals_) return;
  const sigset_t set = stopSignals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void EventLoop::add(int fd, std::uint32_t events, InputHandler handler) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = tagOf(fd, ++lastSerial_);
  if (epoll_ctl(epoll_.fd(), EPOLL_CTL_ADD, fd, &event) != 0) fail("epoll_ctl: add");
  inputs_[fd] = std::make_shared<Input>(Input{lastSerial_, std::move(handler)});
}

void EventLoop::eventsIs(int fd, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = tagOf(fd, inputs_.at(fd)->serial);
  if (epoll_ctl(epoll_.fd(), EPOLL_CTL_MOD, fd, &event) != 0) fail("epoll_ctl: modify");
}

void EventLoop::remove(int fd) {
  if (inputs_.erase(fd) != 0) epoll_ctl(epoll_.fd(), EPOLL_CTL_DEL, fd, nullptr);
}

void EventLoop::timersAre(std::function<double()> next, std::function<void()> fire) {
  next_ = std::move(next);
  fire_ = std::move(fire);
}

void EventLoop::turnEndIs(std::function<void()> atTurnEnd) {
  atTurnEnd_ = std::move(atTurnEnd);
}

void EventLoop::stopOnSignals() {
  const sigset_t set = stopSignals();
  if (const int error = pthread_sigmask(SIG_BLOCK, &set, nullptr); error != 0) {
    throw std::system_error(error, std::generic_category(), "pthread_sigmask");
  }
  signals_ = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!signals_) fail("signalfd");
  add(signals_.fd(), EPOLLIN, [this](std::uint32_t) {
    signalfd_siginfo info{};
    if (::read(signals_.fd(), &info, sizeof info) == sizeof info) {
      signal_ = static_cast<int>(info.ssi_signo);
      stop();
    }
  });
}

int EventLoop::run() {
  stopped_ = false;
  signal_ = 0;
  endTurn();
  while (!stopped_) {
    fireTimers();
    if (stopped_) break;
    const timespec wait = toTimespec(nextDeadline() - monotonicSeconds());
    std::array<epoll_event, 64> events;
    const int count = epoll_pwait2(epoll_.fd(), events.data(), events.size(), &wait, nullptr);
    if (count < 0 && errno != EINTR) fail("epoll_pwait2");
    for (int i = 0; i < count && !stopped_; ++i) {
      fireTimers();
      if (stopped_) break;
      const epoll_event& event = events[static_cast<std::size_t>(i)];
      handleInput(event.data.u64, event.events);
    }
  }
  return signal_;
}

double EventLoop::nextDeadline() const {
  return next_ ? next_() : std::numeric_limits<double>::infinity();
}

void EventLoop::fireTimers() {
  // One reading of the clock: a timer that sets itself to the present again waits for its turn behind the input.
  const double now = monotonicSeconds();
  for (double deadline = nextDeadline(); !stopped_ && deadline <= now; deadline = nextDeadline()) {
    worstLateness_ = std::max(worstLateness_, monotonicSeconds() - deadline);
    fire_();
    endTurn();
  }
}

void EventLoop::endTurn() {
  if (atTurnEnd_) atTurnEnd_();
}

void EventLoop::handleInput(std::uint64_t tag, std::uint32_t events) {
  const auto found = inputs_.find(static_cast<int>(tag & 0xffffffffU));
  if (found == inputs_.end() || found->second->serial != tag >> 32) return;
  const std::shared_ptr<Input> input = found->second;  // lives on if its handler removes it
  input->handler(events);
  endTurn();
}

}  // namespace Platform
