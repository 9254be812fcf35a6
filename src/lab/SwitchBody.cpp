// One loop for both: the agent's activity with its store and its link to the centre, and the service beside it. Each
// can be taken away and made anew while the other goes on, as if it were a process of its own: the agent over the same
// store and tables, the service over the same orders and tables.
#include "lab/SwitchBody.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "client/ClientStore.h"
#include "client/ZebClientAgent.h"
#include "lab/BodyProcess.h"
#include "lab/Operator.h"
#include "lab/SwitchReport.h"
#include "platform/Files.h"
#include "platform/LocalTransport.h"
#include "platform/SwitchRecords.h"
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

// A switch that is switched on has no tables in its memory.
Shelf::RootPath emptyTables(const NodeContext& context) {
  const std::string path = context.nodeDirectory + "/tables";
  std::filesystem::remove_all(path);
  return {path};
}

class SwitchProcess final : public BodyProcess {
 public:
  SwitchProcess(const NodeContext& context, const SwitchOptions& options)
      : BodyProcess(context),
        options_(options),
        store_(Rix::make<Atlas::EntityManager>("switch")),
        tables_(emptyTables(context)),
        localStatus_(Rix::make<Sonar::LocalStatus>(storage_, tables_)),
        epochs_(context.nodeDirectory + "/epoch"),
        connector_(loop_, activity_, context.centreSocket) {
    Zeb::fillClientStore(*store_, localStatus_);
    clientConfig_ = at<Zeb::ClientConfig>("mgmt/zeb/config");
    config_ = at<Sonar::Config>("sonar/zeb/config");
    platform_.emplace(loop_, activity_, at<Ip::Status>("ip/status"), at<System::NetConfig>("sys/net/config"));
    writeConfiguration(context.changes);
    makeSonar();
    makeAgent();
  }

  void report() {
    nlohmann::json report;
    report["orders"][context_.name] = ordersReport(*config_);
    report["rows"][context_.name] = rowsReport(*localStatus_);
    // When streams of this switch began; a stream that goes on keeps its epoch.
    report["epochs"][context_.name] = nlohmann::json::array();
    for (const double time : epochTimes_) report["epochs"][context_.name].push_back(time - context_.control.zero());
    if (sonar_) {
      const Sonar::Service& service = sonar_->service();
      report["packets"][context_.name] = {{"taken", service.packets(Sonar::Rejection::none)},
                                          {"dropped", service.packetsDropped()}};
    }
    write(std::move(report));
  }

 private:
  static constexpr double never = std::numeric_limits<double>::infinity();

  template <class T>
  Rix::Ptr<T> at(const char* path) {
    return Rix::dynamicCast<T>(store_->getEntity(path));
  }

  void makeAgent() {
    const bool before = agentDue_ != never;
    agentDue_ = never;
    agent_ = Zeb::clientAgentFactory("ZebClient");
    agent_->entityManagerIs(store_);
    activity_.runDueTimers();
    const Fabric::SwitchEnd::Identity identity{ethernetText(context_.systemId), epochs_.next()};
    end_ = std::make_unique<Fabric::SwitchEnd>(
        activity_, connector_, store_, identity,
        std::vector<Fabric::SwitchMount>{{"mgmt/zeb/hubx/config", "Zeb::ClientConfig"},
                                         {"mgmt/zeb/echoStatus", "Zeb::ZebSonarStatusV1"}},
        std::vector<Fabric::SwitchMount>{{"mgmt/zeb/hubx/waveConfigDir/waveConfig", "Zeb::ZebSonarConfigV1"}});
    nextPoll_ = Platform::monotonicSeconds();
    if (sonar_ && before) sonar_->agentRestarted();
  }

  void removeAgent(double until) {
    end_.reset();
    agent_ = nullptr;
    Zeb::renewClientStore(*store_);
    agentDue_ = until;
  }

  void makeSonar() {
    sonarDue_ = never;
    Sonar::KernelService::Options sonar;
    sonar.service.keys = keys();
    sonar.service.nextEpoch = [this] {
      epochTimes_.push_back(Platform::monotonicSeconds());
      return epochs_.next();
    };
    sonar.tables = tables_;
    sonar.capacity = rows;
    if (options_.tapClosed) sonar.tap = Sonar::KernelPacketIo::TapMode::closed;
    sonar_ = std::make_unique<Sonar::KernelService>(
        loop_, activity_, storage_, std::move(sonar),
        Sonar::KernelService::Records{config_, at<Sonar::Status>("sonar/status")});
  }

  // The run's keys, which the centre has written before any switch starts.
  Sonar::Keyring keys() const {
    Sonar::Keyring ring;
    for (const Platform::ProbeKey& key : Platform::readKeyFile(context_.runDirectory + "/probe-keys")) {
      ring.keyIs(key.id, Sonar::SipKey::of(key.bytes));
    }
    return ring;
  }

  void changesAre(std::size_t changes, const Change* latest) override {
    writeConfiguration(changes);
    if (!latest || latest->kind != ChangeKind::restart) return;
    const double until = Platform::monotonicSeconds() + latest->down;
    if (latest->restarted == Restarted::agent) {
      removeAgent(until);
    } else {
      sonarDue_ = until;
      if (latest->planned && sonar_)
        sonar_->stop();
      else
        sonar_.reset();
    }
  }

  void writeConfiguration(std::size_t changes) {
    activity_.dispatch(
        [&] { configure(configurationAfter(context_.topology, changes).switches[*context_.node], *clientConfig_); });
  }

  double nextDeadline() override {
    return std::min({sonar_ ? sonar_->nextDeadline() : never, sonarDue_, agent_ ? nextPoll_ : agentDue_});
  }

  void handleDeadline(double now) override {
    if (sonar_ && sonar_->nextDeadline() <= now) sonar_->onTimer(now);
    // One that was asked to stop goes when it has told of that, or when its successor is due.
    if (sonar_ && sonarDue_ != never && (sonar_->stopped() || sonarDue_ <= now)) sonar_.reset();
    if (sonarDue_ <= now) makeSonar();
    if (agentDue_ <= now) makeAgent();
    if (agent_ && nextPoll_ <= now) {
      nextPoll_ = now + pollPeriod;
      activity_.dispatch([this] {
        while (localStatus_->poll()) {
        }
      });
    }
  }

  const SwitchOptions options_;
  Rix::Ptr<Atlas::EntityManager> store_;
  Platform::SharedMemory storage_;
  Shelf::RootPath tables_;
  Rix::Ptr<Sonar::LocalStatus> localStatus_;
  Platform::RisingCounter epochs_;
  Platform::LocalConnector connector_;
  Rix::Ptr<Zeb::ClientConfig> clientConfig_;
  Rix::Ptr<Sonar::Config> config_;
  std::optional<Platform::SwitchRecords> platform_;
  std::unique_ptr<Sonar::KernelService> sonar_;
  Rix::Ptr<Zeb::ClientAgent> agent_;
  std::unique_ptr<Fabric::SwitchEnd> end_;
  std::vector<double> epochTimes_;  // when the probing service took one
  double sonarDue_ = never;
  double agentDue_ = never;
  double nextPoll_ = 0;
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
