// The path of one failing stream: which device stands at each hop distance, with its address, host name and interface.
// Hop 0 is the source, hop n the device at which probes with TTL n arrive. It is drawn anew whenever an interface of
// the stream's records changes or a record comes, and goes with the stream's loss record. Entries are only added or
// overwritten: a hop whose record has gone keeps its last device.
#pragma once

#include "model/gen/ProbeStream.h"
#include "model/gen/Status.h"
#include "runtime/OwnedMap.h"
#include "runtime/Watch.h"

namespace Zeb {

class ZebStreamEventPathSm : public Rix::Reactor<ZebStreamEventPathSm> {
 public:
  struct RixProbeStreamRecord : Rix::Watch<RixProbeStreamRecord, ProbeStreamRecord const, ZebStreamEventPathSm> {
    using Watch::Watch;
    void onEgressRecord(U8 ttl) override { pass(&ZebStreamEventPathSm::handleEgressRecord, ttl); }
    void onIngressRecord(U8 ttl) override { pass(&ZebStreamEventPathSm::handleIngressRecord, ttl); }
  };

  // One TTL that the source sends.
  class RixEgressRecord : public Rix::Reactor<RixEgressRecord> {
   public:
    struct RixRecord : Rix::Watch<RixRecord, ProbeStreamEgressRecord const, RixEgressRecord> {
      using Watch::Watch;
      void onEgressIntf() override { pass(&RixEgressRecord::handleRecord); }
      void onEgressSwitchId() override { pass(&RixEgressRecord::handleRecord); }
    };

    // `owner` outlives this reactor.
    RixEgressRecord(Rix::Ptr<ProbeStreamEgressRecord const> const& record, ZebStreamEventPathSm* owner);
    template <class F>
    void rixParts(F&& f) {
      f(record_);
    }
    auto rixParameters() const {
      return std::tuple(Rix::Ptr<ProbeStreamEgressRecord const>(record_.notifier()), owner_);
    }
    static constexpr std::array rixParameterNames{"egressRecord", "zebStreamEventPathSm"};

    void handleRecord();

   private:
    ZebStreamEventPathSm* const owner_;
    RixRecord record_{this};
  };

  // One TTL at which probes arrive: holds a reactor for each switch that reports it.
  class RixZebIngressRecord : public Rix::Reactor<RixZebIngressRecord> {
   public:
    struct RixRecord : Rix::Watch<RixRecord, ProbeStreamIngressRecord const, RixZebIngressRecord> {
      using Watch::Watch;
      void onSwitchIngressRecord(Fabric::SystemId const& switchId) override {
        pass(&RixZebIngressRecord::handleSwitchIngressRecord, switchId);
      }
    };

    // One switch that reports the TTL.
    class RixIngressRecord : public Rix::Reactor<RixIngressRecord> {
     public:
      struct RixRecord : Rix::Watch<RixRecord, ProbeStreamSwitchIngressRecord const, RixIngressRecord> {
        using Watch::Watch;
        void onIngressIntf() override { pass(&RixIngressRecord::handleRecord); }
        void onIngressIntfIp() override { pass(&RixIngressRecord::handleRecord); }
      };

      // `owner` outlives this reactor.
      RixIngressRecord(Rix::Ptr<ProbeStreamSwitchIngressRecord const> const& record, ZebStreamEventPathSm* owner);
      template <class F>
      void rixParts(F&& f) {
        f(record_);
      }
      auto rixParameters() const {
        return std::tuple(Rix::Ptr<ProbeStreamSwitchIngressRecord const>(record_.notifier()), owner_);
      }
      static constexpr std::array rixParameterNames{"ingressRecord", "zebStreamEventPathSm"};

      void handleRecord();

     private:
      ZebStreamEventPathSm* const owner_;
      RixRecord record_{this};
    };

    // `owner` outlives this reactor.
    RixZebIngressRecord(Rix::Ptr<ProbeStreamIngressRecord const> const& record, ZebStreamEventPathSm* owner);
    template <class F>
    void rixParts(F&& f) {
      f(record_);
      f(ingressRecord_);
    }
    auto rixParameters() const {
      return std::tuple(Rix::Ptr<ProbeStreamIngressRecord const>(record_.notifier()), owner_);
    }
    static constexpr std::array rixParameterNames{"zebIngressRecord", "zebStreamEventPathSm"};

    void handleSwitchIngressRecord(Fabric::SystemId const& switchId);

   private:
    ZebStreamEventPathSm* const owner_;
    RixRecord record_{this};
    Rix::OwnedMap<Fabric::SystemId, RixIngressRecord> ingressRecord_;
  };

  ZebStreamEventPathSm(Rix::Ptr<ProbeStreamRecord const> const& streamRecord, Rix::Ptr<ZebStatus> const& zebStatus);
  template <class F>
  void rixParts(F&& f) {
    f(streamRecord_);
    f(egressRecord_);
    f(zebIngressRecord_);
  }
  auto rixParameters() const {
    return std::tuple(Rix::Ptr<ProbeStreamRecord const>(streamRecord_.notifier()), zebStatus_);
  }
  static constexpr std::array rixParameterNames{"streamRecord", "zebStatus"};

  Rix::Ptr<LossEventStreamPath> const& path() const { return path_; }

  void handleInitialized();
  void handleEgressRecord(U8 ttl);
  void handleIngressRecord(U8 ttl);
  // Something that the path shows has changed.
  void handleRecord();
  // Draws the path from the records and clients as they stand. Without a source that is known, none is told.
  void doComputePath();
  void doCleanup();

 private:
  ProbeLossStatus& lossStatus() const;

  Rix::Ptr<ZebStatus> const zebStatus_;
  Rix::Ptr<LossEventStreamPath> path_;
  RixProbeStreamRecord streamRecord_{this};
  Rix::OwnedMap<U8, RixEgressRecord> egressRecord_;
  Rix::OwnedMap<U8, RixZebIngressRecord> zebIngressRecord_;
};

Rix::Ptr<ZebStreamEventPathSm> zebStreamEventPathSmFactory(Rix::Ptr<ProbeStreamRecord const> const& streamRecord,
                                                           Rix::Ptr<ZebStatus> const& zebStatus);

}  // namespace Zeb
