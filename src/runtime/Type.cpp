// The register of entity types.
#include "runtime/Type.h"

#include <map>

#include "runtime/Entity.h"

namespace Rix {
namespace {
std::map<std::string_view, Type const*>& types() {
  static std::map<std::string_view, Type const*> instance;
  return instance;
}
}  // namespace

Ptr<Entity> Type::make(Name const& given) const {
  return make_ ? make_(given) : nullptr;
}

Type plainType(std::string_view name) {
  return Type(name, nullptr);
}

Type const* typeByName(std::string_view name) {
  auto const found = types().find(name);
  return found == types().end() ? nullptr : found->second;
}

TypeRegistration::TypeRegistration(Type const& type) {
  types()[type.name()] = &type;
}

}  // namespace Rix
