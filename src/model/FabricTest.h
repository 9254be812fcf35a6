// A centre and its switches in memory, for tests of the exchange: every frame is encoded, queued and delivered. The
// agent of the centre is played by a mounter that makes nothing but what a test gives it to do.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "model/SystemId.h"
#include "model/gen/Config.h"
#include "model/gen/ProbeStream.h"
#include "runtime/FabricEnds.h"
#include "runtime/Json.h"
#include "runtime/MemoryTransport.h"
#include "runtime/Type.h"

namespace FabricTesting {

using Fabric::MountState;
using Rix::Activity;
using Rix::Name;
using Rix::Ptr;
using testing::ElementsAre;

constexpr char idOne[] = "02:00:00:00:00:01";
constexpr char idTwo[] = "02:00:00:00:00:02";

inline Zeb::ProbeStreamId stream(U32 number) {
  Zeb::ProbeStreamId::Fields fields;
  fields.dstIp = Netkit::IpAddr(number);
  return Zeb::ProbeStreamId(fields);
}

// Notes what a service's mounter is told.
class Mounter : public Fabric::FabricdbServiceMounter {
 public:
  Mounter(std::vector<std::string>& log, std::function<void()> machines) : log_(log), machines_(std::move(machines)) {}
  void doMountsComplete(Rix::String8 group, Ptr<Atlas::EntityManager> const&) override {
    log_.push_back("complete " + std::string(group.view()));
    if (machines_) machines_();
  }
  void doHandleFabricMountState(Fabric::SystemId const& id, Rix::String8, MountState state) override {
    log_.push_back(id.stringValue() + " " + std::to_string(static_cast<int>(state)));
  }
  void doInitialSwitchMountsComplete(Rix::String8, Ptr<Atlas::EntityManager> const&) override {
    log_.push_back("initial");
  }

 private:
  std::vector<std::string>& log_;
  std::function<void()> const machines_;
};

// Notes the coming and going of a directory's entities.
struct DirSm : Rix::Reactor<DirSm> {
  struct RixDir : Rix::Watch<RixDir, Rix::Dir const, DirSm> {
    using Watch::Watch;
    void onEntityPtr(Name const& name) override { pass(&DirSm::handleEntity, name); }
  };
  DirSm(Ptr<Rix::Dir> const& dir, std::vector<std::string>& heard, std::string label)
      : heard_(heard), label_(std::move(label)) {
    dir_.notifierIs(dir.get());
  }
  template <class F>
  void rixParts(F&& f) {
    f(dir_);
  }
  void handleEntity(Name const& name) {
    auto const entity = dir_->entityRef(name);
    heard_.push_back((entity ? "+" : "-") + label_ + (entity ? Rix::jsonText(*entity) : ""));
  }
  std::vector<std::string>& heard_;
  std::string label_;
  RixDir dir_{this};
};

class FabricTest : public testing::Test {
 protected:
  struct Options {
    bool preserve = true;
    U32 highestVersion = 1;
    // What the agent does when the group stands: by default it says at once that its machines do.
    std::function<void(Fabric::FabricdbService&, Atlas::EntityManager&)> machines =
        [](Fabric::FabricdbService& service, Atlas::EntityManager&) { service.machinesStandIs(true); };
    Fabric::Transport* transport = nullptr;  // another one than the network's
  };
  struct Centre {
    Centre(FabricTest& test, U64 incarnation) : Centre(test, incarnation, Options()) {}
    Centre(FabricTest& test, U64 incarnation, Options const& options)
        : activity(test.time), transport(options.transport ? *options.transport : test.network.centre(activity)) {
      Activity::Use use(activity);
      database = Rix::make<Atlas::EntityManager>("fabricdb");
      end = std::make_unique<Fabric::CentralEnd>(activity, transport, database, incarnation, &test.reports);
      service = Rix::make<Fabric::FabricdbService>("Zeb", database, database, end.get());
      auto* group = service->serviceMountGroupIs(
          "switchConfigMg",
          Rix::make<Mounter>(mounterLog, [this, machines = options.machines] { machines(*service, *database); }));
      auto const list = service->versionWhiteListIs("v1");
      list->versionRangeIs(1, options.highestVersion);
      group->versionWhiteListIs(list);
      group->fabricMountIs("mgmt/zeb/hubx/config", "zeb/client/configDir", "Zeb::ClientConfig", "rCt");
      group->fabricMountIs("mgmt/zeb/echoStatus", "zeb/client/waveStatusDir", "Zeb::ZebSonarStatusV1", "rCt")->given =
          Fabric::Given::whileMachinesStand;
      group
          ->perSwitchPublishMountIs("zeb/client/waveConfigDir", "mgmt/zeb/hubx/waveConfigDir/waveConfig",
                                    "Zeb::ZebSonarConfigV1")
          ->publishActiveIs(true);
      group->preserveMountsOnDisconnectIs(options.preserve);
      group->closedIs(true);
      service->closedIs(true);
      service->publishMountsSynchronizedIs(true);
      configs = Rix::make<DirSm>(database->dirIs("zeb/client/configDir"), heard, "config");
      statuses = Rix::make<DirSm>(database->dirIs("zeb/client/waveStatusDir"), heard, "status");
    }
    ~Centre() {
      Activity::Use use(activity);
      configs = nullptr;
      statuses = nullptr;
      end = nullptr;
      service = nullptr;
    }
    // The machines come or go.
    void machinesStandIs(bool stand) {
      activity.dispatch([&] { service->machinesStandIs(stand); });
      activity.runDueTimers();
    }
    template <class T>
    Ptr<T> entry(std::string const& dir, std::string const& id) {
      return Rix::dynamicCast<T>(database->getEntity("zeb/client/" + dir + "/" + id));
    }
    Ptr<Zeb::ClientConfig> config(std::string const& id) { return entry<Zeb::ClientConfig>("configDir", id); }
    Ptr<Zeb::ZebSonarStatusV1> status(std::string const& id) {
      return entry<Zeb::ZebSonarStatusV1>("waveStatusDir", id);
    }
    Ptr<Zeb::ZebSonarConfigV1> orders(std::string const& id) {
      return entry<Zeb::ZebSonarConfigV1>("waveConfigDir", id);
    }

