#include "kxMeshProcessing.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <tuple>

namespace kx {

namespace {

// ---- welding -------------------------------------------------------------

// A vertex filed under the grid cell that holds it.
struct CellEntry {
    int64_t x, y, z;
    unsigned vertex;
    bool operator<(const CellEntry& o) const { return std::tie(x, y, z, vertex) < std::tie(o.x, o.y, o.z, o.vertex); }
};

int64_t cellCoordinate(float value, double cellSize)
{
    // Clamped so that huge quotients stay representable; clamped vertices
    // share a cell and are still compared by their true distance.
    const double q = std::floor(double(value) / cellSize);
    return static_cast<int64_t>(std::clamp(q, -4.0e18, 4.0e18));
}

bool isFinite(const Wm4::Vector3<float>& p) { return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]); }

template <class Vec, int N>
bool componentsWithin(const Vec& a, const Vec& b, float tolerance)
{
    for (int k = 0; k < N; ++k) {
        if (!(std::abs(a[k] - b[k]) <= tolerance))
            return false;
    }
    return true;
}

// Whether vertices u and v of `vb` agree, channel by channel except
// positions, within `tolerance`.
bool otherChannelsWithin(const kxVertexBuffer& vb, int u, int v, float tolerance)
{
    const kxAttributes& attr = vb.GetAttributes();
    if (attr.HasNormal() && !componentsWithin<Wm4::Vector3<float>, 3>(vb.Normal3(u), vb.Normal3(v), tolerance))
        return false;
    for (int set = 0; set < kxAttributes::MAX_TCOORD_SETS; ++set) {
        const int channels = attr.GetTCoordChannels(set);
        if (channels == 2 && !componentsWithin<Wm4::Vector2<float>, 2>(vb.TCoord2(set, u), vb.TCoord2(set, v), tolerance))
            return false;
        if (channels == 3 && !componentsWithin<Wm4::Vector3<float>, 3>(vb.TCoord3(set, u), vb.TCoord3(set, v), tolerance))
            return false;
    }
    return !attr.HasPSize() || std::abs(vb.PSize1(u) - vb.PSize1(v)) <= tolerance;
}

// Grid cell size: the tolerance itself, or for exact welding a size that
// puts a few vertices in each cell of the bounding box.
double weldCellSize(const std::vector<Wm4::Vector3<float>>& positions, float tolerance)
{
    if (tolerance > 0.0f)
        return tolerance;
    double extent = 0.0;
    for (int k = 0; k < 3; ++k) {
        float lo = 0.0f, hi = 0.0f;
        bool any = false;
        for (const Wm4::Vector3<float>& p : positions) {
            if (!isFinite(p))
                continue;
            lo = any ? std::min(lo, p[k]) : p[k];
            hi = any ? std::max(hi, p[k]) : p[k];
            any = true;
        }
        extent = std::max(extent, double(hi) - double(lo));
    }
    const double perAxis = std::cbrt(double(std::max<size_t>(positions.size(), 1)));
    return extent > 0.0 ? extent / perAxis : 1.0;
}

// For every vertex, the first vertex at the same point (-0 and 0 are one
// coordinate; a non-finite position stays its own): what the grid search
// below finds with a zero tolerance, by hashing, so that a dense surface
// (many vertices in each grid cell) costs linear time.
std::vector<unsigned> exactWeldTargets(const std::vector<Wm4::Vector3<float>>& positions)
{
    const unsigned n = static_cast<unsigned>(positions.size());
    size_t capacity = 16;
    while (capacity < 2 * size_t(n))
        capacity *= 2;
    constexpr unsigned kEmpty = ~0u;
    std::vector<unsigned> slots(capacity, kEmpty);
    std::vector<unsigned> target(n);
    for (unsigned v = 0; v < n; ++v) {
        const Wm4::Vector3<float>& p = positions[v];
        target[v] = v;
        if (!isFinite(p))
            continue;
        uint32_t bits[3];
        uint64_t hash = 0;
        for (int k = 0; k < 3; ++k) {
            const float c = p[k] + 0.0f;
            std::memcpy(&bits[k], &c, sizeof c);
            hash = (hash ^ bits[k]) * 0x9E3779B97F4A7C15ull;
        }
        for (size_t h = size_t(hash >> 24) & (capacity - 1);; h = (h + 1) & (capacity - 1)) {
            if (slots[h] == kEmpty) {
                slots[h] = v;
                break;
            }
            const Wm4::Vector3<float>& q = positions[slots[h]];
            if (q[0] == p[0] && q[1] == p[1] && q[2] == p[2]) {
                target[v] = slots[h];
                break;
            }
        }
    }
    return target;
}

