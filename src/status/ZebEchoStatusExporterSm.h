// The switch's exporter: turns the probing service's tables into the switch's client stream table, which the centre
// reads. It owns one exporter for each direction and does nothing else; the client agent's root machine owns it.
#pragma once

#include "status/ZebEchoEgressStreamExporterSm.h"
#include "status/ZebEchoIngressStreamExporterSm.h"

namespace Zeb {

class ZebEchoStatusExporterSm : public Rix::Reactor<ZebEchoStatusExporterSm> {
 public:
  ZebEchoStatusExporterSm(Rix::Ptr<Sonar::Status const> const& echoStatus,
                          Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus,
                          Rix::Ptr<ZebSonarStatusV1> const& zebEchoStatus, Rix::Ptr<Ip::Status const> const& ipStatus);

  template <class F>
  void rixParts(F&& f) {
    f(ingressStreamExporterSm_);
    f(egressStreamExporterSm_);
  }
  auto rixParameters() const { return std::tuple(echoStatus_, echoLocalStatus_, zebEchoStatus_, ipStatus_); }
  static constexpr std::array rixParameterNames{"echoStatus", "echoLocalStatus", "zebEchoStatus", "ipStatus"};
  void doCleanup();

  ZebEchoIngressStreamExporterSm* ingressStreamExporterSm() const { return ingressStreamExporterSm_.get(); }
  ZebEchoEgressStreamExporterSm* egressStreamExporterSm() const { return egressStreamExporterSm_.get(); }

 private:
  void handleInitialized();

  Rix::Ptr<Sonar::Status const> const echoStatus_;
  Rix::Ptr<Sonar::LocalStatus const> const echoLocalStatus_;
  Rix::Ptr<ZebSonarStatusV1> const zebEchoStatus_;
  Rix::Ptr<Ip::Status const> const ipStatus_;
  Rix::Owned<ZebEchoIngressStreamExporterSm> ingressStreamExporterSm_;
  Rix::Owned<ZebEchoEgressStreamExporterSm> egressStreamExporterSm_;
};

Rix::Ptr<ZebEchoStatusExporterSm> zebEchoStatusExporterSmFactory(
    Rix::Ptr<Sonar::Status const> const& echoStatus, Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus,
    Rix::Ptr<ZebSonarStatusV1> const& zebEchoStatus, Rix::Ptr<Ip::Status const> const& ipStatus);

}  // namespace Zeb
