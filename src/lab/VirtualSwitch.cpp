// What the processes of a switch wire together, without the processes: see SwitchBody and KernelService.
#include "lab/VirtualSwitch.h"

#include <algorithm>
#include <map>

#include "client/ClientStore.h"
#include "model/SonarLocalStatus.h"
#include "runtime/AttributeLog.h"

namespace Lab {
namespace {

constexpr std::uint32_t rows = 1024;  // of each table

const std::vector<Fabric::SwitchMount> reported{{"mgmt/zeb/hubx/config", "Zeb::ClientConfig"},
                                                {"mgmt/zeb/echoStatus", "Zeb::ZebSonarStatusV1"}};
const std::vector<Fabric::SwitchMount> ordered{{"mgmt/zeb/hubx/waveConfigDir/waveConfig", "Zeb::ZebSonarConfigV1"}};

// What stands in the switch's database, whether or not its agent runs.
struct LastingRecord {
  const char* path;
  const char* type;
};
constexpr LastingRecord lastingRecords[] = {{"sonar/zeb/config", "Sonar::Config"},
                                            {"mgmt/zeb/hubx/waveConfigDir/waveConfig", "Zeb::ZebSonarConfigV1"}};

// The switch's packets go to the network, and those that the network brings are handed over one by one.
class NetworkPacketIo : public Sonar::PacketIo {
 public:
  NetworkPacketIo(VirtualNetwork& network, std::size_t node, Rix::TimeSource& time)
      : network_(network), node_(node), time_(time) {}

  std::vector<int> fds() const override { return {}; }
  void localAddressesAre(std::span<Netkit::IpAddr const>) override {}
  void drain(const Taker& taker) override {
    if (arrived) taker(arrived->bytes, arrived->interface);
    arrived = nullptr;
  }
  U64 dropped() override { return 0; }
  void send(std::span<Sonar::OutgoingPacket const> packets, std::span<Sonar::SendResult> results) override {
    for (std::size_t i = 0; i < packets.size(); ++i) {
      const auto& [flow, hopLimit, payload] = packets[i];
      results[i] = network_.send(time_.now(), node_, flow, hopLimit, payload) ? Sonar::SendResult::sent
                                                                              : Sonar::SendResult::failed;
    }
  }
  void endpointsAre(const std::set<Sonar::SourceEndpoint>&) override {}

  const VirtualNetwork::Arrival* arrived = nullptr;

 private:
  VirtualNetwork& network_;
  const std::size_t node_;
  Rix::TimeSource& time_;
};

// A table of rows, which tells that it has changed.
template <class Table, class Writer, class Row, class Key>
struct WrittenTable : Table {
  Writer writer;
  bool& changed;

