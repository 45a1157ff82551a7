#include <gtest/gtest.h>

#include <set>

#include "velmora/DemoAssemblies.h"
#include "velmora/Explode.h"
#include "velmora/FixedBase.h"
#include "velmora/Planner.h"

namespace {

using Vec3 = Wm4::Vector3<float>;

// The stack demo's pin and cover, kept as one sub-assembly.
constexpr unsigned kPin = 8, kCover = 9;
// The peg-in-hole demo's plate (the largest part, so the base) and washer.
constexpr unsigned kPlate = 0, kWasher = 1;

std::unique_ptr<velmora::Plan> planKeeping(const std::string& demo, std::vector<unsigned> set)
{
    velmora::PlanOptions options;
    options.threads = 2;
    options.hierarchy = true;
    options.keepTogether = {std::move(set)};
    return velmora::planAssembly(velmora::makeDemoAssembly(demo), options);
}

velmora::ExplodedView explode(const velmora::Plan& plan, bool staticPose, bool explodeInside, float speed = 0)
{
    velmora::ExplodeOptions options;
    options.staticPose = staticPose;
    options.explodeInside = explodeInside;
    options.speed = speed;
    options.glb.compress = false;
    return velmora::explodeAssembly(plan, options);
}

// Every key time of every group of the animation.
std::set<float> keyTimes(const velmora::ExplodedView& view)
{
    std::set<float> times;
    for (const velmora::GroupKeyframes& keys : view.keyframes)
        times.insert(keys.times.begin(), keys.times.end());
    return times;
}

// Whether groups `a` and `b` are at the same translation at every key time.
bool moveAsOne(const velmora::ExplodedView& view, unsigned a, unsigned b)
{
    for (float t : keyTimes(view))
        if (velmora::translationAt(view.keyframes[a], t) != velmora::translationAt(view.keyframes[b], t))
            return false;
    return true;
}

void expectBaseStill(const velmora::ExplodedView& view)
{
    EXPECT_EQ(view.offsets[view.base], Vec3::ZERO);
    for (float t : keyTimes(view))
        EXPECT_EQ(velmora::translationAt(view.keyframes[view.base], t), Vec3::ZERO) << "at " << t;
}

TEST(KeepTogetherView, ASetMovesAsOnePieceUnlessExplodedInside)
{
    const auto plan = planKeeping("stack", {kPin, kCover});
    ASSERT_EQ(plan->keepTogether(), (std::vector<std::vector<unsigned>>{{kPin, kCover}}));

    const velmora::ExplodedView whole = explode(*plan, true, false);
    EXPECT_EQ(whole.offsets[kPin], whole.offsets[kCover]);
    EXPECT_GT(whole.offsets[kPin].Length(), 0.0f);  // the set still leaves the housing
    EXPECT_EQ(whole.offsets[whole.base], Vec3::ZERO);
    const velmora::ExplodedView inside = explode(*plan, true, true);
    EXPECT_NE(inside.offsets[kPin], inside.offsets[kCover]);
    // Outside the set the pose is the one exploded inside too.
    for (unsigned g = 0; g < kPin; ++g)
        EXPECT_EQ(whole.offsets[g], inside.offsets[g]) << "group " << g;

    for (float speed : {0.0f, 1.0f}) {
        SCOPED_TRACE(speed);
        const velmora::ExplodedView animated = explode(*plan, false, false, speed);
        ASSERT_EQ(animated.keyframes.size(), plan->assembly().groups.size());
        EXPECT_FALSE(keyTimes(animated).empty());
        EXPECT_TRUE(moveAsOne(animated, kPin, kCover));
        // The animation ends where the static pose puts the set.
        EXPECT_EQ(animated.keyframes[kPin].translations.back(), whole.offsets[kPin]);
        expectBaseStill(animated);
        const velmora::ExplodedView apart = explode(*plan, false, true, speed);
        EXPECT_FALSE(moveAsOne(apart, kPin, kCover));
        expectBaseStill(apart);
    }
}

TEST(KeepTogetherView, ASetHoldingTheBaseStaysStill)
{
    const auto plan = planKeeping("peg-in-hole", {kPlate, kWasher});
    const velmora::ExplodedView whole = explode(*plan, true, false);
    ASSERT_EQ(whole.base, kPlate);
    EXPECT_EQ(whole.offsets[kWasher], Vec3::ZERO);
    EXPECT_GT(whole.offsets[2].Length(), 0.0f);  // the peg still comes out
    EXPECT_NE(explode(*plan, true, true).offsets[kWasher], Vec3::ZERO);

    const velmora::ExplodedView animated = explode(*plan, false, false, 1.0f);
    expectBaseStill(animated);
    EXPECT_TRUE(moveAsOne(animated, kPlate, kWasher));
    EXPECT_FALSE(moveAsOne(explode(*plan, false, true, 1.0f), kPlate, kWasher));
}

}  // namespace
