// Several switches with the service on each, on virtual time, and a network between them that is arithmetic: links that
// go up and down, shortest routes with equal-cost choice by a hash of the flow, a delay, losses by chance. Beside it
// stands a record of what the tables have shown, by the rules that the rest of the system goes by: each dormancy, and
// each received row that went while its sender's row may still have been known.
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "sonar/Sonar.h"
#include "sonar/TestPackets.h"
#include "sonar/TestSwitch.h"

namespace Sonar {

class TestFabric {
 public:
  static constexpr Rix::Seconds delay = 0.0005;        // of each hop
  static constexpr Rix::Seconds exportInterval = 5.0;  // in which an agent tells that a row has gone

  struct Node;

  struct Port {
    Node* peer = nullptr;
    std::string peerPort;
    bool up = true;
    double loss = 0;                                     // of what leaves by it
    std::function<bool(OutgoingPacket const&)> drops{};  // of what leaves by it
  };

  struct View : TestSwitch {
    TestFabric const& fabric;
    Node const& node;
    View(TestFabric const& theFabric, Node const& theNode) : fabric(theFabric), node(theNode) {}
    bool linkUp(Netkit::IntfId interface) const override { return fabric.isUp(node, interface.stringValue()); }
    bool hasRoute(Netkit::IpAddr address) const override { return isLocal(address) || fabric.hasRoute(node, address); }
    Netkit::IntfId egressIntf(Netkit::IpAddr source, Netkit::IpAddr destination, U16 sourcePort) const override {
      auto const port = fabric.nextHop(node, {source, destination, sourcePort, probePort});
      return port ? intf(*port) : Netkit::IntfId();
    }
  };

  struct Packets : PacketIo {
    TestFabric& fabric;
    Node& node;
    std::deque<std::pair<std::vector<U8>, std::string>> arrived;
    Packets(TestFabric& theFabric, Node& theNode) : fabric(theFabric), node(theNode) {}
    std::vector<int> fds() const override { return {}; }
    void localAddressesAre(std::span<Netkit::IpAddr const>) override {}
    void drain(Taker const& taker) override {
      for (; !arrived.empty(); arrived.pop_front()) taker(arrived.front().first, intf(arrived.front().second));
    }
    U64 dropped() override { return 0; }
    void send(std::span<OutgoingPacket const> packets, std::span<SendResult> results) override {
      for (std::size_t i = 0; i < packets.size(); ++i) results[i] = fabric.send(node, packets[i]);
    }
    void endpointsAre(std::set<SourceEndpoint> const&) override {}
  };

  struct IngressRows : TestIngressTable {
    TestFabric& fabric;
    Node const& node;
    IngressRows(TestFabric& theFabric, Node const& theNode) : fabric(theFabric), node(theNode) {}
    void rowIs(IngressStreamStatisticsTableEntry const& row) override {
      auto const known = rows.find(row.key);
      fabric.shown(node, row, known != rows.end() && known->second.dormant);
      TestIngressTable::rowIs(row);
    }
    void rowDel(IngressStream const& key) override {
      auto const known = rows.find(key);
      if (known != rows.end()) fabric.removed(node, known->second);
      TestIngressTable::rowDel(key);
    }
  };
  struct EgressRows : TestEgressTable {
    TestFabric& fabric;
    explicit EgressRows(TestFabric& theFabric) : fabric(theFabric) {}
    void rowIs(EgressStreamTable const& row) override {
      fabric.senderGone_[row.key] = Rix::never;
      TestEgressTable::rowIs(row);
    }
    void rowDel(EgressStream const& key) override {
      fabric.senderGone_[key] = fabric.now;
      TestEgressTable::rowDel(key);
    }
  };

  // A switch. Its tables outlive its service.
  struct Node {
    std::string name;
    Netkit::IpAddr address;
    bool transit;  // whether it carries what is neither from nor to it
    View view;
    IngressRows ingress;
    EgressRows egress;
    std::map<std::string, Port> ports{};
    std::map<Netkit::IpAddr, std::set<std::string>> routes{};
    U64 seed = 0;
    U64 lastEpoch = 0;
    TestTransmitterMap map{};
    std::unique_ptr<Packets> packets{};
    std::unique_ptr<Service> service{};
    Orders orders{};

    Node(TestFabric& fabric, std::string theName, Netkit::IpAddr theAddress, bool carries)
        : name(std::move(theName)),
          address(theAddress),
          transit(carries),
          view(fabric, *this),
          ingress(fabric, *this),
          egress(fabric) {
      view.addresses["lo"] = address;
    }
  };

  struct Dormancy {
    std::string node;
    IngressStream row;
    Rix::Seconds from = 0;
    Rix::Seconds until = Rix::never;
  };

  explicit TestFabric(U64 seed) : random_(seed) {}

