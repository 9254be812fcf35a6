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

TEST_F(SwitchSide, StartedDisabledItHasNoReporterAndReportsNothingUntilTheFirstEnable) {
  at<System::NetConfig>("sys/net/config")->hostnameIs("leaf1");
  auto const config = at<ClientConfig>("mgmt/zeb/config");
  config->groupIs("leaves");
  start();
  auto const report = at<ClientConfig>("mgmt/zeb/hubx/config");
  EXPECT_EQ(agent->rootSm()->configSm(), nullptr);
  EXPECT_EQ(agent->rootSm()->zebEchoConfigSm(), nullptr);
  EXPECT_EQ(report->hostname(), "");
  EXPECT_EQ(report->groups(), 0u);
  EXPECT_FALSE(at<Sonar::Config>("sonar/zeb/config")->enabled());
  config->enabledIs(true);
  EXPECT_NE(agent->rootSm()->configSm(), nullptr);
  EXPECT_EQ(report->hostname(), "leaf1");
  EXPECT_NE(report->group("leaves"), nullptr);
  EXPECT_TRUE(at<Sonar::Config>("sonar/zeb/config")->enabled());
}

TEST_F(SwitchSide, EnablingCreatesTheMachinesAndDisablingLeavesThem) {
  start();
  auto const config = at<ClientConfig>("mgmt/zeb/config");
  config->enabledIs(true);
  ClientRootSm const& root = *agent->rootSm();
  auto const* const reporter = root.configSm();
  auto const* const echoConfig = root.zebEchoConfigSm();
  auto const* const exporter = root.echoStatusExporterSm();
  ASSERT_NE(reporter, nullptr);
  ASSERT_NE(echoConfig, nullptr);
  ASSERT_NE(exporter, nullptr);
  EXPECT_TRUE(at<ClientStatus>("mgmt/zeb/status")->enabled());
  config->enabledIs(false);
  EXPECT_EQ(root.configSm(), reporter);
  EXPECT_EQ(root.zebEchoConfigSm(), echoConfig);
  EXPECT_EQ(root.echoStatusExporterSm(), exporter);
  EXPECT_FALSE(at<ClientStatus>("mgmt/zeb/status")->enabled());
}

TEST_F(SwitchSide, ADisabledSwitchGoesOnReportingAndObeying) {
  start();
  auto const config = at<ClientConfig>("mgmt/zeb/config");
  config->enabledIs(true);
  config->enabledIs(false);
  config->groupIs("leaves")->interfaceIpIs("eth1", Netkit::IpAddr(1));
  at<Ip::Status>("ip/status")->intfStatusIs(Netkit::IntfId("eth1"))->addressIs(Netkit::IpAddr(0x0a000001));
  auto const report = at<ClientConfig>("mgmt/zeb/hubx/config");
  ASSERT_NE(report->group("leaves"), nullptr);
  EXPECT_EQ(report->group("leaves")->interfaceIp("eth1"), Netkit::IpAddr(0x0a000001));
  auto const orders = Rix::make<ZebSonarConfigV1>();
  orders->transmitterIs("p:leaves")->enabledIs(true);
  at<Rix::Dir>("mgmt/zeb/hubx/waveConfigDir")->entityPtrIs("waveConfig", orders);
  auto const sonar = at<Sonar::Config>("sonar/zeb/config");
  ASSERT_NE(sonar->transmitter("p:leaves"), nullptr);
  EXPECT_TRUE(sonar->transmitter("p:leaves")->enabled());
  EXPECT_TRUE(sonar->enabled());
}

TEST_F(SwitchSide, EnablingASecondTimeCreatesNothingNew) {
  start();
  auto const config = at<ClientConfig>("mgmt/zeb/config");
  config->enabledIs(true);
  ClientRootSm const& root = *agent->rootSm();
  auto const* const reporter = root.configSm();
  auto const* const echoConfig = root.zebEchoConfigSm();
  auto const* const exporter = root.echoStatusExporterSm();
  config->enabledIs(false);
  config->enabledIs(true);
  EXPECT_EQ(root.configSm(), reporter);
  EXPECT_EQ(root.zebEchoConfigSm(), echoConfig);
  EXPECT_EQ(root.echoStatusExporterSm(), exporter);
}

// Hears of each change of one record.
template <class Record>
struct Observed {
  Observed(Rix::Ptr<Record> const& record, std::function<void()> told) : told_(std::move(told)) {
    observer_.notifierIs(record.get());
  }
  template <class... Changed>
  void changed(Changed const&...) {
    told_();
  }
  std::function<void()> told_;
  typename Record::template RixObserver<Observed> observer_{*this};
};

// Each machine writes a record at its start or its end: who stands by then is noted.
TEST_F(SwitchSide, MachinesAreMadeAndDeletedInTheOrderReporterOrdersExporter) {
  at<ClientConfig>("mgmt/zeb/config")->groupIs("leaves");
  Sonar::EgressStream const stream;
  auto const record = Rix::Ptr<ClientProbeStreamRecord>(
      at<ZebSonarStatusV1>("mgmt/zeb/echoStatus")->probeStreamTable()->streamRecordIs(egressStreamToStreamId(stream)));
  start();
  ClientRootSm const& root = *agent->rootSm();
  auto const standing = [&root] {
    return std::string(root.configSm() ? "reporter " : "") + (root.zebEchoConfigSm() ? "orders " : "") +
           (root.echoStatusExporterSm() ? "exporter " : "") + (root.isZombie() ? "zombie" : "");
  };
  std::vector<std::string> atReport, atService, atNames;
  Observed<ClientConfig> report(at<ClientConfig>("mgmt/zeb/hubx/config"), [&] { atReport.push_back(standing()); });
  Observed<Sonar::Config> service(at<Sonar::Config>("sonar/zeb/config"), [&] { atService.push_back(standing()); });
  Observed<ClientProbeStreamRecord> names(record, [&] { atNames.push_back(standing()); });
  at<ClientConfig>("mgmt/zeb/config")->enabledIs(true);
  EXPECT_EQ(std::exchange(atReport, {}), (std::vector<std::string>{""}));
  EXPECT_EQ(std::exchange(atService, {}), (std::vector<std::string>{"reporter "}));
  at<Sonar::Status>("sonar/status")->streamTransmitterMapIs(stream)->transmitterIs("p:leaves", true);
  EXPECT_EQ(std::exchange(atNames, {}), (std::vector<std::string>{"reporter orders exporter "}));
  agent = nullptr;
  EXPECT_EQ(atReport, (std::vector<std::string>{"orders exporter zombie"}));
  EXPECT_EQ(atService, (std::vector<std::string>{}));
  EXPECT_EQ(atNames, (std::vector<std::string>{"zombie"}));
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
