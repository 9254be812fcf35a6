// Builds the Record of a class from the class's own list of attributes. Only the generated sources include this: what
// uses records goes by Rix::Record.
#pragma once

#include <tuple>
#include <type_traits>

#include "runtime/Json.h"
#include "runtime/Record.h"

namespace Rix {

template <class T>
Record const& recordOfClass();

// A key or a value as bytes, given back as what it was. Our own bytes: they were encoded here or checked before.
template <class Value>
Value valueOf(std::string_view bytes) {
  ByteReader reader(bytes);
  return decoded<Value>(reader);
}

template <class Value>
std::string bytesOf(Value const& value) {
  ByteWriter writer;
  encodeValue(writer, value);
  return writer.take();
}

template <class Attribute>
class FieldOf : public Field {
 public:
  explicit FieldOf(Attribute const& attribute)
      : Field(attribute.name, attribute.type, attribute.index, Attribute::kind, attribute.rewritten),
        attribute_(attribute) {}

 protected:
  using E = typename Attribute::Entity;
  static E const& self(Entity const& entity) { return static_cast<E const&>(entity); }
  static E& self(Entity& entity) { return static_cast<E&>(entity); }

  Attribute const attribute_;
};

template <class Attribute>
class ValueField : public FieldOf<Attribute> {
 public:
  using FieldOf<Attribute>::FieldOf;
  using Value = typename Attribute::Value;

  void json(Entity const& entity, JsonWriter& out) const override {
    out.value(this->attribute_.get(this->self(entity)));
  }
  void encode(Entity const& entity, ByteWriter& writer) const override {
    encodeValue(writer, this->attribute_.get(this->self(entity)));
  }
  void check(ByteReader& reader) const override { decoded<Value>(reader); }
  void apply(Entity& entity, ByteReader& reader) const override {
    if constexpr (Attribute::kind == AttributeKind::plain) {
      this->attribute_.set(this->self(entity), decoded<Value>(reader));
    } else {
      Field::apply(entity, reader);
    }
  }
};

template <class Attribute>
class ValuesField : public FieldOf<Attribute> {
 public:
  using FieldOf<Attribute>::FieldOf;
  using Key = typename Attribute::Key;
  using Value = typename Attribute::Value;

  void json(Entity const& entity, JsonWriter& out) const override {
    out.beginObject();
    for (auto const& entry : map(entity)) {
      out.key(entry.key);
      out.value(entry.value);
    }
    out.endObject();
  }
  U32 entries(Entity const& entity) const override { return map(entity).size(); }
  void forEachEntry(Entity const& entity, Field::VisitEntry const& visit) const override {
    for (auto const& entry : map(entity)) visit(bytesOf(entry.key), bytesOf(entry.value));
  }
  bool hasKey(Entity const& entity, std::string_view key) const override {
    return map(entity).find(valueOf<Key>(key)) != nullptr;
  }
  void encodeEntry(Entity const& entity, std::string_view key, ByteWriter& writer) const override {
    encodeValue(writer, map(entity).get(valueOf<Key>(key)));
  }
  void checkKey(ByteReader& reader) const override { decoded<Key>(reader); }
  void checkEntry(ByteReader& reader) const override {
    decoded<Key>(reader);
    decoded<Value>(reader);
  }
  void applyEntry(Entity& entity, ByteReader& reader) const override {
    auto const key = decoded<Key>(reader);
    auto const value = decoded<Value>(reader);
    if (this->rewritten()) {
      Value const* present = map(entity).find(key);
      if (present && !(*present == value)) this->attribute_.del(this->self(entity), key);
    }
    this->attribute_.set(this->self(entity), key, value);
  }
  void eraseEntry(Entity& entity, ByteReader& reader) const override {
    this->attribute_.del(this->self(entity), decoded<Key>(reader));
  }

 private:
  auto const& map(Entity const& entity) const { return this->attribute_.get(this->self(entity)); }
};

template <class Attribute>
class OwnedField : public FieldOf<Attribute> {
 public:
  using FieldOf<Attribute>::FieldOf;
  using Child = typename Attribute::Value;

  void json(Entity const& entity, JsonWriter& out) const override { out.entity(present(entity).get()); }
  Record const& child() const override { return recordOfClass<Child>(); }
  Entity* member(Entity const& entity, std::string_view) const override { return present(entity).get(); }
  std::vector<Ptr<Entity>> members(Entity const& entity) const override {
    if (!present(entity)) return {};
    return {present(entity)};
  }
  void adopt(Entity& entity, Ptr<Entity> const& made) const override {
    this->attribute_.adopt(this->self(entity), Ptr<Child>(static_cast<Child*>(made.get())));
  }
  void remove(Entity& entity, Entity const&) const override { this->attribute_.del(this->self(entity)); }

