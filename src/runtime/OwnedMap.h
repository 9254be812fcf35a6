// Reactors owned by key.
#pragma once

#include "runtime/Collections.h"
#include "runtime/Reactor.h"

namespace Rix {

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
      checkParameters(*found, std::tuple<Arguments const&...>(arguments...),
                      std::make_index_sequence<sizeof...(Arguments)>());
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
  template <class Given, std::size_t... I>
  static void checkParameters(T const& member, Given const& given, std::index_sequence<I...>) {
    auto const current = member.rixParameters();
    (checkParameter(T::rixParameterNames[I], std::get<I>(current), std::get<I>(given)), ...);
  }
  template <class Current, class Given>
  static void checkParameter(char const* name, Current const& current, Given const& given) {
    if (current == given) return;
    throwNameInUseException(
        std::string("Reinstantiating the pointer interface where constructor parameter attribute _") + name +
        " has a different value of " + parameterText(given) + " than the current value of " + parameterText(current));
  }

  ValueMap<Key, Ptr<T>> map_;
};

}  // namespace Rix
