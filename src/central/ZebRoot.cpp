// The accessors that notify, and what the root object makes at its start and takes down at its end.
#include "central/ZebRoot.h"

#include "runtime/Activity.h"
#include "runtime/TypeOf.h"

namespace Zeb {

void ProbeEventsAnalyzerBase::doAnalyze(Rix::Ptr<Root> const&, Rix::Ptr<ProbeStreamEventsQueue> const&) {}

Rix::Ptr<ProbeEventsAnalyzerBase> probeEventsAnalyzerBaseFactory(Rix::Name const& name) {
  return Rix::make<ProbeEventsAnalyzerBase>(name);
}

Rix::Type const& ZebAnalyzerRegistry::rixType() {
  static Rix::Type const type = Rix::plainType("Zeb::ZebAnalyzerRegistry");
  return type;
}

void ZebAnalyzerRegistry::NotifieeConst::onAnalyzer() {
  Rix::Ptr<ZebAnalyzerRegistry> notifier(static_cast<ZebAnalyzerRegistry*>(rixNotifier()));
  if (!notifier) return;
  Rix::sweepKeys(notifier->analyzer_, [this](Rix::String8 const& key) { onAnalyzer(key); });
}

void ZebAnalyzerRegistry::NotifieeConst::rixSweepCollections(Rix::Interest interest) {
  if ((interest & Rix::interestBit(0)) != 0) onAnalyzer();
}

void ZebAnalyzerRegistry::analyzerIs(Rix::String8 const& key, Rix::Ptr<ProbeEventsAnalyzerBase> const& analyzer) {
  analyzer_.is(key, analyzer, [this](Rix::String8 const& changed) { analyzerNotify(changed); });
}

void ZebAnalyzerRegistry::analyzerDel(Rix::String8 const& key) {
  analyzer_.del(key, [this](Rix::String8 const& gone) { analyzerNotify(gone); });
}

void ZebAnalyzerRegistry::analyzerDelAll() {
  analyzer_.delAll([this](Rix::String8 const& gone) { analyzerNotify(gone); });
}

void ZebAnalyzerRegistry::analyzerNotify(Rix::String8 const& key) {
  rixNotify<NotifieeConst>(0, [&](NotifieeConst& notifiee) { notifiee.onAnalyzer(key); });
}

Root::Root(Rix::Name const& name) : name_(name) {
  doInit();
}

Root::~Root() {
  zebStreamTable_ = nullptr;
  eventTable_ = nullptr;
  zebStreamEventsDir_ = nullptr;
  analyzerRegistry_ = nullptr;
}

Rix::Type const& Root::rixType() {
  static Rix::Type const type = Rix::typeOf<Root>("Zeb::Root");
  return type;
}

void Root::doInit() {
  zebStreamTableIs({});
  eventTableIs({});
  zebStreamEventsDirIs({});
  analyzerRegistryIs({});
}

Rix::Ptr<ProbeStreamTable> const& Root::zebStreamTableIs(Rix::Name const& name) {
  if (!zebStreamTable_) zebStreamTable_ = Rix::make<ProbeStreamTable>(name);
  return zebStreamTable_;
}

Rix::Ptr<ProbeStreamEventTable> const& Root::eventTableIs(Rix::Name const& name) {
  if (!eventTable_) eventTable_ = Rix::make<ProbeStreamEventTable>(name);
  return eventTable_;
}

Rix::Ptr<ZebProbeStreamEventsDir> const& Root::zebStreamEventsDirIs(Rix::Name const& name) {
  if (!zebStreamEventsDir_) zebStreamEventsDir_ = Rix::make<ZebProbeStreamEventsDir>(name);
  return zebStreamEventsDir_;
}

Rix::Ptr<ZebAnalyzerRegistry> const& Root::analyzerRegistryIs(Rix::Name const& name) {
  if (!analyzerRegistry_) analyzerRegistry_ = Rix::make<ZebAnalyzerRegistry>(name, this);
  return analyzerRegistry_;
}

Rix::Ptr<Root> rootFactory(Rix::Name const& name) {
  return Rix::make<Root>(name);
}

Rix::Ptr<Root> zebRoot() {
  Rix::Activity* activity = Rix::Activity::currentOrNull();
  if (!activity) return nullptr;
  return Rix::dynamicCast<Root>(activity->rootObject());
}

namespace {

// The host name of the switch that `end` of the stream's record names, or `address` while it names none.
Rix::String8 streamHostname(Rix::Ptr<Root> const& root, ProbeStreamId const& streamId, Netkit::IpAddr address,
                            Fabric::SystemId const& (ProbeStreamRecord::*end)() const) {
  ProbeStreamRecord const* record = root ? root->zebStreamTable()->streamRecord(streamId) : nullptr;
  if (!record || (record->*end)().isEmpty()) return address.stringValue();
  Fabric::SystemId const& systemId = (record->*end)();
  ZebClient const* client = root->zebStatus()->client(systemId);
  RIX_ASSERT(client != nullptr, systemId);
  return client->hostname();
}

}  // namespace

Rix::String8 streamSrcHostname(Rix::Ptr<Root> const& root, ProbeStreamId const& streamId) {
  return streamHostname(root, streamId, streamId.srcIp(), &ProbeStreamRecord::sourceId);
}

Rix::String8 streamDstHostname(Rix::Ptr<Root> const& root, ProbeStreamId const& streamId) {
  return streamHostname(root, streamId, streamId.dstIp(), &ProbeStreamRecord::destinationId);
}

namespace {
// Known by name from the start of the process: the agent makes its root object by name.
Rix::TypeRegistration const registration(Root::rixType());
}  // namespace

}  // namespace Zeb
