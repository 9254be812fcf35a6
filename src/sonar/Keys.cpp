#include "sonar/Keys.h"

#include <charconv>

namespace Sonar {

namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  auto const first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The key of 32 digits, the first pair being byte 0; nothing if it is no such text.
std::optional<SipKey> keyOf(std::string_view digits) {
  if (digits.size() != 32) return std::nullopt;
  U64 words[2] = {0, 0};
  for (std::size_t i = 0; i < 16; ++i) {
    U8 byte = 0;
    char const* const first = digits.data() + 2 * i;
    auto const [end, error] = std::from_chars(first, first + 2, byte, 16);
    if (error != std::errc{} || end != first + 2) return std::nullopt;
    words[i / 8] |= static_cast<U64>(byte) << (8 * (i % 8));
  }
  return SipKey{words[0], words[1]};
}

// Adds the key of one line; returns what was expected instead, or nothing.
std::string_view addLine(Keyring& keys, std::string_view line) {
  auto const idEnd = line.find_first_of(blanks);
  if (idEnd == std::string_view::npos) return "expected a key id, a blank and 32 hexadecimal digits";
  U8 id = 0;
  auto const [end, error] = std::from_chars(line.data(), line.data() + idEnd, id);
  if (error != std::errc{} || end != line.data() + idEnd) return "expected a key id from 0 to 255";
  auto const key = keyOf(trimmed(line.substr(idEnd)));
  if (!key) return "expected 32 hexadecimal digits after the key id";
  if (!keys.keyIs(id, *key)) return "expected a key id that no line above has";
  return {};
}

}  // namespace

bool Keyring::keyIs(U8 id, SipKey const& key) {
  if (keys_[id]) return false;
  keys_[id] = key;
  if (empty_) signingId_ = id;
  empty_ = false;
  return true;
}

KeyFile parseKeyFile(std::string_view text) {
  KeyFile file;
  for (std::size_t number = 1; !text.empty(); ++number) {
    auto const lineEnd = text.find('\n');
    auto const line = trimmed(text.substr(0, lineEnd));
    text = lineEnd == std::string_view::npos ? std::string_view{} : text.substr(lineEnd + 1);
    if (line.empty() || line.front() == '#') continue;
    if (auto const expected = addLine(file.keys, line); !expected.empty()) {
      return {{}, "line " + std::to_string(number) + ": " + std::string(expected)};
    }
  }
  if (file.keys.empty()) file.error = "expected at least one line with a key id and 32 hexadecimal digits";
  return file;
}

}  // namespace Sonar
