#include "kxContactPoints.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <string>
#include <unordered_map>

#include "kxCommonAddOns.h"
#include "kxMeshLib.h"

namespace {

using Vec2d = Wm4::Vector2<double>;
using Vec3f = Wm4::Vector3<float>;
using Vec3d = Wm4::Vector3<double>;

kx::kxAttributes pointBufferAttributes()
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    attr.SetTCoordChannels(0, 3);
    attr.SetPSizeChannels(1);
    return attr;
}

// Unit face normal, turned to agree with the triangle's vertex normals.
Vec3f faceNormal(const Vec3f p[3], const Vec3f n[3])
{
    Vec3f face = (p[1] - p[0]).Cross(p[2] - p[0]);
    face.Normalize();
    if (face.Dot(n[0] + n[1] + n[2]) < 0.0f)
        face = -face;
    return face;
}

void triangleCorners(const kx::kxTriMesh& mesh, unsigned t, Vec3f p[3], Vec3f n[3])
{
    int i[3];
    mesh.GetTriangle(static_cast<int>(t), i[0], i[1], i[2]);
    const kx::kxVertexBuffer& vb = *mesh.GetVertexBuffer();
    for (int k = 0; k < 3; ++k) {
        p[k] = vb.Position3(i[k]);
        n[k] = vb.Normal3(i[k]);
    }
}

// ---- patches ----

// Splits the listed triangles of `part` into connected patches, each a
// compact mesh with the part's channels plus 2D texture set 0.
std::vector<kx::kxPointer<kx::kxTriMesh>> buildPatches(const kx::kxTriMesh& part, const std::vector<unsigned>& faces)
{
    kx::kxPointer<kx::kxIndexBuffer> listed = new kx::kxIndexBuffer(static_cast<int>(3 * faces.size()), 1);
    for (size_t k = 0; k < faces.size(); ++k) {
        int i[3];
        part.GetTriangle(static_cast<int>(faces[k]), i[0], i[1], i[2]);
        for (int c = 0; c < 3; ++c)
            listed->GetData()[3 * k + size_t(c)] = static_cast<unsigned>(i[c]);
    }
    // The grouping sees the listed triangles on their own vertices, numbered
    // in order of the part's numbering: the same components, found at a cost
    // that follows the contact's size rather than the part's.
    const unsigned* listedIndices = listed->GetData();
    std::vector<unsigned> usedVertices(listedIndices, listedIndices + 3 * faces.size());
    std::sort(usedVertices.begin(), usedVertices.end());
    usedVertices.erase(std::unique(usedVertices.begin(), usedVertices.end()), usedVertices.end());
    kx::kxPointer<kx::kxIndexBuffer> renumbered = new kx::kxIndexBuffer(static_cast<int>(3 * faces.size()), 1);
    for (size_t k = 0; k < 3 * faces.size(); ++k) {
        renumbered->GetData()[k] = static_cast<unsigned>(
            std::lower_bound(usedVertices.begin(), usedVertices.end(), listedIndices[k]) - usedVertices.begin());
    }
    kx::kxPointer<kx::kxTriMesh> listedMesh = new kx::kxTriMesh(part.GetVertexBuffer(), renumbered);
    std::vector<std::vector<unsigned>> components;
    kx::kxMeshProcessing::ClusterizeConnectedComponents(listedMesh, components);

    kx::kxAttributes attr = part.GetVertexBuffer()->GetAttributes();
    attr.SetTCoordChannels(0, 2);
    std::vector<kx::kxPointer<kx::kxTriMesh>> patches;
    std::unordered_map<unsigned, unsigned> compactIndex;
    for (const std::vector<unsigned>& triangles : components) {
        compactIndex.clear();
        std::vector<unsigned> sourceVertex;
        kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(static_cast<int>(3 * triangles.size()), 1);
        for (size_t k = 0; k < triangles.size(); ++k) {
            for (int c = 0; c < 3; ++c) {
                const unsigned v = listed->GetData()[3 * triangles[k] + unsigned(c)];
                auto [it, fresh] = compactIndex.emplace(v, static_cast<unsigned>(sourceVertex.size()));
                if (fresh)
                    sourceVertex.push_back(v);
                ib->GetData()[3 * k + size_t(c)] = it->second;
            }
        }
        kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, static_cast<int>(sourceVertex.size()));
        for (size_t v = 0; v < sourceVertex.size(); ++v)
            kx::kxMeshUtils::CopyVertexData(*part.GetVertexBuffer(), int(sourceVertex[v]), *vb, int(v));
        patches.push_back(new kx::kxTriMesh(vb, ib));
    }
    return patches;
}

