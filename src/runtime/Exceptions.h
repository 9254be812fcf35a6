// The failures that are raised rather than asserted. Each ends the handler that met it and carries its whole text.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Rix {

/// A value or a parameter that is not allowed, such as a null pointer given to a mutator.
class RangeException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A name that is in use already, such as a keyed object asked for again with different parameters.
class NameInUseException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A text form that cannot be parsed. The text names the attribute at which parsing stopped.
class DeserializeException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

[[noreturn]] void throwRangeException(std::string_view text);

[[noreturn]] void throwNameInUseException(std::string_view name);

/// Raises a `DeserializeException` that names `attribute` and gives the text of `cause`. Called while an attribute of
/// a text form is parsed and something, `cause`, went wrong.
[[noreturn]] void rethrowFromDeserializeAttr(std::string_view attribute, std::exception const& cause);

}  // namespace Rix
