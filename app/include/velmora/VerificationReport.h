// The verification stage in reports and on the terminal: the per-split keys
// (verified, blockedBy, travel), the report's verification summary and its
// interferences, duplicates and stuck lists, and one warning line per kind of
// defect. Everything here is empty when the plan was not verified.
#pragma once

#include <string>
#include <vector>

#include "velmora/Planner.h"
#include "velmora/Report.h"

namespace velmora {

// Adds "verified" (and when false "blockedBy" and "travel") to the JSON of
// split node `node`.
void addSplitVerdict(const Plan& plan, unsigned node, Json& nodeJson);

// Adds "verification", "interferences", "duplicates" and "stuck" to a plan
// report.
void addVerificationReport(const Plan& plan, Json& report);

// One line per kind of defect found, without the "velmora: warning: " prefix.
std::vector<std::string> verificationWarnings(const Plan& plan);

// Adds "widenings" and "overlaps" to the report's "explosion" when the plan
// was verified.
void addExplodedPoseCheck(const Plan& plan, const ExplodedView& view, Json& report);
// A line naming the parts that still overlap in the exploded pose, if any.
std::vector<std::string> explodedPoseWarnings(const Plan& plan, const ExplodedView& view);

}  // namespace velmora
