// How a UDP port is held that nothing is read from.
#include "sonar/ProbePorts.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace Sonar {

Platform::Descriptor openProbePort(Netkit::IpAddr address, U16 port) {
  Platform::Descriptor result(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (result.fd() < 0) return result;
  auto set = [&](int option, auto const& value) {
    return setsockopt(result.fd(), SOL_SOCKET, option, &value, sizeof value) == 0;
  };
  // Nothing is read here, so nothing may pile up. Attached before the socket has a port.
  sock_filter reject = BPF_STMT(BPF_RET | BPF_K, 0);
  sock_fprog const program{1, &reject};
  // A source port may be the port that probes go to; both sockets then share it.
  int const shared = 1;
  // While a neighbour is looked for, the kernel keeps its packets, charged to this socket, up to 208 KiB for each
  // neighbour; then the oldest go. With less room than that, one neighbour that does not answer would leave none for
  // the streams to all others.
  int const sendBuffer = 1 << 18;
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(address.value());
  name.sin_port = htons(port);
  sockaddr const* const any = static_cast<sockaddr const*>(static_cast<void const*>(&name));
  if (!set(SO_ATTACH_FILTER, program) || !set(SO_REUSEADDR, shared) || !set(SO_SNDBUF, sendBuffer) ||
      bind(result.fd(), any, sizeof name) != 0) {
    return {};
  }
  return result;
}

}  // namespace Sonar
