// What a switch reports of a run.
#pragma once

#include <nlohmann/json.hpp>

#include "model/SonarLocalStatus.h"
#include "model/gen/Sonar.h"

namespace Lab {

// What stands at the probing service, by transmitter.
nlohmann::json ordersReport(const Sonar::Config& config);

// The rows in the tables: of the egress table [source, destination, port, TTL], of the ingress table with whether they
// are dormant behind it. Rows of streams that nobody sends, by which a switch asks to be heard, are left out.
nlohmann::json rowsReport(Sonar::LocalStatus& tables);

}  // namespace Lab
