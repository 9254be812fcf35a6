// RixShelf: the request by which an agent attaches shared tables to an entity of its state database.
#pragma once

#include <map>
#include <string>

#include "runtime/Atlas.h"
#include "runtime/RixShelf.h"

namespace RixShelf {

class Mount {
 public:
  explicit Mount(Rix::Ptr<Atlas::EntityManager> const& entityManager) : entityManager_(entityManager) {}

  void handleInitialized() { initialized_ = true; }
  // Asks for the entity at a path, whose tables the platform has opened. After handleInitialized.
  void doMount(std::string const& path, std::string const& type, MountInfo const& info) {
    RIX_ASSERT(initialized_, path);
    mounts_[path] = {type, info};
  }
  // The entity, or null if it was not asked for, is not there, or is of another type.
  Rix::Ptr<Rix::Entity> getEntity(std::string const& path) const;

 private:
  struct Request {
    std::string type;
    MountInfo info;
  };
  Rix::Ptr<Atlas::EntityManager> const entityManager_;
  std::map<std::string, Request> mounts_;
  bool initialized_ = false;
};

}  // namespace RixShelf
