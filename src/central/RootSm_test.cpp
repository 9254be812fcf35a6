// When the central machines exist, and what clears loss records.
#include "central/RootSm.h"

#include <gtest/gtest.h>

#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {

struct RootSmPeer {
  static void initializedIs(RootSm& rootSm, bool initialized) { rootSm.initialized_ = initialized; }
};

namespace {

struct CentralSide : testing::Test {
  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  Rix::Ptr<ZebConfig> config = Rix::make<ZebConfig>();
  Rix::Ptr<ZebStatus> status = Rix::make<ZebStatus>();
  Rix::Ptr<Root> root = rootFactory("root");
  Rix::Ptr<Fabricdb::Status> fabricdbStatus = Rix::make<Fabricdb::Status>();
  Rix::Ptr<FabricCluster::ClusterStatus> cluster = Rix::make<FabricCluster::ClusterStatus>("default");
  Rix::Ptr<Rix::Dir> configDir = Rix::make<Rix::Dir>("configDir");
  Rix::Ptr<Rix::Dir> waveConfigDir = Rix::make<Rix::Dir>("waveConfigDir");
  Rix::Ptr<Rix::Dir> waveStatusDir = Rix::make<Rix::Dir>("waveStatusDir");
  Rix::Ptr<RootSm> rootSm;

  CentralSide() { root->zebStatusIs(status); }

