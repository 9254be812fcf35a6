// What stands in an order, what changes it, in which order it is written, and which addresses stay in it.
#include "config/ZebPublisherClientProbeGroupSm.h"
#include "config/PublisherTest.h"

namespace Zeb::ConfigTest {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// Notes every write to one order.
struct OrderSm : Rix::Reactor<OrderSm> {
  struct RixOrder : Rix::Watch<RixOrder, ZebTransmitterConfig const, OrderSm> {
    using Watch::Watch;
    void onEnabled() override { owner().note("enabled", notifier()->enabled(), ""); }
    void onSourceInterface(Netkit::IntfId const& intf) override {
      owner().note("source", notifier()->sourceInterfaceHas(intf), text(intf));
    }
    void onIpDest(Netkit::IpAddr const& ip) override { owner().note("dest", notifier()->ipDestHas(ip), text(ip)); }
    void onHopsRate(U16 hop) override { owner().note("hop", notifier()->hopsRateHas(hop), text(hop)); }
    void onPort(U16 port) override { owner().note("port", notifier()->portHas(port), text(port)); }
  };
  template <class F>
  void rixParts(F&& f) {
    f(order_);
  }
  void note(std::string const& what, bool present, std::string const& key) {
    heard.push_back((present ? "+" : "-") + what + " " + key);
  }
  std::vector<std::string> heard;
  RixOrder order_{this};
};

// Follows the one order of a switch from its birth.
struct BirthSm : Rix::Reactor<BirthSm> {
  struct RixOrders : Rix::Watch<RixOrders, ZebSonarConfigV1 const, BirthSm> {
    using Watch::Watch;
    void onTransmitter(Rix::Name const& name) override {
      owner().listener->order_.notifierIs(notifier()->transmitter(name));
    }
  };
  template <class F>
  void rixParts(F&& f) {
    f(orders_);
  }
  Rix::Ptr<OrderSm> listener = Rix::make<OrderSm>();
  RixOrders orders_{this};
};

class Order : public testing::Test, public Centre {
 protected:
  std::vector<std::string> destinations(U8 number, char const* name) const {
    return keys(order(number, name)->ipDestIterator());
  }
  // What is written to an order from now on.
  std::vector<std::string>& heardOf(U8 number, char const* name) {
    listener_->order_.notifierIs(order(number, name));
    listener_->heard.clear();
    return listener_->heard;
  }
  Rix::Ptr<OrderSm> const listener_ = Rix::make<OrderSm>();
};

// ---- who sends to whom ----

TEST_F(Order, BetweenTheMembersOfOneGroupGoesToTheOthersAlone) {
  switchIs(1, {"x"});
  switchIs(2, {"x"});
  probeIs("p", "x", "x");
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
  EXPECT_THAT(destinations(2, "p:x"), ElementsAre("10.0.1.0"));
  EXPECT_EQ(orders(1)->transmitters(), 1u);
}

TEST_F(Order, OfASwitchInBothGroupsGoesEachWayToTheOtherMembers) {
  switchIs(1, {"x", "y"});
  switchIs(2, {"x"});
  switchIs(3, {"y"});
  probeIs("p", "x", "y");
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.3.0"));
  EXPECT_THAT(destinations(1, "p:y"), ElementsAre("10.0.2.0"));
  EXPECT_THAT(destinations(2, "p:x"), ElementsAre("10.0.1.0", "10.0.3.0"));
  EXPECT_THAT(destinations(3, "p:y"), ElementsAre("10.0.1.0", "10.0.2.0"));
}

TEST_F(Order, OfTheOnlyMemberOfTheOneGroupHasSourcesAndNoDestination) {
  switchIs(1, {"x"});
  probeIs("p", "x", "x");
  EXPECT_THAT(keys(order(1, "p:x")->sourceInterfaceIterator()), ElementsAre("lo"));
  EXPECT_THAT(destinations(1, "p:x"), IsEmpty());
}

TEST_F(Order, FollowsMembersThatComeAndGo) {
  switchIs(1, {"x"});
  probeIs("p", "x", "y");
  switchIs(2, {"y"});
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
  report(2)->groupDel("y");
  EXPECT_THAT(destinations(1, "p:x"), IsEmpty());
  EXPECT_EQ(probe(1, "p")->groupSm("y")->memberSms(), 0u);
  interfaceIpIs(2, "y", address(2));
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
}

// ---- how an order is written ----

TEST_F(Order, IsWrittenFromSourcesToEnabledWhichIsLast) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  auto const birth = Rix::make<BirthSm>();
  birth->orders_.notifierIs(orders(1));
  probeIs("p", "x", "y", 10, 1);
  // Hops are synchronised for the rate, and again for the distance.
  EXPECT_THAT(birth->listener->heard,
              ElementsAre("+source lo", "+dest 10.0.2.0", "+hop 1", "-hop 1", "+hop 1", "+port 33434", "+enabled "));
}

