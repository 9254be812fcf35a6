// The hash map under every collection. Its members stand in the order of their keys' 32-bit hashes with the bits
// reversed, and members of equal hash in the order in which they came: the order depends on the members alone, not on
// the size of the table or on what it held before.
//
// A map without members is eight bytes; one member takes no table; up to eight stand in a sorted array. Beyond that
// the same array gets homes: a member's home is its reversed hash scaled to the number of homes, so homes rise as the
// hashes do, and a member stands at its home or as little behind it as the order allows. A slot is twelve bytes,
// reversed hash and pointer; the key is read in the member itself. Growth spreads the array over more homes, in place
// and from one end to the other. A map that is filled in its own order, as one map from a sweep of another, gets homes
// for those to come, and one that is emptied during a sweep keeps its homes until a removal after it.
//
// A sweep tolerates every change: cursors are listed, and what changes a map tells those that stand in it. Maps and
// their cursors belong to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "runtime/Assert.h"
#include "runtime/Hash.h"
#include "runtime/Ptr.h"
#include "runtime/Types.h"

namespace Rix {

/// What does not depend on the types of key and member: the table of reversed hashes and cells, and the cursors. A
/// cell is the address of a member.
class HashMapGeneric {
 public:
  HashMapGeneric(HashMapGeneric const&) = delete;
  HashMapGeneric& operator=(HashMapGeneric const&) = delete;

  U32 size() const { return isTable() ? table()->size : U32{word_ != nullptr}; }
  bool empty() const { return !word_; }
  /// The memory that the map holds beside its own eight bytes and its members, in bytes.
  std::size_t tableBytes() const;
  /// Begins to load what a look-up of a key of this hash will read first.
  void prefetch(U32 hash) const {
    if (!isTable()) return;
    Slot const* slot = table()->slots() + homeOf(*table(), bitReverse(hash));
    __builtin_prefetch(slot);
    __builtin_prefetch(slot + 5);
  }
  /// Begins to load the first member of this hash, some time after `prefetch`.
  void prefetchMember(U32 hash) const;

  /// The most members of a map.
  static constexpr U32 maxSize = 1U << 30;

 protected:
  /// The reversed hash of the member at `cell`, for the map of a single member, which keeps none.
  using ReversedOf = U32 (*)(void const* cell);
  static constexpr U32 none = std::numeric_limits<U32>::max();

  class Cursor;

  struct Slot {
    U32 reversed;
    U32 halves[2];  // the cell, whose place is not aligned for a pointer

    void* cell() const {
      void* cell;
      std::memcpy(&cell, halves, sizeof(cell));
      return cell;
    }
    bool isEmpty() const { return reversed == none && (halves[0] & halves[1]) == none; }
  };
  static_assert(sizeof(Slot) == 12 && sizeof(void*) == 8);

  // Followed by `capacity` slots and one that is always empty: every search ends there. With no homes, members stand
  // without a gap.
  struct Table {
    U32 size;
    U32 homes;
    U32 capacity;

    Slot* slots() { return reinterpret_cast<Slot*>(this + 1); }
    Slot const* slots() const { return reinterpret_cast<Slot const*>(this + 1); }
  };

  HashMapGeneric() = default;
  ~HashMapGeneric() = default;

  /// The place of the member of this reversed hash for which `matches(cell)` holds, or `none`.
  template <class Matches>
  U32 locate(U32 reversed, Matches const& matches) const {
    Slot const* slots = table()->slots();
    Slot const* slot = slots + homeOf(*table(), reversed);
    while (slot->reversed < reversed) ++slot;
    for (; slot->reversed == reversed && !slot->isEmpty(); ++slot) {
      // A stream and its reverse have one hash: the second's key is on its way while the first's is compared.
      __builtin_prefetch(slot[1].reversed == reversed ? slot[1].cell() : slot);
      if (matches(slot->cell())) return static_cast<U32>(slot - slots);
    }
    return none;
  }

  bool isTable() const { return word_ && !isSingle(); }
  Table* table() const { return static_cast<Table*>(static_cast<void*>(word_)); }
  /// The only member of a map without a table, or null.
  void* single() const { return isSingle() ? word_ - 1 : nullptr; }
  void* cellAt(U32 place) const { return isTable() ? table()->slots()[place].cell() : single(); }

  void insertCell(U32 reversed, void* cell, ReversedOf reversedOf);
  void removeAt(U32 place, ReversedOf reversedOf);
  void replaceAt(U32 place, void* cell);

