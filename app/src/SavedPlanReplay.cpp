#include "velmora/SavedPlanReplay.h"

#include <algorithm>
#include <cmath>

#include "kxSystem.h"
#include "velmora/NodeGroups.h"

namespace velmora {
namespace {

Wm4::Vector3<float> inPlanningFrame(const Wm4::Vector3<float>& world, double planningScale)
{
    const Wm4::Vector3<float> p = world * float(planningScale);
    if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2]))
        throw InputError("the plan report is not usable: a contact point lies far outside the assembly");
    return p;
}

void checkGroupPair(unsigned a, unsigned b, const kxMeshGroups& groups, const char* what)
{
    if (a >= groups.getNoGroups() || b >= groups.getNoGroups())
        throw InputError(std::string("the plan report is not usable: ") + what + " names a group the inputs do not have");
}

std::vector<Wm4::Vector3<double>> directionSet(const kxContactDiagram& diagram)
{
    std::vector<Wm4::Vector3<double>> directions;
    for (unsigned k = 0; k < diagram.getNoDirections(); ++k)
        directions.push_back(diagram.getDirectionFromId(k));
    return directions;
}

// The split nodes the report says are not verified; each must be a split of the tree.
std::vector<unsigned> unverifiedSplits(const kxDisassemblyHierarchy& hierarchy, const SavedPlan& saved)
{
    std::vector<unsigned> nodes = saved.verification->unverifiedSplits;
    std::sort(nodes.begin(), nodes.end());
    for (unsigned node : nodes)
        if (node >= hierarchy.getNoNodes() || hierarchy.getNode(node).noGroups == kxDisassemblyHierarchy::kNoNode ||
            hierarchy.getNode(node).firstChild == kxDisassemblyHierarchy::kNoNode)
            throw InputError("the plan report is not usable: it has a verdict on node " + std::to_string(node) +
                             ", which is not a split");
    return nodes;
}

}  // namespace

SavedDiagram savedContactDiagram(const SavedPlan& saved, const kxMeshGroups& groups, double planningScale)
{
    SavedDiagram out;
    out.diagram = std::make_unique<kxContactDiagram>(0u, unsigned(saved.contacts.size()), groups);
    bool anyZeroArea = false;
    for (const SavedPlan::SavedContact& contact : saved.contacts) {
        checkGroupPair(contact.group0, contact.group1, groups, "a contact");
        // The plan has one mesh per group, mesh g being group g.
        out.diagram->pushContactEdge(contact.group0, contact.group1, contact.directions.data(),
                                     unsigned(contact.directions.size()),
                                     inPlanningFrame(contact.point, planningScale));
        out.zeroArea.push_back(contact.zeroArea);
        anyZeroArea = anyZeroArea || contact.zeroArea;
    }
    if (!anyZeroArea)
        out.zeroArea.clear();
    return out;
}

void pushSavedDistantConstraints(kxDisassemblyHierarchyBuilder& builder, const SavedPlan& saved)
{
    builder.setNoDistantConstraints(unsigned(saved.distant->size()));
    for (const SavedPlan::SavedDistantConstraint& constraint : *saved.distant) {
        checkGroupPair(constraint.groupA, constraint.groupB, builder.getMeshGroups(), "a blocking constraint");
        std::vector<unsigned> penalties = constraint.penalties;
        builder.pushDistantConstraint(constraint.groupA, constraint.groupB, constraint.directionIds, penalties);
    }
}

// The diagram's contact ids of the group pairs, in their order.
static std::vector<unsigned> contactsOf(const kxContactDiagram& diagram, const std::vector<std::pair<unsigned, unsigned>>& pairs)
{
    std::vector<unsigned> ids;
    for (const auto& [a, b] : pairs) {
        for (unsigned e = 0; e < diagram.getNoContacts(); ++e) {
            const kxContactDiagram::tContactEdge& edge = diagram.getEdgeData(e);
            if (std::minmax(edge.groupId0, edge.groupId1) == std::minmax(a, b)) {
                ids.push_back(e);
                break;
            }
        }
    }
    return ids;
}

PlanVerification savedVerification(const kxDisassemblyHierarchyBuilder& builder, const SavedPlan& saved,
                                   std::shared_ptr<const PlanVerifier> verifier)
{
    const kx::kxTimer timer;
    const kxDisassemblyHierarchy& hierarchy = builder.getHierarchy();
    PlanVerification result;
    result.verifier = verifier;
    result.tolerance = verifier->tolerance();
    const std::vector<SplitVerdict> blocked =
        verifier->verifySplits(hierarchy, directionSet(builder.getContactDiagram()), unverifiedSplits(hierarchy, saved));
    for (unsigned id = 0; id < hierarchy.getNoNodes(); ++id) {
        const kxDisassemblyHierarchy::tTreeNode& node = hierarchy.getNode(id);
        if (node.noGroups == kxDisassemblyHierarchy::kNoNode || node.firstChild == kxDisassemblyHierarchy::kNoNode)
            continue;
        const auto found = std::find_if(blocked.begin(), blocked.end(), [&](const SplitVerdict& v) { return v.node == id; });
        result.repair.verdicts.push_back(found != blocked.end() ? *found : SplitVerdict{id, node.splitId, {}});
    }
    result.repair.repaired = saved.verification->repaired;
    result.repair.learntConstraints = saved.verification->learntConstraints;
    result.repair.rounds = saved.verification->rounds;
    result.repair.initiallyFailing = unsigned(blocked.size()) + saved.verification->repaired;
    result.interferences = verifier->interferences();
    result.duplicates = verifier->duplicates();
    result.stuck = stuckContacts(builder.getContactDiagram());
    result.freedLocked = contactsOf(builder.getContactDiagram(), saved.verification->freedBySweep);
    result.repair.keptTogether = saved.verification->keptTogether;
    result.milliseconds = timer.getElapsedMs();
    return result;
}

Json distantConstraintsJson(const kxDisassemblyHierarchyBuilder& builder)
{
    std::vector<const kxDisassemblyHierarchyBuilder::tDynamicEdgeData*> distant;
    for (unsigned e = 0; e < builder.getNoEdges(); ++e)
        if (builder.getEdgeData(e).isDistant != 0)
            distant.push_back(&builder.getEdgeData(e));
    // Splits reorder the edges; the position an edge was pushed at is its edgeIndex.
    std::sort(distant.begin(), distant.end(), [](auto* a, auto* b) { return a->edgeIndex < b->edgeIndex; });
    Json constraints = Json::array();
    for (const kxDisassemblyHierarchyBuilder::tDynamicEdgeData* edge : distant)
        constraints.push_back({{"groups", {edge->groupA, edge->groupB}},
                               {"directionIds", edge->admissibleIds},
                               {"penalties", edge->signedIds}});
    return constraints;
}

}  // namespace velmora
