// Each state of a row with what leads to it and away from it, on virtual time, and the bell.
#include "sonar/ReceiverRows.h"

#include <gtest/gtest.h>

#include "sonar/TestSwitch.h"

namespace Sonar {
namespace {

// A switch that receives, by default, ttl 1 of a stream from 10.0.0.1 to 10.0.0.2 on eth1, ten probes a second.
class Receiver : public testing::Test {
 protected:
  Receiver() { view.addresses["lo"] = ip(9); }

  ReceivedPacket packet(U64 sequence) const {
    ReceivedPacket result;
    result.flow = {ip(1), ip(2), 20000, probePort};
    result.probe.ttl = ttl;
    result.probe.interval = interval;
    result.probe.robustness = robustness;
    result.probe.epoch = epoch;
    result.probe.sequence = sequence;
    return result;
  }
  void probe(U64 sequence, std::string const& on = "eth1") { rows.received(now, packet(sequence), intf(on)); }

  // Lets time pass in steps of a sweep, while nothing arrives.
  void silence(Rix::Seconds length) {
    for (Rix::Seconds const end = now + length; now + 1e-9 < end;) {
      now += 0.01;
      rows.sweep(now);
    }
  }
  // Probes from `first` to `last`, one each interval, each heard before the sweep.
  void probes(U64 first, U64 last, std::string const& on = "eth1") {
    for (U64 sequence = first; sequence <= last; ++sequence) {
      silence(interval * 1e-6);
      probe(sequence, on);
    }
  }
  void switchChanged() { rows.switchChanged(now); }

  IngressStream key(std::string const& on = "eth1") const {
    IngressStream result;
    result.srcIp = ip(1);
    result.dstIp = ip(2);
    result.ipProto = Netkit::IpProto(17);
    result.streamPort = 20000;
    result.ttl = ttl;
    result.ingressIntf = intf(on);
    return result;
  }
  IngressStreamStatisticsTableEntry row(std::string const& on = "eth1") const { return table.rows.at(key(on)); }
  bool dormant(std::string const& on = "eth1") const { return row(on).dormant; }
  RowState state(std::string const& on = "eth1") const { return rows.state(key(on)).value(); }

