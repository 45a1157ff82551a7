#include "velmora/ZeroAreaContacts.h"

#include <algorithm>
#include <cmath>

#include "Wm4.h"
#include "kxCommonAddOns.h"
#include "kxContactFaces.h"
#include "kxMeshAndBVH.h"

namespace velmora {
namespace {

using Vec2d = Wm4::Vector2<double>;
using Vec3d = Wm4::Vector3<double>;
using Vec3f = Wm4::Vector3<float>;

// The pairs the contact stage examines: unit normals opposed within 45 degrees.
constexpr float kOpposedNormalDot = -0.70710677f;
// A direction may push into a touching face by up to ten degrees, as motion
// analysis tolerates for a sliding pair.
const double kPushSine = std::sin(10.0 * M_PI / 180.0);

// A convex polygon in the plane, at most the 3 + 3 corners of one triangle
// clipped by another (fixed storage: this runs for every pair of faces).
struct Polygon {
    Vec2d corners[9];
    int count = 0;
};

double signedArea(const Polygon& polygon)
{
    double twice = 0.0;
    for (int i = 0; i < polygon.count; ++i)
        twice += polygon.corners[i].DotPerp(polygon.corners[(i + 1) % polygon.count]);
    return 0.5 * twice;
}

// Keeps the part of `polygon` on the left of the directed line a -> b.
Polygon clipLeftOf(const Polygon& polygon, const Vec2d& a, const Vec2d& b)
{
    Polygon out;
    const Vec2d edge = b - a;
    for (int i = 0; i < polygon.count; ++i) {
        const Vec2d& p = polygon.corners[i];
        const Vec2d& q = polygon.corners[(i + 1) % polygon.count];
        const double sp = edge.DotPerp(p - a);
        const double sq = edge.DotPerp(q - a);
        if (sp >= 0.0)
            out.corners[out.count++] = p;
        if ((sp >= 0.0) != (sq >= 0.0))
            out.corners[out.count++] = p + (q - p) * (sp / (sp - sq));
    }
    return out;
}

// Area of the overlap of two triangles seen along the normal of the first.
double projectedOverlap(const Vec3f a[3], const Vec3f& normal, const Vec3f b[3])
{
    const Vec3d n(normal.X(), normal.Y(), normal.Z());
    const Vec3d helper = std::fabs(n.X()) > std::fabs(n.Y()) ? Vec3d(0, 1, 0) : Vec3d(1, 0, 0);
    Vec3d u = helper - n * helper.Dot(n);
    u.Normalize();
    const Vec3d v = n.Cross(u);
    const auto project = [&](const Vec3f& p) {
        const Vec3d q(p.X(), p.Y(), p.Z());
        return Vec2d(u.Dot(q), v.Dot(q));
    };
    Polygon clipper, subject;
    clipper.count = subject.count = 3;
    for (int k = 0; k < 3; ++k) {
        clipper.corners[k] = project(a[k]);
        subject.corners[k] = project(b[k]);
    }
    if (signedArea(clipper) < 0.0)
        std::swap(clipper.corners[1], clipper.corners[2]);
    for (int k = 0; k < 3 && subject.count > 0; ++k)
        subject = clipLeftOf(subject, clipper.corners[k], clipper.corners[(k + 1) % 3]);
    return subject.count < 3 ? 0.0 : std::fabs(signedArea(subject));
}

void corners(const kx::kxTriMesh& mesh, unsigned t, Vec3f p[3])
{
    int i[3];
    mesh.GetTriangle(int(t), i[0], i[1], i[2]);
    for (int k = 0; k < 3; ++k)
        p[k] = mesh.GetVertexBuffer()->Position3(i[k]);
}

kx::kxBBox boxOf(const Vec3f p[3])
{
    kx::kxBBox box;
    for (int k = 0; k < 3; ++k)
        box.selfExpand(p[k]);
    return box;
}

bool boxesOverlap(const kx::kxBBox& a, const kx::kxBBox& b)
{
    for (int k = 0; k < 3; ++k)
        if (a.max[k] < b.min[k] || b.max[k] < a.min[k])
            return false;
    return true;
}

// Whether the touching faces of A and B cover more than `smallestArea` of
// each other: opposed pairs closer than `tolerance`, projected onto A's face.
bool touchesOnArea(const kxMeshAndBVH& a, const std::vector<unsigned>& facesA, const kxMeshAndBVH& b,
                   const std::vector<unsigned>& facesB, float tolerance, double smallestArea)
{
    std::vector<kx::kxBBox> boxesB(facesB.size());
    std::vector<Vec3f> cornersB(3 * facesB.size());
    for (size_t j = 0; j < facesB.size(); ++j) {
        corners(*b.mMesh, facesB[j], &cornersB[3 * j]);
        boxesB[j] = boxOf(&cornersB[3 * j]);
    }
    double area = 0.0;
    for (unsigned s : facesA) {
        Vec3f p[3];
        corners(*a.mMesh, s, p);
        const kx::kxBBox reach = boxOf(p).grow(tolerance);
        const Vec3f& normal = a.mTriangleNormals[s];
        for (size_t j = 0; j < facesB.size(); ++j) {
            if (normal.Dot(b.mTriangleNormals[facesB[j]]) > kOpposedNormalDot || !boxesOverlap(reach, boxesB[j]))
                continue;
            area += projectedOverlap(p, normal, &cornersB[3 * j]);
            if (area > smallestArea)
                return true;
        }
    }
    return false;
}

// The contact stage's tolerance: a thousandth of the largest side of any
// mesh's bounding box.
float contactTolerance(const kxMeshGroups& groups)
{
    float largest = 0.0f;
    for (const kx::kxTriMesh* mesh : groups.mMeshes) {
        kx::kxBBox box;
        for (int v = 0; v < mesh->GetVertexBuffer()->GetVertexQuantity(); ++v)
            box.selfExpand(mesh->GetVertexBuffer()->Position3(v));
        largest = std::max(largest, box.getMaxExtent());
    }
    return 0.001f * largest;
}

struct FreedEdge {
    std::vector<Vec3d> directions;
    Vec3f point;
};

// Analyses the directionless edges, building each mesh's trees once.
class ZeroAreaFinder {
public:
    explicit ZeroAreaFinder(const kxMeshGroups& groups)
        : mGroups(groups), mParts(groups.mMeshes.size()), mTolerance(contactTolerance(groups))
    {
    }

