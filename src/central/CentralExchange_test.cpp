// The central agent with its end of the exchange, and a switch: when status is given to the machines, and what stands
// when agent and end are made anew.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "central/CentralStore.h"
#include "central/ZebAgent.h"
#include "runtime/FabricEnds.h"
#include "runtime/MemoryTransport.h"

namespace Zeb {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char switchId[] = "02:00:00:00:00:01";

// Notes what comes to the directory of status and goes, and whether there was a machine to hear of it.
struct StatusSm : Rix::Reactor<StatusSm> {
  struct RixDir : Rix::Watch<RixDir, Rix::Dir const, StatusSm> {
    using Watch::Watch;
    void onEntityPtr(Rix::Name const& name) override { pass(&StatusSm::handleEntity, name); }
  };
  StatusSm(Rix::Ptr<Rix::Dir> const& dir, Agent& agent, std::vector<std::string>& heard)
      : agent_(agent), heard_(heard) {
    dir_.notifierIs(dir.get());
  }
  void handleEntity(Rix::Name const& name) {
    bool const machine = agent_.rootSm() && agent_.rootSm()->collectorSm();
    heard_.push_back(std::string(dir_->entityRef(name) ? "given" : "gone") + (machine ? " to" : " without") +
                     " machines");
  }
  template <class F>
  void rixParts(F&& f) {
    f(dir_);
  }
  Agent& agent_;
  std::vector<std::string>& heard_;
  RixDir dir_{this};
};

struct CentralExchange : testing::Test {
  struct Centre {
    explicit Centre(CentralExchange& t) : test(t) {
      Rix::Activity::Use use(test.activity);
      database = Rix::make<Atlas::EntityManager>("fabricdb");
      end = std::make_unique<Fabric::CentralEnd>(test.activity, test.transport, database, ++test.incarnation,
                                                 &test.reports);
      agent = agentFactory("Zeb");
      watch = Rix::make<StatusSm>(database->dirIs("zeb/client/waveStatusDir"), *agent, test.heard);
      agent->serviceHostIs(end.get());
      agent->entityManagerIs(test.store);
      test.activity.runDueTimers();
    }
    ~Centre() {
      Rix::Activity::Use use(test.activity);
      watch = nullptr;
      agent = nullptr;
      end = nullptr;
    }
    CentralExchange& test;
    Rix::Ptr<Atlas::EntityManager> database;
    std::unique_ptr<Fabric::CentralEnd> end;
    Rix::Ptr<Agent> agent;
    Rix::Ptr<StatusSm> watch;
  };

  CentralExchange() {
    {
      Rix::Activity::Use use(activity);
      store = Rix::make<Atlas::EntityManager>("centre");
      fillCentralStore(*store);
    }
    Rix::Activity::Use use(device);
    database = Rix::make<Atlas::EntityManager>("switch");
    status = Rix::make<ZebSonarStatusV1>();
    auto* record = status->probeStreamTable()->streamRecordIs(ProbeStreamId(ProbeStreamId::Fields()));
    record->ingressRecordIs(1);
    database->entityIs("mgmt/zeb/hubx/config", Rix::make<ClientConfig>());
    database->entityIs("mgmt/zeb/echoStatus", status);
    switchEnd = std::make_unique<Fabric::SwitchEnd>(
        device, port, database, Fabric::SwitchEnd::Identity{switchId},
        std::vector<Fabric::SwitchMount>{{"mgmt/zeb/hubx/config", "Zeb::ClientConfig"},
                                         {"mgmt/zeb/echoStatus", "Zeb::ZebSonarStatusV1"}},
        std::vector<Fabric::SwitchMount>{{"mgmt/zeb/hubx/waveConfigDir/waveConfig", "Zeb::ZebSonarConfigV1"}});
    network.connectedIs(port, true);
  }

