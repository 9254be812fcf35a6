// What became of losses during a run: each device pair's life, and each TTL of each stream that ever was lossy or
// dormant. A reader of the centre's status; it writes nothing there.
//
// Times are those of Rix::now().
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "model/gen/Status.h"
#include "runtime/OwnedMap.h"

namespace Lab {

class LossHistory : public Rix::Reactor<LossHistory> {
 public:
  explicit LossHistory(const Rix::Ptr<Zeb::ZebStatus const>& status);

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
  const std::map<std::pair<Zeb::ProbeStreamId, U8>, TtlPast>& ttls() const { return ttls_; }

  // A message has named this pair of host names.
  void loggedIs(const std::string& first, const std::string& second, double time);

  template <class F>
  void rixParts(F&& part) {
    part(lossStatus_);
    part(streams_);
  }

 private:
  class TtlSm;
  class StreamSm;

  struct RixLossStatus : Rix::Watch<RixLossStatus, Zeb::ProbeLossStatus const, LossHistory> {
    using Watch::Watch;
    void onLossRecord(Zeb::ProbeStreamId const& id) override { pass(&LossHistory::handleLossRecord, id); }
    void onDevicePairLossRecord(Zeb::DevicePair const& pair) override { pass(&LossHistory::handlePair, pair); }
  };

  void handleLossRecord(const Zeb::ProbeStreamId& id);
  void handlePair(const Zeb::DevicePair& pair);

  const Rix::Ptr<Zeb::ZebStatus const> status_;
  std::vector<PairLife> pairs_;
  std::map<std::pair<Zeb::ProbeStreamId, U8>, TtlPast> ttls_;
  RixLossStatus lossStatus_{this};
  Rix::OwnedMap<Zeb::ProbeStreamId, StreamSm> streams_;
};

}  // namespace Lab
