// The start of the switch side, with everything in its store and with something missing.
#include "client/ZebClientAgent.h"

#include <gtest/gtest.h>

#include "client/ClientStore.h"
#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {
namespace {

struct SwitchSide : testing::Test {
  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  Rix::Ptr<Atlas::EntityManager> store = Rix::make<Atlas::EntityManager>("switch");
  Rix::Ptr<Sonar::LocalStatus> localStatus = Rix::make<Sonar::LocalStatus>();
  Rix::Ptr<ClientAgent> agent = clientAgentFactory("ZebClient");

  SwitchSide() { fillClientStore(*store, localStatus); }
  template <class T>
  Rix::Ptr<T> at(char const* path) {
    return Rix::dynamicCast<T>(store->getEntity(path));
  }
  void start() {
    agent->entityManagerIs(store);
    activity.runDueTimers();
  }
};
using SwitchSideDeathTest = SwitchSide;

TEST_F(SwitchSide, RobustnessIsWrittenAtEveryStartAlsoWhenDisabled) {
  start();
  EXPECT_EQ(at<Sonar::Config>("sonar/zeb/config")->robustness(), 5u);
}

TEST_F(SwitchSide, MountsAndReportsDisabledWhenDisabled) {
  at<ClientStatus>("mgmt/zeb/status")->enabledIs(true);
  start();
  ASSERT_NE(agent->rootSm(), nullptr);
  EXPECT_FALSE(at<ClientStatus>("mgmt/zeb/status")->enabled());
  EXPECT_EQ(agent->rootSm()->echoStatusExporterSm(), nullptr);
}

TEST_F(SwitchSide, EnablingCreatesTheMachinesAndDisablingLeavesThem) {
  start();
  auto const config = at<ClientConfig>("mgmt/zeb/config");
  config->enabledIs(true);
  auto* const exporter = agent->rootSm()->echoStatusExporterSm();
  ASSERT_NE(exporter, nullptr);
  EXPECT_TRUE(at<ClientStatus>("mgmt/zeb/status")->enabled());
  config->enabledIs(false);
  EXPECT_EQ(agent->rootSm()->echoStatusExporterSm(), exporter);
  EXPECT_FALSE(at<ClientStatus>("mgmt/zeb/status")->enabled());
}

TEST_F(SwitchSide, EnablingASecondTimeCreatesNothingNew) {
  start();
  auto const config = at<ClientConfig>("mgmt/zeb/config");
  config->enabledIs(true);
  auto* const exporter = agent->rootSm()->echoStatusExporterSm();
  config->enabledIs(false);
  config->enabledIs(true);
  EXPECT_EQ(agent->rootSm()->echoStatusExporterSm(), exporter);
}

TEST_F(SwitchSide, TheDecisionIsWrittenToTraceAndRingBuffer) {
  Rix::Flashlog::Handle ring(4);
  Rix::Flashlog::defaultFlashlogHandleIs(&ring);
  start();
  Rix::Flashlog::defaultFlashlogHandleIs(nullptr);
  ASSERT_EQ(ring.messages().size(), 1u);
  EXPECT_EQ(ring.messages().front(), "void Zeb::ClientRootSm::handleEnabled(): config::enabled=0");
}

TEST_F(SwitchSideDeathTest, AMissingSonarStatusStopsTheAgentBeforeAnythingIsWritten) {
  store->entityDel("sonar/status");
  auto const config = at<Sonar::Config>("sonar/zeb/config");
  Rix::assertionThrowsIs(true);
  try {
    start();
    ADD_FAILURE() << "expected an assertion";
  } catch (Rix::AssertionFailure const& failure) {
    EXPECT_NE(failure.text.find("assertion failed: echoStatus"), std::string::npos) << failure.text;
  }
  Rix::assertionThrowsIs(false);
  EXPECT_EQ(config->robustness(), 0u);
  EXPECT_EQ(agent->rootSm(), nullptr);
}

TEST_F(SwitchSideDeathTest, WhatIsMissingIsNamed) {
  struct Missing {
    char const* path;
    char const* text;
  };
  for (Missing const missing : {Missing{"mgmt/zeb/config", "assertion failed: config"},
                                {"mgmt/zeb/status", "assertion failed: status"},
                                {"mgmt/zeb/hubx/config", "assertion failed: mountedConfig"},
                                {"ip/status", "assertion failed: ipStatus"},
                                {"sys/net/config", "assertion failed: netConfig"},
                                {"mgmt/zeb/hubx/waveConfigDir", "assertion failed: zebEchoConfigDir"},
                                {"sonar/zeb/config", "assertion failed: echoZebConfig"},
                                {"mgmt/zeb/echoStatus", "assertion failed: zebEchoStatus"},
                                {"sonar/localStatus", "assertion failed: echoLocalStatus"}}) {
    EXPECT_DEATH(
        {
          store->entityDel(missing.path);
          start();
        },
        missing.text);
  }
}

TEST_F(SwitchSideDeathTest, AFailedMountStopsTheAgent) {
  store->mountStatusIs(Atlas::mountFailed_);
  EXPECT_DEATH(start(), "mountStatus == Atlas::mountSuccess_");
}

}  // namespace
}  // namespace Zeb
