// From orders to streams, by content, and from streams to due probes.
#include "sonar/SenderPlan.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Sonar {

namespace {

constexpr Netkit::IpProto udp{17};
constexpr U32 defaultRobustness = 5;
// A receiver has not called a silence yet when it hears so late that there is no more to come.
constexpr Rix::Seconds latestFirstMark = 0.5;
// The kernel is asked for the ways of so many streams at once, and then again a moment later.
constexpr std::size_t waysAtOnce = 256;
constexpr Rix::Seconds lookPeriod = 0.01;

// µs between two probes; 0 for a rate that sends none.
U32 intervalOf(ProbeRate const& rate) {
  if (rate.rate == 0) return 0;
  U64 const interval = U64{rate.scale} * 1000000 / rate.rate;
  return static_cast<U32>(std::min<U64>(interval, std::numeric_limits<U32>::max()));
}

Rix::Seconds seconds(U32 microseconds) {
  return microseconds * 1e-6;
}

// A place in [0, 1) that depends on the flow alone: streams that start together do not send together.
double placeOf(Flow const& flow) {
  U32 const hash = Rix::mixHash(flow.source.hash() ^ Rix::mixHash(flow.destination.hash() + flow.sourcePort));
  return hash / 4294967296.0;
}

constexpr auto later = [](auto const& left, auto const& right) { return left.when > right.when; };

}  // namespace

struct SenderPlan::Wanted {
  Netkit::IntfId source;
  std::set<std::string> transmitters;
  std::map<U8, U32> intervals;  // by ttl
};

struct SenderPlan::SubStream {
  Flow flow;
  EgressStreamTable row;
  U8 distance;
  U16 robustness = defaultRobustness;
  U64 epoch;
  U64 nextSequence = 1;
  U32 interval;  // as ordered, and as probes say
  U32 pace;      // as kept at present
  // Receivers judge silence by the last interval that they were told. So a slower pace is first told by this many
  // probes at the old one.
  U32 announcements = 0;
  Rix::Seconds due;
  Holders holders{};

  ProbeNumber last() const { return {epoch, nextSequence - 1}; }

  void intervalIs(Rix::Seconds now, U32 newInterval) {
    if (newInterval == interval) return;
    interval = newInterval;
    if (interval > pace) {
      announcements = robustness;
    } else {
      pace = interval;
      announcements = 0;
      due = std::min(due, now + seconds(pace));
    }
  }

  void probeSent() {
    ++nextSequence;
    ++row.numProbesTx;
    if (announcements > 0 && --announcements == 0) pace = interval;
  }

  Probe probe(Rix::Seconds now) const {
    return {.ttl = row.key.ttl,
            .distance = distance,
            .robustness = robustness,
            .interval = interval,
            .epoch = epoch,
            .sequence = nextSequence,
            .sendTime = static_cast<U64>(now * 1e9)};
  }
};

struct SenderPlan::Stream {
  EgressStream key;  // as listed in the map of transmitters: without ttl and interface
  Netkit::IntfId egressIntf;
  Netkit::IntfId way;  // by which it leaves now, as far as is known
  std::set<std::string> transmitters;
  std::map<U8, SubStream> subStreams;
};

SenderPlan::SenderPlan(SwitchView const& view, EgressTable& table, StreamTransmitterMap& map, Notices& notices,
                       std::function<U64()> nextEpoch, std::size_t maxSubStreams)
    : view_(view),
      table_(table),
      map_(map),
      notices_(notices),
      nextEpoch_(std::move(nextEpoch)),
      maxSubStreams_(maxSubStreams),
      endings_(view, table, notices, maxSubStreams) {}

SenderPlan::~SenderPlan() = default;

void SenderPlan::ordersAre(Rix::Seconds now, Orders orders) {
  if (stopped_) return;
  bool const fresh = !orders_ || orders_->configuration != orders.configuration;
  if (fresh && !orders.enabled) return;
  orders_ = std::move(orders);
  knowsOrders_ = true;
  follow(now);
}

