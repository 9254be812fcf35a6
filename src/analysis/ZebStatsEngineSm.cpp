// What is summed up in one walk of the stream table, and when.
#include "analysis/ZebStatsEngineSm.h"

#include <algorithm>
#include <unordered_map>

#include "runtime/Trace.h"

namespace Zeb {

namespace {

Rix::TraceHandle traceHandle("ZebStatsEngineSm");

// Probes received by the switches of one host name.
struct HostLoad {
  Rix::String8 hostname;
  U32 received = 0;
};
struct HostLoadKey {
  Rix::String8 const& operator()(HostLoad const& load) const { return load.hostname; }
};
struct HashOfKey {
  std::size_t operator()(auto const& key) const { return key.hash(); }
};

// What one walk sums up for one probe.
class ProbeSums {
 public:
  U32 activeStreamCount = 0;
  U32 txCount = 0;
  U32 rxCount = 0;
  U32 lossCount = 0;
  U8 hopDistance = 0;  // of the last stream that has one; 0 if none has

  // Adds what a switch received, to the load of its host name.
  void addReceived(ZebStatus const& status, Fabric::SystemId const& switchId, U32 received) {
    auto const [place, isNew] = bySwitch_.try_emplace(switchId, nullptr);
    if (isNew) {
      ZebClient const* const client = status.client(switchId);
      RIX_ASSERT(client != nullptr, switchId);
      Rix::String8 const& hostname = client->hostname();
      place->second = hostname.empty() ? &nameless_
                                       : byHostname_.findOrCreate(hostname, [&hostname] { return HostLoad{hostname}; });
    }
    place->second->received += received;
  }
  // The first of those that received most; without a name if nobody received anything.
  HostLoad maxLoaded() const {
    HostLoad best;
    for (HostLoad const& load : byHostname_) {
      if (load.received > best.received) best = load;
    }
    return best;
  }

 private:
  HostLoad nameless_;
  Rix::HashMap<HostLoadKey, Rix::String8, HostLoad> byHostname_;
  // A switch's host name is looked up once in a walk, not once for each stream and TTL.
  std::unordered_map<Fabric::SystemId, HostLoad*, HashOfKey> bySwitch_;
};

// One walk of the stream table.
class Walk {
 public:
  explicit Walk(ZebStatus const& status) : status_(status) {}

  void add(ProbeStreamRecord const& stream) {
    for (auto const& transmitter : stream.probeNameIterator()) add(stream, sumsOfTransmitter(transmitter.key));
  }
  // The sums of a probe by its name, or null.
  ProbeSums const* sums(Rix::Name const& probe) const {
    auto const found = byProbe_.find(probe);
    return found == byProbe_.end() ? nullptr : &found->second;
  }

 private:
  // A transmitter is named probe, colon, group. Each name is split once in a walk.
  ProbeSums& sumsOfTransmitter(Rix::Name const& transmitter) {
    auto const [place, isNew] = byTransmitter_.try_emplace(transmitter, nullptr);
    if (isNew) place->second = &byProbe_[Rix::Name(transmitter.substr(0, transmitter.pos(':')))];
    return *place->second;
  }

  void add(ProbeStreamRecord const& stream, ProbeSums& sums) {
    U8 const hop = hopDistance(stream, sums);
    if (hop == 0) return;
    sums.hopDistance = hop;
    auto const* const egress = stream.egressRecord(hop);
    if (egress && egress->egressStats()) sums.txCount += static_cast<U32>(egress->egressStats()->numProbesTx());
    auto const* const ingress = stream.ingressRecord(hop);
    if (!ingress) return;
    Rix::Ptr<ProbeStreamSwitchIngressRecord const> const current = ingress->currentActiveIngressRecord();
    if (!current) return;
    if (auto const* const stats = current->ingressStats()) {
      sums.rxCount += static_cast<U32>(stats->probesReceived());
      sums.lossCount += static_cast<U32>(stats->probesLost());
    }
    if (!current->dormant()) ++sums.activeStreamCount;
  }

