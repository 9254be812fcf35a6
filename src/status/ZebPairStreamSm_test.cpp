// Which streams the index lists from one switch to another, and which outlive their pair.
#include "status/ZebPairStreamSm.h"

#include "status/CollectorTest.h"

namespace Zeb::StatusTest {
namespace {

using testing::ElementsAre;

struct PairStream : testing::Test {
  std::vector<std::string> traces;
  Rix::Ptr<ProbeStreamTable> table = Rix::make<ProbeStreamTable>("streams");
  Rix::Ptr<PairStreamStatus> index = Rix::make<PairStreamStatus>();
  Rix::Ptr<ZebPairStreamSm> pairStreamSm;

  PairStream() {
    Rix::traceSinkIs([this](Rix::TraceLine const& line) { traces.emplace_back(line.text); });
  }
  ~PairStream() override {
    Rix::traceLevelsIs("*", 0);
    Rix::traceSinkIs({});
  }
  void start() {
    pairStreamSm = zebPairStreamSmFactory(table, index);
    pairStreamSm->hasNotificationActiveIs(true);
  }
  ProbeStreamRecord& stream(U32 tag) { return *table->streamRecordIs(streamId(tag)); }
  ProbeStreamRecord& stream(U32 tag, U8 source, U8 destination) {
    stream(tag).sourceIdIs(switchId(source));
    stream(tag).destinationIdIs(switchId(destination));
    return stream(tag);
  }
  bool lists(U8 source, U8 destination, U32 tag) {
    auto const* const from = index->source(switchId(source));
    auto const* const to = from ? from->destination(switchId(destination)) : nullptr;
    return to && to->stream(streamId(tag));
  }
};

TEST_F(PairStream, AStreamEntersItsPairOnceBothEndsAreKnown) {
  start();
  stream(1).sourceIdIs(switchId(1));
  EXPECT_EQ(index->sources(), 0u);
  stream(1).destinationIdIs(switchId(2));
  EXPECT_TRUE(lists(1, 2, 1));
  stream(2).destinationIdIs(switchId(2));
  EXPECT_EQ(index->source(switchId(1))->destination(switchId(2))->streams(), 1u);
  stream(2).sourceIdIs(switchId(1));
  EXPECT_TRUE(lists(1, 2, 2));
}

TEST_F(PairStream, StreamsThatStandAtTheStartAreEntered) {
  stream(1, 1, 2);
  stream(2, 2, 1);
  stream(3).sourceIdIs(switchId(1));
  start();
  EXPECT_EQ(pairStreamSm->streamRecords(), 3u);
  EXPECT_TRUE(lists(1, 2, 1));
  EXPECT_TRUE(lists(2, 1, 2));
  EXPECT_EQ(index->sources(), 2u);
  EXPECT_EQ(index->source(switchId(1))->destinations(), 1u);
}

TEST_F(PairStream, AStreamWhoseDestinationChangesStandsUnderBothPairsAndOutlivesItselfUnderTheOld) {
  start();
  stream(1, 1, 2);
  stream(1).destinationIdIs(switchId(3));
  EXPECT_TRUE(lists(1, 2, 1));
  EXPECT_TRUE(lists(1, 3, 1));
  pairStreamSm = nullptr;
  EXPECT_TRUE(lists(1, 2, 1));
  EXPECT_FALSE(lists(1, 3, 1));
  EXPECT_EQ(index->source(switchId(1))->destinations(), 1u);
}

TEST_F(PairStream, AStreamWhoseSourceChangesStaysUnderTheOldSourceToo) {
  start();
  stream(1, 1, 2);
  stream(1).sourceIdIs(switchId(3));
  EXPECT_TRUE(lists(1, 2, 1));
  EXPECT_TRUE(lists(3, 2, 1));
  pairStreamSm = nullptr;
  EXPECT_TRUE(lists(1, 2, 1));
  EXPECT_EQ(index->source(switchId(3)), nullptr);
}

TEST_F(PairStream, AnEndThatHasBecomeUnknownLeavesTheStreamWhereItStands) {
  start();
  stream(1, 1, 2);
  stream(1).destinationIdIs(Fabric::SystemId());
  EXPECT_TRUE(lists(1, 2, 1));
  pairStreamSm = nullptr;
  EXPECT_TRUE(lists(1, 2, 1));
}

TEST_F(PairStream, TheEndsOfReactorsTakeStreamsThenPairsThenSources) {
  start();
  stream(1, 1, 2);
  stream(2, 1, 2);
  stream(3, 1, 3);
  pairStreamSm->streamRecordDel(streamId(1));
  EXPECT_FALSE(lists(1, 2, 1));
  EXPECT_TRUE(lists(1, 2, 2));
  pairStreamSm->streamRecordDel(streamId(2));
  EXPECT_EQ(index->source(switchId(1))->destination(switchId(2)), nullptr);
  EXPECT_TRUE(lists(1, 3, 3));
  pairStreamSm->streamRecordDel(streamId(3));
  EXPECT_EQ(index->sources(), 0u);
}

TEST_F(PairStream, AStreamThatLeavesTheTableLeavesTheIndex) {
  start();
  stream(1, 1, 2);
  table->streamRecordDel(streamId(1));
  EXPECT_EQ(pairStreamSm->streamRecords(), 0u);
  EXPECT_EQ(index->sources(), 0u);
}

TEST_F(PairStream, ASourceThatHasLostItsPairGoesWithTheStream) {
  start();
  stream(1, 1, 2);
  index->source(switchId(1))->destinationDel(switchId(2));
  pairStreamSm->streamRecordDel(streamId(1));
  EXPECT_EQ(index->sources(), 0u);
  stream(2, 1, 2);
  index->sourceDel(switchId(1));
  pairStreamSm->streamRecordDel(streamId(2));
  EXPECT_EQ(index->sources(), 0u);
}

TEST_F(PairStream, HandlingAStreamTwiceChangesNothing) {
  start();
  stream(1, 1, 2);
  pairStreamSm->streamRecord(streamId(1))->handleId();
  EXPECT_EQ(index->source(switchId(1))->destination(switchId(2))->streams(), 1u);
}

TEST_F(PairStream, ItsEndEmptiesTheIndexAndTheNextOneFillsItAgain) {
  start();
  stream(1, 1, 2);
  stream(2, 2, 1);
  pairStreamSm = nullptr;
  EXPECT_EQ(index->sources(), 0u);
  EXPECT_EQ(table->notifieeCount(), 0u);
  EXPECT_EQ(stream(1).notifieeCount(), 0u);
  start();
  EXPECT_TRUE(lists(1, 2, 1));
  EXPECT_TRUE(lists(2, 1, 2));
}

TEST_F(PairStream, ANullStreamRecordIsARangeException) {
  start();
  try {
    pairStreamSm->streamRecordIs(nullptr);
    FAIL() << "expected RangeException";
  } catch (Rix::RangeException const& exception) {
    EXPECT_STREQ(exception.what(),
                 "null _streamRecord parameter to mutator for Zeb::ZebPairStreamSm::streamRecord not allowed\"");
  }
}

TEST_F(PairStream, TracesEachLookAndTheEnd) {
  Rix::traceLevelsIs("ZebPairStreamSm", ~0U);
  start();
  stream(1).sourceIdIs(switchId(1));
  pairStreamSm = nullptr;
  std::string const id = streamId(1).stringValue();
  EXPECT_THAT(traces,
              ElementsAre("streamId=" + id + " srcId=00:00:00:00:00:00 dstId=00:00:00:00:00:00",
                          "streamId=" + id + " srcId=02:00:00:00:00:01 dstId=00:00:00:00:00:00", "streamId=" + id));
}

// Behind the collector: what switches report decides the pair.
struct PairStreamOfReports : testing::Test {
  Rix::Ptr<ZebStatus> zebStatus = Rix::make<ZebStatus>();
  Rix::Ptr<Rix::Dir> dir = Rix::make<Rix::Dir>("waveStatusDir");
  Rix::Ptr<ProbeStreamTable> table = Rix::make<ProbeStreamTable>("streams");
  SwitchStatus sender{dir, 1};
  SwitchStatus receiver{dir, 2};
  SwitchStatus other{dir, 3};
  Rix::Ptr<ZebCollectorSm> collector = zebCollectorSmFactory(zebStatus, dir, table);
  Rix::Ptr<ZebPairStreamSm> pairStreamSm = zebPairStreamSmFactory(table, zebStatus->pairStreamStatus());

