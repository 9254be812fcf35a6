// The paths of the central state database, and what stands at each.
#include "central/CentralStore.h"

#include "model/gen/Config.h"
#include "model/gen/Platform.h"
#include "model/gen/Status.h"

namespace Zeb {

void fillCentralStore(Atlas::EntityManager& store) {
  store.provide<ZebConfig>("zeb/config");
  store.provide<ZebStatus>("zeb/status");
  store.provide<Fabricdb::Status>("fabric/status");
  store.provide<FabricCluster::ClusterStatusDir>("fabric/cluster/statusDir");
  auto const clusters = Rix::dynamicCast<FabricCluster::ClusterStatusDir>(store.getEntity("fabric/cluster/statusDir"));
  if (clusters) clusters->statusIs("default");
}

void renewCentralStore(Atlas::EntityManager& store) {
  store.entityDel("root");
  store.entityIs("zeb/status", Rix::make<ZebStatus>());
}

}  // namespace Zeb