void SenderPlan::switchChanged(Rix::Seconds now) {
  if (orders_) follow(now);
  ways_.clear();
  for (auto const& [flow, stream] : streams_) ways_.push_back(flow);
  lookAtWays(now);
}

void SenderPlan::stop(Rix::Seconds now) {
  stopped_ = true;
  orders_ = Orders{};
  knowsOrders_ = true;
  follow(now);
}

std::map<Flow, SenderPlan::Wanted> SenderPlan::wanted() {
  std::map<Flow, Wanted> streams;
  if (orders_->enabled) {
    for (auto const& [name, order] : orders_->transmitters) {
      if (order.enabled) want(streams, name, order);
    }
  }
  // What there is no room for is left out from the end, the same each time.
  std::size_t room = maxSubStreams_;
  counts_.refused = 0;
  for (auto& [flow, stream] : streams) {
    while (stream.intervals.size() > room) {
      stream.intervals.erase(std::prev(stream.intervals.end()));
      ++counts_.refused;
    }
    room -= stream.intervals.size();
  }
  std::erase_if(streams, [](auto const& entry) { return entry.second.intervals.empty(); });
  return streams;
}

// Adds the streams of one transmitter.
void SenderPlan::want(std::map<Flow, Wanted>& streams, std::string const& name, TransmitterOrder const& order) const {
  std::map<U8, U32> intervals;
  for (auto const& [hop, rate] : order.hopsRate) {
    U32 const interval = intervalOf(rate);
    if (hop >= 1 && hop <= 255 && interval > 0) intervals.emplace(static_cast<U8>(hop), interval);
  }
  if (intervals.empty()) return;
  std::set<U16> const ports = order.ports.empty() ? std::set<U16>{defaultSourcePort} : order.ports;
  for (Netkit::IntfId const source : order.sources) {
    // A source without an address waits for one.
    Netkit::IpAddr const address = view_.sourceAddress(source);
    if (address == Netkit::IpAddr()) continue;
    for (Netkit::IpAddr const destination : order.destinations) {
      if (destination == Netkit::IpAddr() || view_.isLocal(destination)) continue;
      for (U16 const port : ports) {
        Wanted& stream = streams[Flow{address, destination, port, probePort}];
        if (stream.source.isEmpty()) stream.source = source;
        stream.transmitters.insert(name);
        for (auto const& [ttl, interval] : intervals) {
          U32& present = stream.intervals.emplace(ttl, interval).first->second;
          present = std::min(present, interval);
        }
      }
    }
  }
}

// Brings what runs to what is wanted now.
void SenderPlan::follow(Rix::Seconds now) {
  epoch_.reset();
  taken_.clear();
  auto const target = wanted();
  for (auto stream = streams_.begin(); stream != streams_.end();) {
    if (target.contains(stream->first)) {
      ++stream;
    } else {
      endStream(now, *stream->second);
      stream = streams_.erase(stream);
    }
  }
  for (auto const& [flow, stream] : target) followStream(now, flow, stream);
  endAdopted(now);
  schedule();
}

