// What the configuration's record says comes out as orders, and what it holds as false does not.
#include "sonar/Orders.h"

#include <gtest/gtest.h>

#include "model/gen/Sonar.h"
#include "sonar/TestSwitch.h"

namespace Sonar {
namespace {

TEST(Orders, areTheContentOfTheConfiguration) {
  auto const config = Rix::make<Config>();
  config->robustnessIs(5);
  TransmitterConfig& transmitter = *config->transmitterIs("p1:leaves");
  transmitter.sourceInterfaceIs(intf("lo"), true);
  transmitter.sourceInterfaceIs(intf("eth1"), false);
  transmitter.ipDestIs(ip(1), true);
  transmitter.ipDestIs(ip(2), false);
  transmitter.hopsRateIs(1, {10, 1, 1});
  transmitter.hopsRateIs(2, {20, 1, 1});
  transmitter.optionalSourcePortListIs(20000, true);
  transmitter.optionalSourcePortListIs(20001, false);
  transmitter.enabledIs(true);
  config->transmitterIs("p2:leaves");
  config->enabledIs(true);

  Orders const orders = ordersOf(*config, 7);
  EXPECT_EQ(orders.configuration, 7U);
  EXPECT_TRUE(orders.enabled);
  EXPECT_EQ(orders.robustness, 5U);
  ASSERT_EQ(orders.transmitters.size(), 2U);
  TransmitterOrder const& order = orders.transmitters.at("p1:leaves");
  EXPECT_TRUE(order.enabled);
  EXPECT_EQ(order.sources, std::set{intf("lo")});
  EXPECT_EQ(order.destinations, std::set{ip(1)});
  EXPECT_EQ(order.hopsRate, (std::map<U16, ProbeRate>{{1, {10, 1, 1}}, {2, {20, 1, 1}}}));
  EXPECT_EQ(order.ports, std::set<U16>{20000});
  EXPECT_FALSE(orders.transmitters.at("p2:leaves").enabled);
}

}  // namespace
}  // namespace Sonar
