// Probes in batches of one system call for each source port, and what becomes of the ones that the kernel refuses.
#include "sonar/ProbeSender.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <numeric>
#include <vector>

#include "sonar/ProbePorts.h"

namespace Sonar {

namespace {

constexpr std::size_t batchSize = 64;

SendResult resultOf(int error) {
  bool const busy = error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS || error == ENOMEM;
  return busy ? SendResult::busy : SendResult::failed;
}

}  // namespace

// Everything that one system call needs, laid out once.
struct ProbeSender::Batch {
  struct Message {
    ProbePayload payload{};
    sockaddr_in destination{};
    iovec data{};
    alignas(cmsghdr) std::array<U8, CMSG_SPACE(sizeof(int))> control{};

    cmsghdr* hopLimit() { return static_cast<cmsghdr*>(static_cast<void*>(control.data())); }
  };

  std::array<Message, batchSize> messages;
  std::array<mmsghdr, batchSize> headers{};
  std::array<std::size_t, batchSize> places{};  // in the caller's results
  std::size_t count = 0;

  Batch() {
    for (std::size_t i = 0; i < batchSize; ++i) {
      Message& message = messages[i];
      message.data = {message.payload.data(), message.payload.size()};
      msghdr& header = headers[i].msg_hdr;
      header.msg_name = &message.destination;
      header.msg_namelen = sizeof message.destination;
      header.msg_iov = &message.data;
      header.msg_iovlen = 1;
      header.msg_control = message.control.data();
      header.msg_controllen = message.control.size();
      cmsghdr* const control = message.hopLimit();
      control->cmsg_level = IPPROTO_IP;
      control->cmsg_type = IP_TTL;
      control->cmsg_len = CMSG_LEN(sizeof(int));
    }
  }

  void add(OutgoingPacket const& packet, std::size_t place) {
    Message& message = messages[count];
    message.payload = packet.payload;
    message.destination.sin_family = AF_INET;
    message.destination.sin_addr.s_addr = htonl(packet.flow.destination.value());
    message.destination.sin_port = htons(packet.flow.destinationPort);
    int const ttl = packet.hopLimit;
    std::memcpy(CMSG_DATA(message.hopLimit()), &ttl, sizeof ttl);
    places[count++] = place;
  }
};

ProbeSender::ProbeSender() : batch_(std::make_unique<Batch>()) {}
ProbeSender::~ProbeSender() = default;

void ProbeSender::send(std::span<OutgoingPacket const> packets, std::span<SendResult> results) {
  auto endpointOf = [&](std::size_t place) {
    Flow const& flow = packets[place].flow;
    return SourceEndpoint(flow.source, flow.sourcePort);
  };
  std::vector<std::size_t> order(packets.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return endpointOf(a) < endpointOf(b); });
  for (std::size_t i = 0; i < order.size();) {
    auto const endpoint = endpointOf(order[i]);
    int const fd = socketOf(endpoint);
    batch_->count = 0;
    for (; i < order.size() && batch_->count < batchSize && endpointOf(order[i]) == endpoint; ++i) {
      batch_->add(packets[order[i]], order[i]);
    }
    sendBatch(fd, results);
  }
}

void ProbeSender::sendBatch(int fd, std::span<SendResult> results) {
  for (std::size_t done = 0; done < batch_->count;) {
    auto const left = static_cast<unsigned>(batch_->count - done);
    int const sent = fd < 0 ? -1 : sendmmsg(fd, &batch_->headers[done], left, MSG_DONTWAIT);
    if (sent <= 0) {
      // The first of those left is the one that failed; the ones behind it may well go.
      results[batch_->places[done++]] = fd < 0 ? SendResult::failed : resultOf(errno);
      continue;
    }
    for (int i = 0; i < sent; ++i) results[batch_->places[done++]] = SendResult::sent;
  }
}

void ProbeSender::endpointsAre(std::set<SourceEndpoint> const& endpoints) {
  std::erase_if(sockets_, [&](auto const& entry) { return !endpoints.contains(entry.first); });
}

int ProbeSender::socketOf(SourceEndpoint const& endpoint) {
  auto const known = sockets_.find(endpoint);
  if (known != sockets_.end()) return known->second.fd();
  Platform::Descriptor socket = openProbePort(endpoint.first, endpoint.second);
  // A socket that could not be had is tried again by the next probe: the address may be on its way.
  if (socket.fd() < 0) return -1;
  return sockets_.emplace(endpoint, std::move(socket)).first->second.fd();
}

}  // namespace Sonar
