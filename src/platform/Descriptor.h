// A file descriptor that closes itself. Everything in this folder that opens something holds it by one of these.
#pragma once

#include <unistd.h>

#include <utility>

namespace Platform {

class Descriptor {
 public:
  Descriptor() = default;
  // Takes the descriptor over; a negative number, as failed calls return it, is none.
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }

  int fd() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

}  // namespace Platform