  Node& addNode(std::string const& name, U8 address, bool transit) {
    auto& node = *nodes_.emplace_back(std::make_unique<Node>(*this, name, ip(address), transit));
    node.seed = random_();
    return node;
  }
  void addLink(Node& a, Node& b) {
    std::string const portA = "to-" + b.name;
    std::string const portB = "to-" + a.name;
    a.ports[portA] = {.peer = &b, .peerPort = portB};
    b.ports[portB] = {.peer = &a, .peerPort = portA};
  }
  Node& node(std::string const& name) const {
    return **std::find_if(nodes_.begin(), nodes_.end(), [&](auto const& entry) { return entry->name == name; });
  }
  std::vector<std::unique_ptr<Node>> const& nodes() const { return nodes_; }
  Port& port(std::string const& from, std::string const& to) const { return node(from).ports.at("to-" + to); }

  /// Starts the service; with what the tables hold.
  void start(Node& node) {
    node.packets = std::make_unique<Packets>(*this, node);
    node.service = std::make_unique<Service>(
        Service::Options{.keys = testKeys(), .nextEpoch = [&node] { return ++node.lastEpoch; }},
        Service::Surroundings{node.view, *node.packets, node.ingress, node.egress, node.map});
    std::vector<IngressStreamStatisticsTableEntry> ingress;
    for (auto const& [key, row] : node.ingress.rows) ingress.push_back(row);
    std::vector<EgressStreamTable> egress;
    for (auto const& [key, count] : node.egress.rows) egress.push_back({key, count});
    node.service->adopt(now, ingress, egress);
    node.service->switchChanged(now);
    node.service->ordersAre(now, node.orders);
  }
  void startAll() {
    converge();
    for (auto const& node : nodes_) start(*node);
  }
  /// Takes the service away as it stands.
  void kill(Node& node) {
    node.service.reset();
    node.packets.reset();
  }
  void order(Node& node, Orders const& orders) {
    node.orders = orders;
    if (node.service) node.service->ordersAre(now, orders);
  }

  /// Both sides see it at once; routes follow by `converge`.
  void linkIs(std::string const& a, std::string const& b, bool up) {
    port(a, b).up = port(b, a).up = up;
    for (auto const& name : {a, b}) {
      if (node(name).service) node(name).service->switchChanged(now);
    }
  }
  void lossIs(std::string const& from, std::string const& to, double share) { port(from, to).loss = share; }

  /// Every switch gets the shortest routes over the links that are up.
  void converge() {
    std::vector<Node*> changed;
    for (auto const& node : nodes_) {
      auto routes = routesOf(*node);
      if (routes == node->routes) continue;
      node->routes = std::move(routes);
      changed.push_back(node.get());
    }
    for (Node* node : changed) {
      if (node->service) node->service->switchChanged(now);
    }
  }

  bool isUp(Node const& node, std::string const& name) const {
    auto const port = node.ports.find(name);
    return port != node.ports.end() && port->second.up;
  }
  bool hasRoute(Node const& node, Netkit::IpAddr address) const { return node.routes.contains(address); }

  /// What leaves `node` goes on with the port of that name; nothing if there is no way.
  std::optional<std::string> nextHop(Node const& node, Flow const& flow) const {
    auto const route = node.routes.find(flow.destination);
    if (route == node.routes.end()) return std::nullopt;
    U64 hash = node.seed ^ flow.source.value() ^ (U64{flow.destination.value()} << 16) ^ (U64{flow.sourcePort} << 40);
    for (int i = 0; i < 3; ++i) hash = (hash ^ hash >> 29) * 0xbf58476d1ce4e5b9ULL;
    return *std::next(route->second.begin(), static_cast<std::ptrdiff_t>((hash >> 20) % route->second.size()));
  }

  /// The switches at which each ttl of a flow ends, from ttl 1 on, as routes are now.
  std::vector<std::string> way(Netkit::IpAddr source, Netkit::IpAddr destination, U16 port) const {
    Node const* at = nodeOf(source);
    std::vector<std::string> result;
    while (at->address != destination && result.size() < 16) {
      auto const next = nextHop(*at, {source, destination, port, probePort});
      if (!next) break;
      at = at->ports.at(*next).peer;
      result.push_back(at->name);
    }
    return result;
  }

  /// Lets time pass.
  void run(Rix::Seconds length) {
    for (Rix::Seconds const end = now + length;;) {
      Rix::Seconds next = inFlight_.empty() ? Rix::never : inFlight_.front().when;
      for (auto const& node : nodes_) {
        if (node->service) next = std::min(next, node->service->nextDeadline());
      }
      if (next > end) {
        now = end;
        return;
      }
      now = std::max(now, next);
      deliver();
      for (auto const& node : nodes_) {
        if (node->service && node->service->nextDeadline() <= now) node->service->onTimer(now);
      }
    }
  }

  /// Puts a packet in again as if it came from the network.
  void inject(Node& node, std::vector<U8> const& packet, std::string const& port) {
    if (!node.packets) return;
    node.packets->arrived.emplace_back(packet, port);
    node.service->onReadable(now);
  }

