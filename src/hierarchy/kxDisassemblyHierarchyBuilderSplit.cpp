// Recursive splitting: the best-split search over all directions on the
// worker pool, and the split of one node's edges, groups and solver systems.
#include "kxDisassemblyHierarchyBuilder.h"

#include <algorithm>
#include <tuple>

#include "kxSystem.h"
#include "velmora/LogSink.h"

namespace {

constexpr uint64_t kNoCost = ~uint64_t(0);
constexpr uint64_t kOneSidedCost = 0xFFFFFFFFFFFFFFFEULL;
constexpr unsigned kNoPasses = 4;
constexpr double kSecondsPerMs = 0.001;

// Which block of a split an edge falls in.
enum tEdgeSide : int { eCrossingEdge = 0, eFirstChildEdge = 1, eSecondChildEdge = 2 };

}  // namespace

void kxSplitDirectionTester::operator()(unsigned jobIndex, unsigned threadIndex, void* jobsData) const
{
    auto& jobs = *static_cast<kxDisassemblyHierarchyBuilder::tSplitJobs*>(jobsData);
    // One direction per job: the range [j, min(total, j + 1)).
    const unsigned end = std::min(jobs.noDirections, jobIndex + 1);
    for (unsigned j = jobIndex; j < end; ++j)
        jobs.builder->testSplitDirection(jobs.directions[j], threadIndex, jobs.hardDistant);
}

void kxDisassemblyHierarchyBuilder::computeGroupsHierarchy(unsigned node, kx::kxProgressNotifierInterface* progress)
{
    computeGroupsHierarchyPrivate(node, nullptr, progress);
}

void kxDisassemblyHierarchyBuilder::copyGroupsHierarchy(const kxDisassemblyHierarchy& reference)
{
    mHierarchy.copyFrom(reference);
    computeGroupsHierarchyPrivate(0, &reference, nullptr);
}

void kxDisassemblyHierarchyBuilder::computeGroupsHierarchyPrivate(unsigned node,
                                                                  const kxDisassemblyHierarchy* reference,
                                                                  kx::kxProgressNotifierInterface* progress)
{
    const unsigned noGroups = mHierarchy.getNode(node).noGroups;
    if (progress)
        progress->setProgressRange(double(std::max(noGroups, 2u) - 1));
    clearSubHierarchy(node);

    const kx2SATSystemRoot root = systemRoot(node);
    mTotalSolverTime = 0.0;
    for (tThreadResources& resources : mThreads) {
        resources.time = 0.0;
        resources.noJobs = 0;
        resources.solver->reorderColumns(root);
    }

    kx2SATState scratch(getMeshGroups().getNoGroups());
    splitGroupsCluster(node, scratch, reference, progress);
    logSolverTime();
    mHierarchy.computeHierarchyIndexing(node);
}

// Resets the subtree of `node` to one leaf: the tree slots and metadata of
// its descendants are wiped and its edges go back to creation order, so that
// splitting it again starts from the same state as the first time.
void kxDisassemblyHierarchyBuilder::clearSubHierarchy(unsigned node)
{
    const unsigned noGroups = mHierarchy.getNode(node).noGroups;
    const tTreeNodeMetadata cleared{kNone, kNone, kNone, kNone, kNone};
    std::fill(mNodeMetadata.begin() + node + 1, mNodeMetadata.begin() + node + 2 * noGroups - 1, cleared);
    mHierarchy.clearSubHierarchy(node);

    const tTreeNodeMetadata& metadata = mNodeMetadata[node];
    std::sort(mEdges.begin() + metadata.firstEdge, mEdges.begin() + metadata.firstEdge + metadata.noEdges,
              [](const tDynamicEdgeData& a, const tDynamicEdgeData& b) { return a.edgeIndex < b.edgeIndex; });
}

void kxDisassemblyHierarchyBuilder::swapConstraints(unsigned i, unsigned j)
{
    std::swap(mEdges[i], mEdges[j]);
}

kx2SATSystemRoot kxDisassemblyHierarchyBuilder::systemRoot(unsigned node) const
{
    const tTreeNodeMetadata& metadata = mNodeMetadata[node];
    return {metadata.firstColumn, metadata.noColumns};
}

