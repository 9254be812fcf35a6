// What the tests of this folder share: an activity on virtual time, the two shared tables with their writers, and the
// records of one switch.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/SonarLocalStatus.h"
#include "model/gen/Platform.h"
#include "model/gen/ProbeStream.h"
#include "model/gen/Sonar.h"
#include "runtime/Activity.h"
#include "runtime/ShelfMemory.h"
#include "runtime/ShelfWords.h"
#include "runtime/Trace.h"

namespace Zeb::StatusTest {

inline constexpr Netkit::IpAddr sourceIp{0x0a000001};
inline constexpr Netkit::IpAddr destinationIp{0x0a000002};

// A row's key of the stream with this tag.
template <class Key>
Key streamKey(U32 tag, U8 ttl) {
  Key key;
  key.srcIp = sourceIp;
  key.dstIp = destinationIp;
  key.streamTag = tag;
  key.ttl = ttl;
  return key;
}
inline Sonar::EgressStream egressKey(U32 tag, U8 ttl, std::string_view intf = "eth1") {
  auto key = streamKey<Sonar::EgressStream>(tag, ttl);
  key.egressIntf = Netkit::IntfId(intf);
  return key;
}
inline Sonar::IngressStream ingressKey(U32 tag, U8 ttl, std::string_view intf = "eth2", U8 discriminator = 0) {
  auto key = streamKey<Sonar::IngressStream>(tag, ttl);
  key.ingressIntf = Netkit::IntfId(intf);
  key.discriminator = discriminator;
  return key;
}
inline ProbeStreamId streamId(U32 tag) {
  return egressStreamToStreamId(egressKey(tag, 0));
}

inline Sonar::IngressStreamStatisticsTableEntry ingressRow(Sonar::IngressStream const& key, U64 probesReceived) {
  Sonar::IngressStreamStatisticsTableEntry row;
  row.key = key;
  row.probesReceived = probesReceived;
  return row;
}

// Makes the header of a mapped table unreadable, as a fault of the machine or of another program would.
inline void spoil(Shelf::MemoryStorage& storage, std::string const& path) {
  auto const mapping = storage.openForReading(path);
  Shelf::storeWord(&mapping->words()[Shelf::Layout::kMagicAt], 0);
}

class Switch : public testing::Test {
 protected:
  Switch() {
    Vesta::Platform::debugSinkIs([this](std::string_view line) { debugLines.emplace_back(line); });
    Rix::traceSinkIs([this](Rix::TraceLine const& line) { traces.emplace_back(line.text); });
    Rix::traceLevelsIs("*", ~0U);
    localStatus->poll();
  }
  ~Switch() override {
    Rix::traceLevelsIs("*", 0);
    Rix::traceSinkIs({});
    Vesta::Platform::debugSinkIs({});
  }

  void runTo(double now) {
    time.nowIs(now);
    activity.runDueTimers();
  }
  void egressRowIs(Sonar::EgressStream const& key, U64 numProbesTx) {
    egressTable.rowIs({key, numProbesTx});
    localStatus->poll();
  }
  void egressRowDel(Sonar::EgressStream const& key) {
    egressTable.rowDel(key);
    localStatus->poll();
  }
  void ingressRowIs(Sonar::IngressStreamStatisticsTableEntry const& row) {
    ingressTable.rowIs(row);
    localStatus->poll();
  }
  void ingressRowDel(Sonar::IngressStream const& key) {
    ingressTable.rowDel(key);
    localStatus->poll();
  }
  ClientProbeStreamTable& clientTable() { return *zebEchoStatus->probeStreamTable(); }

  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  std::vector<std::string> debugLines;
  std::vector<std::string> traces;
  Shelf::MemoryStorage storage;
  Shelf::RootPath const root{"/tables"};
  Sonar::EgressStreamWriter egressTable{
      storage, root, Sonar::egressStreamTableName, Sonar::egressStreamTableType, {.capacity = 64}};
  Sonar::IngressStreamWriter ingressTable{storage,
                                          root,
                                          Sonar::ingressStreamStatisticsTableName,
                                          Sonar::ingressStreamStatisticsTableType,
                                          {.capacity = 64}};
  Rix::Ptr<Sonar::LocalStatus> localStatus = Rix::make<Sonar::LocalStatus>(storage, root);
  Rix::Ptr<Sonar::Status> echoStatus = Rix::make<Sonar::Status>();
  Rix::Ptr<ZebSonarStatusV1> zebEchoStatus = Rix::make<ZebSonarStatusV1>();
  Rix::Ptr<Ip::Status> ipStatus = Rix::make<Ip::Status>();
};

}  // namespace Zeb::StatusTest
