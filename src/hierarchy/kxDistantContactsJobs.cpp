// Distant contacts: the ray-test jobs (one per group) and the grouping of
// their results into distant constraints of the builder.
#include <algorithm>
#include <cmath>
#include <tuple>

#include "kxDistantContacts.h"
#include "kxMiniThreadPool.h"
#include "kxSystem.h"

namespace {

// Slack of the reachability tests, as a share of the distance scale: they
// must never skip a ray that the tree would report as a hit.
constexpr float kReachSlack = 1e-4f;

// Whether origin + s * direction, s >= 0, meets the closed box.
bool rayMeetsBox(const Wm4::Vector3<float>& origin, const Wm4::Vector3<float>& direction, const kx::kxBBox& box)
{
    float enter = 0.0f;
    float leave = HUGE_VALF;
    for (int axis = 0; axis < 3; ++axis) {
        if (direction[axis] == 0.0f) {
            if (origin[axis] < box.min[axis] || origin[axis] > box.max[axis])
                return false;
            continue;
        }
        const float inverse = 1.0f / direction[axis];
        float t0 = (box.min[axis] - origin[axis]) * inverse;
        float t1 = (box.max[axis] - origin[axis]) * inverse;
        if (t0 > t1)
            std::swap(t0, t1);
        enter = std::max(enter, t0);
        leave = std::min(leave, t1);
        if (enter > leave)
            return false;
    }
    return true;
}

}  // namespace

struct kxDistantContacts::tIntersectionJobs {
    const kxDistantContacts* contacts;
    tThreadScratch* scratch; // one per thread
    kx::kxMutex* mutex;
    std::vector<tBlocking>* found; // shared, under the mutex
};

void kxIntersectionTester::operator()(unsigned jobIndex, unsigned threadIndex, void* jobsData) const
{
    auto& jobs = *static_cast<kxDistantContacts::tIntersectionJobs*>(jobsData);
    kxDistantContacts::tThreadScratch& scratch = jobs.scratch[threadIndex];
    jobs.contacts->testGroup(jobIndex, scratch);
    jobs.mutex->lock();
    jobs.found->insert(jobs.found->end(), scratch.found.begin(), scratch.found.end());
    jobs.mutex->unlock();
}

void kxDistantContacts::computeDistantContacts(unsigned nThreads, kx::kxProgressNotifierInterface* progress)
{
    computeBoundingPlanes();
    computeDistanceParameters();

    const unsigned noThreads = std::max(nThreads, 1u);
    std::vector<tThreadScratch> scratch(noThreads);
    for (tThreadScratch& s : scratch)
        s.codes.assign(mWorldMeshes.size(), kNotBlocked);
    kx::kxMutex mutex;
    std::vector<tBlocking> found;
    tIntersectionJobs jobs{this, scratch.data(), &mutex, &found};

    kxMiniThreadPool<kxIntersectionTester> pool(kxIntersectionTester(), noThreads, progress);
    pool.setJobsData(mMeshGroups.getNoGroups(), &jobs);
    pool.start();
    pushConstraints(found);
}

// The rays of one group: every direction of its list, in both senses, from
// every mesh of the group.
void kxDistantContacts::testGroup(unsigned group, tThreadScratch& scratch) const
{
    scratch.found.clear();
    for (const unsigned k : mBuilder.getPerGroupDirections(group)) {
        const Wm4::Vector3<double>& d = mDiagram.getDirectionFromId(k);
        const Wm4::Vector3<float> forward{float(d[0]), float(d[1]), float(d[2])};
        for (const tRay& ray : {tRay{k, forward}, tRay{k | kxDisassemblyHierarchyBuilder::kSignBit, -forward}}) {
            for (unsigned i = 0; i < mMeshGroups.getGroupSize(group); ++i)
                testMesh(group, mMeshGroups.getMeshIdFromGroup(group, i), ray, scratch);
            collectBlockings(group, ray.row, scratch);
        }
    }
}

void kxDistantContacts::testMesh(unsigned group, unsigned mesh, const tRay& ray, tThreadScratch& scratch) const
{
    const unsigned noSamples = sampleMesh(mesh, ray.row, ray.direction, scratch.samples);
    if (noSamples == 0)
        return;
    const unsigned noMeshes = unsigned(mWorldMeshes.size());
    for (unsigned other = 0; other < noMeshes; ++other) {
        if (mMeshGroups.getGroupIdFromMeshId(other) == group || !canReach(mesh, other, ray))
            continue;
        unsigned hits = 0;
        float nearest = HUGE_VALF;
        countFacingHits(other, ray, *scratch.samples, noSamples, hits, nearest);
        if (hits < 2)
            continue;
        const float share = float(hits) / float(noSamples);
        const unsigned code = share > mBlockedShare ? strongBlockingCode(nearest, mDistanceScale, mNearThreshold)
                                                    : weakBlockingCode(share);
        scratch.codes[other] = std::min(scratch.codes[other], code);
    }
}

