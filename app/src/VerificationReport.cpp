#include "velmora/VerificationReport.h"

#include <set>
#include <sstream>

namespace velmora {
namespace {

std::string pairName(const Assembly& assembly, unsigned a, unsigned b)
{
    return assembly.groups[a].name + "/" + assembly.groups[b].name;
}

// A length as the report's warnings show it: three significant digits and
// the assembly's unit when it states one.
std::string lengthText(const Assembly& assembly, double length)
{
    std::ostringstream text;
    text.precision(3);
    text << length;
    if (!assembly.units.empty())
        text << " " << assembly.units;
    return text.str();
}

// "<count> <what>: item, item, …"
std::string listLine(size_t count, const std::string& what, const std::vector<std::string>& items)
{
    std::string line = std::to_string(count) + " " + what + ": ";
    for (size_t i = 0; i < items.size(); ++i)
        line += (i ? ", " : "") + items[i];
    return line;
}

Json pairJson(const Assembly& assembly, unsigned a, unsigned b)
{
    return {{"groups", {a, b}}, {"names", {assembly.groups[a].name, assembly.groups[b].name}}};
}

}  // namespace

void addSplitVerdict(const Plan& plan, unsigned node, Json& nodeJson)
{
    const PlanVerification* verification = plan.verification();
    const SplitVerdict* verdict = verification ? verification->verdictOf(node) : nullptr;
    if (!verdict)
        return;
    nodeJson["split"]["verified"] = verdict->sweep.clear;
    if (verdict->sweep.clear)
        return;
    const std::vector<Group>& groups = plan.assembly().groups;
    nodeJson["split"]["blockedBy"] = {groups[verdict->sweep.movingGroup].name, groups[verdict->sweep.stayingGroup].name};
    nodeJson["split"]["travel"] = verdict->sweep.travel;
}

void addVerificationReport(const Plan& plan, Json& report)
{
    const PlanVerification* verification = plan.verification();
    if (!verification)
        return;
    const Assembly& assembly = plan.assembly();
    const unsigned splits = unsigned(verification->repair.verdicts.size());
    report["verification"] = {{"splits", splits},
                              {"verified", verification->noVerified()},
                              {"unverified", splits - verification->noVerified()},
                              {"repaired", verification->repair.repaired},
                              {"learntConstraints", verification->repair.learntConstraints},
                              {"rounds", verification->repair.rounds},
                              {"tolerance", verification->tolerance},
                              {"timeMs", verification->milliseconds}};
    Json interferences = Json::array();
    for (const Interference& i : verification->interferences) {
        Json entry = pairJson(assembly, i.groupA, i.groupB);
        entry["depth"] = i.depth;
        interferences.push_back(entry);
    }
    Json duplicates = Json::array();
    for (const auto& [a, b] : verification->duplicates)
        duplicates.push_back(pairJson(assembly, a, b));
    Json stuck = Json::array();
    for (unsigned e : verification->stuck) {
        const kxContactDiagram::tContactEdge& edge = plan.diagram().getEdgeData(e);
        stuck.push_back(pairJson(assembly, edge.groupId0, edge.groupId1));
    }
    Json freed = Json::array();
    for (unsigned e : verification->freedLocked) {
        const kxContactDiagram::tContactEdge& edge = plan.diagram().getEdgeData(e);
        freed.push_back(pairJson(assembly, edge.groupId0, edge.groupId1));
    }
    report["interferences"] = interferences;
    report["duplicates"] = duplicates;
    report["stuck"] = stuck;
    report["freedBySweep"] = freed;
    Json kept = Json::array();
    for (const auto& [a, b] : verification->repair.keptTogether)
        kept.push_back(pairJson(assembly, a, b));
    report["keptTogether"] = kept;
}

std::vector<std::string> verificationWarnings(const Plan& plan)
{
    const PlanVerification* verification = plan.verification();
    std::vector<std::string> lines;
    if (!verification)
        return lines;
    const Assembly& assembly = plan.assembly();
    if (!verification->interferences.empty()) {
        std::set<unsigned> parts;
        std::vector<std::string> items;
        for (const Interference& i : verification->interferences) {
            parts.insert({i.groupA, i.groupB});
            items.push_back(pairName(assembly, i.groupA, i.groupB) + " (" + lengthText(assembly, i.depth) + ")");
        }
        lines.push_back(listLine(parts.size(), "parts interfere in the assembled pose", items));
    }
    if (!verification->duplicates.empty()) {
        std::vector<std::string> items;
        for (const auto& [a, b] : verification->duplicates)
            items.push_back(pairName(assembly, a, b));
        lines.push_back(listLine(items.size(), "pairs of parts are identical copies in the same place", items));
    }
    if (!verification->stuck.empty()) {
        std::vector<std::string> items;
        for (unsigned e : verification->stuck) {
            const kxContactDiagram::tContactEdge& edge = plan.diagram().getEdgeData(e);
            items.push_back(pairName(assembly, edge.groupId0, edge.groupId1));
        }
        lines.push_back(listLine(items.size(), "pairs of parts touch with no way to separate them", items));
    }
    if (!verification->freedLocked.empty()) {
        std::vector<std::string> items;
        for (unsigned e : verification->freedLocked) {
            const kxContactDiagram::tContactEdge& edge = plan.diagram().getEdgeData(e);
            items.push_back(pairName(assembly, edge.groupId0, edge.groupId1));
        }
        lines.push_back(listLine(items.size(),
                                 "pairs of parts have no removal direction from their contact but come apart when swept",
                                 items));
    }
    if (!verification->repair.keptTogether.empty()) {
        std::vector<std::string> items;
        for (const auto& [a, b] : verification->repair.keptTogether)
            items.push_back(pairName(assembly, a, b));
        lines.push_back(listLine(items.size(), "pairs of parts stay together: no split separates them without collision",
                                 items));
    }
    std::vector<std::string> blocked;
    for (const SplitVerdict& v : verification->repair.verdicts)
        if (!v.sweep.clear)
            blocked.push_back(pairName(assembly, v.sweep.movingGroup, v.sweep.stayingGroup) + " at " +
                              lengthText(assembly, v.sweep.travel));
    if (!blocked.empty())
        lines.push_back(listLine(blocked.size(), "splits could not be verified collision-free", blocked));
    return lines;
}

void addExplodedPoseCheck(const Plan& plan, const ExplodedView& view, Json& report)
{
    if (!plan.verification())
        return;
    Json overlaps = Json::array();
    for (const Interference& i : view.overlaps) {
        Json entry = pairJson(plan.assembly(), i.groupA, i.groupB);
        entry["depth"] = i.depth;
        overlaps.push_back(entry);
    }
    report["explosion"]["widenings"] = view.widenings;
    report["explosion"]["overlaps"] = overlaps;
}

std::vector<std::string> explodedPoseWarnings(const Plan& plan, const ExplodedView& view)
{
    std::vector<std::string> items;
    for (const Interference& i : view.overlaps)
        items.push_back(pairName(plan.assembly(), i.groupA, i.groupB) + " (" + lengthText(plan.assembly(), i.depth) +
                        ")");
    if (items.empty())
        return {};
    return {listLine(items.size(), "pairs of parts still overlap in the exploded view", items)};
}

}  // namespace velmora
