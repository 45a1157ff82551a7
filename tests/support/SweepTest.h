// Sweep test: does translating one side of a split along a direction take it
// clear of the other side without the two interpenetrating on the way?
//
// The moving side is translated in equal steps from its start (step 0) until
// its interval along the direction lies wholly beyond the fixed side's. At
// every step after the start, a triangle of the moving side that crosses a
// triangle of the fixed side deeper than the start pose's deepest crossing
// plus the tolerance is an interpenetration: real assemblies come with some
// interference already (press fits, round parts tessellated differently),
// and the motion must only not make it worse. "Crossing" means that each
// triangle pierces the other's plane by more than the tolerance on both sides
// and their cuts along the common line overlap by more than the tolerance;
// triangles that only touch (coplanar faces, an edge or a corner on a face)
// never cross. Pairs are found through a tree over the fixed side's triangles
// and, per pair, only the steps at which their boxes overlap are tested.
#pragma once

#include <vector>

#include "kxSceneGraph.h"

namespace velmora_test {

struct SweepOptions {
    unsigned noSteps = 256;  // steps from the start to clear (at least 1)
    double tolerance = 0.0;  // extra crossing depth allowed; 0: 1e-3 of the diagonal of both sides' box
};

struct SweepResult {
    bool separates = true;          // no crossing at any step
    unsigned noSteps = 0;           // steps taken
    double stepLength = 0.0;
    double tolerance = 0.0;         // the tolerance used
    double startDepth = 0.0;        // deepest crossing in the start pose
    unsigned firstCrossingStep = 0; // the first step with a crossing (when !separates)
    unsigned noCrossings = 0;       // crossing (pair, step) combinations found
    double deepestCrossing = 0.0;   // largest crossing depth found
};

// `groupMeshes[g]` is the mesh of group g (vertices through its World
// transformation); `moving` and `fixed` list group ids; `direction` need not
// be unit length but must not be zero.
SweepResult sweepSeparates(const std::vector<const kx::kxTriMesh*>& groupMeshes, const std::vector<unsigned>& moving,
                           const std::vector<unsigned>& fixed, const Wm4::Vector3<float>& direction,
                           const SweepOptions& options = {});

// Crossing depth of two triangles (0 when they only touch or stay apart): the
// smallest of how far each pierces the other's plane on its shallower side
// and the overlap of their cuts along the common line.
double triangleCrossingDepth(const Wm4::Vector3<double> a[3], const Wm4::Vector3<double> b[3]);

}  // namespace velmora_test
