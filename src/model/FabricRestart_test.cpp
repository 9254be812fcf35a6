// The ends of the exchange when one of them starts anew: what a new centre knows, when orders leave, when status is
// given, and what a switch's new agent and its new end take over.
#include <gmock/gmock.h>

#include "model/FabricTest.h"
#include "runtime/Trace.h"

namespace FabricTesting {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

// Counts every notification of every record of a tree, as it stands when this is made.
class Listener {
 public:
  explicit Listener(Rix::Entity& root) { watch(root); }
  std::vector<std::string> take() { return std::exchange(heard_, {}); }

 private:
  struct Node final : Rix::ObserverSink {
    Node(Listener& l, Rix::Entity& e) : listener(l), record(Rix::recordOf(e)), observer(record.observe(e, *this)) {}
    void changed(unsigned field) override { note(field); }
    void changed(unsigned field, std::string_view) override { note(field); }
    void note(unsigned field) { listener.heard_.emplace_back(record.fields()[field]->name()); }

    Listener& listener;
    Rix::Record const& record;
    std::unique_ptr<Rix::Observer> observer;
  };
  void watch(Rix::Entity& entity) {
    nodes_.push_back(std::make_unique<Node>(*this, entity));
    for (auto const& field : Rix::recordOf(entity).fields()) {
      if (!field->ownsEntities()) continue;
      for (auto const& member : field->members(entity)) watch(*member);
    }
  }

  std::vector<std::string> heard_;
  std::vector<std::unique_ptr<Node>> nodes_;
};

// A transport whose links stand before its user comes, and whose frames a test sends by hand.
class ReadyTransport final : public Fabric::Transport {
 public:
  struct ReadyLink final : Fabric::Link {
    explicit ReadyLink(ReadyTransport& t) : transport(t) {}
    void send(std::string_view) override {}
    void close() override {
      transport.input([this](Fabric::LinkUser& user) { user.linkDisconnected(*this); });
    }
    ReadyTransport& transport;
  };

  void userIs(Fabric::LinkUser* user) override {
    user_ = user;
    if (!user) return;
    activity = &Activity::current();
    input([this](Fabric::LinkUser& u) { u.linkConnected(link); });
    Rix::ByteWriter hello;
    hello.variable(1);
    hello.text(idOne);
    receive({.kind = Rix::FrameKind::hello, .incarnation = 1}, hello.view());
  }
  void receive(Rix::FrameHeader const& header, std::string_view payload) {
    for (auto const& frame : Rix::framesOf(header, payload)) {
      input([this, frame](Fabric::LinkUser& user) { user.linkReceived(link, frame); });
    }
  }
  void input(std::function<void(Fabric::LinkUser&)> const& what) {
    activity->post([this, what] {
      if (user_) what(*user_);
    });
  }

  ReadyLink link{*this};
  Activity* activity = nullptr;

 private:
  Fabric::LinkUser* user_ = nullptr;
};

class FabricRestart : public FabricTest {
 protected:
  // What a centre's machines order of one switch.
  static void order(Zeb::ZebSonarConfigV1& orders, U16 rate = 10) {
    for (auto const* name : {"p1:leaves", "p2:leaves"}) {
      auto* transmitter = orders.transmitterIs(name);
      transmitter->sourceInterfaceIs(Netkit::IntfId("lo"), true);
      transmitter->ipDestIs(Netkit::IpAddr(0x0a000002), true);
      for (U16 hop = 1; hop <= 3; ++hop) transmitter->hopsRateIs(hop, {rate, 1});
      transmitter->portIs(20000, true);
      transmitter->enabledIs(true);
    }
  }
  // Machines that order the same of every switch that the centre knows or comes to know, and then stand.
  Options ordering(U16 rate = 10) {
    Options options;
    options.machines = [this, rate](Fabric::FabricdbService& service, Atlas::EntityManager& database) {
      auto const dir = database.dirIs("zeb/client/waveConfigDir");
      publisher = Rix::make<Fabric::DirWatch>(dir, [dir, rate](Name const& name) {
        if (auto const orders = Rix::dynamicCast<Zeb::ZebSonarConfigV1>(dir->entityRef(name))) order(*orders, rate);
      });
      service.machinesStandIs(true);
    };
    return options;
  }
  static Options idle() {
    return {.machines = [](Fabric::FabricdbService&, Atlas::EntityManager&) {}};
  }
  void newCentre(U64 incarnation, Options const& options) {
    endCentre();
    pump();
    centre = std::make_unique<Centre>(*this, incarnation, options);
  }
  // Counts what the ends ask for.
  void countAsks() {
    network.damageIs([this](std::string_view frame) {
      if (Rix::readFrame(frame).header.kind == Rix::FrameKind::ask) ++asks;
      return std::string(frame);
    });
  }
  std::vector<std::string> traced(std::function<void()> const& work) {
    std::vector<std::string> lines;
    Rix::traceLevelsIs("Fabric", 1);
    Rix::traceSinkIs([&lines](Rix::TraceLine const& line) { lines.emplace_back(line.text); });
    work();
    Rix::traceSinkIs({});
    Rix::traceLevelsIs("Fabric", 0);
    return lines;
  }
  void endCentre() {
    if (centre) {
      Activity::Use use(centre->activity);
      publisher = nullptr;
    }
    centre = nullptr;
  }
  ~FabricRestart() override { endCentre(); }

