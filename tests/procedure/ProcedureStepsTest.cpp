// Hand-checked procedures on small hand-made assemblies: the naive ordering
// and its steps, the constraint table, and which merges happen or are refused.
#include "ProcedureTestSupport.h"

#include <string>

using namespace procedure_test;
using Step = kxSinglePartDisassemblyProcedure::tRemovalStep;

namespace
{
std::vector<Step> stepsOf(const kxSinglePartDisassemblyProcedure& p) { return p.getSteps(); }

// Builds the procedure of `node`, returning what it wrote to standard output.
std::string buildCapturingOutput(kxSinglePartDisassemblyProcedure& p, unsigned node)
{
    testing::internal::CaptureStdout();
    p.buildProcedure(node);
    return testing::internal::GetCapturedStdout();
}

void expectSameTree(const kxDisassemblyHierarchy& a, const kxDisassemblyHierarchy& b)
{
    ASSERT_EQ(a.getNoNodes(), b.getNoNodes());
    for (unsigned id = 0; id < a.getNoNodes(); ++id)
    {
        const auto& x = a.getNode(id);
        const auto& y = b.getNode(id);
        EXPECT_EQ(x.start, y.start) << id;
        EXPECT_EQ(x.noGroups, y.noGroups) << id;
        EXPECT_EQ(x.firstChild, y.firstChild) << id;
        EXPECT_EQ(x.secondChild, y.secondChild) << id;
        EXPECT_EQ(x.parent, y.parent) << id;
        EXPECT_EQ(x.splitId, y.splitId) << id;
    }
    for (unsigned g = 0; g < a.getMeshGroups().getNoGroups(); ++g)
        EXPECT_EQ(a.getLeafNodeIndexFromGroupId(g), b.getLeafNodeIndexFromGroupId(g)) << g;
}
}  // namespace

// Two groups: group 0 lifts off group 1 along +z. Whichever is the part, the
// procedure is the sibling, then the part; nothing is simplified.
TEST(SinglePartProcedure, ChildOfRootGivesTwoStepsAndNothingSimplified)
{
    HandAssembly a(2);
    a.addContact(0, 1, {kZ});
    a.finishEdges();
    a.split(0, {0}, kZ);
    a.commit();
    ASSERT_EQ(a.leafOf(1), 1u);
    ASSERT_EQ(a.leafOf(0), 2u);
    const unsigned up = a.signedDirectionOf(kZ);
    ASSERT_EQ(up, 0u);

    kxSinglePartDisassemblyProcedure p(a.builder());
    EXPECT_EQ(buildCapturingOutput(p, 1), "");
    EXPECT_EQ(p.getOrdering(), (std::vector<unsigned>{2, 1}));
    EXPECT_EQ(stepsOf(p), (std::vector<Step>{{0, 1, up}, {1, 1, kNone}}));
    // Node 2 may leave along +z while node 1 stays; they touch.
    EXPECT_EQ(Access::constraintsOf(p, 2), (std::vector<unsigned>{1 | kTouch}));
    EXPECT_EQ(Access::rowDirections(p, Access::firstConstraintOf(p, 2)), (std::vector<unsigned>{up}));
    EXPECT_TRUE(Access::constraintsOf(p, 1).empty());

    kxDisassemblyHierarchy out(a.groups());
    p.copyToDisassemblyHierarchy(out);
    expectSameTree(out, a.hierarchy());

    // Building again for the other part replaces everything: the first child
    // leaves against the split direction, and its row is seen from its side.
    EXPECT_EQ(buildCapturingOutput(p, 2), "");
    EXPECT_EQ(p.getOrdering(), (std::vector<unsigned>{1, 2}));
    EXPECT_EQ(stepsOf(p), (std::vector<Step>{{0, 1, up ^ 1u}, {1, 1, kNone}}));
    EXPECT_EQ(Access::constraintsOf(p, 1), (std::vector<unsigned>{2 | kTouch}));
    EXPECT_EQ(Access::rowDirections(p, Access::firstConstraintOf(p, 1)), (std::vector<unsigned>{up ^ 1u}));
    EXPECT_TRUE(Access::constraintsOf(p, 2).empty());
    kxDisassemblyHierarchy out2(a.groups());
    p.copyToDisassemblyHierarchy(out2);
    expectSameTree(out2, a.hierarchy());
}

