// An event only says that something changed; what stands is then read as a whole. The kernel does not tell of
// every route that goes with its interface or address, so that a table kept by events alone would be wrong after the
// first link that fails.
#include "platform/Netlink.h"

#include <arpa/inet.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <netlink/addr.h>
#include <netlink/cache.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/nexthop.h>
#include <netlink/route/route.h>
#include <netlink/socket.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <tuple>

namespace Platform {

namespace {

// How often onReadable() reads the tables again because something changed while it read. A change after that
// leaves the descriptor readable, and so comes with the next call.
constexpr int rounds = 3;

constexpr std::array tables{RT_TABLE_LOCAL, RT_TABLE_MAIN, RT_TABLE_DEFAULT};

[[noreturn]] void fail(const std::string& doing, int nlError) {
  throw std::runtime_error("netlink: " + doing + ": " + nl_geterror(nlError));
}

struct FreeCache {
  void operator()(nl_cache* cache) const { nl_cache_free(cache); }
};
using Cache = std::unique_ptr<nl_cache, FreeCache>;

struct FreeMessage {
  void operator()(nl_msg* message) const { nlmsg_free(message); }
};

// The objects of a cache, one after the other in the kernel's order.
template <typename Object, typename Visit>
void forEach(const Cache& cache, Visit visit) {
  for (nl_object* object = nl_cache_get_first(cache.get()); object; object = nl_cache_get_next(object)) {
    visit(reinterpret_cast<Object*>(object));
  }
}

// An IPv4 address in host order, or nothing for what is none.
std::optional<std::uint32_t> toAddress(const nl_addr* address) {
  std::uint32_t bytes = 0;
  if (!address || nl_addr_get_family(address) != AF_INET || nl_addr_get_len(address) != sizeof bytes) return {};
  std::memcpy(&bytes, nl_addr_get_binary_addr(address), sizeof bytes);
  return ntohl(bytes);
}

std::uint32_t prefixOf(std::uint32_t address, unsigned length) {
  return length == 0 ? 0 : address & (~std::uint32_t{0} << (32 - length));
}

std::size_t tableRank(std::uint32_t table) {
  return static_cast<std::size_t>(std::ranges::find(tables, table) - tables.begin());
}

// The order in which routes are tried: by table, the longer prefix first, then by prefix and priority.
auto placeOf(std::size_t rank, unsigned length, std::uint32_t destination) {
  return std::tuple(rank, 32 - length, destination);
}
auto placeOf(const NetworkRoute& route) {
  return placeOf(tableRank(route.table), route.length, route.destination);
}

std::optional<NetworkRoute::Kind> kindOf(int type) {
  switch (type) {
    case RTN_UNICAST:
      return NetworkRoute::Kind::forward;
    case RTN_LOCAL:
      return NetworkRoute::Kind::local;
    case RTN_BLACKHOLE:
    case RTN_UNREACHABLE:
    case RTN_PROHIBIT:
      return NetworkRoute::Kind::refuse;
    case RTN_THROW:
      return NetworkRoute::Kind::skip;
    default:
      return std::nullopt;  // broadcast, multicast: nothing that a probe is sent to
  }
}

std::optional<NetworkRoute> toRoute(rtnl_route* object) {
  const std::uint32_t table = rtnl_route_get_table(object);
  const auto kind = kindOf(rtnl_route_get_type(object));
  if (!kind || tableRank(table) == tables.size()) return std::nullopt;
  NetworkRoute route{table, 0, 0, rtnl_route_get_priority(object), *kind, {}};
  const nl_addr* destination = rtnl_route_get_dst(object);
  if (destination && nl_addr_get_prefixlen(destination) > 0) {
    route.destination = toAddress(destination).value_or(0);
    route.length = static_cast<std::uint8_t>(nl_addr_get_prefixlen(destination));
  }
  const bool dead = (rtnl_route_get_flags(object) & RTNH_F_DEAD) != 0;
  for (int i = 0; !dead && i < rtnl_route_get_nnexthops(object); ++i) {
    rtnl_nexthop* hop = rtnl_route_nexthop_n(object, i);
    if ((rtnl_route_nh_get_flags(hop) & RTNH_F_DEAD) == 0) route.interfaces.push_back(rtnl_route_nh_get_ifindex(hop));
  }
  return route;
}

// Reads one of the kernel's tables as a whole; `allocate` is one of the library's functions for that. It starts over
// by itself where the kernel says that the table changed meanwhile.
template <typename Allocate>
Cache readTable(const char* what, Allocate allocate) {
  nl_cache* cache = nullptr;
  if (const int error = allocate(&cache); error < 0) fail(std::string("cannot read the ") + what, error);
  return Cache(cache);
}

int keepEgress(nl_msg* message, void* result) {
  nlattr* attribute = nlmsg_find_attr(nlmsg_hdr(message), sizeof(rtmsg), RTA_OIF);
  if (attribute) *static_cast<std::optional<int>*>(result) = static_cast<int>(nla_get_u32(attribute));
  return NL_OK;
}

}  // namespace

const NetworkInterface* NetworkSnapshot::interface(std::string_view name) const {
  const auto found = std::ranges::find(interfaces, name, &NetworkInterface::name);
  return found == interfaces.end() ? nullptr : &*found;
}

const NetworkInterface* NetworkSnapshot::interface(int index) const {
  const auto found = std::ranges::lower_bound(interfaces, index, {}, &NetworkInterface::index);
  return found == interfaces.end() || found->index != index ? nullptr : &*found;
}

const NetworkRoute* NetworkSnapshot::routeTo(std::uint32_t address) const {
  for (std::size_t rank = 0; rank < tables.size(); ++rank) {
    bool skipTable = false;
    for (unsigned length = 33; length-- > 0 && !skipTable;) {
      const auto place = placeOf(rank, length, prefixOf(address, length));
      auto route = std::ranges::lower_bound(routes, place, {}, [](const NetworkRoute& r) { return placeOf(r); });
      for (; route != routes.end() && placeOf(*route) == place; ++route) {
        if (route->kind == NetworkRoute::Kind::refuse) return nullptr;
        skipTable = route->kind == NetworkRoute::Kind::skip;
        if (skipTable) break;
        if (!route->interfaces.empty()) return &*route;  // else as if it were not there
      }
    }
  }
  return nullptr;
}

void NetworkWatcher::CloseSocket::operator()(nl_sock* socket) const {
  nl_socket_free(socket);
}

NetworkWatcher::Socket NetworkWatcher::connect() {
  Socket socket(nl_socket_alloc());
  if (!socket) fail("no socket", NLE_NOMEM);
  if (const int error = nl_connect(socket.get(), NETLINK_ROUTE); error < 0) fail("cannot connect", error);
  return socket;
}

NetworkWatcher::NetworkWatcher(ChangeHandler onChange)
    : events_(connect()), request_(connect()), onChange_(std::move(onChange)) {
  nl_socket_disable_auto_ack(request_.get());
  if (const int error =
          nl_socket_add_memberships(events_.get(), RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV4_ROUTE, 0);
      error < 0) {
    fail("cannot listen for changes", error);
  }
  snapshot_ = read();
  stale_ = false;
}

NetworkWatcher::~NetworkWatcher() = default;

int NetworkWatcher::fd() const {
  return nl_socket_get_fd(events_.get());
}

void NetworkWatcher::onReadable() {
  stale_ = drainEvents() || stale_;
  if (!stale_) return;
  NetworkSnapshot fresh = read();
  for (int round = 1; round < rounds && drainEvents(); ++round) fresh = read();
  stale_ = false;
  if (fresh == snapshot_) return;
  snapshot_ = std::move(fresh);
  if (onChange_) onChange_(snapshot_);
}

void NetworkWatcher::eventBufferSizeIs(int bytes) {
  if (const int error = nl_socket_set_buffer_size(events_.get(), bytes, 0); error < 0) fail("event buffer", error);
}

// Reads and forgets all that waits. Returns whether there was anything.
bool NetworkWatcher::drainEvents() {
  std::array<char, 4096> some;  // what is longer is cut off, and goes the same way
  bool any = false;
  for (;;) {
    const ssize_t size = ::recv(fd(), some.data(), some.size(), MSG_DONTWAIT);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0 && errno == ENOBUFS) {
      ++overruns_;
    } else if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      return any;
    } else if (size < 0) {
      throw std::system_error(errno, std::generic_category(), "netlink: cannot read events");
    }
    any = true;
  }
}

