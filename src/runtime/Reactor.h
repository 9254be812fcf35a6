// Reactors: the objects that hold all behaviour, and the two ways in which one owns another.
//
// A reactor derives from Rix::Reactor<Self> and lists, in rixParts, its watchers and then the reactors that it
// owns, in the order of its attributes. From this list follow its activity, its zombie state and its end:
//
//   struct ExampleSm : Rix::Reactor<ExampleSm> {
//     template <class F> void rixParts(F&& f) { f(config_); f(childSm_); }
//     auto rixParameters() const { return std::tuple(config_.notifier()); }  // what it was constructed with
//     static constexpr std::array rixParameterNames{"config"};
//     void doCleanup();                                                     // optional
//   };
//
// The end, when the last reference goes: doCleanup, then zombie, so that nothing runs while it is torn down, then
// what it owns is deleted in the order of the list, then the object.
#pragma once

#include <array>
#include <sstream>
#include <string>
#include <tuple>

#include "runtime/Entity.h"
#include "runtime/Exceptions.h"

namespace Rix {

template <class T>
class Owned;

// One kind of part each: watchers, owned reactors, and (in OwnedMap.h) reactors owned by key.
inline void partActiveIs(NotifieeBase& watcher, bool active) {
  watcher.isRegisteredNotifieeIs(active);
}
inline void partZombieIs(NotifieeBase& watcher, bool zombie) {
  watcher.rixDoZombieReactors(zombie);
}
inline void partEnd(NotifieeBase&) {}
template <class T>
void partActiveIs(Owned<T>& part, bool active) {
  if (part) part->hasNotificationActiveIs(active);
}
template <class T>
void partZombieIs(Owned<T>& part, bool zombie) {
  if (part) part->rixDoZombieReactors(zombie);
}
template <class T>
void partEnd(Owned<T>& part) {
  part.del();
}

template <class Self>
class Reactor : public PtrInterface {
 public:
  void hasNotificationActiveIs(bool active) override {
    if (!flagIs(activeBit, active)) return;
    self().rixParts([active](auto& part) { partActiveIs(part, active); });
  }
  void rixDoZombieReactors(bool zombie) override {
    if (!flagIs(zombieBit, zombie)) return;
    self().rixParts([zombie](auto& part) { partZombieIs(part, zombie); });
  }
  void doCleanup() {}

  // Whether it stands whole. The sweep of an attach may come before all that a handler needs is there: such a handler
  // asks this first, and handleInitialized, which sets it, makes up for what was not done.
  bool initialized() const { return flag(initializedBit); }

 protected:
  void initializedIs(bool initialized) { flagIs(initializedBit, initialized); }
  void handleZeroRef() override {
    rixReference();  // whoever takes a reference while this ends must not end it again
    self().doCleanup();
    self().rixDoZombieReactors(true);
    self().rixParts([](auto& part) { partEnd(part); });
    delete this;
  }

 private:
  static constexpr U64 initializedBit = U64{1} << 32;

  Self& self() { return static_cast<Self&>(*this); }
};

// How a constructor parameter reads in an error text.
template <class Value>
std::string parameterText(Value const& value) {
  if constexpr (requires(std::ostream & out) { out << value; }) {
    std::ostringstream text;
    text << value;
    return text.str();
  } else if constexpr (requires { value.get(); }) {
    return value.get() ? "an object" : "null";
  } else {
    return "an object";
  }
}

// At most one reactor, made and replaced by its constructor's arguments.
template <class T>
class Owned {
 public:
  // Returns the object if it was constructed with equal arguments; otherwise makes a new one, drops the old one and
  // turns the new one's notifications on.
  template <class... Arguments>
  T* is(Arguments const&... arguments) {
    if (object_ && object_->rixParameters() == std::tuple<Arguments const&...>(arguments...)) return object_.get();
    return adopt(make<T>(arguments...));
  }
  // Stores an object that was made elsewhere, under the same rule but for the comparison. Null: RangeException.
  T* adopt(Ptr<T> made) {
    if (!made) throwRangeException("null ValidPtr");
    object_.swap(made);
    made = nullptr;
    object_->hasNotificationActiveIs(true);
    return object_.get();
  }
  void del() {
    if (!object_) return;
    Ptr<T> old;
    old.swap(object_);
    old->hasNotificationActiveIs(false);
  }

  T* get() const { return object_.get(); }
  T* operator->() const { return object_.operator->(); }
  explicit operator bool() const { return static_cast<bool>(object_); }

 private:
  Ptr<T> object_;
};

}  // namespace Rix
