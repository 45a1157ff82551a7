#include "velmora/Report.h"

#include "VelmoraVersion.h"
#include "velmora/SavedPlanReplay.h"
#include "velmora/VerificationReport.h"

namespace velmora {
namespace {

template <class Real>
Json vectorJson(const Wm4::Vector3<Real>& v)
{
    return Json::array({v[0], v[1], v[2]});
}

constexpr unsigned kNoNode = kxDisassemblyHierarchy::kNoNode;

Json nodeOrNull(unsigned node)
{
    return node == kNoNode ? Json(nullptr) : Json(node);
}

Json groupNames(const Assembly& assembly, const std::vector<unsigned>& groups)
{
    Json names = Json::array();
    for (unsigned g : groups)
        names.push_back(assembly.groups[g].name);
    return names;
}

Json hierarchyNode(const Plan& plan, unsigned id)
{
    const kxDisassemblyHierarchy::tTreeNode& node = plan.hierarchy().getNode(id);
    const std::vector<unsigned> groups = groupsOfNode(plan.hierarchy(), id);
    Json json = {{"id", id},
                 {"parent", nodeOrNull(node.parent)},
                 {"groups", groups},
                 {"names", groupNames(plan.assembly(), groups)}};
    if (node.firstChild == kNoNode) {
        json["split"] = nullptr;
        return json;
    }
    json["split"] = {{"directionId", node.splitId},
                     {"direction", vectorJson(plan.diagram().getDirectionFromId(node.splitId))},
                     {"moving", node.secondChild},
                     {"staying", node.firstChild}};
    addSplitVerdict(plan, id, json);
    return json;
}

// A contact whose faces gave no contact points has neither directions nor a
// point (the diagram leaves it at the origin): its point is null.
// A contact's point in world lengths, or null for a contact with no contact points.
Json contactPointJson(const Plan& plan, unsigned e)
{
    const kxContactDiagram& diagram = plan.diagram();
    const bool noPoints =
        diagram.getDisassemblyDirections(e).empty() && diagram.getContactPoint(e) == Wm4::Vector3<float>();
    return noPoints ? Json(nullptr) : vectorJson(plan.contactPoint(e));
}

Json directionSetJson(const kxContactDiagram& diagram)
{
    Json directions = Json::array();
    for (unsigned k = 0; k < diagram.getNoDirections(); ++k)
        directions.push_back(vectorJson(diagram.getDirectionFromId(k)));
    return directions;
}

// Milliseconds per stage of the plan, as "<stage>Ms".
Json stageTimingsJson(const Plan& plan)
{
    Json timings = Json::object();
    for (const StageTiming& t : plan.timings())
        timings[t.stage + "Ms"] = t.milliseconds;
    return timings;
}

Json keepTogetherJson(const Plan& plan)
{
    Json sets = Json::array();
    for (const std::vector<unsigned>& set : plan.keepTogether())
        sets.push_back(groupNames(plan.assembly(), set));
    return sets;
}

}  // namespace

Json assemblyReport(const Assembly& assembly)
{
    std::vector<unsigned> groupOfPart(assembly.parts.size());
    for (unsigned g = 0; g < assembly.groups.size(); ++g)
        for (unsigned p : assembly.groups[g].parts)
            groupOfPart[p] = g;
    Json parts = Json::array();
    for (unsigned p = 0; p < assembly.parts.size(); ++p) {
        const Part& part = assembly.parts[p];
        parts.push_back({{"name", part.name},
                         {"file", part.file},
                         {"node", part.node},
                         {"group", groupOfPart[p]},
                         {"triangles", part.mesh->GetTriangleQuantity()}});
        if (part.colour)
            parts.back()["colour"] = {part.colour->r, part.colour->g, part.colour->b, part.colour->a};
    }
    Json groups = Json::array();
    for (const Group& group : assembly.groups)
        groups.push_back({{"name", group.name}, {"parts", group.parts}});
    Wm4::Vector3<float> lo, hi;
    assemblyBounds(assembly, lo, hi);
    return {{"velmora", Velmora::Version::GetDescStringMajorMinorReleaseRevision(false)},
            {"parts", parts},
            {"groups", groups},
            {"triangles", assembly.triangleCount()},
            {"bounds", {{"min", vectorJson(lo)}, {"max", vectorJson(hi)}}},
            {"units", assembly.units},
            {"warnings", assembly.warnings}};
}

Json contactsReport(const Plan& plan)
{
    Json report = assemblyReport(plan.assembly());
    const kxContactDiagram& diagram = plan.diagram();
    const std::vector<Group>& groups = plan.assembly().groups;
    Json contacts = Json::array();
    for (unsigned e = 0; e < diagram.getNoContacts(); ++e) {
        const kxContactDiagram::tContactEdge& edge = diagram.getEdgeData(e);
        Json directions = Json::array();
        for (const Wm4::Vector3<double>& d : diagram.getDisassemblyDirections(e))
            directions.push_back(vectorJson(d));
        contacts.push_back({{"groups", {edge.groupId0, edge.groupId1}},
                            {"names", {groups[edge.groupId0].name, groups[edge.groupId1].name}},
                            {"point", contactPointJson(plan, e)},
                            {"directions", directions},
                            {"directionIds", diagram.getDisassemblyDirectionIds(e)},
                            {"zeroArea", plan.zeroAreaContact(e)}});
    }
    Json timings = stageTimingsJson(plan);
    double total = 0.0;
    for (const StageTiming& t : plan.timings())
        total += t.milliseconds;
    timings["totalMs"] = total;
    report["contacts"] = contacts;
    report["directions"] = directionSetJson(diagram);
    report["settings"] = {{"threads", plan.threads()},
                          {"angleTolerance", plan.angleTolerance()},
                          {"normaliseScale", plan.normalisesScale()},
                          {"freeZeroAreaContacts", plan.freesZeroAreaContacts()}};
    report["timings"] = timings;
    return report;
}

Json planReport(const Plan& plan)
{
    Json report = contactsReport(plan);
    Json nodes = Json::array();
    for (unsigned id = 0; id < plan.hierarchy().getNoNodes(); ++id)
        if (plan.hierarchy().getNode(id).noGroups != kNoNode)
            nodes.push_back(hierarchyNode(plan, id));
    report["settings"]["distantContacts"] = plan.distantContacts();
    report["settings"]["keepTogether"] = keepTogetherJson(plan);
    report["hierarchy"] = {{"distantConstraints", plan.builder().getNoDistantConstraints()},
                           {"nodes", nodes},
                           {"distant", distantConstraintsJson(plan.builder())}};
    addVerificationReport(plan, report);
    return report;
}

Json explodeReport(const Plan& plan, const ExplodedView& view, const ExplodeOptions& options)
{
    Json report = planReport(plan);
    Json offsets = Json::array();
    for (const Wm4::Vector3<float>& offset : view.offsets)
        offsets.push_back(vectorJson(offset));
    report["explosion"] = {{"splitDistance", view.splitDistance},
                           {"policy", options.policy},
                           {"playStyle", options.staticPose ? Json(nullptr) : Json(options.playStyle)},
                           {"durationSeconds", view.duration},
                           {"offsets", offsets},
                           {"base", partNamesOf(plan.assembly(), {view.base})},
                           {"baseGroup", view.base},
                           {"units", options.glb.units},
                           {"speed", options.speed},
                           {"explodeInside", options.explodeInside},
                           {"compressed", options.glb.compress},
                           {"animation", options.staticPose ? Json(nullptr) : Json(options.glb.animationName)}};
    addExplodedPoseCheck(plan, view, report);
    return report;
}

Json removalReport(const Plan& plan, const RemovalProcedure& removal)
{
    const Assembly& assembly = plan.assembly();
    Json steps = Json::array();
    for (size_t s = 0; s < removal.steps.size(); ++s) {
        const RemovalStep& step = removal.steps[s];
        const bool last = step.sense == 0;
        steps.push_back({{"step", s + 1},
                         {"groups", step.groups},
                         {"parts", partNamesOf(assembly, step.groups)},
                         {"directionId", last ? Json(nullptr) : Json(step.directionId)},
                         {"direction", last ? Json(nullptr) : vectorJson(step.direction)},
                         {"target", last}});
    }
    Json report = assemblyReport(assembly);
    report["directions"] = directionSetJson(plan.diagram());
    report["removal"] = {{"part", assembly.parts[removal.part].name},
                         {"group", removal.group},
                         {"steps", steps}};
    report["settings"] = {{"threads", plan.threads()},
                          {"angleTolerance", plan.angleTolerance()},
                          {"distantContacts", plan.distantContacts()}};
    report["timings"] = stageTimingsJson(plan);
    addVerificationReport(plan, report);
    return report;
}

}  // namespace velmora
