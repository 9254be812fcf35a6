// Switches that come and go, and the directory of their orders.
#include "config/ZebPublisherSm.h"

#include "config/PublisherTrace.h"

namespace Zeb {

ZebPublisherSm::ZebPublisherSm(Rix::Ptr<ZebConfig const> const& config, Rix::Ptr<ZebStatus const> const& status,
                               Rix::Ptr<Rix::Dir> const& waveConfigDir)
    : config_(config) {
  waveConfigDir_.notifierIs(waveConfigDir);  // first, while there are no switches to tell
  status_.notifierIs(status);                // makes a reactor for each switch that is there
}

void ZebPublisherSm::handleClient(Fabric::SystemId const& id) {
  ZebClient const* const client = status_->client(id);
  RIX_TRACE(publisherTraceHandle, 8, id << " present: " << (client != nullptr));
  if (client) {
    clientSmIs(client, config_, status_.notifier(), waveConfigDir_.notifier());
  } else {
    clientSmDel(id);
  }
}

void ZebPublisherSm::handleEntry(Rix::Name const& name) {
  if (Rix::Dir::Entry const* const entry = waveConfigDir_->entry(name)) {
    waveConfigDirEntryIs(entry);
  } else {
    waveConfigDirEntryDel(name);
  }
}

void ZebPublisherSm::handleClientEntry(Rix::Name const& name) {
  if (publisherTraces()) {
    Rix::sweepKeys(clientSm_, [this, &name](Fabric::SystemId const& id) { clientSm(id)->handleClientEntry(name); });
  } else if (ZebPublisherClientSm* const client = clientSm(Fabric::systemIdFromString(name.view()))) {
    client->handleClientEntry(name);
  }
}

ZebPublisherSm::RixWaveConfigDirEntry* ZebPublisherSm::waveConfigDirEntryIs(
    Rix::Ptr<Rix::Dir::Entry const> const& entry) {
  if (!entry) {
    Rix::throwRangeException(
        "null _waveConfigDirEntry parameter to mutator for Zeb::ZebPublisherClientSm::waveConfigDirEntry not "
        "allowed\"");
  }
  return waveConfigDirEntry_.is(entry->rixKey(), entry, this);
}

ZebPublisherSm::RixWaveConfigDirEntry::RixWaveConfigDirEntry(Rix::Ptr<Rix::Dir::Entry const> const& entry,
                                                             ZebPublisherSm* publisher)
    : zebPublisherSm_(publisher) {
  entry_.notifierIs(entry);
  handleStatus();
}

void ZebPublisherSm::doCleanup() {
  RIX_TRACE(publisherTraceHandle, 8, "void Zeb::ZebPublisherSm::doCleanup()");
  clientSm_.delAll();
}

Rix::Ptr<ZebPublisherSm> zebPublisherSmFactory(Rix::Ptr<ZebConfig const> const& config,
                                               Rix::Ptr<ZebStatus const> const& status,
                                               Rix::Ptr<Rix::Dir> const& waveConfigDir) {
  return Rix::make<ZebPublisherSm>(config, status, waveConfigDir);
}

}  // namespace Zeb
