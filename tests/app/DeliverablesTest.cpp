// What the tool and the binding share: the explode defaults, the resolution
// of the part kept still and of the unit, the removal's instructions as text
// and report, and a removal's view that leaves the plan's own view intact.
#include <gtest/gtest.h>

#include "velmora/DemoAssemblies.h"
#include "velmora/Deliverables.h"
#include "velmora/RemovalAnimation.h"

namespace {

using velmora::Assembly;

// Two unit cubes, "upper" standing on "lower", one group each.
Assembly twoCubes(const std::string& units)
{
    Assembly assembly;
    assembly.parts.push_back({"lower", "(test)", "", velmora::shapes::box({0, 0, 0}, {1, 1, 1}), std::nullopt});
    assembly.parts.push_back({"upper", "(test)", "", velmora::shapes::box({0, 0, 1}, {1, 1, 2}), std::nullopt});
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    assembly.units = units;
    return assembly;
}

std::unique_ptr<velmora::Plan> planOf(const Assembly& assembly)
{
    velmora::PlanOptions options;
    options.hierarchy = true;
    options.threads = 1;
    return velmora::planAssembly(assembly, options);
}

TEST(Deliverables, DefaultsAreTheLibrarysTimedByTravel)
{
    const velmora::ExplodeOptions library, tools = velmora::defaultExplodeOptions();
    EXPECT_EQ(tools.speed, 1.0f);
    EXPECT_EQ(library.speed, 0.0f);
    EXPECT_EQ(tools.policy, library.policy);
    EXPECT_EQ(tools.playStyle, library.playStyle);
    EXPECT_EQ(tools.base, library.base);
    EXPECT_EQ(tools.glb.compress, library.glb.compress);
    EXPECT_EQ(tools.glb.creaseAngle, library.glb.creaseAngle);
    EXPECT_EQ(velmora::ViewRequest().units, "mm");
}

TEST(Deliverables, TheFixedPartAndTheUnitResolve)
{
    velmora::ViewRequest request;
    request.units = "in";
    const velmora::ExplodeOptions stated = velmora::resolveViewOptions(twoCubes("cm"), request);
    EXPECT_EQ(stated.base, -1);
    EXPECT_EQ(stated.glb.units, "cm");  // the input's own unit wins
    EXPECT_TRUE(stated.glb.zUp);
    request.fix = "upper";
    const velmora::ExplodeOptions unstated = velmora::resolveViewOptions(twoCubes(""), request);
    EXPECT_EQ(unstated.base, 1);
    EXPECT_EQ(unstated.glb.units, "in");
    request.fix = "nothing";
    EXPECT_THROW(velmora::resolveViewOptions(twoCubes(""), request), velmora::InputError);
}

TEST(Deliverables, RemovalBaseAndInstructions)
{
    const Assembly assembly = twoCubes("mm");
    EXPECT_EQ(velmora::removalBaseGroup(assembly, 1, ""), 0u);
    EXPECT_EQ(velmora::removalBaseGroup(assembly, 0, "upper"), 1u);
    EXPECT_THROW(velmora::removalBaseGroup(assembly, 1, "upper"), velmora::InputError);

    const auto plan = planOf(assembly);
    const velmora::RemovalPlan removal = velmora::planRemovalFor(*plan, 1, 0, false);
    EXPECT_EQ(velmora::removalInstructionsText(assembly, removal),
              "Taking out upper (lower stays in place): 1 step\n  1. take out upper along +Z\n");
    velmora::Json report;
    velmora::addRemovalInstructions(report, assembly, removal);
    EXPECT_EQ(report["removal"]["base"], velmora::Json({"lower"}));
    const velmora::Json expected = {{{"step", 1}, {"groups", {1}}, {"parts", {"upper"}},
                                     {"direction", {0.0, 0.0, 1.0}}, {"target", true}}};
    EXPECT_EQ(report["removal"]["instructions"], expected);

    const velmora::ExplodeOptions view = velmora::removalViewOptions(assembly, {}, removal);
    EXPECT_EQ(view.base, 0);
    EXPECT_EQ(view.policy, 0u);
    EXPECT_EQ(view.glb.animationName, "remove upper");
    EXPECT_EQ(velmora::removalTitle("cubes.obj", assembly, removal), "cubes.obj: taking out upper");
}

// The view of a removal plays its instructions, as the tool writes it, and
// the plan explodes afterwards exactly as before.
TEST(Deliverables, ARemovalsViewLeavesThePlanAsItWas)
{
    const Assembly assembly = velmora::makeDemoAssembly("peg-in-hole");
    const auto plan = planOf(assembly);
    const velmora::ExplodeOptions options = velmora::resolveViewOptions(assembly, {});
    const std::vector<unsigned char> before = velmora::explodeAssembly(*plan, options).glb;

    const auto rewritten = planOf(assembly);
    const velmora::RemovalPlan removal = velmora::planRemovalFor(*rewritten, 0, velmora::removalBaseGroup(assembly, 0, ""), true);
    const std::vector<unsigned char> expected =
        velmora::removalView(assembly, removal.instructions, removal.base,
                             velmora::removalViewOptions(assembly, {}, removal)).glb;

    const velmora::RemovalView view = velmora::explodeRemoval(*plan, {}, removal);
    EXPECT_EQ(view.view.glb, expected);
    EXPECT_TRUE(view.report.contains("explosion"));
    EXPECT_EQ(velmora::explodeAssembly(*plan, options).glb, before);
}

TEST(Deliverables, Titles)
{
    EXPECT_EQ(velmora::inputsTitle({"dir/a.glb"}), "a.glb");
    EXPECT_EQ(velmora::inputsTitle({"dir/a.glb", "b.obj", "c.obj"}), "a.glb and 2 more");
    EXPECT_EQ(velmora::explodedViewTitle("stack"), "stack: exploded view");
}

}  // namespace
