// The scheduler, the course of a scenario, and the centre. Whatever runs may give others something to do, by a packet
// or a frame: so after each step the frames are delivered, and the deadlines of all that they have reached are read
// anew.
#include "lab/VirtualFabric.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "central/CentralStore.h"
#include "lab/Flows.h"
#include "lab/Operator.h"
#include "lab/Seed.h"
#include "model/SystemId.h"
#include "runtime/Json.h"
#include "runtime/Vesta.h"

namespace Lab {
namespace {

// What the shared tables say for debugging goes the way of all other traces.
Rix::TraceHandle shelfTraceHandle("Shelf");

// Parts of a run that are left to chance, each with numbers of its own.
enum class Chance : std::uint64_t { network = 1000, starts, routes, keys };

std::uint64_t derivedSeed(std::uint64_t seed, Chance chance) {
  return Lab::derivedSeed(seed, static_cast<std::uint64_t>(chance));
}

// A number of [0, 1).
double share(std::uint64_t seed, std::uint64_t number) {
  return static_cast<double>(Lab::derivedSeed(seed, number) >> 11) * 0x1p-53;
}

Sonar::Keyring keysOf(std::uint64_t seed) {
  Sonar::Keyring keys;
  keys.keyIs(1, {Lab::derivedSeed(seed, 1), Lab::derivedSeed(seed, 2)});
  return keys;
}

}  // namespace

// What goes when the centre's process goes.
class VirtualFabric::Centre {
 public:
  explicit Centre(VirtualFabric& fabric) : activity_(fabric.time_), port_(fabric.exchange_.centre(activity_)) {
    const Rix::Activity::Use use(activity_);
    store_ = Rix::make<Atlas::EntityManager>("centre");
    end_ = std::make_unique<Fabric::CentralEnd>(activity_, port_, Rix::make<Atlas::EntityManager>("fabricdb"),
                                                ++fabric.incarnations_, &fabric.reports_);
    agent_ = Zeb::agentFactory("Zeb");
    Zeb::fillCentralStore(*store_);
    agent_->serviceHostIs(end_.get());
    activity_.logSinkIs([this, &fabric](const Rix::LogMessage& message) {
      fabric.log_.push_back({message.time - zero, message});
      if (message.arguments.size() == 2) history_->loggedIs(message.arguments[0], message.arguments[1], message.time);
    });
    activity_.dispatch([&] {
      const auto clusters =
          Rix::dynamicCast<FabricCluster::ClusterStatusDir>(store_->getEntity("fabric/cluster/statusDir"));
      clusters->status("default")->isStandaloneIs(true);
      clusters->status("default")->isStandaloneOrLeaderIs(true);
      configure(fabric.configuration_, config());
    });
    agent_->entityManagerIs(store_);
    activity_.runDueTimers();
    RIX_ASSERT(agent_->status() != nullptr);
    history_ = Rix::make<LossHistory>(Rix::Ptr<Zeb::ZebStatus const>(agent_->status()));
  }
  ~Centre() {
    const Rix::Activity::Use use(activity_);
    history_ = nullptr;
    agent_ = nullptr;
    end_.reset();
    store_ = nullptr;
  }

  // Nobody hears of it or from it any more.
  void failed() { port_.userIs(nullptr); }

  Rix::Activity& activity() { return activity_; }
  Zeb::ZebConfig& config() const { return *Rix::dynamicCast<Zeb::ZebConfig>(store_->getEntity("zeb/config")); }
  Zeb::Agent& agent() { return *agent_; }
  const LossHistory& history() const { return *history_; }

