// Probes sent and received per second on one core, beside a bare loop that does the least that could be called the
// same: sendmmsg of as many bytes with a hop limit from as many sockets, and a ring that is emptied without a look at
// what it holds. Real packets between two network namespaces; each side's time is taken for itself. The service signs
// and schedules what it sends, and parses, authenticates and counts what it receives; its rows go to a table that
// keeps none.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

#include "sonar/ProbePorts.h"
#include "sonar/Sonar.h"
#include "sonar/TestNamespaces.h"
#include "sonar/TestPackets.h"
#include "sonar/TestSwitch.h"

namespace {

using namespace Sonar;

constexpr std::size_t ports = 8;
constexpr std::size_t destinations = 125;
constexpr std::size_t perRound = ports * destinations;  // what the receiver's ring holds at ease
constexpr int rounds = 300;
constexpr std::size_t batch = 64;

class NoIngress : public IngressTable {
 public:
  void rowIs(IngressStreamStatisticsTableEntry const&) override {}
  void rowDel(IngressStream const&) override {}
};
class NoEgress : public EgressTable {
 public:
  void rowIs(EgressStreamTable const&) override {}
  void rowDel(EgressStream const&) override {}
};
class NoMap : public StreamTransmitterMap {
 public:
  void transmittersAre(EgressStream const&, std::set<std::string> const&) override {}
  void streamDel(EgressStream const&) override {}
};

struct Cost {
  double sending = 0;  // seconds in all
  double receiving = 0;
  U64 sent = 0;
  U64 received = 0;

  double perSecond() const {
    return 1 / (sending / static_cast<double>(sent) + receiving / static_cast<double>(received));
  }
};

// Of this thread's own processor time: what others do on the machine meanwhile does not count.
double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double secondsOf(std::function<void()> const& act) {
  double const start = processorSeconds();
  act();
  return processorSeconds() - start;
}

Netkit::IpAddr destination(std::size_t i) {
  return Netkit::IpAddr(0x0a000100U + static_cast<U32>(i));
}
U16 port(std::size_t i) {
  return static_cast<U16>(20000 + i);
}

// The bare loop's sending half: everything laid out beforehand.
class BareSender {
 public:
  BareSender(Netkit::IpAddr source) {
    for (std::size_t i = 0; i < ports; ++i) sockets_.push_back(openProbePort(source, static_cast<U16>(30000 + i)));
    for (std::size_t i = 0; i < destinations; ++i) {
      auto message = std::make_unique<Message>();
      message->name.sin_family = AF_INET;
      message->name.sin_addr.s_addr = htonl(destination(i).value());
      message->name.sin_port = htons(probePort);
      message->data = {message->payload.data(), message->payload.size()};
      msghdr& header = headers_.emplace_back().msg_hdr;
      header.msg_name = &message->name;
      header.msg_namelen = sizeof message->name;
      header.msg_iov = &message->data;
      header.msg_iovlen = 1;
      header.msg_control = message->control.data();
      header.msg_controllen = message->control.size();
      cmsghdr* const control = CMSG_FIRSTHDR(&header);
      control->cmsg_level = IPPROTO_IP;
      control->cmsg_type = IP_TTL;
      control->cmsg_len = CMSG_LEN(sizeof(int));
      int const ttl = 1;
      std::memcpy(CMSG_DATA(control), &ttl, sizeof ttl);
      messages_.push_back(std::move(message));
    }
  }

  U64 send() {
    U64 all = 0;
    for (auto const& socket : sockets_) {
      for (std::size_t i = 0; i < headers_.size();) {
        auto const count = static_cast<unsigned>(std::min(batch, headers_.size() - i));
        int const sent = sendmmsg(socket.fd(), &headers_[i], count, MSG_DONTWAIT);
        require(sent > 0, errorText("sendmmsg"));
        i += static_cast<std::size_t>(sent);
        all += static_cast<U64>(sent);
      }
    }
    return all;
  }

