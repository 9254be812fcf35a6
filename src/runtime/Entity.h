// Entities and those who watch them.
//
// The mental model. An Entity holds typed attributes. A writer compares, stores, and only then visits the
// notifiees that watch that attribute, nested on the writer's stack. Each entity type T has a generated class
// T::NotifieeConst with one virtual per notification, in declared order: onX() for a plain attribute, and
// onY(key), onYrixImmediate() and onY() for a collection. A reactor derives its watchers from it (see Watch.h).
//
// How a visit goes. Notifiees are called in the order of their registration. A notifiee that registers during a
// visit is not called by that visit; one that leaves during it is not called any more. An exception that leaves a
// notifiee ends that call alone.
//
// What it costs. An entity without watchers is its fields and 24 bytes. Which attributes a watcher overrides is
// known when it is compiled, and an entity keeps the union of its watchers' interest, so that writing an attribute
// that nobody watches reads one mask. One watcher stands in the entity itself; more of them in one heap block,
// where each knows its place: leaving costs the same however many there are.
#pragma once

#include <exception>

#include "runtime/Ptr.h"
#include "runtime/String8.h"

namespace Rix {

class Entity;
class Type;

// Bit i stands for the attribute with index i; everything from index 15 on shares the last bit.
using Interest = U16;
constexpr Interest interestBit(unsigned attribute) {
  return static_cast<Interest>(1u << (attribute < 15 ? attribute : 15));
}

// Asks the memory for the two lines from `at` on: what an entity or a reactor mostly takes. Null is nothing.
inline void prefetch(void const* at) {
  __builtin_prefetch(at);
  __builtin_prefetch(static_cast<char const*>(at) + 64);
}

// The base of every T::NotifieeConst: 24 bytes. It holds a reference to what it watches.
class NotifieeBase {
 public:
  NotifieeBase(NotifieeBase const&) = delete;
  NotifieeBase& operator=(NotifieeBase const&) = delete;

  // The hook for an exception that left one of this notifiee's handlers. The default writes a trace line.
  virtual void onNotificationException(std::exception const& exception);
  // The attributes that this notifiee wants to hear of.
  virtual Interest rixInterest() const = 0;
  // Calls the keyless notification of each watched collection, as at an attach.
  virtual void rixSweep() {}
  // One step further on Entity::rixPrefetch's way, through what this watcher's handlers will touch; step 0 is the first
  // that is not the reactor itself.
  virtual void rixPrefetch(unsigned /*step*/) {}

  // Whether it stands in the list of what it watches. A notifiee without an entity remembers the wish.
  bool isRegisteredNotifiee() const { return (flags_ & silencedFlag) == 0; }
  void isRegisteredNotifieeIs(bool registered);
  bool isZombie() const { return (flags_ & zombieFlag) != 0; }
  // A zombie hears nothing and sweeps nothing.
  void rixDoZombieReactors(bool zombie);

 protected:
  NotifieeBase() = default;
  virtual ~NotifieeBase();

  Entity* rixNotifier() const { return notifier_; }
  // Watches another entity, or none. Equal: nothing happens. Otherwise leaves the old one, sweeps the watched
  // collections of the new one (unless zombie), then registers there. `interest` is rixInterest(), and `sweeps` whether
  // it holds collections: the caller knows both when it is compiled.
  void rixNotifierIs(Entity* entity, Interest interest, bool sweeps);

  // The distance to the reactor that holds this watcher, in units of 8 bytes (see Watch.h).
  U16 ownerDistance_ = 0;

 private:
  friend class Entity;
  static constexpr U16 silencedFlag = 1;  // does not want to be in the list
  static constexpr U16 zombieFlag = 2;

  bool hears() const { return flags_ == 0; }
  // Puts it on the list of what it watches, or takes it off, as its flags want.
  void rixListAsWanted();
  void rixMove(Entity& entity, Interest interest, bool sweeps);

  U16 flags_ = 0;
  U32 position_ = 0;  // in the entity's list, when it has one
  Entity* notifier_ = nullptr;
};

class Entity : public PtrInterface {
 public:
  ~Entity() override;

  // What kind of entity this is: its name, how to make one, and the list of its attributes.
  virtual Type const& fwkType() const = 0;
  // The name of a named entity, else empty: where the key is the name, no second one is kept.
  virtual Name name() const { return {}; }

