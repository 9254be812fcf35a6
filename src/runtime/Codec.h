// Values as bytes: what a frame is written with and read from.
//
// Little-endian. One byte and two byte integers are of fixed size; longer ones take as many bytes as they need, seven
// bits in each; a text is its length and its bytes. Each value type has a pair encodeValue(writer, value) and
// decodeValue(reader, value): the plain types here, the others beside the type or in the folder that knows it, found
// by argument. There is one way to write a value, and a reader refuses any other.
//
// A reader trusts nothing: every length is held against the bytes that are left before it is used.
#pragma once

#include <bit>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "runtime/String8.h"
#include "runtime/Types.h"

namespace Rix {

// Bytes that are no frame, or not one of the expected layout. The text tells what was read, where, what was expected
// and what was there.
class FrameException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The longest text that a frame may hold.
inline constexpr std::size_t maxTextLength = 65535;

class ByteWriter {
 public:
  std::string_view view() const { return bytes_; }
  std::string take() { return std::move(bytes_); }
  std::size_t size() const { return bytes_.size(); }
  void clear() { bytes_.clear(); }

  void raw(std::string_view bytes) { bytes_.append(bytes); }
  template <class Integer>
  void fixed(Integer value) {
    for (std::size_t i = 0; i < sizeof(Integer); ++i) bytes_.push_back(static_cast<char>(U64{value} >> (8 * i) & 0xff));
  }
  void variable(U64 value) {
    for (; value >= 0x80; value >>= 7) bytes_.push_back(static_cast<char>((value & 0x7f) | 0x80));
    bytes_.push_back(static_cast<char>(value));
  }
  // A text longer than a frame may hold is a mistake of the writer: an assertion.
  void text(std::string_view text);

 private:
  std::string bytes_;
};

class ByteReader {
 public:
  // `bytes` must outlive the reader.
  explicit ByteReader(std::string_view bytes) : bytes_(bytes) {}

  std::size_t position() const { return at_; }
  void positionIs(std::size_t at) { at_ = at; }
  bool atEnd() const { return at_ == bytes_.size(); }
  std::size_t left() const { return bytes_.size() - at_; }
  // The bytes from `from` up to the present position.
  std::string_view since(std::size_t from) const { return bytes_.substr(from, at_ - from); }

  std::string_view raw(std::size_t length, std::string_view what) {
    if (length > left()) malformed(what, std::to_string(length) + " bytes", std::to_string(left()) + " left");
    std::string_view const found = bytes_.substr(at_, length);
    at_ += length;
    return found;
  }
  template <class Integer>
  Integer fixed(std::string_view what) {
    std::string_view const found = raw(sizeof(Integer), what);
    U64 value = 0;
    for (std::size_t i = 0; i < sizeof(Integer); ++i) value |= U64{static_cast<U8>(found[i])} << (8 * i);
    return static_cast<Integer>(value);
  }
  // An integer of at most `limit`.
  U64 variable(std::string_view what, U64 limit = std::numeric_limits<U64>::max());
  std::string_view text(std::string_view what, std::size_t limit = maxTextLength);

  // Raises FrameException: `what` was read at the present position.
  [[noreturn]] void malformed(std::string_view what, std::string_view expected, std::string_view found) const;

 private:
  std::string_view bytes_;
  std::size_t at_ = 0;
};

inline void encodeValue(ByteWriter& writer, bool value) {
  writer.fixed(U8{value});
}
inline void decodeValue(ByteReader& reader, bool& value) {
  U8 const found = reader.fixed<U8>("truth value");
  if (found > 1) reader.malformed("truth value", "0 or 1", std::to_string(found));
  value = found != 0;
}

template <class Integer>
requires std::is_unsigned_v<Integer> &&
    (!std::is_same_v<Integer, bool>)void encodeValue(ByteWriter& writer, Integer value) {
  if constexpr (sizeof(Integer) <= 2) {
    writer.fixed(value);
  } else {
    writer.variable(value);
  }
}
template <class Integer>
requires std::is_unsigned_v<Integer> &&
    (!std::is_same_v<Integer, bool>)void decodeValue(ByteReader& reader, Integer& value) {
  if constexpr (sizeof(Integer) <= 2) {
    value = reader.fixed<Integer>("integer");
  } else {
    value = static_cast<Integer>(reader.variable("integer", std::numeric_limits<Integer>::max()));
  }
}

inline void encodeValue(ByteWriter& writer, double value) {
  writer.fixed(std::bit_cast<U64>(value));
}
inline void decodeValue(ByteReader& reader, double& value) {
  value = std::bit_cast<double>(reader.fixed<U64>("floating-point number"));
}

inline void encodeValue(ByteWriter& writer, String8 const& value) {
  writer.text(value.view());
}
inline void decodeValue(ByteReader& reader, String8& value) {
  value = String8(reader.text("text"));
}
inline void decodeValue(ByteReader& reader, Name& value) {
  value = Name(reader.text("name"));
}

// Reads one value of a default-constructible type.
template <class Value>
Value decoded(ByteReader& reader) {
  Value value{};
  decodeValue(reader, value);
  return value;
}

}  // namespace Rix
