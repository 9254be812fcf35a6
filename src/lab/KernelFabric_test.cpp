// Real namespaces and real packets. Each test builds its own fabric in a sandbox, so that they can run side by side.
#include "lab/KernelFabric.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/ethernet.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstring>
#include <map>
#include <set>
#include <thread>

#include "lab/Command.h"
#include "lab/LabTest.h"

namespace Lab {
namespace {

constexpr std::uint16_t probePort = 49500;
constexpr std::size_t spine1 = 0, spine2 = 1, leaf1 = 2, leaf2 = 3, leaf4 = 5;
constexpr int noAnswer = 0;

LinkSide sideTo(const Topology& topology, std::size_t from, std::size_t to) {
  for (const LinkSide side : topology.sides(from))
    if (topology.node(side.peer()) == to) return side;
  throw LabError("no such link");
}

sockaddr_in socketAddress(std::uint32_t address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = htonl(address);
  result.sin_port = htons(port);
  return result;
}

// A fabric with a UDP socket on every node's loopback.
class Nodes {
 public:
  explicit Nodes(const std::string& rest)
      : scenario(fabricScenario(rest)), topology(scenario), fabric(topology, probePort, 7) {
    for (std::size_t node = 0; node < topology.nodes(); ++node) receivers.push_back(udp(node, probePort));
  }

  Platform::Descriptor udp(std::size_t node, std::uint16_t port) const {
    fabric.enter(node);
    Platform::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    fabric.leave();
    const int yes = 1;
    ::setsockopt(socket.fd(), IPPROTO_IP, IP_RECVTTL, &yes, sizeof yes);
    const sockaddr_in local = socketAddress(topology.loopback(node), port);
    if (::bind(socket.fd(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) throw LabError("bind");
    return socket;
  }

  bool send(std::size_t from, std::size_t to, std::uint16_t port, int ttl = 64) const {
    const Platform::Descriptor socket = udp(from, port);
    ::setsockopt(socket.fd(), IPPROTO_IP, IP_TTL, &ttl, sizeof ttl);
    const sockaddr_in remote = socketAddress(topology.loopback(to), probePort);
    return ::sendto(socket.fd(), "probe", 5, 0, reinterpret_cast<const sockaddr*>(&remote), sizeof remote) == 5;
  }

  // The TTL with which the next packet arrives, noAnswer if none does within `patience` ms.
  int receivedTtl(std::size_t node, int patience) const {
    pollfd wait{receivers[node].fd(), POLLIN, 0};
    if (::poll(&wait, 1, patience) <= 0) return noAnswer;
    char data[64];
    alignas(cmsghdr) char control[64];
    iovec piece{data, sizeof data};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (::recvmsg(receivers[node].fd(), &message, 0) < 0) return noAnswer;
    int ttl = noAnswer;
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part))
      if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_TTL) std::memcpy(&ttl, CMSG_DATA(part), sizeof ttl);
    return ttl;
  }

  // The links that one packet passes from node to node, noAnswer if it does not arrive.
  int hops(std::size_t from, std::size_t to, std::uint16_t port = 20000, int patience = 2000) const {
    if (!send(from, to, port)) return noAnswer;
    const int ttl = receivedTtl(to, patience);
    return ttl == noAnswer ? noAnswer : 64 - ttl + 1;
  }

  // Of 200 packets with this source port, which a receive buffer takes, how many arrive.
  int arrivals(std::size_t from, std::size_t to, std::uint16_t port) const {
    int count = 0;
    for (int packet = 0; packet < 200; ++packet) send(from, to, port);
    while (receivedTtl(to, 100) != noAnswer) ++count;
    return count;
  }

  // A source port whose packets take this first side.
  std::uint16_t portOver(std::size_t from, std::size_t to, LinkSide first) const {
    for (std::uint16_t port = 20000; port < 20100; ++port)
      if (path(from, to, port).at(0) == first) return port;
    throw LabError("no port takes this way");
  }

  std::vector<LinkSide> path(std::size_t from, std::size_t to, std::uint16_t port) const {
    return fabric.paths({{from, to, topology.loopback(from), topology.loopback(to), port, 8}}).at(0);
  }

