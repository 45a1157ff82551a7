// kxExplosionDiagram: construction, the reference groups of the leaves, the
// split data of every node (reference pair, anchor, direction, moving side)
// and the consistency pass over the moving sides.
#include "kxExplosionDiagram.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <set>

#include "kxHierarchyWalk.h"

using kxHierarchyWalk::crossingEdges;
using kxHierarchyWalk::forEachGroup;
using kxHierarchyWalk::isInnerNode;
using Vec3f = Wm4::Vector3<float>;

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

const kxExplosionDiagram::tSplitData kResetSplitData = {Vec3f::ZERO, Vec3f::ZERO, kxExplosionDiagram::kNone,
                                                         kxExplosionDiagram::kNone};

// Width of the common part of two prisms across their axis: the smallest
// overlap over the four perpendicular directions (negative when apart).
float overlapAcrossAxis(const kxExplosionDiagram::tBoundingPlanesMinMax& a,
                        const kxExplosionDiagram::tBoundingPlanesMinMax& b)
{
    float overlap = kInfinity;
    for (int k = 1; k < 5; ++k)
        overlap = std::min(overlap, std::min(b.range[k].max - a.range[k].min, a.range[k].max - b.range[k].min));
    return overlap;
}

bool overlapAlongAxis(const kxExplosionDiagram::tBoundingPlanesMinMax& a,
                      const kxExplosionDiagram::tBoundingPlanesMinMax& b)
{
    return a.range[0].max > b.range[0].min && b.range[0].max > a.range[0].min;
}

// The point p minimising the sum over the five directions dk of
// (dk · p - ck)², ck the centre of the two prisms' common interval on dk.
Vec3f leastSquaresAnchor(const kxExplosionDiagram::tOrthogonalDirectionSet& directions,
                         const kxExplosionDiagram::tBoundingPlanesMinMax& a,
                         const kxExplosionDiagram::tBoundingPlanesMinMax& b)
{
    Wm4::Matrix3<double> normal;
    Wm4::Vector3<double> rhs(0.0, 0.0, 0.0);
    for (int k = 0; k < 5; ++k) {
        const Vec3f& dk = directions.directions[k];
        const Wm4::Vector3<double> d(dk.X(), dk.Y(), dk.Z());
        const float ck = 0.5f * (std::max(a.range[k].min, b.range[k].min) + std::min(a.range[k].max, b.range[k].max));
        normal += Wm4::Matrix3<double>::TensorProduct(d, d);
        rhs += d * double(ck);
    }
    const Wm4::Vector3<double> p = normal.Inverse() * rhs;
    return Vec3f(float(p.X()), float(p.Y()), float(p.Z()));
}

}  // namespace

kxExplosionDiagram::kxExplosionDiagram(const kxDisassemblyHierarchyBuilder& builder)
    : mHierarchy(&builder.getHierarchy()),
      mBuilder(&builder),
      mContactDiagram(&builder.getContactDiagram()),
      mMeshGroups(&builder.getMeshGroups()),
      mSplitDistance(1.0f),
      mGroupMarks(builder.getMeshGroups().getNoGroups()),
      mReferenceGroups(builder.getMeshGroups().getNoGroups(), 0u),
      mFinalPerGroupTranslations(builder.getMeshGroups().getNoGroups(), Vec3f::ZERO),
      mGroupMinSplitDistances(builder.getMeshGroups().getNoGroups(), 0.0f)
{
    mAxes.reserve(mHierarchy->getNoNodes());
}

kxExplosionDiagram::~kxExplosionDiagram() = default;

unsigned kxExplosionDiagram::firstReferenceGroup(const tSplitData& split)
{
    const unsigned group = split.firstGroupAndMoveFlag >> 1;
    return group == kNoGroupBits ? kNone : group;
}

bool kxExplosionDiagram::hasReferencePair(const tSplitData& split)
{
    return (split.firstGroupAndMoveFlag >> 1) != kNoGroupBits && split.secondGroup != kNone;
}

