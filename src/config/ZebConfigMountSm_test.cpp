// What the intake makes of the switches' reports, in which order, and what goes when a report goes.
#include "config/ZebConfigMountSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

Fabric::SystemId switchId(U8 number) {
  return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, 0, number}));
}
Rix::Name nameOf(Fabric::SystemId const& id) {
  return Rix::Name(id.stringValue());
}

// Follows the clients from the status down, each record as soon as it is there, as later machines do.
struct Follower : Rix::Reactor<Follower> {
  struct RixStatus : Rix::Watch<RixStatus, ZebStatus const, Follower> {
    using Watch::Watch;
    void onClient(Fabric::SystemId const& id) override {
      Rix::Ptr<ZebClient const> const client = notifier()->client(id);
      if (client) {
        owner().note("client with " + std::to_string(client->reachabilityGroups()) + " groups");
        owner().client_.notifierIs(client);
      } else {
        owner().note("no client; it had " + std::to_string(owner().client_->reachabilityGroups()) + " groups");
      }
    }
  };
  struct RixClient : Rix::Watch<RixClient, ZebClient const, Follower> {
    using Watch::Watch;
    void onHostname() override { owner().note("hostname " + std::string(notifier()->hostname().view())); }
    void onReachabilityGroup(Rix::Name const& name) override {
      Rix::Ptr<ClientReachabilityGroup const> const group = notifier()->reachabilityGroup(name);
      owner().note((group ? "group " : "no group ") + std::string(name.view()));
      if (group) owner().group_.notifierIs(group);
    }
  };
  struct RixGroup : Rix::Watch<RixGroup, ClientReachabilityGroup const, Follower> {
    using Watch::Watch;
    void onInterfaceIp(Rix::String8 const& name) override {
      owner().note((notifier()->interfaceIpHas(name) ? "interface " : "no interface ") + std::string(name.view()) +
                   " " + notifier()->interfaceIp(name).stringValue());
    }
  };
  explicit Follower(Rix::Ptr<ZebStatus const> const& status) { status_.notifierIs(status); }
  template <class F>
  void rixParts(F&& f) {
    f(status_);
    f(client_);
    f(group_);
  }
  void note(std::string text) { heard.push_back(std::move(text)); }
  std::vector<std::string> heardSince() { return std::exchange(heard, {}); }

  std::vector<std::string> heard;
  RixStatus status_{this};
  RixClient client_{this};
  RixGroup group_{this};
};

struct Intake : testing::Test {
  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  std::vector<std::string> traces;
  Rix::Ptr<Rix::Dir> dir = Rix::make<Rix::Dir>("configDir");
  Rix::Ptr<ZebStatus> status = Rix::make<ZebStatus>();
  Rix::Ptr<ClientConfig> report = Rix::make<ClientConfig>();
  Rix::Ptr<ZebConfigMountSm> intake;

  Intake() {
    Rix::traceSinkIs([this](Rix::TraceLine const& line) { traces.emplace_back(line.text); });
    Rix::traceLevelsIs("*", ~0U);
  }
  ~Intake() override {
    Rix::traceLevelsIs("*", 0);
    Rix::traceSinkIs({});
  }
  void start() {
    intake = zebConfigMountSmFactory(dir, status);
    intake->hasNotificationActiveIs(true);
  }
  void fillReport() {
    report->hostnameIs("leaf1");
    report->groupIs("leaves")->interfaceIpIs("lo", Netkit::IpAddr(0x0a000001));
    report->groupIs("leaves")->interfaceIpIs("eth1", Netkit::IpAddr());
    report->groupIs("hosts");
  }
  void connect(U8 number = 1) { dir->entityPtrIs(nameOf(switchId(number)), report); }
  void disconnect(U8 number = 1) { dir->entityDel(nameOf(switchId(number))); }
  ZebClient& client(U8 number = 1) {
    ZebClient* found = status->client(switchId(number));
    RIX_ASSERT(found != nullptr);
    return *found;
  }
};

TEST_F(Intake, AReportThatHoldsGroupsWhenItIsTakenEndsAsAClientWithThem) {
  fillReport();
  connect();
  start();
  ASSERT_EQ(status->clients(), 1u);
  EXPECT_EQ(client().hostname(), "leaf1");
  ASSERT_EQ(client().reachabilityGroups(), 2u);
  EXPECT_EQ(client().reachabilityGroup("leaves")->interfaceIp("lo"), Netkit::IpAddr(0x0a000001));
  EXPECT_EQ(client().reachabilityGroup("hosts")->interfaceIps(), 0u);
  EXPECT_TRUE(intake->clientSm(switchId(1))->group("leaves")->initialized());
}

TEST_F(Intake, TheClientComesBeforeItsGroupsAndEachOfThemBeforeItsInterfaces) {
  auto follower = Rix::make<Follower>(status);
  start();
  report->hostnameIs("leaf1");
  report->groupIs("leaves")->interfaceIpIs("lo", Netkit::IpAddr(0x0a000001));
  connect();
  EXPECT_THAT(follower->heard,
              ElementsAre("client with 0 groups", "hostname leaf1", "group leaves", "interface lo 10.0.0.1"));
}

