// A record of addresses by interface, for the reactor that exists once for each order and peer. Nearly every peer
// reaches a group through one interface: that one stands in these 16 bytes, and the heap is used from the second on.
#pragma once

#include <memory>
#include <variant>

#include "model/Netkit.h"
#include "runtime/Collections.h"
#include "runtime/String8.h"

namespace Zeb {

class InterfaceAddresses {
 public:
  // The address recorded for that interface; zero if none is.
  Netkit::IpAddr interfaceIp(Rix::String8 const& intfName) const {
    if (auto const* several = std::get_if<Several>(&held_)) return (*several)->get(intfName);
    return *std::get_if<Rix::String8>(&held_) == intfName ? onlyIp_ : Netkit::IpAddr();
  }
  // `ip` is not zero: zero stands for no record.
  void interfaceIpIs(Rix::String8 const& intfName, Netkit::IpAddr ip) {
    RIX_ASSERT(ip != Netkit::IpAddr());
    if (auto* only = std::get_if<Rix::String8>(&held_)) {
      if (*only == intfName || onlyIp_ == Netkit::IpAddr()) {
        *only = intfName;
        onlyIp_ = ip;
        return;
      }
      auto several = std::make_unique<Map>();
      several->is(*only, onlyIp_, tellNobody);
      onlyIp_ = {};
      held_ = std::move(several);
    }
    std::get<Several>(held_)->is(intfName, ip, tellNobody);
  }
  void interfaceIpDel(Rix::String8 const& intfName) {
    if (auto* several = std::get_if<Several>(&held_)) {
      (*several)->del(intfName, tellNobody);
      if ((*several)->size() == 0) held_ = Rix::String8();
    } else if (*std::get_if<Rix::String8>(&held_) == intfName) {
      onlyIp_ = {};
      held_ = Rix::String8();
    }
  }
  U32 interfaceIps() const {
    if (auto const* several = std::get_if<Several>(&held_)) return (*several)->size();
    return onlyIp_ == Netkit::IpAddr() ? 0 : 1;
  }

 private:
  using Map = Rix::ValueMap<Rix::String8, Netkit::IpAddr>;
  using Several = std::unique_ptr<Map>;
  static void tellNobody(Rix::String8 const&) {}

  // The name of the only interface, which counts if its address is not zero; or all of several.
  [[no_unique_address]] std::variant<Rix::String8, Several> held_;
  Netkit::IpAddr onlyIp_;
};
static_assert(sizeof(InterfaceAddresses) == 16);

}  // namespace Zeb
