// The filter's program, the ring, and the way through its blocks.
#include "sonar/Tap.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace Sonar {

namespace {

constexpr std::size_t blockSize = 1U << 15;
constexpr std::size_t blockCount = 64;
constexpr std::size_t ringSize = blockSize * blockCount;
constexpr unsigned frameSize = 256;
// A block that is not full is handed over after so many milliseconds: short beside a sweep of the rows.
constexpr unsigned retireAfter = 2;
// Two instructions each; the kernel takes 4096 in all.
constexpr std::size_t maxFilterAddresses = 1000;

void check(int result, char const* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
}

// Where, after a packet's header in the ring, the kernel puts the address that it came with.
constexpr std::size_t linkOffset =
    (sizeof(tpacket3_hdr) + TPACKET_ALIGNMENT - 1) / TPACKET_ALIGNMENT * TPACKET_ALIGNMENT;

template <class T>
T* at(U8* bytes) {
  return static_cast<T*>(static_cast<void*>(bytes));
}

void attachFilter(int fd, U16 port, std::span<Netkit::IpAddr const> addresses) {
  auto filter = tapFilter(port, addresses);
  sock_fprog const program{static_cast<unsigned short>(filter.size()), filter.data()};
  check(setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program),
        "attaching the filter of the probe tap");
}

}  // namespace

std::vector<sock_filter> tapFilter(U16 port, std::span<Netkit::IpAddr const> addresses) {
  constexpr U32 accept = 0xffff;
  std::vector<sock_filter> program;
  auto load = [&](int how, U32 offset) { program.push_back(BPF_STMT(static_cast<U16>(BPF_LD | how), offset)); };
  auto finish = [&](U32 length) { program.push_back(BPF_STMT(BPF_RET | BPF_K, length)); };
  // Rejects unless the comparison holds.
  auto require = [&](int comparison, U32 value) {
    program.push_back(BPF_JUMP(static_cast<U16>(BPF_JMP | comparison | BPF_K), value, 1, 0));
    finish(0);
  };
  load(BPF_W | BPF_ABS, static_cast<U32>(SKF_AD_OFF + SKF_AD_PKTTYPE));
  require(BPF_JEQ, PACKET_HOST);
  load(BPF_B | BPF_ABS, 9);
  require(BPF_JEQ, IPPROTO_UDP);
  load(BPF_H | BPF_ABS, 6);
  program.push_back(BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0x3fff));
  require(BPF_JEQ, 0);
  program.push_back(BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0));  // the length of the IP header
  load(BPF_H | BPF_IND, 2);
  require(BPF_JEQ, port);
  if (addresses.size() <= maxFilterAddresses) {
    load(BPF_B | BPF_ABS, 8);
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, 1, 1, 0));
    finish(accept);
    load(BPF_W | BPF_ABS, 16);
    for (Netkit::IpAddr const address : addresses) {
      program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, address.value(), 0, 1));
      finish(accept);
    }
    finish(0);
  } else {
    finish(accept);
  }
  return program;
}

Tap::Tap(U16 port) : port_(port) {
  // Protocol 0 receives nothing: the filter and the ring stand before the first packet comes.
  socket_ = Platform::Descriptor(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  check(socket_.fd(), "opening the probe tap (a packet socket, which needs CAP_NET_RAW)");
  attachFilter(socket_.fd(), port_, {});
  int const ringVersion = TPACKET_V3;
  check(setsockopt(socket_.fd(), SOL_PACKET, PACKET_VERSION, &ringVersion, sizeof ringVersion),
        "choosing the ring's version for the probe tap");
  tpacket_req3 request{};
  request.tp_block_size = blockSize;
  request.tp_block_nr = blockCount;
  request.tp_frame_size = frameSize;
  request.tp_frame_nr = ringSize / frameSize;
  request.tp_retire_blk_tov = retireAfter;
  check(setsockopt(socket_.fd(), SOL_PACKET, PACKET_RX_RING, &request, sizeof request),
        "making the ring of the probe tap");
  void* const ring = mmap(nullptr, ringSize, PROT_READ | PROT_WRITE, MAP_SHARED, socket_.fd(), 0);
  if (ring == MAP_FAILED) check(-1, "mapping the ring of the probe tap");
  ring_ = static_cast<U8*>(ring);
  // ETH_P_IP is met after the ingress hook: what a firewall drops there is not seen, as nobody else sees it either.
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_IP);
  sockaddr const* const any = static_cast<sockaddr const*>(static_cast<void const*>(&address));
  if (bind(socket_.fd(), any, sizeof address) < 0) {
    int const error = errno;
    munmap(ring_, ringSize);
    throw std::system_error(error, std::generic_category(), "binding the probe tap");
  }
}

Tap::~Tap() {
  munmap(ring_, ringSize);
}

void Tap::localAddressesAre(std::span<Netkit::IpAddr const> addresses) {
  interfaces_.clear();
  attachFilter(socket_.fd(), port_, addresses);
}

void Tap::drain(Taker const& taker) {
  for (std::size_t blocks = 0; blocks < blockCount; ++blocks) {
    U8* const block = ring_ + nextBlock_ * blockSize;
    std::atomic_ref status(at<tpacket_block_desc>(block)->hdr.bh1.block_status);
    if ((status.load(std::memory_order_acquire) & TP_STATUS_USER) == 0) return;
    drainBlock(block, taker);
    status.store(TP_STATUS_KERNEL, std::memory_order_release);
    nextBlock_ = (nextBlock_ + 1) % blockCount;
  }
}

void Tap::drainBlock(U8* block, Taker const& taker) {
  auto const& head = at<tpacket_block_desc>(block)->hdr.bh1;
  U8* position = block + head.offset_to_first_pkt;
  for (U32 i = 0; i < head.num_pkts; ++i) {
    auto const* const packet = at<tpacket3_hdr>(position);
    auto const* const link = at<sockaddr_ll>(position + linkOffset);
    taker({position + packet->tp_net, packet->tp_snaplen}, interface(link->sll_ifindex));
    position += packet->tp_next_offset;
  }
}

U64 Tap::dropped() {
  // Reading the kernel's figure sets it back to zero.
  tpacket_stats_v3 statistics{};
  socklen_t size = sizeof statistics;
  if (getsockopt(socket_.fd(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) == 0) dropped_ += statistics.tp_drops;
  return dropped_;
}

Netkit::IntfId Tap::interface(int index) {
  auto const known = interfaces_.find(index);
  if (known != interfaces_.end()) return known->second;
  // Asked of the tap's own socket, so that the answer is of its namespace whichever the thread is in.
  ifreq request{};
  request.ifr_ifindex = index;
  bool const found = ioctl(socket_.fd(), SIOCGIFNAME, &request) == 0;
  return interfaces_.emplace(index, found ? Netkit::IntfId(request.ifr_name) : Netkit::IntfId()).first->second;
}

}  // namespace Sonar
