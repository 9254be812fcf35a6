// The list of an entity's notifiees: one in place, or a heap block in order of registration.
#include "runtime/Entity.h"

#include <memory>
#include <vector>

#include "runtime/Trace.h"

namespace Rix {

static_assert(sizeof(NotifieeBase) == 24 && sizeof(Entity) == 24);

namespace {
TraceHandle traceHandle("Rix");
}

// Removed notifiees leave a null behind, which goes when more than half are nulls and no visit is under way: so
// places stand still during a visit, and leaving costs the same however long the list is.
struct Entity::List {
  std::vector<NotifieeBase*> notifiees;
  U32 depth = 0;
  U32 removed = 0;
};

void NotifieeBase::onNotificationException(std::exception const& exception) {
  RIX_TRACE(traceHandle, 0, "exception left a handler: " << exception.what());
}

NotifieeBase::~NotifieeBase() {
  // Its interest cannot be asked any more; where it stands alone, the entity's is its.
  if (notifier_) notifier_->rixRemove(*this, notifier_->rixInterest());
}

void NotifieeBase::isRegisteredNotifieeIs(bool registered) {
  flags_ = static_cast<U16>(registered ? flags_ & ~silencedFlag : flags_ | silencedFlag);
  rixListAsWanted();
}

void NotifieeBase::rixDoZombieReactors(bool zombie) {
  flags_ = static_cast<U16>(zombie ? flags_ | zombieFlag : flags_ & ~zombieFlag);
  rixListAsWanted();
}

void NotifieeBase::rixListAsWanted() {
  if (!notifier_ || notifier_->rixHolds(*this) == hears()) return;
  // Joining and leaving count a reference too, which the watcher holds all the time.
  if (hears()) {
    notifier_->rixAdd(*this, rixInterest());
    notifier_->rixRelease();
  } else {
    notifier_->rixReference();
    notifier_->rixRemove(*this, rixInterest());
  }
}

void NotifieeBase::rixMove(Entity& entity, Interest interest, bool sweeps) {
  entity.rixReference();
  if (Entity* const old = std::exchange(notifier_, &entity)) old->rixRemove(*this, interest);
  if (sweeps && !isZombie()) {
    rixSweep();
    // The sweep may have moved this notifiee on to another entity, or none.
    if (notifier_ != &entity) return;
  }
  rixListAsWanted();
}

Entity::~Entity() {
  RIX_ASSERT(watchers_ == 0 || (watchers_ & listTag) != 0);
  if ((watchers_ & listTag) != 0) {
    RIX_ASSERT(notifieeCount() == 0 && rixList()->depth == 0);
    delete rixList();
  }
}

U32 Entity::notifieeCount() const {
  if (watchers_ == 0) return 0;
  if ((watchers_ & listTag) == 0) return 1;
  return static_cast<U32>(rixList()->notifiees.size()) - rixList()->removed;
}

bool Entity::rixListHolds(NotifieeBase const& notifiee) const {
  if ((watchers_ & listTag) == 0) return false;
  auto const& notifiees = rixList()->notifiees;
  return notifiee.position_ < notifiees.size() && notifiees[notifiee.position_] == &notifiee;
}

void Entity::rixAddToList(NotifieeBase& notifiee, Interest interest) {
  if ((watchers_ & listTag) == 0) {
    auto list = std::make_unique<List>();
    auto* first = reinterpret_cast<NotifieeBase*>(watchers_);
    first->position_ = 0;
    list->notifiees.push_back(first);
    watchers_ = reinterpret_cast<std::uintptr_t>(list.release()) | listTag;
  }
  List& list = *rixList();
  if (list.depth == 0) rixCompact(list);
  rixInterestIs(rixInterest() | interest);
  notifiee.position_ = static_cast<U32>(list.notifiees.size());
  list.notifiees.push_back(&notifiee);
}

void Entity::rixRemoveFromList(NotifieeBase& notifiee) {
  if (!rixListHolds(notifiee)) return;
  List& list = *rixList();
  list.notifiees[notifiee.position_] = nullptr;
  ++list.removed;
  if (list.removed == list.notifiees.size()) rixInterestIs(0);
  if (list.depth == 0) rixCompact(list);
}

void Entity::rixCompact(List& list) {
  if (std::size_t{list.removed} * 2 <= list.notifiees.size()) return;
  Interest interest = 0;
  U32 place = 0;
  for (NotifieeBase* notifiee : list.notifiees) {
    if (!notifiee) continue;
    notifiee->position_ = place;
    list.notifiees[place++] = notifiee;
    interest |= notifiee->rixInterest();
  }
  rixInterestIs(interest);
  list.notifiees.resize(place);
  list.removed = 0;
}

void Entity::rixVisitList(ErasedCall call, void const* argument) {
  // A handler may drop the last reference to this entity.
  Ptr<Entity> keep(references() != 0 ? this : nullptr);
  List& list = *rixList();
  auto const count = list.notifiees.size();
  struct Depth {
    Entity& entity;
    List& list;
    ~Depth() {
      if (--list.depth == 0) entity.rixCompact(list);
    }
  } depth{*this, list};
  ++list.depth;
  for (std::size_t i = 0; i < count; ++i) {
    if (NotifieeBase* notifiee = list.notifiees[i]) rixGuarded(*notifiee, call, argument);
  }
}

}  // namespace Rix
