// kxExplosionDiagram: the translation passes over the hierarchy (bottom-up
// clearing, summing into per-group translations, the final correction to the
// smallest admissible distance) and the explosion axes.
#include <algorithm>
#include <limits>

#include "kxExplosionDiagram.h"
#include "kxHierarchyWalk.h"

using kxHierarchyWalk::forEachGroup;
using kxHierarchyWalk::isInnerNode;
using Vec3f = Wm4::Vector3<float>;

namespace {

using tPrism = kxExplosionDiagram::tBoundingPlanesMinMax;

// The part of `delta` perpendicular to the unit direction d, negated.
Vec3f acrossDirection(const Vec3f& delta, const Vec3f& d) { return -(delta - d * d.Dot(delta)); }

// The prism of a group moved by `translation`.
tPrism shiftedPrism(const tPrism& prism, const kxExplosionDiagram::tOrthogonalDirectionSet& directions,
                    const Vec3f& translation)
{
    tPrism shifted;
    for (int k = 0; k < 5; ++k) {
        const float offset = translation.Dot(directions.directions[k]);
        shifted.range[k] = {prism.range[k].min + offset, prism.range[k].max + offset};
    }
    return shifted;
}

// Whether two prisms of one direction set overlap across its axis (on all
// four perpendicular directions, open intervals).
bool overlapAcross(const tPrism& p, const tPrism& q)
{
    for (int k = 1; k < 5; ++k) {
        if (p.range[k].min >= q.range[k].max || q.range[k].min >= p.range[k].max)
            return false;
    }
    return true;
}

// Calls visit(g1, g2) for every group g1 of the split's first child and g2 of
// its second child whose work prisms overlap across the split axis.
template <class Visitor>
void forEachFacingPair(const kxDisassemblyHierarchy& hierarchy, const kxDisassemblyHierarchy::tTreeNode& split,
                       const std::vector<tPrism>& workPlanes, Visitor&& visit)
{
    forEachGroup(hierarchy, split.firstChild, [&](unsigned g1) {
        forEachGroup(hierarchy, split.secondChild, [&](unsigned g2) {
            if (overlapAcross(workPlanes[g1], workPlanes[g2]))
                visit(g1, g2);
        });
    });
}

// Adds the open interval (low, high) (its ends in either order) to a sorted
// list of disjoint intervals, merging every stored interval it touches.
void insertForbiddenInterval(std::vector<kxExplosionDiagram::tInterval>& list, float low, float high)
{
    if (low > high)
        std::swap(low, high);
    for (auto it = list.begin(); it != list.end();) {
        if (it->max >= low && it->min <= high) {
            low = std::min(low, it->min);
            high = std::max(high, it->max);
            it = list.erase(it);
        } else {
            ++it;
        }
    }
    const auto before =
        std::find_if(list.begin(), list.end(), [high](const auto& stored) { return stored.min > high; });
    list.insert(before, {low, high});
}

// The smallest shift at or above `shift` that lies in no forbidden interval.
float firstAdmissibleShift(const std::vector<kxExplosionDiagram::tInterval>& forbidden, float shift)
{
    for (const kxExplosionDiagram::tInterval& interval : forbidden) {
        if (interval.max >= shift)
            return shift > interval.min ? interval.max : shift;
    }
    return shift;
}

}  // namespace

bool kxExplosionDiagram::isInSecondChild(unsigned node, unsigned group) const
{
    const unsigned second = mHierarchy->getNode(node).secondChild;
    return mHierarchy->getOrderedIndexFromGroupId(group) >= mHierarchy->getNode(second).start;
}

Vec3f kxExplosionDiagram::computeBakedTranslation(unsigned group, unsigned node) const
{
    const unsigned position = mHierarchy->getOrderedIndexFromGroupId(group);
    Vec3f sum = mPerSplitTranslations[node];
    while (isInnerNode(*mHierarchy, node)) {
        const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
        const kxDisassemblyHierarchy::tTreeNode& first = mHierarchy->getNode(tree.firstChild);
        node = position < first.start + first.noGroups ? tree.firstChild : tree.secondChild;
        sum += mPerSplitTranslations[node];
    }
    return sum;
}

void kxExplosionDiagram::shiftNodePrisms(unsigned node, const tOrthogonalDirectionSet& directions,
                                         const tPrisms& planes, tPrisms& workPlanes, bool fromFinal,
                                         const Vec3f& secondChildCorrection) const
{
    const unsigned dirId = mHierarchy->getNode(node).splitId;
    forEachGroup(*mHierarchy, node, [&](unsigned group) {
        Vec3f translation = fromFinal ? mFinalPerGroupTranslations[group] : computeBakedTranslation(group, node);
        if (isInSecondChild(node, group))
            translation += secondChildCorrection;
        workPlanes[group] = shiftedPrism(prism(planes, group, dirId), directions, translation);
    });
}

float kxExplosionDiagram::computeMinSplitDistance(unsigned a, unsigned b, const tPrisms& planes, unsigned dirId) const
{
    float distance = -std::numeric_limits<float>::infinity();
    forEachGroup(*mHierarchy, mHierarchy->getLeafNodeIndexFromGroupId(a), [&](unsigned x) {
        forEachGroup(*mHierarchy, mHierarchy->getLeafNodeIndexFromGroupId(b), [&](unsigned y) {
            distance = std::max(distance, prism(planes, x, dirId).range[0].max + mSplitDistance -
                                              prism(planes, y, dirId).range[0].min);
        });
    });
    return distance;
}