  WrittenTable(Shelf::Storage& storage, const Shelf::RootPath& root, const char* name, const char* type, bool& flag)
      : writer(storage, root, name, type, {.capacity = rows, .nameCapacity = 16}), changed(flag) {
    changed = true;
  }
  std::vector<Row> allRows() {
    std::vector<Row> all;
    writer.rows([&](const Row& row) { all.push_back(row); });
    return all;
  }
  void rowIs(const Row& row) override {
    writer.rowIs(row);
    changed = true;
  }
  void rowDel(const Key& key) override {
    writer.rowDel(key);
    changed = true;
  }
};
using WrittenIngress = WrittenTable<Sonar::IngressTable, Sonar::IngressStreamWriter,
                                    Sonar::IngressStreamStatisticsTableEntry, Sonar::IngressStream>;
using WrittenEgress =
    WrittenTable<Sonar::EgressTable, Sonar::EgressStreamWriter, Sonar::EgressStreamTable, Sonar::EgressStream>;

}  // namespace

// What goes when the agent's process goes.
class VirtualSwitch::Agent {
 public:
  Agent(VirtualSwitch& owner, const std::function<void(Atlas::EntityManager&)>& write)
      : exchange_(owner.surroundings_.exchange), activity_(owner.surroundings_.time) {
    const Rix::Activity::Use use(activity_);
    port_ = &exchange_.addSwitch(activity_);
    store_ = Rix::make<Atlas::EntityManager>("switch");
    for (const LastingRecord& record : lastingRecords)
      if (const auto kept = owner.lasting_.find(record.path); kept != owner.lasting_.end())
        Rix::Replica(Fabric::recordByName(record.type), Rix::Replica::NewWriter::patches,
                     [&](const Rix::Ptr<Rix::Entity>& root) {
                       if (root) store_->entityIs(record.path, root);
                     })
            .snapshot(kept->second, false);
    localStatus_ = Rix::make<Sonar::LocalStatus>(owner.storage_, owner.tables_);
    agent_ = Zeb::clientAgentFactory("ZebClient");
    Zeb::fillClientStore(*store_, localStatus_);
    activity_.dispatch([&] { write(*store_); });
    agent_->entityManagerIs(store_);
    activity_.runDueTimers();
    end_ = std::make_unique<Fabric::SwitchEnd>(activity_, *port_, store_,
                                               Fabric::SwitchEnd::Identity{owner.systemId_, ++owner.lastNumber_},
                                               reported, ordered);
    exchange_.connectedIs(*port_, true);
  }
  ~Agent() {
    const Rix::Activity::Use use(activity_);
    end_.reset();
    agent_ = nullptr;
    store_ = nullptr;
    localStatus_ = nullptr;
    exchange_.remove(*port_);
  }

  // Nobody hears of it or from it any more.
  void failed() { port_->userIs(nullptr); }

  Rix::Activity& activity() { return activity_; }
  const Rix::Ptr<Atlas::EntityManager>& store() const { return store_; }
  const Fabric::SwitchEnd& end() const { return *end_; }
  const Zeb::ClientAgent& agent() const { return *agent_; }
  template <class T>
  Rix::Ptr<T> at(const char* path) const {
    return Rix::dynamicCast<T>(store_->getEntity(path));
  }

  void poll() {
    activity_.dispatch([this] {
      while (localStatus_->poll()) {
      }
    });
  }

 private:
  Fabric::MemoryNetwork& exchange_;
  Rix::Activity activity_;
  Fabric::Transport* port_ = nullptr;
  Rix::Ptr<Atlas::EntityManager> store_;
  Rix::Ptr<Sonar::LocalStatus> localStatus_;
  Rix::Ptr<Zeb::ClientAgent> agent_;
  std::unique_ptr<Fabric::SwitchEnd> end_;
};

// What goes when the probing service's process goes. While no agent runs it goes on with the orders that it has.
class VirtualSwitch::Probing {
 public:
  explicit Probing(VirtualSwitch& owner)
      : time_(owner.surroundings_.time),
        ingress_(owner.storage_, owner.tables_, Sonar::ingressStreamStatisticsTableName,
                 Sonar::ingressStreamStatisticsTableType, owner.tablesChanged_),
        egress_(owner.storage_, owner.tables_, Sonar::egressStreamTableName, Sonar::egressStreamTableType,
                owner.tablesChanged_),
        packets_(owner.surroundings_.network, owner.node_, time_),
        service_({.keys = owner.surroundings_.keys, .nextEpoch = [&owner] { return ++owner.lastNumber_; }},
                 {owner.surroundings_.network.view(owner.node_), packets_, ingress_, egress_, map_}) {
    service_.adopt(time_.now(), ingress_.allRows(), egress_.allRows());
    service_.switchChanged(time_.now());
  }
  ~Probing() { *self_ = nullptr; }

