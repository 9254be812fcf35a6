// Fabric: the exchange of state between the central cluster and its switches, as an agent declares it.
//
// A service of the centre has groups of mounts. A fabric mount brings each connected switch's entity at a switch path
// to the central side, as an entry of the directory at a central path, named by the switch's system id. A publish mount
// takes the entry of a central directory that bears a switch's system id to that one switch. A service and a group are
// declared and then closed; from then on the host serves them (FabricEnds.h).
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Atlas.h"

namespace Fabric {

class SystemId;
class FabricdbService;

// How one switch's mounts of a group stand.
enum class MountState : U8 {
  unmounted,  // its entries are gone
  mounted,    // its entries follow it
  preserved   // it is away, and its entries are as it left them
};

// Told of a service's mounts. The defaults do nothing.
class FabricdbServiceMounter : public Rix::PtrInterface {
 public:
  // The group stands: its directories are there, and in them what is given before the group: what is stored of switches
  // that are away, and the reports of those that were connected. Called once, also while no switch is connected.
  virtual void doMountsComplete(Rix::String8 groupName, Rix::Ptr<Atlas::EntityManager> const& entityManager);
  virtual void doHandleFabricMountState(SystemId const& systemId, Rix::String8 groupName, MountState state);
  // The switches that were connected when the group came to stand have been read.
  virtual void doInitialSwitchMountsComplete(Rix::String8 groupName,
                                             Rix::Ptr<Atlas::EntityManager> const& entityManager);
};

// What the exchange needs of identities, defined where they are known.
bool isSystemIdText(std::string_view text);
void tellMountState(FabricdbServiceMounter& mounter, std::string_view systemIdText, Rix::String8 const& groupName,
                    MountState state);

// The versions of switch software that a group admits.
class VersionWhiteList : public Rix::PtrInterface {
 public:
  explicit VersionWhiteList(Rix::Name const& name) : name_(name) {}
  Rix::Name const& name() const { return name_; }
  // Admits `lowest` to `highest`, both included, beside what is admitted already.
  void versionRangeIs(U32 lowest, U32 highest) { ranges_.emplace_back(lowest, highest); }
  bool admits(U32 version) const;

 private:
  Rix::Name const name_;
  std::vector<std::pair<U32, U32>> ranges_;
};

// When the entries of a mount are given to the central side.
enum class Given : U8 {
  // Before the group is reported, so that they are there when the agent makes its machines, and from then on. The last
  // report of each switch is stored: a centre that starts anew has it also while the switch is away.
  beforeTheGroup,
  // Only while the agent's machines stand (FabricdbService::machinesStandIs), as new entities each time: what stands
  // already is news to machines that are new, and no state from which they start.
  whileMachinesStand
};

// A mount from each switch to the centre. `mode` is the one of Atlas: "rCt".
struct FabricMount {
  std::string switchPath;
  std::string centralPath;
  std::string type;
  std::string mode;
  Given given = Given::beforeTheGroup;
};

class PerSwitchPublishMount : public Rix::PtrInterface {
 public:
  PerSwitchPublishMount(std::string centralPath, std::string switchPath, std::string type)
      : centralPath_(std::move(centralPath)), switchPath_(std::move(switchPath)), type_(std::move(type)) {}
  std::string const& centralPath() const { return centralPath_; }
  std::string const& switchPath() const { return switchPath_; }
  std::string const& type() const { return type_; }
  // Whether each connected switch gets an entry, made by the host, and its content.
  bool publishActive() const { return publishActive_; }
  void publishActiveIs(bool active) { publishActive_ = active; }

 private:
  std::string const centralPath_;
  std::string const switchPath_;
  std::string const type_;
  bool publishActive_ = false;
};

class FabricdbServiceMountGroup : public Rix::PtrInterface {
 public:
  FabricdbServiceMountGroup(Rix::Name const& name, Rix::Ptr<FabricdbServiceMounter> const& mounter)
      : name_(name), mounter_(mounter) {}
  Rix::Name const& name() const { return name_; }
  Rix::Ptr<FabricdbServiceMounter> const& mounter() const { return mounter_; }

