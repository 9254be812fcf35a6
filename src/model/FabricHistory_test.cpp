// Random histories of changes, losses and restarts on both sides of the exchange: whatever happened, the two sides
// agree when they are connected again, and orders that nobody changed have notified nobody.
#include <gmock/gmock.h>

#include <map>
#include <random>

#include "model/FabricTest.h"

namespace FabricTesting {
namespace {

// Hears of everything that happens to a switch's orders, on whatever tree they stand.
struct OrdersSm : Rix::Reactor<OrdersSm> {
  struct RixOrders : Rix::Watch<RixOrders, Zeb::ZebSonarConfigV1 const, OrdersSm> {
    using Watch::Watch;
    void onTransmitter(Name const& name) override {
      ++owner().heard;
      owner().transmitter_.notifierIs(name == Name("p") ? notifier()->transmitter(name)
                                                        : owner().transmitter_.notifier());
    }
  };
  struct RixTransmitter : Rix::Watch<RixTransmitter, Zeb::ZebTransmitterConfig const, OrdersSm> {
    using Watch::Watch;
    void onEnabled() override { ++owner().heard; }
    void onHopsRate(U16) override { ++owner().heard; }
    void onIpDest(Netkit::IpAddr const&) override { ++owner().heard; }
    void onPort(U16) override { ++owner().heard; }
    void onSourceInterface(Netkit::IntfId const&) override { ++owner().heard; }
  };
  explicit OrdersSm(Ptr<Zeb::ZebSonarConfigV1 const> const& orders) { orders_.notifierIs(orders); }
  template <class F>
  void rixParts(F&& f) {
    f(orders_);
    f(transmitter_);
  }
  int heard = 0;
  RixOrders orders_{this};
  RixTransmitter transmitter_{this};
};

class FabricHistory : public FabricTest {
 protected:
  static constexpr std::array ids{idOne, idTwo, "02:00:00:00:00:03"};

  explicit FabricHistory() { centre = nullptr; }
  ~FabricHistory() override { endCentre(); }

  unsigned random(unsigned below) { return std::uniform_int_distribution<unsigned>(0, below - 1)(generator); }

  Zeb::ZebProbeRate rate(std::string const& id) const { return {rates.at(id), 1}; }
  void write(Zeb::ZebSonarConfigV1& orders, std::string const& id) const {
    auto* transmitter = orders.transmitterIs("p");
    transmitter->sourceInterfaceIs(Netkit::IntfId("lo"), true);
    transmitter->ipDestIs(Netkit::IpAddr(7), true);
    for (U16 hop = 1; hop <= 3; ++hop) {
      if (transmitter->hopsRate(hop) == rate(id)) continue;
      transmitter->hopsRateDel(hop);
      transmitter->hopsRateIs(hop, rate(id));
    }
    transmitter->enabledIs(true);
  }

