// The hash of bytes, read in one order on every machine.
#include "runtime/Hash.h"

namespace Rix {

namespace {

// Reads up to eight bytes, lowest first, whatever the byte order of the machine.
U64 loadWord(unsigned char const* bytes, std::size_t length) {
  U64 word = 0;
  for (std::size_t i = 0; i < length; ++i) word |= U64{bytes[i]} << (8 * i);
  return word;
}

}  // namespace

U32 hashBytes(void const* bytes, std::size_t length) {
  auto const* next = static_cast<unsigned char const*>(bytes);
  U64 state = 0x9e3779b97f4a7c15ULL ^ length;
  for (; length >= 8; length -= 8, next += 8) {
    state = (state ^ loadWord(next, 8)) * 0xff51afd7ed558ccdULL;
    state ^= state >> 32;
  }
  return mixHash64(state ^ loadWord(next, length));
}

}  // namespace Rix