  // Puts the faults with these numbers in force, and no others.
  Condition faultsAre(const std::set<std::size_t>& active) {
    std::vector<bool> set(scenario.faults.size());
    for (const std::size_t fault : active) set[fault] = true;
    const Condition condition = conditionOf(scenario, set);
    fabric.apply(condition);
    return condition;
  }

  Scenario scenario;
  Topology topology;
  KernelFabric fabric;
  std::vector<Platform::Descriptor> receivers;
};

void everyPairIsJoined(const Nodes& nodes, Failures& failures) {
  for (std::size_t from = 0; from < nodes.topology.nodes(); ++from)
    for (std::size_t to = 0; to < nodes.topology.nodes(); ++to) {
      if (from == to) continue;
      const bool bothSpines = from <= spine2 && to <= spine2;
      const bool bothLeaves = from > spine2 && to > spine2;
      // A leaf carries nothing between the spines.
      if (bothSpines)
        failures.expect(!nodes.send(from, to, 20000), "a spine has a route to the other");
      else
        failures.equal(nodes.hops(from, to), bothLeaves ? 2 : 1,
                       "hops from " + std::to_string(from) + " to " + std::to_string(to));
    }
}

TEST(KernelFabric, JoinsAllLoopbacksWithTheExpectedHops) {
  EXPECT_EQ(inSandbox([](Failures& failures) { everyPairIsJoined(Nodes("duration: 10\n"), failures); }), "");
}

TEST(KernelFabric, WorksForAnOrdinaryUser) {
  EXPECT_EQ(asOrdinaryUser([] {
              return inSandbox([](Failures& failures) { everyPairIsJoined(Nodes("duration: 10\n"), failures); });
            }),
            "");
}

TEST(KernelFabric, GivesEachNodeItsHostName) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              const Nodes nodes("duration: 10\n");
              nodes.fabric.enter(leaf2);
              char name[64] = {};
              ::gethostname(name, sizeof name - 1);
              failures.expect(std::string(name) == "leaf2", name);
              nodes.fabric.leave();
              ::gethostname(name, sizeof name - 1);
              failures.expect(std::string(name) == "zeb-lab", name);
            }),
            "");
}

// Every packet that a node sees for itself or to forward, by node, source address and source port.
using Sightings = std::map<std::tuple<std::size_t, std::uint32_t, std::uint32_t, std::uint16_t>, std::size_t>;

Sightings sightings(const std::vector<Platform::Descriptor>& taps) {
  Sightings result;
  for (std::size_t node = 0; node < taps.size(); ++node) {
    pollfd wait{taps[node].fd(), POLLIN, 0};
    while (::poll(&wait, 1, 100) > 0) {
      std::array<unsigned char, 256> packet;
      sockaddr_ll from{};
      socklen_t length = sizeof from;
      const ssize_t got =
          ::recvfrom(taps[node].fd(), packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
      iphdr ip{};
      udphdr udp{};
      if (got < static_cast<ssize_t>(sizeof ip + sizeof udp)) continue;
      std::memcpy(&ip, packet.data(), sizeof ip);
      std::memcpy(&udp, packet.data() + sizeof ip, sizeof udp);
      if (from.sll_pkttype == PACKET_HOST && ip.protocol == IPPROTO_UDP)
        ++result[{node, ntohl(ip.saddr), ntohl(ip.daddr), ntohs(udp.source)}];
    }
  }
  return result;
}

TEST(KernelFabric, TellsTheWayThatPacketsTake) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              const Nodes nodes("duration: 10\n");
              std::vector<Platform::Descriptor> taps;
              for (std::size_t node = 0; node < nodes.topology.nodes(); ++node) {
                nodes.fabric.enter(node);
                taps.emplace_back(::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_IP)));
                nodes.fabric.leave();
              }
              std::vector<Flow> flows;
              for (std::size_t from = leaf1; from <= leaf4; ++from)
                for (std::size_t to = leaf1; to <= leaf4; ++to)
                  for (std::uint16_t port = 20000; port < 20010; ++port)
                    if (from != to)
                      flows.push_back({from, to, nodes.topology.loopback(from), nodes.topology.loopback(to), port, 8});
              const auto paths = nodes.fabric.paths(flows);
              for (const Flow& flow : flows)
                for (const int ttl : {1, 2, 3}) nodes.send(flow.source, flow.destination, flow.port, ttl);
              const Sightings seen = sightings(taps);
              std::size_t expected = 0;
              std::set<std::size_t> firstHops;
              for (std::size_t index = 0; index < flows.size(); ++index) {
                const Flow& flow = flows[index];
                failures.equal(paths[index].size(), 2u, "length of a way");
                if (paths[index].size() != 2) continue;
                const std::size_t middle = nodes.topology.node(paths[index][0].peer());
                firstHops.insert(middle);
                const auto count = [&](std::size_t node) {
                  const auto found = seen.find({node, flow.sourceAddress, flow.destinationAddress, flow.port});
                  return found == seen.end() ? 0 : found->second;
                };
                failures.equal(count(middle), 3u, "packets at the spine that was told");
                failures.equal(count(flow.destination), 2u, "packets at the destination");
                expected += 2;
              }
              failures.equal(seen.size(), expected, "kinds of packets seen");
              failures.equal(firstHops.size(), 2u, "spines in use");
            }),
            "");
}