TEST_F(Intake, AnAddressOfZeroIsCopiedLikeAnyOther) {
  fillReport();
  start();
  connect();
  ASSERT_TRUE(client().reachabilityGroup("leaves")->interfaceIpHas("eth1"));
  EXPECT_EQ(client().reachabilityGroup("leaves")->interfaceIp("eth1"), Netkit::IpAddr());
}

TEST_F(Intake, AnAddressThatChangesIsTakenAndTellsThoseWhoWatchThatInterface) {
  start();
  connect();
  auto* const group = report->groupIs("leaves");
  group->interfaceIpIs("lo", Netkit::IpAddr(0x0a000001));
  auto follower = Rix::make<Follower>(status);
  follower->heard.clear();
  group->interfaceIpIs("lo", Netkit::IpAddr(0x0a000002));
  EXPECT_EQ(client().reachabilityGroup("leaves")->interfaceIp("lo"), Netkit::IpAddr(0x0a000002));
  EXPECT_THAT(follower->heardSince(), ElementsAre("interface lo 10.0.0.2"));
  group->interfaceIpIs("lo", Netkit::IpAddr());
  EXPECT_THAT(follower->heardSince(), ElementsAre("interface lo 0.0.0.0"));
  group->interfaceIpDel("lo");
  EXPECT_FALSE(client().reachabilityGroup("leaves")->interfaceIpHas("lo"));
  EXPECT_THAT(follower->heardSince(), ElementsAre("no interface lo 0.0.0.0"));
}

TEST_F(Intake, AGroupComesWithItsInterfacesAndGoesWithThem) {
  start();
  connect();
  auto made = Rix::make<ClientReachabilityGroup>("leaves");
  made->interfaceIpIs("lo", Netkit::IpAddr(0x0a000001));
  report->groupAdopt(made);
  ASSERT_NE(client().reachabilityGroup("leaves"), nullptr);
  EXPECT_EQ(client().reachabilityGroup("leaves")->interfaceIps(), 1u);
  report->groupDel("leaves");
  EXPECT_EQ(client().reachabilityGroup("leaves"), nullptr);
  EXPECT_EQ(intake->clientSm(switchId(1))->group("leaves"), nullptr);
  made->interfaceIpIs("eth9", Netkit::IpAddr(0x0a000009));  // nobody listens to what was removed
  report->groupIs("leaves");
  EXPECT_EQ(client().reachabilityGroup("leaves")->interfaceIps(), 0u);
}

TEST_F(Intake, AHostNameThatChangesIsTaken) {
  fillReport();
  start();
  connect();
  report->hostnameIs("leaf2");
  EXPECT_EQ(client().hostname(), "leaf2");
}

TEST_F(Intake, ASwitchWhoseReportGoesIsAClientNoMore) {
  fillReport();
  start();
  connect();
  disconnect();
  EXPECT_EQ(status->clients(), 0u);
  EXPECT_EQ(intake->clientSms(), 0u);
  EXPECT_EQ(report->notifieeCount(), 0u);
  EXPECT_EQ(report->group("leaves")->notifieeCount(), 0u);
  connect();
  EXPECT_EQ(client().reachabilityGroups(), 2u);
}

TEST_F(Intake, AnEntryWhoseEntityIsEmptyIsNoClientNorOneWithoutAnEntity) {
  start();
  dir->entryIs(nameOf(switchId(2)));
  EXPECT_EQ(status->clients(), 0u);
  connect();
  ASSERT_EQ(status->clients(), 1u);
  dir->entityPtrIs(nameOf(switchId(1)), nullptr);
  EXPECT_EQ(status->clients(), 0u);
}

TEST_F(Intake, AnEntityOfAnotherKindIsIgnoredWithNoTraceBesideTheHandlersEntry) {
  start();
  traces.clear();
  dir->entityPtrIs(nameOf(switchId(1)), Rix::make<ZebConfig>());
  EXPECT_EQ(status->clients(), 0u);
  EXPECT_EQ(intake->clientSms(), 0u);
  EXPECT_THAT(traces,
              ElementsAre("void Zeb::ZebConfigMountSm::handleClientConfig(Rix::Name const&) 02:00:00:00:00:01"));
}

TEST_F(Intake, ANameThatIsNoSystemIdStandsForTheEmptyId) {
  fillReport();
  start();
  dir->entityPtrIs("leaf-one", report);
  ASSERT_NE(status->client(Fabric::SystemId()), nullptr);
  EXPECT_EQ(status->client(Fabric::SystemId())->hostname(), "leaf1");
}

