// Rix::Watch: the nested watcher by which a reactor watches one entity.
//
//   struct RixConfig : Rix::Watch<RixConfig, ZebConfig const, RootSm> {
//     using Watch::Watch;
//     void onEnabled() override { pass(&RootSm::handleEnabled); }
//   };
//
// A watcher is an inline member of its reactor and only hands over: `pass` calls the reactor's handler unless the
// watcher is a zombie. It overrides the notifications that it wants, and of a collection the keyed one is enough:
// the keyless notification calls the keyed one for every key present. What is overridden is found when the class
// is compiled, so that attributes nobody watches cost nothing.
//
// Attaching (notifierIs) sweeps the watched collections once and then registers; plain attributes are read by
// whoever needs them. A watcher hears from its attach on until its reactor's notifications are turned off.
#pragma once

#include "runtime/Entity.h"

namespace Rix {

template <class Derived, class T, class Owner>
class Watch : public std::remove_const_t<T>::NotifieeConst {
 public:
  // `owner` is the reactor of which this watcher is a member.
  explicit Watch(Owner* owner) {
    auto const distance = reinterpret_cast<char*>(static_cast<NotifieeBase*>(this)) - reinterpret_cast<char*>(owner);
    RIX_ASSERT(distance >= 0 && distance % 8 == 0 && distance / 8 <= 0xffff, distance);
    this->ownerDistance_ = static_cast<U16>(distance / 8);
  }

  T* notifier() const { return static_cast<T*>(this->rixNotifier()); }
  T* operator->() const {
    RIX_ASSERT(notifier() != nullptr);
    return notifier();
  }
  T& operator*() const { return *operator->(); }
  explicit operator bool() const { return notifier() != nullptr; }
  void notifierIs(T* entity) {
    constexpr Interest interest = std::remove_const_t<T>::template rixInterestOf<Derived>();
    this->rixNotifierIs(const_cast<std::remove_const_t<T>*>(entity), interest,
                        (interest & std::remove_const_t<T>::rixCollections) != 0);
  }
  void notifierIs(Ptr<T> const& entity) { notifierIs(entity.get()); }

  Interest rixInterest() const final { return std::remove_const_t<T>::template rixInterestOf<Derived>(); }
  void rixSweep() final { this->rixSweepCollections(rixInterest()); }

  Owner& owner() {
    return *reinterpret_cast<Owner*>(reinterpret_cast<char*>(static_cast<NotifieeBase*>(this)) -
                                     8 * this->ownerDistance_);
  }

 protected:
  // A handler's name may stand for two: the keyless sweep, and the one that takes the key.
  void pass(void (Owner::*handler)()) {
    if (!this->isZombie()) (owner().*handler)();
  }
  template <class Key>
  void pass(void (Owner::*handler)(Key), std::remove_cvref_t<Key> const& key) {
    if (!this->isZombie()) (owner().*handler)(key);
  }
};

// Which overload of a collection's notification `D` declares: the address of the keyed one, if it is the only match.
template <class Key, class C>
constexpr auto keyedNotification(void (C::*notification)(Key)) {
  return notification;
}

}  // namespace Rix
