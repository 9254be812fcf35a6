// One switch of a fabric on virtual time: the real agent with its store and its end of the exchange, the real probing
// service, and the two tables between them in memory. The fabric tells it when to run and hands it its packets.
//
// The agent and the service die and start apart. What outlives the agent is the service, the tables, the orders that it
// had and those that it has made of them; what outlives the service is the agent, the tables and the counter of epochs.
// What the platform and the operator write in the agent's store is written again by whoever starts it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "client/ZebClientAgent.h"
#include "lab/VirtualNetwork.h"
#include "model/SonarTables.h"
#include "model/gen/Platform.h"
#include "model/gen/Sonar.h"
#include "runtime/Activity.h"
#include "runtime/FabricEnds.h"
#include "runtime/MemoryTransport.h"
#include "runtime/ShelfMemory.h"
#include "sonar/Sonar.h"

namespace Lab {

class VirtualSwitch {
 public:
  // How often the agent looks at tables that have changed, in seconds.
  static constexpr double pollPeriod = 0.02;

  struct Surroundings {
    Rix::TimeSource& time;
    Fabric::MemoryNetwork& exchange;
    VirtualNetwork& network;
    const Sonar::Keyring& keys;
  };

  // Nothing runs yet. `surroundings` outlive it.
  VirtualSwitch(const Surroundings& surroundings, std::size_t node, std::string systemId);
  ~VirtualSwitch();

  // The agent starts. `write` is called with its new store before it does: the platform's records and the operator's.
  void agentIs(const std::function<void(Atlas::EntityManager& store)>& write);
  void agentDel();
  bool agentRuns() const { return agent_ != nullptr; }
  // The agent's program has failed: it is put aside as it is, with all that belongs to it, for nothing in it can be
  // relied upon any more.
  void agentFailed();
  // The probing service starts, over the rows that one before it has left.
  void sonarIs();
  // It dies; or it stops as one does that has the time: it ends its streams, tells of that, and goes.
  void sonarDel();
  void sonarStop();
  bool sonarRuns() const { return sonar_ != nullptr; }

  // When it wants to run next; Rix::never if nothing is to do.
  double nextDeadline();
  // Does what is due by the time source's now.
  void run();
  void packetArrived(const VirtualNetwork::Arrival& arrival);
  // Links, routes or addresses of this switch are others now.
  void networkChanged();

  // Precondition of all below: the agent runs.
  Rix::Activity& activity();
  const Rix::Ptr<Atlas::EntityManager>& store() const;
  // What the agent has ordered of the probing service.
  Sonar::Config& orders() const;
  const Fabric::SwitchEnd& end() const;
  const Zeb::ClientAgent& agent() const;

  // Precondition: the probing service runs.
  const Sonar::Service& service() const;
  // The rows that stand in the tables.
  std::vector<Sonar::IngressStreamStatisticsTableEntry> ingressRows();
  std::vector<Sonar::EgressStreamTable> egressRows();

 private:
  class Agent;
  class Probing;

  void attach();
  void keepRecords();

  const Surroundings surroundings_;
  const std::size_t node_;
  const std::string systemId_;
  Shelf::MemoryStorage storage_;
  const Shelf::RootPath tables_;
  U64 lastNumber_ = 0;  // of epochs and incarnations: rises across all starts
  U64 configurations_ = 0;
  std::map<std::string, std::string> lasting_;  // by path: records that outlive the agent, while none runs
  bool agentBefore_ = false;
  bool tablesChanged_ = false;
  double nextPoll_ = 0;
  std::unique_ptr<Agent> agent_;
  std::unique_ptr<Probing> sonar_;
};

}  // namespace Lab
