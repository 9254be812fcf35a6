// What other switches tell of the rows here, and what the table tells of a service that ran before.
#include <algorithm>

#include "sonar/ReceiverParts.h"

namespace Sonar {

namespace {

// A held row asks once more, when the mistake could still be mended, whether its stream is really gone: the sender may
// have taken it up again on a way that does not lead here.
constexpr Rix::Seconds heldQuestionAfter = 4.0;
// A row from before asks as soon as a stream at an ordinary rate would have been heard.
constexpr Rix::Seconds adoptedQuestionAfter = 1.0;

}  // namespace

ReceiverRows::SubStream* ReceiverRows::find(Notice const& notice) const {
  return find(idOf(notice.stream, notice.streamTag, notice.auxIp), notice.ttl);
}

void ReceiverRows::ended(Rix::Seconds now, Notice const& notice) {
  SubStream* const sub = find(notice);
  if (!sub) return;
  // Equal is what is expected: the last probe was heard here. What has been ended stays so until its next epoch.
  bool const followed = sub->takenOver && notice.number.epoch < sub->takenOver->epoch;
  if (notice.number < sub->newest() || followed) {
    ++ignored_.staleNotice;
    return;
  }
  notices_.forget(sub->takeoverSerial);
  notices_.forget(sub->questionSerial);
  if (sub->ended && notice.serial <= sub->ended->serial) return;
  sub->ended = {notice.number, notice.serial, now + heldFor};
  sub->adopted = false;
  sub->nextQuestion = now + heldQuestionAfter;
  judgeAll(*sub, now);
}

void ReceiverRows::takenOver(Rix::Seconds now, Notice const& notice) {
  SubStream* const sub = find(notice);
  if (!sub) return;
  if (notice.number <= sub->newest()) {
    ++ignored_.staleNotice;
    // Whoever thinks that another switch has it since then should know that it has come back here.
    if (notice.number.epoch == sub->epoch.value && notice.number < sub->newest()) tellTakeover(now, *sub);
    return;
  }
  if (sub->ended && notice.number.epoch <= sub->ended->last.epoch) return;
  if (sub->takenOver && notice.number <= *sub->takenOver) return;
  notices_.forget(sub->questionSerial);
  sub->ended.reset();
  sub->takenOver = notice.number;
  judgeAll(*sub, now);
}

void ReceiverRows::running(Rix::Seconds now, Notice const& notice) {
  SubStream* const sub = find(notice);
  if (!sub) return;
  if (sub->ended) {
    // It goes on, and not here: this is what another switch that has taken it over would have told.
    takenOver(now, notice);
    return;
  }
  if (!sub->adopted || !view_.isLocal(notice.holder)) return;
  // It is this switch that should hear it. Its silence counts from when this service began.
  sub->adopted = false;
  sub->threshold = std::max(notice.robustness * (notice.interval * 1e-6), minSilence);
  for (auto const& row : sub->rows) {
    row->explained = false;
    row->silentFrom = row->heard;
  }
  judgeAll(*sub, now);
}

void ReceiverRows::adopt(Rix::Seconds now, std::span<IngressStreamStatisticsTableEntry const> rows) {
  for (auto const& row : rows) {
    if (Bell::isReserved(row.key) || schedule_.size() >= maxRows_) {
      table_.rowDel(row.key);
    } else {
      adopt(now, row);
    }
  }
}

void ReceiverRows::adopt(Rix::Seconds now, IngressStreamStatisticsTableEntry const& entry) {
  auto const id = Zeb::egressStreamToStreamId(entry.key);
  auto& stream = streams_[id];
  if (!stream) {
    stream = std::make_unique<Stream>();
    stream->id = id;
    stream->routed = view_.hasRoute(id.dstIp()) && view_.hasRoute(id.srcIp());
  }
  SubStream* sub = find(id, entry.key.ttl);
  if (!sub) {
    auto made = std::make_unique<SubStream>(SubStream{.stream = stream.get(),
                                                      .ttl = entry.key.ttl,
                                                      .epoch = {},
                                                      .window = SequenceWindow(0),
                                                      .threshold = adoptedQuestionAfter,
                                                      .adopted = true,
                                                      .rows = {}});
    sub = stream->subStreams.emplace_back(std::move(made)).get();
    sub->nextQuestion = now + adoptedQuestionAfter;
    sub->unansweredFrom = now;
  }
  Row& row = addRow(*sub, entry.key.ingressIntf);
  row.heard = row.silentFrom = now;
  row.state = entry.dormant ? RowState::dormant : RowState::live;
  // Rows of one stream and ttl share their counters; the last one to count has the newest.
  ProbeNumber const number{entry.epoch.value, entry.currentSequenceNumber};
  if (sub->current && number < sub->newest()) return;
  sub->current = &row;
  sub->epoch = entry.epoch;
  sub->window = SequenceWindow(entry.currentSequenceNumber);
  sub->lastSequence = entry.lastSequenceNumber;
  sub->received = entry.probesReceived;
  sub->lost = entry.probesLost;
  sub->misordered = entry.probesMisordered;
  sub->duplicated = entry.probesDuplicated;
}

}  // namespace Sonar
