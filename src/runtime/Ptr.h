// Reference-counted objects: Rix::PtrInterface, the root of all, and Rix::Ptr, the pointer that counts.
//
// One 32-bit word holds the count and two flags of reactors:
//   bit 31  zombie: the object no longer runs handlers
//   bit 29  hasNotificationActive: its owner has turned its notifications on
//   others  the count; good below 2^29, since flag 29 lies above what plain counting reaches
// Flags and count share the word, so counting adds and subtracts one and never writes the word as a whole. It is the
// lower half of one of 64 bits, whose upper half is the derived class's: what changes along with the count, as an
// entity's interest does, then costs nothing more.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include "runtime/Assert.h"
#include "runtime/Types.h"

namespace Rix {

struct VFPtrInterface {
  // True: counts are updated atomically. Set it before the first object is shared between threads, and never back.
  static inline bool enableThreadSafePointers = false;
};

class PtrInterface {
 public:
  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;
  virtual ~PtrInterface() = default;

  bool hasNotificationActive() const { return flag(activeBit); }
  bool isZombie() const { return flag(zombieBit); }
  // How many Ptr hold this object.
  U32 references() const { return static_cast<U32>(word_) & countMask; }

  // Turns the object's notifications on or off. A reactor passes the change on to its watchers and then to what it
  // owns, in the order of its attributes; an equal value changes nothing.
  virtual void hasNotificationActiveIs(bool active) { flagIs(activeBit, active); }
  // Makes a reactor and all below it deaf for good (or hearing again, which only tests need).
  virtual void rixDoZombieReactors(bool zombie) { flagIs(zombieBit, zombie); }

  // Takes one reference, and drops one. `upper` is what the derived class adds to or takes off its half of the word in
  // the same step.
  void rixReference(U32 upper = 0) const {
    U64 const sum = wordGrows(U64{upper} << 32 | 1);
    RIX_ASSERT((sum & plainCountMask) != 0);
  }
  void rixRelease(U32 upper = 0) const {
    U64 const left = wordGrows(-(U64{upper} << 32 | 1));
    if ((left & countMask) == 0) [[unlikely]]
      const_cast<PtrInterface*>(this)->handleZeroRef();
  }

 protected:
  PtrInterface() = default;

  // The count has reached zero: destroys the object.
  virtual void handleZeroRef() { delete this; }

  bool flag(U64 bit) const { return (word_ & bit) != 0; }
  bool flagIs(U64 bit, bool value) {
    if (flag(bit) == value) return false;
    word_ ^= bit;
    return true;
  }

  U32 upperWord() const { return static_cast<U32>(word_ >> 32); }
  void upperWordIs(U32 upper) { wordGrows(U64{upper - upperWord()} << 32); }

  static constexpr U32 zombieBit = 1u << 31;
  static constexpr U32 activeBit = 1u << 29;
  static constexpr U32 countMask = 0x5fffffff;
  static constexpr U32 plainCountMask = 0x1fffffff;

 private:
  // Adds, modulo 2^64, and returns the sum.
  U64 wordGrows(U64 difference) const {
    if (VFPtrInterface::enableThreadSafePointers) [[unlikely]] {
      return std::atomic_ref<U64>(word_).fetch_add(difference, std::memory_order_acq_rel) + difference;
    }
    return word_ += difference;
  }

  mutable U64 word_ = 0;
};

// Owns one reference. Null is a value; dereferencing null is an assertion. Converts as plain pointers do.
template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}                             // NOLINT: null is a value of every pointer
  Ptr(T* object) : object_(object) { reference(); }  // NOLINT: the count is in the object, so this is safe
  Ptr(Ptr const& other) : object_(other.object_) { reference(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other)
      : object_(other.get()) {  // NOLINT: as plain pointers convert
    reference();
  }
  ~Ptr() { release(); }

  Ptr& operator=(Ptr const& other) {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }
  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  T* get() const { return object_; }
  T& operator*() const { return *checked(); }
  T* operator->() const { return checked(); }
  explicit operator bool() const { return object_ != nullptr; }

  template <class U>
  bool operator==(Ptr<U> const& other) const {
    return object_ == other.get();
  }
  bool operator==(T const* other) const { return object_ == other; }
  bool operator==(std::nullptr_t) const { return object_ == nullptr; }

 private:
  T* checked() const {
    RIX_ASSERT(object_ != nullptr);
    return object_;
  }
  void reference() const {
    if (object_) object_->rixReference();
  }
  void release() const {
    if (object_) object_->rixRelease();
  }

  T* object_ = nullptr;
};

template <class T, class... Arguments>
Ptr<T> make(Arguments&&... arguments) {
  return Ptr<T>(new T(std::forward<Arguments>(arguments)...));
}

template <class T, class U>
Ptr<T> dynamicCast(Ptr<U> const& pointer) {
  return Ptr<T>(dynamic_cast<T*>(pointer.get()));
}

}  // namespace Rix

template <class T>
struct std::hash<Rix::Ptr<T>> {
  std::size_t operator()(Rix::Ptr<T> const& pointer) const { return std::hash<T*>()(pointer.get()); }
};
