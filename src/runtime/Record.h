// Rix::Record: what the runtime knows of a kind of record without knowing its class.
//
// A record's class lists its attributes in rixVisit (see Attributes.h). From this list RecordOf.h builds one Record for
// each class, with one Field for each attribute, whose operations read and write an attribute as bytes or as JSON and
// watch a record generically. The attribute log, the replica and the JSON writer stand on these alone: they are written
// once, for all records.
//
// Of an entity's attributes the constants, plain values, collections of values and the entities that it owns travel.
// References to entities that stand elsewhere, and queues, are local: they appear in JSON only.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Attributes.h"
#include "runtime/Codec.h"
#include "runtime/Entity.h"

namespace Rix {

class Record;
class JsonWriter;

// One attribute of a record. An operation that does not fit the attribute's kind is an assertion. Bytes named `key` are
// a key as encodeValue writes it, and empty for an attribute without keys.
class Field {
 public:
  Field(std::string_view name, std::string_view type, unsigned index, AttributeKind kind, bool rewritten)
      : name_(name), type_(type), index_(index), kind_(kind), rewritten_(rewritten) {}
  Field(Field const&) = delete;
  Field& operator=(Field const&) = delete;
  virtual ~Field() = default;

  std::string_view name() const { return name_; }
  // As the schema has it, such as "U16 -> Zeb::ZebProbeRate".
  std::string_view type() const { return type_; }
  unsigned index() const { return index_; }
  AttributeKind kind() const { return kind_; }
  bool rewritten() const { return rewritten_; }
  bool ownsEntities() const { return kind_ == AttributeKind::owned || kind_ == AttributeKind::entities; }

  virtual void json(Entity const& entity, JsonWriter& out) const = 0;

  // Constants and plain values.
  virtual void encode(Entity const& entity, ByteWriter& writer) const;
  // Reads a value and drops it: raises FrameException if it is none.
  virtual void check(ByteReader& reader) const;
  // Plain values: reads one and writes it to the entity.
  virtual void apply(Entity& entity, ByteReader& reader) const;

  // Values by key.
  using VisitEntry = std::function<void(std::string_view key, std::string_view value)>;
  virtual U32 entries(Entity const& entity) const;
  virtual void forEachEntry(Entity const& entity, VisitEntry const& visit) const;
  virtual bool hasKey(Entity const& entity, std::string_view key) const;
  // The value of a key that is there.
  virtual void encodeEntry(Entity const& entity, std::string_view key, ByteWriter& writer) const;
  virtual void checkKey(ByteReader& reader) const;
  virtual void checkEntry(ByteReader& reader) const;
  // Reads a key and a value and writes them. Of a rewritten attribute, another value is removed first.
  virtual void applyEntry(Entity& entity, ByteReader& reader) const;
  // Reads a key and removes it.
  virtual void eraseEntry(Entity& entity, ByteReader& reader) const;

  // Entities that the record owns: at most one, or by key.
  virtual Record const& child() const;
  // Or null.
  virtual Entity* member(Entity const& entity, std::string_view key) const;
  // A copy of what is there, in the collection's order.
  virtual std::vector<Ptr<Entity>> members(Entity const& entity) const;
  // Gives the entity a finished child. Nothing may stand in its place.
  virtual void adopt(Entity& entity, Ptr<Entity> const& made) const;
  virtual void remove(Entity& entity, Entity const& gone) const;

 private:
  std::string_view const name_;
  std::string_view const type_;
  unsigned const index_;
  AttributeKind const kind_;
  bool const rewritten_;
};

// Told of every notification of one record that travels or holds what travels.
class ObserverSink {
 public:
  virtual void changed(unsigned field) = 0;
  virtual void changed(unsigned field, std::string_view key) = 0;

 protected:
  ~ObserverSink() = default;
};

// Watches one record on behalf of a sink, from its making to its end. It keeps the record alive.
class Observer {
 public:
  virtual ~Observer() = default;
};

class Record {
 public:
  virtual ~Record() = default;
  Record(Record const&) = delete;
  Record& operator=(Record const&) = delete;

  std::string_view name() const { return name_; }
  // In declared order: a field's index is its place.
  std::vector<std::unique_ptr<Field>> const& fields() const { return fields_; }
  // The field with this index; FrameException from `reader` if there is none.
  Field const& field(unsigned index, ByteReader const& reader) const;
  // Of the layout of this record and all below it: two builds whose hashes are equal understand each other.
  U32 schemaHash() const;

  // Reads the constants of a record, in order, and makes one of them.
  virtual Ptr<Entity> make(ByteReader& constants) const = 0;
  virtual std::unique_ptr<Observer> observe(Entity& entity, ObserverSink& sink) const = 0;

 protected:
  explicit Record(std::string_view name) : name_(name) {}
  void add(std::unique_ptr<Field> field) { fields_.push_back(std::move(field)); }

 private:
  std::string_view const name_;
  std::vector<std::unique_ptr<Field>> fields_;
};

// The record of an entity's class. An entity that no schema declares, such as a directory: assertion.
Record const& recordOf(Entity const& entity);

}  // namespace Rix
