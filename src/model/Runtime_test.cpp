// The runtime's promises: counting, notification, attaching, owned reactors, timers, dispatch.
#include <gtest/gtest.h>

#include "model/gen/Config.h"
#include "runtime/Activity.h"
#include "runtime/Dir.h"
#include "runtime/OwnedMap.h"
#include "runtime/Reactor.h"

namespace {

using Rix::Name;
using Zeb::ZebConfig;
using Zeb::ZebProbeConfig;

struct Counted : Rix::PtrInterface {
  explicit Counted(int& ends) : ends_(ends) {}
  ~Counted() override { ++ends_; }
  int& ends_;
};

TEST(Ptr, TheLastReferenceDestroysTheObject) {
  int ends = 0;
  {
    Rix::Ptr<Counted> first = Rix::make<Counted>(ends);
    Rix::Ptr<Counted> second = first;
    EXPECT_EQ(first->references(), 2u);
    first = nullptr;
    EXPECT_EQ(ends, 0);
  }
  EXPECT_EQ(ends, 1);
}

TEST(Ptr, FlagsAndCountShareTheWordWithoutDisturbingEachOther) {
  int ends = 0;
  Rix::Ptr<Counted> object = Rix::make<Counted>(ends);
  object->hasNotificationActiveIs(true);
  object->rixDoZombieReactors(true);
  for (int i = 0; i < 1000; ++i) object->rixReference();
  EXPECT_EQ(object->references(), 1001u);
  EXPECT_TRUE(object->hasNotificationActive());
  EXPECT_TRUE(object->isZombie());
  for (int i = 0; i < 1000; ++i) object->rixRelease();
  EXPECT_TRUE(object->hasNotificationActive());
  object->hasNotificationActiveIs(false);
  EXPECT_EQ(object->references(), 1u);
  object = nullptr;
  EXPECT_EQ(ends, 1);
}

TEST(Ptr, CountsTheSameWithThreadSafePointers) {
  Rix::VFPtrInterface::enableThreadSafePointers = true;
  int ends = 0;
  {
    Rix::Ptr<Counted> first = Rix::make<Counted>(ends);
    Rix::Ptr<Counted> second = first;
    EXPECT_EQ(second->references(), 2u);
  }
  Rix::VFPtrInterface::enableThreadSafePointers = false;
  EXPECT_EQ(ends, 1);
}

TEST(PtrDeathTest, DereferencingNullPrintsTheExpression) {
  Rix::Ptr<Counted> none;
  EXPECT_DEATH(static_cast<void>(none->references()), "object_ != nullptr");
}

// A reactor that notes what it hears of one configuration.
struct ListenerSm : Rix::Reactor<ListenerSm> {
  struct RixConfig : Rix::Watch<RixConfig, ZebConfig const, ListenerSm> {
    using Watch::Watch;
    void onEnabled() override { pass(&ListenerSm::handleEnabled); }
    void onProbeConfig(Name const& name) override { pass(&ListenerSm::handleProbeConfig, name); }
  };
  explicit ListenerSm(Rix::Ptr<ZebConfig const> const& config, std::vector<std::string>* heard = nullptr)
      : heard_(heard ? *heard : own_) {
    config_.notifierIs(config);
  }
  template <class F>
  void rixParts(F&& f) {
    f(config_);
  }
  auto rixParameters() const { return std::tuple(Rix::Ptr<ZebConfig const>(config_.notifier())); }
  static constexpr std::array rixParameterNames{"config"};
  void handleEnabled() {
    heard_.push_back(config_->enabled() ? "enabled" : "disabled");
    if (whenHeard) whenHeard();
  }
  void handleProbeConfig(Name const& name) {
    heard_.push_back((config_->probeConfig(name) ? "+" : "-") + std::string(name.view()));
    if (whenHeard) whenHeard();
  }
  void doCleanup() { heard_.push_back("cleanup"); }