NetworkSnapshot NetworkWatcher::read() {
  nl_sock* socket = request_.get();
  const Cache links =
      readTable("interfaces", [&](nl_cache** c) { return rtnl_link_alloc_cache(socket, AF_UNSPEC, c); });
  const Cache addresses = readTable("addresses", [&](nl_cache** c) { return rtnl_addr_alloc_cache(socket, c); });
  const Cache routes = readTable("routes", [&](nl_cache** c) { return rtnl_route_alloc_cache(socket, AF_INET, 0, c); });

  NetworkSnapshot snapshot;
  forEach<rtnl_link>(links, [&](rtnl_link* link) {
    const unsigned flags = rtnl_link_get_flags(link);
    const char* name = rtnl_link_get_name(link);
    const bool up = (flags & IFF_UP) != 0;
    const bool carrier = up && (flags & IFF_LOWER_UP) != 0;
    snapshot.interfaces.push_back({rtnl_link_get_ifindex(link), name ? name : "", up, carrier, {}});
  });
  std::ranges::sort(snapshot.interfaces, {}, &NetworkInterface::index);

  forEach<rtnl_addr>(addresses, [&](rtnl_addr* object) {
    if (rtnl_addr_get_scope(object) != RT_SCOPE_UNIVERSE) return;
    const auto address = toAddress(rtnl_addr_get_local(object));
    const auto owner =
        std::ranges::lower_bound(snapshot.interfaces, rtnl_addr_get_ifindex(object), {}, &NetworkInterface::index);
    if (!address || owner == snapshot.interfaces.end() || owner->index != rtnl_addr_get_ifindex(object)) return;
    if (!owner->address) owner->address = address;
  });

  forEach<rtnl_route>(routes, [&](rtnl_route* object) {
    if (auto route = toRoute(object)) snapshot.routes.push_back(std::move(*route));
  });
  std::ranges::stable_sort(snapshot.routes, [](const NetworkRoute& a, const NetworkRoute& b) {
    return std::tuple(placeOf(a), a.priority) < std::tuple(placeOf(b), b.priority);
  });
  return snapshot;
}

