// The collections of records: entities by key, and values by key.
//
// Both stand on Rix::HashMap and add what every collection attribute does alike: find or make, compare before a write,
// and notify after each change. `notify` is called with the key, after the change.
#pragma once

#include "runtime/Exceptions.h"
#include "runtime/HashMap.h"
#include "runtime/Ptr.h"

namespace Rix {

// A collection whose members are entities, keyed by what each holds as its key. Iteration gives Ptr<T>.
template <class Key, class T>
class EntityMap {
 public:
  T* find(Key const& key) const { return map_.find(key); }
  U32 size() const { return map_.size(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

  // The member of that key; if there is none, one is made of `arguments`, stored, and told.
  template <class Notify, class... Arguments>
  T* is(Key const& key, Notify const& notify, Arguments const&... arguments) {
    if (T* found = find(key)) return found;
    Ptr<T> made = make<T>(arguments...);
    map_.insert(made);
    notify(made->rixKey());
    return made.get();
  }
  // Stores a finished member, whose key must be free, and tells.
  template <class Notify>
  void adopt(Ptr<T> const& made, Notify const& notify) {
    RIX_ASSERT(made && !find(made->rixKey()));
    Ptr<T> const keep = made;
    map_.insert(made);
    notify(keep->rixKey());
  }
  // Stores a reference under the member's own key. Null: RangeException with `nullText`.
  template <class Notify>
  void refer(Ptr<T> const& member, char const* nullText, Notify const& notify) {
    if (!member) throwRangeException(nullText);
    if (map_.find(member->rixKey()) == member.get()) return;
    Ptr<T> const keep = member;
    if (!map_.replace(keep)) map_.insert(keep);
    notify(keep->rixKey());
  }
  template <class Notify>
  void del(Key const& key, Notify const& notify) {
    Ptr<T> const gone = find(key);
    if (!gone) return;
    Key const held = key;  // `key` may stand in a record that a handler drops
    map_.erase(held);
    notify(held);
  }
  // Tells once of each key that was there.
  template <class Notify>
  void delAll(Notify const& notify) {
    for (auto const& member : map_) {
      Key const key = member->rixKey();
      del(key, notify);
    }
  }

 private:
  struct KeyOf {
    decltype(auto) operator()(T const& member) const { return member.rixKey(); }
  };
  HashMap<KeyOf, Key, Ptr<T>> map_;
};

// A collection of values. Iteration gives entries with `key` and `value`.
template <class Key, class Value>
class ValueMap {
 public:
  struct Entry {
    Key key;
    Value value;
  };
  Value const* find(Key const& key) const {
    Entry* found = map_.find(key);
    return found ? &found->value : nullptr;
  }
  // The value, or the default where there is none.
  Value const& get(Key const& key) const {
    static Value const none{};
    Value const* found = find(key);
    return found ? *found : none;
  }
  U32 size() const { return map_.size(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

  template <class Notify>
  void is(Key const& key, Value const& value, Notify const& notify) {
    Entry* found = map_.find(key);
    if (found && found->value == value) return;
    Key const held = key;
    if (found) {
      found->value = value;
    } else {
      map_.insert(Entry{held, value});
    }
    notify(held);
  }
  template <class Notify>
  void del(Key const& key, Notify const& notify) {
    Key const held = key;
    if (map_.erase(held)) notify(held);
  }
  template <class Notify>
  void delAll(Notify const& notify) {
    for (auto const& entry : map_) {
      Key const key = entry.key;
      del(key, notify);
    }
  }

 private:
  struct KeyOf {
    Key const& operator()(Entry const& entry) const { return entry.key; }
  };
  HashMap<KeyOf, Key, Entry> map_;
};

// The key of a member, whichever kind of collection it stands in.
template <class T>
decltype(auto) memberKey(Ptr<T> const& member) {
  return member->rixKey();
}
template <class Entry>
requires requires(Entry const& entry) {
  entry.key;
}
auto const& memberKey(Entry const& entry) {
  return entry.key;
}

// Calls visit(key) for every key present, tolerating any change of the collection by the visit.
template <class Map, class Visit>
void sweepKeys(Map const& map, Visit const& visit) {
  for (auto const& member : map) {
    auto const key = memberKey(member);
    visit(key);
  }
}

}  // namespace Rix