 private:
  Ptr<Child> const& present(Entity const& entity) const { return this->attribute_.get(this->self(entity)); }
};

template <class Attribute>
class EntitiesField : public FieldOf<Attribute> {
 public:
  using FieldOf<Attribute>::FieldOf;
  using Key = typename Attribute::Key;
  using Child = typename Attribute::Value;

  void json(Entity const& entity, JsonWriter& out) const override {
    out.beginObject();
    for (auto const& member : map(entity)) {
      out.key(member->rixKey());
      out.entity(member.get());
    }
    out.endObject();
  }
  Record const& child() const override { return recordOfClass<Child>(); }
  Entity* member(Entity const& entity, std::string_view key) const override {
    return map(entity).find(valueOf<Key>(key));
  }
  std::vector<Ptr<Entity>> members(Entity const& entity) const override {
    std::vector<Ptr<Entity>> all;
    all.reserve(map(entity).size());
    for (auto const& member : map(entity)) all.push_back(member);
    return all;
  }
  void adopt(Entity& entity, Ptr<Entity> const& made) const override {
    this->attribute_.adopt(this->self(entity), Ptr<Child>(static_cast<Child*>(made.get())));
  }
  void remove(Entity& entity, Entity const& gone) const override {
    this->attribute_.del(this->self(entity), static_cast<Child const&>(gone).rixKey());
  }

 private:
  auto const& map(Entity const& entity) const { return this->attribute_.get(this->self(entity)); }
};

// References and queues: they stay where they are.
template <class Attribute>
class LocalField : public FieldOf<Attribute> {
 public:
  using FieldOf<Attribute>::FieldOf;

  void json(Entity const& entity, JsonWriter& out) const override {
    auto const& held = this->attribute_.get(this->self(entity));
    if constexpr (Attribute::kind == AttributeKind::reference) {
      out.reference(held.get());
    } else if constexpr (Attribute::kind == AttributeKind::references) {
      out.beginArray();
      for (auto const& member : held) out.value(member->rixKey());
      out.endArray();
    } else {
      out.beginArray();
      held.forEach([&out](auto const& value) { out.value(value); });
      out.endArray();
    }
  }
};

template <class Attribute>
std::unique_ptr<Field> makeField(Attribute const& attribute) {
  constexpr AttributeKind kind = Attribute::kind;
  if constexpr (kind == AttributeKind::constant || kind == AttributeKind::plain) {
    return std::make_unique<ValueField<Attribute>>(attribute);
  } else if constexpr (kind == AttributeKind::values) {
    return std::make_unique<ValuesField<Attribute>>(attribute);
  } else if constexpr (kind == AttributeKind::owned) {
    return std::make_unique<OwnedField<Attribute>>(attribute);
  } else if constexpr (kind == AttributeKind::entities) {
    return std::make_unique<EntitiesField<Attribute>>(attribute);
  } else {
    return std::make_unique<LocalField<Attribute>>(attribute);
  }
}

// Forwards every notification of a T, its keys as bytes.
template <class T>
class ObserverOf final : public Observer {
 public:
  ObserverOf(T& entity, ObserverSink& sink) : forward_{sink}, observer_(forward_) { observer_.notifierIs(&entity); }

 private:
  struct Forward {
    ObserverSink& sink;
    void changed(unsigned field) { sink.changed(field); }
    template <class Key>
    void changed(unsigned field, Key const& key) {
      sink.changed(field, bytesOf(key));
    }
  };
  Forward forward_;
  typename T::template RixObserver<Forward> observer_;
};

template <class T>
class RecordOf final : public Record {
 public:
  RecordOf() : Record(T::rixType().name()) {
    T::rixVisit([this](auto const& attribute) { add(makeField(attribute)); });
    // The constants, the key first, come before all else: so they are read, and a child's first bytes are its key.
    bool variable = false;
    for (auto const& field : fields()) {
      RIX_ASSERT(field->kind() != AttributeKind::constant || !variable, name(), field->name());
      variable = variable || field->kind() != AttributeKind::constant;
    }
  }

  Ptr<Entity> make(ByteReader& constants) const override {
    typename T::RixConstants given;
    std::apply([&constants](auto&... each) { (decodeValue(constants, each), ...); }, given);
    return std::apply([](auto const&... each) -> Ptr<Entity> { return Rix::make<T>(each...); }, given);
  }
  std::unique_ptr<Observer> observe(Entity& entity, ObserverSink& sink) const override {
    return std::make_unique<ObserverOf<T>>(static_cast<T&>(entity), sink);
  }
};

template <class T>
Record const& recordOfClass() {
  static RecordOf<T> const record;
  return record;
}

}  // namespace Rix
