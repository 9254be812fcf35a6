// The interface of a table as its readers see it, in bytes, and its two implementations: the reader of a mapped table,
// and what takes its place after a detach. The typed ShelfMap stands above it. No table is written through it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/ShelfChanges.h"
#include "runtime/ShelfNames.h"
#include "runtime/ShelfStorage.h"
#include "runtime/ShelfView.h"

namespace Shelf {

/// Where a walk stands; 0 at its beginning or where it is not known.
using Hint = std::uint64_t;

/// A row's bytes, good until the next operation on the table; empty where there is none.
using RowBytes = std::span<const std::byte>;
using KeyBytes = std::span<const std::byte>;

/// The root of the table files.
struct RootPath {
  std::string path;

  /// The file of a table. Throws std::invalid_argument for a name that is empty or leads elsewhere.
  std::string file(std::string_view shelfName) const;
};

enum class MountStatus { kNotMounted, kMounted, kDetached };

/// How often a reader did what; for the operator.
struct ReaderCounters {
  std::uint64_t reads = 0;
};
struct WriterCounters {
  std::uint64_t writes = 0;
};

/// Reads throw Vesta::CorruptionDetectedException. A reader's writing operations throw Vesta::NoPermissionException,
/// and what no table has throws Vesta::UnimplementedException.
class ShelfBase {
 public:
  virtual ~ShelfBase() = default;

  // The walk is in the order of slots. A row that stands from before first() to after the last next() is met once.
  virtual RowBytes first(Hint& hint) = 0;
  /// The row behind the one of `key`. With hint 0 the key's own row must still be there, else the walk ends.
  virtual RowBytes next(KeyBytes key, Hint& hint) = 0;
  virtual RowBytes lookup(KeyBytes key) = 0;

  virtual std::uint32_t members() = 0;   ///< rows now
  virtual std::uint32_t capacity() = 0;  ///< rows that there is room for
  virtual std::uint32_t minSize() = 0;   ///< the fewest rows that the table can hold
  virtual std::uint32_t maxSize() = 0;   ///< the most rows that the table can hold
  virtual std::string type() = 0;        ///< the type of the rows
  virtual std::string shelfName() = 0;
  virtual MountStatus mountStatus() = 0;
  virtual RootPath rootPath() = 0;

  /// Whether changes are followed. Turning it on takes what stands then as known.
  virtual void notifying(bool on) = 0;
  /// How long a reader may go on before it gives way. This reader gives way by number (sampleIs) and only keeps it.
  virtual void yieldTimeIs(double seconds) = 0;
  /// How many changes or slots one poll looks at.
  virtual void sampleIs(unsigned sample) = 0;
  /// Changes of the table since it was made.
  virtual std::uint64_t sequence() = 0;

  virtual void write(RowBytes row);
  virtual void remove(KeyBytes key);
  virtual void cleanup();
  virtual bool validate();
  virtual bool validateFiles();

  virtual ReaderCounters readerCounters();
  virtual WriterCounters writerCounters();
  virtual bool flushed();
  virtual void directCommit();
  virtual void directWrite(RowBytes row);

  /// What marshalling asks for names; null where there is no table.
  virtual Names* names() = 0;
};

/// The reader of one mapped table.
class ShelfBaseReader : public ShelfBase {
 public:
  /// Throws Vesta::CorruptionDetectedException if the mapping is not a table of this name, row and key size.
  ShelfBaseReader(std::unique_ptr<Mapping> mapping, RootPath root, std::string name, std::uint32_t keySize,
                  std::uint32_t rowSize, KeyHash hash);

  RowBytes first(Hint& hint) override;
  RowBytes next(KeyBytes key, Hint& hint) override;
  RowBytes lookup(KeyBytes key) override;
  std::uint32_t members() override { return view_.members(); }
  std::uint32_t capacity() override { return view_.layout().shape().capacity; }
  std::uint32_t minSize() override { return 0; }
  std::uint32_t maxSize() override { return capacity(); }
  std::string type() override { return view_.layout().shape().type; }
  std::string shelfName() override { return name_; }
  MountStatus mountStatus() override { return MountStatus::kMounted; }
  RootPath rootPath() override { return root_; }
  void notifying(bool on) override;
  void yieldTimeIs(double seconds) override { yieldTime_ = seconds; }
  void sampleIs(unsigned sample) override { sample_ = sample; }
  std::uint64_t sequence() override { return view_.changes(); }
  Names* names() override { return &names_; }

  /// As ChangeFollower::poll, with the sample as its limit; nothing while not notifying.
  PollResult poll(std::vector<std::byte>& keys);

 private:
  RowBytes walkFrom(std::uint64_t slot, Hint& hint);

  std::unique_ptr<Mapping> mapping_;
  RootPath root_;
  std::string name_;
  TableView view_;
  TableNames names_;
  std::unique_ptr<ChangeFollower> follower_;
  double yieldTime_ = 0;
  unsigned sample_ = 16384;
};

/// Stands for a table that there is none of, or none any more. Says what it was asked on the debug stream, throws
/// nothing and finds nothing, so that the code that reads goes on with an empty table.
class ShelfBaseDummy : public ShelfBase {
 public:
  ShelfBaseDummy(RootPath root, std::string name, MountStatus status);

  RowBytes first(Hint& hint) override;
  RowBytes next(KeyBytes key, Hint& hint) override;
  RowBytes lookup(KeyBytes key) override;
  std::uint32_t members() override;
  std::uint32_t capacity() override;
  std::uint32_t minSize() override;
  std::uint32_t maxSize() override;
  std::string type() override;
  std::string shelfName() override;
  MountStatus mountStatus() override;
  RootPath rootPath() override;
  void notifying(bool on) override;
  void yieldTimeIs(double seconds) override;
  void sampleIs(unsigned sample) override;
  std::uint64_t sequence() override;
  void write(RowBytes row) override;
  void remove(KeyBytes key) override;
  void cleanup() override;
  bool validate() override;
  bool validateFiles() override;
  ReaderCounters readerCounters() override;
  WriterCounters writerCounters() override;
  bool flushed() override;
  void directCommit() override;
  void directWrite(RowBytes row) override;
  Names* names() override { return nullptr; }

 private:
  void asked(const char* operation) const;

  RootPath root_;
  std::string name_;
  MountStatus status_;
};

namespace Util {

/// Writes why a table was given up to a file beside the tables, named after the table. Returns its path.
std::string writeCorruptionFile(Storage& storage, const RootPath& root, const std::string& shelfName,
                                std::string_view text);

}  // namespace Util
}  // namespace Shelf
