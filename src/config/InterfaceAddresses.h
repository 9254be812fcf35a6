// A record of addresses by interface, for the reactor that exists once for each order and peer. Nearly every peer
// reaches a group through one interface: that one stands in these 12 bytes, and the heap is used from the second on.
#pragma once

#include <memory>

#include "model/Netkit.h"
#include "runtime/Collections.h"
#include "runtime/String8.h"

namespace Zeb {

class InterfaceAddresses {
 public:
  InterfaceAddresses() : several_(nullptr) {}
  InterfaceAddresses(InterfaceAddresses const&) = delete;
  InterfaceAddresses& operator=(InterfaceAddresses const&) = delete;
  ~InterfaceAddresses() {
    if (isOne()) {
      std::destroy_at(&name_);
    } else {
      std::destroy_at(&several_);
    }
  }

  // The address recorded for that interface; zero if none is.
  Netkit::IpAddr interfaceIp(Rix::String8 const& intfName) const {
    if (isOne()) return name_ == intfName ? ip_ : Netkit::IpAddr();
    return several_ ? several_->get(intfName) : Netkit::IpAddr();
  }
  // `ip` is not zero: zero stands for no record.
  void interfaceIpIs(Rix::String8 const& intfName, Netkit::IpAddr ip) {
    RIX_ASSERT(ip != Netkit::IpAddr());
    if (isOne() && name_ != intfName) {
      auto several = std::make_unique<Map>();
      several->is(name_, ip_, tellNobody);
      oneDel();
      several_ = std::move(several);
    }
    if (several()) {
      several_->is(intfName, ip, tellNobody);
    } else {
      if (!isOne()) oneIs(intfName);
      ip_ = ip;
    }
  }
  void interfaceIpDel(Rix::String8 const& intfName) {
    if (several()) {
      several_->del(intfName, tellNobody);
      if (several_->size() == 0) several_ = nullptr;
    } else if (isOne() && name_ == intfName) {
      oneDel();
    }
  }
  U32 interfaceIps() const { return isOne() ? 1 : several_ ? several_->size() : 0; }

 private:
  using Map = Rix::ValueMap<Rix::String8, Netkit::IpAddr>;
  static void tellNobody(Rix::String8 const&) {}

  bool isOne() const { return ip_ != Netkit::IpAddr(); }
  bool several() const { return !isOne() && several_; }
  void oneIs(Rix::String8 const& intfName) {
    std::destroy_at(&several_);
    std::construct_at(&name_, intfName);
  }
  void oneDel() {
    std::destroy_at(&name_);
    std::construct_at(&several_);
    ip_ = {};
  }

  // Which of the two stands here tells ip_: the name of the only interface while it is not zero, else null or all of
  // several.
  union {
    Rix::String8 name_;
    std::unique_ptr<Map> several_;
  };
  Netkit::IpAddr ip_;
};

}  // namespace Zeb