 private:
  struct Message {
    ProbePayload payload{};
    sockaddr_in name{};
    iovec data{};
    alignas(cmsghdr) std::array<U8, CMSG_SPACE(sizeof(int))> control{};
  };
  std::vector<Platform::Descriptor> sockets_;
  std::vector<std::unique_ptr<Message>> messages_;
  std::vector<mmsghdr> headers_;
};

// Takes all that was sent: waits outside of the time that counts, for the kernel hands over a block of the ring only
// when it is full or some milliseconds old.
template <class Drain>
void receive(PacketIo& packets, U64 const& received, U64 expected, double& time, Drain const& drain) {
  while (received < expected) {
    pollfd wait{packets.fds().at(0), POLLIN, 0};
    require(poll(&wait, 1, 5000) > 0, "probes are missing");
    time += secondsOf(drain);
  }
}

void print(char const* what, Cost const& cost) {
  std::printf("%-8s sends %7.0f/s, receives %8.0f/s, both on one core %7.0f/s\n", what,
              static_cast<double>(cost.sent) / cost.sending, static_cast<double>(cost.received) / cost.receiving,
              cost.perSecond());
}

void run() {
  TwoSwitches const switches;
  ip("route add 10.0.1.0/24 via 192.168.0.1");
  std::unique_ptr<KernelPacketIo> receiverPackets;
  switches.inReceiver([&] { receiverPackets = std::make_unique<KernelPacketIo>(); });
  KernelPacketIo senderPackets(KernelPacketIo::TapMode::closed);
  TestSwitch senderView;
  senderView.addresses["lo"] = switches.source;
  TestSwitch receiverView;
  NoIngress ingress;
  NoEgress egress;
  NoMap map;
  auto const epoch = [] { return U64{1}; };
  Service sender({.keys = testKeys(), .nextEpoch = epoch}, {senderView, senderPackets, ingress, egress, map});
  Service receiver({.keys = testKeys(), .nextEpoch = epoch}, {receiverView, *receiverPackets, ingress, egress, map});
  Orders orders{.configuration = 1, .enabled = true, .robustness = 5};
  TransmitterOrder& order = orders.transmitters["p1:leaves"];
  order = {.enabled = true, .sources = {Netkit::IntfId("lo")}, .hopsRate = {{1, {1000, 1, 1}}}};
  for (std::size_t i = 0; i < ports; ++i) order.ports.insert(port(i));
  for (std::size_t i = 0; i < destinations; ++i) order.destinations.insert(destination(i));
  Rix::Seconds now = 1;
  sender.ordersAre(now, orders);
  BareSender bareSender(switches.source);

  Cost bare;
  Cost ours;
  for (int round = 0; round < rounds; ++round) {
    bare.sending += secondsOf([&] { bare.sent += bareSender.send(); });
    receive(*receiverPackets, bare.received, bare.sent, bare.receiving,
            [&] { receiverPackets->drain([&](std::span<U8 const>, Netkit::IntfId) { ++bare.received; }); });
    // A thousandth of a second later each of the service's streams is due once.
    now += 0.001;
    ours.sending += secondsOf([&] { sender.onTimer(now); });
    ours.sent = sender.sender().counts().sent;
    receive(*receiverPackets, ours.received, ours.sent, ours.receiving, [&] {
      receiver.onReadable(now);
      ours.received = receiver.packets(Rejection::none);
    });
  }
  require(ours.sent + perRound >= perRound * rounds, "the service sent too little");
  require(receiver.receiver().rows() == perRound, "not every stream has its row");
  std::printf("%zu streams from %zu ports, %d rounds\n", perRound, ports, rounds);
  print("bare", bare);
  print("service", ours);
  std::printf("ratio    %.2f of the bare loop (at least 0.80 is wanted)\n", ours.perSecond() / bare.perSecond());
}

}  // namespace

int main() {
  try {
    run();
  } catch (std::exception const& error) {
    std::fprintf(stderr, "sonar: %s\n", error.what());
    return 1;
  }
}
