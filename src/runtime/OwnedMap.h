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

// How the members of an OwnedBy are kept: `find` gives null if there is none, `reactor` is what an iterator stands at.
template <class Key, class T>
struct KeptBesideTheirKeys {
  using Store = ValueMap<Key, Ptr<T>>;
  static T* find(Store const& store, Key const& key) {
    Ptr<T> const* found = store.find(key);
    return found ? found->get() : nullptr;
  }
  static void add(Store& store, Key const& key, Ptr<T> const& made) {
    store.is(key, made, [](Key const&) {});
  }
  static T& reactor(auto const& entry) { return *entry.value; }
};
template <class Key, class T>
struct KeptWithTheirKeys {
  using Store = EntityMap<Key, T>;
  static T* find(Store const& store, Key const& key) { return store.find(key); }
  static void add(Store& store, Key const&, Ptr<T> const& made) {
    store.adopt(made, [](Key const&) {});
  }
  static T& reactor(Ptr<T> const& member) { return *member; }
};

// One reactor for each key.
template <class Key, class T, template <class, class> class Kept>
class OwnedBy {
 public:
  T* find(Key const& key) const { return Kept<Key, T>::find(store_, key); }
  U32 size() const { return store_.size(); }
  auto begin() const { return store_.begin(); }
  auto end() const { return store_.end(); }

  // Returns the member of that key; if there is none, constructs one, stores it, and turns its notifications on.
  // A member that was constructed with other arguments: NameInUseException, which names the attribute.
  template <class... Arguments>
  T* is(Key const& key, Arguments const&... arguments) {
    if (T* found = find(key)) {
      checkOwnedParameters(*found, arguments...);
      return found;
    }
    Ptr<T> made = make<T>(arguments...);
    Kept<Key, T>::add(store_, key, made);
    made->hasNotificationActiveIs(true);
    return made.get();
  }
  void del(Key const& key) {
    Ptr<T> old = find(key);
    if (!old) return;
    store_.del(key, [](Key const&) {});
    old->hasNotificationActiveIs(false);
  }
  void delAll() {
    sweepKeys(store_, [this](Key const& key) { del(key); });
  }

  // As parts of a reactor (see Reactor.h).
  friend void partActiveIs(OwnedBy& part, bool active) {
    for (auto const& member : part) Kept<Key, T>::reactor(member).hasNotificationActiveIs(active);
  }
  friend void partZombieIs(OwnedBy& part, bool zombie) {
    for (auto const& member : part) Kept<Key, T>::reactor(member).rixDoZombieReactors(zombie);
  }
  friend void partEnd(OwnedBy& part) { part.delAll(); }

 private:
  typename Kept<Key, T>::Store store_;
};

// Iteration gives entries with `key` and `value`, a Ptr<T>.
template <class Key, class T>
using OwnedMap = OwnedBy<Key, T, KeptBesideTheirKeys>;

// For reactors that hold their key themselves (`rixKey`), in 32 bytes less for each: for those that exist by the
// million. Iteration gives Ptr<T>.
template <class Key, class T>
using OwnedSet = OwnedBy<Key, T, KeptWithTheirKeys>;

}  // namespace Rix
