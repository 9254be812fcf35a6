// The start of the switch side: its mounts, and what they become.
#include "client/ZebClientAgent.h"

#include "client/IpStatusMounter.h"
#include "client/Traces.h"
#include "runtime/ShelfMount.h"
#include "runtime/Type.h"

namespace Zeb {
namespace {

// Silent intervals after which the probing service calls a row dormant.
constexpr U32 robustness = 5;

}  // namespace

ClientAgent::~ClientAgent() {
  rootSm_.del();
}

Rix::Type const& ClientAgent::fwkType() const {
  static Rix::Type const type = Rix::plainType("Zeb::ClientAgent");
  return type;
}

void ClientAgent::doInit() {
  RIX_TRACE(clientTraceHandle, 8, "void Zeb::ClientAgent::doInit()");
  Rix::Ptr<Atlas::MountGroup> const group = entityManager()->getMountGroup(this);
  group->doMount({"mgmt/zeb/config", "Zeb::ClientConfig", "r"});
  group->doMount({"mgmt/zeb/status", "Zeb::ClientStatus", "w"});
  group->doMount({"mgmt/zeb/hubx/config", "Zeb::ClientConfig", "w"});
  group->doMount({"mgmt/zeb/hubx/waveConfigDir", "Rix::Dir", "ri"});
  IpStatusMounter::doMountEntities(group, true, false);
  group->doMount({"sys/net/config", "System::NetConfig", "r"});
  group->doMount({"sonar/zeb/config", "Sonar::Config", "w"});
  group->doMount({"mgmt/zeb/echoStatus", "Zeb::ZebSonarStatusV1", "w"});
  group->doMount({"sonar/status", "Sonar::Status", "r"});
  group->doClose(false, "", 0.0);
}

void ClientAgent::doMountsComplete(Atlas::MountStatus mountStatus,
                                   Rix::Ptr<Atlas::EntityManager> const& entityManager) {
  RIX_TRACE(clientTraceHandle, 8,
            "void Zeb::ClientAgent::doMountsComplete(Atlas::MountStatus, Rix::Ptr<Atlas::EntityManager> const&)");
  RIX_ASSERT(mountStatus == Atlas::mountSuccess_, int{mountStatus});
  auto const config = Rix::dynamicCast<ClientConfig>(entityManager->getEntity("mgmt/zeb/config"));
  RIX_ASSERT(config);
  auto const status = Rix::dynamicCast<ClientStatus>(entityManager->getEntity("mgmt/zeb/status"));
  RIX_ASSERT(status);
  auto const mountedConfig = Rix::dynamicCast<ClientConfig>(entityManager->getEntity("mgmt/zeb/hubx/config"));
  RIX_ASSERT(mountedConfig);
  auto const ipStatus = Rix::dynamicCast<Ip::Status>(entityManager->getEntity("ip/status"));
  RIX_ASSERT(ipStatus);
  auto const netConfig = Rix::dynamicCast<System::NetConfig>(entityManager->getEntity("sys/net/config"));
  RIX_ASSERT(netConfig);
  auto const zebEchoConfigDir = Rix::dynamicCast<Rix::Dir>(entityManager->getEntity("mgmt/zeb/hubx/waveConfigDir"));
  RIX_ASSERT(zebEchoConfigDir);
  auto const echoZebConfig = Rix::dynamicCast<Sonar::Config>(entityManager->getEntity("sonar/zeb/config"));
  RIX_ASSERT(echoZebConfig);
  auto const zebEchoStatus = Rix::dynamicCast<ZebSonarStatusV1>(entityManager->getEntity("mgmt/zeb/echoStatus"));
  RIX_ASSERT(zebEchoStatus);
  auto const echoStatus = Rix::dynamicCast<Sonar::Status>(entityManager->getEntity("sonar/status"));
  RIX_ASSERT(echoStatus);

  RixShelf::Mount shelfMount(entityManager);
  shelfMount.handleInitialized();
  RixShelf::MountInfo info;
  info.firstWord = 1;
  info.flags[2] = info.flags[3] = info.flags[4] = true;
  info.lastWord = 16;
  shelfMount.doMount("sonar/localStatus", "Sonar::LocalStatus", info);
  auto const echoLocalStatus = Rix::dynamicCast<Sonar::LocalStatus>(shelfMount.getEntity("sonar/localStatus"));
  RIX_ASSERT(echoLocalStatus);

  echoZebConfig->robustnessIs(robustness);
  rootSm_.is(Rix::Ptr<ClientConfig const>(config), status, mountedConfig, Rix::Ptr<Ip::Status const>(ipStatus),
             Rix::Ptr<System::NetConfig const>(netConfig), Rix::Ptr<Rix::Dir const>(zebEchoConfigDir), echoZebConfig,
             Rix::Ptr<Sonar::Status const>(echoStatus), Rix::Ptr<Sonar::LocalStatus const>(echoLocalStatus),
             zebEchoStatus);
}

Rix::Ptr<ClientAgent> clientAgentFactory(Rix::Name const& name) {
  return Rix::make<ClientAgent>(name);
}

}  // namespace Zeb
