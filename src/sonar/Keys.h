// The fabric's keys: which key signs the probes that this switch sends, and which keys it accepts. The text of a key
// file comes in from outside; nothing here opens a file.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "sonar/SipHash.h"

namespace Sonar {

/// Keys by their ids. A probe names the id of its key, so that keys can be changed in a running fabric: add the new
/// one everywhere as accepted, then move it to the top of each file, then take the old one away.
class Keyring {
 public:
  /// The key that signs what this switch sends. Precondition: the ring is not empty.
  SipKey const& signingKey() const { return *keys_[signingId_]; }
  U8 signingId() const { return signingId_; }

  /// The key of that id, null if the ring has none.
  SipKey const* key(U8 id) const { return keys_[id] ? &*keys_[id] : nullptr; }

  bool empty() const { return empty_; }

  /// Adds a key; the first one added signs. Returns false, and changes nothing, if the id is taken.
  bool keyIs(U8 id, SipKey const& key);

 private:
  std::array<std::optional<SipKey>, 256> keys_;
  U8 signingId_ = 0;
  bool empty_ = true;
};

/// What reading a key file gave: a ring, or an error that says in which line and what was expected.
struct KeyFile {
  Keyring keys;
  std::string error;  ///< empty if all is well
};

/// Reads the text of a key file: one key a line as its id (0 to 255), blanks, and 32 hexadecimal digits. The first
/// key signs. Empty lines and lines that start with '#' are skipped. No message ever repeats a key's digits.
KeyFile parseKeyFile(std::string_view text);

}  // namespace Sonar
