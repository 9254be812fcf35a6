// Atlas: the state database of one agent, and the mounts by which an agent asks for its entities.
//
// A database is a tree of directories (Rix::Dir) with entities at paths such as "zeb/config". It stands in the
// activity's root directory under its system name. An agent issues mounts to a group and closes it; when all are done
// the mounter is told, as input of its own. In this realisation the tree is in the agent's process: a mount is done
// when its group is closed, and whether something stands at its path shows when it is fetched.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "runtime/Dir.h"
#include "runtime/Entity.h"

namespace Atlas {

class EntityManager;

// The outcome of a mount group.
enum MountStatus : U8 { mountUnknown_ = 0, mountFailed_ = 3, mountSuccess_ = 4 };

// A request for the entity at `path`, whose type is named, in one of the modes "r", "w", "ri", "wi", "rCt".
struct Mount {
  std::string path;
  std::string type;
  std::string mode;
};

// Who is told of the outcome of mounts. The base of both agents.
class Mounter : public Rix::Entity {
 public:
  explicit Mounter(Rix::Name const& name) : name_(name) {}
  Rix::Name name() const override { return name_; }
  Rix::Type const& fwkType() const override;

  // The group is done. The default does nothing.
  virtual void doMountsComplete(MountStatus status, Rix::Ptr<EntityManager> const& entityManager);
  // The outcome is known: notes it and calls doMountsComplete.
  virtual void handleMountStatus(MountStatus status);

  // Set by the group before the status is handed over.
  void mountedEntityManagerIs(Rix::Ptr<EntityManager> const& entityManager);

 private:
  Rix::Name const name_;
  Rix::Ptr<EntityManager> mountedEntityManager_;
};

// Mounts that are asked for together, bound to one mounter, which must outlive the closing.
class MountGroup : public Rix::PtrInterface {
 public:
  MountGroup(Rix::Ptr<EntityManager> const& entityManager, Mounter* mounter);

  // Adds one mount. Not after the group was closed.
  void doMount(Mount const& mount);
  // Closes the group: the mounter is told when all mounts are done.
  void doClose(bool immediately, Rix::String8 const& label, double const& timeout);
  std::vector<Mount> const& mounts() const { return mounts_; }

 private:
  Rix::Ptr<EntityManager> const entityManager_;
  Mounter* const mounter_;
  std::vector<Mount> mounts_;
  bool closed_ = false;
};

class EntityManager : public Rix::PtrInterface {
 public:
  // Makes an empty tree, and puts its root under `systemName` into the root directory of the current activity.
  explicit EntityManager(Rix::Name const& systemName);

  Rix::Name const& systemName() const { return systemName_; }
  Rix::Ptr<Rix::Dir> const& root() const { return root_; }

  // The entity at a path, or null. A path that leads through something that is no directory leads nowhere.
  Rix::Ptr<Rix::Entity> getEntity(std::string_view path) const;
  // Puts an entity at a path, in place of what stood there, and makes the directories above it.
  void entityIs(std::string_view path, Rix::Ptr<Rix::Entity> const& entity);
  // Puts a new entity at a path where nothing stands.
  template <class T>
  void provide(std::string_view path) {
    if (!getEntity(path)) entityIs(path, Rix::make<T>());
  }
  // The directory at a path; made if nothing stands there. Something else there: RangeException.
  Rix::Ptr<Rix::Dir> dirIs(std::string_view path);
  // Takes away what stands at a path.
  void entityDel(std::string_view path);

  // A new group whose outcome goes to `mounter`.
  Rix::Ptr<MountGroup> getMountGroup(Mounter* mounter);

  // What groups report from now on: a database that cannot be reached says mountFailed_.
  void mountStatusIs(MountStatus status) { mountStatus_ = status; }
  MountStatus mountStatus() const { return mountStatus_; }

 private:
  Rix::Name const systemName_;
  Rix::Ptr<Rix::Dir> const root_;
  MountStatus mountStatus_ = mountSuccess_;
};

}  // namespace Atlas
