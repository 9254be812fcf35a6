// Directories: entries by name, and the entities below them.
#include "runtime/Dir.h"

#include "runtime/TypeOf.h"

namespace Rix {

Type const& Dir::rixType() {
  static Type const type = typeOf<Dir>("Rix::Dir");
  return type;
}
Type const& Dir::Entry::rixType() {
  static Type const type = plainType("Rix::Dir::Entry");
  return type;
}
namespace {
TypeRegistration const registration(Dir::rixType());
}

void Dir::Entry::statusIs(U8 status) {
  if (status_ == status) return;
  status_ = status;
  rixNotify<NotifieeConst>(0, [](NotifieeConst& notifiee) { notifiee.onStatus(); });
}

void Dir::NotifieeConst::onEntry() {
  Ptr<Dir> notifier(static_cast<Dir*>(rixNotifier()));
  if (notifier) sweepKeys(notifier->entry_, [this](Name const& name) { onEntry(name); });
}
void Dir::NotifieeConst::onEntityPtr() {
  Ptr<Dir> notifier(static_cast<Dir*>(rixNotifier()));
  if (notifier) sweepKeys(notifier->entityPtr_, [this](Name const& name) { onEntityPtr(name); });
}
void Dir::NotifieeConst::rixSweepCollections(Interest interest) {
  if ((interest & interestBit(0)) != 0) onEntry();
  if ((interest & interestBit(1)) != 0) onEntityPtr();
}

void Dir::notifyEntry(Name const& name) {
  rixNotify<NotifieeConst>(0, [&name](NotifieeConst& notifiee) { notifiee.onEntry(name); });
}
void Dir::notifyEntityPtr(Name const& name) {
  rixNotify<NotifieeConst>(1, [&name](NotifieeConst& notifiee) { notifiee.onEntityPtr(name); });
}

Dir::Entry* Dir::entryIs(Name const& name) {
  return entry_.is(
      name, [this](Name const& made) { notifyEntry(made); }, name);
}

void Dir::entityPtrIs(Name const& name, Ptr<Entity> const& entity) {
  Ptr<Entry> const entry = entryIs(name);
  entityPtr_.is(name, entity, [this](Name const& changed) { notifyEntityPtr(changed); });
  // A handler may have taken the entry out again.
  if (entity && entry_.find(name) == entry.get()) entry->statusIs(Entry::statusComplete);
}

void Dir::entityDel(Name const& name) {
  Name const held = name;
  entityPtr_.del(held, [this](Name const& gone) { notifyEntityPtr(gone); });
  entry_.del(held, [this](Name const& gone) { notifyEntry(gone); });
}

Ptr<Entity> Dir::newEntity(std::string_view type, Name const& name) {
  if (entityPtr_.find(name)) throwNameInUseException(name.view());
  Type const* known = typeByName(type);
  Ptr<Entity> entity = known ? known->make(name) : nullptr;
  if (!entity) throwRangeException("no entity of type " + std::string(type) + " can be made by name");
  entityPtrIs(name, entity);
  return entity;
}

}  // namespace Rix
