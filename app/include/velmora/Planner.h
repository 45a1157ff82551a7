// The planning facade: one call that takes an imported assembly and runs the
// library's pipeline on it in the host order (groups, contact diagram and its
// direction set). The command-line tool uses only this.
//
// A Plan owns everything the library objects borrow (the merged group meshes,
// the mesh groups), so its results stay valid for as long as it lives. Group g
// of the library is group g of the assembly: each group's parts are merged
// into one world-space mesh first, since the library needs one mesh per group.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kxContactDiagram.h"
#include "kxMeshGroups.h"
#include "kxProgressNotifierInterface.h"
#include "velmora/Assembly.h"

namespace velmora {

struct PlanOptions {
    unsigned threads = 0;              // worker threads; 0 means one per hardware thread
    float angleTolerance = 5.0f;       // degrees under which removal directions merge
    kx::kxProgressNotifierInterface* progress = nullptr;  // may be null
    bool verbose = false;              // the library's own progress lines
};

struct StageTiming {
    std::string stage;
    double milliseconds;
};

class Plan {
public:
    const Assembly& assembly() const { return mAssembly; }
    const kxMeshGroups& groups() const { return *mGroups; }
    const kxContactDiagram& diagram() const { return *mDiagram; }
    const std::vector<StageTiming>& timings() const { return mTimings; }
    unsigned threads() const { return mThreads; }
    float angleTolerance() const { return mAngleTolerance; }

private:
    friend std::unique_ptr<Plan> planAssembly(const Assembly&, const PlanOptions&);

    Assembly mAssembly;
    std::vector<kx::kxPointer<kx::kxTriMesh>> mGroupMeshes;
    std::unique_ptr<kxMeshGroups> mGroups;
    std::unique_ptr<kxContactDiagram> mDiagram;
    std::vector<StageTiming> mTimings;
    unsigned mThreads = 1;
    float mAngleTolerance = 5.0f;
};

// Runs the pipeline. Throws InputError when the options are out of range
// (a tolerance outside (0, 90) degrees, more than 256 threads).
std::unique_ptr<Plan> planAssembly(const Assembly& assembly, const PlanOptions& options = {});

}  // namespace velmora
