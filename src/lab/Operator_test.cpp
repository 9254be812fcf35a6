// What a scenario's configuration is at each moment, and how the records come to say it: by as few writes as it takes,
// and in an order that those who watch them rely on.
#include "lab/Operator.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "lab/LabTest.h"
#include "lab/Topology.h"
#include "runtime/Activity.h"
#include "runtime/Reactor.h"
#include "runtime/Watch.h"

namespace Lab {
namespace {

// Notes what a watcher of the centre's configuration hears, and what it would read at that moment.
class Hearer : public Rix::Reactor<Hearer> {
 public:
  explicit Hearer(const Rix::Ptr<Zeb::ZebConfig>& config) { config_.notifierIs(config); }
  template <class F>
  void rixParts(F&& part) {
    part(config_);
  }
  std::vector<std::string> heard() { return std::exchange(heard_, {}); }

 private:
  struct RixConfig : Rix::Watch<RixConfig, Zeb::ZebConfig const, Hearer> {
    using Watch::Watch;
    void onEnabled() override { owner().heard_.push_back((*this)->enabled() ? "enabled" : "disabled"); }
    void onClearLossRecords() override {
      owner().heard_.push_back("clear " + std::to_string((*this)->clearLossRecords()));
    }
    void onProbeConfig(Rix::Name const& name) override {
      const auto* const probe = (*this)->probeConfig(name);
      std::string text(name.view());
      if (!probe) {
        text += " gone";
      } else {
        text += " " + std::string(probe->srcGroup().view()) + " " + std::string(probe->dstGroup().view()) + " " +
                std::to_string(probe->rate()) + " " + std::to_string(probe->ports());
      }
      owner().heard_.push_back(text);
    }
  };
  std::vector<std::string> heard_;
  RixConfig config_{this};
};

class OperatorTest : public ::testing::Test {
 protected:
  explicit OperatorTest(const std::string& changes = "") : scenario_(fabricScenario(changes + "duration: 60\n")) {}

