// The text form of values, as in "Value('Zeb::PairTime', ** {'devicePair': ..., 'time': 1.5})": numbers as they are,
// all else between single quotes. `valueToStrep` writes one value, here for plain types and beside each value type for
// that; `StrepReader` reads such a text again, piece by piece.
#pragma once

#include <charconv>
#include <concepts>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "runtime/Exceptions.h"
#include "runtime/Types.h"

namespace Rix {

template <std::unsigned_integral Number>
std::string valueToStrep(Number number) {
  return std::to_string(U64{number});
}
/// The shortest digits that read back as the same number.
std::string valueToStrep(double number);
/// The text between single quotes; a quote or a backslash in it is preceded by a backslash.
std::string valueToStrep(std::string_view text);

/// Reads a text form from its beginning. What does not match raises std::runtime_error with a text that says what was
/// expected and what stood there; `attribute` adds the attribute's name to it.
class StrepReader {
 public:
  StrepReader(char const* begin, char const* end) : rest_(begin, static_cast<std::size_t>(end - begin)) {}

  /// Reads `title`, which opens an attribute, and then the attribute by `read`, whose result it returns.
  template <class Read>
  auto attribute(std::string_view name, std::string_view title, Read read) {
    try {
      literal(title);
      return read();
    } catch (std::runtime_error const& cause) {
      rethrowFromDeserializeAttr(name, cause);
    }
  }

  void literal(std::string_view piece);
  /// Fails if anything is left.
  void end() const;
  /// The text between two single quotes.
  std::string quoted();
  double real();
  template <std::unsigned_integral Number>
  Number number() {
    Number value{};
    auto read = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    if (read.ec == std::errc::result_out_of_range) fail("a smaller number");
    if (read.ec != std::errc()) fail("a number");
    take(static_cast<std::size_t>(read.ptr - rest_.data()));
    return value;
  }

  /// Raises the failure: `expected` is not what stands at this place.
  [[noreturn]] void fail(std::string_view expected) const;

 private:
  void take(std::size_t length) { rest_.remove_prefix(length); }

  std::string_view rest_;
};

}  // namespace Rix
