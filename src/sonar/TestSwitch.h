// A switch, its tables and its probes without any kernel, for tests on virtual time.
#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "sonar/SwitchView.h"
#include "sonar/Tables.h"

namespace Sonar {

inline Netkit::IpAddr ip(U8 last) {
  return Netkit::IpAddr(0x0a000000U + last);
}
inline Netkit::IntfId intf(std::string const& name) {
  return Netkit::IntfId(name);
}

/// All links are up and everything has a route, but for what a test takes away.
class TestSwitch : public SwitchView {
 public:
  std::set<std::string> downLinks;
  std::set<Netkit::IpAddr> unrouted;
  std::map<std::string, Netkit::IpAddr> addresses;
  std::string egress;

  bool linkUp(Netkit::IntfId interface) const override { return !downLinks.contains(interface.stringValue()); }
  bool hasRoute(Netkit::IpAddr address) const override { return !unrouted.contains(address); }
  Netkit::IpAddr sourceAddress(Netkit::IntfId interface) const override {
    auto const known = addresses.find(interface.stringValue());
    return known == addresses.end() ? Netkit::IpAddr() : known->second;
  }
  Netkit::IntfId egressIntf(Netkit::IpAddr, Netkit::IpAddr, U16) const override { return Netkit::IntfId(egress); }
  std::vector<Netkit::IpAddr> localAddresses() const override {
    std::vector<Netkit::IpAddr> result;
    for (auto const& [name, address] : addresses) result.push_back(address);
    return result;
  }
  bool isLocal(Netkit::IpAddr address) const override {
    return std::any_of(addresses.begin(), addresses.end(), [&](auto const& entry) { return entry.second == address; });
  }
};

class TestIngressTable : public IngressTable {
 public:
  std::map<IngressStream, IngressStreamStatisticsTableEntry> rows;
  std::size_t writes = 0;
  std::size_t deletions = 0;

  void rowIs(IngressStreamStatisticsTableEntry const& row) override {
    rows[row.key] = row;
    ++writes;
  }
  void rowDel(IngressStream const& key) override {
    rows.erase(key);
    ++deletions;
  }
};

class TestEgressTable : public EgressTable {
 public:
  std::map<EgressStream, U64> rows;
  std::vector<EgressStream> deleted;

  void rowIs(EgressStreamTable const& row) override { rows[row.key] = row.numProbesTx; }
  void rowDel(EgressStream const& key) override {
    rows.erase(key);
    deleted.push_back(key);
  }
};

class TestTransmitterMap : public StreamTransmitterMap {
 public:
  std::map<EgressStream, std::set<std::string>> streams;

  void transmittersAre(EgressStream const& stream, std::set<std::string> const& transmitters) override {
    streams[stream] = transmitters;
  }
  void streamDel(EgressStream const& stream) override { streams.erase(stream); }
};

}  // namespace Sonar
