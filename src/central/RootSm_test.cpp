// When the central machines exist, and what clears loss records.
#include "central/RootSm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {

struct RootSmPeer {
  static void initializedIs(RootSm& rootSm, bool initialized) { rootSm.initializedIs(initialized); }
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
  void runTo(double now) {
    time.nowIs(now);
    activity.runDueTimers();
  }
  static Fabric::SystemId switchId(U8 number) { return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, 0, number})); }
  void addReport(U8 number, char const* hostname) {
    auto report = Rix::make<ClientConfig>();
    report->hostnameIs(hostname);
    report->groupIs("leaves");
    configDir->entityPtrIs(Rix::Name(switchId(number).stringValue()), report);
  }
  // A stream from switch 1 to switch 2.
  ProbeStreamRecord& addStream() {
    ProbeStreamRecord& record = *root->zebStreamTable()->streamRecordIs(ProbeStreamId(ProbeStreamId::Fields{}));
    record.sourceIdIs(switchId(1));
    record.destinationIdIs(switchId(2));
    return record;
  }
  void addLossRecord(U16 port) {
    ProbeStreamId::Fields fields;
    fields.streamPort = port;
    ProbeStreamId const stream(fields);
    root->zebStreamTable()->streamRecordIs(stream);
    status->lossStatus()->lossRecordIs(stream, "a", "b", Netkit::IpAddr(), 0);
  }
};

using CentralSideDeathTest = CentralSide;

TEST_F(CentralSide, EnabledOnAMemberThatDoesNotLeadHasNoMachine) {
  config->enabledIs(true);
  start();
  EXPECT_FALSE(status->enabled());
  EXPECT_EQ(rootSm->collectorSm(), nullptr);
  EXPECT_EQ(rootSm->configMountSm(), nullptr);
  EXPECT_EQ(rootSm->eventsAnalyzerSm(), nullptr);
  EXPECT_EQ(rootSm->cliConfigSm(), nullptr);
  EXPECT_EQ(rootSm->statsEngineSm(), nullptr);
  EXPECT_EQ(rootSm->pairStreamSm(), nullptr);
}

TEST_F(CentralSide, BecomingLeaderCreatesTheMachines) {
  config->enabledIs(true);
  start();
  cluster->isStandaloneOrLeaderIs(true);
  EXPECT_TRUE(status->enabled());
  EXPECT_NE(rootSm->configMountSm(), nullptr);
  EXPECT_NE(rootSm->groupBuilderSm(), nullptr);
  EXPECT_NE(rootSm->collectorSm(), nullptr);
  EXPECT_NE(rootSm->eventCollectorSm(), nullptr);
  EXPECT_NE(rootSm->lossAnalyzerSm(), nullptr);
  EXPECT_NE(rootSm->eventsAnalyzerSm(), nullptr);
  EXPECT_NE(rootSm->cliConfigSm(), nullptr);
  EXPECT_NE(rootSm->statsEngineSm(), nullptr);
  EXPECT_NE(rootSm->pairStreamSm(), nullptr);
}

TEST_F(CentralSide, ANotificationOfTheDatabaseStatusAloneChangesAndRecreatesNothing) {
  startRunning();
  auto* const collector = rootSm->collectorSm();
  auto* const lossAnalyzer = rootSm->lossAnalyzerSm();
  auto* const groupBuilder = rootSm->groupBuilderSm();
  auto* const statsEngine = rootSm->statsEngineSm();
  auto* const pairStream = rootSm->pairStreamSm();
  fabricdbStatus->enabledIs(true);
  EXPECT_TRUE(status->enabled());
  EXPECT_EQ(rootSm->groupBuilderSm(), groupBuilder);
  EXPECT_EQ(rootSm->statsEngineSm(), statsEngine);
  EXPECT_EQ(rootSm->pairStreamSm(), pairStream);
  EXPECT_EQ(rootSm->collectorSm(), collector);
  EXPECT_EQ(rootSm->lossAnalyzerSm(), lossAnalyzer);
}

