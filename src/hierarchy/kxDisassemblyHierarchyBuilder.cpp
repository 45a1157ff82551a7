// Construction of the builder: constraint edges from the contact diagram,
// widening of their admissible directions, per-group direction lists,
// distant constraints and the per-thread solvers.
#include "kxDisassemblyHierarchyBuilder.h"

#include <algorithm>
#include <cmath>

namespace {

// A direction whose dot product with a basis vector is below this points
// against it.
constexpr double kOppositeDot = -0.99;
// A direction whose absolute dot product with every basis vector is at most
// this is orthogonal to the basis.
constexpr double kOrthogonalDot = 0.01;
constexpr unsigned kMaxBasis = 3;

// The diagram's id 2k + s rotated right by one bit: k | (s << 31).
unsigned signedIdFromDiagramId(unsigned id)
{
    return (id >> 1) | (id << 31);
}

// Up to three mutually orthogonal directions of an edge, and per basis vector
// whether the edge also allows its opposite.
struct tDirectionBasis {
    Wm4::Vector3<double> vectors[kMaxBasis];
    unsigned size = 0;
    unsigned opposite = 0;

    // Bit j set: the edge does not allow the opposite of basis vector j.
    unsigned freeMask() const { return opposite ^ 7u; }
};

tDirectionBasis computeDirectionBasis(const std::vector<Wm4::Vector3<double>>& directions)
{
    tDirectionBasis basis;
    for (const Wm4::Vector3<double>& d : directions) {
        bool orthogonal = true;
        for (unsigned j = 0; j < basis.size; ++j) {
            const double dot = d.Dot(basis.vectors[j]);
            if (dot < kOppositeDot)
                basis.opposite |= 1u << j;
            if (std::fabs(dot) > kOrthogonalDot)
                orthogonal = false;
        }
        if (orthogonal && basis.size < kMaxBasis)
            basis.vectors[basis.size++] = d;
    }
    return basis;
}

}  // namespace

kxDisassemblyHierarchyBuilder::kxDisassemblyHierarchyBuilder(kxDisassemblyHierarchy& hierarchy,
                                                             const kxContactDiagram& diagram, unsigned nThreads)
    : mHierarchy(hierarchy),
      mContactDiagram(&diagram),
      mClustering(nullptr),
      mNoThreads(std::max(nThreads, 1u)),
      mNoDistantConstraints(0),
      mTotalSolverTime(0.0),
      mVerbose(0),
      mPool(kxSplitDirectionTester(), mNoThreads, nullptr)
{
    buildDynamicGraph();
    fillEdgeDisassemblyDirectionData();
    initializePerGroupDirections();
}

kxDisassemblyHierarchyBuilder::~kxDisassemblyHierarchyBuilder() = default;

void kxDisassemblyHierarchyBuilder::buildDynamicGraph()
{
    const unsigned noContacts = mContactDiagram->getNoContacts();
    mEdges.reserve(noContacts);
    for (unsigned e = 0; e < noContacts; ++e) {
        const kxContactDiagram::tContactEdge& contact = mContactDiagram->getEdgeData(e);
        tDynamicEdgeData edge;
        edge.groupA = contact.groupId0;
        edge.groupB = contact.groupId1;
        edge.edgeIndex = e;
        edge.contactPoint = mContactDiagram->getContactPoint(e);
        edge.isDistant = 0;
        edge.directions = mContactDiagram->getDisassemblyDirections(e);
        const std::vector<unsigned>& diagramIds = mContactDiagram->getDisassemblyDirectionIds(e);
        edge.signedIds.resize(diagramIds.size());
        std::transform(diagramIds.begin(), diagramIds.end(), edge.signedIds.begin(), signedIdFromDiagramId);
        mEdges.push_back(std::move(edge));
    }
}

// Runs in the constructor, when every edge is a contact edge.
void kxDisassemblyHierarchyBuilder::initializePerGroupDirections()
{
    const unsigned noGroups = getMeshGroups().getNoGroups();
    std::vector<kx2SATStateValue> admitted(noGroups, kx2SATStateValue(mContactDiagram->getNoDirections()));
    for (const tDynamicEdgeData& edge : mEdges) {
        for (const unsigned id : edge.admissibleIds) {
            admitted[edge.groupA]->setTrue(id & kIdMask);
            admitted[edge.groupB]->setTrue(id & kIdMask);
        }
    }
    mPerGroupDirections.assign(noGroups, {});
    for (unsigned g = 0; g < noGroups; ++g)
        admitted[g]->forEachTrueVar([&](unsigned k) { mPerGroupDirections[g].push_back(k); });
}

