#include "velmora/SweptContacts.h"

#include <cmath>

#include "kxCommonAddOns.h"

namespace velmora {
namespace {

using Vec3d = Wm4::Vector3<double>;
using Vec3f = Wm4::Vector3<float>;

// Appends the line of `direction` unless one listed lies within the angle
// whose cosine is `cosine` (either sense): both senses of a line are swept.
void appendDistinctLine(std::vector<Vec3d>& lines, const Vec3d& direction, double cosine)
{
    for (const Vec3d& line : lines)
        if (std::fabs(line.Dot(direction)) >= cosine)
            return;
    lines.push_back(direction);
}

// Calls visit(p) for every vertex p of group g, in world space.
template <class Visit>
void forEachWorldVertex(const kxMeshGroups& groups, unsigned g, Visit&& visit)
{
    for (unsigned k = 0; k < groups.getGroupSize(g); ++k) {
        const kx::kxTriMesh& mesh = *groups.getMeshFromGroup(g, k);
        for (int v = 0; v < mesh.GetVertexBuffer()->GetVertexQuantity(); ++v)
            visit(mesh.World.ApplyForward(mesh.GetVertexBuffer()->Position3(v)));
    }
}

kx::kxBBox groupBox(const kxMeshGroups& groups, unsigned g)
{
    kx::kxBBox box;
    forEachWorldVertex(groups, g, [&](const Vec3f& p) { box.selfExpand(p); });
    return box;
}

// Where a freed contact without contact points is shown: the middle of the
// overlap of its groups' bounds (they touch, so the overlap is the region
// around the touching faces).
Vec3f touchingRegionCentre(const kxMeshGroups& groups, unsigned g0, unsigned g1)
{
    const kx::kxBBox a = groupBox(groups, g0), b = groupBox(groups, g1);
    Vec3f centre;
    for (int k = 0; k < 3; ++k)
        centre[k] = 0.5f * (std::max(a.min[k], b.min[k]) + std::min(a.max[k], b.max[k]));
    return centre;
}

Vec3d vertexCentroid(const kxMeshGroups& groups, unsigned g)
{
    Vec3d sum(0, 0, 0);
    int count = 0;
    forEachWorldVertex(groups, g, [&](const Vec3f& p) {
        sum += Vec3d(p[0], p[1], p[2]);
        ++count;
    });
    return count ? sum / double(count) : sum;
}

// The directions, both senses of each candidate, along which g0 leaves g1
// cleanly. A direction heading into g1 (towards its centre by more than the
// angle tolerance) is not taken even when its sweep is clear: faces that lie
// on one another with coinciding vertices can slide into each other unseen
// by the sweep's rays, and a contact's directions must never push into it.
std::vector<Vec3d> clearDirections(const PlanVerifier& verifier, const kxMeshGroups& groups, unsigned g0,
                                   unsigned g1, const std::vector<Vec3d>& candidates, double headingSine)
{
    Vec3d towards = vertexCentroid(groups, g1) - vertexCentroid(groups, g0);
    towards.Normalize();
    std::vector<Vec3d> senses;
    for (const Vec3d& candidate : candidates)
        for (const Vec3d& d : {candidate, -candidate})
            if (d.Dot(towards) <= headingSine)
                senses.push_back(d);
    const std::vector<SweepOutcome> sweeps = verifier.sweepAlong({g0}, {g1}, senses, true);
    std::vector<Vec3d> clear;
    for (size_t j = 0; j < senses.size(); ++j)
        if (sweeps[j].clear)
            clear.push_back(senses[j]);
    return clear;
}

}  // namespace

std::vector<Vec3d> candidateDirections(const kxContactDiagram& diagram, float angleTolerance)
{
    const double cosine = std::cos(double(angleTolerance) * M_PI / 180.0);
    std::vector<Vec3d> candidates{Vec3d(1, 0, 0), Vec3d(0, 1, 0), Vec3d(0, 0, 1)};
    for (unsigned e = 0; e < diagram.getNoContacts(); ++e)
        for (const Vec3d& d : diagram.getDisassemblyDirections(e))
            appendDistinctLine(candidates, d, cosine);
    return candidates;
}

SweptContacts freeLockedContactsBySweep(const kxContactDiagram& diagram, const kxMeshGroups& groups,
                                        const PlanVerifier& verifier, float angleTolerance)
{
    const unsigned noEdges = diagram.getNoContacts();
    SweptContacts result;
    std::vector<std::vector<Vec3d>> freedDirections(noEdges);
    std::vector<Vec3d> candidates;
    for (unsigned e = 0; e < noEdges; ++e) {
        if (!diagram.getDisassemblyDirections(e).empty())
            continue;
        if (candidates.empty())
            candidates = candidateDirections(diagram, angleTolerance);
        const kxContactDiagram::tContactEdge& edge = diagram.getEdgeData(e);
        freedDirections[e] = clearDirections(verifier, groups, edge.groupId0, edge.groupId1, candidates,
                                             std::sin(double(angleTolerance) * M_PI / 180.0));
        if (!freedDirections[e].empty())
            result.freed.push_back(e);
    }
    if (result.freed.empty())
        return result;
    result.diagram = std::make_unique<kxContactDiagram>(0u, noEdges, groups);
    result.diagram->setVerbose(diagram.getVerbose());
    for (unsigned e = 0; e < noEdges; ++e) {
        const kxContactDiagram::tContactEdge& edge = diagram.getEdgeData(e);
        const bool freed = !freedDirections[e].empty();
        const std::vector<Vec3d>& directions = freed ? freedDirections[e] : diagram.getDisassemblyDirections(e);
        const bool noPoint = freed && diagram.getContactPoint(e) == Vec3f();
        result.diagram->pushContactEdge(edge.meshId0, edge.meshId1, directions.empty() ? nullptr : directions.data(),
                                        unsigned(directions.size()),
                                        noPoint ? touchingRegionCentre(groups, edge.groupId0, edge.groupId1)
                                                : diagram.getContactPoint(e));
    }
    return result;
}

}  // namespace velmora
