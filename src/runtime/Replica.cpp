// Following a writer: the check of what arrives, the application of deltas, and of snapshots as a difference.
#include "runtime/Replica.h"

#include <algorithm>
#include <set>

#include "runtime/Assert.h"

namespace Rix {

// The first pass: reads everything once, and remembers what the frame itself brings and takes away, so that each step
// is held against the tree as it will be by then.
struct Replica::Check {
  struct Brought {
    Record const* record;
    U32 parent;
    bool gone = false;
  };
  using Key = std::tuple<U32, unsigned, std::string>;  // parent, attribute, key

  Check(Replica const& r, std::string_view payload) : replica(r), reader(payload) {}

  // A child's body, behind its slot and serial. `dense`: slots count up from zero.
  void body(Record const& record, U32 parent, bool dense) {
    std::size_t const at = reader.position();
    U32 const slot = decoded<U32>(reader);
    decoded<U32>(reader);
    if (dense && slot != brought.size()) refuse(at, "slot", std::to_string(brought.size()), slot);
    if (standing(slot) || !brought.emplace(slot, Brought{&record, parent}).second) {
      refuse(at, "slot", "one that is free", slot);
    }
    highest = std::max(highest, slot);
    for (auto const& field : record.fields()) attribute(*field, slot, dense);
  }

  void attribute(Field const& field, U32 slot, bool dense) {
    switch (field.kind()) {
      case AttributeKind::constant:
      case AttributeKind::plain:
        field.check(reader);
        break;
      case AttributeKind::values:
        for (U64 left = reader.variable("number of values", reader.left()); left > 0; --left) field.checkEntry(reader);
        break;
      case AttributeKind::owned:
      case AttributeKind::entities: {
        U64 const most = field.kind() == AttributeKind::owned ? 1 : reader.left();
        std::set<std::string_view> siblings;
        for (U64 left = reader.variable("number of records", most); left > 0; --left) {
          std::string_view const key = childKey(field);
          if (!siblings.insert(key).second)
            reader.malformed("key of " + std::string(field.name()), "a free one", "a used one");
          if (!dense) know({slot, field.index(), std::string(key)});
          body(field.child(), slot, dense);
        }
        break;
      }
      default:
        break;
    }
  }

  // The key of the child that comes next, which stays to be read.
  std::string_view childKey(Field const& field) {
    std::size_t const at = reader.position();
    decoded<U32>(reader);
    decoded<U32>(reader);
    std::size_t const from = reader.position();
    if (field.kind() == AttributeKind::entities) field.child().fields()[0]->check(reader);
    std::string_view const key = reader.since(from);
    reader.positionIs(at);
    return key;
  }

  void finish() {
    if (!reader.atEnd()) reader.malformed("end", "no more bytes", std::to_string(reader.left()));
    // Slots that nothing fills would let a few bytes ask for any amount of memory.
    if (highest >= replica.nodes_.size() + brought.size()) {
      reader.malformed("slots", "no gap behind " + std::to_string(replica.nodes_.size()), std::to_string(highest));
    }
  }

  bool standing(U32 slot) const { return !fresh && slot < replica.kindAt_.size() && replica.kindAt_[slot] != 0; }

  // The record in a slot, which must be there by now, and so must all above it.
  Record const& record(std::size_t at, U32 slot) {
    if (slot == none) refuse(at, "slot", "one that is in use", slot);
    if (brought.empty() && removed.empty() && standing(slot)) return replica.recordAt(slot);
    Record const* found = nullptr;
    for (U32 above = slot; above != none;) {
      auto const own = brought.find(above);
      bool const gone = removed.contains(above) || (own != brought.end() && own->second.gone);
      if (gone || (own == brought.end() && !standing(above))) refuse(at, "slot", "one that is in use", slot);
      if (!found) found = own != brought.end() ? own->second.record : &replica.recordAt(above);
      // Without a deletion so far, what stands below a standing record stands.
      if (own == brought.end() && removed.empty() && !anyGone) break;
      above = own != brought.end() ? own->second.parent : replica.nodes_[above].parent;
    }
    return *found;
  }

