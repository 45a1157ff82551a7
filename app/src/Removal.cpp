#include "velmora/Removal.h"

#include <algorithm>
#include <fnmatch.h>
#include <set>
#include <sstream>

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

// Up to `count` of `candidates` nearest to `name`, nearest first, ties by name.
std::vector<std::string> closestNames(const std::set<std::string>& candidates, const std::string& name, size_t count)
{
    std::vector<std::pair<size_t, std::string>> ranked;
    for (const std::string& candidate : candidates)
        ranked.emplace_back(editDistance(name, candidate), candidate);
    std::sort(ranked.begin(), ranked.end());
    std::vector<std::string> names;
    for (size_t i = 0; i < ranked.size() && i < count; ++i)
        names.push_back(ranked[i].second);
    return names;
}

std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

// Up to `count` of `candidates` that contain `name`, ignoring case, shortest first.
std::vector<std::string> namesContaining(const std::set<std::string>& candidates, const std::string& name,
                                         size_t count)
{
    std::vector<std::pair<size_t, std::string>> found;
    for (const std::string& candidate : candidates)
        if (lowerCase(candidate).find(lowerCase(name)) != std::string::npos)
            found.emplace_back(candidate.size(), candidate);
    std::sort(found.begin(), found.end());
    std::vector<std::string> names;
    for (size_t i = 0; i < found.size() && i < count; ++i)
        names.push_back(found[i].second);
    return names;
}

std::vector<std::string> nodeSegments(const std::string& path)
{
    std::vector<std::string> segments;
    std::stringstream parts(path);
    for (std::string segment; std::getline(parts, segment, '/');)
        if (!segment.empty())
            segments.push_back(segment);
    return segments;
}

// Every name a user may type for something in the assembly: part names,
// node names and node paths.
std::set<std::string> knownNames(const Assembly& assembly)
{
    std::set<std::string> names;
    for (const Part& part : assembly.parts) {
        names.insert(part.name);
        for (const std::string& segment : nodeSegments(part.node))
            names.insert(segment);
    }
    return names;
}

bool hasWildcard(const std::string& pattern) { return pattern.find_first_of("*?[") != std::string::npos; }

bool matches(const std::string& pattern, const std::string& text, bool wildcard)
{
    return wildcard ? fnmatch(pattern.c_str(), text.c_str(), 0) == 0 : pattern == text;
}

// True when `pattern` names the node of `part` or one above it: the whole
// path, a run of whole segments ("motor", "machine/motor"), or with
// wildcards any one segment or the whole path.
bool namesNodeOf(const std::string& pattern, const Part& part, bool wildcard)
{
    if (part.node.empty())
        return false;
    if (matches(pattern, part.node, wildcard))
        return true;
    const std::vector<std::string> segments = nodeSegments(part.node);
    if (wildcard)
        return std::any_of(segments.begin(), segments.end(),
                           [&](const std::string& s) { return matches(pattern, s, true); });
    const std::string path = "/" + part.node + "/";
    return path.find("/" + pattern + "/") != std::string::npos;
}

std::string unknownNameMessage(const Assembly& assembly, const std::string& name)
{
    std::set<std::string> known = knownNames(assembly);
    std::string message = "no part is named '" + name + "'";
    auto list = [&](const char* label, const std::vector<std::string>& names) {
        for (size_t i = 0; i < names.size(); ++i) {
            message += (i == 0 ? label : ", ") + names[i];
            known.erase(names[i]);  // suggested once only
        }
    };
    list("; containing it: ", hasWildcard(name) ? std::vector<std::string>() : namesContaining(known, name, 3));
    list("; closest: ", closestNames(known, name, 3));
    return message;
}

}  // namespace

std::vector<unsigned> findParts(const Assembly& assembly, const std::string& name)
{
    const bool wildcard = hasWildcard(name);
    std::vector<unsigned> byName, byNode;
    for (unsigned p = 0; p < assembly.parts.size(); ++p) {
        if (matches(name, assembly.parts[p].name, wildcard))
            byName.push_back(p);
        else if (namesNodeOf(name, assembly.parts[p], wildcard))
            byNode.push_back(p);
    }
    // A part's own name wins over a node of the same name, unless the name is a pattern.
    if (!wildcard && !byName.empty())
        return byName;
    byName.insert(byName.end(), byNode.begin(), byNode.end());
    std::sort(byName.begin(), byName.end());
    if (byName.empty())
        throw InputError(unknownNameMessage(assembly, name));
    return byName;
}

namespace {

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
    const std::vector<unsigned> parts = findParts(assembly, name);
    const unsigned group = groupOfPart(assembly, parts[0]);
    for (unsigned p : parts)
        if (groupOfPart(assembly, p) != group)
            throw InputError("'" + name + "' names " + std::to_string(parts.size()) +
                             " parts that do not move as one (" + assembly.parts[parts[0]].name + ", " +
                             assembly.parts[p].name + ", …); name one part, or group them with --group-by");
    return parts[0];
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
