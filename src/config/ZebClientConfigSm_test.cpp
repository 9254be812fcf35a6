// What the operator sets on a switch, as the centre gets to see it.
#include "config/ZebClientConfigSm.h"

#include "config/SwitchConfigTest.h"
#include "runtime/Exceptions.h"

namespace Zeb::ConfigTest {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// What the operator's list holds for an interface that stands.
constexpr Netkit::IpAddr named{1};
constexpr Netkit::IpAddr unnamed{};
constexpr Netkit::IpAddr noAddress{};
constexpr Netkit::IpAddr firstIp{0x0a000001};
constexpr Netkit::IpAddr secondIp{0x0a000002};

class Reporter : public SwitchConfig {
 protected:
  void start() { reporter = zebClientConfigSmFactory(config, netConfig, mountedConfig, ipStatus); }

  static Netkit::IntfId intf(char const* name) { return Netkit::IntfId(name); }
  Ip::IntfStatus* interfaceIs(char const* name, Netkit::IpAddr ip) {
    auto* const status = ipStatus->intfStatusIs(intf(name));
    status->addressIs(ip);
    return status;
  }
  ClientReachabilityGroup* groupIs(char const* name, std::initializer_list<char const*> interfaces = {}) {
    auto* const group = config->groupIs(name);
    for (auto const* interface : interfaces) group->interfaceIpIs(interface, named);
    return group;
  }
  // An interface of the report, or none.
  std::optional<Netkit::IpAddr> reported(char const* group, char const* interface) {
    auto* const mounted = mountedConfig->group(group);
    if (!mounted || !mounted->interfaceIpHas(interface)) return std::nullopt;
    return mounted->interfaceIp(interface);
  }
  bool tracked(char const* group, char const* interface) {
    return reporter->group(group)->sourceIntfDir()->sourceIntf(intf(interface)) != nullptr;
  }

