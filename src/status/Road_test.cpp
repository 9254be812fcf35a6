// From a row that the probing service writes to the central record: tables, exporters, client table, collector.
#include "status/CollectorTest.h"
#include "status/ZebEchoStatusExporterSm.h"

namespace Zeb::StatusTest {
namespace {

class Road : public Switch {
 protected:
  Road() { dir->entityPtrIs(switchId(2).stringValue(), zebEchoStatus); }

  Rix::Ptr<ZebStatus> zebStatus = Rix::make<ZebStatus>();
  Rix::Ptr<Rix::Dir> dir = Rix::make<Rix::Dir>("waveStatusDir");
  Rix::Ptr<ProbeStreamTable> streamTable = Rix::make<ProbeStreamTable>("streams");
  Rix::Ptr<ZebEchoStatusExporterSm> exporter =
      zebEchoStatusExporterSmFactory(echoStatus, localStatus, zebEchoStatus, ipStatus);
  Rix::Ptr<ZebCollectorSm> collector = zebCollectorSmFactory(zebStatus, dir, streamTable);
};

TEST_F(Road, ARowOfReceivedProbesReachesTheCentralRecordAsAChange) {
  zebStatus->clientIs(switchId(2))->reachabilityGroupIs("leaves")->interfaceIpIs("lo", destinationIp);
  ipStatus->intfStatusIs(Netkit::IntfId("Ethernet49/1"))->addressIs(Netkit::IpAddr(0x0a010203));
  auto listener = Rix::make<SwitchRecordSm>(streamTable, streamId(1), U8{4}, switchId(2));
  runTo(100);
  auto row = ingressRow(ingressKey(1, 4, "Ethernet49/1"), 7);
  row.epoch = {3};
  row.currentSequenceNumber = 9;
  ingressRowIs(row);
  runTo(100.1);
  auto* stream = streamTable->streamRecord(streamId(1));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->destinationId(), switchId(2));
  auto* record = stream->ingressRecord(4)->switchIngressRecord(switchId(2));
  EXPECT_EQ(record->ingressIntf(), Netkit::IntfId("Ethernet49/1"));
  EXPECT_EQ(record->ingressIntfIp(), Netkit::IpAddr(0x0a010203));
  EXPECT_EQ(record->ingressStats()->probesReceived(), 7u);
  EXPECT_EQ(record->ingressStats()->epoch(), Sonar::Epoch{3});
  EXPECT_EQ(record->ingressStats()->currentSequenceNumber(), 9u);
  EXPECT_EQ(listener->heard,
            (Heard{"ingressIntf", "ingressIntfIp", "epoch", "ingressTtl", "currentSequenceNumber", "probesReceived"}));
  listener->heard.clear();
  row.dormant = true;
  row.probesLost = 2;
  ingressRowIs(row);
  // A new stream's row rings the bell for all.
  ingressRowIs(ingressRow(ingressKey(99, 1), 1));
  runTo(100.2);
  EXPECT_EQ(listener->heard, (Heard{"probesLost", "dormant"}));
  EXPECT_TRUE(record->dormant());
}

TEST_F(Road, ASentStreamComesWithItsProbeNamesAndItsEndLeavesAnEmptyCentralRecord) {
  echoStatus->streamTransmitterMapIs(egressKey(1, 9))->transmitterIs("p1:leaves", true);
  runTo(100);
  egressRowIs(egressKey(1, 3), 5);
  egressRowIs(egressKey(1, 4), 6);
  runTo(100.1);
  auto* stream = streamTable->streamRecord(streamId(1));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->sourceId(), switchId(2));
  EXPECT_TRUE(stream->probeName("p1:leaves"));
  EXPECT_EQ(stream->egressRecord(3)->egressStats()->numProbesTx(), 5u);
  EXPECT_EQ(stream->egressRecord(4)->egressIntf(), Netkit::IntfId("eth1"));
  EXPECT_EQ(stream->egressRecord(4)->egressStats()->epoch(), Sonar::Epoch{});
  egressRowIs(egressKey(1, 4), 60);
  egressRowDel(egressKey(1, 3));
  runTo(105.1);
  EXPECT_EQ(stream->egressRecord(3), nullptr);
  EXPECT_EQ(stream->egressRecord(4)->egressStats()->numProbesTx(), 60u);
  egressRowDel(egressKey(1, 4));
  runTo(110.1);
  EXPECT_EQ(collector->clientSm(switchId(2))->streamRecord(streamId(1)), nullptr);
  EXPECT_EQ(streamTable->streamRecord(streamId(1)), stream);
  EXPECT_EQ(stream->egressRecords(), 0u);
}

}  // namespace
}  // namespace Zeb::StatusTest