  [[noreturn]] void refuse(std::size_t at, std::string_view what, std::string const& expected, U32 found) {
    reader.positionIs(at);
    reader.malformed(what, expected, std::to_string(found));
  }

  std::vector<DeltaStep> delta() {
    std::vector<DeltaStep> steps;
    U32 slot = none;
    Record const* selected = nullptr;
    while (!reader.atEnd()) {
      std::size_t const at = reader.position();
      auto const step = static_cast<Step>(reader.fixed<U8>("step"));
      if (step == Step::at) {
        slot = decoded<U32>(reader);
        selected = &record(at, slot);
        continue;
      }
      if (step < Step::at || step > Step::remove) refuse(at, "step", "1 to 6", static_cast<U32>(step));
      if (!selected) refuse(at, "step", "a record to be selected first", static_cast<U32>(step));
      if (step == Step::remove) {
        if (slot == 0) refuse(at, "slot to remove", "one below the root", slot);
        takeAway(slot);
        steps.push_back({step, slot, nullptr, 0});
        selected = nullptr;
        continue;
      }
      Field const& field = selected->field(reader.fixed<U8>("attribute"), reader);
      steps.push_back({step, slot, &field, reader.position()});
      change(step, field, slot, at);
    }
    finish();
    return steps;
  }

  void change(Step step, Field const& field, U32 slot, std::size_t at) {
    AttributeKind const kind = field.kind();
    if (step == Step::write && kind == AttributeKind::plain) {
      field.check(reader);
    } else if (step == Step::put && kind == AttributeKind::values) {
      field.checkEntry(reader);
    } else if (step == Step::erase && kind == AttributeKind::values) {
      field.checkKey(reader);
    } else if (step == Step::create && field.ownsEntities()) {
      create(field, slot);
    } else {
      refuse(at, "step on " + std::string(field.name()), "one that fits its kind", static_cast<U32>(step));
    }
  }

  void create(Field const& field, U32 parent) {
    std::string_view const key = childKey(field);
    if (present(field, parent, key))
      reader.malformed("key of " + std::string(field.name()), "a free one", "a used one");
    know({parent, field.index(), std::string(key)});
    body(field.child(), parent, false);
  }

  bool present(Field const& field, U32 parent, std::string_view key) const {
    auto const known = keys.find({parent, field.index(), std::string(key)});
    if (known != keys.end()) return known->second;
    if (brought.contains(parent)) return false;
    return field.member(*replica.nodes_[parent].entity, key) != nullptr;
  }

  // The child that comes next has this key.
  void know(Key const& key) {
    std::size_t const at = reader.position();
    keyOf[decoded<U32>(reader)] = key;
    reader.positionIs(at);
    keys[key] = true;
  }

  void takeAway(U32 slot) {
    anyGone = true;
    auto const own = brought.find(slot);
    if (own != brought.end()) {
      own->second.gone = true;
      keys[keyOf.at(slot)] = false;
      return;
    }
    removed.insert(slot);
    Node const& node = replica.nodes_[slot];
    Field const& field = *replica.recordAt(node.parent).fields()[node.field];
    ByteWriter key;
    if (field.kind() == AttributeKind::entities) field.child().fields()[0]->encode(*node.entity, key);
    keys[{node.parent, field.index(), std::string(key.view())}] = false;
  }

