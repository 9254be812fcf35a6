// What the map does without looking at what it holds: its table, its growth, and the places of members.
#include "runtime/HashMap.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace Rix {

namespace {

// Without homes a table holds at most this many.
constexpr U32 smallSize = 8;
constexpr U32 firstHomes = 16;

// At most seven of eight homes are taken; growth by a quarter keeps at least five of eight taken from then on.
constexpr U32 fullSize(U32 homes) {
  return homes - homes / 8;
}
constexpr U32 nextHomes(U32 homes) {
  return homes == 0 ? firstHomes : homes + homes / 4;
}
// Room behind the last home, for the members that overflow it.
constexpr U32 capacityFor(U32 homes) {
  return homes + 8 + homes / 256;
}

// A map that is filled in its own order, as from a sweep of another map, has its members pile up before the homes of
// those to come. The pile is known by its last member, which stands this far behind its home, with nothing on as many
// slots after it.
constexpr U32 longPile = 64;
// The most homes a member that are made for those to come.
constexpr U32 mostHomesAMember = 64;

}  // namespace

std::size_t HashMapGeneric::bytesFor(U32 capacity) {
  return sizeof(Table) + sizeof(Slot) * (std::size_t{capacity} + 1);
}

std::size_t HashMapGeneric::tableBytes() const {
  return isTable() ? bytesFor(table()->capacity) : 0;
}

void HashMapGeneric::prefetchMember(U32 hash) const {
  if (!isTable()) {
    __builtin_prefetch(single());
    return;
  }
  U32 reversed = bitReverse(hash);
  Slot const* slot = table()->slots() + homeOf(*table(), reversed);
  while (slot->reversed < reversed) ++slot;
  __builtin_prefetch(slot->cell());
}

// ---- the table ----

static void clearSlots(void* first, std::size_t bytes) {
  std::memset(first, 0xff, bytes);
}

HashMapGeneric::Table* HashMapGeneric::allocate(U32 capacity) {
  void* block = std::malloc(bytesFor(capacity));
  if (!block) throw std::bad_alloc();
  auto* table = new (block) Table{0, 0, capacity};
  clearSlots(table->slots(), bytesFor(capacity) - sizeof(Table));
  return table;
}

// The table with another number of slots. What is added is empty, and so is the slot behind the last.
HashMapGeneric::Table* HashMapGeneric::resized(Table* table, U32 capacity) {
  U32 before = table->capacity;
  void* block = std::realloc(static_cast<void*>(table), bytesFor(capacity));
  if (!block) throw std::bad_alloc();
  table = static_cast<Table*>(block);
  table->capacity = capacity;
  U32 from = std::min(before, capacity);
  clearSlots(table->slots() + from, bytesFor(capacity) - sizeof(Table) - sizeof(Slot) * from);
  return table;
}

void HashMapGeneric::freeTable(Table* table) {
  std::free(table);
}

// Places all members anew, over `homes` homes and at least `capacity` slots: first all are moved together at the far
// end, then each is put to its home, or behind the one before it. A place is never beyond the member that is read, as
// long as those that are left fit behind it.
HashMapGeneric::Table* HashMapGeneric::spread(Table* table, U32 homes, U32 capacity) {
  if (capacity > table->capacity) table = resized(table, capacity);
  Slot* slots = table->slots();
  U32 read = table->capacity;
  for (U32 i = table->capacity; i-- > 0;) {
    Slot slot = slots[i];
    slots[read - 1] = slot;
    read -= U32{!slot.isEmpty()};
  }
  clearSlots(slots, sizeof(Slot) * read);
  table->homes = homes;
  U32 place = 0;
  for (U32 left = table->size; left > 0; --left, ++place, ++read) {
    Slot slot = slots[read];
    clearSlots(&slots[read], sizeof(Slot));
    place = std::max(place, homeOf(*table, slot.reversed));
    if (place > read) {
      // Too many belong at the end: move those that are left farther.
      U32 added = table->capacity / 8 + (place - read);
      table = resized(table, table->capacity + added);
      slots = table->slots();
      std::memmove(slots + read + 1 + added, slots + read + 1, sizeof(Slot) * (left - 1));
      clearSlots(slots + read + 1, sizeof(Slot) * std::min(added, left - 1));
      read += added;
    }
    slots[place] = slot;
  }
  U32 needed = std::max(capacity, place);
  return needed < table->capacity ? resized(table, needed) : table;
}

HashMapGeneric::Table* HashMapGeneric::tableWithRoom(ReversedOf reversedOf) {
  if (!isTable()) {
    void* cell = single();
    Table* table = allocate(2);
    Slot& slot = table->slots()[0];
    slot.reversed = reversedOf(cell);
    std::memcpy(slot.halves, &cell, sizeof(cell));
    table->size = 1;
    return table;
  }
  Table* table = this->table();
  RIX_ASSERT(table->size < maxSize);
  if (table->homes == 0) {
    if (table->size < table->capacity) return table;
    if (table->size < smallSize) return resized(table, std::min(smallSize, 2 * table->capacity));
  } else if (table->size < fullSize(table->homes)) {
    return table;
  }
  U32 homes = nextHomes(table->homes);
  return spread(table, homes, capacityFor(homes));
}

