#include "velmora/PlanVerifier.h"

#include "velmora/NodeGroups.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "kxCommonAddOns.h"
#include "kxMiniThreadPool.h"
#include "kxSceneGraph.h"

namespace velmora {

using Vec3f = Wm4::Vector3<float>;
using Vec3d = Wm4::Vector3<double>;

namespace {

constexpr double kNoHit = std::numeric_limits<double>::infinity();
// Default tolerance: the contact tolerance, this share of the largest side
// of any group's bounds.
constexpr double kDefaultToleranceShare = 1e-3;
// A ray that meets a triangle closer to parallel than this slides along it.
constexpr double kMinSlidingCosine = 1e-6;
// Boundary crossings followed along one ray before giving up on it.
constexpr int kMaxCrossingsPerRay = 16;
// Grid cells per axis of the edge-crossing search, at most.
constexpr unsigned kMaxGridCells = 128;

// Runs work(job, thread) for every job on `noThreads` workers; each job must
// write only what is its own.
struct FunctionJob {
    void operator()(unsigned jobIndex, unsigned threadIndex, void* data) const
    {
        (*static_cast<const std::function<void(unsigned, unsigned)>*>(data))(jobIndex, threadIndex);
    }
};

void runJobs(unsigned noJobs, unsigned noThreads, const std::function<void(unsigned, unsigned)>& work)
{
    kxMiniThreadPool<FunctionJob> pool(FunctionJob{}, noThreads, nullptr);
    pool.setJobsData(noJobs, const_cast<std::function<void(unsigned, unsigned)>*>(&work));
    pool.start();
}

struct Box {
    Vec3d lo{HUGE_VAL, HUGE_VAL, HUGE_VAL};
    Vec3d hi{-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};

    void add(const Vec3d& p)
    {
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], p[a]);
            hi[a] = std::max(hi[a], p[a]);
        }
    }
    void add(const Box& b)
    {
        add(b.lo);
        add(b.hi);
    }
    bool overlaps(const Box& b, double margin) const
    {
        for (int a = 0; a < 3; ++a)
            if (lo[a] > b.hi[a] + margin || b.lo[a] > hi[a] + margin)
                return false;
        return true;
    }
    bool contains(const Vec3d& p, double margin) const
    {
        for (int a = 0; a < 3; ++a)
            if (p[a] < lo[a] - margin || p[a] > hi[a] + margin)
                return false;
        return true;
    }
    Box shifted(const Vec3d& s) const { return Box{lo + s, hi + s}; }
    // Smallest and largest projection of the box's corners on `d`.
    void project(const Vec3d& d, double& pmin, double& pmax) const
    {
        const Vec3d c = (lo + hi) * 0.5, h = (hi - lo) * 0.5;
        const double r = std::fabs(d[0]) * h[0] + std::fabs(d[1]) * h[1] + std::fabs(d[2]) * h[2];
        pmin = c.Dot(d) - r;
        pmax = c.Dot(d) + r;
    }
};

Vec3d toDouble(const Vec3f& v) { return Vec3d(v[0], v[1], v[2]); }
Vec3f toFloat(const Vec3d& v) { return Vec3f(float(v[0]), float(v[1]), float(v[2])); }

// A 2D segment of the edge-crossing search: an edge seen along the motion.
struct Segment {
    double a[2], b[2];
    double length;        // in the plane
    double lo[2], hi[2];  // bounds in the plane
    double dLo, dHi;      // extent along the motion
    unsigned edge;
    unsigned char moving;
};

}  // namespace

struct PlanVerifier::tGroupGeometry {
    kx::kxPointer<kx::kxTriMesh> mesh;  // world-space copy the ray tree is built from
    std::vector<Vec3f> positions;
    std::vector<Vec3f> normals;         // outward unit normal per triangle
    std::vector<unsigned> edges;        // unique edges, two vertex indices each
    kx::kxQBVH tree;
    Box box;
};

namespace {

double signedVolume(const kx::kxTriMesh& mesh, const std::vector<Vec3f>& p)
{
    double volume = 0.0;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i0 = 0, i1 = 0, i2 = 0;
        mesh.GetTriangle(t, i0, i1, i2);
        volume += toDouble(p[i0]).Dot(toDouble(p[i1]).Cross(toDouble(p[i2])));
    }
    return volume / 6.0;
}