unsigned kxExplosionDiagram::movingReferenceGroup(const tSplitData& split)
{
    if (!hasReferencePair(split))
        return kNone;
    return firstChildMoves(split) ? firstReferenceGroup(split) : split.secondGroup;
}

void kxExplosionDiagram::computeTranslationHierarchy(float splitDistance)
{
    computeReferenceGroups();
    resetResults(splitDistance);

    tDirectionSets directions;
    tPrisms planes;
    computeBoundingPrisms(directions, planes);
    const std::vector<float> groupSizes = computeGroupSizes(planes, static_cast<unsigned>(directions.size()));

    splitHierarchyIteration(0, directions, planes, groupSizes);
    computePerSplitMovingChild();
    fixTranslationAlignment(directions, planes, mSplitData);

    tPrisms workPlanes(mMeshGroups->getNoGroups());
    std::vector<tInterval> forbiddenShifts;
    translationHierarchyIterationBottomUp(0, directions, planes, workPlanes, splitDistance);
    computeFinalTranslations(0, Vec3f::ZERO);
    translationHierarchyIterationTopDown(0, directions, planes, workPlanes, forbiddenShifts, splitDistance);
}

void kxExplosionDiagram::computeReferenceGroups()
{
    for (unsigned node = 0; node < mHierarchy->getNoNodes(); ++node) {
        const kxDisassemblyHierarchy::tTreeNode& leaf = mHierarchy->getNode(node);
        if (isInnerNode(*mHierarchy, node) || kxHierarchyWalk::isUnusedSlot(leaf))
            continue;
        const unsigned reference = mHierarchy->getGroupIdFromOrderedIndex(leaf.start);
        forEachGroup(*mHierarchy, node, [&](unsigned group) { mReferenceGroups[group] = reference; });
    }
}

void kxExplosionDiagram::resetResults(float splitDistance)
{
    const unsigned noNodes = mHierarchy->getNoNodes();
    mSplitDistance = splitDistance;
    std::fill(mGroupMinSplitDistances.begin(), mGroupMinSplitDistances.end(), -1.0f);
    mPerSplitTranslations.assign(noNodes, Vec3f::ZERO);
    mSplitData.assign(noNodes, kResetSplitData);
    std::fill(mFinalPerGroupTranslations.begin(), mFinalPerGroupTranslations.end(), Vec3f::ZERO);
}

std::vector<float> kxExplosionDiagram::computeGroupSizes(const tPrisms& planes, unsigned noDirections) const
{
    // A group without vertices has empty (+inf, -inf) ranges, whose widths
    // are -inf: its size stays 0.
    std::vector<float> sizes(mMeshGroups->getNoGroups(), 0.0f);
    for (unsigned group = 0; group < sizes.size(); ++group) {
        for (unsigned dirId = 0; dirId < noDirections; ++dirId) {
            for (const tBoundingPlanesMinMax::tRange& range : prism(planes, group, dirId).range)
                sizes[group] = std::max(sizes[group], range.max - range.min);
        }
    }
    return sizes;
}

void kxExplosionDiagram::splitHierarchyIteration(unsigned node, const tDirectionSets& directions,
                                                 const tPrisms& planes, const std::vector<float>& groupSizes)
{
    while (isInnerNode(*mHierarchy, node)) {
        mSplitData[node] = computeSplitData(node, directions, planes, groupSizes);
        // Without a reference pair the subtree is deliberately left unexploded.
        if (!hasReferencePair(mSplitData[node]))
            return;
        const kxDisassemblyHierarchy::tTreeNode& split = mHierarchy->getNode(node);
        splitHierarchyIteration(split.firstChild, directions, planes, groupSizes);
        node = split.secondChild;
    }
}

