// From orders to streams, by content, and from streams to due probes.
#include "sonar/SenderPlan.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Sonar {

namespace {

constexpr Netkit::IpProto udp{17};
constexpr U32 defaultRobustness = 5;

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
  U16 robustness;
  U64 epoch;
  U64 nextSequence = 1;
  U32 interval;  // as ordered, and as probes say
  U32 pace;      // as kept at present
  // Receivers judge silence by the last interval that they were told. So a slower pace is first told by this many
  // probes at the old one.
  U32 announcements = 0;
  Rix::Seconds due;

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
  std::set<std::string> transmitters;
  std::map<U8, SubStream> subStreams;
};

SenderPlan::SenderPlan(SwitchView const& view, EgressTable& table, StreamTransmitterMap& map,
                       std::function<U64()> nextEpoch, std::size_t maxSubStreams)
    : view_(view), table_(table), map_(map), nextEpoch_(std::move(nextEpoch)), maxSubStreams_(maxSubStreams) {}

SenderPlan::~SenderPlan() = default;

void SenderPlan::ordersAre(Rix::Seconds now, Orders orders) {
  bool const fresh = !orders_ || orders_->configuration != orders.configuration;
  if (fresh && !orders.enabled) return;
  orders_ = std::move(orders);
  follow(now);
}

void SenderPlan::switchChanged(Rix::Seconds now) {
  if (orders_) follow(now);
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
      endStream(*stream->second);
      stream = streams_.erase(stream);
    }
  }
  for (auto const& [flow, stream] : target) followStream(now, flow, stream);
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
    stream.egressIntf = view_.egressIntf(flow.source, flow.destination, flow.sourcePort);
    if (stream.egressIntf.isEmpty()) stream.egressIntf = wanted.source;
  }
  if (stream.transmitters != wanted.transmitters) {
    stream.transmitters = wanted.transmitters;
    map_.transmittersAre(stream.key, stream.transmitters);
  }
  std::erase_if(stream.subStreams, [&](auto const& entry) {
    bool const ends = !wanted.intervals.contains(entry.first);
    if (ends) table_.rowDel(entry.second.row.key);
    return ends;
  });
  U8 const distance = wanted.intervals.rbegin()->first;
  U32 const ordered = orders_->robustness == 0 ? defaultRobustness : orders_->robustness;
  auto const robustness = static_cast<U16>(std::min<U32>(ordered, std::numeric_limits<U16>::max()));
  for (auto const& [ttl, interval] : wanted.intervals) {
    auto known = stream.subStreams.find(ttl);
    if (known == stream.subStreams.end()) {
      EgressStreamTable row{.key = stream.key};
      row.key.ttl = ttl;
      row.key.egressIntf = stream.egressIntf;
      double whole = 0;
      double const phase = std::modf(placeOf(flow) + static_cast<double>(ttl) / distance, &whole);
      known = stream.subStreams
                  .emplace(ttl, SubStream{.flow = flow,
                                          .row = row,
                                          .distance = distance,
                                          .robustness = robustness,
                                          .epoch = epochOfThisTurn(),
                                          .interval = interval,
                                          .pace = interval,
                                          .due = now + phase * seconds(interval)})
                  .first;
      table_.rowIs(row);
    }
    SubStream& sub = known->second;
    sub.distance = distance;
    sub.robustness = robustness;
    sub.intervalIs(now, interval);
  }
}

void SenderPlan::endStream(Stream const& stream) {
  for (auto const& [ttl, sub] : stream.subStreams) table_.rowDel(sub.row.key);
  map_.streamDel(stream.key);
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

std::set<SourceEndpoint> SenderPlan::endpoints() const {
  std::set<SourceEndpoint> result;
  for (auto const& [flow, stream] : streams_) result.emplace(flow.source, flow.sourcePort);
  return result;
}

std::size_t SenderPlan::streamsOf(std::string const& transmitter) const {
  return static_cast<std::size_t>(std::count_if(streams_.begin(), streams_.end(), [&](auto const& entry) {
    return entry.second->transmitters.contains(transmitter);
  }));
}

}  // namespace Sonar