// Where a new member of this reversed hash belongs: behind those of the same one.
U32 HashMapGeneric::placeFor(Table& table, U32 reversed) {
  Slot const* slots = table.slots();
  U32 place = homeOf(table, reversed);
  while (slots[place].reversed <= reversed && !slots[place].isEmpty()) ++place;
  return place;
}

// The homes for as many members as there will be if they go on coming in order, as densely as up to this one, which
// would be the last of a long pile at `place`. No more than there are if it would not.
U32 HashMapGeneric::homesForPile(Table& table, U32 reversed, U32 place) {
  if (place - homeOf(table, reversed) < longPile || place + longPile > table.capacity) return table.homes;
  Slot const* slots = table.slots() + place;
  if (!std::all_of(slots, slots + longPile, [](Slot const& slot) { return slot.isEmpty(); })) return table.homes;
  if (slots[-static_cast<std::ptrdiff_t>(longPile)].reversed == reversed) return table.homes;  // nothing parts equals
  U64 const members = (U64{table.size} << 32) / (U64{reversed} + 1);
  U64 const homes = std::min({members + members / 3, U64{table.size} * mostHomesAMember, U64{maxSize}});
  return homes < nextHomes(table.homes) ? table.homes : static_cast<U32>(homes);
}

void HashMapGeneric::insertCell(U32 reversed, void* cell, ReversedOf reversedOf) {
  if (!word_) {
    singleIs(cell);
    tellInserted(reversed, 0);
    return;
  }
  Table* table = tableWithRoom(reversedOf);
  tableIs(table);
  U32 place = placeFor(*table, reversed);
  if (U32 const homes = homesForPile(*table, reversed, place); homes != table->homes) [[unlikely]] {
    table = spread(table, homes, capacityFor(homes));
    tableIs(table);
    place = placeFor(*table, reversed);
  }
  Slot* slots = table->slots();
  U32 free = place;
  while (!slots[free].isEmpty()) ++free;
  if (free == table->capacity) {
    table = resized(table, free + free / 8 + 8);
    tableIs(table);
    slots = table->slots();
  }
  std::memmove(slots + place + 1, slots + place, sizeof(Slot) * (free - place));
  slots[place].reversed = reversed;
  std::memcpy(slots[place].halves, &cell, sizeof(cell));
  ++table->size;
  tellInserted(reversed, place);
}

void HashMapGeneric::removeAt(U32 place, ReversedOf reversedOf) {
  if (!isTable()) {
    U32 reversed = newestCursor_ ? reversedOf(single()) : 0;
    tellRemoved(reversed, 0);
    word_ = nullptr;
    return;
  }
  Table* table = this->table();
  Slot* slots = table->slots();
  tellRemoved(slots[place].reversed, place);
  // Those behind move up, as far as the next gap or the next that stands at its home.
  U32 end = place + 1;
  while (!slots[end].isEmpty() && homeOf(*table, slots[end].reversed) < end) ++end;
  std::memmove(slots + place, slots + place + 1, sizeof(Slot) * (end - place - 1));
  clearSlots(&slots[end - 1], sizeof(Slot));
  --table->size;
  shrink();
}

void HashMapGeneric::shrink() {
  Table* table = this->table();
  if (table->size == 1 && table->homes == 0) {
    singleIs(table->slots()[0].cell());
    freeTable(table);
  } else if (table->size < table->capacity / 4 && (table->size <= smallSize || !isSwept())) {
    // Not while a sweep may be emptying it: what is left then stands at the end alone, and would pile up there.
    U32 homes = table->size < smallSize ? 0 : std::max(firstHomes, table->size + table->size / 2);
    U32 capacity = homes == 0 ? std::min(smallSize, 2 * table->size) : capacityFor(homes);
    tableIs(spread(table, homes, capacity));
  }
}

bool HashMapGeneric::isSwept() const {
  for (auto const* cursor = newestCursor_; cursor; cursor = cursor->older_) {
    if (cursor->map_ == this) return true;
  }
  return false;
}

void HashMapGeneric::replaceAt(U32 place, void* cell) {
  if (isTable()) {
    std::memcpy(table()->slots()[place].halves, &cell, sizeof(cell));
  } else {
    singleIs(cell);
  }
  for (auto* cursor = newestCursor_; cursor; cursor = cursor->older_) {
    if (cursor->map_ == this && !cursor->gone_ && cursor->placeNow() == place) cursor->cell_ = cell;
  }
}

HashMapGeneric::Contents HashMapGeneric::takeAll() {
  tellEmptied(false);
  return Contents(std::exchange(word_, nullptr));
}

HashMapGeneric::Contents HashMapGeneric::takeAllForGood() {
  tellEmptied(true);
  return Contents(std::exchange(word_, nullptr));
}

// ---- the cursors ----

