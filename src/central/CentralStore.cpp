// The paths of the central state database, and what stands at each.
#include "central/CentralStore.h"

#include "model/gen/Config.h"
#include "model/gen/Platform.h"
#include "model/gen/Status.h"

namespace Zeb {
namespace {

template <class T>
void entityIs(Atlas::EntityManager& store, char const* path) {
  if (!store.getEntity(path)) store.entityIs(path, Rix::make<T>());
}

}  // namespace

void fillCentralStore(Atlas::EntityManager& store) {
  entityIs<ZebConfig>(store, "zeb/config");
  entityIs<ZebStatus>(store, "zeb/status");
  entityIs<Fabricdb::Status>(store, "fabric/status");
  entityIs<FabricCluster::ClusterStatusDir>(store, "fabric/cluster/statusDir");
  auto const clusters = Rix::dynamicCast<FabricCluster::ClusterStatusDir>(store.getEntity("fabric/cluster/statusDir"));
  if (clusters) clusters->statusIs("default");
}

}  // namespace Zeb