 private:
  Rix::Activity activity_;
  Fabric::Transport& port_;
  Rix::Ptr<Atlas::EntityManager> store_;
  std::unique_ptr<Fabric::CentralEnd> end_;
  Rix::Ptr<Zeb::Agent> agent_;
  Rix::Ptr<LossHistory> history_;
};

VirtualFabric::VirtualFabric(Scenario scenario, const Options& options)
    : scenario_(std::move(scenario)),
      options_(options),
      topology_(scenario_),
      network_(topology_, derivedSeed(options.seed, Chance::network)),
      keys_(keysOf(derivedSeed(options.seed, Chance::keys))),
      configuration_(initialConfiguration(topology_)),
      active_(scenario_.faults.size()),
      due_(topology_.nodes() + 1, Rix::never) {
  Rix::assertionThrowsIs(true);
  Vesta::Platform::debugSinkIs([](std::string_view line) { RIX_TRACE(shelfTraceHandle, 8, line); });
  for (std::size_t node = 0; node < topology_.nodes(); ++node)
    switches_.push_back(std::make_unique<VirtualSwitch>(VirtualSwitch::Surroundings{time_, exchange_, network_, keys_},
                                                        node, ethernetText(topology_.systemId(node))));
  time_.nowIs(zero - options_.spread - 1);
  probes_.swap(configuration_.probes);
  at(0, [this] {
    probes_.swap(configuration_.probes);
    configureCentre();
  });
  centreIs();
  for (std::size_t node = 0; node < topology_.nodes(); ++node) {
    const double before = options_.spread * share(derivedSeed(options_.seed, Chance::starts), node);
    at(-before, [this, node] { nodeStarts(node); });
  }
  for (std::size_t fault = 0; fault < scenario_.faults.size(); ++fault) {
    at(scenario_.faults[fault].at, [this, fault] { faultIs(fault, true); });
    if (scenario_.faults[fault].until) at(*scenario_.faults[fault].until, [this, fault] { faultIs(fault, false); });
  }
  for (const Change& change : scenario_.changes) at(change.at, [this, &change] { apply(change); });
  runUntil(0);
}

VirtualFabric::~VirtualFabric() {
  Rix::assertionThrowsIs(false);
}

double VirtualFabric::now() {
  return time_.now() - zero;
}

void VirtualFabric::at(double time, std::function<void()> action) {
  plan_.emplace(zero + time, std::move(action));
}

void VirtualFabric::centreIs() {
  centre_ = std::make_unique<Centre>(*this);
  refresh();
}

void VirtualFabric::centreFailed() {
  // Kept to the end of the process: to destroy it would be to run more of it.
  static std::vector<std::unique_ptr<Centre>>& aside = *new std::vector<std::unique_ptr<Centre>>;
  centre_->failed();
  aside.push_back(std::move(centre_));
  at(now() + failureDown, [this] { centreIs(); });
}

void VirtualFabric::nodeStarts(std::size_t node) {
  if (options_.sonar) switches_[node]->sonarIs();
  agentStarts(node);
}

void VirtualFabric::agentStarts(std::size_t node) {
  switches_[node]->agentIs([this, node](Atlas::EntityManager& store) {
    writePlatform(node, store);
    configure(configuration_.switches[node], *Rix::dynamicCast<Zeb::ClientConfig>(store.getEntity("mgmt/zeb/config")));
  });
}

// As a platform does: an interface without an address has one of zero.
void VirtualFabric::writePlatform(std::size_t node, Atlas::EntityManager& store) const {
  const auto addresses = Rix::dynamicCast<Ip::Status>(store.getEntity("ip/status"));
  const auto write = [&](const std::string& interface) {
    addresses->intfStatusIs(Netkit::IntfId(interface))->addressIs(Netkit::IpAddr(network_.address(node, interface)));
  };
  write("lo");
  for (const LinkSide side : topology_.sides(node)) write(scenario_.end(side).interface);
  Rix::dynamicCast<System::NetConfig>(store.getEntity("sys/net/config"))
      ->hostnameIs(configuration_.switches[node].hostname);
}

void VirtualFabric::configureCentre() {
  if (!centre_) return;  // it finds its configuration when it starts
  step(switches_.size(),
       [this] { centre_->activity().dispatch([this] { configure(configuration_, centre_->config()); }); });
}

void VirtualFabric::configureSwitch(std::size_t node) {
  VirtualSwitch& configured = *switches_[node];
  if (!configured.agentRuns()) return;
  step(node, [&] {
    configured.activity().dispatch([&] {
      Atlas::EntityManager& store = *configured.store();
      writePlatform(node, store);
      configure(configuration_.switches[node],
                *Rix::dynamicCast<Zeb::ClientConfig>(store.getEntity("mgmt/zeb/config")));
    });
  });
}

void VirtualFabric::apply(const Change& change) {
  if (change.kind == ChangeKind::restart) {
    switch (change.restarted) {
      case Restarted::agent:
        return agentRestart(*change.node, change.down);
      case Restarted::sonar:
        return sonarRestart(*change.node, change.down);
      case Restarted::centre:
        return centreRestart(change.down);
    }
  }
  applyChange(change, configuration_);
  if (!change.node) return configureCentre();
  if (change.kind == ChangeKind::address) {
    network_.addressIs(*change.node, change.interface, change.address.value_or(0));
    switches_[*change.node]->networkChanged();
    routeSoon();
  }
  configureSwitch(*change.node);
}

void VirtualFabric::probeEnabledIs(const std::string& name, bool enabled) {
  Change change;
  change.kind = ChangeKind::probe;
  change.name = name;
  change.probe = configuration_.probes.at(name);
  change.probe->enabled = enabled;
  apply(change);
}

void VirtualFabric::agentRestart(std::size_t node, double down) {
  switches_[node]->agentDel();
  at(now() + down, [this, node] {
    if (!switches_[node]->agentRuns() && !network_.condition().dead[node]) agentStarts(node);
  });
}

void VirtualFabric::sonarRestart(std::size_t node, double down) {
  switches_[node]->sonarDel();
  at(now() + down, [this, node] {
    if (!switches_[node]->sonarRuns() && !network_.condition().dead[node]) switches_[node]->sonarIs();
  });
}

void VirtualFabric::sonarRestartPlanned(std::size_t node, double down) {
  switches_[node]->sonarStop();
  sonarStopped(node, now() + down);
}

void VirtualFabric::sonarStopped(std::size_t node, double latest) {
  if (!switches_[node]->sonarRuns()) return;
  if (switches_[node]->service().stopped() || now() >= latest) return sonarRestart(node, latest - now());
  at(std::min(now() + 0.1, latest), [this, node, latest] { sonarStopped(node, latest); });
}

void VirtualFabric::centreRestart(double down) {
  centre_.reset();
  at(now() + down, [this] {
    if (!centre_) centreIs();
  });
}

void VirtualFabric::faultIs(std::size_t fault, bool active) {
  active_[fault] = active;
  const Condition before = network_.condition();
  const Condition condition = conditionOf(scenario_, active_);
  for (std::size_t node = 0; node < topology_.nodes(); ++node)
    if (condition.dead[node] && !before.dead[node]) {
      switches_[node]->sonarDel();
      switches_[node]->agentDel();
    }
  network_.conditionIs(condition);
  if (condition.linksUp() != before.linksUp()) {
    for (const auto& each : switches_) each->networkChanged();
    routeSoon();
  }
  for (std::size_t node = 0; node < topology_.nodes(); ++node)
    if (before.dead[node] && !condition.dead[node]) nodeStarts(node);
}

void VirtualFabric::begin(Fault fault) {
  const std::size_t index = scenario_.faults.size();
  scenario_.faults.push_back(std::move(fault));
  active_.push_back(false);
  faultIs(index, true);
  if (const auto until = scenario_.faults[index].until) at(*until, [this, index] { faultIs(index, false); });
}

// Each switch gets its new routes a moment after the one before it, in an order of chance.
void VirtualFabric::routeSoon() {
  const std::uint64_t seed = Lab::derivedSeed(derivedSeed(options_.seed, Chance::routes), plan_.size());
  for (std::size_t node = 0; node < topology_.nodes(); ++node)
    at(now() + scenario_.convergence + options_.routeSpread * share(seed, node), [this, node] {
      network_.route(node);
      switches_[node]->networkChanged();
    });
}

void VirtualFabric::hashSeedIs(std::size_t node, std::uint64_t seed) {
  network_.hashSeedIs(node, seed);
  switches_[node]->networkChanged();
  refresh();
}

void VirtualFabric::send(const VirtualNetwork::Sending& packet) {
  network_.send(time_.now(), packet.node, packet.flow, packet.hopLimit, packet.payload);
}

void VirtualFabric::runUntil(double time) {
  RIX_ASSERT(time >= now(), time);
  advance(zero + time);
}

void VirtualFabric::advance(double until) {
  const std::size_t centre = switches_.size();
  refresh();
  deliver();
  for (;;) {
    const auto first = std::min_element(due_.begin(), due_.end());
    const double packet = network_.nextArrival();
    const double planned = plan_.empty() ? Rix::never : plan_.begin()->first;
    const double next = std::min({*first, packet, planned});
    if (next > until) break;
    time_.nowIs(std::max(next, time_.now()));
    if (planned <= next) {
      const auto action = std::move(plan_.begin()->second);
      plan_.erase(plan_.begin());
      action();
      refresh();
    } else if (packet <= next) {
      const VirtualNetwork::Arrival& arrival = network_.takeArrival();
      switches_[arrival.node]->packetArrived(arrival);
      refresh(arrival.node);
    } else if (const auto actor = static_cast<std::size_t>(first - due_.begin()); actor == centre) {
      step(centre, [this] { centre_->activity().runDueTimers(); });
    } else {
      step(actor, [this, actor] { switches_[actor]->run(); });
    }
    deliver();
  }
  time_.nowIs(std::max(until, time_.now()));
}

// What runs may end itself. That is an end as any other to those around it.
void VirtualFabric::step(std::size_t actor, const std::function<void()>& run) {
  try {
    run();
  } catch (const Rix::AssertionFailure& failure) {
    failures_.push_back(failure.text);
    if (actor == switches_.size()) {
      centreFailed();
    } else {
      switches_[actor]->agentFailed();
      at(now() + failureDown, [this, actor] {
        if (!switches_[actor]->agentRuns() && !network_.condition().dead[actor]) agentStarts(actor);
      });
    }
  }
  if (actor == switches_.size()) {
    due_.back() = centre_ ? centre_->activity().nextDeadline() : Rix::never;
  } else {
    refresh(actor);
  }
}

void VirtualFabric::deliver() {
  while (exchange_.waiting() > 0) {
    const Rix::Activity& receiver = exchange_.receiver();
    std::size_t actor = 0;
    while (actor < switches_.size() && !(switches_[actor]->agentRuns() && &switches_[actor]->activity() == &receiver))
      ++actor;
    step(actor, [this] { exchange_.deliverOne(); });
  }
}

void VirtualFabric::refresh() {
  for (std::size_t node = 0; node < switches_.size(); ++node) refresh(node);
  due_.back() = centre_ ? centre_->activity().nextDeadline() : Rix::never;
}

std::string VirtualFabric::logText() const {
  std::string text;
  for (const Message& each : log_) {
    char time[32];
    std::snprintf(time, sizeof time, "%.9f ", each.time);
    text += time + each.message.text + "\n";
  }
  return text;
}

std::string VirtualFabric::stateText() {
  std::ostringstream text;
  for (const auto& each : switches_) {
    if (!each->sonarRuns()) continue;
    for (const auto& row : each->ingressRows()) text << row << "\n";
    for (const auto& row : each->egressRows()) text << row << "\n";
  }
  text << Rix::jsonText(status()) << "\n" << Rix::jsonText(*root().zebStreamTable()) << "\n";
  return text.str();
}

std::vector<VirtualFabric::Names> VirtualFabric::namedPairs() const {
  std::vector<Names> pairs;
  for (const Message& each : log_)
    if (each.message.arguments.size() == 2) pairs.emplace_back(each.message.arguments[0], each.message.arguments[1]);
  return pairs;
}

std::vector<VirtualFabric::Names> VirtualFabric::standingPairs() const {
  std::vector<Names> pairs;
  const auto name = [this](const Fabric::SystemId& id) {
    const auto* client = status().client(id);
    return client ? std::string(client->hostname().view()) : id.stringValue();
  };
  for (const auto& pair : status().lossStatus()->devicePairLossRecordIterator())
    pairs.emplace_back(name(pair->devicePair().dev1SysId()), name(pair->devicePair().dev2SysId()));
  return pairs;
}

std::size_t VirtualFabric::streams() const {
  std::size_t sent = 0;
  for (const auto& stream : root().zebStreamTable()->streamRecordIterator())
    sent += stream->egressRecords() > 0 ? 1u : 0u;
  return sent;
}

std::size_t VirtualFabric::nodeNamed(const std::string& name) const {
  for (std::size_t node = 0; node < scenario_.nodes.size(); ++node)
    if (scenario_.nodes[node].name == name) return node;
  RIX_ASSERT(false, name);
}

LinkSide VirtualFabric::sideNamed(const std::string& node, const std::string& interface) const {
  for (const LinkSide side : topology_.sides(nodeNamed(node)))
    if (scenario_.end(side).interface == interface) return side;
  RIX_ASSERT(false, node, interface);
}

std::size_t VirtualFabric::flowsOver(LinkSide side) const {
  std::size_t count = 0;
  for (const Flow& flow : flowsOf(topology_)) {
    const Sonar::Flow packet{Netkit::IpAddr(flow.sourceAddress), Netkit::IpAddr(flow.destinationAddress), flow.port};
    const auto path = network_.path(flow.source, packet, flow.distance);
    count += std::find(path.begin(), path.end(), side) == path.end() ? 0u : 1u;
  }
  return count;
}

Zeb::Agent& VirtualFabric::centre() const {
  return centre_->agent();
}
const LossHistory& VirtualFabric::history() const {
  return centre_->history();
}
Rix::Activity& VirtualFabric::centreActivity() const {
  return centre_->activity();
}

}  // namespace Lab
