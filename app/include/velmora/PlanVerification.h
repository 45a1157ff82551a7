// What the verification stage of a plan found: the verdict on every split of
// the final hierarchy (after repair), how many splits repair fixed, and the
// assembly's own defects that no plan can fix (parts overlapping in the
// assembled pose, coincident duplicate parts, contacts with no way apart).
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "kxDisassemblyHierarchyBuilder.h"
#include "velmora/PlanRepair.h"
#include "velmora/PlanVerifier.h"

namespace velmora {

struct PlanVerification {
    RepairOutcome repair;
    std::vector<Interference> interferences;
    std::vector<std::pair<unsigned, unsigned>> duplicates;  // group pairs
    std::vector<unsigned> stuck;                            // contact ids of the diagram
    double tolerance = 0.0;
    double milliseconds = 0.0;
    // The sweeps' geometry, kept for checking poses of the plan (the
    // exploded view).
    std::shared_ptr<const PlanVerifier> verifier;

    unsigned noVerified() const;
    // The verdict on the split of `node`, or null when it is not split.
    const SplitVerdict* verdictOf(unsigned node) const;
};

// Verifies and repairs the builder's hierarchy (built, with initSolver done)
// on `nThreads` workers and collects the assembly's defects.
PlanVerification verifyHierarchyPlan(kxDisassemblyHierarchyBuilder& builder, unsigned nThreads);

}  // namespace velmora
