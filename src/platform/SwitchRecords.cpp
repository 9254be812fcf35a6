// Each snapshot of the kernel's is written in one turn; what has not changed in it notifies nobody.
#include "platform/SwitchRecords.h"

#include <sys/epoll.h>

#include <utility>

namespace Platform {

SwitchRecords::SwitchRecords(EventLoop& loop, Rix::Activity& activity, Rix::Ptr<Ip::Status> ipStatus,
                             Rix::Ptr<System::NetConfig> netConfig)
    : loop_(loop), activity_(activity), ipStatus_(std::move(ipStatus)), netConfig_(std::move(netConfig)) {
  writeAddresses();
  writeHostName();
  loop_.add(network_.fd(), EPOLLIN, [this](std::uint32_t) {
    network_.onReadable();
    writeAddresses();
  });
  loop_.add(hostName_.fd(), EPOLLPRI, [this](std::uint32_t) {
    if (hostName_.onChange()) writeHostName();
  });
}

SwitchRecords::~SwitchRecords() {
  loop_.remove(network_.fd());
  loop_.remove(hostName_.fd());
}

void SwitchRecords::writeAddresses() {
  activity_.dispatch([this] {
    const NetworkSnapshot& snapshot = network_.snapshot();
    for (const auto& standing : ipStatus_->intfStatusIterator())
      if (!snapshot.interface(standing->intfId().view())) ipStatus_->intfStatusDel(Netkit::IntfId(standing->intfId()));
    for (const NetworkInterface& interface : snapshot.interfaces)
      ipStatus_->intfStatusIs(Netkit::IntfId(interface.name))->addressIs(Netkit::IpAddr(interface.address.value_or(0)));
  });
}

void SwitchRecords::writeHostName() {
  activity_.dispatch([this] { netConfig_->hostnameIs(hostName_.name()); });
}

}  // namespace Platform
