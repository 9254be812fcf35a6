// How the probing service's two tables lie in shared memory: the marshalling of their rows, their names, and the typed
// reader and writer that the service, the switch's agent and tests share. Interface names too long for a row go
// through the name list of the table's file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "model/SonarRows.h"
#include "runtime/ShelfMap.h"
#include "runtime/ShelfWriter.h"
#include "runtime/Vesta.h"

namespace Sonar {

/// What a shared table asks of its rows; `Row` has the `Key` as its member `key`.
template <class Key_, class Row_>
struct StreamTableOps {
  using Key = Key_;
  using Row = Row_;
  static constexpr std::uint32_t kKeySize = Key::encodedSize;
  static constexpr std::uint32_t kRowSize = Row::encodedSize;

  static std::uint32_t hash(std::span<std::byte const> key);
  /// False if the table does not know the interface's name and cannot take it up.
  static bool encodeKey(Key const& key, Shelf::Names& names, std::span<std::byte> bytes);
  static bool encodeRow(Row const& row, Shelf::Names& names, std::span<std::byte> bytes);
  /// Both raise Vesta::CorruptionDetectedException for a name that no writer left.
  static Key decodeKey(std::span<std::byte const> bytes, Shelf::Names& names);
  static Row decodeRow(std::span<std::byte const> bytes, Shelf::Names& names);
};
using EgressStreamOps = StreamTableOps<EgressStream, EgressStreamTable>;
using IngressStreamOps = StreamTableOps<IngressStream, IngressStreamStatisticsTableEntry>;
extern template struct StreamTableOps<EgressStream, EgressStreamTable>;
extern template struct StreamTableOps<IngressStream, IngressStreamStatisticsTableEntry>;

using EgressStreamReader = Shelf::ShelfMap<EgressStream, EgressStreamTable, EgressStreamOps>;
using EgressStreamWriter = Shelf::TableWriter<EgressStream, EgressStreamTable, EgressStreamOps>;
using IngressStreamReader = Shelf::ShelfMap<IngressStream, IngressStreamStatisticsTableEntry, IngressStreamOps>;
using IngressStreamWriter = Shelf::TableWriter<IngressStream, IngressStreamStatisticsTableEntry, IngressStreamOps>;

// The names of the two tables below their root, and the types of their rows.
inline constexpr char const* egressStreamTableName = "egressStreamTable";
inline constexpr char const* egressStreamTableType = "Sonar::EgressStreamTable";
inline constexpr char const* ingressStreamStatisticsTableName = "ingressStreamStatisticsTable";
inline constexpr char const* ingressStreamStatisticsTableType = "Sonar::IngressStreamStatisticsTableEntry";

/// Runs `read`, which reads `table`. Corruption that it meets is told to the table, which then gives itself up (or
/// raises, if it is set to).
template <class Table, class Read>
void guardedRead(Table& table, Read const& read) {
  try {
    read();
  } catch (Vesta::CorruptionDetectedException const& corruption) {
    table.corruptionDetected(corruption.what());
  }
}

/// The row of `key`, guarded; the empty row, whose key is blank, where there is none or none can be read.
template <class Table, class Key>
auto guardedRow(Table& table, Key const& key) {
  auto row = table.emptyRow();
  guardedRead(table, [&] { table.lookup(key, row); });
  return row;
}

/// Calls visit(key) for each row, guarded; corruption ends the walk.
template <class Table, class Visit>
void visitKeys(Table& table, Visit const& visit) {
  guardedRead(table, [&] {
    auto row = table.emptyRow();
    Shelf::Hint hint = 0;
    for (bool found = table.first(row, hint); found; found = table.next(row.key, row, hint)) visit(row.key);
  });
}

}  // namespace Sonar
