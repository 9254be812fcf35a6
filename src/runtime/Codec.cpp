// Reading and writing bytes: integers of variable length, texts, and the words for what is wrong.
#include "runtime/Codec.h"

#include "runtime/Assert.h"

namespace Rix {

void ByteWriter::text(std::string_view text) {
  RIX_ASSERT(text.size() <= maxTextLength, text.size());
  variable(text.size());
  raw(text);
}

U64 ByteReader::variable(std::string_view what, U64 limit) {
  std::size_t const from = at_;
  U64 value = 0;
  for (unsigned shift = 0; shift < 64; shift += 7) {
    U8 const byte = fixed<U8>(what);
    U64 const part = byte & 0x7fU;
    if (shift == 63 && part > 1) break;
    value |= part << shift;
    if ((byte & 0x80U) != 0) continue;
    // A last byte of zero says nothing that a shorter form would not.
    if (byte == 0 && shift != 0) break;
    if (value > limit) {
      at_ = from;
      malformed(what, "at most " + std::to_string(limit), std::to_string(value));
    }
    return value;
  }
  at_ = from;
  malformed(what, "an integer in its shortest form", "another form");
}

std::string_view ByteReader::text(std::string_view what, std::size_t limit) {
  std::size_t const length = variable(what, limit);
  return raw(length, what);
}

void ByteReader::malformed(std::string_view what, std::string_view expected, std::string_view found) const {
  std::string text("malformed frame: ");
  text.append(what).append(" at byte ").append(std::to_string(at_));
  text.append(": expected ").append(expected).append(", found ").append(found);
  throw FrameException(text);
}

}  // namespace Rix