    std::vector<std::string> mounterLog;
    std::vector<std::string> heard;
    Activity activity;
    Fabric::Transport& transport;
    Ptr<Atlas::EntityManager> database;
    std::unique_ptr<Fabric::CentralEnd> end;
    Ptr<Fabric::FabricdbService> service;
    Ptr<DirSm> configs;
    Ptr<DirSm> statuses;
  };

  struct Switch {
    Switch(FabricTest& test, std::string const& id, U64 incarnation = 1, U32 version = 1)
        : network(test.network), activity(test.time), transport(network.addSwitch(activity)) {
      Activity::Use use(activity);
      database = Rix::make<Atlas::EntityManager>("sw");
      config = Rix::make<Zeb::ClientConfig>();
      status = Rix::make<Zeb::ZebSonarStatusV1>();
      database->entityIs("mgmt/zeb/hubx/config", config);
      database->entityIs("mgmt/zeb/echoStatus", status);
      endIs(id, incarnation, version);
    }
    ~Switch() {
      end = nullptr;
      network.remove(transport);
    }
    void endIs(std::string const& id, U64 incarnation, U32 version = 1) {
      Activity::Use use(activity);
      end = std::make_unique<Fabric::SwitchEnd>(
          activity, transport, database, Fabric::SwitchEnd::Identity{id, incarnation, version},
          std::vector<Fabric::SwitchMount>{{"mgmt/zeb/hubx/config", "Zeb::ClientConfig"},
                                           {"mgmt/zeb/echoStatus", "Zeb::ZebSonarStatusV1"}},
          std::vector<Fabric::SwitchMount>{{"mgmt/zeb/hubx/waveConfigDir/waveConfig", "Zeb::ZebSonarConfigV1"}});
    }
    // The agent's reports are entities anew, and a new agent fills them.
    void reportsAreNew() {
      Activity::Use use(activity);
      config = Rix::make<Zeb::ClientConfig>();
      status = Rix::make<Zeb::ZebSonarStatusV1>();
      database->entityIs("mgmt/zeb/hubx/config", config);
      database->entityIs("mgmt/zeb/echoStatus", status);
    }
    void connectedIs(bool connected) { network.connectedIs(transport, connected); }
    Ptr<Zeb::ZebSonarConfigV1> orders() {
      return Rix::dynamicCast<Zeb::ZebSonarConfigV1>(database->getEntity("mgmt/zeb/hubx/waveConfigDir/waveConfig"));
    }
    void turn(std::function<void()> const& work) { activity.dispatch(work); }

    Fabric::MemoryNetwork& network;
    Activity activity;
    Fabric::Transport& transport;
    Ptr<Atlas::EntityManager> database;
    Ptr<Zeb::ClientConfig> config;
    Ptr<Zeb::ZebSonarStatusV1> status;
    std::unique_ptr<Fabric::SwitchEnd> end;
  };

  void pump() {
    if (centre) centre->activity.runDueTimers();
    network.pump();
  }
  void start(Switch& device) {
    device.connectedIs(true);
    pump();
  }
  void advance(double seconds, std::initializer_list<Switch*> devices) {
    time.nowIs(time.now() + seconds);
    centre->activity.runDueTimers();
    for (auto* device : devices) device->activity.runDueTimers();
    network.pump();
  }
  void ordersTurn(std::function<void()> const& work) { centre->activity.dispatch(work); }

  Rix::VirtualTime time{100};
  Fabric::MemoryNetwork network;
  Fabric::MemoryReportStore reports;
  std::unique_ptr<Centre> centre = std::make_unique<Centre>(*this, 1);
};

}  // namespace FabricTesting
