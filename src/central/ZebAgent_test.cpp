// The stages of the central agent's start, with everything in its store and with something missing.
#include "central/ZebAgent.h"

#include <gtest/gtest.h>

#include "central/CentralStore.h"
#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {
namespace {

// A host that notes the service and reports its group only when told to.
class NotingHost final : public Fabric::ServiceHost {
 public:
  explicit NotingHost(Rix::Ptr<Atlas::EntityManager> const& database) : database_(database) {
    for (char const* path : {"zeb/client/configDir", "zeb/client/waveStatusDir", "zeb/client/waveConfigDir"}) {
      database_->dirIs(path);
    }
  }
  Rix::Ptr<Atlas::EntityManager> const& entityManager() const override { return database_; }
  void serviceClosed(Rix::Ptr<Fabric::FabricdbService> const& service) override { services.push_back(service); }
  void machinesStand(Rix::Ptr<Fabric::FabricdbService> const&, bool stand) override { words.push_back(stand); }

  std::vector<Rix::Ptr<Fabric::FabricdbService>> services;
  std::vector<bool> words;

 private:
  Rix::Ptr<Atlas::EntityManager> const database_;
};

struct CentralAgent : testing::Test {
  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  Rix::Ptr<Atlas::EntityManager> store = Rix::make<Atlas::EntityManager>("centre");
  NotingHost host{Rix::make<Atlas::EntityManager>("fabricdb")};
  Rix::Ptr<Agent> agent = agentFactory("Zeb");

