// One switch's part of the collector: watches the switch's client stream table and holds one RixStreamRecord for each
// of its stream records, which decides what stands in the central record of that stream. Counters are copied by the
// mirrors that RixStreamRecord makes and ends.
#pragma once

#include "model/gen/ProbeStream.h"
#include "model/gen/Status.h"
#include "runtime/OwnedMap.h"
#include "status/ZebWaveEgressRecordSm.h"
#include "status/ZebWaveIngressRecordSm.h"

namespace Zeb {

class ZebClientWaveStatusSm : public Rix::Reactor<ZebClientWaveStatusSm> {
 public:
  class RixStreamRecord;

  // `clientWaveStatus` may be null: then there is nothing to watch.
  ZebClientWaveStatusSm(Fabric::SystemId const& systemId, Rix::Ptr<ZebStatus const> const& zebStatus,
                        Rix::Ptr<ZebSonarStatusV1 const> const& clientWaveStatus,
                        Rix::Ptr<ProbeStreamTable> const& zebStreamTable);
  ~ZebClientWaveStatusSm() override;

  template <class F>
  void rixParts(F&& f);
  auto rixParameters() const {
    return std::tuple(systemId_, zebStatus_, Rix::Ptr<ZebSonarStatusV1 const>(clientWaveStatus_.notifier()),
                      zebStreamTable_);
  }
  static constexpr std::array rixParameterNames{"systemId", "zebStatus", "clientWaveStatus", "zebStreamTable"};

  Fabric::SystemId const& systemId() const { return systemId_; }
  ZebStatus const& zebStatus() const { return *zebStatus_; }
  ProbeStreamTable& zebStreamTable() const { return *zebStreamTable_; }
  ClientProbeStreamTable const* clientStreamTable() const { return clientStreamTable_.notifier(); }

  RixStreamRecord* streamRecord(ProbeStreamId const& id) const { return streamRecord_.find(id); }
  U32 streamRecords() const { return streamRecord_.size(); }
  // The reactor of that client record; one that stands for another record of the same stream is replaced. Null:
  // RangeException.
  RixStreamRecord* streamRecordIs(Rix::Ptr<ClientProbeStreamRecord const> const& record);
  void streamRecordDel(ProbeStreamId const& id);

 private:
  struct RixClientWaveStatus : Rix::Watch<RixClientWaveStatus, ZebSonarStatusV1 const, ZebClientWaveStatusSm> {
    using Watch::Watch;
    void onProbeStreamTable() override { pass(&ZebClientWaveStatusSm::handleProbeStreamTable); }
  };
  struct RixClientStreamTable : Rix::Watch<RixClientStreamTable, ClientProbeStreamTable const, ZebClientWaveStatusSm> {
    using Watch::Watch;
    void onStreamRecord(ProbeStreamId const& id) override { pass(&ZebClientWaveStatusSm::handleStreamRecord, id); }
  };

  void handleInitialized();
  void handleProbeStreamTable();
  void handleStreamRecord(ProbeStreamId const& id);

  Fabric::SystemId const systemId_;
  Rix::Ptr<ZebStatus const> const zebStatus_;
  Rix::Ptr<ProbeStreamTable> const zebStreamTable_;
  RixClientWaveStatus clientWaveStatus_{this};
  RixClientStreamTable clientStreamTable_{this};
  Rix::OwnedSet<ProbeStreamId, RixStreamRecord> streamRecord_;
};

// What one client stream record means for the central record of its stream.
class ZebClientWaveStatusSm::RixStreamRecord : public Rix::Reactor<RixStreamRecord> {
 public:
  // The parent outlives it.
  RixStreamRecord(Rix::Ptr<ClientProbeStreamRecord const> const& clientRecord, ZebClientWaveStatusSm* parent);

  template <class F>
  void rixParts(F&& f) {
    f(clientRecord_);
    f(ingressRecordSm_);
    f(egressRecordSm_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ClientProbeStreamRecord const>(clientRecord_.notifier()), zebClientWaveStatusSm_);
  }
  static constexpr std::array rixParameterNames{"streamRecord", "zebClientWaveStatusSm"};
  ProbeStreamId const& rixKey() const { return clientRecord_.notifier()->streamId(); }
  void doCleanup();

  ClientProbeStreamRecord const* clientRecord() const { return clientRecord_.notifier(); }
  ProbeStreamRecord* zebStreamRecord() const { return zebStreamRecord_.get(); }
  ZebWaveIngressRecordSm* ingressRecordSm(U8 ttl) const { return ingressRecordSm_.find(ttl); }
  ZebWaveEgressRecordSm* egressRecordSm(U8 ttl) const { return egressRecordSm_.find(ttl); }

  // Both decide from the records as they stand, so they serve additions, changes and removals alike, in any order.
  void handleEgressRecord(U8 ttl);
  void handleIngressRecord(U8 ttl);

 private:
  struct RixClientRecord : Rix::Watch<RixClientRecord, ClientProbeStreamRecord const, RixStreamRecord> {
    using Watch::Watch;
    void onProbeName(Rix::Name const& name) override {
      pass<Rix::Name const&>(&RixStreamRecord::handleProbeName, name);
    }
    void onEgressRecord(U8 ttl) override { pass(&RixStreamRecord::handleEgressRecord, ttl); }
    void onIngressRecord(U8 ttl) override { pass(&RixStreamRecord::handleIngressRecord, ttl); }
  };

  void handleInit();
  void handleProbeName();
  void handleProbeName(Rix::Name const& name);
  void doHandleEgressRecordPresent(ClientProbeStreamEgressRecord const& clientRecord);
  void doHandleIngressRecordPresent(ClientProbeStreamIngressRecord const& clientRecord);
  void doHandleIngressRecordAbsent(U8 ttl);
  void doSetStreamSourceId();
  void doMaybeSetStreamDestinationId();
  Fabric::SystemId const& systemId() const { return zebClientWaveStatusSm_->systemId(); }

  ZebClientWaveStatusSm* const zebClientWaveStatusSm_;
  Rix::Ptr<ProbeStreamRecord> zebStreamRecord_;
  RixClientRecord clientRecord_{this};
  Rix::OwnedSet<U8, ZebWaveIngressRecordSm> ingressRecordSm_;
  Rix::OwnedSet<U8, ZebWaveEgressRecordSm> egressRecordSm_;
};

template <class F>
void ZebClientWaveStatusSm::rixParts(F&& f) {
  f(clientWaveStatus_);
  f(clientStreamTable_);
  f(streamRecord_);
}

}  // namespace Zeb