  // The records of an agent that has started, or of one that was there before the service.
  void recordsAre(Rix::Activity& activity, const Rix::Ptr<Sonar::Config>& config, const Rix::Ptr<Sonar::Status>& status,
                  U64 configuration) {
    config_ = config;
    configuration_ = configuration;
    configLog_ = std::make_unique<Rix::AttributeLog>(config, 1, [this] { configChanged_ = true; });
    activity.flushIs([self = self_, configuration] {
      if (*self && (*self)->configChanged_ && (*self)->configuration_ == configuration) (*self)->handleConfig();
    });
    map_.recordsAre(activity, status);
    activity.dispatch([&] {
      status->runningIs(true);
      map_.writeAll();
    });
    handleConfig();
  }
  void recordsGone() {
    map_.recordsGone();
    configLog_.reset();
    config_ = nullptr;
    configuration_ = 0;
  }

  Sonar::Service& service() { return service_; }
  void packetArrived(const VirtualNetwork::Arrival& arrival) {
    packets_.arrived = &arrival;
    service_.onReadable(time_.now());
  }
  std::vector<Sonar::IngressStreamStatisticsTableEntry> ingressRows() { return ingress_.allRows(); }
  std::vector<Sonar::EgressStreamTable> egressRows() { return egress_.allRows(); }

 private:
  // Follows the streams in the agent's record, in turns of the agent's activity.
  struct StreamMap : Sonar::StreamTransmitterMap {
    std::map<Sonar::EgressStream, std::set<std::string>> streams;
    Rix::Activity* activity = nullptr;
    Rix::Ptr<Sonar::Status> status;

    void recordsAre(Rix::Activity& of, const Rix::Ptr<Sonar::Status>& record) {
      activity = &of;
      status = record;
    }
    void recordsGone() {
      activity = nullptr;
      status = nullptr;
    }
    static void write(Sonar::Status& status, const Sonar::EgressStream& stream, const std::set<std::string>& names) {
      Sonar::TransmitterList* const list = status.streamTransmitterMapIs(stream);
      for (const auto& entry : list->transmitterIterator())
        if (!names.contains(std::string(entry.key.view()))) list->transmitterDel(Rix::String8(entry.key));
      for (const std::string& name : names) list->transmitterIs(name, true);
    }
    void writeAll() {
      for (const auto& list : status->streamTransmitterMapIterator())
        if (!streams.contains(list->egressStream())) status->streamTransmitterMapDel(list->egressStream());
      for (const auto& [stream, names] : streams) write(*status, stream, names);
    }
    void transmittersAre(const Sonar::EgressStream& stream, const std::set<std::string>& names) override {
      streams[stream] = names;
      if (activity) activity->post([status = status, stream, names] { write(*status, stream, names); });
    }
    void streamDel(const Sonar::EgressStream& stream) override {
      streams.erase(stream);
      if (activity) activity->post([status = status, stream] { status->streamTransmitterMapDel(stream); });
    }
  };

  void handleConfig() {
    configLog_->snapshot();  // noted from here on
    configChanged_ = false;
    service_.ordersAre(time_.now(), Sonar::ordersOf(*config_, configuration_));
  }

