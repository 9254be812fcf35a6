// The loss pair recorder: enters each failing stream under the pair of devices between which its probes are lost, the
// last good one and the first silent one. Many streams through one bad link meet in one record, and a pair stands for
// as long as one stream is on it. It also keeps the path of each failing stream. It judges nothing: the places come
// from the analyzer, and what is said of a pair is the logger's.
#pragma once

#include "analysis/ZebStreamEventPathSm.h"

namespace Zeb {

// One failing stream: keeps it on at most one pair.
class ZebStreamLossPairRecorderSm : public Rix::Reactor<ZebStreamLossPairRecorderSm> {
 public:
  struct RixStreamLossRecord : Rix::Watch<RixStreamLossRecord, StreamLossRecord const, ZebStreamLossPairRecorderSm> {
    using Watch::Watch;
    void onUpdateCounter() override { pass(&ZebStreamLossPairRecorderSm::handleLossPoint); }
  };

  ZebStreamLossPairRecorderSm(Rix::Ptr<StreamLossRecord const> const& streamLossRecord,
                              Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
                              Rix::Ptr<ProbeLossStatus> const& lossStatus);
  template <class F>
  void rixParts(F&& f) {
    f(streamLossRecord_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<StreamLossRecord const>(streamLossRecord_.notifier()), streamRecord_, lossStatus_);
  }
  static constexpr std::array rixParameterNames{"streamLossRecord", "streamRecord", "lossStatus"};

  // The pair in this order. Two equal ids end the process: a device is not its own neighbour.
  static DevicePair createDevicePair(Fabric::SystemId const& dev1SysId, Fabric::SystemId const& dev2SysId);

  // The pair that the stream was entered under last; the zero pair if there was none. It may have left it since.
  DevicePair const& currentLossDevicePair() const { return currentLossDevicePair_; }

  void handleInitialized();
  void handleLossPoint();
  // Takes the stream off a pair, and deletes the pair if no stream is left on it.
  void doDeleteLossRecord(DevicePair const& pair);
  void doCleanup();

 private:
  DevicePair currentLossDevicePair_;
  Rix::Ptr<ProbeStreamRecord const> const streamRecord_;
  Rix::Ptr<ProbeLossStatus> const lossStatus_;
  RixStreamLossRecord streamLossRecord_{this};
};

class ZebLossPairRecorderSm : public Rix::Reactor<ZebLossPairRecorderSm> {
 public:
  struct RixZebStatus : Rix::Watch<RixZebStatus, ZebStatus, ZebLossPairRecorderSm> {
    using Watch::Watch;
    void onLossStatus() override { pass(&ZebLossPairRecorderSm::handleLossStatus); }
  };
  struct RixLossStatus : Rix::Watch<RixLossStatus, ProbeLossStatus, ZebLossPairRecorderSm> {
    using Watch::Watch;
    void onLossRecord(ProbeStreamId const& streamId) override {
      pass(&ZebLossPairRecorderSm::handleStreamLossRecord, streamId);
    }
  };

  ZebLossPairRecorderSm(Rix::Ptr<ZebStatus> const& zebStatus, Rix::Ptr<ProbeStreamTable const> const& streamTable);
  template <class F>
  void rixParts(F&& f) {
    f(zebStatus_);
    f(lossStatus_);
    f(streamLossPairRecorderSm_);
    f(eventPathSm_);
  }
  auto rixParameters() const { return std::tuple(Rix::Ptr<ZebStatus>(zebStatus_.notifier()), streamTable_); }
  static constexpr std::array rixParameterNames{"zebStatus", "streamTable"};

  ZebStreamLossPairRecorderSm* streamLossPairRecorderSm(ProbeStreamId const& streamId) const {
    return streamLossPairRecorderSm_.find(streamId);
  }
  ZebStreamLossPairRecorderSm* streamLossPairRecorderSmIs(Rix::Ptr<StreamLossRecord const> const& streamLossRecord,
                                                          Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
                                                          Rix::Ptr<ProbeLossStatus> const& lossStatus);
  void streamLossPairRecorderSmDel(ProbeStreamId const& streamId) { streamLossPairRecorderSm_.del(streamId); }
  ZebStreamEventPathSm* eventPathSm(ProbeStreamId const& streamId) const { return eventPathSm_.find(streamId); }
  ZebStreamEventPathSm* eventPathSmIs(Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
                                      Rix::Ptr<ZebStatus> const& zebStatus);
  void eventPathSmDel(ProbeStreamId const& streamId) { eventPathSm_.del(streamId); }

  // Follows the loss status. Attaching to it sweeps the loss records that stand there, once.
  void handleLossStatus();
  void handleStreamLossRecord(ProbeStreamId const& streamId);

 private:
  Rix::Ptr<ProbeStreamTable const> const streamTable_;
  RixZebStatus zebStatus_{this};
  RixLossStatus lossStatus_{this};
  Rix::OwnedMap<ProbeStreamId, ZebStreamLossPairRecorderSm> streamLossPairRecorderSm_;
  Rix::OwnedMap<ProbeStreamId, ZebStreamEventPathSm> eventPathSm_;
};

Rix::Ptr<ZebLossPairRecorderSm> zebLossPairRecorderSmFactory(Rix::Ptr<ZebStatus> const& zebStatus,
                                                             Rix::Ptr<ProbeStreamTable const> const& streamTable);
Rix::Ptr<ZebStreamLossPairRecorderSm> zebStreamLossPairRecorderSmFactory(
    Rix::Ptr<StreamLossRecord const> const& streamLossRecord, Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
    Rix::Ptr<ProbeLossStatus> const& lossStatus);

}  // namespace Zeb