  std::vector<std::string> own_;
  std::vector<std::string>& heard_;
  std::function<void()> whenHeard;
  RixConfig config_{this};
};

using Heard = std::vector<std::string>;

TEST(Notification, AnEqualValueVisitsNobody) {
  auto config = Rix::make<ZebConfig>();
  auto listener = Rix::make<ListenerSm>(config);
  config->enabledIs(true);
  config->enabledIs(true);
  config->clearLossRecordsIs(7);
  EXPECT_EQ(listener->heard_, Heard{"enabled"});
}

TEST(Notification, AZombieReturnsWithoutCallingItsOwner) {
  auto config = Rix::make<ZebConfig>();
  auto listener = Rix::make<ListenerSm>(config);
  listener->rixDoZombieReactors(true);
  config->enabledIs(true);
  static_cast<ZebConfig::NotifieeConst&>(listener->config_).onEnabled();
  EXPECT_EQ(listener->heard_, Heard{});
}

TEST(Notification, AttachingSweepsTheMembersPresentOnceAndReadsNoPlainAttribute) {
  auto config = Rix::make<ZebConfig>();
  config->enabledIs(true);
  config->probeConfigIs("a");
  auto listener = Rix::make<ListenerSm>(config);
  EXPECT_EQ(listener->heard_, Heard{"+a"});
  listener->hasNotificationActiveIs(true);
  EXPECT_EQ(listener->heard_, Heard{"+a"});
}

TEST(Notification, AReactorTurnedOffHearsNothingAndIsToldNothingLater) {
  auto config = Rix::make<ZebConfig>();
  auto listener = Rix::make<ListenerSm>(config);
  listener->hasNotificationActiveIs(true);
  listener->hasNotificationActiveIs(false);
  config->enabledIs(true);
  EXPECT_EQ(config->notifieeCount(), 0u);
  listener->hasNotificationActiveIs(true);
  EXPECT_EQ(listener->heard_, Heard{});
  config->enabledIs(false);
  EXPECT_EQ(listener->heard_, Heard{"disabled"});
}

TEST(Notification, OrderIsThatOfRegistration) {
  auto config = Rix::make<ZebConfig>();
  Heard heard;
  std::vector<Rix::Ptr<ListenerSm>> listeners;
  for (int i = 0; i < 5; ++i) {
    listeners.push_back(Rix::make<ListenerSm>(config));
    listeners.back()->whenHeard = [&heard, i] { heard.push_back(std::to_string(i)); };
  }
  listeners.erase(listeners.begin() + 1);
  config->enabledIs(true);
  EXPECT_EQ(heard, (Heard{"0", "2", "3", "4"}));
}

TEST(Notification, OneAddedDuringAVisitIsNotVisitedAndOneRemovedIsNotCalled) {
  auto config = Rix::make<ZebConfig>();
  auto first = Rix::make<ListenerSm>(config);
  auto second = Rix::make<ListenerSm>(config);
  Rix::Ptr<ListenerSm> added;
  first->whenHeard = [&] {
    added = Rix::make<ListenerSm>(config);
    second->config_.notifierIs(nullptr);
  };
  config->enabledIs(true);
  EXPECT_EQ(second->heard_, Heard{});
  EXPECT_EQ(added->heard_, Heard{});
  EXPECT_EQ(config->notifieeCount(), 2u);
}

TEST(Notification, AnExceptionEndsThatHandlerAlone) {
  auto config = Rix::make<ZebConfig>();
  auto first = Rix::make<ListenerSm>(config);
  auto second = Rix::make<ListenerSm>(config);
  first->whenHeard = [] { Rix::throwRangeException("planted"); };
  config->enabledIs(true);
  EXPECT_EQ(second->heard_, Heard{"enabled"});
}

TEST(Notification, RandomNestedVisitsKeepOrderAndMembership) {
  auto config = Rix::make<ZebConfig>();
  std::vector<Rix::Ptr<ListenerSm>> listeners(40);
  U32 state = 12345;
  auto const random = [&state](U32 below) {
    state = state * 1664525 + 1013904223;
    return (state >> 8) % below;
  };
  int depth = 0;
  std::function<void()> const act = [&] {
    if (depth > 3) return;
    ++depth;
    auto& chosen = listeners[random(40)];
    if (chosen) {
      chosen->config_.notifierIs(chosen->config_.notifier() ? Rix::Ptr<ZebConfig const>()
                                                            : Rix::Ptr<ZebConfig const>(config));
    }
    if (random(3) == 0) config->enabledIs(!config->enabled());
    --depth;
  };
  for (auto& listener : listeners) {
    listener = Rix::make<ListenerSm>(config);
    listener->whenHeard = act;
  }
  for (int round = 0; round < 2000; ++round) {
    config->enabledIs(!config->enabled());
    U32 attached = 0;
    for (auto& listener : listeners) {
      attached += listener->config_.notifier() ? 1u : 0u;
      listener->heard_.clear();
    }
    ASSERT_EQ(config->notifieeCount(), attached);
  }
}

// Hears of nothing, so that it is never listed and still holds what it watches.
struct DeafWatch : Rix::Watch<DeafWatch, ZebConfig const, DeafWatch> {
  DeafWatch() : Watch(this) {}
};

// Attaches, moves, silences, deafens and destroys watchers at random, one or many to an entity, and compares after each
// step with what must hold: who is listed, who is told, and how many references each entity has.
void randomWatchers(U32 seed) {
  struct Watcher {
    Rix::Ptr<ListenerSm> hearing;
    std::unique_ptr<DeafWatch> deaf;
    std::size_t at = 0;  // the entity that both watch; `none` for none
    bool active = true;
    bool zombie = false;
  };
  constexpr std::size_t none = 4;
  std::array<Rix::Ptr<ZebConfig>, none> entities;
  for (auto& entity : entities) entity = Rix::make<ZebConfig>();
  std::array<Watcher, 5> watchers;
  for (auto& watcher : watchers) watcher = {Rix::make<ListenerSm>(nullptr), std::make_unique<DeafWatch>(), none};
  U32 state = seed;
  auto const random = [&state](std::size_t below) {
    state = state * 1664525 + 1013904223;
    return (state >> 8) % below;
  };
  for (int step = 0; step < 2000; ++step) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
    Watcher& one = watchers[random(watchers.size())];
    switch (random(5)) {
      case 0:
      case 1:
        one.at = random(none + 1);
        one.hearing->config_.notifierIs(one.at == none ? nullptr : entities[one.at].get());
        one.deaf->notifierIs(one.at == none ? nullptr : entities[one.at].get());
        break;
      case 2:
        one.active = !one.active;
        one.hearing->config_.isRegisteredNotifieeIs(one.active);
        break;
      case 3:
        one.zombie = !one.zombie;
        one.hearing->config_.rixDoZombieReactors(one.zombie);
        break;
      default:
        one = {Rix::make<ListenerSm>(nullptr), std::make_unique<DeafWatch>(), none};
    }
    std::size_t const written = random(none);
    for (auto& watcher : watchers) watcher.hearing->heard_.clear();
    entities[written]->enabledIs(!entities[written]->enabled());
    std::array<U32, none> watching{}, listed{};
    for (auto& watcher : watchers) {
      bool const hears = watcher.active && !watcher.zombie;
      if (watcher.at != none) {
        watching[watcher.at] += 2;
        listed[watcher.at] += hears ? 1 : 0;
      }
      ASSERT_EQ(watcher.hearing->heard_.size(), hears && watcher.at == written ? 1u : 0u);
    }
    for (std::size_t i = 0; i < none; ++i) {
      ASSERT_EQ(entities[i]->references(), 1 + watching[i]);
      ASSERT_EQ(entities[i]->notifieeCount(), listed[i]);
    }
  }
}

