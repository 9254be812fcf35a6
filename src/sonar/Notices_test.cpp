// When notices leave, how often, in which order and from which ports; and who is told of a takeover.
#include "sonar/Notices.h"

#include <gtest/gtest.h>

#include "sonar/Holders.h"
#include "sonar/TestSwitch.h"

namespace Sonar {
namespace {

using Urgency = Notices::Urgency;

class Told : public testing::Test {
 protected:
  Told() { notices.ownAddressIs(ip(9)); }

  static Notice takeover(U8 ttl = 1) {
    return {.kind = PacketKind::takeover, .ttl = ttl, .stream = {ip(1), ip(2), 20000, probePort}, .number = {1, 5}};
  }
  // All that leave until then, each with its time.
  std::vector<std::pair<Rix::Seconds, OutgoingNotice>> run(Rix::Seconds length) {
    std::vector<std::pair<Rix::Seconds, OutgoingNotice>> result;
    for (Rix::Seconds const end = now + length; notices.nextDue() <= end;) {
      now = std::max(now, notices.nextDue());
      std::vector<OutgoingNotice> left;
      notices.takeDue(now, left);
      for (auto const& notice : left) result.emplace_back(now, notice);
      if (++turns > 100000) ADD_FAILURE() << "does not come to rest";
      if (HasFailure()) break;
    }
    return result;
  }

  Rix::Seconds now = 100;
  std::size_t turns = 0;
  U64 lastEpoch = 4;
  Notices notices{[this] { return ++lastEpoch; }, 1000};
};

TEST_F(Told, whatIsAcknowledgedIsNotRepeated) {
  U64 const serial = notices.tell(now, ip(1), takeover(), Urgency::urgent);
  EXPECT_EQ(notices.nextDue(), now);
  auto const left = run(0);
  ASSERT_EQ(left.size(), 1U);
  OutgoingNotice const& sent = left[0].second;
  EXPECT_EQ(sent.flow, (Flow{ip(9), ip(1), noticePort, probePort}));
  EXPECT_GT(sent.hopLimit, 32);
  EXPECT_EQ(sent.notice.serial, serial);
  EXPECT_EQ(sent.notice.number, (ProbeNumber{1, 5}));
  EXPECT_TRUE(notices.answered(serial));
  EXPECT_FALSE(notices.answered(serial));
  EXPECT_TRUE(run(1000).empty());
  EXPECT_EQ(notices.waiting(), 0U);
  EXPECT_EQ(notices.nextDue(), Rix::never);
}

TEST_F(Told, whatIsNotIsRepeatedFromOtherPortsForAMinute) {
  notices.tell(now, ip(1), takeover(), Urgency::urgent);
  Rix::Seconds const start = now;
  auto const left = run(1000);
  // Three times before a silence at an ordinary rate would be judged.
  ASSERT_GT(left.size(), 6U);
  EXPECT_LT(left[3].first - start, 0.4);
  EXPECT_GT(left.back().first - start, 45);
  EXPECT_LT(left.back().first - start, 75);
  std::set<U16> ports;
  for (auto const& [when, notice] : left) ports.insert(notice.flow.sourcePort);
  EXPECT_EQ(ports.size(), noticePorts);
  EXPECT_EQ(notices.counts().givenUp, 1U);
  EXPECT_EQ(notices.counts().repeated, left.size() - 1);
  EXPECT_EQ(notices.waiting(), 0U);
}

TEST_F(Told, whatIsForgottenIsNotRepeated) {
  U64 const serial = notices.tell(now, ip(1), takeover(), Urgency::urgent);
  run(0);
  notices.forget(serial);
  EXPECT_TRUE(run(1000).empty());
}

TEST_F(Told, serialsRiseAcrossRestarts) {
  U64 const first = notices.nextSerial();
  EXPECT_GT(notices.nextSerial(), first);
  Notices next([this] { return ++lastEpoch; }, 10);
  EXPECT_GT(next.nextSerial(), first + 1000000);
}

TEST_F(Told, soManyLeaveInASecondAndTheUrgentOnesFirst) {
  for (U32 i = 0; i < 900; ++i) notices.tell(now, ip(1), takeover(1), Urgency::patient);
  std::vector<U64> urgent;
  for (U32 i = 0; i < 100; ++i) urgent.push_back(notices.tell(now, ip(1), takeover(2), Urgency::urgent));
  Rix::Seconds const start = now;
  std::vector<OutgoingNotice> left;
  notices.takeDue(now, left);
  ASSERT_EQ(left.size(), static_cast<std::size_t>(Notices::burst));
  for (std::size_t i = 0; i < 100; ++i) EXPECT_EQ(left[i].notice.ttl, 2);
  for (std::size_t i = 100; i < left.size(); ++i) EXPECT_EQ(left[i].notice.ttl, 1);
  for (U64 const serial : urgent) notices.answered(serial);
  std::size_t count = left.size();
  std::set<U64> serials;
  for (auto const& [when, notice] : run(0.5)) {
    ++count;
    EXPECT_LE(static_cast<double>(count), Notices::burst + (when - start) * Notices::perSecond + 1);
    serials.insert(notice.notice.serial);
  }
  EXPECT_EQ(serials.size(), 900U);
}

TEST_F(Told, thereIsABoundToWhatWaits) {
  for (U32 i = 0; i < 1000; ++i) EXPECT_NE(notices.tell(now, ip(1), takeover(), Urgency::patient), 0U);
  EXPECT_EQ(notices.tell(now, ip(1), takeover(), Urgency::urgent), 0U);
  EXPECT_EQ(notices.counts().refused, 1U);
  EXPECT_EQ(notices.waiting(), 1000U);
}

TEST_F(Told, withoutAnAddressNothingButAnswersLeaves) {
  notices.ownAddressIs(Netkit::IpAddr());
  notices.tell(now, ip(1), takeover(), Urgency::urgent);
  notices.tellOnce(ip(1), takeover(), 0);
  EXPECT_TRUE(run(10).empty());
  notices.answer({ip(3), ip(9), 17443, probePort}, takeover());
  auto const left = run(0);
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].second.flow, (Flow{ip(9), ip(3), 17443, probePort}));
  notices.ownAddressIs(ip(9));
  EXPECT_EQ(run(0).size(), 1U);
}

