// JSON reports of the command-line tool. The schema is documented in
// docs/report-schema.md; keys keep their order so reports diff cleanly.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "velmora/Planner.h"

namespace velmora {

using Json = nlohmann::ordered_json;

// Parts, groups, triangle count, bounds and import warnings.
Json assemblyReport(const Assembly& assembly);

// The assembly report plus contacts, the unique direction set, the settings
// and the stage timings of a plan.
Json contactsReport(const Plan& plan);

}  // namespace velmora
