// What the kernel knows of a switch, as its agent's records: Ip::Status and System::NetConfig follow the interfaces and
// addresses of the network namespace, and the host name, in which this is made. It writes these two records and decides
// nothing; whoever runs the agent makes one before the agent starts, so that what there is is there from the beginning.
#pragma once

#include "model/gen/Platform.h"
#include "platform/EventLoop.h"
#include "platform/HostName.h"
#include "platform/Netlink.h"
#include "runtime/Activity.h"

namespace Platform {

class SwitchRecords {
 public:
  // `loop` and `activity`, in which the records stand, outlive this. Writes what there is. Throws std::runtime_error if
  // the kernel refuses.
  SwitchRecords(EventLoop& loop, Rix::Activity& activity, Rix::Ptr<Ip::Status> ipStatus,
                Rix::Ptr<System::NetConfig> netConfig);
  ~SwitchRecords();
  SwitchRecords(const SwitchRecords&) = delete;
  SwitchRecords& operator=(const SwitchRecords&) = delete;

 private:
  void writeAddresses();
  void writeHostName();

  EventLoop& loop_;
  Rix::Activity& activity_;
  const Rix::Ptr<Ip::Status> ipStatus_;
  const Rix::Ptr<System::NetConfig> netConfig_;
  NetworkWatcher network_;
  HostName hostName_;
};

}  // namespace Platform