  void endCentre() {
    if (!centre) return;
    {
      Activity::Use use(centre->activity);
      publisher = nullptr;
    }
    centre = nullptr;
  }
  void newCentre() {
    endCentre();
    if (random(2) == 0) network.pump();
    Options options;
    options.machines = [this](Fabric::FabricdbService& service, Atlas::EntityManager& database) {
      auto const dir = database.dirIs("zeb/client/waveConfigDir");
      publisher = Rix::make<Fabric::DirWatch>(dir, [this, dir](Name const& name) {
        auto const orders = Rix::dynamicCast<Zeb::ZebSonarConfigV1>(dir->entityRef(name));
        if (orders) write(*orders, std::string(name.view()));
      });
      service.machinesStandIs(random(2) == 0);
    };
    centre = std::make_unique<Centre>(*this, ++incarnation, options);
  }
  void newAgent(std::size_t which) {
    Switch& device = *devices[which];
    {
      Activity::Use use(device.activity);
      device.end = nullptr;
    }
    if (random(2) == 0) network.pump();
    device.reportsAreNew();
    device.turn([&] { device.config->hostnameIs(ids[which]); });
    device.endIs(ids[which], ++incarnation);
  }
  void changeStatus(Switch& device) {
    device.turn([&] {
      auto* table = device.status->probeStreamTable();
      Zeb::ProbeStreamId const id = stream(random(4));
      if (random(3) == 0) return table->streamRecordDel(id);
      if (random(3) == 0) table->streamRecordDel(id);
      table->streamRecordIs(id)
          ->ingressRecordIs(static_cast<U8>(random(3)))
          ->ingressStatsIs()
          ->probesReceivedIs(random(100));
    });
  }
  void changeReport(Switch& device) {
    device.turn([&] {
      if (random(3) == 0) return device.config->groupDel("leaves");
      device.config->groupIs("leaves")->interfaceIpIs("lo", Netkit::IpAddr(random(5)));
    });
  }
  void step() {
    std::size_t const which = random(ids.size());
    Switch& device = *devices[which];
    switch (random(10)) {
      case 0:
        return newCentre();
      case 1:
        return newAgent(which);
      case 2:
        return device.connectedIs(false);
      case 3:
        return device.connectedIs(true);
      case 4:
        return centre->machinesStandIs(random(2) == 0);
      case 5:
        return changeReport(device);
      case 6:
        losing = random(4) == 0;
        return;
      case 7:
        time.nowIs(time.now() + 0.1 * random(20));
        return pump();
      default:
        return changeStatus(device);
    }
  }
  void advanceAll(double seconds) {
    time.nowIs(time.now() + seconds);
    centre->activity.runDueTimers();
    for (auto const& device : devices) device->activity.runDueTimers();
    network.pump();
  }
  // All is connected, nothing is lost, and machines stand.
  void settle() {
    losing = false;
    for (auto const& device : devices) device->connectedIs(true);
    pump();
    centre->machinesStandIs(true);
    for (int i = 0; i < 4; ++i) {
      for (auto const& device : devices) device->connectedIs(true);
      advanceAll(1.1);
    }
  }
  void expectAgreement(std::string const& when) {
    for (std::size_t i = 0; i < ids.size(); ++i) {
      Switch& device = *devices[i];
      ASSERT_TRUE(centre->config(ids[i]) && centre->status(ids[i]) && centre->orders(ids[i]) && device.orders())
          << when;
      EXPECT_EQ(Rix::jsonText(*centre->config(ids[i])), Rix::jsonText(*device.config)) << when;
      EXPECT_EQ(Rix::jsonText(*centre->status(ids[i])), Rix::jsonText(*device.status)) << when;
      EXPECT_EQ(Rix::jsonText(*device.orders()), Rix::jsonText(*centre->orders(ids[i]))) << when;
      EXPECT_EQ(device.orders()->transmitter("p")->hopsRate(2), rate(ids[i])) << when;
      EXPECT_EQ(device.end->malformedFrames(), 0U) << when;
    }
    EXPECT_EQ(centre->end->malformedFrames(), 0U) << when;
  }

  void run(unsigned seed) {
    generator.seed(seed);
    losing = false;
    reports = Fabric::MemoryReportStore();
    // Without its hello a link ends, as it should, and that is another test.
    network.lossIs([this](std::string_view frame) {
      return losing && Rix::readFrame(frame).header.kind != Rix::FrameKind::hello && random(3) == 0;
    });
    for (auto const* id : ids) {
      rates[id] = 10;
      devices.push_back(std::make_unique<Switch>(*this, id, ++incarnation));
    }
    newCentre();
    settle();
    std::string const when = "seed " + std::to_string(seed);
    expectAgreement(when + " at the start");
    std::vector<Ptr<Rix::Entity>> orders;
    std::vector<Ptr<OrdersSm>> listeners;
    for (auto const& device : devices) {
      orders.push_back(device->orders());
      listeners.push_back(Rix::make<OrdersSm>(Ptr<Zeb::ZebSonarConfigV1 const>(device->orders())));
      listeners.back()->heard = 0;
    }
    for (int phase = 0; phase < 3; ++phase) {
      std::size_t const changed = phase == 1 ? random(ids.size()) : ids.size();
      for (int i = 0; i < 40; ++i) {
        step();
        if (random(2) == 0) pump();
      }
      if (changed < ids.size()) {
        rates[ids[changed]] = static_cast<U16>(20 + seed % 50);
        ordersTurn([&] {
          if (auto const standing = centre->orders(ids[changed])) write(*standing, ids[changed]);
        });
      }
      settle();
      expectAgreement(when + " phase " + std::to_string(phase));
      for (std::size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(devices[i]->orders(), orders[i]) << when;
        EXPECT_EQ(listeners[i]->heard != 0, i == changed) << when << " phase " << phase << " switch " << i;
        listeners[i]->heard = 0;
      }
      if (HasFailure()) break;
    }
    listeners.clear();
    devices.clear();
    endCentre();
    network.pump();
  }

  std::mt19937 generator;
  bool losing = false;
  U64 incarnation = 0;
  std::map<std::string, U16> rates;
  std::vector<std::unique_ptr<Switch>> devices;
  Ptr<Fabric::DirWatch> publisher;
};

TEST_F(FabricHistory, EndsInAgreementAndUnchangedOrdersAreUntouched) {
  for (unsigned seed = 0; seed < 300 && !HasFailure(); ++seed) run(seed);
}

}  // namespace
}  // namespace FabricTesting
