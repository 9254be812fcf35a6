// Attaching, detaching and giving up.
#include "runtime/ShelfMap.h"

#include "runtime/Vesta.h"

namespace Shelf {

using Vesta::Platform::DebugStream;

ShelfMapBase::ShelfMapBase(Storage& storage, RootPath root, std::string name, std::uint32_t keySize,
                           std::uint32_t rowSize, KeyHash hash)
    : storage_(storage),
      root_(std::move(root)),
      name_(std::move(name)),
      keySize_(keySize),
      rowSize_(rowSize),
      hash_(hash),
      impl_(std::make_unique<ShelfBaseDummy>(root_, name_, MountStatus::kNotMounted)) {}

bool ShelfMapBase::attach() {
  auto mapping = storage_.openForReading(root_.file(name_));
  if (!mapping) return false;
  auto reader = std::make_unique<ShelfBaseReader>(std::move(mapping), root_, name_, keySize_, rowSize_, hash_);
  reader_ = reader.get();
  impl_ = std::move(reader);
  collectionReadyIs(true);
  return true;
}

void ShelfMapBase::detach() {
  DebugStream() << "ShelfMap::detach() " << name_;
  reader_ = nullptr;
  impl_ = std::make_unique<ShelfBaseDummy>(root_, name_, MountStatus::kDetached);
  collectionReady_ = false;
}

void ShelfMapBase::collectionReadyIs(bool ready) {
  DebugStream() << "ShelfMap::collectionReadyIs() ready:" << ready;
  collectionReady_ = ready;
}

void ShelfMapBase::corruptionDetected(const std::string& text) {
  DebugStream() << "ShelfMap::corruptionDetected() " << name_ << ' ' << text;
  if (raiseOnCorruption_) throw Vesta::CorruptionDetectedException(text);
  detach();
  try {
    Util::writeCorruptionFile(storage_, root_, name_, text);
  } catch (const Vesta::StorageException& refused) {
    // Whoever may only read the tables goes on all the same.
    DebugStream() << "ShelfMap::corruptionDetected() " << name_ << " no corruption file: " << refused.what();
  }
}

PollResult ShelfMapBase::pollKeys(std::vector<std::byte>& keys) {
  return reader_ != nullptr ? reader_->poll(keys) : PollResult();
}

}  // namespace Shelf