  U8 ttl = 1;
  U32 interval = 100000;
  U16 robustness = 5;
  U64 epoch = 3;
  Rix::Seconds now = 1000;
  TestSwitch view;
  TestIngressTable table;
  U64 lastEpoch = 0;
  Notices notices{[this] { return ++lastEpoch; }, 64};
  ReceiverRows rows{view, table, notices, 8};
};

TEST_F(Receiver, aProbeMakesARowWithItsCountersAndNoEthernetAddresses) {
  probe(41);
  IngressStreamStatisticsTableEntry expected;
  expected.key = key();
  expected.epoch = {3};
  expected.probesReceived = 1;
  expected.currentSequenceNumber = 41;
  EXPECT_EQ(row(), expected);
  EXPECT_EQ(row().key.srcEthAddr, Netkit::EthAddr());
  EXPECT_TRUE(row().key.vlanId.isNone());
  probes(42, 43);
  expected.probesReceived = 3;
  expected.lastSequenceNumber = 42;
  expected.currentSequenceNumber = 43;
  EXPECT_EQ(row(), expected);
  EXPECT_EQ(rows.rows(), 1U);
}

TEST_F(Receiver, aStreamThatIsSilentFromTheStartIsNoRow) {
  silence(10);
  EXPECT_TRUE(table.rows.empty());
  EXPECT_EQ(table.writes, 0U);
}

TEST_F(Receiver, aRowFallsDormantAfterRobustnessTimesItsInterval) {
  probe(1);
  silence(0.5);
  EXPECT_FALSE(dormant());
  silence(0.02);
  EXPECT_TRUE(dormant());
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(Receiver, noSilenceOfLessThanATenthOfASecondIsJudged) {
  interval = 1000;
  probe(1);
  silence(0.1);
  EXPECT_FALSE(dormant());
  silence(0.02);
  EXPECT_TRUE(dormant());
}

TEST_F(Receiver, theThresholdFollowsWhatTheLatestProbeSays) {
  probe(1);
  interval = 1000000;
  robustness = 2;
  probe(2);
  silence(1.99);
  EXPECT_FALSE(dormant());
  silence(0.03);
  EXPECT_TRUE(dormant());
}

TEST_F(Receiver, aProbeEndsDormancyAndTheGapIsNotCountedAsLost) {
  probes(1, 5);
  silence(3);
  ASSERT_TRUE(dormant());
  probe(35);
  EXPECT_FALSE(dormant());
  EXPECT_EQ(state(), RowState::live);
  probes(36, 60);
  EXPECT_EQ(row().probesLost, 0U);
  EXPECT_EQ(row().probesReceived, 5U + 26U);
}

TEST_F(Receiver, anySilenceBeyondTheThresholdIsANewBaselineAlsoIfNoSweepSawIt) {
  probe(1);
  now += 5;
  probe(51);
  probes(52, 70);
  EXPECT_EQ(row().probesLost, 0U);
}

TEST_F(Receiver, aGapShorterThanTheThresholdIsLoss) {
  probes(1, 5);
  silence(0.3);
  probes(9, 20);
  EXPECT_EQ(row().probesLost, 3U);
  EXPECT_EQ(row().probesMisordered, 0U);
  EXPECT_FALSE(dormant());
}

TEST_F(Receiver, reorderingWithinTheWindowIsNoLoss) {
  probes(1, 5);
  for (unsigned const sequence : {7U, 8U, 9U, 10U, 11U, 12U, 6U, 13U, 14U, 15U, 16U, 17U}) probe(sequence);
  EXPECT_EQ(row().probesLost, 0U);
  EXPECT_EQ(row().probesMisordered, 1U);
  EXPECT_EQ(row().probesReceived, 17U);
  EXPECT_EQ(row().currentSequenceNumber, 17U);
}

TEST_F(Receiver, aDuplicateIsCountedApartAndIsNotReceived) {
  probes(1, 5);
  probe(5);
  probe(3);
  EXPECT_EQ(row().probesDuplicated, 2U);
  EXPECT_EQ(row().probesReceived, 5U);
  EXPECT_EQ(row().probesLost, 0U);
  EXPECT_EQ(row().probesMisordered, 0U);
}

TEST_F(Receiver, aNewEpochStartsTheCountersAgain) {
  probes(1, 5);
  silence(0.3);
  probes(9, 30);
  ASSERT_EQ(row().probesLost, 3U);
  epoch = 4;
  probes(1, 2);
  EXPECT_EQ(row().epoch, (Epoch{4}));
  EXPECT_EQ(row().probesReceived, 2U);
  EXPECT_EQ(row().probesLost, 0U);
  EXPECT_EQ(row().currentSequenceNumber, 2U);
}

TEST_F(Receiver, aProbeOfAnOlderEpochMovesNothing) {
  probes(1, 5);
  auto const before = row();
  epoch = 2;
  probe(6);
  EXPECT_EQ(row(), before);
  EXPECT_EQ(rows.ignored().staleEpoch, 1U);
}

TEST_F(Receiver, aReplayedProbeMovesNoCounterAndWakesNoRow) {
  probes(1, 20);
  probe(20);  // what a network may do once
  auto const counted = row();
  for (int i = 0; i < 100; ++i) {
    probe(20);
    probe(5);
  }
  EXPECT_EQ(row(), counted);
  EXPECT_EQ(rows.ignored().staleSequence, 200U);
  silence(1);
  ASSERT_TRUE(dormant());
  probe(19);
  probe(20);
  probe(4);
  EXPECT_TRUE(dormant());
}

TEST_F(Receiver, aProbeFromAnAddressOfThisSwitchIsNotCounted) {
  view.addresses["eth1"] = ip(1);
  probe(1);
  EXPECT_TRUE(table.rows.empty());
  EXPECT_EQ(rows.ignored().ownSource, 1U);
}

TEST_F(Receiver, aSilenceWhileTheLinkIsDownIsFrozenAndCountsAnewWhenTheLinkReturns) {
  probes(1, 5);
  view.downLinks = {"eth1"};
  switchChanged();
  silence(5);
  EXPECT_EQ(state(), RowState::frozen);
  EXPECT_FALSE(dormant());
  view.downLinks.clear();
  switchChanged();
  silence(0.49);
  EXPECT_FALSE(dormant());
  silence(0.03);
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(Receiver, aLinkThatWasDownForAMomentMakesSilenceCountAnew) {
  probes(1, 5);
  silence(0.4);
  view.downLinks = {"eth1"};
  switchChanged();
  view.downLinks.clear();
  switchChanged();
  silence(0.49);
  EXPECT_FALSE(dormant());
  silence(0.03);
  EXPECT_TRUE(dormant());
}

TEST_F(Receiver, aProbeEndsAFreeze) {
  probes(1, 5);
  view.downLinks = {"eth1"};
  switchChanged();
  silence(5);
  ASSERT_EQ(state(), RowState::frozen);
  view.downLinks.clear();
  switchChanged();
  probe(56);
  EXPECT_EQ(state(), RowState::live);
  probes(57, 70);
  EXPECT_EQ(row().probesLost, 0U);
}

TEST_F(Receiver, aDormantRowFreezesWhenACauseAppears) {
  probe(1);
  silence(1);
  ASSERT_TRUE(dormant());
  view.downLinks = {"eth1"};
  switchChanged();
  EXPECT_EQ(state(), RowState::frozen);
  EXPECT_FALSE(dormant());
}

TEST_F(Receiver, noRouteToTheDestinationFreezes) {
  probe(1);
  view.unrouted = {ip(2)};
  switchChanged();
  silence(2);
  EXPECT_EQ(state(), RowState::frozen);
  view.unrouted.clear();
  switchChanged();
  silence(0.6);
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(Receiver, noRouteToTheSourceFreezes) {
  probe(1);
  view.unrouted = {ip(1)};
  switchChanged();
  silence(2);
  EXPECT_EQ(state(), RowState::frozen);
  view.unrouted.clear();
  switchChanged();
  silence(0.6);
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(Receiver, aRowThatBeginsWithoutARouteIsFrozenToo) {
  view.unrouted = {ip(1)};
  probe(1);
  silence(2);
  EXPECT_EQ(state(), RowState::frozen);
}

TEST_F(Receiver, anotherLinkOrRouteExplainsNothing) {
  probe(1);
  view.downLinks = {"eth2"};
  view.unrouted = {ip(7)};
  switchChanged();
  silence(1);
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(Receiver, aStreamThatArrivesOnAnotherInterfaceFreezesItsOldRowAndGoesOnCounting) {
  probes(1, 5);
  probes(6, 30, "eth2");
  EXPECT_EQ(state("eth1"), RowState::frozen);
  EXPECT_EQ(state("eth2"), RowState::live);
  EXPECT_FALSE(dormant("eth1"));
  EXPECT_EQ(row("eth2").probesReceived, 30U);
  EXPECT_EQ(row("eth2").probesLost, 0U);
  EXPECT_EQ(table.deletions, 0U);
}

TEST_F(Receiver, whatIsMissingWhereAStreamMovesToAnotherInterfaceIsNotLost) {
  probes(1, 10);
  probes(13, 40, "eth2");  // no silence that would have been judged
  EXPECT_EQ(row("eth2").probesLost, 0U);
  probes(42, 60, "eth2");
  EXPECT_EQ(row("eth2").probesLost, 1U);
}

TEST_F(Receiver, aDormantRowIsTakenBackWhenItsStreamArrivesOnAnotherInterface) {
  probes(1, 5);
  silence(1);
  ASSERT_TRUE(dormant("eth1"));
  probe(15, "eth2");
  EXPECT_FALSE(dormant("eth1"));
  EXPECT_EQ(state("eth1"), RowState::frozen);
}

TEST_F(Receiver, anotherTtlOfTheStreamOnAnotherInterfaceExplainsTheSilenceToo) {
  probes(1, 5);
  ttl = 2;
  probes(6, 20, "eth2");
  ttl = 1;
  EXPECT_EQ(state("eth1"), RowState::frozen);
  // And on the same interface it explains nothing.
  ttl = 2;
  probes(21, 21, "eth1");
  probes(22, 40, "eth1");
  ttl = 1;
  EXPECT_EQ(state("eth1"), RowState::dormant);
}

TEST_F(Receiver, aStreamThatFallsSilentAfterItMovedIsDormantOnItsNewInterface) {
  probes(1, 5);
  probes(6, 30, "eth2");
  silence(0.52);
  EXPECT_TRUE(dormant("eth2"));
  // The reason for the old row's silence has gone with it.
  silence(1);
  EXPECT_TRUE(dormant("eth1"));
  probe(46, "eth2");
  EXPECT_FALSE(dormant("eth2"));
  silence(0.01);
  EXPECT_FALSE(dormant("eth1"));
}

TEST_F(Receiver, aLateProbeFromTheOldPathDoesNotMoveTheStreamBack) {
  probes(1, 5);
  probe(7, "eth2");
  probe(6, "eth1");
  EXPECT_EQ(row("eth2").probesMisordered, 1U);
  EXPECT_EQ(row("eth2").probesReceived, 7U);
  probes(8, 20, "eth2");
  EXPECT_EQ(state("eth1"), RowState::frozen);
}

TEST_F(Receiver, aStreamThatMovesAwayAndBackCountsNothingLost) {
  probes(1, 5);
  silence(3);  // it ended elsewhere meanwhile
  probes(36, 60);
  EXPECT_EQ(row().probesLost, 0U);
  EXPECT_EQ(row().probesReceived, 30U);
}

TEST_F(Receiver, thereIsABoundToTheRows) {
  for (U8 n = 1; n <= 20; ++n) {
    ttl = n;
    probe(1);
  }
  EXPECT_EQ(rows.rows(), 8U);
  EXPECT_EQ(table.rows.size(), 8U);
  EXPECT_EQ(rows.ignored().noRoom, 12U);
  // A stream that is known and moves goes on in its old row.
  ttl = 1;
  probe(2, "eth2");
  EXPECT_EQ(row("eth1").probesReceived, 2U);
}

// What other switches tell, and what is told to them.
class ToldReceiver : public Receiver {
 protected:
  ToldReceiver() { notices.ownAddressIs(ip(9)); }

  Notice notice(PacketKind kind, U64 sequence, U64 serial = 1) const {
    return {.kind = kind,
            .ttl = ttl,
            .stream = {ip(1), ip(2), 20000, probePort},
            .number = {epoch, sequence},
            .serial = serial};
  }
  void freeze(U64 from) { rows.takenOver(now, notice(PacketKind::freeze, from)); }
  void end(U64 last, U64 serial = 1) { rows.ended(now, notice(PacketKind::end, last, serial)); }
  // Each notice that leaves now, once.
  std::vector<Notice> told() {
    std::vector<OutgoingNotice> left;
    notices.takeDue(now, left);
    std::vector<Notice> result;
    for (auto const& one : left) result.push_back(one.notice);
    for (auto const& one : result) notices.answered(one.serial);
    return result;
  }
};

TEST_F(ToldReceiver, aRowThatBeginsTellsItsSourceInTheSameTurn) {
  probe(41);
  auto const left = told();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].kind, PacketKind::takeover);
  EXPECT_EQ(left[0].stream, (Flow{ip(1), ip(2), 20000, probePort}));
  EXPECT_EQ(left[0].ttl, 1);
  EXPECT_EQ(left[0].number, (ProbeNumber{3, 41}));
  EXPECT_EQ(left[0].holder, ip(9));
  probes(42, 80);
  EXPECT_TRUE(told().empty());
}

TEST_F(ToldReceiver, aRowThatIsHeardAgainAfterASilenceOrInANewEpochTellsAgain) {
  probes(1, 5);
  told();
  silence(0.4);
  probe(9);
  EXPECT_TRUE(told().empty());
  silence(2);
  probe(30);
  auto left = told();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].number, (ProbeNumber{3, 30}));
  silence(1.2);
  epoch = 4;
  probe(1);
  left = told();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].number, (ProbeNumber{4, 1}));
}

TEST_F(ToldReceiver, aRowThatIsTakenOverIsFrozenBeforeItsSilenceIsJudged) {
  probes(1, 5);
  freeze(6);
  EXPECT_EQ(state(), RowState::live);
  silence(30);
  EXPECT_EQ(state(), RowState::frozen);
  EXPECT_FALSE(dormant());
}

TEST_F(ToldReceiver, aRowThatIsDormantAlreadyIsTakenBack) {
  probes(1, 5);
  silence(1);
  ASSERT_TRUE(dormant());
  freeze(6);
  EXPECT_EQ(state(), RowState::frozen);
  EXPECT_FALSE(dormant());
}

TEST_F(ToldReceiver, whoHasHeardThatProbeOrALaterOneFreezesNothingAndSaysSo) {
  probes(1, 20);
  told();
  freeze(20);
  freeze(7);
  EXPECT_EQ(rows.ignored().staleNotice, 2U);
  auto const left = told();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].kind, PacketKind::takeover);
  EXPECT_EQ(left[0].number, (ProbeNumber{3, 20}));
  silence(1);
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(ToldReceiver, whatIsSaidOfAnOlderEpochFreezesNothing) {
  probes(1, 5);
  epoch = 2;
  freeze(1000);
  epoch = 3;
  silence(1);
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(ToldReceiver, whatIsSaidOfAnotherStreamOrTtlMakesNoRow) {
  freeze(1);
  end(1);
  rows.running(now, notice(PacketKind::running, 1));
  EXPECT_TRUE(table.rows.empty());
  EXPECT_EQ(rows.rows(), 0U);
}

TEST_F(ToldReceiver, aProbeThatWasUnderwayDoesNotTakeTheTtlBackAndALaterOneDoes) {
  probes(1, 5);
  told();
  silence(1.1);
  probe(16);
  told();
  freeze(20);
  probe(17);
  silence(0.6);
  EXPECT_EQ(state(), RowState::frozen);
  silence(1);
  probe(30);
  EXPECT_EQ(state(), RowState::live);
  ASSERT_EQ(told().size(), 1U);
  silence(0.6);
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(ToldReceiver, aTtlThatTwoSwitchesHearInTurnIsToldOfOnceASecond) {
  probe(1);
  std::size_t count = 0;
  for (U64 sequence = 2; sequence <= 101; ++sequence) {
    freeze(sequence);
    silence(0.1);
    probe(sequence);
    count += told().size();
  }
  EXPECT_GE(count, 8U);
  EXPECT_LE(count, 12U);
}

TEST_F(ToldReceiver, anEndEndsTheDormancyFirstAndTheRowEightSecondsLater) {
  probes(1, 5);
  silence(1);
  ASSERT_TRUE(dormant());
  end(9);
  EXPECT_EQ(state(), RowState::held);
  EXPECT_FALSE(dormant());
  silence(heldFor - 0.02);
  EXPECT_EQ(table.rows.count(key()), 1U);
  silence(0.04);
  EXPECT_EQ(table.rows.count(key()), 0U);
  EXPECT_EQ(rows.rows(), 0U);
  silence(20);
  EXPECT_TRUE(table.rows.empty());
  EXPECT_TRUE(rows.idle());
}

TEST_F(ToldReceiver, theSameEndAgainDoesNotProlongAndALaterWordOfItDoes) {
  probes(1, 5);
  end(5, 7);
  silence(4);
  end(5, 7);
  end(5, 6);
  silence(4.02);
  EXPECT_TRUE(table.rows.empty());
  probes(1, 5);
  end(5, 7);
  silence(4);
  end(5, 8);
  silence(7.9);
  EXPECT_EQ(state(), RowState::held);
}

TEST_F(ToldReceiver, anEndBeforeAProbeThatHasBeenHeardIsOld) {
  probes(1, 5);
  end(4);
  EXPECT_EQ(state(), RowState::live);
  epoch = 2;
  end(900);
  epoch = 3;
  EXPECT_EQ(state(), RowState::live);
  EXPECT_EQ(rows.ignored().staleNotice, 2U);
}

TEST_F(ToldReceiver, theLastProbesOfAnEndedStreamAreCountedAndDoNotRevive) {
  probes(1, 5);
  end(7);
  probes(6, 7);
  EXPECT_EQ(state(), RowState::held);
  EXPECT_EQ(row().probesReceived, 7U);
  silence(heldFor);
  EXPECT_TRUE(table.rows.empty());
}

TEST_F(ToldReceiver, aProbeOfTheNextEpochRevivesAHeldRow) {
  probes(1, 5);
  end(5);
  silence(3);
  epoch = 4;
  probe(1);
  EXPECT_EQ(state(), RowState::live);
  silence(0.4);
  probes(5, 100);
  EXPECT_EQ(state(), RowState::live);
  EXPECT_EQ(table.deletions, 0U);
}

TEST_F(ToldReceiver, aHeldRowAsksBeforeItGoesAndStaysIfItsStreamGoesOnElsewhere) {
  probes(1, 5);
  told();
  end(5);
  silence(4.01);
  auto const left = told();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].kind, PacketKind::question);
  epoch = 4;
  rows.running(now, notice(PacketKind::running, 40));
  epoch = 3;
  silence(20);
  EXPECT_EQ(state(), RowState::frozen);
}

