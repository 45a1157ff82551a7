// kxDistantContacts: finds pairs of groups that block each other's removal
// without touching, and hands them to a hierarchy builder as distant
// constraints. For every group and every direction in which the group may
// leave its contacts (the builder's per-group direction lists), it samples
// points on the group's meshes, casts rays from them along the direction (and
// its opposite) against the meshes of the other groups, and turns the share
// and nearness of the facing hits into a penalty code.
//
// Penalty code of one (direction, other mesh) pair, an unsigned 32-bit word:
// - strong blocking (more than a third of the samples hit), bit 31 set:
//   0x80000000 | min(trunc((1 - min(1, d / scale)) * 2^30), 0x3FFFFFFF),
//   with 0x40000000 or-ed in when the nearest hit distance d is below the
//   near threshold;
// - weak blocking, bit 31 clear: min(trunc(share * 2^31), 0x7FFFFFFF);
// - all ones: not blocked (fewer than two hits).
// Codes grow with blocking: strong above weak, nearer and larger shares
// above farther and smaller ones; the solver's soft pass charges the largest
// penalty of a split. Codes are combined so:
// - one slot (direction, other mesh) hit from several meshes of the moving
//   group keeps the smallest code, as the ray tests require;
// - one direction of a pair of groups found from several slots (several
//   meshes, or both groups' own tests) keeps the largest code, the most
//   blocking one. (Taking the smallest would let a weak reading from one mesh
//   hide a strong blocking found by another.)
//
// Directions are pushed relative to the pair's first group: a pair is pushed
// once, as (A, B) with A < B, and an entry k | (s << 31) says that A moving
// along +D[k] (s = 0) or -D[k] (s = 1) away from B is blocked. A blocking
// found while B moves along a direction is recorded for A along the opposite
// one. Entries are ascending; pairs are pushed in ascending (A, B) order.
//
// Choices made here where the rules leave room:
// - sampleMesh samples only the triangles that face the direction (n . d > 0,
//   the leading surface of the motion), with probability proportional to
//   their area: systematic sampling along the cumulative area, one point per
//   budget slot, placed inside its triangle by a fixed low-discrepancy
//   sequence. So a mesh with any facing area gets exactly the sample budget.
// - intervals are kept per mesh and per line k of the direction set as the
//   (min, max) projection on +D[k]; the opposite sense reads them negated.
// - distance scale = the diagonal of the bounding box of all meshes; near
//   threshold = 2% of it.
// - besides the interval test along the direction, a mesh is skipped when the
//   bounding box of the sampled mesh, swept along the ray, misses its box, and
//   a ray is skipped when it misses the box; both only avoid rays that cannot
//   hit, so the codes are those of casting every ray.
//
// Invariants: the trees, normals, areas, boxes and intervals are read-only
// while the jobs run; each job writes only its own thread's scratch and, under
// the mutex, the shared result list, which is sorted before anything is
// pushed, so the constraints do not depend on the thread count.
//
// Meshes are read in world coordinates (each vertex through the mesh's World
// transformation); the builder's meshes must not change while this object
// lives.
#pragma once

#include <memory>
#include <vector>

#include "Wm4.h"
#include "kxCommonAddOns.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxProgressNotifierInterface.h"
#include "kxSceneGraph.h"

// Job functor of the ray tests: job g casts the rays of group g. Stateless;
// everything comes through the jobs data (the computation's job context).
struct kxIntersectionTester {
    void operator()(unsigned jobIndex, unsigned threadIndex, void* jobsData) const;
};

class kxDistantContacts {
public:
    static constexpr unsigned kNotBlocked = 0xFFFFFFFFu;

    // Stores the builder, computes the unit triangle normals and areas of
    // every mesh and builds one ray tree per mesh.
    explicit kxDistantContacts(kxDisassemblyHierarchyBuilder& builder);
    ~kxDistantContacts();
    kxDistantContacts(const kxDistantContacts&) = delete;
    kxDistantContacts& operator=(const kxDistantContacts&) = delete;

    // Tests every group on `nThreads` workers (`progress`, may be null: one
    // step per group) and pushes one distant constraint per blocking pair of
    // groups into the builder. Call before the builder's initSolver.
    void computeDistantContacts(unsigned nThreads, kx::kxProgressNotifierInterface* progress);