// One group: the part is the whole assembly, one step, no constraint; the
// written hierarchy is a single leaf.
TEST(SinglePartProcedure, SingleGroupIsOneStep)
{
    HandAssembly a(1);
    a.finishEdges();
    a.commit();
    kxSinglePartDisassemblyProcedure p(a.builder());
    EXPECT_EQ(buildCapturingOutput(p, 0), "");
    EXPECT_EQ(p.getOrdering(), (std::vector<unsigned>{0}));
    EXPECT_EQ(stepsOf(p), (std::vector<Step>{{0, 1, kNone}}));
    kxDisassemblyHierarchy out(a.groups());
    p.copyToDisassemblyHierarchy(out);
    EXPECT_EQ(out.getNode(0).firstChild, kNone);
    EXPECT_EQ(out.getNode(0).noGroups, 1u);
}

// A column 0 (part, bottom), 1, 2, 3 stacked along z, taken apart from the
// top. Each subtree touches the next one and nothing blocks the lift, so
// the three removals merge into one step.
TEST(SinglePartProcedure, StackedSubtreesMergeIntoOneStep)
{
    HandAssembly a(4);
    a.addContact(1, 0, {kZ});
    a.addContact(2, 1, {kZ});
    a.addContact(3, 2, {kZ});
    a.finishEdges();
    a.split(0, {3}, kZ);  // {0,1,2} node 1, {3} node 6
    a.split(1, {2}, kZ);  // {0,1} node 2, {2} node 5
    a.split(2, {1}, kZ);  // {0} node 3, {1} node 4
    a.commit();
    ASSERT_EQ(a.leafOf(0), 3u);
    const unsigned up = a.signedDirectionOf(kZ);

    kxSinglePartDisassemblyProcedure p(a.builder());
    Access::initializeRemovalOrdering(p, 3);
    EXPECT_EQ(p.getOrdering(), (std::vector<unsigned>{6, 5, 4, 3}));
    EXPECT_EQ(stepsOf(p), (std::vector<Step>{{0, 1, up}, {1, 1, up}, {2, 1, up}, {3, 1, kNone}}));
    Access::initializeConstraintList(p);
    EXPECT_EQ(Access::constraintsOf(p, 6), (std::vector<unsigned>{5 | kTouch}));
    EXPECT_EQ(Access::constraintsOf(p, 5), (std::vector<unsigned>{4 | kTouch}));
    EXPECT_EQ(Access::constraintsOf(p, 4), (std::vector<unsigned>{3 | kTouch}));
    EXPECT_TRUE(Access::constraintsOf(p, 3).empty());

    const std::string log = buildCapturingOutput(p, 3);
    EXPECT_EQ(log, "simplifying step : 0 / 2\nsimplifying step : 1 / 2\n");
    EXPECT_EQ(p.getOrdering(), (std::vector<unsigned>{4, 5, 6, 3}));
    EXPECT_EQ(stepsOf(p), (std::vector<Step>{{0, 3, up}, {3, 1, kNone}}));
    EXPECT_EQ(stepGroups(p, a.hierarchy(), 0), (std::vector<unsigned>{1, 2, 3}));
    EXPECT_EQ(stepGroups(p, a.hierarchy(), 1), (std::vector<unsigned>{0}));

    // Written back: the root splits {1, 2, 3} (moving along +z, second
    // child) off the part.
    kxDisassemblyHierarchy out(a.groups());
    p.copyToDisassemblyHierarchy(out);
    const auto& root = out.getNode(0);
    EXPECT_EQ(root.splitId, up >> 1);
    EXPECT_EQ(out.getNode(root.firstChild).noGroups, 1u);
    EXPECT_EQ(out.getNode(root.secondChild).noGroups, 3u);
    EXPECT_EQ(out.getLeafNodeIndexFromGroupId(0), root.firstChild);
    EXPECT_EQ(out.getNode(root.secondChild).firstChild, kNone);
    for (unsigned g = 1; g < 4; ++g)
        EXPECT_EQ(out.getLeafNodeIndexFromGroupId(g), root.secondChild);
}

