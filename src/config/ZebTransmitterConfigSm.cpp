// From an order to a transmitter, attribute by attribute.
#include "config/ZebTransmitterConfigSm.h"

#include "runtime/Trace.h"

namespace Zeb {

namespace {
Rix::TraceHandle traceHandle("ZebTransmitterConfigSm");

constexpr Sonar::SourcePortConfig listedPorts{2, 0, 0, 0};
constexpr Sonar::SourcePortConfig noPorts{0, 1, 0, 0};
constexpr U32 rateMarker = 1;
}  // namespace

ZebTransmitterConfigSm::ZebTransmitterConfigSm(Rix::Ptr<ZebTransmitterConfig const> const& zebTransmitterConfig,
                                               Rix::Ptr<Sonar::TransmitterConfig> const& transmitterConfig)
    : transmitterConfig_(transmitterConfig) {
  zebTransmitterConfig_.notifierIs(zebTransmitterConfig);
  handleInitialized();
}

void ZebTransmitterConfigSm::handleInitialized() {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebTransmitterConfigSm::handleInitialized()"
                << " transmitter=" << zebTransmitterConfig_->name());
  if (initialized()) return;
  initializedIs(true);
  sync();
}

void ZebTransmitterConfigSm::sync() {
  RIX_TRACE(traceHandle, 8,
            "void Zeb::ZebTransmitterConfigSm::sync()"
                << " transmitter=" << zebTransmitterConfig_->name());
  syncSourceInterface();
  syncIpDest();
  syncHopsRate();
  handlePort();
  handleEnabled();
}

void ZebTransmitterConfigSm::handleEnabled() {
  RIX_TRACE(traceHandle, 8, " enabled:" << zebTransmitterConfig_->enabled());
  transmitterConfig_->enabledIs(zebTransmitterConfig_->enabled());
}

void ZebTransmitterConfigSm::handlePort() {
  Rix::sweepKeys(zebTransmitterConfig_->portIterator(), [this](U16 port) { handlePort(port); });
}

void ZebTransmitterConfigSm::handlePort(U16 port) {
  if (!initialized()) return;
  bool const present = zebTransmitterConfig_->port(port);
  RIX_TRACE(traceHandle, 8, "port: " << port << " present: " << present);
  if (present) {
    transmitterConfig_->sourcePortConfigIs(listedPorts);
    transmitterConfig_->optionalSourcePortListIs(port, true);
  } else {
    transmitterConfig_->optionalSourcePortListDel(port);
    if (transmitterConfig_->optionalSourcePortLists() == 0) transmitterConfig_->sourcePortConfigIs(noPorts);
  }
}

void ZebTransmitterConfigSm::syncSourceInterface() {
  if (!initialized()) return;
  Rix::sweepKeys(zebTransmitterConfig_->sourceInterfaceIterator(),
                 [this](Netkit::IntfId intf) { addSourceInterface(intf); });
  Rix::sweepKeys(transmitterConfig_->sourceInterfaceIterator(),
                 [this](Netkit::IntfId intf) { removeSourceInterface(intf); });
}

void ZebTransmitterConfigSm::syncSourceInterface(Netkit::IntfId intf) {
  if (!initialized()) return;
  if (zebTransmitterConfig_->sourceInterfaceHas(intf)) addSourceInterface(intf);
  if (transmitterConfig_->sourceInterfaceHas(intf)) removeSourceInterface(intf);
}

void ZebTransmitterConfigSm::addSourceInterface(Netkit::IntfId intf) {
  if (!transmitterConfig_->sourceInterface(intf)) transmitterConfig_->sourceInterfaceIs(intf, true);
}

void ZebTransmitterConfigSm::removeSourceInterface(Netkit::IntfId intf) {
  if (!zebTransmitterConfig_->sourceInterface(intf)) transmitterConfig_->sourceInterfaceDel(intf);
}

void ZebTransmitterConfigSm::syncIpDest() {
  if (!initialized()) return;
  Rix::sweepKeys(zebTransmitterConfig_->ipDestIterator(), [this](Netkit::IpAddr ip) { addIpDest(ip); });
  Rix::sweepKeys(transmitterConfig_->ipDestIterator(), [this](Netkit::IpAddr ip) { removeIpDest(ip); });
}

void ZebTransmitterConfigSm::syncIpDest(Netkit::IpAddr ip) {
  if (!initialized()) return;
  if (zebTransmitterConfig_->ipDestHas(ip)) addIpDest(ip);
  if (transmitterConfig_->ipDestHas(ip)) removeIpDest(ip);
}

void ZebTransmitterConfigSm::addIpDest(Netkit::IpAddr ip) {
  if (transmitterConfig_->ipDest(ip)) return;
  transmitterConfig_->ipDestIs(ip, true);
  transmitterConfig_->fullIpDestIs(ip, true);
}

void ZebTransmitterConfigSm::removeIpDest(Netkit::IpAddr ip) {
  if (zebTransmitterConfig_->ipDest(ip)) return;
  transmitterConfig_->ipDestDel(ip);
  transmitterConfig_->fullIpDestDel(ip);
}

void ZebTransmitterConfigSm::syncHopsRate() {
  if (!initialized()) return;
  Rix::sweepKeys(zebTransmitterConfig_->hopsRateIterator(), [this](U16 hop) { addHopsRate(hop); });
  Rix::sweepKeys(transmitterConfig_->hopsRateIterator(), [this](U16 hop) { removeHopsRate(hop); });
}

void ZebTransmitterConfigSm::syncHopsRate(U16 hop) {
  if (!initialized()) return;
  if (zebTransmitterConfig_->hopsRateHas(hop)) addHopsRate(hop);
  if (transmitterConfig_->hopsRateHas(hop)) removeHopsRate(hop);
}

void ZebTransmitterConfigSm::addHopsRate(U16 hop) {
  if (transmitterConfig_->hopsRate(hop) != Sonar::ProbeRate()) return;
  ZebProbeRate const rate = zebTransmitterConfig_->hopsRate(hop);
  transmitterConfig_->hopsRateIs(hop, {rate.rate, rate.scale, rateMarker});
}

void ZebTransmitterConfigSm::removeHopsRate(U16 hop) {
  if (zebTransmitterConfig_->hopsRate(hop) == ZebProbeRate()) transmitterConfig_->hopsRateDel(hop);
}

Rix::Ptr<ZebTransmitterConfigSm> zebTransmitterConfigSmFactory(
    Rix::Ptr<ZebTransmitterConfig const> const& zebTransmitterConfig,
    Rix::Ptr<Sonar::TransmitterConfig> const& transmitterConfig) {
  return Rix::make<ZebTransmitterConfigSm>(zebTransmitterConfig, transmitterConfig);
}

}  // namespace Zeb
