#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "velmora/DemoAssemblies.h"
#include "velmora/Explode.h"
#include "velmora/FixedBase.h"
#include "velmora/Planner.h"
#include "velmora/Removal.h"

namespace {

constexpr unsigned kNoNode = kxDisassemblyHierarchy::kNoNode;
enum PegGroups : unsigned { kPlate = 0, kWasher = 1, kPeg = 2 };

velmora::PlanOptions hierarchyOptions(unsigned threads)
{
    velmora::PlanOptions o;
    o.threads = threads;
    o.hierarchy = true;
    return o;
}

std::set<unsigned> groupsOfNode(const kxDisassemblyHierarchy& hierarchy, unsigned id)
{
    const std::vector<unsigned> groups = velmora::groupsOfNode(hierarchy, id);
    return {groups.begin(), groups.end()};
}

// The unit direction along which the given child of a split node leaves its
// sibling: the second child along the split direction, the first against it.
Wm4::Vector3<double> leavingDirection(const velmora::Plan& plan, unsigned node, unsigned child)
{
    const kxDisassemblyHierarchy::tTreeNode& n = plan.hierarchy().getNode(node);
    const Wm4::Vector3<double>& d = plan.diagram().getDirectionFromId(n.splitId);
    return child == n.secondChild ? d : -d;
}

// A set kept together is never cut: every node holds all of it, none of it,
// or only groups of it.
void expectNeverCut(const kxDisassemblyHierarchy& hierarchy, const std::set<unsigned>& kept)
{
    for (unsigned id = 0; id < hierarchy.getNoNodes(); ++id) {
        if (hierarchy.getNode(id).noGroups == kNoNode)
            continue;
        const std::set<unsigned> groups = groupsOfNode(hierarchy, id);
        size_t inside = 0;
        for (unsigned g : kept)
            inside += groups.count(g);
        const bool withinKept = std::includes(kept.begin(), kept.end(), groups.begin(), groups.end());
        EXPECT_TRUE(inside == 0 || inside == kept.size() || withinKept) << "node " << id;
    }
}

// Plate and washer kept together: the peg must come out of both first, upwards.
TEST(PlanHierarchy, KeptTogetherPartsStayOnOneSideOfEverySplit)
{
    velmora::PlanOptions options = hierarchyOptions(2);
    options.keepTogether = {{kWasher, kPlate}};
    const auto plan = velmora::planAssembly(velmora::makeDemoAssembly("peg-in-hole"), options);
    const kxDisassemblyHierarchy& hierarchy = plan->hierarchy();
    const kxDisassemblyHierarchy::tTreeNode& root = hierarchy.getNode(0);
    ASSERT_NE(root.firstChild, kNoNode);
    const unsigned pegSide = groupsOfNode(hierarchy, root.firstChild).count(kPeg) ? root.firstChild : root.secondChild;
    const unsigned otherSide = pegSide == root.firstChild ? root.secondChild : root.firstChild;
    EXPECT_EQ(groupsOfNode(hierarchy, pegSide), (std::set<unsigned>{kPeg}));
    EXPECT_EQ(groupsOfNode(hierarchy, otherSide), (std::set<unsigned>{kPlate, kWasher}));
    EXPECT_GT(leavingDirection(*plan, 0, pegSide)[2], 0.999);
    expectNeverCut(hierarchy, {kPlate, kWasher});
    EXPECT_EQ(plan->keepTogether(), (std::vector<std::vector<unsigned>>{{kPlate, kWasher}}));

    // The housing stack with its pin and the cover kept as one sub-assembly.
    options.keepTogether = {{8, 9}};
    const velmora::Assembly stack = velmora::makeDemoAssembly("stack");
    ASSERT_GE(stack.groups.size(), 10u);
    expectNeverCut(velmora::planAssembly(stack, options)->hierarchy(), {8, 9});
}

TEST(PlanHierarchy, SameTreeForAnyThreadCount)
{
    for (const velmora::Assembly& assembly : {velmora::makeDemoAssembly("stack"), velmora::makeBrickWall(12)}) {
        const auto one = velmora::planAssembly(assembly, hierarchyOptions(1));
        const kxDisassemblyHierarchy& reference = one->hierarchy();
        for (unsigned threads : {3u}) {
            const auto other = velmora::planAssembly(assembly, hierarchyOptions(threads));
            ASSERT_EQ(other->hierarchy().getNoNodes(), reference.getNoNodes());
            for (unsigned id = 0; id < reference.getNoNodes(); ++id) {
                const auto& a = reference.getNode(id);
                const auto& b = other->hierarchy().getNode(id);
                EXPECT_EQ(std::tie(a.start, a.noGroups, a.firstChild, a.secondChild, a.parent, a.splitId),
                          std::tie(b.start, b.noGroups, b.firstChild, b.secondChild, b.parent, b.splitId))
                    << "node " << id << " with " << threads << " threads";
            }
            for (unsigned g = 0; g < assembly.groups.size(); ++g)
                EXPECT_EQ(reference.getOrderedIndexFromGroupId(g), other->hierarchy().getOrderedIndexFromGroupId(g));
            EXPECT_EQ(one->builder().getNoDistantConstraints(), other->builder().getNoDistantConstraints());
        }
    }
}

TEST(PlanHierarchy, DistantContactsAndKeepTogetherOptions)
{
    const velmora::Assembly peg = velmora::makeDemoAssembly("peg-in-hole");
    velmora::PlanOptions options = hierarchyOptions(2);
    EXPECT_GT(velmora::planAssembly(peg, options)->builder().getNoDistantConstraints(), 0u);
    options.distantContacts = false;
    const auto without = velmora::planAssembly(peg, options);
    EXPECT_EQ(without->builder().getNoDistantConstraints(), 0u);
    EXPECT_FALSE(without->distantContacts());

    // Contacts only: no hierarchy, no distant stage.
    const auto contacts = velmora::planAssembly(peg, velmora::PlanOptions{});
    EXPECT_FALSE(contacts->hasHierarchy());

    for (const std::vector<unsigned>& bad : {std::vector<unsigned>{kPeg}, {kPeg, kPeg}, {kPeg, 3}}) {
        options.keepTogether = {bad};
        EXPECT_THROW(velmora::planAssembly(peg, options), velmora::InputError);
    }
}

// Taking the plate out of the peg-in-hole: the peg and washer above it leave
// upwards together, then the plate is free. Taking the peg out: everything
// else leaves downwards first.
TEST(Removal, PegInHoleSteps)
{
    const velmora::Assembly assembly = velmora::makeDemoAssembly("peg-in-hole");
    auto plan = velmora::planAssembly(assembly, hierarchyOptions(2));

    const velmora::RemovalProcedure plate = velmora::planRemoval(*plan, velmora::findPart(assembly, "plate"), false);
    EXPECT_EQ(plate.group, kPlate);
    ASSERT_EQ(plate.steps.size(), 2u);
    EXPECT_EQ(plate.steps[0].groups, (std::vector<unsigned>{kWasher, kPeg}));
    EXPECT_GT(plate.steps[0].direction[2], 0.999);
    EXPECT_NE(plate.steps[0].sense, 0);
    EXPECT_EQ(plate.steps[1].groups, (std::vector<unsigned>{kPlate}));
    EXPECT_EQ(plate.steps[1].sense, 0);
    EXPECT_EQ(plate.steps[1].direction, Wm4::Vector3<double>(0, 0, 0));

    const velmora::RemovalProcedure peg = velmora::planRemoval(*plan, velmora::findPart(assembly, "peg"), false);
    ASSERT_GE(peg.steps.size(), 2u);
    EXPECT_EQ(peg.steps.back().groups, (std::vector<unsigned>{kPeg}));
    std::vector<unsigned> moved;
    for (size_t s = 0; s + 1 < peg.steps.size(); ++s) {
        EXPECT_LT(peg.steps[s].direction[2], -0.999) << "step " << s;
        const Wm4::Vector3<double> stored = plan->diagram().getDirectionFromId(peg.steps[s].directionId);
        EXPECT_EQ(peg.steps[s].direction, stored * double(peg.steps[s].sense));
        moved.insert(moved.end(), peg.steps[s].groups.begin(), peg.steps[s].groups.end());
    }
    std::sort(moved.begin(), moved.end());
    EXPECT_EQ(moved, (std::vector<unsigned>{kPlate, kWasher}));

    // Rewriting the hierarchy makes it the procedure's own tree: the root
    // splits off the first step's groups.
    velmora::planRemoval(*plan, velmora::findPart(assembly, "plate"), true);
    const kxDisassemblyHierarchy::tTreeNode& root = plan->hierarchy().getNode(0);
    ASSERT_NE(root.firstChild, kNoNode);
    const std::set<unsigned> first = groupsOfNode(plan->hierarchy(), root.firstChild);
    const std::set<unsigned> second = groupsOfNode(plan->hierarchy(), root.secondChild);
    EXPECT_TRUE((first == std::set<unsigned>{kPlate} && second == std::set<unsigned>{kWasher, kPeg}) ||
                (second == std::set<unsigned>{kPlate} && first == std::set<unsigned>{kWasher, kPeg}));
}

TEST(Removal, UnknownPartNamesTheClosestOnes)
{
    const velmora::Assembly assembly = velmora::makeDemoAssembly("peg-in-hole");
    EXPECT_EQ(velmora::findPart(assembly, "washer"), 1u);
    try {
        velmora::findPart(assembly, "Wsher");
        FAIL() << "no error";
    } catch (const velmora::InputError& e) {
        EXPECT_EQ(std::string(e.what()), "no part is named 'Wsher'; closest: washer, peg, plate");
    }
}

TEST(Explode, OffsetsKeyframesAndOptions)
{
    const velmora::Assembly assembly = velmora::makeDemoAssembly("peg-in-hole");
    const auto plan = velmora::planAssembly(assembly, hierarchyOptions(2));
    Wm4::Vector3<float> lo, hi;
    velmora::assemblyBounds(assembly, lo, hi);
    EXPECT_FLOAT_EQ(velmora::defaultSplitDistance(assembly), 0.1f * (hi - lo).Length());

    const velmora::ExplodedView animated = velmora::explodeAssembly(*plan, {});
    EXPECT_FLOAT_EQ(animated.splitDistance, velmora::defaultSplitDistance(assembly));
    ASSERT_EQ(animated.offsets.size(), 3u);
    ASSERT_EQ(animated.keyframes.size(), 3u);
    EXPECT_GT(animated.duration, 0.0f);
    for (unsigned g = 0; g < 3; ++g) {
        ASSERT_FALSE(animated.keyframes[g].translations.empty());
        // Exploding: every group starts in place and ends at its offset.
        EXPECT_EQ(animated.keyframes[g].translations.front(), Wm4::Vector3<float>(0, 0, 0));
        EXPECT_LT((animated.keyframes[g].translations.back() - animated.offsets[g]).Length(), 1e-4f);
    }
    // The largest part stays still: its offset and every one of its keys
    // are exactly zero.
    EXPECT_EQ(animated.base, velmora::groupOfPart(assembly, velmora::largestPart(assembly)));
    EXPECT_EQ(animated.offsets[animated.base], Wm4::Vector3<float>::ZERO);
    for (const Wm4::Vector3<float>& key : animated.keyframes[animated.base].translations)
        EXPECT_EQ(key, Wm4::Vector3<float>::ZERO);
    // The plate leaves downwards from the washer and peg.
    EXPECT_LT(animated.offsets[kPlate][2] - animated.offsets[kWasher][2], -animated.splitDistance * 0.5f);
    ASSERT_GE(animated.glb.size(), 12u);
    EXPECT_EQ(std::string(animated.glb.begin(), animated.glb.begin() + 4), "glTF");

    velmora::ExplodeOptions pose;
    pose.staticPose = true;
    pose.splitDistance = 2.5f;
    const velmora::ExplodedView still = velmora::explodeAssembly(*plan, pose);
    EXPECT_EQ(still.splitDistance, 2.5f);
    EXPECT_TRUE(still.keyframes.empty());
    EXPECT_EQ(still.duration, 0.0f);

    // Another base: the relative offsets stay those of the library.
    pose.base = int(kWasher);
    const velmora::ExplodedView fixedWasher = velmora::explodeAssembly(*plan, pose);
    EXPECT_EQ(fixedWasher.base, kWasher);
    EXPECT_EQ(fixedWasher.offsets[kWasher], Wm4::Vector3<float>::ZERO);
    for (unsigned g = 0; g < 3; ++g)
        EXPECT_LT((fixedWasher.offsets[g] - (still.offsets[g] - still.offsets[kWasher])).Length(), 1e-5f);

    const auto withOption = [](auto set) {
        velmora::ExplodeOptions options;
        set(options);
        return options;
    };
    for (const velmora::ExplodeOptions& bad :
         {withOption([](auto& o) { o.policy = 3; }), withOption([](auto& o) { o.playStyle = 4; }),
          withOption([](auto& o) { o.splitDistance = -1; }), withOption([](auto& o) { o.speed = -1; }),
          withOption([](auto& o) { o.base = 99; })})
        EXPECT_THROW(velmora::explodeAssembly(*plan, bad), velmora::InputError);
}

}  // namespace