// ---- unfolding ----

uint64_t edgeKey(unsigned a, unsigned b) { return a < b ? (uint64_t(a) << 32) | b : (uint64_t(b) << 32) | a; }

// The triangles that share each edge of a triangle list. Corner slot 3t + c
// stands for the edge of triangle t from its corner c to the next; at(slot)
// lists every triangle with that edge in increasing order (one that has the
// edge twice, twice). One hash table and a counting sort: nothing is
// allocated per edge.
class EdgeTriangles {
public:
    EdgeTriangles(const unsigned* idx, unsigned triangleCount) : mEdgeOfSlot(3 * size_t(triangleCount))
    {
        size_t capacity = 16;
        while (capacity < 2 * mEdgeOfSlot.size())
            capacity *= 2;
        std::vector<uint64_t> keys(capacity);
        std::vector<unsigned> edges(capacity, kNoEdge);
        std::vector<unsigned> count;
        for (size_t slot = 0; slot < mEdgeOfSlot.size(); ++slot) {
            const size_t first = slot - slot % 3;
            const uint64_t key = edgeKey(idx[slot], idx[first + (slot + 1) % 3]);
            size_t h = size_t((key * 0x9E3779B97F4A7C15ull) >> 20) & (capacity - 1);
            while (edges[h] != kNoEdge && keys[h] != key)
                h = (h + 1) & (capacity - 1);
            if (edges[h] == kNoEdge) {
                edges[h] = unsigned(count.size());
                keys[h] = key;
                count.push_back(0);
            }
            mEdgeOfSlot[slot] = edges[h];
            ++count[edges[h]];
        }
        mStart.assign(count.size() + 1, 0);
        for (size_t e = 0; e < count.size(); ++e)
            mStart[e + 1] = mStart[e] + count[e];
        std::vector<unsigned> next(mStart.begin(), mStart.end() - 1);
        mTriangles.resize(mEdgeOfSlot.size());
        for (size_t slot = 0; slot < mEdgeOfSlot.size(); ++slot)
            mTriangles[next[mEdgeOfSlot[slot]]++] = unsigned(slot / 3);
    }

    std::span<const unsigned> at(size_t slot) const
    {
        const unsigned e = mEdgeOfSlot[slot];
        return {mTriangles.data() + mStart[e], mStart[e + 1] - mStart[e]};
    }

private:
    static constexpr unsigned kNoEdge = ~0u;
    std::vector<unsigned> mEdgeOfSlot;  // per corner slot, its edge
    std::vector<unsigned> mStart;       // per edge, where its triangles start in mTriangles
    std::vector<unsigned> mTriangles;
};

// Position of corner c of a neighbour across the placed edge (a, b), on the
// side of the edge away from `opposite` (the placed triangle's third corner),
// with the neighbour's own 3D shape. 2D lengths are 3D lengths times `scale`.
Vec2d placeAcrossEdge(const Vec3f& pa, const Vec3f& pb, const Vec3f& pc, const Vec2d& qa, const Vec2d& qb,
                      const Vec2d& opposite)
{
    const Vec3d e(pb - pa), w(pc - pa);
    const double lengthSq = e.SquaredLength();
    if (lengthSq == 0.0)
        return qa;
    const double along = w.Dot(e) / lengthSq;
    const double across = (w - e * along).Length() / std::sqrt(lengthSq);
    const Vec2d d = qb - qa;
    Vec2d perp(-d.Y(), d.X());
    if (perp.Dot(opposite - qa) > 0.0)
        perp = -perp;
    return qa + d * along + perp * across;
}