  void start() {
    rootSm = Rix::make<RootSm>(
        Rix::Ptr<ZebConfig const>(config), status, root, Rix::Ptr<Fabricdb::Status const>(fabricdbStatus),
        Rix::Ptr<FabricCluster::ClusterStatus const>(cluster), configDir, waveConfigDir,
        Rix::Ptr<Rix::Dir const>(waveStatusDir), Rix::Ptr<ProbeStreamTable>(root->zebStreamTable()),
        Rix::Ptr<ProbeStreamEventTable>(root->eventTable()));
    rootSm->hasNotificationActiveIs(true);
  }
  void startRunning() {
    config->enabledIs(true);
    cluster->isStandaloneOrLeaderIs(true);
    start();
  }
  void addLossRecord(U16 port) {
    ProbeStreamId::Fields fields;
    fields.streamPort = port;
    ProbeStreamId const stream(fields);
    root->zebStreamTable()->streamRecordIs(stream);
    status->lossStatus()->lossRecordIs(stream, "a", "b", Netkit::IpAddr(), 0);
  }
};

TEST_F(CentralSide, EnabledOnAMemberThatDoesNotLeadHasNoMachine) {
  config->enabledIs(true);
  start();
  EXPECT_FALSE(status->enabled());
  EXPECT_EQ(rootSm->collectorSm(), nullptr);
  EXPECT_EQ(rootSm->eventsAnalyzerSm(), nullptr);
  EXPECT_EQ(rootSm->cliConfigSm(), nullptr);
}

TEST_F(CentralSide, BecomingLeaderCreatesTheMachines) {
  config->enabledIs(true);
  start();
  cluster->isStandaloneOrLeaderIs(true);
  EXPECT_TRUE(status->enabled());
  EXPECT_NE(rootSm->collectorSm(), nullptr);
  EXPECT_NE(rootSm->eventCollectorSm(), nullptr);
  EXPECT_NE(rootSm->lossAnalyzerSm(), nullptr);
  EXPECT_NE(rootSm->eventsAnalyzerSm(), nullptr);
  EXPECT_NE(rootSm->cliConfigSm(), nullptr);
}

TEST_F(CentralSide, ANotificationOfTheDatabaseStatusAloneChangesAndRecreatesNothing) {
  startRunning();
  auto* const collector = rootSm->collectorSm();
  auto* const lossAnalyzer = rootSm->lossAnalyzerSm();
  fabricdbStatus->enabledIs(true);
  EXPECT_TRUE(status->enabled());
  EXPECT_EQ(rootSm->collectorSm(), collector);
  EXPECT_EQ(rootSm->lossAnalyzerSm(), lossAnalyzer);
}

TEST_F(CentralSide, AcrossADisableTheEventsAnalyzerAndTheClearerStayAndTheOthersAreNew) {
  startRunning();
  Rix::Ptr<ZebCollectorSm> const collector = rootSm->collectorSm();
  Rix::Ptr<ZebEventsAnalyzerSm> const eventsAnalyzer = rootSm->eventsAnalyzerSm();
  Rix::Ptr<ZebCliConfigSm> const clearer = rootSm->cliConfigSm();
  config->enabledIs(false);
  EXPECT_FALSE(status->enabled());
  EXPECT_EQ(rootSm->collectorSm(), nullptr);
  EXPECT_EQ(rootSm->eventCollectorSm(), nullptr);
  EXPECT_EQ(rootSm->lossAnalyzerSm(), nullptr);
  EXPECT_EQ(rootSm->eventsAnalyzerSm(), eventsAnalyzer.get());
  config->enabledIs(true);
  EXPECT_EQ(rootSm->eventsAnalyzerSm(), eventsAnalyzer.get());
  EXPECT_EQ(rootSm->cliConfigSm(), clearer.get());
  EXPECT_NE(rootSm->collectorSm(), nullptr);
  EXPECT_NE(rootSm->collectorSm(), collector.get());
}

TEST_F(CentralSide, EachChangeToANonZeroRequestClearsAndOneToZeroDoesNot) {
  startRunning();
  addLossRecord(1);
  config->clearLossRecordsIs(1);
  EXPECT_EQ(status->lossStatus()->lossRecords(), 0u);
  addLossRecord(2);
  config->clearLossRecordsIs(2);
  EXPECT_EQ(status->lossStatus()->lossRecords(), 0u);
  // A record that stands when the service is off has nobody who follows it: only the request decides.
  config->enabledIs(false);
  addLossRecord(3);
  config->clearLossRecordsIs(0);
  EXPECT_EQ(status->lossStatus()->lossRecords(), 1u);
}

TEST_F(CentralSide, ARequestWhileDisabledAfterHavingBeenEnabledStillClears) {
  startRunning();
  config->enabledIs(false);
  addLossRecord(1);
  config->clearLossRecordsIs(1);
  EXPECT_EQ(status->lossStatus()->lossRecords(), 0u);
}

TEST_F(CentralSide, AMemberThatNeverWasEnabledDoesNotClear) {
  start();
  addLossRecord(1);
  config->clearLossRecordsIs(1);
  EXPECT_EQ(status->lossStatus()->lossRecords(), 1u);
}

TEST_F(CentralSide, ANotificationBeforeItIsInitializedChangesNothing) {
  cluster->isStandaloneOrLeaderIs(true);
  start();
  RootSmPeer::initializedIs(*rootSm, false);
  config->enabledIs(true);
  rootSm->handleEnabled();
  EXPECT_FALSE(status->enabled());
  EXPECT_EQ(rootSm->collectorSm(), nullptr);
  EXPECT_EQ(rootSm->cliConfigSm(), nullptr);
  rootSm->handleInitialized();
  EXPECT_TRUE(status->enabled());
  EXPECT_NE(rootSm->collectorSm(), nullptr);
}

TEST_F(CentralSide, ASecondInitialisationDoesNothing) {
  startRunning();
  auto* const collector = rootSm->collectorSm();
  rootSm->handleInitialized();
  EXPECT_EQ(rootSm->collectorSm(), collector);
}

TEST_F(CentralSide, EverythingGoesWithTheRootMachine) {
  startRunning();
  Rix::Ptr<ZebEventsAnalyzerSm> const eventsAnalyzer = rootSm->eventsAnalyzerSm();
  rootSm = nullptr;
  EXPECT_FALSE(eventsAnalyzer->hasNotificationActive());
  EXPECT_TRUE(eventsAnalyzer->isZombie());
}

TEST_F(CentralSide, TheEvaluationIsTracedWithBothInputs) {
  std::string traced;
  Rix::traceLevelsIs("Zeb", 1u << 8);
  Rix::traceSinkIs([&traced](Rix::TraceLine const& line) { traced += std::string(line.text) + "\n"; });
  config->enabledIs(true);
  start();
  Rix::traceSinkIs({});
  Rix::traceLevelsIs("Zeb", 0);
  EXPECT_EQ(traced, "void Zeb::RootSm::handleEnabled() config::enabled:1 isStandaloneOrLeader:0\n");
}

}  // namespace
}  // namespace Zeb
