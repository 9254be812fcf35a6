// From the order entity in the switch's directory to the transmitters of the probing service.
#include "config/ZebEchoConfigSm.h"

#include "config/SwitchConfigTest.h"

namespace Zeb::ConfigTest {
namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr Netkit::IpAddr peer{0x0a000009};
constexpr ZebProbeRate tenASecond{10, 1};

class EchoConfig : public SwitchConfig {
 protected:
  EchoConfig() { clientConfig->enabledIs(true); }

  void start() { echoConfigSm = zebEchoConfigSmFactory(clientConfig, zebEchoConfigDir, echoZebConfig); }
  void runTo(double now) {
    time.nowIs(now);
    activity.runDueTimers();
  }
  static Rix::Ptr<ZebSonarConfigV1> ordersOf(std::initializer_list<char const*> names) {
    auto const orders = Rix::make<ZebSonarConfigV1>();
    for (auto const* name : names) fill(*orders->transmitterIs(name));
    return orders;
  }
  // An order with one of everything.
  static void fill(ZebTransmitterConfig& order) {
    order.sourceInterfaceIs(Netkit::IntfId("eth1"), true);
    order.ipDestIs(peer, true);
    order.hopsRateIs(1, tenASecond);
    order.portIs(20000, true);
    order.enabledIs(true);
  }
  // A finished order, announced in one piece, as a replica does.
  static Rix::Ptr<ZebTransmitterConfig> finishedOrder(char const* name) {
    auto const order = Rix::make<ZebTransmitterConfig>(name);
    fill(*order);
    return order;
  }
  void ordersAre(Rix::Ptr<ZebSonarConfigV1> const& orders) { zebEchoConfigDir->entityPtrIs("waveConfig", orders); }
  Sonar::TransmitterConfig* transmitter(char const* name) { return echoZebConfig->transmitter(name); }

