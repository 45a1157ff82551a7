// The still base and timing by travel: hand-made keys whose relative motions
// and retimed durations can be worked out by hand.
#include <gtest/gtest.h>

#include "velmora/DemoAssemblies.h"
#include "velmora/FixedBase.h"

namespace {

using Vec3f = Wm4::Vector3<float>;
using velmora::GroupKeyframes;

TEST(FixedBase, TranslationAtInterpolatesAndHolds)
{
    const GroupKeyframes keys{{1.0f, 3.0f}, {Vec3f(0, 0, 0), Vec3f(4, -2, 8)}};
    EXPECT_EQ(velmora::translationAt(keys, 0.0f), Vec3f(0, 0, 0));
    EXPECT_EQ(velmora::translationAt(keys, 1.0f), Vec3f(0, 0, 0));
    EXPECT_EQ(velmora::translationAt(keys, 2.0f), Vec3f(2, -1, 4));
    EXPECT_EQ(velmora::translationAt(keys, 3.0f), Vec3f(4, -2, 8));
    EXPECT_EQ(velmora::translationAt(keys, 9.0f), Vec3f(4, -2, 8));
    EXPECT_EQ(velmora::translationAt(GroupKeyframes{}, 1.0f), Vec3f::ZERO);
}

TEST(FixedBase, BaseStaysStillAndRelativeMotionsAreKept)
{
    // Group 0 moves up during [0, 1]; the base (1) moves along x during
    // [0.5, 2]; group 2 has no keys.
    const std::vector<GroupKeyframes> keys = {
        {{0.0f, 1.0f}, {Vec3f(0, 0, 0), Vec3f(0, 0, 2)}},
        {{0.0f, 0.5f, 2.0f}, {Vec3f(0, 0, 0), Vec3f(0, 0, 0), Vec3f(3, 0, 0)}},
        {},
    };
    const std::vector<GroupKeyframes> fixed = velmora::keyframesRelativeTo(keys, 1);
    ASSERT_EQ(fixed.size(), 3u);
    EXPECT_EQ(fixed[0].times, (std::vector<float>{0.0f, 0.5f, 1.0f, 2.0f}));
    EXPECT_EQ(fixed[0].translations,
              (std::vector<Vec3f>{Vec3f(0, 0, 0), Vec3f(0, 0, 1), Vec3f(-1, 0, 2), Vec3f(-3, 0, 2)}));
    EXPECT_EQ(fixed[1].times, keys[1].times);
    for (const Vec3f& t : fixed[1].translations)
        EXPECT_EQ(t, Vec3f::ZERO);
    EXPECT_EQ(fixed[2].times, keys[1].times);
    EXPECT_EQ(fixed[2].translations, (std::vector<Vec3f>{Vec3f(0, 0, 0), Vec3f(0, 0, 0), Vec3f(-3, 0, 0)}));
    // Every pair of groups keeps its relative motion at every time.
    for (float t : {0.0f, 0.25f, 0.5f, 0.75f, 1.0f, 1.5f, 2.0f, 3.0f})
        for (size_t a = 0; a < 3; ++a)
            for (size_t b = 0; b < 3; ++b) {
                const Vec3f before = velmora::translationAt(keys[a], t) - velmora::translationAt(keys[b], t);
                const Vec3f after = velmora::translationAt(fixed[a], t) - velmora::translationAt(fixed[b], t);
                EXPECT_LT((before - after).Length(), 1e-6f) << t << " " << a << " " << b;
            }

    const std::vector<Vec3f> offsets = {Vec3f(1, 2, 3), Vec3f(0, 0, 5), Vec3f(-1, 0, 0)};
    EXPECT_EQ(velmora::offsetsRelativeTo(offsets, 1),
              (std::vector<Vec3f>{Vec3f(1, 2, -2), Vec3f(0, 0, 0), Vec3f(-1, 0, -5)}));
}

TEST(FixedBase, StretchesLastInProportionToTheirTravel)
{
    // [0, 1]: group 0 travels 3; [1, 2]: group 1 travels 4; [2, 3]: nothing moves.
    const std::vector<GroupKeyframes> keys = {
        {{0.0f, 1.0f, 3.0f}, {Vec3f(0, 0, 0), Vec3f(3, 0, 0), Vec3f(3, 0, 0)}},
        {{0.0f, 1.0f, 2.0f}, {Vec3f(0, 0, 0), Vec3f(0, 0, 0), Vec3f(0, 4, 0)}},
    };
    const std::vector<GroupKeyframes> retimed = velmora::retimedByTravel(keys, 2.0f, 0.25f);
    EXPECT_EQ(retimed[0].times, (std::vector<float>{0.0f, 1.5f, 3.75f}));
    EXPECT_EQ(retimed[1].times, (std::vector<float>{0.0f, 1.5f, 3.5f}));
    EXPECT_EQ(retimed[0].translations, keys[0].translations);
    EXPECT_EQ(retimed[1].translations, keys[1].translations);
}

TEST(FixedBase, LargestPartByEnclosedVolume)
{
    velmora::Assembly assembly;
    const auto add = [&](const char* name, const Vec3f& lo, const Vec3f& hi, const Wm4::Matrix3<float>& m) {
        kx::kxPointer<kx::kxTriMesh> mesh = velmora::shapes::box(lo, hi);
        mesh->World = kx::kxGenericTransformation<float>(m, Vec3f(7, 0, 0));
        assembly.parts.push_back({name, "(test)", "", mesh, std::nullopt});
    };
    const Wm4::Matrix3<float> identity(true);
    add("small", Vec3f(0, 0, 0), Vec3f(2, 3, 4), identity);                                   // 24
    add("mirrored", Vec3f(0, 0, 0), Vec3f(1, 1, 1), Wm4::Matrix3<float>(-3, 0, 0, 0, 3, 0, 0, 0, 3));  // 27
    add("rotated", Vec3f(0, 0, 0), Vec3f(1, 5, 5), Wm4::Matrix3<float>::FromAxisAngle(Vec3f(0, 0, 1), 0.7f));  // 25
    EXPECT_NEAR(velmora::partVolume(assembly.parts[0]), 24.0, 1e-9);
    EXPECT_NEAR(velmora::partVolume(assembly.parts[1]), 27.0, 1e-4);
    EXPECT_NEAR(velmora::partVolume(assembly.parts[2]), 25.0, 1e-4);
    EXPECT_EQ(velmora::largestPart(assembly), 1u);
}

}  // namespace
