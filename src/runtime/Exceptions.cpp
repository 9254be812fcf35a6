// The functions that throw, kept out of the callers' code.
#include "runtime/Exceptions.h"

namespace Rix {

void throwRangeException(std::string_view text) {
  throw RangeException(std::string(text));
}

void throwNameInUseException(std::string_view name) {
  throw NameInUseException(std::string(name));
}

void rethrowFromDeserializeAttr(std::string_view attribute, std::exception const& cause) {
  throw DeserializeException("cannot read attribute '" + std::string(attribute) + "': " + cause.what());
}

}  // namespace Rix