TEST(Notification, ListsAndCountsStayRightHoweverWatchersComeAndGo) {
  for (U32 seed = 1; seed <= 20; ++seed) randomWatchers(seed);
}

TEST(Notification, ListsAndCountsStayRightWithThreadSafePointersToo) {
  Rix::VFPtrInterface::enableThreadSafePointers = true;
  randomWatchers(21);
  Rix::VFPtrInterface::enableThreadSafePointers = false;
}

TEST(Notification, OneSilencedInTheSweepOfItsAttachIsNotTold) {
  auto config = Rix::make<ZebConfig>();
  config->probeConfigIs("a");
  auto listener = Rix::make<ListenerSm>(nullptr);
  listener->whenHeard = [&] { listener->config_.isRegisteredNotifieeIs(false); };
  listener->config_.notifierIs(config.get());
  EXPECT_EQ(listener->heard_, Heard{"+a"});
  EXPECT_EQ(config->notifieeCount(), 0u);
  config->enabledIs(true);
  EXPECT_EQ(listener->heard_, Heard{"+a"});
  EXPECT_EQ(config->references(), 2u);
}

TEST(Notification, OneThatMovesOnInTheSweepOfItsAttachIsToldThereAlone) {
  auto first = Rix::make<ZebConfig>();
  auto second = Rix::make<ZebConfig>();
  first->probeConfigIs("a");
  auto listener = Rix::make<ListenerSm>(nullptr);
  listener->whenHeard = [&] { listener->config_.notifierIs(second.get()); };
  listener->config_.notifierIs(first.get());
  first->enabledIs(true);
  second->enabledIs(true);
  EXPECT_EQ(listener->heard_, (Heard{"+a", "enabled"}));
  EXPECT_EQ(first->references(), 1u);
  EXPECT_EQ(first->notifieeCount(), 0u);
  EXPECT_EQ(second->notifieeCount(), 1u);
}

