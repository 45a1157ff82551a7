// The platform pieces the animation hands its keys to: shared arrays and the
// keyframe controller with its attachment to scene objects.
#include <gtest/gtest.h>

#include "kxSceneGraph.h"

namespace {

using Vec3f = Wm4::Vector3<float>;

kx::kxKeyframeController* controllerOf(std::vector<float> times, std::vector<Vec3f> keys,
                                       const kx::kxGenericTransformation<float>& keyToLocal = {})
{
    return new kx::kxKeyframeController(new kx::kxTSharedArray<float>(std::move(times)),
                                        new kx::kxTSharedArray<Vec3f>(std::move(keys)), keyToLocal);
}

}  // namespace

TEST(SharedArray, HoldsItsElementsWhileReferenced)
{
    kx::kxPointer<kx::kxTSharedArray<float>> sized = new kx::kxTSharedArray<float>(3);
    EXPECT_EQ(3, sized->GetQuantity());
    EXPECT_EQ(0.0f, (*sized)[2]);
    (*sized)[1] = 4.0f;
    EXPECT_EQ(4.0f, sized->GetData()[1]);
    EXPECT_EQ(nullptr, kx::kxTSharedArray<float>().GetData());

    kx::kxPointer<kx::kxTSharedArray<float>> times = new kx::kxTSharedArray<float>(std::vector<float>{0, 1});
    kx::kxPointer<kx::kxTSharedArray<Vec3f>> keys =
        new kx::kxTSharedArray<Vec3f>(std::vector<Vec3f>{{0, 0, 0}, {1, 0, 0}});
    {
        kx::kxPointer<kx::kxKeyframeController> a = new kx::kxKeyframeController(times, keys);
        kx::kxPointer<kx::kxKeyframeController> b = new kx::kxKeyframeController(times, keys);
        EXPECT_EQ(3, times->GetReferences());
        EXPECT_EQ(a->GetTimes(), b->GetTimes());
    }
    EXPECT_EQ(1, times->GetReferences());
    EXPECT_EQ(1, keys->GetReferences());
}

TEST(KeyframeController, InterpolatesLinearlyAndHoldsTheEnds)
{
    kx::kxPointer<kx::kxKeyframeController> c =
        controllerOf({1, 2, 2, 4}, {{0, 0, 0}, {2, 0, 0}, {2, 6, 0}, {2, 6, 8}});
    EXPECT_EQ(4, c->GetKeyQuantity());
    EXPECT_EQ(Vec3f(0, 0, 0), c->GetTranslation(-3.0));  // before the first key
    EXPECT_EQ(Vec3f(0, 0, 0), c->GetTranslation(1.0));
    EXPECT_EQ(Vec3f(1, 0, 0), c->GetTranslation(1.5));
    EXPECT_EQ(Vec3f(2, 6, 0), c->GetTranslation(2.0));  // equal times: the later key from then on
    EXPECT_EQ(Vec3f(2, 6, 2), c->GetTranslation(2.5));
    EXPECT_EQ(Vec3f(2, 6, 8), c->GetTranslation(4.0));
    EXPECT_EQ(Vec3f(2, 6, 8), c->GetTranslation(9.0));  // after the last key

    // Only as many keys as both arrays hold; none at all leaves the object alone.
    kx::kxPointer<kx::kxKeyframeController> shorter = controllerOf({0, 1, 2}, {{0, 0, 0}, {1, 1, 1}});
    EXPECT_EQ(2, shorter->GetKeyQuantity());
    EXPECT_EQ(Vec3f(1, 1, 1), shorter->GetTranslation(5.0));
    kx::kxPointer<kx::kxSpatial> object = new kx::kxSpatial;
    object->editLocalTransform(false).SetTranslate(Vec3f(7, 7, 7));
    kx::kxController::AttachController(object, controllerOf({}, {}));
    object->UpdateControllers(1.0);
    EXPECT_EQ(Vec3f(7, 7, 7), object->GetLocalTransform().GetTranslate());
    EXPECT_FALSE(object->isLocalTransformChanged());
}

TEST(KeyframeController, UpdateWritesTheMappedKeyIntoTheLocalTranslation)
{
    kx::kxPointer<kx::kxNode> parent = new kx::kxNode;
    parent->editLocalTransform(true).SetTranslate(Vec3f(0, 0, 10));
    kx::kxPointer<kx::kxSpatial> child = new kx::kxSpatial;
    parent->AttachChild(child);
    // Keys scaled by 2 and offset by (1, 0, 0) on their way into the local frame.
    const kx::kxGenericTransformation<float> keyToLocal(Wm4::Matrix3<float>(true) * 2.0f, Vec3f(1, 0, 0));
    kx::kxController* controller = controllerOf({0, 1}, {{0, 0, 0}, {0, 3, 0}}, keyToLocal);
    kx::kxController::AttachController(child, controller);
    EXPECT_EQ(child.get(), controller->GetObject());
    ASSERT_EQ(1u, child->GetControllers().size());

    parent->UpdateGS();
    child->UpdateControllers(0.5);
    EXPECT_TRUE(child->isLocalTransformChanged());
    EXPECT_EQ(Vec3f(1, 3, 0), child->GetLocalTransform().GetTranslate());
    EXPECT_EQ(Vec3f(1, 3, 10), child->World.GetTranslate());  // UpdateControllers updates World

    // Attaching elsewhere detaches it from the first object.
    kx::kxPointer<kx::kxSpatial> other = new kx::kxSpatial;
    kx::kxController::AttachController(other, controller);
    EXPECT_TRUE(child->GetControllers().empty());
    EXPECT_EQ(other.get(), controller->GetObject());
    other->UpdateControllers(1.0);
    EXPECT_EQ(Vec3f(1, 6, 0), other->GetLocalTransform().GetTranslate());
}