// Group 0 is the part (a base); 1 and 2 stand on it side by side; 3 rests
// on 1 only. 2 touches no node removed after it but the part, so it never
// joins 1's step though nothing blocks it; 3 skips 2's step (which it does
// not touch and which may leave while 3 stays) and joins 1's.
TEST(SinglePartProcedure, SubtreeJoinsOnlyAStepItTouches)
{
    HandAssembly a(4);
    a.addContact(1, 0, {kZ});
    a.addContact(2, 0, {kZ});
    a.addContact(3, 1, {kZ});
    a.finishEdges();
    a.split(0, {3}, kZ);  // {0,1,2} node 1, {3} node 6
    a.split(1, {2}, kZ);  // {0,1} node 2, {2} node 5
    a.split(2, {1}, kZ);  // {0} node 3, {1} node 4
    a.commit();
    const unsigned up = a.signedDirectionOf(kZ);

    kxSinglePartDisassemblyProcedure p(a.builder());
    Access::initializeRemovalOrdering(p, 3);
    Access::initializeConstraintList(p);
    EXPECT_EQ(Access::constraintsOf(p, 6), (std::vector<unsigned>{4 | kTouch}));
    EXPECT_EQ(Access::constraintsOf(p, 5), (std::vector<unsigned>{3 | kTouch}));
    EXPECT_FALSE(Access::checkMerge(p, 1, 2));  // 2 does not touch 1
    EXPECT_TRUE(Access::checkNodeAndStepConstraints(p, 5, 2));
    EXPECT_FALSE(Access::checkMerge(p, 0, 1));  // 3 does not touch 2
    EXPECT_TRUE(Access::checkMerge(p, 0, 2));   // but touches 1

    const std::string log = buildCapturingOutput(p, 3);
    EXPECT_EQ(log, "simplifying step : 0 / 2\nsimplifying step : 1 / 2\n");
    EXPECT_EQ(p.getOrdering(), (std::vector<unsigned>{5, 4, 6, 3}));
    EXPECT_EQ(stepsOf(p), (std::vector<Step>{{0, 1, up}, {1, 2, up}, {3, 1, kNone}}));
    EXPECT_EQ(stepGroups(p, a.hierarchy(), 1), (std::vector<unsigned>{1, 3}));
}

// Group 0 is the part; 1 stands on it (+z); 2 rests on 1 and is hooked to 0
// so that it only slides off along +x. 2 leaves first, along +x. Joining 1's
// lift is refused: 0, removed after that step, blocks 2 along +z. When the
// hook also lets 2 lift off 0, the merge goes through.
TEST(SinglePartProcedure, MergeRefusedWhenALaterNodeBlocks)
{
    for (const bool hookLifts : {false, true})
    {
        HandAssembly a(3);
        a.addContact(1, 0, {kZ});
        a.addContact(2, 1, {kZ, kX});
        using Directions = std::vector<Wm4::Vector3<double>>;
        a.addContact(2, 0, hookLifts ? Directions{kX, kZ} : Directions{kX});
        a.finishEdges();
        a.split(0, {2}, kX);  // {0,1} node 1, {2} node 4
        a.split(1, {1}, kZ);  // {0} node 2, {1} node 3
        a.commit();
        const unsigned up = a.signedDirectionOf(kZ);
        const unsigned slide = a.signedDirectionOf(kX);
        for (unsigned e = 0; e < a.builder().getNoEdges(); ++e)
        {
            if (a.builder().getEdgeData(e).edgeIndex == 2)  // the hook
            {
                ASSERT_EQ(a.builder().getEdgeData(e).admissibleIds.size(), hookLifts ? 2u : 1u);
            }
        }

        kxSinglePartDisassemblyProcedure p(a.builder());
        Access::initializeRemovalOrdering(p, 2);
        EXPECT_EQ(p.getOrdering(), (std::vector<unsigned>{4, 3, 2}));
        EXPECT_EQ(stepsOf(p), (std::vector<Step>{{0, 1, slide}, {1, 1, up}, {2, 1, kNone}}));
        Access::initializeConstraintList(p);
        ASSERT_EQ(Access::constraintsOf(p, 4), (std::vector<unsigned>{2 | kTouch, 3 | kTouch}));
        const unsigned aboutPart = Access::firstConstraintOf(p, 4);
        std::vector<unsigned> partRow{slide};
        if (hookLifts)
            partRow = {std::min(up, slide), std::max(up, slide)};
        EXPECT_EQ(Access::rowDirections(p, aboutPart), partRow);
        EXPECT_EQ(Access::rowDirections(p, aboutPart + 1),
                  (std::vector<unsigned>{std::min(up, slide), std::max(up, slide)}));
        EXPECT_EQ(Access::checkMerge(p, 0, 1), hookLifts);
        // 1 cannot leave upwards while 2 (resting on it) stays.
        EXPECT_FALSE(Access::checkNodeAndStepConstraints(p, 4, 1));

        buildCapturingOutput(p, 2);
        if (hookLifts)
            EXPECT_EQ(stepsOf(p), (std::vector<Step>{{0, 2, up}, {2, 1, kNone}}));
        else
            EXPECT_EQ(stepsOf(p), (std::vector<Step>{{0, 1, slide}, {1, 1, up}, {2, 1, kNone}}));
        EXPECT_EQ(p.getSteps().back().signedDirection, kNone);
    }
}

