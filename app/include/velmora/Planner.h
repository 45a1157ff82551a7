// The planning facade: one call that takes an imported assembly and runs the
// library's pipeline on it in the host order (groups, contact diagram and its
// direction set, then on request distant contacts, the clusters to keep
// whole and the disassembly hierarchy). The command-line tool uses only this.
//
// A Plan owns everything the library objects borrow (the merged group meshes,
// the mesh groups), so its results stay valid for as long as it lives. Group g
// of the library is group g of the assembly: each group's parts are merged
// into one world-space mesh first, since the library needs one mesh per group.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxGroupsClustering.h"
#include "kxMeshGroups.h"
#include "kxProgressNotifierInterface.h"
#include "velmora/Assembly.h"
#include "velmora/HierarchyReplay.h"

namespace velmora {

struct PlanOptions {
    unsigned threads = 0;              // worker threads; 0 means one per hardware thread
    float angleTolerance = 5.0f;       // degrees under which removal directions merge
    kx::kxProgressNotifierInterface* progress = nullptr;  // may be null
    bool verbose = false;              // the library's own progress lines
    // Called with a stage name ("contacts", "distant contacts", "hierarchy")
    // as it starts; may be empty.
    std::function<void(const std::string&)> onStage;

    bool hierarchy = false;       // also plan the disassembly hierarchy
    bool distantContacts = true;  // with it, constraints between parts that block without touching
    // Sets of group ids that come out as one sub-assembly: every split keeps
    // each set on one side unless the assembly cannot come apart otherwise;
    // the set itself is then split like any other node. Each needs at least
    // two distinct groups.
    std::vector<std::vector<unsigned>> keepTogether;
    // With the hierarchy: a saved tree whose splits are taken instead of
    // searched for (not owned; may be null). InputError when it does not fit.
    const std::vector<SavedHierarchyNode>* savedHierarchy = nullptr;
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

    // Valid only when the hierarchy was planned.
    bool hasHierarchy() const { return mBuilder != nullptr; }
    const kxDisassemblyHierarchy& hierarchy() const { return *mHierarchy; }
    const kxDisassemblyHierarchyBuilder& builder() const { return *mBuilder; }
    // For steps that rewrite the tree (a removal procedure's own tree).
    kxDisassemblyHierarchyBuilder& editBuilder() { return *mBuilder; }
    bool distantContacts() const { return mDistantContacts; }
    const std::vector<std::vector<unsigned>>& keepTogether() const { return mKeepTogether; }

private:
    friend std::unique_ptr<Plan> planAssembly(const Assembly&, const PlanOptions&);

    Assembly mAssembly;
    std::vector<kx::kxPointer<kx::kxTriMesh>> mGroupMeshes;
    std::unique_ptr<kxMeshGroups> mGroups;
    std::unique_ptr<kxContactDiagram> mDiagram;
    // Declared in this order so the builder goes before what it borrows.
    std::unique_ptr<kxDisassemblyHierarchy> mHierarchy;
    std::unique_ptr<kxGroupsClustering> mClustering;
    std::unique_ptr<kxDisassemblyHierarchyBuilder> mBuilder;
    std::vector<StageTiming> mTimings;
    unsigned mThreads = 1;
    float mAngleTolerance = 5.0f;
    bool mDistantContacts = false;
    std::vector<std::vector<unsigned>> mKeepTogether;
};

// The groups of hierarchy node `node`, ascending.
std::vector<unsigned> groupsOfNode(const kxDisassemblyHierarchy& hierarchy, unsigned node);

// Runs the pipeline. Throws InputError when the options are out of range
// (a tolerance outside (0, 90) degrees, more than 256 threads, a keep-together
// set with an unknown group or fewer than two groups).
std::unique_ptr<Plan> planAssembly(const Assembly& assembly, const PlanOptions& options = {});

}  // namespace velmora
