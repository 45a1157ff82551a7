#include "velmora/Removal.h"

#include <algorithm>

#include "kxSinglePartDisassemblyProcedure.h"

namespace velmora {
namespace {

// Edit distance between two names, ignoring case.
size_t editDistance(const std::string& a, const std::string& b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                              std::tolower(static_cast<unsigned char>(b[j - 1]));
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// Up to `count` part names nearest to `name`, nearest first, ties by name.
std::vector<std::string> closestNames(const Assembly& assembly, const std::string& name, size_t count)
{
    std::vector<std::pair<size_t, std::string>> ranked;
    for (const Part& part : assembly.parts)
        ranked.emplace_back(editDistance(name, part.name), part.name);
    std::sort(ranked.begin(), ranked.end());
    std::vector<std::string> names;
    for (size_t i = 0; i < ranked.size() && i < count; ++i)
        names.push_back(ranked[i].second);
    return names;
}

// The groups of the hierarchy nodes ordering[first, first + count), ascending.
std::vector<unsigned> groupsOfNodes(const kxDisassemblyHierarchy& hierarchy, const std::vector<unsigned>& ordering,
                                    unsigned first, unsigned count)
{
    std::vector<unsigned> groups;
    for (unsigned i = first; i < first + count; ++i) {
        const std::vector<unsigned> nodeGroups = groupsOfNode(hierarchy, ordering[i]);
        groups.insert(groups.end(), nodeGroups.begin(), nodeGroups.end());
    }
    std::sort(groups.begin(), groups.end());
    return groups;
}

RemovalStep removalStep(const Plan& plan, const kxSinglePartDisassemblyProcedure& procedure, unsigned s)
{
    const kxSinglePartDisassemblyProcedure::tRemovalStep& step = procedure.getSteps()[s];
    RemovalStep out;
    out.groups = groupsOfNodes(plan.hierarchy(), procedure.getOrdering(), step.start, step.noNodes);
    out.direction = Wm4::Vector3<double>(0, 0, 0);
    if (step.signedDirection == kxSinglePartDisassemblyProcedure::kNone)
        return out;
    out.directionId = step.signedDirection >> 1;
    out.sense = (step.signedDirection & 1u) != 0 ? -1 : 1;
    out.direction = plan.diagram().getDirectionFromId(out.directionId) * double(out.sense);
    return out;
}

}  // namespace

unsigned findPart(const Assembly& assembly, const std::string& name)
{
    for (unsigned p = 0; p < assembly.parts.size(); ++p)
        if (assembly.parts[p].name == name)
            return p;
    std::string message = "no part is named '" + name + "'";
    const std::vector<std::string> closest = closestNames(assembly, name, 3);
    for (size_t i = 0; i < closest.size(); ++i)
        message += (i == 0 ? "; closest: " : ", ") + closest[i];
    throw InputError(message);
}

RemovalProcedure planRemoval(Plan& plan, unsigned part, bool rewriteHierarchy)
{
    if (!plan.hasHierarchy())
        throw std::logic_error("planRemoval needs a plan with a hierarchy");
    RemovalProcedure removal;
    removal.part = part;
    removal.group = groupOfPart(plan.assembly(), part);

    kxSinglePartDisassemblyProcedure procedure(plan.builder());
    procedure.buildProcedure(plan.hierarchy().getLeafNodeIndexFromGroupId(removal.group));
    for (unsigned s = 0; s < procedure.getSteps().size(); ++s)
        removal.steps.push_back(removalStep(plan, procedure, s));
    if (rewriteHierarchy) {
        kxDisassemblyHierarchy steps(plan.groups());
        procedure.copyToDisassemblyHierarchy(steps);
        plan.editBuilder().copyGroupsHierarchy(steps);
    }
    return removal;
}

}  // namespace velmora
