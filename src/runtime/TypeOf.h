// The type of a record, built from the record's class.
#pragma once

#include "runtime/Entity.h"
#include "runtime/Type.h"

namespace Rix {

template <class T>
Type typeOf(std::string_view name) {
  if constexpr (std::is_default_constructible_v<T>) {
    return Type(name, [](Name const&) -> Ptr<Entity> { return make<T>(); });
  } else if constexpr (std::is_constructible_v<T, Name>) {
    return Type(name, [](Name const& given) -> Ptr<Entity> { return make<T>(given); });
  } else {
    return Type(name, nullptr);
  }
}

}  // namespace Rix