  Replica const& replica;
  ByteReader reader;
  bool fresh = false;  // held against an empty tree
  bool anyGone = false;
  U32 highest = 0;
  std::map<U32, Brought> brought;
  std::set<U32> removed;
  std::map<Key, bool> keys;  // whether a key that the frame touched is in use
  std::map<U32, Key> keyOf;  // of the children that the frame made
};

Replica::Replica(Record const& record, NewWriter newWriter, RootChanged rootChanged)
    : record_(record), newWriter_(newWriter), rootChanged_(std::move(rootChanged)) {}

Replica::~Replica() = default;

void Replica::place(U32 slot, U32 serial, Ptr<Entity> const& entity, U32 parent, unsigned field) {
  if (slot >= nodes_.size()) {
    nodes_.resize(slot + std::size_t{1});
    kindAt_.resize(slot + std::size_t{1});
  }
  auto kind = std::find(kinds_.begin(), kinds_.end(), &recordOf(*entity));
  if (kind == kinds_.end()) kind = kinds_.insert(kind, &recordOf(*entity));
  RIX_ASSERT(kinds_.size() < 256);
  kindAt_[slot] = static_cast<U8>(kind - kinds_.begin() + 1);
  Node& node = nodes_[slot];
  node = {entity, serial, parent, none, none, none, static_cast<U8>(field)};
  ++records_;
  if (parent == none) return;
  node.next = nodes_[parent].firstChild;
  if (node.next != none) nodes_[node.next].previous = slot;
  nodes_[parent].firstChild = slot;
}

// Takes a record and all below it out of the slots.
void Replica::forget(U32 slot) {
  Node& node = nodes_[slot];
  if (node.previous != none) {
    nodes_[node.previous].next = node.next;
  } else if (node.parent != none) {
    nodes_[node.parent].firstChild = node.next;
  }
  if (node.next != none) nodes_[node.next].previous = node.previous;
  while (nodes_[slot].firstChild != none) forget(nodes_[slot].firstChild);
  nodes_[slot] = Node{};
  kindAt_[slot] = 0;
  --records_;
}

// Makes a record with all that the frame gives it. Nobody watches it yet, so nobody hears of this.
Ptr<Entity> Replica::build(Record const& record, ByteReader& reader, U32 parent, unsigned field) {
  U32 const slot = decoded<U32>(reader);
  U32 const serial = decoded<U32>(reader);
  Ptr<Entity> made = record.make(reader);
  place(slot, serial, made, parent, field);
  for (auto const& each : record.fields()) {
    switch (each->kind()) {
      case AttributeKind::plain:
        each->apply(*made, reader);
        break;
      case AttributeKind::values:
        for (U64 left = reader.variable("number of values"); left > 0; --left) each->applyEntry(*made, reader);
        break;
      case AttributeKind::owned:
      case AttributeKind::entities:
        // What the record has made for itself gives way to what the writer has.
        for (auto const& own : each->members(*made)) each->remove(*made, *own);
        for (U64 left = reader.variable("number of records"); left > 0; --left) {
          each->adopt(*made, build(each->child(), reader, slot, each->index()));
        }
        break;
      default:
        break;
    }
  }
  return made;
}

void Replica::delta(std::string_view payload) {
  if (!root()) ByteReader(payload).malformed("delta", "a snapshot first", "a delta");
  std::vector<DeltaStep> const steps = Check(*this, payload).delta();
  for (std::size_t i = 0; i < steps.size(); ++i) {
    prefetch(steps, i);
    apply(steps[i], payload);
  }
}

// Counters lie far apart, and far from what they lead to: each of the next writes asks the memory for one step more of
// what it will touch. With more writes between two steps it was slower: what is asked for must still be near when it is
// touched.
void Replica::prefetch(std::vector<DeltaStep> const& steps, std::size_t next) const {
  constexpr unsigned way = 13;  // from a slot to the timer of the batch
  for (unsigned step = 0; step < way; ++step) {
    std::size_t const ahead = next + way - step;
    if (ahead >= steps.size() || steps[ahead].step != Step::write || steps[ahead].slot >= nodes_.size()) continue;
    Node const& node = nodes_[steps[ahead].slot];
    if (step == 0) {
      Rix::prefetch(&node);
    } else {
      Entity::rixPrefetch(node.entity.get(), step - 1);
    }
  }
}

void Replica::apply(DeltaStep const& step, std::string_view payload) {
  ByteReader reader(payload);
  reader.positionIs(step.at);
  Ptr<Entity> const entity = nodes_[step.slot].entity;
  switch (step.step) {
    case Step::write:
      step.field->apply(*entity, reader);
      break;
    case Step::put:
      step.field->applyEntry(*entity, reader);
      break;
    case Step::erase:
      step.field->eraseEntry(*entity, reader);
      break;
    case Step::create:
      step.field->adopt(*entity, build(step.field->child(), reader, step.slot, step.field->index()));
      break;
    default: {
      Ptr<Entity> const parent = nodes_[nodes_[step.slot].parent].entity;
      Field const& field = *recordOf(*parent).fields()[nodes_[step.slot].field];
      forget(step.slot);
      field.remove(*parent, *entity);
    }
  }
}

void Replica::checkSnapshot(std::string_view payload) const {
  Check check(*this, payload);
  check.fresh = true;
  check.body(record_, none, true);
  check.finish();
}

// The difference between the tree and a snapshot.
struct Replica::Patch {
  Patch(Replica& r, std::string_view payload, bool serials) : replica(r), reader(payload), serialsCount(serials) {
    old.swap(replica.nodes_);
    replica.kindAt_.clear();
    replica.records_ = 0;
    for (U32 slot = 0; slot < old.size(); ++slot) {
      if (old[slot].entity) serialOf[old[slot].entity.get()] = old[slot].serial;
    }
  }