    // The freed form of the contact between the two meshes when it has no
    // area; false when it has some (or no touching faces are found).
    bool freeContact(unsigned meshA, unsigned meshB, FreedEdge& freed)
    {
        const kxMeshAndBVH& a = part(meshA);
        const kxMeshAndBVH& b = part(meshB);
        kxContactFaces contact(&a, &b, mTolerance);
        std::vector<unsigned> facesA, facesB;
        contact.getContactFacesList(facesA, facesB);
        const double smallestArea = double(mTolerance) * double(mTolerance);
        if (facesA.empty() || facesB.empty() || touchesOnArea(a, facesA, b, facesB, mTolerance, smallestArea))
            return false;
        std::vector<Vec3d> normals;
        for (unsigned s : facesA)
            normals.emplace_back(a.mTriangleNormals[s].X(), a.mTriangleNormals[s].Y(), a.mTriangleNormals[s].Z());
        for (unsigned t : facesB)
            normals.emplace_back(-b.mTriangleNormals[t].X(), -b.mTriangleNormals[t].Y(), -b.mTriangleNormals[t].Z());
        freed.directions = freeDirectionsOfTouchingFaces(normals);
        Vec3f onA, onB;
        contact.computeMinDistance(onA, onB);
        freed.point = (onA + onB) * 0.5f;
        return true;
    }

private:
    const kxMeshAndBVH& part(unsigned mesh)
    {
        if (!mParts[mesh])
            mParts[mesh] = std::make_unique<kxMeshAndBVH>(mGroups.mMeshes[mesh]);
        return *mParts[mesh];
    }

    const kxMeshGroups& mGroups;
    std::vector<std::unique_ptr<kxMeshAndBVH>> mParts;
    float mTolerance;
};

bool pushesIntoNone(const Vec3d& direction, const std::vector<Vec3d>& normals)
{
    return std::all_of(normals.begin(), normals.end(), [&](const Vec3d& n) { return direction.Dot(n) <= kPushSine; });
}

// Appends `direction` unless it is (numerically) one already listed.
void appendNew(std::vector<Vec3d>& directions, const Vec3d& direction)
{
    for (const Vec3d& d : directions)
        if (d.Dot(direction) > 1.0 - 1e-9)
            return;
    directions.push_back(direction);
}

}  // namespace

std::vector<Vec3d> freeDirectionsOfTouchingFaces(const std::vector<Vec3d>& normals)
{
    Vec3d sum(0, 0, 0);
    Wm4::Matrix3<double> spread;
    for (const Vec3d& n : normals) {
        sum += n;
        spread += Wm4::Matrix3<double>::TensorProduct(n, n);
    }
    std::vector<Vec3d> free;
    Vec3d away = -sum;
    if (away.Normalize() > 0.0 && pushesIntoNone(away, normals))
        free.push_back(away);
    Wm4::Eigen<double> axes(spread);
    axes.EigenStuff3();
    for (int i = 0; i < 3; ++i) {
        const Vec3d axis = axes.GetEigenvector(i);
        for (const Vec3d& d : {axis, -axis})
            if (pushesIntoNone(d, normals))
                appendNew(free, d);
    }
    return free;
}

ZeroAreaContacts freeZeroAreaContacts(const kxContactDiagram& diagram, const kxMeshGroups& groups)
{
    const unsigned noEdges = diagram.getNoContacts();
    ZeroAreaContacts result;
    result.zeroArea.assign(noEdges, false);
    std::vector<FreedEdge> freed(noEdges);
    ZeroAreaFinder finder(groups);
    bool any = false;
    for (unsigned e = 0; e < noEdges; ++e) {
        if (!diagram.getDisassemblyDirections(e).empty())
            continue;
        const kxContactDiagram::tContactEdge& edge = diagram.getEdgeData(e);
        result.zeroArea[e] = finder.freeContact(edge.meshId0, edge.meshId1, freed[e]);
        any = any || result.zeroArea[e];
    }
    if (!any)
        return result;
    result.diagram = std::make_unique<kxContactDiagram>(0u, noEdges, groups);
    result.diagram->setVerbose(diagram.getVerbose());
    for (unsigned e = 0; e < noEdges; ++e) {
        const kxContactDiagram::tContactEdge& edge = diagram.getEdgeData(e);
        const std::vector<Vec3d>& directions =
            result.zeroArea[e] ? freed[e].directions : diagram.getDisassemblyDirections(e);
        result.diagram->pushContactEdge(edge.meshId0, edge.meshId1, directions.empty() ? nullptr : directions.data(),
                                        unsigned(directions.size()),
                                        result.zeroArea[e] ? freed[e].point : diagram.getContactPoint(e));
    }
    return result;
}

}  // namespace velmora