void kxDisassemblyHierarchyBuilder::logSolverTime() const
{
    if (!velmora::logEnabled())
        return;
    velmora::LogStream() << "solver time: " << mTotalSolverTime * kSecondsPerMs << " s.";
    double sumTime = 0.0;
    unsigned sumJobs = 0;
    for (unsigned t = 0; t < mNoThreads; ++t) {
        velmora::LogStream() << "t" << t << ": " << mThreads[t].time * kSecondsPerMs << " s. for "
                             << mThreads[t].noJobs << "jobs";
        sumTime += mThreads[t].time;
        sumJobs += mThreads[t].noJobs;
    }
    velmora::LogStream() << "total: " << sumTime * kSecondsPerMs << " s. for " << sumJobs;
}

void kxDisassemblyHierarchyBuilder::splitGroupsCluster(unsigned node, kx2SATState& set,
                                                       const kxDisassemblyHierarchy* reference,
                                                       kx::kxProgressNotifierInterface* progress)
{
    const unsigned noGroups = mHierarchy.getNode(node).noGroups;
    if (noGroups < 2)
        return;
    if (mVerbose)
        velmora::LogStream() << "splitting group: " << node;

    set.clear(false);
    unsigned splitDirection = kNone;
    if (reference)
        cloneSplitConfiguration(*reference, node, splitDirection, set);
    else
        computeBestSplitConfiguration(node, splitDirection, set);

    if (progress)
        progress->incrementProgress(1.0);
    const unsigned noMoving = set.getNoTrueVars();
    if (noMoving == 0 || noMoving == noGroups)
        return;
    splitNode(node, splitDirection, set);

    const unsigned firstChild = mHierarchy.getNode(node).firstChild;
    const unsigned secondChild = mHierarchy.getNode(node).secondChild;
    splitGroupsCluster(firstChild, set, reference, progress);
    splitGroupsCluster(secondChild, set, reference, progress);
}

void kxDisassemblyHierarchyBuilder::cloneSplitConfiguration(const kxDisassemblyHierarchy& reference, unsigned node,
                                                            unsigned& splitDirection, kx2SATState& set) const
{
    const kxDisassemblyHierarchy::tTreeNode& referenceNode = reference.getNode(node);
    if (referenceNode.firstChild == kNone)
        return;
    splitDirection = referenceNode.splitId;
    const kxDisassemblyHierarchy::tTreeNode& moving = reference.getNode(referenceNode.secondChild);
    for (unsigned k = moving.start; k < moving.start + moving.noGroups; ++k)
        set.setTrue(reference.getGroupIdFromOrderedIndex(k));
}

void kxDisassemblyHierarchyBuilder::computeBestSplitConfiguration(unsigned node, unsigned& splitDirection,
                                                                  kx2SATState& set)
{
    const kx::kxTimer timer;
    const kx2SATSystemRoot root = systemRoot(node);
    collectRelaxations(node);

    uint64_t bestCost = kNoCost;
    unsigned bestDirection = kNone;
    for (unsigned pass = 0; pass < kNoPasses && bestCost >= kOneSidedCost; ++pass) {
        const bool bakePass = pass % 2 == 0;
        if (bakePass) {
            for (tThreadResources& resources : mThreads)
                resources.solver->bakeSystem(root, mClustering, pass == 0);
        }
        runSplitPass(bakePass);
        for (const tThreadResources& resources : mThreads) {
            // A thread without a result holds (kNoCost, kNone) and never wins.
            if (std::tie(resources.bestCost, resources.bestDirection) >= std::tie(bestCost, bestDirection))
                continue;
            bestCost = resources.bestCost;
            bestDirection = resources.bestDirection;
            set = *resources.bestSet;
        }
    }
    mTotalSolverTime += timer.getElapsedMs();

    if (bestCost < kOneSidedCost) {
        if (checkDisjointSets(node, set) && mVerbose)
            velmora::LogStream() << node << ": disjoint sets spotted";
        splitDirection = bestDirection;
    }
}

void kxDisassemblyHierarchyBuilder::runSplitPass(bool hardDistant)
{
    for (tThreadResources& resources : mThreads) {
        resources.bestCost = kNoCost;
        resources.bestDirection = kNone;
    }
    tSplitJobs jobs{this, mJobDirections.data(), unsigned(mJobDirections.size()), hardDistant};
    mPool.setJobsData(jobs.noDirections, &jobs);
    mPool.start();
}

