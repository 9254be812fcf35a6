// Reports the present address of one source interface of one group. It writes that one value of the reported
// configuration, zero included, and never removes it: the group's reactor, which owns it, does.
#pragma once

#include "model/gen/Config.h"
#include "model/gen/Platform.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebClientConfigSourceIntfSm : public Rix::Reactor<ZebClientConfigSourceIntfSm> {
 public:
  // `group` is the operator's; the reported configuration must hold a group of its name as long as this hears.
  ZebClientConfigSourceIntfSm(Rix::Ptr<Ip::SourceIntf::SourceIntf> const& sourceIntf,
                              Rix::Ptr<ClientReachabilityGroup const> const& group,
                              Rix::Ptr<ClientConfig> const& mountedConfig);

  template <class F>
  void rixParts(F&& f) {
    f(sourceIntf_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<Ip::SourceIntf::SourceIntf>(sourceIntf_.notifier()), group_, mountedConfig_);
  }
  static constexpr std::array rixParameterNames{"sourceIntf", "group", "mountedConfig"};

 private:
  struct RixSourceIntf : Rix::Watch<RixSourceIntf, Ip::SourceIntf::SourceIntf, ZebClientConfigSourceIntfSm> {
    using Watch::Watch;
    void onIpAddr() override { pass(&ZebClientConfigSourceIntfSm::handleSourceIntfIp); }
  };

  void handleInitialized();
  void handleSourceIntfIp();

  Rix::Ptr<ClientReachabilityGroup const> const group_;
  Rix::Ptr<ClientConfig> const mountedConfig_;
  RixSourceIntf sourceIntf_{this};
};

Rix::Ptr<ZebClientConfigSourceIntfSm> zebClientConfigSourceIntfSmFactory(
    Rix::Ptr<Ip::SourceIntf::SourceIntf> const& sourceIntf, Rix::Ptr<ClientReachabilityGroup const> const& group,
    Rix::Ptr<ClientConfig> const& mountedConfig);

}  // namespace Zeb