// In the static block of the thread's memory, so that the look at it costs one load.
[[gnu::tls_model("initial-exec")]] constinit thread_local HashMapGeneric::Cursor* HashMapGeneric::newestCursor_ =
    nullptr;

U32 HashMapGeneric::ordinalAt(Table const& table, U32 place) {
  Slot const* slots = table.slots();
  U32 first = place;
  while (first > 0 && slots[first - 1].reversed == slots[place].reversed && !slots[first - 1].isEmpty()) --first;
  return place - first;
}

void HashMapGeneric::tellInserted(U32 reversed, U32 place) const {
  for (auto* cursor = newestCursor_; cursor; cursor = cursor->older_) {
    if (cursor->map_ != this) continue;
    cursor->stale_ = true;
    if (cursor->reversed_ == reversed && cursor->limit_ == none) {
      cursor->limit_ = isTable() ? ordinalAt(*table(), place) : 0;
    }
  }
}

void HashMapGeneric::tellRemoved(U32 reversed, U32 place) const {
  for (auto* cursor = newestCursor_; cursor; cursor = cursor->older_) {
    if (cursor->map_ != this) continue;
    cursor->stale_ = true;
    if (cursor->reversed_ != reversed) continue;
    U32 ordinal = isTable() ? ordinalAt(*table(), place) : 0;
    if (ordinal < cursor->ordinal_) {
      --cursor->ordinal_;
    } else if (ordinal == cursor->ordinal_ && !cursor->gone_) {
      cursor->gone_ = true;
    }
    if (cursor->limit_ != none && ordinal < cursor->limit_) --cursor->limit_;
  }
}

void HashMapGeneric::tellEmptied(bool forGood) const {
  for (auto* cursor = newestCursor_; cursor; cursor = cursor->older_) {
    if (cursor->map_ != this) continue;
    cursor->stale_ = true;
    cursor->gone_ = true;
    cursor->ordinal_ = 0;
    cursor->limit_ = 0;
    if (forGood) cursor->map_ = nullptr;
  }
}

HashMapGeneric::Cursor::Cursor(HashMapGeneric const& map, ReversedOf reversedOf) : map_(&map), older_(newestCursor_) {
  if (older_) older_->newer_ = this;
  newestCursor_ = this;
  if (map.isTable()) {
    // As if behind a member before all others; the step to the first makes its ordinal zero.
    reversed_ = none;
    ordinal_ = none;
    standAtOrBehind(0);
  } else if (map.empty()) {
    end();
  } else {
    cell_ = map.single();
    reversed_ = reversedOf(cell_);
  }
}

HashMapGeneric::Cursor::~Cursor() {
  if (older_) older_->newer_ = newer_;
  if (newer_) {
    newer_->older_ = older_;
  } else {
    newestCursor_ = older_;
  }
}

void HashMapGeneric::Cursor::standAtOrBehind(U32 place) {
  Table const& table = *map_->table();
  Slot const* slots = table.slots();
  for (; place < table.capacity; ++place) {
    Slot const& slot = slots[place];
    if (slot.isEmpty()) continue;
    if (slot.reversed == reversed_) {
      if (++ordinal_ >= limit_) continue;
    } else {
      reversed_ = slot.reversed;
      ordinal_ = 0;
      limit_ = none;
    }
    place_ = place;
    cell_ = slot.cell();
    gone_ = false;
    return;
  }
  end();
}

// Finds the next member after a change: the one at the ordinal that comes next among those of the same reversed hash,
// or else the first of a greater one.
void HashMapGeneric::Cursor::resume(ReversedOf reversedOf) {
  if (!map_) return end();
  bool changed = std::exchange(stale_, false);
  U32 next = gone_ ? ordinal_ : ordinal_ + 1;
  if (!map_->isTable()) {
    void* cell = map_->single();
    U32 reversed = cell ? reversedOf(cell) : 0;
    bool isNext = cell && changed && (reversed > reversed_ || (reversed == reversed_ && next == 0 && limit_ > 0));
    if (!isNext) return end();
    if (reversed != reversed_) limit_ = none;
    reversed_ = reversed;
    ordinal_ = 0;
    place_ = 0;
    cell_ = cell;
    gone_ = false;
    return;
  }
  Table const& table = *map_->table();
  Slot const* slots = table.slots();
  U32 place = homeOf(table, reversed_);
  while (slots[place].reversed < reversed_) ++place;
  for (U32 ordinal = 0; ordinal < next && slots[place].reversed == reversed_ && !slots[place].isEmpty(); ++ordinal) {
    ++place;
  }
  ordinal_ = next - 1;  // raised again by the step to a member of the same reversed hash
  standAtOrBehind(place);
}

U32 HashMapGeneric::Cursor::placeNow() const {
  if (atEnd() || gone_) return none;
  if (!stale_ || !map_->isTable()) return place_;
  Table const& table = *map_->table();
  U32 place = homeOf(table, reversed_);
  while (table.slots()[place].reversed < reversed_) ++place;
  return place + ordinal_;
}

}  // namespace Rix