TEST(Collection, DelAllTellsOnceOfEachKey) {
  auto config = Rix::make<ZebConfig>();
  for (char const* name : {"a", "b", "c"}) config->probeConfigIs(name);
  auto listener = Rix::make<ListenerSm>(config);
  listener->heard_.clear();
  config->probeConfigDelAll();
  std::sort(listener->heard_.begin(), listener->heard_.end());
  EXPECT_EQ(listener->heard_, (Heard{"-a", "-b", "-c"}));
}

TEST(Collection, AnEntityMemberIsFoundAndNotReplaced) {
  auto config = Rix::make<ZebConfig>();
  ZebProbeConfig* first = config->probeConfigIs("a");
  first->rateIs(10);
  EXPECT_EQ(config->probeConfigIs("a"), first);
  EXPECT_EQ(config->probeConfig("a")->rate(), 10);
}

// An owner with one owned reactor and some by key.
struct OwnerSm : Rix::Reactor<OwnerSm> {
  template <class F>
  void rixParts(F&& f) {
    f(child_);
    f(byName_);
  }
  Rix::Owned<ListenerSm> child_;
  Rix::OwnedMap<Name, ListenerSm> byName_;
};

TEST(Owned, EqualParametersReturnTheSameObjectAndLeaveItsActivity) {
  auto config = Rix::make<ZebConfig>();
  auto owner = Rix::make<OwnerSm>();
  ListenerSm* child = owner->child_.is(Rix::Ptr<ZebConfig const>(config));
  EXPECT_TRUE(child->hasNotificationActive());
  child->hasNotificationActiveIs(false);
  EXPECT_EQ(owner->child_.is(Rix::Ptr<ZebConfig const>(config)), child);
  EXPECT_FALSE(child->hasNotificationActive());
}

TEST(Owned, OtherParametersReplaceTheObject) {
  auto owner = Rix::make<OwnerSm>();
  Rix::Ptr<ListenerSm> child = owner->child_.is(Rix::Ptr<ZebConfig const>(Rix::make<ZebConfig>()));
  EXPECT_NE(owner->child_.is(Rix::Ptr<ZebConfig const>(Rix::make<ZebConfig>())), child.get());
}