// Develops a patch into the plane, breadth first from its first triangle,
// then scales it into the unit square keeping the aspect ratio. A vertex is
// placed once, by the first triangle that reaches it. A patch whose first
// edge has zero length stays at the origin (every triangle degenerate).
void unfoldPatch(kx::kxTriMesh& patch)
{
    kx::kxVertexBuffer& vb = *patch.GetVertexBuffer();
    const unsigned* idx = patch.GetIndexBuffer()->GetData();
    const unsigned triangleCount = static_cast<unsigned>(patch.GetTriangleQuantity());
    for (int v = 0; v < vb.GetVertexQuantity(); ++v)
        vb.TCoord2(0, v) = Wm4::Vector2<float>(0.0f, 0.0f);
    if (triangleCount == 0)
        return;

    const Vec3d p0(vb.Position3(int(idx[0]))), p1(vb.Position3(int(idx[1]))), p2(vb.Position3(int(idx[2])));
    const double firstEdge = (p1 - p0).Length();
    if (firstEdge == 0.0)
        return;

    const EdgeTriangles trianglesOfEdge(idx, triangleCount);

    std::vector<Vec2d> q(size_t(vb.GetVertexQuantity()));
    std::vector<char> vertexPlaced(q.size(), 0), trianglePlaced(triangleCount, 0);
    const Vec3d e1 = (p1 - p0) / firstEdge, e2 = (p2 - p0) / firstEdge;
    const double x = e1.Dot(e2), h = e2.SquaredLength() - x * x;
    q[idx[0]] = Vec2d(0.0, 0.0);
    q[idx[1]] = Vec2d(1.0, 0.0);
    q[idx[2]] = Vec2d(x, std::sqrt(std::max(h, 0.0)));
    vertexPlaced[idx[0]] = vertexPlaced[idx[1]] = vertexPlaced[idx[2]] = 1;
    trianglePlaced[0] = 1;

    const double scale = 1.0 / firstEdge;
    std::vector<unsigned> work = {0};
    for (size_t head = 0; head < work.size(); ++head) {
        const unsigned t = work[head];
        for (int c = 0; c < 3; ++c) {
            const unsigned a = idx[3 * t + unsigned(c)], b = idx[3 * t + unsigned(c + 1) % 3];
            const unsigned opposite = idx[3 * t + unsigned(c + 2) % 3];
            for (unsigned n : trianglesOfEdge.at(3 * size_t(t) + unsigned(c))) {
                if (trianglePlaced[n])
                    continue;
                trianglePlaced[n] = 1;
                work.push_back(n);
                unsigned corner = idx[3 * n];
                for (int k = 0; k < 3; ++k) {
                    const unsigned v = idx[3 * n + unsigned(k)];
                    if (v != a && v != b)
                        corner = v;
                }
                if (vertexPlaced[corner])
                    continue;
                q[corner] = placeAcrossEdge(vb.Position3(int(a)) * float(scale), vb.Position3(int(b)) * float(scale),
                                            vb.Position3(int(corner)) * float(scale), q[a], q[b], q[opposite]);
                vertexPlaced[corner] = 1;
            }
        }
    }

    Vec2d lo(1e300, 1e300), hi(-1e300, -1e300);
    for (size_t v = 0; v < q.size(); ++v) {
        if (!vertexPlaced[v])
            continue;
        for (int i = 0; i < 2; ++i) {
            lo[i] = std::min(lo[i], q[v][i]);
            hi[i] = std::max(hi[i], q[v][i]);
        }
    }
    const double s = std::max(hi[0] - lo[0], hi[1] - lo[1]);
    if (!(s > 0.0))
        return;
    for (size_t v = 0; v < q.size(); ++v) {
        if (vertexPlaced[v])
            vb.TCoord2(0, int(v)) = Wm4::Vector2<float>(float((q[v][0] - lo[0]) / s), float((q[v][1] - lo[1]) / s));
    }
}

// ---- sampling ----

double doubledArea(const Vec2d& a, const Vec2d& b, const Vec2d& c) { return std::fabs((b - a).DotPerp(c - a)); }

