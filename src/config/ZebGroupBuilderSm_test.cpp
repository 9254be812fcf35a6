// Who belongs to which group, from the first probe that names it to the last.
#include "config/ZebGroupBuilderSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Fabric::SystemId switchId(U16 number) {
  return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, static_cast<U8>(number >> 8), static_cast<U8>(number)}));
}

struct GroupBuilder : testing::Test {
  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  std::vector<std::string> traces;
  Rix::Ptr<ZebConfig> config = Rix::make<ZebConfig>();
  Rix::Ptr<ZebStatus> status = Rix::make<ZebStatus>();
  Rix::Ptr<ZebGroupBuilderSm> builder;

  GroupBuilder() {
    Rix::traceSinkIs([this](Rix::TraceLine const& line) { traces.emplace_back(line.text); });
  }
  ~GroupBuilder() override {
    Rix::traceLevelsIs("*", 0);
    Rix::traceSinkIs({});
  }
  void start() {
    builder = zebGroupBuilderSmFactory(config, status);
    builder->hasNotificationActiveIs(true);
  }
  // A probe is announced with both its groups.
  ZebProbeConfig& probeIs(char const* name, char const* srcGroup, char const* dstGroup) {
    auto made = Rix::make<ZebProbeConfig>(name);
    made->srcGroupIs(srcGroup);
    made->dstGroupIs(dstGroup);
    config->probeConfigAdopt(made);
    return *made;
  }
  void reports(U16 number, char const* group) { status->clientIs(switchId(number))->reachabilityGroupIs(group); }
  // The numbers of the group's members; the group must stand.
  std::set<U16> members(char const* group) {
    RIX_ASSERT(status->group(group) != nullptr);
    std::set<U16> found;
    for (auto const& member : status->group(group)->memberIterator()) {
      for (U16 number = 1; number <= 300; ++number) {
        if (member->systemId() == switchId(number)) found.insert(number);
      }
    }
    return found;
  }
  bool hasProbe(char const* group, char const* probe) {
    return status->group(group) && status->group(group)->probe(probe);
  }
};
using Members = std::set<U16>;

TEST_F(GroupBuilder, WhatStandsAtTheStartIsTakenProbesFirst) {
  probeIs("p", "leaves", "hosts");
  reports(1, "leaves");
  reports(2, "hosts");
  Rix::traceLevelsIs("ZebGroupBuilderSm", ~0U);
  start();
  EXPECT_EQ(members("leaves"), Members{1});
  EXPECT_EQ(members("hosts"), Members{2});
  EXPECT_TRUE(hasProbe("leaves", "p"));
  EXPECT_TRUE(hasProbe("hosts", "p"));
  EXPECT_THAT(traces, ElementsAre("void Zeb::ZebGroupBuilderSm::handleProbeConfig(Rix::Name const&) Adding: p",
                                  "Adding group leaves to probe p", "Adding group hosts to probe p",
                                  "void Zeb::ZebGroupBuilderSm::handleClient(Fabric::SystemId const&) Adding: "
                                  "02:00:00:00:00:01",
                                  "Adding member 02:00:00:00:00:01 to group leaves",
                                  "void Zeb::ZebGroupBuilderSm::handleClient(Fabric::SystemId const&) Adding: "
                                  "02:00:00:00:00:02",
                                  "Adding member 02:00:00:00:00:02 to group hosts"));
}

TEST_F(GroupBuilder, AProbeWithinOneGroupIsEnteredOnceAndGoesOnce) {
  start();
  reports(1, "leaves");
  probeIs("p", "leaves", "leaves");
  EXPECT_EQ(status->groups(), 1u);
  EXPECT_EQ(status->group("leaves")->probes(), 1u);
  EXPECT_EQ(members("leaves"), Members{1});
  config->probeConfigDel("p");
  EXPECT_EQ(status->groups(), 0u);
}

TEST_F(GroupBuilder, AProbeWithinAGroupOfOthersLeavesItToThem) {
  start();
  reports(1, "leaves");
  probeIs("other", "leaves", "hosts");
  probeIs("p", "leaves", "leaves");
  config->probeConfigDel("p");
  EXPECT_FALSE(hasProbe("leaves", "p"));
  EXPECT_TRUE(hasProbe("leaves", "other"));
  EXPECT_EQ(members("leaves"), Members{1});
}

