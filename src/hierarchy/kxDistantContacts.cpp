// Distant contacts: per-mesh data (world-space copies, triangle normals and
// areas, boxes, ray trees, projection intervals), surface sampling and the
// penalty codes.
#include "kxDistantContacts.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr float kDefaultFacingAngle = 20.0f;
constexpr float kDefaultBlockedShare = 0.33333f;
constexpr unsigned kDefaultSampleBudget = 500;
// Build flags and leaf size of the ray trees.
constexpr kx::tQBVHDataFlags kTreeFlags = kx::kxQBVH::QBVH_ROBUST;
constexpr unsigned kTreeLeafSize = 12;
// The near threshold as a share of the distance scale.
constexpr float kNearShareOfScale = 0.02f;

// Additive recurrence of the plastic number: a two-dimensional sequence that
// covers the unit square evenly for any prefix.
constexpr double kSequenceStep0 = 0.7548776662466927;
constexpr double kSequenceStep1 = 0.5698402909980532;
// Scrambles a direction id into a sequence start.
constexpr unsigned kSeedMultiplier = 2654435761u;

double fractionalPart(double x)
{
    return x - std::floor(x);
}

kx::kxPointer<kx::kxTriMesh> makeWorldCopy(const kx::kxTriMesh& mesh)
{
    const kx::kxVertexBuffer& source = *mesh.GetVertexBuffer();
    kx::kxAttributes attributes;
    attributes.SetPositionChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> positions = new kx::kxVertexBuffer(attributes, source.GetVertexQuantity());
    for (int v = 0; v < source.GetVertexQuantity(); ++v)
        positions->Position3(v) = mesh.World.ApplyForward(source.Position3(v));
    return new kx::kxTriMesh(positions, mesh.GetIndexBuffer());
}

}  // namespace

kxDistantContacts::kxDistantContacts(kxDisassemblyHierarchyBuilder& builder)
    : mBuilder(builder),
      mMeshGroups(builder.getMeshGroups()),
      mDiagram(builder.getContactDiagram()),
      mFacingAngle(kDefaultFacingAngle),
      mBlockedShare(kDefaultBlockedShare),
      mSampleBudget(kDefaultSampleBudget),
      mDistanceScale(0.0f),
      mNearThreshold(0.0f),
      mNoPushedConstraints(0)
{
    copyWorldMeshes();
    const unsigned noMeshes = unsigned(mWorldMeshes.size());
    mTriangleNormals.resize(noMeshes);
    mTriangleAreas.resize(noMeshes);
    mMeshBoxes.resize(noMeshes);
    for (unsigned m = 0; m < noMeshes; ++m)
        computeTriangleData(m);
    initQBVH();
}

kxDistantContacts::~kxDistantContacts() = default;

// Meshes placed by a World transformation are copied into world coordinates;
// the others are read in place.
void kxDistantContacts::copyWorldMeshes()
{
    for (kx::kxTriMesh* mesh : mMeshGroups.mMeshes) {
        if (mesh->World.IsIdentity()) {
            mWorldMeshes.push_back(mesh);
        } else {
            mWorldCopies.push_back(makeWorldCopy(*mesh));
            mWorldMeshes.push_back(mWorldCopies.back().get());
        }
    }
}

void kxDistantContacts::computeTriangleData(unsigned mesh)
{
    const kx::kxTriMesh& triMesh = *mWorldMeshes[mesh];
    const kx::kxVertexBuffer& vertices = *triMesh.GetVertexBuffer();
    const int noTriangles = triMesh.GetTriangleQuantity();
    std::vector<Wm4::Vector3<float>>& normals = mTriangleNormals[mesh];
    std::vector<float>& areas = mTriangleAreas[mesh];
    normals.resize(size_t(noTriangles));
    areas.resize(size_t(noTriangles));
    kx::kxBBox box;
    for (int t = 0; t < noTriangles; ++t) {
        int i0 = 0, i1 = 0, i2 = 0;
        triMesh.GetTriangle(t, i0, i1, i2);
        const Wm4::Vector3<float>& p0 = vertices.Position3(i0);
        Wm4::Vector3<float> n = (vertices.Position3(i1) - p0).Cross(vertices.Position3(i2) - p0);
        areas[size_t(t)] = 0.5f * n.Normalize();
        normals[size_t(t)] = n;
        for (const int i : {i0, i1, i2})
            box.selfExpand(vertices.Position3(i));
    }
    mMeshBoxes[mesh] = box;
}

void kxDistantContacts::initQBVH()
{
    mTrees.clear();
    for (const kx::kxTriMesh* mesh : mWorldMeshes) {
        auto tree = std::make_unique<kx::kxQBVH>();
        tree->buildFromMesh(kTreeFlags, *mesh, kTreeLeafSize);
        mTrees.push_back(std::move(tree));
    }
}