// Spreads points evenly inside a 2D triangle: breadth-first subdivision at
// edge midpoints; every sub-triangle offers the centroids of its three corner
// sub-triangles (points strictly inside the triangle are taken). Scratch is
// kept between calls.
class TriangleSampler {
public:
    // Appends up to n points to `out`; false (nothing appended) when the
    // triangle is degenerate.
    bool sample(const Vec2d& q0, const Vec2d& q1, const Vec2d& q2, unsigned n, std::vector<Vec2d>& out)
    {
        const Vec2d corners[3] = {q0, q1, q2};
        const double signedArea = (q1 - q0).DotPerp(q2 - q0);
        const double extent = std::max({(q1 - q0).SquaredLength(), (q2 - q1).SquaredLength(), (q0 - q2).SquaredLength()});
        if (!(std::fabs(signedArea) > 1e-12 * extent) || extent == 0.0)
            return false;
        for (int i = 0; i < 3; ++i) {
            const Vec2d d = corners[(i + 1) % 3] - corners[i];
            mInward[i] = signedArea > 0.0 ? Vec2d(-d.Y(), d.X()) : Vec2d(d.Y(), -d.X());
            mOrigin[i] = corners[i];
        }
        mQueue.clear();
        mQueue.push_back({q0, q1, q2});
        unsigned taken = 0;
        for (size_t head = 0; head < mQueue.size() && taken < n; ++head) {
            const SubTriangle s = mQueue[head];
            const Vec2d m01 = (s.a + s.b) * 0.5, m12 = (s.b + s.c) * 0.5, m20 = (s.c + s.a) * 0.5;
            const Vec2d candidates[3] = {(s.a + m01 + m20) / 3.0, (s.b + m12 + m01) / 3.0, (s.c + m20 + m12) / 3.0};
            for (const Vec2d& p : candidates) {
                if (taken < n && strictlyInside(p)) {
                    out.push_back(p);
                    ++taken;
                }
            }
            mQueue.push_back({s.a, m01, m20});
            mQueue.push_back({m01, s.b, m12});
            mQueue.push_back({m20, m12, s.c});
            mQueue.push_back({m12, m20, m01});
        }
        return true;
    }

private:
    struct SubTriangle {
        Vec2d a, b, c;
    };
    bool strictlyInside(const Vec2d& p) const
    {
        for (int i = 0; i < 3; ++i) {
            if (!(mInward[i].Dot(p - mOrigin[i]) > 0.0))
                return false;
        }
        return true;
    }

    Vec2d mInward[3], mOrigin[3];
    std::vector<SubTriangle> mQueue;
};

struct PatchSamples {
    kx::kxPointer<kx::kxVertexBuffer> buffer;  // one vertex per sample, output channels
    std::vector<unsigned> perPatch;            // samples of each patch, in patch order
};

PatchSamples samplePatches(const std::vector<kx::kxPointer<kx::kxTriMesh>>& patches)
{
    auto corners2D = [](const kx::kxTriMesh& patch, unsigned t, Vec2d q[3]) {
        const unsigned* idx = patch.GetIndexBuffer()->GetData() + 3 * t;
        for (int k = 0; k < 3; ++k) {
            const Wm4::Vector2<float>& uv = patch.GetVertexBuffer()->TCoord2(0, int(idx[k]));
            q[k] = Vec2d(uv.X(), uv.Y());
        }
    };

    double totalArea = 0.0;
    for (const auto& patch : patches) {
        for (unsigned t = 0; t < unsigned(patch->GetTriangleQuantity()); ++t) {
            Vec2d q[3];
            corners2D(*patch, t, q);
            totalArea += doubledArea(q[0], q[1], q[2]);
        }
    }
    // Share of the budget per triangle, in patch and triangle order.
    std::vector<unsigned> counts;
    double remainingBudget = kxContactPoints::SAMPLE_BUDGET, remainingArea = totalArea;
    size_t reserved = 0;
    for (const auto& patch : patches) {
        for (unsigned t = 0; t < unsigned(patch->GetTriangleQuantity()); ++t) {
            Vec2d q[3];
            corners2D(*patch, t, q);
            const double area = doubledArea(q[0], q[1], q[2]);
            const double share = remainingArea > 0.0 ? remainingBudget * area / remainingArea : 0.0;
            const unsigned count = share > 0.0 ? static_cast<unsigned>(share) : 0u;
            remainingBudget -= count;
            remainingArea -= area;
            counts.push_back(count);
            reserved += std::max(count, kxContactPoints::MIN_SAMPLES_PER_TRIANGLE);
        }
    }

    PatchSamples out;
    out.buffer = new kx::kxVertexBuffer(pointBufferAttributes(), static_cast<int>(reserved));
    kx::kxVertexBuffer& samples = *out.buffer;
    TriangleSampler sampler;
    std::vector<Vec2d> points;
    int made = 0;
    size_t triangleOrdinal = 0;
    for (const auto& patch : patches) {
        const int patchStart = made;
        for (unsigned t = 0; t < unsigned(patch->GetTriangleQuantity()); ++t, ++triangleOrdinal) {
            const unsigned n = std::max(counts[triangleOrdinal], kxContactPoints::MIN_SAMPLES_PER_TRIANGLE);
            Vec2d q[3];
            corners2D(*patch, t, q);
            points.clear();
            if (!sampler.sample(q[0], q[1], q[2], n, points))
                continue;
            Vec3f p[3], nv[3];
            triangleCorners(*patch, t, p, nv);
            const Vec3f face = faceNormal(p, nv);
            const double area2 = (q[1] - q[0]).DotPerp(q[2] - q[0]);
            const float weight = static_cast<float>(std::fabs(area2) / n);
            for (const Vec2d& point : points) {
                const double b1 = (point - q[0]).DotPerp(q[2] - q[0]) / area2;
                const double b2 = (q[1] - q[0]).DotPerp(point - q[0]) / area2;
                const double b0 = 1.0 - b1 - b2;
                const Vec3d position = Vec3d(p[0]) * b0 + Vec3d(p[1]) * b1 + Vec3d(p[2]) * b2;
                Vec3f normal = Vec3f(Vec3d(nv[0]) * b0 + Vec3d(nv[1]) * b1 + Vec3d(nv[2]) * b2);
                normal.Normalize();
                samples.Position3(made) = Vec3f(position);
                samples.Normal3(made) = normal;
                samples.TCoord3(0, made) = face;
                samples.PSize1(made) = weight;
                ++made;
            }
        }
        out.perPatch.push_back(static_cast<unsigned>(made - patchStart));
    }
    samples.resizeVertexBuffer(made);
    return out;
}

