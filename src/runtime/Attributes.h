// What a record tells of its attributes: one descriptor each, handed to a visitor in declared order.
//
//   ZebClient::rixVisit([](auto const& attribute) {
//     if constexpr (attribute.kind == Rix::AttributeKind::plain) ... attribute.get(client), attribute.set(client, value)
//   });
//
// This is the only way from a record to a wire, JSON or a page: there is no second list anywhere. A descriptor reads
// through `get` and writes through the record's own operations, so that a change applied by a visitor notifies as
// any other.
#pragma once

#include <string_view>
#include <tuple>

#include "runtime/Types.h"

namespace Rix {

enum class AttributeKind : U8 {
  constant,    // given at construction
  plain,       // get(entity), set(entity, value)
  reference,   // get(entity): a Ptr to an entity owned elsewhere, null or not
  owned,       // get(entity): a Ptr or null; make(entity, constants), del(entity)
  entities,    // get(entity): a map of owned entities; make(entity, constants), del(entity, key)
  references,  // get(entity): a map of entities owned elsewhere
  values,      // get(entity): a map of values; set(entity, key, value), del(entity, key)
  queue        // get(entity): a link queue
};

template <AttributeKind Kind, class Entity_, class Key_, class Value_, class Get, class Set, class Del>
struct Attribute {
  using Entity = Entity_;
  using Key = Key_;      // of a keyed attribute
  using Value = Value_;  // the value, or the entity's class
  static constexpr AttributeKind kind = Kind;
  std::string_view name;
  unsigned index;
  // A replica applies a changed value as deletion and addition.
  bool rewritten;
  Get get;
  Set set;
  Del del;
};

struct NoOperation {};

template <class E, class V, class Get>
auto constantAttribute(std::string_view name, unsigned index, bool rewritten, Get get) {
  return Attribute<AttributeKind::constant, E, void, V, Get, NoOperation, NoOperation>{name, index, rewritten, get, {}, {}};
}
template <class E, class V, class Get, class Set>
auto plainAttribute(std::string_view name, unsigned index, bool rewritten, Get get, Set set) {
  return Attribute<AttributeKind::plain, E, void, V, Get, Set, NoOperation>{name, index, rewritten, get, set, {}};
}
template <class E, class V, class Get>
auto referenceAttribute(std::string_view name, unsigned index, bool rewritten, Get get) {
  return Attribute<AttributeKind::reference, E, void, V, Get, NoOperation, NoOperation>{name, index, rewritten, get, {}, {}};
}
template <class E, class V, class Get, class Make, class Del>
auto ownedAttribute(std::string_view name, unsigned index, bool rewritten, Get get, Make make, Del del) {
  return Attribute<AttributeKind::owned, E, void, V, Get, Make, Del>{name, index, rewritten, get, make, del};
}
template <class E, class K, class V, class Get, class Make, class Del>
auto entitiesAttribute(std::string_view name, unsigned index, bool rewritten, Get get, Make make, Del del) {
  return Attribute<AttributeKind::entities, E, K, V, Get, Make, Del>{name, index, rewritten, get, make, del};
}
template <class E, class K, class V, class Get>
auto referencesAttribute(std::string_view name, unsigned index, bool rewritten, Get get) {
  return Attribute<AttributeKind::references, E, K, V, Get, NoOperation, NoOperation>{name, index, rewritten, get, {}, {}};
}
template <class E, class K, class V, class Get, class Set, class Del>
auto valuesAttribute(std::string_view name, unsigned index, bool rewritten, Get get, Set set, Del del) {
  return Attribute<AttributeKind::values, E, K, V, Get, Set, Del>{name, index, rewritten, get, set, del};
}
template <class E, class V, class Get>
auto queueAttribute(std::string_view name, unsigned index, bool rewritten, Get get) {
  return Attribute<AttributeKind::queue, E, void, V, Get, NoOperation, NoOperation>{name, index, rewritten, get, {}, {}};
}

}  // namespace Rix
