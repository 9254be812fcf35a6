// One loop: the agent's activity, the switches' links, and the order to stop.
#include "lab/CentreBody.h"

#include <sys/epoll.h>

#include <cstdio>
#include <fstream>
#include <optional>

#include "central/CentralStore.h"
#include "central/ZebAgent.h"
#include "lab/CentreReport.h"
#include "lab/Seed.h"
#include "lab/StandIn.h"
#include "platform/EventLoop.h"
#include "platform/Files.h"
#include "platform/LocalTransport.h"
#include "platform/SystemLog.h"
#include "platform/SystemTime.h"
#include "runtime/FabricEnds.h"

namespace Lab {
namespace {

class CentreProcess {
 public:
  CentreProcess(const NodeContext& context, const CentreOptions& options)
      : context_(context),
        use_(activity_),
        store_(Rix::make<Atlas::EntityManager>("centre")),
        listener_(loop_, activity_, context.centreSocket),
        end_(activity_, listener_, Rix::make<Atlas::EntityManager>("fabricdb"), 1),
        agent_(Zeb::agentFactory("Zeb")) {
    if (options.systemLog) systemLog_.emplace("zeb-lab");
    writeKeys();
    Zeb::fillCentralStore(*store_);
    agent_->serviceHostIs(&end_);
    activity_.logSinkIs([this](const Rix::LogMessage& message) { handleMessage(message); });
    activity_.dispatch([this] {
      const auto clusters =
          Rix::dynamicCast<FabricCluster::ClusterStatusDir>(store_->getEntity("fabric/cluster/statusDir"));
      clusters->status("default")->isStandaloneIs(true);
      clusters->status("default")->isStandaloneOrLeaderIs(true);
      Rix::dynamicCast<Zeb::ZebConfig>(store_->getEntity("zeb/config"))->enabledIs(true);
    });
    agent_->entityManagerIs(store_);
    activity_.runDueTimers();
    RIX_ASSERT(agent_->rootSm() != nullptr);
    activity_.dispatch([this] { writeClients(context_.topology, *agent_->status()); });
    history_ = Rix::make<LossHistory>(Rix::Ptr<Zeb::ZebStatus const>(agent_->status()));
  }

  void run() {
    loop_.stopOnSignals();
    loop_.add(context_.control.descriptor(), EPOLLIN, [this](std::uint32_t) { handleOrder(); });
    loop_.timersAre([this] { return activity_.nextDeadline(); }, [this] { activity_.runDueTimers(); });
    loop_.turnEndIs([this] { activity_.runDueTimers(); });
    context_.control.ready();
    loop_.run();
  }

  void report() {
    nlohmann::json report;
    activity_.dispatch([&] {
      report = centreReport(context_.topology, *agent_->root(), *history_, messages_, context_.control.zero());
    });
    report["lateness"] = {{"timers", activity_.worstTimerLateness()}};
    report["malformedFrames"] = end_.malformedFrames();
    std::ofstream(context_.reportFile) << report;
  }

 private:
  // The fabric's one key, made from the run's seed before any switch starts.
  void writeKeys() const {
    char line[64];
    std::snprintf(line, sizeof line, "1 %016llx%016llx\n",
                  static_cast<unsigned long long>(derivedSeed(context_.seed, 1)),
                  static_cast<unsigned long long>(derivedSeed(context_.seed, 2)));
    Platform::writeFileAtomically(context_.runDirectory + "/probe-keys", line, true);
  }

  void handleOrder() {
    while (const auto order = context_.control.next()) {
      if (*order == Control::Order::stop) return loop_.stop();
    }
  }

  void handleMessage(const Rix::LogMessage& message) {
    messages_.push_back(message);
    if (message.arguments.size() == 2) history_->loggedIs(message.arguments[0], message.arguments[1], message.time);
    if (systemLog_) systemLog_->write(Platform::systemLogMessage(message));
    std::printf("%s\n", message.text.c_str());
    for (const std::string& line : evidence(*agent_->status(), message)) std::printf("    %s\n", line.c_str());
    std::fflush(stdout);
  }

  const NodeContext& context_;
  Platform::SystemTime time_;
  Rix::Activity activity_{time_};
  Rix::Activity::Use use_;
  Platform::EventLoop loop_;
  Rix::Ptr<Atlas::EntityManager> store_;
  Platform::LocalListener listener_;
  Fabric::CentralEnd end_;
  Rix::Ptr<Zeb::Agent> agent_;
  Rix::Ptr<LossHistory> history_;
  std::vector<Rix::LogMessage> messages_;
  std::optional<Platform::SystemLog> systemLog_;
};

}  // namespace

int runCentre(const NodeContext& context, const CentreOptions& options) {
  CentreProcess process(context, options);
  process.run();
  process.report();
  return 0;
}

}  // namespace Lab