TEST_F(CentralSide, AcrossADisableTheEventsAnalyzerTheClearerAndTheStatisticsStayAndTheOthersAreNew) {
  startRunning();
  Rix::Ptr<ZebConfigMountSm> const configMount = rootSm->configMountSm();
  Rix::Ptr<ZebGroupBuilderSm> const groupBuilder = rootSm->groupBuilderSm();
  Rix::Ptr<ZebCollectorSm> const collector = rootSm->collectorSm();
  Rix::Ptr<ZebEventCollectorSm> const eventCollector = rootSm->eventCollectorSm();
  Rix::Ptr<ZebLossAnalyzerSm> const lossAnalyzer = rootSm->lossAnalyzerSm();
  Rix::Ptr<ZebPairStreamSm> const pairStream = rootSm->pairStreamSm();
  Rix::Ptr<ZebEventsAnalyzerSm> const eventsAnalyzer = rootSm->eventsAnalyzerSm();
  Rix::Ptr<ZebCliConfigSm> const clearer = rootSm->cliConfigSm();
  Rix::Ptr<ZebStatsEngineSm> const statsEngine = rootSm->statsEngineSm();
  config->enabledIs(false);
  EXPECT_FALSE(status->enabled());
  EXPECT_EQ(rootSm->configMountSm(), nullptr);
  EXPECT_EQ(rootSm->groupBuilderSm(), nullptr);
  EXPECT_EQ(rootSm->collectorSm(), nullptr);
  EXPECT_EQ(rootSm->eventCollectorSm(), nullptr);
  EXPECT_EQ(rootSm->lossAnalyzerSm(), nullptr);
  EXPECT_EQ(rootSm->pairStreamSm(), nullptr);
  EXPECT_EQ(rootSm->eventsAnalyzerSm(), eventsAnalyzer.get());
  EXPECT_EQ(rootSm->cliConfigSm(), clearer.get());
  EXPECT_EQ(rootSm->statsEngineSm(), statsEngine.get());
  EXPECT_TRUE(statsEngine->hasNotificationActive());
  config->enabledIs(true);
  EXPECT_EQ(rootSm->eventsAnalyzerSm(), eventsAnalyzer.get());
  EXPECT_EQ(rootSm->cliConfigSm(), clearer.get());
  EXPECT_EQ(rootSm->statsEngineSm(), statsEngine.get());
  for (auto const* made : std::initializer_list<Rix::PtrInterface const*>{
           rootSm->configMountSm(), rootSm->groupBuilderSm(), rootSm->collectorSm(), rootSm->eventCollectorSm(),
           rootSm->lossAnalyzerSm(), rootSm->pairStreamSm()}) {
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(made->hasNotificationActive());
  }
  EXPECT_NE(rootSm->configMountSm(), configMount.get());
  EXPECT_NE(rootSm->groupBuilderSm(), groupBuilder.get());
  EXPECT_NE(rootSm->collectorSm(), collector.get());
  EXPECT_NE(rootSm->eventCollectorSm(), eventCollector.get());
  EXPECT_NE(rootSm->lossAnalyzerSm(), lossAnalyzer.get());
  EXPECT_NE(rootSm->pairStreamSm(), pairStream.get());
}

// In which order the machines first say something; those that a handler of another reaches are made after it too.
struct FacilitiesHeard {
  std::vector<std::string> names;
  FacilitiesHeard() {
    Rix::traceSinkIs([this](Rix::TraceLine const& line) {
      std::string const name(line.facility);
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    });
    Rix::traceLevelsIs("*", ~U32{0});
  }
  ~FacilitiesHeard() {
    Rix::traceLevelsIs("*", 0);
    Rix::traceSinkIs({});
  }
  // Those of `wanted` that were heard, in the order in which they were.
  std::vector<std::string> of(std::vector<std::string> const& wanted) const {
    std::vector<std::string> found;
    for (auto const& name : names) {
      if (std::find(wanted.begin(), wanted.end(), name) != wanted.end()) found.push_back(name);
    }
    return found;
  }
};

TEST_F(CentralSide, MachinesComeInOneOrderAndGoInIt) {
  addReport(1, "leaf1");
  addStream();
  waveStatusDir->entityPtrIs(Rix::Name(switchId(1).stringValue()), Rix::make<ZebSonarStatusV1>());
  auto probe = Rix::make<ZebProbeConfig>("p");
  probe->srcGroupIs("leaves");
  config->probeConfigAdopt(probe);
  start();
  cluster->isStandaloneOrLeaderIs(true);
  std::vector<std::string> const made = {"ZebConfigMountSm", "ZebGroupBuilderSm", "ZebCollectorSm", "ZebStatsEngineSm",
                                         "ZebPairStreamSm"};
  std::vector<std::string> const ended = {"ZebConfigMountSm", "ZebGroupBuilderSm", "ZebPairStreamSm"};
  {
    FacilitiesHeard const heard;
    config->enabledIs(true);
    EXPECT_EQ(heard.of(made), made);
  }
  {
    FacilitiesHeard const heard;
    config->enabledIs(false);
    EXPECT_EQ(heard.of(ended), ended);
  }
  config->enabledIs(true);
  FacilitiesHeard const heard;
  rootSm = nullptr;
  EXPECT_EQ(heard.of(ended), ended);
}

