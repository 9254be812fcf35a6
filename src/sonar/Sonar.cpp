// The order of things in one turn: hear, judge, send.
#include "sonar/Sonar.h"

#include <algorithm>
#include <utility>

#include "runtime/Assert.h"

namespace Sonar {

namespace {

// At most so many probes are made before they are handed to the kernel.
constexpr std::size_t sendBatch = 256;

}  // namespace

Service::Service(Options options, Surroundings const& surroundings)
    : keys_(options.keys),
      view_(surroundings.view),
      packets_(surroundings.packets),
      sender_(surroundings.view, surroundings.egress, surroundings.transmitters, std::move(options.nextEpoch),
              options.maxSubStreams),
      receiver_(surroundings.view, surroundings.ingress, options.maxRows) {
  RIX_ASSERT(!keys_.isEmpty());
  packets_.localAddressesAre(view_.localAddresses());
}

Rix::Seconds Service::nextDeadline() const {
  Rix::Seconds const send = std::max(sender_.nextDue(), nextSend_);
  return receiver_.rows() > 0 ? std::min(nextSweep_, send) : send;
}

void Service::onReadable(Rix::Seconds now) {
  // Without rows nothing is swept; the first one starts it.
  if (receiver_.rows() == 0) nextSweep_ = now + sweepPeriod;
  drain(now);
}

void Service::onTimer(Rix::Seconds now) {
  // What has come in by now is heard before anything is called silent.
  drain(now);
  if (nextSweep_ <= now) {
    receiver_.sweep(now);
    nextSweep_ = now + sweepPeriod;
  }
  if (std::max(sender_.nextDue(), nextSend_) <= now) {
    send(now);
    nextSend_ = now + sendPeriod;
  }
}

void Service::switchChanged(Rix::Seconds now) {
  packets_.localAddressesAre(view_.localAddresses());
  drain(now);
  receiver_.switchChanged(now);
  sender_.switchChanged(now);
  packets_.endpointsAre(sender_.endpoints());
}

void Service::ordersAre(Rix::Seconds now, Orders orders) {
  sender_.ordersAre(now, std::move(orders));
  packets_.endpointsAre(sender_.endpoints());
}

void Service::adopt(Rix::Seconds, std::span<IngressStreamStatisticsTableEntry const>,
                    std::span<EgressStreamTable const>) {}

void Service::agentRestarted(Rix::Seconds) {}

void Service::stop(Rix::Seconds now) {
  sender_.ordersAre(now, {.configuration = 0, .enabled = true});
}

bool Service::stopped() const {
  return true;
}

void Service::drain(Rix::Seconds now) {
  packets_.drain([&](std::span<U8 const> bytes, Netkit::IntfId interface) {
    ReceivedPacket packet;
    auto const rejection = parsePacket(bytes, keys_, packet);
    ++parsed_[static_cast<std::size_t>(rejection)];
    if (rejection != Rejection::none) return;
    // The kernel's filter says the same, but lags behind a change of addresses, and has no room for very many.
    bool const endsHere = packet.ipTtl <= 1 || view_.isLocal(packet.flow.destination);
    if (endsHere) receiver_.received(now, packet, interface);
  });
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

}  // namespace Sonar
