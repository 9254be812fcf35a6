// Where everything stands in a table's file. Used by the reader's and the writer's rules; knows no storage.
//
//   header     fixed when the file is made: magic, layout version, sizes, capacity, names, checksum
//   counters   members, slots in use so far, number of changes, refusals, number of names
//   journal    the number and the image of the slot that is being written
//   names      append-only: interface names too long for a row
//   ring       the numbers of the last changed slots
//   buckets    the first slot of each chain of equal hashes
//   slots      sequence, next in chain, state and hash, checksum, row. Last, so that a bad number leads outside
//
// All is in words of eight bytes, in the machine's own byte order: the file never leaves the machine, and a magic read
// in the other order is not ours. Slots are named by number, and places by word offset; there are no pointers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "runtime/ShelfStorage.h"

namespace Shelf {

/// What a table is made for. Reader and writer must agree on all but the three numbers of entries.
struct TableShape {
  std::uint32_t keySize = 0;       ///< bytes; the key is the first bytes of the row; 1 to rowSize
  std::uint32_t rowSize = 0;       ///< bytes with the key; at most kMaxRowSize
  std::uint32_t capacity = 0;      ///< rows; 1 to kMaxCapacity
  std::uint32_t ringSize = 0;      ///< changes that a reader may be behind; a power of two, or 0: chosen by capacity
  std::uint32_t nameCapacity = 0;  ///< names that do not fit into a row; at most kMaxNames
  std::string type;                ///< the type of the rows, at most kMaxText characters
  std::string name;                ///< the table's name, as `type`
};

class Layout {
 public:
  static constexpr std::uint64_t kMagic = 0x316664656873627a;
  static constexpr std::uint64_t kVersion = 1;
  static constexpr std::uint32_t kMaxRowSize = 1U << 16;
  static constexpr std::uint32_t kMaxCapacity = 1U << 24;
  static constexpr std::uint32_t kMaxNames = 1U << 16;
  static constexpr std::size_t kMaxText = 63;

  // The header and the counters, by word.
  static constexpr std::size_t kMagicAt = 0;
  static constexpr std::size_t kVersionAt = 1;
  static constexpr std::size_t kSizesAt = 2;
  static constexpr std::size_t kCapacityAt = 3;
  static constexpr std::size_t kEntriesAt = 4;
  static constexpr std::size_t kTypeAt = 5;
  static constexpr std::size_t kNameAt = 13;
  static constexpr std::size_t kChecksumAt = 21;
  static constexpr std::size_t kRetiredAt = 24;
  static constexpr std::size_t kMembersAt = 32;
  static constexpr std::size_t kSlotsUsedAt = 33;
  static constexpr std::size_t kChangesAt = 34;
  static constexpr std::size_t kRowRefusalsAt = 35;
  static constexpr std::size_t kNamesAt = 36;
  static constexpr std::size_t kNameRefusalsAt = 37;
  static constexpr std::size_t kJournalAt = 64;

  // A slot, by word from its first one. The journal is the same with the slot's number in place of the sequence.
  static constexpr std::size_t kSequence = 0;
  static constexpr std::size_t kNext = 1;
  static constexpr std::size_t kState = 2;
  static constexpr std::size_t kSum = 3;
  static constexpr std::size_t kRow = 4;

  /// Words of one name: a byte of length, its characters, and a word of checksum.
  static constexpr std::size_t kNameWords = 8;
  static constexpr std::size_t kMaxName = 55;

  /// Throws std::invalid_argument, saying which number or text and its range, for a shape that cannot be laid out.
  explicit Layout(TableShape shape);

  /// The layout of a file that is there. Throws Vesta::CorruptionDetectedException, with what was found, for anything
  /// that is not a whole table of this layout version.
  static Layout of(const Mapping& mapping);

  /// Writes the header and the empty structure into a zeroed mapping of `bytes()`.
  void format(const Mapping& mapping) const;

  const TableShape& shape() const { return shape_; }
  std::size_t bytes() const;
  /// Words of a slot behind its first four: the row, and zeros to the end. A multiple of four.
  std::size_t rowWords() const { return slotWords_ - kRow; }
  std::size_t slotWords() const { return slotWords_; }
  std::uint32_t buckets() const { return buckets_; }
  std::size_t nameAt(std::uint32_t index) const { return namesAt_ + index * kNameWords; }
  std::size_t ringAt(std::uint64_t change) const { return ringAt_ + (change & (shape_.ringSize - 1)); }
  std::size_t bucketAt(std::uint32_t hash) const { return bucketsAt_ + (hash & (buckets_ - 1)); }
  std::size_t slotAt(std::uint32_t slot) const { return slotsAt_ + slot * slotWords_; }

 private:
  TableShape shape_;
  std::uint32_t buckets_;
  std::size_t slotWords_;
  std::size_t namesAt_;
  std::size_t ringAt_;
  std::size_t bucketsAt_;
  std::size_t slotsAt_;
};

}  // namespace Shelf
