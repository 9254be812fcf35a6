// The reader's rules over one mapped table, in bytes. Reads are lock-free and never hold up the writer: copy, then
// validate. Everything that no writer leaves behind is a Vesta::CorruptionDetectedException. The writer reads by the
// same rules. Not for use by two threads at once; any number of views may stand on one mapping.
//
// A slot's sequence number is odd while the slot is written. The writer has put the new content into the journal
// before that, so a reader takes it from there and waits for nobody: a writer that was suspended or killed in the
// middle of a row costs its readers nothing. A read counts if the sequence number is the same after it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "runtime/ShelfLayout.h"

namespace Shelf {

using KeyHash = std::uint32_t (*)(std::span<const std::byte> key);

class TableView {
 public:
  /// A slot's state outside its row.
  struct Slot {
    bool used;
    std::uint32_t hash;  ///< of the key that it has or had; 31 bits
    std::uint32_t next;  ///< slot in the same chain plus 1, or 0
  };
  /// Where a lookup ended: the slot, and the word that links to it.
  struct Found {
    std::uint32_t slot;
    std::size_t linkAt;
  };

  static constexpr std::uint32_t kHashMask = 0x7fffffff;

  /// Keeps a reference: the mapping outlives the view. Throws as Layout::of.
  TableView(const Mapping& mapping, KeyHash hash);

  const Layout& layout() const { return layout_; }
  const Mapping& mapping() const { return mapping_; }
  std::uint32_t hashOf(std::span<const std::byte> key) const { return hash_(key) & kHashMask; }

  /// Throws if the file was cut short, erased, or replaced by another one.
  void requireAlive() const;

  std::uint32_t members() const { return counter(Layout::kMembersAt, "number of rows"); }
  /// Slots with a higher number have never held a row.
  std::uint32_t slotsUsed() const { return counter(Layout::kSlotsUsedAt, "number of used slots"); }
  /// Changes since the table was made.
  std::uint64_t changes() const { return loadAt(Layout::kChangesAt); }
  /// Rows and names that the writer had to refuse because the table was full.
  std::uint64_t rowRefusals() const { return loadAt(Layout::kRowRefusalsAt); }
  std::uint64_t nameRefusals() const { return loadAt(Layout::kNameRefusalsAt); }

  /// The slot of `key`, whose row row() then is; none if there is no such row.
  std::optional<Found> find(std::span<const std::byte> key);

  /// A consistent copy of a slot below capacity, in row(). If it is not used, row() has no meaning.
  Slot read(std::uint32_t slot);

  /// The row that was read last; good until the next read.
  std::span<const std::byte> row() const;
  std::span<const std::byte> key() const { return row().first(layout_.shape().keySize); }

  /// The slot that a link word at `place` leads to plus 1, or 0.
  std::uint32_t link(std::size_t place) const;

 private:
  std::uint64_t loadAt(std::size_t place) const;
  std::uint32_t counter(std::size_t place, const char* what) const;
  template <bool kWithRow>
  Slot readSlot(std::uint32_t slot);
  std::uint32_t linkValue(std::uint64_t word, std::size_t place) const;

  const Mapping& mapping_;
  Layout layout_;
  KeyHash hash_;
  const std::uint64_t* words_;
  std::vector<std::uint64_t> scratch_;
};

}  // namespace Shelf