// One group's meshes as one world-space mesh with its unique edges.
std::unique_ptr<PlanVerifier::tGroupGeometry> worldGeometry(const std::vector<const kx::kxTriMesh*>& sources)
{
    auto geometry = std::make_unique<PlanVerifier::tGroupGeometry>();
    int noVertices = 0, noTriangles = 0;
    for (const kx::kxTriMesh* source : sources) {
        noVertices += source->GetVertexBuffer()->GetVertexQuantity();
        noTriangles += source->GetTriangleQuantity();
    }
    kx::kxAttributes attributes;
    attributes.SetPositionChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attributes, noVertices);
    kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(3 * noTriangles, 1);
    geometry->positions.reserve(noVertices);
    std::vector<uint64_t> edgeKeys;
    unsigned* indices = ib->GetData();
    for (const kx::kxTriMesh* source : sources) {
        const kx::kxVertexBuffer& vertices = *source->GetVertexBuffer();
        const int base = int(geometry->positions.size());
        for (int i = 0; i < vertices.GetVertexQuantity(); ++i) {
            geometry->positions.push_back(source->World.ApplyForward(vertices.Position3(i)));
            vb->Position3(base + i) = geometry->positions.back();
            geometry->box.add(toDouble(geometry->positions.back()));
        }
        for (int t = 0; t < source->GetTriangleQuantity(); ++t) {
            int i[3] = {0, 0, 0};
            source->GetTriangle(t, i[0], i[1], i[2]);
            for (int k = 0; k < 3; ++k) {
                *indices++ = unsigned(base + i[k]);
                const unsigned lo = unsigned(base + std::min(i[k], i[(k + 1) % 3]));
                const unsigned hi = unsigned(base + std::max(i[k], i[(k + 1) % 3]));
                edgeKeys.push_back((uint64_t(lo) << 32) | hi);
            }
        }
    }
    std::sort(edgeKeys.begin(), edgeKeys.end());
    edgeKeys.erase(std::unique(edgeKeys.begin(), edgeKeys.end()), edgeKeys.end());
    for (uint64_t key : edgeKeys) {
        geometry->edges.push_back(unsigned(key >> 32));
        geometry->edges.push_back(unsigned(key & 0xFFFFFFFFu));
    }
    geometry->mesh = new kx::kxTriMesh(vb, ib);
    const float orientation = signedVolume(*geometry->mesh, geometry->positions) < 0.0 ? -1.0f : 1.0f;
    geometry->normals.resize(noTriangles);
    for (int t = 0; t < noTriangles; ++t) {
        int i0 = 0, i1 = 0, i2 = 0;
        geometry->mesh->GetTriangle(t, i0, i1, i2);
        const std::vector<Vec3f>& p = geometry->positions;
        Vec3f n = (p[i1] - p[i0]).Cross(p[i2] - p[i0]);
        const float length = n.Length();
        geometry->normals[t] = length > 0.0f ? n * (orientation / length) : Vec3f(0.0f, 0.0f, 0.0f);
    }
    geometry->tree.buildFromMesh(kx::kxQBVH::QBVH_ROBUST, *geometry->mesh, 12);
    return geometry;
}

// Nearest hit of origin + s·dir on `target` with s >= tMin; false if none.
bool nearestHit(const PlanVerifier::tGroupGeometry& target, const Vec3f& origin, const Vec3f& dir, float tMin,
                float& t, unsigned& triangle)
{
    Wm4::Vector2<float> barycentric;
    return target.tree.intersectRay(origin, dir, tMin, t, barycentric, triangle, kx::kxQBVH::RAY_NEAREST_HIT);
}

// Distance from `p`, taken to lie inside `target`, to its surface across
// `dir`: the nearest hit of four rays square to it. A point that only skims
// the boundary (a shaft's vertex sliding along the bore it fits in) is 0
// deep however long its path.
double lateralDepth(const PlanVerifier::tGroupGeometry& target, const Vec3f& p, const Vec3f& dir)
{
    const Vec3f helper = std::fabs(dir[0]) < 0.6f ? Vec3f(1, 0, 0) : Vec3f(0, 1, 0);
    Vec3f u = dir.Cross(helper);
    u.Normalize();
    const Vec3f w = dir.Cross(u);
    double depth = kNoHit;
    for (const Vec3f& across : {u, -u, w, -w}) {
        float t = 0.0f;
        unsigned triangle = 0;
        if (nearestHit(target, p, across, 0.0f, t, triangle))
            depth = std::min(depth, double(t));
    }
    return depth;
}

