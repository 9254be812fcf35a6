// The two namespaces of one node: its network and its host name. They are held by open files alone, so they have no
// name anywhere and end with the process that holds them.
#pragma once

#include <string>

#include "platform/Descriptor.h"

namespace Lab {

class Namespace {
 public:
  // Those that this process is in.
  static Namespace current();
  // New ones with this host name. This process is in them afterwards. Throws LabError.
  static Namespace create(const std::string& hostName);

  // Moves this process, which must have a single thread, into them. Throws LabError.
  void enter() const;

  int network() const { return network_.fd(); }

 private:
  Platform::Descriptor network_;
  Platform::Descriptor hostName_;
};

}  // namespace Lab
