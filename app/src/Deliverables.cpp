#include "velmora/Deliverables.h"

#include "velmora/RemovalAnimation.h"

#include <filesystem>
#include <sstream>

#include "velmora/GltfExport.h"

namespace velmora {

ExplodeOptions defaultExplodeOptions()
{
    ExplodeOptions options;
    options.speed = 1.0f;
    return options;
}

ExplodeOptions resolveViewOptions(const Assembly& assembly, const ViewRequest& request)
{
    ExplodeOptions options = request.options;
    if (!request.fix.empty())
        options.base = int(groupOfPart(assembly, findPart(assembly, request.fix)));
    options.glb.units = assembly.units.empty() ? request.units : assembly.units;
    options.glb.zUp = isZUp(assembly);
    return options;
}

unsigned removalBaseGroup(const Assembly& assembly, unsigned part, const std::string& fix)
{
    const unsigned target = groupOfPart(assembly, part);
    if (fix.empty())
        return removalBase(assembly, target);
    const unsigned base = groupOfPart(assembly, findPart(assembly, fix));
    if (base == target && assembly.groups.size() > 1)
        throw InputError("the part to take out cannot stay in place: --fix names a part that moves with it");
    return base;
}

RemovalPlan planRemovalFor(Plan& plan, unsigned part, unsigned base, bool rewriteHierarchy)
{
    RemovalPlan removal;
    removal.procedure = planRemoval(plan, part, rewriteHierarchy);
    removal.base = base;
    removal.instructions = removalInstructions(plan, removal.procedure, base);
    return removal;
}

std::string removalInstructionsText(const Assembly& assembly, const RemovalPlan& removal)
{
    std::ostringstream out;
    const size_t n = removal.instructions.size();
    out << "Taking out " << assembly.parts[removal.procedure.part].name << " ("
        << describeParts(assembly, {removal.base}) << " stays in place): " << n << (n == 1 ? " step" : " steps")
        << "\n";
    for (size_t s = 0; s < n; ++s) {
        const RemovalInstruction& step = removal.instructions[s];
        out << "  " << s + 1 << ". take out " << describeParts(assembly, step.groups);
        if (step.direction.Length() > 0)
            out << " along " << describeDirection(step.direction);
        out << "\n";
    }
    return out.str();
}

void addRemovalInstructions(Json& report, const Assembly& assembly, const RemovalPlan& removal)
{
    Json steps = Json::array();
    for (size_t s = 0; s < removal.instructions.size(); ++s) {
        const RemovalInstruction& step = removal.instructions[s];
        steps.push_back({{"step", s + 1},
                         {"groups", step.groups},
                         {"parts", partNamesOf(assembly, step.groups)},
                         {"direction", {step.direction[0], step.direction[1], step.direction[2]}},
                         {"target", step.target}});
    }
    report["removal"]["base"] = partNamesOf(assembly, {removal.base});
    report["removal"]["instructions"] = steps;
}

ExplodeOptions removalViewOptions(const Assembly& assembly, const ViewRequest& request, const RemovalPlan& removal)
{
    ViewRequest steps = request;
    steps.fix.clear();
    steps.options.base = int(removal.base);
    steps.options.policy = 0;  // one step after the other
    steps.options.playStyle = 1;
    steps.options.glb.animationName = "remove " + assembly.parts[removal.procedure.part].name;
    return resolveViewOptions(assembly, steps);
}

RemovalView explodeRemoval(Plan& plan, const ViewRequest& request, const RemovalPlan& removal)
{
    const kxDisassemblyHierarchy planned = plan.hierarchy();
    planRemoval(plan, removal.procedure.part, true);
    RemovalView result;
    try {
        const ExplodeOptions options = removalViewOptions(plan.assembly(), request, removal);
        result.view = removalView(plan.assembly(), removal.instructions, removal.base, options);
        result.report = explodeReport(plan, result.view, options);
    } catch (...) {
        plan.editBuilder().copyGroupsHierarchy(planned);
        throw;
    }
    plan.editBuilder().copyGroupsHierarchy(planned);
    return result;
}

std::string inputsTitle(const std::vector<std::string>& inputs)
{
    const std::string first = std::filesystem::path(inputs.front()).filename().string();
    return inputs.size() == 1 ? first : first + " and " + std::to_string(inputs.size() - 1) + " more";
}

std::string explodedViewTitle(const std::string& subject)
{
    return subject + ": exploded view";
}

std::string removalTitle(const std::string& subject, const Assembly& assembly, const RemovalPlan& removal)
{
    return subject + ": taking out " + assembly.parts[removal.procedure.part].name;
}

}  // namespace velmora