// For every vertex, the kept vertex it merges into (itself when kept).
std::vector<unsigned> weldTargets(const kxVertexBuffer& vb, float tolerance, bool positionsOnly)
{
    const std::vector<Wm4::Vector3<float>>& positions = vb.GetPositions();
    if (tolerance == 0.0f && positionsOnly)
        return exactWeldTargets(positions);
    const unsigned n = static_cast<unsigned>(positions.size());
    const double cellSize = weldCellSize(positions, tolerance);
    const int reach = tolerance > 0.0f ? 1 : 0;
    const double squaredTolerance = double(tolerance) * double(tolerance);

    std::vector<CellEntry> cells;
    cells.reserve(n);
    for (unsigned v = 0; v < n; ++v) {
        const Wm4::Vector3<float>& p = positions[v];
        if (isFinite(p))
            cells.push_back({cellCoordinate(p[0], cellSize), cellCoordinate(p[1], cellSize),
                             cellCoordinate(p[2], cellSize), v});
    }
    std::sort(cells.begin(), cells.end());

    std::vector<unsigned> target(n);
    std::iota(target.begin(), target.end(), 0u);
    // Vertices in index order, so every earlier vertex is already settled.
    for (unsigned v = 0; v < n; ++v) {
        const Wm4::Vector3<float>& p = positions[v];
        if (!isFinite(p))
            continue;
        const int64_t cx = cellCoordinate(p[0], cellSize);
        const int64_t cy = cellCoordinate(p[1], cellSize);
        const int64_t cz = cellCoordinate(p[2], cellSize);
        unsigned best = v;
        for (int dx = -reach; dx <= reach; ++dx) {
            for (int dy = -reach; dy <= reach; ++dy) {
                for (int dz = -reach; dz <= reach; ++dz) {
                    // Entries of one cell are sorted by vertex: scan the
                    // earlier vertices only, and stop at the first match.
                    const CellEntry key{cx + dx, cy + dy, cz + dz, 0};
                    for (auto it = std::lower_bound(cells.begin(), cells.end(), key);
                         it != cells.end() && it->x == key.x && it->y == key.y && it->z == key.z && it->vertex < best;
                         ++it) {
                        const unsigned u = it->vertex;
                        if (target[u] != u)
                            continue;
                        const Wm4::Vector3<double> d = Wm4::Vector3<double>(positions[u]) - Wm4::Vector3<double>(p);
                        if (d.SquaredLength() <= squaredTolerance &&
                            (positionsOnly || otherChannelsWithin(vb, int(u), int(v), tolerance))) {
                            best = u;
                            break;
                        }
                    }
                }
            }
        }
        target[v] = best;
    }
    return target;
}

// ---- normal smoothing ----------------------------------------------------

// For every vertex, the triangle corners (3·t + k) that use it, ascending.
struct VertexCorners {
    std::vector<unsigned> offsets;  // corners of vertex v: corners[offsets[v] … offsets[v+1])
    std::vector<unsigned> corners;

    VertexCorners(const unsigned* indices, unsigned noCorners, unsigned noVertices) : offsets(noVertices + 1, 0)
    {
        for (unsigned c = 0; c < noCorners; ++c)
            ++offsets[indices[c] + 1];
        std::partial_sum(offsets.begin(), offsets.end(), offsets.begin());
        corners.resize(noCorners);
        std::vector<unsigned> fill(offsets.begin(), offsets.end() - 1);
        for (unsigned c = 0; c < noCorners; ++c)
            corners[fill[indices[c]]++] = c;
    }
};

struct FaceGeometry {
    std::vector<Wm4::Vector3<double>> normals;  // unit, or zero for a degenerate triangle
    std::vector<double> cornerAngles;           // interior angle at each corner 3·t + k
};

