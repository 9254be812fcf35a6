// Keeps the names of the transmitters of one egress stream in the stream's client record, as its probe names. One for
// each stream of which the probing service lists transmitters; owned by the egress exporter. It makes no record: it
// waits until the exporter has.
#pragma once

#include "model/gen/ProbeStream.h"
#include "model/gen/Sonar.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebEchoEgressStreamTransmitterSm : public Rix::Reactor<ZebEchoEgressStreamTransmitterSm> {
 public:
  ZebEchoEgressStreamTransmitterSm(Sonar::EgressStream const& egressStream,
                                   Rix::Ptr<Sonar::TransmitterList const> const& transmitterList,
                                   Rix::Ptr<ClientProbeStreamTable> const& probeStreamTable);

  template <class F>
  void rixParts(F&& f) {
    f(transmitterList_);
    f(probeStreamTable_);
  }
  auto rixParameters() const {
    return std::tuple(egressStream_, Rix::Ptr<Sonar::TransmitterList const>(transmitterList()),
                      Rix::Ptr<ClientProbeStreamTable>(probeStreamTable_.notifier()));
  }
  static constexpr std::array rixParameterNames{"egressStream", "transmitterList", "probeStreamTable"};
  void doCleanup();

  Sonar::EgressStream const& egressStream() const { return egressStream_; }
  Sonar::TransmitterList const* transmitterList() const { return transmitterList_.notifier(); }

 private:
  struct RixTransmitterList
      : Rix::Watch<RixTransmitterList, Sonar::TransmitterList const, ZebEchoEgressStreamTransmitterSm> {
    using Watch::Watch;
    void onTransmitter(Rix::String8 const& name) override {
      pass<Rix::String8 const&>(&ZebEchoEgressStreamTransmitterSm::handleProbeMapping, name);
    }
  };
  // It watches the whole table, as each of its siblings does. The table of a busy switch has thousands of both, so
  // an attach looks up the one record it is after instead of visiting all.
  struct RixProbeStreamTable
      : Rix::Watch<RixProbeStreamTable, ClientProbeStreamTable, ZebEchoEgressStreamTransmitterSm> {
    using Watch::Watch;
    void onStreamRecord(ProbeStreamId const& id) override {
      pass<ProbeStreamId const&>(&ZebEchoEgressStreamTransmitterSm::handleStreamRecord, id);
    }
    void onStreamRecord() override {
      if (!isZombie()) owner().handleStreamRecord();
    }
  };

  void handleInitialized();
  void handleStreamRecord();
  void handleStreamRecord(ProbeStreamId const& id);
  void handleProbeMapping();
  void handleProbeMapping(Rix::String8 const& name);
  ClientProbeStreamRecord* streamRecord();

  Sonar::EgressStream const egressStream_;
  ProbeStreamId const streamId_;
  RixTransmitterList transmitterList_{this};
  RixProbeStreamTable probeStreamTable_{this};
};

}  // namespace Zeb
