// Declaring a service: what an agent says of its groups and mounts before it closes them. Nothing here moves data.
#include "runtime/Fabric.h"

#include <algorithm>

namespace Fabric {

// NOLINTBEGIN(performance-unnecessary-value-param): a service may keep the name that it is handed
void FabricdbServiceMounter::doMountsComplete(Rix::String8, Rix::Ptr<Atlas::EntityManager> const&) {}
void FabricdbServiceMounter::doHandleFabricMountState(SystemId const&, Rix::String8, MountState) {}
void FabricdbServiceMounter::doInitialSwitchMountsComplete(Rix::String8, Rix::Ptr<Atlas::EntityManager> const&) {}
// NOLINTEND(performance-unnecessary-value-param)

bool VersionWhiteList::admits(U32 version) const {
  return std::any_of(ranges_.begin(), ranges_.end(),
                     [version](auto const& range) { return range.first <= version && version <= range.second; });
}

FabricMount* FabricdbServiceMountGroup::fabricMountIs(std::string_view switchPath, std::string_view centralPath,
                                                      std::string_view type, std::string_view mode) {
  RIX_ASSERT(!closed_, name_);
  fabricMounts_.push_back({std::string(switchPath), std::string(centralPath), std::string(type), std::string(mode)});
  return &fabricMounts_.back();
}

PerSwitchPublishMount* FabricdbServiceMountGroup::perSwitchPublishMountIs(std::string_view centralPath,
                                                                          std::string_view switchPath,
                                                                          std::string_view type) {
  RIX_ASSERT(!closed_, name_);
  publishMounts_.push_back(
      Rix::make<PerSwitchPublishMount>(std::string(centralPath), std::string(switchPath), std::string(type)));
  return publishMounts_.back().get();
}

FabricdbServiceMountGroup* FabricdbService::serviceMountGroupIs(Rix::Name const& name,
                                                                Rix::Ptr<FabricdbServiceMounter> const& mounter) {
  for (auto const& group : mountGroups_) {
    if (group->name() == name) return group.get();
  }
  mountGroups_.push_back(Rix::make<FabricdbServiceMountGroup>(name, mounter));
  return mountGroups_.back().get();
}

Rix::Ptr<VersionWhiteList> FabricdbService::versionWhiteListIs(Rix::Name const& name) {
  for (auto const& list : versionWhiteLists_) {
    if (list->name() == name) return list;
  }
  versionWhiteLists_.push_back(Rix::make<VersionWhiteList>(name));
  return versionWhiteLists_.back();
}

void FabricdbService::closedIs(bool closed) {
  if (closed_ == closed) return;
  closed_ = closed;
  if (closed_ && host_) host_->serviceClosed(Rix::Ptr<FabricdbService>(this));
}

void FabricdbService::machinesStandIs(bool stand) {
  if (closed_ && host_) host_->machinesStand(Rix::Ptr<FabricdbService>(this), stand);
}

}  // namespace Fabric
