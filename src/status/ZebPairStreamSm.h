// The pair index: which streams run from one switch to another, kept beside the central stream table for whoever reads
// the status. One RixStreamRecord stands for each stream of the table; the central root machine owns the whole.
//
// The index only grows: a stream is entered under the pair of switches that it then has, and taken out when its reactor
// ends, from the pair that it has by then. One whose source or destination changed stays under its old pair for good.
#pragma once

#include "model/gen/ProbeStream.h"
#include "runtime/OwnedMap.h"
#include "runtime/Watch.h"

namespace Zeb {

class ZebPairStreamSm : public Rix::Reactor<ZebPairStreamSm> {
 public:
  // One stream.
  class RixStreamRecord : public Rix::Reactor<RixStreamRecord> {
   public:
    // `owner` outlives this reactor.
    RixStreamRecord(Rix::Ptr<ProbeStreamRecord const> const& streamRecord, ZebPairStreamSm* owner);

    template <class F>
    void rixParts(F&& f) {
      f(streamRecord_);
    }
    auto rixParameters() const {
      return std::tuple(Rix::Ptr<ProbeStreamRecord const>(streamRecord_.notifier()), owner_);
    }
    static constexpr std::array rixParameterNames{"streamRecord", "zebPairStreamSm"};

    ProbeStreamId const& rixKey() const { return streamRecord_.notifier()->streamId(); }
    void handleSourceId() { handleId(); }
    void handleDestinationId() { handleId(); }
    // Enters the stream under its pair, once both ends are known.
    void handleId();
    void doCleanup();

   private:
    struct RixRecord : Rix::Watch<RixRecord, ProbeStreamRecord const, RixStreamRecord> {
      using Watch::Watch;
      void onSourceId() override { pass(&RixStreamRecord::handleSourceId); }
      void onDestinationId() override { pass(&RixStreamRecord::handleDestinationId); }
    };

    void handleInitialized();

    ZebPairStreamSm* const owner_;
    RixRecord streamRecord_{this};
  };

  // Neither may be null.
  ZebPairStreamSm(Rix::Ptr<ProbeStreamTable const> const& zebStreamTable,
                  Rix::Ptr<PairStreamStatus> const& pairStreamStatus);

  template <class F>
  void rixParts(F&& f) {
    f(zebStreamTable_);
    f(streamRecord_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ProbeStreamTable const>(zebStreamTable_.notifier()), pairStreamStatus_);
  }
  static constexpr std::array rixParameterNames{"zebStreamTable", "pairStreamStatus"};

  RixStreamRecord* streamRecord(ProbeStreamId const& id) const { return streamRecord_.find(id); }
  U32 streamRecords() const { return streamRecord_.size(); }
  // Null: RangeException.
  RixStreamRecord* streamRecordIs(Rix::Ptr<ProbeStreamRecord const> const& record);
  void streamRecordDel(ProbeStreamId const& id) { streamRecord_.del(id); }

 private:
  struct RixZebStreamTable : Rix::Watch<RixZebStreamTable, ProbeStreamTable const, ZebPairStreamSm> {
    using Watch::Watch;
    void onStreamRecord(ProbeStreamId const& id) override { pass(&ZebPairStreamSm::handleStreamRecord, id); }
  };

  void handleStreamRecord(ProbeStreamId const& id);

  Rix::Ptr<PairStreamStatus> const pairStreamStatus_;
  RixZebStreamTable zebStreamTable_{this};
  Rix::OwnedSet<ProbeStreamId, RixStreamRecord> streamRecord_;
};

Rix::Ptr<ZebPairStreamSm> zebPairStreamSmFactory(Rix::Ptr<ProbeStreamTable const> const& zebStreamTable,
                                                 Rix::Ptr<PairStreamStatus> const& pairStreamStatus);

}  // namespace Zeb
