// The planning facade: one call that takes an imported assembly and runs the
// library's pipeline on it in the host order (groups, contact diagram and its
// direction set, then on request distant contacts, the clusters to keep
// whole and the disassembly hierarchy). The command-line tool uses only this.
//
// A Plan owns everything the library objects borrow (the merged group meshes,
// the mesh groups), so its results stay valid for as long as it lives. Group g
// of the library is group g of the assembly: each group's parts are merged
// into one world-space mesh first, since the library needs one mesh per group.
//
// By default the merged meshes are scaled into the planning frame (see
// PlanningScale.h) and contacts that touch without area are freed (see
// ZeroAreaContacts.h); both can be switched off to get the library's own
// results. The library objects of a Plan (groups, diagram, hierarchy,
// builder) live in the planning frame: lengths read from them directly are
// world lengths times planningScale(). The accessors below that return
// lengths (contactPoint) give world lengths.
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
#include "velmora/NodeGroups.h"
#include "velmora/PlanVerification.h"
#include "velmora/HierarchyReplay.h"
#include "velmora/PlanReader.h"

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

    // Plan in a frame where the assembly has a fixed size, so the plan does
    // not depend on the input's unit; off: the world coordinates as they are.
    bool normaliseScale = true;
    // Give contacts that touch only along an edge or at a corner the
    // directions their faces leave free, and, with verify, the other
    // contacts without a direction those a sweep finds clear; off: they lock
    // their pair.
    bool freeZeroAreaContacts = true;
    // With the hierarchy: sweep every split, re-plan the ones that collide
    // and find interfering, duplicate and stuck parts; contacts with no
    // removal direction are swept first and freed where the pair comes
    // apart (see SweptContacts.h).
    bool verify = false;
    // With the hierarchy: a saved tree whose splits are taken instead of
    // searched for (not owned; may be null). InputError when it does not fit.
    const std::vector<SavedHierarchyNode>* savedHierarchy = nullptr;
    // With the hierarchy: a saved plan report (not owned; may be null) whose
    // tree is taken as savedHierarchy is and, when it holds them, whose
    // contacts, blocking constraints and verdicts are taken instead of
    // computed (see SavedPlanReplay.h). normaliseScale must be the report's.
    const SavedPlan* savedPlan = nullptr;
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

    // Planning-frame length of one world unit (an exact power of two; 1 when
    // the scale is not normalised).
    double planningScale() const { return mPlanningScale; }
    bool normalisesScale() const { return mNormaliseScale; }
    bool freesZeroAreaContacts() const { return mFreeZeroAreaContacts; }
    // Contact point of diagram edge e, in world coordinates.
    Wm4::Vector3<float> contactPoint(unsigned e) const;
    // Whether diagram edge e touches without area (and was freed).
    bool zeroAreaContact(unsigned e) const { return !mZeroAreaContacts.empty() && mZeroAreaContacts[e]; }

    // Valid only when the hierarchy was planned.
    bool hasHierarchy() const { return mBuilder != nullptr; }
    const kxDisassemblyHierarchy& hierarchy() const { return *mHierarchy; }
    const kxDisassemblyHierarchyBuilder& builder() const { return *mBuilder; }
    // For steps that rewrite the tree (a removal procedure's own tree).
    kxDisassemblyHierarchyBuilder& editBuilder() { return *mBuilder; }
    bool distantContacts() const { return mDistantContacts; }
    const std::vector<std::vector<unsigned>>& keepTogether() const { return mKeepTogether; }
    // Null unless the plan was verified.
    const PlanVerification* verification() const { return mVerification.get(); }

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
    double mPlanningScale = 1.0;
    bool mNormaliseScale = false;
    bool mFreeZeroAreaContacts = false;
    std::vector<bool> mZeroAreaContacts;  // per diagram edge; empty when none was freed
    std::unique_ptr<PlanVerification> mVerification;
    std::vector<unsigned> mSweptFreeContacts;  // diagram edges freed by sweeping
};


// Runs the pipeline. Throws InputError when the options are out of range
// (a tolerance outside (0, 90) degrees, more than 256 threads, a keep-together
// set with an unknown group or fewer than two groups), when a coordinate is
// not finite, and, with normaliseScale, when the assembly's size cannot be
// represented in the planning frame.
std::unique_ptr<Plan> planAssembly(const Assembly& assembly, const PlanOptions& options = {});

}  // namespace velmora
