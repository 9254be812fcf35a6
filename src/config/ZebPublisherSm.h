// The publisher: keeps every switch's orders at what configuration and reports say. It owns one ZebPublisherClientSm
// for each switch that reports, and below it one reactor for each probe there, each order, and each peer of an order;
// the central root machine owns it.
//
// It runs after the group builder, and has to hear of a probe after it: the groups of a probe stand, with the probe in
// them, when the publisher looks.
//
// What happens in the directory of the switches' entities goes to the switch of that name alone: told to every switch
// it would be the same, a thousand times over.
//
// Everything here is synchronous: who enables the service, or adds a probe, waits until all orders are written.
#pragma once

#include "config/ZebPublisherClientSm.h"

namespace Zeb {

class ZebPublisherSm : public Rix::Reactor<ZebPublisherSm> {
 public:
  // Nothing may be null. `waveConfigDir` holds each switch's ZebSonarConfigV1 under the text form of its system id.
  ZebPublisherSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus const> const& status,
                 Rix::Ptr<Rix::Dir> const& waveConfigDir);

  template <class F>
  void rixParts(F&& f) {
    f(status_);
    f(waveConfigDir_);
    f(waveConfigDirEntry_);
    f(clientSm_);
  }
  auto rixParameters() const {
    return std::tuple(config_, Rix::Ptr<ZebStatus const>(status_.notifier()),
                      Rix::Ptr<Rix::Dir>(waveConfigDir_.notifier()));
  }
  static constexpr std::array rixParameterNames{"config", "status", "waveConfigDir"};
  void doCleanup();

  ZebPublisherClientSm* clientSm(Fabric::SystemId const& id) const { return clientSm_.find(id); }
  U32 clientSms() const { return clientSm_.size(); }
  ZebPublisherClientSm* clientSmIs(Rix::Ptr<ZebClient const> const& client, Rix::Ptr<ZebConfig const> const& config,
                                   Rix::Ptr<ZebStatus const> const& status, Rix::Ptr<Rix::Dir> const& waveConfigDir) {
    return clientSm_.is(client->rixKey(), client, config, status, waveConfigDir);
  }
  void clientSmDel(Fabric::SystemId const& id) { clientSm_.del(id); }

  class RixWaveConfigDirEntry;
  RixWaveConfigDirEntry* waveConfigDirEntry(Rix::Name const& name) const { return waveConfigDirEntry_.find(name); }
  // The watcher of one entry, which all switches share. Null: RangeException.
  RixWaveConfigDirEntry* waveConfigDirEntryIs(Rix::Ptr<Rix::Dir::Entry const> const& entry);
  void waveConfigDirEntryDel(Rix::Name const& name) { waveConfigDirEntry_.del(name); }

 private:
  struct RixStatus : Rix::Watch<RixStatus, ZebStatus const, ZebPublisherSm> {
    using Watch::Watch;
    void onClient(Fabric::SystemId const& id) override { pass(&ZebPublisherSm::handleClient, id); }
  };
  struct RixWaveConfigDir : Rix::Watch<RixWaveConfigDir, Rix::Dir, ZebPublisherSm> {
    using Watch::Watch;
    void onEntry(Rix::Name const& name) override { pass(&ZebPublisherSm::handleEntry, name); }
    void onEntityPtr(Rix::Name const& name) override { pass(&ZebPublisherSm::handleClientEntry, name); }
  };

  void handleClient(Fabric::SystemId const& id);
  void handleEntry(Rix::Name const& name);
  void handleClientEntry(Rix::Name const& name);

  Rix::Ptr<ZebConfig const> const config_;
  RixStatus status_{this};
  RixWaveConfigDir waveConfigDir_{this};
  Rix::OwnedMap<Rix::Name, RixWaveConfigDirEntry> waveConfigDirEntry_;
  Rix::OwnedMap<Fabric::SystemId, ZebPublisherClientSm> clientSm_;
};

// Tells the publisher of the entry that it has come, and when its status changes.
class ZebPublisherSm::RixWaveConfigDirEntry : public Rix::Reactor<RixWaveConfigDirEntry> {
 public:
  // The publisher outlives it.
  RixWaveConfigDirEntry(Rix::Ptr<Rix::Dir::Entry const> const& entry, ZebPublisherSm* publisher);

  template <class F>
  void rixParts(F&& f) {
    f(entry_);
  }
  auto rixParameters() const { return std::tuple(Rix::Ptr<Rix::Dir::Entry const>(entry_.notifier()), zebPublisherSm_); }
  static constexpr std::array rixParameterNames{"waveConfigDirEntry", "zebPublisherSm"};

 private:
  struct RixEntry : Rix::Watch<RixEntry, Rix::Dir::Entry const, RixWaveConfigDirEntry> {
    using Watch::Watch;
    void onStatus() override { pass(&RixWaveConfigDirEntry::handleStatus); }
  };
  void handleStatus() { zebPublisherSm_->handleClientEntry(entry_->rixKey()); }

  ZebPublisherSm* const zebPublisherSm_;
  RixEntry entry_{this};
};

Rix::Ptr<ZebPublisherSm> zebPublisherSmFactory(Rix::Ptr<ZebConfig const> const& config,
                                               Rix::Ptr<ZebStatus const> const& status,
                                               Rix::Ptr<Rix::Dir> const& waveConfigDir);

}  // namespace Zeb
