// What the centre of a run has said, and what became of losses, line by line in a file as it comes. A centre that dies
// takes nothing of it along: the one that reports at the end tells of all that were before it.
//
// Times are those of CLOCK_MONOTONIC, which all processes share.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "lab/LossHistory.h"
#include "lab/NodeNames.h"
#include "platform/Descriptor.h"
#include "runtime/Activity.h"

namespace Lab {

// {"source": "10.0.0.1", "destination": "10.0.0.2", "port": 20000}
nlohmann::json streamReport(const Zeb::ProbeStreamId& id);

class CentreJournal {
 public:
  // Goes on with the file, or makes it; notes that this centre begins. `generation`: how many were before it. Throws
  // LabError.
  CentreJournal(const Topology& topology, const std::string& path, int generation, double now);

  void note(const Rix::LogMessage& message) const;
  void note(std::size_t index, const LossHistory::PairLife& life) const;
  void note(const LossHistory::TtlKey& key, const LossHistory::TtlPast& past) const;

  // The report's `log`, `pairHistory` and `lossRecords`, of all centres of this run; times by seconds since `zero`.
  nlohmann::json report(double zero) const;

 private:
  void add(const nlohmann::json& line) const;

  const NodeNames names_;
  const std::string path_;
  const int generation_;
  Platform::Descriptor file_;
};

}  // namespace Lab