  /// All that a map held, taken out of it.
  class Contents {
   public:
    explicit Contents(char* word) : word_(word) {}
    /// Calls `drop(cell)` for each, in order, and frees the table.
    template <class Drop>
    void dropAll(Drop const& drop) {
      HashMapGeneric held;
      held.word_ = std::exchange(word_, nullptr);
      if (!held.isTable()) {
        if (!held.empty()) drop(held.single());
      } else {
        Table* table = held.table();
        for (U32 i = 0; i < table->capacity; ++i) {
          if (!table->slots()[i].isEmpty()) drop(table->slots()[i].cell());
        }
        freeTable(table);
      }
    }

   private:
    char* word_;
  };
  /// Empties the map. Its cursors go on behind the place where they stand.
  Contents takeAll();
  /// The same, and the map is going away: its cursors are at their end.
  Contents takeAllForGood();

  /// A place in a sweep. Listed while it lives, so that changes of its map reach it.
  class Cursor {
   public:
    Cursor(Cursor const&) = delete;
    Cursor& operator=(Cursor const&) = delete;

    bool atEnd() const { return place_ == none; }

   protected:
    Cursor(HashMapGeneric const& map, ReversedOf reversedOf);
    ~Cursor();

    /// To the next member. Fast while the map has not changed.
    void step(ReversedOf reversedOf) {
      RIX_ASSERT(!atEnd());
      if (stale_ || !map_->isTable()) {
        resume(reversedOf);
      } else {
        standAtOrBehind(place_ + 1);
      }
    }
    /// The member that it stands on; the member must still be there.
    void* cell() const {
      RIX_ASSERT(!atEnd() && !gone_);
      return cell_;
    }
    /// The place of that member in the map as it is now, or `none` if it has gone.
    U32 placeNow() const;
    HashMapGeneric const* map() const { return map_; }

   private:
    friend class HashMapGeneric;
    void standAtOrBehind(U32 place);
    void resume(ReversedOf reversedOf);
    void end() { place_ = none; }

    HashMapGeneric const* map_;  // null when the map has gone
    Cursor* older_;
    Cursor* newer_ = nullptr;
    void* cell_ = nullptr;
    U32 place_ = 0;
    U32 reversed_ = 0;
    U32 ordinal_ = 0;     // among the members of the same reversed hash; if `gone_`, that of the next to visit
    U32 limit_ = none;    // members of this reversed hash from this ordinal on came during the sweep: not visited
    bool stale_ = false;  // the map has changed: the place must be found again
    bool gone_ = false;   // the member that it stood on has been taken out
  };

 private:
  static U32 homeOf(Table const& table, U32 reversed) { return static_cast<U32>(U64{reversed} * table.homes >> 32); }
  bool isSingle() const { return (reinterpret_cast<std::uintptr_t>(word_) & 1) != 0; }
  void singleIs(void* cell) { word_ = static_cast<char*>(cell) + 1; }
  void tableIs(Table* table) { word_ = static_cast<char*>(static_cast<void*>(table)); }
  static std::size_t bytesFor(U32 capacity);
  static Table* allocate(U32 capacity);
  static Table* resized(Table* table, U32 capacity);
  static Table* spread(Table* table, U32 homes, U32 capacity);
  static void freeTable(Table* table);
  static U32 ordinalAt(Table const& table, U32 place);
  static U32 placeFor(Table& table, U32 reversed);
  static U32 homesForPile(Table& table, U32 reversed, U32 place);
  Table* tableWithRoom(ReversedOf reversedOf);
  void shrink();
  bool isSwept() const;
  void tellInserted(U32 reversed, U32 place) const;
  void tellRemoved(U32 reversed, U32 place) const;
  void tellEmptied(bool forGood) const;

  // The newest cursor of this thread; each knows the next older one.
  [[gnu::tls_model("initial-exec")]] static thread_local Cursor* newestCursor_;

  // Null; or the single member's address and one, which makes it odd; or the table's address.
  char* word_ = nullptr;
};

/// How a map holds its members: each in a block of its own, which stays where it is while the member lives.
template <class Member>
struct HashMapMember {
  using Content = Member;
  using Reference = Member&;
  static void* hold(Member member) { return new Member(std::move(member)); }
  static Content* at(void* cell) { return static_cast<Member*>(cell); }
  static Reference refer(void* cell) { return *at(cell); }
  static Member take(void* cell) {
    std::unique_ptr<Member> held(at(cell));
    return std::move(*held);
  }
};

/// A counted object is held by its reference alone, and a sweep keeps the one that it stands on alive.
template <class T>
struct HashMapMember<Ptr<T>> {
  using Content = T;
  using Reference = Ptr<T>;
  static void* hold(Ptr<T> const& member) {
    member->rixReference();
    return const_cast<std::remove_const_t<T>*>(member.get());
  }
  static Content* at(void* cell) { return static_cast<T*>(cell); }
  static Reference refer(void* cell) { return Ptr<T>(at(cell)); }
  static Ptr<T> take(void* cell) {
    Ptr<T> member(at(cell));
    member->rixRelease();
    return member;
  }
};

/// A map of members, each of which holds its own key: `Owner()(member)` gives it. For members that are `Ptr<T>`,
/// `Owner` is given the T, and `find` finds the T. Pointers to members stay good while the member is in the map. A
/// constant map can be read and its members written, as with a pointer.
template <class Owner, class Key, class Member>
class HashMap : public HashMapGeneric {
  using Holding = HashMapMember<Member>;

