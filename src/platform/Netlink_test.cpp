// Shows what the watcher tells of real interfaces, addresses and routes, each test in a network namespace of its own:
// a forked child enters a fresh user and network namespace, so that neither privileges nor this machine's own
// network take part.
#include "platform/Netlink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>
#include <string>

#include "platform/TestNamespace.h"

namespace Platform {
namespace {

using Kind = NetworkRoute::Kind;

constexpr std::uint32_t ip(unsigned a, unsigned b, unsigned c, unsigned d) {
  return a << 24 | b << 16 | c << 8 | d;
}

// One end of a pair stays here, up, with an address; "far" is the other end, also here, without one.
void makePair(const std::string& near, const std::string& far, const std::string& address) {
  run("link add name " + near + " type veth peer name " + far);
  run("addr add " + address + " dev " + near);
  run("link set dev " + near + " up");
  run("link set dev " + far + " up");
}

bool readable(const NetworkWatcher& watcher) {
  pollfd waiting{watcher.fd(), POLLIN, 0};
  return ::poll(&waiting, 1, 5000) == 1;
}

// Reads on until the condition holds; a failure if nothing comes any more.
template <typename Condition>
void readUntil(NetworkWatcher& watcher, Condition condition) {
  while (!condition(watcher.snapshot())) {
    if (!readable(watcher)) throw std::runtime_error("no event came, and the condition does not hold");
    watcher.onReadable();
  }
}

TEST(Netlink, TheAddressOfAnInterfaceIsItsFirstOfGlobalScope) {
  inOwnNamespace([] {
    run("link set dev lo up");
    run("addr add 10.0.0.7/32 dev lo");
    run("addr add 10.0.0.8/32 dev lo");
    run("link add name p type veth peer name q");
    run("addr add 169.254.1.1/16 scope link dev p");
    const NetworkWatcher watcher;
    const NetworkSnapshot& snapshot = watcher.snapshot();
    ASSERT_EQ(snapshot.interfaces.size(), 3U);
    EXPECT_EQ(snapshot.interfaces[0].name, "lo");
    EXPECT_EQ(snapshot.interfaces[0].address, ip(10, 0, 0, 7));
    EXPECT_TRUE(snapshot.interfaces[0].up);
    EXPECT_TRUE(snapshot.interfaces[0].carrier);
    ASSERT_TRUE(snapshot.interface("p"));
    EXPECT_EQ(snapshot.interface("p")->address, std::nullopt);
    EXPECT_FALSE(snapshot.interface("p")->up);
    EXPECT_EQ(snapshot.interface(snapshot.interface("p")->index), snapshot.interface("p"));
    EXPECT_EQ(snapshot.interface("r"), nullptr);
    EXPECT_EQ(snapshot.interface(4711), nullptr);
  });
}

TEST(Netlink, TheNextAddressComesForwardWhenTheFirstGoes) {
  inOwnNamespace([] {
    run("link set dev lo up");
    run("addr add 10.0.0.7/32 dev lo");
    run("addr add 10.0.0.8/32 dev lo");
    NetworkWatcher watcher;
    run("addr del 10.0.0.7/32 dev lo");
    readUntil(watcher, [](auto& s) { return s.interface("lo")->address == ip(10, 0, 0, 8); });
    EXPECT_FALSE(watcher.snapshot().hasRouteTo(ip(10, 0, 0, 7)));
    run("addr del 10.0.0.8/32 dev lo");
    readUntil(watcher, [](auto& s) { return !s.interface("lo")->address; });
  });
}

TEST(Netlink, CarrierAndUpAreToldApartAndAnInterfaceThatIsDownKeepsItsAddress) {
  inOwnNamespace([] {
    makePair("near", "far", "10.1.0.0/31");
    NetworkWatcher watcher;
    const auto near = [&] { return *watcher.snapshot().interface("near"); };
    readUntil(watcher, [](auto& s) { return s.interface("near")->carrier; });
    run("link set dev far down");
    readUntil(watcher, [](auto& s) { return !s.interface("near")->carrier; });
    EXPECT_TRUE(near().up);
    run("link set dev near down");
    readUntil(watcher, [](auto& s) { return !s.interface("near")->up; });
    EXPECT_FALSE(near().carrier);
    EXPECT_EQ(near().address, ip(10, 1, 0, 0));
  });
}

TEST(Netlink, AnInterfaceKeepsItsIndexWhenItIsRenamedAndGoesWhenItIsDeleted) {
  inOwnNamespace([] {
    run("link add name one type veth peer name other");
    NetworkWatcher watcher;
    const int index = watcher.snapshot().interface("one")->index;
    run("link set dev one name two");
    readUntil(watcher, [](auto& s) { return s.interface("two"); });
    EXPECT_EQ(watcher.snapshot().interface("two")->index, index);
    EXPECT_EQ(watcher.snapshot().interface("one"), nullptr);
    run("link del two");
    readUntil(watcher, [](auto& s) { return !s.interface("two"); });
  });
}

TEST(Netlink, TheLongestPrefixWithANextHopThatWorksIsTheRoute) {
  inOwnNamespace([] {
    run("link set dev lo up");
    makePair("a", "afar", "10.1.0.0/31");
    makePair("b", "bfar", "10.1.0.2/31");
    run("route add 10.0.0.0/8 via 10.1.0.3");
    run("route add 10.0.0.0/24 via 10.1.0.1");
    run("route add 10.0.0.0/24 via 10.1.0.3 metric 7");
    run("route add blackhole 10.0.0.128/25");
    run("route add table 100 192.0.2.0/24 via 10.1.0.1");
    NetworkWatcher watcher;
    const auto& snapshot = watcher.snapshot();
    const int a = snapshot.interface("a")->index, b = snapshot.interface("b")->index;
    const auto byOf = [&](std::uint32_t address) {
      const NetworkRoute* route = snapshot.routeTo(address);
      return route ? route->interfaces : std::vector<int>{};
    };
    EXPECT_THAT(byOf(ip(10, 0, 0, 1)), testing::ElementsAre(a));
    EXPECT_THAT(byOf(ip(10, 0, 1, 1)), testing::ElementsAre(b));
    EXPECT_FALSE(snapshot.hasRouteTo(ip(10, 0, 0, 129)));
    EXPECT_FALSE(snapshot.hasRouteTo(ip(192, 0, 2, 1))) << "a table that no rule names";
    ASSERT_TRUE(snapshot.hasRouteTo(ip(10, 1, 0, 2)));
    EXPECT_EQ(snapshot.routeTo(ip(10, 1, 0, 2))->kind, Kind::local);

    run("link set dev a down");  // its routes go without a word
    readUntil(watcher, [&](auto&) { return byOf(ip(10, 0, 0, 1)) == std::vector{b}; });
    run("link set dev b down");
    readUntil(watcher, [](auto& s) { return !s.hasRouteTo(ip(10, 0, 0, 1)); });
  });
}

TEST(Netlink, ARouteWithoutPrefixServesTheRestAndThrowPassesOn) {
  inOwnNamespace([] {
    makePair("a", "afar", "10.1.0.0/31");
    run("route add default via 10.1.0.1 table default");
    run("route add unreachable default metric 9999");
    run("route add throw 192.0.2.0/24");
    const NetworkWatcher watcher;
    EXPECT_FALSE(watcher.snapshot().hasRouteTo(ip(198, 51, 100, 1)));
    EXPECT_TRUE(watcher.snapshot().hasRouteTo(ip(192, 0, 2, 1))) << "the main table passes it on to the next";
  });
}

TEST(Netlink, ANextHopWhoseLinkIsDownCountsAsTheKernelWasTold) {
  inOwnNamespace([] {
    writeTo("/proc/sys/net/ipv4/conf/all/ignore_routes_with_linkdown", "1");
    makePair("a", "afar", "10.1.0.0/31");
    makePair("b", "bfar", "10.1.0.2/31");
    run("route add 10.9.0.0/16 nexthop via 10.1.0.1 nexthop via 10.1.0.3");
    run("route add 10.8.0.0/16 via 10.1.0.1");
    NetworkWatcher watcher;
    const int a = watcher.snapshot().interface("a")->index, b = watcher.snapshot().interface("b")->index;
    readUntil(watcher, [&](auto& s) { return s.routeTo(ip(10, 9, 0, 1))->interfaces == std::vector{a, b}; });
    EXPECT_TRUE(watcher.snapshot().hasRouteTo(ip(10, 8, 0, 1)));
    run("link set dev afar down");
    readUntil(watcher, [&](auto& s) { return s.routeTo(ip(10, 9, 0, 1))->interfaces == std::vector{b}; });
    EXPECT_FALSE(watcher.snapshot().hasRouteTo(ip(10, 8, 0, 1)));
  });
}

TEST(Netlink, AFlowTakesTheInterfaceThatTheKernelHashesItTo) {
  inOwnNamespace([] {
    writeTo("/proc/sys/net/ipv4/fib_multipath_hash_policy", "1");
    run("link set dev lo up");
    run("addr add 10.0.0.1/32 dev lo");
    makePair("a", "afar", "10.1.0.0/31");
    makePair("b", "bfar", "10.1.0.2/31");
    run("route add 10.0.0.2/32 nexthop via 10.1.0.1 nexthop via 10.1.0.3");
    NetworkWatcher watcher;
    const int a = watcher.snapshot().interface("a")->index, b = watcher.snapshot().interface("b")->index;
    std::set<int> taken;
    for (std::uint16_t port = 20000; port < 20032; ++port) {
      const UdpFlow flow{ip(10, 0, 0, 1), ip(10, 0, 0, 2), port, 4000};
      const auto egress = watcher.egressInterface(flow);
      ASSERT_TRUE(egress);
      EXPECT_EQ(watcher.egressInterface(flow), egress);
      taken.insert(*egress);
    }
    EXPECT_THAT(taken, testing::UnorderedElementsAre(a, b));
    EXPECT_EQ(watcher.egressInterface({ip(10, 0, 0, 1), ip(10, 0, 0, 3), 1, 2}), std::nullopt) << "no route";
    EXPECT_EQ(watcher.egressInterface({ip(10, 0, 0, 9), ip(10, 0, 0, 2), 1, 2}), std::nullopt) << "not our address";
    EXPECT_EQ(watcher.egressInterface({ip(10, 0, 0, 1), ip(10, 1, 0, 1), 1, 2}), a) << "after errors as before";
  });
}

TEST(Netlink, ManyChangesAtOnceMakeFewSnapshotsAndTheLastIsWhole) {
  inOwnNamespace([] {
    makePair("a", "afar", "10.1.0.0/31");
    int told = 0;
    NetworkWatcher watcher([&](const NetworkSnapshot&) { ++told; });
    const std::string list = testing::TempDir() + "zeb-routes-" + std::to_string(::getpid());
    {
      std::ofstream file(list);
      for (int i = 0; i < 200; ++i) file << "route add 10.2." << i << ".0/24 via 10.1.0.1\n";
    }
    run("-batch " + list);
    std::remove(list.c_str());
    ASSERT_TRUE(readable(watcher));
    watcher.onReadable();
    EXPECT_EQ(told, 1);
    for (unsigned i = 0; i < 200; ++i) EXPECT_TRUE(watcher.snapshot().hasRouteTo(ip(10, 2, i, 1))) << i;
  });
}

TEST(Netlink, AnEventThatChangesNothingIsNotTold) {
  inOwnNamespace([] {
    run("link add name one type veth peer name other");
    int told = 0;
    NetworkWatcher watcher([&](const NetworkSnapshot&) { ++told; });
    run("link set dev one txqueuelen 123");
    ASSERT_TRUE(readable(watcher));
    watcher.onReadable();
    EXPECT_EQ(told, 0);
    watcher.onReadable();  // with nothing to read
    EXPECT_EQ(told, 0);
  });
}

TEST(Netlink, AnOverrunLosesNothing) {
  inOwnNamespace([] {
    run("link set dev lo up");
    NetworkWatcher watcher;
    watcher.eventBufferSizeIs(1);  // the kernel's own minimum
    for (int i = 1; i <= 40; ++i) run("addr add 10.3.0." + std::to_string(i) + "/32 dev lo");
    ASSERT_TRUE(readable(watcher));
    watcher.onReadable();
    EXPECT_GT(watcher.overruns(), 0U);
    EXPECT_TRUE(watcher.snapshot().hasRouteTo(ip(10, 3, 0, 40)));
  });
}

TEST(Netlink, TheWatcherStaysWithTheNamespaceThatItWasMadeIn) {
  inOwnNamespace([] {
    run("link set dev lo up");
    run("addr add 10.0.0.7/32 dev lo");
    NetworkWatcher watcher;
    run("addr add 10.0.0.8/32 dev lo");
    ASSERT_EQ(::unshare(CLONE_NEWNET), 0);
    watcher.onReadable();
    EXPECT_TRUE(watcher.snapshot().hasRouteTo(ip(10, 0, 0, 8)));
    EXPECT_TRUE(watcher.egressInterface({ip(10, 0, 0, 7), ip(10, 0, 0, 8), 1, 2}));
  });
}

}  // namespace
}  // namespace Platform
