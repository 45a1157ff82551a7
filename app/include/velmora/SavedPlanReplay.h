// Rebuilding a plan's state from its saved report instead of computing it:
// the contact diagram from the report's contacts, the builder's blocking
// constraints from `hierarchy.distant`, and the verification's outcome from
// the split verdicts. Together with the saved tree this makes the same
// builder, edge for edge and in the same order, as the plan that wrote the
// report, so an exploded view made from it is the one planning would make.
//
// Lengths: the report holds world lengths, the library works in the planning
// frame; the frame's scale is a power of two, so converting back is exact.
// The saved values are trusted only after the reader's checks (ids in range,
// finite numbers, unit directions); whatever still does not fit the inputs
// is an InputError.
#pragma once

#include <memory>
#include <vector>

#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxMeshGroups.h"
#include "velmora/PlanReader.h"
#include "velmora/PlanVerification.h"
#include "velmora/Report.h"

namespace velmora {

struct SavedDiagram {
    std::unique_ptr<kxContactDiagram> diagram;  // direction set not yet computed
    std::vector<bool> zeroArea;                  // per edge; empty when no contact was freed
};

// The diagram whose edges are the saved contacts, in their order, with
// their points scaled into the planning frame (`planningScale` per world unit).
SavedDiagram savedContactDiagram(const SavedPlan& saved, const kxMeshGroups& groups, double planningScale);

// Pushes the saved blocking constraints into `builder` (before initSolver).
void pushSavedDistantConstraints(kxDisassemblyHierarchyBuilder& builder, const SavedPlan& saved);

// The verification of the builder's (copied) tree as the report states it:
// splits saved as verified are taken as such, the others are swept again to
// name their blockers; the assembly's own defects are found again by the
// verifier that later checks the exploded pose. Lengths stay in the planning
// frame. Requires saved.verification.
PlanVerification savedVerification(const kxDisassemblyHierarchyBuilder& builder, const SavedPlan& saved,
                                   std::shared_ptr<const PlanVerifier> verifier);

// The builder's blocking constraints in the order they were pushed, as the
// report's `hierarchy.distant` holds them.
Json distantConstraintsJson(const kxDisassemblyHierarchyBuilder& builder);

}  // namespace velmora