// ---- matching and trimming ----

struct MatchedPair {
    int sample;
    Vec3f partnerPosition, partnerNormal, partnerFace;
    double distance;
    double weight;
};

// Drops the pairs of one patch whose distance is an outlier (not below
// mean + 2σ, weighted). When all distances are equal nothing is an outlier.
void trimPatch(std::vector<MatchedPair>& pairs, size_t begin)
{
    double sw = 0.0, swd = 0.0, swd2 = 0.0;
    for (size_t k = begin; k < pairs.size(); ++k) {
        sw += pairs[k].weight;
        swd += pairs[k].weight * pairs[k].distance;
        swd2 += pairs[k].weight * pairs[k].distance * pairs[k].distance;
    }
    if (!(sw > 0.0))
        return;
    const double mean = swd / sw;
    const double variance = swd2 / sw - mean * mean;
    if (!(variance > 0.0))
        return;
    const double limit = mean + 2.0 * std::sqrt(variance);
    size_t kept = begin;
    for (size_t k = begin; k < pairs.size(); ++k) {
        if (pairs[k].distance < limit)
            pairs[kept++] = pairs[k];
    }
    pairs.resize(kept);
}

kx::kxPointer<kx::kxVertexBuffer> matchSamples(const PatchSamples& samples, const kxMeshAndBVH& other,
                                                const std::vector<unsigned>& otherFaces, float tolerance)
{
    const kx::kxTriMesh& otherMesh = *other.mMesh;
    // Looked up by binary search: the cost follows the contact's size, not
    // the size of the other part.
    std::vector<unsigned> listed(otherFaces);
    std::sort(listed.begin(), listed.end());
    const auto isListed = [&](unsigned t) { return std::binary_search(listed.begin(), listed.end(), t); };

    const kx::kxVertexBuffer& s = *samples.buffer;
    std::vector<MatchedPair> pairs;
    // Neighbouring samples mostly hit the same triangle: its corners, face
    // normal and membership are kept from one hit to the next.
    struct {
        unsigned index = ~0u;
        bool listed = false;
        Vec3f p[3], n[3], face;
    } hitTriangle;
    int sample = 0;
    for (unsigned patchCount : samples.perPatch) {
        const size_t patchBegin = pairs.size();
        for (unsigned k = 0; k < patchCount; ++k, ++sample) {
            const Vec3f& normal = s.Normal3(sample);
            if (normal.SquaredLength() == 0.0f)
                continue;  // no direction to search along
            float distance = 0.0f;
            Wm4::Vector2<float> uv;
            unsigned hit = 0;
            if (!other.mQBVH->intersectRaySymmetric(s.Position3(sample), normal, tolerance, distance, uv, hit))
                continue;
            if (hit != hitTriangle.index) {
                hitTriangle.index = hit;
                hitTriangle.listed = isListed(hit);
                triangleCorners(otherMesh, hit, hitTriangle.p, hitTriangle.n);
                hitTriangle.face = faceNormal(hitTriangle.p, hitTriangle.n);
            }
            if (!hitTriangle.listed)
                continue;
            const Vec3f(&p)[3] = hitTriangle.p;
            const Vec3f(&n)[3] = hitTriangle.n;
            const float w0 = uv.X(), w1 = uv.Y(), w2 = 1.0f - uv.X() - uv.Y();
            const Vec3f partner = p[0] * w0 + p[1] * w1 + p[2] * w2;
            Vec3f partnerNormal = n[0] * w0 + n[1] * w1 + n[2] * w2;
            partnerNormal.Normalize();
            const Vec3f& partnerFace = hitTriangle.face;
            const double opposition = std::max(double(normal.Dot(partnerNormal)),
                                               double(s.TCoord3(0, sample).Dot(partnerFace)));
            if (opposition + kxContactPoints::OPPOSITION_COSINE > 0.0)
                continue;
            pairs.push_back({sample, partner, partnerNormal, partnerFace, distance, s.PSize1(sample)});
        }
        trimPatch(pairs, patchBegin);
    }
    if (pairs.empty())
        return nullptr;

    kx::kxPointer<kx::kxVertexBuffer> out =
        new kx::kxVertexBuffer(pointBufferAttributes(), static_cast<int>(2 * pairs.size()));
    for (size_t k = 0; k < pairs.size(); ++k) {
        const MatchedPair& pair = pairs[k];
        const int v = static_cast<int>(2 * k);
        kx::kxMeshUtils::CopyVertexData(s, pair.sample, *out, v);
        out->Position3(v + 1) = pair.partnerPosition;
        out->Normal3(v + 1) = pair.partnerNormal;
        out->TCoord3(0, v + 1) = pair.partnerFace;
        out->PSize1(v + 1) = s.PSize1(pair.sample);
    }
    return out;
}

