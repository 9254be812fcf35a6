// The kinds of fields: what each refuses, and the hash of a layout.
#include "runtime/Record.h"

#include "runtime/Assert.h"
#include "runtime/Hash.h"
#include "runtime/Type.h"

namespace Rix {
namespace {

[[noreturn]] void notOfThisKind(Field const& field, char const* operation) {
  RIX_ASSERT_TEXT(false, "an operation of another kind of attribute", field.name(), operation);
  std::abort();
}

void describe(Record const& record, std::string& text) {
  text.append(record.name()).push_back('{');
  for (auto const& field : record.fields()) {
    text.append(field->name()).append(":").append(field->type());
    text.append(std::to_string(static_cast<unsigned>(field->kind()))).push_back(field->rewritten() ? '!' : ';');
    if (field->ownsEntities()) describe(field->child(), text);
  }
  text.push_back('}');
}

}  // namespace

void Field::encode(Entity const&, ByteWriter&) const {
  notOfThisKind(*this, "encode");
}
void Field::check(ByteReader&) const {
  notOfThisKind(*this, "check");
}
void Field::apply(Entity&, ByteReader&) const {
  notOfThisKind(*this, "apply");
}
U32 Field::entries(Entity const&) const {
  notOfThisKind(*this, "entries");
}
void Field::forEachEntry(Entity const&, VisitEntry const&) const {
  notOfThisKind(*this, "forEachEntry");
}
bool Field::hasKey(Entity const&, std::string_view) const {
  notOfThisKind(*this, "hasKey");
}
void Field::encodeEntry(Entity const&, std::string_view, ByteWriter&) const {
  notOfThisKind(*this, "encodeEntry");
}
void Field::checkKey(ByteReader&) const {
  notOfThisKind(*this, "checkKey");
}
void Field::checkEntry(ByteReader&) const {
  notOfThisKind(*this, "checkEntry");
}
void Field::applyEntry(Entity&, ByteReader&) const {
  notOfThisKind(*this, "applyEntry");
}
void Field::eraseEntry(Entity&, ByteReader&) const {
  notOfThisKind(*this, "eraseEntry");
}
Record const& Field::child() const {
  notOfThisKind(*this, "child");
}
Entity* Field::member(Entity const&, std::string_view) const {
  notOfThisKind(*this, "member");
}
std::vector<Ptr<Entity>> Field::members(Entity const&) const {
  notOfThisKind(*this, "members");
}
void Field::adopt(Entity&, Ptr<Entity> const&) const {
  notOfThisKind(*this, "adopt");
}
void Field::remove(Entity&, Entity const&) const {
  notOfThisKind(*this, "remove");
}

Field const& Record::field(unsigned index, ByteReader const& reader) const {
  if (index >= fields_.size()) {
    reader.malformed("attribute of " + std::string(name_), "below " + std::to_string(fields_.size()),
                     std::to_string(index));
  }
  return *fields_[index];
}

U32 Record::schemaHash() const {
  std::string text;
  describe(*this, text);
  return hashBytes(text.data(), text.size());
}

Record const& recordOf(Entity const& entity) {
  Record const* record = entity.fwkType().record();
  RIX_ASSERT(record != nullptr, entity.fwkType().name());
  return *record;
}

}  // namespace Rix
