// What a notification costs, beside Boost.Signals2, libsigc++ and a bare virtual call in the same process.
//
// Every row sets a counter on one of 256 entities in turn, so that none stays in a register and all stay near. Compare
// with PeerVirtualCall, which does the least that can be called the same.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sigc++/sigc++.h>

#include <boost/signals2.hpp>
#include <memory>
#include <set>
#include <vector>

#include "model/gen/ProbeStream.h"
#include "runtime/Activity.h"
#include "runtime/Reactor.h"

namespace {

using Zeb::ProbeStreamEgressStats;
constexpr std::size_t count = 256;

struct CountingSm : Rix::Reactor<CountingSm> {
  struct RixStats : Rix::Watch<RixStats, ProbeStreamEgressStats const, CountingSm> {
    using Watch::Watch;
    void onNumProbesTx() override { pass(&CountingSm::handleNumProbesTx); }
  };
  explicit CountingSm(Rix::Ptr<ProbeStreamEgressStats const> const& stats) { stats_.notifierIs(stats); }
  template <class F>
  void rixParts(F&& part) {
    part(stats_);
  }
  void handleNumProbesTx() { ++calls_; }
  U64 calls_ = 0;
  RixStats stats_{this};
};

// A watcher that acts by itself, to show what the handing over costs.
struct ActingWatch : Rix::Watch<ActingWatch, ProbeStreamEgressStats const, ActingWatch> {
  ActingWatch() : Watch(this) {}
  void onNumProbesTx() override { ++calls; }
  U64 calls = 0;
};

struct Stats {
  std::vector<Rix::Ptr<ProbeStreamEgressStats>> all;
  std::vector<Rix::Ptr<CountingSm>> watchers;
  explicit Stats(int watchersEach) {
    for (std::size_t i = 0; i < count; ++i) {
      all.push_back(Rix::make<ProbeStreamEgressStats>());
      for (int w = 0; w < watchersEach; ++w) watchers.push_back(Rix::make<CountingSm>(all.back()));
    }
  }
};

// The plain equivalent of an attribute: compare, store, call.
struct Listener {
  virtual ~Listener() = default;
  virtual void on() = 0;
};
struct CountingListener : Listener {
  void on() override { ++calls; }
  U64 calls = 0;
};
struct ForgettingListener : Listener {
  void on() override {}
};
// Two kinds, and made out of sight: else the compiler knows which one it is and calls nothing at all.
[[gnu::noinline]] std::unique_ptr<Listener> makeListener(std::int64_t kind) {
  if (kind == 1) return std::make_unique<CountingListener>();
  return std::make_unique<ForgettingListener>();
}
struct Bare {
  U64 value = 0;
  std::unique_ptr<Listener> listener;
  void set(U64 v) {
    if (value == v) return;
    value = v;
    if (listener) listener->on();
  }
};

template <class Set>
void run(benchmark::State& state, Set set) {
  U64 value = 0;
  for (auto _ : state) {
    ++value;
    for (std::size_t i = 0; i < count; ++i) set(i, value);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

void SetWithWatchers(benchmark::State& state) {
  Stats stats(static_cast<int>(state.range(0)));
  run(state, [&](std::size_t i, U64 value) { stats.all[i].get()->numProbesTxIs(value); });
}
BENCHMARK(SetWithWatchers)->Arg(0)->Arg(1)->Arg(4);

void SetWithAnActingWatcher(benchmark::State& state) {
  Stats stats(0);
  std::vector<std::unique_ptr<ActingWatch>> watchers;
  for (auto const& entity : stats.all) {
    watchers.push_back(std::make_unique<ActingWatch>());
    watchers.back()->notifierIs(entity.get());
  }
  run(state, [&](std::size_t i, U64 value) { stats.all[i].get()->numProbesTxIs(value); });
}
BENCHMARK(SetWithAnActingWatcher);

void SetEqual(benchmark::State& state) {
  Stats stats(1);
  run(state, [&](std::size_t i, U64) { stats.all[i].get()->numProbesTxIs(7); });
}
BENCHMARK(SetEqual);

void SetUnwatchedAttributeOfAWatchedEntity(benchmark::State& state) {
  Stats stats(1);
  run(state, [&](std::size_t i, U64 value) { stats.all[i].get()->epochIs(Sonar::Epoch{value}); });
}
BENCHMARK(SetUnwatchedAttributeOfAWatchedEntity);

void PeerVirtualCall(benchmark::State& state) {
  std::vector<std::unique_ptr<Bare>> all;
  for (std::size_t i = 0; i < count; ++i) {
    all.push_back(std::make_unique<Bare>());
    if (state.range(0) != 0) all.back()->listener = makeListener(state.range(0));
  }
  run(state, [&](std::size_t i, U64 value) { all[i]->set(value); });
}
BENCHMARK(PeerVirtualCall)->Arg(0)->Arg(1)->Arg(2);

void PeerSigc(benchmark::State& state) {
  struct Signalling {
    U64 value = 0;
    U64 calls = 0;
    sigc::signal<void()> changed;
  };
  std::vector<std::unique_ptr<Signalling>> all;
  for (std::size_t i = 0; i < count; ++i) {
    all.push_back(std::make_unique<Signalling>());
    auto* one = all.back().get();
    for (int w = 0; w < state.range(0); ++w) one->changed.connect([one] { ++one->calls; });
  }
  run(state, [&](std::size_t i, U64 value) {
    if (all[i]->value == value) return;
    all[i]->value = value;
    all[i]->changed.emit();
  });
}
BENCHMARK(PeerSigc)->Arg(1)->Arg(4);

void PeerBoostSignals2(benchmark::State& state) {
  struct Signalling {
    U64 value = 0;
    U64 calls = 0;
    boost::signals2::signal<void()> changed;
  };
  std::vector<std::unique_ptr<Signalling>> all;
  for (std::size_t i = 0; i < count; ++i) {
    all.push_back(std::make_unique<Signalling>());
    auto* one = all.back().get();
    one->changed.connect([one] { ++one->calls; });
  }
  run(state, [&](std::size_t i, U64 value) {
    if (all[i]->value == value) return;
    all[i]->value = value;
    all[i]->changed();
  });
}
BENCHMARK(PeerBoostSignals2);

// Each of many watchers leaves its entity and joins it again. Argument: how many others watch the entity.
void AttachAndDetach(benchmark::State& state) {
  Stats stats(static_cast<int>(state.range(0)));
  std::vector<Rix::Ptr<CountingSm>> watchers;
  for (auto const& entity : stats.all) watchers.push_back(Rix::make<CountingSm>(entity));
  run(state, [&](std::size_t i, U64) {
    auto& watch = watchers[i].get()->stats_;
    watch.notifierIs(nullptr);
    watch.notifierIs(stats.all[i].get());
  });
}
BENCHMARK(AttachAndDetach)->Arg(0)->Arg(1);

void PeerBoostSignals2AttachAndDetach(benchmark::State& state) {
  std::vector<boost::signals2::signal<void()>> all(count);
  std::vector<boost::signals2::connection> connections(count);
  U64 calls = 0;
  auto const connect = [&](std::size_t i) { connections[i] = all[i].connect([&calls] { ++calls; }); };
  for (std::size_t i = 0; i < count; ++i) connect(i);
  run(state, [&](std::size_t i, U64) {
    connections[i].disconnect();
    connect(i);
  });
}
BENCHMARK(PeerBoostSignals2AttachAndDetach);

// What an entity takes of the heap, its watchers and their reactors included; the figure is a counter, not a time.
void BytesPerEntity(benchmark::State& state) {
  constexpr std::size_t entities = 100'000;
  for (auto _ : state) {
    std::vector<Rix::Ptr<ProbeStreamEgressStats>> all(entities);
    std::vector<Rix::Ptr<CountingSm>> watchers(entities * static_cast<std::size_t>(state.range(0)));
    std::size_t const before = mallinfo2().uordblks;
    std::size_t made = 0;
    for (auto& entity : all) {
      entity = Rix::make<ProbeStreamEgressStats>();
      for (int w = 0; w < state.range(0); ++w) watchers[made++] = Rix::make<CountingSm>(entity);
    }
    state.counters["bytes"] = static_cast<double>(mallinfo2().uordblks - before) / entities;
    state.counters["fields"] = sizeof(U64) + sizeof(Sonar::Epoch);
    state.counters["entity"] = sizeof(ProbeStreamEgressStats);
    state.counters["reactor"] = sizeof(CountingSm);
  }
}
BENCHMARK(BytesPerEntity)->Arg(0)->Arg(1)->Arg(2)->Iterations(1);

// One million timers armed: each firing sets itself again, one second later.
void TimersFireAndSetAgain(benchmark::State& state) {
  Rix::VirtualTime time{0};
  Rix::Activity activity(time);
  Rix::Activity::Use use(activity);
  struct TimedSm : Rix::PtrInterface {
    struct RixTimer : Rix::Watch<RixTimer, Rix::Clock, TimedSm> {
      using Watch::Watch;
      void onTime() override { timeMinIs(Rix::now() + 1); }
    };
    RixTimer timer_{this};
  };
  constexpr std::size_t armed = 1'000'000;
  std::vector<std::unique_ptr<TimedSm>> timers;
  for (std::size_t i = 0; i < armed; ++i) {
    timers.push_back(std::make_unique<TimedSm>());
    timers.back()->timer_.notifierIs(Rix::ActivityManagerConfig::clock());
    timers.back()->timer_.timeMinIs(1 + static_cast<double>(i) / armed);
  }
  double now = 1;
  for (auto _ : state) {
    now += 0.1;
    time.nowIs(now);
    activity.runDueTimers();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(armed / 10));
}
BENCHMARK(TimersFireAndSetAgain)->Unit(benchmark::kMillisecond);

void PeerStdSetTimers(benchmark::State& state) {
  constexpr std::size_t armed = 1'000'000;
  std::set<std::pair<double, std::size_t>> timers;
  for (std::size_t i = 0; i < armed; ++i) timers.emplace(1 + static_cast<double>(i) / armed, i);
  double now = 1;
  for (auto _ : state) {
    now += 0.1;
    while (timers.begin()->first <= now) {
      auto const [when, which] = *timers.begin();
      timers.erase(timers.begin());
      timers.emplace(when + 1, which);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(armed / 10));
}
BENCHMARK(PeerStdSetTimers)->Unit(benchmark::kMillisecond);

}  // namespace