  std::size_t rows() const {
    std::size_t count = 0;
    for (auto const& node : nodes_) count += node->ingress.rows.size() + node->egress.rows.size();
    return count;
  }
  std::vector<Dormancy> dormant() const {
    std::vector<Dormancy> result;
    for (auto const& dormancy : dormancies) {
      if (dormancy.until == Rix::never) result.push_back(dormancy);
    }
    return result;
  }

  Rix::Seconds now = 1000;
  std::vector<Dormancy> dormancies;     // all that were ever shown
  std::vector<Dormancy> earlyRemovals;  // of received rows while their sender's row may have been known
  std::function<void(Node&, std::vector<U8> const&, std::string const& port)> onNotice;  // sees each that arrives

 private:
  struct InFlight {
    Rix::Seconds when;
    Node* to;
    std::string port;
    OutgoingPacket packet;
  };

  Node* nodeOf(Netkit::IpAddr address) const {
    for (auto const& node : nodes_) {
      if (node->view.isLocal(address)) return node.get();
    }
    return nullptr;
  }

  std::map<Netkit::IpAddr, std::set<std::string>> routesOf(Node const& from) const {
    std::map<Netkit::IpAddr, std::set<std::string>> routes;
    for (auto const& target : nodes_) {
      if (target.get() == &from) continue;
      // Distances to the target, over links that are up and switches that carry.
      std::map<Node const*, int> distance{{target.get(), 0}};
      std::deque<Node const*> queue{target.get()};
      for (; !queue.empty(); queue.pop_front()) {
        Node const* at = queue.front();
        if (at != target.get() && !at->transit) continue;
        for (auto const& [name, port] : at->ports) {
          if (!port.up || distance.contains(port.peer)) continue;
          distance[port.peer] = distance[at] + 1;
          queue.push_back(port.peer);
        }
      }
      auto const own = distance.find(&from);
      if (own == distance.end()) continue;
      for (auto const& [name, port] : from.ports) {
        auto const other = distance.find(port.peer);
        bool const carries = port.peer == target.get() || port.peer->transit;
        if (port.up && carries && other != distance.end() && other->second == own->second - 1) {
          for (auto const& [interface, address] : target->view.addresses) routes[address].insert(name);
        }
      }
    }
    return routes;
  }

  SendResult send(Node& from, OutgoingPacket const& packet) {
    if (!from.view.isLocal(packet.flow.source)) return SendResult::failed;
    auto const port = nextHop(from, packet.flow);
    if (!port) return SendResult::failed;
    leave(from, *port, packet);
    return SendResult::sent;
  }

  void leave(Node& from, std::string const& name, OutgoingPacket const& packet) {
    Port const& port = from.ports.at(name);
    if (!port.up) return;
    if (port.loss > 0 && std::uniform_real_distribution<>(0, 1)(random_) < port.loss) return;
    if (port.drops && port.drops(packet)) return;
    inFlight_.push_back({now + delay, port.peer, port.peerPort, packet});
  }

  void deliver() {
    std::set<Node*> readable;
    while (!inFlight_.empty() && inFlight_.front().when <= now) {
      auto const [when, to, port, packet] = std::move(inFlight_.front());
      inFlight_.pop_front();
      bool const local = to->view.isLocal(packet.flow.destination);
      if (local || packet.hopLimit <= 1) {
        if (!to->service) continue;
        auto bytes = ipPacket(packet.flow, packet.payload, packet.hopLimit);
        if (onNotice && packet.payload[5] != 0) onNotice(*to, bytes, port);
        to->packets->arrived.emplace_back(std::move(bytes), port);
        readable.insert(to);
      } else if (auto const next = nextHop(*to, packet.flow)) {
        OutgoingPacket onward = packet;
        --onward.hopLimit;
        leave(*to, *next, onward);
      }
    }
    for (Node* node : readable) node->service->onReadable(now);
  }

  void shown(Node const& node, IngressStreamStatisticsTableEntry const& row, bool was) {
    if (row.dormant && !was) dormancies.push_back({node.name, row.key, now});
    if (!row.dormant && was) endDormancy(node.name, row.key);
  }

  void removed(Node const& node, IngressStreamStatisticsTableEntry const& row) {
    if (row.dormant) endDormancy(node.name, row.key);
    if (Bell::isReserved(row.key)) return;
    auto const gone = senderGone_.find(row.key);
    if (gone != senderGone_.end() && now - gone->second < exportInterval) {
      earlyRemovals.push_back({node.name, row.key, now});
    }
  }

  void endDormancy(std::string const& node, IngressStream const& key) {
    for (auto& dormancy : dormancies) {
      if (dormancy.node == node && dormancy.row == key && dormancy.until == Rix::never) dormancy.until = now;
    }
  }

  std::mt19937_64 random_;
  std::vector<std::unique_ptr<Node>> nodes_;
  std::deque<InFlight> inFlight_;                    // all take equally long, so they are in order
  std::map<StreamFields, Rix::Seconds> senderGone_;  // when its row went, `never` while it stands
};

}  // namespace Sonar
