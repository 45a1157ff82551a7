// kxDisassemblyHierarchyBuilder: fills a kxDisassemblyHierarchy by recursive
// splitting. The contact diagram's edges become constraint edges between
// groups (plus any distant-blocking constraints pushed before initSolver);
// every worker thread gets its own dancing-links solver over one boolean
// variable per group; for each node, every direction of the diagram's
// direction set is tested as one job, and the two-sided split of lowest packed
// cost becomes the node's children (the moving side, the solver's true side,
// is the second child). The explosion diagram and the single-part procedure
// read edges and per-node records through the accessors.
//
// Direction words. An entry of signedIds (contact edge) or admissibleIds is
// k | (s << 31): k the index of a line of the diagram's direction set, s = 1
// for the opposite sense of the stored direction. Rotating it left by one bit
// gives the diagram's signed id 2k + s. An admissibleIds entry with s = 0 says
// that groupA may be translated along +D[k] away from groupB (s = 1: along
// -D[k]). The splitId of a node is a plain k: the node's second child (the
// moving side) leaves along +D[k], equivalently the first child along -D[k].
//
// Invariants:
// - the edge records of a node are the contiguous range [firstEdge,
//   firstEdge + noEdges) of its metadata and join only groups of that node;
//   after a split the crossing edges come first, then the first child's range,
//   then the second child's;
// - edgeIndex of an edge record is its constraint id in every solver (its
//   position when it was created), whatever later swaps did to its position;
// - all per-thread solvers hold the same column layout: every reorder and
//   split is applied to each of them;
// - between jobs every relaxed constraint is restored (contact edges hard,
//   distant edges soft with penalty 0).
//
// Results never depend on the number of threads: a job's result depends only
// on its direction, and between threads the lowest cost wins, on equal cost
// the lowest direction id.
//
// Choices made here where the rules leave room:
// - bakeSystem flag: true in pass 0 (every outermost cluster smaller than the
//   node is kept whole, disassemblable or not), false in pass 2 (only clusters
//   not marked disassemblable are kept whole). Passes 1 and 3 reuse the system
//   baked by the pass before them.
// - penalty of a relaxed contact edge: 1 when the edge's first admissible
//   entry (its primary removal direction, as motion analysis ranked it) is
//   along the tested direction, 2 otherwise; so a split prefers directions
//   that the touching parts themselves favour.
// - relatedNode: all ones at the root, the parent's id for every other node.
//   The parent's crossing edges ([parent.firstEdge, firstChild.firstEdge))
//   are the edges that joined this node's groups to its sibling's.
// - checkDisjointSets(node, set): true when no contact edge of the node
//   crosses the split, i.e. the two sides do not touch at all (they are held
//   only through the rest of the assembly or not at all). It only reports; the
//   split is kept either way.
// - grouping of the edges after a split: crossing edges, then the first
//   child's, then the second child's; the crossing and first-child edges keep
//   their relative order, the second child's are left as the swaps leave
//   them. Re-splitting a node first puts its range back in creation order.
// - a job relaxes, in edge order, only the node's edges that admit its
//   direction (bucketed per direction once per node) and restores them in
//   reverse order; that bucket is its list of undo records.
// - a distant edge's edgeIndex is its position in the edge array when pushed.
// - the per-group direction lists are built after the admissible directions
//   are widened, so they hold every direction a group may leave a contact in.
// - nThreads 0 is taken as 1.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Wm4.h"
#include "kx2SATSolver.h"
#include "kx2SATState.h"
#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxGroupsClustering.h"
#include "kxMeshGroups.h"
#include "kxMiniThreadPool.h"
#include "kxProgressNotifierInterface.h"

// Job functor of the split search: job j tests direction j of the current
// node on the calling worker's solver. Stateless; everything comes through
// the jobs data (the builder's split job context).
struct kxSplitDirectionTester {
    void operator()(unsigned jobIndex, unsigned threadIndex, void* jobsData) const;
};

class kxDisassemblyHierarchyBuilder {
public:
    static constexpr unsigned kNone = 0xFFFFFFFFu;
    static constexpr unsigned kSignBit = 0x80000000u;
    static constexpr unsigned kIdMask = 0x7FFFFFFFu;