  Rix::TimeSource& time_;
  WrittenIngress ingress_;
  WrittenEgress egress_;
  StreamMap map_;
  NetworkPacketIo packets_;
  Sonar::Service service_;
  Rix::Ptr<Sonar::Config> config_;
  U64 configuration_ = 0;
  bool configChanged_ = false;
  std::unique_ptr<Rix::AttributeLog> configLog_;
  std::shared_ptr<Probing*> self_ = std::make_shared<Probing*>(this);  // emptied when this goes: see Activity::flushIs
};

VirtualSwitch::VirtualSwitch(const Surroundings& surroundings, std::size_t node, std::string systemId)
    : surroundings_(surroundings),
      node_(node),
      systemId_(std::move(systemId)),
      tables_{"node" + std::to_string(node)} {}

VirtualSwitch::~VirtualSwitch() {
  sonarDel();
  agentDel();
}

void VirtualSwitch::agentIs(const std::function<void(Atlas::EntityManager&)>& write) {
  RIX_ASSERT(!agent_, node_);
  agent_ = std::make_unique<Agent>(*this, write);
  lasting_.clear();
  tablesChanged_ = true;  // all that stands is new to it
  attach();
  if (agentBefore_ && sonar_) sonar_->service().agentRestarted(surroundings_.time.now());
  agentBefore_ = true;
}

// Before the agent goes: what its end does to the records that it has is not what becomes of them.
void VirtualSwitch::keepRecords() {
  for (const LastingRecord& record : lastingRecords)
    if (const auto entity = agent_->store()->getEntity(record.path))
      lasting_[record.path] = Rix::AttributeLog(entity).snapshot();
}

void VirtualSwitch::agentDel() {
  if (!agent_) return;
  keepRecords();
  if (sonar_) sonar_->recordsGone();
  agent_.reset();
}

void VirtualSwitch::agentFailed() {
  // Kept to the end of the process: to destroy it would be to run more of it.
  static std::vector<std::unique_ptr<Agent>>& aside = *new std::vector<std::unique_ptr<Agent>>;
  keepRecords();
  if (sonar_) sonar_->recordsGone();
  agent_->failed();
  aside.push_back(std::move(agent_));
}

void VirtualSwitch::sonarIs() {
  RIX_ASSERT(!sonar_, node_);
  sonar_ = std::make_unique<Probing>(*this);
  attach();
}

void VirtualSwitch::sonarDel() {
  sonar_.reset();
}

void VirtualSwitch::sonarStop() {
  if (sonar_) sonar_->service().stop(surroundings_.time.now());
}

void VirtualSwitch::attach() {
  if (!agent_ || !sonar_) return;
  sonar_->recordsAre(agent_->activity(), Rix::Ptr<Sonar::Config>(agent_->at<Sonar::Config>("sonar/zeb/config")),
                     agent_->at<Sonar::Status>("sonar/status"), ++configurations_);
  agent_->activity().runDueTimers();
}

double VirtualSwitch::nextDeadline() {
  double next = Rix::never;
  if (agent_) next = std::min(next, agent_->activity().nextDeadline());
  if (agent_ && tablesChanged_) next = std::min(next, nextPoll_);
  if (sonar_) next = std::min(next, sonar_->service().nextDeadline());
  return next;
}

void VirtualSwitch::run() {
  const double now = surroundings_.time.now();
  if (sonar_ && sonar_->service().nextDeadline() <= now) sonar_->service().onTimer(now);
  if (!agent_) return;
  if (tablesChanged_ && nextPoll_ <= now) {
    tablesChanged_ = false;
    nextPoll_ = now + pollPeriod;
    agent_->poll();
  }
  agent_->activity().runDueTimers();
}

void VirtualSwitch::packetArrived(const VirtualNetwork::Arrival& arrival) {
  if (sonar_) sonar_->packetArrived(arrival);
}

void VirtualSwitch::networkChanged() {
  if (sonar_) sonar_->service().switchChanged(surroundings_.time.now());
}

Rix::Activity& VirtualSwitch::activity() {
  return agent_->activity();
}
const Rix::Ptr<Atlas::EntityManager>& VirtualSwitch::store() const {
  return agent_->store();
}
const Fabric::SwitchEnd& VirtualSwitch::end() const {
  return agent_->end();
}
const Zeb::ClientAgent& VirtualSwitch::agent() const {
  return agent_->agent();
}
Sonar::Config& VirtualSwitch::orders() const {
  return *agent_->at<Sonar::Config>("sonar/zeb/config");
}
const Sonar::Service& VirtualSwitch::service() const {
  return sonar_->service();
}
std::vector<Sonar::IngressStreamStatisticsTableEntry> VirtualSwitch::ingressRows() {
  return sonar_->ingressRows();
}
std::vector<Sonar::EgressStreamTable> VirtualSwitch::egressRows() {
  return sonar_->egressRows();
}

}  // namespace Lab
