// Turns the queue of one stream into loss records. The first event of a batch arms a timer; a second later the whole
// batch is folded, oldest first, into what each switch has told of each TTL, then every registered analyzer has its
// turn, and the queue is emptied. Nothing is done for an event by itself, and an idle stream costs nothing.
//
// It opens loss records and never deletes one: that is an analyzer's judgement.
#pragma once

#include "central/ZebRoot.h"
#include "runtime/Clock.h"
#include "runtime/Reactor.h"

namespace Zeb {

class ZebStreamEventsAnalyzerSm : public Rix::Reactor<ZebStreamEventsAnalyzerSm> {
 public:
  struct RixStreamEventsQueue : Rix::Watch<RixStreamEventsQueue, ProbeStreamEventsQueue, ZebStreamEventsAnalyzerSm> {
    using Watch::Watch;
    void onQueuedEvents() override { pass(&ZebStreamEventsAnalyzerSm::handleEvent); }
  };
  struct RixDeferTimer : Rix::Watch<RixDeferTimer, Rix::Clock, ZebStreamEventsAnalyzerSm> {
    using Watch::Watch;
    void onTime() override { pass(&ZebStreamEventsAnalyzerSm::handleDeferTimer); }
  };

  // `streamEventsQueue` is the queue of `streamId`.
  ZebStreamEventsAnalyzerSm(ProbeStreamId const& streamId, Rix::Ptr<Root> const& root,
                            Rix::Ptr<ProbeStreamEventsQueue> const& streamEventsQueue);
  template <class F>
  void rixParts(F&& f) {
    f(streamEventsQueue_);
    f(deferTimer_);
  }
  auto rixParameters() const {
    return std::tuple(streamId(), root_, Rix::Ptr<ProbeStreamEventsQueue>(streamEventsQueue_.notifier()));
  }
  static constexpr std::array rixParameterNames{"streamId", "root", "streamEventsQueue"};

  ProbeStreamId const& streamId() const { return streamEventsQueue_->streamId(); }
  ProbeStreamId const& rixKey() const { return streamId(); }
  // The time between the first event of a batch and its analysis.
  static constexpr Rix::Seconds deferInterval() { return 1.0; }
  // When the batch that waits will be analysed; never, if none does.
  Rix::Seconds deferTimeMin() const { return deferTimer_.timeMin(); }

  void handleInitialized();
  void handleEvent();
  void handleDeferTimer();
  // Arms the timer for a batch that has just begun; a batch under way keeps its time. Without events: turns it off.
  void doUpdateDeferTimer();
  // Folds the queue into the stream's loss record, which the first event of any type but received opens.
  void doAnalyzeCommon(Rix::Ptr<Root> const& root, Rix::Ptr<ProbeStreamEventsQueue> const& queue);
  // Folds one event. One that is older than what its switch told last, or whose TTL or switch the stream no longer
  // has, changes nothing. A TTL of 0 ends the process.
  void updateHostLossRecord(ProbeStreamRecord const& streamRecord, StreamLossRecord& lossRecord,
                            ProbeStreamEventRecord const& eventRecord);

 private:
  void updateEpoch(SwitchHostLossRecord& host, Sonar::Epoch epoch) const;
  void updateByType(ProbeStreamRecord const& streamRecord, StreamLossRecord& lossRecord, StreamTtlLossRecord& ttlRecord,
                    SwitchHostLossRecord& host, ProbeStreamEventRecord const& eventRecord) const;
  void updateReceived(StreamTtlLossRecord& ttlRecord, SwitchHostLossRecord& host,
                      ProbeStreamEventRecord const& eventRecord) const;
  void updateDormancy(ProbeStreamRecord const& streamRecord, StreamLossRecord& lossRecord,
                      StreamTtlLossRecord& ttlRecord, Fabric::SystemId const& ingressSwitchId) const;
  void updateLastIngressSwitch(StreamTtlLossRecord& ttlRecord, Fabric::SystemId const& ingressSwitchId) const;

  Rix::Ptr<Root> const root_;
  RixStreamEventsQueue streamEventsQueue_{this};
  RixDeferTimer deferTimer_{this};
};

Rix::Ptr<ZebStreamEventsAnalyzerSm> zebStreamEventsAnalyzerSmFactory(
    ProbeStreamId const& streamId, Rix::Ptr<Root> const& root,
    Rix::Ptr<ProbeStreamEventsQueue> const& streamEventsQueue);

}  // namespace Zeb