void kxDistantContacts::computeBoundingPlanes()
{
    const unsigned noDirections = mDiagram.getNoDirections();
    const unsigned noMeshes = unsigned(mWorldMeshes.size());
    mIntervals.assign(size_t(2) * noMeshes * noDirections, 0.0f);
    for (unsigned m = 0; m < noMeshes; ++m) {
        const kx::kxVertexBuffer& vertices = *mWorldMeshes[m]->GetVertexBuffer();
        const int noVertices = vertices.GetVertexQuantity();
        for (unsigned k = 0; k < noDirections; ++k) {
            const Wm4::Vector3<double>& d = mDiagram.getDirectionFromId(k);
            double lo = HUGE_VAL;
            double hi = -HUGE_VAL;
            for (int v = 0; v < noVertices; ++v) {
                const Wm4::Vector3<float>& p = vertices.Position3(v);
                const double projection = d[0] * double(p[0]) + d[1] * double(p[1]) + d[2] * double(p[2]);
                lo = std::min(lo, projection);
                hi = std::max(hi, projection);
            }
            float* interval = &mIntervals[2 * (size_t(m) * noDirections + k)];
            interval[0] = float(lo);
            interval[1] = float(hi);
        }
    }
}

unsigned kxDistantContacts::sampleMesh(unsigned mesh, unsigned directionId, const Wm4::Vector3<float>& direction,
                                       kx::kxPointer<kx::kxVertexBuffer>& samples) const
{
    if (!samples || unsigned(samples->GetVertexQuantity()) < mSampleBudget) {
        kx::kxAttributes attributes;
        attributes.SetPositionChannels(3);
        attributes.SetNormalChannels(3);
        samples = new kx::kxVertexBuffer(attributes, int(mSampleBudget));
    }
    const std::vector<Wm4::Vector3<float>>& normals = mTriangleNormals[mesh];
    const std::vector<float>& areas = mTriangleAreas[mesh];
    double facingArea = 0.0;
    for (size_t t = 0; t < normals.size(); ++t) {
        if (normals[t].Dot(direction) > 0.0f)
            facingArea += double(areas[t]);
    }
    if (facingArea <= 0.0 || mSampleBudget == 0)
        return 0;

    const kx::kxTriMesh& triMesh = *mWorldMeshes[mesh];
    const kx::kxVertexBuffer& vertices = *triMesh.GetVertexBuffer();
    const double spacing = facingArea / double(mSampleBudget);
    const unsigned seed = directionId * kSeedMultiplier;
    double cumulated = 0.0;
    unsigned placed = 0;
    for (size_t t = 0; t < normals.size() && placed < mSampleBudget; ++t) {
        if (!(normals[t].Dot(direction) > 0.0f))
            continue;
        cumulated += double(areas[t]);
        int i0 = 0, i1 = 0, i2 = 0;
        triMesh.GetTriangle(int(t), i0, i1, i2);
        const Wm4::Vector3<float>& p0 = vertices.Position3(i0);
        const Wm4::Vector3<float> e1 = vertices.Position3(i1) - p0;
        const Wm4::Vector3<float> e2 = vertices.Position3(i2) - p0;
        // Sample i sits at the cumulated area (i + 0.5) * spacing.
        while (placed < mSampleBudget && (double(placed) + 0.5) * spacing < cumulated) {
            const double index = double(seed + placed);
            double r0 = fractionalPart(0.5 + index * kSequenceStep0);
            double r1 = fractionalPart(0.5 + index * kSequenceStep1);
            if (r0 + r1 > 1.0) {
                r0 = 1.0 - r0;
                r1 = 1.0 - r1;
            }
            samples->Position3(int(placed)) = p0 + e1 * float(r0) + e2 * float(r1);
            samples->Normal3(int(placed)) = normals[t];
            ++placed;
        }
    }
    return placed;
}

unsigned kxDistantContacts::strongBlockingCode(float distance, float scale, float nearThreshold)
{
    const double ratio = scale > 0.0f ? std::min(1.0, double(distance) / double(scale)) : 0.0;
    const double scaled = std::trunc((1.0 - ratio) * 1073741824.0);
    unsigned code = 0x80000000u | unsigned(std::min(scaled, double(0x3FFFFFFFu)));
    if (distance < nearThreshold)
        code |= 0x40000000u;
    return code;
}

unsigned kxDistantContacts::weakBlockingCode(float share)
{
    const double scaled = std::trunc(double(share) * 2147483648.0);
    return unsigned(std::min(scaled, double(0x7FFFFFFFu)));
}

void kxDistantContacts::computeDistanceParameters()
{
    kx::kxBBox all;
    for (const kx::kxBBox& box : mMeshBoxes)
        all.selfUnion(box);
    mDistanceScale = all.isEmpty() ? 0.0f : all.getDiagonalLength();
    mNearThreshold = kNearShareOfScale * mDistanceScale;
}
