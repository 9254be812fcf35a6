// Ip::SourceIntf::SourceIntfSm: follows the addresses of the interfaces that its user registers, each in a SourceIntf
// of one directory. It reads the switch's IP state and writes nothing but that directory; it decides nothing about
// probes.
//
// An interface may be registered before it exists. While it does not exist, or has no address, its address reads zero.
#pragma once

#include "model/gen/Platform.h"
#include "runtime/OwnedMap.h"

namespace Ip::SourceIntf {

class SourceIntfSm : public Rix::Reactor<SourceIntfSm> {
 public:
  // Neither argument may be null.
  SourceIntfSm(Rix::Ptr<SourceIntfDir> const& sourceIntfDir, Rix::Ptr<Ip::Status const> const& ipStatus);
  ~SourceIntfSm() override;

  template <class F>
  void rixParts(F&& f);
  auto rixParameters() const { return std::tuple(sourceIntfDir_, Rix::Ptr<Ip::Status const>(ipStatus_.notifier())); }
  static constexpr std::array rixParameterNames{"sourceIntfDir", "ipStatus"};

  // Begins to follow an interface. Returns its entry of the directory, made if absent, with its present address.
  Rix::Ptr<SourceIntf> registerSourceIntf(Netkit::IntfId intf);
  // Ends it: the entry leaves the directory, and keeps the address that it has. It must stand in the directory.
  void unregisterSourceIntf(Rix::Ptr<SourceIntf> const& sourceIntf);

 private:
  class Tracker;
  struct RixIpStatus : Rix::Watch<RixIpStatus, Ip::Status const, SourceIntfSm> {
    using Watch::Watch;
    void onIntfStatus(Netkit::IntfId const& intf) override { pass(&SourceIntfSm::handleIntfStatus, intf); }
  };

  void handleIntfStatus(Netkit::IntfId intf);

  Rix::Ptr<SourceIntfDir> const sourceIntfDir_;
  RixIpStatus ipStatus_{this};
  Rix::OwnedMap<Netkit::IntfId, Tracker> tracker_;
};

// Copies the address of one interface while that interface is there.
class SourceIntfSm::Tracker : public Rix::Reactor<Tracker> {
 public:
  Tracker(Rix::Ptr<SourceIntf> const& sourceIntf, Rix::Ptr<Ip::Status const> const& ipStatus);

  template <class F>
  void rixParts(F&& f) {
    f(intfStatus_);
  }
  auto rixParameters() const { return std::tuple(sourceIntf_, ipStatus_); }
  static constexpr std::array rixParameterNames{"sourceIntf", "ipStatus"};

  // The interface has come, gone, or been replaced.
  void handleIntfStatus();

 private:
  struct RixIntfStatus : Rix::Watch<RixIntfStatus, Ip::IntfStatus const, Tracker> {
    using Watch::Watch;
    void onAddress() override { pass(&Tracker::handleAddress); }
  };

  void handleAddress();

  Rix::Ptr<SourceIntf> const sourceIntf_;
  Rix::Ptr<Ip::Status const> const ipStatus_;
  RixIntfStatus intfStatus_{this};
};

template <class F>
void SourceIntfSm::rixParts(F&& f) {
  f(ipStatus_);
  f(tracker_);
}

}  // namespace Ip::SourceIntf
