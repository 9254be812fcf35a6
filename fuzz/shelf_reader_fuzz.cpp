// Hostile table files: the reader and the writer's take-over must raise their one exception or work, and never crash.
#include "shelf_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kMaxSize = 1U << 16;
  if (size <= kMaxSize) Shelf::Fuzz::read({data, size});
  return 0;
}