TEST(KernelFabric, LosesOneDirectionSilentlyAndOnlyThatOne) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes(R"(
duration: 60
faults: [{at: 20, until: 30, kind: loss, from: "leaf1:eth1", to: "spine1:eth1"}]
)");
              nodes.faultsAre({0});
              failures.equal(nodes.hops(leaf1, spine1, 20000, 100), noAnswer, "hops of what is lost");
              failures.equal(nodes.hops(spine1, leaf1), 1, "hops of the other direction");
              failures.equal(nodes.hops(leaf1, spine2), 1, "hops over the other link");
              failures.expect(nodes.path(leaf1, spine1, 20000).size() == 1, "the route has gone");
              nodes.faultsAre({});
              failures.equal(nodes.hops(leaf1, spine1), 1, "hops afterwards");
            }),
            "");
}

TEST(KernelFabric, LosesAShareOrTheFlowsOfSomePorts) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes(R"(
duration: 60
faults:
  - {at: 20, kind: loss, from: "leaf1:eth1", to: "spine1:eth1", share: 0.25}
  - {at: 20, kind: loss, from: "leaf1:eth1", to: "spine1:eth1", ports: [20001, 20004]}
)");
              nodes.faultsAre({0});
              const int shared = nodes.arrivals(leaf1, spine1, 20000);
              // Seven standard deviations on both sides of 150.
              failures.expect(shared > 107 && shared < 193, "arrivals " + std::to_string(shared));
              nodes.faultsAre({1});
              failures.equal(nodes.arrivals(leaf1, spine1, 20000), 200, "arrivals of another port");
              failures.equal(nodes.arrivals(leaf1, spine1, 20004), 0, "arrivals of a port that is hit");
              nodes.faultsAre({0, 1});
              failures.expect(nodes.arrivals(leaf1, spine1, 20000) < 193, "both at once: the share is not lost");
              failures.equal(nodes.arrivals(leaf1, spine1, 20001), 0, "both at once: arrivals of a port that is hit");
            }),
            "");
}

std::string linkLine(const Nodes& nodes, LinkSide side) {
  const std::size_t node = nodes.topology.node(side);
  return runCommand({{"ip", "-oneline", "link", "show", "dev", nodes.scenario.end(side).interface}, "", [&] {
                       nodes.fabric.enter(node);
                     }});
}

// Waits for what the kernel tells with a delay of its own; a second is the delay that must not be.
bool soon(const std::function<bool()>& holds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
  while (!holds())
    if (std::chrono::steady_clock::now() > end) return false;
  return true;
}