  // The lowest TTL at which the farthest switch was reached, 0 if none was; TTLs beyond it arrive there too. What all
  // switches on the way received is added. TTLs are met in the order of the collection, which decides which is meant
  // when a switch receives TTLs that do not follow one another.
  U8 hopDistance(ProbeStreamRecord const& stream, ProbeSums& sums) const {
    U8 hop = 0;
    Fabric::SystemId lastSwitch;
    for (auto const& ingress : stream.ingressRecordIterator()) {
      Rix::Ptr<ProbeStreamSwitchIngressRecord const> const current = ingress->currentActiveIngressRecord();
      if (!current) continue;
      auto const* const stats = current->ingressStats();
      if (!stats) continue;
      Fabric::SystemId const& switchId = current->switchId();
      sums.addReceived(status_, switchId, static_cast<U32>(stats->probesReceived()));
      if (switchId == lastSwitch) {
        hop = std::min(hop, ingress->ttl());
      } else if (hop < ingress->ttl()) {
        lastSwitch = switchId;
        hop = ingress->ttl();
      }
    }
    return hop;
  }

  ZebStatus const& status_;
  std::unordered_map<Rix::Name, ProbeSums> byProbe_;
  std::unordered_map<Rix::Name, ProbeSums*> byTransmitter_;
};

void write(ProbeSums const& sums, ProbeStatus& status) {
  // A plain write, so that the last stream of the walk decides. It is not reset: a probe without streams keeps it.
  if (sums.hopDistance != 0) status.maxHopDistanceIs(sums.hopDistance);
  status.activeStreamCountIs(sums.activeStreamCount);
  status.txCountIs(sums.txCount);
  status.rxCountIs(sums.rxCount);
  status.lossCountIs(sums.lossCount);
  HostLoad const maxLoaded = sums.maxLoaded();
  status.maxLoadedSwitchIs(maxLoaded.hostname);
  status.maxLoadedSwitchRxCountIs(maxLoaded.received);
}

}  // namespace

ZebProbeActivitySm::ZebProbeActivitySm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status,
                                       Rix::Ptr<ProbeStreamTable const> const& streamTable)
    : status_(status), streamTable_(streamTable) {
  zebConfig_.notifierIs(config);
  streamStatsComputeClock_.notifierIs(Rix::ActivityFacility::clock());
  handleInitialized();
}

void ZebProbeActivitySm::handleInitialized() {
  initializedIs(true);
  Rix::sweepKeys(zebConfig_->probeConfigIterator(), [this](Rix::Name const& name) { handleProbeConfig(name); });
  handleStreamStatsComputeClock();
}

void ZebProbeActivitySm::handleProbeConfig(Rix::Name const& name) {
  if (!initialized()) return;
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebProbeActivitySm::handleProbeConfig(Rix::Name const&) " << name);
  if (zebConfig_->probeConfig(name)) {
    status_->probeStatusIs(name);
  } else {
    status_->probeStatusDel(name);
  }
}

void ZebProbeActivitySm::handleStreamStatsComputeClock() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebProbeActivitySm::handleStreamStatsComputeClock()");
  Walk walk(*status_);
  for (auto const& stream : streamTable_->streamRecordIterator()) walk.add(*stream);
  ProbeSums const nothing;
  for (auto const& probeStatus : status_->probeStatusIterator()) {
    ProbeSums const* const sums = walk.sums(probeStatus->rixKey());
    write(sums ? *sums : nothing, *probeStatus);
  }
  streamStatsComputeClock_.timeMinIs(Rix::now() + statsComputeInterval);
}

ZebStatsEngineSm::ZebStatsEngineSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus> const& status,
                                   Rix::Ptr<ProbeStreamTable const> const& streamTable,
                                   Rix::Ptr<ProbeStreamEventTable const> const& eventTable)
    : config_(config), status_(status), streamTable_(streamTable), eventTable_(eventTable) {
  handleInitialized();
}

void ZebStatsEngineSm::handleInitialized() {
  initializedIs(true);
  probeActivitySm_.is(config_, status_, streamTable_);
}

Rix::Ptr<ZebStatsEngineSm> zebStatsEngineSmFactory(Rix::Ptr<ZebConfig const> const& config,
                                                   Rix::Ptr<ZebStatus> const& status,
                                                   Rix::Ptr<ProbeStreamTable const> const& streamTable,
                                                   Rix::Ptr<ProbeStreamEventTable const> const& eventTable) {
  return Rix::make<ZebStatsEngineSm>(config, status, streamTable, eventTable);
}
Rix::Ptr<ZebProbeActivitySm> zebProbeActivitySmFactory(Rix::Ptr<ZebConfig const> const& config,
                                                       Rix::Ptr<ZebStatus> const& status,
                                                       Rix::Ptr<ProbeStreamTable const> const& streamTable) {
  return Rix::make<ZebProbeActivitySm>(config, status, streamTable);
}

}  // namespace Zeb
