// What a counter costs at the centre, from the frame that brings it to the batch that folds it, and what the centre
// keeps for it: the whole central agent, with frames as switches send them, on virtual time and without connections.
//
// Every stream is sent with four TTLs and seen by four switches, its destination the last of them: each of these
// (stream, TTL, switch) is a sub-stream. A round is one more count for every sub-stream, each switch's in one frame and
// in an order of its own, the switches' one after the other: first all are received, then a second passes, the wait of
// a batch, and all that has gathered in queues is folded.
//
// The statistics walk all streams each second: what that takes is a figure of its own, and for the rounds the streams
// lose the names of their probes, so that there is nothing to add up.
//
// The peer makes the same decisions on flat arrays, prefetched: decode, compare and store what the switch reports and
// what is merged, note the whole event in the stream's queue, fold the queues.
//
//   bench_centre               10,000, 1,000,000 and 4,000,000 sub-streams
//   bench_centre SUBSTREAMS    one row
//
// Each row runs in a process of its own, so that its memory is its own.
#include <algorithm>
#include <random>

#include "Rows.h"
#include "central/CentralStore.h"
#include "central/ZebAgent.h"
#include "model/gen/Config.h"
#include "model/gen/Platform.h"
#include "model/gen/Status.h"
#include "runtime/FabricEnds.h"

namespace {

using namespace Zeb;

constexpr U32 ttls = 4;

[[noreturn]] void fail(char const* what) {
  std::fprintf(stderr, "bench_centre: %s\n", what);
  std::exit(1);
}

Fabric::SystemId switchId(U32 number) {
  return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, static_cast<U8>(number >> 8), static_cast<U8>(number)}));
}
Netkit::IpAddr loopback(U32 number) {
  return Netkit::IpAddr(0x0a000001U + number);
}

// Which switches send, pass and receive which streams.
struct Layout {
  explicit Layout(U32 subStreams) : switches(std::clamp(subStreams / 2000, 20U, 2000U)), streams(subStreams / ttls) {}
  U32 source(U32 stream) const { return stream % switches; }
  // The switch at which the stream's probes with this TTL end: others than the source, and each another.
  U32 seenBy(U32 stream, U32 ttl) const {
    U32 const step = 1 + stream / switches % ((switches - 1) / ttls);
    return (source(stream) + step * ttl) % switches;
  }
  ProbeStreamId id(U32 stream) const {
    return ProbeStreamId({.dstIp = loopback(seenBy(stream, ttls)),
                          .srcIp = loopback(source(stream)),
                          .ipProto = Netkit::IpProto(17),
                          .streamPort = static_cast<U16>(20000 + stream / switches),
                          .streamTag = stream});
  }
  U32 const switches;
  U32 const streams;
};

// The link of one switch, as the centre's end holds it: what the centre sends goes nowhere.
class Wire final : public Fabric::Link {
 public:
  void send(std::string_view) override {}
  void close() override { fail("the centre has ended a link"); }
};
class Wires final : public Fabric::Transport {
 public:
  void userIs(Fabric::LinkUser* user) override { user_ = user; }
  Fabric::LinkUser& user() const { return *user_; }

 private:
  Fabric::LinkUser* user_ = nullptr;
};

// What a switch sends, made by the writer's own end: hello and its two reports, the end of all names of probes, and
// then one frame a round.
struct Frames {
  std::vector<std::string> first;
  std::vector<std::string> nameless;
  std::vector<std::vector<std::string>> rounds;
};

class Recorder final : public Fabric::Link {
 public:
  void send(std::string_view frame) override { frames.emplace_back(frame); }
  void close() override {}
  std::vector<std::string> frames;
};