// Walks the path origin + s·dir, s in [0, limit], through `target`: for every
// stretch where it enters through a face (not merely grazing it, not starting
// inside) it calls visit(entry travel, depth) and stops when visit returns
// true. The depth of a stretch is how deep it reaches: along the path, the
// length inside times the smaller slant of its entry and exit faces (a plate
// crossed square on counts its whole thickness); across the path, how far its
// middle lies from the surface (computed only when the first exceeds
// `threshold`).
template <class Visit>
void forEachEntry(const PlanVerifier::tGroupGeometry& target, const Vec3f& origin, const Vec3f& dir, double limit,
                  double threshold, float step, float grazing, Visit&& visit)
{
    float tMin = 0.0f;
    for (int crossing = 0; crossing < kMaxCrossingsPerRay; ++crossing) {
        float t = 0.0f;
        unsigned triangle = 0;
        if (!nearestHit(target, origin, dir, tMin, t, triangle) || t > limit)
            return;
        const float cosIn = dir.Dot(target.normals[triangle]);
        tMin = t + step;
        if (cosIn > -grazing)
            continue;  // leaving the solid, or sliding along it
        float tOut = 0.0f;
        unsigned exitTriangle = 0;
        const bool exits = nearestHit(target, origin, dir, tMin, tOut, exitTriangle) && tOut <= limit;
        const double inside = (exits ? double(tOut) : limit) - t;
        const double cosOut = exits ? std::fabs(dir.Dot(target.normals[exitTriangle])) : -cosIn;
        double depth = inside * std::min(double(-cosIn), cosOut);
        if (depth > threshold)
            depth = std::min(depth, lateralDepth(target, origin + dir * float(t + 0.5 * inside), dir));
        if (visit(double(t), depth) || !exits)
            return;
        tMin = tOut + step;
    }
}

// First travel at which the point origin + s·dir enters `target` deeper than
// `threshold`; kNoHit when it never does within `limit`.
double firstDeepEntry(const PlanVerifier::tGroupGeometry& target, const Vec3f& origin, const Vec3f& dir,
                      double limit, double threshold, float step, float grazing)
{
    double first = kNoHit;
    forEachEntry(target, origin, dir, limit, threshold, step, grazing, [&](double t, double depth) {
        if (depth <= threshold)
            return false;
        first = t;
        return true;
    });
    return first;
}

double cross2(const double u[2], const double v[2]) { return u[0] * v[1] - u[1] * v[0]; }

// Distance of point p from the line through a with unit direction e.
double lineDistance(const double a[2], const double e[2], const double p[2])
{
    const double v[2] = {p[0] - a[0], p[1] - a[1]};
    return std::fabs(cross2(e, v));
}

}  // namespace

