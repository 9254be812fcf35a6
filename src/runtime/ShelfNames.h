// Interface names in rows. Eight bytes of a row hold the name itself if it has at most seven characters, else its
// number in the append-only table of names of the same file. Equal names have equal cells, so keys compare as bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "runtime/ShelfLayout.h"

namespace Shelf {

/// The eight bytes in a row. All zero is the empty name.
using NameCell = std::array<std::byte, 8>;

/// What marshalling asks about names. A name has at most Layout::kMaxName characters and no zero
/// byte.
class Names {
 public:
  static constexpr std::size_t kInlineCharacters = 7;

  virtual ~Names() = default;

  /// The cell of `name`. None if a reader's table does not know the name (no row can bear it then), or if a writer's
  /// table of names is full or the name cannot stand in one.
  virtual std::optional<NameCell> cell(std::string_view name) = 0;

  /// The name in `cell`. Throws Vesta::CorruptionDetectedException for a cell that no writer makes.
  virtual std::string name(const NameCell& cell) = 0;
};

/// The names of one mapped table. Names never change, so what was read once is kept.
class TableNames : public Names {
 public:
  enum class Use { kRead, kAppend };

  /// Keeps references: mapping and layout outlive it.
  TableNames(const Mapping& mapping, const Layout& layout, Use use);

  std::optional<NameCell> cell(std::string_view name) override;
  std::string name(const NameCell& cell) override;

  /// Reads the names that were added since. Throws Vesta::CorruptionDetectedException.
  void refresh();

  std::size_t count() const { return texts_.size(); }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
  };

  std::string load(std::uint32_t index) const;
  std::optional<NameCell> append(std::string_view name);

  const Mapping& mapping_;
  const Layout& layout_;
  Use use_;
  std::vector<std::string> texts_;
  std::unordered_map<std::string, std::uint32_t, Hash, std::equal_to<>> indexes_;
};

}  // namespace Shelf
