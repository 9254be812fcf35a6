// What a probe changes, and what a silence means.
#include "sonar/ReceiverRows.h"

#include <algorithm>

#include "sonar/ReceiverParts.h"

namespace Sonar {

namespace {

constexpr Netkit::IpProto udp{17};

// A stream that is heard so early in its counting has just begun; later, it has come from somewhere else.
constexpr U64 beginning = 3;
// A ttl that two switches hear in turn is told of by each at most so often.
constexpr Rix::Seconds takeoverPeriod = 1.0;
// A row asks after so long a silence, and then again so often.
constexpr Rix::Seconds questionAfter = 10.0;
constexpr Rix::Seconds questionPeriod = 15.0;
// A row from before whose source does not answer for so long is judged like any other: what is lost may be the answers.
constexpr Rix::Seconds adoptedFor = 15.0;

}  // namespace

Rix::Seconds dormancyThreshold(Probe const& probe) {
  return std::max(probe.robustness * (probe.interval * 1e-6), minSilence);
}

Zeb::ProbeStreamId ReceiverRows::idOf(Flow const& flow, U32 streamTag, Netkit::IpAddr auxIp) {
  Zeb::ProbeStreamId::Fields fields;
  fields.srcIp = flow.source;
  fields.dstIp = flow.destination;
  fields.auxIp = auxIp;
  fields.ipProto = udp;
  fields.streamPort = flow.sourcePort;
  fields.streamTag = streamTag;
  return Zeb::ProbeStreamId(fields);
}

ReceiverRows::ReceiverRows(SwitchView const& view, IngressTable& table, Notices& notices, std::size_t maxRows)
    : view_(view), table_(table), notices_(notices), maxRows_(maxRows), bell_(table), departed_(table, maxRows) {}

ReceiverRows::~ReceiverRows() = default;

void ReceiverRows::received(Rix::Seconds now, ReceivedPacket const& packet, Netkit::IntfId interface) {
  if (view_.isLocal(packet.flow.source)) {
    ++ignored_.ownSource;
    return;
  }
  auto const id = idOf(packet.flow, packet.probe.streamTag, packet.probe.auxIp);
  SubStream* const sub = find(id, packet.probe.ttl);
  if (!sub) {
    begin(now, packet, id, interface);
    return;
  }
  bool const returns = isSilent(*sub, now) || packet.probe.epoch > sub->epoch.value;
  auto const counted = count(now, *sub, packet.probe, interface);
  if (counted == Counted::ignored) return;
  // The last probes of a stream that has been ended may come behind the word of it.
  bool const wakes = counted == Counted::newest && (!sub->ended || sub->ended->last < sub->newest());
  if (wakes) {
    bool const takesBack = sub->takenOver && *sub->takenOver <= sub->newest();
    if (takesBack) sub->takenOver.reset();
    sub->ended.reset();
    sub->threshold = dormancyThreshold(packet.probe);
    Row* const previous = sub->current;
    sub->current = &rowOn(*sub, interface);
    heard(now, *sub);
    if (previous != sub->current) judge(*previous, now);
    if (returns || takesBack || sub->owesTakeover) tellTakeover(now, *sub);
  }
  write(*sub->current);
}

ReceiverRows::SubStream* ReceiverRows::find(Zeb::ProbeStreamId const& id, U8 ttl) const {
  auto const stream = streams_.find(id);
  if (stream == streams_.end()) return nullptr;
  for (auto const& sub : stream->second->subStreams) {
    if (sub->ttl == ttl) return sub.get();
  }
  return nullptr;
}

void ReceiverRows::begin(Rix::Seconds now, ReceivedPacket const& packet, Zeb::ProbeStreamId const& id,
                         Netkit::IntfId interface) {
  if (schedule_.size() >= maxRows_) {
    ++ignored_.noRoom;
    return;
  }
  auto& stream = streams_[id];
  if (!stream) {
    stream = std::make_unique<Stream>();
    stream->id = id;
    stream->routed = view_.hasRoute(id.dstIp()) && view_.hasRoute(id.srcIp());
  }
  Probe const& probe = packet.probe;
  stream->subStreams.push_back(std::make_unique<SubStream>(SubStream{.stream = stream.get(),
                                                                     .ttl = probe.ttl,
                                                                     .epoch = {probe.epoch},
                                                                     .window = SequenceWindow(probe.sequence),
                                                                     .threshold = dormancyThreshold(probe),
                                                                     .received = 1,
                                                                     .rows = {}}));
  SubStream& sub = *stream->subStreams.back();
  sub.current = &addRow(sub, interface);
  heard(now, sub);
  write(*sub.current);
  tellTakeover(now, sub);
}

// Whether so much time has passed without a probe that what is missing says nothing.
bool ReceiverRows::isSilent(SubStream const& sub, Rix::Seconds now) {
  return sub.adopted || now - sub.current->heard > sub.threshold;
}

// Counts the probe. Only the newest, with the highest number so far, is a sign of life and tells where the stream is
// now: a copy can be made by whoever has seen the probe.
ReceiverRows::Counted ReceiverRows::count(Rix::Seconds now, SubStream& sub, Probe const& probe,
                                          Netkit::IntfId interface) {
  if (probe.epoch < sub.epoch.value) {
    ++ignored_.staleEpoch;
    return Counted::ignored;
  }
  if (probe.epoch > sub.epoch.value) {
    sub.epoch = {probe.epoch};
    sub.window = SequenceWindow(probe.sequence);
    sub.lastSequence = sub.lost = sub.misordered = sub.duplicated = 0;
    sub.received = 1;
    return Counted::newest;
  }
  U64 const highest = sub.window.highest();
  // So does a way that is another one now: what is missing fell into the move.
  bool const anew = probe.sequence > highest && (isSilent(sub, now) || interface != sub.current->interface);
  auto const [arrival, lost] = anew ? sub.window.takeAfterSilence(probe.sequence) : sub.window.take(probe.sequence);
  sub.lost += lost;
  switch (arrival) {
    case SequenceWindow::Arrival::next:
      ++sub.received;
      sub.lastSequence = highest;
      return Counted::newest;
    case SequenceWindow::Arrival::misordered:
      ++sub.received;
      ++sub.misordered;
      return Counted::older;
    case SequenceWindow::Arrival::duplicate:
      ++sub.duplicated;
      return Counted::older;
    case SequenceWindow::Arrival::stale:
      break;
  }
  ++ignored_.staleSequence;
  return Counted::ignored;
}

// The row of that interface, made if there is room for it; else the one that counted until now.
ReceiverRows::Row& ReceiverRows::rowOn(SubStream& sub, Netkit::IntfId interface) {
  if (sub.current->interface == interface) return *sub.current;
  for (auto const& row : sub.rows) {
    if (row->interface == interface) return *row;
  }
  if (schedule_.size() < maxRows_) return addRow(sub, interface);
  ++ignored_.noRoom;
  return *sub.current;
}

ReceiverRows::Row& ReceiverRows::addRow(SubStream& sub, Netkit::IntfId interface) {
  sub.rows.push_back(std::make_unique<Row>(Row{.sub = &sub, .interface = interface, .place = schedule_.size()}));
  Row& row = *sub.rows.back();
  row.linkUp = view_.linkUp(interface);
  schedule_.push_back({0, &row});
  departed_.returned(keyOf(row));
  return row;
}

void ReceiverRows::heard(Rix::Seconds now, SubStream& sub) {
  Row& row = *sub.current;
  row.heard = row.silentFrom = now;
  row.explained = false;  // what its next silence means is another matter
  if (row.state == RowState::dormant) bell_.ring();
  row.state = RowState::live;
  sub.adopted = false;
  sub.nextQuestion = now + questionAfter;
  Stream& stream = *sub.stream;
  stream.interface = row.interface;
  stream.heard = now;
  stream.threshold = sub.threshold;
  bool const reason = !row.linkUp || !stream.routed;
  schedule_[row.place].nextCheck = reason ? now : now + sub.threshold;
}

void ReceiverRows::sweep(Rix::Seconds now) {
  for (auto const& [nextCheck, row] : schedule_) {
    if (nextCheck > now) continue;
    judge(*row, now);
    SubStream& sub = *row->sub;
    if (sub.ended && sub.ended->removeAt <= now && row == sub.current) over_.push_back(&sub);
  }
  for (SubStream* const sub : over_) remove(now, *sub);
  over_.clear();
  departed_.sweep(now);
  bell_.sweep(now);
}

void ReceiverRows::judgeAll(SubStream& sub, Rix::Seconds now) {
  for (auto const& row : sub.rows) judge(*row, now);
}

void ReceiverRows::switchChanged(Rix::Seconds now) {
  for (auto const& [id, stream] : streams_) stream->routed = view_.hasRoute(id.dstIp()) && view_.hasRoute(id.srcIp());
  for (auto const& [nextCheck, row] : schedule_) {
    row->linkUp = view_.linkUp(row->interface);
    judge(*row, now);
  }
}

void ReceiverRows::judge(Row& row, Rix::Seconds now) {
  SubStream& sub = *row.sub;
  if (sub.ended) {
    schedule_[row.place].nextCheck = now;
    if (sub.nextQuestion <= now) ask(now, sub);
    stateIs(row, RowState::held);
    return;
  }
  bool const silent = now - row.heard > sub.threshold;
  bool const known = !row.linkUp || !sub.stream->routed || sub.stream->comesElsewhere(row, now) || sub.takenOver;
  if (known) sub.unansweredFrom = now;
  if (sub.adopted && now - sub.unansweredFrom > adoptedFor) sub.adopted = false;
  bool const reason = known || sub.adopted;
  // While there is a reason, and for one threshold after it, a silence proves nothing.
  if (reason || row.explained) row.silentFrom = now;
  row.explained = reason;
  schedule_[row.place].nextCheck = reason || silent ? now : row.heard + sub.threshold;
  if (reason || silent) {
    if (sub.nextQuestion <= now) ask(now, sub);
  }
  if (silent && reason) {
    // A row that was dormant already when this service began stays so until something is known of it.
    if (known || row.state != RowState::dormant) stateIs(row, RowState::frozen);
  } else if (silent && now - row.silentFrom > sub.threshold) {
    stateIs(row, RowState::dormant);
  }
}

void ReceiverRows::stateIs(Row& row, RowState state) {
  if (row.state == state) return;
  bool const shown = (row.state == RowState::dormant) != (state == RowState::dormant);
  row.state = state;
  if (!shown) return;
  bell_.ring();
  write(row);
}

// Tells the source that the ttl ends here now.
void ReceiverRows::tellTakeover(Rix::Seconds now, SubStream& sub) {
  sub.owesTakeover = true;  // the next probe reminds
  if (now < sub.nextTakeover) return;
  sub.nextTakeover = now + takeoverPeriod;
  notices_.forget(sub.takeoverSerial);
  auto const urgency = sub.window.highest() <= beginning ? Notices::Urgency::patient : Notices::Urgency::urgent;
  sub.takeoverSerial = notices_.tell(now, sub.stream->id.srcIp(), noticeOf(sub, PacketKind::takeover), urgency);
  sub.owesTakeover = sub.takeoverSerial == 0;
}

// Asks the source whether the stream is still sent.
void ReceiverRows::ask(Rix::Seconds now, SubStream& sub) {
  sub.nextQuestion = now + questionPeriod;
  notices_.forget(sub.questionSerial);
  sub.questionSerial =
      notices_.tell(now, sub.stream->id.srcIp(), noticeOf(sub, PacketKind::question), Notices::Urgency::patient);
}

Notice ReceiverRows::noticeOf(SubStream const& sub, PacketKind kind) const {
  auto const& id = sub.stream->id;
  return {.kind = kind,
          .ttl = sub.ttl,
          .stream = {id.srcIp(), id.dstIp(), id.streamPort(), probePort},
          .streamTag = id.streamTag(),
          .auxIp = id.auxIp(),
          .number = sub.newest(),
          .holder = notices_.ownAddress()};
}

void ReceiverRows::remove(Rix::Seconds now, SubStream& sub) {
  notices_.forget(sub.takeoverSerial);
  notices_.forget(sub.questionSerial);
  for (auto const& row : sub.rows) {
    table_.rowDel(keyOf(*row));
    departed_.departed(now, entryOf(*row));
    schedule_[row->place] = schedule_.back();
    schedule_[row->place].row->place = row->place;
    schedule_.pop_back();
  }
  Stream& stream = *sub.stream;
  std::erase_if(stream.subStreams, [&](auto const& entry) { return entry.get() == &sub; });
  if (stream.subStreams.empty()) streams_.erase(Zeb::ProbeStreamId(stream.id));
}

IngressStream ReceiverRows::keyOf(Row const& row) const {
  IngressStream key;
  static_cast<Zeb::ProbeStreamId::Fields&>(key) = row.sub->stream->id.fields();
  key.ttl = row.sub->ttl;
  key.ingressIntf = row.interface;
  return key;
}

IngressStreamStatisticsTableEntry ReceiverRows::entryOf(Row const& row) const {
  SubStream const& sub = *row.sub;
  IngressStreamStatisticsTableEntry entry;
  entry.key = keyOf(row);
  entry.dormant = row.state == RowState::dormant;
  entry.epoch = sub.epoch;
  entry.probesReceived = sub.received;
  entry.probesLost = sub.lost;
  entry.probesMisordered = sub.misordered;
  entry.probesDuplicated = sub.duplicated;
  entry.lastSequenceNumber = sub.lastSequence;
  entry.currentSequenceNumber = sub.window.highest();
  return entry;
}

void ReceiverRows::write(Row const& row) {
  table_.rowIs(entryOf(row));
}

std::optional<RowState> ReceiverRows::state(IngressStream const& key) const {
  SubStream const* const sub = find(Zeb::egressStreamToStreamId(key), key.ttl);
  if (!sub) return std::nullopt;
  for (auto const& row : sub->rows) {
    if (row->interface == key.ingressIntf) return row->state;
  }
  return std::nullopt;
}

}  // namespace Sonar
