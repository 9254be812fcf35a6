// Reactors owned by key.
#pragma once

#include "runtime/Collections.h"
#include "runtime/Reactor.h"

namespace Rix {

// Raises NameInUseException, which names the attribute, if a reactor was constructed with other arguments than these.
template <class T, class... Arguments>
void checkOwnedParameters(T const& member, Arguments const&... arguments) {
  auto const check = [](char const* name, auto const& current, auto const& given) {
    if (current == given) return;
    throwNameInUseException(
        std::string("Reinstantiating the pointer interface where constructor parameter attribute _") + name +
        " has a different value of " + parameterText(given) + " than the current value of " + parameterText(current) +
        " not allowed");
  };
  auto const current = member.rixParameters();
  auto const given = std::tuple<Arguments const&...>(arguments...);
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    (check(T::rixParameterNames[I], std::get<I>(current), std::get<I>(given)), ...);
  }
  (std::make_index_sequence<sizeof...(Arguments)>());
}

// One reactor for each key. Iteration gives entries with `key` and `value`, a Ptr<T>.
template <class Key, class T>
class OwnedMap {
 public:
  T* find(Key const& key) const {
    Ptr<T> const* found = map_.find(key);
    return found ? found->get() : nullptr;
  }
  U32 size() const { return map_.size(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

  // Returns the member of that key; if there is none, constructs one, stores it, and turns its notifications on.
  // A member that was constructed with other arguments: NameInUseException, which names the attribute.
  template <class... Arguments>
  T* is(Key const& key, Arguments const&... arguments) {
    if (T* found = find(key)) {
      checkOwnedParameters(*found, arguments...);
      return found;
    }
    Ptr<T> made = make<T>(arguments...);
    map_.is(key, made, [](Key const&) {});
    made->hasNotificationActiveIs(true);
    return made.get();
  }
  void del(Key const& key) {
    Ptr<T> old = find(key);
    if (!old) return;
    map_.del(key, [](Key const&) {});
    old->hasNotificationActiveIs(false);
  }
  void delAll() {
    sweepKeys(map_, [this](Key const& key) { del(key); });
  }

 private:
  ValueMap<Key, Ptr<T>> map_;
};

// The same for reactors that hold their key themselves (`rixKey`), in 32 bytes less for each: for those that exist by
// the million. Iteration gives Ptr<T>.
template <class Key, class T>
class OwnedSet {
 public:
  T* find(Key const& key) const { return set_.find(key); }
  U32 size() const { return set_.size(); }
  auto begin() const { return set_.begin(); }
  auto end() const { return set_.end(); }

  template <class... Arguments>
  T* is(Key const& key, Arguments const&... arguments) {
    if (T* found = find(key)) {
      checkOwnedParameters(*found, arguments...);
      return found;
    }
    Ptr<T> made = make<T>(arguments...);
    set_.adopt(made, [](Key const&) {});
    made->hasNotificationActiveIs(true);
    return made.get();
  }
  void del(Key const& key) {
    Ptr<T> old = find(key);
    if (!old) return;
    set_.del(key, [](Key const&) {});
    old->hasNotificationActiveIs(false);
  }
  void delAll() {
    sweepKeys(set_, [this](Key const& key) { del(key); });
  }

 private:
  EntityMap<Key, T> set_;
};

template <class Key, class T>
void partActiveIs(OwnedSet<Key, T>& part, bool active) {
  for (auto const& member : part) member->hasNotificationActiveIs(active);
}
template <class Key, class T>
void partZombieIs(OwnedSet<Key, T>& part, bool zombie) {
  for (auto const& member : part) member->rixDoZombieReactors(zombie);
}
template <class Key, class T>
void partEnd(OwnedSet<Key, T>& part) {
  part.delAll();
}

}  // namespace Rix
