// Writing a procedure back as a disassembly hierarchy: a chain of splits, one
// per step, each peeling the step's groups off the groups still in place.
#include "kxSinglePartDisassemblyProcedure.h"

#include <algorithm>

void kxSinglePartDisassemblyProcedure::copyToDisassemblyHierarchy(kxDisassemblyHierarchy& out)
{
    using tTreeNode = kxDisassemblyHierarchy::tTreeNode;
    constexpr tTreeNode kUnused{kNone, kNone, kNone, kNone, kNone, kNone};

    const tTreeNode root = out.mNodes[0];
    std::fill(out.mNodes.begin(), out.mNodes.end(), kUnused);
    out.mNodes[0].start = root.start;
    out.mNodes[0].noGroups = root.noGroups;

    unsigned current = 0;
    for (unsigned s = 0; s + 1 < mSteps.size(); ++s)
    {
        // Stable partition of the current range: unmarked groups first.
        markStepGroups(s);
        const tTreeNode node = out.mNodes[current];
        unsigned front = node.start;
        unsigned noBack = 0;
        for (unsigned k = node.start; k < node.start + node.noGroups; ++k)
        {
            const unsigned group = out.mGroupIdFromOrderedIndex[k];
            if (mGroupSet->getVar(group) != 0)
                mScratchGroups[noBack++] = group;
            else
                out.mGroupIdFromOrderedIndex[front++] = group;
        }
        std::copy(mScratchGroups.begin(), mScratchGroups.begin() + noBack,
                  out.mGroupIdFromOrderedIndex.begin() + front);

        const unsigned noFront = front - node.start;
        const unsigned first = out.requestNewNode({node.start, noFront, kNone, kNone, current, kNone});
        const unsigned second = out.requestNewNode({front, noBack, kNone, kNone, current, kNone});
        tTreeNode& split = out.mNodes[current];
        split.firstChild = first;
        split.secondChild = second;
        split.splitId = mSteps[s].signedDirection >> 1;

        // The removed groups left on the side their sign gives; the rest
        // stays for the next step.
        current = (mSteps[s].signedDirection & 1u) == 0 ? first : second;
    }
    out.computeHierarchyIndexing(0);
}

void kxSinglePartDisassemblyProcedure::markStepGroups(unsigned s)
{
    const tRemovalStep& step = mSteps[s];
    const bool inverted = (step.signedDirection & 1u) != 0;
    mGroupSet->clear(inverted);
    for (unsigned p = step.start; p < step.start + step.noNodes; ++p)
    {
        forEachGroupOfNode(mOrdering[p], [&](unsigned group) {
            if (inverted)
                mGroupSet->setFalse(group);
            else
                mGroupSet->setTrue(group);
        });
    }
}