PatchSamples samplePart(const kx::kxTriMesh& part, const std::vector<unsigned>& faces,
                        std::vector<kx::kxPointer<kx::kxTriMesh>>& patches)
{
    patches = buildPatches(part, faces);
    for (auto& patch : patches)
        unfoldPatch(*patch);
    return samplePatches(patches);
}

// Debug output: the patches and both point sets as meshes, named after the parts.
void dumpSamples(const std::vector<kx::kxPointer<kx::kxTriMesh>>& patches, const kx::kxTriMesh& a,
                 const kx::kxTriMesh& b, const kx::kxPointer<kx::kxVertexBuffer>& pointsA,
                 const kx::kxPointer<kx::kxVertexBuffer>& pointsB)
{
    kx::kxPointer<kx::kxNode> root = new kx::kxNode;
    kx::kxPointer<kx::kxNode> patchNode = new kx::kxNode;
    for (const auto& patch : patches)
        patchNode->AttachChild(patch);
    root->AttachChild(patchNode);
    kx::kxPointer<kx::kxNode> pointNode = new kx::kxNode;
    for (const kx::kxPointer<kx::kxVertexBuffer>& points : {pointsA, pointsB}) {
        if (points != nullptr)
            pointNode->AttachChild(kx::kxDataToGeometry::VertexBufferToGeometry(points, 1));
    }
    root->AttachChild(pointNode);
    kx::kxMeshManager::saveMesh(root, std::string("d:/assembly_tmp/test_samples_") + a.GetName() + "_" + b.GetName() +
                                          ".obj");
}

}  // namespace

kxContactPoints::kxContactPoints(const kxMeshAndBVH& partA, const kxMeshAndBVH& partB, float tolerance)
    : mPartA(&partA), mPartB(&partB), mTolerance(tolerance), mDumpSamples(false)
{
}

void kxContactPoints::getContactPoints(const std::vector<unsigned>& facesA, const std::vector<unsigned>& facesB,
                                       kx::kxPointer<kx::kxVertexBuffer>& pointsA,
                                       kx::kxPointer<kx::kxVertexBuffer>& pointsB)
{
    std::vector<kx::kxPointer<kx::kxTriMesh>> patchesA, patchesB;
    const PatchSamples samplesA = samplePart(*mPartA->mMesh, facesA, patchesA);
    const PatchSamples samplesB = samplePart(*mPartB->mMesh, facesB, patchesB);
    pointsA = matchSamples(samplesA, *mPartB, facesB, mTolerance);
    pointsB = matchSamples(samplesB, *mPartA, facesA, mTolerance);
    if (mDumpSamples) {
        patchesA.insert(patchesA.end(), patchesB.begin(), patchesB.end());
        dumpSamples(patchesA, *mPartA->mMesh, *mPartB->mMesh, pointsA, pointsB);
    }
}