namespace {

// What one sweep needs: both sides, the unit direction and its cross basis.
struct SweepFrame {
    Vec3d d, u, w;
    Vec3f df;
};

SweepFrame sweepFrame(const Vec3d& direction)
{
    SweepFrame f;
    f.d = direction;
    f.d.Normalize();
    const Vec3d helper = std::fabs(f.d[0]) < 0.6 ? Vec3d(1, 0, 0) : Vec3d(0, 1, 0);
    f.u = f.d.Cross(helper);
    f.u.Normalize();
    f.w = f.d.Cross(f.u);
    f.df = toFloat(f.d);
    return f;
}

// Earliest travel at which an edge of `moving` (translated along d) crosses
// an edge of `staying` with both reaching more than `threshold` past the
// other, within (threshold, limit]; kNoHit when none. Edges that meet within
// the threshold of the start pose are touching there already: whether the
// motion drives the parts into each other at such a contact is what the
// vertex rays see, while counting the crossing would fail every pair of
// faces in contact.
double firstEdgeCrossing(const PlanVerifier::tGroupGeometry& moving, const PlanVerifier::tGroupGeometry& staying,
                         const SweepFrame& f, double limit, double threshold, std::vector<Segment>& segments,
                         std::vector<unsigned>& cellStart, std::vector<unsigned>& cellEntries)
{
    // The 2D window both sides can meet in: the overlap of their shadows.
    double window[2][2];
    const PlanVerifier::tGroupGeometry* sides[2] = {&moving, &staying};
    double shadow[2][2][2];
    for (int s = 0; s < 2; ++s) {
        sides[s]->box.project(f.u, shadow[s][0][0], shadow[s][0][1]);
        sides[s]->box.project(f.w, shadow[s][1][0], shadow[s][1][1]);
    }
    for (int a = 0; a < 2; ++a) {
        window[a][0] = std::max(shadow[0][a][0], shadow[1][a][0]) - threshold;
        window[a][1] = std::min(shadow[0][a][1], shadow[1][a][1]) + threshold;
        if (window[a][0] > window[a][1])
            return kNoHit;
    }
    segments.clear();
    for (int s = 0; s < 2; ++s) {
        const std::vector<Vec3f>& p = sides[s]->positions;
        const std::vector<unsigned>& edges = sides[s]->edges;
        for (unsigned e = 0; e + 1 < edges.size(); e += 2) {
            const Vec3d a = toDouble(p[edges[e]]), b = toDouble(p[edges[e + 1]]);
            Segment seg{{a.Dot(f.u), a.Dot(f.w)}, {b.Dot(f.u), b.Dot(f.w)}, 0.0, {}, {}, std::min(a.Dot(f.d), b.Dot(f.d)),
                        std::max(a.Dot(f.d), b.Dot(f.d)), e, (unsigned char)(s == 0)};
            seg.length = std::sqrt((seg.b[0] - seg.a[0]) * (seg.b[0] - seg.a[0]) +
                                   (seg.b[1] - seg.a[1]) * (seg.b[1] - seg.a[1]));
            bool outside = seg.length <= threshold;  // square to the plane: seen by the vertex rays
            for (int k = 0; k < 2; ++k) {
                seg.lo[k] = std::min(seg.a[k], seg.b[k]);
                seg.hi[k] = std::max(seg.a[k], seg.b[k]);
                outside = outside || seg.hi[k] < window[k][0] || seg.lo[k] > window[k][1];
            }
            if (!outside)
                segments.push_back(seg);
        }
    }
    if (segments.empty())
        return kNoHit;
    const unsigned n = std::clamp(unsigned(std::sqrt(double(segments.size()))), 1u, kMaxGridCells);
    const double size[2] = {std::max(window[0][1] - window[0][0], 1e-30), std::max(window[1][1] - window[1][0], 1e-30)};
    auto cellRange = [&](const Segment& seg, int k, unsigned& lo, unsigned& hi) {
        const double a = (seg.lo[k] - window[k][0]) / size[k] * n;
        const double b = (seg.hi[k] - window[k][0]) / size[k] * n;
        lo = unsigned(std::clamp(a, 0.0, double(n - 1)));
        hi = unsigned(std::clamp(b, 0.0, double(n - 1)));
    };
    auto forEachCell = [&](const Segment& seg, auto&& visit) {
        unsigned x0, x1, y0, y1;
        cellRange(seg, 0, x0, x1);
        cellRange(seg, 1, y0, y1);
        for (unsigned y = y0; y <= y1; ++y)
            for (unsigned x = x0; x <= x1; ++x)
                visit(y * n + x);
    };
    cellStart.assign(n * n + 1, 0);
    for (const Segment& seg : segments)
        forEachCell(seg, [&](unsigned c) { ++cellStart[c + 1]; });
    for (unsigned c = 0; c < n * n; ++c)
        cellStart[c + 1] += cellStart[c];
    cellEntries.resize(cellStart[n * n]);
    std::vector<unsigned>& fill = cellStart;  // advanced per entry, then restored below
    for (unsigned i = 0; i < segments.size(); ++i)
        forEachCell(segments[i], [&](unsigned c) { cellEntries[fill[c]++] = i; });
    for (unsigned c = n * n; c > 0; --c)
        cellStart[c] = cellStart[c - 1];
    cellStart[0] = 0;

    double best = std::min(limit, kNoHit);
    bool found = false;
    for (unsigned c = 0; c < n * n; ++c) {
        // A cell lists its moving segments first (they were pushed first).
        unsigned firstStaying = cellStart[c];
        while (firstStaying < cellStart[c + 1] && segments[cellEntries[firstStaying]].moving)
            ++firstStaying;
        for (unsigned i = cellStart[c]; i < firstStaying; ++i) {
            const Segment& sm = segments[cellEntries[i]];
            for (unsigned j = firstStaying; j < cellStart[c + 1]; ++j) {
                const Segment& ss = segments[cellEntries[j]];
                if (ss.dHi - sm.dLo <= threshold || ss.dLo - sm.dHi > best || sm.lo[0] > ss.hi[0] ||
                    ss.lo[0] > sm.hi[0] || sm.lo[1] > ss.hi[1] || ss.lo[1] > sm.hi[1])
                    continue;
                const double r[2] = {sm.b[0] - sm.a[0], sm.b[1] - sm.a[1]};
                const double s[2] = {ss.b[0] - ss.a[0], ss.b[1] - ss.a[1]};
                const double denom = cross2(r, s);
                if (std::fabs(denom) <= 1e-9 * sm.length * ss.length)
                    continue;
                const double qp[2] = {ss.a[0] - sm.a[0], ss.a[1] - sm.a[1]};
                const double alpha = cross2(qp, s) / denom, beta = cross2(qp, r) / denom;
                if (alpha < 0.0 || alpha > 1.0 || beta < 0.0 || beta > 1.0)
                    continue;
                const Vec3d m0 = toDouble(moving.positions[moving.edges[sm.edge]]);
                const Vec3d m1 = toDouble(moving.positions[moving.edges[sm.edge + 1]]);
                const Vec3d s0 = toDouble(staying.positions[staying.edges[ss.edge]]);
                const Vec3d s1 = toDouble(staying.positions[staying.edges[ss.edge + 1]]);
                const double travel = (s0 + (s1 - s0) * beta - m0 - (m1 - m0) * alpha).Dot(f.d);
                if (travel <= threshold || travel > best || (found && travel == best))
                    continue;
                const double er[2] = {r[0] / sm.length, r[1] / sm.length};
                const double es[2] = {s[0] / ss.length, s[1] / ss.length};
                const double reach = std::min({lineDistance(sm.a, er, ss.a), lineDistance(sm.a, er, ss.b),
                                               lineDistance(ss.a, es, sm.a), lineDistance(ss.a, es, sm.b)});
                if (reach <= threshold)
                    continue;
                best = travel;
                found = true;
            }
        }
    }
    return found ? best : kNoHit;
}

}  // namespace