Frames framesOf(Layout const& layout, U32 number, std::vector<U32> const& sent,
                std::vector<std::pair<U32, U8>> const& seen, U32 rounds, std::mt19937& random) {
  Rix::VirtualTime time;
  Rix::Activity activity(time);
  Rix::Activity::Use const use(activity);
  Fabric::Outbox outbox(activity);
  Recorder recorder;
  Rix::ByteWriter hello;
  hello.variable(Fabric::switchVersion);
  hello.text(switchId(number).stringValue());
  recorder.frames = Rix::framesOf({.kind = Rix::FrameKind::hello, .incarnation = 1}, hello.view());

  auto const report = Rix::make<ClientConfig>();
  report->hostnameIs("switch" + std::to_string(number));
  report->groupIs("all")->interfaceIpIs("lo", loopback(number));
  auto const status = Rix::make<ZebSonarStatusV1>();
  auto& table = *status->probeStreamTable();
  for (U32 const stream : sent) {
    auto& record = *table.streamRecordIs(layout.id(stream));
    record.probeNameIs("probe:all", true);
    for (U8 ttl = 1; ttl <= ttls; ++ttl) {
      auto& egress = *record.egressRecordIs(ttl);
      egress.egressIntfIs(Netkit::IntfId("eth1"));
      egress.egressStatsIs()->numProbesTxIs(1);
    }
  }
  std::vector<ProbeStreamIngressStats*> counters;
  for (auto const& [stream, ttl] : seen) {
    auto& ingress = *table.streamRecordIs(layout.id(stream))->ingressRecordIs(ttl);
    ingress.ingressIntfIs(Netkit::IntfId("eth2"));
    ingress.ingressIntfIpIs(loopback(number));
    auto& stats = *ingress.ingressStatsIs();
    stats.epochIs(Sonar::Epoch{1});
    stats.ingressTtlIs(ttl);
    stats.probesReceivedIs(1);
    counters.push_back(&stats);
  }
  Fabric::Publication reports(outbox, 0, Fabric::recordByName("Zeb::ClientConfig"), 1);
  Fabric::Publication statuses(outbox, 1, Fabric::recordByName("Zeb::ZebSonarStatusV1"), 1);
  reports.rootIs(report);
  reports.linkIs(&recorder);
  statuses.rootIs(status);
  statuses.linkIs(&recorder);
  reports.flush();
  statuses.flush();
  Frames result;
  result.first = std::move(recorder.frames);
  recorder.frames.clear();
  for (auto const& record : table.streamRecordIterator()) record->probeNameDel("probe:all");
  statuses.flush();
  result.nameless = std::move(recorder.frames);
  std::shuffle(counters.begin(), counters.end(), random);
  for (U32 round = 0; round < rounds; ++round) {
    recorder.frames.clear();
    for (auto* const stats : counters) stats->probesReceivedIs(stats->probesReceived() + 1);
    statuses.flush();
    result.rounds.push_back(std::move(recorder.frames));
  }
  return result;
}

class Centre {
 public:
  explicit Centre(U32 switches)
      : activity_(time_),
        use_(activity_),
        store_(Rix::make<Atlas::EntityManager>("centre")),
        end_(activity_, wires_, Rix::make<Atlas::EntityManager>("fabricdb"), 1),
        agent_(agentFactory("Zeb")),
        links_(switches) {
    fillCentralStore(*store_);
    agent_->serviceHostIs(&end_);
    activity_.dispatch([this] {
      auto const clusters =
          Rix::dynamicCast<FabricCluster::ClusterStatusDir>(store_->getEntity("fabric/cluster/statusDir"));
      clusters->status("default")->isStandaloneOrLeaderIs(true);
      Rix::dynamicCast<ZebConfig>(store_->getEntity("zeb/config"))->enabledIs(true);
    });
    agent_->entityManagerIs(store_);
    activity_.runDueTimers();
    for (Wire& link : links_) activity_.dispatch([&] { wires_.user().linkConnected(link); });
  }
  void receive(U32 number, std::vector<std::string> const& frames) {
    for (std::string const& frame : frames) {
      activity_.dispatch([&] { wires_.user().linkReceived(links_[number], frame); });
    }
  }
  void passes(double seconds) {
    time_.nowIs(time_.now() + seconds);
    activity_.runDueTimers();
  }
  Root const& root() const { return *agent_->root(); }

 private:
  Rix::VirtualTime time_{100};
  Rix::Activity activity_;
  Rix::Activity::Use use_;
  Rix::Ptr<Atlas::EntityManager> store_;
  Wires wires_;
  Fabric::CentralEnd end_;
  Rix::Ptr<Agent> agent_;
  std::vector<Wire> links_;
};