TEST_F(CentralSide, ReportsAndProbesMeetInGroupsWhileTheServiceIsOnAndNothingOfThemIsLeftWhenItIsOff) {
  addReport(1, "leaf1");
  auto probe = Rix::make<ZebProbeConfig>("p");
  probe->srcGroupIs("leaves");
  probe->dstGroupIs("leaves");
  config->probeConfigAdopt(probe);
  startRunning();
  ASSERT_NE(status->group("leaves"), nullptr);
  EXPECT_EQ(status->group("leaves")->members(), 1u);
  EXPECT_NE(status->probeStatus("p"), nullptr);
  config->enabledIs(false);
  EXPECT_EQ(status->clients(), 0u);
  EXPECT_EQ(status->groups(), 0u);
  EXPECT_NE(status->probeStatus("p"), nullptr);
  config->enabledIs(true);
  EXPECT_EQ(status->group("leaves")->members(), 1u);
}

// The publisher looks at a new probe's groups once. Were it told of the probe before the group builder is, it would
// find no group, and a group that comes later brings its probe only after it has been announced.
TEST_F(CentralSide, AProbeAddedWhileTheServiceIsOnGetsItsOrdersAlsoAfterTheMachinesWereMadeAnew) {
  startRunning();
  addReport(1, "leaf1");
  addReport(2, "leaf2");
  Rix::Name const name(switchId(1).stringValue());
  auto const orders = Rix::make<ZebSonarConfigV1>();
  waveConfigDir->entityPtrIs(name, orders);
  auto const addProbe = [this](char const* probeName) {
    auto const probe = Rix::make<ZebProbeConfig>(probeName);
    probe->srcGroupIs("leaves");
    probe->dstGroupIs("leaves");
    config->probeConfigAdopt(probe);
  };
  addProbe("first");
  EXPECT_NE(orders->transmitter("first:leaves"), nullptr);
  config->enabledIs(false);
  EXPECT_EQ(orders->transmitters(), 0U);
  config->enabledIs(true);
  addProbe("second");
  EXPECT_NE(orders->transmitter("first:leaves"), nullptr);
  EXPECT_NE(orders->transmitter("second:leaves"), nullptr);
}

TEST_F(CentralSide, TheStatisticsGoOnWhileTheServiceIsOffIfNoStreamIsReceivedByAnyone) {
  startRunning();
  config->enabledIs(false);
  runTo(100.5);
  config->probeConfigIs("p");
  status->probeStatus("p")->rxCountIs(7);
  runTo(101);
  EXPECT_EQ(status->probeStatus("p")->rxCount(), 0u);
}

TEST_F(CentralSide, ThePairIndexEmptiesWithTheServiceAndFillsWithIt) {
  addStream();
  startRunning();
  EXPECT_EQ(status->pairStreamStatus()->sources(), 1u);
  config->enabledIs(false);
  EXPECT_EQ(status->pairStreamStatus()->sources(), 0u);
  config->enabledIs(true);
  EXPECT_EQ(status->pairStreamStatus()->sources(), 1u);
}

// The clients go with the intake, the streams stay with the root object, and the statistics stay too.
TEST_F(CentralSideDeathTest, ADisableWhileStreamsLiveEndsTheProcessAtTheStatisticsNextSecond) {
  addReport(1, "leaf1");
  addReport(2, "leaf2");
  startRunning();
  ProbeStreamRecord& record = addStream();
  record.probeNameIs("p:leaves", true);
  auto* const switchRecord = record.ingressRecordIs(1)->switchIngressRecordIs(switchId(2));
  switchRecord->ingressStatsIs()->probesReceivedIs(1);
  runTo(101);
  activity.dispatch([this] { config->enabledIs(false); });
  runTo(101.9);
  EXPECT_DEATH(runTo(102), "assertion failed: client != nullptr with 02:00:00:00:00:02");
}

TEST_F(CentralSide, ADisableWithItsStreamsWithdrawnBeforeIsSurvived) {
  addReport(1, "leaf1");
  addReport(2, "leaf2");
  startRunning();
  ProbeStreamRecord& record = addStream();
  record.probeNameIs("p:leaves", true);
  record.ingressRecordIs(1)->switchIngressRecordIs(switchId(2))->ingressStatsIs()->probesReceivedIs(1);
  runTo(101);
  record.probeNameDel("p:leaves");
  config->enabledIs(false);
  runTo(110);
  config->enabledIs(true);
  EXPECT_EQ(status->clients(), 2u);
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
  Rix::Ptr<ZebStatsEngineSm> const statsEngine = rootSm->statsEngineSm();
  rootSm = nullptr;
  for (auto const* machine : std::initializer_list<Rix::PtrInterface const*>{eventsAnalyzer.get(), statsEngine.get()}) {
    EXPECT_FALSE(machine->hasNotificationActive());
    EXPECT_TRUE(machine->isZombie());
  }
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