// Distant constraints: a row of all ones without the blocked directions (the
// step's own direction kept), no touch bit; written from either side of the
// edge the row is the same. Several edges between one pair must all allow a
// direction.
TEST(SinglePartProcedure, ConstraintRowsOfDistantAndRepeatedEdges)
{
    for (const bool pushedFromOtherSide : {false, true})
    {
        HandAssembly a(3);
        a.addContact(1, 0, {kZ});
        a.addContact(2, 0, {kZ, kX});
        a.addContact(2, 0, {kZ, kY});
        a.finishEdges();
        if (pushedFromOtherSide)
            a.addDistant(1, 2, {-kX, kZ});  // 1 moving -x or +z runs into 2
        else
            a.addDistant(2, 1, {kX, -kZ});  // 2 moving +x or -z runs into 1
        a.split(0, {2}, kZ);  // {0,1} node 1, {2} node 4
        a.split(1, {1}, kZ);  // {0} node 2, {1} node 3
        a.commit();
        const unsigned noSigned = 2 * a.diagram().getNoDirections();
        ASSERT_EQ(noSigned, 6u);
        const unsigned up = a.signedDirectionOf(kZ);
        const unsigned xPlus = a.signedDirectionOf(kX);
        const unsigned zMinus = a.signedDirectionOf(-kZ);

        kxSinglePartDisassemblyProcedure p(a.builder());
        Access::initializeRemovalOrdering(p, 2);
        Access::initializeConstraintList(p);
        ASSERT_EQ(Access::constraintsOf(p, 4), (std::vector<unsigned>{2 | kTouch, 3}));
        const unsigned first = Access::firstConstraintOf(p, 4);
        // About the part: the two contact edges only share +z.
        EXPECT_EQ(Access::rowDirections(p, first), (std::vector<unsigned>{up}));
        std::vector<unsigned> expected;
        for (unsigned s = 0; s < noSigned; ++s)
        {
            if (s != xPlus && s != zMinus)
                expected.push_back(s);
        }
        EXPECT_EQ(Access::rowDirections(p, first + 1), expected);
        // A distant edge is no touch: 2 may not join 1's step.
        EXPECT_FALSE(Access::checkMerge(p, 0, 1));
    }
}

// The step's own direction is always allowed, even when the edge lists
// other directions only.
TEST(SinglePartProcedure, OwnStepDirectionIsAlwaysInTheRow)
{
    HandAssembly a(2);
    a.addContact(0, 1, {kX});
    a.addContact(0, 1, {kZ});
    a.finishEdges();
    a.split(0, {0}, kZ);
    a.commit();
    kxSinglePartDisassemblyProcedure p(a.builder());
    p.buildProcedure(1);
    const unsigned up = a.signedDirectionOf(kZ);
    EXPECT_EQ(Access::rowDirections(p, Access::firstConstraintOf(p, 2)), (std::vector<unsigned>{up}));
}