TEST(KernelFabric, TakesALinkDownForBothEndsAndRoutesAroundIt) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes(R"(
duration: 60
faults: [{at: 20, until: 30, kind: link-down, link: "leaf1:eth1"}]
)");
              const LinkSide up = sideTo(nodes.topology, leaf1, spine1);
              const std::uint16_t port = nodes.portOver(leaf2, leaf1, sideTo(nodes.topology, leaf2, spine1));
              Condition condition = nodes.faultsAre({0});
              failures.expect(soon([&] { return linkLine(nodes, up.peer()).find("NO-CARRIER") != std::string::npos; }),
                              "the other end does not see it: " + linkLine(nodes, up.peer()));
              failures.equal(nodes.hops(leaf1, leaf2), 2, "hops from leaf1, which knows at once");
              failures.equal(nodes.hops(leaf2, leaf1, port, 100), noAnswer, "hops to leaf1 before convergence");
              nodes.fabric.route(condition.linksUp());
              failures.equal(nodes.hops(leaf2, leaf1, port), 2, "hops to leaf1 after convergence");
              failures.expect(!nodes.send(spine1, leaf1, 20000), "spine1 reaches leaf1 by way of another leaf");
              condition = nodes.faultsAre({});
              nodes.fabric.route(condition.linksUp());
              failures.expect(soon([&] { return linkLine(nodes, up.peer()).find("NO-CARRIER") == std::string::npos; }),
                              "the other end does not see the return");
              failures.equal(nodes.hops(spine1, leaf1), 1, "hops over the link afterwards");
              failures.equal(nodes.hops(leaf1, spine1), 1, "hops over the link afterwards");
              failures.expect(nodes.path(leaf2, leaf1, port).at(0) == sideTo(nodes.topology, leaf2, spine1),
                              "the flow is not back on its way");
            }),
            "");
}

constexpr unsigned lowerUp = 1u << 16;  // IFF_LOWER_UP, which stands in a header that the others contradict

// Waits for the kernel to announce that an interface has a carrier, or has none. A second late is too late.
bool announced(const Platform::Descriptor& events, bool carrier) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(700);
  for (pollfd wait{events.fd(), POLLIN, 0}; std::chrono::steady_clock::now() < end;) {
    if (::poll(&wait, 1, 10) <= 0) continue;
    alignas(nlmsghdr) char buffer[8192];
    auto left = static_cast<unsigned>(std::max<ssize_t>(::recv(events.fd(), buffer, sizeof buffer, 0), 0));
    for (char* at = buffer; left >= sizeof(nlmsghdr) + sizeof(ifinfomsg);) {
      nlmsghdr header{};
      std::memcpy(&header, at, sizeof header);
      ifinfomsg link{};
      std::memcpy(&link, at + sizeof header, sizeof link);
      if (header.nlmsg_type == RTM_NEWLINK && ((link.ifi_flags & lowerUp) != 0) == carrier) return true;
      const unsigned length = std::min(NLMSG_ALIGN(header.nlmsg_len), left);
      at += length;
      left -= length;
    }
  }
  return false;
}

TEST(KernelFabric, HasTheFarEndToldAtOnceHoweverOftenALinkGoesAndComes) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes(R"(
duration: 60
faults: [{at: 20, until: 30, kind: link-down, link: "leaf1:eth1"}]
)");
              nodes.fabric.enter(spine1);
              const Platform::Descriptor events(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
              nodes.fabric.leave();
              sockaddr_nl address{};
              address.nl_family = AF_NETLINK;
              address.nl_groups = RTMGRP_LINK;
              failures.equal(::bind(events.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0,
                             "bind");
              for (int round = 0; round < 3; ++round) {
                nodes.faultsAre({0});
                failures.expect(announced(events, false), "the loss of the carrier, round " + std::to_string(round));
                nodes.faultsAre({});
                failures.expect(announced(events, true), "its return, round " + std::to_string(round));
              }
            }),
            "");
}

TEST(KernelFabric, KeepsALossOneWayAlsoOnALinkThatWasDown) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes(R"(
duration: 60
faults: [{at: 20, until: 30, kind: link-down, link: "leaf1:eth1"}]
)");
              nodes.faultsAre({0});
              nodes.faultsAre({});
              for (const std::size_t node : {leaf1, spine1}) {
                const std::string neighbours =
                    runCommand({{"ip", "-oneline", "neighbor"}, "", [&] { nodes.fabric.enter(node); }});
                const auto lines = std::count(neighbours.begin(), neighbours.end(), '\n');
                std::ptrdiff_t permanent = 0;
                for (std::size_t at = 0; (at = neighbours.find("PERMANENT", at)) != std::string::npos; ++at)
                  ++permanent;
                failures.equal(permanent, node == leaf1 ? 2 : 4, "permanent neighbours");
                failures.equal(permanent, lines, "neighbours: " + neighbours);
              }
            }),
            "");
}

