// Verify-and-repair of a disassembly hierarchy: every split is swept by a
// PlanVerifier; for a split whose moving side runs into the staying side,
// every colliding pair becomes a hard blocking constraint of the builder for
// the split's direction, and the node's subtree is planned again, until
// every split verifies or no new constraint can be learnt. A pair that
// collides a second time is swept alone along every direction of the set in
// both senses and learnt along each one it collides along at once, which
// saves the rounds the search would spend trying them one by one. A split
// that still fails is handled as verifyAndRepair says.
//
// The builder's own search is left as it is: the learnt constraints go
// through its distant-constraint mechanism (pushDistantConstraint, then
// initSolver), the rest of the tree is restored with copyGroupsHierarchy, and
// only the subtrees of failing splits are searched again.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxGroupsClustering.h"
#include "velmora/PlanVerifier.h"

namespace velmora {

struct RepairOutcome {
    std::vector<SplitVerdict> verdicts;  // the final plan's splits, by node id
    unsigned initiallyFailing = 0;       // failing splits of the plan as first built
    unsigned repaired = 0;               // of those, how many the repaired plan no longer has
    unsigned learntConstraints = 0;      // blocking constraints pushed
    unsigned rounds = 0;                 // verification passes run
    // Pairs of groups (lower id first) that collided on a split no learnt
    // constraint could repair: they are kept together from then on.
    std::vector<std::pair<unsigned, unsigned>> keptTogether;
    // The clustering that keeps them together when the builder had none
    // (the builder borrows it: keep it alive as long as the builder).
    std::shared_ptr<kxGroupsClustering> clustering;
};

// At most `maxRounds` verification passes (at least 1). The builder must
// have had initSolver and a computeGroupsHierarchy(0, …). With
// `keepInseparable`, when no constraint is left to learn for a failing split
// (every split of its node collides somewhere), its first colliding pair
// becomes a cluster the builder never splits (joined with the kept pairs and
// clusters it meets) and the node is planned again: rather than output a
// split whose parts pass through each other, the plan keeps the pair as one
// piece (typically parts locked into each other, or modelled so). Without
// it, such a split stays as the builder's best, reported unverified.
RepairOutcome verifyAndRepair(kxDisassemblyHierarchyBuilder& builder, const PlanVerifier& verifier,
                              unsigned maxRounds = 32, bool keepInseparable = true);

// Contacts that admit no removal direction at all: the two groups can only
// come apart together.
std::vector<unsigned> stuckContacts(const kxContactDiagram& diagram);

}  // namespace velmora
