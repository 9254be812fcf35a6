// The paths of a switch's state database, and what stands at each.
#include "client/ClientStore.h"

#include "model/gen/Config.h"
#include "model/gen/Platform.h"
#include "model/gen/ProbeStream.h"
#include "model/gen/Sonar.h"

namespace Zeb {

void fillClientStore(Atlas::EntityManager& store, Rix::Ptr<Sonar::LocalStatus> const& localStatus) {
  store.provide<ClientConfig>("mgmt/zeb/config");
  store.provide<ClientStatus>("mgmt/zeb/status");
  store.provide<ClientConfig>("mgmt/zeb/hubx/config");
  store.dirIs("mgmt/zeb/hubx/waveConfigDir");
  store.provide<Ip::Status>("ip/status");
  store.provide<System::NetConfig>("sys/net/config");
  store.provide<Sonar::Config>("sonar/zeb/config");
  store.provide<ZebSonarStatusV1>("mgmt/zeb/echoStatus");
  store.provide<Sonar::Status>("sonar/status");
  store.entityIs("sonar/localStatus", localStatus);
}

void renewClientStore(Atlas::EntityManager& store) {
  store.entityIs("mgmt/zeb/hubx/config", Rix::make<ClientConfig>());
  store.entityIs("mgmt/zeb/echoStatus", Rix::make<ZebSonarStatusV1>());
}

}  // namespace Zeb