TEST_F(ToldReceiver, aFreezeFromBeforeTheEndDoesNotHoldARowBack) {
  probes(1, 5);
  end(7);
  freeze(8);
  EXPECT_EQ(state(), RowState::held);
  silence(heldFor + 0.01);
  EXPECT_TRUE(table.rows.empty());
}

TEST_F(ToldReceiver, aRowThatHasLongBeenSilentAsksAndIsNotTakenBackByWhatItHears) {
  probes(1, 5);
  told();
  silence(9.9);
  EXPECT_TRUE(told().empty());
  silence(0.2);
  auto const left = told();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].kind, PacketKind::question);
  EXPECT_EQ(left[0].number, (ProbeNumber{3, 5}));
  rows.running(now, notice(PacketKind::running, 100));
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(ToldReceiver, rowsOnTwoInterfacesAreHeldAndGoTogether) {
  probes(1, 5);
  probes(6, 10, "eth2");
  end(10);
  EXPECT_EQ(state("eth1"), RowState::held);
  EXPECT_EQ(state("eth2"), RowState::held);
  ttl = 2;
  probes(1, 78);
  ttl = 1;
  silence(0.3);
  EXPECT_EQ(table.rows.size(), 1U);
  ttl = 2;
  EXPECT_EQ(state(), RowState::live);
}