TEST_F(Told, whatGoesTheStreamsOwnWayLooksLikeItsProbes) {
  Notice end = takeover(3);
  end.kind = PacketKind::end;
  notices.tellInBand(end);
  auto const left = run(0);
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].second.flow, end.stream);
  EXPECT_EQ(left[0].second.hopLimit, 3);
}

std::vector<Netkit::IpAddr> addresses(Holders const& holders) {
  std::vector<Netkit::IpAddr> result;
  for (auto const& holder : holders.all()) result.push_back(holder.address);
  return result;
}

TEST(HoldersOfATtl, theFirstIsOnlyRemembered) {
  Holders holders;
  EXPECT_EQ(holders.current(3), nullptr);
  EXPECT_TRUE(holders.taken(ip(1), {3, 1}).empty());
  ASSERT_NE(holders.current(3), nullptr);
  EXPECT_EQ(holders.current(3)->address, ip(1));
  EXPECT_EQ(holders.current(4), nullptr);
}

TEST(HoldersOfATtl, theOneBeforeIsToldAndNoOneElse) {
  Holders holders;
  holders.taken(ip(1), {3, 1});
  EXPECT_EQ(holders.taken(ip(2), {3, 50}), std::vector{ip(1)});
  EXPECT_EQ(holders.taken(ip(3), {3, 90}), std::vector{ip(2)});
  EXPECT_EQ(holders.taken(ip(1), {3, 99}), std::vector{ip(3)});
  EXPECT_EQ(addresses(holders), (std::vector{ip(2), ip(3), ip(1)}));
}

TEST(HoldersOfATtl, whoHeardAnEarlierProbeTakesNothing) {
  Holders holders;
  holders.taken(ip(1), {3, 50});
  EXPECT_TRUE(holders.taken(ip(2), {3, 50}).empty());
  EXPECT_TRUE(holders.taken(ip(2), {3, 7}).empty());
  EXPECT_TRUE(holders.taken(ip(2), {2, 900}).empty());
  EXPECT_EQ(addresses(holders), std::vector{ip(1)});
}

TEST(HoldersOfATtl, whoHadItInAnEpochBeforeIsToldOnceMore) {
  Holders holders;
  holders.taken(ip(1), {3, 1});
  holders.taken(ip(2), {3, 50});
  EXPECT_EQ(holders.taken(ip(3), {4, 1}), (std::vector{ip(1), ip(2)}));
  EXPECT_EQ(holders.taken(ip(4), {4, 9}), std::vector{ip(3)});
}

TEST(HoldersOfATtl, oneThatIsOnlyKnownToHaveHadItIsToldToo) {
  Holders holders;
  holders.remember(ip(7));
  EXPECT_EQ(holders.current(3), nullptr);
  EXPECT_EQ(holders.taken(ip(1), {3, 1}), std::vector{ip(7)});
  holders.remember(ip(7));
  EXPECT_EQ(holders.all().size(), 2U);
}

TEST(HoldersOfATtl, soManyAreRemembered) {
  Holders holders;
  for (U8 i = 1; i <= 20; ++i) holders.taken(ip(i), {3, i});
  EXPECT_EQ(holders.all().size(), Holders::most);
  EXPECT_EQ(holders.current(3)->address, ip(20));
  holders.remember(ip(99));
  EXPECT_EQ(holders.all().size(), Holders::most);
}

}  // namespace
}  // namespace Sonar
