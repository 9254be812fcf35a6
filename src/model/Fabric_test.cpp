// The exchange between a centre and its switches, in memory: every frame is encoded, queued and delivered.
#include "model/FabricTest.h"

namespace FabricTesting {
namespace {

TEST_F(FabricTest, TheGroupIsReportedAsInputOfItsOwnAlsoWithoutAnySwitch) {
  EXPECT_THAT(centre->mounterLog, testing::IsEmpty());
  pump();
  EXPECT_THAT(centre->mounterLog, ElementsAre("complete switchConfigMg", "initial"));
}

TEST_F(FabricTest, ASwitchsEntitiesStandAtTheCentreUnderItsIdentityInDeclaredOrderAndComplete) {
  Switch one(*this, idOne);
  one.config->hostnameIs("leaf1");
  one.status->probeStreamTable()->streamRecordIs(stream(1))->egressRecordIs(1);
  start(one);
  EXPECT_EQ(Rix::jsonText(*centre->config(idOne)), Rix::jsonText(*one.config));
  EXPECT_EQ(Rix::jsonText(*centre->status(idOne)), Rix::jsonText(*one.status));
  EXPECT_THAT(centre->heard,
              ElementsAre("+config" + Rix::jsonText(*one.config), "+status" + Rix::jsonText(*one.status)));
  EXPECT_TRUE(centre->orders(idOne));
  EXPECT_TRUE(one.orders()) << "its entry has come to the switch";
}

TEST_F(FabricTest, ChangesFollowInBothDirectionsAtTheEndOfTheTurn) {
  Switch one(*this, idOne);
  start(one);
  Ptr<Rix::Entity> const copy = centre->config(idOne);
  one.turn([&] { one.config->groupIs("leaves")->interfaceIpIs("lo", Netkit::IpAddr(0x0a000001)); });
  EXPECT_EQ(centre->config(idOne)->groups(), 0U) << "never nested in the sender";
  pump();
  EXPECT_EQ(Rix::jsonText(*centre->config(idOne)), Rix::jsonText(*one.config));
  EXPECT_EQ(centre->config(idOne), copy);
  ordersTurn([&] { centre->orders(idOne)->transmitterIs("p1:leaves")->hopsRateIs(1, {10, 1}); });
  pump();
  EXPECT_EQ(Rix::jsonText(*one.orders()), Rix::jsonText(*centre->orders(idOne)));
}

TEST_F(FabricTest, EachSwitchGetsItsOwnOrders) {
  Switch one(*this, idOne);
  Switch two(*this, idTwo);
  start(one);
  start(two);
  ordersTurn([&] { centre->orders(idTwo)->transmitterIs("p1:leaves"); });
  pump();
  EXPECT_EQ(one.orders()->transmitters(), 0U);
  EXPECT_EQ(two.orders()->transmitters(), 1U);
}

TEST_F(FabricTest, EntriesOutliveADisconnectAndAreTheSameAfterwards) {
  Switch one(*this, idOne);
  one.config->hostnameIs("leaf1");
  start(one);
  Ptr<Rix::Entity> const config = centre->config(idOne);
  Ptr<Rix::Entity> const orders = centre->orders(idOne);
  Ptr<Rix::Entity> const received = one.orders();
  one.connectedIs(false);
  pump();
  EXPECT_FALSE(centre->end->connected(idOne));
  EXPECT_EQ(centre->config(idOne), config);
  one.turn([&] { one.config->hostnameIs("edge1"); });
  ordersTurn([&] { centre->orders(idOne)->transmitterIs("p1:leaves"); });
  start(one);
  EXPECT_EQ(centre->config(idOne), config);
  EXPECT_EQ(centre->config(idOne)->hostname(), "edge1");
  EXPECT_EQ(centre->orders(idOne), orders);
  EXPECT_EQ(one.orders(), received);
  EXPECT_EQ(one.orders()->transmitters(), 1U);
  EXPECT_THAT(centre->mounterLog, ElementsAre("complete switchConfigMg", "initial", std::string(idOne) + " 1",
                                              std::string(idOne) + " 2", std::string(idOne) + " 1"));
}

TEST_F(FabricTest, WithoutPreservingEntriesGoWithTheirSwitch) {
  centre = nullptr;
  centre = std::make_unique<Centre>(*this, 2, Options{.preserve = false});
  Switch one(*this, idOne);
  start(one);
  ASSERT_TRUE(centre->config(idOne));
  one.connectedIs(false);
  pump();
  EXPECT_FALSE(centre->config(idOne));
  EXPECT_FALSE(centre->status(idOne));
  EXPECT_FALSE(centre->orders(idOne));
  start(one);
  EXPECT_TRUE(centre->config(idOne));
}

TEST_F(FabricTest, ARestartedSwitchAgentsEntitiesReplaceTheOldOnesInOneDispatch) {
  {
    Switch one(*this, idOne, 1);
    one.status->probeStreamTable()->streamRecordIs(stream(1));
    start(one);
  }
  pump();
  Ptr<Rix::Entity> const before = centre->status(idOne);
  Ptr<Rix::Entity> const orders = centre->orders(idOne);
  ASSERT_TRUE(before) << "the centre keeps its last report";
  centre->heard.clear();
  Switch again(*this, idOne, 2);
  start(again);
  EXPECT_NE(centre->status(idOne), before);
  EXPECT_THAT(centre->heard, ElementsAre("-config", "+config" + Rix::jsonText(*again.config), "-status",
                                         "+status" + Rix::jsonText(*again.status)));
  EXPECT_EQ(centre->orders(idOne), orders);
}

TEST_F(FabricTest, AVersionThatIsNotOnTheListIsRefused) {
  Switch one(*this, idOne, 1, 2);
  start(one);
  EXPECT_EQ(centre->end->refusedSwitches(), 1U);
  EXPECT_FALSE(one.end->connected());
  EXPECT_FALSE(centre->config(idOne));
}

TEST_F(FabricTest, ANameThatIsNoIdentityIsRefused) {
  Switch one(*this, "leaf1");
  start(one);
  EXPECT_EQ(centre->end->refusedSwitches(), 1U);
}

TEST_F(FabricTest, AnEntryThatIsTakenAwayGoesFromTheSwitchToo) {
  Switch one(*this, idOne);
  start(one);
  ordersTurn([&] { centre->database->entityDel(std::string("zeb/client/waveConfigDir/") + idOne); });
  pump();
  EXPECT_FALSE(one.orders());
  ordersTurn([&] {
    centre->database->dirIs("zeb/client/waveConfigDir")->newEntity("Zeb::ZebSonarConfigV1", idOne);
    centre->orders(idOne)->transmitterIs("p");
  });
  pump();
  EXPECT_EQ(one.orders()->transmitters(), 1U);
}

TEST_F(FabricTest, AMessageOfManyFramesIsCutAnywhereByADisconnectAndNothingOfItCounts) {
  Switch one(*this, idOne);
  start(one);
  one.turn([&] {
    for (U32 i = 0; i < 3000; ++i) one.status->probeStreamTable()->streamRecordIs(stream(i))->egressRecordIs(1);
  });
  ASSERT_GT(network.waiting(), 1U) << "one message, several frames";
  network.deliverOne();
  one.connectedIs(false);
  pump();
  EXPECT_EQ(centre->status(idOne)->probeStreamTable()->streamRecords(), 0U);
  Ptr<Rix::Entity> const table(centre->status(idOne)->probeStreamTable());
  start(one);
  EXPECT_EQ(centre->status(idOne)->probeStreamTable()->streamRecords(), 3000U);
  EXPECT_EQ(centre->status(idOne)->probeStreamTable(), table.get());
  EXPECT_EQ(Rix::jsonText(*centre->status(idOne)), Rix::jsonText(*one.status));
}

TEST_F(FabricTest, ADamagedFrameEndsTheLinkAndASnapshotMendsIt) {
  Switch one(*this, idOne);
  start(one);
  network.damageIs([](std::string_view frame) { return std::string(frame.substr(0, frame.size() - 1)); });
  one.turn([&] { one.config->hostnameIs("leaf1"); });
  pump();
  EXPECT_EQ(centre->end->malformedFrames(), 1U);
  EXPECT_FALSE(centre->end->connected(idOne));
  EXPECT_EQ(centre->config(idOne)->hostname(), "");
  network.damageIs({});
  start(one);
  EXPECT_EQ(centre->config(idOne)->hostname(), "leaf1");
}

TEST_F(FabricTest, ALostLastFrameIsFoundByTheBeatAndAskedFor) {
  Switch one(*this, idOne);
  bool losing = false;
  network.lossIs([&](std::string_view) { return losing; });
  start(one);
  losing = true;
  one.turn([&] { one.config->hostnameIs("leaf1"); });
  ordersTurn([&] { centre->orders(idOne)->transmitterIs("p"); });
  losing = false;
  pump();
  EXPECT_EQ(centre->config(idOne)->hostname(), "");
  EXPECT_EQ(one.orders()->transmitters(), 0U);
  advance(1.5, {&one});
  EXPECT_EQ(centre->config(idOne)->hostname(), "leaf1");
  EXPECT_EQ(one.orders()->transmitters(), 1U);
}

TEST_F(FabricTest, ALostFrameAmongOthersIsAskedForAtOnce) {
  Switch one(*this, idOne);
  bool losing = false;
  network.lossIs([&](std::string_view) { return losing; });
  start(one);
  losing = true;
  one.turn([&] { one.config->hostnameIs("leaf1"); });
  losing = false;
  one.turn([&] { one.config->enabledIs(true); });
  pump();
  EXPECT_EQ(Rix::jsonText(*centre->config(idOne)), Rix::jsonText(*one.config));
}

TEST_F(FabricTest, WordsOutOfPlaceAreRefused) {
  pump();
  struct Stranger final : Fabric::LinkUser {
    void linkConnected(Fabric::Link& l) override { link = &l; }
    void linkReceived(Fabric::Link&, std::string_view) override {}
    void linkDisconnected(Fabric::Link&) override { link = nullptr; }
    Fabric::Link* link = nullptr;
  } stranger;
  Activity activity(time);
  auto& port = network.addSwitch(activity);
  port.userIs(&stranger);
  Rix::ByteWriter hello;
  hello.variable(1);
  hello.text(idOne);
  auto const frame = [](Rix::FrameHeader const& header, std::string_view payload = {}) {
    return Rix::framesOf(header, payload)[0];
  };
  std::vector<std::vector<std::string>> const attempts{
      {"x"},
      {frame({.kind = Rix::FrameKind::snapshot, .incarnation = 1})},
      {frame({.kind = Rix::FrameKind::hello, .incarnation = 1})},
      {frame({.kind = Rix::FrameKind::hello, .incarnation = 0}, hello.view())},
      {frame({.kind = Rix::FrameKind::hello, .incarnation = 1}, std::string(hello.view()) + "x")},
      {frame({.kind = Rix::FrameKind::hello, .incarnation = 1}, hello.view()),
       frame({.kind = Rix::FrameKind::snapshot, .mount = 2, .incarnation = 1})},
      {frame({.kind = Rix::FrameKind::hello, .incarnation = 1}, hello.view()),
       frame({.kind = Rix::FrameKind::snapshot, .mount = 0, .schemaHash = 1, .incarnation = 1})},
      {frame({.kind = Rix::FrameKind::hello, .incarnation = 1}, hello.view()),
       frame({.kind = Rix::FrameKind::snapshot,
              .schemaHash = Zeb::ClientConfig::rixType().record()->schemaHash(),
              .incarnation = 2})},
      {frame({.kind = Rix::FrameKind::hello, .incarnation = 1}, hello.view()),
       frame({.kind = Rix::FrameKind::ask, .mount = 1, .incarnation = 1})},
  };
  U64 refused = 0;
  for (auto const& attempt : attempts) {
    network.connectedIs(port, true);
    pump();
    ASSERT_TRUE(stranger.link);
    for (auto const& each : attempt) stranger.link->send(each);
    pump();
    EXPECT_FALSE(stranger.link);
    EXPECT_EQ(centre->end->malformedFrames(), ++refused);
  }
  network.remove(port);
}

TEST(Frames, ACutHeaderAndEachWrongFieldAreRefused) {
  std::string const good = Rix::framesOf({.kind = Rix::FrameKind::delta, .incarnation = 3, .sequence = 4}, "abc")[0];
  EXPECT_EQ(Rix::readFrame(good).payload, "abc");
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_THROW(Rix::readFrame(good.substr(0, length)), Rix::FrameException) << length;
  }
  EXPECT_THROW(Rix::readFrame(good + "d"), Rix::FrameException);
  auto const refused = [&good](std::size_t at, int value, std::string const& part) {
    std::string bad = good;
    bad[at] = static_cast<char>(value);
    try {
      Rix::readFrame(bad);
      ADD_FAILURE() << part;
    } catch (Rix::FrameException const& exception) {
      EXPECT_THAT(exception.what(), testing::HasSubstr(part));
    }
  };
  refused(0, 0, "magic at byte 4");
  refused(4, 2, "layout version at byte 5: expected 1, found 2");
  refused(5, 0, "kind at byte 6: expected 1 to 6, found 0");
  refused(5, 7, "kind at byte 6: expected 1 to 6, found 7");
  refused(28, 1, "piece at byte");
  refused(30, 0, "pieces at byte");
  refused(31, 255, "pieces at byte");
  refused(32, 1, "reserved field at byte");
  refused(36, 4, "length at byte");
  refused(38, 255, "length at byte 40: expected at most 65536");
}

TEST(Frames, PiecesComeTogetherOnlyInOrder) {
  std::string const payload(Rix::maxFramePayload * 2 + 5, 'x');
  auto const frames = Rix::framesOf({.kind = Rix::FrameKind::delta, .sequence = 1}, payload);
  ASSERT_EQ(frames.size(), 3U);
  Rix::MessageAssembler assembler;
  EXPECT_FALSE(assembler.take(Rix::readFrame(frames[0])));
  EXPECT_FALSE(assembler.take(Rix::readFrame(frames[1])));
  EXPECT_TRUE(assembler.take(Rix::readFrame(frames[2])));
  EXPECT_EQ(assembler.message(), payload);
  EXPECT_FALSE(assembler.take(Rix::readFrame(frames[0])));
  EXPECT_FALSE(assembler.take(Rix::readFrame(frames[2])));
  EXPECT_FALSE(assembler.take(Rix::readFrame(frames[1])));
  EXPECT_THROW(Rix::framesOf({}, std::string(Rix::maxMessageSize + 1, 'x')), Rix::RangeException);
}

TEST(Frames, ASequenceTellsWhatCountsWhatIsOldAndWhatIsMissing) {
  using Verdict = Rix::SequenceCheck::Verdict;
  Rix::SequenceCheck check;
  auto const judge = [&check](Rix::FrameKind kind, U64 incarnation, U64 sequence) {
    return check.judge({.kind = kind, .incarnation = incarnation, .sequence = sequence});
  };
  EXPECT_EQ(judge(Rix::FrameKind::delta, 5, 1), Verdict::gap);
  EXPECT_EQ(judge(Rix::FrameKind::snapshot, 5, 3), Verdict::apply);
  check.applied({.kind = Rix::FrameKind::snapshot, .incarnation = 5, .sequence = 3});
  EXPECT_EQ(judge(Rix::FrameKind::snapshot, 5, 3), Verdict::drop);
  EXPECT_EQ(judge(Rix::FrameKind::delta, 5, 3), Verdict::drop);
  EXPECT_EQ(judge(Rix::FrameKind::delta, 5, 4), Verdict::apply);
  EXPECT_EQ(judge(Rix::FrameKind::delta, 5, 5), Verdict::gap);
  EXPECT_EQ(judge(Rix::FrameKind::delta, 4, 4), Verdict::drop);
  EXPECT_EQ(judge(Rix::FrameKind::delta, 6, 4), Verdict::gap);
  EXPECT_EQ(judge(Rix::FrameKind::beat, 5, 3), Verdict::drop);
  EXPECT_EQ(judge(Rix::FrameKind::beat, 5, 4), Verdict::gap);
  EXPECT_EQ(judge(Rix::FrameKind::snapshot, 4, 9), Verdict::drop);
  check.writerIs(4);  // it presents itself: newer, whatever its number
  EXPECT_EQ(judge(Rix::FrameKind::snapshot, 4, 1), Verdict::apply);
}

}  // namespace
}  // namespace FabricTesting
