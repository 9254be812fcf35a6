// One loop for both: the agent's activity with its store and its link to the centre, and the service beside it.
#include "lab/SwitchBody.h"

#include <sys/epoll.h>
#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "client/ClientStore.h"
#include "client/ZebClientAgent.h"
#include "lab/StandIn.h"
#include "platform/EventLoop.h"
#include "platform/Files.h"
#include "platform/LocalTransport.h"
#include "platform/SystemTime.h"
#include "runtime/FabricEnds.h"
#include "runtime/Trace.h"
#include "runtime/Vesta.h"
#include "sonar/KernelService.h"

namespace Lab {
namespace {

constexpr double pollPeriod = 0.01;  // how often the agent looks at the tables
constexpr std::uint32_t rows = 16384;

// What the shared tables say for debugging goes the way of all other traces.
Rix::TraceHandle shelfTraceHandle("Shelf");

class SwitchProcess {
 public:
  SwitchProcess(const NodeContext& context, const SwitchOptions& options)
      : context_(context),
        use_(activity_),
        store_(Rix::make<Atlas::EntityManager>("switch")),
        tables_{context.nodeDirectory + "/tables"},
        localStatus_(Rix::make<Sonar::LocalStatus>(storage_, tables_)),
        epochs_(context.nodeDirectory + "/epoch"),
        connector_(loop_, activity_, context.centreSocket),
        agent_(Zeb::clientAgentFactory("ZebClient")) {
    Zeb::fillClientStore(*store_, localStatus_);
    activity_.dispatch([this] { at<Zeb::ClientConfig>("mgmt/zeb/config")->enabledIs(true); });
    Sonar::KernelService::Options sonar;
    sonar.service.keys = keys();
    sonar.service.nextEpoch = [this] { return epochs_.next(); };
    sonar.tables = tables_;
    sonar.capacity = rows;
    if (options.tapClosed) sonar.tap = Sonar::KernelPacketIo::TapMode::closed;
    config_ = at<Sonar::Config>("sonar/zeb/config");
    sonar_ = std::make_unique<Sonar::KernelService>(
        loop_, activity_, storage_, std::move(sonar),
        Sonar::KernelService::Records{config_, at<Sonar::Status>("sonar/status"), at<Ip::Status>("ip/status")});
    agent_->entityManagerIs(store_);
    activity_.runDueTimers();
    const Fabric::SwitchEnd::Identity identity{ethernetText(context.systemId), epochs_.next()};
    end_ = std::make_unique<Fabric::SwitchEnd>(
        activity_, connector_, store_, identity,
        std::vector<Fabric::SwitchMount>{{"mgmt/zeb/hubx/config", "Zeb::ClientConfig"},
                                         {"mgmt/zeb/echoStatus", "Zeb::ZebSonarStatusV1"}},
        std::vector<Fabric::SwitchMount>{{"mgmt/zeb/hubx/waveConfigDir/waveConfig", "Zeb::ZebSonarConfigV1"}});
  }

  void run() {
    loop_.stopOnSignals();
    loop_.add(context_.control.descriptor(), EPOLLIN, [this](std::uint32_t) { handleOrder(); });
    loop_.timersAre(
        [this] {
          return std::min({activity_.nextDeadline(), sonar_->nextDeadline(), nextPoll_});
        },
        [this] { handleTimers(); });
    loop_.turnEndIs([this] { activity_.runDueTimers(); });
    context_.control.ready();
    loop_.run();
  }

  void report() const {
    const Sonar::Service& service = sonar_->service();
    nlohmann::json report;
    report["lateness"] = {{"timers", activity_.worstTimerLateness()}, {"polls", pollLateness_}};
    report["packets"][context_.name] = {{"taken", service.packets(Sonar::Rejection::none)},
                                        {"dropped", service.packetsDropped()}};
    std::ofstream(context_.reportFile) << report;
  }

 private:
  template <class T>
  Rix::Ptr<T> at(const char* path) {
    return Rix::dynamicCast<T>(store_->getEntity(path));
  }

  // The run's keys, which the centre has written before any switch starts.
  Sonar::Keyring keys() const {
    Sonar::Keyring ring;
    for (const Platform::ProbeKey& key : Platform::readKeyFile(context_.runDirectory + "/probe-keys")) {
      ring.keyIs(key.id, Sonar::SipKey::of(key.bytes));
    }
    return ring;
  }

  void handleOrder() {
    while (const auto order = context_.control.next()) {
      if (*order == Control::Order::stop) return loop_.stop();
      activity_.dispatch([this] { writeTransmitters(context_.topology, *context_.node, *config_); });
      pollLateness_ = 0;  // from here on it would show in what is measured
    }
  }

  void handleTimers() {
    const double now = Platform::monotonicSeconds();
    if (sonar_->nextDeadline() <= now) sonar_->onTimer(now);
    if (nextPoll_ <= now) {
      pollLateness_ = std::max(pollLateness_, now - nextPoll_);
      nextPoll_ = now + pollPeriod;
      activity_.dispatch([this] {
        while (localStatus_->poll()) {
        }
      });
    }
    activity_.runDueTimers();
  }

  const NodeContext& context_;
  Platform::SystemTime time_;
  Rix::Activity activity_{time_};
  Rix::Activity::Use use_;
  Platform::EventLoop loop_;
  Rix::Ptr<Atlas::EntityManager> store_;
  Platform::SharedMemory storage_;
  Shelf::RootPath tables_;
  Rix::Ptr<Sonar::LocalStatus> localStatus_;
  Platform::RisingCounter epochs_;
  Platform::LocalConnector connector_;
  Rix::Ptr<Sonar::Config> config_;
  std::unique_ptr<Sonar::KernelService> sonar_;
  Rix::Ptr<Zeb::ClientAgent> agent_;
  std::unique_ptr<Fabric::SwitchEnd> end_;
  double nextPoll_ = Platform::monotonicSeconds();
  double pollLateness_ = 0;
};

}  // namespace

int runSwitch(const NodeContext& context, const SwitchOptions& options) {
  Vesta::Platform::debugSinkIs([](std::string_view line) { RIX_TRACE(shelfTraceHandle, 8, line); });
  SwitchProcess process(context, options);
  process.run();
  process.report();
  return 0;
}

}  // namespace Lab
