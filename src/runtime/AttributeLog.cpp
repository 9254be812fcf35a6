// Keeping the journal: one node for each record, and what each notification adds to the list.
#include "runtime/AttributeLog.h"

#include "runtime/Assert.h"

namespace Rix {

struct AttributeLog::Entry {
  Step step;
  U32 slot;           // of the record that the step is about; of a creation, the parent's
  unsigned field;     // not of a removal
  Node* node;         // whose present content is told at the flush; null once `bytes` tells it
  std::string bytes;  // what follows the field
};

// One record of the tree.
struct AttributeLog::Node final : ObserverSink {
  Node(AttributeLog& l, Node* above, Entity& e)
      : log(l), parent(above), entity(e), record(recordOf(e)), serial(l.nextSerial_++) {
    if (l.freeSlots_.empty()) {
      slot = l.nextSlot_++;
    } else {
      slot = l.freeSlots_.back();
      l.freeSlots_.pop_back();
    }
    ++l.records_;
    observer = record.observe(e, *this);
  }
  virtual ~Node() { --log.records_; }
  Node(Node const&) = delete;
  Node& operator=(Node const&) = delete;

  void changed(unsigned field) override { log.attributeChanged(*this, field); }
  void changed(unsigned field, std::string_view key) override { log.keyChanged(*this, field, key); }

  // Where a write to the attribute stands in the journal, if one waits there.
  Place& place(unsigned field) {
    if (generation != log.generation_) {
      places.assign(record.fields().size(), log.journal_.end());
      generation = log.generation_;
    }
    return places[field];
  }

