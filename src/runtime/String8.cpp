// Making, joining, cutting and releasing the shared text.
#include "runtime/String8.h"

#include <cstring>
#include <limits>
#include <new>
#include <ostream>

#include "runtime/Exceptions.h"
#include "runtime/Hash.h"

namespace Rix {

String8::Text* String8::make(std::string_view head, std::string_view tail) {
  std::size_t length = head.size() + tail.size();
  if (length == 0) return nullptr;
  if (length > std::numeric_limits<U32>::max()) throwRangeException("string longer than 4294967295 characters");
  auto* text = new (::operator new(sizeof(Text) + length + 1)) Text{1, static_cast<U32>(length), {0}};
  if (!head.empty()) std::memcpy(text->chars(), head.data(), head.size());
  if (!tail.empty()) std::memcpy(text->chars() + head.size(), tail.data(), tail.size());
  text->chars()[length] = '\0';
  return text;
}

void String8::destroy(Text* text) noexcept {
  text->~Text();
  ::operator delete(text);
}

String8 String8::substr(std::size_t start, std::size_t length) const {
  if (start >= this->length()) return {};
  if (start == 0 && length >= this->length()) return *this;
  return view().substr(start, length);
}

U32 String8::hash() const noexcept {
  if (!text_) return hashBytes("", 0);
  U32 hash = text_->hash.load(std::memory_order_relaxed);
  if (hash == 0) {
    hash = hashBytes(charPtr(), length());
    text_->hash.store(hash, std::memory_order_relaxed);
  }
  return hash;
}

String8 operator+(String8 const& left, String8 const& right) {
  if (left.empty()) return right;
  if (right.empty()) return left;
  return String8(String8::make(left.view(), right.view()));
}

std::ostream& operator<<(std::ostream& out, String8 const& text) {
  return out << text.view();
}

}  // namespace Rix
