// What the records promise beyond their attributes: defaults, what is present from the start, find or make.
#include <gtest/gtest.h>

#include "model/gen/Loss.h"
#include "model/gen/Sonar.h"
#include "model/gen/Status.h"
#include "runtime/Type.h"

namespace Zeb {
namespace {

ProbeStreamId streamOf(U16 port) {
  ProbeStreamId::Fields fields;
  fields.streamPort = port;
  return ProbeStreamId(fields);
}

TEST(StreamLossRecord, HasItsTypesDefaultsUntilTheFirstAnalysis) {
  auto const losses = Rix::make<ProbeLossStatus>();
  StreamLossRecord const& record =
      *losses->lossRecordIs(streamOf(1), "leaf1", "leaf2", Netkit::IpAddr(0x0a000002), 1.5e9);
  EXPECT_EQ(record.minLossTtl(), 0);
  EXPECT_EQ(record.minNoLossTtl(), 0);
  EXPECT_TRUE(record.minLossDeviceId().isEmpty());
  EXPECT_EQ(record.lossRecordType(), LossRecordType::lossRecordUnknown);
  EXPECT_EQ(record.updateCounter(), 0u);
  EXPECT_EQ(record.srcHostname(), "leaf1");
  EXPECT_EQ(record.dstHostname(), "leaf2");
  EXPECT_EQ(record.dstIp(), Netkit::IpAddr(0x0a000002));
  EXPECT_EQ(record.createTime(), 1.5e9);
}

TEST(StreamLossRecord, FindsTheTtlAndTheHostThatStandAndNeverResetsThem) {
  auto const losses = Rix::make<ProbeLossStatus>();
  StreamLossRecord* const record = losses->lossRecordIs(streamOf(1), "", "", Netkit::IpAddr(), 0);
  StreamTtlLossRecord* const ttl = record->streamTtlLossRecordIs(3);
  ttl->lossyIs(true);
  Fabric::SystemId const id(Netkit::EthAddr({2, 0, 0, 0, 0, 1}));
  SwitchHostLossRecord* const host = ttl->hostLossRecordIs(id);
  host->lossCountIs(7);
  EXPECT_EQ(record->streamTtlLossRecordIs(3), ttl);
  EXPECT_TRUE(ttl->lossy());
  EXPECT_EQ(ttl->hostLossRecordIs(id), host);
  EXPECT_EQ(host->lossCount(), 7u);
}

TEST(DevicePairLossRecord, RefusesANullMember) {
  auto const losses = Rix::make<ProbeLossStatus>();
  DevicePairLossRecord* const pair = losses->devicePairLossRecordIs(DevicePair());
  EXPECT_THROW(pair->streamLossRecordIs(nullptr), Rix::RangeException);
  EXPECT_EQ(pair->streamLossRecords(), 0u);
}

TEST(ZebStatus, HoldsLossesAndThePairIndexFromItsConstruction) {
  auto const status = Rix::make<ZebStatus>();
  EXPECT_NE(status->lossStatus(), nullptr);
  EXPECT_NE(status->pairStreamStatus(), nullptr);
}

TEST(ZebSonarStatusV1, HoldsItsTableFromItsConstruction) {
  EXPECT_NE(Rix::make<ZebSonarStatusV1>()->probeStreamTable(), nullptr);
}

TEST(ProbeStreamEventsQueue, GoesFirstInFirstOutUnderRisingIndices) {
  auto const queue = Rix::make<ProbeStreamEventsQueue>(streamOf(1));
  for (U8 ttl = 1; ttl <= 9; ++ttl) {
    ProbeStreamEventRecord record;
    record.ttl = ttl;
    queue->eventRecordEnq(record);
  }
  EXPECT_EQ(queue->eventRecordMetadata(), (Rix::LinkQueueMetadata{0, 9}));
  EXPECT_EQ(queue->eventRecordDeq().ttl, 1);
  EXPECT_EQ(queue->eventRecords(), 8u);
  queue->eventRecordDelAll();
  EXPECT_EQ(queue->eventRecords(), 0u);
  EXPECT_EQ(queue->eventRecordDeq().ttl, 0);
  EXPECT_EQ(queue->eventRecordMetadata(), (Rix::LinkQueueMetadata{9, 9}));
}

TEST(LinkQueue, GoesOnAcrossTheEndOfItsIndexSpace) {
  Rix::LinkQueue<U8> queue;
  queue.metadataIs({0xfffffff0u, 0xfffffff0u});
  for (int i = 0; i < 20; ++i) queue.enq(static_cast<U8>(i));
  EXPECT_EQ(queue.metadata(), (Rix::LinkQueueMetadata{0xfffffff0u, 4}));
  EXPECT_EQ(queue.deq(), 0);
  queue.is(2, 99);
  U8 third = 0;
  queue.forEach([&, place = 0](U8 value) mutable { third = place++ == 17 ? value : third; });
  EXPECT_EQ(third, 99);
}

TEST(LinkQueue, RaisesWhenItsIndexSpaceIsFull) {
  Rix::LinkQueue<U8, U8> queue;
  for (int i = 0; i < 255; ++i) queue.enq(1);
  EXPECT_EQ(queue.size(), 255u);
  try {
    queue.enq(1);
    FAIL() << "expected RangeException";
  } catch (Rix::RangeException const& exception) {
    EXPECT_STREQ(exception.what(), "linkqueue index space full");
  }
  queue.deq();
  queue.enq(2);
  EXPECT_EQ(queue.size(), 255u);
}

TEST(Types, RecordsAreKnownByTheirNamesAndMadeByThem) {
  for (char const* name : {"Zeb::ZebConfig", "Zeb::ZebStatus", "Zeb::ClientConfig", "Zeb::ZebSonarStatusV1",
                           "Zeb::ZebSonarConfigV1", "Sonar::Config", "Sonar::Status"}) {
    Rix::Type const* const type = Rix::typeByName(name);
    ASSERT_NE(type, nullptr) << name;
    EXPECT_TRUE(type->make("x")) << name;
  }
  EXPECT_EQ(Rix::typeByName("Zeb::Nothing"), nullptr);
}

}  // namespace
}  // namespace Zeb