// Whether a ray from `mesh` along the ray's direction can meet `otherMesh`:
// the other mesh must reach past the back of `mesh` along the direction, and
// its box must meet the box of `mesh` swept along the direction.
bool kxDistantContacts::canReach(unsigned mesh, unsigned otherMesh, const tRay& ray) const
{
    const unsigned noDirections = mDiagram.getNoDirections();
    const unsigned k = ray.row & kxDisassemblyHierarchyBuilder::kIdMask;
    const float* from = &mIntervals[2 * (size_t(mesh) * noDirections + k)];
    const float* to = &mIntervals[2 * (size_t(otherMesh) * noDirections + k)];
    const float slack = kReachSlack * mDistanceScale;
    const bool backward = (ray.row & kxDisassemblyHierarchyBuilder::kSignBit) != 0;
    const bool ahead = backward ? to[0] <= from[1] + slack : to[1] >= from[0] - slack;
    if (!ahead)
        return false;

    const kx::kxBBox& box = mMeshBoxes[mesh];
    const Wm4::Vector3<float> halfExtent = box.getExtent() * 0.5f + Wm4::Vector3<float>(slack, slack, slack);
    const kx::kxBBox swept(mMeshBoxes[otherMesh].min - halfExtent, mMeshBoxes[otherMesh].max + halfExtent);
    return rayMeetsBox(box.getCenter(), ray.direction, swept);
}

void kxDistantContacts::countFacingHits(unsigned otherMesh, const tRay& ray, const kx::kxVertexBuffer& samples,
                                        unsigned noSamples, unsigned& hits, float& nearest) const
{
    const float sinFacing = std::sin(mFacingAngle * Wm4::Math<float>::PI / 180.0f);
    const kx::kxBBox box = mMeshBoxes[otherMesh].grow(kReachSlack * mDistanceScale);
    const kx::kxQBVH& tree = *mTrees[otherMesh];
    const std::vector<Wm4::Vector3<float>>& normals = mTriangleNormals[otherMesh];
    for (unsigned s = 0; s < noSamples; ++s) {
        const Wm4::Vector3<float>& origin = samples.Position3(int(s));
        if (!rayMeetsBox(origin, ray.direction, box))
            continue;
        float t = 0.0f;
        Wm4::Vector2<float> barycentric;
        unsigned triangle = 0;
        if (!tree.intersectRay(origin, ray.direction, 0.0f, t, barycentric, triangle, kx::kxQBVH::RAY_NEAREST_HIT))
            continue;
        if (-ray.direction.Dot(normals[triangle]) > sinFacing) {
            ++hits;
            nearest = std::min(nearest, t);
        }
    }
}

// Moves every blocked slot of the row into the job's list and resets it.
void kxDistantContacts::collectBlockings(unsigned group, unsigned row, tThreadScratch& scratch) const
{
    for (unsigned other = 0; other < scratch.codes.size(); ++other) {
        if (scratch.codes[other] == kNotBlocked)
            continue;
        scratch.found.push_back(tBlocking{group, other, row, scratch.codes[other]});
        scratch.codes[other] = kNotBlocked;
    }
}

// Groups the blockings per pair of groups (A < B, directions relative to A),
// keeps the largest (most blocking) code per direction and pushes one
// constraint per pair.
void kxDistantContacts::pushConstraints(const std::vector<tBlocking>& found)
{
    std::vector<tPairBlocking> rows;
    rows.reserve(found.size());
    for (const tBlocking& b : found) {
        const unsigned other = mMeshGroups.getGroupIdFromMeshId(b.otherMesh);
        const bool movingIsFirst = b.group < other;
        const unsigned directionId = movingIsFirst ? b.row : b.row ^ kxDisassemblyHierarchyBuilder::kSignBit;
        rows.push_back(tPairBlocking{std::min(b.group, other), std::max(b.group, other), directionId, b.code});
    }
    // By pair, then direction, then code from the largest down.
    std::sort(rows.begin(), rows.end(), [](const tPairBlocking& a, const tPairBlocking& b) {
        return std::tie(a.groupA, a.groupB, a.directionId, b.code) <
               std::tie(b.groupA, b.groupB, b.directionId, a.code);
    });

    const auto samePair = [](const tPairBlocking& a, const tPairBlocking& b) {
        return a.groupA == b.groupA && a.groupB == b.groupB;
    };
    // The first row of each direction holds its largest code.
    rows.erase(std::unique(rows.begin(), rows.end(),
                           [&](const tPairBlocking& a, const tPairBlocking& b) {
                               return samePair(a, b) && a.directionId == b.directionId;
                           }),
               rows.end());

    unsigned noPairs = 0;
    for (size_t i = 0; i < rows.size(); ++i)
        noPairs += (i == 0 || !samePair(rows[i], rows[i - 1])) ? 1 : 0;
    mBuilder.setNoDistantConstraints(noPairs);
    mNoPushedConstraints = noPairs;

    std::vector<unsigned> directionIds;
    std::vector<unsigned> penalties;
    for (size_t begin = 0, end = 0; begin < rows.size(); begin = end) {
        directionIds.clear();
        penalties.clear();
        for (; end < rows.size() && samePair(rows[end], rows[begin]); ++end) {
            directionIds.push_back(rows[end].directionId);
            penalties.push_back(rows[end].code);
        }
        mBuilder.pushDistantConstraint(rows[begin].groupA, rows[begin].groupB, directionIds, penalties);
    }
}
