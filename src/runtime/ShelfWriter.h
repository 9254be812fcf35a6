// The typed writer of a shared table: the one program that fills it. Rules in ShelfEditor.h, `Ops` as in ShelfMap.h.
#pragma once

#include <array>
#include <string>

#include "runtime/ShelfBase.h"
#include "runtime/ShelfEditor.h"

namespace Shelf {

/// How large a table is made.
struct TableSize {
  std::uint32_t capacity;             ///< rows
  std::uint32_t nameCapacity = 1024;  ///< names of more than seven characters
  std::uint32_t ringSize = 0;         ///< changes that a reader may be behind; 0: chosen by the capacity
};

template <typename Key, typename Wrapper, typename Ops>
class TableWriter {
 public:
  /// Opens the table and keeps its rows, or makes it; see TableEditor.
  TableWriter(Storage& storage, const RootPath& root, const std::string& name, const std::string& type, TableSize size)
      : editor_(storage, root.file(name),
                TableShape{Ops::kKeySize, Ops::kRowSize, size.capacity, size.ringSize, size.nameCapacity, type, name},
                &Ops::hash) {}

  /// Adds or changes the row of its key. kRefused, and counted, if the table is full or has no room for a name in it.
  WriteResult rowIs(const Wrapper& row) {
    std::array<std::byte, Ops::kRowSize> bytes{};
    if (!Ops::encodeRow(row, editor_.names(), bytes)) return WriteResult::kRefused;
    return editor_.write(bytes);
  }

  /// False if there is no such row.
  bool rowDel(const Key& key) {
    std::array<std::byte, Ops::kKeySize> bytes{};
    return Ops::encodeKey(key, editor_.names(), bytes) && editor_.remove(bytes);
  }

  void rowDelAll() { editor_.removeAll(); }

  /// Calls back with each row. The callback must not write.
  template <typename Callback>
  void rows(Callback&& callback) {
    editor_.rows([&](std::span<const std::byte> row) { callback(Ops::decodeRow(row, editor_.names())); });
  }

  std::uint32_t members() { return editor_.view().members(); }
  std::uint32_t capacity() { return editor_.view().layout().shape().capacity; }
  std::uint64_t rowRefusals() { return editor_.view().rowRefusals(); }
  std::uint64_t nameRefusals() { return editor_.view().nameRefusals(); }
  const std::string& replacedBecause() const { return editor_.replacedBecause(); }

 private:
  TableEditor editor_;
};

}  // namespace Shelf