TEST(Owned, AKeyedOneWithOtherParametersIsANameInUse) {
  auto owner = Rix::make<OwnerSm>();
  owner->byName_.is("k", Rix::Ptr<ZebConfig const>(Rix::make<ZebConfig>()));
  try {
    owner->byName_.is("k", Rix::Ptr<ZebConfig const>());
    FAIL() << "expected NameInUseException";
  } catch (Rix::NameInUseException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute _config has a different "
                 "value of null than the current value of an object not allowed");
  }
}

TEST(Owned, ANullResultOfConstructionIsARangeException) {
  auto owner = Rix::make<OwnerSm>();
  try {
    owner->child_.adopt(nullptr);
    FAIL() << "expected RangeException";
  } catch (Rix::RangeException const& exception) {
    EXPECT_STREQ(exception.what(), "null ValidPtr");
  }
}

TEST(Owned, CleanupRunsWhenTheLastReferenceGoesAndNotBefore) {
  auto config = Rix::make<ZebConfig>();
  auto owner = Rix::make<OwnerSm>();
  Heard heard;
  auto parameters = Rix::Ptr<ZebConfig const>(config);
  Rix::Ptr<ListenerSm> kept = Rix::make<ListenerSm>(parameters, &heard);
  owner->child_.adopt(kept);
  owner->child_.del();
  EXPECT_FALSE(kept->hasNotificationActive());
  EXPECT_EQ(heard, Heard{});
  kept = nullptr;
  EXPECT_EQ(heard, Heard{"cleanup"});
}

TEST(Owned, ActivityAndZombieStateReachTheOwned) {
  auto config = Rix::make<ZebConfig>();
  auto owner = Rix::make<OwnerSm>();
  owner->hasNotificationActiveIs(true);
  ListenerSm* child = owner->child_.is(Rix::Ptr<ZebConfig const>(config));
  ListenerSm* member = owner->byName_.is("k", Rix::Ptr<ZebConfig const>(config));
  owner->hasNotificationActiveIs(false);
  EXPECT_FALSE(child->hasNotificationActive());
  EXPECT_FALSE(member->hasNotificationActive());
  config->enabledIs(true);
  EXPECT_EQ(child->heard_, Heard{});
  owner->rixDoZombieReactors(true);
  EXPECT_TRUE(child->isZombie());
  EXPECT_TRUE(member->isZombie());
}

// A reactor with one timer.
struct TimedSm : Rix::Reactor<TimedSm> {
  struct RixTimer : Rix::Watch<RixTimer, Rix::Clock, TimedSm> {
    RixTimer(TimedSm* owner, U8 rank) : Watch(owner), rank_(rank) {}
    void onTime() override { pass(&TimedSm::handleTimer); }
    U8 rank() const override { return rank_; }
    U8 rank_;
  };
  explicit TimedSm(std::vector<std::string>& heard, std::string name = "t", U8 rank = 128)
      : heard_(heard), name_(std::move(name)), timer_(this, rank) {
    timer_.notifierIs(Rix::ActivityManagerConfig::clock());
  }
  template <class F>
  void rixParts(F&& f) {
    f(timer_);
  }
  void handleTimer() {
    heard_.push_back(name_);
    timeMinWhenFired = timer_.timeMin();
    nowWhenFired = Rix::now();
    if (whenFired) whenFired();
  }
  std::vector<std::string>& heard_;
  std::string name_;
  double timeMinWhenFired = 0;
  double nowWhenFired = 0;
  std::function<void()> whenFired;
  RixTimer timer_;
};

struct Timers : testing::Test {
  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  Heard heard;
  void runTo(double now) {
    time.nowIs(now);
    activity.runDueTimers();
  }
};

