// The life of the two exporters.
#include "status/ZebEchoStatusExporterSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebEchoStatusExporterSm");
}

ZebEchoStatusExporterSm::ZebEchoStatusExporterSm(Rix::Ptr<Sonar::Status const> const& echoStatus,
                                                 Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus,
                                                 Rix::Ptr<ZebSonarStatusV1> const& zebEchoStatus,
                                                 Rix::Ptr<Ip::Status const> const& ipStatus)
    : echoStatus_(echoStatus), echoLocalStatus_(echoLocalStatus), zebEchoStatus_(zebEchoStatus), ipStatus_(ipStatus) {
  handleInitialized();
}

void ZebEchoStatusExporterSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8, "void Zeb::ZebEchoStatusExporterSm::handleInitialized()");
  initializedIs(true);
  Rix::Ptr<ClientProbeStreamTable> const probeStreamTable = zebEchoStatus_->probeStreamTable();
  ingressStreamExporterSm_.is(echoLocalStatus_, probeStreamTable, ipStatus_);
  egressStreamExporterSm_.is(echoStatus_, echoLocalStatus_, probeStreamTable);
}

void ZebEchoStatusExporterSm::doCleanup() {
  ingressStreamExporterSm_.del();
  egressStreamExporterSm_.del();
}

Rix::Ptr<ZebEchoStatusExporterSm> zebEchoStatusExporterSmFactory(
    Rix::Ptr<Sonar::Status const> const& echoStatus, Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus,
    Rix::Ptr<ZebSonarStatusV1> const& zebEchoStatus, Rix::Ptr<Ip::Status const> const& ipStatus) {
  return Rix::make<ZebEchoStatusExporterSm>(echoStatus, echoLocalStatus, zebEchoStatus, ipStatus);
}

}  // namespace Zeb
