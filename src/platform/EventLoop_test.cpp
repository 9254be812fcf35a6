// Shows the order in which the loop hands over, on pipes and on deadlines that lie in the past or close ahead.
#include "platform/EventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Platform {
namespace {

constexpr double never = std::numeric_limits<double>::infinity();

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) std::abort();
    out = Descriptor(ends[0]);
    in = Descriptor(ends[1]);
  }
  void put() const { ASSERT_EQ(::write(in.fd(), "x", 1), 1); }
  void take() const {
    char c = 0;
    ASSERT_EQ(::read(out.fd(), &c, 1), 1);
  }
  Descriptor out, in;
};

struct EventLoopTest : testing::Test {
  // Timers at these moments, each of which only notes its number in `seen`.
  void timersAt(std::vector<double> deadlines) {
    loop.timersAre([this, deadlines] { return fired < deadlines.size() ? deadlines[fired] : never; },
                   [this] { seen.push_back("timer " + std::to_string(fired++)); });
  }

  EventLoop loop;
  std::size_t fired = 0;
  std::vector<std::string> seen;
};

TEST_F(EventLoopTest, AllDueTimersFireBeforeInput) {
  const Pipe pipe;
  pipe.put();
  const double now = monotonicSeconds();
  timersAt({now - 2, now - 1, now - 1});
  loop.add(pipe.out.fd(), EPOLLIN, [&](std::uint32_t) {
    seen.emplace_back("input");
    loop.stop();
  });
  EXPECT_EQ(loop.run(), 0);
  EXPECT_THAT(seen, testing::ElementsAre("timer 0", "timer 1", "timer 2", "input"));
}

TEST_F(EventLoopTest, ATimerThatAnInputMakesDueFiresBeforeTheNextInput) {
  const Pipe first, second;
  first.put();
  second.put();
  double deadline = never;
  loop.timersAre([&] { return deadline; },
                 [&] {
                   deadline = never;
                   seen.emplace_back("timer");
                 });
  const auto onInput = [&](const Pipe& pipe) {
    pipe.take();
    seen.emplace_back("input");
    if (seen.size() == 1) deadline = monotonicSeconds();
    if (seen.size() == 3) loop.stop();
  };
  loop.add(first.out.fd(), EPOLLIN, [&](std::uint32_t) { onInput(first); });
  loop.add(second.out.fd(), EPOLLIN, [&](std::uint32_t) { onInput(second); });
  loop.run();
  EXPECT_THAT(seen, testing::ElementsAre("input", "timer", "input"));
}

TEST_F(EventLoopTest, ATimerFiresNotBeforeItsMomentAndItsLatenessIsKept) {
  const double start = monotonicSeconds();
  double deadline = start - 0.25;
  loop.timersAre([&] { return deadline; },
                 [&] {
                   if (deadline > start) loop.stop();
                   deadline = start + 0.02;
                 });
  loop.run();
  EXPECT_GE(monotonicSeconds(), start + 0.02);
  EXPECT_GE(loop.worstLateness(), 0.25);
  loop.resetWorstLateness();
  EXPECT_EQ(loop.worstLateness(), 0);
}

TEST_F(EventLoopTest, EveryTurnEndsOnce) {
  const Pipe pipe;
  pipe.put();
  timersAt({monotonicSeconds() - 1});
  loop.turnEndIs([&] { seen.emplace_back("end"); });
  loop.add(pipe.out.fd(), EPOLLIN, [&](std::uint32_t) {
    seen.emplace_back("input");
    loop.stop();
  });
  loop.run();
  EXPECT_THAT(seen, testing::ElementsAre("end", "timer 0", "end", "input", "end"));
}

TEST_F(EventLoopTest, ARemovedDescriptorIsNotServedEvenIfItsNumberIsUsedAgain) {
  Pipe first, second;
  const Pipe last;
  first.put();
  second.put();
  // Whichever of the two comes first closes the other, and opens a pipe that takes its number over.
  Pipe reused;
  const auto replace = [&](Pipe& other) {
    seen.emplace_back("served");
    const int number = other.out.fd();
    loop.remove(first.out.fd());
    loop.remove(second.out.fd());
    Descriptor copy(::dup(reused.out.fd()));
    other.out = Descriptor();
    ASSERT_EQ(::dup2(copy.fd(), number), number);
    reused.out = Descriptor(number);
    loop.add(number, EPOLLIN, [&](std::uint32_t) { seen.emplace_back("never written to"); });
    last.put();
  };
  loop.add(first.out.fd(), EPOLLIN, [&](std::uint32_t) { replace(second); });
  loop.add(second.out.fd(), EPOLLIN, [&](std::uint32_t) { replace(first); });
  loop.add(last.out.fd(), EPOLLIN, [&](std::uint32_t) { loop.stop(); });
  loop.run();
  EXPECT_THAT(seen, testing::ElementsAre("served"));
}

TEST_F(EventLoopTest, AHandlerMayRemoveItself) {
  const Pipe pipe;
  pipe.put();
  const std::string text = "a capture that is still read after the removal";
  loop.add(pipe.out.fd(), EPOLLIN, [this, &pipe, text](std::uint32_t) {
    loop.remove(pipe.out.fd());
    seen.push_back(text);
    loop.stop();
  });
  loop.run();
  EXPECT_THAT(seen, testing::ElementsAre(text));
  loop.remove(pipe.out.fd());  // once more: passed over
}

TEST_F(EventLoopTest, OtherEventsCanBeWatchedForLater) {
  const Pipe pipe;
  std::uint32_t got = 0;
  loop.add(pipe.in.fd(), 0, [&](std::uint32_t events) {
    got = events;
    loop.stop();
  });
  timersAt({monotonicSeconds()});
  loop.turnEndIs([&] {
    if (fired == 1) loop.eventsIs(pipe.in.fd(), EPOLLOUT);
  });
  loop.run();
  EXPECT_EQ(got, std::uint32_t{EPOLLOUT});
}

TEST_F(EventLoopTest, AnExceptionPassesAndTheLoopCanGoOn) {
  timersAt({monotonicSeconds()});
  loop.timersAre([this] { return fired < 2 ? 0.0 : never; },
                 [this] {
                   if (++fired == 1) throw std::runtime_error("from a handler");
                   loop.stop();
                 });
  EXPECT_THROW(loop.run(), std::runtime_error);
  EXPECT_EQ(loop.run(), 0);
  EXPECT_EQ(fired, 2U);
}

TEST_F(EventLoopTest, ASignalEndsTheLoopAndIsNamed) {
  for (const int signal : {SIGTERM, SIGINT}) {
    EventLoop stoppable;
    stoppable.stopOnSignals();
    bool sent = false;
    stoppable.turnEndIs([&] {
      if (!std::exchange(sent, true)) ::kill(::getpid(), signal);
    });
    EXPECT_EQ(stoppable.run(), signal);
  }
}

TEST_F(EventLoopTest, ADescriptorThatCannotBeWatchedIsAnError) {
  EXPECT_THROW(loop.add(-1, EPOLLIN, [](std::uint32_t) {}), std::system_error);
}

}  // namespace
}  // namespace Platform