  // Asks the memory for what a write to the entity will touch, before it is written: at step 0 the entity itself, then
  // its only watcher, and then what lies on the way of that one's handlers. Whoever knows its writes ahead calls this
  // for each of them step by step, some writes apart, so that each step finds what the one before it has asked for.
  static void rixPrefetch(Entity const* entity, unsigned step) {
    if (step == 0) return prefetch(entity);
    if (!entity || entity->watchers_ == 0 || (entity->watchers_ & listTag) != 0) return;
    auto* const watcher = reinterpret_cast<NotifieeBase*>(entity->watchers_);
    step == 1 ? prefetch(watcher) : watcher->rixPrefetch(step - 2);
  }

  // How many notifiees are registered.
  U32 notifieeCount() const;

 protected:
  Entity() = default;

  // Visits the notifiees that are interested in the attribute; Call is a captureless or small callable taking the
  // Notifiee type.
  template <class Notifiee, class Call>
  void rixNotify(unsigned attribute, Call const& call) {
    if ((rixInterest() & interestBit(attribute)) == 0) return;
    if ((watchers_ & listTag) == 0) {
      rixGuarded(
          *reinterpret_cast<NotifieeBase*>(watchers_),
          [](NotifieeBase& notifiee, void const* erased) {
            (*static_cast<Call const*>(erased))(static_cast<Notifiee&>(notifiee));
          },
          &call);
    } else {
      rixVisitList([](NotifieeBase& notifiee,
                      void const* erased) { (*static_cast<Call const*>(erased))(static_cast<Notifiee&>(notifiee)); },
                   &call);
    }
  }

 private:
  friend class NotifieeBase;
  struct List;
  using ErasedCall = void (*)(NotifieeBase&, void const*);

  static void rixGuarded(NotifieeBase& notifiee, ErasedCall call, void const* argument) {
    try {
      call(notifiee, argument);
    } catch (std::exception const& exception) {
      notifiee.onNotificationException(exception);
    }
  }
  void rixVisitList(ErasedCall call, void const* argument);

  // The union of the watchers' interest; may be more than that while a list has gaps.
  Interest rixInterest() const { return static_cast<Interest>(upperWord() >> 16); }
  void rixInterestIs(Interest interest) { upperWordIs(U32{interest} << 16); }

  // Whether the notifiee is in the list. Whoever is interested in nothing never is: the watchers of a clock, for one.
  bool rixHolds(NotifieeBase const& notifiee) const {
    return watchers_ == reinterpret_cast<std::uintptr_t>(&notifiee) || rixListHolds(notifiee);
  }
  // Lists the notifiee, which is not listed, and takes a reference for it; of the only watcher, both in one step.
  void rixAdd(NotifieeBase& notifiee, Interest interest) {
    if (watchers_ == 0 && interest != 0) [[likely]] {
      watchers_ = reinterpret_cast<std::uintptr_t>(&notifiee);
      rixReference(U32{interest} << 16);
    } else {
      rixReference();
      if (interest != 0) rixAddToList(notifiee, interest);
    }
  }
  // Drops its reference, and takes it off the list if it is there. `interest` is what it was listed with.
  void rixRemove(NotifieeBase& notifiee, Interest interest) {
    if (watchers_ == reinterpret_cast<std::uintptr_t>(&notifiee)) [[likely]] {
      watchers_ = 0;
      rixRelease(U32{interest} << 16);
    } else {
      if (watchers_ != 0) rixRemoveFromList(notifiee);
      rixRelease();
    }
  }
  void rixAddToList(NotifieeBase& notifiee, Interest interest);
  void rixRemoveFromList(NotifieeBase& notifiee);
  bool rixListHolds(NotifieeBase const& notifiee) const;
  List* rixList() const { return reinterpret_cast<List*>(watchers_ & ~listTag); }
  void rixCompact(List& list);

  static constexpr std::uintptr_t listTag = 1;

  std::uintptr_t watchers_ = 0;  // 0: none; untagged: the one watcher; tagged: a List
};

inline void NotifieeBase::rixNotifierIs(Entity* entity, Interest interest, bool sweeps) {
  Entity* const old = notifier_;
  if (entity == old) return;
  if (!entity) {
    notifier_ = nullptr;
    old->rixRemove(*this, interest);
  } else if (!old && !sweeps && hears()) [[likely]] {
    notifier_ = entity;
    entity->rixAdd(*this, interest);
  } else {
    rixMove(*entity, interest, sweeps);
  }
}

}  // namespace Rix
