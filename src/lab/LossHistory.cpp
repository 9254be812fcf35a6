// Watchers of the loss records, down to each TTL.
#include "lab/LossHistory.h"

#include <algorithm>
#include <utility>

#include "runtime/Activity.h"

namespace Lab {

void LossHistory::TtlSm::handleFlags() {
  TtlPast& past = history_->ttls_[key_];
  const TtlPast before = past;
  past.lossy = past.lossy || record_->lossy();
  past.dormant = past.dormant || record_->dormant();
  const bool risen = past.lossy != before.lossy || past.dormant != before.dormant;
  if (risen && history_->noted_.ttl) history_->noted_.ttl(key_, past);
}

void LossHistory::StreamSm::handleTtl(U8 ttl) {
  if (const auto* record = record_->streamTtlLossRecord(ttl)) {
    ttls_.is(ttl, history_, TtlKey{record_->streamId(), ttl}, Rix::Ptr<Zeb::StreamTtlLossRecord const>(record));
  } else {
    ttls_.del(ttl);
  }
}

LossHistory::LossHistory(const Rix::Ptr<Zeb::ZebStatus const>& status, Noted noted)
    : status_(status), noted_(std::move(noted)) {
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
    if (standing != pairs_.rend()) return;
    pairs_.push_back({pair, Rix::now(), {}, {}});
    notePair(pairs_.back());
  } else if (standing != pairs_.rend()) {
    standing->gone = Rix::now();
    notePair(*standing);
  }
}

void LossHistory::notePair(const PairLife& life) const {
  if (noted_.pair) noted_.pair(static_cast<std::size_t>(&life - pairs_.data()));
}

void LossHistory::loggedIs(const std::string& first, const std::string& second, double time) {
  for (auto life = pairs_.rbegin(); life != pairs_.rend(); ++life) {
    const auto* dev1 = status_->client(life->pair.dev1SysId());
    const auto* dev2 = status_->client(life->pair.dev2SysId());
    if (dev1 && dev2 && dev1->hostname() == first && dev2->hostname() == second && !life->logged) {
      life->logged = time;
      return notePair(*life);
    }
  }
}

}  // namespace Lab
