// What the centre reports of a run, and what a message rests on.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "central/ZebRoot.h"
#include "lab/LossHistory.h"
#include "lab/Topology.h"
#include "runtime/Activity.h"

namespace Lab {

// The report's `log`, `clients`, `pairs`, `pairHistory`, `lossRecords` and `paths`, and the parts that nobody fills
// yet. Nodes go by their names in the scenario, times by seconds since `zero`.
nlohmann::json centreReport(const Topology& topology, const Zeb::Root& root, const LossHistory& history,
                            const std::vector<Rix::LogMessage>& messages, double zero);

// What led to a message, a line each: how many streams, and for one of them which TTL is silent and which hop answers.
std::vector<std::string> evidence(const Zeb::ZebStatus& status, const Rix::LogMessage& message);

}  // namespace Lab