    // Projection interval of every mesh on every line of the direction set.
    void computeBoundingPlanes();
    // Places up to the sample budget of points (positions and unit face
    // normals) on the triangles of `mesh` that face `direction`; returns how
    // many. `samples` is (re)made with room for the budget when it is null or
    // too small. `directionId` (sign in bit 31) selects the sampling pattern.
    unsigned sampleMesh(unsigned mesh, unsigned directionId, const Wm4::Vector3<float>& direction,
                        kx::kxPointer<kx::kxVertexBuffer>& samples) const;
    // Builds one ray tree per mesh.
    void initQBVH();

    // Penalty codes (see the class comment).
    static unsigned strongBlockingCode(float distance, float scale, float nearThreshold);
    static unsigned weakBlockingCode(float share);

    float getFacingAngle() const { return mFacingAngle; }
    float getBlockedShare() const { return mBlockedShare; }
    unsigned getSampleBudget() const { return mSampleBudget; }
    void setSampleBudget(unsigned budget) { mSampleBudget = budget; }
    // Valid after computeDistantContacts.
    float getDistanceScale() const { return mDistanceScale; }
    float getNearThreshold() const { return mNearThreshold; }
    // Number of constraints the last computeDistantContacts pushed.
    unsigned getNoPushedConstraints() const { return mNoPushedConstraints; }

private:
    friend struct kxIntersectionTester;

    // One blocking found by a job: group `group` moving along `row` (sign in
    // bit 31) is blocked by mesh `otherMesh` with `code`.
    struct tBlocking {
        unsigned group;
        unsigned otherMesh;
        unsigned row;
        unsigned code;
    };
    // The same, as a constraint row of a pair of groups (A < B).
    struct tPairBlocking {
        unsigned groupA;
        unsigned groupB;
        unsigned directionId;
        unsigned code;
    };
    // A job's view of one direction: its id (sign in bit 31) and vector.
    struct tRay {
        unsigned row;
        Wm4::Vector3<float> direction;
    };
    // Per-thread scratch, sized once.
    struct tThreadScratch {
        kx::kxPointer<kx::kxVertexBuffer> samples;
        std::vector<unsigned> codes; // per other mesh, for the row being tested
        std::vector<tBlocking> found;
    };
    struct tIntersectionJobs;

    void copyWorldMeshes();
    void computeTriangleData(unsigned mesh);
    void computeDistanceParameters();
    void testGroup(unsigned group, tThreadScratch& scratch) const;
    void testMesh(unsigned group, unsigned mesh, const tRay& ray, tThreadScratch& scratch) const;
    bool canReach(unsigned mesh, unsigned otherMesh, const tRay& ray) const;
    void countFacingHits(unsigned otherMesh, const tRay& ray, const kx::kxVertexBuffer& samples, unsigned noSamples,
                         unsigned& hits, float& nearest) const;
    void collectBlockings(unsigned group, unsigned row, tThreadScratch& scratch) const;
    void pushConstraints(const std::vector<tBlocking>& found);

    kxDisassemblyHierarchyBuilder& mBuilder;
    const kxMeshGroups& mMeshGroups;
    const kxContactDiagram& mDiagram;

    // Per mesh, in world coordinates: the caller's mesh (borrowed) or a copy.
    std::vector<const kx::kxTriMesh*> mWorldMeshes;
    std::vector<kx::kxPointer<kx::kxTriMesh>> mWorldCopies;
    std::vector<std::vector<Wm4::Vector3<float>>> mTriangleNormals;
    std::vector<std::vector<float>> mTriangleAreas;
    std::vector<kx::kxBBox> mMeshBoxes;
    std::vector<std::unique_ptr<kx::kxQBVH>> mTrees;
    // (min, max) projection of mesh m on line k at [2 * (m * N + k)].
    std::vector<float> mIntervals;

    float mFacingAngle;  // degrees
    float mBlockedShare; // above it a blocking is strong
    unsigned mSampleBudget;
    float mDistanceScale;
    float mNearThreshold;
    unsigned mNoPushedConstraints;
};
