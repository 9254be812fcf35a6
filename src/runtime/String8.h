// Strings that cost eight bytes to hold and one count to copy. The text is shared and never changes; an operation
// that would change it makes another. The empty string holds no memory. `Name` is the same for the names of attributes
// and directory entries. Counts are plain, so one text belongs to one thread.
#pragma once

#include <atomic>
#include <compare>
#include <concepts>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

#include "runtime/Types.h"

namespace Rix {

class String8 {
 public:
  /// What `pos` returns when there is no such place.
  static constexpr std::size_t npos = std::string_view::npos;

  String8() noexcept = default;
  String8(std::string_view text) : text_(make(text, {})) {}
  String8(char const* text) : String8(std::string_view(text)) {}
  String8(std::string const& text) : String8(std::string_view(text)) {}
  String8(String8 const& other) noexcept : text_(other.text_) {
    if (text_) ++text_->count;
  }
  String8(String8&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
  String8& operator=(String8 const& other) noexcept {
    String8(other).swap(*this);
    return *this;
  }
  String8& operator=(String8&& other) noexcept {
    String8(std::move(other)).swap(*this);
    return *this;
  }
  ~String8() {
    if (text_ && --text_->count == 0) destroy(text_);
  }

  void swap(String8& other) noexcept { std::swap(text_, other.text_); }

  /// Makes this string the `length` characters of `chars` that begin at `start`.
  void init(char const* chars, std::size_t start, std::size_t length) {
    *this = String8(std::string_view(chars + start, length));
  }

  bool empty() const noexcept { return !text_; }
  std::size_t length() const noexcept { return text_ ? text_->length : 0; }
  std::size_t size() const noexcept { return length(); }

  /// The characters, followed by one zero character.
  char const* charPtr() const noexcept { return text_ ? text_->chars() : ""; }
  char const* begin() const noexcept { return charPtr(); }
  char const* end() const noexcept { return charPtr() + length(); }
  char operator[](std::size_t index) const noexcept { return charPtr()[index]; }
  std::string_view view() const noexcept { return {charPtr(), length()}; }

  /// At most `length` characters from `start`; empty when `start` lies behind the end.
  String8 substr(std::size_t start, std::size_t length = npos) const;

  /// The first place at or after `from` where `part` begins, or `npos`.
  std::size_t pos(std::string_view part, std::size_t from = 0) const noexcept { return view().find(part, from); }
  std::size_t pos(char part, std::size_t from = 0) const noexcept { return view().find(part, from); }

  /// A hash of the bytes, computed once.
  U32 hash() const noexcept;

  String8& operator+=(String8 const& other) { return *this = *this + other; }
  friend String8 operator+(String8 const& left, String8 const& right);

  friend bool operator==(String8 const& left, String8 const& right) noexcept {
    return left.text_ == right.text_ || left.view() == right.view();
  }
  friend std::strong_ordering operator<=>(String8 const& left, String8 const& right) noexcept {
    return left.text_ == right.text_ ? std::strong_ordering::equal : left.view() <=> right.view();
  }
  template <std::convertible_to<std::string_view> Text>
  friend bool operator==(String8 const& left, Text const& right) noexcept {
    return left.view() == std::string_view(right);
  }
  template <std::convertible_to<std::string_view> Text>
  friend std::strong_ordering operator<=>(String8 const& left, Text const& right) noexcept {
    return left.view() <=> std::string_view(right);
  }

 private:
  // The characters follow the header in the same block. A hash of zero is one that was not computed yet; it may be
  // computed by two readers at once, to the same result.
  struct Text {
    U32 count;
    U32 length;
    std::atomic<U32> hash;
    char* chars() { return reinterpret_cast<char*>(this + 1); }
  };

  explicit String8(Text* text) noexcept : text_(text) {}

  // One block with `head` and `tail` in it, counted once; null when both are empty.
  static Text* make(std::string_view head, std::string_view tail);
  static void destroy(Text* text) noexcept;

  Text* text_ = nullptr;
};

/// A string used as a name. A type of its own, so that a key is told from a text; the two share their characters.
class Name : public String8 {
 public:
  using String8::String8;
  Name() noexcept = default;
  Name(String8 text) noexcept : String8(std::move(text)) {}
};

std::ostream& operator<<(std::ostream& out, String8 const& text);

}  // namespace Rix

template <>
struct std::hash<Rix::String8> {
  std::size_t operator()(Rix::String8 const& text) const noexcept { return text.hash(); }
};
template <>
struct std::hash<Rix::Name> {
  std::size_t operator()(Rix::Name const& text) const noexcept { return text.hash(); }
};