  int asks = 0;
  Ptr<Fabric::DirWatch> publisher;
};

TEST_F(FabricRestart, AReportIsStoredOnceATurnAndOnlyWhenItIsAnotherOne) {
  Switch one(*this, idOne);
  start(one);
  EXPECT_EQ(reports.saves(), 1U);
  centre->activity.dispatch([] {});
  EXPECT_EQ(reports.saves(), 1U);
  one.turn([&] {
    one.config->hostnameIs("leaf1");
    one.config->groupIs("leaves")->interfaceIpIs("lo", Netkit::IpAddr(1));
  });
  pump();
  EXPECT_EQ(reports.saves(), 2U);
  one.turn([&] { one.status->probeStreamTable()->streamRecordIs(stream(1)); });
  pump();
  one.connectedIs(false);
  start(one);
  EXPECT_EQ(reports.saves(), 2U) << "status is not stored, and a report that is as it was is not stored again";
  ASSERT_EQ(reports.load().size(), 1U);
  EXPECT_EQ(reports.load()[0].systemId, idOne);
  EXPECT_EQ(reports.load()[0].mount, "zeb/client/configDir");
}

TEST_F(FabricRestart, ASwitchThatSaysThatItHasNoReportAnyMoreIsStoredNoMore) {
  Switch one(*this, idOne);
  start(one);
  one.turn([&] { one.database->entityDel("mgmt/zeb/hubx/config"); });
  pump();
  EXPECT_THAT(reports.load(), IsEmpty());
  EXPECT_FALSE(centre->config(idOne));
}

TEST_F(FabricRestart, AGroupThatDoesNotPreserveItsMountsStoresNothing) {
  newCentre(2, {.preserve = false});
  Switch one(*this, idOne);
  start(one);
  EXPECT_THAT(reports.load(), IsEmpty());
}

TEST_F(FabricRestart, ANewCentreKnowsASwitchThatIsAwayBeforeItsGroupIsReported) {
  {
    Switch one(*this, idOne);
    one.config->hostnameIs("leaf1");
    one.status->probeStreamTable()->streamRecordIs(stream(1));
    start(one);
  }
  pump();
  std::string const reported = Rix::jsonText(*centre->config(idOne));
  bool orders = false;
  Options options;
  options.machines = [&](Fabric::FabricdbService& service, Atlas::EntityManager& database) {
    orders = database.getEntity(std::string("zeb/client/waveConfigDir/") + idOne) != nullptr;
    service.machinesStandIs(true);
  };
  newCentre(2, options);
  pump();
  ASSERT_TRUE(centre->config(idOne));
  EXPECT_EQ(Rix::jsonText(*centre->config(idOne)), reported);
  EXPECT_TRUE(orders) << "its orders are filled while it is away";
  EXPECT_FALSE(centre->status(idOne)) << "its status is news, and comes with it";
  EXPECT_THAT(centre->mounterLog, ElementsAre(std::string(idOne) + " 2", "complete switchConfigMg", "initial"));
}

TEST_F(FabricRestart, AStoredReportIsTheSameObjectsWhenItsWriterReturnsAndAnotherWritersReplacesIt) {
  Switch one(*this, idOne);
  one.config->hostnameIs("leaf1");
  one.config->groupIs("leaves");
  one.config->groupIs("edge");
  start(one);
  one.connectedIs(false);
  newCentre(2, Options());
  pump();
  Ptr<Rix::Entity> const config = centre->config(idOne);
  Ptr<Rix::Entity> const leaves(centre->config(idOne)->group("leaves"));
  Ptr<Rix::Entity> const edge(centre->config(idOne)->group("edge"));
  ASSERT_TRUE(leaves && edge);
  one.turn([&] {
    one.config->groupDel("edge");
    one.config->groupIs("edge");
  });
  Listener listener(*config);
  start(one);
  EXPECT_EQ(centre->config(idOne), config);
  EXPECT_EQ(centre->config(idOne)->group("leaves"), leaves.get());
  EXPECT_NE(centre->config(idOne)->group("edge"), edge.get()) << "another object, though its key is the same";
  EXPECT_THAT(listener.take(), ElementsAre("group", "group"));

  one.connectedIs(false);
  pump();
  one.end = nullptr;
  newCentre(3, Options());
  one.reportsAreNew();
  one.config->hostnameIs("leaf1");
  one.endIs(idOne, 2);
  pump();
  Ptr<Rix::Entity> const stored = centre->config(idOne);
  ASSERT_TRUE(stored);
  centre->heard.clear();
  start(one);
  EXPECT_NE(centre->config(idOne), stored);
  EXPECT_THAT(centre->heard,
              ElementsAre("-config", "+config" + Rix::jsonText(*one.config), testing::StartsWith("+status")));
}

TEST_F(FabricRestart, StoredReportsThatCannotBeReadAreLeftOutWithOneLineEach) {
  Switch one(*this, idOne);
  one.config->hostnameIs("leaf1");
  start(one);
  std::string const good = reports.load()[0].bytes;
  one.connectedIs(false);
  pump();
  std::string otherSchema = good;
  otherSchema[0] = static_cast<char>(otherSchema[0] + 1);
  reports.save("leaf1", "zeb/client/configDir", good);
  reports.save(idTwo, "zeb/client/configDir", good.substr(0, good.size() - 1));
  reports.save("02:00:00:00:00:03", "zeb/client/configDir", otherSchema);
  reports.save("02:00:00:00:00:04", "zeb/client/configDir", "");
  reports.save("02:00:00:00:00:05", "zeb/client/nowhere", good);
  reports.save("02:00:00:00:00:06", "zeb/client/waveStatusDir", good);
  auto const lines = traced([this] {
    newCentre(2, Options());
    pump();
  });
  EXPECT_EQ(centre->database->dirIs("zeb/client/configDir")->entityPtrs(), 1U);
  EXPECT_EQ(centre->database->dirIs("zeb/client/waveConfigDir")->entityPtrs(), 1U);
  EXPECT_TRUE(centre->config(idOne));
  EXPECT_THAT(centre->mounterLog, Contains("complete switchConfigMg"));
  EXPECT_EQ(lines.size(), 4U);
  EXPECT_THAT(lines, Contains(HasSubstr("stored report of leaf1 left out: no system id")));
  EXPECT_THAT(lines, Contains(HasSubstr("stored report of 02:00:00:00:00:02 left out: malformed frame")));
  EXPECT_THAT(lines, Contains(HasSubstr("stored report of 02:00:00:00:00:03 left out: malformed frame: schema hash")));
  EXPECT_THAT(lines, Contains(HasSubstr("stored report of 02:00:00:00:00:04 left out: malformed frame")));
}

class FirstReports : public FabricRestart {
 protected:
  FirstReports() {
    newCentre(2, {.transport = &ready});
    centre->activity.runDueTimers();
  }
  ~FirstReports() override { endCentre(); }
  ReadyTransport ready;
};

TEST_F(FirstReports, OfASwitchThatIsThereAlreadyAreInPlaceBeforeTheGroupIsReported) {
  EXPECT_THAT(centre->mounterLog, IsEmpty());
  auto const config = Rix::make<Zeb::ClientConfig>();
  config->hostnameIs("leaf1");
  Rix::AttributeLog log(config);
  ready.receive({.kind = Rix::FrameKind::snapshot,
                 .mount = 0,
                 .schemaHash = Zeb::ClientConfig::rixType().record()->schemaHash(),
                 .incarnation = 1,
                 .sequence = 1},
                log.snapshot());
  centre->activity.runDueTimers();
  EXPECT_EQ(centre->config(idOne)->hostname(), "leaf1");
  EXPECT_THAT(centre->mounterLog, ElementsAre(std::string(idOne) + " 1", "complete switchConfigMg", "initial"));
}

TEST_F(FirstReports, AreNotWaitedForWhenTheirLinkHasGone) {
  EXPECT_THAT(centre->mounterLog, IsEmpty());
  ready.link.close();
  centre->activity.runDueTimers();
  EXPECT_THAT(centre->mounterLog, ElementsAre(std::string(idOne) + " 2", "complete switchConfigMg", "initial"));
}

TEST_F(FirstReports, AreNotWaitedForForEver) {
  time.nowIs(time.now() + 1.9);
  centre->activity.runDueTimers();
  EXPECT_THAT(centre->mounterLog, IsEmpty());
  time.nowIs(time.now() + 0.2);
  centre->activity.runDueTimers();
  EXPECT_THAT(centre->mounterLog, ElementsAre("complete switchConfigMg", "initial"));
  ready.link.close();
  centre->activity.runDueTimers();
  EXPECT_EQ(std::count(centre->mounterLog.begin(), centre->mounterLog.end(), "initial"), 1) << "reported once";
}

TEST_F(FabricRestart, OrdersLeaveOnlyAfterTheAgentHasSpokenOfItsMachines) {
  Switch one(*this, idOne);
  start(one);
  ordersTurn([&] { order(*centre->orders(idOne)); });
  pump();
  ASSERT_TRUE(one.orders() && one.orders()->transmitters() == 2U);
  newCentre(2, idle());
  pump();
  EXPECT_TRUE(centre->end->connected(idOne));
  EXPECT_EQ(one.orders()->transmitters(), 2U) << "no word: the copy stands";
  centre->machinesStandIs(false);
  pump();
  EXPECT_EQ(one.orders()->transmitters(), 0U) << "no machines: nothing is ordered";
}

TEST_F(FabricRestart, ANewCentreWithTheSameOrdersNotifiesNobodyOnTheSwitch) {
  Switch one(*this, idOne);
  start(one);
  ordersTurn([&] { order(*centre->orders(idOne)); });
  pump();
  std::string const before = Rix::jsonText(*one.orders());
  Ptr<Rix::Entity> const orders = one.orders();
  std::vector<std::string> replaced;
  auto const dir = Rix::make<DirSm>(one.database->dirIs("mgmt/zeb/hubx/waveConfigDir"), replaced, "");
  replaced.clear();
  Listener listener(*orders);
  auto const quiet = [&](char const* when) {
    pump();
    EXPECT_TRUE(centre->end->connected(idOne)) << when;
    EXPECT_EQ(Rix::jsonText(*one.orders()), before) << when;
    EXPECT_EQ(one.orders(), orders) << when;
    EXPECT_THAT(listener.take(), IsEmpty()) << when;
    EXPECT_THAT(replaced, IsEmpty()) << when;
  };
  newCentre(2, ordering());
  quiet("it connects as the centre starts");
  one.connectedIs(false);
  newCentre(3, ordering());
  pump();
  one.connectedIs(true);
  quiet("it connects long after, and is stored");
  one.connectedIs(false);
  reports.remove(idOne, "zeb/client/configDir");
  newCentre(4, ordering());
  pump();
  EXPECT_FALSE(centre->orders(idOne));
  one.connectedIs(true);
  quiet("it connects long after, and is not stored");
  // The copy follows its new writer.
  ordersTurn([&] { centre->orders(idOne)->transmitter("p1:leaves")->enabledIs(false); });
  pump();
  EXPECT_THAT(listener.take(), ElementsAre("enabled"));
}

TEST_F(FabricRestart, ANewCentresOtherOrdersArriveAsTheirDifference) {
  Switch one(*this, idOne);
  start(one);
  ordersTurn([&] {
    order(*centre->orders(idOne));
    centre->orders(idOne)->transmitterIs("gone:leaves");
    centre->orders(idOne)->transmitter("p1:leaves")->hopsRateDel(2);
    centre->orders(idOne)->transmitter("p1:leaves")->hopsRateIs(2, {20, 1});
  });
  pump();
  Ptr<Rix::Entity> const root = one.orders();
  Ptr<Rix::Entity> const kept(one.orders()->transmitter("p1:leaves"));
  centre = nullptr;
  pump();
  EXPECT_FALSE(one.end->connected());
  EXPECT_EQ(one.orders()->transmitters(), 3U) << "the copy outlives the centre";
  Listener listener(*root);
  newCentre(2, ordering());
  pump();
  EXPECT_EQ(one.orders(), root);
  EXPECT_EQ(one.orders()->transmitter("p1:leaves"), kept.get());
  EXPECT_FALSE(one.orders()->transmitter("gone:leaves"));
  EXPECT_THAT(listener.take(), testing::UnorderedElementsAre("transmitter", "hopsRate", "hopsRate"))
      << "a rate that is another one is seen to go and to come";
}

TEST_F(FabricRestart, StatusIsGivenAsNewEntitiesEachTimeThatMachinesStand) {
  newCentre(2, idle());
  Switch one(*this, idOne);
  one.status->probeStreamTable()->streamRecordIs(stream(1));
  countAsks();
  start(one);
  EXPECT_TRUE(centre->config(idOne));
  EXPECT_FALSE(centre->status(idOne));
  EXPECT_THAT(centre->mounterLog, Contains(std::string(idOne) + " 1")) << "it is mounted without its status";
  for (U32 i = 2; i < 10; ++i) {
    one.turn([&] { one.status->probeStreamTable()->streamRecordIs(stream(i)); });
    pump();
  }
  EXPECT_EQ(asks, 0) << "what is not wanted is not asked for";
  centre->heard.clear();
  centre->activity.dispatch([&] {
    centre->service->machinesStandIs(true);
    EXPECT_FALSE(centre->status(idOne));
  });
  EXPECT_FALSE(centre->status(idOne)) << "not in the turn in which the machines are made";
  pump();
  EXPECT_EQ(asks, 1);
  EXPECT_THAT(centre->heard, ElementsAre("+status" + Rix::jsonText(*one.status)));
  Ptr<Rix::Entity> const first = centre->status(idOne);
  ASSERT_TRUE(first);

  one.turn([&] { one.status->probeStreamTable()->streamRecordDel(stream(1)); });
  pump();
  EXPECT_EQ(centre->status(idOne), first);
  EXPECT_EQ(centre->status(idOne)->probeStreamTable()->streamRecords(), 8U);

  centre->machinesStandIs(true);
  pump();
  EXPECT_EQ(centre->status(idOne), first) << "the same word again changes nothing";
  centre->heard.clear();
  centre->machinesStandIs(false);
  EXPECT_THAT(centre->heard, ElementsAre("-status"));
  one.turn([&] { one.status->probeStreamTable()->streamRecordIs(stream(11)); });
  pump();
  EXPECT_FALSE(centre->status(idOne));
  centre->machinesStandIs(true);
  pump();
  EXPECT_EQ(asks, 2);
  ASSERT_TRUE(centre->status(idOne));
  EXPECT_NE(centre->status(idOne), first);
  EXPECT_EQ(Rix::jsonText(*centre->status(idOne)), Rix::jsonText(*one.status));
}

TEST_F(FabricRestart, StatusOfASwitchThatIsAwayWhenMachinesStandComesWithIt) {
  newCentre(2, idle());
  Switch one(*this, idOne);
  start(one);
  one.connectedIs(false);
  pump();
  centre->machinesStandIs(true);
  EXPECT_FALSE(centre->status(idOne));
  start(one);
  EXPECT_TRUE(centre->status(idOne));
  // And one that presents itself while the machines come, in whatever order the two arrive.
  Switch two(*this, idTwo);
  centre->machinesStandIs(false);
  two.connectedIs(true);
  bool spoken = false;
  while (network.deliverOne()) {
    if (!spoken && !centre->end->connected(idTwo)) continue;
    if (!spoken) centre->machinesStandIs(true);
    spoken = true;
  }
  ASSERT_TRUE(spoken);
  EXPECT_TRUE(centre->config(idTwo));
  EXPECT_TRUE(centre->status(idTwo));
  EXPECT_TRUE(two.orders());
}

TEST_F(FabricRestart, MachinesThatGoWhileASwitchPresentsItselfLeaveItMountedWithoutStatus) {
  Switch one(*this, idOne);
  one.connectedIs(true);
  pump();
  one.connectedIs(false);
  pump();
  bool lose = true;
  network.lossIs([&](std::string_view frame) {
    return lose && Rix::readFrame(frame).header.mount == 1 && Rix::readFrame(frame).header.incarnation == 1;
  });
  centre->mounterLog.clear();
  start(one);
  EXPECT_THAT(centre->mounterLog, IsEmpty()) << "the status is missing";
  centre->machinesStandIs(false);
  EXPECT_THAT(centre->mounterLog, ElementsAre(std::string(idOne) + " 1"));
  EXPECT_TRUE(centre->config(idOne));
  EXPECT_FALSE(centre->status(idOne));
}

TEST_F(FabricRestart, AMemberThatNeverLeadsGivesNoStatusAndTakesNothingAmiss) {
  newCentre(
      2, {.machines = [](Fabric::FabricdbService& service, Atlas::EntityManager&) { service.machinesStandIs(false); }});
  Switch one(*this, idOne);
  countAsks();
  start(one);
  for (U32 i = 0; i < 100; ++i) {
    one.turn([&] { one.status->probeStreamTable()->streamRecordIs(stream(i)); });
    pump();
    one.connectedIs(i % 2 == 0);
    pump();
  }
  EXPECT_FALSE(centre->status(idOne));
  EXPECT_EQ(asks, 0);
  EXPECT_EQ(centre->end->malformedFrames(), 0U);
  EXPECT_EQ(one.end->malformedFrames(), 0U);
}

TEST_F(FabricRestart, ANewAgentsReportsReplaceTheOldOnesOnlyWhenAllOfThemAreThere) {
  Switch one(*this, idOne, 1);
  one.status->probeStreamTable()->streamRecordIs(stream(1));
  start(one);
  one.end = nullptr;
  pump();
  one.reportsAreNew();
  Ptr<Rix::Entity> const config = centre->config(idOne);
  Ptr<Rix::Entity> const status = centre->status(idOne);
  bool lose = true;
  network.lossIs([&](std::string_view frame) {
    auto const header = Rix::readFrame(frame).header;
    return lose && header.mount == 1 && header.kind == Rix::FrameKind::snapshot;
  });
  one.endIs(idOne, 2);
  one.config->hostnameIs("leaf1");
  centre->heard.clear();
  start(one);
  one.turn([&] { one.config->hostnameIs("edge1"); });  // a change that comes meanwhile
  pump();
  EXPECT_EQ(centre->config(idOne), config);
  EXPECT_EQ(centre->status(idOne), status);
  EXPECT_THAT(centre->heard, IsEmpty());
  lose = false;
  for (int i = 0; i < 3; ++i) advance(1.0, {&one});
  EXPECT_THAT(centre->heard, ElementsAre("-config", "+config" + Rix::jsonText(*one.config), "-status",
                                         "+status" + Rix::jsonText(*one.status)));
  EXPECT_EQ(centre->config(idOne)->hostname(), "edge1");
}

TEST_F(FabricRestart, ASwitchsNewEndTakesOverTheCopyOfItsOrders) {
  Switch one(*this, idOne, 1);
  start(one);
  ordersTurn([&] {
    order(*centre->orders(idOne));
    centre->orders(idOne)->transmitterIs("gone:leaves");
  });
  pump();
  Ptr<Rix::Entity> const orders = one.orders();
  Ptr<Rix::Entity> const ordered = centre->orders(idOne);
  U64 incarnation = 1;
  auto const restart = [&](std::function<void()> const& meanwhile) {
    {
      Activity::Use use(one.activity);
      one.end = nullptr;
    }
    pump();
    one.reportsAreNew();
    meanwhile();
    one.endIs(idOne, ++incarnation);
    EXPECT_EQ(one.orders(), orders) << "in place when the machines are made";
    Listener listener(*orders);
    pump();
    EXPECT_EQ(one.orders(), orders);
    EXPECT_EQ(Rix::jsonText(*one.orders()), Rix::jsonText(*centre->orders(idOne)));
    return listener.take();
  };
  EXPECT_THAT(restart([] {}), IsEmpty());
  EXPECT_EQ(centre->orders(idOne), ordered);
  EXPECT_THAT(restart([&] { ordersTurn([&] { centre->orders(idOne)->transmitterDel("gone:leaves"); }); }),
              ElementsAre("transmitter"));
  EXPECT_THAT(restart([&] {
                ordersTurn([&] { centre->database->entityDel(std::string("zeb/client/waveConfigDir/") + idOne); });
                ordersTurn([&] {
                  centre->database->dirIs("zeb/client/waveConfigDir")->newEntity("Zeb::ZebSonarConfigV1", idOne);
                  order(*centre->orders(idOne));
                });
              }),
              IsEmpty())
      << "by keys, whatever objects they are";
  // Deltas go on where the adopted tree stands.
  ordersTurn([&] {
    centre->orders(idOne)->transmitterDel("p1:leaves");
    centre->orders(idOne)->transmitter("p2:leaves")->portIs(20001, true);
  });
  pump();
  EXPECT_EQ(Rix::jsonText(*one.orders()), Rix::jsonText(*centre->orders(idOne)));
  EXPECT_EQ(one.orders()->transmitters(), 1U);
}

TEST_F(FabricRestart, SomethingElseInThePlaceOfTheOrdersIsReplaced) {
  Switch one(*this, idOne, 1);
  one.end = nullptr;
  one.database->entityIs("mgmt/zeb/hubx/waveConfigDir/waveConfig", Rix::make<Zeb::ClientConfig>());
  one.endIs(idOne, 2);
  start(one);
  EXPECT_TRUE(one.orders());
}

TEST_F(FabricRestart, OrdersThatAreNoMoreGoFromASwitchsAdoptedCopy) {
  Switch one(*this, idOne, 1);
  start(one);
  ordersTurn([&] { order(*centre->orders(idOne)); });
  pump();
  one.end = nullptr;
  pump();
  ordersTurn([&] { centre->database->entityDel(std::string("zeb/client/waveConfigDir/") + idOne); });
  one.endIs(idOne, 1);
  ASSERT_TRUE(one.orders());
  pump();
  EXPECT_TRUE(one.orders()) << "the entry was made again for the switch that has come";
  EXPECT_EQ(one.orders()->transmitters(), 0U);
}

TEST_F(FabricRestart, BothEndsAnewAtOnceConvergeWithoutANotificationForOrders) {
  Switch one(*this, idOne, 1);
  Switch two(*this, idTwo, 1);
  start(one);
  start(two);
  ordersTurn([&] {
    order(*centre->orders(idOne));
    order(*centre->orders(idTwo));
  });
  pump();
  Listener listener(*one.orders());
  two.connectedIs(false);  // away while all is made anew
  one.end = nullptr;
  newCentre(2, ordering());
  one.reportsAreNew();
  one.endIs(idOne, 2);
  pump();
  Listener other(*two.orders());
  start(two);
  EXPECT_THAT(listener.take(), IsEmpty());
  EXPECT_THAT(other.take(), IsEmpty());
  for (auto const* id : {idOne, idTwo}) {
    EXPECT_TRUE(centre->config(id)) << id;
    EXPECT_TRUE(centre->status(id)) << id;
  }
}

}  // namespace
}  // namespace FabricTesting
