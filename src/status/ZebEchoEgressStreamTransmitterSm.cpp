// The transmitters of one stream, copied name by name.
#include "status/ZebEchoEgressStreamTransmitterSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebEchoEgressStreamTransmitterSm");
}

ZebEchoEgressStreamTransmitterSm::ZebEchoEgressStreamTransmitterSm(
    Sonar::EgressStream const& egressStream, Rix::Ptr<Sonar::TransmitterList const> const& transmitterList,
    Rix::Ptr<ClientProbeStreamTable> const& probeStreamTable)
    : egressStream_(egressStream), streamId_(egressStreamToStreamId(egressStream)) {
  transmitterList_.notifierIs(transmitterList);
  probeStreamTable_.notifierIs(probeStreamTable);
  handleInitialized();
}

void ZebEchoEgressStreamTransmitterSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebEchoEgressStreamTransmitterSm::handleInitialized()"
                << " key=" << egressStream_);
  handleStreamRecord();
}

void ZebEchoEgressStreamTransmitterSm::handleStreamRecord() {
  handleStreamRecord(streamId_);
}

void ZebEchoEgressStreamTransmitterSm::handleStreamRecord(ProbeStreamId const& id) {
  // Most calls are about other streams: nothing goes before this test.
  if (!(id == streamId_)) return;
  if (streamRecord()) handleProbeMapping();
}

void ZebEchoEgressStreamTransmitterSm::handleProbeMapping() {
  RIX_ASSERT(!!transmitterList(), egressStream_);
  Rix::sweepKeys(transmitterList()->transmitterIterator(),
                 [this](Rix::String8 const& name) { handleProbeMapping(name); });
}

void ZebEchoEgressStreamTransmitterSm::handleProbeMapping(Rix::String8 const& name) {
  RIX_ASSERT(!!transmitterList(), egressStream_);
  Rix::Ptr<ClientProbeStreamRecord> const record = streamRecord();
  if (!record) return;
  if (transmitterList()->transmitterHas(name)) {
    record->probeNameIs(name, true);
  } else {
    record->probeNameDel(name);
  }
}

void ZebEchoEgressStreamTransmitterSm::doCleanup() {
  Rix::Ptr<ClientProbeStreamRecord> const record = streamRecord();
  if (record) record->probeNameDelAll();
}

ClientProbeStreamRecord* ZebEchoEgressStreamTransmitterSm::streamRecord() {
  return probeStreamTable_ ? probeStreamTable_->streamRecord(streamId_) : nullptr;
}

}  // namespace Zeb