kxExplosionDiagram::tSplitData kxExplosionDiagram::computeSplitData(unsigned node, const tDirectionSets& directions,
                                                                    const tPrisms& planes,
                                                                    const std::vector<float>& groupSizes)
{
    tSplitData split = kResetSplitData;
    split.direction = directions[mHierarchy->getNode(node).splitId].directions[0];
    unsigned a = kNone, b = kNone;
    if (!findContactPair(node, planes, split, a, b))
        findProximityPair(node, directions, planes, split, a, b);
    // Without a pair the word stays all ones, whichever side would move.
    split.firstGroupAndMoveFlag = a == kNone ? kNone : (a << 1) | movingChildFlag(node, groupSizes);
    split.secondGroup = b;
    return split;
}

bool kxExplosionDiagram::findContactPair(unsigned node, const tPrisms& planes, tSplitData& split, unsigned& a,
                                         unsigned& b) const
{
    const unsigned dirId = mHierarchy->getNode(node).splitId;
    const kxHierarchyWalk::tEdgeRange edges = crossingEdges(*mBuilder, node);
    bool anyActive = false;
    float bestDepth = -kInfinity;
    for (unsigned e = edges.first; e < edges.end; ++e) {
        const kxDisassemblyHierarchyBuilder::tDynamicEdgeData& edge = mBuilder->getEdgeData(e);
        if (edge.isDistant != 0)
            continue;
        anyActive = true;
        const bool aFirst =
            mHierarchy->getOrderedIndexFromGroupId(edge.groupA) < mHierarchy->getOrderedIndexFromGroupId(edge.groupB);
        const unsigned front = aFirst ? edge.groupA : edge.groupB;
        const unsigned back = aFirst ? edge.groupB : edge.groupA;
        const float depth = prism(planes, front, dirId).range[0].max - prism(planes, back, dirId).range[0].min;
        if (!(depth > bestDepth))
            continue;
        bestDepth = depth;
        a = front;
        b = back;
        split.point = edge.contactPoint;
        // The contact's own direction along the split line, in the split's sense.
        const size_t noOwn = std::min(edge.signedIds.size(), edge.directions.size());
        for (size_t i = 0; i < noOwn; ++i) {
            if ((edge.signedIds[i] & kxDisassemblyHierarchyBuilder::kIdMask) != dirId)
                continue;
            const Wm4::Vector3<double>& own = edge.directions[i];
            const Vec3f direction(float(own.X()), float(own.Y()), float(own.Z()));
            split.direction = (edge.signedIds[i] & kxDisassemblyHierarchyBuilder::kSignBit) ? -direction : direction;
            break;
        }
    }
    return anyActive;
}

void kxExplosionDiagram::markProximityCandidates(unsigned node)
{
    kx2SATState& marks = *mGroupMarks;
    marks.clear(false);
    // The groups that touched the other side of the enclosing split are the
    // likely neighbours across this one. At the root no node is named, so no
    // group is marked and every group of both children is considered.
    const unsigned related = mBuilder->getNodeMetadata(node).relatedNode;
    if (related != kNone && isInnerNode(*mHierarchy, related)) {
        const kxHierarchyWalk::tEdgeRange edges = crossingEdges(*mBuilder, related);
        for (unsigned e = edges.first; e < edges.end; ++e) {
            const kxDisassemblyHierarchyBuilder::tDynamicEdgeData& edge = mBuilder->getEdgeData(e);
            if (edge.isDistant != 0)
                continue;
            marks.setTrue(edge.groupA);
            marks.setTrue(edge.groupB);
        }
    }
    const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
    for (unsigned child : {tree.firstChild, tree.secondChild}) {
        unsigned noMarked = 0;
        forEachGroup(*mHierarchy, child, [&](unsigned group) { noMarked += marks.getVar(group); });
        if (noMarked == 0)
            forEachGroup(*mHierarchy, child, [&](unsigned group) { marks.setTrue(group); });
    }
}