  // Whether the record that comes next is this one. What is read of it, slot and serial, is read.
  bool same(Entity const& entity, U32 serial) {
    if (serialsCount) return serialOf.at(&entity) == serial;
    ByteWriter constants;
    for (auto const& field : recordOf(entity).fields()) {
      if (field->kind() == AttributeKind::constant) field->encode(entity, constants);
    }
    return reader.left() >= constants.size() &&
           ByteReader(reader).raw(constants.size(), "constants") == constants.view();
  }

  void update(Ptr<Entity> const& entity, U32 parent, unsigned index) {
    U32 const slot = decoded<U32>(reader);
    U32 const serial = decoded<U32>(reader);
    replica.place(slot, serial, entity, parent, index);
    for (auto const& field : recordOf(*entity).fields()) {
      switch (field->kind()) {
        case AttributeKind::constant:
          field->check(reader);
          break;
        case AttributeKind::plain:
          field->apply(*entity, reader);
          break;
        case AttributeKind::values:
          values(*field, *entity);
          break;
        case AttributeKind::owned:
        case AttributeKind::entities:
          children(*field, entity, slot);
          break;
        default:
          break;
      }
    }
  }

  void values(Field const& field, Entity& entity) {
    U64 const count = reader.variable("number of values");
    std::size_t const first = reader.position();
    std::set<std::string_view> keys;
    for (U64 left = count; left > 0; --left) {
      std::size_t const from = reader.position();
      field.checkKey(reader);
      keys.insert(reader.since(from));
      reader.positionIs(from);
      field.checkEntry(reader);
    }
    std::vector<std::string> gone;
    field.forEachEntry(entity, [&](std::string_view key, std::string_view) {
      if (!keys.contains(key)) gone.emplace_back(key);
    });
    for (std::string const& key : gone) {
      ByteReader one(key);
      field.eraseEntry(entity, one);
    }
    reader.positionIs(first);
    for (U64 left = count; left > 0; --left) field.applyEntry(entity, reader);
  }

  void children(Field const& field, Ptr<Entity> const& parent, U32 slot) {
    U64 const count = reader.variable("number of records");
    std::size_t const first = reader.position();
    // First what is gone, so that nothing new stands beside it.
    std::set<Entity const*> kept;
    for (U64 left = count; left > 0; --left) {
      if (Entity const* standing = match(field, *parent)) kept.insert(standing);
      skip(field.child());
    }
    for (auto const& member : field.members(*parent)) {
      if (!kept.contains(member.get())) removeDeep(field, *parent, member);
    }
    reader.positionIs(first);
    for (U64 left = count; left > 0; --left) {
      if (Entity* const standing = match(field, *parent)) {
        update(Ptr<Entity>(standing), slot, field.index());
      } else {
        field.adopt(*parent, replica.build(field.child(), reader, slot, field.index()));
      }
    }
  }

  void skip(Record const& record) {
    decoded<U32>(reader);
    decoded<U32>(reader);
    for (auto const& field : record.fields()) {
      if (field->kind() == AttributeKind::constant || field->kind() == AttributeKind::plain) {
        field->check(reader);
      } else if (field->kind() == AttributeKind::values) {
        for (U64 left = reader.variable("number of values"); left > 0; --left) field->checkEntry(reader);
      } else if (field->ownsEntities()) {
        for (U64 left = reader.variable("number of records"); left > 0; --left) skip(field->child());
      }
    }
  }