TEST(KernelFabric, ReturnsFromAShortInterruptionWithoutNewRoutes) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes(R"(
duration: 60
faults: [{at: 20, until: 20.1, kind: link-down, link: "spine1:eth1"}]
)");
              nodes.faultsAre({0});
              const Condition condition = nodes.faultsAre({});
              nodes.fabric.route(condition.linksUp());
              everyPairIsJoined(nodes, failures);
            }),
            "");
}

TEST(KernelFabric, PowersANodeOffVisiblyAndOnAgain) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes(R"(
duration: 60
faults: [{at: 20, until: 30, kind: power-off, node: spine1}]
)");
              Condition condition = nodes.faultsAre({0});
              nodes.fabric.route(condition.linksUp());
              for (std::uint16_t port = 20000; port < 20006; ++port)
                failures.equal(nodes.hops(leaf1, leaf2, port), 2, "hops without spine1");
              failures.expect(!nodes.send(leaf1, spine1, 20000), "a route to spine1 is left");
              const std::string line = linkLine(nodes, sideTo(nodes.topology, leaf4, spine1));
              failures.expect(line.find("NO-CARRIER") != std::string::npos, line);
              condition = nodes.faultsAre({});
              nodes.fabric.route(condition.linksUp());
              everyPairIsJoined(nodes, failures);
            }),
            "");
}

TEST(KernelFabric, FreezesANodeWhoseLinksStayUp) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes(R"(
duration: 60
faults: [{at: 20, until: 30, kind: freeze, node: spine2}]
)");
              const std::uint16_t over1 = nodes.portOver(leaf1, leaf2, sideTo(nodes.topology, leaf1, spine1));
              const std::uint16_t over2 = nodes.portOver(leaf1, leaf2, sideTo(nodes.topology, leaf1, spine2));
              const Condition condition = nodes.faultsAre({0});
              failures.expect(condition.linksUp() == std::vector<bool>(8, true), "links are down");
              failures.equal(nodes.hops(leaf1, leaf2, over2, 100), noAnswer, "hops through the frozen node");
              failures.equal(nodes.hops(leaf1, leaf2, over1), 2, "hops through the other");
              failures.equal(nodes.hops(leaf1, spine2, 20000, 100), noAnswer, "hops to the frozen node");
              failures.equal(nodes.hops(spine2, leaf1, 20000, 100), noAnswer, "hops from the frozen node");
              nodes.faultsAre({});
              everyPairIsJoined(nodes, failures);
            }),
            "");
}

TEST(KernelFabric, KeepsQuietAboutProbesThatExpire) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              const Nodes nodes("duration: 10\n");
              const auto hears = [&](std::uint16_t destinationPort) {
                nodes.fabric.enter(leaf1);
                const Platform::Descriptor raw(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
                nodes.fabric.leave();
                const Platform::Descriptor socket = nodes.udp(leaf1, 20000);
                const int ttl = 1;
                ::setsockopt(socket.fd(), IPPROTO_IP, IP_TTL, &ttl, sizeof ttl);
                const sockaddr_in remote = socketAddress(nodes.topology.loopback(leaf2), destinationPort);
                ::sendto(socket.fd(), "probe", 5, 0, reinterpret_cast<const sockaddr*>(&remote), sizeof remote);
                pollfd wait{raw.fd(), POLLIN, 0};
                return ::poll(&wait, 1, destinationPort == probePort ? 200 : 2000) > 0;
              };
              failures.expect(!hears(probePort), "the kernel answers an expiring probe");
              failures.expect(hears(probePort + 1), "the kernel answers nothing at all");
            }),
            "");
}

Flow flowBetween(std::uint32_t source, std::uint32_t destination, std::uint16_t port = 20000) {
  return {leaf1, leaf2, source, destination, port, 3};
}

