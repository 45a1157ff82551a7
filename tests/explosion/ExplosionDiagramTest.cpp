// The explosion diagram on hand-made hierarchies whose results can be worked
// out by hand: direction sets and prisms, reference pairs from contact and
// from proximity, the moving side, the bottom-up and top-down translations,
// the minimum split distances and the axes.
#include "ExplosionFixtures.h"

using namespace explosion_test;
using Access = kxExplosionDiagramTestAccess;
using Diagram = kxExplosionDiagram;

namespace {

const Vec3d kUp(0, 0, 1);
const float kHalfSqrt2 = 0.70710678f;

// A box [0,4]² × [0,2] and, on it, a lid [0,4]² × [2,2.5] (or a wider lid
// [-1,5]² × [2,2.5]); the lid may leave the box upwards; the lid moves.
HandAssembly lidOnBox(bool widerLid)
{
    HandAssembly hand({box({0, 0, 0}, {4, 4, 2}),
                       widerLid ? box({-1, -1, 2}, {5, 5, 2.5f}) : box({0, 0, 2}, {4, 4, 2.5f})});
    hand.addContact(1, 0, {kUp}, Vec3f(2, 2, 2));
    hand.finishEdges();
    hand.splitRaw(0, {1}, hand.lineOf(kUp));
    hand.commit();
    return hand;
}

}  // namespace

TEST(ExplosionDiagram, DirectionSetsAndPrisms)
{
    const Vec3d oblique = Vec3d(1, 2, 3) / std::sqrt(14.0);
    HandAssembly hand({box({0, 0, 0}, {4, 4, 2}), box({0, 0, 2}, {4, 4, 2.5f})});
    hand.addContact(1, 0, {kUp, Vec3d(1, 0, 0), oblique});
    hand.finishEdges();
    hand.commit();
    const Diagram diagram(hand.builder());
    std::vector<Diagram::tOrthogonalDirectionSet> sets;
    std::vector<Diagram::tBoundingPlanesMinMax> planes;
    Access::computeBoundingPrisms(diagram, sets, planes);
    ASSERT_EQ(3u, sets.size());
    ASSERT_EQ(2u * 3u, planes.size());

    // d = z: u = z × x = y, v = u × d = x.
    const Diagram::tOrthogonalDirectionSet& z = sets[hand.lineOf(kUp)];
    expectVectorEq(Vec3f(0, 0, 1), z.directions[0]);
    expectVectorEq(Vec3f(1, 0, 0), z.directions[1]);
    expectVectorNear(Vec3f(kHalfSqrt2, kHalfSqrt2, 0), z.directions[2], 1e-6f);
    expectVectorNear(Vec3f(0, 1, 0), z.directions[3], 1e-6f);
    expectVectorNear(Vec3f(-kHalfSqrt2, kHalfSqrt2, 0), z.directions[4], 1e-6f);
    // d = x (|x| > |y|): u = x × y = z, v = z × x = y.
    const Diagram::tOrthogonalDirectionSet& x = sets[hand.lineOf(Vec3d(1, 0, 0))];
    expectVectorEq(Vec3f(0, 1, 0), x.directions[1]);
    expectVectorNear(Vec3f(0, 0, 1), x.directions[3], 1e-6f);
    // Any d: an orthonormal pair across d, the four spread 45 degrees apart,
    // u (entry 3) across x since |d.x| <= |d.y| here.
    const Diagram::tOrthogonalDirectionSet& o = sets[hand.lineOf(oblique)];
    for (int j = 1; j < 5; ++j) {
        EXPECT_NEAR(1.0f, o.directions[j].Length(), 1e-6f);
        EXPECT_NEAR(0.0f, o.directions[j].Dot(o.directions[0]), 1e-6f);
    }
    EXPECT_NEAR(kHalfSqrt2, o.directions[1].Dot(o.directions[2]), 1e-6f);
    EXPECT_NEAR(0.0f, o.directions[1].Dot(o.directions[3]), 1e-6f);
    EXPECT_NEAR(-kHalfSqrt2, o.directions[1].Dot(o.directions[4]), 1e-6f);
    EXPECT_NEAR(0.0f, o.directions[3].X(), 1e-6f);

    // The box on the z set: z [0,2], x [0,4], (x+y)/√2 [0,4√2], y [0,4], (y-x)/√2 [-2√2,2√2].
    const Diagram::tBoundingPlanesMinMax& boxOnZ = planes[0 * 3 + hand.lineOf(kUp)];
    const float expected[5][2] = {{0, 2}, {0, 4}, {0, 8 * kHalfSqrt2}, {0, 4}, {-4 * kHalfSqrt2, 4 * kHalfSqrt2}};
    for (int k = 0; k < 5; ++k) {
        EXPECT_NEAR(expected[k][0], boxOnZ.range[k].min, 1e-5f) << k;
        EXPECT_NEAR(expected[k][1], boxOnZ.range[k].max, 1e-5f) << k;
    }
    // Size: the widest range over every set; with the z set alone, the
    // diagonal of the 4 × 4 face for both the box and the lid.
    const std::vector<float> sizes = Access::groupSizes(Diagram(lidOnBox(false).builder()));
    EXPECT_NEAR(8 * kHalfSqrt2, sizes[0], 1e-5f);
    EXPECT_NEAR(8 * kHalfSqrt2, sizes[1], 1e-5f);
    EXPECT_GT(Access::groupSizes(diagram)[0], sizes[0]);  // the oblique prism is wider
}

