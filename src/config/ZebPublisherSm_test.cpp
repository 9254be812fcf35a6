// Which probes concern a switch and through which of its groups; the wait for the switch's entity; what comes and goes
// with clients, groups and probes.
#include "config/ZebPublisherSm.h"
#include "config/PublisherTest.h"

namespace Zeb::ConfigTest {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class Publisher : public testing::Test, public Centre {};

// ---- who takes part ----

TEST_F(Publisher, AClientInBothGroupsOfAProbeHasOneProbeWithTwoDirectionsKeyedByThePeers) {
  switchIs(1, {"x", "y"});
  probeIs("p", "x", "y");
  EXPECT_EQ(client(1)->probeGroupList("p")->groups(), 2u);
  EXPECT_TRUE(client(1)->probeGroupList("p")->group("x"));
  EXPECT_EQ(client(1)->probeSms(), 1u);
  EXPECT_EQ(probe(1, "p")->groupSms(), 2u);
  EXPECT_EQ(probe(1, "p")->groupSm("y")->transmitterName(), "p:x");
  EXPECT_EQ(probe(1, "p")->groupSm("x")->transmitterName(), "p:y");
}

TEST_F(Publisher, AClientInTheOneGroupThatIsBothOfAProbesGroupsHasOneDirection) {
  switchIs(1, {"x"});
  probeIs("p", "x", "x");
  EXPECT_EQ(client(1)->probeGroupList("p")->groups(), 1u);
  EXPECT_EQ(probe(1, "p")->groupSms(), 1u);
  EXPECT_EQ(probe(1, "p")->groupSm("x")->transmitterName(), "p:x");
}

TEST_F(Publisher, AClientThatLeavesOneOfTwoGroupsKeepsItsProbeAndLosesThatDirection) {
  switchIs(1, {"x", "y"});
  probeIs("p", "x", "y");
  auto const* const standing = probe(1, "p");
  auto const* const kept = standing->groupSm("x");
  report(1)->groupDel("x");
  EXPECT_EQ(probe(1, "p"), standing);
  EXPECT_EQ(standing->groupSms(), 1u);
  EXPECT_EQ(standing->groupSm("x"), kept);
  EXPECT_EQ(order(1, "p:x"), nullptr);
  EXPECT_NE(order(1, "p:y"), nullptr);
  report(1)->groupDel("y");
  EXPECT_EQ(client(1)->probeSms(), 0u);
  EXPECT_EQ(client(1)->probeGroupList("p")->groups(), 0u);
  EXPECT_EQ(orders(1)->transmitters(), 0u);
}

TEST_F(Publisher, AGroupReportedBeforeAnyProbeNamesItCountsFromTheProbeOn) {
  switchIs(1, {"x"});
  EXPECT_EQ(client(1)->probeSms(), 0u);
  probeIs("p", "x", "y");
  EXPECT_NE(order(1, "p:x"), nullptr);
}

TEST_F(Publisher, AProbeRemovedWhileOthersUseItsGroupsLeavesTheGroups) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  probeIs("p", "x", "y");
  probeIs("q", "y", "x");
  config->probeConfigDel("p");
  for (U8 const number : {U8{1}, U8{2}}) {
    EXPECT_EQ(client(number)->probeSm("p"), nullptr);
    EXPECT_EQ(client(number)->probeGroupList("p"), nullptr);
    EXPECT_NE(client(number)->probeSm("q"), nullptr);
    EXPECT_EQ(orders(number)->transmitters(), 1u);
  }
  EXPECT_NE(status->group("x"), nullptr);
  EXPECT_NE(status->group("y"), nullptr);
}

TEST_F(Publisher, AGroupThatGoesIsUnwantedForEveryProbeThatStillNamesIt) {
  switchIs(1, {"x", "y"});
  probeIs("p", "x", "y");
  probeIs("q", "x", "z");
  status->groupDel("x");
  EXPECT_EQ(order(1, "p:x"), nullptr);
  EXPECT_NE(order(1, "p:y"), nullptr);
  EXPECT_EQ(client(1)->probeSm("q"), nullptr);
  EXPECT_EQ(client(1)->probeGroupList("q")->groups(), 0u);
}