TEST_F(ToldReceiver, rowsFromBeforeGoOnCountingAndAreNotJudgedUnheard) {
  IngressStreamStatisticsTableEntry before;
  before.key = key();
  before.epoch = {3};
  before.probesReceived = 40;
  before.probesLost = 2;
  before.currentSequenceNumber = 42;
  table.rows[before.key] = before;
  IngressStreamStatisticsTableEntry bell;
  bell.key = Bell::reservedStream(1);
  table.rows[bell.key] = bell;
  rows.adopt(now, std::vector{before, bell});
  EXPECT_EQ(table.rows.size(), 1U);
  silence(12);
  EXPECT_FALSE(dormant());
  ASSERT_EQ(told().size(), 1U);
  probe(170);
  EXPECT_EQ(row().probesReceived, 41U);
  EXPECT_EQ(row().probesLost, 2U);
  probes(171, 190);
  EXPECT_EQ(row().probesLost, 2U);
  silence(0.6);
  EXPECT_EQ(state(), RowState::dormant);
}

TEST_F(ToldReceiver, aRowFromBeforeThatWasDormantStaysSoUntilSomethingIsKnownOfIt) {
  IngressStreamStatisticsTableEntry before;
  before.key = key();
  before.dormant = true;
  before.epoch = {3};
  before.currentSequenceNumber = 42;
  table.rows[before.key] = before;
  rows.adopt(now, std::vector{before});
  silence(3);
  EXPECT_TRUE(dormant());
  freeze(43);
  EXPECT_FALSE(dormant());
  EXPECT_EQ(state(), RowState::frozen);
}