FaceGeometry computeFaceGeometry(const kxTriMesh& mesh)
{
    const int noTriangles = mesh.GetTriangleQuantity();
    const unsigned* indices = mesh.GetIndexBuffer()->GetData();
    const kxVertexBuffer& vb = *mesh.GetVertexBuffer();
    FaceGeometry geometry;
    geometry.normals.resize(size_t(noTriangles));
    geometry.cornerAngles.resize(3 * size_t(noTriangles));
    for (int t = 0; t < noTriangles; ++t) {
        Wm4::Vector3<double> p[3];
        for (int k = 0; k < 3; ++k)
            p[k] = Wm4::Vector3<double>(vb.Position3(int(indices[3 * t + k])));
        Wm4::Vector3<double> normal = (p[1] - p[0]).Cross(p[2] - p[0]);
        const double length = normal.Length();
        geometry.normals[size_t(t)] = length > 0.0 ? normal / length : Wm4::Vector3<double>();
        for (int k = 0; k < 3; ++k) {
            const Wm4::Vector3<double> a = p[(k + 1) % 3] - p[k];
            const Wm4::Vector3<double> b = p[(k + 2) % 3] - p[k];
            geometry.cornerAngles[3 * size_t(t) + size_t(k)] = std::atan2(a.Cross(b).Length(), a.Dot(b));
        }
    }
    return geometry;
}

// The smoothed normal of `corner` among the corners of its vertex.
Wm4::Vector3<float> cornerNormal(unsigned corner, const unsigned* first, const unsigned* last,
                                 const FaceGeometry& geometry, double cosMaxAngle)
{
    const Wm4::Vector3<double>& own = geometry.normals[corner / 3];
    if (own == Wm4::Vector3<double>::ZERO)
        return Wm4::Vector3<float>();
    Wm4::Vector3<double> sum;
    for (const unsigned* c = first; c != last; ++c) {
        const Wm4::Vector3<double>& other = geometry.normals[*c / 3];
        if (other != Wm4::Vector3<double>::ZERO && own.Dot(other) >= cosMaxAngle)
            sum += other * geometry.cornerAngles[*c];
    }
    const double length = sum.Length();
    return length > 0.0 ? Wm4::Vector3<float>(sum / length) : Wm4::Vector3<float>();
}

// ---- connected components ------------------------------------------------

unsigned findRoot(std::vector<unsigned>& parent, unsigned v)
{
    while (parent[v] != v) {
        parent[v] = parent[parent[v]];
        v = parent[v];
    }
    return v;
}

void unite(std::vector<unsigned>& parent, unsigned a, unsigned b)
{
    a = findRoot(parent, a);
    b = findRoot(parent, b);
    if (a != b)
        parent[std::max(a, b)] = std::min(a, b);
}

// A copy of `vertices` reduced to (or rearranged as) the listed source
// vertices, with `attributes`.
kxPointer<kxVertexBuffer> gatherVertices(const kxVertexBuffer& vertices, const kxAttributes& attributes,
                                         const std::vector<unsigned>& sources)
{
    kxPointer<kxVertexBuffer> result = new kxVertexBuffer(attributes, static_cast<int>(sources.size()));
    for (size_t i = 0; i < sources.size(); ++i)
        kxMeshUtils::CopyVertexData(vertices, int(sources[i]), *result, int(i));
    return result;
}

}  // namespace

int kxMeshProcessing::WeldSimilarVertices(kxTriMesh* mesh, float tolerance, bool positionsOnly)
{
    const kxVertexBuffer* vb = mesh->GetVertexBuffer();
    if (!vb)
        return 0;
    if (!(tolerance >= 0.0f))
        return vb->GetVertexQuantity();
    const std::vector<unsigned> target = weldTargets(*vb, tolerance, positionsOnly);

    std::vector<unsigned> kept;
    std::vector<unsigned> renumber(target.size());
    for (unsigned v = 0; v < target.size(); ++v) {
        if (target[v] == v) {
            renumber[v] = static_cast<unsigned>(kept.size());
            kept.push_back(v);
        }
    }
    const kxIndexBuffer* oldIndices = mesh->GetIndexBuffer();
    const int noIndices = oldIndices ? 3 * mesh->GetTriangleQuantity() : 0;
    kxPointer<kxIndexBuffer> indices = new kxIndexBuffer(noIndices, 1);
    for (int i = 0; i < noIndices; ++i)
        indices->GetData()[i] = renumber[target[oldIndices->GetData()[i]]];
    mesh->SetVertexBuffer(gatherVertices(*vb, vb->GetAttributes(), kept));
    mesh->SetIndexBuffer(indices);
    return static_cast<int>(kept.size());
}

