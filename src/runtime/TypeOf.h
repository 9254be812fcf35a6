// The type of an entity, built from its class.
#pragma once

#include "runtime/Entity.h"
#include "runtime/Type.h"

namespace Rix {

template <class T>
Type typeOf(std::string_view name, Type::RecordOfType record = nullptr) {
  if constexpr (std::is_default_constructible_v<T>) {
    return Type(
        name, [](Name const&) -> Ptr<Entity> { return make<T>(); }, record);
  } else if constexpr (std::is_constructible_v<T, Name>) {
    return Type(
        name, [](Name const& given) -> Ptr<Entity> { return make<T>(given); }, record);
  } else {
    return Type(name, nullptr, record);
  }
}

}  // namespace Rix