// Buckets the node's edges per direction: for every direction k, in edge
// order, one record per edge that admits k in either sense.
void kxDisassemblyHierarchyBuilder::collectRelaxations(unsigned node)
{
    const tTreeNodeMetadata& metadata = mNodeMetadata[node];
    const unsigned first = metadata.firstEdge;
    const unsigned end = first + metadata.noEdges;
    std::fill(mRelaxationCount.begin(), mRelaxationCount.end(), 0u);
    for (unsigned e = first; e < end; ++e) {
        for (const unsigned id : mEdges[e].admissibleIds)
            ++mRelaxationCount[id & kIdMask];
    }
    unsigned offset = 0;
    for (size_t k = 0; k < mRelaxationCount.size(); ++k) {
        mRelaxationStart[k] = offset;
        offset += mRelaxationCount[k];
        mRelaxationCount[k] = 0;
    }
    mRelaxationStart.back() = offset;
    for (unsigned e = first; e < end; ++e) {
        for (unsigned i = 0; i < mEdges[e].admissibleIds.size(); ++i)
            appendRelaxation(mEdges[e], i);
    }
}

// Adds admissible entry `entry` of `edge` to its direction's bucket, merging
// it into the edge's record when the other sense is already there. The first
// matching entry decides a contact edge's penalty and each sense's distant
// penalty.
void kxDisassemblyHierarchyBuilder::appendRelaxation(const tDynamicEdgeData& edge, unsigned entry)
{
    const unsigned id = edge.admissibleIds[entry];
    const unsigned k = id & kIdMask;
    const unsigned sense = id >> 31;
    unsigned& count = mRelaxationCount[k];
    tRelaxation* record = &mRelaxations[mRelaxationStart[k] + count];
    if (count > 0 && record[-1].constraintId == edge.edgeIndex) {
        --record;
    } else {
        *record = tRelaxation{edge.edgeIndex, 0, edge.isDistant, (unsigned char)(entry == 0 ? 1 : 2), {0, 0}};
        ++count;
    }
    if (edge.isDistant && !((record->mask >> sense) & 1u))
        record->distantPenalties[sense] = edge.signedIds[entry];
    record->mask |= (unsigned char)(1u << sense);
}

void kxDisassemblyHierarchyBuilder::relax(kx2SATSolver& solver, const tRelaxation& relaxation, bool hardDistant)
{
    const bool forward = (relaxation.mask & 1u) != 0;
    const bool backward = relaxation.mask > 1;
    if (!relaxation.isDistant) {
        const unsigned p = relaxation.contactPenalty;
        solver.desactivateConstraint(relaxation.constraintId, forward, backward, p, p, false);
    } else if (hardDistant) {
        solver.desactivateConstraint(relaxation.constraintId, !forward, !backward, 0, 0, false);
    } else {
        solver.desactivateConstraint(relaxation.constraintId, true, true, relaxation.distantPenalties[0],
                                     relaxation.distantPenalties[1], true);
    }
}

// Back to the state between jobs: a contact edge hard, a distant edge soft
// with penalty 0.
void kxDisassemblyHierarchyBuilder::restore(kx2SATSolver& solver, const tRelaxation& relaxation)
{
    const bool soft = relaxation.isDistant != 0;
    solver.desactivateConstraint(relaxation.constraintId, soft, soft, 0, 0, false);
}

void kxDisassemblyHierarchyBuilder::testSplitDirection(unsigned direction, unsigned thread, bool hardDistant)
{
    tThreadResources& resources = mThreads[thread];
    kx2SATSolver& solver = *resources.solver;
    const tRelaxation* begin = mRelaxations.data() + mRelaxationStart[direction];
    const tRelaxation* end = begin + mRelaxationCount[direction];
    for (const tRelaxation* r = begin; r != end; ++r)
        relax(solver, *r, hardDistant);

    const kx::kxTimer timer;
    solver.solve();
    resources.time += timer.getElapsedMs();
    ++resources.noJobs;

    for (const tRelaxation* r = end; r != begin; --r)
        restore(solver, r[-1]);

    if (solver.getBestCost() < resources.bestCost) {
        resources.bestDirection = direction;
        *resources.bestSet = solver.getBestSolution();
        resources.bestCost = solver.getBestCost();
    }
}