TEST_F(Timers, FireOnceAndReadAsNotSetBeforeTheHandlerRuns) {
  auto timed = Rix::make<TimedSm>(heard);
  EXPECT_GT(timed->timer_.timeMin(), Rix::largestFiniteTime);
  timed->timer_.timeMinIs(101);
  runTo(100.9);
  EXPECT_EQ(heard, Heard{});
  runTo(101);
  EXPECT_EQ(heard, Heard{"t"});
  EXPECT_GT(timed->timeMinWhenFired, Rix::largestFiniteTime);
  runTo(200);
  EXPECT_EQ(heard, Heard{"t"});
}

TEST_F(Timers, PositiveInfinityDoesNotFire) {
  auto timed = Rix::make<TimedSm>(heard);
  timed->timer_.timeMinIs(101);
  timed->timer_.timeMinIs(Rix::never);
  runTo(1e9);
  EXPECT_EQ(heard, Heard{});
  EXPECT_EQ(activity.nextDeadline(), Rix::never);
}

TEST_F(Timers, ALateWakeUpSeesEachDeadlineAndTimeNeverGoesBack) {
  auto first = Rix::make<TimedSm>(heard, "a");
  auto second = Rix::make<TimedSm>(heard, "b");
  first->timer_.timeMinIs(101);
  second->timer_.timeMinIs(102);
  runTo(110);
  EXPECT_EQ(first->nowWhenFired, 101);
  EXPECT_EQ(second->nowWhenFired, 102);
  EXPECT_EQ(activity.now(), 110);
  EXPECT_EQ(activity.worstTimerLateness(), 9);
  first->timer_.timeMinIs(105);
  runTo(110);
  EXPECT_EQ(first->nowWhenFired, 110);
}

TEST_F(Timers, EqualDeadlinesGoByRankAndThenBySetting) {
  auto a = Rix::make<TimedSm>(heard, "a");
  auto b = Rix::make<TimedSm>(heard, "b");
  auto early = Rix::make<TimedSm>(heard, "early", U8{1});
  a->timer_.timeMinIs(101);
  b->timer_.timeMinIs(101);
  early->timer_.timeMinIs(101);
  runTo(101);
  EXPECT_EQ(heard, (Heard{"early", "a", "b"}));
}

TEST_F(Timers, DueTimersRunBeforeInputAndATurnEndsWithItsFlush) {
  auto timed = Rix::make<TimedSm>(heard);
  activity.flushIs([this] { heard.push_back("flush"); });
  timed->timer_.timeMinIs(101);
  time.nowIs(102);
  activity.dispatch([this] { heard.push_back("input"); });
  EXPECT_EQ(heard, (Heard{"t", "flush", "input", "flush"}));
}

TEST_F(Timers, ATimerThatFallsDueWhileOthersRunDoesNotRunBehindLaterInput) {
  // A clock that moves on each time it is read, as the system's does.
  struct MovingTime : Rix::TimeSource {
    double reading = 0;
    double now() override { return reading += 1; }
    double utcNow() override { return reading; }
  } moving;
  Rix::Activity busy(moving);
  Rix::Activity::Use useBusy(busy);
  auto timed = Rix::make<TimedSm>(heard);
  timed->timer_.timeMinIs(moving.reading + 1.5);
  double inputTime = 0;
  busy.dispatch([&] { inputTime = Rix::now(); });
  EXPECT_EQ(heard, Heard{});
  EXPECT_LT(inputTime, timed->timer_.timeMin());
  busy.runDueTimers();
  EXPECT_EQ(heard, Heard{"t"});
}

TEST_F(Timers, WhatIsPostedRunsAsATurnOfItsOwnAfterTheTimers) {
  auto timed = Rix::make<TimedSm>(heard);
  activity.flushIs([this] { heard.push_back("flush"); });
  timed->timer_.timeMinIs(101);
  activity.post([this] { heard.push_back("posted"); });
  EXPECT_EQ(activity.nextDeadline(), 100);
  runTo(101);
  EXPECT_EQ(heard, (Heard{"t", "flush", "posted", "flush"}));
}

