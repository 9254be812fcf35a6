// Rix::HashMap beside std::unordered_map and absl::flat_hash_map: a million records keyed by the stream ids of a full
// mesh of 1,000 consecutive addresses, held by counted pointers. Each map finds the same records in the same random
// order, and each hashes by the id's own kept hash (absl's is mixed once more, as its tags need).
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "model/ProbeStreamId.h"
#include "runtime/HashMap.h"

namespace {

using Zeb::ProbeStreamId;

struct Record : Rix::PtrInterface {
  explicit Record(ProbeStreamId const& streamId) : id(streamId) {}
  ProbeStreamId id;
  U64 present = 1;
  U64 counters[3] = {};
};
using RecordPtr = Rix::Ptr<Record>;

struct KeyOf {
  ProbeStreamId const& operator()(Record const& record) const { return record.id; }
};
struct StdHash {
  std::size_t operator()(ProbeStreamId const& id) const { return id.hash(); }
};
struct AbslHash {
  std::size_t operator()(ProbeStreamId const& id) const { return absl::Hash<U32>()(id.hash()); }
};

struct Ours {
  Rix::HashMap<KeyOf, ProbeStreamId, RecordPtr> map;
  void insert(RecordPtr const& record) { map.insert(record); }
  Record* find(ProbeStreamId const& id) const { return map.find(id); }
};
template <class Map>
struct Peer {
  Map map;
  void insert(RecordPtr const& record) { map.emplace(record->id, record); }
  Record* find(ProbeStreamId const& id) const {
    auto found = map.find(id);
    return found == map.end() ? nullptr : found->second.get();
  }
};
using Std = Peer<std::unordered_map<ProbeStreamId, RecordPtr, StdHash>>;
using Absl = Peer<absl::flat_hash_map<ProbeStreamId, RecordPtr, AbslHash>>;

// The ids of a mesh in which the destinations from `first` on are probed by all of `sources`.
std::vector<ProbeStreamId> mesh(U32 firstSource, U32 sources, U32 destinations) {
  std::vector<ProbeStreamId> ids;
  for (U32 source = 0; source < sources; ++source) {
    for (U32 destination = 0; destination <= destinations; ++destination) {
      if (destination == source) continue;
      ProbeStreamId::Fields fields;
      fields.srcIp = Netkit::IpAddr(0x0a000000 + firstSource + source);
      fields.dstIp = Netkit::IpAddr(0x0a000000 + destination);
      fields.ipProto = Netkit::IpProto(17);
      fields.streamPort = 20'000;
      ids.emplace_back(fields);
    }
  }
  return ids;
}

struct Data {
  std::vector<RecordPtr> records;
  std::vector<ProbeStreamId> present;
  std::vector<ProbeStreamId> absent;

  Data() {
    present = mesh(0, 1'000, 1'000);
    for (ProbeStreamId const& id : present) records.push_back(Rix::make<Record>(id));
    absent = mesh(1'001, 1'000, 1'000);
    std::mt19937 random(1);
    std::shuffle(present.begin(), present.end(), random);
    std::shuffle(absent.begin(), absent.end(), random);
  }
};

Data const& data() {
  static Data const& data = *new Data;
  return data;
}

template <class Map>
Map const& filled() {
  static Map const& filled = []() -> Map const& {
    auto& map = *new Map;
    for (RecordPtr const& record : data().records) map.insert(record);
    return map;
  }();
  return filled;
}

// Looks ids up and hands each record that is found to `use`, which returns a number.
template <class Map, class Use>
void lookUp(benchmark::State& state, std::vector<ProbeStreamId> const& ids, std::int64_t expected, Use const& use) {
  Map const& map = filled<Map>();
  std::size_t next = 0;
  std::int64_t found = 0;
  for (auto _ : state) {
    if (Record* record = map.find(ids[next])) found += use(*record);
    if (++next == ids.size()) next = 0;
  }
  if (found != expected * state.iterations()) state.SkipWithError("wrong result");
}

// The look-up alone: it ends with the address of the record.
template <class Map>
void find(benchmark::State& state) {
  lookUp<Map>(state, data().present, 1, [](Record&) { return 1; });
}

// A look-up as callers do it, which then read the record. (Ours has read the record's key already.)
template <class Map>
void hit(benchmark::State& state) {
  lookUp<Map>(state, data().present, 1, [](Record& record) { return static_cast<std::int64_t>(record.present); });
}

template <class Map>
void miss(benchmark::State& state) {
  lookUp<Map>(state, data().absent, 0, [](Record&) { return 1; });
}

// One insertion is one item. The longest of a build is its growth pause, given as the least of the builds: whatever
// else the machine does can only add to it.
template <class Map>
void build(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  auto const& records = data().records;
  auto pause = Clock::duration::max();
  for (auto _ : state) {
    auto map = std::make_unique<Map>();
    Clock::duration longest{};
    for (RecordPtr const& record : records) {
      auto begin = Clock::now();
      map->insert(record);
      longest = std::max(longest, Clock::now() - begin);
    }
    state.PauseTiming();
    pause = std::min(pause, longest);
    map.reset();
    state.ResumeTiming();
  }
  state.counters["pause_ms"] = std::chrono::duration<double, std::milli>(pause).count();
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}

// What a filled map takes from the heap, divided by its entries; the records are not in it.
template <class Map>
void bytes(benchmark::State& state) {
  double perEntry = 0;
  for (auto _ : state) {
    auto taken = [] {
      auto info = mallinfo2();
      return info.uordblks + info.hblkhd;
    };
    std::size_t before = taken();
    Map map;
    for (RecordPtr const& record : data().records) map.insert(record);
    perEntry = static_cast<double>(taken() - before) / static_cast<double>(data().records.size());
  }
  state.counters["bytes_per_entry"] = perEntry;
}

BENCHMARK_TEMPLATE(find, Ours);
BENCHMARK_TEMPLATE(find, Std);
BENCHMARK_TEMPLATE(find, Absl);
BENCHMARK_TEMPLATE(hit, Ours);
BENCHMARK_TEMPLATE(hit, Std);
BENCHMARK_TEMPLATE(hit, Absl);
BENCHMARK_TEMPLATE(miss, Ours);
BENCHMARK_TEMPLATE(miss, Std);
BENCHMARK_TEMPLATE(miss, Absl);
BENCHMARK_TEMPLATE(build, Ours)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_TEMPLATE(build, Std)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_TEMPLATE(build, Absl)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_TEMPLATE(bytes, Ours)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_TEMPLATE(bytes, Std)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_TEMPLATE(bytes, Absl)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