  void scenarioIs(const std::string& changes) { scenario_ = fabricScenario(changes + "duration: 60\n"); }
  // Brings both kinds of records to where the first so many changes leave them.
  void configured(std::size_t changes) {
    const Topology topology(scenario_);
    const Configuration configuration = configurationAfter(topology, changes);
    activity_.dispatch([&] {
      configure(configuration, *config_);
      configure(configuration.switches[2], *leaf1_);
    });
  }
  std::vector<std::string> groupsOfLeaf1() const {
    std::vector<std::string> result;
    for (const auto& group : leaf1_->groupIterator()) {
      std::string text(group->name().view());
      std::vector<std::string> interfaces;
      for (const auto& entry : group->interfaceIpIterator()) {
        EXPECT_NE(entry.value, Netkit::IpAddr()) << "zero would take the name back";
        interfaces.emplace_back(entry.key.view());
      }
      std::sort(interfaces.begin(), interfaces.end());
      for (const std::string& interface : interfaces) text += " " + interface;
      result.push_back(text);
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  Rix::VirtualTime time_{100};
  Rix::Activity activity_{time_};
  Rix::Activity::Use use_{activity_};
  Scenario scenario_;
  Rix::Ptr<Zeb::ZebConfig> config_ = Rix::make<Zeb::ZebConfig>();
  Rix::Ptr<Zeb::ClientConfig> leaf1_ = Rix::make<Zeb::ClientConfig>();
};

using Words = std::vector<std::string>;

TEST_F(OperatorTest, WritesTheProbesCompleteAndTheServiceLast) {
  const auto hearer = Rix::make<Hearer>(config_);
  configured(0);
  EXPECT_EQ(hearer->heard(), (Words{"p1 leaves leaves 10 6", "enabled"}));
  const Zeb::ZebProbeConfig& probe = *config_->probeConfig("p1");
  EXPECT_EQ(probe.distance(), 3);
  EXPECT_TRUE(probe.port(20000));
  EXPECT_TRUE(probe.enabled());
  EXPECT_EQ(groupsOfLeaf1(), Words{"leaves lo"});
  EXPECT_TRUE(leaf1_->enabled());
  EXPECT_EQ(leaf1_->hostname(), "") << "the operator names no host";
  configured(0);
  EXPECT_EQ(hearer->heard(), Words()) << "what stands already is not written again";
}

TEST_F(OperatorTest, ChangesSettingsInPlaceAndGroupsByRemovingAndAdding) {
  scenarioIs(R"(changes:
  - {at: 1, kind: probe, name: p1, set: {rate: 20, distance: 2, ports: [20000, 30000], enabled: false}}
  - {at: 2, kind: probe, name: p1, set: {dstGroup: spines}}
  - {at: 3, kind: probe, name: p2, add: {srcGroup: spines, dstGroup: leaves, rate: 5, distance: 1, ports: [9]}}
  - {at: 4, kind: probe, name: p1, remove: true}
)");
  configured(0);
  const auto hearer = Rix::make<Hearer>(config_);
  EXPECT_EQ(hearer->heard(), Words{"p1 leaves leaves 10 6"});
  const Rix::Ptr<Zeb::ZebProbeConfig> standing = config_->probeConfig("p1");
  configured(1);
  EXPECT_EQ(hearer->heard(), Words());
  EXPECT_EQ(Rix::Ptr<Zeb::ZebProbeConfig>(config_->probeConfig("p1")), standing);
  EXPECT_EQ(standing->rate(), 20);
  EXPECT_EQ(standing->distance(), 2);
  EXPECT_EQ(standing->ports(), 2u);
  EXPECT_TRUE(standing->port(30000));
  EXPECT_FALSE(standing->enabled());
  configured(2);
  EXPECT_EQ(hearer->heard(), (Words{"p1 gone", "p1 leaves spines 20 2"}));
  configured(3);
  EXPECT_EQ(hearer->heard(), Words{"p2 spines leaves 5 1"});
  configured(4);
  EXPECT_EQ(hearer->heard(), Words{"p1 gone"});
}

TEST_F(OperatorTest, FollowsASwitchsGroups) {
  scenarioIs(R"(changes:
  - {at: 1, kind: group, node: leaf1, name: edge, add: [lo, eth1]}
  - {at: 2, kind: group, node: leaf1, name: leaves, add: [eth2]}
  - {at: 3, kind: group, node: leaf1, name: edge, remove: [lo]}
  - {at: 4, kind: group, node: leaf1, name: leaves, remove: [lo, eth2]}
  - {at: 5, kind: group, node: leaf1, name: edge, remove: true}
  - {at: 6, kind: group, node: leaf2, name: edge, add: [lo]}
)");
  configured(1);
  EXPECT_EQ(groupsOfLeaf1(), (Words{"edge eth1 lo", "leaves lo"}));
  configured(2);
  EXPECT_EQ(groupsOfLeaf1(), (Words{"edge eth1 lo", "leaves eth2 lo"}));
  configured(3);
  EXPECT_EQ(groupsOfLeaf1(), (Words{"edge eth1", "leaves eth2 lo"}));
  configured(4);
  EXPECT_EQ(groupsOfLeaf1(), (Words{"edge eth1", "leaves"})) << "a group may be without interfaces";
  configured(5);
  EXPECT_EQ(groupsOfLeaf1(), Words{"leaves"});
  configured(6);
  EXPECT_EQ(groupsOfLeaf1(), Words{"leaves"}) << "another switch's group";
}

TEST_F(OperatorTest, DisablesBeforeAllElseAndClearsByNumbersThatRise) {
  scenarioIs(R"(changes:
  - {at: 1, kind: clear}
  - {at: 2, kind: clear}
  - {at: 3, kind: probe, name: p1, remove: true}
  - {at: 3, kind: service, enabled: false}
  - {at: 4, kind: service, enabled: false, node: leaf1}
  - {at: 5, kind: service, enabled: true}
)");
  configured(0);
  const auto hearer = Rix::make<Hearer>(config_);
  hearer->heard();
  configured(1);
  EXPECT_EQ(hearer->heard(), Words{"clear 1"});
  configured(2);
  EXPECT_EQ(hearer->heard(), Words{"clear 2"});
  configured(4);
  EXPECT_EQ(hearer->heard(), (Words{"disabled", "p1 gone"}));
  EXPECT_TRUE(leaf1_->enabled());
  configured(5);
  EXPECT_FALSE(leaf1_->enabled());
  EXPECT_EQ(hearer->heard(), Words());
  configured(6);
  EXPECT_EQ(hearer->heard(), Words{"enabled"});
}

TEST_F(OperatorTest, WhoeverHasMissedChangesComesToTheSame) {
  scenarioIs(R"(changes:
  - {at: 1, kind: probe, name: p1, set: {rate: 20}}
  - {at: 2, kind: probe, name: p2, add: {srcGroup: spines, dstGroup: leaves, rate: 5, distance: 1, ports: [9]}}
  - {at: 3, kind: probe, name: p1, set: {srcGroup: spines, ports: [5]}}
  - {at: 4, kind: clear}
  - {at: 5, kind: group, node: leaf1, name: edge, add: [lo]}
)");
  for (std::size_t changes = 0; changes <= 5; ++changes) configured(changes);
  const auto fresh = Rix::make<Zeb::ZebConfig>();
  const auto freshLeaf = Rix::make<Zeb::ClientConfig>();
  const Topology topology(scenario_);
  const Configuration configuration = configurationAfter(topology, 5);
  configure(configuration, *fresh);
  configure(configuration.switches[2], *freshLeaf);
  for (const auto& config : {config_, fresh}) {
    EXPECT_EQ(config->probeConfigs(), 2u);
    EXPECT_EQ(config->clearLossRecords(), 1u);
    EXPECT_EQ(config->probeConfig("p1")->rate(), 20);
    EXPECT_EQ(config->probeConfig("p1")->srcGroup(), "spines");
    EXPECT_EQ(config->probeConfig("p1")->ports(), 1u);
  }
  EXPECT_EQ(freshLeaf->groups(), 2u);
  EXPECT_EQ(leaf1_->groups(), 2u);
}

TEST(Configuration, HoldsAddressesAndHostNamesOfEachMoment) {
  const Scenario scenario = fabricScenario(R"(duration: 60
changes:
  - {at: 3, kind: hostname, node: leaf1, to: edge-1}
  - {at: 1, kind: address, node: leaf1, interface: lo, to: 10.9.9.9}
  - {at: 2, kind: address, node: leaf1, interface: eth1, to: none}
)");
  const Topology topology(scenario);
  ASSERT_EQ(scenario.changes.size(), 3u);
  EXPECT_EQ(scenario.changes[0].kind, ChangeKind::address) << "in the order of their times";
  const Configuration before = configurationAfter(topology, 0);
  EXPECT_EQ(before.switches[2].addresses.at("lo"), topology.loopback(2));
  EXPECT_EQ(before.switches[2].addresses.size(), 3u);
  EXPECT_EQ(before.switches[2].hostname, "leaf1");
  EXPECT_EQ(configurationAfter(topology, 1).switches[2].addresses.at("lo"), 0x0a090909u);
  EXPECT_FALSE(configurationAfter(topology, 2).switches[2].addresses.contains("eth1"));
  EXPECT_EQ(configurationAfter(topology, 3).switches[2].hostname, "edge-1");
}

}  // namespace
}  // namespace Lab
