#include "kxQBVH.h"

#include <embree3/rtcore.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace kx {

namespace {

// One device for the whole process. Builds run on the calling thread only
// ("threads=1"), so a build neither competes with the library's own workers
// nor depends on how many threads the machine has.
RTCDevice embreeDevice()
{
    static const RTCDevice device = [] {
        RTCDevice created = rtcNewDevice("threads=1,set_affinity=0,verbose=0");
        if (!created)
            throw std::runtime_error("kxQBVH: the ray-tracing device could not be created");
        return created;
    }();
    return device;
}

[[noreturn]] void throwDeviceError(RTCError error, const char* what)
{
    if (error == RTC_ERROR_OUT_OF_MEMORY)
        throw std::bad_alloc();
    throw std::runtime_error(std::string("kxQBVH: ") + what + " failed with ray-tracing error " +
                             std::to_string(static_cast<int>(error)));
}

struct Vec3d {
    double x, y, z;
};
Vec3d toDouble(const Wm4::Vector3<float>& v) { return {v[0], v[1], v[2]}; }
Vec3d sub(const Vec3d& a, const Vec3d& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3d negated(const Vec3d& a) { return {-a.x, -a.y, -a.z}; }
double dot(const Vec3d& a, const Vec3d& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec3d cross(const Vec3d& a, const Vec3d& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double maxAbs(const Vec3d& a) { return std::max({std::abs(a.x), std::abs(a.y), std::abs(a.z)}); }

// A ray hit recomputed in double precision from the triangle's corners:
// origin + s·direction = (1 − b1 − b2)·p0 + b1·p1 + b2·p2.
struct RefinedHit {
    double s = std::numeric_limits<double>::quiet_NaN();  // NaN when the ray is parallel to the plane
    double b1 = 0.0;
    double b2 = 0.0;
};

struct QueryContext;

}  // namespace

// The kernel's scene over a private copy of one mesh's triangles. The kernel
// finds the candidate triangles (watertight with QBVH_ROBUST); every reported
// distance and barycentric pair is then recomputed in double precision from
// the corners, so results do not carry the kernel's single-precision rounding
// and a ray starting exactly on a triangle reports distance 0.
class kxQBVHScene {
public:
    kxQBVHScene(tQBVHDataFlags flags, const kxTriMesh& mesh)
    {
        const kxVertexBuffer* vertices = mesh.GetVertexBuffer();
        const kxIndexBuffer* indexBuffer = mesh.GetIndexBuffer();
        const unsigned noTriangles = static_cast<unsigned>(mesh.GetTriangleQuantity());
        const unsigned noVertices = vertices ? static_cast<unsigned>(vertices->GetVertexQuantity()) : 0;
        if (noTriangles > 0 && noVertices > 0) {
            mIndices.assign(indexBuffer->GetData(), indexBuffer->GetData() + 3 * noTriangles);
            mPositions.assign(vertices->GetPositions().begin(), vertices->GetPositions().end());
        }
        for (const Wm4::Vector3<float>& p : mPositions) {
            for (int k = 0; k < 3; ++k) {
                if (std::isfinite(p[k]))
                    mMagnitude = std::max(mMagnitude, std::abs(p[k]));
            }
        }
        // The kernel reads vertices with 16-byte loads: one element of padding.
        mPositions.emplace_back();

        RTCDevice device = embreeDevice();
        mScene = rtcNewScene(device);
        int sceneFlags = RTC_SCENE_FLAG_CONTEXT_FILTER_FUNCTION;
        if (flags & kxQBVH::QBVH_COMPACT)
            sceneFlags |= RTC_SCENE_FLAG_COMPACT;
        if (flags & kxQBVH::QBVH_ROBUST)
            sceneFlags |= RTC_SCENE_FLAG_ROBUST;
        rtcSetSceneFlags(mScene, static_cast<RTCSceneFlags>(sceneFlags));
        if (!mIndices.empty()) {
            RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
            rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, mPositions.data(), 0,
                                       sizeof(Wm4::Vector3<float>), noVertices);
            rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, mIndices.data(), 0,
                                       3 * sizeof(unsigned), noTriangles);
            rtcCommitGeometry(geometry);
            rtcAttachGeometry(mScene, geometry);
            rtcReleaseGeometry(geometry);
        }
        rtcCommitScene(mScene);
        const RTCError error = rtcGetDeviceError(device);
        if (error != RTC_ERROR_NONE) {
            rtcReleaseScene(mScene);
            throwDeviceError(error, "building the ray tree");
        }
    }

    ~kxQBVHScene() { rtcReleaseScene(mScene); }
    kxQBVHScene(const kxQBVHScene&) = delete;
    kxQBVHScene& operator=(const kxQBVHScene&) = delete;

    // The nearest hit of origin + s·direction with sMin <= s <= sMax.
    bool nearest(const Vec3d& origin, const Vec3d& direction, double sMin, double sMax, RefinedHit& hit,
                 unsigned& triangle) const;
    // Whether any triangle is hit with sMin <= s <= sMax.
    bool any(const Vec3d& origin, const Vec3d& direction, double sMin, double sMax) const;

    RefinedHit refine(unsigned t, const Vec3d& origin, const Vec3d& direction) const
    {
        const Vec3d p0 = toDouble(mPositions[mIndices[3 * t]]);
        const Vec3d e1 = sub(toDouble(mPositions[mIndices[3 * t + 1]]), p0);
        const Vec3d e2 = sub(toDouble(mPositions[mIndices[3 * t + 2]]), p0);
        const Vec3d pvec = cross(direction, e2);
        const double det = dot(e1, pvec);
        RefinedHit hit;
        if (det == 0.0)
            return hit;
        const Vec3d tvec = sub(origin, p0);
        const Vec3d qvec = cross(tvec, e1);
        hit.s = dot(e2, qvec) / det;
        hit.b1 = dot(tvec, pvec) / det;
        hit.b2 = dot(direction, qvec) / det;
        return hit;
    }

private:
    // Sets up the kernel's ray so that it covers [sMin, sMax] with a margin
    // on both ends larger than the kernel's rounding; the filter then keeps
    // exactly the candidates whose recomputed parameter lies in range.
    void prepare(QueryContext& context, RTCRay& ray, const Vec3d& origin, const Vec3d& direction, double sMin,
                 double sMax, bool nearestHit) const;

    RTCScene mScene = nullptr;
    std::vector<Wm4::Vector3<float>> mPositions;
    std::vector<unsigned> mIndices;
    float mMagnitude = 0.0f;  // largest finite absolute coordinate
};

namespace {

// The kernel's context comes first so that the filter can reach the rest.
struct QueryContext {
    RTCIntersectContext embree;
    const kxQBVHScene* scene;
    Vec3d origin;
    Vec3d direction;
    double sMin;
    double sMax;
    double start;  // the kernel's ray parameter t is s − start
    double slack;  // bound of the kernel's rounding of t
    // During nearest-hit queries the kernel hands the filter the candidate's
    // distance in the ray's tfar.
    bool candidateDistanceInRay;
};

void keepHitsInRange(const RTCFilterFunctionNArguments* args)
{
    const QueryContext* context = reinterpret_cast<const QueryContext*>(args->context);
    for (unsigned i = 0; i < args->N; ++i) {
        if (args->valid[i] == 0)
            continue;
        if (context->candidateDistanceInRay) {
            // Clearly inside the range by the kernel's own distance: keep it
            // without touching the corner data.
            const double s = double(RTCRayN_tfar(args->ray, args->N, i)) + context->start;
            if (s >= context->sMin + context->slack && s <= context->sMax - context->slack)
                continue;
        }
        const unsigned triangle = RTCHitN_primID(args->hit, args->N, i);
        const double s = context->scene->refine(triangle, context->origin, context->direction).s;
        if (!(s >= context->sMin && s <= context->sMax))
            args->valid[i] = 0;
    }
}

}  // namespace

void kxQBVHScene::prepare(QueryContext& context, RTCRay& ray, const Vec3d& origin, const Vec3d& direction,
                          double sMin, double sMax, bool nearestHit) const
{
    rtcInitIntersectContext(&context.embree);
    context.embree.filter = keepHitsInRange;
    context.scene = this;
    context.origin = origin;
    context.direction = direction;
    context.sMin = sMin;
    context.sMax = sMax;

    const double length = std::sqrt(dot(direction, direction));
    const double scale = std::max(double(mMagnitude), maxAbs(origin)) + std::abs(sMin) * length;
    const double slack = 64.0 * FLT_EPSILON * std::max(scale, 1e-30) / length;
    const double start = sMin - slack;
    context.start = start;
    context.slack = slack;
    context.candidateDistanceInRay = nearestHit;
    ray.org_x = float(origin.x + start * direction.x);
    ray.org_y = float(origin.y + start * direction.y);
    ray.org_z = float(origin.z + start * direction.z);
    ray.dir_x = float(direction.x);
    ray.dir_y = float(direction.y);
    ray.dir_z = float(direction.z);
    ray.tnear = 0.0f;
    ray.tfar = std::isinf(sMax) ? std::numeric_limits<float>::infinity() : float(sMax - start + slack);
    ray.time = 0.0f;
    ray.mask = 0xFFFFFFFFu;
    ray.id = 0;
    ray.flags = 0;
}

bool kxQBVHScene::nearest(const Vec3d& origin, const Vec3d& direction, double sMin, double sMax, RefinedHit& hit,
                          unsigned& triangle) const
{
    QueryContext context;
    RTCRayHit rayHit;
    prepare(context, rayHit.ray, origin, direction, sMin, sMax, true);
    rayHit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rayHit.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(mScene, &context.embree, &rayHit);
    if (rayHit.hit.geomID == RTC_INVALID_GEOMETRY_ID)
        return false;
    triangle = rayHit.hit.primID;
    hit = refine(triangle, origin, direction);
    return true;
}

bool kxQBVHScene::any(const Vec3d& origin, const Vec3d& direction, double sMin, double sMax) const
{
    QueryContext context;
    RTCRay ray;
    prepare(context, ray, origin, direction, sMin, sMax, false);
    rtcOccluded1(mScene, &context.embree, &ray);
    // The kernel marks an occluded ray by setting tfar to -inf.
    return ray.tfar < 0.0f;
}

kxQBVH::kxQBVH() = default;
kxQBVH::~kxQBVH() = default;

void kxQBVH::buildFromBVH(tQBVHDataFlags flags, const kxGenericBVH& /*bvh*/, const kxTriMesh& mesh)
{
    buildFromMesh(flags, mesh, 0);
}

void kxQBVH::buildFromMesh(tQBVHDataFlags flags, const kxTriMesh& mesh, unsigned /*leafSize*/)
{
    mScene.reset();
    mNoTriangles = 0;
    mScene = std::make_unique<kxQBVHScene>(flags, mesh);
    mNoTriangles = static_cast<unsigned>(mesh.GetTriangleQuantity());
}

namespace {

void reportHit(const RefinedHit& hit, float& t, Wm4::Vector2<float>& barycentric)
{
    t = float(hit.s);
    // Corner weights (1 − b1 − b2, b1, b2) in the order u·p0 + v·p1 + (1 − u − v)·p2.
    barycentric = Wm4::Vector2<float>(float(1.0 - hit.b1 - hit.b2), float(hit.b1));
}

}  // namespace

bool kxQBVH::intersectRay(const Wm4::Vector3<float>& origin, const Wm4::Vector3<float>& direction, float tMin,
                          float& t, Wm4::Vector2<float>& barycentric, unsigned& triangle, tQBVHRayPolicy policy) const
{
    if (!mScene)
        return false;
    const double inf = std::numeric_limits<double>::infinity();
    if (policy == RAY_ANY_HIT)
        return mScene->any(toDouble(origin), toDouble(direction), tMin, inf);
    RefinedHit hit;
    if (!mScene->nearest(toDouble(origin), toDouble(direction), tMin, inf, hit, triangle))
        return false;
    reportHit(hit, t, barycentric);
    return true;
}

bool kxQBVH::intersectRaySymmetric(const Wm4::Vector3<float>& origin, const Wm4::Vector3<float>& direction,
                                   float maxDist, float& t, Wm4::Vector2<float>& barycentric,
                                   unsigned& triangle) const
{
    if (!mScene || !(maxDist >= 0.0f))
        return false;
    const Vec3d o = toDouble(origin);
    const Vec3d d = toDouble(direction);
    RefinedHit forward;
    RefinedHit backward;
    unsigned forwardTriangle = 0;
    unsigned backwardTriangle = 0;
    const bool forwardHit = mScene->nearest(o, d, 0.0, maxDist, forward, forwardTriangle);
    // The backward search need not go farther than the forward hit. A forward
    // hit at distance 0 (the origin lies on the surface, as contact samples
    // often do) leaves no backward hit that is strictly nearer: its search is
    // skipped.
    const double backwardLimit = forwardHit ? forward.s : double(maxDist);
    const bool backwardHit = !(forwardHit && backwardLimit <= 0.0) &&
                             mScene->nearest(o, negated(d), 0.0, backwardLimit, backward, backwardTriangle);
    if (backwardHit && (!forwardHit || backward.s < forward.s)) {
        reportHit(backward, t, barycentric);
        triangle = backwardTriangle;
        return true;
    }
    if (!forwardHit)
        return false;
    reportHit(forward, t, barycentric);
    triangle = forwardTriangle;
    return true;
}

}  // namespace kx