TEST(ExplosionDiagram, SingleGroupStaysInPlace)
{
    HandAssembly hand({box({0, 0, 0}, {1, 1, 1})});
    hand.finishEdges();
    hand.commit();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(2.0f);
    EXPECT_EQ(Vec3f::ZERO, diagram.getFinalPerGroupTranslation(0));
    EXPECT_EQ(-1.0f, diagram.getGroupMinSplitDistance(0));
    EXPECT_EQ(0u, diagram.getReferenceGroup(0));
    EXPECT_FALSE(Diagram::hasReferencePair(diagram.getSplitData(0)));
    diagram.bakeAxes();
    EXPECT_EQ(0u, diagram.getNoAxes());
}

TEST(ExplosionDiagram, ContactPairSeparatesByExactlyTheSplitDistance)
{
    // Equal counts and equal largest sizes: the second child (the lid) moves.
    const HandAssembly hand = lidOnBox(false);
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(0.75f);
    const Diagram::tSplitData& split = diagram.getSplitData(0);
    EXPECT_EQ(0u, Diagram::firstReferenceGroup(split));
    EXPECT_EQ(1u, split.secondGroup);
    EXPECT_FALSE(Diagram::firstChildMoves(split));
    EXPECT_EQ(Vec3f(2, 2, 2), split.point);
    EXPECT_EQ(Vec3f(0, 0, 1), split.direction);
    EXPECT_EQ(Vec3f::ZERO, diagram.getPerSplitTranslation(1));
    expectVectorEq(Vec3f(0, 0, 0.75f), diagram.getPerSplitTranslation(2));
    EXPECT_EQ(Vec3f::ZERO, diagram.getFinalPerGroupTranslation(0));
    expectVectorEq(Vec3f(0, 0, 0.75f), diagram.getFinalPerGroupTranslation(1));
    // box.max + distance - lid.min, kept for the moving side's group.
    EXPECT_EQ(-1.0f, diagram.getGroupMinSplitDistance(0));
    EXPECT_FLOAT_EQ(0.75f, diagram.getGroupMinSplitDistance(1));

    diagram.bakeAxes();
    ASSERT_EQ(1u, diagram.getNoAxes());
    const Diagram::tAxis& axis = diagram.getAxis(0);
    EXPECT_EQ(Vec3f(2, 2, 2), axis.start);
    expectVectorEq(Vec3f(2, 2, 2.75f), axis.end);
    EXPECT_EQ(0u, axis.firstGroup);
    EXPECT_EQ(1u, axis.secondGroup);

    // A wider lid is the larger second child: the box (first child) moves down.
    const HandAssembly wide = lidOnBox(true);
    Diagram wideDiagram(wide.builder());
    wideDiagram.computeTranslationHierarchy(0.75f);
    EXPECT_TRUE(Diagram::firstChildMoves(wideDiagram.getSplitData(0)));
    expectVectorEq(Vec3f(0, 0, -0.75f), wideDiagram.getFinalPerGroupTranslation(0));
    EXPECT_EQ(Vec3f::ZERO, wideDiagram.getFinalPerGroupTranslation(1));
    EXPECT_FLOAT_EQ(0.75f, wideDiagram.getGroupMinSplitDistance(0));
    EXPECT_EQ(-1.0f, wideDiagram.getGroupMinSplitDistance(1));

    // A second computation starts from scratch.
    diagram.computeTranslationHierarchy(2.0f);
    expectVectorEq(Vec3f(0, 0, 2.0f), diagram.getFinalPerGroupTranslation(1));
    EXPECT_EQ(2.0f, diagram.getSplitDistance());
}

