// What the collector's tests share: the centre's records, the directory of the switches' status, and listeners that
// note in which order central records are told.
#pragma once

#include "runtime/Dir.h"
#include "status/StatusTest.h"
#include "status/ZebCollectorSm.h"

namespace Zeb::StatusTest {

using Heard = std::vector<std::string>;

inline Fabric::SystemId switchId(U8 number) {
  return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, 0, number}));
}

// Follows one TTL of one stream as one switch sees it, from the central table down, as soon as each record is there.
struct SwitchRecordSm : Rix::Reactor<SwitchRecordSm> {
  struct RixTable : Rix::Watch<RixTable, ProbeStreamTable const, SwitchRecordSm> {
    using Watch::Watch;
    void onStreamRecord(ProbeStreamId const& id) override {
      if (id == owner().followedId) owner().record_.notifierIs(notifier()->streamRecord(id));
    }
  };
  struct RixRecord : Rix::Watch<RixRecord, ProbeStreamRecord const, SwitchRecordSm> {
    using Watch::Watch;
    void onIngressRecord(U8 ttl) override {
      if (ttl == owner().followedTtl) owner().ingress_.notifierIs(notifier()->ingressRecord(ttl));
    }
  };
  struct RixIngress : Rix::Watch<RixIngress, ProbeStreamIngressRecord const, SwitchRecordSm> {
    using Watch::Watch;
    void onSwitchIngressRecord(Fabric::SystemId const& reporter) override {
      if (!(reporter == owner().followedReporter)) return;
      owner().switch_.notifierIs(notifier()->switchIngressRecord(reporter));
      owner().takeStats();
    }
  };
  struct RixSwitch : Rix::Watch<RixSwitch, ProbeStreamSwitchIngressRecord const, SwitchRecordSm> {
    using Watch::Watch;
    void onIngressStats() override { owner().takeStats(); }
    void onIngressIntf() override { owner().note("ingressIntf"); }
    void onIngressIntfIp() override { owner().note("ingressIntfIp"); }
    void onDormant() override { owner().note("dormant"); }
    void onDeleted() override { owner().note(notifier()->deleted() ? "deleted" : "live"); }
  };
  struct RixStats : Rix::Watch<RixStats, ProbeStreamIngressStats const, SwitchRecordSm> {
    using Watch::Watch;
    void onEpoch() override { owner().note("epoch"); }
    void onIngressTtl() override { owner().note("ingressTtl"); }
    void onCurrentSequenceNumber() override { owner().note("currentSequenceNumber"); }
    void onLastSequenceNumber() override { owner().note("lastSequenceNumber"); }
    void onProbesReceived() override { owner().note("probesReceived"); }
    void onProbesLost() override { owner().note("probesLost"); }
    void onProbesMisordered() override { owner().note("probesMisordered"); }
    void onProbesDuplicated() override { owner().note("probesDuplicated"); }
  };
  SwitchRecordSm(Rix::Ptr<ProbeStreamTable const> const& table, ProbeStreamId const& id, U8 ttl,
                 Fabric::SystemId const& reporter)
      : followedId(id), followedTtl(ttl), followedReporter(reporter) {
    table_.notifierIs(table);
  }
  // Its own direct targets, where a test has no table.
  explicit SwitchRecordSm(ProbeStreamSwitchIngressRecord const* record) {
    switch_.notifierIs(record);
    takeStats();
  }
  template <class F>
  void rixParts(F&& f) {
    f(table_);
    f(record_);
    f(ingress_);
    f(switch_);
    f(stats_);
  }
  void takeStats() { stats_.notifierIs(switch_ ? switch_->ingressStats() : nullptr); }
  void note(std::string text) { heard.push_back(std::move(text)); }

  ProbeStreamId followedId;
  U8 followedTtl = 0;
  Fabric::SystemId followedReporter;
  Heard heard;
  RixTable table_{this};
  RixRecord record_{this};
  RixIngress ingress_{this};
  RixSwitch switch_{this};
  RixStats stats_{this};
};

// One switch's status at the centre, as its replica writes it.
class SwitchStatus {
 public:
  SwitchStatus(Rix::Ptr<Rix::Dir> const& dir, U8 number) : dir_(dir), id_(switchId(number)) {}

  Rix::Name name() const { return Rix::Name(id_.stringValue()); }
  Fabric::SystemId const& id() const { return id_; }
  void connect() { dir_->entityPtrIs(name(), status); }
  void disconnect() { dir_->entityDel(name()); }
  ClientProbeStreamTable& table() { return *status->probeStreamTable(); }
  ClientProbeStreamEgressRecord* egressIs(U32 tag, U8 ttl, U64 numProbesTx) {
    auto* record = table().streamRecordIs(streamId(tag))->egressRecordIs(ttl);
    record->egressStatsIs()->numProbesTxIs(numProbesTx);
    return record;
  }
  ClientProbeStreamIngressRecord* ingressIs(U32 tag, U8 ttl, U64 probesReceived) {
    auto* record = table().streamRecordIs(streamId(tag))->ingressRecordIs(ttl);
    record->ingressStatsIs()->probesReceivedIs(probesReceived);
    return record;
  }
  void egressDel(U32 tag, U8 ttl) { table().streamRecord(streamId(tag))->egressRecordDel(ttl); }
  void ingressDel(U32 tag, U8 ttl) { table().streamRecord(streamId(tag))->ingressRecordDel(ttl); }

  Rix::Ptr<ZebSonarStatusV1> status = Rix::make<ZebSonarStatusV1>();

 private:
  Rix::Ptr<Rix::Dir> const dir_;
  Fabric::SystemId const id_;
};

}  // namespace Zeb::StatusTest
