// Attaching shared tables to an entity.
#include "runtime/ShelfMount.h"

#include "runtime/Type.h"

namespace RixShelf {

Rix::Ptr<Rix::Entity> Mount::getEntity(std::string const& path) const {
  auto const request = mounts_.find(path);
  if (request == mounts_.end()) return nullptr;
  Rix::Ptr<Rix::Entity> entity = entityManager_->getEntity(path);
  if (!entity || entity->fwkType().name() != request->second.type) return nullptr;
  return entity;
}

}  // namespace RixShelf
