// Step merging: a removed subtree joins a later step when it touches a node
// of that step and nothing removed after the step blocks it along the step's
// direction.
#include "kxSinglePartDisassemblyProcedure.h"

#include <algorithm>

#include "velmora/LogSink.h"

void kxSinglePartDisassemblyProcedure::simplifyOrdering()
{
    // From the back to the front, so that a subtree moves into steps that
    // have already gathered what could join them. The part's own step and
    // the step just before it never move.
    const unsigned noSteps = unsigned(mSteps.size());
    for (unsigned j = 0; j + 3 <= noSteps; ++j)
    {
        velmora::LogStream() << "simplifying step : " << j << " / " << noSteps - 2;
        simplifyOrderingIteration(noSteps - 3 - j);
    }
}

void kxSinglePartDisassemblyProcedure::simplifyOrderingIteration(unsigned step)
{
    // Later steps are tried in order for as long as the node could stay in
    // place while each of them leaves; the part's step is never a target.
    const unsigned node = mOrdering[mSteps[step].start];
    for (unsigned target = step + 1; target + 1 < mSteps.size(); ++target)
    {
        if (tryAndMergeNodeToStep(node, target) || !checkNodeAndStepConstraints(node, target))
            return;
    }
}

bool kxSinglePartDisassemblyProcedure::tryAndMergeNodeToStep(unsigned node, unsigned step)
{
    const unsigned from = stepStartingAt(mOrderingIndexFromNodeId[node]);
    if (!checkMerge(from, step))
        return false;
    moveNodeIntoStep(from, step);
    return true;
}

bool kxSinglePartDisassemblyProcedure::checkMerge(unsigned step, unsigned otherStep) const
{
    const tRemovalStep& from = mSteps[step];
    const tRemovalStep& to = mSteps[otherStep];
    const unsigned fromEnd = from.start + from.noNodes;
    const unsigned toEnd = to.start + to.noNodes;
    bool touching = false;
    for (unsigned p = from.start; p < fromEnd; ++p)
    {
        const tConstraintRange& range = mNodeConstraintRanges[mOrdering[p]];
        for (unsigned c = range.first; c < range.first + range.count; ++c)
        {
            const unsigned position = mOrderingIndexFromNodeId[constrainedNode(c)];
            if (position >= from.start && position < fromEnd)
                continue;
            // A node removed after the target step is still in place while
            // the merged step leaves along the target's direction.
            if (position >= toEnd && !rowAllows(constraintRow(c), to.signedDirection))
                return false;
            if (position >= to.start && position < toEnd)
                touching = touching || touches(c);
        }
    }
    return touching;
}

bool kxSinglePartDisassemblyProcedure::checkNodeAndStepConstraints(unsigned node, unsigned step) const
{
    // Both lists are in ascending node id order: one merging walk. The node
    // stays while the step's nodes leave, that is, it moves the opposite way
    // relative to them.
    const tRemovalStep& removal = mSteps[step];
    const unsigned leaving = removal.signedDirection ^ 1u;
    const tConstraintRange& range = mNodeConstraintRanges[node];
    unsigned c = range.first;
    const unsigned cEnd = range.first + range.count;
    unsigned p = removal.start;
    const unsigned pEnd = removal.start + removal.noNodes;
    while (c < cEnd && p < pEnd)
    {
        const unsigned constrained = constrainedNode(c);
        const unsigned member = mOrdering[p];
        if (constrained < member)
            ++c;
        else if (member < constrained)
            ++p;
        else
        {
            if (!rowAllows(constraintRow(c), leaving))
                return false;
            ++c;
            ++p;
        }
    }
    return true;
}

unsigned kxSinglePartDisassemblyProcedure::findRequestedNodeCst(unsigned otherNode, unsigned node) const
{
    const tConstraintRange& range = mNodeConstraintRanges[node];
    if (range.count == 0)
        return kNone;
    unsigned lo = range.first;
    unsigned hi = range.first + range.count - 1;
    if (constrainedNode(lo) == otherNode)
        return lo;
    if (constrainedNode(hi) == otherNode)
        return hi;
    // Both ends are tested; halve while some entry lies strictly between.
    while (hi - lo > 1)
    {
        const unsigned middle = lo + (hi - lo) / 2;
        const unsigned constrained = constrainedNode(middle);
        if (constrained == otherNode)
            return middle;
        if (constrained < otherNode)
            lo = middle;
        else
            hi = middle;
    }
    return kNone;
}

unsigned kxSinglePartDisassemblyProcedure::stepStartingAt(unsigned position) const
{
    const auto after = std::upper_bound(mSteps.begin(), mSteps.end(), position,
                                        [](unsigned p, const tRemovalStep& s) { return p < s.start; });
    return unsigned(after - mSteps.begin()) - 1;
}

void kxSinglePartDisassemblyProcedure::moveNodeIntoStep(unsigned from, unsigned to)
{
    // The entries between the node and its place in the target step shift
    // down by one; the node goes before the first step node with a larger id.
    const unsigned oldPosition = mSteps[from].start;
    const unsigned node = mOrdering[oldPosition];
    const auto stepBegin = mOrdering.begin() + mSteps[to].start;
    const auto larger = std::lower_bound(stepBegin, stepBegin + mSteps[to].noNodes, node);
    const unsigned newPosition = unsigned(larger - mOrdering.begin()) - 1;
    std::rotate(mOrdering.begin() + oldPosition, mOrdering.begin() + oldPosition + 1,
                mOrdering.begin() + newPosition + 1);
    for (unsigned p = oldPosition; p <= newPosition; ++p)
        mOrderingIndexFromNodeId[mOrdering[p]] = p;

    for (unsigned s = from + 1; s <= to; ++s)
        --mSteps[s].start;
    ++mSteps[to].noNodes;
    mSteps.erase(mSteps.begin() + from);
}
