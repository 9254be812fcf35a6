// What is logged of a device pair, and when. Times are the logger's own: 0 is the moment at which it starts.
#include "analysis/ZebSysloggerSm.h"

#include "analysis/AnalysisTest.h"

namespace Zeb {
namespace {

struct Syslogger : AnalysisTest {
  static constexpr double start = 100;
  DevicePair const ab{systemId(1), systemId(2)};
  DevicePair const cd{systemId(3), systemId(4)};
  std::string const abText = "Zeb detected probe loss between devices leaf1 and spine1.";
  std::string const cdText = "Zeb detected probe loss between devices spine2 and leaf4.";
  Rix::Ptr<ZebSysloggerSm> sm;

  Syslogger() {
    client(1, "leaf1");
    client(2, "spine1");
    client(3, "spine2");
    client(4, "leaf4");
    sm = zebSysloggerSmFactory(status);
  }
  void made(double when, DevicePair const& pair) {
    at(start + when, [&] { lossStatus().devicePairLossRecordIs(pair); });
  }
  void deleted(double when, DevicePair const& pair) {
    at(start + when, [&] { lossStatus().devicePairLossRecordDel(pair); });
  }
  void pass(double until) { runTo(start + until); }
  Logged message(double when, std::string const& text) { return {start + when, text}; }
};
using Messages = std::vector<Logged>;

TEST_F(Syslogger, APairThatIsGoneWithinTenSecondsMakesNoMessage) {
  made(0, ab);
  deleted(9.9, ab);
  pass(200);
  EXPECT_EQ(logged, Messages{});
  EXPECT_TRUE(sm->loggedPair().empty());
}

TEST_F(Syslogger, APairThatReturnsWithinNinetySecondsOfItsMessageStaysSilent) {
  made(0, ab);
  pass(14);
  EXPECT_EQ(logged, (Messages{message(10, abText)}));
  deleted(15, ab);
  made(20, ab);
  pass(29.9);
  EXPECT_FALSE(sm->unloggedPair().empty());
  pass(99);
  EXPECT_TRUE(sm->unloggedPair().empty());
  EXPECT_FALSE(sm->loggedPair().empty());
  EXPECT_EQ(sm->loggedPairTimeMin(), start + 100);
  pass(1000);
  EXPECT_EQ(logged.size(), 1u);
}

TEST_F(Syslogger, APairThatIsDueAfterTheSilenceIsLoggedAgain) {
  made(0, ab);
  deleted(15, ab);
  made(20, ab);
  deleted(94, ab);
  made(95, ab);
  pass(1000);
  EXPECT_EQ(logged, (Messages{message(10, abText), message(105, abText)}));
}

TEST_F(Syslogger, TwoPairsAreLoggedEachAtItsTime) {
  made(0, ab);
  made(4, cd);
  pass(200);
  EXPECT_EQ(logged, (Messages{message(10, abText), message(14, cdText)}));
}

TEST_F(Syslogger, ASecondNotificationDoesNotRestartTheWait) {
  made(0, ab);
  deleted(3, ab);
  made(6, ab);
  at(start + 8, [&] { lossStatus().devicePairLossRecordNotify(ab); });
  EXPECT_EQ(sm->unloggedPair().size(), 1u);
  pass(200);
  EXPECT_EQ(logged, (Messages{message(10, abText)}));
}

TEST_F(Syslogger, AfterTheLastEntryTheTimersAreOffAndTheNextPairSetsThem) {
  EXPECT_EQ(sm->unloggedPairTimeMin(), Rix::never);
  EXPECT_EQ(sm->loggedPairTimeMin(), Rix::never);
  made(0, ab);
  EXPECT_EQ(sm->unloggedPairTimeMin(), start + 10);
  pass(10);
  EXPECT_EQ(sm->unloggedPairTimeMin(), Rix::never);
  EXPECT_EQ(sm->loggedPairTimeMin(), start + 100);
  pass(100);
  EXPECT_EQ(sm->loggedPairTimeMin(), Rix::never);
  EXPECT_TRUE(sm->loggedPair().empty());
  made(150, cd);
  EXPECT_EQ(sm->unloggedPairTimeMin(), start + 160);
  pass(160);
  EXPECT_EQ(sm->loggedPairTimeMin(), start + 250);
}

TEST_F(Syslogger, APairThatStandsIsLoggedOnce) {
  made(0, ab);
  pass(10000);
  EXPECT_EQ(logged.size(), 1u);
}

TEST_F(Syslogger, APairIsJudgedByWhetherItStandsAtItsTime) {
  made(0, ab);
  deleted(1, ab);
  made(9.5, ab);
  pass(200);
  EXPECT_EQ(logged, (Messages{message(10, abText)}));
}

TEST_F(Syslogger, PairsOfOneMomentAreLoggedTogetherAndLeaveTheSilenceTogether) {
  made(0, ab);
  made(0, cd);
  pass(10);
  EXPECT_EQ(logged, (Messages{message(10, abText), message(10, cdText)}));
  EXPECT_EQ(sm->loggedPair().size(), 2u);
  pass(100);
  EXPECT_TRUE(sm->loggedPair().empty());
}

TEST_F(Syslogger, ASilencedRepeatDoesNotLengthenTheSilence) {
  made(0, ab);
  deleted(50, ab);
  made(60, ab);
  pass(75);
  EXPECT_EQ(sm->loggedPair().size(), 1u);
  EXPECT_EQ(sm->loggedPair().front().time(), start + 10);
}

TEST_F(Syslogger, ALateWakeUpFindsEachPairAtItsOwnDeadline) {
  made(0, ab);
  made(4, cd);
  pass(60);
  EXPECT_EQ(logged, (Messages{message(10, abText), message(14, cdText)}));
  EXPECT_EQ(activity.worstTimerLateness(), 50);
}

TEST_F(Syslogger, InputThatComesLateFindsTheHeadDealtWith) {
  made(0, ab);
  made(60, cd);
  EXPECT_EQ(logged, (Messages{message(10, abText)}));
  pass(200);
  EXPECT_EQ(logged, (Messages{message(10, abText), message(70, cdText)}));
}

// Makes a pair when its timer fires, as the analysis of a batch does.
struct PairMaker : Rix::Reactor<PairMaker> {
  struct RixTimer : Rix::Watch<RixTimer, Rix::Clock, PairMaker> {
    using Watch::Watch;
    void onTime() override { pass(&PairMaker::handleTimer); }
  };
  PairMaker(ProbeLossStatus& lossStatus, DevicePair const& pair, double when) : lossStatus_(lossStatus), pair_(pair) {
    timer_.notifierIs(Rix::ActivityManagerConfig::clock());
    timer_.timeMinIs(when);
  }
  template <class F>
  void rixParts(F&& f) {
    f(timer_);
  }
  void handleTimer() { lossStatus_.devicePairLossRecordIs(pair_); }
  ProbeLossStatus& lossStatus_;
  DevicePair const pair_;
  RixTimer timer_{this};
};

TEST_F(Syslogger, AtOneDeadlineTheLoggerComesFirstHoweverTheTimersWereSet) {
  auto maker = Rix::make<PairMaker>(lossStatus(), cd, start + 10);
  made(0, ab);
  pass(10);
  EXPECT_EQ(logged, (Messages{message(10, abText)}));
  EXPECT_EQ(sm->unloggedPairTimeMin(), start + 20);
}

TEST_F(Syslogger, ALateWakeUpRunsADueHeadBeforeThePairThatComesAfterIt) {
  auto maker = Rix::make<PairMaker>(lossStatus(), cd, start + 10.5);
  made(0, ab);
  pass(300);
  EXPECT_EQ(logged, (Messages{message(10, abText), message(20.5, cdText)}));
}

TEST_F(Syslogger, PairsThatStandAtTheStartAreTakenAsNew) {
  lossStatus().devicePairLossRecordIs(ab);
  pass(5);
  sm = nullptr;
  sm = zebSysloggerSmFactory(status);
  EXPECT_EQ(sm->unloggedPairTimeMin(), start + 15);
  pass(200);
  EXPECT_EQ(logged, (Messages{message(15, abText)}));
}

TEST_F(Syslogger, ItsEndForgetsWhatWasLogged) {
  made(0, ab);
  pass(12);
  sm = nullptr;
  sm = zebSysloggerSmFactory(status);
  pass(200);
  EXPECT_EQ(logged, (Messages{message(10, abText), message(22, abText)}));
}

TEST_F(Syslogger, FollowsAReplacedLossStatus) {
  made(0, ab);
  at(start + 1, [&] { status->lossStatusDel(); });
  at(start + 2, [&] { status->lossStatusIs(); });
  made(3, cd);
  pass(200);
  EXPECT_EQ(logged, (Messages{message(13, cdText)}));
}

TEST_F(Syslogger, TheMessageHasItsNameSeverityAndBothDevices) {
  std::vector<Rix::LogMessage> messages;
  activity.logSinkIs([&](Rix::LogMessage const& taken) { messages.push_back(taken); });
  made(0, ab);
  pass(10);
  ASSERT_EQ(messages.size(), 1u);
  Rix::LogHandle const& handle = *messages[0].handle;
  EXPECT_STREQ(handle.name(), "ZEB_LOSS_EVENT");
  EXPECT_EQ(static_cast<int>(handle.severity()), 6);
  EXPECT_STREQ(handle.format(), "Zeb detected probe loss between devices %s and %s.");
  EXPECT_STREQ(handle.explanation(), "Indicates the inferred location of a loss event.");
  EXPECT_EQ(handle.recommendedAction(), Rix::NoActionRequired);
  EXPECT_EQ(handle.rateLimitArgs().minimumInterval, 0.0);
  EXPECT_EQ(handle.rateLimitArgs().burst, 1.0);
  EXPECT_EQ(messages[0].arguments, (std::vector<std::string>{"leaf1", "spine1"}));
}

TEST_F(Syslogger, TracesWhatItWaitsForAndWhatItPassesOver) {
  TraceLines traces;
  made(0, ab);
  std::string const pairText = "devicePair: 02:00:00:00:00:01->02:00:00:00:00:02";
  EXPECT_EQ(traces.count("handleDevicePair(Zeb::DevicePair) " + pairText), 1);
  EXPECT_EQ(traces.count("doSetUnloggedPairTimer() resetting timer for " + pairText), 1);
  pass(14);
  EXPECT_EQ(traces.count("doSyslog(Zeb::DevicePair) " + pairText), 1);
  EXPECT_EQ(traces.count("turning off timer"), 1);
  deleted(15, ab);
  made(16, ab);
  pass(30);
  EXPECT_EQ(traces.count("Pair was logged too recently"), 1);
}

using SysloggerDeathTest = Syslogger;

TEST_F(SysloggerDeathTest, AHeadThatIsDueAndNotDealtWithEndsTheProcess) {
  made(0, ab);
  time.nowIs(start + 10);
  EXPECT_DEATH(sm->doSetUnloggedPairTimer(), "assertion failed: pt.time\\(\\) \\+ unloggedWait\\(\\) > Rix::now\\(\\)");
}

TEST_F(SysloggerDeathTest, ASilentDeviceWithoutAClientEndsTheProcess) {
  made(0, ab);
  status->clientDel(systemId(2));
  EXPECT_DEATH(pass(10), "status.client\\(pair.dev2SysId\\(\\)\\) with 02:00:00:00:00:02");
}

TEST_F(SysloggerDeathTest, AGoodDeviceWithoutAClientEndsTheProcess) {
  made(0, ab);
  status->clientDel(systemId(1));
  EXPECT_DEATH(pass(10), "status.client\\(pair.dev1SysId\\(\\)\\) with 02:00:00:00:00:01");
}

}  // namespace
}  // namespace Zeb