namespace {

// Per-thread scratch of the edge-crossing search, sized by use and reused.
struct SweepScratch {
    std::vector<Segment> segments;
    std::vector<unsigned> cellStart;
    std::vector<unsigned> cellEntries;
};

// Earliest travel at which a vertex of `from` (moving along dir) enters
// `into` deeper than the threshold, rays pruned beyond `limit`; with
// `anyEntry`, the travel of the first vertex found to enter, not the earliest.
double firstVertexEntry(const PlanVerifier::tGroupGeometry& from, const PlanVerifier::tGroupGeometry& into,
                        const Vec3f& dir, double limit, double threshold, float step, float grazing, bool anyEntry)
{
    const Box reach = [&] {
        Box b = into.box;
        b.add(into.box.shifted(toDouble(dir) * -limit));
        return b;
    }();
    double best = kNoHit;
    for (const Vec3f& p : from.positions) {
        if (!reach.contains(toDouble(p), threshold))
            continue;
        best = std::min(best, firstDeepEntry(into, p, dir, std::min(limit, best), threshold, step, grazing));
        if (anyEntry && best != kNoHit)
            break;
    }
    return best;
}

}  // namespace

PlanVerifier::PlanVerifier(const kxMeshGroups& groups, double tolerance, double slidingAngle, unsigned nThreads)
    : mTolerance(tolerance),
      mSlidingCosine(std::max(kMinSlidingCosine, std::sin(slidingAngle * M_PI / 180.0))),
      mNoThreads(std::max(1u, nThreads))
{
    mGeometry.resize(groups.getNoGroups());
    runJobs(groups.getNoGroups(), mNoThreads, [&](unsigned g, unsigned) {
        std::vector<const kx::kxTriMesh*> meshes;
        for (unsigned k = 0; k < groups.getGroupSize(g); ++k)
            meshes.push_back(groups.getMeshFromGroup(g, k));
        mGeometry[g] = worldGeometry(meshes);
    });
    double largestSide = 0.0;
    for (const auto& geometry : mGeometry)
        for (int a = 0; a < 3; ++a)
            largestSide = std::max(largestSide, geometry->box.hi[a] - geometry->box.lo[a]);
    if (mTolerance <= 0.0)
        mTolerance = kDefaultToleranceShare * largestSide;
    findInterferences();
}