  PairStreamOfReports() {
    for (auto* reporter : {&sender, &receiver, &other}) reporter->connect();
  }
  void addressIs(SwitchStatus const& owner, Netkit::IpAddr address) {
    zebStatus->clientIs(owner.id())->reachabilityGroupIs("leaves")->interfaceIpIs("lo", address);
  }
  U32 streamsTo(SwitchStatus const& destination) {
    auto const* const from = zebStatus->pairStreamStatus()->source(sender.id());
    auto const* const to = from ? from->destination(destination.id()) : nullptr;
    return to ? to->streams() : 0;
  }
};

TEST_F(PairStreamOfReports, AStreamThatIsOnlySentHasNoDestinationAndIsInNoPairUntilItArrives) {
  addressIs(receiver, destinationIp);
  sender.egressIs(1, 4, 10);
  EXPECT_TRUE(table->streamRecord(streamId(1))->destinationId().isEmpty());
  EXPECT_EQ(zebStatus->pairStreamStatus()->sources(), 0u);
  receiver.ingressIs(1, 4, 7);
  EXPECT_EQ(streamsTo(receiver), 1u);
}

TEST_F(PairStreamOfReports, AStreamThatHasEndedStaysListedAndOneThatMovedIsListedTwice) {
  addressIs(receiver, destinationIp);
  sender.egressIs(1, 4, 10);
  receiver.ingressIs(1, 4, 7);
  receiver.ingressDel(1, 4);
  sender.egressDel(1, 4);
  EXPECT_EQ(streamsTo(receiver), 1u);
  addressIs(receiver, Netkit::IpAddr());
  addressIs(other, destinationIp);
  sender.egressIs(1, 4, 11);
  other.ingressIs(1, 4, 1);
  EXPECT_EQ(streamsTo(receiver), 1u);
  EXPECT_EQ(streamsTo(other), 1u);
}

}  // namespace
}  // namespace Zeb::StatusTest
