#include <gtest/gtest.h>

#include "TestMeshes.h"
#include "kxSceneGraph.h"
#include "kxSystem.h"

namespace {

// Counts its own destruction so tests can see when the last pointer let go.
struct Tracked : kx::kxObject {
    explicit Tracked(int* deaths) : deaths(deaths) {}
    ~Tracked() override { ++*deaths; }
    int* deaths;
};

TEST(SceneGraph, PointerCountsReferencesAndDeletesOnce)
{
    int deaths = 0;
    {
        kx::kxPointer<Tracked> a = new Tracked(&deaths);
        EXPECT_EQ(a->GetReferences(), 1);
        kx::kxPointer<Tracked> b = a;
        kx::kxPointer<Tracked> c;
        EXPECT_TRUE(c == nullptr);
        c = b;
        EXPECT_EQ(a->GetReferences(), 3);
        kx::kxPointer<Tracked> d = std::move(c);
        EXPECT_TRUE(c == nullptr);
        EXPECT_EQ(a->GetReferences(), 3);
        b = a.get();  // self-assignment through a raw pointer keeps the object
        EXPECT_EQ(a->GetReferences(), 3);
        Tracked* raw = a;
        EXPECT_EQ(raw, d.get());
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 1);
}

TEST(SceneGraph, VertexBufferChannelsFollowTheAttributes)
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    attr.SetTCoordChannels(0, 3);
    attr.SetTCoordChannels(1, 2);
    attr.SetPSizeChannels(1);
    EXPECT_EQ(attr.GetChannelQuantity(), 12);
    kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, 4);
    ASSERT_EQ(vb->GetVertexQuantity(), 4);
    for (int i = 0; i < 4; ++i) {
        vb->Position3(i) = Wm4::Vector3<float>(float(i), 1, 2);
        vb->Normal3(i) = Wm4::Vector3<float>(0, 0, 1);
        vb->TCoord3(0, i) = Wm4::Vector3<float>(1, 0, 0);
        vb->TCoord2(1, i) = Wm4::Vector2<float>(0.5f, float(i));
        vb->PSize1(i) = 0.25f * float(i);
    }
    vb->resizeVertexBuffer(6);
    EXPECT_EQ(vb->GetVertexQuantity(), 6);
    EXPECT_EQ(vb->Position3(3), Wm4::Vector3<float>(3, 1, 2));
    EXPECT_EQ(vb->TCoord2(1, 3).Y(), 3.0f);
    EXPECT_EQ(vb->PSize1(3), 0.75f);
    EXPECT_EQ(vb->Position3(5), Wm4::Vector3<float>::ZERO);

    kx::kxAttributes smaller;
    smaller.SetPositionChannels(3);
    smaller.SetTCoordChannels(0, 3);
    smaller.SetTCoordChannels(1, 3);  // width differs: not copied
    kx::kxVertexBuffer dst(smaller, 1);
    kx::kxMeshUtils::CopyVertexData(*vb, 2, dst, 0);
    EXPECT_EQ(dst.Position3(0), Wm4::Vector3<float>(2, 1, 2));
    EXPECT_EQ(dst.TCoord3(0, 0), Wm4::Vector3<float>(1, 0, 0));
    EXPECT_EQ(dst.TCoord3(1, 0), Wm4::Vector3<float>::ZERO);
}

TEST(SceneGraph, TriMeshTrianglesAndBuffers)
{
    auto box = velmora_test::makeBox({0, 0, 0}, {1, 2, 3});
    EXPECT_EQ(box->GetTriangleQuantity(), 12);
    EXPECT_EQ(box->GetVertexBuffer()->GetVertexQuantity(), 8);
    int i0 = -1, i1 = -1, i2 = -1;
    ASSERT_TRUE(box->GetTriangle(11, i0, i1, i2));
    EXPECT_EQ(i0, 1);
    EXPECT_EQ(i1, 7);
    EXPECT_EQ(i2, 5);
    EXPECT_FALSE(box->GetTriangle(12, i0, i1, i2));
    EXPECT_TRUE(box->World.IsIdentity());
    EXPECT_TRUE(box->GetLocalTransform().IsIdentity());
}