  void start() {
    centre = std::make_unique<Centre>(*this);
    network.pump();
  }
  void turn(std::function<void()> const& work) {
    activity.dispatch(work);
    activity.runDueTimers();
    network.pump();
  }
  void enabledIs(bool enabled) {
    turn([&] { Rix::dynamicCast<ZebConfig>(store->getEntity("zeb/config"))->enabledIs(enabled); });
  }
  void leaderIs(bool leader) {
    turn([&] {
      Rix::dynamicCast<FabricCluster::ClusterStatusDir>(store->getEntity("fabric/cluster/statusDir"))
          ->status("default")
          ->isStandaloneOrLeaderIs(leader);
    });
  }
  U32 streams() const { return centre->agent->root()->zebStreamTable()->streamRecords(); }
  std::vector<std::string> take() { return std::exchange(heard, {}); }

  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity device{time};
  Fabric::MemoryNetwork network;
  Fabric::Transport& transport = network.centre(activity);
  Fabric::Transport& port = network.addSwitch(device);
  Fabric::MemoryReportStore reports;
  U64 incarnation = 0;
  Rix::Ptr<Atlas::EntityManager> store;
  Rix::Ptr<Atlas::EntityManager> database;
  Rix::Ptr<ZebSonarStatusV1> status;
  std::unique_ptr<Fabric::SwitchEnd> switchEnd;
  std::vector<std::string> heard;
  std::unique_ptr<Centre> centre;
};

TEST_F(CentralExchange, StatusIsGivenOnceTheMachinesStandAndGoesAfterThem) {
  start();
  EXPECT_TRUE(centre->end->connected(switchId));
  EXPECT_THAT(take(), IsEmpty());
  leaderIs(true);
  enabledIs(true);
  EXPECT_THAT(take(), ElementsAre("given to machines"));
  EXPECT_EQ(streams(), 1U);
  Rix::Ptr<Rix::Entity> const first = centre->database->getEntity(std::string("zeb/client/waveStatusDir/") + switchId);
  enabledIs(false);
  EXPECT_THAT(take(), ElementsAre("gone without machines"));
  enabledIs(true);
  EXPECT_THAT(take(), ElementsAre("given to machines"));
  EXPECT_NE(centre->database->getEntity(std::string("zeb/client/waveStatusDir/") + switchId), first);
}

TEST_F(CentralExchange, AMemberThatBecomesLeaderIsGivenTheStatusThen) {
  enabledIs(true);
  start();
  EXPECT_THAT(take(), IsEmpty()) << "a member that does not lead has no machines";
  leaderIs(true);
  EXPECT_THAT(take(), ElementsAre("given to machines"));
  leaderIs(false);
  EXPECT_THAT(take(), ElementsAre("gone without machines"));
}

TEST_F(CentralExchange, AgentAndEndMadeAnewOverTheSameStoresConverge) {
  leaderIs(true);
  enabledIs(true);
  start();
  EXPECT_THAT(take(), ElementsAre("given to machines"));
  Rix::Ptr<Rix::Entity> const orders = database->getEntity("mgmt/zeb/hubx/waveConfigDir/waveConfig");
  ASSERT_TRUE(orders);
  for (int again = 0; again < 3; ++again) {
    network.connectedIs(port, again != 1);  // once it is away meanwhile
    centre = nullptr;
    renewCentralStore(*store);
    network.pump();
    EXPECT_FALSE(switchEnd->connected());
    start();
    EXPECT_TRUE(centre->agent->status()->enabled());
    EXPECT_TRUE(centre->database->getEntity(std::string("zeb/client/configDir/") + switchId));
    if (again == 1) {
      EXPECT_THAT(take(), IsEmpty());
      network.connectedIs(port, true);
      network.pump();
    }
    EXPECT_THAT(take(), ElementsAre("given to machines")) << again;
    EXPECT_EQ(streams(), 1U) << again;
    EXPECT_EQ(database->getEntity("mgmt/zeb/hubx/waveConfigDir/waveConfig"), orders) << again;
  }
}

TEST_F(CentralExchange, StatusWithoutItsTableOrACounterIsBorne) {
  leaderIs(true);
  enabledIs(true);
  start();
  auto const turnThere = [this](std::function<void()> const& work) {
    device.dispatch(work);
    network.pump();
  };
  auto const record = [this] {
    return status->probeStreamTable()->streamRecord(ProbeStreamId(ProbeStreamId::Fields()))->ingressRecord(1);
  };
  turnThere([&] { record()->ingressStatsIs(); });
  turnThere([&] { record()->ingressStatsDel(); });
  turnThere([&] { record()->dormantIs(true); });
  turnThere([&] { status->probeStreamTableDel(); });
  EXPECT_TRUE(centre->end->connected(switchId));
  auto const received = [this] {
    return Rix::dynamicCast<ZebSonarStatusV1>(
        centre->database->getEntity(std::string("zeb/client/waveStatusDir/") + switchId));
  };
  EXPECT_EQ(received()->probeStreamTable(), nullptr);
  enabledIs(false);
  enabledIs(true);
  ASSERT_TRUE(received());
  EXPECT_EQ(received()->probeStreamTable(), nullptr) << "in a snapshot too";
  turnThere([&] {
    status->probeStreamTableIs();
    status->probeStreamTable()
        ->streamRecordIs(ProbeStreamId(ProbeStreamId::Fields()))
        ->ingressRecordIs(1)
        ->ingressStatsIs()
        ->probesReceivedIs(5);
  });
  auto* const merged = centre->agent->root()->zebStreamTable()->streamRecord(ProbeStreamId(ProbeStreamId::Fields()));
  ASSERT_TRUE(merged && merged->ingressRecord(1));
  EXPECT_EQ(merged->ingressRecord(1)
                ->switchIngressRecord(Fabric::systemIdFromString(switchId))
                ->ingressStats()
                ->probesReceived(),
            5U);
}

}  // namespace
}  // namespace Zeb
