// Reference-counted objects: Rix::PtrInterface, the root of all, and Rix::Ptr, the pointer that counts.
//
// One 32-bit word holds the count and two flags of reactors:
//   bit 31  zombie: the object no longer runs handlers
//   bit 29  hasNotificationActive: its owner has turned its notifications on
//   others  the count; good below 2^29, since flag 29 lies above what plain counting reaches
// Flags and count share the word, so counting adds and subtracts one and never writes the word as a whole.
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

  bool hasNotificationActive() const { return (word_ & activeBit) != 0; }
  bool isZombie() const { return (word_ & zombieBit) != 0; }
  // How many Ptr hold this object.
  U32 references() const { return word_ & countMask; }

  // Turns the object's notifications on or off. A reactor passes the change on to its watchers and then to what it
  // owns, in the order of its attributes; an equal value changes nothing.
  virtual void hasNotificationActiveIs(bool active) { flagIs(activeBit, active); }
  // Makes a reactor and all below it deaf for good (or hearing again, which only tests need).
  virtual void rixDoZombieReactors(bool zombie) { flagIs(zombieBit, zombie); }

  void rixReference() const {
    if (VFPtrInterface::enableThreadSafePointers) {
      std::atomic_ref<U32>(word_).fetch_add(1, std::memory_order_relaxed);
    } else {
      RIX_ASSERT((word_ & plainCountMask) != plainCountMask);
      ++word_;
    }
  }
  void rixRelease() const {
    U32 left;
    if (VFPtrInterface::enableThreadSafePointers) {
      left = std::atomic_ref<U32>(word_).fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = --word_;
    }
    if ((left & countMask) == 0) const_cast<PtrInterface*>(this)->handleZeroRef();
  }

 protected:
  PtrInterface() = default;

  // The count has reached zero: destroys the object.
  virtual void handleZeroRef() { delete this; }

  bool flagIs(U32 bit, bool value) {
    if (((word_ & bit) != 0) == value) return false;
    word_ ^= bit;
    return true;
  }

  static constexpr U32 zombieBit = 1u << 31;
  static constexpr U32 activeBit = 1u << 29;
  static constexpr U32 countMask = 0x5fffffff;
  static constexpr U32 plainCountMask = 0x1fffffff;

 private:
  mutable U32 word_ = 0;
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
