// See the header. Orders are datagrams between a process and the one that forked it.
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

struct Control::Message {
  Order order;
  double zero;
  std::size_t changes;
};

void Control::send(int socket, Order order, double zero, std::size_t changes) {
  Message message;
  std::memset(&message, 0, sizeof message);
  message.order = order;
  message.zero = zero;
  message.changes = changes;
  [[maybe_unused]] const ssize_t sent = ::send(socket, &message, sizeof message, MSG_NOSIGNAL);
}

std::optional<Control::Order> Control::receive(int flags) {
  Message message;
  ssize_t got = 0;
  do got = ::recv(socket_.fd(), &message, sizeof message, flags);
  while (got < 0 && errno == EINTR);
  if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return std::nullopt;
  if (got != sizeof message || message.order == Order::stop) return Order::stop;
  zero_ = message.zero;
  changes_ = message.changes;
  return message.order;
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
