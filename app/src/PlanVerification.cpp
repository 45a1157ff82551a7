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

PlanVerification verifyHierarchyPlan(kxDisassemblyHierarchyBuilder& builder, unsigned nThreads)
{
    const kx::kxTimer timer;
    const auto verifier = std::make_shared<const PlanVerifier>(
        builder.getMeshGroups(), 0.0, builder.getContactDiagram().getAngleTolerance(), nThreads);
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