TEST_F(GroupBuilder, AnEmptyGroupNameIsNoGroup) {
  start();
  reports(1, "");
  probeIs("toHosts", "", "hosts");
  probeIs("fromLeaves", "leaves", "");
  probeIs("nowhere", "", "");
  EXPECT_EQ(status->groups(), 2u);
  EXPECT_TRUE(hasProbe("hosts", "toHosts"));
  EXPECT_TRUE(hasProbe("leaves", "fromLeaves"));
  EXPECT_NE(builder->probeSm("nowhere"), nullptr);
  Rix::traceLevelsIs("ZebGroupBuilderSm", ~0U);
  config->probeConfigDel("nowhere");
  EXPECT_THAT(traces,
              ElementsAre("void Zeb::ZebGroupBuilderSm::handleProbeConfig(Rix::Name const&) Removing: nowhere"));
  config->probeConfigDel("toHosts");
  config->probeConfigDel("fromLeaves");
  EXPECT_EQ(status->groups(), 0u);
}

TEST_F(GroupBuilder, AGroupOfTwoProbesIsUntouchedByTheEndOfOneAndGoesWithTheOtherAlsoWithMembers) {
  start();
  reports(1, "leaves");
  probeIs("p", "leaves", "hosts");
  probeIs("q", "leaves", "");
  Rix::Ptr<ReachabilityGroup> const group = status->group("leaves");
  config->probeConfigDel("p");
  EXPECT_EQ(status->group("leaves"), group.get());
  EXPECT_EQ(members("leaves"), Members{1});
  EXPECT_EQ(status->group("hosts"), nullptr);
  config->probeConfigDel("q");
  EXPECT_EQ(status->group("leaves"), nullptr);
  EXPECT_EQ(group->members(), 1u);
}

TEST_F(GroupBuilder, AClientOfAGroupThatNoProbeUsesBecomesAMemberWithTheProbeThatDoes) {
  start();
  reports(1, "leaves");
  EXPECT_EQ(status->groups(), 0u);
  probeIs("p", "leaves", "hosts");
  EXPECT_EQ(members("leaves"), Members{1});
  EXPECT_EQ(members("hosts"), Members{});
}

TEST_F(GroupBuilder, AGroupThatIsBornAgainHasItsMembersAgain) {
  start();
  reports(1, "leaves");
  reports(2, "leaves");
  for (int round = 0; round < 2; ++round) {
    probeIs("p", "leaves", "hosts");
    EXPECT_EQ(members("leaves"), (Members{1, 2}));
    config->probeConfigDel("p");
    EXPECT_EQ(status->groups(), 0u);
  }
}

TEST_F(GroupBuilder, AClientThatReportsAGroupNoMoreLeavesItAtOnceAndTheGroupStays) {
  start();
  probeIs("p", "leaves", "hosts");
  reports(1, "leaves");
  status->client(switchId(1))->reachabilityGroupDel("leaves");
  ASSERT_NE(status->group("leaves"), nullptr);
  EXPECT_EQ(members("leaves"), Members{});
}

TEST_F(GroupBuilder, AClientThatGoesLeavesTheGroupsThatItReportsAndNoOther) {
  start();
  probeIs("p", "leaves", "hosts");
  reports(1, "leaves");
  reports(2, "leaves");
  // A member that the client never reported: somebody else's entry, which its end does not look for.
  status->group("hosts")->memberIs(Rix::Ptr<ZebClient const>(status->client(switchId(1))));
  status->clientDel(switchId(1));
  EXPECT_EQ(members("leaves"), Members{2});
  EXPECT_EQ(members("hosts"), Members{1});
  EXPECT_EQ(builder->clientSm(switchId(1)), nullptr);
}

TEST_F(GroupBuilder, AClientInBothGroupsOfAProbeIsAMemberOfBoth) {
  start();
  reports(1, "leaves");
  reports(1, "hosts");
  probeIs("p", "leaves", "hosts");
  EXPECT_EQ(members("leaves"), Members{1});
  EXPECT_EQ(members("hosts"), Members{1});
}

