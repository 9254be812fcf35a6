// The centre's end: who is connected, whose entries stand where, and what goes to whom.
#include <utility>

#include "runtime/Exceptions.h"
#include "runtime/FabricEnds.h"
#include "runtime/Trace.h"

namespace Fabric {
namespace {
Rix::TraceHandle traceHandle("Fabric");
}

// One switch that has ever been connected, and whose entries stand.
struct CentralEnd::Switch {
  std::string systemId;
  Link* link = nullptr;
  bool first = false;  // its first snapshots are awaited
  std::vector<std::unique_ptr<Subscription>> subscriptions;
  std::vector<Asking> asking;
  std::vector<std::unique_ptr<Publication>> publications;
};

CentralEnd::CentralEnd(Rix::Activity& activity, Transport& transport,
                       Rix::Ptr<Atlas::EntityManager> const& entityManager, U64 incarnation)
    : activity_(activity),
      transport_(transport),
      entityManager_(entityManager),
      incarnation_(incarnation),
      outbox_(activity),
      self_(std::make_shared<CentralEnd*>(this)) {
  RIX_ASSERT(incarnation_ != 0);
  Rix::Activity::Use use(activity_);
  beat_ = Rix::make<Alarm>([this] { handleBeat(); });
}

CentralEnd::~CentralEnd() {
  *self_ = nullptr;
  Rix::Activity::Use use(activity_);
  transport_.userIs(nullptr);
  watches_.clear();
  switches_.clear();
  beat_ = nullptr;
}

void CentralEnd::serviceClosed(Rix::Ptr<FabricdbService> const& service) {
  RIX_ASSERT(!service_ && service->mountGroups().size() == 1, service->name());
  service_ = service;
  group_ = service->mountGroups()[0];
  RIX_ASSERT(group_->closed(), group_->name());
  for (FabricMount const& mount : group_->fabricMounts()) {
    recordByName(mount.type);
    entityManager_->dirIs(mount.centralPath);
  }
  for (std::size_t i = 0; i < group_->publishMounts().size(); ++i) {
    recordByName(group_->publishMounts()[i]->type());
    watches_.push_back(Rix::make<DirWatch>(entityManager_->dirIs(group_->publishMounts()[i]->centralPath()),
                                           [this, i](Rix::Name const& name) { handleEntry(i, name); }));
  }
  activity_.post([self = self_] {
    if (*self) (*self)->handleGroup();
  });
}

// The directories stand, so the group does, whoever is connected. Links count only from now on: what switches report
// comes after the machines that it is an event to.
void CentralEnd::handleGroup() {
  group_->mounter()->doMountsComplete(group_->name(), entityManager_);
  transport_.userIs(this);
  group_->mounter()->doInitialSwitchMountsComplete(group_->name(), entityManager_);
}

void CentralEnd::linkConnected(Link& link) {
  links_[&link] = nullptr;
  if (transport_.mayLose()) beat_->timeIs(Rix::now() + beatInterval);
}

void CentralEnd::linkDisconnected(Link& link) {
  auto const found = links_.find(&link);
  if (found == links_.end()) return;
  Switch* const each = found->second;
  links_.erase(found);
  if (!each || each->link != &link) return;
  each->link = nullptr;
  for (auto const& subscription : each->subscriptions) subscription->disconnected();
  for (auto const& publication : each->publications) publication->linkIs(nullptr);
  if (group_->preserveMountsOnDisconnect()) {
    tell(*each, MountState::preserved);
    return;
  }
  for (auto const& subscription : each->subscriptions) subscription->replica().remove();
  Rix::Name const name(each->systemId);
  for (auto const& mount : group_->publishMounts()) entityManager_->dirIs(mount->centralPath())->entityDel(name);
  tell(*each, MountState::unmounted);
  switches_.erase(each->systemId);
}

void CentralEnd::linkReceived(Link& link, std::string_view bytes) {
  auto const found = links_.find(&link);
  if (found == links_.end()) return;
  Switch* const each = found->second;
  if (each && each->link != &link) return;
  try {
    Rix::Frame const frame = Rix::readFrame(bytes);
    if (frame.header.kind == Rix::FrameKind::hello) {
      handleHello(link, frame);
    } else if (each) {
      handleFrame(*each, frame);
    } else {
      throw Rix::FrameException("malformed frame: kind: expected a hello first, found " +
                                std::to_string(static_cast<unsigned>(frame.header.kind)));
    }
  } catch (Rix::FrameException const& exception) {
    ++malformedFrames_;
    RIX_TRACE(traceHandle, 0, "link of " << (each ? each->systemId : "a stranger") << " ended: " << exception.what());
    link.close();
  }
}

void CentralEnd::handleHello(Link& link, Rix::Frame const& frame) {
  Rix::ByteReader reader(frame.payload);
  auto const version = Rix::decoded<U32>(reader);
  std::string const systemId(reader.text("system id", 64));
  if (!reader.atEnd()) reader.malformed("end", "no more bytes", std::to_string(reader.left()));
  if (frame.header.incarnation == 0) reader.malformed("incarnation", "another than 0", "0");
  if (!isSystemIdText(systemId)) return refuse(link, "no system id: " + systemId);
  if (!group_->admits(version)) return refuse(link, systemId + " has version " + std::to_string(version));
  if (!switches_.contains(systemId) && switches_.size() >= maxSwitches) return refuse(link, "too many switches");

  Switch& each = switchIs(systemId);
  if (links_[&link] != nullptr && links_[&link] != &each) return refuse(link, "a second name: " + systemId);
  Link* const before = std::exchange(each.link, &link);
  links_[&link] = &each;
  // A switch that comes again has lost its old link, whether or not that is known here.
  if (before && before != &link) before->close();
  each.first = true;
  for (auto const& subscription : each.subscriptions) {
    subscription->writerIs(frame.header.incarnation);
    subscription->heldIs(true);
  }
  Rix::ByteWriter hello;
  hello.variable(switchVersion);
  for (auto const& answer : Rix::framesOf({.kind = Rix::FrameKind::hello, .incarnation = incarnation_}, hello.view())) {
    link.send(answer);
  }
  if (!service_->publishMountsSynchronized()) {
    for (auto const& publication : each.publications) publication->linkIs(&link);
  }
  if (each.subscriptions.empty()) handleFirst(each);
}

void CentralEnd::refuse(Link& link, std::string const& why) {
  ++refusedSwitches_;
  RIX_TRACE(traceHandle, 0, "link refused: " << why);
  link.close();
}

void CentralEnd::handleFrame(Switch& each, Rix::Frame const& frame) {
  Rix::FrameHeader const& header = frame.header;
  if (header.kind == Rix::FrameKind::ask) {
    mountOf(each.publications, header).snapshotWanted();
    return;
  }
  Subscription& subscription = mountOf(each.subscriptions, header);
  if (!subscription.take(frame) && each.asking[header.mount].mayAsk(Rix::now())) {
    for (auto const& ask :
         Rix::framesOf({.kind = Rix::FrameKind::ask, .mount = header.mount, .incarnation = incarnation_}, {})) {
      each.link->send(ask);
    }
  }
  if (!each.first) return;
  for (auto const& other : each.subscriptions) {
    if (!other->hasFirst()) return;
  }
  handleFirst(each);
}

// All mounts of the switch are there: they are applied in declared order, in this one dispatch.
void CentralEnd::handleFirst(Switch& each) {
  each.first = false;
  Rix::Name const name(each.systemId);
  for (auto const& mount : group_->publishMounts()) {
    Rix::Ptr<Rix::Dir> const dir = entityManager_->dirIs(mount->centralPath());
    if (mount->publishActive() && !dir->entityPtrHas(name)) dir->newEntity(mount->type(), name);
  }
  for (auto const& subscription : each.subscriptions) subscription->heldIs(false);
  if (service_->publishMountsSynchronized()) {
    for (auto const& publication : each.publications) publication->linkIs(each.link);
  }
  tell(each, MountState::mounted);
}

CentralEnd::Switch& CentralEnd::switchIs(std::string const& systemId) {
  auto& slot = switches_[systemId];
  if (slot) return *slot;
  slot = std::make_unique<Switch>();
  slot->systemId = systemId;
  Rix::Name const name(systemId);
  for (FabricMount const& mount : group_->fabricMounts()) {
    slot->subscriptions.push_back(std::make_unique<Subscription>(
        recordByName(mount.type), Rix::Replica::NewWriter::replaces,
        [dir = entityManager_->dirIs(mount.centralPath), name](Rix::Ptr<Rix::Entity> const& root) {
          root ? dir->entityPtrIs(name, root) : dir->entityDel(name);
        }));
  }
  slot->asking.resize(slot->subscriptions.size());
  for (auto const& mount : group_->publishMounts()) {
    auto const number = static_cast<U16>(slot->publications.size());
    slot->publications.push_back(
        std::make_unique<Publication>(outbox_, number, recordByName(mount->type()), incarnation_));
    if (!mount->publishActive()) continue;
    slot->publications.back()->rootIs(entityManager_->dirIs(mount->centralPath())->entityRef(name));
  }
  return *slot;
}

void CentralEnd::handleEntry(std::size_t publishMount, Rix::Name const& name) {
  auto const found = switches_.find(std::string(name.view()));
  auto const& mount = group_->publishMounts()[publishMount];
  if (found == switches_.end() || !mount->publishActive()) return;
  found->second->publications[publishMount]->rootIs(entityManager_->dirIs(mount->centralPath())->entityRef(name));
}

void CentralEnd::handleBeat() {
  if (links_.empty()) return;
  for (auto const& [systemId, each] : switches_) {
    for (auto const& publication : each->publications) publication->sendBeat();
  }
  beat_->timeIs(Rix::now() + beatInterval);
}

void CentralEnd::tell(Switch const& each, MountState state) {
  tellMountState(*group_->mounter(), each.systemId, group_->name(), state);
}

bool CentralEnd::connected(std::string_view systemId) const {
  auto const found = switches_.find(std::string(systemId));
  return found != switches_.end() && found->second->link != nullptr;
}

}  // namespace Fabric
