// Writing JSON: brackets, commas, quotes.
#include "runtime/Json.h"

#include "runtime/Record.h"

namespace Rix {

void JsonWriter::open(char bracket) {
  separate();
  text_ += bracket;
  first_ = true;
}

void JsonWriter::close(char bracket) {
  text_ += bracket;
  first_ = false;
}

void JsonWriter::null() {
  separate();
  text_ += "null";
  first_ = false;
}

void JsonWriter::number(double value) {
  if (!std::isfinite(value)) {
    text_ += "null";
    return;
  }
  char digits[32];
  auto const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  text_.append(digits, end);
}

void JsonWriter::quoted(std::string_view text) {
  static constexpr char hexadecimal[] = "0123456789abcdef";
  text_ += '"';
  for (char const c : text) {
    auto const code = static_cast<U8>(c);
    if (c == '"' || c == '\\') {
      text_ += '\\';
      text_ += c;
    } else if (code < 0x20 || code == 0x7f) {
      text_ += "\\u00";
      text_ += hexadecimal[code >> 4];
      text_ += hexadecimal[code & 0xf];
    } else {
      text_ += c;
    }
  }
  text_ += '"';
}

void JsonWriter::entity(Entity const* entity) {
  if (!entity) return null();
  beginObject();
  for (auto const& field : recordOf(*entity).fields()) {
    key(field->name());
    field->json(*entity, *this);
  }
  endObject();
}

std::string jsonText(Entity const& entity) {
  JsonWriter out;
  out.entity(&entity);
  return out.take();
}

}  // namespace Rix