  // Declarations, in order; none once the group is closed.
  FabricMount* fabricMountIs(std::string_view switchPath, std::string_view centralPath, std::string_view type,
                             std::string_view mode);
  PerSwitchPublishMount* perSwitchPublishMountIs(std::string_view centralPath, std::string_view switchPath,
                                                 std::string_view type);
  void versionWhiteListIs(Rix::Ptr<VersionWhiteList> const& list) { versionWhiteList_ = list; }
  // Whether a switch's entries outlive its connection.
  void preserveMountsOnDisconnectIs(bool preserve) { preserveMountsOnDisconnect_ = preserve; }
  void closedIs(bool closed) { closed_ = closed; }

  std::deque<FabricMount> const& fabricMounts() const { return fabricMounts_; }
  std::vector<Rix::Ptr<PerSwitchPublishMount>> const& publishMounts() const { return publishMounts_; }
  bool preserveMountsOnDisconnect() const { return preserveMountsOnDisconnect_; }
  bool closed() const { return closed_; }
  // Without a list, every version.
  bool admits(U32 version) const { return !versionWhiteList_ || versionWhiteList_->admits(version); }

 private:
  Rix::Name const name_;
  Rix::Ptr<FabricdbServiceMounter> const mounter_;
  std::deque<FabricMount> fabricMounts_;
  std::vector<Rix::Ptr<PerSwitchPublishMount>> publishMounts_;
  Rix::Ptr<VersionWhiteList> versionWhiteList_;
  bool preserveMountsOnDisconnect_ = false;
  bool closed_ = false;
};

// Who serves services: the central end of the exchange.
class ServiceHost {
 public:
  // The database in which the central directories stand.
  virtual Rix::Ptr<Atlas::EntityManager> const& entityManager() const = 0;
  // The service has been closed: its group is to be served.
  virtual void serviceClosed(Rix::Ptr<FabricdbService> const& service) = 0;
  // The service's agent has made its machines, has taken them away, or has found that it makes none for now. Takes
  // effect as the next input.
  virtual void machinesStand(Rix::Ptr<FabricdbService> const& service, bool stand) = 0;

 protected:
  ~ServiceHost() = default;
};

class FabricdbService : public Rix::PtrInterface {
 public:
  // `host` may be null: a service that nobody serves.
  FabricdbService(Rix::Name const& name, Rix::Ptr<Atlas::EntityManager> const& entityManager,
                  Rix::Ptr<Atlas::EntityManager> const& fabricdbEntityManager, ServiceHost* host)
      : name_(name), entityManager_(entityManager), fabricdbEntityManager_(fabricdbEntityManager), host_(host) {}
  Rix::Name const& name() const { return name_; }
  Rix::Ptr<Atlas::EntityManager> const& entityManager() const { return entityManager_; }
  Rix::Ptr<Atlas::EntityManager> const& fabricdbEntityManager() const { return fabricdbEntityManager_; }

  FabricdbServiceMountGroup* serviceMountGroupIs(Rix::Name const& name,
                                                 Rix::Ptr<FabricdbServiceMounter> const& mounter);
  Rix::Ptr<VersionWhiteList> versionWhiteListIs(Rix::Name const& name);
  // True: hands the service to its host, once.
  void closedIs(bool closed);
  // What the agent says of its machines: whether they stand, in this input or before it. Nothing is published to any
  // switch before the first word of it, whichever it is, since only then the machines have had their say; and what is
  // given while machines stand follows it. In a cluster only the member that leads has links to switches.
  void machinesStandIs(bool stand);
  // True (the default): what is published to a switch leaves only after what that switch reports has been read.
  void publishMountsSynchronizedIs(bool synchronized) { publishMountsSynchronized_ = synchronized; }

  std::vector<Rix::Ptr<FabricdbServiceMountGroup>> const& mountGroups() const { return mountGroups_; }
  bool publishMountsSynchronized() const { return publishMountsSynchronized_; }
  bool closed() const { return closed_; }

 private:
  Rix::Name const name_;
  Rix::Ptr<Atlas::EntityManager> const entityManager_;
  Rix::Ptr<Atlas::EntityManager> const fabricdbEntityManager_;
  ServiceHost* const host_;
  std::vector<Rix::Ptr<FabricdbServiceMountGroup>> mountGroups_;
  std::vector<Rix::Ptr<VersionWhiteList>> versionWhiteLists_;
  bool publishMountsSynchronized_ = true;
  bool closed_ = false;
};

}  // namespace Fabric
