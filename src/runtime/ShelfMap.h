// The typed reader of a shared table. Whoever holds it attaches it, reads rows, polls for changes, and gives it up
// when a read finds corruption. It never writes to the table and never waits for its writer. One thread.
//
// `Ops` tells how a key and a row lie in bytes. It has
//   kKeySize, kRowSize                                          bytes, the key being the first of the row
//   std::uint32_t hash(std::span<const std::byte> key)          equal in all programs that use the table; see keyHash
//   bool encodeKey(const Key&, Names&, std::span<std::byte>)    false if a name in the key cannot be encoded
//   Key decodeKey(std::span<const std::byte>, Names&)
//   Wrapper decodeRow(std::span<const std::byte>, Names&)
// and for the writer (ShelfWriter.h)
//   bool encodeRow(const Wrapper&, Names&, std::span<std::byte>)
// all static. Bytes between fields are zero.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/ShelfBase.h"

namespace Shelf {

/// What all typed readers share: the implementation that is in use now, and its life.
class ShelfMapBase : public ShelfBase {
 public:
  /// Opens the table's file. False if there is none yet. Throws Vesta::CorruptionDetectedException if it is none of
  /// this table's, and Vesta::StorageException.
  bool attach();

  /// Ends the attachment. The dummy takes over; rows read before are no longer good.
  void detach();

  /// Told once the content can be read.
  virtual void collectionReadyIs(bool ready);
  bool collectionReady() const { return collectionReady_; }

  /// A read found corruption, with `text` as its exception's. Throws Vesta::CorruptionDetectedException if the table is
  /// to raise; else gives the table up, and leaves a corruption file.
  void corruptionDetected(const std::string& text);
  void raiseOnCorruptionIs(bool raise) { raiseOnCorruption_ = raise; }

  bool attached() const { return reader_ != nullptr; }

  RowBytes first(Hint& hint) override { return impl_->first(hint); }
  RowBytes next(KeyBytes key, Hint& hint) override { return impl_->next(key, hint); }
  RowBytes lookup(KeyBytes key) override { return impl_->lookup(key); }
  std::uint32_t members() override { return impl_->members(); }
  std::uint32_t capacity() override { return impl_->capacity(); }
  std::uint32_t minSize() override { return impl_->minSize(); }
  std::uint32_t maxSize() override { return impl_->maxSize(); }
  std::string type() override { return impl_->type(); }
  std::string shelfName() override { return impl_->shelfName(); }
  MountStatus mountStatus() override { return impl_->mountStatus(); }
  RootPath rootPath() override { return impl_->rootPath(); }
  void notifying(bool on) override { impl_->notifying(on); }
  void yieldTimeIs(double seconds) override { impl_->yieldTimeIs(seconds); }
  void sampleIs(unsigned sample) override { impl_->sampleIs(sample); }
  std::uint64_t sequence() override { return impl_->sequence(); }
  void write(RowBytes row) override { impl_->write(row); }
  void remove(KeyBytes key) override { impl_->remove(key); }
  void cleanup() override { impl_->cleanup(); }
  bool validate() override { return impl_->validate(); }
  bool validateFiles() override { return impl_->validateFiles(); }
  ReaderCounters readerCounters() override { return impl_->readerCounters(); }
  WriterCounters writerCounters() override { return impl_->writerCounters(); }
  bool flushed() override { return impl_->flushed(); }
  void directCommit() override { impl_->directCommit(); }
  void directWrite(RowBytes row) override { impl_->directWrite(row); }
  Names* names() override { return impl_->names(); }

 protected:
  /// Keeps the storage, which outlives the map.
  ShelfMapBase(Storage& storage, RootPath root, std::string name, std::uint32_t keySize, std::uint32_t rowSize,
               KeyHash hash);

  /// As ShelfBaseReader::poll; nothing while there is no table, and without a debug line: it comes many times a second.
  PollResult pollKeys(std::vector<std::byte>& keys);

 private:
  Storage& storage_;
  RootPath root_;
  std::string name_;
  std::uint32_t keySize_;
  std::uint32_t rowSize_;
  KeyHash hash_;
  std::unique_ptr<ShelfBase> impl_;
  ShelfBaseReader* reader_ = nullptr;  ///< impl_ while it reads a mapped table
  bool collectionReady_ = false;
  bool raiseOnCorruption_ = false;
};

template <typename Key, typename Wrapper, typename Ops>
class ShelfMap : public ShelfMapBase {
 public:
  ShelfMap(Storage& storage, RootPath root, std::string name)
      : ShelfMapBase(storage, std::move(root), std::move(name), Ops::kKeySize, Ops::kRowSize, &Ops::hash) {}

  using ShelfMapBase::first;
  using ShelfMapBase::lookup;
  using ShelfMapBase::next;

  /// The first row; false if there is none.
  bool first(Wrapper& wrapper, Hint& hint) { return decoded(first(hint), wrapper); }

  /// The row behind that of `key`; false at the end. `hint` is what the step before left.
  bool next(const Key& key, Wrapper& wrapper, Hint& hint) {
    KeyArray bytes{};
    if (!encoded(key, bytes)) return false;
    return decoded(next(KeyBytes(bytes), hint), wrapper);
  }

  /// The row of `key`; the empty row if there is none.
  Wrapper lookup(const Key& key, bool& found) {
    Wrapper wrapper = emptyRow_;
    found = lookup(key, wrapper);
    return wrapper;
  }

  /// As above, into `wrapper`, which stays as it is if there is no such row.
  bool lookup(const Key& key, Wrapper& wrapper) {
    KeyArray bytes{};
    return encoded(key, bytes) && decoded(lookup(KeyBytes(bytes)), wrapper);
  }

  /// What a reader goes on with whose read was corrupted: a row with a blank key.
  const Wrapper& emptyRow() const { return emptyRow_; }

  /// Tells the keys of rows that were added, changed or removed since the last poll, a bounded number of them, in the
  /// order of the changes; each row once. After an overrun of the ring all keys that are there or were known are told,
  /// over as many polls as it takes. The callback may read this map and may end its attachment.
  /// Throws Vesta::CorruptionDetectedException.
  template <typename Callback>
  PollResult poll(Callback&& callback) {
    std::vector<std::byte> keys;
    const PollResult result = pollKeys(keys);
    for (std::size_t at = 0; at < keys.size() && attached(); at += Ops::kKeySize) {
      callback(Ops::decodeKey(std::span<const std::byte>(keys).subspan(at, Ops::kKeySize), *names()));
    }
    return result;
  }

 private:
  using KeyArray = std::array<std::byte, Ops::kKeySize>;

  // Without a table the key stays blank, and the dummy does not look at it.
  bool encoded(const Key& key, KeyArray& bytes) { return !attached() || Ops::encodeKey(key, *names(), bytes); }

  bool decoded(RowBytes row, Wrapper& wrapper) {
    if (row.empty()) return false;
    wrapper = Ops::decodeRow(row, *names());
    return true;
  }

  const Wrapper emptyRow_{};
};

}  // namespace Shelf