TEST(KernelFabric, MovesAnAddressWithoutAGapAndRoutesToTheOldOneUntilTheNextRoutes) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes("duration: 1\n");
              const std::uint32_t own = nodes.topology.loopback(leaf1), before = nodes.topology.loopback(leaf2);
              const std::uint32_t after = 0x0a090909;
              const auto length = [&](std::uint32_t source, std::uint32_t destination) {
                return nodes.fabric.paths({flowBetween(source, destination)})[0].size();
              };
              nodes.fabric.addressIs(leaf2, "lo", after);
              failures.equal(length(own, after), 2u, "links to the new address");
              failures.equal(length(own, before), 2u, "links to where the old one was");
              nodes.fabric.route({true, true, true, true, true, true, true, true});
              failures.equal(length(own, after), 2u, "links to the new address with new routes");
              failures.equal(length(own, before), 0u, "links towards the old one, which nobody announces");
              nodes.fabric.addressIs(leaf1, "lo", std::nullopt);
              nodes.fabric.addressIs(leaf1, "lo", 0x0a080808);
              failures.equal(length(0x0a080808, after), 2u, "links from an address that came after none");
            }),
            "");
}

TEST(KernelFabric, ReachesTheAddressOfALinkThatIsInAGroupAndKeepsTheLinkWhenItGoes) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes("duration: 60\nchanges: [{at: 1, kind: group, node: leaf2, name: leaves, add: [eth1]}]\n");
              const std::uint32_t own = nodes.topology.loopback(leaf1);
              const std::uint32_t ofLink = nodes.topology.address(leaf2, "eth1");
              const auto length = [&](std::uint32_t destination) {
                return nodes.fabric.paths({flowBetween(own, destination)})[0].size();
              };
              failures.equal(length(ofLink), 2u, "links to the address of a link");
              nodes.fabric.addressIs(leaf2, "eth1", std::nullopt);
              nodes.fabric.route({true, true, true, true, true, true, true, true});
              failures.equal(length(ofLink), 0u, "links towards an address that is gone");
              for (std::uint16_t port = 20000; port < 20012; ++port)
                failures.equal(nodes.hops(leaf2, leaf1, port), 2, "links from where it was");
              nodes.fabric.addressIs(leaf2, "eth1", 0x0a070707);
              failures.equal(length(0x0a070707), 2u, "links to another address of the link");
              nodes.fabric.addressIs(leaf2, "eth1", ofLink);
              failures.equal(length(ofLink), 2u, "links to the address that was there before");
            }),
            "");
}

TEST(KernelFabric, SharesFlowsOutInAnotherWay) {
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes("duration: 1\n");
              std::vector<Flow> flows;
              for (std::uint16_t port = 20000; port < 20064; ++port)
                flows.push_back(flowBetween(nodes.topology.loopback(leaf1), nodes.topology.loopback(leaf2), port));
              const auto before = nodes.fabric.paths(flows);
              nodes.fabric.hashIs(leaf1, 99);
              const auto after = nodes.fabric.paths(flows);
              std::size_t moved = 0;
              for (std::size_t flow = 0; flow < flows.size(); ++flow) {
                failures.equal(after[flow].size(), 2u, "links of a flow");
                moved += before[flow] != after[flow] ? 1u : 0u;
              }
              failures.expect(moved > 8 && moved < 56, std::to_string(moved) + " of 64 flows moved");
            }),
            "");
}

TEST(KernelFabric, SaysWhichNodeAndWhatFailed) {
  // An interface can be taken away from below; the next command on it then has something to say.
  EXPECT_EQ(inSandbox([](Failures& failures) {
              Nodes nodes(R"(
duration: 60
faults: [{at: 20, kind: link-down, link: "leaf1:eth1"}]
)");
              runCommand({{"ip", "link", "del", "dev", "eth1"}, "", [&] { nodes.fabric.enter(leaf1); }});
              try {
                nodes.faultsAre({0});
                failures.expect(false, "no error");
              } catch (const LabError& error) {
                const std::string text = error.what();
                failures.expect(text.find("leaf1: ip -batch - failed with status 1: Cannot find device") == 0, text);
                failures.expect(text.find('\n') == std::string::npos, "more than one line");
              }
            }),
            "");
}

TEST(Command, NamesAProgramThatIsNotThere) {
  try {
    runCommand({{"zeb-no-such-program"}});
    FAIL() << "no error";
  } catch (const LabError& error) {
    EXPECT_STREQ(error.what(), "cannot run zeb-no-such-program: No such file or directory");
  }
}

TEST(Command, TakesInputAndGivesOutputLargerThanAPipe) {
  const std::string large(1 << 20, 'x');
  EXPECT_EQ(runCommand({{"cat"}, large}), large);
}

}  // namespace
}  // namespace Lab