void SenderPlan::followStream(Rix::Seconds now, Flow const& flow, Wanted const& wanted) {
  auto& place = streams_[flow];
  bool const isNew = !place;
  if (isNew) place = std::make_unique<Stream>();
  Stream& stream = *place;
  if (isNew) {
    stream.key.srcIp = flow.source;
    stream.key.dstIp = flow.destination;
    stream.key.ipProto = udp;
    stream.key.streamPort = flow.sourcePort;
    // Kept while the stream lives, whatever way it goes later: a row that goes would be read as the stream's end.
    stream.way = view_.egressIntf(flow.source, flow.destination, flow.sourcePort);
    stream.egressIntf = stream.way.isEmpty() ? wanted.source : stream.way;
    auto const before = adopted_.lower_bound({flow, 0});
    if (before != adopted_.end() && before->first.first == flow) stream.egressIntf = before->second.key.egressIntf;
  }
  if (stream.transmitters != wanted.transmitters) {
    stream.transmitters = wanted.transmitters;
    map_.transmittersAre(stream.key, stream.transmitters);
  }
  for (auto sub = stream.subStreams.begin(); sub != stream.subStreams.end();) {
    bool const ends = !wanted.intervals.contains(sub->first);
    if (ends) endSubStream(now, sub->second);
    sub = ends ? stream.subStreams.erase(sub) : std::next(sub);
  }
  U8 const distance = wanted.intervals.rbegin()->first;
  U32 const ordered = orders_->robustness == 0 ? defaultRobustness : orders_->robustness;
  auto const robustness = static_cast<U16>(std::min<U32>(ordered, std::numeric_limits<U16>::max()));
  for (auto const& [ttl, interval] : wanted.intervals) {
    auto known = stream.subStreams.find(ttl);
    if (known == stream.subStreams.end()) {
      known = stream.subStreams.emplace(ttl, newSubStream(now, flow, stream, ttl, distance, interval)).first;
    }
    SubStream& sub = known->second;
    sub.distance = distance;
    sub.robustness = robustness;
    sub.intervalIs(now, interval);
  }
}

SenderPlan::SubStream SenderPlan::newSubStream(Rix::Seconds now, Flow const& flow, Stream const& stream, U8 ttl,
                                               U8 distance, U32 interval) {
  EgressStreamTable row{.key = stream.key};
  row.key.ttl = ttl;
  row.key.egressIntf = stream.egressIntf;
  double whole = 0;
  double const phase = std::modf(placeOf(flow) + static_cast<double>(ttl) / distance, &whole);
  SubStream sub{.flow = flow,
                .row = row,
                .distance = distance,
                .epoch = epochOfThisTurn(),
                .interval = interval,
                .pace = interval,
                .due = now + phase * seconds(interval)};
  // Those who had it before it was ended may have it still.
  if (auto ended = endings_.take(flow, ttl)) sub.holders = std::move(ended->holders);
  auto const before = adopted_.find({flow, ttl});
  if (before != adopted_.end()) {
    sub.row.numProbesTx = before->second.numProbesTx;
    if (before->second.key != row.key) table_.rowDel(before->second.key);
    adopted_.erase(before);
  }
  // One that has no way yet is shown with its first probe: beside rows of receivers that go, since they know the stream
  // as one that has ended, it would look like a loss.
  if (sub.row.numProbesTx > 0 || view_.hasRoute(flow.destination)) table_.rowIs(sub.row);
  return sub;
}

void SenderPlan::endStream(Rix::Seconds now, Stream& stream) {
  for (auto& [ttl, sub] : stream.subStreams) endSubStream(now, sub);
  map_.streamDel(stream.key);
}

// The first mark takes the place of the next probe, so that all the ends together are no more than the probes were;
// but a service that stops may not be there then.
void SenderPlan::endSubStream(Rix::Seconds now, SubStream& sub) {
  Rix::Seconds const first = stopped_ ? now : std::clamp(sub.due, now, now + latestFirstMark);
  endings_.add(now, {.flow = sub.flow, .row = sub.row, .last = sub.last(), .holders = std::move(sub.holders)}, first);
}

void SenderPlan::adopt(Rix::Seconds now, std::span<EgressStreamTable const> rows) {
  for (auto const& row : rows) {
    Flow const flow{row.key.srcIp, row.key.dstIp, row.key.streamPort, probePort};
    adopted_[{flow, row.key.ttl}] = row;
  }
  adoptedUntil_ = now + adoptedFor;
}

