// The root object: what it holds, its registry of analyzers, and the host names of a stream's ends.
#include "central/ZebRoot.h"

#include <gtest/gtest.h>

#include "model/StreamText.h"
#include "runtime/Activity.h"
#include "runtime/Dir.h"

namespace Zeb {
namespace {

Fabric::SystemId systemId(U8 number) {
  return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, 0, number}));
}

struct ZebRoot : testing::Test {
  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  Rix::Ptr<Root> root = rootFactory("root");
  Rix::Ptr<ZebStatus> status = Rix::make<ZebStatus>();
  ProbeStreamId const id{{.srcEthAddr = Netkit::EthAddr({2, 0, 0, 0, 1, 1}),
                          .dstEthAddr = Netkit::EthAddr({2, 0, 0, 0, 1, 2}),
                          .dstIp = Netkit::IpAddr(0x0a000002),
                          .srcIp = Netkit::IpAddr(0x0a000001)}};

  ZebRoot() { root->zebStatusIs(status); }
  ProbeStreamRecord& record() { return *root->zebStreamTable()->streamRecordIs(id); }
  void client(U8 number, char const* hostname) { status->clientIs(systemId(number))->hostnameIs(hostname); }
};

TEST_F(ZebRoot, AnUnknownStreamsHostNamesAreItsAddresses) {
  EXPECT_EQ(streamSrcHostname(root, id), "10.0.0.1");
  EXPECT_EQ(streamDstHostname(root, id), "10.0.0.2");
}

TEST_F(ZebRoot, AKnownStreamWithoutAnEndHasTheAddressInItsPlace) {
  client(9, "leaf9");
  record().destinationIdIs(systemId(9));
  EXPECT_EQ(streamSrcHostname(root, id), "10.0.0.1");
  EXPECT_EQ(streamDstHostname(root, id), "leaf9");
  record().destinationIdDel();
  record().sourceIdIs(systemId(9));
  EXPECT_EQ(streamSrcHostname(root, id), "leaf9");
  EXPECT_EQ(streamDstHostname(root, id), "10.0.0.2");
}

TEST_F(ZebRoot, ASecondDoInitLeavesTheSameFourObjects) {
  auto const streamTable = root->zebStreamTable();
  auto const eventTable = root->eventTable();
  auto const eventsDir = root->zebStreamEventsDir();
  auto const registry = root->analyzerRegistry();
  root->doInit();
  EXPECT_EQ(root->zebStreamTable(), streamTable);
  EXPECT_EQ(root->eventTable(), eventTable);
  EXPECT_EQ(root->zebStreamEventsDir(), eventsDir);
  EXPECT_EQ(root->analyzerRegistry(), registry);
  EXPECT_EQ(registry->root(), root.get());
}

TEST_F(ZebRoot, BeforeTheRootObjectIsSetAStreamsTextHasAddresses) {
  client(1, "leaf1");
  client(2, "leaf2");
  record().sourceIdIs(systemId(1));
  record().destinationIdIs(systemId(2));
  EXPECT_FALSE(zebRoot());
  EXPECT_EQ(probeStreamStringValue(id), "10.0.0.1->10.0.0.2 02:00:00:00:01:01->02:00:00:00:01:02");
  EXPECT_EQ(probeStreamStringValue(id), id.stringValue());
  activity.rootObject() = root;
  EXPECT_EQ(zebRoot(), root);
  EXPECT_EQ(probeStreamStringValue(id), "leaf1->leaf2 02:00:00:00:01:01->02:00:00:00:01:02");
}

TEST(ZebRootOfNobody, WithoutAnActivityThereIsNone) {
  EXPECT_FALSE(zebRoot());
}

TEST_F(ZebRoot, AnotherKindOfRootObjectIsNone) {
  activity.rootObject() = status;
  EXPECT_FALSE(zebRoot());
}

TEST_F(ZebRoot, OneAnalyzerNameIsOneEntry) {
  auto const first = probeEventsAnalyzerBaseFactory("one");
  auto const second = probeEventsAnalyzerBaseFactory("two");
  ZebAnalyzerRegistry& registry = *root->analyzerRegistry();
  registry.analyzerIs("name", first);
  registry.analyzerIs("name", second);
  EXPECT_EQ(registry.analyzers(), 1u);
  EXPECT_EQ(registry.analyzer("name"), second);
}

// Notes each analyzer that comes, changes or goes.
struct RegistryLog : Rix::PtrInterface {
  struct RixRegistry : Rix::Watch<RixRegistry, ZebAnalyzerRegistry const, RegistryLog> {
    using Watch::Watch;
    void onAnalyzer(Rix::String8 const& name) override { pass(&RegistryLog::handleAnalyzer, name); }
  };
  explicit RegistryLog(Rix::Ptr<ZebAnalyzerRegistry const> const& registry) { registry_.notifierIs(registry); }
  void handleAnalyzer(Rix::String8 const& name) {
    seen.push_back((registry_->analyzer(name) ? "+" : "-") + std::string(name.view()));
  }
  std::vector<std::string> seen;
  RixRegistry registry_{this};
};

TEST_F(ZebRoot, TheRegistryTellsOfEachAnalyzerThatComesChangesOrGoes) {
  ZebAnalyzerRegistry& registry = *root->analyzerRegistry();
  registry.analyzerIs("a", probeEventsAnalyzerBaseFactory("a"));
  auto log = Rix::make<RegistryLog>(&registry);
  registry.analyzerIs("a", probeEventsAnalyzerBaseFactory("a"));
  registry.analyzerIs("b", probeEventsAnalyzerBaseFactory("b"));
  registry.analyzerDel("a");
  auto at = registry.analyzerIterator().begin();
  registry.analyzerDel(at);
  registry.analyzerIs("c", probeEventsAnalyzerBaseFactory("c"));
  registry.analyzerDelAll();
  EXPECT_EQ(log->seen, (std::vector<std::string>{"+a", "+a", "+b", "-a", "-b", "+c", "-c"}));
  EXPECT_EQ(registry.analyzers(), 0u);
}

TEST_F(ZebRoot, TheBaseAnalyzerLooksAtNothing) {
  auto queue = Rix::make<ProbeStreamEventsQueue>(id);
  queue->queuedEventsIs(1);
  probeEventsAnalyzerBaseFactory("base")->doAnalyze(root, queue);
  EXPECT_EQ(queue->queuedEvents(), 1u);
  EXPECT_EQ(status->lossStatus()->lossRecords(), 0u);
}

TEST_F(ZebRoot, IsMadeByNameInADirectory) {
  auto dir = Rix::globalDir();
  auto made = Rix::dynamicCast<Root>(dir->newEntity("Zeb::Root", "root"));
  ASSERT_TRUE(made);
  EXPECT_EQ(made->name(), "root");
  EXPECT_TRUE(made->analyzerRegistry());
}

using ZebRootDeathTest = ZebRoot;

TEST_F(ZebRootDeathTest, ARecordThatNamesASwitchWithoutAClientEndsTheProcess) {
  record().sourceIdIs(systemId(7));
  EXPECT_DEATH(streamSrcHostname(root, id), "assertion failed: client != nullptr with 02:00:00:00:00:07");
  record().destinationIdIs(systemId(8));
  EXPECT_DEATH(streamDstHostname(root, id), "assertion failed: client != nullptr with 02:00:00:00:00:08");
}

}  // namespace
}  // namespace Zeb