 public:
  using Content = typename Holding::Content;

  HashMap() = default;
  ~HashMap() { takeAllForGood().dropAll(drop); }

  /// The member of this key, or null.
  Content* find(Key const& key) const {
    if (!isTable()) return singleOf(key);
    return find(key, hashOf(key));
  }
  /// The same for a key whose hash is at hand.
  Content* find(Key const& key, U32 hash) const {
    if (!isTable()) return singleOf(key);
    U32 place = locate(bitReverse(hash), Matches{key});
    return place == none ? nullptr : Holding::at(cellAt(place));
  }

  /// Adds a member whose key is not in the map.
  Content* insert(Member member) {
    void* cell = Holding::hold(std::move(member));
    std::unique_ptr<void, Dropper> guard(cell);
    decltype(auto) key = keyAt(cell);
    U32 hash = hashOf(key);
    RIX_ASSERT(!find(key, hash));
    insertCell(bitReverse(hash), cell, reversedOf);
    return Holding::at(guard.release());
  }

  /// The member of this key. If there is none, it is what `make()` returns, which must have this key and must not add
  /// it to this map itself.
  template <class Make>
  Content* findOrCreate(Key const& key, Make const& make) {
    if (Content* found = find(key)) return found;
    return insert(make());
  }

  /// Takes the member of this key out and drops it, after the map has settled. False if there is none.
  bool erase(Key const& key) {
    U32 place = placeOf(key);
    if (place == none) return false;
    eraseAt(place);
    return true;
  }

  /// Puts another member of the same key in the place of the one that is there. False if there is none.
  bool replace(Member member) {
    void* cell = Holding::hold(std::move(member));
    std::unique_ptr<void, Dropper> guard(cell);
    U32 place = placeOf(keyAt(cell));
    if (place == none) return false;
    std::unique_ptr<void, Dropper> replaced(cellAt(place));
    replaceAt(place, guard.release());
    return true;
  }

  /// Drops all members, after the map has been emptied.
  void clear() { takeAll().dropAll(drop); }

  /// The end of every sweep.
  struct End {};

  /// A sweep. It visits each member that is present from its begin to its end exactly once, in order, whatever is
  /// done to the map meanwhile, its destruction included; what is added behind the place where it stands is visited,
  /// unless it has the hash of the member at that place.
  class Cursor : public HashMapGeneric::Cursor {
   public:
    explicit Cursor(HashMap const& map) : HashMapGeneric::Cursor(map, reversedOf) {}
    typename Holding::Reference operator*() const { return Holding::refer(this->cell()); }
    Cursor& operator++() {
      this->step(reversedOf);
      return *this;
    }
    bool operator==(End) const { return this->atEnd(); }

   private:
    friend class HashMap;
  };

  Cursor begin() const { return Cursor(*this); }
  End end() const { return {}; }

  /// Drops the member on which a cursor of this map stands. The cursor goes on with what follows. False if that
  /// member has gone already.
  bool del(Cursor& cursor) {
    RIX_ASSERT(cursor.map() == this);
    U32 place = cursor.placeNow();
    if (place == none) return false;
    eraseAt(place);
    return true;
  }

 private:
  struct Matches {
    Key const& key;
    bool operator()(void* cell) const { return keyAt(cell) == key; }
  };
  struct Dropper {
    void operator()(void* cell) const { drop(cell); }
  };

  static decltype(auto) keyAt(void const* cell) {
    return Owner()(static_cast<Content const&>(*Holding::at(const_cast<void*>(cell))));
  }
  static U32 reversedOf(void const* cell) { return bitReverse(hashOf(keyAt(cell))); }
  static void drop(void* cell) { static_cast<void>(Holding::take(cell)); }

  Content* singleOf(Key const& key) const {
    void* cell = single();
    return cell && keyAt(cell) == key ? Holding::at(cell) : nullptr;
  }
  U32 placeOf(Key const& key) const {
    if (!isTable()) return singleOf(key) ? 0 : none;
    return locate(bitReverse(hashOf(key)), Matches{key});
  }
  void eraseAt(U32 place) {
    std::unique_ptr<void, Dropper> gone(cellAt(place));
    removeAt(place, reversedOf);
  }
};

}  // namespace Rix
