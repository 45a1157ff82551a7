#include "velmora/Planner.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "kxDistantContacts.h"
#include "kxSystem.h"
#include "velmora/PlanningScale.h"
#include "velmora/SavedPlanReplay.h"
#include "velmora/SweptContacts.h"
#include "velmora/ZeroAreaContacts.h"

namespace velmora {
namespace {

unsigned resolveThreads(unsigned requested)
{
    if (requested > 256)
        throw InputError("--threads must be at most 256");
    if (requested != 0)
        return requested;
    return std::max(1u, std::thread::hardware_concurrency());
}

// Sorted, duplicate-free copies of the keep-together sets, checked against
// the number of groups.
std::vector<std::vector<unsigned>> normalizedClusters(const std::vector<std::vector<unsigned>>& sets,
                                                      unsigned noGroups)
{
    std::vector<std::vector<unsigned>> clusters;
    for (std::vector<unsigned> set : sets) {
        std::sort(set.begin(), set.end());
        set.erase(std::unique(set.begin(), set.end()), set.end());
        if (!set.empty() && set.back() >= noGroups)
            throw InputError("a keep-together set names group " + std::to_string(set.back()) + " of only " +
                             std::to_string(noGroups));
        if (set.size() < 2)
            throw InputError("a keep-together set needs at least two different groups");
        clusters.push_back(std::move(set));
    }
    return clusters;
}

// Larger sets first, so an enclosing cluster is pushed before the ones
// inside it. Clusters are pushed as disassemblable: every split keeps them
// whole as long as the rest of the assembly can come apart that way, and
// once a cluster is a node of its own it is split like any other.
std::unique_ptr<kxGroupsClustering> makeClustering(const std::vector<std::vector<unsigned>>& clusters,
                                                   unsigned noGroups)
{
    std::vector<const std::vector<unsigned>*> order;
    for (const std::vector<unsigned>& set : clusters)
        order.push_back(&set);
    std::stable_sort(order.begin(), order.end(), [](auto* a, auto* b) { return a->size() > b->size(); });
    auto clustering = std::make_unique<kxGroupsClustering>(noGroups);
    kx2SATState groups(noGroups);
    for (const std::vector<unsigned>* set : order) {
        groups.clear(false);
        for (unsigned g : *set)
            groups.setTrue(g);
        clustering->pushCluster(groups, true);
    }
    return clustering;
}

// The hierarchy of a saved tree over the plan's groups and directions.
kxDisassemblyHierarchy savedTree(const Plan& plan, const std::vector<SavedHierarchyNode>& nodes)
{
    try {
        return HierarchyReplay::rebuild(plan.groups(), nodes, plan.diagram().getNoDirections());
    } catch (const std::invalid_argument& e) {
        throw InputError(std::string("the saved plan does not fit the inputs: ") + e.what());
    }
}

// Repair plans failing subtrees again in place, which leaves the builder's
// edge order depending on the rounds it took. Copying the final tree from the
// root makes the builder (and so the exploded view) a function of the tree
// and the constraints alone, which is what a saved plan rebuilds.
void recopyFromRoot(kxDisassemblyHierarchyBuilder& builder)
{
    const kxDisassemblyHierarchy tree(builder.getHierarchy());
    builder.initSolver();
    builder.copyGroupsHierarchy(tree);
}

}  // namespace


Wm4::Vector3<float> Plan::contactPoint(unsigned e) const
{
    return mDiagram->getContactPoint(e) * float(1.0 / mPlanningScale);
}

// The verification's lengths (measured in the planning frame) in world units;
// its verifier keeps working in the planning frame.
static void inWorldLengths(PlanVerification& verification, double toWorld)
{
    verification.tolerance *= toWorld;
    for (Interference& i : verification.interferences)
        i.depth *= toWorld;
    for (SplitVerdict& verdict : verification.repair.verdicts) {
        verdict.sweep.travel *= toWorld;
        for (Collision& blocker : verdict.sweep.blockers)
            blocker.travel *= toWorld;
    }
}

std::unique_ptr<Plan> planAssembly(const Assembly& assembly, const PlanOptions& options)
{
    if (!(options.angleTolerance > 0.0f && options.angleTolerance < 90.0f))
        throw InputError("the angle tolerance must lie strictly between 0 and 90 degrees");
    auto plan = std::unique_ptr<Plan>(new Plan);
    plan->mAssembly = assembly;
    plan->mThreads = resolveThreads(options.threads);
    plan->mAngleTolerance = options.angleTolerance;
    const unsigned noGroups = unsigned(assembly.groups.size());
    plan->mKeepTogether = normalizedClusters(options.keepTogether, noGroups);
    plan->mDistantContacts = options.hierarchy && options.distantContacts;

    kx::kxTimer timer;
    auto finishStage = [&](const char* name) {
        plan->mTimings.push_back({name, timer.getElapsedMs()});
        timer.reset();
    };
    auto startStage = [&](const char* name) {
        if (options.onStage)
            options.onStage(name);
    };

    plan->mGroupMeshes = mergeGroups(plan->mAssembly);
    plan->mNormaliseScale = options.normaliseScale;
    plan->mFreeZeroAreaContacts = options.freeZeroAreaContacts;
    if (options.normaliseScale) {
        plan->mPlanningScale = planningScale(plan->mAssembly, plan->mGroupMeshes);
        scalePositions(plan->mGroupMeshes, plan->mPlanningScale);
    } else {
        checkFiniteCoordinates(plan->mAssembly, plan->mGroupMeshes);
    }
    std::vector<kx::kxTriMesh*> meshes(plan->mGroupMeshes.begin(), plan->mGroupMeshes.end());
    plan->mGroups = std::make_unique<kxMeshGroups>(meshes, nullptr);
    finishStage("groups");

    // A saved plan that holds its contacts and constraints replaces the contact
    // and distant-contact stages.
    const SavedPlan* replay =
        options.hierarchy && options.savedPlan && options.savedPlan->holdsConstraints() ? options.savedPlan : nullptr;
    startStage("contacts");
    if (replay) {
        SavedDiagram saved = savedContactDiagram(*replay, *plan->mGroups, plan->mPlanningScale);
        plan->mDiagram = std::move(saved.diagram);
        plan->mZeroAreaContacts = std::move(saved.zeroArea);
    } else {
        plan->mDiagram = std::make_unique<kxContactDiagram>(*plan->mGroups, plan->mThreads, options.progress);
    }
    plan->mDiagram->setVerbose(options.verbose);
    if (options.freeZeroAreaContacts && !replay) {
        ZeroAreaContacts freed = freeZeroAreaContacts(*plan->mDiagram, *plan->mGroups);
        if (freed.diagram) {
            plan->mDiagram = std::move(freed.diagram);
            plan->mZeroAreaContacts = std::move(freed.zeroArea);
        }
    }
    finishStage("contacts");
    // Verification sweeps the contacts motion analysis locked before the
    // direction set is made; its geometry is built once for both uses.
    std::shared_ptr<const PlanVerifier> verifier;
    double sweepMs = 0.0;
    if (options.hierarchy && options.verify) {
        verifier = makePlanVerifier(*plan->mGroups, options.angleTolerance, plan->mThreads);
        // A saved plan's contacts were swept when it was made.
        if (options.freeZeroAreaContacts && !replay) {
            SweptContacts swept =
                freeLockedContactsBySweep(*plan->mDiagram, *plan->mGroups, *verifier, options.angleTolerance);
            if (swept.diagram)
                plan->mDiagram = std::move(swept.diagram);
            plan->mSweptFreeContacts = std::move(swept.freed);
        }
        sweepMs = timer.getElapsedMs();
        timer.reset();
    }
    plan->mDiagram->computeDirectionSet(options.angleTolerance);
    if (replay)
        checkDirectionsFit(*replay, *plan->mDiagram);
    finishStage("directions");
    if (!options.hierarchy)
        return plan;

    plan->mHierarchy = std::make_unique<kxDisassemblyHierarchy>(*plan->mGroups);
    plan->mBuilder =
        std::make_unique<kxDisassemblyHierarchyBuilder>(*plan->mHierarchy, *plan->mDiagram, plan->mThreads);
    plan->mBuilder->setVerbose(options.verbose);
    if (plan->mDistantContacts)
        startStage("distant contacts");
    if (replay)
        pushSavedDistantConstraints(*plan->mBuilder, *replay);
    else if (plan->mDistantContacts)
        kxDistantContacts(*plan->mBuilder).computeDistantContacts(plan->mThreads, options.progress);
    if (plan->mDistantContacts)
        finishStage("distant");
    if (!plan->mKeepTogether.empty()) {
        plan->mClustering = makeClustering(plan->mKeepTogether, noGroups);
        plan->mBuilder->setGroupsClustering(plan->mClustering.get());
    }
    startStage("hierarchy");
    plan->mBuilder->initSolver();
    const std::vector<SavedHierarchyNode>* savedNodes =
        options.savedPlan ? &options.savedPlan->hierarchy : options.savedHierarchy;
    if (savedNodes)
        plan->mBuilder->copyGroupsHierarchy(savedTree(*plan, *savedNodes));
    else
        plan->mBuilder->computeGroupsHierarchy(0, options.progress);
    finishStage("hierarchy");
    if (options.verify) {
        startStage("verification");
        if (replay && replay->verification) {
            plan->mVerification =
                std::make_unique<PlanVerification>(savedVerification(*plan->mBuilder, *replay, verifier));
        } else {
            plan->mVerification = std::make_unique<PlanVerification>(verifyHierarchyPlan(*plan->mBuilder, verifier));
            plan->mVerification->freedLocked = plan->mSweptFreeContacts;
            if (plan->mVerification->repair.rounds > 1)
                recopyFromRoot(*plan->mBuilder);
        }
        plan->mVerification->milliseconds += sweepMs;
        inWorldLengths(*plan->mVerification, 1.0 / plan->mPlanningScale);
        finishStage("verification");
        plan->mTimings.back().milliseconds += sweepMs;
    }
    return plan;
}

}  // namespace velmora