  CentralAgent() {
    fillCentralStore(*store);
    agent->serviceHostIs(&host);
  }
  void start() {
    agent->entityManagerIs(store);
    activity.runDueTimers();
  }
  void reportGroup(char const* name = "switchConfigMg") {
    activity.dispatch([this, name] { agent->serviceMounter()->doMountsComplete(name, host.entityManager()); });
    activity.runDueTimers();
  }
  Rix::Ptr<ZebConfig> config() { return Rix::dynamicCast<ZebConfig>(store->getEntity("zeb/config")); }
  Rix::Ptr<FabricCluster::ClusterStatus> cluster() {
    auto const dir = Rix::dynamicCast<FabricCluster::ClusterStatusDir>(store->getEntity("fabric/cluster/statusDir"));
    return dir->status("default");
  }
};
using CentralAgentDeathTest = CentralAgent;

TEST_F(CentralAgent, IsEmptyAfterItsConstruction) {
  EXPECT_FALSE(agent->config());
  EXPECT_FALSE(agent->status());
  EXPECT_FALSE(agent->root());
  EXPECT_EQ(agent->serviceMounter(), nullptr);
  EXPECT_EQ(agent->rootSm(), nullptr);
}

TEST_F(CentralAgent, DeclaresTheServiceWithItsThreeMounts) {
  start();
  ASSERT_EQ(host.services.size(), 1u);
  Fabric::FabricdbService const& service = *host.services.front();
  EXPECT_EQ(service.name(), "Zeb");
  EXPECT_TRUE(service.closed());
  EXPECT_TRUE(service.publishMountsSynchronized());
  ASSERT_EQ(service.mountGroups().size(), 1u);
  Fabric::FabricdbServiceMountGroup const& group = *service.mountGroups().front();
  EXPECT_EQ(group.name(), "switchConfigMg");
  EXPECT_TRUE(group.closed());
  EXPECT_TRUE(group.preserveMountsOnDisconnect());
  EXPECT_TRUE(group.admits(1));
  EXPECT_FALSE(group.admits(2));
  ASSERT_EQ(group.fabricMounts().size(), 2u);
  EXPECT_EQ(group.fabricMounts()[0].switchPath, "mgmt/zeb/hubx/config");
  EXPECT_EQ(group.fabricMounts()[0].centralPath, "zeb/client/configDir");
  EXPECT_EQ(group.fabricMounts()[1].switchPath, "mgmt/zeb/echoStatus");
  EXPECT_EQ(group.fabricMounts()[1].centralPath, "zeb/client/waveStatusDir");
  ASSERT_EQ(group.publishMounts().size(), 1u);
  EXPECT_EQ(group.publishMounts()[0]->centralPath(), "zeb/client/waveConfigDir");
  EXPECT_EQ(group.publishMounts()[0]->switchPath(), "mgmt/zeb/hubx/waveConfigDir/waveConfig");
  EXPECT_TRUE(group.publishMounts()[0]->publishActive());
}

TEST_F(CentralAgent, HasNoMachineUntilTheGroupStandsAlsoWhenEnabled) {
  config()->enabledIs(true);
  cluster()->isStandaloneOrLeaderIs(true);
  start();
  EXPECT_EQ(agent->rootSm(), nullptr);
  EXPECT_FALSE(agent->status()->enabled());
  reportGroup();
  ASSERT_NE(agent->rootSm(), nullptr);
  EXPECT_NE(agent->rootSm()->collectorSm(), nullptr);
  EXPECT_TRUE(agent->status()->enabled());
}

TEST_F(CentralAgent, RunsTheWholeSequenceOnAMemberThatDoesNotLead) {
  config()->enabledIs(true);
  start();
  reportGroup();
  ASSERT_NE(agent->rootSm(), nullptr);
  EXPECT_EQ(agent->rootSm()->collectorSm(), nullptr);
}

TEST_F(CentralAgent, ASecondCompletionOfTheFirstStageStoresAgainAndDeclaresNothing) {
  start();
  auto const other = Rix::make<ZebConfig>();
  store->entityIs("zeb/config", other);
  activity.dispatch([this] { agent->doMountsComplete(Atlas::mountSuccess_, store); });
  EXPECT_EQ(agent->config().get(), other.get());
  EXPECT_EQ(host.services.size(), 1u);
}

TEST_F(CentralAgent, TheRootObjectIsReachedGloballyAndOutlivesTheAgent) {
  start();
  Rix::Ptr<Root> const root = agent->root();
  EXPECT_EQ(zebRoot().get(), root.get());
  EXPECT_EQ(root->zebStatus().get(), agent->status().get());
  agent = nullptr;
  EXPECT_EQ(zebRoot().get(), root.get());
}

TEST_F(CentralAgent, EveryHookIsTracedWithItsSignature) {
  std::vector<std::string> traced;
  Rix::traceLevelsIs("Zeb", 1u << 8);
  Rix::traceSinkIs([&traced](Rix::TraceLine const& line) { traced.emplace_back(line.text); });
  start();
  reportGroup();
  Rix::traceSinkIs({});
  Rix::traceLevelsIs("Zeb", 0);
  ASSERT_GE(traced.size(), 6u);
  EXPECT_EQ(traced[0], "void Zeb::Agent::doInit()");
  EXPECT_EQ(traced[1], "void Zeb::Agent::doMountsComplete(Atlas::MountStatus, Rix::Ptr<Atlas::EntityManager> const&)");
  EXPECT_EQ(traced[2], "void Zeb::Agent::doServiceAgentInit()");
  EXPECT_EQ(traced[3],
            "void Zeb::ZebServiceMounter::doMountsComplete(Rix::String8, Rix::Ptr<Atlas::EntityManager> const&)");
  EXPECT_EQ(traced[4], "void Zeb::Agent::doFabricMounts()");
  EXPECT_EQ(traced[5],
            "void Zeb::Agent::doFabricMountsComplete(Atlas::MountStatus, Rix::Ptr<Atlas::EntityManager> const&)");
}

TEST_F(CentralAgentDeathTest, AClusterDirectoryWithoutTheDefaultStopsBeforeAnyServiceIsDeclared) {
  store->entityIs("fabric/cluster/statusDir", Rix::make<FabricCluster::ClusterStatusDir>());
  Rix::assertionThrowsIs(true);
  try {
    start();
    ADD_FAILURE() << "expected an assertion";
  } catch (Rix::AssertionFailure const& failure) {
    EXPECT_NE(failure.text.find("clusterStatusDir->status( fabricConstants.clusterDefaultName() ) && "
                                "\"default cluster not found\""),
              std::string::npos)
        << failure.text;
  }
  Rix::assertionThrowsIs(false);
  EXPECT_EQ(host.services.size(), 0u);
}

TEST_F(CentralAgentDeathTest, AnotherGroupNameStopsBeforeTheSecondStage) {
  start();
  EXPECT_DEATH(reportGroup("otherMg"), "groupName == \"switchConfigMg\"");
}

TEST_F(CentralAgentDeathTest, WhatIsMissingIsNamed) {
  struct Missing {
    char const* path;
    char const* text;
  };
  for (Missing const missing : {Missing{"zeb/config", "assertion failed: config"},
                                {"zeb/status", "status && \"Status not found\""},
                                {"fabric/status", "fabricdbStatus && \"fabricdbStatus not found\""},
                                {"fabric/cluster/statusDir", "clusterStatusDir && \"clusterStatusDir not found\""}}) {
    EXPECT_DEATH(
        {
          store->entityDel(missing.path);
          start();
        },
        missing.text);
  }
}

TEST_F(CentralAgentDeathTest, AFailedMountStopsTheAgent) {
  store->mountStatusIs(Atlas::mountFailed_);
  EXPECT_DEATH(start(), "mountStatus == Atlas::mountSuccess_");
}

}  // namespace
}  // namespace Zeb
