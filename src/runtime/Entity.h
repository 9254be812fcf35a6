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

  // Whether it stands in the list of what it watches. A notifiee without an entity remembers the wish.
  bool isRegisteredNotifiee() const { return (flags_ & registeredFlag) != 0; }
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
  static constexpr U16 registeredFlag = 1;  // wants to be in the list
  static constexpr U16 zombieFlag = 2;
  static constexpr U16 listedFlag = 4;  // is in the list

  void rixListedIs(bool listed, Interest interest);

  U16 flags_ = registeredFlag;
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

  // How many notifiees are registered.
  U32 notifieeCount() const;

 protected:
  Entity() = default;

  // Visits the notifiees that are interested in the attribute; Call is a captureless or small callable taking the
  // Notifiee type.
  template <class Notifiee, class Call>
  void rixNotify(unsigned attribute, Call const& call) {
    if ((interest_ & interestBit(attribute)) == 0) return;
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
  void rixAdd(NotifieeBase& notifiee, Interest interest) {
    interest_ |= interest;
    if (watchers_ == 0) {
      watchers_ = reinterpret_cast<std::uintptr_t>(&notifiee);
    } else {
      rixAddToList(notifiee);
    }
  }
  void rixRemove(NotifieeBase& notifiee) {
    if ((watchers_ & listTag) == 0) {
      RIX_ASSERT(watchers_ == reinterpret_cast<std::uintptr_t>(&notifiee));
      watchers_ = 0;
      interest_ = 0;
    } else {
      rixRemoveFromList(notifiee);
    }
  }
  void rixAddToList(NotifieeBase& notifiee);
  void rixRemoveFromList(NotifieeBase& notifiee);
  List* rixList() const { return reinterpret_cast<List*>(watchers_ & ~listTag); }
  void rixCompact(List& list);

  static constexpr std::uintptr_t listTag = 1;

  Interest interest_ = 0;
  std::uintptr_t watchers_ = 0;  // 0: none; untagged: the one watcher; tagged: a List
};

// Whoever is interested in nothing is never listed: the watchers of a clock, for one.
inline void NotifieeBase::rixListedIs(bool listed, Interest interest) {
  if (((flags_ & listedFlag) != 0) == listed || (listed && interest == 0)) return;
  flags_ ^= listedFlag;
  if (listed) {
    notifier_->rixAdd(*this, interest);
  } else {
    notifier_->rixRemove(*this);
  }
}

inline void NotifieeBase::rixNotifierIs(Entity* entity, Interest interest, bool sweeps) {
  if (entity == notifier_) return;
  rixListedIs(false, interest);
  Entity* const old = std::exchange(notifier_, entity);
  if (entity) entity->rixReference();
  if (old) old->rixRelease();
  if (!entity || isZombie()) return;
  if (sweeps) {
    rixSweep();
    // The sweep may have moved this notifiee on to another entity, or none.
    if (notifier_ != entity || isZombie()) return;
  }
  if (isRegisteredNotifiee()) rixListedIs(true, interest);
}

}  // namespace Rix