TEST_F(Order, NamesASourceInterfaceWhetherItHasAnAddressOrNot) {
  switchIs(1, {"x"});
  probeIs("p", "x", "y");
  interfaceIpIs(1, "x", Netkit::IpAddr(), "e1");
  EXPECT_THAT(keys(order(1, "p:x")->sourceInterfaceIterator()), ElementsAre("e1", "lo"));
  report(1)->group("x")->interfaceIpDel("lo");
  EXPECT_THAT(keys(order(1, "p:x")->sourceInterfaceIterator()), ElementsAre("e1"));
}

TEST_F(Order, HasAllItsHopsRebuiltByAChangeOfRate) {
  switchIs(1, {"x"});
  auto* const probe = probeIs("p", "x", "y", 10, 2);
  auto& heard = heardOf(1, "p:x");
  probe->rateIs(20);
  EXPECT_THAT(heard, ElementsAre("-hop 2", "-hop 1", "+hop 1", "+hop 2"));
  EXPECT_EQ(order(1, "p:x")->hopsRate(2), (ZebProbeRate{20, 1}));
}

TEST_F(Order, HasTheHopsUpToTheDistance) {
  switchIs(1, {"x"});
  auto* const probe = probeIs("p", "x", "y", 10, 5);
  auto const hops = [this] { return keys(order(1, "p:x")->hopsRateIterator()); };
  EXPECT_THAT(hops(), ElementsAre("1", "2", "3", "4", "5"));
  probe->distanceIs(3);
  EXPECT_THAT(hops(), ElementsAre("1", "2", "3"));
  EXPECT_EQ(order(1, "p:x")->hopsRate(3), (ZebProbeRate{10, 1}));
  probe->distanceIs(0);
  EXPECT_THAT(hops(), IsEmpty());
  probe->distanceIs(254);
  EXPECT_EQ(hops().size(), 254u);
}

TEST_F(Order, HasThePortsThatAreTrue) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  auto* const probe = probeIs("p", "x", "y", 10, 2, {1000, 2000, 3000});
  probe->portIs(4000, false);
  probe->portDel(1000);
  probe->portIs(2000, false);
  EXPECT_THAT(keys(order(1, "p:x")->portIterator()), ElementsAre("3000"));
  EXPECT_THAT(keys(order(2, "p:y")->portIterator()), ElementsAre("3000"));
}

TEST_F(Order, OfADisabledProbeStaysWithAllThatIsInIt) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  auto* const probe = probeIs("p", "x", "y");
  probe->enabledIs(false);
  EXPECT_FALSE(order(1, "p:x")->enabled());
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
  EXPECT_EQ(order(1, "p:x")->hopsRates(), 2u);
  EXPECT_EQ(order(1, "p:x")->ports(), 1u);
  EXPECT_EQ(order(1, "p:x")->sourceInterfaces(), 1u);
}

TEST_F(Order, ThatSomebodyTookAwayIsLeftAlone) {
  switchIs(1, {"x"});
  auto* const probe = probeIs("p", "x", "y");
  orders(1)->transmitterDel("p:x");
  Traced traced;
  probe->rateIs(7);
  probe->portIs(9, true);
  probe->enabledIs(false);
  EXPECT_THAT(traced.lines, Contains("No transmitter: p:x"));
  EXPECT_EQ(order(1, "p:x"), nullptr);
}

// ---- addresses ----

TEST_F(Order, TakesAnOldAddressOutBeforeTheNewOneComes) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  probeIs("p", "x", "y");
  auto& heard = heardOf(1, "p:x");
  interfaceIpIs(2, "y", address(2, 0, 1));
  EXPECT_THAT(heard, ElementsAre("-dest 10.0.2.0", "+dest 10.1.2.0"));
}

TEST_F(Order, TakesAnUnchangedAddressOutAndEntersItAgain) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  probeIs("p", "x", "y");
  auto& heard = heardOf(1, "p:x");
  status->client(switchId(2))->reachabilityGroup("y")->interfaceIpNotify("lo");
  EXPECT_THAT(heard, ElementsAre("-dest 10.0.2.0", "+dest 10.0.2.0"));
}

TEST_F(Order, KeepsAnAddressThatAnInterfaceLost) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  probeIs("p", "x", "y");
  auto const* const member = probe(1, "p")->groupSm("y")->memberSm(switchId(2));
  EXPECT_EQ(member->interfaceIp("lo"), address(2));
  interfaceIpIs(2, "y", Netkit::IpAddr());
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
  EXPECT_EQ(member->interfaceIps(), 0u);
  // The next address does not replace it: the record of it has gone.
  interfaceIpIs(2, "y", address(2, 0, 1));
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0", "10.1.2.0"));
  // Reported again, it goes as any other.
  interfaceIpIs(2, "y", address(2));
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
  interfaceIpIs(2, "y", address(2, 0, 2));
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.2.2.0"));
}

