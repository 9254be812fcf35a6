// The stages of the central agent's start.
#include "central/ZebAgent.h"

#include "central/Traces.h"
#include "runtime/Activity.h"
#include "runtime/Type.h"

namespace Zeb {
namespace {

// The cluster whose leadership counts.
struct FabricConstants {
  Rix::Name clusterDefaultName() const { return "default"; }
};
FabricConstants const fabricConstants;

}  // namespace

void ZebServiceMounter::doMountsComplete(Rix::String8 groupName, Rix::Ptr<Atlas::EntityManager> const&) {
  RIX_TRACE(centralTraceHandle, 8,
            "void Zeb::ZebServiceMounter::doMountsComplete(Rix::String8, Rix::Ptr<Atlas::EntityManager> const&)");
  RIX_ASSERT(groupName == "switchConfigMg", groupName);
  agent_->doFabricMounts();
}

MachinesSm::MachinesSm(Rix::Ptr<ZebStatus const> const& status, Rix::Ptr<Fabric::FabricdbService> const& service)
    : service_(service) {
  status_.notifierIs(status);
  handleEnabled();
}

void MachinesSm::handleEnabled() {
  service_->machinesStandIs(status_->enabled());
}

Agent::~Agent() {
  serviceMounter_.del();
  rootSm_.del();
  machinesSm_.del();
}

Rix::Type const& Agent::fwkType() const {
  static Rix::Type const type = Rix::plainType("Zeb::Agent");
  return type;
}

void Agent::doInit() {
  RIX_TRACE(centralTraceHandle, 8, "void Zeb::Agent::doInit()");
  auto const dir = Rix::dynamicCast<Rix::Dir>(Rix::globalDir()->entityRef(entityManager()->systemName()));
  dir->newEntity("Zeb::Root", "root");
  root_ = Rix::dynamicCast<Root>(dir->entityRef("root"));
  RIX_ASSERT(root());
  Rix::Activity::current().rootObject() = root_;
  Rix::Ptr<Atlas::MountGroup> const group = entityManager()->getMountGroup(this);
  group->doMount({"zeb/config", "Zeb::ZebConfig", "r"});
  group->doMount({"zeb/status", "Zeb::ZebStatus", "w"});
  group->doMount({"fabric/status", "Fabricdb::Status", "r"});
  group->doMount({"fabric/cluster/statusDir", "FabricCluster::ClusterStatusDir", "r"});
  group->doClose(false, "", 0.0);
}

void Agent::doMountsComplete(Atlas::MountStatus mountStatus, Rix::Ptr<Atlas::EntityManager> const& entityManager) {
  RIX_TRACE(centralTraceHandle, 8,
            "void Zeb::Agent::doMountsComplete(Atlas::MountStatus, Rix::Ptr<Atlas::EntityManager> const&)");
  RIX_ASSERT(mountStatus == Atlas::mountSuccess_, int{mountStatus});
  auto const config = Rix::dynamicCast<ZebConfig>(entityManager->getEntity("zeb/config"));
  RIX_ASSERT(config);
  config_ = config;
  auto const status = Rix::dynamicCast<ZebStatus>(entityManager->getEntity("zeb/status"));
  RIX_ASSERT(status && "Status not found");
  status_ = status;
  root()->zebStatusIs(status);
  auto const fabricdbStatus = Rix::dynamicCast<Fabricdb::Status>(entityManager->getEntity("fabric/status"));
  RIX_ASSERT(fabricdbStatus && "fabricdbStatus not found");
  fabricdbStatus_ = fabricdbStatus;
  auto const clusterStatusDir =
      Rix::dynamicCast<FabricCluster::ClusterStatusDir>(entityManager->getEntity("fabric/cluster/statusDir"));
  RIX_ASSERT(clusterStatusDir && "clusterStatusDir not found");
  RIX_ASSERT_TEXT(clusterStatusDir->status(fabricConstants.clusterDefaultName()),
                  "clusterStatusDir->status( fabricConstants.clusterDefaultName() ) && \"default cluster not found\"");
  defaultClusterStatus_ = clusterStatusDir->status(fabricConstants.clusterDefaultName());
  if (!fabricdbEntityManager()) ServiceAgent::doInit();
}

void Agent::doServiceAgentInit() {
  RIX_TRACE(centralTraceHandle, 8, "void Zeb::Agent::doServiceAgentInit()");
  RIX_ASSERT(fabricdbEntityManager());
  serviceMounter_.is(this);
  Fabric::FabricdbService* const service = fabricdbServiceIs("Zeb", entityManager(), fabricdbEntityManager());
  Fabric::FabricdbServiceMountGroup* const group =
      service->serviceMountGroupIs("switchConfigMg", Rix::Ptr<ZebServiceMounter>(serviceMounter_.get()));
  Rix::Ptr<Fabric::VersionWhiteList> const versions = service->versionWhiteListIs("v1");
  versions->versionRangeIs(1, 1);
  group->versionWhiteListIs(versions);
  group->fabricMountIs("mgmt/zeb/hubx/config", "zeb/client/configDir", "Zeb::ClientConfig", "rCt");
  Fabric::FabricMount* const status =
      group->fabricMountIs("mgmt/zeb/echoStatus", "zeb/client/waveStatusDir", "Zeb::ZebSonarStatusV1", "rCt");
  status->given = Fabric::Given::whileMachinesStand;
  Fabric::PerSwitchPublishMount* const publishMount = group->perSwitchPublishMountIs(
      "zeb/client/waveConfigDir", "mgmt/zeb/hubx/waveConfigDir/waveConfig", "Zeb::ZebSonarConfigV1");
  publishMount->publishActiveIs(true);
  group->preserveMountsOnDisconnectIs(true);
  group->closedIs(true);
  service->closedIs(true);
  service->publishMountsSynchronizedIs(true);
}

void Agent::doFabricMounts() {
  RIX_TRACE(centralTraceHandle, 8, "void Zeb::Agent::doFabricMounts()");
  Rix::Ptr<Atlas::MountGroup> const group = fabricdbEntityManager()->getMountGroup(fabricdbMounter());
  group->doMount({"zeb/client/configDir", "Rix::Dir", "ri"});
  group->doMount({"zeb/client/waveStatusDir", "Rix::Dir", "ri"});
  group->doMount({"zeb/client/waveConfigDir", "Rix::Dir", "wi"});
  group->doClose(false, "", 0.0);
}

void Agent::doFabricMountsComplete(Atlas::MountStatus mountStatus,
                                   Rix::Ptr<Atlas::EntityManager> const& entityManager) {
  RIX_TRACE(centralTraceHandle, 8,
            "void Zeb::Agent::doFabricMountsComplete(Atlas::MountStatus, Rix::Ptr<Atlas::EntityManager> const&)");
  RIX_ASSERT(mountStatus == Atlas::mountSuccess_, int{mountStatus});
  auto const clientConfigDir = Rix::dynamicCast<Rix::Dir>(entityManager->getEntity("zeb/client/configDir"));
  auto const waveConfigDir = Rix::dynamicCast<Rix::Dir>(entityManager->getEntity("zeb/client/waveConfigDir"));
  auto const waveStatusDir = Rix::dynamicCast<Rix::Dir>(entityManager->getEntity("zeb/client/waveStatusDir"));
  rootSm_.is(config_, status_, root_, fabricdbStatus_, defaultClusterStatus_, clientConfigDir, waveConfigDir,
             Rix::Ptr<Rix::Dir const>(waveStatusDir), Rix::Ptr<ProbeStreamTable>(root_->zebStreamTable()),
             Rix::Ptr<ProbeStreamEventTable>(root_->eventTable()));
  machinesSm_.is(Rix::Ptr<ZebStatus const>(status_), Rix::Ptr<Fabric::FabricdbService>(fabricdbServiceIs(
                                                         "Zeb", this->entityManager(), fabricdbEntityManager())));
}

Rix::Ptr<Agent> agentFactory(Rix::Name const& name) {
  return Rix::make<Agent>(name);
}

}  // namespace Zeb
