// Rix::Dir: a directory of named entities.
//
// A directory holds entries by name, and each entry an entity once that has been made. Watchers hear of both by name:
// onEntry(name) when an entry comes or goes, onEntityPtr(name) when its entity does. An entry may stand before its
// entity: its `status` tells how far the entity has been made.
#pragma once

#include "runtime/Collections.h"
#include "runtime/Entity.h"
#include "runtime/Watch.h"

namespace Rix {

class Dir : public Entity {
 public:
  // One entry. `status`: 0 nothing yet, 3 the entity is complete; other values lie between.
  class Entry : public Entity {
   public:
    static constexpr U8 statusComplete = 3;
    class NotifieeConst : public NotifieeBase {
     public:
      virtual void onStatus() {}
      void rixSweepCollections(Interest) {}
    };
    using Notifiee = NotifieeConst;
    static constexpr Interest rixCollections = 0;
    template <class D>
    static constexpr Interest rixInterestOf() {
      return std::is_same_v<decltype(&D::onStatus), void (NotifieeConst::*)()> ? Interest{0} : interestBit(0);
    }

    explicit Entry(Name const& name) : name_(name) {}
    static Type const& rixType();
    Type const& fwkType() const override { return rixType(); }
    Name name() const override { return name_; }
    Name const& rixKey() const { return name_; }

    U8 status() const { return status_; }
    void statusIs(U8 status);

   private:
    Name const name_;
    U8 status_ = 0;
  };

  class NotifieeConst : public NotifieeBase {
   public:
    virtual void onEntry(Name const&) {}
    virtual void onEntryrixImmediate() { onEntry(); }
    virtual void onEntry();
    virtual void onEntityPtr(Name const&) {}
    virtual void onEntityPtrrixImmediate() { onEntityPtr(); }
    virtual void onEntityPtr();
    void rixSweepCollections(Interest interest);
  };
  using Notifiee = NotifieeConst;
  static constexpr Interest rixCollections = interestBit(0) | interestBit(1);
  template <class D>
  static constexpr Interest rixInterestOf() {
    Interest interest = 0;
    if constexpr (!requires {
                    requires std::is_same_v<decltype(keyedNotification<Name const&>(&D::onEntry)),
                                            void (NotifieeConst::*)(Name const&)>;
                  }) {
      interest |= interestBit(0);
    }
    if constexpr (!requires {
                    requires std::is_same_v<decltype(keyedNotification<Name const&>(&D::onEntityPtr)),
                                            void (NotifieeConst::*)(Name const&)>;
                  }) {
      interest |= interestBit(1);
    }
    return interest;
  }

  explicit Dir(Name const& name) : name_(name) {}
  static Type const& rixType();
  Type const& fwkType() const override { return rixType(); }
  Name name() const override { return name_; }
  Name const& rixKey() const { return name_; }

  Entry* entry(Name const& name) { return entry_.find(name); }
  Entry const* entry(Name const& name) const { return entry_.find(name); }
  // Iterates Ptr<Entry>.
  auto const& entryIterator() const { return entry_; }
  auto const& entryIteratorConst() const { return entry_; }
  // Finds or makes the entry; a new one has no entity.
  Entry* entryIs(Name const& name);

  // The entity of that name, or null.
  Ptr<Entity> entityRef(Name const& name) const { return entityPtr_.get(name); }
  // The collection `entityPtr`: whether it has the key, and its entries with `key` and `value`.
  bool entityPtrHas(Name const& name) const { return entityPtr_.find(name) != nullptr; }
  Ptr<Entity> entityPtr(Name const& name) const { return entityPtr_.get(name); }
  U32 entityPtrs() const { return entityPtr_.size(); }
  auto const& entityPtrIterator() const { return entityPtr_; }

  // Puts an entity under a name, in place of what stood there; makes the entry, and sets its status to complete.
  void entityPtrIs(Name const& name, Ptr<Entity> const& entity);
  // Takes the entity and its entry out.
  void entityDel(Name const& name);
  // Makes an entity of the named type under a name, and returns it. An unknown type, or one that cannot be made from
  // a name: RangeException. A name in use: NameInUseException.
  Ptr<Entity> newEntity(std::string_view type, Name const& name);

 private:
  void notifyEntry(Name const& name);
  void notifyEntityPtr(Name const& name);

  Name const name_;
  EntityMap<Name, Entry> entry_;
  ValueMap<Name, Ptr<Entity>> entityPtr_;
};

}  // namespace Rix
