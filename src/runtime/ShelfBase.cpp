// The refusals of a reader, the mapped reader, and the dummy.
#include "runtime/ShelfBase.h"

#include <stdexcept>
#include <utility>

#include "runtime/Vesta.h"

namespace Shelf {

std::string RootPath::file(std::string_view shelfName) const {
  if (shelfName.empty() || shelfName == "." || shelfName == ".." || shelfName.find('/') != std::string_view::npos) {
    throw std::invalid_argument("\"" + std::string(shelfName) + "\" is no name of a table: a file's name is expected");
  }
  return path + "/" + std::string(shelfName);
}

void ShelfBase::write(RowBytes) {
  throw Vesta::NoPermissionException("write to read-only Shelf table");
}
void ShelfBase::remove(KeyBytes) {
  throw Vesta::NoPermissionException("remove to read-only Shelf table");
}
void ShelfBase::cleanup() {
  throw Vesta::NoPermissionException("cleanup to read-only Shelf table");
}
bool ShelfBase::validate() {
  throw Vesta::NoPermissionException("validate to read-only Shelf table");
}
bool ShelfBase::validateFiles() {
  throw Vesta::NoPermissionException("validateFiles to read-only Shelf table");
}

ReaderCounters ShelfBase::readerCounters() {
  throw Vesta::UnimplementedException("readerCounters() not implemented");
}
WriterCounters ShelfBase::writerCounters() {
  throw Vesta::UnimplementedException("writerCounters() not implemented");
}
bool ShelfBase::flushed() {
  throw Vesta::UnimplementedException("flushed() not implemented");
}
void ShelfBase::directCommit() {
  throw Vesta::UnimplementedException("directCommit() not implemented");
}
void ShelfBase::directWrite(RowBytes) {
  throw Vesta::UnimplementedException("directWrite() not implemented");
}

ShelfBaseReader::ShelfBaseReader(std::unique_ptr<Mapping> mapping, RootPath root, std::string name,
                                 std::uint32_t keySize, std::uint32_t rowSize, KeyHash hash)
    : mapping_(std::move(mapping)),
      root_(std::move(root)),
      name_(std::move(name)),
      view_(*mapping_, hash),
      names_(*mapping_, view_.layout(), TableNames::Use::kRead) {
  const TableShape& shape = view_.layout().shape();
  if (shape.keySize != keySize || shape.rowSize != rowSize) {
    throw Vesta::CorruptionDetectedException("rows of " + std::to_string(shape.rowSize) + " bytes with a key of " +
                                             std::to_string(shape.keySize) + " where " + std::to_string(rowSize) +
                                             " with " + std::to_string(keySize) + " are read");
  }
  if (shape.name != name_) {
    throw Vesta::CorruptionDetectedException("file holds table \"" + shape.name + "\" where \"" + name_ + "\" is read");
  }
}

RowBytes ShelfBaseReader::walkFrom(std::uint64_t slot, Hint& hint) {
  view_.requireAlive();
  const std::uint32_t end = view_.slotsUsed();
  for (; slot < end; ++slot) {
    if (!view_.read(static_cast<std::uint32_t>(slot)).used) continue;
    hint = slot + 1;
    return view_.row();
  }
  hint = 0;
  return {};
}

RowBytes ShelfBaseReader::first(Hint& hint) {
  return walkFrom(0, hint);
}

RowBytes ShelfBaseReader::next(KeyBytes key, Hint& hint) {
  if (hint == 0) {
    const auto found = view_.find(key);
    if (!found) return {};
    hint = std::uint64_t{found->slot} + 1;
  }
  return walkFrom(hint, hint);
}

RowBytes ShelfBaseReader::lookup(KeyBytes key) {
  return view_.find(key) ? view_.row() : RowBytes();
}

void ShelfBaseReader::notifying(bool on) {
  if (on == (follower_ != nullptr)) return;
  follower_ = on ? std::make_unique<ChangeFollower>(view_) : nullptr;
}

PollResult ShelfBaseReader::poll(std::vector<std::byte>& keys) {
  return follower_ ? follower_->poll(sample_, keys) : PollResult();
}

ShelfBaseDummy::ShelfBaseDummy(RootPath root, std::string name, MountStatus status)
    : root_(std::move(root)), name_(std::move(name)), status_(status) {}

void ShelfBaseDummy::asked(const char* operation) const {
  Vesta::Platform::DebugStream() << "ShelfBaseDummy::" << operation << "() " << name_;
}

RowBytes ShelfBaseDummy::first(Hint& hint) {
  asked("first");
  hint = 0;
  return {};
}

RowBytes ShelfBaseDummy::next(KeyBytes, Hint& hint) {
  asked("next");
  hint = 0;
  return {};
}

RowBytes ShelfBaseDummy::lookup(KeyBytes) {
  asked("lookup");
  return {};
}

std::uint32_t ShelfBaseDummy::members() {
  asked("members");
  return 0;
}

std::uint32_t ShelfBaseDummy::capacity() {
  asked("capacity");
  return 0;
}

std::uint32_t ShelfBaseDummy::minSize() {
  asked("minSize");
  return 0;
}

std::uint32_t ShelfBaseDummy::maxSize() {
  asked("maxSize");
  return 0;
}

std::string ShelfBaseDummy::type() {
  asked("type");
  return {};
}

std::string ShelfBaseDummy::shelfName() {
  asked("shelfName");
  return name_;
}

MountStatus ShelfBaseDummy::mountStatus() {
  asked("mountStatus");
  return status_;
}

RootPath ShelfBaseDummy::rootPath() {
  asked("rootPath");
  return root_;
}

void ShelfBaseDummy::notifying(bool) {
  asked("notifying");
}
void ShelfBaseDummy::yieldTimeIs(double) {
  asked("yieldTimeIs");
}
void ShelfBaseDummy::sampleIs(unsigned) {
  asked("sampleIs");
}

std::uint64_t ShelfBaseDummy::sequence() {
  asked("sequence");
  return 0;
}

void ShelfBaseDummy::write(RowBytes) {
  asked("write");
}
void ShelfBaseDummy::remove(KeyBytes) {
  asked("remove");
}
void ShelfBaseDummy::cleanup() {
  asked("cleanup");
}

bool ShelfBaseDummy::validate() {
  asked("validate");
  return true;
}

bool ShelfBaseDummy::validateFiles() {
  asked("validateFiles");
  return true;
}

ReaderCounters ShelfBaseDummy::readerCounters() {
  asked("readerCounters");
  return {};
}

WriterCounters ShelfBaseDummy::writerCounters() {
  asked("writerCounters");
  return {};
}

bool ShelfBaseDummy::flushed() {
  asked("flushed");
  return true;
}

void ShelfBaseDummy::directCommit() {
  asked("directCommit");
}
void ShelfBaseDummy::directWrite(RowBytes) {
  asked("directWrite");
}

namespace Util {

std::string writeCorruptionFile(Storage& storage, const RootPath& root, const std::string& shelfName,
                                std::string_view text) {
  std::string path = root.file(shelfName) + ".corruption";
  storage.textFileIs(path, std::string(text) + "\n");
  return path;
}

}  // namespace Util
}  // namespace Shelf