// Runs in the constructor, when every edge is a contact edge.
void kxDisassemblyHierarchyBuilder::fillEdgeDisassemblyDirectionData()
{
    const double tolerance = double(mContactDiagram->getAngleTolerance());
    const double sinTolerance = std::sin(tolerance * Wm4::Math<double>::PI / 180.0);
    std::vector<bool> ownIds(mContactDiagram->getNoDirections());
    for (tDynamicEdgeData& edge : mEdges) {
        std::fill(ownIds.begin(), ownIds.end(), false);
        for (const unsigned id : edge.signedIds)
            ownIds[id & kIdMask] = true;
        edge.admissibleIds = edge.signedIds;
        widenAdmissibleIds(edge, ownIds, sinTolerance);
    }
}

// Adds every set direction, not among the edge's own, that lies in the
// edge's free line, plane or space (within the angle tolerance), in the
// senses the basis allows.
void kxDisassemblyHierarchyBuilder::widenAdmissibleIds(tDynamicEdgeData& edge, const std::vector<bool>& ownIds,
                                                       double sinTolerance) const
{
    const tDirectionBasis basis = computeDirectionBasis(edge.directions);
    if (basis.size == 0)
        return;
    const unsigned freeMask = basis.freeMask();
    const double sinSquared = sinTolerance * sinTolerance;
    const unsigned noDirections = mContactDiagram->getNoDirections();
    for (unsigned k = 0; k < noDirections; ++k) {
        if (ownIds[k])
            continue;
        const Wm4::Vector3<double>& u = mContactDiagram->getDirectionFromId(k);
        double c[kMaxBasis];
        double inSpan = 0.0;
        for (unsigned j = 0; j < basis.size; ++j) {
            c[j] = basis.vectors[j].Dot(u);
            inSpan += c[j] * c[j];
        }
        if (basis.size < kMaxBasis && 1.0 - inSpan > sinSquared)
            continue;
        bool forwardBlocked = false;
        bool backwardBlocked = false;
        for (unsigned j = 0; j < basis.size; ++j) {
            const bool oneSided = (freeMask >> j) & 1u;
            forwardBlocked = forwardBlocked || (oneSided && c[j] < -sinTolerance);
            backwardBlocked = backwardBlocked || (oneSided && c[j] > sinTolerance);
        }
        if (!forwardBlocked)
            edge.admissibleIds.push_back(k);
        if (!backwardBlocked)
            edge.admissibleIds.push_back(k | kSignBit);
    }
}

void kxDisassemblyHierarchyBuilder::setNoDistantConstraints(unsigned n)
{
    mEdges.reserve(mEdges.size() + n);
}

void kxDisassemblyHierarchyBuilder::pushDistantConstraint(unsigned groupA, unsigned groupB,
                                                          const std::vector<unsigned>& directionIds,
                                                          std::vector<unsigned>& penalties)
{
    tDynamicEdgeData edge;
    edge.groupA = groupA;
    edge.groupB = groupB;
    edge.edgeIndex = unsigned(mEdges.size());
    edge.contactPoint = Wm4::Vector3<float>(0.0f, 0.0f, 0.0f);
    edge.isDistant = 1;
    edge.signedIds = penalties;
    edge.admissibleIds = directionIds;
    mEdges.push_back(std::move(edge));
    ++mNoDistantConstraints;
}

void kxDisassemblyHierarchyBuilder::initSolver()
{
    const unsigned noGroups = getMeshGroups().getNoGroups();
    const unsigned noEdges = getNoEdges();
    mThreads.clear();
    mThreads.resize(mNoThreads);
    for (tThreadResources& resources : mThreads) {
        resources.solver = std::make_unique<kx2SATSolver>(noGroups, noEdges);
        resources.bestSet = std::make_unique<kx2SATState>(noGroups);
    }
    for (const tDynamicEdgeData& edge : mEdges) {
        for (tThreadResources& resources : mThreads)
            resources.solver->addNewConstraint(edge.edgeIndex, edge.groupA, edge.groupB, edge.isDistant == 0);
    }

    const unsigned noNodes = mHierarchy.getNoNodes();
    mNodeMetadata.assign(noNodes, tTreeNodeMetadata{kNone, kNone, kNone, kNone, kNone});
    mNodeMetadata[0] = tTreeNodeMetadata{kNone, 0, noEdges, 0, noGroups + 2 * noEdges};

    const unsigned noDirections = mContactDiagram->getNoDirections();
    mJobDirections.resize(noDirections);
    for (unsigned k = 0; k < noDirections; ++k)
        mJobDirections[k] = k;
    size_t noAdmissible = 0;
    for (const tDynamicEdgeData& edge : mEdges)
        noAdmissible += edge.admissibleIds.size();
    mRelaxations.resize(noAdmissible);
    mRelaxationStart.assign(noDirections + 1, 0);
    mRelaxationCount.assign(noDirections, 0);
    mScratchOrdering.resize(noGroups);
}