TEST_F(Timers, AReactorTurnedOffLosesItsFiring) {
  auto timed = Rix::make<TimedSm>(heard);
  timed->hasNotificationActiveIs(true);
  timed->timer_.timeMinIs(101);
  timed->hasNotificationActiveIs(false);
  runTo(102);
  EXPECT_EQ(heard, Heard{});
}

TEST_F(Timers, ADestroyedReactorsTimerIsGone) {
  auto timed = Rix::make<TimedSm>(heard);
  timed->timer_.timeMinIs(101);
  timed = nullptr;
  runTo(102);
  EXPECT_EQ(heard, Heard{});
  EXPECT_EQ(activity.nextDeadline(), Rix::never);
}

TEST_F(Timers, RandomSettingsFireInOrder) {
  struct Expected {
    double time;
    int serial;
    bool operator<(Expected const& other) const { return std::tie(time, serial) < std::tie(other.time, other.serial); }
  };
  std::vector<Rix::Ptr<TimedSm>> timers;
  std::vector<Expected> wanted(300);
  U32 state = 1;
  auto const random = [&state](U32 below) {
    state = state * 1664525 + 1013904223;
    return (state >> 8) % below;
  };
  for (int i = 0; i < 300; ++i) timers.push_back(Rix::make<TimedSm>(heard, std::to_string(i)));
  int serial = 0;
  for (int change = 0; change < 5000; ++change) {
    auto const which = random(300);
    bool const off = random(5) == 0;
    int const round = change / 100;
    double const when = 101 + random(50) + round * 0.5;
    timers[which]->timer_.timeMinIs(off ? Rix::never : when);
    wanted[which] = {off ? Rix::never : when, serial++};
  }
  std::vector<std::pair<Expected, std::string>> order;
  for (std::size_t i = 0; i < 300; ++i) {
    if (wanted[i].time <= Rix::largestFiniteTime) order.emplace_back(wanted[i], std::to_string(i));
  }
  std::sort(order.begin(), order.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
  runTo(1000);
  Heard expected;
  for (auto const& [when, name] : order) expected.push_back(name);
  EXPECT_EQ(heard, expected);
}

// A reactor that notes the entities of one directory.
struct DirSm : Rix::Reactor<DirSm> {
  struct RixDir : Rix::Watch<RixDir, Rix::Dir const, DirSm> {
    using Watch::Watch;
    void onEntityPtr(Name const& name) override { pass(&DirSm::handleEntity, name); }
  };
  explicit DirSm(Rix::Ptr<Rix::Dir const> const& dir) { dir_.notifierIs(dir); }
  template <class F>
  void rixParts(F&& f) {
    f(dir_);
  }
  void handleEntity(Name const& name) {
    heard.push_back((dir_->entityRef(name) ? "+" : "-") + std::string(name.view()));
  }
  Heard heard;
  RixDir dir_{this};
};

TEST(Dir, TellsOfEntriesByNameAndMakesEntitiesOfANamedType) {
  auto dir = Rix::make<Rix::Dir>("d");
  dir->newEntity("Zeb::ZebConfig", "early");
  auto reactor = Rix::make<DirSm>(dir);
  auto made = dir->newEntity("Zeb::ZebConfig", "late");
  EXPECT_TRUE(Rix::dynamicCast<ZebConfig>(made));
  EXPECT_EQ(dir->entry("late")->status(), Rix::Dir::Entry::statusComplete);
  dir->entityDel("early");
  EXPECT_EQ(reactor->heard, (Heard{"+early", "+late", "-early"}));
  EXPECT_THROW(dir->newEntity("Zeb::ZebConfig", "late"), Rix::NameInUseException);
  EXPECT_THROW(dir->newEntity("Zeb::Nothing", "other"), Rix::RangeException);
}

}  // namespace