std::optional<int> NetworkWatcher::egressInterface(const UdpFlow& flow) {
  const std::unique_ptr<nl_msg, FreeMessage> question(nlmsg_alloc_simple(RTM_GETROUTE, 0));
  rtmsg header{};
  header.rtm_family = AF_INET;
  header.rtm_dst_len = 32;
  header.rtm_src_len = 32;
  const auto put = [&](int attribute, auto value) {
    if (nla_put(question.get(), attribute, sizeof value, &value) < 0) fail("cannot ask for a route", NLE_NOMEM);
  };
  if (!question || nlmsg_append(question.get(), &header, sizeof header, NLMSG_ALIGNTO) < 0) {
    fail("cannot ask for a route", NLE_NOMEM);
  }
  put(RTA_DST, htonl(flow.destination));
  put(RTA_SRC, htonl(flow.source));
  put(RTA_IP_PROTO, std::uint8_t{IPPROTO_UDP});
  put(RTA_SPORT, htons(flow.sourcePort));
  put(RTA_DPORT, htons(flow.destinationPort));

  std::optional<int> egress;
  nl_socket_modify_cb(request_.get(), NL_CB_VALID, NL_CB_CUSTOM, keepEgress, &egress);
  const int sent = nl_send_auto(request_.get(), question.get());
  if (sent < 0) fail("cannot ask for a route", sent);
  const int answered = nl_recvmsgs_default(request_.get());
  nl_socket_modify_cb(request_.get(), NL_CB_VALID, NL_CB_DEFAULT, nullptr, nullptr);
  // An error is the kernel's answer too: that it would not send such a packet.
  return answered < 0 ? std::nullopt : egress;
}

}  // namespace Platform
