// What a probe changes, and what a silence means.
#include "sonar/ReceiverRows.h"

#include <algorithm>

namespace Sonar {

namespace {

constexpr Netkit::IpProto udp{17};

Zeb::ProbeStreamId streamIdOf(ReceivedPacket const& packet) {
  Zeb::ProbeStreamId::Fields fields;
  fields.srcIp = packet.flow.source;
  fields.dstIp = packet.flow.destination;
  fields.auxIp = packet.probe.auxIp;
  fields.ipProto = udp;
  fields.streamPort = packet.flow.sourcePort;
  fields.streamTag = packet.probe.streamTag;
  return Zeb::ProbeStreamId(fields);
}

}  // namespace

Rix::Seconds dormancyThreshold(Probe const& probe) {
  return std::max(probe.robustness * (probe.interval * 1e-6), minSilence);
}

struct ReceiverRows::Row {
  SubStream* sub;
  Netkit::IntfId interface;
  std::size_t place;  // in the schedule
  RowState state = RowState::live;
  bool linkUp = true;
  bool explained = false;       // its silence had a reason when it was judged last
  Rix::Seconds heard = 0;       // when the last probe of this row came
  Rix::Seconds silentFrom = 0;  // the same, or the last moment at which its silence had a reason
};

struct ReceiverRows::SubStream {
  Stream* stream;
  U8 ttl;
  Epoch epoch;
  SequenceWindow window;
  Rix::Seconds threshold;
  Row* current = nullptr;  // where the newest probe came in
  U64 lastSequence = 0;
  U64 received = 0;
  U64 lost = 0;
  U64 misordered = 0;
  U64 duplicated = 0;
  std::vector<std::unique_ptr<Row>> rows;  // one for each interface, seldom more than one
};

struct ReceiverRows::Stream {
  Zeb::ProbeStreamId id;
  bool routed = true;
  // Where and when the newest probe of any ttl came.
  Netkit::IntfId interface;
  Rix::Seconds heard = 0;
  Rix::Seconds threshold = 0;
  std::vector<std::unique_ptr<SubStream>> subStreams;  // one for each ttl that ends here

  // Whether probes of this stream come by another interface than that of `row`, and have since its last one.
  bool comesElsewhere(Row const& row, Rix::Seconds now) const {
    return interface != row.interface && heard > row.heard && now - heard <= threshold;
  }
};

ReceiverRows::ReceiverRows(SwitchView const& view, IngressTable& table, std::size_t maxRows)
    : view_(view), table_(table), maxRows_(maxRows), bell_(table) {}

ReceiverRows::~ReceiverRows() = default;

void ReceiverRows::received(Rix::Seconds now, ReceivedPacket const& packet, Netkit::IntfId interface) {
  if (view_.isLocal(packet.flow.source)) {
    ++ignored_.ownSource;
    return;
  }
  auto const id = streamIdOf(packet);
  SubStream* const sub = find(id, packet.probe.ttl);
  if (!sub) {
    begin(now, packet, id, interface);
    return;
  }
  auto const counted = count(now, *sub, packet.probe);
  if (counted == Counted::ignored) return;
  if (counted == Counted::newest) {
    sub->threshold = dormancyThreshold(packet.probe);
    Row* const previous = sub->current;
    sub->current = &rowOn(*sub, interface);
    heard(now, *sub);
    if (previous != sub->current) judge(*previous, now);
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
}

// Counts the probe. Only the newest, with the highest number so far, is a sign of life and tells where the stream is
// now: a copy can be made by whoever has seen the probe.
ReceiverRows::Counted ReceiverRows::count(Rix::Seconds now, SubStream& sub, Probe const& probe) {
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
  bool const afterSilence = probe.sequence > highest && now - sub.current->heard > sub.threshold;
  auto const [arrival, lost] =
      afterSilence ? sub.window.takeAfterSilence(probe.sequence) : sub.window.take(probe.sequence);
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
  return row;
}

void ReceiverRows::heard(Rix::Seconds now, SubStream& sub) {
  Row& row = *sub.current;
  row.heard = row.silentFrom = now;
  if (row.state == RowState::dormant) bell_.ring();
  row.state = RowState::live;
  Stream& stream = *sub.stream;
  stream.interface = row.interface;
  stream.heard = now;
  stream.threshold = sub.threshold;
  bool const reason = !row.linkUp || !stream.routed;
  schedule_[row.place].nextCheck = reason ? now : now + sub.threshold;
}

void ReceiverRows::sweep(Rix::Seconds now) {
  for (auto const& [nextCheck, row] : schedule_) {
    if (nextCheck <= now) judge(*row, now);
  }
  bell_.sweep(now);
}

void ReceiverRows::switchChanged(Rix::Seconds now) {
  for (auto const& [id, stream] : streams_) stream->routed = view_.hasRoute(id.dstIp()) && view_.hasRoute(id.srcIp());
  for (auto const& [nextCheck, row] : schedule_) {
    row->linkUp = view_.linkUp(row->interface);
    judge(*row, now);
  }
}

void ReceiverRows::judge(Row& row, Rix::Seconds now) {
  SubStream const& sub = *row.sub;
  bool const silent = now - row.heard > sub.threshold;
  bool const reason = !row.linkUp || !sub.stream->routed || sub.stream->comesElsewhere(row, now);
  // While there is a reason, and for one threshold after it, a silence proves nothing.
  if (reason || row.explained) row.silentFrom = now;
  row.explained = reason;
  schedule_[row.place].nextCheck = reason || silent ? now : row.heard + sub.threshold;
  if (silent && reason) {
    stateIs(row, RowState::frozen);
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

void ReceiverRows::write(Row const& row) {
  SubStream const& sub = *row.sub;
  IngressStreamStatisticsTableEntry entry;
  static_cast<Zeb::ProbeStreamId::Fields&>(entry.key) = sub.stream->id.fields();
  entry.key.ttl = sub.ttl;
  entry.key.ingressIntf = row.interface;
  entry.dormant = row.state == RowState::dormant;
  entry.epoch = sub.epoch;
  entry.probesReceived = sub.received;
  entry.probesLost = sub.lost;
  entry.probesMisordered = sub.misordered;
  entry.probesDuplicated = sub.duplicated;
  entry.lastSequenceNumber = sub.lastSequence;
  entry.currentSequenceNumber = sub.window.highest();
  table_.rowIs(entry);
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