void kxExplosionDiagram::findProximityPair(unsigned node, const tDirectionSets& directions, const tPrisms& planes,
                                           tSplitData& split, unsigned& a, unsigned& b)
{
    markProximityCandidates(node);
    const kx2SATState& marks = *mGroupMarks;
    const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
    const unsigned dirId = tree.splitId;
    // The pair overlapping most across the axis, preferring pairs that also
    // overlap along it; the first of equals wins.
    float bestAlong = -kInfinity, bestAny = -kInfinity;
    unsigned alongA = kNone, alongB = kNone, anyA = kNone, anyB = kNone;
    forEachGroup(*mHierarchy, tree.firstChild, [&](unsigned g1) {
        if (!marks.getVar(g1))
            return;
        forEachGroup(*mHierarchy, tree.secondChild, [&](unsigned g2) {
            if (!marks.getVar(g2))
                return;
            const tBoundingPlanesMinMax& p1 = prism(planes, g1, dirId);
            const tBoundingPlanesMinMax& p2 = prism(planes, g2, dirId);
            const float overlap = overlapAcrossAxis(p1, p2);
            if (overlapAlongAxis(p1, p2) && overlap > bestAlong) {
                bestAlong = overlap;
                alongA = g1;
                alongB = g2;
            }
            if (overlap > bestAny) {
                bestAny = overlap;
                anyA = g1;
                anyB = g2;
            }
        });
    });
    a = alongA != kNone ? alongA : anyA;
    b = alongA != kNone ? alongB : anyB;
    if (a != kNone)
        split.point = leastSquaresAnchor(directions[dirId], prism(planes, a, dirId), prism(planes, b, dirId));
}

unsigned kxExplosionDiagram::movingChildFlag(unsigned node, const std::vector<float>& groupSizes) const
{
    const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
    const unsigned noFirst = mHierarchy->getNode(tree.firstChild).noGroups;
    const unsigned noSecond = mHierarchy->getNode(tree.secondChild).noGroups;
    if (noFirst != noSecond)
        return noFirst < noSecond ? 1u : 0u;  // the smaller side moves
    auto largestGroup = [&](unsigned child) {
        float largest = 0.0f;
        forEachGroup(*mHierarchy, child, [&](unsigned group) { largest = std::max(largest, groupSizes[group]); });
        return largest;
    };
    return largestGroup(tree.secondChild) > largestGroup(tree.firstChild) ? 1u : 0u;
}

void kxExplosionDiagram::computePerSplitMovingChild()
{
    // Splits that share a reference group are linked; each connected set is
    // walked breadth first from its smallest node id, and a split whose
    // wanted moving group was already moved by an earlier split moves its
    // other side instead.
    const unsigned noGroups = mMeshGroups->getNoGroups();
    std::vector<std::vector<unsigned>> splitsOfGroup(noGroups);
    std::set<unsigned> unvisited;
    for (unsigned node = 0; node < mSplitData.size(); ++node) {
        const tSplitData& split = mSplitData[node];
        if (!hasReferencePair(split))
            continue;
        splitsOfGroup[mReferenceGroups[firstReferenceGroup(split)]].push_back(node);
        splitsOfGroup[mReferenceGroups[split.secondGroup]].push_back(node);
        unvisited.insert(node);
    }
    kx2SATState moved(noGroups);
    std::deque<unsigned> queue;
    while (!unvisited.empty()) {
        queue.push_back(*unvisited.begin());
        unvisited.erase(unvisited.begin());
        while (!queue.empty()) {
            tSplitData& split = mSplitData[queue.front()];
            queue.pop_front();
            const unsigned first = mReferenceGroups[firstReferenceGroup(split)];
            const unsigned second = mReferenceGroups[split.secondGroup];
            unsigned mover = firstChildMoves(split) ? first : second;
            if (moved.getVar(mover)) {
                split.firstGroupAndMoveFlag ^= 1u;
                mover ^= first ^ second;
            }
            moved.setTrue(mover);
            for (unsigned next : splitsOfGroup[mover]) {
                if (unvisited.erase(next) != 0)
                    queue.push_back(next);
            }
        }
    }
}

const kxExplosionDiagram::tBoundingPlanesMinMax& kxExplosionDiagram::prism(const tPrisms& planes, unsigned group,
                                                                           unsigned dirId) const
{
    return planes[size_t(group) * mContactDiagram->getNoDirections() + dirId];
}
