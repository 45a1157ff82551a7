// Removal steps as instructions: names counted, directions named, and on
// demo assemblies the base never moves while every step has a direction.
#include <gtest/gtest.h>

#include <algorithm>

#include "velmora/DemoAssemblies.h"
#include "velmora/RemovalInstructions.h"

namespace {

using Vec3d = Wm4::Vector3<double>;

TEST(RemovalInstructions, PartsAreCountedAndDirectionsNamed)
{
    velmora::Assembly assembly;
    for (const char* name : {"049_dowel_125-2", "plate", "050_dowel_125-4", "pin#2", "pin", "7_pin-"})
        assembly.parts.push_back({name, "(test)", "", velmora::shapes::box({0, 0, 0}, {1, 1, 1}), std::nullopt});
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    EXPECT_EQ(velmora::describeParts(assembly, {0, 1, 2, 3, 4, 5}), "dowel_125 \u00d72, plate, pin \u00d72, 7_pin-");
    EXPECT_EQ(velmora::describeParts(assembly, {2}), "050_dowel_125-4");

    EXPECT_EQ(velmora::describeDirection(Vec3d(0, 0, -1)), "-Z");
    EXPECT_EQ(velmora::describeDirection(Vec3d(-1e-9, 1, 0)), "+Y");
    EXPECT_EQ(velmora::describeDirection(Vec3d(0.6, -0.8, 0)), "(0.600, -0.800, 0.000)");
}

// On every demo assembly, taking out every part with the default base: no
// instruction moves the base, each has a unit direction, the last one takes
// out the part and every group moves at most once outside the target's side.
TEST(RemovalInstructions, TheBaseNeverMovesAndEveryStepHasADirection)
{
    for (const std::string name : {"stack", "peg-in-hole"}) {
        const velmora::Assembly assembly = velmora::makeDemoAssembly(name);
        velmora::PlanOptions options;
        options.hierarchy = true;
        options.threads = 1;
        const auto plan = velmora::planAssembly(assembly, options);
        for (unsigned part = 0; part < assembly.parts.size(); ++part) {
            SCOPED_TRACE(name + ": " + assembly.parts[part].name);
            const velmora::RemovalProcedure removal = velmora::planRemoval(*plan, part, false);
            const unsigned base = velmora::removalBase(assembly, removal.group);
            EXPECT_NE(base, removal.group);
            const std::vector<velmora::RemovalInstruction> steps = velmora::removalInstructions(*plan, removal, base);
            ASSERT_FALSE(steps.empty());
            for (const velmora::RemovalInstruction& step : steps) {
                EXPECT_FALSE(std::binary_search(step.groups.begin(), step.groups.end(), base));
                EXPECT_TRUE(std::is_sorted(step.groups.begin(), step.groups.end()));
                EXPECT_NEAR(step.direction.Length(), 1.0, 1e-9);
            }
            EXPECT_TRUE(steps.back().target);
            EXPECT_TRUE(std::binary_search(steps.back().groups.begin(), steps.back().groups.end(), removal.group));
        }
    }
}

}  // namespace