TEST_F(Intake, OfTwoNamesThatAreNoSystemIdsTheSecondIsRefusedAndTheEndOfEitherTakesTheClient) {
  fillReport();
  start();
  dir->entityPtrIs("one", report);
  auto other = Rix::make<ClientConfig>();
  other->hostnameIs("leaf2");
  dir->entityPtrIs("two", other);  // the exception ends this handler alone
  EXPECT_THAT(traces, Contains(HasSubstr("_clientConfig has a different value")));
  ASSERT_EQ(status->clients(), 1u);
  EXPECT_EQ(status->client(Fabric::SystemId())->hostname(), "leaf1");
  dir->entityDel("two");
  EXPECT_EQ(status->clients(), 0u);
}

TEST_F(Intake, TwoNamesThatAreNoSystemIdsAtTheStartAreANameInUse) {
  dir->entityPtrIs("one", report);
  dir->entityPtrIs("two", Rix::make<ClientConfig>());
  EXPECT_THROW(start(), Rix::NameInUseException);
}

TEST_F(Intake, AnotherReportUnderAStandingSwitchIsANameInUseAndTheFirstOneStays) {
  fillReport();
  start();
  connect();
  auto* const standing = intake->clientSm(switchId(1));
  try {
    intake->clientSmIs(switchId(1), Rix::make<ClientConfig>(), status);
    FAIL() << "expected NameInUseException";
  } catch (Rix::NameInUseException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute _clientConfig has a "
                 "different value of an object than the current value of an object not allowed");
  }
  EXPECT_EQ(intake->clientSmIs(switchId(1), report, status), standing);
}

TEST_F(Intake, ANullGroupIsARangeException) {
  start();
  connect();
  try {
    intake->clientSm(switchId(1))->groupIs(nullptr);
    FAIL() << "expected RangeException";
  } catch (Rix::RangeException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "null _group parameter to mutator for Zeb::ZebConfigClientMountSm::group not allowed\"");
  }
}

TEST_F(Intake, TheClientGoesWithAllItsGroupsBeforeTheReactorsOfTheGroupsEnd) {
  report->groupIs("leaves");
  start();
  connect();
  auto follower = Rix::make<Follower>(status);
  follower->heard.clear();
  traces.clear();
  disconnect();
  // No group is taken out of the client first: whoever hears of its end still finds what it listed.
  EXPECT_THAT(follower->heard, ElementsAre("no client; it had 1 groups"));
  EXPECT_THAT(traces, ElementsAre("void Zeb::ZebConfigMountSm::handleClientConfig(Rix::Name const&) 02:00:00:00:00:01",
                                  "void Zeb::ZebConfigClientMountSm::doCleanup() client=02:00:00:00:00:01",
                                  "void Zeb::ZebConfigClientMountSm::RixGroup::doCleanup() client=02:00:00:00:00:01 "
                                  "group=leaves"));
}

TEST_F(Intake, AChangeIsHandledByItsOwnSwitchAlone) {
  start();
  for (U8 number = 1; number <= 50; ++number) {
    auto each = Rix::make<ClientConfig>();
    each->groupIs("leaves");
    dir->entityPtrIs(nameOf(switchId(number)), each);
  }
  Rix::Ptr<ClientConfig> const changed = Rix::dynamicCast<ClientConfig>(dir->entityPtr(nameOf(switchId(7))));
  traces.clear();
  changed->group("leaves")->interfaceIpIs("lo", Netkit::IpAddr(0x0a000007));
  EXPECT_THAT(traces, ElementsAre("void Zeb::ZebConfigClientMountSm::RixGroup::handleInterface(Rix::String8 const&) "
                                  "client=02:00:00:00:00:07 group=leaves intf=lo"));
}

TEST_F(Intake, TracesWhatItTakes) {
  fillReport();
  start();
  connect();
  auto const* const interfaceTaken =
      "void Zeb::ZebConfigClientMountSm::RixGroup::handleInterface(Rix::String8 const&) client=02:00:00:00:00:01 "
      "group=leaves intf=lo";
  for (auto const* text :
       {"void Zeb::ZebConfigMountSm::handleClientConfig(Rix::Name const&) 02:00:00:00:00:01",
        "void Zeb::ZebConfigClientMountSm::handleInitialized() client=02:00:00:00:00:01",
        "void Zeb::ZebConfigClientMountSm::handleHostname() hostname=leaf1",
        "void Zeb::ZebConfigClientMountSm::RixGroup::handleInitialized() client=02:00:00:00:00:01 group=leaves",
        interfaceTaken}) {
    EXPECT_THAT(traces, Contains(text));
  }
}

TEST_F(Intake, ItsEndTakesAllClients) {
  fillReport();
  connect(1);
  dir->entityPtrIs(nameOf(switchId(2)), Rix::make<ClientConfig>());
  start();
  EXPECT_EQ(status->clients(), 2u);
  intake = nullptr;
  EXPECT_EQ(status->clients(), 0u);
  EXPECT_EQ(dir->notifieeCount(), 0u);
  EXPECT_EQ(report->notifieeCount(), 0u);
  EXPECT_EQ(report->group("leaves")->notifieeCount(), 0u);
}

}  // namespace
}  // namespace Zeb
