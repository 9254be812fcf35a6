// An owned file descriptor. It closes what it holds; it never opens anything.
#pragma once

#include <unistd.h>

#include <utility>

namespace Sonar {

class Socket {
 public:
  Socket() = default;
  explicit Socket(int fd) : fd_(fd) {}
  Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Socket() {
    if (fd_ >= 0) close(fd_);
  }

  /// The descriptor, -1 if there is none.
  int fd() const { return fd_; }

 private:
  int fd_ = -1;
};

}  // namespace Sonar
