// Files as vectors of words, shared by their mappings.
#include "runtime/ShelfMemory.h"

#include <cstring>

#include "runtime/ShelfWords.h"
#include "runtime/Vesta.h"

namespace Shelf {

struct MemoryStorage::File {
  explicit File(std::size_t bytes) : words((bytes + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t)), size(bytes) {}

  std::vector<std::uint64_t> words;
  std::size_t size;
  bool hasWriter = false;
};

class MemoryStorage::View : public Mapping {
 public:
  View(std::shared_ptr<File> file, bool writes) : file_(std::move(file)), writes_(writes) {
    words_ = file_->words.data();
    size_ = file_->size;
    if (writes_) file_->hasWriter = true;
  }
  ~View() override {
    if (writes_) file_->hasWriter = false;
  }

 private:
  std::shared_ptr<File> file_;
  bool writes_;
};

MemoryStorage::MemoryStorage() = default;
MemoryStorage::~MemoryStorage() = default;

std::unique_ptr<Mapping> MemoryStorage::openForReading(const std::string& path) {
  const auto file = files_.find(path);
  return file == files_.end() ? nullptr : std::make_unique<View>(file->second, false);
}

std::unique_ptr<Mapping> MemoryStorage::openForWriting(const std::string& path) {
  const auto file = files_.find(path);
  if (file == files_.end()) return nullptr;
  if (file->second->hasWriter) throw Vesta::StorageException(path + ": has a writer already");
  return std::make_unique<View>(file->second, true);
}

std::unique_ptr<Mapping> MemoryStorage::create(const std::string& path, std::size_t size,
                                               const std::function<void(Mapping&)>& fill) {
  auto file = std::make_shared<File>(size);
  auto view = std::make_unique<View>(file, true);
  fill(*view);
  files_[path] = std::move(file);
  return view;
}

void MemoryStorage::textFileIs(const std::string& path, std::string_view text) {
  texts_[path] = text;
}

void MemoryStorage::fileIs(const std::string& path, std::span<const std::byte> bytes) {
  auto file = std::make_shared<File>(bytes.size());
  if (!bytes.empty()) std::memcpy(file->words.data(), bytes.data(), bytes.size());
  files_[path] = std::move(file);
}

std::vector<std::byte> MemoryStorage::file(const std::string& path) const {
  const auto found = files_.find(path);
  if (found == files_.end()) return {};
  std::vector<std::uint64_t> words(found->second->words.size());
  for (std::size_t at = 0; at < words.size(); ++at) words[at] = loadWord(&found->second->words[at]);
  const auto bytes = std::as_bytes(std::span(words)).first(found->second->size);
  return {bytes.begin(), bytes.end()};
}

std::string MemoryStorage::textFile(const std::string& path) const {
  const auto text = texts_.find(path);
  return text == texts_.end() ? std::string() : text->second;
}

}  // namespace Shelf