TEST(ExplosionDiagram, SidesAlreadyApartArePulledBackUnlessAnotherPairForbids)
{
    // A = [0,1]³ and B = A + 11 z: only 1 apart is wanted, B comes down 9.
    {
        HandAssembly hand({box({0, 0, 0}, {1, 1, 1}), box({0, 0, 11}, {1, 1, 12})});
        hand.addContact(1, 0, {kUp});
        hand.finishEdges();
        hand.splitRaw(0, {1}, hand.lineOf(kUp));
        hand.commit();
        Diagram diagram(hand.builder());
        diagram.computeTranslationHierarchy(1.0f);
        EXPECT_EQ(Vec3f::ZERO, diagram.getFinalPerGroupTranslation(0));
        EXPECT_EQ(Vec3f(0, 0, -9), diagram.getFinalPerGroupTranslation(1));
    }
    // With C = A + 3 z beside B in the second child ({C} | {B}, B over C
    // 7 apart): first {C}|{B} pulls B down to 1 above C (-6); then at the root
    // {A} (fewer groups, so it moves) can only come up to 1 below C (+1).
    HandAssembly hand({box({0, 0, 0}, {1, 1, 1}), box({0, 0, 11}, {1, 1, 12}), box({0, 0, 3}, {1, 1, 4})});
    hand.addContact(1, 0, {kUp});
    hand.addContact(1, 2, {kUp});
    hand.finishEdges();
    const unsigned up = hand.lineOf(kUp);
    hand.splitRaw(0, {1, 2}, up);
    hand.splitRaw(2, {1}, up);
    hand.commit();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(1.0f);
    EXPECT_TRUE(Diagram::firstChildMoves(diagram.getSplitData(0)));
    EXPECT_FALSE(Diagram::firstChildMoves(diagram.getSplitData(2)));
    EXPECT_EQ(Vec3f(0, 0, 1), diagram.getFinalPerGroupTranslation(0));
    EXPECT_EQ(Vec3f(0, 0, -6), diagram.getFinalPerGroupTranslation(1));
    EXPECT_EQ(Vec3f::ZERO, diagram.getFinalPerGroupTranslation(2));
    // Per-split translations sum to the final ones along every path.
    EXPECT_EQ(Vec3f(0, 0, 1), diagram.getPerSplitTranslation(1));
    EXPECT_EQ(Vec3f::ZERO, diagram.getPerSplitTranslation(2));
    EXPECT_EQ(Vec3f(0, 0, -6), diagram.getPerSplitTranslation(4));
    // Minimum distances on the assembled prisms: A.max + 1 - B.min at the
    // root (A moves), C.max + 1 - B.min below it (B moves).
    EXPECT_EQ(-9.0f, diagram.getGroupMinSplitDistance(0));
    EXPECT_EQ(-6.0f, diagram.getGroupMinSplitDistance(1));
    EXPECT_EQ(-1.0f, diagram.getGroupMinSplitDistance(2));
}