TEST_F(GroupBuilder, AClientThatComesAgainIsAMemberAsTheNewRecordThatItIs) {
  start();
  probeIs("p", "leaves", "hosts");
  reports(1, "leaves");
  Rix::Ptr<ZebClient> const old = status->client(switchId(1));
  status->clientDel(switchId(1));
  reports(1, "leaves");
  EXPECT_NE(status->client(switchId(1)), old.get());
  EXPECT_EQ(status->group("leaves")->member(switchId(1)), status->client(switchId(1)));
}

TEST_F(GroupBuilder, AGroupChangedInPlaceIsNotFollowedAndTheOldOneKeepsTheProbeForGood) {
  start();
  reports(1, "leaves");
  reports(2, "spines");
  ZebProbeConfig& probe = probeIs("p", "leaves", "hosts");
  probe.srcGroupIs("spines");
  EXPECT_TRUE(hasProbe("leaves", "p"));
  EXPECT_EQ(status->group("spines"), nullptr);
  config->probeConfigDel("p");
  EXPECT_TRUE(hasProbe("leaves", "p"));
  EXPECT_EQ(status->group("hosts"), nullptr);
  builder = nullptr;
  EXPECT_TRUE(hasProbe("leaves", "p"));
}

TEST_F(GroupBuilder, AProbeRemovedAndAddedAgainHasItsNewGroups) {
  start();
  reports(1, "leaves");
  reports(2, "spines");
  probeIs("p", "leaves", "hosts");
  config->probeConfigDel("p");
  probeIs("p", "spines", "hosts");
  EXPECT_EQ(status->group("leaves"), nullptr);
  EXPECT_EQ(members("spines"), Members{2});
}

TEST_F(GroupBuilder, AProbeThatIsLookedAtAnewMovesUnlessItsOtherSideIsInTheOldGroup) {
  start();
  ZebProbeConfig& probe = probeIs("p", "leaves", "hosts");
  auto* const probeSm = builder->probeSm("p");
  EXPECT_EQ(probeSm->lastSrcGroup(), "leaves");
  EXPECT_EQ(probeSm->lastDstGroup(), "hosts");
  probe.srcGroupIs("spines");
  probeSm->handleGroup();
  EXPECT_EQ(status->group("leaves"), nullptr);
  EXPECT_TRUE(hasProbe("spines", "p"));
  probe.srcGroupIs("hosts");
  probe.dstGroupIs("spines");
  Rix::Ptr<ReachabilityGroup> const hosts = status->group("hosts");
  Rix::Ptr<ReachabilityGroup> const spines = status->group("spines");
  probeSm->handleGroup();
  EXPECT_EQ(status->group("hosts"), hosts.get());
  EXPECT_EQ(status->group("spines"), spines.get());
  EXPECT_EQ(probeSm->lastSrcGroup(), "hosts");
  EXPECT_EQ(probeSm->lastDstGroup(), "spines");
}

TEST_F(GroupBuilder, AProbeUnderAStandingNameButAnotherRecordIsANameInUse) {
  start();
  probeIs("p", "leaves", "hosts");
  auto* const standing = builder->probeSm("p");
  EXPECT_EQ(builder->probeSmIs(config->probeConfig("p"), status), standing);
  try {
    builder->probeSmIs(Rix::make<ZebProbeConfig>("p"), status);
    FAIL() << "expected NameInUseException";
  } catch (Rix::NameInUseException const& exception) {
    EXPECT_THAT(exception.what(), HasSubstr("_probeConfig has a different value"));
  }
}

TEST_F(GroupBuilder, TracesWhoComesAndGoes) {
  start();
  reports(1, "leaves");
  Rix::traceLevelsIs("ZebGroupBuilderSm", ~0U);
  probeIs("p", "leaves", "");
  reports(2, "leaves");
  status->client(switchId(2))->reachabilityGroupDel("leaves");
  status->client(switchId(2))->reachabilityGroupIs("unused");
  status->clientDel(switchId(2));
  config->probeConfigDel("p");
  EXPECT_THAT(traces, ElementsAre("void Zeb::ZebGroupBuilderSm::handleProbeConfig(Rix::Name const&) Adding: p",
                                  "Adding group leaves to probe p", "Adding member 02:00:00:00:00:01 to group leaves",
                                  "void Zeb::ZebGroupBuilderSm::handleClient(Fabric::SystemId const&) Adding: "
                                  "02:00:00:00:00:02",
                                  "Adding member 02:00:00:00:00:02 to group leaves",
                                  "Removing member 02:00:00:00:00:02 from group leaves",
                                  "void Zeb::ZebGroupBuilderSm::handleClient(Fabric::SystemId const&) Removing: "
                                  "02:00:00:00:00:02",
                                  "void Zeb::ZebGroupBuilderSm::handleProbeConfig(Rix::Name const&) Removing: p",
                                  "Removing group leaves from probe p"));
}