bool kxDisassemblyHierarchyBuilder::checkDisjointSets(unsigned node, const kx2SATState& set) const
{
    const tTreeNodeMetadata& metadata = mNodeMetadata[node];
    for (unsigned e = metadata.firstEdge; e < metadata.firstEdge + metadata.noEdges; ++e) {
        const tDynamicEdgeData& edge = mEdges[e];
        if (!edge.isDistant && set.getVar(edge.groupA) != set.getVar(edge.groupB))
            return false;
    }
    return true;
}

// Moves the edges of [first, end) that fall on `side` of the split to the
// front of the range, keeping their relative order; returns their number.
unsigned kxDisassemblyHierarchyBuilder::partitionEdges(unsigned first, unsigned end, const kx2SATState& set, int side)
{
    unsigned front = first;
    for (unsigned e = first; e < end; ++e) {
        const unsigned a = set.getVar(mEdges[e].groupA);
        const unsigned b = set.getVar(mEdges[e].groupB);
        const int edgeSide = a != b ? eCrossingEdge : (a == 0 ? eFirstChildEdge : eSecondChildEdge);
        if (edgeSide != side)
            continue;
        if (e != front)
            swapConstraints(e, front);
        ++front;
    }
    return front - first;
}

// Stable partition of the node's range of the group ordering: the groups not
// in `set`, then those in `set`. Returns the number of the first.
unsigned kxDisassemblyHierarchyBuilder::partitionGroupOrdering(const kxDisassemblyHierarchy::tTreeNode& node,
                                                               const kx2SATState& set)
{
    std::vector<unsigned>& ordering = mHierarchy.mGroupIdFromOrderedIndex;
    unsigned written = 0;
    for (const unsigned value : {0u, 1u}) {
        for (unsigned k = node.start; k < node.start + node.noGroups; ++k) {
            if (set.getVar(ordering[k]) == value)
                mScratchOrdering[written++] = ordering[k];
        }
    }
    std::copy(mScratchOrdering.begin(), mScratchOrdering.begin() + node.noGroups, ordering.begin() + node.start);
    return node.noGroups - set.getNoTrueVars();
}

void kxDisassemblyHierarchyBuilder::splitNode(unsigned node, unsigned splitDirection, const kx2SATState& set)
{
    const tTreeNodeMetadata metadata = mNodeMetadata[node];
    const unsigned first = metadata.firstEdge;
    const unsigned end = first + metadata.noEdges;
    const unsigned noCrossing = partitionEdges(first, end, set, eCrossingEdge);
    const unsigned noFirstEdges = partitionEdges(first + noCrossing, end, set, eFirstChildEdge);
    const unsigned noSecondEdges = metadata.noEdges - noCrossing - noFirstEdges;

    const kxDisassemblyHierarchy::tTreeNode parent = mHierarchy.getNode(node);
    const unsigned noFirstGroups = partitionGroupOrdering(parent, set);
    const unsigned firstChild = mHierarchy.requestNewNode(
        {parent.start, noFirstGroups, kNone, kNone, node, kNone});
    const unsigned secondChild = mHierarchy.requestNewNode(
        {parent.start + noFirstGroups, parent.noGroups - noFirstGroups, kNone, kNone, node, kNone});
    kxDisassemblyHierarchy::tTreeNode& split = mHierarchy.editNode(node);
    split.firstChild = firstChild;
    split.secondChild = secondChild;
    split.splitId = splitDirection;

    const kx2SATSystemRoot root = systemRoot(node);
    kx2SATSystemRoot falseSide{0, 0};
    kx2SATSystemRoot trueSide{0, 0};
    for (tThreadResources& resources : mThreads)
        resources.solver->splitSystem(root, set, falseSide, trueSide);
    mNodeMetadata[firstChild] =
        tTreeNodeMetadata{node, first + noCrossing, noFirstEdges, falseSide.firstColumn, falseSide.noColumns};
    mNodeMetadata[secondChild] = tTreeNodeMetadata{node, first + noCrossing + noFirstEdges, noSecondEdges,
                                                   trueSide.firstColumn, trueSide.noColumns};
}