    // One constraint between two groups: a contact of the diagram or a
    // distant-blocking pair.
    struct tDynamicEdgeData {
        unsigned groupA;
        unsigned groupB;
        unsigned edgeIndex;                            // diagram edge (contact) / push position (distant)
        Wm4::Vector3<float> contactPoint;              // zero for a distant edge
        unsigned char isDistant;                       // 0 contact, 1 distant
        std::vector<Wm4::Vector3<double>> directions;  // the contact's own removal directions
        std::vector<unsigned> signedIds;     // contact: ids of `directions`; distant: penalties per admissibleIds
        std::vector<unsigned> admissibleIds; // every set direction along which A and B may separate
    };

    // Per hierarchy node; all ones in unused slots.
    struct tTreeNodeMetadata {
        unsigned relatedNode; // all ones at the root, else the parent
        unsigned firstEdge;   // the node's edge range
        unsigned noEdges;
        unsigned firstColumn; // the node's system in the solvers
        unsigned noColumns;
    };

    // Stores the three, builds the constraint edges from the diagram (whose
    // direction set must have been computed) and widens their admissible
    // directions. The solvers are made later by initSolver.
    kxDisassemblyHierarchyBuilder(kxDisassemblyHierarchy& hierarchy, const kxContactDiagram& diagram,
                                  unsigned nThreads);
    ~kxDisassemblyHierarchyBuilder();
    kxDisassemblyHierarchyBuilder(const kxDisassemblyHierarchyBuilder&) = delete;
    kxDisassemblyHierarchyBuilder& operator=(const kxDisassemblyHierarchyBuilder&) = delete;

    // Reserves room for n distant constraints.
    void setNoDistantConstraints(unsigned n);
    // Appends a distant edge: admissibleIds = directionIds (sign in bit 31,
    // each a direction along which A moving away from B is blocked),
    // signedIds = penalties (one per id). Only before initSolver.
    void pushDistantConstraint(unsigned groupA, unsigned groupB, const std::vector<unsigned>& directionIds,
                               std::vector<unsigned>& penalties);
    // Clusters kept whole by splits (null: none); not owned.
    void setGroupsClustering(kxGroupsClustering* clustering) { mClustering = clustering; }

    // Creates one solver and best set per thread and adds every
    // edge as a constraint (contact edges hard, distant edges inactive); sets
    // the root's metadata. Call once, after the last pushDistantConstraint.
    void initSolver();

    // Splits the subtree of `node` from scratch (node 0: the whole tree).
    // `progress` (may be null) gets the number of splits of the subtree as
    // its range and one step per node examined.
    void computeGroupsHierarchy(unsigned node, kx::kxProgressNotifierInterface* progress);
    // Copies `reference` (over the same groups) into the hierarchy and rebuilds
    // the edge ranges and solver systems for it, taking each split from the
    // reference instead of searching. Requires initSolver.
    void copyGroupsHierarchy(const kxDisassemblyHierarchy& reference);

    // True when no contact edge of `node` crosses the split of its groups by
    // `set` (the moving side): the two sides do not touch.
    bool checkDisjointSets(unsigned node, const kx2SATState& set) const;

    void setVerbose(bool verbose) { mVerbose = verbose ? 1 : 0; }
    bool getVerbose() const { return mVerbose != 0; }

    unsigned getNoEdges() const { return unsigned(mEdges.size()); }
    const tDynamicEdgeData& getEdgeData(unsigned i) const { return mEdges[i]; }
    const tTreeNodeMetadata& getNodeMetadata(unsigned node) const { return mNodeMetadata[node]; }
    unsigned getNoDistantConstraints() const { return mNoDistantConstraints; }
    // Ascending direction ids (k, no sign) admitted by some contact edge of the group.
    const std::vector<unsigned>& getPerGroupDirections(unsigned group) const { return mPerGroupDirections[group]; }

    const kxDisassemblyHierarchy& getHierarchy() const { return mHierarchy; }
    const kxContactDiagram& getContactDiagram() const { return *mContactDiagram; }
    const kxMeshGroups& getMeshGroups() const { return mHierarchy.getMeshGroups(); }
    kxGroupsClustering* getGroupsClustering() const { return mClustering; }
    unsigned getNoThreads() const { return mNoThreads; }