PlanVerifier::~PlanVerifier() = default;

unsigned PlanVerifier::noGroups() const { return unsigned(mGeometry.size()); }

namespace {

// The depth of the first stretch of an edge of `from` (moved by `offset`)
// inside `into` deeper than `threshold`, or 0: two solids can cross with no
// vertex inside the other (a bar through a wall).
double deepestEdge(const PlanVerifier::tGroupGeometry& from, const PlanVerifier::tGroupGeometry& into,
                   const Vec3d& offset, double threshold)
{
    const float step = float(1e-3 * threshold);
    for (size_t e = 0; e + 1 < from.edges.size(); e += 2) {
        const Vec3d a = toDouble(from.positions[from.edges[e]]) + offset;
        const Vec3d b = toDouble(from.positions[from.edges[e + 1]]) + offset;
        Box span;
        span.add(a);
        span.add(b);
        const double length = (b - a).Length();
        if (length <= threshold || !span.overlaps(into.box, 0.0))
            continue;
        double found = 0.0;
        forEachEntry(into, toFloat(a), toFloat((b - a) / length), length, threshold, step, float(kMinSlidingCosine),
                     [&](double, double depth) {
                         found = depth > threshold ? depth : 0.0;
                         return found > 0.0;
                     });
        if (found > 0.0)
            return found;
    }
    return 0.0;
}

}  // namespace

// Depth of the deepest vertex of either group inside the other, group a
// translated by `shift` relative to b; 0 when no vertex is inside. A vertex is
// inside when the first faces it meets along two opposite skew rays are both
// seen from behind; its depth is the nearest boundary along the six axes.
double PlanVerifier::overlapDepth(unsigned a, unsigned b, const Vec3d& shift) const
{
    static const Vec3f probe = [] {
        Vec3f v(0.5773f, 0.5774f, 0.5775f);
        v.Normalize();
        return v;
    }();
    static const Vec3f axes[6] = {Vec3f(1, 0, 0), Vec3f(-1, 0, 0), Vec3f(0, 1, 0),
                                  Vec3f(0, -1, 0), Vec3f(0, 0, 1), Vec3f(0, 0, -1)};
    double deepest = 0.0;
    const tGroupGeometry* pair[2] = {mGeometry[a].get(), mGeometry[b].get()};
    for (int side = 0; side < 2; ++side) {
        const tGroupGeometry& from = *pair[side];
        const tGroupGeometry& into = *pair[1 - side];
        const Vec3d offset = side == 0 ? shift : -shift;
        for (const Vec3f& vertex : from.positions) {
            const Vec3d p = toDouble(vertex) + offset;
            if (!into.box.contains(p, 0.0))
                continue;
            const Vec3f origin = toFloat(p);
            bool inside = true;
            for (float sense : {1.0f, -1.0f}) {
                float t = 0.0f;
                unsigned triangle = 0;
                inside = inside && nearestHit(into, origin, probe * sense, 0.0f, t, triangle) &&
                         (probe * sense).Dot(into.normals[triangle]) > 0.0f;
            }
            if (!inside)
                continue;
            double depth = kNoHit;
            for (const Vec3f& axis : axes) {
                float t = 0.0f;
                unsigned triangle = 0;
                if (nearestHit(into, origin, axis, 0.0f, t, triangle))
                    depth = std::min(depth, double(t));
            }
            if (depth != kNoHit)
                deepest = std::max(deepest, depth);
        }
        deepest = std::max(deepest, deepestEdge(from, into, offset, mTolerance));
    }
    return deepest;
}

