#include "velmora/Report.h"

#include "VelmoraVersion.h"

namespace velmora {
namespace {

template <class Real>
Json vectorJson(const Wm4::Vector3<Real>& v)
{
    return Json::array({v[0], v[1], v[2]});
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
                            {"point", vectorJson(diagram.getContactPoint(e))},
                            {"directions", directions},
                            {"directionIds", diagram.getDisassemblyDirectionIds(e)}});
    }
    Json directionSet = Json::array();
    for (unsigned k = 0; k < diagram.getNoDirections(); ++k)
        directionSet.push_back(vectorJson(diagram.getDirectionFromId(k)));
    Json timings = Json::object();
    double total = 0.0;
    for (const StageTiming& t : plan.timings()) {
        timings[t.stage + "Ms"] = t.milliseconds;
        total += t.milliseconds;
    }
    timings["totalMs"] = total;
    report["contacts"] = contacts;
    report["directions"] = directionSet;
    report["settings"] = {{"threads", plan.threads()}, {"angleTolerance", plan.angleTolerance()}};
    report["timings"] = timings;
    return report;
}

}  // namespace velmora