TEST_F(Order, KeepsTheAddressOfAnInterfaceThatWasRemovedAlsoWhenItsMemberLeaves) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  interfaceIpIs(2, "y", address(2, 1), "e1");
  probeIs("p", "x", "y");
  report(2)->group("y")->interfaceIpDel("lo");
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0", "10.0.2.1"));
  report(2)->groupDel("y");
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
  reportDel(2);
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
  switchIs(2, {"y"});
  reportDel(2);
  EXPECT_THAT(destinations(1, "p:x"), IsEmpty());
}

TEST_F(Order, HasNoDestinationForAnInterfaceWithoutAnAddress) {
  switchIs(1, {"x"});
  probeIs("p", "x", "y");
  ordersReady(2);
  reportIs(2);
  interfaceIpIs(2, "y", Netkit::IpAddr());
  EXPECT_THAT(destinations(1, "p:x"), IsEmpty());
  EXPECT_EQ(probe(1, "p")->groupSm("y")->memberSm(switchId(2))->interfaceIps(), 0u);
  interfaceIpIs(2, "y", address(2));
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
}

// As it stands, and why addresses have to be unique in a group.
TEST_F(Order, LosesAnAddressThatTwoMembersSwap) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  switchIs(3, {"y"});
  probeIs("p", "x", "y");
  interfaceIpIs(2, "y", address(3));
  interfaceIpIs(3, "y", address(2));
  EXPECT_THAT(destinations(1, "p:x"), ElementsAre("10.0.2.0"));
}

TEST_F(Order, AskedForAgainForAMemberWithAnotherEntryIsANameInUse) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  probeIs("p", "x", "y");
  auto* const groupSm = probe(1, "p")->groupSm("y");
  try {
    groupSm->memberSmIs(switchId(2), switchId(1), order(1, "p:x"), Rix::make<ClientReachabilityGroup>("y"));
    FAIL() << "expected NameInUseException";
  } catch (Rix::NameInUseException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute _clientGroup has a "
                 "different value of an object than the current value of an object not allowed");
  }
}

// ---- traces ----

TEST_F(Order, TracesWhatItIsMadeOf) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  Traced traced;
  probeIs("p", "x", "y", 10, 2);
  report(2)->group("y")->interfaceIpDel("lo");
  report(1)->group("x")->interfaceIpDel("lo");
  std::string const order = "client 02:00:00:00:00:01 probe p group y";
  for (auto const& line :
       {order, order + " intf lo present 1", order + " intf lo present 0", order + " group member 02:00:00:00:00:02",
        std::string("rate: 10"), std::string("distance: 2"), std::string("port: 33434"), std::string("enabled: 1"),
        std::string("adding client 02:00:00:00:00:02 ip 10.0.2.0 to group y"),
        std::string("removing client 02:00:00:00:00:02 intf lo from group y")}) {
    EXPECT_THAT(traced.lines, Contains(line));
  }
  config->probeConfigDel("p");
  EXPECT_THAT(traced.lines, Contains(order + " member 02:00:00:00:00:02"));
}

// ---- the record of addresses ----

TEST(InterfaceAddresses, HoldsNoneOneOrSeveral) {
  InterfaceAddresses addresses;
  EXPECT_EQ(addresses.interfaceIps(), 0u);
  EXPECT_EQ(addresses.interfaceIp(""), Netkit::IpAddr());
  addresses.interfaceIpDel("e1");
  addresses.interfaceIpIs("e1", address(1));
  addresses.interfaceIpIs("e1", address(2));
  EXPECT_EQ(addresses.interfaceIp("e1"), address(2));
  EXPECT_EQ(addresses.interfaceIp("e2"), Netkit::IpAddr());
  addresses.interfaceIpDel("e2");
  EXPECT_EQ(addresses.interfaceIps(), 1u);
  addresses.interfaceIpIs("e2", address(3));
  addresses.interfaceIpIs("e3", address(4));
  EXPECT_EQ(addresses.interfaceIps(), 3u);
  EXPECT_EQ(addresses.interfaceIp("e1"), address(2));
  addresses.interfaceIpDel("e1");
  addresses.interfaceIpDel("e3");
  EXPECT_EQ(addresses.interfaceIp("e2"), address(3));
  EXPECT_EQ(addresses.interfaceIp("e1"), Netkit::IpAddr());
  addresses.interfaceIpDel("e2");
  EXPECT_EQ(addresses.interfaceIps(), 0u);
  addresses.interfaceIpIs("e4", address(5));
  EXPECT_EQ(addresses.interfaceIp("e4"), address(5));
  addresses.interfaceIpDel("e4");
  EXPECT_EQ(addresses.interfaceIps(), 0u);
}

}  // namespace
}  // namespace Zeb::ConfigTest
