// The exploded-view animation: the schedule of each policy, the keys of every
// group (reaching the explosion's final translation, moving each group in the
// time slots of the splits that move it), play styles and speed, the error
// line, and the controllers it attaches.
#include "ExplosionFixtures.h"

using namespace explosion_test;
using Access = kxExplodedViewAnimationTestAccess;
using Animation = kxExplodedViewAnimation;
using Diagram = kxExplosionDiagram;

namespace {

const Vec3d kUp(0, 0, 1);

// A column of four unit boxes, each leaving the one below upwards, split
// {0} | {1,2,3}, {1} | {2,3}, {2} | {3}: boxes 0 and 1 move down (smaller
// sides), box 3 up, box 2 never moves.
HandAssembly column()
{
    HandAssembly hand({box({0, 0, 0}, {1, 1, 1}), box({0, 0, 1}, {1, 1, 2}), box({0, 0, 2}, {1, 1, 3}),
                       box({0, 0, 3}, {1, 1, 4})});
    for (unsigned g = 1; g < 4; ++g)
        hand.addContact(g, g - 1, {kUp});
    hand.finishEdges();
    const unsigned k = hand.lineOf(kUp);
    hand.splitRaw(0, {1, 2, 3}, k);
    hand.splitRaw(2, {2, 3}, k);
    hand.splitRaw(4, {3}, k);
    hand.commit();
    return hand;
}

// The keyframe controller attached to a mesh (failing when not exactly one).
const kx::kxKeyframeController* keyframesOf(const kx::kxTriMesh& mesh)
{
    const kx::kxKeyframeController* found = nullptr;
    unsigned count = 0;
    for (kx::kxController* controller : mesh.GetControllers()) {
        if (auto* keys = dynamic_cast<kx::kxKeyframeController*>(controller)) {
            found = keys;
            ++count;
        }
    }
    EXPECT_EQ(1u, count);
    return found;
}

std::vector<float> timesOf(const kx::kxKeyframeController& keys)
{
    return std::vector<float>(keys.GetTimes()->GetData(), keys.GetTimes()->GetData() + keys.GetKeyQuantity());
}

std::vector<Vec3f> translationsOf(const kx::kxKeyframeController& keys)
{
    return std::vector<Vec3f>(keys.GetTranslations()->GetData(),
                              keys.GetTranslations()->GetData() + keys.GetKeyQuantity());
}

bool movesWith(const kxDisassemblyHierarchy& h, unsigned node, const Diagram::tSplitData& split, unsigned group)
{
    const unsigned moving = Diagram::firstChildMoves(split) ? h.getNode(node).firstChild : h.getNode(node).secondChild;
    const std::vector<unsigned> groups = groupsOfNode(h, moving);
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

// Whether an edge across split `enclosing` has a group on the moving side of `node`.
bool movingSideCrosses(const PlannedAssembly& plan, const Diagram& diagram, unsigned node, unsigned enclosing)
{
    const kxDisassemblyHierarchy& h = plan.hierarchy();
    const unsigned end = plan.builder().getNodeMetadata(h.getNode(enclosing).firstChild).firstEdge;
    for (unsigned e = plan.builder().getNodeMetadata(enclosing).firstEdge; e < end; ++e) {
        const auto& edge = plan.builder().getEdgeData(e);
        if (movesWith(h, node, diagram.getSplitData(node), edge.groupA) ||
            movesWith(h, node, diagram.getSplitData(node), edge.groupB))
            return true;
    }
    return false;
}

}  // namespace

TEST(ExplodedViewAnimation, DefaultsAndASingleGroup)
{
    HandAssembly hand({box({0, 0, 0}, {1, 2, 3})});
    hand.finishEdges();
    hand.commit();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(1.0f);
    Animation animation(diagram);
    EXPECT_EQ(Animation::kOptimalPolicy, animation.getAnimationPolicy());
    EXPECT_EQ(Animation::kPlayExplosion, animation.getAnimationPlayStyle());
    EXPECT_EQ(1.0f, animation.getAnimationBaseSpeed());
    EXPECT_TRUE(animation.getGlobalBBox().isEmpty());
    animation.setAnimationPolicy(Animation::kByDepthPolicy);
    animation.setAnimationPlayStyle(Animation::kPlayAssemblyAndBack);
    animation.setAnimationBaseSpeed(3.0f);
    animation.createKeyFrameControllers();
    const Animation copy(animation);
    EXPECT_EQ(Animation::kByDepthPolicy, copy.getAnimationPolicy());
    EXPECT_EQ(Animation::kPlayAssemblyAndBack, copy.getAnimationPlayStyle());
    EXPECT_EQ(3.0f, copy.getAnimationBaseSpeed());
    EXPECT_EQ(Vec3f(0, 0, 0), copy.getGlobalBBox().min);
    EXPECT_EQ(Vec3f(1, 2, 3), copy.getGlobalBBox().max);

    // No split: only the time-0 key, whatever the style.
    const kx::kxKeyframeController* keys = keyframesOf(*hand.mesh(0));
    ASSERT_NE(nullptr, keys);
    EXPECT_EQ(std::vector<float>{0.0f}, timesOf(*keys));
    EXPECT_EQ(std::vector<Vec3f>{Vec3f::ZERO}, translationsOf(*keys));
}

TEST(ExplodedViewAnimation, SchedulesObeyTheirPolicies)
{
    bool delayedSomewhere = false;
    for (const std::string& name : sharedPlanNames()) {
        SCOPED_TRACE(name);
        const PlannedAssembly& plan = sharedPlan(name);
        const kxDisassemblyHierarchy& h = plan.hierarchy();
        Diagram diagram(plan.builder());
        diagram.computeTranslationHierarchy(1.0f);
        Animation animation(diagram);
        std::vector<unsigned> splits;
        for (unsigned node = 0; node < h.getNoNodes(); ++node) {
            if (isSplit(h, node))
                splits.push_back(node);
        }

        // 0: preorder numbering 1 … s, node ids being preorder.
        animation.setAnimationPolicy(Animation::kSequentialPolicy);
        unsigned noSplits = 0;
        const std::vector<unsigned> sequential = Access::timeIndicesPerSplit(animation, noSplits);
        EXPECT_EQ(splits.size(), noSplits);
        for (unsigned i = 0; i < splits.size(); ++i)
            EXPECT_EQ(i + 1, sequential[splits[i]]);

        // 1: one index per depth.
        animation.setAnimationPolicy(Animation::kByDepthPolicy);
        const std::vector<unsigned> byDepth = Access::timeIndices(animation);
        for (unsigned node : splits) {
            unsigned depth = 0;
            for (unsigned p = h.getNode(node).parent; p != kNone; p = h.getNode(p).parent)
                ++depth;
            EXPECT_EQ(depth + 1, byDepth[node]) << node;
        }

        // 2: the child rule alone, then the earliest index after the parent
        // (strictly after it on its moving side) and after every enclosing
        // split on whose staying side it lies and whose moving side it touches.
        animation.setAnimationPolicy(Animation::kOptimalPolicy);
        const std::vector<unsigned> childRule = Access::timeIndicesPerSplit(animation, noSplits);
        const std::vector<unsigned> optimal = Access::timeIndices(animation);
        for (unsigned node : splits) {
            const unsigned parent = h.getNode(node).parent;
            if (parent == kNone) {
                EXPECT_EQ(1u, childRule[node]);
                EXPECT_EQ(1u, optimal[node]);
                continue;
            }
            const unsigned firstGroup = h.getGroupIdFromOrderedIndex(h.getNode(node).start);
            const unsigned moving = movesWith(h, parent, diagram.getSplitData(parent), firstGroup) ? 1u : 0u;
            EXPECT_EQ(childRule[parent] + moving, childRule[node]) << node;
            unsigned earliest = optimal[parent] + moving;
            for (unsigned child = node, a = parent; a != kNone; child = a, a = h.getNode(a).parent) {
                const bool onStayingSide = !movesWith(h, a, diagram.getSplitData(a),
                                                      h.getGroupIdFromOrderedIndex(h.getNode(child).start));
                if (onStayingSide && movingSideCrosses(plan, diagram, node, a))
                    earliest = std::max(earliest, optimal[a] + 1);
            }
            EXPECT_EQ(earliest, optimal[node]) << node;
            EXPECT_LE(optimal[node], byDepth[node]) << node;
            delayedSomewhere = delayedSomewhere || optimal[node] > childRule[node];
        }
    }
    EXPECT_TRUE(delayedSomewhere);  // the contact rule is exercised
}

TEST(ExplodedViewAnimation, KeysMoveEachGroupWithItsSplitsAndEndAtItsExplosionTranslation)
{
    for (const std::string& name : sharedPlanNames()) {
        const PlannedAssembly& plan = sharedPlan(name);
        const kxDisassemblyHierarchy& h = plan.hierarchy();
        Diagram diagram(plan.builder());
        diagram.computeTranslationHierarchy(splitDistanceFor(plan.assembly()));
        for (auto policy : {Animation::kSequentialPolicy, Animation::kByDepthPolicy, Animation::kOptimalPolicy}) {
            SCOPED_TRACE(name + " policy " + std::to_string(policy));
            Animation animation(diagram);
            animation.setAnimationPolicy(policy);
            {
                StdoutCapture output;
                animation.createKeyFrameControllers();
                EXPECT_EQ(std::string::npos, output.text().find("error: ")) << output.text();
            }
            const std::vector<unsigned> times = Access::timeIndices(animation);
            const unsigned last = *std::max_element(times.begin(), times.end());
            for (unsigned g = 0; g < plan.groups().getNoGroups(); ++g) {
                const kx::kxKeyframeController* keys = keyframesOf(*plan.groups().editMeshFromGroup(g, 0));
                ASSERT_NE(nullptr, keys);
                const std::vector<float> keyTimes = timesOf(*keys);
                EXPECT_EQ(0.0f, keyTimes.front());
                EXPECT_EQ(float(last), keyTimes.back());
                EXPECT_EQ(keyTimes.end(), std::adjacent_find(keyTimes.begin(), keyTimes.end(),
                                                             [](float a, float b) { return !(a < b); }));
                EXPECT_EQ(Vec3f::ZERO, translationsOf(*keys).front());
                const Vec3f F = diagram.getFinalPerGroupTranslation(g);
                const float tolerance = 1e-5f * (1.0f + F.Length());
                expectVectorNear(F, translationsOf(*keys).back(), tolerance);
                // Between two time indices a group moves by the per-split
                // translations of the splits that move it in that slot.
                for (unsigned t = 1; t <= last; ++t) {
                    Vec3f expected = Vec3f::ZERO;
                    for (unsigned node = 0; node < h.getNoNodes(); ++node) {
                        const Diagram::tSplitData& split = diagram.getSplitData(node);
                        if (isSplit(h, node) && times[node] == t && movesWith(h, node, split, g)) {
                            const auto& tree = h.getNode(node);
                            expected += diagram.getPerSplitTranslation(
                                Diagram::firstChildMoves(split) ? tree.firstChild : tree.secondChild);
                        }
                    }
                    expectVectorNear(expected, keys->GetTranslation(t) - keys->GetTranslation(t - 1), tolerance);
                }
                kx::kxTriMesh& mesh = *plan.groups().editMeshFromGroup(g, 0);
                mesh.UpdateControllers(double(last));
                expectVectorNear(F, mesh.GetLocalTransform().GetTranslate(), tolerance);
            }
        }
    }
}

TEST(ExplodedViewAnimation, PlayStylesSpeedAndHoldKeys)
{
    const HandAssembly hand = column();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(0.5f);
    const Vec3f F3 = diagram.getFinalPerGroupTranslation(3);
    ASSERT_EQ(Vec3f::ZERO, diagram.getFinalPerGroupTranslation(2));
    ASSERT_GT(F3.Z(), 0.0f);
    Animation animation(diagram);
    animation.setAnimationPolicy(Animation::kSequentialPolicy);  // the splits at 1, 2, 3

    auto keysOf = [&](unsigned g) { return keyframesOf(*hand.mesh(g)); };
    animation.createKeyFrameControllers();
    // Box 3 moves only at 3: a hold key at 2. Box 1 moves at 2 (with the
    // hold at 1) and holds until the end. Box 2 never moves.
    EXPECT_EQ((std::vector<float>{0, 2, 3}), timesOf(*keysOf(3)));
    EXPECT_EQ((std::vector<Vec3f>{Vec3f::ZERO, Vec3f::ZERO, F3}), translationsOf(*keysOf(3)));
    EXPECT_EQ((std::vector<float>{0, 1, 2, 3}), timesOf(*keysOf(1)));
    EXPECT_EQ((std::vector<float>{0, 3}), timesOf(*keysOf(2)));
    EXPECT_EQ((std::vector<float>{0, 1, 3}), timesOf(*keysOf(0)));

    animation.setAnimationPlayStyle(Animation::kPlayAssembly);
    animation.createKeyFrameControllers();
    EXPECT_EQ((std::vector<float>{0, 1, 3}), timesOf(*keysOf(3)));
    EXPECT_EQ((std::vector<Vec3f>{F3, Vec3f::ZERO, Vec3f::ZERO}), translationsOf(*keysOf(3)));

    animation.setAnimationPlayStyle(Animation::kPlayExplosionAndBack);
    animation.createKeyFrameControllers();
    EXPECT_EQ((std::vector<float>{0, 2, 3, 4, 6}), timesOf(*keysOf(3)));
    EXPECT_EQ((std::vector<Vec3f>{Vec3f::ZERO, Vec3f::ZERO, F3, Vec3f::ZERO, Vec3f::ZERO}), translationsOf(*keysOf(3)));

    animation.setAnimationPlayStyle(Animation::kPlayAssemblyAndBack);
    animation.setAnimationBaseSpeed(2.0f);
    animation.createKeyFrameControllers();
    EXPECT_EQ((std::vector<float>{0, 0.5f, 1.5f, 2.5f, 3}), timesOf(*keysOf(3)));
    EXPECT_EQ((std::vector<Vec3f>{F3, Vec3f::ZERO, Vec3f::ZERO, Vec3f::ZERO, F3}), translationsOf(*keysOf(3)));
}

TEST(ExplodedViewAnimation, MissedFinalTranslationIsReportedAndKept)
{
    const HandAssembly hand = column();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(0.5f);
    const Animation animation(diagram);
    const Vec3f F3 = diagram.getFinalPerGroupTranslation(3);
    StdoutCapture output;
    const std::vector<Vec3f> keys = Access::keysFromOneIncrement(animation, 3, F3 + Vec3f(0, 0, 1));
    EXPECT_EQ("error: 3: 0 0 1\n", output.text());
    EXPECT_EQ(F3 + Vec3f(0, 0, 1), keys.back());
}

TEST(ExplodedViewAnimation, ClampingOrderAndReferenceSplits)
{
    // {A} | {B, C}, then {B} | {C}: A moves (fewer groups), then C (equal
    // sides: the second one). Static {B} is listed by nobody; C before A.
    HandAssembly hand({box({0, 0, 0}, {1, 1, 1}), box({0, 0, 1}, {1, 1, 2}), box({0, 0, 2}, {1, 1, 3})});
    hand.addContact(1, 0, {kUp});
    hand.addContact(2, 1, {kUp});
    hand.finishEdges();
    hand.splitRaw(0, {1, 2}, hand.lineOf(kUp));
    hand.splitRaw(2, {2}, hand.lineOf(kUp));
    hand.commit();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(1.0f);
    ASSERT_EQ(0u, Diagram::movingReferenceGroup(diagram.getSplitData(0)));
    ASSERT_EQ(2u, Diagram::movingReferenceGroup(diagram.getSplitData(2)));
    const Animation animation(diagram);
    EXPECT_EQ((std::vector<unsigned>{2, 0}), Access::clampingOrder(animation));
    EXPECT_EQ((std::vector<unsigned>{0, kNone, 2}), Access::referenceSplits(animation));
}

TEST(ExplodedViewAnimation, ControllersAreReplacedAndStartFromTheMeshPlacement)
{
    const HandAssembly hand = column();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(0.5f);
    const Vec3f F3 = diagram.getFinalPerGroupTranslation(3);
    kx::kxTriMesh& top = *hand.mesh(3);
    top.editLocalTransform(true).SetTranslate(Vec3f(5, 0, 0));  // World stays identity

    Animation animation(diagram);
    animation.createKeyFrameControllers();
    top.UpdateControllers(100.0);
    EXPECT_EQ(Vec3f(5, 0, 0) + F3, top.GetLocalTransform().GetTranslate());
    EXPECT_EQ(Vec3f(5, 0, 0) + F3, top.World.GetTranslate());

    animation.createKeyFrameControllers();  // replaces, from the placement it started from
    const kx::kxKeyframeController* keys = keyframesOf(top);
    ASSERT_NE(nullptr, keys);
    EXPECT_EQ(Vec3f(5, 0, 0), top.GetLocalTransform().GetTranslate());
    EXPECT_EQ(Vec3f(5, 0, 0), keys->GetKeyToLocal().GetTranslate());
    top.UpdateControllers(100.0);
    EXPECT_EQ(Vec3f(5, 0, 0) + F3, top.GetLocalTransform().GetTranslate());
    EXPECT_EQ(Vec3f(0, 0, 0), animation.getGlobalBBox().min);
    EXPECT_EQ(Vec3f(1, 1, 4), animation.getGlobalBBox().max);
}
