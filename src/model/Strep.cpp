// The text forms of plain types, and the reader's steps: take a piece, or say what was expected there.
#include "model/Strep.h"

#include <array>
#include <cmath>

namespace Rix {

std::string valueToStrep(double number) {
  std::array<char, 32> text{};
  auto written = std::to_chars(text.data(), text.data() + text.size(), number);
  return {text.data(), written.ptr};
}

std::string valueToStrep(std::string_view text) {
  std::string quoted = "'";
  for (char character : text) {
    if (character == '\'' || character == '\\') quoted += '\\';
    quoted += character;
  }
  return quoted += '\'';
}

void StrepReader::literal(std::string_view piece) {
  if (!rest_.starts_with(piece)) fail("\"" + std::string(piece) + "\"");
  take(piece.size());
}

void StrepReader::end() const {
  if (!rest_.empty()) fail("the end");
}

std::string StrepReader::quoted() {
  literal("'");
  std::string text;
  for (std::size_t i = 0; i < rest_.size(); ++i) {
    if (rest_[i] == '\'') {
      take(i + 1);
      return text;
    }
    if (rest_[i] == '\\' && i + 1 < rest_.size()) ++i;
    text += rest_[i];
  }
  fail("a closing quote");
}

double StrepReader::real() {
  double value = 0;
  auto read = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
  if (read.ec != std::errc() || std::isnan(value)) fail("a number");
  take(static_cast<std::size_t>(read.ptr - rest_.data()));
  return value;
}

void StrepReader::fail(std::string_view expected) const {
  constexpr std::size_t shown = 40;
  std::string text = "expected " + std::string(expected) + ", found ";
  if (rest_.empty()) throw std::runtime_error(text + "the end");
  throw std::runtime_error(text + "\"" + std::string(rest_.substr(0, shown)) + "\"");
}

}  // namespace Rix
