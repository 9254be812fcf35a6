// The way of an event into its queue. ZebLossAnalyzerSm stands while the service is enabled: it registers the
// analyzers, owns the logger and the recorder of device pairs, and keeps one ZebStreamLossAnalyzerSm on each event
// slot, which copies the slot into the stream's queue, with the time, whenever it is complete. Nothing is merged or
// judged here. The queues belong to the root object and outlive a disable.
#pragma once

#include "analysis/ZebLossPairRecorderSm.h"
#include "analysis/ZebSysloggerSm.h"
#include "central/ZebRoot.h"

namespace Zeb {

// One stream: copies its event into its queue.
class ZebStreamLossAnalyzerSm : public Rix::Reactor<ZebStreamLossAnalyzerSm> {
 public:
  struct RixEvent : Rix::Watch<RixEvent, ProbeStreamEvent const, ZebStreamLossAnalyzerSm> {
    using Watch::Watch;
    void onUp() override { pass(&ZebStreamLossAnalyzerSm::handleEvent); }
    void rixPrefetch(unsigned step) override { Rix::Entity::rixPrefetch(owner().queue_.get(), step); }
  };

  ZebStreamLossAnalyzerSm(Rix::Ptr<Root> const& root, ProbeStreamId const& streamId,
                          Rix::Ptr<ProbeStreamEvent const> const& event, Rix::Ptr<ProbeStreamEventsQueue> const& queue);
  template <class F>
  void rixParts(F&& f) {
    f(event_);
  }
  auto rixParameters() const {
    return std::tuple(root_, event_->streamId(), Rix::Ptr<ProbeStreamEvent const>(event_.notifier()), queue_);
  }
  static constexpr std::array rixParameterNames{"root", "streamId", "event", "queue"};

  ProbeStreamId const& rixKey() const { return event_.notifier()->streamId(); }
  // An event that is complete when this starts is queued once.
  void handleInitialized();
  void handleEvent();

 private:
  Rix::Ptr<Root> const root_;
  Rix::Ptr<ProbeStreamEventsQueue> const queue_;
  RixEvent event_{this};
};

class ZebLossAnalyzerSm : public Rix::Reactor<ZebLossAnalyzerSm> {
 public:
  struct RixEventTable : Rix::Watch<RixEventTable, ProbeStreamEventTable, ZebLossAnalyzerSm> {
    using Watch::Watch;
    void onEvent(ProbeStreamId const& streamId) override { pass(&ZebLossAnalyzerSm::handleStream, streamId); }
  };

  ZebLossAnalyzerSm(Rix::Ptr<Root> const& root, Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                    Rix::Ptr<ZebStatus> const& status);
  template <class F>
  void rixParts(F&& f) {
    f(eventTable_);
    f(streamLossAnalyzerSm_);
    f(sysloggerSm_);
    f(lossPairRecorderSm_);
  }
  auto rixParameters() const {
    return std::tuple(root_, Rix::Ptr<ProbeStreamEventTable>(eventTable_.notifier()), status_);
  }
  static constexpr std::array rixParameterNames{"root", "eventTable", "status"};

  ZebStreamLossAnalyzerSm* streamLossAnalyzerSm(ProbeStreamId const& streamId) const {
    return streamLossAnalyzerSm_.find(streamId);
  }
  ZebStreamLossAnalyzerSm* streamLossAnalyzerSmIs(Rix::Ptr<Root> const& root, ProbeStreamId const& streamId,
                                                  Rix::Ptr<ProbeStreamEvent const> const& event,
                                                  Rix::Ptr<ProbeStreamEventsQueue> const& queue) {
    return streamLossAnalyzerSm_.is(streamId, root, streamId, event, queue);
  }
  void streamLossAnalyzerSmDel(ProbeStreamId const& streamId) { streamLossAnalyzerSm_.del(streamId); }
  ZebSysloggerSm* sysloggerSm() const { return sysloggerSm_.get(); }
  ZebSysloggerSm* sysloggerSmIs(Rix::Ptr<ZebStatus const> const& status) { return sysloggerSm_.is(status); }
  ZebLossPairRecorderSm* lossPairRecorderSm() const { return lossPairRecorderSm_.get(); }
  ZebLossPairRecorderSm* lossPairRecorderSmIs(Rix::Ptr<ZebStatus> const& zebStatus,
                                              Rix::Ptr<ProbeStreamTable const> const& streamTable) {
    return lossPairRecorderSm_.is(zebStatus, streamTable);
  }

  void handleInitialized();
  void registerAnalyzers();
  void handleStream();
  void handleStream(ProbeStreamId const& streamId);

 private:
  Rix::Ptr<Root> const root_;
  Rix::Ptr<ZebStatus> const status_;
  RixEventTable eventTable_{this};
  Rix::OwnedSet<ProbeStreamId, ZebStreamLossAnalyzerSm> streamLossAnalyzerSm_;
  Rix::Owned<ZebSysloggerSm> sysloggerSm_;
  Rix::Owned<ZebLossPairRecorderSm> lossPairRecorderSm_;
};

Rix::Ptr<ZebLossAnalyzerSm> zebLossAnalyzerSmFactory(Rix::Ptr<Root> const& root,
                                                     Rix::Ptr<ProbeStreamEventTable> const& eventTable,
                                                     Rix::Ptr<ZebStatus> const& status);
Rix::Ptr<ZebStreamLossAnalyzerSm> zebStreamLossAnalyzerSmFactory(Rix::Ptr<Root> const& root,
                                                                 ProbeStreamId const& streamId,
                                                                 Rix::Ptr<ProbeStreamEvent const> const& event,
                                                                 Rix::Ptr<ProbeStreamEventsQueue> const& queue);

}  // namespace Zeb
