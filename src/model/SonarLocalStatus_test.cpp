// The probing service's tables as an entity: what a poll tells, and what becomes of tables that are late or spoiled.
#include "model/SonarLocalStatus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/Dir.h"
#include "runtime/Reactor.h"
#include "runtime/ShelfMemory.h"
#include "runtime/ShelfWords.h"

namespace Sonar {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

// Notes the keys that it hears, by tag.
struct ListenerSm : Rix::Reactor<ListenerSm> {
  struct RixLocalStatus : Rix::Watch<RixLocalStatus, LocalStatus const, ListenerSm> {
    using Watch::Watch;
    void onIngressStreamStatisticsTable(IngressStream const& key) override {
      owner().heard.push_back("in " + std::to_string(key.streamTag));
    }
    void onEgressStreamTable(EgressStream const& key) override {
      owner().heard.push_back("out " + std::to_string(key.streamTag));
    }
  };
  explicit ListenerSm(Rix::Ptr<LocalStatus const> const& status) { status_.notifierIs(status); }
  template <class F>
  void rixParts(F&& f) {
    f(status_);
  }
  std::vector<std::string> heard;
  RixLocalStatus status_{this};
};

class SonarLocalStatus : public testing::Test {
 protected:
  SonarLocalStatus() {
    Vesta::Platform::debugSinkIs([this](std::string_view line) { lines.emplace_back(line); });
  }
  ~SonarLocalStatus() override { Vesta::Platform::debugSinkIs({}); }

  void tablesAreMade() {
    egress = std::make_unique<EgressStreamWriter>(storage, root, egressStreamTableName, egressStreamTableType,
                                                  Shelf::TableSize{.capacity = 8});
    ingress = std::make_unique<IngressStreamWriter>(storage, root, ingressStreamStatisticsTableName,
                                                    ingressStreamStatisticsTableType, Shelf::TableSize{.capacity = 8});
  }
  static EgressStream egressKey(U32 tag, std::string_view intf = "eth1") {
    EgressStream key;
    key.streamTag = tag;
    key.egressIntf = Netkit::IntfId(intf);
    return key;
  }
  static IngressStreamStatisticsTableEntry ingressRow(U32 tag) {
    IngressStreamStatisticsTableEntry row;
    row.key.streamTag = tag;
    row.key.ingressIntf = Netkit::IntfId("eth2");
    return row;
  }
  // Polls, and returns what that told.
  std::vector<std::string> told() {
    listener->heard.clear();
    status->poll();
    return listener->heard;
  }

