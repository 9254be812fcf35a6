// Queues of frames between the ports of one process.
#include "runtime/MemoryTransport.h"

#include <algorithm>

#include "runtime/Assert.h"

namespace Fabric {

// One end of a link. Both ends of a pair go when both have been told of its end.
struct MemoryNetwork::End final : Link, std::enable_shared_from_this<MemoryNetwork::End> {
  End(MemoryNetwork& n, Port& p) : network(n), port(&p) {}
  void send(std::string_view frame) override;
  void close() override;

  MemoryNetwork& network;
  Port* port;  // null once the port has been taken out
  std::weak_ptr<End> peer;
  bool open = true;
  bool told = false;  // the user knows of the link
};

class MemoryNetwork::Port final : public Transport {
 public:
  Port(MemoryNetwork& n, Rix::Activity& a) : network(n), activity(a) {}
  void userIs(LinkUser* u) override;
  bool mayLose() const override { return static_cast<bool>(network.loses_); }

  MemoryNetwork& network;
  Rix::Activity& activity;
  LinkUser* user = nullptr;
  bool wanted = false;                      // of a switch: to be connected when both ends are there
  std::shared_ptr<End> link;                // of a switch
  std::vector<std::shared_ptr<End>> links;  // of the centre
};

struct MemoryNetwork::Delivery {
  enum class What : U8 { connected, frame, disconnected };
  std::shared_ptr<End> to;
  What what;
  std::string frame;
};

void MemoryNetwork::End::send(std::string_view frame) {
  auto const to = peer.lock();
  if (!open || !to) return;
  if (network.loses_ && network.loses_(frame)) return;
  network.queue_.push_back({to, Delivery::What::frame, network.damage_ ? network.damage_(frame) : std::string(frame)});
}

void MemoryNetwork::End::close() {
  if (!open) return;
  auto const self = shared_from_this();
  auto const other = peer.lock();
  // What was under way in either direction is lost.
  std::erase_if(network.queue_, [&](Delivery const& delivery) {
    return (delivery.to == self || delivery.to == other) && delivery.what != Delivery::What::disconnected;
  });
  for (auto const& end : {self, other}) {
    if (!end || !end->open) continue;
    end->open = false;
    if (end->told) {
      network.queue_.push_back({end, Delivery::What::disconnected, {}});
    } else {
      std::erase(end->port->links, end);
    }
    if (end->port && end->port->link == end) end->port->link = nullptr;
  }
}

MemoryNetwork::MemoryNetwork() = default;
MemoryNetwork::~MemoryNetwork() = default;

Transport& MemoryNetwork::centre(Rix::Activity& activity) {
  if (centre_) remove(*centre_);
  centre_ = std::make_unique<Port>(*this, activity);
  return *centre_;
}

Transport& MemoryNetwork::addSwitch(Rix::Activity& activity) {
  switches_.push_back(std::make_unique<Port>(*this, activity));
  return *switches_.back();
}

void MemoryNetwork::Port::userIs(LinkUser* u) {
  user = u;
  if (u) return network.connectWanted();
  network.end(*this);
}

void MemoryNetwork::connectedIs(Transport& switchPort, bool connected) {
  auto& port = static_cast<Port&>(switchPort);
  port.wanted = connected;
  if (connected) {
    connectWanted();
  } else if (port.link) {
    port.link->close();
  }
}

void MemoryNetwork::connectWanted() {
  if (!centre_ || !centre_->user) return;
  for (auto const& port : switches_) {
    if (!port->wanted || !port->user || port->link) continue;
    port->link = std::make_shared<End>(*this, *port);
    auto const other = std::make_shared<End>(*this, *centre_);
    port->link->peer = other;
    other->peer = port->link;
    port->links = {port->link};
    centre_->links.push_back(other);
    queue_.push_back({other, Delivery::What::connected, {}});
    queue_.push_back({port->link, Delivery::What::connected, {}});
  }
}

// The user of a port has gone: its links end, and it hears no more.
void MemoryNetwork::end(Port& port) {
  for (auto const& link : std::vector(port.links)) link->close();
  std::erase_if(queue_, [&port](Delivery const& delivery) { return delivery.to->port == &port; });
  port.links.clear();
  port.link = nullptr;
}

void MemoryNetwork::remove(Transport& transport) {
  auto& port = static_cast<Port&>(transport);
  port.user = nullptr;
  end(port);
  if (centre_.get() == &port) {
    centre_ = nullptr;
  } else {
    std::erase_if(switches_, [&port](auto const& each) { return each.get() == &port; });
  }
}

std::size_t MemoryNetwork::waiting() const {
  return queue_.size();
}

Rix::Activity& MemoryNetwork::receiver() const {
  RIX_ASSERT(!queue_.empty());
  return queue_.front().to->port->activity;
}

bool MemoryNetwork::deliverOne() {
  if (queue_.empty()) return false;
  Delivery const delivery = std::move(queue_.front());
  queue_.pop_front();
  End& end = *delivery.to;
  Port& port = *end.port;
  if (!port.user) return true;
  port.activity.dispatch([&] {
    switch (delivery.what) {
      case Delivery::What::connected:
        end.told = true;
        port.user->linkConnected(end);
        break;
      case Delivery::What::frame:
        port.user->linkReceived(end, delivery.frame);
        break;
      case Delivery::What::disconnected:
        port.user->linkDisconnected(end);
        std::erase(port.links, delivery.to);
        break;
    }
  });
  return true;
}

void MemoryNetwork::pump() {
  while (deliverOne()) {
  }
}

void MemoryNetwork::lossIs(std::function<bool(std::string_view)> loses) {
  loses_ = std::move(loses);
}

}  // namespace Fabric