namespace {

Vec3d centroidOf(const std::vector<Vec3f>& positions)
{
    Vec3d sum(0, 0, 0);
    for (const Vec3f& p : positions)
        sum += toDouble(p);
    return positions.empty() ? sum : sum / double(positions.size());
}

// Same vertex and triangle counts, bounds and vertex centroid within the
// tolerance: two copies of one part in one place.
bool coincide(const PlanVerifier::tGroupGeometry& a, const PlanVerifier::tGroupGeometry& b, double tolerance)
{
    return !a.positions.empty() && a.positions.size() == b.positions.size() && a.normals.size() == b.normals.size() &&
           (a.box.lo - b.box.lo).Length() <= tolerance && (a.box.hi - b.box.hi).Length() <= tolerance &&
           (centroidOf(a.positions) - centroidOf(b.positions)).Length() <= tolerance;
}

double smallestSide(const Box& box)
{
    return std::min({box.hi[0] - box.lo[0], box.hi[1] - box.lo[1], box.hi[2] - box.lo[2]});
}

}  // namespace

// Duplicates overlap wholly, which no vertex or edge sees (each lies on the
// other's surface): their overlap is the smaller side of their bounds.
void PlanVerifier::findInterferences()
{
    std::vector<std::pair<unsigned, unsigned>> pairs;
    for (unsigned a = 0; a < mGeometry.size(); ++a)
        for (unsigned b = a + 1; b < mGeometry.size(); ++b)
            if (mGeometry[a]->box.overlaps(mGeometry[b]->box, -mTolerance))
                pairs.emplace_back(a, b);
    // Per pair: -1 for a duplicate, else its overlap depth.
    std::vector<double> depths(pairs.size());
    runJobs(unsigned(pairs.size()), mNoThreads, [&](unsigned j, unsigned) {
        const auto [a, b] = pairs[j];
        depths[j] = coincide(*mGeometry[a], *mGeometry[b], mTolerance) ? -1.0 : overlapDepth(a, b, Vec3d(0, 0, 0));
    });
    for (size_t j = 0; j < pairs.size(); ++j) {
        const auto [a, b] = pairs[j];
        if (depths[j] < 0.0) {
            mDuplicates.emplace_back(a, b);
            mInterferences.push_back({a, b, smallestSide(mGeometry[a]->box)});
        } else if (depths[j] > mTolerance) {
            mInterferences.push_back({a, b, depths[j]});
        }
    }
}

double PlanVerifier::initialOverlap(unsigned a, unsigned b) const
{
    const Interference key{std::min(a, b), std::max(a, b), 0.0};
    auto it = std::lower_bound(mInterferences.begin(), mInterferences.end(), key, [](const auto& x, const auto& y) {
        return x.groupA != y.groupA ? x.groupA < y.groupA : x.groupB < y.groupB;
    });
    return it != mInterferences.end() && it->groupA == key.groupA && it->groupB == key.groupB ? it->depth : 0.0;
}

namespace {

struct SweepContext {
    const std::vector<std::unique_ptr<PlanVerifier::tGroupGeometry>>& geometry;
    const PlanVerifier& verifier;
};

// Sweeps one side away from the other pair by pair: every colliding pair is
// listed with its first collision, and the earliest collision wins (ties: the
// first pair in (moving, staying) order). With `anyCollision`, the sweep
// stops at the first collision it finds, not necessarily the earliest.
SweepOutcome sweepSides(const SweepContext& context, const std::vector<unsigned>& moving,
                        const std::vector<unsigned>& staying, const Vec3d& direction, SweepScratch& scratch,
                        bool anyCollision = false)
{
    const SweepFrame f = sweepFrame(direction);
    const double tolerance = context.verifier.tolerance();
    const float step = float(1e-3 * tolerance);
    const float grazing = float(context.verifier.slidingCosine());
    SweepOutcome outcome;
    double best = kNoHit;
    for (unsigned m : moving) {
        const PlanVerifier::tGroupGeometry& gm = *context.geometry[m];
        double mLo = 0.0, mHi = 0.0;
        gm.box.project(f.d, mLo, mHi);
        for (unsigned s : staying) {
            const PlanVerifier::tGroupGeometry& gs = *context.geometry[s];
            double sLo = 0.0, sHi = 0.0;
            gs.box.project(f.d, sLo, sHi);
            const double limit = sHi - mLo + tolerance;
            if (limit <= 0.0)
                continue;
            Box swept = gm.box;
            swept.add(gm.box.shifted(f.d * limit));
            if (!swept.overlaps(gs.box, tolerance))
                continue;
            const double threshold = tolerance + context.verifier.initialOverlap(m, s);
            double travel = firstVertexEntry(gm, gs, f.df, limit, threshold, step, grazing, anyCollision);
            if (!anyCollision || travel == kNoHit)
                travel = std::min(travel, firstVertexEntry(gs, gm, -f.df, limit, threshold, step, grazing, anyCollision));
            if (!anyCollision || travel == kNoHit)
                travel = std::min(travel, firstEdgeCrossing(gm, gs, f, limit, threshold, scratch.segments,
                                                            scratch.cellStart, scratch.cellEntries));
            if (travel == kNoHit)
                continue;
            outcome.blockers.push_back({m, s, travel});
            if (travel < best) {
                best = travel;
                outcome.clear = false;
                outcome.movingGroup = m;
                outcome.stayingGroup = s;
                outcome.travel = travel;
            }
            if (anyCollision)
                return outcome;
        }
    }
    return outcome;
}

}  // namespace

