// See the header. Orders are datagrams of one letter; that of the start carries the moment too.
#include "lab/NodeProcess.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace Lab {

std::string_view roleName(Role role) {
  switch (role) {
    case Role::centre:
      return "centre";
    case Role::agent:
      return "agent";
    case Role::sonar:
      break;
  }
  return "sonar";
}

std::optional<Control::Order> Control::receive(int flags) {
  char letter[1 + sizeof(double)] = {};
  ssize_t got = 0;
  do got = ::recv(socket_.fd(), letter, sizeof letter, flags);
  while (got < 0 && errno == EINTR);
  if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return std::nullopt;
  if (got != sizeof letter || letter[0] != 's') return Order::stop;
  std::memcpy(&zero_, letter + 1, sizeof zero_);
  return Order::start;
}

std::optional<Control::Order> Control::next() {
  return receive(MSG_DONTWAIT);
}

Control::Order Control::wait() {
  return receive(0).value_or(Order::stop);
}

void Control::ready() {
  // If the supervisor is gone this process is as good as gone too.
  [[maybe_unused]] const ssize_t sent = ::send(socket_.fd(), "r", 1, MSG_NOSIGNAL);
}

}  // namespace Lab
