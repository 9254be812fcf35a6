// Links over sockets, between two ends on one loop: frames whole and in order, the ends of links, and bounds.
#include "platform/LocalTransport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "runtime/Frames.h"

namespace Platform {
namespace {

using testing::ElementsAre;

struct LoopTime : Rix::TimeSource {
  double now() override { return monotonicSeconds(); }
  double utcNow() override { return monotonicSeconds(); }
};

struct User final : Fabric::LinkUser {
  void linkConnected(Fabric::Link& l) override {
    link = &l;
    log.push_back("+");
  }
  void linkReceived(Fabric::Link&, std::string_view frame) override {
    bytes += frame.size();
    if (frame.size() < 100) log.emplace_back(frame);
  }
  void linkDisconnected(Fabric::Link&) override {
    link = nullptr;
    log.push_back("-");
  }
  Fabric::Link* link = nullptr;
  std::size_t bytes = 0;
  std::vector<std::string> log;
};

class LocalTransportTest : public testing::Test {
 protected:
  LocalTransportTest()
      : path((std::filesystem::temp_directory_path() / ("zeb-link-" + std::to_string(::getpid()))).string()) {
    loop.timersAre([this] { return std::min(activity.nextDeadline(), deadline); },
                   [this] {
                     activity.runDueTimers();
                     if (monotonicSeconds() >= deadline) loop.stop();
                   });
    loop.turnEndIs([this] {
      if (done && done()) loop.stop();
    });
  }
  // Runs the loop until the condition holds. False: it did not within ten seconds.
  bool runUntil(std::function<bool()> condition) {
    done = std::move(condition);
    deadline = monotonicSeconds() + 10;
    loop.run();
    return done();
  }

  std::string path;
  EventLoop loop;
  LoopTime time;
  Rix::Activity activity{time};
  double deadline = 0;
  std::function<bool()> done;
  User centre;
  User device;
};

TEST_F(LocalTransportTest, FramesArriveWholeAndInOrderBothWays) {
  LocalListener listener(loop, activity, path);
  LocalConnector connector(loop, activity, path);
  listener.userIs(&centre);
  connector.userIs(&device);
  ASSERT_TRUE(runUntil([&] { return centre.link && device.link; }));
  device.link->send("a");
  device.link->send(std::string(Rix::maxFrameSize, 'x'));
  device.link->send("b");
  centre.link->send("c");
  ASSERT_TRUE(runUntil([&] { return centre.log.size() == 3 && device.log.size() == 2; }));
  EXPECT_THAT(centre.log, ElementsAre("+", "a", "b"));
  EXPECT_EQ(centre.bytes, Rix::maxFrameSize + 2);
  EXPECT_THAT(device.log, ElementsAre("+", "c"));
}

TEST_F(LocalTransportTest, ASwitchTriesUntilTheCentreIsThereAndAgainAfterItWasGone) {
  LocalConnector connector(loop, activity, path);
  connector.userIs(&device);
  {
    LocalListener listener(loop, activity, path);
    listener.userIs(&centre);
    ASSERT_TRUE(runUntil([&] { return centre.link && device.link; }));
  }
  ASSERT_TRUE(runUntil([&] { return !device.link; }));
  LocalListener again(loop, activity, path);
  again.userIs(&centre);
  ASSERT_TRUE(runUntil([&] { return device.log.size() == 3; }));
  EXPECT_THAT(device.log, ElementsAre("+", "-", "+"));
}

TEST_F(LocalTransportTest, AClosedLinkEndsOnBothSides) {
  LocalListener listener(loop, activity, path);
  LocalConnector connector(loop, activity, path, {.firstPause = 1000, .longestPause = 1000});
  listener.userIs(&centre);
  connector.userIs(&device);
  ASSERT_TRUE(runUntil([&] { return centre.link && device.link; }));
  centre.link->close();
  centre.link->send("never");
  ASSERT_TRUE(runUntil([&] { return !centre.link && !device.link; }));
  EXPECT_THAT(device.log, ElementsAre("+", "-"));
  EXPECT_EQ(listener.links(), 0U);
}

TEST_F(LocalTransportTest, AQueueBeyondItsBoundEndsTheLink) {
  LocalListener listener(loop, activity, path);
  LocalConnector connector(loop, activity, path, {.maxQueuedBytes = 1 << 20});
  listener.userIs(&centre);
  connector.userIs(&device);
  ASSERT_TRUE(runUntil([&] { return centre.link && device.link; }));
  std::string const frame(Rix::maxFrameSize, 'x');
  for (int i = 0; i < 64; ++i) device.link->send(frame);  // nobody reads in between
  ASSERT_TRUE(runUntil([&] { return device.log.size() == 2; }));
  EXPECT_EQ(device.log.back(), "-");
}

TEST_F(LocalTransportTest, AFrameThatIsTooLongOrCutEndsTheLink) {
  LocalListener listener(loop, activity, path);
  listener.userIs(&centre);
  for (std::string const& bytes : {std::string("\xff\xff\xff\x7f"), std::string("\x05\0\0\0ab", 6)}) {
    centre.log.clear();
    Descriptor raw(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    ASSERT_EQ(::connect(raw.fd(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::send(raw.fd(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    ASSERT_EQ(::shutdown(raw.fd(), SHUT_WR), 0);
    ASSERT_TRUE(runUntil([&] { return centre.log.size() == 2; }));
    EXPECT_THAT(centre.log, ElementsAre("+", "-"));
  }
}

TEST_F(LocalTransportTest, APathThatIsTooLongIsRefused) {
  LocalListener listener(loop, activity, std::string(200, 'x'));
  EXPECT_THROW(listener.userIs(&centre), std::system_error);
}

}  // namespace
}  // namespace Platform