TEST_F(Publisher, AProbeWithOneSideAloneMakesNoOrderAndDoesNotFail) {
  switchIs(1, {"x"});
  probeIs("p", "x", "");
  probeIs("q", "", "x");
  for (auto const* name : {"p", "q"}) {
    ASSERT_NE(client(1)->probeSm(name), nullptr);
    EXPECT_EQ(probe(1, name)->groupSms(), 0u);
  }
  EXPECT_EQ(orders(1)->transmitters(), 0u);
  report(1)->groupDel("x");
  EXPECT_EQ(client(1)->probeSms(), 0u);
}

TEST_F(Publisher, AProbeOfGroupsThatTheClientDoesNotReportLeavesAnEmptyList) {
  switchIs(1, {"z"});
  probeIs("p", "x", "y");
  EXPECT_EQ(client(1)->probeGroupList("p")->groups(), 0u);
  EXPECT_EQ(client(1)->probeSm("p"), nullptr);
}

// Registration decides who hears first. A publisher that hears of a probe before the probe is in its groups finds
// nothing to do, and is not told again.
TEST_F(Publisher, WouldMakeNoOrderIfItHeardOfAProbeBeforeTheGroupBuilder) {
  switchIs(1, {"x"});
  groupBuilder.del();
  groupBuilder.is(Rix::Ptr<ZebConfig const>(config), status);
  probeIs("p", "x", "y");
  ASSERT_NE(status->group("x")->probe("p"), nullptr);
  EXPECT_EQ(order(1, "p:x"), nullptr);
}

// ---- the switch's entity ----

TEST_F(Publisher, NothingIsRecordedUntilTheSwitchsEntityIsThereAndThenEverythingIs) {
  reportIs(1);
  interfaceIpIs(1, "x", address(1));
  probeIs("p", "x", "y");
  probeIs("q", "z", "x");
  EXPECT_FALSE(client(1)->initialized());
  EXPECT_EQ(client(1)->probeGroupLists(), 0u);
  EXPECT_EQ(client(1)->probeSms(), 0u);
  config->probeConfigDel("q");
  ordersReady(1);
  EXPECT_TRUE(client(1)->initialized());
  EXPECT_EQ(client(1)->waveConfig(), orders(1));
  EXPECT_EQ(client(1)->probeGroupLists(), 1u);
  EXPECT_NE(order(1, "p:x"), nullptr);
}

TEST_F(Publisher, AnEntityWhoseEntryIsNotCompleteIsWaitedFor) {
  ordersReady(1);
  auto* const entry = waveConfigDir->entry(switchName(1));
  entry->statusIs(0);
  reportIs(1)->groupIs("x");
  probeIs("p", "x", "y");
  for (U8 const state : {U8{1}, U8{2}, U8{4}}) {
    entry->statusIs(state);
    EXPECT_EQ(client(1)->waveConfig(), nullptr);
  }
  entry->statusIs(3);
  EXPECT_EQ(client(1)->waveConfig(), orders(1));
  EXPECT_NE(order(1, "p:x"), nullptr);
}

TEST_F(Publisher, AnEntryWithoutAnEntityIsWaitedFor) {
  waveConfigDir->entryIs(switchName(1))->statusIs(3);
  reportIs(1)->groupIs("x");
  EXPECT_EQ(client(1)->waveConfig(), nullptr);
  ordersReady(1);
  EXPECT_EQ(client(1)->waveConfig(), orders(1));
}

TEST_F(Publisher, AnEntryThatWentAndCameAgainIsHeardOf) {
  waveConfigDir->entryIs(switchName(1));
  waveConfigDir->entityDel(switchName(1));
  EXPECT_EQ(publisher->waveConfigDirEntry(switchName(1)), nullptr);
  reportIs(1);
  ordersReady(1);
  EXPECT_NE(publisher->waveConfigDirEntry(switchName(1)), nullptr);
  EXPECT_EQ(client(1)->waveConfig(), orders(1));
}

// As it stands: orders that were made stay where they were made.
TEST_F(Publisher, AnEntityThatReplacesAnotherIsNotFilledWithTheOrdersThatStand) {
  switchIs(1, {"x"});
  probeIs("p", "x", "y");
  Rix::Ptr<ZebSonarConfigV1> const first = orders(1);
  ordersReady(1);
  EXPECT_EQ(client(1)->waveConfig(), orders(1));
  EXPECT_EQ(orders(1)->transmitters(), 0u);
  EXPECT_EQ(first->transmitters(), 1u);
  probeIs("q", "x", "y");
  EXPECT_NE(order(1, "q:x"), nullptr);
}

