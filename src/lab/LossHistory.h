// What became of losses during a run: each device pair's life, and each TTL of each stream that ever was lossy or
// dormant. A reader of the centre's status; it writes nothing there.
//
// Times are those of Rix::now().
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "model/gen/Status.h"
#include "runtime/OwnedMap.h"

namespace Lab {

class LossHistory : public Rix::Reactor<LossHistory> {
 public:
  struct PairLife {
    Zeb::DevicePair pair;
    double made;
    std::optional<double> logged;
    std::optional<double> gone;
  };
  const std::vector<PairLife>& pairs() const { return pairs_; }

  struct TtlPast {
    bool lossy = false;
    bool dormant = false;
  };
  using TtlKey = std::pair<Zeb::ProbeStreamId, U8>;
  const std::map<TtlKey, TtlPast>& ttls() const { return ttls_; }

  // Told of each pair that has moved on, by its place in pairs(), and of each TTL whose flags have risen: for whoever
  // keeps it longer than this process lives. Either may be empty.
  struct Noted {
    std::function<void(std::size_t)> pair;
    std::function<void(const TtlKey&, const TtlPast&)> ttl;
  };

  explicit LossHistory(const Rix::Ptr<Zeb::ZebStatus const>& status, Noted noted = {});

  // A message has named this pair of host names.
  void loggedIs(const std::string& first, const std::string& second, double time);

  template <class F>
  void rixParts(F&& part) {
    part(lossStatus_);
    part(streams_);
  }

 private:
  // One TTL's flags, noted as they rise.
  class TtlSm : public Rix::Reactor<TtlSm> {
   public:
    TtlSm(LossHistory* history, const TtlKey& key, const Rix::Ptr<Zeb::StreamTtlLossRecord const>& record)
        : history_(history), key_(key) {
      record_.notifierIs(record);
      handleFlags();
    }
    void handleFlags();
    template <class F>
    void rixParts(F&& part) {
      part(record_);
    }
    auto rixParameters() const {
      return std::tuple(history_, key_, Rix::Ptr<Zeb::StreamTtlLossRecord const>(record_.notifier()));
    }
    static constexpr std::array rixParameterNames{"history", "key", "record"};

   private:
    struct RixRecord : Rix::Watch<RixRecord, Zeb::StreamTtlLossRecord const, TtlSm> {
      using Watch::Watch;
      void onLossy() override { pass(&TtlSm::handleFlags); }
      void onDormant() override { pass(&TtlSm::handleFlags); }
    };
    LossHistory* const history_;
    const TtlKey key_;
    RixRecord record_{this};
  };

  // One stream's TTLs.
  class StreamSm : public Rix::Reactor<StreamSm> {
   public:
    StreamSm(LossHistory* history, const Rix::Ptr<Zeb::StreamLossRecord const>& record) : history_(history) {
      record_.notifierIs(record);
    }
    void handleTtl(U8 ttl);
    template <class F>
    void rixParts(F&& part) {
      part(record_);
      part(ttls_);
    }
    auto rixParameters() const {
      return std::tuple(history_, Rix::Ptr<Zeb::StreamLossRecord const>(record_.notifier()));
    }
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

  struct RixLossStatus : Rix::Watch<RixLossStatus, Zeb::ProbeLossStatus const, LossHistory> {
    using Watch::Watch;
    void onLossRecord(Zeb::ProbeStreamId const& id) override { pass(&LossHistory::handleLossRecord, id); }
    void onDevicePairLossRecord(Zeb::DevicePair const& pair) override { pass(&LossHistory::handlePair, pair); }
  };

  void handleLossRecord(const Zeb::ProbeStreamId& id);
  void handlePair(const Zeb::DevicePair& pair);
  void notePair(const PairLife& life) const;

  const Rix::Ptr<Zeb::ZebStatus const> status_;
  const Noted noted_;
  std::vector<PairLife> pairs_;
  std::map<TtlKey, TtlPast> ttls_;
  RixLossStatus lossStatus_{this};
  Rix::OwnedMap<Zeb::ProbeStreamId, StreamSm> streams_;
};

}  // namespace Lab
