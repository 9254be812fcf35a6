// Shared tables in real files: the mapping below Shelf's rules. Opens, maps, locks and replaces files, and turns the
// loss of a mapped file's bytes into a flag. Knows nothing of what is in them.
//
// A file that is cut short while it is mapped makes the system send SIGBUS at the next touch. The handler puts zeroed
// memory in place of the whole mapping and marks it damaged, so the copy that was under way ends, and whoever copied
// sees the mark afterwards. That costs a read nothing, where a system call per row would cost many times the row.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "runtime/ShelfStorage.h"

namespace Platform {

class SharedMemory : public Shelf::Storage {
 public:
  std::unique_ptr<Shelf::Mapping> openForReading(const std::string& path) override;
  /// The right to write is a lock on the file, and ends with the mapping or the process.
  std::unique_ptr<Shelf::Mapping> openForWriting(const std::string& path) override;
  /// Makes missing folders. The file's blocks are taken as rows are first written; a file system that runs full
  /// damages the writer's mapping then.
  std::unique_ptr<Shelf::Mapping> create(const std::string& path, std::size_t size,
                                         const std::function<void(Shelf::Mapping&)>& fill) override;
  void textFileIs(const std::string& path, std::string_view text) override;
};

}  // namespace Platform