    // Timing and job counts of the last computeGroupsHierarchy or
    // copyGroupsHierarchy (milliseconds); per thread only after initSolver.
    double getTotalSolverTime() const { return mTotalSolverTime; }
    double getThreadSolverTime(unsigned thread) const { return mThreads[thread].time; }
    unsigned getThreadNoJobs(unsigned thread) const { return mThreads[thread].noJobs; }

private:
    friend struct kxSplitDirectionTester;

    // One constraint to relax while a direction is tested: the two-bit mask
    // of the senses admitted along it (bit 0: A may move along +D[k], bit 1:
    // along -D[k]), the penalty of a contact edge, those of a distant edge per
    // sense. A job relaxes the entries of its direction in edge order and
    // restores them in reverse order.
    struct tRelaxation {
        unsigned constraintId;
        unsigned char mask;
        unsigned char isDistant;
        unsigned char contactPenalty;
        unsigned distantPenalties[2];
    };

    struct tThreadResources {
        std::unique_ptr<kx2SATSolver> solver;
        std::unique_ptr<kx2SATState> bestSet;
        uint64_t bestCost = ~uint64_t(0);
        unsigned bestDirection = kNone;
        double time = 0.0;
        unsigned noJobs = 0;
    };

    // What the split jobs of one pass read.
    struct tSplitJobs {
        kxDisassemblyHierarchyBuilder* builder;
        const unsigned* directions; // one per job
        unsigned noDirections;
        bool hardDistant; // distant edges become hard (passes 0, 2) or soft with their penalties (1, 3)
    };

    void buildDynamicGraph();
    void initializePerGroupDirections();
    void fillEdgeDisassemblyDirectionData();
    void widenAdmissibleIds(tDynamicEdgeData& edge, const std::vector<bool>& ownIds, double sinTolerance) const;

    void computeGroupsHierarchyPrivate(unsigned node, const kxDisassemblyHierarchy* reference,
                                       kx::kxProgressNotifierInterface* progress);
    void clearSubHierarchy(unsigned node);
    void splitGroupsCluster(unsigned node, kx2SATState& set, const kxDisassemblyHierarchy* reference,
                            kx::kxProgressNotifierInterface* progress);
    void computeBestSplitConfiguration(unsigned node, unsigned& splitDirection, kx2SATState& set);
    void cloneSplitConfiguration(const kxDisassemblyHierarchy& reference, unsigned node, unsigned& splitDirection,
                                 kx2SATState& set) const;
    void runSplitPass(bool hardDistant);
    // The node's system: its range of solver columns.
    kx2SATSystemRoot systemRoot(unsigned node) const;
    void logSolverTime() const;

    // Split one node's records by `set`: edges, group ordering, children, systems.
    unsigned partitionEdges(unsigned first, unsigned end, const kx2SATState& set, int side);
    void swapConstraints(unsigned i, unsigned j);
    unsigned partitionGroupOrdering(const kxDisassemblyHierarchy::tTreeNode& node, const kx2SATState& set);
    void splitNode(unsigned node, unsigned splitDirection, const kx2SATState& set);

    // Per direction, the node's constraints that admit it (mRelaxations).
    void collectRelaxations(unsigned node);
    void appendRelaxation(const tDynamicEdgeData& edge, unsigned entry);
    // One direction on one thread's solver (the body of a split job).
    void testSplitDirection(unsigned direction, unsigned thread, bool hardDistant);
    static void relax(kx2SATSolver& solver, const tRelaxation& relaxation, bool hardDistant);
    static void restore(kx2SATSolver& solver, const tRelaxation& relaxation);

    kxDisassemblyHierarchy& mHierarchy;
    const kxContactDiagram* mContactDiagram;
    kxGroupsClustering* mClustering;
    unsigned mNoThreads;
    unsigned mNoDistantConstraints;
    double mTotalSolverTime;
    unsigned char mVerbose;

    std::vector<tDynamicEdgeData> mEdges;
    std::vector<tTreeNodeMetadata> mNodeMetadata;
    std::vector<std::vector<unsigned>> mPerGroupDirections;
    std::vector<tThreadResources> mThreads;
    std::vector<unsigned> mJobDirections;
    std::vector<tRelaxation> mRelaxations;   // grouped per direction
    std::vector<unsigned> mRelaxationStart;  // per direction, + 1 end
    std::vector<unsigned> mRelaxationCount;  // per direction
    std::vector<unsigned> mScratchOrdering;
    kxMiniThreadPool<kxSplitDirectionTester> mPool;
};
