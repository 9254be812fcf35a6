// What a record tells of its attributes: one descriptor each, handed to a visitor in declared order.
//
//   ZebClient::rixVisit([](auto const& attribute) {
//     if constexpr (attribute.kind == Rix::AttributeKind::plain) ... attribute.get(client), attribute.set(client,
//     value)
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
  owned,       // get(entity): a Ptr or null; set(entity, constants), del(entity), adopt(entity, Ptr)
  entities,    // get(entity): a map of owned entities; set(entity, constants), del(entity, key), adopt(entity, Ptr)
  references,  // get(entity): a map of entities owned elsewhere
  values,      // get(entity): a map of values; set(entity, key, value), del(entity, key)
  queue        // get(entity): a link queue
};

template <AttributeKind Kind, class Entity_, class Key_, class Value_, class Get, class Set, class Del, class Adopt>
struct Attribute {
  using Entity = Entity_;
  using Key = Key_;      // of a keyed attribute
  using Value = Value_;  // the value, or the entity's class
  static constexpr AttributeKind kind = Kind;
  std::string_view name;
  // Its type as the schema has it.
  std::string_view type;
  unsigned index;
  // A replica applies a changed value as deletion and addition.
  bool rewritten;
  Get get;
  Set set;
  Del del;
  Adopt adopt;
};

struct NoOperation {};

// What the generated lists call. The operations that a kind has not stay empty.
template <AttributeKind Kind, class E, class K, class V, class Get, class Set = NoOperation, class Del = NoOperation,
          class Adopt = NoOperation>
auto attribute(std::string_view name, std::string_view type, unsigned index, bool rewritten, Get get, Set set = {},
               Del del = {}, Adopt adopt = {}) {
  return Attribute<Kind, E, K, V, Get, Set, Del, Adopt>{name, type, index, rewritten, get, set, del, adopt};
}

}  // namespace Rix