  Rix::Ptr<ClientConfig> config = Rix::make<ClientConfig>();
  Rix::Ptr<System::NetConfig> netConfig = Rix::make<System::NetConfig>();
  Rix::Ptr<ClientConfig> mountedConfig = Rix::make<ClientConfig>();
  Rix::Ptr<Ip::Status> ipStatus = Rix::make<Ip::Status>();
  Rix::Ptr<ZebClientConfigSm> reporter;
};
using ReporterDeathTest = Reporter;

TEST_F(Reporter, AGroupWithoutInterfacesIsReported) {
  start();
  groupIs("leaves");
  ASSERT_NE(mountedConfig->group("leaves"), nullptr);
  EXPECT_EQ(mountedConfig->group("leaves")->interfaceIps(), 0u);
  EXPECT_EQ(mountedConfig->groups(), 1u);
}

TEST_F(Reporter, WhatIsThereAtTheStartIsReportedAndEachInterfaceRegisteredOnce) {
  interfaceIs("eth1", firstIp);
  interfaceIs("eth2", secondIp);
  groupIs("leaves", {"eth1", "eth2"});
  groupIs("edge");
  start();
  EXPECT_TRUE(reporter->initialized());
  EXPECT_EQ(reporter->groups(), 2u);
  EXPECT_EQ(reported("leaves", "eth1"), firstIp);
  EXPECT_EQ(reported("leaves", "eth2"), secondIp);
  EXPECT_NE(mountedConfig->group("edge"), nullptr);
  EXPECT_EQ(std::count(traces.begin(), traces.end(), "Registering interface eth1 on group leaves"), 1);
  EXPECT_EQ(std::count(traces.begin(), traces.end(), "Registering interface eth2 on group leaves"), 1);
}

TEST_F(Reporter, ActivationRunsTheInterfaceHandlerOnce) {
  groupIs("leaves", {"eth1"});
  start();
  traces.clear();
  reporter->group("leaves")->hasNotificationActiveIs(true);
  reporter->hasNotificationActiveIs(true);
  EXPECT_THAT(traces, Not(Contains(HasSubstr("Registering interface"))));
}

TEST_F(Reporter, AGroupIsReportedBeforeItsInterfaces) {
  start();
  WriteList<ClientConfig> writes(mountedConfig);
  bool emptyWhenTold = false;
  Writes<ClientConfig> told(
      mountedConfig, [&](std::string const&) { emptyWhenTold = mountedConfig->group("leaves")->interfaceIps() == 0; });
  auto const group = Rix::make<ClientReachabilityGroup>("leaves");
  group->interfaceIpIs("eth1", named);
  config->groupAdopt(group);
  EXPECT_THAT(writes.take(), ElementsAre("group leaves"));
  EXPECT_TRUE(emptyWhenTold);
  EXPECT_EQ(reported("leaves", "eth1"), noAddress);
}

TEST_F(Reporter, AnInterfaceThatLosesItsAddressIsReportedWithTheZeroAddressAndStays) {
  auto* const status = interfaceIs("eth1", firstIp);
  groupIs("leaves", {"eth1"});
  start();
  ASSERT_EQ(reported("leaves", "eth1"), firstIp);
  status->addressIs(noAddress);
  EXPECT_EQ(reported("leaves", "eth1"), noAddress);
  status->addressIs(secondIp);
  EXPECT_EQ(reported("leaves", "eth1"), secondIp);
}

TEST_F(Reporter, AnInterfaceThatIsGoneIsReportedWithTheZeroAddressUntilItIsBack) {
  interfaceIs("eth1", firstIp);
  groupIs("leaves", {"eth1"});
  start();
  ipStatus->intfStatusDel(intf("eth1"));
  EXPECT_EQ(reported("leaves", "eth1"), noAddress);
  interfaceIs("eth1", secondIp);
  EXPECT_EQ(reported("leaves", "eth1"), secondIp);
}

TEST_F(Reporter, AnInterfaceAddedBeforeItHasAnAddressIsReportedAsSoonAsItHasOne) {
  start();
  groupIs("leaves", {"eth1"});
  EXPECT_EQ(reported("leaves", "eth1"), noAddress);
  auto* const status = ipStatus->intfStatusIs(intf("eth1"));
  EXPECT_EQ(reported("leaves", "eth1"), noAddress);
  status->addressIs(firstIp);
  EXPECT_EQ(reported("leaves", "eth1"), firstIp);
  EXPECT_THAT(traces, Contains("Adding IP 0.0.0.0 intf eth1 group leaves"));
  EXPECT_THAT(traces, Contains("Adding IP 10.0.0.1 intf eth1 group leaves"));
}

TEST_F(Reporter, AnInterfaceThatTheOperatorRemovesLeavesTheReportAndIsNoLongerTracked) {
  auto* const status = interfaceIs("eth1", firstIp);
  interfaceIs("eth2", secondIp);
  auto* const group = groupIs("leaves", {"eth1", "eth2"});
  start();
  ASSERT_TRUE(tracked("leaves", "eth1"));
  ASSERT_EQ(status->notifieeCount(), 1u);
  group->interfaceIpDel("eth1");
  EXPECT_EQ(reported("leaves", "eth1"), std::nullopt);
  EXPECT_EQ(reported("leaves", "eth2"), secondIp);
  EXPECT_FALSE(tracked("leaves", "eth1"));
  EXPECT_EQ(status->notifieeCount(), 0u);
  EXPECT_EQ(reporter->group("leaves")->zebSourceIntfSms(), 1u);
  status->addressIs(secondIp);
  EXPECT_EQ(reported("leaves", "eth1"), std::nullopt);
  group->interfaceIpIs("eth1", named);
  EXPECT_EQ(reported("leaves", "eth1"), secondIp);
}

TEST_F(Reporter, AGroupThatTheOperatorRemovesLeavesTheReportInOneStepWithItsInterfaces) {
  auto* const status = interfaceIs("eth1", firstIp);
  groupIs("leaves", {"eth1"});
  groupIs("edge", {"eth1"});
  start();
  ASSERT_EQ(status->notifieeCount(), 2u);
  WriteList<ClientConfig> writes(mountedConfig);
  WriteList<ClientReachabilityGroup> groupWrites(mountedConfig->group("leaves"));
  config->groupDel("leaves");
  EXPECT_EQ(mountedConfig->group("leaves"), nullptr);
  EXPECT_EQ(reported("edge", "eth1"), firstIp);
  EXPECT_THAT(writes.take(), ElementsAre("group leaves"));
  EXPECT_THAT(groupWrites.take(), ElementsAre());
  EXPECT_THAT(traces, Contains("Cleaning up leaves"));
  EXPECT_EQ(reporter->groups(), 1u);
  EXPECT_EQ(status->notifieeCount(), 1u);
}

TEST_F(Reporter, AGroupThatComesBackIsReportedAnew) {
  interfaceIs("eth1", firstIp);
  groupIs("leaves", {"eth1"});
  start();
  config->groupDel("leaves");
  groupIs("leaves", {"eth1"});
  EXPECT_EQ(reported("leaves", "eth1"), firstIp);
}

TEST_F(Reporter, TheHostnameIsReportedAtOnceAndNeedsNoGroup) {
  netConfig->hostnameIs("leaf1");
  start();
  EXPECT_EQ(mountedConfig->hostname(), "leaf1");
  EXPECT_THAT(traces, Contains("Hostname: leaf1"));
  netConfig->hostnameIs("leaf2");
  EXPECT_EQ(mountedConfig->hostname(), "leaf2");
  EXPECT_EQ(mountedConfig->groups(), 0u);
}

TEST_F(Reporter, AnInterfaceOfTwoGroupsIsReportedInBoth) {
  auto* const status = interfaceIs("eth1", firstIp);
  start();
  auto* const leaves = groupIs("leaves", {"eth1"});
  groupIs("edge", {"eth1"});
  status->addressIs(secondIp);
  EXPECT_EQ(reported("leaves", "eth1"), secondIp);
  EXPECT_EQ(reported("edge", "eth1"), secondIp);
  leaves->interfaceIpDel("eth1");
  status->addressIs(firstIp);
  EXPECT_EQ(reported("leaves", "eth1"), std::nullopt);
  EXPECT_EQ(reported("edge", "eth1"), firstIp);
}

TEST_F(Reporter, AnotherMarkOfTheOperatorsChangesNothing) {
  interfaceIs("eth1", firstIp);
  auto* const group = groupIs("leaves", {"eth1"});
  start();
  auto* const before = reporter->group("leaves")->zebSourceIntfSm(intf("eth1"));
  group->interfaceIpIs("eth1", Netkit::IpAddr(2));
  EXPECT_EQ(reporter->group("leaves")->zebSourceIntfSm(intf("eth1")), before);
  EXPECT_EQ(reported("leaves", "eth1"), firstIp);
}

TEST_F(Reporter, NamesOfInterfacesAreReportedAsTheyWereGiven) {
  start();
  groupIs("leaves", {"Ethernet49/1", "eth1.100", " odd name"});
  auto* const mounted = mountedConfig->group("leaves");
  EXPECT_EQ(mounted->interfaceIps(), 3u);
  EXPECT_TRUE(mounted->interfaceIpHas("Ethernet49/1"));
  EXPECT_TRUE(mounted->interfaceIpHas("eth1.100"));
  EXPECT_TRUE(mounted->interfaceIpHas(" odd name"));
}

// --- the clean-up of stale interfaces, which runs as the first step of registering another ---

struct StaleInterface : Reporter {
  StaleInterface() {
    group->interfaceIpIs("eth1", unnamed);
    start();
  }
  Ip::IntfStatus* const status = interfaceIs("eth1", firstIp);
  ClientReachabilityGroup* const group = groupIs("leaves");
};

TEST_F(StaleInterface, AnInterfaceOfValueZeroIsRegisteredAndUnhookedByTheNext) {
  ASSERT_TRUE(tracked("leaves", "eth1"));
  traces.clear();
  group->interfaceIpIs("eth2", named);
  EXPECT_FALSE(tracked("leaves", "eth1"));
  EXPECT_TRUE(tracked("leaves", "eth2"));
  EXPECT_EQ(status->notifieeCount(), 0u);
  auto const unhooked = std::find(traces.begin(), traces.end(), "Unregistering interface eth1 from group leaves");
  auto const registered = std::find(traces.begin(), traces.end(), "Registering interface eth2 on group leaves");
  EXPECT_LT(unhooked, registered);
  EXPECT_NE(registered, traces.end());
}

TEST_F(StaleInterface, ItsMachineAndItsLastAddressStayInTheReport) {
  group->interfaceIpIs("eth2", named);
  EXPECT_NE(reporter->group("leaves")->zebSourceIntfSm(intf("eth1")), nullptr);
  EXPECT_EQ(reported("leaves", "eth1"), firstIp);
  status->addressIs(secondIp);
  ipStatus->intfStatusDel(intf("eth1"));
  EXPECT_EQ(reported("leaves", "eth1"), firstIp);
}

TEST_F(StaleInterface, ItGoesWhenTheOperatorRemovesItsNameAndMayThenComeBack) {
  group->interfaceIpIs("eth2", named);
  group->interfaceIpDel("eth1");
  EXPECT_EQ(reported("leaves", "eth1"), std::nullopt);
  EXPECT_EQ(reporter->group("leaves")->zebSourceIntfSm(intf("eth1")), nullptr);
  status->addressIs(secondIp);
  group->interfaceIpIs("eth1", named);
  EXPECT_EQ(reported("leaves", "eth1"), secondIp);
}

TEST_F(StaleInterface, ItCannotBeRegisteredAgainWhileItsMachineStands) {
  group->interfaceIpIs("eth2", named);
  traces.clear();
  group->interfaceIpIs("eth1", named);
  EXPECT_THAT(traces, Contains(HasSubstr("exception left a handler: Reinstantiating the pointer interface where "
                                         "constructor parameter attribute _sourceIntf has a different value of ")));
  EXPECT_EQ(reported("leaves", "eth1"), firstIp);
}

TEST_F(Reporter, ANameThatIsRemovedIsNoLongerThereForTheCleanUpToFind) {
  auto* const group = groupIs("leaves", {"eth1"});
  start();
  group->interfaceIpDel("eth1");
  traces.clear();
  group->interfaceIpIs("eth2", named);
  EXPECT_THAT(traces, Not(Contains(HasSubstr("Unregistering interface"))));
}

// --- the end ---

TEST_F(Reporter, AGroupsInterfacesAreSilentBeforeItIsCleanedUp) {
  auto* const status = interfaceIs("eth1", firstIp);
  groupIs("leaves", {"eth1"});
  start();
  auto const sourceIntf =
      Rix::Ptr<Ip::SourceIntf::SourceIntf>(reporter->group("leaves")->sourceIntfDir()->sourceIntf(intf("eth1")));
  auto const mounted = Rix::Ptr<ClientReachabilityGroup>(mountedConfig->group("leaves"));
  unsigned told = 0;
  Writes<ClientConfig> writes(mountedConfig, [&](std::string const&) {
    ++told;
    EXPECT_EQ(status->notifieeCount(), 0u);
    status->addressIs(secondIp);
    EXPECT_EQ(sourceIntf->notifieeCount(), 0u);
    sourceIntf->ipAddrIs(secondIp);
  });
  config->groupDel("leaves");
  EXPECT_EQ(told, 1u);
  EXPECT_EQ(mounted->interfaceIp("eth1"), firstIp);
  EXPECT_EQ(mountedConfig->groups(), 0u);
}

TEST_F(Reporter, ItsEndTakesTheGroupsOutOfTheReportAndLeavesTheHostname) {
  netConfig->hostnameIs("leaf1");
  auto* const status = interfaceIs("eth1", firstIp);
  groupIs("leaves", {"eth1"});
  groupIs("edge", {"eth1"});
  start();
  WriteList<ClientConfig> writes(mountedConfig);
  unsigned told = 0;
  Writes<ClientConfig> silent(mountedConfig, [&](std::string const&) {
    ++told;
    // Nobody is left to hear of a change while it is torn down.
    EXPECT_EQ(status->notifieeCount(), 0u);
    EXPECT_EQ(config->notifieeCount(), 0u);
    EXPECT_EQ(netConfig->notifieeCount(), 0u);
  });
  reporter = nullptr;
  EXPECT_EQ(told, 2u);
  EXPECT_THAT(writes.take(), testing::UnorderedElementsAre("group leaves", "group edge"));
  EXPECT_EQ(mountedConfig->groups(), 0u);
  EXPECT_EQ(mountedConfig->hostname(), "leaf1");
}

// --- what the machines refuse ---

TEST_F(Reporter, ANullGroupIsRefused) {
  start();
  try {
    reporter->groupIs(nullptr);
    FAIL() << "expected RangeException";
  } catch (Rix::RangeException const& exception) {
    EXPECT_STREQ(exception.what(), "null _group parameter to mutator for Zeb::ZebClientConfigSm::group not allowed\"");
  }
}

TEST_F(Reporter, AnotherGroupOfANameInUseIsRefused) {
  groupIs("leaves");
  start();
  try {
    reporter->groupIs(Rix::make<ClientReachabilityGroup>("leaves"));
    FAIL() << "expected NameInUseException";
  } catch (Rix::NameInUseException const& exception) {
    EXPECT_THAT(exception.what(), HasSubstr("constructor parameter attribute _group has a different value of "));
  }
}

TEST_F(ReporterDeathTest, AReportThatLostItsGroupToSomebodyElseStopsTheAgent) {
  auto* const status = interfaceIs("eth1", firstIp);
  groupIs("leaves", {"eth1"});
  start();
  EXPECT_DEATH(
      {
        mountedConfig->groupDel("leaves");
        status->addressIs(secondIp);
      },
      "mountedGroup");
}

// --- the tracker of addresses by itself ---

class SourceIntfTracker : public Reporter {
 protected:
  Rix::Ptr<Ip::SourceIntf::SourceIntfDir> dir = Rix::make<Ip::SourceIntf::SourceIntfDir>("sourceIntfDir");
  Rix::Ptr<Ip::SourceIntf::SourceIntfSm> tracker =
      Rix::make<Ip::SourceIntf::SourceIntfSm>(dir, Rix::Ptr<Ip::Status const>(ipStatus));
};

TEST_F(SourceIntfTracker, RegisteringFindsTheEntryThatStands) {
  auto const entry = tracker->registerSourceIntf(intf("eth1"));
  EXPECT_EQ(dir->sourceIntf(intf("eth1")), entry.get());
  EXPECT_EQ(tracker->registerSourceIntf(intf("eth1")), entry);
  EXPECT_EQ(dir->sourceIntfs(), 1u);
}

TEST_F(SourceIntfTracker, AnInterfaceThatExistsIsReadAtOnce) {
  interfaceIs("eth1", firstIp);
  EXPECT_EQ(tracker->registerSourceIntf(intf("eth1"))->ipAddr(), firstIp);
}

TEST_F(SourceIntfTracker, OnlyRegisteredInterfacesAreFollowed) {
  auto* const other = interfaceIs("eth2", secondIp);
  tracker->registerSourceIntf(intf("eth1"));
  EXPECT_EQ(dir->sourceIntfs(), 1u);
  EXPECT_EQ(other->notifieeCount(), 0u);
}

TEST_F(SourceIntfTracker, UnregisteringKeepsTheAddressInTheEntryThatLeaves) {
  auto* const status = interfaceIs("eth1", firstIp);
  auto const entry = tracker->registerSourceIntf(intf("eth1"));
  tracker->unregisterSourceIntf(entry);
  status->addressIs(secondIp);
  EXPECT_EQ(entry->ipAddr(), firstIp);
  EXPECT_EQ(dir->sourceIntfs(), 0u);
  EXPECT_EQ(tracker->registerSourceIntf(intf("eth1"))->ipAddr(), secondIp);
}

}  // namespace
}  // namespace Zeb::ConfigTest
