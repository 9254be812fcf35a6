// Rix::Type: what kind of entity an entity is, known by name, so that directories and mounts can make one.
#pragma once

#include <string_view>

#include "runtime/Ptr.h"
#include "runtime/String8.h"

namespace Rix {

class Entity;
class Record;

class Type {
 public:
  using Make = Ptr<Entity> (*)(Name const& name);
  using RecordOfType = Record const& (*)();

  // `typeName` must outlive the type. `maker` builds an entity for a directory or a mount; null where an entity needs
  // more than a name. `recordOf` gives the attributes of a type that a schema declares.
  constexpr Type(std::string_view typeName, Make maker, RecordOfType recordOf = nullptr)
      : name_(typeName), make_(maker), record_(recordOf) {}

  std::string_view name() const { return name_; }
  // An entity of this type, or null if one cannot be made from a name alone.
  Ptr<Entity> make(Name const& given) const;
  // The list of its attributes, or null for a type that no schema declares.
  Record const* record() const { return record_ ? &record_() : nullptr; }

 private:
  std::string_view name_;
  Make make_;
  RecordOfType record_;
};

// A type whose entities are not made by name.
Type plainType(std::string_view name);

// The type of that name, or null.
Type const* typeByName(std::string_view name);

// Makes a type known by its name. For static objects: types are known from the start of the process.
class TypeRegistration {
 public:
  explicit TypeRegistration(Type const& type);
};

}  // namespace Rix
