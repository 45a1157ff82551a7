#include "velmora/PlanVerification.h"

#include <algorithm>

#include "kxSystem.h"

namespace velmora {

unsigned PlanVerification::noVerified() const
{
    return unsigned(std::count_if(repair.verdicts.begin(), repair.verdicts.end(),
                                  [](const SplitVerdict& v) { return v.sweep.clear; }));
}

const SplitVerdict* PlanVerification::verdictOf(unsigned node) const
{
    auto it = std::lower_bound(repair.verdicts.begin(), repair.verdicts.end(), node,
                               [](const SplitVerdict& v, unsigned n) { return v.node < n; });
    return it != repair.verdicts.end() && it->node == node ? &*it : nullptr;
}

std::shared_ptr<const PlanVerifier> makePlanVerifier(const kxMeshGroups& groups, float angleTolerance,
                                                     unsigned nThreads)
{
    return std::make_shared<const PlanVerifier>(groups, 0.0, angleTolerance, nThreads);
}

PlanVerification verifyHierarchyPlan(kxDisassemblyHierarchyBuilder& builder, unsigned nThreads)
{
    const kx::kxTimer timer;
    PlanVerification result = verifyHierarchyPlan(
        builder, makePlanVerifier(builder.getMeshGroups(), builder.getContactDiagram().getAngleTolerance(), nThreads));
    result.milliseconds = timer.getElapsedMs();
    return result;
}

PlanVerification verifyHierarchyPlan(kxDisassemblyHierarchyBuilder& builder,
                                     std::shared_ptr<const PlanVerifier> verifier)
{
    const kx::kxTimer timer;
    PlanVerification result;
    result.verifier = verifier;
    result.tolerance = verifier->tolerance();
    result.repair = verifyAndRepair(builder, *verifier);
    result.interferences = verifier->interferences();
    result.duplicates = verifier->duplicates();
    result.stuck = stuckContacts(builder.getContactDiagram());
    result.milliseconds = timer.getElapsedMs();
    return result;
}

}  // namespace velmora
