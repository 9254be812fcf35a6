// Turns the rows of the probing service's egress table into the client's egress records, and the service's list of
// transmitters into one ZebEchoEgressStreamTransmitterSm for each stream. Driven by row changes and its clock; owned by
// ZebEchoStatusExporterSm. It never writes to the tables, and of a record's stats never the epoch: the rows have none.
#pragma once

#include "model/SonarLocalStatus.h"
#include "runtime/OwnedMap.h"
#include "status/ZebEchoEgressStreamTransmitterSm.h"
#include "status/ZebEchoStreamExporter.h"

namespace Zeb {

class ZebEchoEgressStreamExporterSm : public ZebEchoStreamExporter<ZebEchoEgressStreamExporterSm, Sonar::EgressStream> {
 public:
  ZebEchoEgressStreamExporterSm(Rix::Ptr<Sonar::Status const> const& echoStatus,
                                Rix::Ptr<Sonar::LocalStatus const> const& echoLocalStatus,
                                Rix::Ptr<ClientProbeStreamTable> const& probeStreamTable);

  template <class F>
  void rixParts(F&& f) {
    f(echoStatus_);
    f(echoLocalStatus_);
    f(entryQueueClock_);
    f(transmitterSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<Sonar::Status const>(echoStatus_.notifier()),
                      Rix::Ptr<Sonar::LocalStatus const>(echoLocalStatus_.notifier()), probeStreamTable_);
  }

  ZebEchoEgressStreamTransmitterSm* transmitterSm(Sonar::EgressStream const& key) const {
    return transmitterSm_.find(key);
  }

  void handleEgressStreamEntry(Sonar::EgressStream const& key) { handleEntry(key); }
  // Looks at the transmitters of one stream; those of every stream that has some.
  void handleStream(Sonar::EgressStream const& key);
  void handleStream();

 private:
  friend class ZebEchoStreamExporter<ZebEchoEgressStreamExporterSm, Sonar::EgressStream>;
  struct RixEchoStatus : Rix::Watch<RixEchoStatus, Sonar::Status const, ZebEchoEgressStreamExporterSm> {
    using Watch::Watch;
    void onStreamTransmitterMap(Sonar::EgressStream const& key) override {
      pass<Sonar::EgressStream const&>(&ZebEchoEgressStreamExporterSm::handleStream, key);
    }
  };
  struct RixEchoLocalStatus : Rix::Watch<RixEchoLocalStatus, Sonar::LocalStatus const, ZebEchoEgressStreamExporterSm> {
    using Watch::Watch;
    void onEgressStreamTable(Sonar::EgressStream const& key) override {
      pass(&ZebEchoEgressStreamExporterSm::handleEgressStreamEntry, key);
    }
  };

  void handleInitialized();
  void doProcessEntry(Sonar::EgressStream const& key) { doProcessEgressStreamEntry(key); }
  void handleQueueProcessed() { handleStream(); }
  void doProcessEgressStreamEntry(Sonar::EgressStream const& key);
  void doDeleteEgressRecord(Sonar::EgressStream const& key, ProbeStreamId const& id);

  RixEchoStatus echoStatus_{this};
  RixEchoLocalStatus echoLocalStatus_{this};
  Rix::OwnedMap<Sonar::EgressStream, ZebEchoEgressStreamTransmitterSm> transmitterSm_;
};

}  // namespace Zeb