TEST(ExplosionDiagram, ShiftIntoAForbiddenIntervalIsPushedToItsEnd)
{
    // {A} | {B, C} with B and C one unsplit leaf (represented by B). A sits
    // between C (below) and B (over it): the bottom-up pass must clear C,
    // taking A 5 down; the wanted top-down pull (B 1 above A) would bring A
    // within 0.75 of C, inside the interval C forbids, so A stays 1 below C.
    HandAssembly hand({box({0, 0, 2}, {1, 1, 3}), box({0, 0, 3.25f}, {1, 1, 4.25f}), box({0, 0, -1}, {1, 1, 0.5f})});
    hand.addContact(1, 0, {kUp});
    hand.finishEdges();
    hand.splitRaw(0, {1, 2}, hand.lineOf(kUp));
    hand.commit();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(1.0f);
    EXPECT_EQ(1u, diagram.getReferenceGroup(1));
    EXPECT_EQ(1u, diagram.getReferenceGroup(2));
    EXPECT_TRUE(Diagram::firstChildMoves(diagram.getSplitData(0)));
    EXPECT_EQ(Vec3f(0, 0, -5), diagram.getFinalPerGroupTranslation(0));
    EXPECT_EQ(Vec3f::ZERO, diagram.getFinalPerGroupTranslation(1));
    EXPECT_EQ(Vec3f::ZERO, diagram.getFinalPerGroupTranslation(2));
    // Over A and every group of B's leaf: A.max + 1 - C.min.
    EXPECT_EQ(5.0f, diagram.getGroupMinSplitDistance(0));
}

TEST(ExplosionDiagram, ProximityPairComesFromTheGroupsThatTouchedTheOtherSide)
{
    // X below A and B; C hovers over B. The root lifts {A, B, C} off X
    // (contact X–A); {A, B} | {C} has no contact across: its candidates in
    // the first child are only the groups the root's crossing edges named
    // (A), so the pair is (A, C) although B overlaps C far more.
    HandAssembly hand({box({0, 0, -1}, {3, 1, 0}), box({0, 0, 0}, {1, 1, 1}), box({2, 0, 0}, {3, 1, 1}),
                       box({2, 0, 1.5f}, {3, 1, 2.5f})});
    hand.addContact(1, 0, {kUp}, Vec3f(0.5f, 0.5f, 0));
    hand.finishEdges();
    const unsigned up = hand.lineOf(kUp);
    hand.splitRaw(0, {1, 2, 3}, up);  // node 2 = {A, B, C}
    hand.splitRaw(2, {3}, up);        // node 3 = {A, B}, node 6 = {C}
    hand.splitRaw(3, {2}, up);        // no edges at all: every group is a candidate
    hand.commit();
    ASSERT_EQ(0u, hand.builder().getNodeMetadata(2).relatedNode);
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(0.5f);

    const Diagram::tSplitData& root = diagram.getSplitData(0);
    EXPECT_EQ(0u, Diagram::firstReferenceGroup(root));
    EXPECT_EQ(1u, root.secondGroup);
    EXPECT_EQ(Vec3f(0.5f, 0.5f, 0), root.point);

    const Diagram::tSplitData& lift = diagram.getSplitData(2);
    EXPECT_EQ(1u, Diagram::firstReferenceGroup(lift));
    EXPECT_EQ(3u, lift.secondGroup);
    EXPECT_EQ(Vec3f(0, 0, 1), lift.direction);
    // Least-squares point of the centres of the common intervals (reversed
    // where the two are apart): z between A's top 1 and C's bottom 1.5, x
    // between A's 1 and C's 2, y in [0,1]; the diagonals agree with them.
    expectVectorNear(Vec3f(1.5f, 0.5f, 1.25f), lift.point, 1e-5f);

    // {A} | {B}: every pair is a candidate; A and B overlap along the axis.
    const Diagram::tSplitData& side = diagram.getSplitData(3);
    EXPECT_EQ(1u, Diagram::firstReferenceGroup(side));
    EXPECT_EQ(2u, side.secondGroup);
}

