// The order of things in one turn: hear, judge, send.
#include "sonar/Sonar.h"

#include <algorithm>
#include <utility>

#include "runtime/Assert.h"

namespace Sonar {

namespace {

// At most so many probes are made before they are handed to the kernel.
constexpr std::size_t sendBatch = 256;

// An address that means something on this switch alone.
bool isLoopback(Netkit::IpAddr address) {
  return address.value() >> 24 == 127;
}

}  // namespace

Service::Service(Options const& options, Surroundings const& surroundings)
    : keys_(options.keys),
      view_(surroundings.view),
      packets_(surroundings.packets),
      notices_(options.nextEpoch, options.maxRows + options.maxSubStreams),
      sender_(surroundings.view, surroundings.egress, surroundings.transmitters, notices_, options.nextEpoch,
              options.maxSubStreams),
      receiver_(surroundings.view, surroundings.ingress, notices_, options.maxRows) {
  RIX_ASSERT(!keys_.isEmpty());
  handleAddresses();
}

void Service::adopt(Rix::Seconds now, std::span<IngressStreamStatisticsTableEntry const> ingress,
                    std::span<EgressStreamTable const> egress) {
  receiver_.adopt(now, ingress);
  sender_.adopt(now, egress);
  nextSweep_ = now + sweepPeriod;
}

Rix::Seconds Service::nextDeadline() const {
  Rix::Seconds const send = std::max(sender_.nextDue(), nextSend_);
  Rix::Seconds const tell = std::min(sender_.nextRun(), notices_.nextDue());
  return std::min({send, tell, receiver_.idle() ? Rix::never : nextSweep_});
}

void Service::onReadable(Rix::Seconds now) {
  // Without rows nothing is swept; the first one starts it.
  if (receiver_.idle()) nextSweep_ = now + sweepPeriod;
  drain(now);
  sendNotices(now);
}

void Service::onTimer(Rix::Seconds now) {
  // What has come in by now is heard before anything is called silent.
  drain(now);
  if (nextSweep_ <= now) {
    receiver_.sweep(now);
    nextSweep_ = now + sweepPeriod;
  }
  if (sender_.nextRun() <= now) sender_.run(now);
  if (std::max(sender_.nextDue(), nextSend_) <= now) {
    send(now);
    nextSend_ = now + sendPeriod;
  }
  sendNotices(now);
}

void Service::switchChanged(Rix::Seconds now) {
  handleAddresses();
  drain(now);
  receiver_.switchChanged(now);
  sender_.switchChanged(now);
  handleEndpoints();
  sendNotices(now);
}

void Service::ordersAre(Rix::Seconds now, Orders orders) {
  sender_.ordersAre(now, std::move(orders));
  handleEndpoints();
  sendNotices(now);
}

void Service::agentRestarted(Rix::Seconds now) {
  receiver_.agentRestarted(now);
  sender_.agentRestarted(now);
  handleEndpoints();
  sendNotices(now);
}

void Service::stop(Rix::Seconds now) {
  sender_.stop(now);
  handleEndpoints();
  sender_.run(now);
  sendNotices(now);
}

bool Service::stopped() const {
  return !sender_.marking();
}

void Service::handleAddresses() {
  auto const addresses = view_.localAddresses();
  packets_.localAddressesAre(addresses);
  // Others answer to where a notice came from, so it comes from an address that is not one link's. Where a switch has
  // none on its loopback, any must do.
  Netkit::IpAddr own = view_.sourceAddress(Netkit::IntfId("lo"));
  for (Netkit::IpAddr const address : addresses) {
    if (own == Netkit::IpAddr() && !isLoopback(address)) own = address;
  }
  notices_.ownAddressIs(own);
}

void Service::handleEndpoints() {
  auto endpoints = sender_.endpoints();
  for (Netkit::IpAddr const address : view_.localAddresses()) {
    if (isLoopback(address)) continue;
    for (U16 port = noticePort; port < noticePort + noticePorts; ++port) endpoints.emplace(address, port);
  }
  packets_.endpointsAre(endpoints);
}

void Service::drain(Rix::Seconds now) {
  packets_.drain([&](std::span<U8 const> bytes, Netkit::IntfId interface) {
    ReceivedPacket packet;
    auto const rejection = parsePacket(bytes, keys_, packet);
    ++parsed_[static_cast<std::size_t>(rejection)];
    if (rejection != Rejection::none) return;
    // The kernel's filter says the same, but lags behind a change of addresses, and has no room for very many.
    bool const endsHere = packet.ipTtl <= 1 || view_.isLocal(packet.flow.destination);
    if (!endsHere) return;
    if (packet.kind == PacketKind::probe) {
      receiver_.received(now, packet, interface);
    } else {
      hearNotice(now, packet);
    }
  });
}

void Service::hearNotice(Rix::Seconds now, ReceivedPacket const& packet) {
  Notice const& notice = packet.notice;
  bool const forUs = view_.isLocal(packet.flow.destination);
  // An end mark ends like the probes whose way it went. Everything else is for an address of this switch.
  bool const inBand = notice.kind == PacketKind::end && packet.flow == notice.stream;
  if ((!forUs && !inBand) || view_.isLocal(packet.flow.source)) return;
  auto const acknowledge = [&] {
    Notice answer = notice;
    answer.kind = PacketKind::acknowledgement;
    notices_.answer(packet.flow, answer);
  };
  bool const passedOn = notice.holder == Netkit::IpAddr() || view_.isLocal(notice.holder);
  switch (notice.kind) {
    case PacketKind::end:
      return passedOn ? receiver_.ended(now, notice) : passOn(now, packet);
    case PacketKind::freeze:
      passedOn ? receiver_.takenOver(now, notice) : passOn(now, packet);
      return acknowledge();
    case PacketKind::running:
      // Only what was asked is answered; an answer from before may be wrong by now.
      if (notices_.answered(notice.serial)) receiver_.running(now, notice);
      return;
    case PacketKind::takeover:
      if (isSourceOf(notice) && sender_.takeover(now, packet)) acknowledge();
      return;
    case PacketKind::question:
      if (isSourceOf(notice)) sender_.question(now, packet);
      return;
    case PacketKind::acknowledgement:
      notices_.answered(notice.serial);
      return;
    case PacketKind::probe:
      return;
  }
}

// A source whose link to a switch is down has no way to tell it, where switches of one tier reach each other only by
// way of those below; and one that drops packets in silence swallows what is told. The stream's destination is one that
// has another way, and passes it on, once.
void Service::passOn(Rix::Seconds now, ReceivedPacket const& packet) {
  Notice notice = packet.notice;
  Netkit::IpAddr const to = std::exchange(notice.holder, Netkit::IpAddr());
  if (!view_.hasRoute(to)) return;
  if (notice.kind == PacketKind::freeze) {
    notices_.tell(now, to, notice, Notices::Urgency::urgent);
  } else {
    notices_.tellOnce(to, notice, packet.flow.sourcePort);
  }
}

// Whether this switch is where that stream comes from, if it is sent at all.
bool Service::isSourceOf(Notice const& notice) const {
  return view_.isLocal(notice.stream.source);
}

void Service::send(Rix::Seconds now) {
  do {
    due_.clear();
    sender_.takeDue(now, sendBatch, due_);
    outgoing_.clear();
    for (auto const& [flow, probe] : due_) outgoing_.push_back({flow, probe.ttl, encodeProbe(probe, flow, keys_)});
    results_.assign(outgoing_.size(), SendResult::failed);
    packets_.send(outgoing_, results_);
    sender_.results(results_);
  } while (outgoing_.size() == sendBatch);
}

// Whether a notice for a switch goes by way of the stream's destination: where there is no other way, and every second
// time that it is told, in case the straight one is the very way that loses packets.
bool Service::goesAround(OutgoingNotice const& out) const {
  Notice const& notice = out.notice;
  bool const forHolder =
      notice.kind == PacketKind::freeze || (notice.kind == PacketKind::end && out.flow != notice.stream);
  if (!forHolder || notice.holder != Netkit::IpAddr() || view_.isLocal(notice.stream.destination)) return false;
  return out.flow.sourcePort % 2 == 0 || !view_.hasRoute(out.flow.destination);
}

// What the kernel refuses is repeated, or told again by the next mark.
void Service::sendNotices(Rix::Seconds now) {
  if (notices_.nextDue() > now) return;
  told_.clear();
  notices_.takeDue(now, told_);
  outgoing_.clear();
  for (OutgoingNotice& out : told_) {
    if (goesAround(out)) out.notice.holder = std::exchange(out.flow.destination, out.notice.stream.destination);
    outgoing_.push_back({out.flow, out.hopLimit, encodeNotice(out.notice, out.flow, keys_)});
  }
  results_.assign(outgoing_.size(), SendResult::failed);
  packets_.send(outgoing_, results_);
}

}  // namespace Sonar
