// One tree's two sides: what is sent at the end of a turn, and what is made of what arrives.
#include "runtime/Exceptions.h"
#include "runtime/FabricEnds.h"
#include "runtime/Trace.h"
#include "runtime/Type.h"

namespace Fabric {
namespace {
Rix::TraceHandle traceHandle("Fabric");
}

Outbox::Outbox(Rix::Activity& activity) : self_(std::make_shared<Outbox*>(this)) {
  activity.flushIs([self = self_] {
    if (!*self) return;
    auto const waiting = std::exchange((*self)->waiting_, {});
    for (Publication* publication : waiting) publication->flush();
  });
}

Outbox::~Outbox() {
  *self_ = nullptr;
}

void Outbox::add(Publication& publication) {
  waiting_.push_back(&publication);
}
void Outbox::remove(Publication& publication) {
  std::erase(waiting_, &publication);
}

Publication::Publication(Outbox& outbox, U16 mount, Rix::Record const& record, U64 incarnation)
    : outbox_(outbox), mount_(mount), record_(record), schemaHash_(record.schemaHash()), incarnation_(incarnation) {}

Publication::~Publication() {
  outbox_.remove(*this);
}

void Publication::rootIs(Rix::Ptr<Rix::Entity> const& root) {
  bool const fits = root && root->fwkType().record() == &record_;
  if (log_ && fits && log_->root() == root) return;
  if (log_) nextSerial_ = log_->nextSerial();
  log_ = nullptr;
  if (fits) {
    log_ = std::make_unique<Rix::AttributeLog>(root, nextSerial_, [this] {
      if (!snapshotWanted_) outbox_.add(*this);
    });
  }
  snapshotWanted();
}

void Publication::linkIs(Link* link) {
  link_ = link;
  if (log_) log_->stop();
  outbox_.remove(*this);
  snapshotWanted_ = false;
  snapshotWanted();
}

void Publication::snapshotWanted() {
  if (!link_ || snapshotWanted_) return;
  snapshotWanted_ = true;
  outbox_.remove(*this);
  outbox_.add(*this);
}

void Publication::sendBeat() {
  if (!link_ || sequence_ == 0) return;
  for (auto const& frame : Rix::framesOf({.kind = Rix::FrameKind::beat,
                           .mount = mount_,
                           .schemaHash = schemaHash_,
                           .incarnation = incarnation_,
                           .sequence = sequence_},
                                         {})) {
    link_->send(frame);
  }
}

void Publication::flush() {
  if (!link_) return;
  if (snapshotWanted_) {
    snapshotWanted_ = false;
    log_ ? send(Rix::FrameKind::snapshot, log_->snapshot()) : send(Rix::FrameKind::absent, {});
  } else if (log_ && log_->hasChanges()) {
    send(Rix::FrameKind::delta, log_->flush());
  }
}

void Publication::send(Rix::FrameKind kind, std::string_view payload) {
  try {
    auto const frames = Rix::framesOf({.kind = kind,
                                       .mount = mount_,
                                       .schemaHash = schemaHash_,
                                       .incarnation = incarnation_,
                                       .sequence = ++sequence_},
                                      payload);
    for (auto const& frame : frames) link_->send(frame);
  } catch (Rix::RangeException const& exception) {
    RIX_TRACE(traceHandle, 0, record_.name() << ": " << exception.what());
    link_->close();
  }
}

Subscription::Subscription(Rix::Record const& record, Rix::Replica::NewWriter newWriter,
                           Rix::Replica::RootChanged rootChanged)
    : schemaHash_(record.schemaHash()), replica_(record, newWriter, std::move(rootChanged)) {}

void Subscription::writerIs(U64 incarnation) {
  disconnected();
  writer_ = incarnation;
}

void Subscription::disconnected() {
  assembler_.clear();
  first_.reset();
  sequence_.writerIs(0);
}

void Subscription::heldIs(bool held) {
  held_ = held;
  if (held || !first_) return;
  Message const message = std::move(*first_);
  first_.reset();
  apply(message.header, message.payload);
}

void Subscription::wantedIs(bool wanted) {
  if (wanted_ == wanted) return;
  wanted_ = wanted;
  assembler_.clear();
  first_.reset();
  sequence_.lost();
  if (!wanted) replica_.remove();
}

std::string Subscription::stored() const {
  if (!replica_.root()) return {};
  Rix::ByteWriter writer;
  writer.fixed(schemaHash_);
  writer.fixed(applied_);
  writer.raw(replica_.encoded());
  return writer.take();
}

void Subscription::restore(std::string_view bytes) {
  Rix::ByteReader reader(bytes);
  auto const schemaHash = reader.fixed<U32>("schema hash");
  if (schemaHash != schemaHash_) {
    reader.malformed("schema hash of " + std::string(replica_.record().name()), std::to_string(schemaHash_),
                     std::to_string(schemaHash));
  }
  auto const writer = reader.fixed<U64>("incarnation");
  replica_.snapshot(reader.raw(reader.left(), "snapshot"), false);
  applied_ = writer;
}

bool Subscription::take(Rix::Frame const& frame) {
  Rix::FrameHeader const& header = frame.header;
  if (header.schemaHash != schemaHash_) {
    throw Rix::FrameException("malformed frame: schema hash of " + std::string(replica_.record().name()) +
                              ": expected " + std::to_string(schemaHash_) + ", found " +
                              std::to_string(header.schemaHash));
  }
  if (header.incarnation != writer_) {
    throw Rix::FrameException("malformed frame: incarnation: expected " + std::to_string(writer_) + ", found " +
                              std::to_string(header.incarnation));
  }
  if (!wanted_ || !assembler_.take(frame)) return true;
  return takeMessage(header, assembler_.message());
}

bool Subscription::takeMessage(Rix::FrameHeader const& header, std::string_view payload) {
  bool const whole = header.kind == Rix::FrameKind::snapshot || header.kind == Rix::FrameKind::absent;
  if (header.kind == Rix::FrameKind::absent && !payload.empty()) {
    throw Rix::FrameException("malformed frame: absence: expected no payload, found some");
  }
  if (held_) {
    // A snapshot alone can wait: what follows before it is applied is missing then, and asked for. A beat tells whether
    // something has.
    if (header.kind == Rix::FrameKind::beat && first_ && header.sequence == first_->header.sequence) return true;
    if (!whole) {
      first_.reset();
      return false;
    }
    if (header.kind == Rix::FrameKind::snapshot) replica_.checkSnapshot(payload);
    first_ = {header, std::string(payload)};
    return true;
  }
  switch (sequence_.judge(header)) {
    case Rix::SequenceCheck::Verdict::apply:
      apply(header, payload);
      return true;
    case Rix::SequenceCheck::Verdict::drop:
      return true;
    default:
      sequence_.lost();
      return false;
  }
}

void Subscription::apply(Rix::FrameHeader const& header, std::string_view payload) {
  if (header.kind == Rix::FrameKind::snapshot) {
    replica_.snapshot(payload, header.incarnation == applied_);
    applied_ = header.incarnation;
  } else if (header.kind == Rix::FrameKind::absent) {
    replica_.remove();
  } else {
    replica_.delta(payload);
  }
  sequence_.applied(header);
}

Alarm::Alarm(std::function<void()> ring) : ring_(std::move(ring)) {
  clock_.notifierIs(Rix::ActivityManagerConfig::clock());
}

DirWatch::DirWatch(Rix::Ptr<Rix::Dir> const& dir, std::function<void(Rix::Name const&)> changed)
    : changed_(std::move(changed)) {
  dir_.notifierIs(Rix::Ptr<Rix::Dir const>(dir));
}

}  // namespace Fabric
