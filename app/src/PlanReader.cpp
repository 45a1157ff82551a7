#include "velmora/PlanReader.h"

#include <cmath>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>
#include <tuple>

namespace velmora {
namespace {

using nlohmann::json;

[[noreturn]] void bad(const std::string& what) { throw InputError("the plan report is not usable: " + what); }

const json& member(const json& object, const char* key, const std::string& where)
{
    if (!object.is_object())
        bad(where + " is not an object");
    const auto found = object.find(key);
    if (found == object.end())
        bad(where + " has no \"" + key + "\"");
    return *found;
}

const json& array(const json& value, const std::string& where)
{
    if (!value.is_array())
        bad(where + " is not an array");
    return value;
}

unsigned count(const json& value, const std::string& where)
{
    if (!value.is_number_unsigned() || value.get<uint64_t>() >= std::numeric_limits<uint32_t>::max())
        bad(where + " is not a count or id");
    return value.get<unsigned>();
}

std::vector<unsigned> counts(const json& value, const std::string& where)
{
    std::vector<unsigned> out;
    for (const json& v : array(value, where))
        out.push_back(count(v, where));
    return out;
}

std::string text(const json& value, const std::string& where)
{
    if (!value.is_string())
        bad(where + " is not a string");
    return value.get<std::string>();
}

std::vector<SavedPlan::SavedPart> readParts(const json& report)
{
    std::vector<SavedPlan::SavedPart> parts;
    for (const json& part : array(member(report, "parts", "the report"), "\"parts\"")) {
        const std::string where = "part " + std::to_string(parts.size());
        parts.push_back({text(member(part, "name", where), where + "'s name"),
                         count(member(part, "group", where), where + "'s group"),
                         count(member(part, "triangles", where), where + "'s triangles")});
    }
    return parts;
}

std::vector<std::vector<unsigned>> readGroups(const json& report)
{
    std::vector<std::vector<unsigned>> groups;
    for (const json& group : array(member(report, "groups", "the report"), "\"groups\"")) {
        const std::string where = "group " + std::to_string(groups.size());
        groups.push_back(counts(member(group, "parts", where), where + "'s parts"));
    }
    return groups;
}

SavedHierarchyNode readNode(const json& node)
{
    SavedHierarchyNode out;
    out.id = count(member(node, "id", "a hierarchy node"), "a hierarchy node's id");
    const std::string where = "hierarchy node " + std::to_string(out.id);
    const json& parent = member(node, "parent", where);
    out.parent = parent.is_null() ? SavedHierarchyNode::kNone : count(parent, where + "'s parent");
    out.groups = counts(member(node, "groups", where), where + "'s groups");
    const json& split = member(node, "split", where);
    if (split.is_null())
        return out;
    out.split = true;
    out.directionId = count(member(split, "directionId", where + "'s split"), where + "'s direction id");
    out.staying = count(member(split, "staying", where + "'s split"), where + "'s staying side");
    out.moving = count(member(split, "moving", where + "'s split"), where + "'s moving side");
    return out;
}

void readSettings(const json& report, SavedPlan& plan)
{
    const json& settings = member(report, "settings", "the report");
    const json& tolerance = member(settings, "angleTolerance", "\"settings\"");
    if (!tolerance.is_number() || !std::isfinite(tolerance.get<double>()))
        bad("the angle tolerance is not a number");
    plan.angleTolerance = tolerance.get<float>();
    const json& distant = member(settings, "distantContacts", "\"settings\"");
    if (!distant.is_boolean())
        bad("\"distantContacts\" is not true or false");
    plan.distantContacts = distant.get<bool>();
    for (const json& set : array(member(settings, "keepTogether", "\"settings\""), "\"keepTogether\"")) {
        plan.keepTogether.emplace_back();
        for (const json& name : array(set, "a keep-together set"))
            plan.keepTogether.back().push_back(text(name, "a keep-together name"));
    }
}

Wm4::Vector3<double> direction(const json& value, const std::string& what = "a direction")
{
    if (!value.is_array() || value.size() != 3)
        bad(what + " is not three numbers");
    Wm4::Vector3<double> out;
    for (int k = 0; k < 3; ++k) {
        if (!value[k].is_number() || !std::isfinite(value[k].get<double>()))
            bad(what + " is not three numbers");
        out[k] = value[k].get<double>();
    }
    return out;
}

bool flag(const json& value, const std::string& where)
{
    if (!value.is_boolean())
        bad(where + " is not true or false");
    return value.get<bool>();
}

std::optional<bool> optionalFlag(const json& object, const char* key, const std::string& where)
{
    const auto found = object.find(key);
    return found == object.end() ? std::nullopt : std::optional<bool>(flag(*found, where + "'s \"" + key + "\""));
}

unsigned groupId(const json& value, const SavedPlan& plan, const std::string& where)
{
    const unsigned g = count(value, where);
    if (g >= plan.groups.size())
        bad(where + " names group " + std::to_string(g) + " of only " + std::to_string(plan.groups.size()));
    return g;
}

// Two different groups of the plan.
std::pair<unsigned, unsigned> groupPair(const json& value, const SavedPlan& plan, const std::string& where)
{
    if (!value.is_array() || value.size() != 2)
        bad(where + "'s groups are not two ids");
    const unsigned a = groupId(value[0], plan, where), b = groupId(value[1], plan, where);
    if (a == b)
        bad(where + " joins group " + std::to_string(a) + " to itself");
    return {a, b};
}

Wm4::Vector3<float> point(const json& value, const std::string& where)
{
    if (value.is_null())
        return Wm4::Vector3<float>(0.0f, 0.0f, 0.0f);
    const Wm4::Vector3<double> p = direction(value, where + "'s point");
    constexpr double kLargest = std::numeric_limits<float>::max();
    for (int k = 0; k < 3; ++k)
        if (!(std::abs(p[k]) <= kLargest))
            bad(where + "'s point is out of range");
    return {float(p[0]), float(p[1]), float(p[2])};
}

// Removal directions are unit vectors: anything else was not written by the planner.
Wm4::Vector3<double> unitDirection(const json& value, const std::string& where)
{
    constexpr double kUnitTolerance = 1e-6;
    const Wm4::Vector3<double> d = direction(value, where + "'s direction");
    if (!(std::abs(d.Length() - 1.0) <= kUnitTolerance))
        bad(where + " has a direction that is not of unit length");
    return d;
}

void readContacts(const json& report, SavedPlan& plan)
{
    for (const json& contact : array(member(report, "contacts", "the report"), "\"contacts\"")) {
        const std::string where = "contact " + std::to_string(plan.contacts.size());
        SavedPlan::SavedContact saved;
        std::tie(saved.group0, saved.group1) = groupPair(member(contact, "groups", where), plan, where);
        saved.point = point(member(contact, "point", where), where);
        for (const json& d : array(member(contact, "directions", where), where + "'s directions"))
            saved.directions.push_back(unitDirection(d, where));
        saved.zeroArea = flag(member(contact, "zeroArea", where), where + "'s \"zeroArea\"");
        plan.contacts.push_back(std::move(saved));
    }
}

// A direction word of a blocking constraint: a line of the direction set,
// the sense in the top bit.
unsigned directionWord(const json& value, const SavedPlan& plan, const std::string& where)
{
    constexpr unsigned kIdMask = 0x7FFFFFFFu;
    if (!value.is_number_unsigned() || value.get<uint64_t>() > std::numeric_limits<uint32_t>::max() ||
        (value.get<uint32_t>() & kIdMask) >= plan.noDirections)
        bad(where + " names a direction the report does not have");
    return value.get<uint32_t>();
}

void readDistantConstraints(const json& hierarchy, SavedPlan& plan)
{
    const auto found = hierarchy.find("distant");
    if (found == hierarchy.end())
        return;
    plan.distant.emplace();
    for (const json& constraint : array(*found, "\"hierarchy.distant\"")) {
        const std::string where = "blocking constraint " + std::to_string(plan.distant->size());
        SavedPlan::SavedDistantConstraint saved;
        std::tie(saved.groupA, saved.groupB) = groupPair(member(constraint, "groups", where), plan, where);
        for (const json& id : array(member(constraint, "directionIds", where), where + "'s direction ids"))
            saved.directionIds.push_back(directionWord(id, plan, where));
        const json& penalties = member(constraint, "penalties", where);
        saved.penalties = counts(penalties, where + "'s penalties");
        if (saved.penalties.size() != saved.directionIds.size())
            bad(where + " has not one penalty per direction");
        plan.distant->push_back(std::move(saved));
    }
}

// The `groups` of each entry of the list `key`, when the report has one.
std::vector<std::pair<unsigned, unsigned>> optionalGroupPairs(const json& report, const char* key, const SavedPlan& plan)
{
    std::vector<std::pair<unsigned, unsigned>> pairs;
    const auto found = report.find(key);
    if (found == report.end())
        return pairs;
    const std::string list = std::string("\"") + key + "\"";
    for (const json& entry : array(*found, list)) {
        const std::string where = list + " entry " + std::to_string(pairs.size());
        pairs.push_back(groupPair(member(entry, "groups", where), plan, where));
    }
    return pairs;
}

void readVerification(const json& report, SavedPlan& plan)
{
    const auto found = report.find("verification");
    if (found == report.end())
        return;
    SavedPlan::SavedVerification verification;
    verification.repaired = count(member(*found, "repaired", "\"verification\""), "\"verification.repaired\"");
    verification.learntConstraints =
        count(member(*found, "learntConstraints", "\"verification\""), "\"verification.learntConstraints\"");
    verification.rounds = count(member(*found, "rounds", "\"verification\""), "\"verification.rounds\"");
    for (const json& node : member(report, "hierarchy", "the report")["nodes"]) {
        const json& split = node["split"];
        if (split.is_null())
            continue;
        const std::string where = "hierarchy node " + std::to_string(node["id"].get<unsigned>()) + "'s split";
        if (!flag(member(split, "verified", where), where + "'s \"verified\""))
            verification.unverifiedSplits.push_back(node["id"].get<unsigned>());
    }
    verification.freedBySweep = optionalGroupPairs(report, "freedBySweep", plan);
    verification.keptTogether = optionalGroupPairs(report, "keptTogether", plan);
    plan.verification = std::move(verification);
}

std::string partLabel(unsigned p, const std::string& name) { return "part " + std::to_string(p + 1) + " (" + name + ")"; }

}  // namespace

SavedPlan parsePlanReport(const std::string& source)
{
    const json report = json::parse(source, nullptr, false);
    if (report.is_discarded())
        bad("it is not JSON");
    SavedPlan plan;
    plan.parts = readParts(report);
    plan.groups = readGroups(report);
    readSettings(report, plan);
    for (const json& d : array(member(report, "directions", "the report"), "\"directions\""))
        plan.directions.push_back(direction(d));
    plan.noDirections = unsigned(plan.directions.size());
    const json& hierarchy = member(report, "hierarchy", "the report (it needs a \"plan\" report)");
    for (const json& node : array(member(hierarchy, "nodes", "\"hierarchy\""), "the hierarchy's nodes"))
        plan.hierarchy.push_back(readNode(node));
    const json& settings = report["settings"];
    plan.normaliseScale = optionalFlag(settings, "normaliseScale", "\"settings\"");
    plan.freeZeroAreaContacts = optionalFlag(settings, "freeZeroAreaContacts", "\"settings\"");
    readDistantConstraints(hierarchy, plan);
    if (plan.holdsConstraints()) {
        readContacts(report, plan);
        readVerification(report, plan);
    }
    return plan;
}

SavedPlan readPlanReport(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    if (!(in && bytes << in.rdbuf()))
        throw InputError("cannot read the plan report " + path);
    return parsePlanReport(bytes.str());
}

void checkPlanFits(const SavedPlan& plan, const Assembly& assembly)
{
    const std::string prefix = "the plan report was made from other inputs: ";
    if (plan.parts.size() != assembly.parts.size())
        throw InputError(prefix + "it has " + std::to_string(plan.parts.size()) + " parts, the inputs " +
                         std::to_string(assembly.parts.size()));
    for (unsigned p = 0; p < plan.parts.size(); ++p) {
        const SavedPlan::SavedPart& saved = plan.parts[p];
        const Part& part = assembly.parts[p];
        if (saved.name != part.name)
            throw InputError(prefix + partLabel(p, part.name) + " is " + saved.name + " in the plan");
        const unsigned triangles = unsigned(part.mesh->GetTriangleQuantity());
        if (saved.triangles != triangles)
            throw InputError(prefix + partLabel(p, part.name) + " has " + std::to_string(triangles) +
                             " triangles, " + std::to_string(saved.triangles) + " in the plan");
        if (saved.group != groupOfPart(assembly, p))
            throw InputError(prefix + partLabel(p, part.name) + " is in another group (is --group-by the same?)");
    }
    std::vector<std::vector<unsigned>> groups;
    for (const Group& group : assembly.groups)
        groups.push_back(group.parts);
    if (plan.groups != groups)
        throw InputError(prefix + "the parts are grouped differently (is --group-by the same?)");
}

void checkDirectionsFit(const SavedPlan& plan, const kxContactDiagram& diagram)
{
    // Directions pass through the report as decimal text: a tiny tolerance absorbs its last digit.
    constexpr double kTolerance = 1e-9;
    bool same = plan.directions.size() == diagram.getNoDirections();
    for (unsigned k = 0; same && k < plan.directions.size(); ++k)
        same = (plan.directions[k] - diagram.getDirectionFromId(k)).Length() <= kTolerance;
    if (!same)
        throw InputError("the plan report was made from other inputs: its direction set differs from theirs");
}

std::vector<std::vector<unsigned>> keepTogetherGroupIds(const SavedPlan& plan, const Assembly& assembly)
{
    std::vector<std::vector<unsigned>> sets;
    for (const std::vector<std::string>& names : plan.keepTogether) {
        sets.emplace_back();
        for (const std::string& name : names) {
            const auto found = std::find_if(assembly.groups.begin(), assembly.groups.end(),
                                            [&](const Group& g) { return g.name == name; });
            if (found == assembly.groups.end())
                throw InputError("the plan report keeps together a group the inputs do not have: " + name);
            sets.back().push_back(unsigned(found - assembly.groups.begin()));
        }
    }
    return sets;
}

}  // namespace velmora
