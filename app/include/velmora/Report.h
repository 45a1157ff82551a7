// JSON reports of the command-line tool. The schema is documented in
// docs/report-schema.md; keys keep their order so reports diff cleanly.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "velmora/Explode.h"
#include "velmora/Planner.h"
#include "velmora/Removal.h"

namespace velmora {

using Json = nlohmann::ordered_json;

// Parts, groups, triangle count, bounds and import warnings.
Json assemblyReport(const Assembly& assembly);

// The assembly report plus contacts, the unique direction set, the settings
// and the stage timings of a plan.
Json contactsReport(const Plan& plan);

// The contacts report plus the disassembly hierarchy: every node with its
// groups, and for a split node the direction along which its moving child
// leaves the other. The plan must hold a hierarchy.
Json planReport(const Plan& plan);

// The plan report plus the exploded view: split distance, duration and every
// group's final offset.
Json explodeReport(const Plan& plan, const ExplodedView& view, const ExplodeOptions& options);

// The assembly report plus the direction set, the removal steps of one part
// (each with its groups, their part names and its direction), the settings
// and the stage timings of the plan.
Json removalReport(const Plan& plan, const RemovalProcedure& removal);

}  // namespace velmora