  AttributeLog& log;
  Node* const parent;
  Entity& entity;  // the observer keeps it
  Record const& record;
  U32 slot;
  U32 const serial;
  U32 generation = 0;
  bool unsent = false;  // its creation waits in the journal, at `creation`
  Place creation;
  std::vector<Place> places;
  Children children;
  std::unique_ptr<Observer> observer;
};

AttributeLog::AttributeLog(Ptr<Entity> const& root, U32 firstSerial, std::function<void()> wake)
    : root_(root), wake_(std::move(wake)), nextSerial_(firstSerial) {
  RIX_ASSERT(root_);
  tree_ = std::make_unique<Node>(*this, nullptr, *root_);
  addChildren(*tree_);
}

AttributeLog::~AttributeLog() = default;

AttributeLog::Place AttributeLog::note(Entry entry) {
  if (journal_.empty() && wake_) wake_();
  return journal_.insert(journal_.end(), std::move(entry));
}

void AttributeLog::addChildren(Node& node) {
  for (auto const& field : node.record.fields()) {
    if (field->ownsEntities()) {
      for (auto const& member : field->members(node.entity)) {
        ByteWriter key;
        if (field->kind() == AttributeKind::entities) field->child().fields()[0]->encode(*member, key);
        addChild(node, *field, key.view(), *member);
      }
    } else if (field->kind() == AttributeKind::values && recording_) {
      field->forEachEntry(node.entity, [&](std::string_view key, std::string_view value) {
        unsentValues_[keyPlaceName(node, *field, key)] = value;
      });
    }
  }
}

AttributeLog::Node& AttributeLog::addChild(Node& parent, Field const& field, std::string_view key, Entity& entity) {
  auto made = std::make_unique<Node>(*this, &parent, entity);
  Node& node = *made;
  parent.children.emplace(std::pair(field.index(), std::string(key)), std::move(made));
  if (recording_ && !carrier(parent)) {
    node.creation = note({Step::create, parent.slot, field.index(), &node, {}});
    node.unsent = true;
  }
  addChildren(node);
  return node;
}

AttributeLog::Node* AttributeLog::carrier(Node& node) const {
  for (Node* above = &node; above; above = above->parent) {
    if (above->unsent) return above;
  }
  return nullptr;
}

void AttributeLog::attributeChanged(Node& node, unsigned index) {
  Field const& field = *node.record.fields()[index];
  if (field.kind() == AttributeKind::owned) return memberChanged(node, field, {});
  if (field.kind() != AttributeKind::plain || !recording_ || carrier(node)) return;
  Place& place = node.place(index);
  if (place == journal_.end()) {
    place = note({Step::write, node.slot, index, &node, {}});
  } else {
    journal_.splice(journal_.end(), journal_, place);
  }
}

void AttributeLog::keyChanged(Node& node, unsigned index, std::string_view key) {
  Field const& field = *node.record.fields()[index];
  if (field.kind() == AttributeKind::entities) {
    memberChanged(node, field, key);
  } else if (field.kind() == AttributeKind::values && recording_) {
    entryChanged(node, field, key);
  }
}

void AttributeLog::memberChanged(Node& node, Field const& field, std::string_view key) {
  auto const known = node.children.find({field.index(), std::string(key)});
  Entity* const present = field.member(node.entity, key);
  if (known != node.children.end()) {
    if (&known->second->entity == present) return;
    removeChild(node, known);
  }
  if (present) addChild(node, field, key, *present);
}

std::string AttributeLog::keyPlaceName(Node const& node, Field const& field, std::string_view key) const {
  ByteWriter name;
  name.fixed(node.serial);
  name.fixed(static_cast<U16>(field.index()));
  name.raw(key);
  return name.take();
}

void AttributeLog::entryChanged(Node& node, Field const& field, std::string_view key) {
  std::string const name = keyPlaceName(node, field, key);
  bool const present = field.hasKey(node.entity, key);
  ByteWriter value;
  if (present) field.encodeEntry(node.entity, key, value);

  if (Node* creation = carrier(node)) {
    if (present) {
      unsentValues_[name] = value.take();
      return;
    }
    auto const was = unsentValues_.find(name);
    if (was == unsentValues_.end()) return;
    // What is carried from now on lacks the key, so its coming is told apart, before its going.
    settle(*creation);
    note({Step::put, node.slot, field.index(), nullptr, std::string(key) + was->second});
    unsentValues_.erase(was);
  }

  std::string bytes(key);
  bytes.append(value.view());
  auto const place = keyPlaces_.find(name);
  if (!present) {
    if (place != keyPlaces_.end()) keyPlaces_.erase(place);
    note({Step::erase, node.slot, field.index(), nullptr, std::move(bytes)});
  } else if (place == keyPlaces_.end()) {
    keyPlaces_[name] = note({Step::put, node.slot, field.index(), nullptr, std::move(bytes)});
  } else {
    place->second->bytes = std::move(bytes);
    journal_.splice(journal_.end(), journal_, place->second);
  }
}

void AttributeLog::removeChild(Node& parent, Children::iterator child) {
  Node& node = *child->second;
  if (recording_) {
    if (Node* creation = carrier(node)) settle(*creation);
    release(node);
    note({Step::remove, node.slot, 0, nullptr, {}});
  }
  parent.children.erase(child);
}

void AttributeLog::settle(Node& creation) {
  ByteWriter writer;
  encodeNode(creation, writer);
  creation.creation->bytes = writer.take();
  creation.creation->node = nullptr;
  creation.unsent = false;
}

void AttributeLog::release(Node& node) {
  releasedSlots_.push_back(node.slot);
  if (node.unsent) settle(node);
  for (unsigned index = 0; node.generation == generation_ && index < node.places.size(); ++index) {
    Place const place = node.places[index];
    if (place == journal_.end()) continue;
    ByteWriter value;
    node.record.fields()[index]->encode(node.entity, value);
    place->bytes = value.take();
    place->node = nullptr;
  }
  for (auto const& [key, child] : node.children) release(*child);
}

// Slot and serial, the constants, then all else in order. Children as the tree of nodes has them: one that has just
// left its collection is told with the creation that carries it, since its removal is told after.
void AttributeLog::encodeNode(Node const& node, ByteWriter& writer) const {
  writer.variable(node.slot);
  writer.variable(node.serial);
  for (auto const& field : node.record.fields()) {
    switch (field->kind()) {
      case AttributeKind::constant:
      case AttributeKind::plain:
        field->encode(node.entity, writer);
        break;
      case AttributeKind::values:
        writer.variable(field->entries(node.entity));
        field->forEachEntry(node.entity, [&writer](std::string_view key, std::string_view value) {
          writer.raw(key);
          writer.raw(value);
        });
        break;
      case AttributeKind::owned:
      case AttributeKind::entities: {
        auto const first = node.children.lower_bound({field->index(), std::string()});
        auto const last = node.children.lower_bound({field->index() + 1, std::string()});
        writer.variable(static_cast<U64>(std::distance(first, last)));
        for (auto child = first; child != last; ++child) encodeNode(*child->second, writer);
        break;
      }
      default:
        break;
    }
  }
}

void AttributeLog::encodeEntry(Entry const& entry, ByteWriter& writer, U32& at) const {
  if (at != entry.slot) {
    writer.fixed(static_cast<U8>(Step::at));
    writer.variable(entry.slot);
    at = entry.slot;
  }
  writer.fixed(static_cast<U8>(entry.step));
  if (entry.step != Step::remove) writer.fixed(static_cast<U8>(entry.field));
  if (!entry.node) {
    writer.raw(entry.bytes);
  } else if (entry.step == Step::create) {
    encodeNode(*entry.node, writer);
  } else {
    entry.node->record.fields()[entry.field]->encode(entry.node->entity, writer);
  }
}

std::string AttributeLog::flush() {
  ByteWriter writer;
  constexpr U32 none = std::numeric_limits<U32>::max();
  U32 at = none;
  for (Entry const& entry : journal_) {
    encodeEntry(entry, writer, at);
    if (entry.step == Step::remove) at = none;
    if (entry.step == Step::create && entry.node) entry.node->unsent = false;
  }
  forget();
  return writer.take();
}

void AttributeLog::record() {
  stop();
  nextSlot_ = 0;
  freeSlots_.clear();
  renumber(*tree_);
  recording_ = true;
}

std::string AttributeLog::snapshot() {
  record();
  ByteWriter writer;
  encodeNode(*tree_, writer);
  return writer.take();
}

// In the order in which a snapshot tells them, so that slots are dense again.
void AttributeLog::renumber(Node& node) {
  node.slot = nextSlot_++;
  for (auto const& [key, child] : node.children) renumber(*child);
}

void AttributeLog::stop() {
  for (Entry& entry : journal_) {
    if (entry.step == Step::create && entry.node) entry.node->unsent = false;
  }
  forget();
  recording_ = false;
}

void AttributeLog::forget() {
  journal_.clear();
  keyPlaces_.clear();
  unsentValues_.clear();
  freeSlots_.insert(freeSlots_.end(), releasedSlots_.begin(), releasedSlots_.end());
  releasedSlots_.clear();
  ++generation_;
}

}  // namespace Rix