  Rix::Ptr<ClientConfig> clientConfig = Rix::make<ClientConfig>();
  Rix::Ptr<Rix::Dir> zebEchoConfigDir = Rix::make<Rix::Dir>("waveConfigDir");
  Rix::Ptr<Sonar::Config> echoZebConfig = Rix::make<Sonar::Config>();
  Rix::Ptr<ZebEchoConfigSm> echoConfigSm;
};

TEST_F(EchoConfig, OrdersThatStandAtTheStartAreCopied) {
  ordersAre(ordersOf({"p:leaves"}));
  start();
  EXPECT_TRUE(echoConfigSm->initialized());
  ASSERT_NE(transmitter("p:leaves"), nullptr);
  EXPECT_TRUE(transmitter("p:leaves")->ipDest(peer));
  EXPECT_TRUE(transmitter("p:leaves")->enabled());
  EXPECT_EQ(transmitter("p:leaves")->genId(), 100);
  EXPECT_EQ(std::count(traces.begin(), traces.end(), "waveConfig entry subdir added "), 1);
}

TEST_F(EchoConfig, OrdersThatComeLaterAreCopied) {
  start();
  EXPECT_EQ(echoConfigSm->zebEchoConfigCopySm(), nullptr);
  auto const orders = ordersOf({});
  ordersAre(orders);
  ASSERT_NE(echoConfigSm->zebEchoConfigCopySm(), nullptr);
  EXPECT_EQ(echoZebConfig->transmitters(), 0u);
  orders->transmitterAdopt(finishedOrder("p:leaves"));
  EXPECT_NE(transmitter("p:leaves"), nullptr);
}

TEST_F(EchoConfig, ADirectoryEntryWithoutAnEntityGivesATraceAndNoCopy) {
  zebEchoConfigDir->entryIs("waveConfig");
  start();
  EXPECT_THAT(traces, Contains("waveConfig entry subdir added, but not instantiated "));
  EXPECT_EQ(echoConfigSm->zebEchoConfigCopySm(), nullptr);
  ordersAre(ordersOf({"p:leaves"}));
  EXPECT_NE(echoConfigSm->zebEchoConfigCopySm(), nullptr);
}

TEST_F(EchoConfig, AReplacedEntityRebuildsTheCopyAndStampsEveryTransmitter) {
  ordersAre(ordersOf({"p:leaves", "q:leaves"}));
  start();
  auto const before = Rix::Ptr<ZebEchoConfigCopySm>(echoConfigSm->zebEchoConfigCopySm());
  auto* const target = transmitter("p:leaves");
  runTo(101);
  ordersAre(ordersOf({"p:leaves", "q:leaves"}));
  ASSERT_NE(echoConfigSm->zebEchoConfigCopySm(), nullptr);
  EXPECT_NE(echoConfigSm->zebEchoConfigCopySm(), before.get());
  EXPECT_EQ(transmitter("p:leaves"), target);
  EXPECT_EQ(transmitter("p:leaves")->genId(), 101);
  EXPECT_EQ(transmitter("q:leaves")->genId(), 101);
}

TEST_F(EchoConfig, AReplacedEntityBringsItsTransmittersIntoStepAndLeavesThoseItDoesNotName) {
  ordersAre(ordersOf({"p:leaves", "q:leaves"}));
  start();
  auto const orders = Rix::make<ZebSonarConfigV1>();
  orders->transmitterIs("p:leaves")->hopsRateIs(2, tenASecond);
  ordersAre(orders);
  EXPECT_EQ(transmitter("p:leaves")->ipDests(), 0u);
  EXPECT_EQ(transmitter("p:leaves")->sourceInterfaces(), 0u);
  EXPECT_FALSE(transmitter("p:leaves")->hopsRateHas(1));
  EXPECT_TRUE(transmitter("p:leaves")->hopsRateHas(2));
  EXPECT_FALSE(transmitter("p:leaves")->enabled());
  ASSERT_NE(transmitter("q:leaves"), nullptr);
  EXPECT_TRUE(transmitter("q:leaves")->enabled());
}

TEST_F(EchoConfig, AnEntityThatGoesTakesTheCopyAndLeavesTheTransmitters) {
  ordersAre(ordersOf({"p:leaves"}));
  start();
  zebEchoConfigDir->entityDel("waveConfig");
  EXPECT_THAT(traces, Contains(" entry subdir deleted for waveConfig"));
  EXPECT_EQ(echoConfigSm->zebEchoConfigCopySm(), nullptr);
  ASSERT_NE(transmitter("p:leaves"), nullptr);
  EXPECT_TRUE(transmitter("p:leaves")->enabled());
}

TEST_F(EchoConfig, ANullEntityCountsAsOneThatWent) {
  ordersAre(ordersOf({"p:leaves"}));
  start();
  ordersAre(nullptr);
  EXPECT_THAT(traces, Contains(" entry subdir deleted for waveConfig"));
  EXPECT_EQ(echoConfigSm->zebEchoConfigCopySm(), nullptr);
}

TEST_F(EchoConfig, AnEntityOfAnotherKindIsPassedOverAndLeavesTheCopy) {
  ordersAre(ordersOf({"p:leaves"}));
  start();
  auto* const before = echoConfigSm->zebEchoConfigCopySm();
  zebEchoConfigDir->entityPtrIs("other", Rix::make<ClientConfig>());
  EXPECT_THAT(traces, Contains("other entry subdir added "));
  EXPECT_EQ(echoConfigSm->zebEchoConfigCopySm(), before);
}

TEST_F(EchoConfig, TheServiceIsTurnedOnBehindTheTransmittersAndADisableDoesNotReachIt) {
  ordersAre(ordersOf({"p:leaves"}));
  WriteList<Sonar::Config> writes(echoZebConfig);
  start();
  EXPECT_THAT(writes.take(), ElementsAre("transmitter p:leaves", "enabled"));
  EXPECT_TRUE(echoZebConfig->enabled());
  clientConfig->enabledIs(false);
  EXPECT_TRUE(echoZebConfig->enabled());
  EXPECT_TRUE(transmitter("p:leaves")->enabled());
}

TEST_F(EchoConfig, AWithdrawnOrderDeletesItsTransmitterAtOnceWhateverItsEnabledSaid) {
  auto const orders = ordersOf({"p:leaves", "q:leaves"});
  ordersAre(orders);
  start();
  ASSERT_TRUE(transmitter("p:leaves")->enabled());
  auto const gone = Rix::Ptr<Sonar::TransmitterConfig>(transmitter("p:leaves"));
  WriteList<Sonar::TransmitterConfig> writes(gone);
  orders->transmitterDel("p:leaves");
  EXPECT_EQ(transmitter("p:leaves"), nullptr);
  EXPECT_EQ(echoConfigSm->zebEchoConfigCopySm()->zebTransmitterConfigSm("p:leaves"), nullptr);
  EXPECT_NE(transmitter("q:leaves"), nullptr);
  EXPECT_THAT(writes.take(), ElementsAre());
}

TEST_F(EchoConfig, SurplusTransmittersStayUntilAnOrderNamesThemAndGoes) {
  echoZebConfig->transmitterIs("old:leaves")->enabledIs(true);
  auto const orders = ordersOf({"p:leaves"});
  ordersAre(orders);
  start();
  ASSERT_NE(transmitter("old:leaves"), nullptr);
  EXPECT_TRUE(transmitter("old:leaves")->enabled());
  orders->transmitterDel("p:leaves");
  EXPECT_NE(transmitter("old:leaves"), nullptr);
  orders->transmitterIs("old:leaves");
  orders->transmitterDel("old:leaves");
  EXPECT_EQ(transmitter("old:leaves"), nullptr);
}

TEST_F(EchoConfig, AnOrderThatIsToldGoneDeletesATransmitterThatNobodyFills) {
  auto const orders = ordersOf({});
  ordersAre(orders);
  start();
  echoZebConfig->transmitterIs("old:leaves");
  orders->transmitterNotify("old:leaves");
  EXPECT_EQ(transmitter("old:leaves"), nullptr);
}

TEST_F(EchoConfig, TheStampIsSetLastAtEachRunForATransmitterAndNotByChangesWithinIt) {
  auto const orders = ordersOf({});
  ordersAre(orders);
  start();
  WriteList<Sonar::TransmitterConfig> writes(echoZebConfig->transmitterIs("p:leaves"));
  orders->transmitterAdopt(finishedOrder("p:leaves"));
  EXPECT_THAT(writes.take(), ElementsAre("sourceInterface eth1", "ipDest 10.0.0.9", "fullIpDest 10.0.0.9", "hopsRate 1",
                                         "sourcePortConfig", "optionalSourcePortList 20000", "enabled", "genId"));
  EXPECT_EQ(transmitter("p:leaves")->genId(), 100);

  runTo(101);
  orders->transmitter("p:leaves")->hopsRateIs(2, tenASecond);
  EXPECT_THAT(writes.take(), ElementsAre("hopsRate 2"));
  EXPECT_EQ(transmitter("p:leaves")->genId(), 100);

  auto* const before = echoConfigSm->zebEchoConfigCopySm()->zebTransmitterConfigSm("p:leaves");
  transmitter("p:leaves")->ipDestDel(peer);
  writes.take();
  orders->transmitterNotify("p:leaves");
  EXPECT_THAT(writes.take(), ElementsAre("ipDest 10.0.0.9", "genId"));
  EXPECT_EQ(transmitter("p:leaves")->genId(), 101);
  EXPECT_EQ(echoConfigSm->zebEchoConfigCopySm()->zebTransmitterConfigSm("p:leaves"), before);
}

TEST_F(EchoConfig, AnOrderThatGoesAndComesBackMakesItsTransmitterAnew) {
  auto const orders = ordersOf({"p:leaves"});
  ordersAre(orders);
  start();
  auto const before = Rix::Ptr<Sonar::TransmitterConfig>(transmitter("p:leaves"));
  runTo(101);
  orders->transmitterDel("p:leaves");
  orders->transmitterAdopt(finishedOrder("p:leaves"));
  ASSERT_NE(transmitter("p:leaves"), nullptr);
  EXPECT_NE(transmitter("p:leaves"), before.get());
  EXPECT_EQ(transmitter("p:leaves")->genId(), 101);
}

TEST_F(EchoConfig, ItsEndLeavesTheServiceAsItIs) {
  ordersAre(ordersOf({"p:leaves"}));
  start();
  WriteList<Sonar::Config> writes(echoZebConfig);
  echoConfigSm = nullptr;
  EXPECT_THAT(writes.take(), ElementsAre());
  EXPECT_TRUE(echoZebConfig->enabled());
  EXPECT_TRUE(transmitter("p:leaves")->enabled());
  EXPECT_EQ(zebEchoConfigDir->notifieeCount(), 0u);
}

}  // namespace
}  // namespace Zeb::ConfigTest