void kxExplosionDiagram::translationHierarchyIterationBottomUp(unsigned node, const tDirectionSets& directions,
                                                               const tPrisms& planes, tPrisms& workPlanes,
                                                               float splitDistance)
{
    if (!isInnerNode(*mHierarchy, node))
        return;
    const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
    translationHierarchyIterationBottomUp(tree.firstChild, directions, planes, workPlanes, splitDistance);
    translationHierarchyIterationBottomUp(tree.secondChild, directions, planes, workPlanes, splitDistance);
    const tSplitData& split = mSplitData[node];
    if (split.secondGroup == kNone)
        return;

    const unsigned a = firstReferenceGroup(split), b = split.secondGroup;
    const Vec3f& d = split.direction;
    // Line the second side's reference group up behind the first's along d.
    const Vec3f c = acrossDirection(computeBakedTranslation(b, node) - computeBakedTranslation(a, node), d);
    shiftNodePrisms(node, directions[tree.splitId], planes, workPlanes, false, c);

    // The shift along d that clears every pair facing each other across the split.
    float shift = 0.0f;
    forEachFacingPair(*mHierarchy, tree, workPlanes, [&](unsigned g1, unsigned g2) {
        shift = std::max(shift, splitDistance - (workPlanes[g2].range[0].min - workPlanes[g1].range[0].max));
    });

    const Vec3f translation = d * shift + c;
    const bool firstMoves = firstChildMoves(split);
    mPerSplitTranslations[tree.firstChild] = firstMoves ? -translation : Vec3f::ZERO;
    mPerSplitTranslations[tree.secondChild] = firstMoves ? Vec3f::ZERO : translation;
    mGroupMinSplitDistances[mReferenceGroups[firstMoves ? a : b]] = computeMinSplitDistance(a, b, planes, tree.splitId);
}

void kxExplosionDiagram::computeFinalTranslations(unsigned node, const Vec3f& parentSum)
{
    const Vec3f sum = parentSum + mPerSplitTranslations[node];
    if (!isInnerNode(*mHierarchy, node)) {
        forEachGroup(*mHierarchy, node, [&](unsigned group) { mFinalPerGroupTranslations[group] = sum; });
        return;
    }
    const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
    computeFinalTranslations(tree.firstChild, sum);
    computeFinalTranslations(tree.secondChild, sum);
}

void kxExplosionDiagram::translationHierarchyIterationTopDown(unsigned node, const tDirectionSets& directions,
                                                              const tPrisms& planes, tPrisms& workPlanes,
                                                              std::vector<tInterval>& forbiddenShifts,
                                                              float splitDistance)
{
    if (!isInnerNode(*mHierarchy, node))
        return;
    const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
    translationHierarchyIterationTopDown(tree.firstChild, directions, planes, workPlanes, forbiddenShifts,
                                         splitDistance);
    translationHierarchyIterationTopDown(tree.secondChild, directions, planes, workPlanes, forbiddenShifts,
                                         splitDistance);
    const tSplitData& split = mSplitData[node];
    if (split.secondGroup == kNone)
        return;

    const unsigned a = firstReferenceGroup(split), b = split.secondGroup;
    const Vec3f& d = split.direction;
    const std::vector<Vec3f>& final = mFinalPerGroupTranslations;
    const Vec3f c = acrossDirection(final[b] - final[a], d);
    shiftNodePrisms(node, directions[tree.splitId], planes, workPlanes, true, c);

    // Wanted: exactly splitDistance between the reference groups (possibly
    // pulling the moving side closer), but never a shift that leaves a facing
    // pair closer than splitDistance, nor one that passes a pair that was
    // assembled first-below-second through each other.
    float shift = splitDistance - (workPlanes[b].range[0].min - workPlanes[a].range[0].max);
    forbiddenShifts.clear();
    forEachFacingPair(*mHierarchy, tree, workPlanes, [&](unsigned g1, unsigned g2) {
        const tPrism& w1 = workPlanes[g1];
        const tPrism& w2 = workPlanes[g2];
        const tPrism& p1 = prism(planes, g1, tree.splitId);
        const tPrism& p2 = prism(planes, g2, tree.splitId);
        if (p1.range[0].min < p2.range[0].max && overlapAcross(p1, p2))
            shift = std::max(shift, splitDistance - (w2.range[0].min - w1.range[0].max));
        insertForbiddenInterval(forbiddenShifts, w1.range[0].min - w2.range[0].max - splitDistance,
                                w1.range[0].max - w2.range[0].min + splitDistance);
    });
    shift = firstAdmissibleShift(forbiddenShifts, shift);

    const Vec3f translation = d * shift + c;
    const bool firstMoves = firstChildMoves(split);
    const unsigned moving = firstMoves ? tree.firstChild : tree.secondChild;
    const Vec3f step = firstMoves ? -translation : translation;
    mPerSplitTranslations[moving] += step;
    forEachGroup(*mHierarchy, moving, [&](unsigned group) { mFinalPerGroupTranslations[group] += step; });
}

void kxExplosionDiagram::bakeAxes()
{
    mAxes.clear();
    for (unsigned node = 0; node < mSplitData.size(); ++node) {
        if (!isInnerNode(*mHierarchy, node))
            continue;
        const tSplitData& split = mSplitData[node];
        const unsigned a = firstReferenceGroup(split), b = split.secondGroup;
        const Vec3f start = a != kNone ? split.point + mFinalPerGroupTranslations[a] : split.point;
        const Vec3f end = b != kNone ? split.point + mFinalPerGroupTranslations[b] : split.point;
        mAxes.push_back({start, end, a, b});
    }
}