TEST(SceneGraph, WorldTransformsComposeDownTheTree)
{
    kx::kxPointer<kx::kxNode> root = new kx::kxNode;
    kx::kxPointer<kx::kxNode> child = new kx::kxNode;
    auto mesh = velmora_test::makeBox({0, 0, 0}, {1, 1, 1});
    root->AttachChild(child);
    child->AttachChild(mesh);
    EXPECT_EQ(mesh->GetParent(), child.get());

    const Wm4::Matrix3<float> rotZ(0, -1, 0, 1, 0, 0, 0, 0, 1);  // 90 degrees about z
    root->editLocalTransform(true).SetMatrix(rotZ);
    EXPECT_TRUE(root->isLocalTransformChanged());
    child->editLocalTransform(false).SetTranslate({1, 0, 0});
    EXPECT_FALSE(child->isLocalTransformChanged());
    mesh->editLocalTransform(true).SetMatrix(Wm4::Matrix3<float>(2, 0, 0, 0, 2, 0, 0, 0, 2));
    root->UpdateGS();
    // p -> rotZ·(2p + (1,0,0))
    const Wm4::Vector3<float> p = mesh->World.ApplyForward({1, 0, 0});
    EXPECT_FLOAT_EQ(p.X(), 0);
    EXPECT_FLOAT_EQ(p.Y(), 3);
    EXPECT_FLOAT_EQ(p.Z(), 0);
    const Wm4::Vector3<float> back = mesh->World.Inverse().ApplyForward(p);
    EXPECT_NEAR(back.X(), 1, 1e-6);
    EXPECT_NEAR(back.Y(), 0, 1e-6);

    // Re-parenting moves the child; detaching an unknown child reports -1.
    EXPECT_EQ(root->AttachChild(mesh), 1);
    EXPECT_EQ(child->GetQuantity(), 0);
    EXPECT_EQ(child->DetachChild(mesh), -1);
    EXPECT_EQ(root->DetachChild(mesh), 1);
    EXPECT_EQ(mesh->GetParent(), nullptr);
}

struct ShiftController : kx::kxController {
    void Update(double time) override
    {
        GetObject()->editLocalTransform(true).SetTranslate({float(time), 0, 0});
    }
};

TEST(SceneGraph, ControllersAttachDetachAndDriveTheirObject)
{
    auto mesh = velmora_test::makeBox({0, 0, 0}, {1, 1, 1});
    kx::kxPointer<ShiftController> controller = new ShiftController;
    kx::kxController::AttachController(mesh, controller);
    EXPECT_EQ(controller->GetReferences(), 2);
    EXPECT_EQ(controller->GetObject(), mesh.get());
    mesh->UpdateControllers(2.5);
    EXPECT_FLOAT_EQ(mesh->World.GetTranslate().X(), 2.5f);

    auto other = velmora_test::makeBox({0, 0, 0}, {1, 1, 1});
    kx::kxController::AttachController(other, controller);
    EXPECT_TRUE(mesh->GetControllers().empty());
    EXPECT_EQ(other->GetControllers().size(), 1u);
    EXPECT_EQ(controller->GetReferences(), 2);
    other = nullptr;  // the mesh goes away: the controller survives, unattached
    EXPECT_EQ(controller->GetObject(), nullptr);
    EXPECT_EQ(controller->GetReferences(), 1);
}

struct Flag : kx::kxThread {
    int value = 0;
    ~Flag() override { waitThread(0); }
    void run() override { value = 42; }
};

TEST(SystemLayer, ThreadRunsOnceAndJoins)
{
    Flag flag;
    EXPECT_TRUE(flag.waitThread(10));  // nothing running
    flag.startThread("velmora-test-thread-with-long-name");
    EXPECT_TRUE(flag.waitThread(2147483647));
    EXPECT_EQ(flag.value, 42);
    EXPECT_FALSE(flag.isRunning());
    kx::kxTimer timer;
    EXPECT_GE(timer.getElapsedMs(), 0.0);
}

}  // namespace
