// Learns which rows of a table changed, from the ring of changed slots, without a walk. The ring names slots; keys of
// removed rows are known because the keys that were told before are kept. Whoever polls drives it, and says how much
// to look at in one call. If the writer was faster than the ring is long, all slots are looked at instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "runtime/ShelfView.h"

namespace Shelf {

/// What one poll did.
struct PollResult {
  std::size_t keys = 0;  ///< keys told
  bool overrun = false;  ///< a walk over all rows began: changes were too many to be told apart
  bool more = false;     ///< there is more to look at than one poll may
};

class ChangeFollower {
 public:
  /// Begins with what stands: the rows that are there now are known and are not told.
  explicit ChangeFollower(TableView& view);

  /// Looks at no more than `limit` (at least 1) changes or slots, and appends to `keys` the bytes of each key whose
  /// row was added, changed or removed, one behind the other; during a walk, of every key that is there or was known.
  /// Throws Vesta::CorruptionDetectedException.
  PollResult poll(std::size_t limit, std::vector<std::byte>& keys);

 private:
  std::uint32_t changedSlot(std::uint64_t change) const;
  void startWalk();
  void look(std::uint32_t slot, std::vector<std::byte>& keys);
  void know(std::uint32_t slot, bool used);

  TableView& view_;
  std::size_t keySize_;
  std::uint64_t position_;
  bool walking_ = false;
  std::uint32_t walkAt_ = 0;
  std::vector<std::byte> known_;     ///< the key last seen in each slot
  std::vector<bool> present_;        ///< whether a row was seen there
  std::vector<std::uint64_t> seen_;  ///< the poll that looked at the slot last
  std::uint64_t polls_ = 0;
};

}  // namespace Shelf