TEST(ExplosionDiagram, SplitWithoutReferencePairLeavesItsSubtreeUnexploded)
{
    // E and F have no vertices: no pair of the root overlaps at all.
    HandAssembly hand({box({0, 0, 0}, {1, 1, 1}), nullptr, nullptr});
    hand.addContact(2, 1, {kUp});
    hand.finishEdges();
    const unsigned up = hand.lineOf(kUp);
    hand.splitRaw(0, {1, 2}, up);
    hand.splitRaw(2, {2}, up);
    hand.commit();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(1.0f);
    EXPECT_FALSE(Diagram::hasReferencePair(diagram.getSplitData(0)));
    EXPECT_EQ(kNone, diagram.getSplitData(0).firstGroupAndMoveFlag);
    EXPECT_EQ(kNone, Diagram::movingReferenceGroup(diagram.getSplitData(0)));
    // The child split keeps its reset data although it has a contact.
    const Diagram::tSplitData& below = diagram.getSplitData(2);
    EXPECT_EQ(Vec3f::ZERO, below.point);
    EXPECT_EQ(Vec3f::ZERO, below.direction);
    EXPECT_EQ(kNone, below.firstGroupAndMoveFlag);
    EXPECT_EQ(kNone, below.secondGroup);
    for (unsigned node = 0; node < hand.hierarchy().getNoNodes(); ++node)
        EXPECT_EQ(Vec3f::ZERO, diagram.getPerSplitTranslation(node)) << node;
    for (unsigned g = 0; g < 3; ++g) {
        EXPECT_EQ(Vec3f::ZERO, diagram.getFinalPerGroupTranslation(g));
        EXPECT_EQ(-1.0f, diagram.getGroupMinSplitDistance(g));
    }
    EXPECT_EQ(0.0f, Access::groupSizes(diagram)[1]);
    diagram.bakeAxes();
    ASSERT_EQ(2u, diagram.getNoAxes());
    EXPECT_EQ(kNone, diagram.getAxis(1).firstGroup);
    EXPECT_EQ(kNone, diagram.getAxis(1).secondGroup);
    diagram.bakeTranslations();  // meshless groups are skipped
}

TEST(ExplosionDiagram, ReferenceGroupMovedByOneSplitMakesTheOtherMoveItsOtherSide)
{
    // {A} | {B, C}, then {B} | {C}. The root moves B's side; the lower split
    // also wants to move B, reaches it second in breadth-first order, and
    // moves C instead.
    HandAssembly hand({box({0, 0, 0}, {1, 1, 1}), box({0, 0, 1}, {1, 1, 2}), box({0, 0, 2}, {1, 1, 3})});
    hand.addContact(1, 0, {kUp});
    hand.addContact(2, 1, {kUp});
    hand.finishEdges();
    const unsigned up = hand.lineOf(kUp);
    hand.splitRaw(0, {1, 2}, up);
    hand.splitRaw(2, {2}, up);
    hand.commit();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(1.0f);
    Diagram::tSplitData& root = Access::editSplitData(diagram, 0);
    Diagram::tSplitData& lower = Access::editSplitData(diagram, 2);
    ASSERT_EQ(1u, root.secondGroup);
    ASSERT_EQ(1u, Diagram::firstReferenceGroup(lower));
    root.firstGroupAndMoveFlag &= ~1u;  // root: B's side moves
    lower.firstGroupAndMoveFlag |= 1u;  // lower: wants to move B too
    Access::computePerSplitMovingChild(diagram);
    EXPECT_FALSE(Diagram::firstChildMoves(diagram.getSplitData(0)));
    EXPECT_FALSE(Diagram::firstChildMoves(diagram.getSplitData(2)));
    EXPECT_EQ(2u, Diagram::movingReferenceGroup(diagram.getSplitData(2)));

    // The other way round: the root moves A, so the lower split keeps B.
    root.firstGroupAndMoveFlag |= 1u;
    lower.firstGroupAndMoveFlag |= 1u;
    Access::computePerSplitMovingChild(diagram);
    EXPECT_TRUE(Diagram::firstChildMoves(diagram.getSplitData(0)));
    EXPECT_TRUE(Diagram::firstChildMoves(diagram.getSplitData(2)));
}
