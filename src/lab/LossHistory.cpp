// Watchers of the loss records, down to each TTL.
#include "lab/LossHistory.h"

#include "runtime/Activity.h"

namespace Lab {

// One TTL's flags, noted as they rise.
class LossHistory::TtlSm : public Rix::Reactor<TtlSm> {
 public:
  TtlSm(TtlPast* past, const Rix::Ptr<Zeb::StreamTtlLossRecord const>& record) : past_(past) {
    record_.notifierIs(record);
    handleFlags();
  }
  void handleFlags() {
    past_->lossy = past_->lossy || record_->lossy();
    past_->dormant = past_->dormant || record_->dormant();
  }
  template <class F>
  void rixParts(F&& part) {
    part(record_);
  }
  auto rixParameters() const { return std::tuple(past_, Rix::Ptr<Zeb::StreamTtlLossRecord const>(record_.notifier())); }
  static constexpr std::array rixParameterNames{"past", "record"};

 private:
  struct RixRecord : Rix::Watch<RixRecord, Zeb::StreamTtlLossRecord const, TtlSm> {
    using Watch::Watch;
    void onLossy() override { pass(&TtlSm::handleFlags); }
    void onDormant() override { pass(&TtlSm::handleFlags); }
  };
  TtlPast* const past_;
  RixRecord record_{this};
};

// One stream's TTLs.
class LossHistory::StreamSm : public Rix::Reactor<StreamSm> {
 public:
  StreamSm(LossHistory* history, const Rix::Ptr<Zeb::StreamLossRecord const>& record) : history_(history) {
    record_.notifierIs(record);
  }
  void handleTtl(U8 ttl) {
    if (const auto* record = record_->streamTtlLossRecord(ttl)) {
      ttls_.is(ttl, &history_->ttls_[{record_->streamId(), ttl}], Rix::Ptr<Zeb::StreamTtlLossRecord const>(record));
    } else {
      ttls_.del(ttl);
    }
  }
  template <class F>
  void rixParts(F&& part) {
    part(record_);
    part(ttls_);
  }
  auto rixParameters() const { return std::tuple(history_, Rix::Ptr<Zeb::StreamLossRecord const>(record_.notifier())); }
  static constexpr std::array rixParameterNames{"history", "record"};

 private:
  struct RixRecord : Rix::Watch<RixRecord, Zeb::StreamLossRecord const, StreamSm> {
    using Watch::Watch;
    void onStreamTtlLossRecord(U8 ttl) override { pass(&StreamSm::handleTtl, ttl); }
  };
  LossHistory* const history_;
  RixRecord record_{this};
  Rix::OwnedMap<U8, TtlSm> ttls_;
};

LossHistory::LossHistory(const Rix::Ptr<Zeb::ZebStatus const>& status) : status_(status) {
  lossStatus_.notifierIs(Rix::Ptr<Zeb::ProbeLossStatus const>(status->lossStatus()));
}

void LossHistory::handleLossRecord(const Zeb::ProbeStreamId& id) {
  const auto* record = lossStatus_->lossRecord(id);
  streams_.del(id);  // a record of the same stream may be another one now
  if (record) streams_.is(id, this, Rix::Ptr<Zeb::StreamLossRecord const>(record));
}

void LossHistory::handlePair(const Zeb::DevicePair& pair) {
  const auto standing = std::find_if(pairs_.rbegin(), pairs_.rend(),
                                     [&](const PairLife& life) { return life.pair == pair && !life.gone; });
  if (lossStatus_->devicePairLossRecord(pair)) {
    if (standing == pairs_.rend()) pairs_.push_back({pair, Rix::now(), {}, {}});
  } else if (standing != pairs_.rend()) {
    standing->gone = Rix::now();
  }
}

void LossHistory::loggedIs(const std::string& first, const std::string& second, double time) {
  for (auto life = pairs_.rbegin(); life != pairs_.rend(); ++life) {
    const auto* dev1 = status_->client(life->pair.dev1SysId());
    const auto* dev2 = status_->client(life->pair.dev2SysId());
    if (dev1 && dev2 && dev1->hostname() == first && dev2->hostname() == second && !life->logged) {
      life->logged = time;
      return;
    }
  }
}

}  // namespace Lab
