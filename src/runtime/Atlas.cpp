// The tree of a state database, and its mount groups.
#include "runtime/Atlas.h"

#include "runtime/Activity.h"
#include "runtime/Type.h"

namespace Atlas {
namespace {

// Splits the last component off a path: "a/b/c" gives "a/b" and "c".
std::pair<std::string_view, std::string_view> split(std::string_view path) {
  auto const slash = path.rfind('/');
  if (slash == std::string_view::npos) return {{}, path};
  return {path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace

Rix::Type const& Mounter::fwkType() const {
  static Rix::Type const type = Rix::plainType("Atlas::Mounter");
  return type;
}

void Mounter::doMountsComplete(MountStatus, Rix::Ptr<EntityManager> const&) {}

void Mounter::handleMountStatus(MountStatus status) {
  doMountsComplete(status, mountedEntityManager_);
}

void Mounter::mountedEntityManagerIs(Rix::Ptr<EntityManager> const& entityManager) {
  mountedEntityManager_ = entityManager;
}

MountGroup::MountGroup(Rix::Ptr<EntityManager> const& entityManager, Mounter* mounter)
    : entityManager_(entityManager), mounter_(mounter) {}

void MountGroup::doMount(Mount const& mount) {
  RIX_ASSERT(!closed_, mount.path);
  mounts_.push_back(mount);
}

void MountGroup::doClose(bool, Rix::String8 const&, double const&) {
  RIX_ASSERT(!closed_);
  closed_ = true;
  Rix::Activity::current().post([mounter = Rix::Ptr<Mounter>(mounter_), entityManager = entityManager_] {
    mounter->mountedEntityManagerIs(entityManager);
    mounter->handleMountStatus(entityManager->mountStatus());
  });
}

EntityManager::EntityManager(Rix::Name const& systemName)
    : systemName_(systemName), root_(Rix::make<Rix::Dir>(systemName)) {
  Rix::globalDir()->entityPtrIs(systemName, root_);
}

Rix::Ptr<Rix::Entity> EntityManager::getEntity(std::string_view path) const {
  if (path.empty()) return root_;
  auto const [above, name] = split(path);
  auto const dir = Rix::dynamicCast<Rix::Dir>(getEntity(above));
  return dir ? dir->entityRef(Rix::Name(name)) : nullptr;
}

Rix::Ptr<Rix::Dir> EntityManager::dirIs(std::string_view path) {
  if (path.empty()) return root_;
  auto const [above, name] = split(path);
  Rix::Ptr<Rix::Dir> const parent = dirIs(above);
  if (Rix::Ptr<Rix::Entity> const present = parent->entityRef(Rix::Name(name))) {
    auto dir = Rix::dynamicCast<Rix::Dir>(present);
    if (!dir) Rix::throwRangeException(std::string(path) + " is no directory");
    return dir;
  }
  auto made = Rix::make<Rix::Dir>(Rix::Name(name));
  parent->entityPtrIs(Rix::Name(name), made);
  return made;
}

void EntityManager::entityIs(std::string_view path, Rix::Ptr<Rix::Entity> const& entity) {
  auto const [above, name] = split(path);
  dirIs(above)->entityPtrIs(Rix::Name(name), entity);
}

void EntityManager::entityDel(std::string_view path) {
  auto const [above, name] = split(path);
  if (auto const dir = Rix::dynamicCast<Rix::Dir>(getEntity(above))) dir->entityDel(Rix::Name(name));
}

Rix::Ptr<MountGroup> EntityManager::getMountGroup(Mounter* mounter) {
  return Rix::make<MountGroup>(Rix::Ptr<EntityManager>(this), mounter);
}

}  // namespace Atlas