SweepOutcome PlanVerifier::sweep(const std::vector<unsigned>& moving, const std::vector<unsigned>& staying,
                                 const Vec3d& direction) const
{
    SweepScratch scratch;
    return sweepSides(SweepContext{mGeometry, *this}, moving, staying, direction, scratch);
}

std::vector<SweepOutcome> PlanVerifier::sweepAlong(const std::vector<unsigned>& moving,
                                                   const std::vector<unsigned>& staying,
                                                   const std::vector<Wm4::Vector3<double>>& directions,
                                                   bool anyCollision) const
{
    std::vector<SweepOutcome> outcomes(directions.size());
    const SweepContext context{mGeometry, *this};
    std::vector<SweepScratch> scratch(mNoThreads);
    runJobs(unsigned(directions.size()), mNoThreads, [&](unsigned j, unsigned thread) {
        outcomes[j] = sweepSides(context, moving, staying, directions[j], scratch[thread], anyCollision);
    });
    return outcomes;
}

std::vector<SplitVerdict> PlanVerifier::verifyHierarchy(const kxDisassemblyHierarchy& hierarchy,
                                                        const std::vector<Wm4::Vector3<double>>& directions) const
{
    std::vector<unsigned> splits;
    for (unsigned id = 0; id < hierarchy.getNoNodes(); ++id) {
        const kxDisassemblyHierarchy::tTreeNode& node = hierarchy.getNode(id);
        if (node.noGroups != kxDisassemblyHierarchy::kNoNode && node.firstChild != kxDisassemblyHierarchy::kNoNode)
            splits.push_back(id);
    }
    return verifySplits(hierarchy, directions, splits);
}

std::vector<SplitVerdict> PlanVerifier::verifySplits(const kxDisassemblyHierarchy& hierarchy,
                                                     const std::vector<Wm4::Vector3<double>>& directions,
                                                     const std::vector<unsigned>& nodes) const
{
    std::vector<SplitVerdict> verdicts;
    for (unsigned id : nodes)
        verdicts.push_back(SplitVerdict{id, hierarchy.getNode(id).splitId, {}});
    const SweepContext context{mGeometry, *this};
    std::vector<SweepScratch> scratch(mNoThreads);
    runJobs(unsigned(verdicts.size()), mNoThreads, [&](unsigned j, unsigned thread) {
        const kxDisassemblyHierarchy::tTreeNode& node = hierarchy.getNode(verdicts[j].node);
        verdicts[j].sweep = sweepSides(context, groupsOfNode(hierarchy, node.secondChild),
                                       groupsOfNode(hierarchy, node.firstChild), directions[node.splitId],
                                       scratch[thread]);
    });
    return verdicts;
}

std::vector<Interference> PlanVerifier::overlapsAtOffsets(const std::vector<Wm4::Vector3<float>>& offsets) const
{
    std::vector<Interference> overlaps;
    for (unsigned a = 0; a < mGeometry.size(); ++a)
        for (unsigned b = a + 1; b < mGeometry.size(); ++b) {
            const Vec3d shift = toDouble(offsets[a]) - toDouble(offsets[b]);
            if (!mGeometry[a]->box.shifted(shift).overlaps(mGeometry[b]->box, -mTolerance))
                continue;
            const double depth = overlapDepth(a, b, shift);
            if (depth > initialOverlap(a, b) + mTolerance)
                overlaps.push_back({a, b, depth});
        }
    return overlaps;
}

}  // namespace velmora
