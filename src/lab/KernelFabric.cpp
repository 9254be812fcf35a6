// Batches: one `ip` for all links, one per node for what is inside it. Interfaces get numbers of their own, because
// of a pair of veths with equal numbers the kernel announces the loss of a carrier up to a second late. Neighbours
// are permanent, or a loss of one direction would by ARP soon become one of both; and next hops are named by the links'
// first addresses, whatever addresses the interfaces have now.
#include "lab/KernelFabric.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <set>
#include <sstream>

#include "lab/Command.h"
#include "lab/Seed.h"

namespace Lab {

namespace {

enum class IfThere : bool { no, yes };

void set(const std::string& name, const std::string& value, IfThere ifThere = IfThere::no) {
  const std::string path = "/proc/sys/net/" + name;
  const Platform::Descriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!file && errno == ENOENT && ifThere == IfThere::yes) return;
  if (!file || ::write(file.fd(), value.data(), value.size()) != static_cast<ssize_t>(value.size()))
    throw LabError(path + ": " + std::strerror(errno));
}

// 0 would mean that it has none of its own.
std::uint32_t hashSeed(std::uint64_t seed, std::size_t node) {
  return static_cast<std::uint32_t>(derivedSeed(seed, node) >> 32) | 1u;
}

// Every node holds two open files, and their number is often limited to 1024.
void allowOpenFiles() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

// Per node: the loopback, and what is in a group at any time.
std::vector<std::set<std::string>> announcedInterfaces(const Scenario& scenario) {
  std::vector<std::set<std::string>> result(scenario.nodes.size(), {"lo"});
  for (std::size_t node = 0; node < result.size(); ++node)
    for (const auto& [group, interfaces] : scenario.nodes[node].groups)
      result[node].insert(interfaces.begin(), interfaces.end());
  for (const Change& change : scenario.changes)
    if (change.kind == ChangeKind::group && change.interfaces)
      result[*change.node].insert(change.interfaces->begin(), change.interfaces->end());
  return result;
}

std::string fileOf(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

}  // namespace

KernelFabric::KernelFabric(const Topology& topology, std::uint16_t probePort, std::uint64_t seed)
    : topology_(topology),
      probePort_(probePort),
      home_(Namespace::current()),
      condition_(conditionOf(topology.scenario(), std::vector<bool>(topology.scenario().faults.size()))),
      switches_(initialConfiguration(topology).switches),
      announced_(announcedInterfaces(topology.scenario())),
      written_(topology.nodes()),
      firstWeight_(topology.nodes(), 1),
      disturbed_(topology.nodes()) {
  allowOpenFiles();
  for (std::size_t node = 0; node < topology_.nodes(); ++node) makeNode(node, seed);
  home_.enter();
  makeLinks();
  for (std::size_t node = 0; node < topology_.nodes(); ++node) configureNode(node);
  route(condition_.linksUp());
}

void KernelFabric::makeNode(std::size_t node, std::uint64_t seed) {
  namespaces_.push_back(Namespace::create(topology_.scenario().nodes[node].name));
  // Before there are interfaces, which take these over.
  for (const char* which : {"all", "default"}) {
    const std::string ipv4 = std::string("ipv4/conf/") + which + "/";
    set(ipv4 + "rp_filter", "0");
    set(ipv4 + "ignore_routes_with_linkdown", "1");
    set(std::string("ipv6/conf/") + which + "/disable_ipv6", "1", IfThere::yes);
  }
  set("ipv4/ip_forward", "1");
  set("ipv4/fib_multipath_hash_policy", "1");
  set("ipv4/fib_multipath_hash_seed", std::to_string(hashSeed(seed, node)), IfThere::yes);
}

void KernelFabric::makeLinks() {
  std::ostringstream batch;
  for (std::size_t link = 0; link < topology_.links(); ++link) {
    for (const LinkSide side : {LinkSide{link, 0}, LinkSide{link, 1}})
      batch << (side.side == 0 ? "link add name " : " type veth peer name ")
            << topology_.scenario().end(side).interface << " index " << 100 + 2 * link + side.side << " address "
            << ethernetText(topology_.ethernetAddress(side)) << " netns "
            << fileOf(namespaces_[topology_.node(side)].network());
    batch << "\n";
  }
  runCommand({{"ip", "-batch", "-"}, batch.str(), [this] {
                // The one program that must find every namespace by its open file.
                for (const Namespace& each : namespaces_) ::fcntl(each.network(), F_SETFD, 0);
              }});
}

std::string KernelFabric::neighbour(LinkSide side) const {
  return "neighbor replace " + addressText(topology_.address(side.peer())) + " lladdr " +
         ethernetText(topology_.ethernetAddress(side.peer())) + " dev " + topology_.scenario().end(side).interface +
         " nud permanent\n";
}

void KernelFabric::configureNode(std::size_t node) const {
  std::string batch = "link set dev lo up\naddress add " + addressText(topology_.loopback(node)) + "/32 dev lo\n";
  for (const LinkSide side : topology_.sides(node)) {
    const std::string& interface = topology_.scenario().end(side).interface;
    batch += "address add " + addressText(topology_.address(side)) + "/31 dev " + interface + " noprefixroute\n";
    batch += "link set dev " + interface + " up\n" + neighbour(side);
  }
  runIn(node, {"ip", "-batch", "-"}, batch);
  // A probe whose hop limit ends here has been seen by the tap before this. The answer that the kernel would send to
  // its source is of no use and costs as much as the probe.
  runIn(node, {"nft", "-f", "-"},
        "table ip zeb {\n chain expiring {\n  type filter hook prerouting priority raw;\n  udp dport " +
            std::to_string(probePort_) + " ip ttl 1 fib daddr type != local drop\n }\n}\n");
}

void KernelFabric::apply(const Condition& condition) {
  applyDrops(condition);
  applyLinks(condition);
  condition_ = condition;
}

void KernelFabric::applyLinks(const Condition& condition) {
  for (std::size_t node = 0; node < topology_.nodes(); ++node) {
    std::string batch;
    for (const LinkSide side : topology_.sides(node)) {
      const bool down = condition.down[side.link][side.side];
      if (down == condition_.down[side.link][side.side]) continue;
      // The kernel forgets an interface's routes and neighbours, also the permanent ones, when it is taken down.
      batch += "link set dev " + topology_.scenario().end(side).interface + (down ? " down\n" : " up\n");
      if (!down) batch += neighbour(side);
      disturbed_[node] = true;
    }
    if (!batch.empty()) runIn(node, {"ip", "-batch", "-"}, batch);
  }
}

void KernelFabric::applyDrops(const Condition& condition) {
  for (std::size_t node = 0; node < topology_.nodes(); ++node) {
    const std::string drops = dropsOf(node, condition);
    // One transaction replaces all that is dropped at this node.
    if (drops != dropsOf(node, condition_))
      runIn(node, {"nft", "-f", "-"},
            "table netdev zeb\ndelete table netdev zeb\ntable netdev zeb {\n" + drops + "}\n");
  }
}

std::string KernelFabric::dropsOf(std::size_t node, const Condition& condition) const {
  const auto chain = [&](LinkSide side, const char* hook, const std::string& rules) {
    return " chain " + std::string(hook) + std::to_string(side.link) + " {\n  type filter hook " + hook + " device \"" +
           topology_.scenario().end(side).interface + "\" priority 0;\n" + rules + " }\n";
  };
  std::string text;
  for (const LinkSide side : topology_.sides(node)) {
    if (condition.frozen[node]) {
      for (const char* hook : {"ingress", "egress"}) text += chain(side, hook, "  meta protocol ip drop\n");
      continue;
    }
    const auto drops = condition.drops.find(side);
    if (drops == condition.drops.end()) continue;
    std::string rules;
    for (const Drop& drop : drops->second) {
      rules += "  meta protocol ip";
      for (const std::uint16_t& port : drop.ports)
        rules += (&port == drop.ports.data() ? " udp sport { " : ", ") + std::to_string(port);
      if (!drop.ports.empty()) rules += " }";
      constexpr double parts = 100000;
      if (drop.share < 1)
        rules += " numgen random mod " + std::to_string(std::lround(parts)) + " < " +
                 std::to_string(std::max(std::lround(drop.share * parts), 1l));
      rules += " drop\n";
    }
    text += chain(side, "egress", rules);
  }
  return text;
}

std::string KernelFabric::routeTo(std::size_t node, std::uint32_t address, const NextHops& hops) const {
  const std::string destination = addressText(address) + "/32";
  // To remove a route that may be gone already is no error by this command only.
  if (hops.empty()) return "route flush exact " + destination + "\n";
  std::string text = "route replace " + destination + " proto static";
  const auto& own = switches_[node].addresses;
  if (const auto loopback = own.find("lo"); loopback != own.end()) text += " src " + addressText(loopback->second);
  for (const LinkSide side : hops)
    text += " nexthop via " + addressText(topology_.address(side.peer())) + " dev " +
            topology_.scenario().end(side).interface + " weight " +
            std::to_string(side == hops.front() ? firstWeight_[node] : 1) + " onlink";
  return text + "\n";
}

std::map<std::uint32_t, NextHops> KernelFabric::wantedRoutes(std::size_t node) const {
  std::map<std::uint32_t, NextHops> wanted;
  const auto add = [&](std::size_t destination, std::uint32_t address) {
    if (destination != node && !routes_[node][destination].empty()) wanted[address] = routes_[node][destination];
  };
  for (const auto& [destination, address] : leaving_) add(destination, address);
  for (std::size_t destination = 0; destination < topology_.nodes(); ++destination)
    for (const auto& [interface, address] : switches_[destination].addresses)
      if (announced_[destination].count(interface) != 0) add(destination, address);
  return wanted;
}

void KernelFabric::writeRoutes() {
  for (std::size_t node = 0; node < topology_.nodes(); ++node) {
    std::map<std::uint32_t, NextHops> wanted = wantedRoutes(node);
    std::string batch;
    for (const auto& [address, hops] : written_[node])
      if (wanted.count(address) == 0) batch += routeTo(node, address, {});
    for (const auto& [address, hops] : wanted) {
      const auto before = written_[node].find(address);
      if (disturbed_[node] || before == written_[node].end() || before->second != hops)
        batch += routeTo(node, address, hops);
    }
    if (!batch.empty()) runIn(node, {"ip", "-batch", "-"}, batch);
    written_[node] = std::move(wanted);
    disturbed_[node] = false;
  }
}

void KernelFabric::route(const std::vector<bool>& linksUp) {
  routes_ = shortestRoutes(topology_, linksUp);
  leaving_.clear();
  writeRoutes();
}

// With its length: a link's first address covers both ends.
std::string KernelFabric::prefixed(std::size_t node, const std::string& interface, std::uint32_t address) const {
  const bool ofLink = interface != "lo" && address == topology_.address(node, interface);
  return addressText(address) + (ofLink ? "/31" : "/32");
}

void KernelFabric::addressIs(std::size_t node, const std::string& interface, std::optional<std::uint32_t> address) {
  auto& addresses = switches_[node].addresses;
  const auto standing = addresses.find(interface);
  const std::optional<std::uint32_t> before =
      standing == addresses.end() ? std::nullopt : std::optional(standing->second);
  if (address) {
    runIn(node, {"ip", "address", "add", prefixed(node, interface, *address), "dev", interface}, {});
    addresses[interface] = *address;
  } else {
    addresses.erase(interface);
  }
  if (before && announced_[node].count(interface) != 0) leaving_.emplace_back(node, *before);
  // Routes that name the loopback's address as their source go with it.
  if (interface == "lo") disturbed_[node] = true;
  writeRoutes();
  if (before) removeAddress(node, interface, *before);
}

void KernelFabric::removeAddress(std::size_t node, const std::string& interface, std::uint32_t address) {
  runIn(node, {"ip", "address", "del", prefixed(node, interface, address), "dev", interface}, {});
  const std::optional<LinkSide> side = sideNamed(node, interface);
  if (!side || switches_[node].addresses.count(interface) != 0) return;
  // With its last address the kernel forgets an interface's routes and neighbours.
  if (!condition_.down[side->link][side->side]) runIn(node, {"ip", "-batch", "-"}, neighbour(*side));
  disturbed_[node] = true;
  writeRoutes();
}

void KernelFabric::hashIs(std::size_t node, std::uint64_t seed) {
  enter(node);
  const bool seeded = ::access("/proc/sys/net/ipv4/fib_multipath_hash_seed", W_OK) == 0;
  if (seeded) set("ipv4/fib_multipath_hash_seed", std::to_string(hashSeed(seed, node)));
  leave();
  if (seeded) return;
  firstWeight_[node] = firstWeight_[node] % 3 + 1;
  disturbed_[node] = true;
  writeRoutes();
}

void KernelFabric::hostNameIs(std::size_t node, const std::string& name) const {
  enter(node);
  const bool done = ::sethostname(name.c_str(), name.size()) == 0;
  const int error = errno;
  leave();
  if (!done) throw LabError("sethostname: " + std::string(std::strerror(error)));
}

std::string KernelFabric::runIn(std::size_t node, std::vector<std::string> words, std::string input) const {
  try {
    return runCommand({std::move(words), std::move(input), [&] { enter(node); }});
  } catch (const LabError& error) {
    throw LabError(topology_.scenario().nodes[node].name + ": " + error.what());
  }
}

std::optional<LinkSide> KernelFabric::sideNamed(std::size_t node, const std::string& interface) const {
  for (const LinkSide side : topology_.sides(node))
    if (topology_.scenario().end(side).interface == interface) return side;
  return std::nullopt;
}

// One line of answer for each flow that is routed on; for each that is not, an error that names its line in the batch.
std::vector<std::optional<LinkSide>> KernelFabric::nextSides(std::size_t node, const std::string& questions,
                                                             std::size_t count) const {
  const CommandOutput answer =
      tryCommand({{"ip", "-oneline", "-force", "-batch", "-"}, questions, [&] { enter(node); }});
  std::set<std::size_t> failed;
  const std::string mark = "Command failed -:";
  for (std::size_t at = 0; (at = answer.errors.find(mark, at)) != std::string::npos; at += mark.size())
    failed.insert(std::stoul(answer.errors.substr(at + mark.size())));
  std::vector<std::optional<LinkSide>> result(count);
  std::istringstream lines(answer.output);
  for (std::size_t index = 0; index < count; ++index) {
    std::string line;
    if (failed.count(index + 1) || !std::getline(lines, line)) continue;
    const std::size_t device = line.find(" dev ");
    if (line.compare(0, 6, "local ") == 0 || device == std::string::npos) continue;
    result[index] = sideNamed(node, line.substr(device + 5, line.find(' ', device + 5) - device - 5));
  }
  return result;
}

// All flows go one hop further with each round, so that a node is asked once about all that pass it.
std::vector<std::vector<LinkSide>> KernelFabric::paths(const std::vector<Flow>& flows) const {
  std::vector<std::vector<LinkSide>> result(flows.size());
  std::vector<std::vector<std::size_t>> at(topology_.nodes());
  for (std::size_t flow = 0; flow < flows.size(); ++flow) at[flows[flow].source].push_back(flow);
  for (bool moved = true; moved;) {
    moved = false;
    std::vector<std::vector<std::size_t>> next(topology_.nodes());
    for (std::size_t node = 0; node < topology_.nodes(); ++node) {
      if (at[node].empty()) continue;
      std::string questions;
      for (const std::size_t index : at[node]) {
        const Flow& flow = flows[index];
        questions += "route get " + addressText(flow.destinationAddress) + " from " + addressText(flow.sourceAddress);
        if (!result[index].empty())
          questions += " iif " + topology_.scenario().end(result[index].back().peer()).interface;
        questions += " ipproto udp sport " + std::to_string(flow.port) + " dport " + std::to_string(probePort_) + "\n";
      }
      const auto sides = nextSides(node, questions, at[node].size());
      for (std::size_t place = 0; place < sides.size(); ++place) {
        if (!sides[place]) continue;
        const std::size_t index = at[node][place];
        result[index].push_back(*sides[place]);
        if (result[index].size() == flows[index].distance) continue;
        next[topology_.node(sides[place]->peer())].push_back(index);
        moved = true;
      }
    }
    at = std::move(next);
  }
  return result;
}

}  // namespace Lab
