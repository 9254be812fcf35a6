// The paths of a switch's state database, and what stands at each.
#include "client/ClientStore.h"

#include "model/gen/Config.h"
#include "model/gen/Platform.h"
#include "model/gen/ProbeStream.h"
#include "model/gen/Sonar.h"

namespace Zeb {
namespace {

template <class T>
void entityIs(Atlas::EntityManager& store, char const* path) {
  if (!store.getEntity(path)) store.entityIs(path, Rix::make<T>());
}

}  // namespace

void fillClientStore(Atlas::EntityManager& store, Rix::Ptr<Sonar::LocalStatus> const& localStatus) {
  entityIs<ClientConfig>(store, "mgmt/zeb/config");
  entityIs<ClientStatus>(store, "mgmt/zeb/status");
  entityIs<ClientConfig>(store, "mgmt/zeb/hubx/config");
  store.dirIs("mgmt/zeb/hubx/waveConfigDir");
  entityIs<Ip::Status>(store, "ip/status");
  entityIs<System::NetConfig>(store, "sys/net/config");
  entityIs<Sonar::Config>(store, "sonar/zeb/config");
  entityIs<ZebSonarStatusV1>(store, "mgmt/zeb/echoStatus");
  entityIs<Sonar::Status>(store, "sonar/status");
  store.entityIs("sonar/localStatus", localStatus);
}

}  // namespace Zeb
