// Plays the host's log on datagram sockets of its own and shows what arrives there.
#include "platform/SystemLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>
#include <optional>

#include "runtime/Trace.h"

namespace Platform {
namespace {

using testing::HasSubstr;
using testing::Not;

// A log's socket at a path.
struct Listener {
  explicit Listener(const std::string& path) : socket(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::bind(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) std::abort();
  }
  std::optional<std::string> next() const {
    std::string datagram(65536, '\0');
    const ssize_t size = ::recv(socket.fd(), datagram.data(), datagram.size(), MSG_DONTWAIT);
    if (size < 0) return std::nullopt;
    datagram.resize(static_cast<std::size_t>(size));
    return datagram;
  }
  Descriptor socket;
};

struct SystemLogTest : testing::Test {
  SystemLogTest() {
    std::string name = testing::TempDir() + "zeb-log-XXXXXX";
    if (!mkdtemp(name.data())) std::abort();
    folder = name;
    paths = {folder + "/journal", folder + "/log"};
  }
  ~SystemLogTest() override { std::filesystem::remove_all(folder); }

  std::string folder;
  SystemLog::Paths paths;
  const SystemLogMessage message{
      6, "ZEB_LOSS_EVENT", "probe loss between leaf1 and spine1", {{"DEVICE1", "leaf1"}, {"DEVICE2", "spine1"}}};
};

TEST_F(SystemLogTest, TheJournalGetsAFieldForEachValue) {
  const Listener journal(paths.journal);
  const Listener syslog(paths.syslog);
  SystemLog log("zeb-central", paths);
  EXPECT_TRUE(log.write(message));
  EXPECT_EQ(journal.next(),
            "MESSAGE=probe loss between leaf1 and spine1\n"
            "PRIORITY=6\n"
            "SYSLOG_FACILITY=3\n"
            "SYSLOG_IDENTIFIER=zeb-central\n"
            "ZEB_EVENT=ZEB_LOSS_EVENT\n"
            "ZEB_DEVICE1=leaf1\n"
            "ZEB_DEVICE2=spine1\n");
  EXPECT_EQ(syslog.next(), std::nullopt) << "one message, one log";
}

TEST_F(SystemLogTest, WithoutAJournalSyslogGetsAStructuredLine) {
  const Listener syslog(paths.syslog);
  SystemLog log("zeb-central", paths);
  EXPECT_TRUE(log.write(message));
  EXPECT_THAT(syslog.next().value_or(""),
              testing::MatchesRegex(
                  R"(<30>1 [0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{6}Z [^ ]+ zeb-central )"
                  R"([0-9]+ ZEB_LOSS_EVENT \[zeb@32473 device1="leaf1" device2="spine1"\] )"
                  R"(probe loss between leaf1 and spine1)"));
  EXPECT_TRUE(log.write({3, "OTHER", "text", {}}));
  EXPECT_THAT(syslog.next().value_or(""), testing::AllOf(HasSubstr("<27>1 "), HasSubstr(" OTHER - text")));
}

TEST_F(SystemLogTest, AValueCannotPassForMoreThanAValue) {
  SystemLog log("zeb-central", paths);
  const SystemLogMessage hostile{9, "odd name", "one\nMESSAGE=two", {{"DEV=ICE", "a\"]\\b\nPRIORITY=0"}}};
  {
    const Listener syslog(paths.syslog);
    EXPECT_TRUE(log.write(hostile));
    EXPECT_THAT(syslog.next().value_or(""),
                testing::AllOf(HasSubstr("<31>1 "), HasSubstr(" ODD_NAME "),
                               HasSubstr(R"( dev_ice="a\"\]\\b PRIORITY=0"] one MESSAGE=two)"), Not(HasSubstr("\n"))));
  }
  const Listener journal(paths.journal);
  EXPECT_TRUE(log.write(hostile));
  EXPECT_THAT(journal.next().value_or(""), testing::AllOf(HasSubstr("MESSAGE=one MESSAGE=two\nPRIORITY=7\n"),
                                                          HasSubstr("ZEB_DEV_ICE=a\"]\\b PRIORITY=0\n")));
}

TEST(SystemLogMessage, OfAnAgentHasItsNameItsSeverityAndBothDevices) {
  static const Rix::LogHandle handle("ZEB_LOSS_EVENT", Rix::LogSeverity::informational,
                                     "Zeb detected probe loss between devices %s and %s.", "", "", 0.0, 1.0, 0);
  const SystemLogMessage message = systemLogMessage(
      {&handle, 1.0, 2.0, "Zeb detected probe loss between devices leaf1 and spine1.", {"leaf1", "spine1"}});
  EXPECT_EQ(message.severity, 6);
  EXPECT_EQ(message.name, "ZEB_LOSS_EVENT");
  EXPECT_EQ(message.text, "Zeb detected probe loss between devices leaf1 and spine1.");
  EXPECT_EQ(message.fields,
            (std::vector<std::pair<std::string, std::string>>{{"DEVICE1", "leaf1"}, {"DEVICE2", "spine1"}}));
}

TEST_F(SystemLogTest, LongValuesAreCutBetweenCharacters) {
  const Listener journal(paths.journal);
  SystemLog log("zeb-central", paths);
  std::string text(2047, 'x');
  EXPECT_TRUE(log.write({6, "LONG", text + "\u00e9 and more", {{std::string(99, 'N'), std::string(999, 'v')}}}));
  const std::string entry = journal.next().value_or("");
  EXPECT_THAT(entry, HasSubstr("MESSAGE=" + text + "\n"));
  EXPECT_THAT(entry, HasSubstr("\nZEB_" + std::string(32, 'N') + "=" + std::string(256, 'v') + "\n"));
}

TEST_F(SystemLogTest, ALogOutOfReachIsToldOnceAndCounted) {
  SystemLog log("zeb-central", paths);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(log.write(message));
  EXPECT_FALSE(log.write(message));
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_THAT(told, HasSubstr("zeb-central: the system log takes no message at " + paths.journal));
  EXPECT_EQ(std::ranges::count(told, '\n'), 1);
  EXPECT_EQ(log.lost(), 2U);

  const Listener syslog(paths.syslog);
  EXPECT_TRUE(log.write(message)) << "a log that comes later is found";
  EXPECT_EQ(log.lost(), 2U);
}

TEST_F(SystemLogTest, ALogThatDoesNotReadNeverBlocks) {
  const Listener syslog(paths.syslog);
  SystemLog log("zeb-central", paths);
  testing::internal::CaptureStderr();
  for (int i = 0; i < 100'000 && log.lost() == 0; ++i) log.write(message);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(log.lost(), 1U);
}

TEST_F(SystemLogTest, APathTooLongForASocketIsAFailureAsAnyOther) {
  SystemLog log("zeb-central", {std::string(200, 'j'), ""});
  testing::internal::CaptureStderr();
  EXPECT_FALSE(log.write(message));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("takes no message"));
}

}  // namespace
}  // namespace Platform
