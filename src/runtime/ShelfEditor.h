// The writer's rules over one table, in bytes. One writer per table; it never waits for a reader. Opens what stands
// and keeps its rows, or makes the table anew where what stands is not the same table or is spoiled.
//
// Writing a slot: its new image goes to the journal, the sequence number becomes odd, the image goes to the slot, the
// sequence number becomes even. Killed anywhere, the writer leaves readers with whole rows, and its next start
// finishes what was begun.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "runtime/ShelfNames.h"
#include "runtime/ShelfStorage.h"
#include "runtime/ShelfView.h"

namespace Shelf {

enum class WriteResult {
  kUnchanged,  ///< the table holds this very row, and no change was told
  kChanged,
  kAdded,
  kRefused,  ///< the table is full; counted
};

class TableEditor {
 public:
  /// Opens or makes the table at `path`. Throws std::invalid_argument for a shape out of range, and
  /// Vesta::StorageException where the system refuses or the table has a writer already.
  TableEditor(Storage& storage, const std::string& path, const TableShape& shape, KeyHash hash);

  /// Why what stood at the path was given up with its rows; empty if it was taken over or nothing stood there.
  const std::string& replacedBecause() const { return replacedBecause_; }

  // Each throws Vesta::CorruptionDetectedException if somebody else spoiled the file meanwhile.
  WriteResult write(std::span<const std::byte> row);
  /// False if there is no such row.
  bool remove(std::span<const std::byte> key);
  void removeAll();
  /// Calls back with each row. The callback must not write.
  void rows(const std::function<void(std::span<const std::byte> row)>& callback);

  TableView& view() { return *view_; }
  Names& names() { return *names_; }

 private:
  bool takeOver(Storage& storage, const std::string& path, const Layout& layout, KeyHash hash);
  void standOn(std::unique_ptr<Mapping> mapping, KeyHash hash);
  void recover();
  void finishSlot(std::uint32_t slot);
  std::vector<bool> sweepChains();
  void countRows(std::uint32_t rows);
  void storeSlot(std::uint32_t slot, bool used, std::uint32_t hash, std::uint32_t next, std::span<const std::byte> row);
  void storeLink(std::size_t place, std::uint32_t value);
  void insert(std::uint32_t slot, std::uint32_t hash, std::span<const std::byte> row);
  void told(std::uint32_t slot);

  std::unique_ptr<Mapping> mapping_;
  std::unique_ptr<TableView> view_;
  std::unique_ptr<TableNames> names_;
  std::uint64_t* words_ = nullptr;
  std::string replacedBecause_;
  std::vector<std::uint32_t> free_;
  std::uint32_t members_ = 0;
  std::uint32_t slotsUsed_ = 0;
  std::vector<std::uint64_t> image_;
};

}  // namespace Shelf
