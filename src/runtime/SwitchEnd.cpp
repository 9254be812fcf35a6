// The switch's end: reports its mounts to the centre, and keeps the copy of its orders.
#include <utility>

#include "runtime/Exceptions.h"
#include "runtime/FabricEnds.h"
#include "runtime/Trace.h"
#include "runtime/Type.h"

namespace Fabric {
namespace {
Rix::TraceHandle traceHandle("Fabric");
}

Rix::Record const& recordByName(std::string_view type) {
  Rix::Type const* known = Rix::typeByName(type);
  if (!known || !known->record()) {
    Rix::throwRangeException("a mount needs a type that a schema declares; there is no " + std::string(type));
  }
  return *known->record();
}

bool Asking::mayAsk(Rix::Seconds now) {
  if (now < next_) return false;
  next_ = now + interval;
  return true;
}

SwitchEnd::SwitchEnd(Rix::Activity& activity, Transport& transport, Rix::Ptr<Atlas::EntityManager> const& entityManager,
                     Identity identity, std::vector<SwitchMount> const& reported,
                     std::vector<SwitchMount> const& ordered)
    : activity_(activity),
      transport_(transport),
      entityManager_(entityManager),
      identity_(std::move(identity)),
      outbox_(activity) {
  RIX_ASSERT(identity_.incarnation != 0);
  Rix::Activity::Use use(activity_);
  beat_ = Rix::make<Alarm>([this] { handleBeat(); });
  for (SwitchMount const& mount : reported) {
    auto const number = static_cast<U16>(publications_.size());
    publications_.push_back(
        std::make_unique<Publication>(outbox_, number, recordByName(mount.type), identity_.incarnation));
    auto const [dir, name] = place(mount.path);
    watches_.push_back(Rix::make<DirWatch>(
        dir, [&publication = *publications_.back(), dir = dir, wanted = name](Rix::Name const& changed) {
          if (changed == wanted) publication.rootIs(dir->entityRef(wanted));
        }));
  }
  for (SwitchMount const& mount : ordered) {
    auto const [dir, name] = place(mount.path);
    Rix::Record const& record = recordByName(mount.type);
    subscriptions_.push_back(std::make_unique<Subscription>(
        record, Rix::Replica::NewWriter::patches, [dir = dir, name = name](Rix::Ptr<Rix::Entity> const& root) {
          root ? dir->entityPtrIs(name, root) : dir->entityDel(name);
        }));
    Rix::Ptr<Rix::Entity> const standing = dir->entityRef(name);
    if (standing && standing->fwkType().record() == &record) subscriptions_.back()->replica().adopt(standing);
  }
  asking_.resize(subscriptions_.size());
  transport_.userIs(this);
}

SwitchEnd::~SwitchEnd() {
  Rix::Activity::Use use(activity_);
  transport_.userIs(nullptr);
  watches_.clear();
  beat_ = nullptr;
}

std::pair<Rix::Ptr<Rix::Dir>, Rix::Name> SwitchEnd::place(std::string_view path) {
  auto const slash = path.rfind('/');
  if (slash == std::string_view::npos) return {entityManager_->root(), Rix::Name(path)};
  return {entityManager_->dirIs(path.substr(0, slash)), Rix::Name(path.substr(slash + 1))};
}

void SwitchEnd::linkConnected(Link& link) {
  link_ = &link;
  Rix::ByteWriter hello;
  hello.variable(identity_.version);
  hello.text(identity_.systemId);
  for (auto const& frame :
       Rix::framesOf({.kind = Rix::FrameKind::hello, .incarnation = identity_.incarnation}, hello.view())) {
    link.send(frame);
  }
  for (auto const& publication : publications_) publication->linkIs(&link);
  if (transport_.mayLose()) beat_->timeIs(Rix::now() + beatInterval);
}

void SwitchEnd::linkDisconnected(Link& link) {
  if (link_ != &link) return;
  link_ = nullptr;
  for (auto const& publication : publications_) publication->linkIs(nullptr);
  for (auto const& subscription : subscriptions_) subscription->disconnected();
}

void SwitchEnd::linkReceived(Link& link, std::string_view bytes) {
  if (link_ != &link) return;
  try {
    handleFrame(Rix::readFrame(bytes));
  } catch (Rix::FrameException const& exception) {
    ++malformedFrames_;
    RIX_TRACE(traceHandle, 0, "link to the centre ended: " << exception.what());
    link.close();
  }
}

void SwitchEnd::handleFrame(Rix::Frame const& frame) {
  Rix::FrameHeader const& header = frame.header;
  switch (header.kind) {
    case Rix::FrameKind::hello:
      for (auto const& subscription : subscriptions_) subscription->writerIs(header.incarnation);
      return;
    case Rix::FrameKind::ask:
      mountOf(publications_, header).snapshotWanted();
      return;
    default:
      break;
  }
  if (mountOf(subscriptions_, header).take(frame) || !asking_[header.mount].mayAsk(Rix::now())) return;
  for (auto const& ask :
       Rix::framesOf({.kind = Rix::FrameKind::ask, .mount = header.mount, .incarnation = identity_.incarnation}, {})) {
    link_->send(ask);
  }
}

void SwitchEnd::handleBeat() {
  if (!link_) return;
  for (auto const& publication : publications_) publication->sendBeat();
  beat_->timeIs(Rix::now() + beatInterval);
}

}  // namespace Fabric
