// The path of a failing stream: what draws it anew, and where it has holes.
#include "analysis/ZebStreamEventPathSm.h"

#include "analysis/AnalysisTest.h"

namespace Zeb {
namespace {

struct EventPath : AnalysisTest {
  ProbeStreamId const id = streamId(1, 9);
  ProbeStreamRecord& record = stream(id, 1, 9);
  Rix::Ptr<ZebStreamEventPathSm> sm;

  EventPath() {
    client(1, "leaf1");
    client(5, "spine1");
    client(6, "spine2");
    client(9, "leaf9");
  }
  void start() { sm = zebStreamEventPathSmFactory(&record, status); }
  LossEventStreamPath& path() { return *lossStatus().lossEventStreamPath(id); }

  // The source sends TTL 1 by an interface.
  void source(char const* intf = "uplink1") {
    ProbeStreamEgressRecord* egress = record.egressRecordIs(1, id);
    egress->egressSwitchIdIs(systemId(1));
    egress->egressIntfIs(Netkit::IntfId(intf));
  }
  // A switch reports a TTL on an interface with an address.
  ProbeStreamSwitchIngressRecord& hop(U8 ttl, U8 number, char const* intf, U8 address) {
    ProbeStreamSwitchIngressRecord& host = ingress(record, ttl, number);
    host.ingressIntfIs(Netkit::IntfId(intf));
    host.ingressIntfIpIs(ipAddr(address));
    return host;
  }
  // The same, as the switch that last received.
  ProbeStreamSwitchIngressRecord& activeHop(U8 ttl, U8 number, char const* intf, U8 address) {
    ProbeStreamSwitchIngressRecord& host = hop(ttl, number, intf, address);
    record.ingressRecord(ttl)->currentActiveIngressRecordIs(&host);
    return host;
  }
  DeviceInfo device(char const* hostname, U8 address, char const* intf) {
    return {ipAddr(address), hostname, Netkit::IntfId(intf)};
  }
};

TEST_F(EventPath, ShowsTheSourceAndTheActiveSwitchOfEachTtl) {
  source();
  activeHop(1, 5, "down1", 51);
  activeHop(2, 9, "up1", 91);
  start();
  EXPECT_EQ(path().deviceByHopDistances(), 3u);
  EXPECT_EQ(path().deviceByHopDistance(0), device("leaf1", 1, "uplink1"));
  EXPECT_EQ(path().deviceByHopDistance(1), device("spine1", 51, "down1"));
  EXPECT_EQ(path().deviceByHopDistance(2), device("leaf9", 91, "up1"));
}

TEST_F(EventPath, IsEmptyWithoutAnEgressRecordOfTtlOne) {
  record.egressRecordIs(2, id)->egressSwitchIdIs(systemId(1));
  activeHop(1, 5, "down1", 51);
  start();
  EXPECT_EQ(path().deviceByHopDistances(), 0u);
}

TEST_F(EventPath, IsEmptyWithoutAClientForTheSourceEvenWhereHopsAreKnown) {
  source();
  activeHop(1, 5, "down1", 51);
  status->clientDel(systemId(1));
  start();
  EXPECT_EQ(path().deviceByHopDistances(), 0u);
}

TEST_F(EventPath, AMissingClientOrActiveSwitchOfAHopLeavesAHole) {
  source();
  activeHop(1, 5, "down1", 51);
  hop(2, 6, "down2", 61);
  activeHop(3, 9, "up1", 91);
  status->clientDel(systemId(5));
  start();
  EXPECT_TRUE(path().deviceByHopDistanceHas(0));
  EXPECT_FALSE(path().deviceByHopDistanceHas(1));
  EXPECT_FALSE(path().deviceByHopDistanceHas(2));
  EXPECT_TRUE(path().deviceByHopDistanceHas(3));
}

TEST_F(EventPath, AChangeOnASwitchThatIsNotTheActiveOneDrawsTheSamePath) {
  source();
  activeHop(1, 5, "down1", 51);
  auto& other = hop(1, 6, "down2", 61);
  start();
  TraceLines traces;
  other.ingressIntfIpIs(ipAddr(62));
  EXPECT_EQ(traces.count("doComputePath"), 1);
  EXPECT_EQ(path().deviceByHopDistance(1), device("spine1", 51, "down1"));
}

TEST_F(EventPath, AnotherActiveSwitchOverwritesItsHopAtTheNextDrawingAndDrawsNothingItself) {
  source();
  auto& spine1 = activeHop(3, 5, "down1", 51);
  hop(3, 6, "down2", 61);
  start();
  TraceLines traces;
  record.ingressRecord(3)->currentActiveIngressRecordIs(record.ingressRecord(3)->switchIngressRecord(systemId(6)));
  EXPECT_EQ(traces.count("doComputePath"), 0);
  EXPECT_EQ(path().deviceByHopDistance(3), device("spine1", 51, "down1"));
  spine1.ingressIntfIs(Netkit::IntfId("down9"));
  EXPECT_EQ(path().deviceByHopDistance(3), device("spine2", 61, "down2"));
}

TEST_F(EventPath, ARecordThatComesOrMovesDrawsThePathAnew) {
  start();
  TraceLines traces;
  source();
  EXPECT_EQ(path().deviceByHopDistance(0), device("leaf1", 1, "uplink1"));
  record.egressRecord(1)->egressSwitchIdIs(systemId(6));
  EXPECT_EQ(path().deviceByHopDistance(0), device("spine2", 1, "uplink1"));
  int const drawn = traces.count("doComputePath");
  record.ingressRecordIs(1)->switchIngressRecordIs(systemId(5));
  EXPECT_EQ(traces.count("doComputePath"), drawn + 1);
}

TEST_F(EventPath, AHopWhoseRecordHasGoneKeepsItsLastDevice) {
  source();
  activeHop(1, 5, "down1", 51);
  start();
  record.ingressRecordDel(1);
  source("uplink2");
  EXPECT_EQ(path().deviceByHopDistance(0), device("leaf1", 1, "uplink2"));
  EXPECT_EQ(path().deviceByHopDistance(1), device("spine1", 51, "down1"));
}

TEST_F(EventPath, RecordsThatHaveGoneDrawNothing) {
  source();
  auto& host = activeHop(1, 5, "down1", 51);
  Rix::Ptr<ProbeStreamSwitchIngressRecord> const keptHost = &host;
  Rix::Ptr<ProbeStreamEgressRecord> const keptEgress = record.egressRecord(1);
  start();
  record.ingressRecord(1)->switchIngressRecordDel(systemId(5));
  record.egressRecordDel(1);
  TraceLines traces;
  keptHost->ingressIntfIpIs(ipAddr(77));
  keptEgress->egressIntfIs(Netkit::IntfId("uplink7"));
  EXPECT_EQ(traces.count("doComputePath"), 0);
}

TEST_F(EventPath, IsDrawnOnceAtTheStartAndGoesWithItsMachine) {
  source();
  activeHop(1, 5, "down1", 51);
  TraceLines traces;
  start();
  EXPECT_EQ(traces.count("doComputePath"), 1);
  sm = nullptr;
  EXPECT_EQ(lossStatus().lossEventStreamPaths(), 0u);
}

}  // namespace
}  // namespace Zeb
