// Table files that are only in this process's memory, for tests and for the simulated fabric. All mappings of a path
// are the same bytes. A table that is replaced stays with those who mapped it.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/ShelfStorage.h"

namespace Shelf {

class MemoryStorage : public Storage {
 public:
  MemoryStorage();
  ~MemoryStorage() override;

  std::unique_ptr<Mapping> openForReading(const std::string& path) override;
  std::unique_ptr<Mapping> openForWriting(const std::string& path) override;
  std::unique_ptr<Mapping> create(const std::string& path, std::size_t size,
                                  const std::function<void(Mapping&)>& fill) override;
  void textFileIs(const std::string& path, std::string_view text) override;

  /// Puts a file of these bytes at `path`, as any other program could.
  void fileIs(const std::string& path, std::span<const std::byte> bytes);
  /// A copy of the file's bytes; empty if there is none.
  std::vector<std::byte> file(const std::string& path) const;
  /// The text file at `path`; empty if there is none.
  std::string textFile(const std::string& path) const;

 private:
  struct File;
  class View;

  std::map<std::string, std::shared_ptr<File>> files_;
  std::map<std::string, std::string> texts_;
};

}  // namespace Shelf