void kxMeshProcessing::SmoothenNormals(kxTriMesh* mesh, double maxAngle)
{
    const kxVertexBuffer* vb = mesh->GetVertexBuffer();
    if (!vb || !mesh->GetIndexBuffer())
        return;
    const unsigned noCorners = 3 * static_cast<unsigned>(mesh->GetTriangleQuantity());
    const unsigned noVertices = static_cast<unsigned>(vb->GetVertexQuantity());
    const unsigned* indices = mesh->GetIndexBuffer()->GetData();
    const VertexCorners around(indices, noCorners, noVertices);
    const FaceGeometry geometry = computeFaceGeometry(*mesh);
    const double cosMaxAngle = std::cos(maxAngle);

    // New vertices: per original vertex, one per distinct corner normal.
    std::vector<unsigned> sources;
    std::vector<Wm4::Vector3<float>> normals;
    std::vector<unsigned> cornerVertex(noCorners);
    for (unsigned v = 0; v < noVertices; ++v) {
        const unsigned* first = around.corners.data() + around.offsets[v];
        const unsigned* last = around.corners.data() + around.offsets[v + 1];
        const size_t firstNew = sources.size();
        if (first == last) {
            sources.push_back(v);
            normals.push_back(vb->GetAttributes().HasNormal() ? vb->Normal3(int(v)) : Wm4::Vector3<float>());
            continue;
        }
        for (const unsigned* c = first; c != last; ++c) {
            const Wm4::Vector3<float> normal = cornerNormal(*c, first, last, geometry, cosMaxAngle);
            const auto match = std::find(normals.begin() + std::ptrdiff_t(firstNew), normals.end(), normal);
            cornerVertex[*c] = static_cast<unsigned>(match - normals.begin());
            if (match == normals.end()) {
                sources.push_back(v);
                normals.push_back(normal);
            }
        }
    }

    kxAttributes attributes = vb->GetAttributes();
    attributes.SetNormalChannels(3);
    kxPointer<kxVertexBuffer> smoothed = gatherVertices(*vb, attributes, sources);
    for (size_t i = 0; i < normals.size(); ++i)
        smoothed->Normal3(int(i)) = normals[i];
    kxPointer<kxIndexBuffer> newIndices = new kxIndexBuffer(int(noCorners), 1);
    std::copy(cornerVertex.begin(), cornerVertex.end(), newIndices->GetData());
    mesh->SetVertexBuffer(smoothed);
    mesh->SetIndexBuffer(newIndices);
}

unsigned kxMeshProcessing::ClusterizeConnectedComponents(const kxTriMesh* mesh,
                                                         std::vector<std::vector<unsigned>>& components)
{
    components.clear();
    const unsigned noTriangles = static_cast<unsigned>(mesh->GetTriangleQuantity());
    if (noTriangles == 0)
        return 0;
    const unsigned* indices = mesh->GetIndexBuffer()->GetData();
    const unsigned noVertices = *std::max_element(indices, indices + 3 * noTriangles) + 1;
    std::vector<unsigned> parent(noVertices);
    std::iota(parent.begin(), parent.end(), 0u);
    for (unsigned t = 0; t < noTriangles; ++t) {
        unite(parent, indices[3 * t], indices[3 * t + 1]);
        unite(parent, indices[3 * t], indices[3 * t + 2]);
    }
    constexpr unsigned kNone = 0xFFFFFFFFu;
    std::vector<unsigned> componentOfRoot(noVertices, kNone);
    for (unsigned t = 0; t < noTriangles; ++t) {
        const unsigned root = findRoot(parent, indices[3 * t]);
        if (componentOfRoot[root] == kNone) {
            componentOfRoot[root] = static_cast<unsigned>(components.size());
            components.emplace_back();
        }
        components[componentOfRoot[root]].push_back(t);
    }
    return static_cast<unsigned>(components.size());
}

}  // namespace kx