TEST_F(Publisher, AnEntityOfAnotherKindUnderASwitchsNameEndsTheProcess) {
  waveConfigDir->entityPtrIs(switchName(1), Rix::make<ClientConfig>());
  EXPECT_DEATH(reportIs(1), "uc");
}

TEST_F(Publisher, AnEntityOfAnotherKindThatIsNotCompleteIsLeftAlone) {
  waveConfigDir->entityPtrIs(switchName(1), Rix::make<ClientConfig>());
  waveConfigDir->entry(switchName(1))->statusIs(2);
  reportIs(1);
  EXPECT_FALSE(client(1)->initialized());
}

TEST_F(Publisher, ANullEntryIsARangeException) {
  try {
    publisher->waveConfigDirEntryIs(nullptr);
    FAIL() << "expected RangeException";
  } catch (Rix::RangeException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "null _waveConfigDirEntry parameter to mutator for Zeb::ZebPublisherClientSm::waveConfigDirEntry not "
                 "allowed\"");
  }
}

// ---- ends ----

TEST_F(Publisher, AClientThatGoesLeavesItsEntityWithoutOrders) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  probeIs("p", "x", "y");
  ASSERT_THAT(keys(order(2, "p:y")->ipDestIterator()), ElementsAre("10.0.1.0"));
  reportDel(1);
  EXPECT_EQ(client(1), nullptr);
  ASSERT_NE(orders(1), nullptr);
  EXPECT_EQ(orders(1)->transmitters(), 0u);
  EXPECT_EQ(order(2, "p:y")->ipDests(), 0u);
}

TEST_F(Publisher, AServiceThatIsDisabledWithdrawsAllOrdersAndEnabledMakesThemAgain) {
  switchIs(1, {"x"});
  switchIs(2, {"y"});
  probeIs("p", "x", "y");
  enabledIs(false);
  EXPECT_EQ(orders(1)->transmitters() + orders(2)->transmitters(), 0u);
  EXPECT_EQ(config->notifieeCount() + waveConfigDir->notifieeCount() + status->notifieeCount(), 0u);
  enabledIs(true);
  EXPECT_THAT(keys(order(1, "p:x")->ipDestIterator()), ElementsAre("10.0.2.0"));
}

TEST_F(Publisher, EndsWithItsOrdersAlsoWhereItsClientsStand) {
  switchIs(1, {"x"});
  probeIs("p", "x", "x");
  publisher.del();
  EXPECT_EQ(orders(1)->transmitters(), 0u);
  EXPECT_NE(status->client(switchId(1)), nullptr);
}

// ---- machines asked for again ----

std::string nameInUse(std::function<void()> const& action) {
  try {
    action();
  } catch (Rix::NameInUseException const& exception) {
    return exception.what();
  }
  return "nothing raised";
}

TEST_F(Publisher, AMachineAskedForAgainWithEqualArgumentsIsTheSameAndWithOthersANameInUse) {
  switchIs(1, {"x"});
  auto const probe = Rix::Ptr<ZebProbeConfig const>(probeIs("p", "x", "y"));
  auto* const probeSm = client(1)->probeSm("p");
  auto* const standing = probeSm->groupSm("y");
  Rix::Ptr<ReachabilityGroup const> const peer = status->group("y");
  Rix::Ptr<ClientReachabilityGroup const> const own = status->client(switchId(1))->reachabilityGroup("x");
  EXPECT_EQ(probeSm->groupSmIs(switchId(1), peer, own, probe, status, orders(1)), standing);
  std::string const text = "Reinstantiating the pointer interface where constructor parameter attribute ";
  EXPECT_EQ(nameInUse([&] {
              probeSm->groupSmIs(switchId(1), peer, Rix::make<ClientReachabilityGroup>("x"), probe, status, orders(1));
            }),
            text + "_clientGroup has a different value of an object than the current value of an object not allowed");
  EXPECT_EQ(nameInUse([&] { probeSm->groupSmIs(switchId(2), peer, own, probe, status, orders(1)); }),
            text +
                "_systemId has a different value of 02:00:00:00:00:02 than the current value of 02:00:00:00:00:01 "
                "not allowed");
  EXPECT_EQ(nameInUse([&] {
              client(1)->probeSmIs(switchId(1), probe, client(1)->probeGroupList("p"), status,
                                   Rix::make<ZebSonarConfigV1>());
            }),
            text + "_waveConfig has a different value of an object than the current value of an object not allowed");
  EXPECT_EQ(nameInUse([&] { publisher->clientSmIs(Rix::make<ZebClient>(switchId(1)), config, status, waveConfigDir); }),
            text + "_client has a different value of an object than the current value of an object not allowed");
}

