// What the publisher's tests share: a centre with its records, intake, group builder and publisher, and the operator,
// the switches and the fabric that write to it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/OrdersReading.h"
#include "config/ZebConfigMountSm.h"
#include "config/ZebGroupBuilderSm.h"
#include "config/ZebPublisherSm.h"
#include "runtime/Trace.h"

namespace Zeb::ConfigTest {

inline Fabric::SystemId switchId(U8 number) {
  return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, 0, number}));
}
inline Rix::Name switchName(U8 number) {
  return switchId(number).stringValue();
}
// An address of its own for each switch and interface.
inline Netkit::IpAddr address(U8 number, U8 interface = 0, U8 version = 0) {
  return Netkit::IpAddr(0x0a000000U | static_cast<U32>(version << 16 | number << 8 | interface));
}

class Centre {
 public:
  // The service runs from the start.
  Centre() { enabledIs(true); }

  void enabledIs(bool enabled) {
    if (enabled) {
      intake.is(Rix::Ptr<Rix::Dir const>(clientConfigDir), status);
      groupBuilder.is(Rix::Ptr<ZebConfig const>(config), status);
      publisher.is(Rix::Ptr<ZebConfig const>(config), Rix::Ptr<ZebStatus const>(status), waveConfigDir);
    } else {
      intake.del();
      groupBuilder.del();
      publisher.del();
    }
  }

  // The operator adds a probe, complete from the start.
  ZebProbeConfig* probeIs(Rix::Name const& name, char const* srcGroup, char const* dstGroup, U16 rate = 10,
                          U8 distance = 2, std::vector<U16> const& ports = {33434}) const {
    auto probe = Rix::make<ZebProbeConfig>(name);
    probe->srcGroupIs(srcGroup);
    probe->dstGroupIs(dstGroup);
    probe->rateIs(rate);
    probe->distanceIs(distance);
    for (U16 const port : ports) probe->portIs(port, true);
    probe->enabledIs(true);
    config->probeConfigAdopt(probe);
    return probe.get();
  }

  // A switch's report appears at the centre.
  ClientConfig* reportIs(U8 number) const {
    auto report = Rix::make<ClientConfig>();
    clientConfigDir->entityPtrIs(switchName(number), report);
    return report.get();
  }
  void reportDel(U8 number) const { clientConfigDir->entityDel(switchName(number)); }
  ClientConfig* report(U8 number) const {
    return dynamic_cast<ClientConfig*>(clientConfigDir->entityPtr(switchName(number)).get());
  }
  void interfaceIpIs(U8 number, char const* group, Netkit::IpAddr ip, char const* intf = "lo") const {
    report(number)->groupIs(group)->interfaceIpIs(intf, ip);
  }
  // The fabric makes the entity for a switch's orders.
  void ordersReady(U8 number) const { waveConfigDir->entityPtrIs(switchName(number), Rix::make<ZebSonarConfigV1>()); }
  // A switch with orders and a report, which is in these groups with one address.
  void switchIs(U8 number, std::vector<char const*> const& groups) const {
    ordersReady(number);
    reportIs(number);
    for (auto const* group : groups) interfaceIpIs(number, group, address(number));
  }

  ZebSonarConfigV1* orders(U8 number) const {
    return dynamic_cast<ZebSonarConfigV1*>(waveConfigDir->entityPtr(switchName(number)).get());
  }
  ZebTransmitterConfig* order(U8 number, char const* name) const {
    return orders(number) ? orders(number)->transmitter(name) : nullptr;
  }
  ZebPublisherClientSm* client(U8 number) const { return publisher->clientSm(switchId(number)); }
  ZebPublisherClientProbeSm* probe(U8 number, char const* name) const { return client(number)->probeSm(name); }

  Rix::Ptr<ZebConfig> const config = Rix::make<ZebConfig>();
  Rix::Ptr<ZebStatus> const status = Rix::make<ZebStatus>();
  Rix::Ptr<Rix::Dir> const clientConfigDir = Rix::make<Rix::Dir>("configDir");
  Rix::Ptr<Rix::Dir> const waveConfigDir = Rix::make<Rix::Dir>("waveConfigDir");
  Rix::Owned<ZebConfigMountSm> intake;
  Rix::Owned<ZebGroupBuilderSm> groupBuilder;
  Rix::Owned<ZebPublisherSm> publisher;
};

// All that is traced in a scope.
class Traced {
 public:
  Traced() {
    Rix::traceSinkIs([this](Rix::TraceLine const& line) {
      if (line.facility == "ZebPublisherSm") lines.emplace_back(line.text);
    });
    Rix::traceLevelsIs("ZebPublisherSm", ~0U);
  }
  ~Traced() {
    Rix::traceLevelsIs("ZebPublisherSm", 0);
    Rix::traceSinkIs({});
  }
  Traced(Traced const&) = delete;
  Traced& operator=(Traced const&) = delete;

  std::vector<std::string> lines;
};

inline std::string text(Netkit::IpAddr ip) {
  return ip.stringValue();
}
inline std::string text(Netkit::IntfId intf) {
  return intf.stringValue();
}
inline std::string text(U16 number) {
  return std::to_string(number);
}
// The keys of a collection of values, as text and sorted.
template <class Map>
std::vector<std::string> keys(Map const& map) {
  std::vector<std::string> keys;
  Rix::sweepKeys(map, [&keys](auto const& key) { keys.push_back(text(key)); });
  std::sort(keys.begin(), keys.end());
  return keys;
}

}  // namespace Zeb::ConfigTest