class Bells : public Receiver {
 protected:
  std::size_t ringing() const {
    std::size_t count = 0;
    for (U32 tag = 0; tag < Bell::tags; ++tag) count += table.rows.count(Bell::reservedStream(tag));
    return count;
  }
};

TEST_F(Bells, aDormancyRingsAndTheRowGoesASecondLater) {
  probe(1);
  silence(0.5);
  EXPECT_EQ(ringing(), 0U);
  silence(0.02);
  ASSERT_TRUE(dormant());
  EXPECT_EQ(ringing(), 1U);
  silence(0.98);
  EXPECT_EQ(ringing(), 1U);
  silence(0.04);
  EXPECT_EQ(ringing(), 0U);
  silence(5);
  EXPECT_EQ(ringing(), 0U);
}

TEST_F(Bells, aRowThatWakesRingsToo) {
  probe(1);
  silence(3);
  ASSERT_TRUE(dormant());
  ASSERT_EQ(ringing(), 0U);
  probe(31);
  silence(0.02);
  ASSERT_FALSE(dormant());
  EXPECT_EQ(ringing(), 1U);
}

TEST_F(Bells, ringAtMostOnceASecondAndAlwaysByAnotherStream) {
  // Every 0.2 s another row falls dormant.
  std::vector<std::pair<Rix::Seconds, U32>> rung;
  interval = 20000;
  std::set<U32> standing;
  for (U64 step = 0; step < 60; ++step) {
    ttl = static_cast<U8>(step % 6 + 1);
    probe(step / 6 + 1);
    for (int sweeps = 0; sweeps < 20; ++sweeps) {
      silence(0.01);
      std::set<U32> present;
      for (U32 tag = 0; tag < Bell::tags; ++tag) {
        if (table.rows.contains(Bell::reservedStream(tag))) present.insert(tag);
      }
      for (U32 tag : present) {
        if (!standing.contains(tag)) rung.emplace_back(now, tag);
      }
      EXPECT_LE(present.size(), 1U);
      standing = present;
    }
  }
  ASSERT_GE(rung.size(), 10U);
  for (std::size_t i = 1; i < rung.size(); ++i) {
    EXPECT_GE(rung[i].first - rung[i - 1].first, Bell::period - 1e-9);
    for (std::size_t back = 1; back < Bell::tags && back <= i; ++back) EXPECT_NE(rung[i].second, rung[i - back].second);
  }
}

TEST_F(Bells, aDormancyWithinTheSecondAfterARingRingsWhenItEnds) {
  probe(1);
  silence(0.3);
  ttl = 2;
  probe(1);
  silence(0.22);
  EXPECT_EQ(ringing(), 1U);
  auto const first = table.rows.contains(Bell::reservedStream(0));
  silence(1.05);
  EXPECT_TRUE(first);
  EXPECT_TRUE(table.rows.contains(Bell::reservedStream(1)));
  EXPECT_EQ(ringing(), 1U);
}

TEST_F(Bells, aFreezeDoesNotRing) {
  probe(1);
  view.downLinks = {"eth1"};
  switchChanged();
  silence(3);
  EXPECT_EQ(ringing(), 0U);
  EXPECT_EQ(table.deletions, 0U);
}

}  // namespace
}  // namespace Sonar
