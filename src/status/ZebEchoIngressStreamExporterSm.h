// Turns the rows of the probing service's ingress table into the client's ingress records. Driven by row changes and
// its clock; owned by ZebEchoStatusExporterSm. Addresses of interfaces are looked up whenever a row is exported, and a
// change of an address alone starts nothing.
#pragma once

#include "model/SonarLocalStatus.h"
#include "model/gen/Platform.h"
#include "status/ZebEchoStreamExporter.h"

namespace Zeb {

class ZebEchoIngressStreamExporterSm
    : public ZebEchoStreamExporter<ZebEchoIngressStreamExporterSm, Sonar::IngressStream> {
 public:
  ZebEchoIngressStreamExporterSm(Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus,
                                 Rix::Ptr<ClientProbeStreamTable> const& probeStreamTable,
                                 Rix::Ptr<Ip::Status const> const& ipStatus);

  template <class F>
  void rixParts(F&& f) {
    f(echoLocalStatus_);
    f(entryQueueClock_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<Sonar::LocalStatus const>(echoLocalStatus_.notifier()), probeStreamTable_, ipStatus_);
  }

  void handleIngressStreamEntry(Sonar::IngressStream const& key) { handleEntry(key); }

 private:
  friend class ZebEchoStreamExporter<ZebEchoIngressStreamExporterSm, Sonar::IngressStream>;
  struct RixEchoLocalStatus : Rix::Watch<RixEchoLocalStatus, Sonar::LocalStatus const, ZebEchoIngressStreamExporterSm> {
    using Watch::Watch;
    void onIngressStreamStatisticsTable(Sonar::IngressStream const& key) override {
      pass(&ZebEchoIngressStreamExporterSm::handleIngressStreamEntry, key);
    }
  };

  void handleInitialized();
  void doProcessEntry(Sonar::IngressStream const& key) { doProcessIngressStreamEntry(key); }
  void doProcessIngressStreamEntry(Sonar::IngressStream const& key);
  void doDeleteIngressRecord(Sonar::IngressStream const& key, ProbeStreamId const& id);

  Rix::Ptr<Ip::Status const> const ipStatus_;
  RixEchoLocalStatus echoLocalStatus_{this};
};

}  // namespace Zeb
