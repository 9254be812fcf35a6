// The agent with its link to the switches, and what is told of it. A centre that is started again finds the operator's
// configuration, the last reports of the switches and its journal where the one before has left them.
#include "lab/CentreBody.h"

#include <cstdio>
#include <optional>

#include "central/CentralStore.h"
#include "central/ZebAgent.h"
#include "lab/BodyProcess.h"
#include "lab/CentreReport.h"
#include "lab/Operator.h"
#include "lab/Seed.h"
#include "platform/FileReportStore.h"
#include "platform/Files.h"
#include "platform/LocalTransport.h"
#include "platform/SystemLog.h"
#include "runtime/FabricEnds.h"

namespace Lab {
namespace {

class CentreProcess final : public BodyProcess {
 public:
  CentreProcess(const NodeContext& context, const CentreOptions& options)
      : BodyProcess(context),
        journal_(context.topology, context.nodeDirectory + "/journal", context.generation, activity_.now()),
        store_(Rix::make<Atlas::EntityManager>("centre")),
        listener_(loop_, activity_, context.centreSocket),
        reports_(context.nodeDirectory + "/reports"),
        end_(activity_, listener_, Rix::make<Atlas::EntityManager>("fabricdb"),
             static_cast<U64>(context.generation) + 1, &reports_),
        agent_(Zeb::agentFactory("Zeb")) {
    if (options.systemLog) systemLog_.emplace("zeb-lab");
    if (context.generation == 0) writeKeys();
    Zeb::fillCentralStore(*store_);
    agent_->serviceHostIs(&end_);
    activity_.logSinkIs([this](const Rix::LogMessage& message) { handleMessage(message); });
    activity_.dispatch([this] {
      const auto clusters =
          Rix::dynamicCast<FabricCluster::ClusterStatusDir>(store_->getEntity("fabric/cluster/statusDir"));
      clusters->status("default")->isStandaloneIs(true);
      clusters->status("default")->isStandaloneOrLeaderIs(true);
    });
    config_ = Rix::dynamicCast<Zeb::ZebConfig>(store_->getEntity("zeb/config"));
    history_ = Rix::make<LossHistory>(
        Rix::Ptr<Zeb::ZebStatus const>(Rix::dynamicCast<Zeb::ZebStatus>(store_->getEntity("zeb/status"))),
        LossHistory::Noted{[this](std::size_t index) { journal_.note(index, history_->pairs()[index]); },
                           [this](const auto& key, const auto& past) { journal_.note(key, past); }});
    // Before probing starts nothing is configured: that is what starts it.
    if (context.begun) writeConfiguration(context.changes);
    agent_->entityManagerIs(store_);
    activity_.runDueTimers();
  }

  void report() {
    nlohmann::json report;
    activity_.dispatch(
        [&] { report = centreReport(context_.topology, *agent_->root(), journal_, context_.control.zero()); });
    report["malformedFrames"] = end_.malformedFrames();
    write(std::move(report));
  }

 private:
  void changesAre(std::size_t changes, const Change* /*latest*/) override { writeConfiguration(changes); }

  void writeConfiguration(std::size_t changes) {
    activity_.dispatch([&] { configure(configurationAfter(context_.topology, changes), *config_); });
  }

  // The fabric's one key, made from the run's seed before any switch starts.
  void writeKeys() const {
    char line[64];
    std::snprintf(line, sizeof line, "1 %016llx%016llx\n",
                  static_cast<unsigned long long>(derivedSeed(context_.seed, 1)),
                  static_cast<unsigned long long>(derivedSeed(context_.seed, 2)));
    Platform::writeFileAtomically(context_.runDirectory + "/probe-keys", line, true);
  }

  void handleMessage(const Rix::LogMessage& message) {
    journal_.note(message);
    if (message.arguments.size() == 2) history_->loggedIs(message.arguments[0], message.arguments[1], message.time);
    if (systemLog_) systemLog_->write(Platform::systemLogMessage(message));
    std::printf("%s\n", message.text.c_str());
    for (const std::string& line : evidence(*agent_->status(), message)) std::printf("    %s\n", line.c_str());
    std::fflush(stdout);
  }

  const CentreJournal journal_;
  Rix::Ptr<Atlas::EntityManager> store_;
  Rix::Ptr<Zeb::ZebConfig> config_;
  Platform::LocalListener listener_;
  Platform::FileReportStore reports_;
  Fabric::CentralEnd end_;
  Rix::Ptr<Zeb::Agent> agent_;
  Rix::Ptr<LossHistory> history_;
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
