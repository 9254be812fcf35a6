// The fabric's keys: which key signs the probes that this switch sends, and which keys it accepts. They are handed in;
// nothing here opens a file.
#pragma once

#include <array>
#include <optional>

#include "sonar/SipHash.h"

namespace Sonar {

/// Keys by their ids. A probe names the id of its key, so that the keys of a running fabric can be changed: add the
/// new one everywhere as accepted, then let it sign everywhere, then take the old one away.
class Keyring {
 public:
  /// The key that signs what this switch sends. Precondition: the ring is not empty.
  SipKey const& signingKey() const { return *keys_[signingId_]; }
  U8 signingId() const { return signingId_; }

  /// The key of that id, null if the ring has none.
  SipKey const* key(U8 id) const { return keys_[id] ? &*keys_[id] : nullptr; }

  bool isEmpty() const { return isEmpty_; }

  /// Adds a key; the first one added signs. Returns false, and changes nothing, if the id is taken.
  bool keyIs(U8 id, SipKey const& key) {
    if (keys_[id]) return false;
    keys_[id] = key;
    if (isEmpty_) signingId_ = id;
    isEmpty_ = false;
    return true;
  }

 private:
  std::array<std::optional<SipKey>, 256> keys_;
  U8 signingId_ = 0;
  bool isEmpty_ = true;
};

}  // namespace Sonar