// ---- traces ----

TEST_F(Publisher, TracesEachDecision) {
  Traced traced;
  std::string const id = switchId(1).stringValue();
  switchIs(1, {"x"});
  probeIs("p", "x", "y");
  config->probeConfigDel("p");
  report(1)->groupDel("x");
  reportDel(1);
  for (auto const& line :
       {id + " present: 1", "client " + id, "Adding waveConfig for client " + id, "client " + id + " probe p",
        "client " + id + " group x", "Adding client " + id + " probe p group x", id + " present: 0"}) {
    EXPECT_THAT(traced.lines, Contains(line));
  }
}

TEST_F(Publisher, TracesTheRemovalOfAProbeByTheGroupThatWentLast) {
  switchIs(1, {"x", "y"});
  probeIs("p", "x", "y");
  Traced traced;
  report(1)->groupDel("y");
  EXPECT_THAT(traced.lines, Not(Contains("Removing client 02:00:00:00:00:01 probe p group y")));
  report(1)->groupDel("x");
  EXPECT_THAT(traced.lines, Contains("Removing client 02:00:00:00:00:01 probe p group x"));
}

TEST_F(Publisher, TellsOfEveryEntryOnEverySwitchWhileItTraces) {
  switchIs(1, {"x"});
  switchIs(2, {"x"});
  probeIs("p", "x", "x");
  Traced traced;
  ordersReady(3);
  // Each looks for its own entity at the new entry, at its entity, and at its status.
  for (U8 const number : {U8{1}, U8{2}}) {
    EXPECT_EQ(std::count(traced.lines.begin(), traced.lines.end(),
                         "Adding waveConfig for client " + switchId(number).stringValue()),
              3);
  }
  EXPECT_EQ(std::count(traced.lines.begin(), traced.lines.end(), "client 02:00:00:00:00:03"), 6);
}

TEST_F(Publisher, TellsTheSwitchOfThatNameAloneWhileItDoesNotTrace) {
  switchIs(1, {"x"});
  probeIs("p", "y", "z");
  client(1)->probeGroupListDel("p");  // whoever is told makes it again
  ordersReady(2);
  EXPECT_EQ(client(1)->probeGroupList("p"), nullptr);
  waveConfigDir->entry(switchName(1))->statusIs(2);
  EXPECT_NE(client(1)->probeGroupList("p"), nullptr);
}

// ---- short walks and long ones ----

// Notes in which order a switch's orders come.
struct ComingSm : Rix::Reactor<ComingSm> {
  struct RixOrders : Rix::Watch<RixOrders, ZebSonarConfigV1 const, ComingSm> {
    using Watch::Watch;
    void onTransmitter(Rix::Name const& name) override { owner().heard.emplace_back(name.view()); }
  };
  template <class F>
  void rixParts(F&& f) {
    f(orders_);
  }
  std::vector<std::string> heard;
  RixOrders orders_{this};
};

TEST_F(Publisher, MakesTheOrdersOfAProbeInTheOrderOfTheWalkOverAllGroupsAndProbes) {
  std::vector<char const*> const groups{"a", "b", "c", "d", "e", "f", "g", "h"};
  auto const coming = [&groups](Centre const& centre) {
    centre.switchIs(1, groups);
    auto const listener = Rix::make<ComingSm>();
    listener->orders_.notifierIs(centre.orders(1));
    for (auto const* src : groups) {
      for (auto const* dst : groups) centre.probeIs(std::string(src) + dst, src, dst);
    }
    return listener->heard;
  };
  auto const expected = [&] {
    Traced traced;  // makes the walk
    return coming(Centre());
  }();
  ASSERT_EQ(expected.size(), 8u * 8 + 8 * 7);
  EXPECT_EQ(coming(*this), expected);
}

}  // namespace
}  // namespace Zeb::ConfigTest