// What stood here before and is not ordered any more has come to its end.
void SenderPlan::endAdopted(Rix::Seconds now) {
  for (auto const& [key, row] : adopted_) {
    // In which epoch it was sent is not known, but it was before this one.
    endings_.add(now, {.flow = key.first, .row = row, .last = {epochOfThisTurn(), 1}}, now);
    if (streams_.contains(key.first)) continue;
    EgressStream listed = row.key;
    listed.ttl = 0;
    listed.egressIntf = Netkit::IntfId();
    map_.streamDel(listed);
  }
  adopted_.clear();
  adoptedUntil_ = Rix::never;
}

U64 SenderPlan::epochOfThisTurn() {
  if (!epoch_) epoch_ = nextEpoch_();
  return *epoch_;
}

void SenderPlan::schedule() {
  due_.clear();
  for (auto& [flow, stream] : streams_) {
    for (auto& [ttl, sub] : stream->subStreams) due_.push_back({sub.due, &sub});
  }
  std::make_heap(due_.begin(), due_.end(), later);
}

Rix::Seconds SenderPlan::nextDue() const {
  if (due_.empty()) return Rix::never;
  return due_.front().when;
}

Rix::Seconds SenderPlan::nextRun() const {
  return std::min({endings_.nextDue(), nextLook_, adoptedUntil_});
}

void SenderPlan::run(Rix::Seconds now) {
  if (adoptedUntil_ <= now) {
    knowsOrders_ = true;
    epoch_.reset();
    endAdopted(now);
  }
  if (nextLook_ <= now) lookAtWays(now);
  endings_.run(now);
}

// A stream that leaves by another interface has left its first hop, which cannot know. Its next one will tell; but if
// what it tells is lost on the way here, the old one would take the silence for loss.
void SenderPlan::lookAtWays(Rix::Seconds now) {
  for (std::size_t looks = 0; looks < waysAtOnce && !ways_.empty(); ++looks) {
    Flow const flow = ways_.back();
    ways_.pop_back();
    auto const known = streams_.find(flow);
    if (known == streams_.end()) continue;
    Stream& stream = *known->second;
    auto const way = view_.egressIntf(flow.source, flow.destination, flow.sourcePort);
    if (way.isEmpty() || way == stream.way) continue;
    bool const left = !stream.way.isEmpty();
    stream.way = way;
    auto const first = stream.subStreams.find(1);
    if (!left || first == stream.subStreams.end()) continue;
    SubStream const& sub = first->second;
    if (auto const* const holder = sub.holders.current(sub.epoch)) {
      tellFreeze(now, sub, holder->address, sub.nextSequence);
    }
  }
  nextLook_ = ways_.empty() ? Rix::never : now + lookPeriod;
}

void SenderPlan::takeDue(Rix::Seconds now, std::size_t most, std::vector<OutgoingProbe>& probes) {
  taken_.clear();
  while (!due_.empty() && due_.front().when <= now && taken_.size() < most) {
    std::pop_heap(due_.begin(), due_.end(), later);
    SubStream& sub = *due_.back().sub;
    due_.pop_back();
    counts_.worstLateness = std::max(counts_.worstLateness, now - sub.due);
    // What is late by whole intervals is left out, and what is left is sent in its own place.
    double const missed = std::floor((now - sub.due) / seconds(sub.pace));
    counts_.skipped += static_cast<U64>(missed);
    sub.due += missed * seconds(sub.pace);
    taken_.push_back(&sub);
    probes.push_back({sub.flow, sub.probe(now)});
  }
}

void SenderPlan::results(std::span<SendResult const> results) {
  for (std::size_t i = 0; i < taken_.size(); ++i) {
    SubStream& sub = *taken_[i];
    switch (results[i]) {
      case SendResult::sent:
        ++counts_.sent;
        sub.probeSent();
        table_.rowIs(sub.row);
        break;
      case SendResult::busy:
        ++counts_.busy;
        break;
      case SendResult::failed:
        ++counts_.failed;
        break;
    }
    sub.due += seconds(sub.pace);
    due_.push_back({sub.due, &sub});
    std::push_heap(due_.begin(), due_.end(), later);
  }
  taken_.clear();
}