  // The record of the tree that the one that comes next is; it stays to be read.
  Entity* match(Field const& field, Entity const& parent) {
    std::size_t const at = reader.position();
    decoded<U32>(reader);
    U32 const serial = decoded<U32>(reader);
    std::size_t const from = reader.position();
    if (field.kind() == AttributeKind::entities) field.child().fields()[0]->check(reader);
    std::string const key(reader.since(from));
    reader.positionIs(from);
    Entity* const standing = field.member(parent, key);
    bool const found = standing && serialOf.contains(standing) && same(*standing, serial);
    reader.positionIs(at);
    return found ? standing : nullptr;
  }

  void removeDeep(Field const& field, Entity& parent, Ptr<Entity> const& gone) {
    removeMembers(*gone);
    field.remove(parent, *gone);
  }

  // The members of collections go one by one, the last levels first. What a record holds as its one own goes with it:
  // whoever copies such a part would take its going for a part without content.
  void removeMembers(Entity& entity) {
    for (auto const& field : recordOf(entity).fields()) {
      if (!field->ownsEntities()) continue;
      for (auto const& member : field->members(entity)) {
        if (field->kind() == AttributeKind::owned) {
          removeMembers(*member);
        } else {
          removeDeep(*field, entity, member);
        }
      }
    }
  }

  Replica& replica;
  ByteReader reader;
  bool const serialsCount;
  std::vector<Node> old;  // keeps what is gone until the end
  std::unordered_map<Entity const*, U32> serialOf;
};

void Replica::snapshot(std::string_view payload, bool sameWriter) {
  checkSnapshot(payload);
  if (!root() || (!sameWriter && newWriter_ == NewWriter::replaces)) return replaceRoot(payload);
  ByteReader reader(payload);
  decoded<U32>(reader);
  if (sameWriter && decoded<U32>(reader) != nodes_[0].serial) return replaceRoot(payload);
  Ptr<Entity> const standing = root();
  Patch(*this, payload, sameWriter).update(standing, none, 0);
}

std::string Replica::encoded() const {
  RIX_ASSERT(root());
  std::unordered_map<Entity const*, U32> serials;
  for (Node const& node : nodes_) {
    if (node.entity) serials[node.entity.get()] = node.serial;
  }
  ByteWriter writer;
  U32 slots = 0;
  std::function<void(Entity const&)> const tell = [&](Entity const& entity) {
    writer.variable(slots++);
    writer.variable(serials[&entity]);
    for (auto const& field : recordOf(entity).fields()) {
      if (field->kind() == AttributeKind::constant || field->kind() == AttributeKind::plain) {
        field->encode(entity, writer);
      } else if (field->kind() == AttributeKind::values) {
        writer.variable(field->entries(entity));
        field->forEachEntry(entity, [&writer](std::string_view key, std::string_view value) {
          writer.raw(key);
          writer.raw(value);
        });
      } else if (field->ownsEntities()) {
        auto const members = field->members(entity);
        writer.variable(members.size());
        for (auto const& member : members) tell(*member);
      }
    }
  };
  tell(*root());
  return writer.take();
}

void Replica::adopt(Ptr<Entity> const& root) {
  RIX_ASSERT(nodes_.empty() && &recordOf(*root) == &record_);
  adopt(root, none, 0);
}

void Replica::adopt(Ptr<Entity> const& entity, U32 parent, unsigned field) {
  auto const slot = static_cast<U32>(nodes_.size());
  place(slot, 0, entity, parent, field);
  for (auto const& each : recordOf(*entity).fields()) {
    if (!each->ownsEntities()) continue;
    for (auto const& member : each->members(*entity)) adopt(member, slot, each->index());
  }
}

void Replica::replaceRoot(std::string_view payload) {
  remove();
  ByteReader reader(payload);
  Ptr<Entity> const made = build(record_, reader, none, 0);
  nodes_.shrink_to_fit();
  kindAt_.shrink_to_fit();
  rootChanged_(made);
}

void Replica::remove() {
  bool const stood = root() != nullptr;
  nodes_.clear();
  kindAt_.clear();
  records_ = 0;
  if (stood) rootChanged_(nullptr);
}

}  // namespace Rix
