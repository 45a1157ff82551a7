#include "velmora/RemovalInstructions.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "velmora/FixedBase.h"

namespace velmora {
namespace {

using Vec3d = Wm4::Vector3<double>;

bool contains(const std::vector<unsigned>& sorted, unsigned value)
{
    return std::binary_search(sorted.begin(), sorted.end(), value);
}

std::vector<unsigned> without(const std::vector<unsigned>& sorted, const std::vector<unsigned>& removed)
{
    std::vector<unsigned> out;
    std::set_difference(sorted.begin(), sorted.end(), removed.begin(), removed.end(), std::back_inserter(out));
    return out;
}

// A part name without a running number in front ("049_dowel" -> "dowel")
// and an instance number behind ("dowel-12" -> "dowel", "pin#3" -> "pin").
std::string withoutInstanceNumber(const std::string& name)
{
    size_t begin = 0;
    while (begin < name.size() && std::isdigit(static_cast<unsigned char>(name[begin])))
        ++begin;
    begin = begin > 0 && begin + 1 < name.size() && name[begin] == '_' ? begin + 1 : 0;
    size_t end = name.size();
    while (end > begin && std::isdigit(static_cast<unsigned char>(name[end - 1])))
        --end;
    if (end == name.size() || end < begin + 2 || (name[end - 1] != '#' && name[end - 1] != '-'))
        end = name.size() + 1;
    return name.substr(begin, end - 1 - begin);
}

// Two instructions of one direction that may be carried out as one: both move
// their own groups (not the rest of the assembly).
bool mergeable(const RemovalInstruction& a, bool aMovesRest, const RemovalInstruction& b, bool bMovesRest)
{
    return !aMovesRest && !bMovesRest && (a.direction - b.direction).Length() < 1e-9;
}

}  // namespace

unsigned removalBase(const Assembly& assembly, unsigned targetGroup)
{
    unsigned best = targetGroup;
    double bestVolume = -1.0;
    for (unsigned p = 0; p < assembly.parts.size(); ++p) {
        const unsigned group = groupOfPart(assembly, p);
        if (group == targetGroup)
            continue;
        const double volume = partVolume(assembly.parts[p]);
        if (volume > bestVolume)
            best = group, bestVolume = volume;
    }
    return best;
}

std::vector<RemovalInstruction> removalInstructions(const Plan& plan, const RemovalProcedure& removal, unsigned base)
{
    std::vector<unsigned> remaining(plan.assembly().groups.size());
    for (unsigned g = 0; g < remaining.size(); ++g)
        remaining[g] = g;
    std::vector<RemovalInstruction> out;
    std::vector<bool> movesRest;
    Vec3d targetDirection(0, 0, 0);
    for (const RemovalStep& step : removal.steps) {
        if (step.sense == 0)
            continue;  // the target's own step, added below
        std::vector<unsigned> rest = without(remaining, step.groups);
        const bool holdsBase = contains(step.groups, base);
        RemovalInstruction instruction;
        instruction.groups = holdsBase ? rest : step.groups;
        instruction.direction = holdsBase ? -step.direction : step.direction;
        instruction.target = contains(instruction.groups, removal.group);
        if (instruction.target)
            targetDirection = instruction.direction;
        remaining = std::move(rest);
        if (!out.empty() && mergeable(out.back(), movesRest.back(), instruction, holdsBase)) {
            std::vector<unsigned>& groups = out.back().groups;
            groups.insert(groups.end(), instruction.groups.begin(), instruction.groups.end());
            std::sort(groups.begin(), groups.end());
            out.back().target = out.back().target || instruction.target;
            continue;
        }
        out.push_back(std::move(instruction));
        movesRest.push_back(holdsBase);
    }
    // The part comes out last, unless the last instruction already took out its group alone.
    const bool takenOut = !out.empty() && out.back().groups == std::vector<unsigned>{removal.group};
    if (!takenOut && removal.group != base)
        out.push_back({{removal.group}, targetDirection, true});
    return out;
}

std::string describeParts(const Assembly& assembly, const std::vector<unsigned>& groups)
{
    std::vector<std::pair<std::string, unsigned>> counted;  // in order of first appearance
    std::map<std::string, size_t> position;
    for (const std::string& name : partNamesOf(assembly, groups)) {
        const std::string stem = withoutInstanceNumber(name);
        const auto found = position.find(stem);
        if (found != position.end()) {
            ++counted[found->second].second;
            continue;
        }
        position[stem] = counted.size();
        counted.emplace_back(name, 1);
    }
    std::string text;
    for (const auto& [name, count] : counted) {
        text += text.empty() ? "" : ", ";
        text += count == 1 ? name : withoutInstanceNumber(name) + " \u00d7" + std::to_string(count);
    }
    return text;
}

std::string describeDirection(const Vec3d& d)
{
    static const char* const kAxes[3] = {"X", "Y", "Z"};
    for (int k = 0; k < 3; ++k) {
        if (std::fabs(std::fabs(d[k]) - 1.0) < 1e-6)
            return std::string(d[k] > 0 ? "+" : "-") + kAxes[k];
    }
    auto rounded = [](double x) { return std::round(x * 1000.0) / 1000.0 + 0.0; };
    char text[96];
    std::snprintf(text, sizeof text, "(%.3f, %.3f, %.3f)", rounded(d[0]), rounded(d[1]), rounded(d[2]));
    return text;
}

}  // namespace velmora
