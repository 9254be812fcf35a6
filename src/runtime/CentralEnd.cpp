// The centre's end: who is connected, whose entries stand where, and what goes to whom.
#include <utility>

#include "runtime/Exceptions.h"
#include "runtime/FabricEnds.h"
#include "runtime/Trace.h"

namespace Fabric {
namespace {
Rix::TraceHandle traceHandle("Fabric");
}

// One switch that has ever been connected or was stored, and whose entries stand.
struct CentralEnd::Switch {
  std::string systemId;
  Link* link = nullptr;
  bool first = false;      // its first snapshots are awaited
  bool published = false;  // its orders go to this link
  std::vector<std::unique_ptr<Subscription>> subscriptions;
  std::vector<std::string> saved;  // of each subscription, what the store has
  std::vector<Asking> asking;
  std::vector<std::unique_ptr<Publication>> publications;
};

CentralEnd::CentralEnd(Rix::Activity& activity, Transport& transport,
                       Rix::Ptr<Atlas::EntityManager> const& entityManager, U64 incarnation, ReportStore* reports)
    : activity_(activity),
      transport_(transport),
      entityManager_(entityManager),
      incarnation_(incarnation),
      reports_(reports),
      outbox_(activity),
      self_(std::make_shared<CentralEnd*>(this)) {
  RIX_ASSERT(incarnation_ != 0);
  Rix::Activity::Use use(activity_);
  beat_ = Rix::make<Alarm>([this] { handleBeat(); });
  firstReportsTimer_ = Rix::make<Alarm>([this] { handleGroupTimeout(); });
  activity_.flushIs([self = self_] {
    if (*self) (*self)->flushReports();
  });
}

CentralEnd::~CentralEnd() {
  *self_ = nullptr;
  Rix::Activity::Use use(activity_);
  transport_.userIs(nullptr);
  watches_.clear();
  switches_.clear();
  beat_ = nullptr;
  firstReportsTimer_ = nullptr;
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
  restoreReports();
  // Links first: a switch that is there already presents itself before the group is looked at.
  transport_.userIs(this);
  activity_.post([self = self_] {
    if (*self) (*self)->handleGroup();
  });
}

bool CentralEnd::stores(FabricMount const& mount) const {
  return reports_ && group_->preserveMountsOnDisconnect() && mount.given == Given::beforeTheGroup;
}

// Switches that are away stand with what they reported last, and with orders of their own, which the machines fill.
void CentralEnd::restoreReports() {
  if (!reports_ || !group_->preserveMountsOnDisconnect()) return;
  std::set<std::string> restored;
  for (StoredReport const& report : reports_->load()) {
    auto const& mounts = group_->fabricMounts();
    for (std::size_t i = 0; i < mounts.size(); ++i) {
      if (mounts[i].centralPath != report.mount || !stores(mounts[i])) continue;
      bool const known = switches_.contains(report.systemId);
      if (!isSystemIdText(report.systemId) || (!known && switches_.size() >= maxSwitches)) {
        RIX_TRACE(traceHandle, 0, "stored report of " << report.systemId << " left out: no system id, or too many");
        continue;
      }
      Switch& each = switchIs(report.systemId);
      try {
        each.subscriptions[i]->restore(report.bytes);
        each.saved[i] = report.bytes;
        restored.insert(report.systemId);
      } catch (Rix::FrameException const& exception) {
        RIX_TRACE(traceHandle, 0, "stored report of " << report.systemId << " left out: " << exception.what());
        if (!known) switches_.erase(report.systemId);
      }
    }
  }
  for (std::string const& systemId : restored) {
    makeOrders(switchIs(systemId));
    tell(switchIs(systemId), MountState::preserved);
  }
}

// The directories stand, and what the store holds. Whoever has presented itself by now is waited for.
void CentralEnd::handleGroup() {
  closed_ = true;
  if (firstReportsAwaited()) {
    firstReportsTimer_->timeIs(Rix::now() + firstReportsTimeout);
  } else {
    reportGroup();
  }
}

bool CentralEnd::firstReportsAwaited() const {
  for (auto const& [systemId, each] : switches_) {
    if (each->link && each->first) return true;
  }
  return false;
}

void CentralEnd::handleGroupTimeout() {
  RIX_TRACE(traceHandle, 0, "the first reports of some switches have not come in " << firstReportsTimeout << " s");
  reportGroup();
}

void CentralEnd::reportGroup() {
  reported_ = true;
  firstReportsTimer_->timeIs(Rix::never);
  group_->mounter()->doMountsComplete(group_->name(), entityManager_);
  group_->mounter()->doInitialSwitchMountsComplete(group_->name(), entityManager_);
}

void CentralEnd::machinesStand(Rix::Ptr<FabricdbService> const& service, bool stand) {
  RIX_ASSERT(service == service_);
  activity_.post([self = self_, stand] {
    if (*self) (*self)->handleMachines(stand);
  });
}

// What is given while machines stand comes and goes with them. After the first word orders may leave.
void CentralEnd::handleMachines(bool stand) {
  bool const before = machines_ == true;
  machines_ = stand;
  auto const& mounts = group_->fabricMounts();
  for (auto const& [systemId, each] : switches_) {
    for (std::size_t i = 0; before != stand && i < mounts.size(); ++i) {
      if (mounts[i].given != Given::whileMachinesStand) continue;
      each->subscriptions[i]->wantedIs(stand);
      if (stand && each->link) ask(*each, i);
    }
    if (each->first) {
      handleFirst(*each);
    } else {
      linkPublications(*each);
    }
  }
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
  each->first = false;
  each->published = false;
  for (auto const& subscription : each->subscriptions) subscription->disconnected();
  for (auto const& publication : each->publications) publication->linkIs(nullptr);
  if (group_->preserveMountsOnDisconnect()) {
    tell(*each, MountState::preserved);
  } else {
    for (auto const& subscription : each->subscriptions) subscription->replica().remove();
    Rix::Name const name(each->systemId);
    for (auto const& mount : group_->publishMounts()) entityManager_->dirIs(mount->centralPath())->entityDel(name);
    tell(*each, MountState::unmounted);
    switches_.erase(each->systemId);
  }
  if (closed_ && !reported_ && !firstReportsAwaited()) reportGroup();
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
  each.published = false;
  for (auto const& subscription : each.subscriptions) {
    subscription->writerIs(frame.header.incarnation);
    subscription->heldIs(true);
  }
  Rix::ByteWriter hello;
  hello.variable(switchVersion);
  for (auto const& answer : Rix::framesOf({.kind = Rix::FrameKind::hello, .incarnation = incarnation_}, hello.view())) {
    link.send(answer);
  }
  for (auto const& publication : each.publications) publication->linkIs(nullptr);
  linkPublications(each);
  handleFirst(each);
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
  if (!subscription.take(frame) && each.asking[header.mount].mayAsk(Rix::now())) ask(each, header.mount);
  if (each.first) {
    handleFirst(each);
  } else if (stores(group_->fabricMounts()[header.mount])) {
    changed_.insert(each.systemId);
  }
}

void CentralEnd::ask(Switch& each, std::size_t mount) {
  for (auto const& frame : Rix::framesOf(
           {.kind = Rix::FrameKind::ask, .mount = static_cast<U16>(mount), .incarnation = incarnation_}, {})) {
    each.link->send(frame);
  }
}

// When all mounts of the switch that are wanted are there, they are applied in declared order, in this one dispatch.
void CentralEnd::handleFirst(Switch& each) {
  for (auto const& subscription : each.subscriptions) {
    if (subscription->awaited()) return;
  }
  each.first = false;
  makeOrders(each);
  for (auto const& subscription : each.subscriptions) subscription->heldIs(false);
  changed_.insert(each.systemId);
  linkPublications(each);
  tell(each, MountState::mounted);
  if (closed_ && !reported_ && !firstReportsAwaited()) reportGroup();
}

// Orders are made once, and stand as long as the switch's entries: the machines fill them, and hold on to them.
void CentralEnd::makeOrders(Switch const& each) {
  Rix::Name const name(each.systemId);
  for (auto const& mount : group_->publishMounts()) {
    Rix::Ptr<Rix::Dir> const dir = entityManager_->dirIs(mount->centralPath());
    if (mount->publishActive() && !dir->entityPtrHas(name)) dir->newEntity(mount->type(), name);
  }
}

// Orders leave when the machines have had their say, with what this switch has reported if that is to be waited for.
void CentralEnd::linkPublications(Switch& each) {
  if (!each.link || each.published || !machines_) return;
  if (each.first && service_->publishMountsSynchronized()) return;
  each.published = true;
  for (auto const& publication : each.publications) publication->linkIs(each.link);
}

// At most once in a turn, and only what has become different.
void CentralEnd::flushReports() {
  auto const& changed = std::exchange(changed_, {});
  if (!reports_ || !group_) return;
  auto const& mounts = group_->fabricMounts();
  for (std::string const& systemId : changed) {
    auto const found = switches_.find(systemId);
    if (found == switches_.end()) continue;
    Switch& each = *found->second;
    for (std::size_t i = 0; i < mounts.size(); ++i) {
      if (!stores(mounts[i])) continue;
      std::string bytes = each.subscriptions[i]->stored();
      if (bytes == each.saved[i]) continue;
      if (bytes.empty()) {
        reports_->remove(systemId, mounts[i].centralPath);
      } else {
        reports_->save(systemId, mounts[i].centralPath, bytes);
      }
      each.saved[i] = std::move(bytes);
    }
  }
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
  for (std::size_t i = 0; i < slot->subscriptions.size(); ++i) {
    if (group_->fabricMounts()[i].given == Given::whileMachinesStand)
      slot->subscriptions[i]->wantedIs(machines_ == true);
  }
  slot->asking.resize(slot->subscriptions.size());
  slot->saved.resize(slot->subscriptions.size());
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
