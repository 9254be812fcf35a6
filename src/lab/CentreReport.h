// What the centre reports of a run, and what a message rests on.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "central/ZebRoot.h"
#include "lab/CentreJournal.h"
#include "lab/Topology.h"
#include "runtime/Activity.h"

namespace Lab {

// The report's `clients`, `groups`, `probeStatus`, `pairs`, `paths`, `pairStreams` and `streams`, as they stand;
// `standingLossRecords`, each stream with its TTLs; and what the journal tells of the run: `log`, `pairHistory` and
// `lossRecords`. Nodes go by their names in the scenario, times by seconds since `zero`.
nlohmann::json centreReport(const Topology& topology, const Zeb::Root& root, const CentreJournal& journal, double zero);

// What led to a message, a line each: how many streams, and for one of them which TTL is silent and which hop answers.
std::vector<std::string> evidence(const Zeb::ZebStatus& status, const Rix::LogMessage& message);

}  // namespace Lab