std::size_t residentMemory() {
  std::size_t pages = 0;
  std::size_t resident = 0;
  std::FILE* const file = std::fopen("/proc/self/statm", "r");
  if (!file || std::fscanf(file, "%zu %zu", &pages, &resident) != 2) fail("/proc/self/statm: expected two numbers");
  std::fclose(file);
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// The peer: what a round does, on arrays that are as near as they can be.
class FlatArrays {
 public:
  // `seen` are the sub-streams that each switch tells of, in the order in which it does.
  explicit FlatArrays(U32 subStreams, std::vector<std::vector<U32>> seen)
      : seen_(std::move(seen)), counters_(subStreams), queues_(subStreams / ttls) {}
  // As a switch encodes it: its own number of the sub-stream, and the count.
  std::string frame(U32 number, U64 value) const {
    Rix::ByteWriter writer;
    for (U32 slot = 0; slot < seen_[number].size(); ++slot) {
      writer.variable(slot);
      writer.variable(value);
    }
    return writer.take();
  }
  void receive(U32 number, std::string const& frame) {
    Rix::ByteReader reader(frame);
    updates_.clear();
    while (!reader.atEnd()) {
      U64 const slot = reader.variable("slot", seen_[number].size() - 1);
      U64 const value = reader.variable("value");
      updates_.push_back({seen_[number][slot], value});
    }
    constexpr std::size_t ahead = 8;
    for (std::size_t i = 0; i < updates_.size(); ++i) {
      if (i + ahead < updates_.size()) {
        __builtin_prefetch(&counters_[updates_[i + ahead].first]);
        __builtin_prefetch(&queues_[updates_[i + ahead].first / ttls]);
      }
      if (i + ahead / 2 < updates_.size()) {
        Queue const& queue = queues_[updates_[i + ahead / 2].first / ttls];
        Rix::prefetch(&queue.events[queue.count % ttls]);
      }
      update(number, updates_[i].first, updates_[i].second);
    }
  }
  void fold() {
    constexpr std::size_t ahead = 8;
    for (std::size_t i = 0; i < touched_.size(); ++i) {
      if (i + ahead < touched_.size()) {
        for (auto const& event : queues_[touched_[i + ahead]].events) Rix::prefetch(&event);
      }
      Queue& queue = queues_[touched_[i]];
      for (U32 each = 0; each < queue.count; ++each) {
        if (queue.events[each].eventType == EventType::eventProbesReceived) folded_ += queue.events[each].count;
      }
      queue.count = 0;
    }
    touched_.clear();
  }
  U64 folded() const { return folded_; }

 private:
  struct Counter {
    U64 reported = 0;
    U64 merged = 0;
    U64 last = 0;
  };
  struct Queue {
    U32 count = 0;
    ProbeStreamEventRecord events[ttls];
  };
  void update(U32 number, U32 subStream, U64 value) {
    Counter& counter = counters_[subStream];
    if (counter.reported == value) return;
    counter.reported = value;
    if (counter.merged == value) return;
    counter.merged = value;
    Queue& queue = queues_[subStream / ttls];
    if (queue.count == ttls) return;
    if (queue.count == 0) touched_.push_back(subStream / ttls);
    ProbeStreamEventRecord& event = queue.events[queue.count++];
    event.timeStamp = 1;
    event.eventType = EventType::eventProbesReceived;
    event.ttl = static_cast<U8>(subStream % ttls + 1);
    event.ingressSwitchId = switchId(number);
    event.probesReceived = value;
    event.count = static_cast<U32>(value - counter.last);
    counter.last = value;
  }

  std::vector<std::vector<U32>> const seen_;
  std::vector<Counter> counters_;
  std::vector<Queue> queues_;
  std::vector<std::pair<U32, U64>> updates_;
  std::vector<U32> touched_;
  U64 folded_ = 0;
};

void row(U32 subStreams) {
  Layout const layout(subStreams);
  constexpr U32 rounds = 5;
  std::mt19937 random(1);
  std::vector<std::vector<U32>> sent(layout.switches);
  std::vector<std::vector<std::pair<U32, U8>>> seen(layout.switches);
  for (U32 stream = 0; stream < layout.streams; ++stream) {
    sent[layout.source(stream)].push_back(stream);
    for (U8 ttl = 1; ttl <= ttls; ++ttl) seen[layout.seenBy(stream, ttl)].emplace_back(stream, ttl);
  }
  std::vector<Frames> frames;
  for (U32 number = 0; number < layout.switches; ++number) {
    frames.push_back(framesOf(layout, number, sent[number], seen[number], rounds, random));
  }
  malloc_trim(0);

  std::size_t const usedBefore = Rows::usedMemory();
  std::size_t const residentBefore = residentMemory();
  Centre centre(layout.switches);
  double const start = Rows::seconds([&] {
    for (U32 number = 0; number < layout.switches; ++number) centre.receive(number, frames[number].first);
    centre.passes(1.5);
  });
  if (centre.root().zebStreamTable()->streamRecords() != layout.streams) fail("streams are missing");
  auto const used = static_cast<double>(Rows::usedMemory() - usedBefore);
  auto const resident = static_cast<double>(residentMemory() - residentBefore);

  double const statistics = Rows::seconds([&] { centre.passes(1); });
  for (U32 number = 0; number < layout.switches; ++number) centre.receive(number, frames[number].nameless);
  centre.passes(1.5);
  double const idle = Rows::seconds([&] { centre.passes(1); });
  double receive = 1e9;
  double fold = 1e9;
  for (U32 round = 0; round < rounds; ++round) {
    receive = std::min(receive, Rows::seconds([&] {
                         for (U32 number = 0; number < layout.switches; ++number) {
                           centre.receive(number, frames[number].rounds[round]);
                         }
                       }));
    fold = std::min(fold, Rows::seconds([&] { centre.passes(1); }) - idle);
  }
  U64 queued = 0;
  for (auto const& queue : centre.root().zebStreamEventsDir()->streamEventsQueueIterator()) {
    queued += queue->eventRecord().size();
  }
  if (queued != 0) fail("events wait after their batch");

  std::vector<std::vector<U32>> order(layout.switches);
  for (U32 number = 0; number < layout.switches; ++number) {
    std::shuffle(seen[number].begin(), seen[number].end(), random);
    for (auto const& [stream, ttl] : seen[number]) order[number].push_back(stream * ttls + ttl - 1);
  }
  FlatArrays peer(subStreams, std::move(order));
  double flat = 1e9;
  for (U32 round = 1; round <= rounds; ++round) {
    std::vector<std::string> flatFrames;
    for (U32 number = 0; number < layout.switches; ++number) flatFrames.push_back(peer.frame(number, round));
    flat = std::min(flat, Rows::seconds([&] {
                      for (U32 number = 0; number < layout.switches; ++number) peer.receive(number, flatFrames[number]);
                      peer.fold();
                    }));
  }
  if (peer.folded() != U64{subStreams} * rounds) fail("the peer has lost count");

  double const whole = receive + fold;
  std::printf("%10u %8u %8.2f %10.3f %8.0f %8.0f %10.0f %10.0f %10.2f %10.2f %8.1f\n", subStreams, layout.switches,
              start, statistics, used / subStreams, resident / subStreams, receive / subStreams * 1e9,
              fold / subStreams * 1e9, subStreams / whole * 1e-6, subStreams / flat * 1e-6, whole / flat);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2) {
    std::fprintf(stderr, "usage: bench_centre [SUBSTREAMS]\n");
    return 2;
  }
  std::printf("%10s %8s %8s %10s %8s %8s %10s %10s %10s %10s %8s\n", "substreams", "switches", "start", "statistics",
              "used", "resident", "receive", "fold", "updates", "flat", "times");
  std::printf("%10s %8s %8s %10s %8s %8s %10s %10s %10s %10s %8s\n", "", "", "s", "s", "bytes", "bytes", "ns", "ns",
              "M/s", "M/s", "flat's");
  std::fflush(stdout);
  if (argc == 2) {
    row(Rows::number("bench_centre", argv[1], 1000, 16'000'000));
    return 0;
  }
  for (U32 const subStreams : {10'000U, 1'000'000U, 4'000'000U})
    Rows::inItsOwnProcess([subStreams] { row(subStreams); });
  return 0;
}
