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
    // Contacts motion analysis found no direction for that a sweep freed
    // (contact ids of the diagram): their pairs do come apart.
    std::vector<unsigned> freedLocked;
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
// The same with the sweeps' geometry built beforehand by makePlanVerifier.
PlanVerification verifyHierarchyPlan(kxDisassemblyHierarchyBuilder& builder,
                                     std::shared_ptr<const PlanVerifier> verifier);

// The verifier a plan uses: the contact tolerance, the angle tolerance as
// the sliding angle, `nThreads` workers.
std::shared_ptr<const PlanVerifier> makePlanVerifier(const kxMeshGroups& groups, float angleTolerance,
                                                     unsigned nThreads);

}  // namespace velmora