  std::vector<std::string> lines;
  Shelf::MemoryStorage storage;
  Shelf::RootPath root{"/tables"};
  std::unique_ptr<EgressStreamWriter> egress;
  std::unique_ptr<IngressStreamWriter> ingress;
  Rix::Ptr<LocalStatus> status = Rix::make<LocalStatus>(storage, root);
  Rix::Ptr<ListenerSm> listener = Rix::make<ListenerSm>(status);
};

TEST_F(SonarLocalStatus, APollTellsOfEachRowThatWasAddedChangedOrRemoved) {
  tablesAreMade();
  EXPECT_THAT(told(), ElementsAre());
  egress->rowIs({egressKey(1), 1});
  egress->rowIs({egressKey(2), 1});
  ingress->rowIs(ingressRow(3));
  EXPECT_THAT(told(), UnorderedElementsAre("out 1", "out 2", "in 3"));
  EXPECT_THAT(told(), ElementsAre());
  egress->rowIs({egressKey(1), 2});
  EXPECT_THAT(told(), ElementsAre("out 1"));
  egress->rowIs({egressKey(1), 2});
  EXPECT_THAT(told(), ElementsAre());
  egress->rowDel(egressKey(2));
  EXPECT_THAT(told(), ElementsAre("out 2"));
}

TEST_F(SonarLocalStatus, TablesThatComeLaterAreTakenUpWithTheRowsThatTheyHold) {
  EXPECT_THAT(told(), ElementsAre());
  EgressStreamTable row;
  EXPECT_FALSE(status->egressStreamTable().lookup(egressKey(1), row));
  tablesAreMade();
  egress->rowIs({egressKey(1), 7});
  EXPECT_THAT(told(), ElementsAre("out 1"));
  EXPECT_TRUE(status->egressStreamTable().lookup(egressKey(1), row));
  EXPECT_EQ(row.numProbesTx, 7u);
  EXPECT_THAT(told(), ElementsAre());
}

TEST_F(SonarLocalStatus, AnAttachWalksNothing) {
  tablesAreMade();
  egress->rowIs({egressKey(1), 7});
  status->poll();
  EXPECT_THAT(Rix::make<ListenerSm>(status)->heard, ElementsAre());
}

TEST_F(SonarLocalStatus, LongInterfaceNamesGoThroughTheTablesNameList) {
  tablesAreMade();
  auto const key = egressKey(1, "Ethernet49/1.100");
  egress->rowIs({key, 7});
  EXPECT_THAT(told(), ElementsAre("out 1"));
  EXPECT_EQ(guardedRow(status->egressStreamTable(), key), (EgressStreamTable{key, 7}));
  // A name that the table never took up is in no row.
  EXPECT_EQ(guardedRow(status->egressStreamTable(), egressKey(1, "Ethernet49/1.101")), EgressStreamTable{});
}

TEST_F(SonarLocalStatus, ARowWhoseNameFindsNoRoomIsRefused) {
  EgressStreamWriter writer(storage, root, "small", egressStreamTableType, {.capacity = 2, .nameCapacity = 1});
  EXPECT_EQ(writer.rowIs({egressKey(1, "Ethernet1/1"), 1}), Shelf::WriteResult::kAdded);
  EXPECT_EQ(writer.rowIs({egressKey(2, "Ethernet2/1"), 1}), Shelf::WriteResult::kRefused);
}

TEST_F(SonarLocalStatus, AnIngressRowIsReadAsItWasWritten) {
  tablesAreMade();
  auto row = ingressRow(1);
  row.key.discriminator = 7;
  row.dormant = true;
  row.currentSequenceNumber = 1ULL << 40;
  ingress->rowIs(row);
  status->poll();
  EXPECT_EQ(guardedRow(status->ingressStreamStatisticsTable(), row.key), row);
}

TEST_F(SonarLocalStatus, MoreChangesThanOnePollLooksAtAreToldByTheNext) {
  tablesAreMade();
  status->poll();
  status->egressStreamTable().sampleIs(1);
  egress->rowIs({egressKey(1), 1});
  egress->rowIs({egressKey(2), 1});
  listener->heard.clear();
  EXPECT_TRUE(status->poll());
  EXPECT_FALSE(status->poll());
  EXPECT_THAT(listener->heard, UnorderedElementsAre("out 1", "out 2"));
}

TEST_F(SonarLocalStatus, ATableThatAPollFindsCorruptIsGivenUpForGood) {
  tablesAreMade();
  egress->rowIs({egressKey(1), 1});
  status->poll();
  auto const mapping = storage.openForReading("/tables/egressStreamTable");
  Shelf::storeWord(&mapping->words()[Shelf::Layout::kMagicAt], 0);
  EXPECT_THAT(told(), ElementsAre());
  EXPECT_FALSE(status->egressStreamTable().attached());
  EXPECT_NE(storage.textFile("/tables/egressStreamTable.corruption"), "");
  Shelf::storeWord(&mapping->words()[Shelf::Layout::kMagicAt], Shelf::Layout::kMagic);
  EXPECT_THAT(told(), ElementsAre());
  EXPECT_EQ(guardedRow(status->egressStreamTable(), egressKey(1)), EgressStreamTable{});
  ingress->rowIs(ingressRow(3));
  EXPECT_THAT(told(), ElementsAre("in 3"));
}

TEST_F(SonarLocalStatus, AFileThatIsNoTableIsGivenUpAtOnce) {
  std::vector<std::byte> const junk(4096, std::byte{0x5a});
  storage.fileIs("/tables/egressStreamTable", junk);
  EXPECT_THAT(told(), ElementsAre());
  EXPECT_THAT(lines, Contains(HasSubstr("ShelfMap::corruptionDetected() egressStreamTable")));
  lines.clear();
  EXPECT_THAT(told(), ElementsAre());
  EXPECT_THAT(lines, ElementsAre());
}

TEST_F(SonarLocalStatus, IsMadeByNameWithoutTablesAndGivenThemLater) {
  tablesAreMade();
  egress->rowIs({egressKey(1), 7});
  auto dir = Rix::make<Rix::Dir>("sonar");
  auto made = Rix::dynamicCast<LocalStatus>(dir->newEntity("Sonar::LocalStatus", "localStatus"));
  auto hearing = Rix::make<ListenerSm>(made);
  EXPECT_FALSE(made->poll());
  EXPECT_EQ(guardedRow(made->egressStreamTable(), egressKey(1)), EgressStreamTable{});
  made->tablesAre(storage, root);
  made->poll();
  EXPECT_THAT(hearing->heard, ElementsAre("out 1"));
}

}  // namespace
}  // namespace Sonar