SenderPlan::SubStream* SenderPlan::find(Notice const& notice) {
  auto const stream = streams_.find(notice.stream);
  if (stream == streams_.end()) return nullptr;
  auto const sub = stream->second->subStreams.find(notice.ttl);
  return sub == stream->second->subStreams.end() ? nullptr : &sub->second;
}

bool SenderPlan::takeover(Rix::Seconds now, ReceivedPacket const& packet) {
  Notice const& notice = packet.notice;
  Netkit::IpAddr const from = packet.flow.source;
  SubStream* const sub = find(notice);
  if (!sub) {
    // Before there are orders it is not known what will be sent.
    if (knowsOrders_) endings_.tell(packet);
    return knowsOrders_;
  }
  if (notice.number > sub->last()) {
    ++counts_.oddNotices;
    return true;
  }
  if (hasTaken(now, *sub, from, notice.number)) return true;
  ++counts_.staleNotices;
  if (auto const* const holder = sub->holders.current(sub->epoch)) {
    tellFreeze(now, *sub, from, holder->since.sequence);
  }
  return true;
}

// That switch has heard that probe of the ttl. Makes it the holder, and tells those before it, unless another one has
// heard a later probe. Returns whether it is the holder.
bool SenderPlan::hasTaken(Rix::Seconds now, SubStream& sub, Netkit::IpAddr address, ProbeNumber since) {
  auto const* const holder = sub.holders.current(sub.epoch);
  if (since.epoch < sub.epoch || (holder && since <= holder->since)) {
    sub.holders.remember(address);
    return holder && holder->address == address;
  }
  for (auto const other : sub.holders.taken(address, since)) tellFreeze(now, sub, other, since.sequence);
  return true;
}

void SenderPlan::question(Rix::Seconds now, ReceivedPacket const& packet) {
  Netkit::IpAddr const from = packet.flow.source;
  SubStream* const sub = find(packet.notice);
  if (!sub) {
    if (knowsOrders_) endings_.tell(packet);
    return;
  }
  Notice answer = packet.notice;
  bool const sane = packet.notice.number <= sub->last();
  bool const holds = sane && hasTaken(now, *sub, from, packet.notice.number);
  auto const* const holder = sub->holders.current(sub->epoch);
  answer.holder = holder ? holder->address : Netkit::IpAddr();
  if (holder && !holds && sane) {
    answer.kind = PacketKind::freeze;
    answer.number = holder->since;
    answer.holder = Netkit::IpAddr();
  } else {
    answer.kind = PacketKind::running;
    answer.number = {sub->epoch, std::max<U64>(sub->last().sequence, 1)};
    answer.interval = sub->interval;
    answer.robustness = sub->robustness;
  }
  notices_.answer(packet.flow, answer);
}

void SenderPlan::tellFreeze(Rix::Seconds now, SubStream const& sub, Netkit::IpAddr to, U64 sequence) {
  Notice const notice{.kind = PacketKind::freeze,
                      .ttl = sub.row.key.ttl,
                      .stream = sub.flow,
                      .streamTag = sub.row.key.streamTag,
                      .auxIp = sub.row.key.auxIp,
                      .number = {sub.epoch, sequence}};
  notices_.tell(now, to, notice, Notices::Urgency::urgent);
}

std::set<SourceEndpoint> SenderPlan::endpoints() const {
  std::set<SourceEndpoint> result;
  for (auto const& [flow, stream] : streams_) result.emplace(flow.source, flow.sourcePort);
  for (Flow const& flow : endings_.flows()) result.emplace(flow.source, flow.sourcePort);
  return result;
}

std::size_t SenderPlan::streamsOf(std::string const& transmitter) const {
  return static_cast<std::size_t>(std::count_if(streams_.begin(), streams_.end(), [&](auto const& entry) {
    return entry.second->transmitters.contains(transmitter);
  }));
}

}  // namespace Sonar
