// kxContactPoints: turns the touching triangles of two parts into matched
// pairs of points. Samples are spread evenly over each connected patch of the
// listed triangles of one part (a patch is unfolded into the plane and
// sampled there), and each sample is paired with the point of the other part
// that a ray along its normal meets within the tolerance, provided the two
// surfaces face each other (normals opposed within 15 degrees).
//
// Output buffers hold vertex pairs 2k (sample on the buffer's own part) and
// 2k+1 (its partner on the other part), with channels: position; smoothed
// normal; texture set 0 (3 channels) = unit face normal of the triangle the
// point lies on; point size = the sample's weight (same for both vertices).
// A buffer is null when no pair survives, so it never holds an odd count.
// The parts are only read; one object serves one thread at a time.
#pragma once

#include <vector>

#include "kxMeshAndBVH.h"
#include "kxSceneGraph.h"

class kxContactPoints {
public:
    kxContactPoints(const kxMeshAndBVH& partA, const kxMeshAndBVH& partB, float tolerance);

    // `facesA`/`facesB` are triangle indices of part A/B. Fills `pointsA`
    // (samples on A, partners on B) and `pointsB` (roles swapped); each is
    // replaced, or reset to null when no pair is left.
    void getContactPoints(const std::vector<unsigned>& facesA, const std::vector<unsigned>& facesB,
                          kx::kxPointer<kx::kxVertexBuffer>& pointsA, kx::kxPointer<kx::kxVertexBuffer>& pointsB);

    // Samples requested over all patches of one part.
    static constexpr unsigned SAMPLE_BUDGET = 10000;
    // Places reserved per triangle whatever its share of the budget.
    static constexpr unsigned MIN_SAMPLES_PER_TRIANGLE = 5;
    // cos 15°: the surfaces of a pair must face each other within 15 degrees.
    static constexpr double OPPOSITION_COSINE = 0.9659258;

private:
    const kxMeshAndBVH* mPartA;
    const kxMeshAndBVH* mPartB;
    float mTolerance;
    bool mDumpSamples;  // debug only: writes the samples as meshes; never set publicly
};
