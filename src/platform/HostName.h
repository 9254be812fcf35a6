// The host name, and the news that it is another one. It belongs to a process's event loop, and only reads.
#pragma once

#include <string>

#include "platform/Descriptor.h"

namespace Platform {

class HostName {
 public:
  // Throws std::runtime_error if the kernel's file cannot be had.
  HostName();

  // Poll this for EPOLLPRI and for nothing else: to the kernel it is readable at any time.
  int fd() const { return file_.fd(); }

  // Reads the name anew; whether it is another one. The kernel wakes whoever waits when the name changes in any
  // namespace, so most calls may find the same.
  bool onChange();

  // Of the namespace in which the calling thread was at the last reading: one that moves between namespaces enters the
  // one that it means before it makes this object and before each onChange().
  const std::string& name() const { return name_; }

 private:
  Descriptor file_;
  std::string name_;
};

}  // namespace Platform