TEST_F(GroupBuilder, AClientThatComesLooksAtItsOwnGroupsAlone) {
  for (int i = 0; i < 200; ++i) probeIs(("p" + std::to_string(i)).c_str(), ("g" + std::to_string(i)).c_str(), "hosts");
  start();
  Rix::traceLevelsIs("ZebGroupBuilderSm", ~0U);
  auto client = Rix::make<ZebClient>(switchId(1));
  client->reachabilityGroupIs("g7");
  status->clientAdopt(client);
  EXPECT_THAT(traces,
              ElementsAre(HasSubstr("Adding: 02:00:00:00:00:01"), "Adding member 02:00:00:00:00:01 to group g7"));
}

TEST_F(GroupBuilder, ItsEndEmptiesTheTableOfGroups) {
  start();
  probeIs("p", "leaves", "hosts");
  probeIs("q", "hosts", "spines");
  reports(1, "leaves");
  reports(2, "hosts");
  builder = nullptr;
  EXPECT_EQ(status->groups(), 0u);
  EXPECT_EQ(status->notifieeCount(), 0u);
  EXPECT_EQ(config->notifieeCount(), 0u);
  EXPECT_EQ(status->client(switchId(1))->notifieeCount(), 0u);
  start();
  EXPECT_EQ(members("leaves"), Members{1});
  EXPECT_EQ(members("hosts"), Members{2});
}

// In any order of events: a group stands if and only if a probe names it, with exactly those probes, and its members
// are exactly the clients that report it.
TEST_F(GroupBuilder, FollowsAnyHistoryOfProbesAndReports) {
  char const* const groups[] = {"", "a", "b", "c", "d"};
  std::mt19937 random(1);
  auto const draw = [&random](U32 count) { return static_cast<U32>(random() % count); };
  for (int run = 0; run < 200; ++run) {
    config = Rix::make<ZebConfig>();
    status = Rix::make<ZebStatus>();
    U32 const startAt = draw(40);
    for (U32 step = 0; step < 60; ++step) {
      if (step == startAt) start();
      std::string const probe = "p" + std::to_string(draw(4));
      Fabric::SystemId const id = switchId(static_cast<U16>(1 + draw(4)));
      switch (draw(5)) {
        case 0:
          if (!config->probeConfig(probe)) probeIs(probe.c_str(), groups[draw(5)], groups[draw(5)]);
          break;
        case 1:
          config->probeConfigDel(probe);
          break;
        case 2:
          if (auto* client = status->client(id)) client->reachabilityGroupDel(groups[1 + draw(4)]);
          break;
        case 3:
          if (draw(4) == 0) status->clientDel(id);
          break;
        default:
          status->clientIs(id)->reachabilityGroupIs(groups[1 + draw(4)]);
      }
      if (step < startAt) continue;
      std::map<std::string, std::set<std::string>> wanted;
      for (auto const& each : config->probeConfigIterator()) {
        for (auto const& group : {each->srcGroup(), each->dstGroup()}) {
          if (group.empty()) continue;
          wanted[std::string(group.view())].insert("probe " + std::string(each->name().view()));
          for (auto const& client : status->clientIterator()) {
            if (!client->reachabilityGroup(group)) continue;
            wanted[std::string(group.view())].insert("member " + client->systemId().stringValue());
          }
        }
      }
      std::map<std::string, std::set<std::string>> standing;
      for (auto const& group : status->groupIterator()) {
        auto& content = standing[std::string(group->name().view())];
        for (auto const& each : group->probeIterator()) content.insert("probe " + std::string(each->name().view()));
        for (auto const& each : group->memberIterator()) {
          EXPECT_EQ(each.get(), status->client(each->systemId()));
          content.insert("member " + each->systemId().stringValue());
        }
      }
      ASSERT_EQ(standing, wanted) << "run " << run << " step " << step;
    }
    builder = nullptr;
    EXPECT_EQ(status->groups(), 0u);
  }
}

}  // namespace
}  // namespace Zeb
