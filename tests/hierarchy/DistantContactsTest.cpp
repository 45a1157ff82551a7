// Distant contacts: the penalty codes, the blocking of a part that slides
// into another further along its way, sampling, and the effect of the
// constraints on the hierarchy.
#include <gtest/gtest.h>

#include "BuilderFixtures.h"
#include "TestMeshes.h"
#include "kxDistantContacts.h"

namespace {

using hierarchy_test::DiagramFixture;
using hierarchy_test::groupsOfNode;
using hierarchy_test::StdoutCapture;
using Vec3d = Wm4::Vector3<double>;
using Vec3f = Wm4::Vector3<float>;
using Builder = kxDisassemblyHierarchyBuilder;

constexpr unsigned kSign = 0x80000000u;

TEST(DistantContacts, PenaltyCodes)
{
    // Strong: bit 31, (1 - d / scale) in the next 30 bits, bit 30 when near.
    EXPECT_EQ(kxDistantContacts::strongBlockingCode(0.0f, 10.0f, 0.5f), 0x80000000u | 0x40000000u | 0x3FFFFFFFu);
    EXPECT_EQ(kxDistantContacts::strongBlockingCode(5.0f, 10.0f, 0.5f), 0x80000000u | 0x20000000u);
    EXPECT_EQ(kxDistantContacts::strongBlockingCode(2.5f, 10.0f, 0.5f), 0x80000000u | 0x30000000u);
    EXPECT_EQ(kxDistantContacts::strongBlockingCode(0.25f, 10.0f, 0.5f), 0x80000000u | 0x40000000u | 0x3E666666u);
    EXPECT_EQ(kxDistantContacts::strongBlockingCode(20.0f, 10.0f, 0.5f), 0x80000000u);
    // Weak: the share in 31 bits.
    EXPECT_EQ(kxDistantContacts::weakBlockingCode(0.25f), 0x20000000u);
    EXPECT_EQ(kxDistantContacts::weakBlockingCode(0.0f), 0u);
    EXPECT_EQ(kxDistantContacts::weakBlockingCode(1.0f), 0x7FFFFFFFu);
    // Every strong code blocks more than every weak one.
    EXPECT_GT(kxDistantContacts::strongBlockingCode(100.0f, 10.0f, 0.5f), kxDistantContacts::weakBlockingCode(1.0f));
}

// A base plate carries a block and, further along +x, a wall. The block may
// slide along x and y and lift along +z; sliding along +x it runs into the
// wall. The contacts are given by hand so that only the rays decide.
struct BlockBeforeWall {
    BlockBeforeWall()
    {
        std::vector<kx::kxPointer<kx::kxTriMesh>> meshes{velmora_test::makeBox(Vec3f(0, -1, -1), Vec3f(10, 2, 0)),
                                                         velmora_test::makeBox(Vec3f(1, 0, 0), Vec3f(2, 1, 1)),
                                                         velmora_test::makeBox(Vec3f(5, -1, 0), Vec3f(6, 2, 2))};
        fixture = hierarchy_test::emptyDiagramOf(std::move(meshes));
        const std::vector<Vec3d> slide{Vec3d(0, 0, 1), Vec3d(1, 0, 0), Vec3d(-1, 0, 0), Vec3d(0, 1, 0),
                                       Vec3d(0, -1, 0)};
        fixture->diagram->pushContactEdge(1, 0, slide.data(), unsigned(slide.size()), Vec3f(1.5f, 0.5f, 0));
        fixture->diagram->pushContactEdge(2, 0, slide.data(), unsigned(slide.size()), Vec3f(5.5f, 0.5f, 0));
        fixture->diagram->computeDirectionSet(5.0f);
        hierarchy = std::make_unique<kxDisassemblyHierarchy>(*fixture->groups);
    }

    std::unique_ptr<DiagramFixture> fixture;
    std::unique_ptr<kxDisassemblyHierarchy> hierarchy;
};

std::vector<const Builder::tDynamicEdgeData*> distantEdges(const Builder& builder)
{
    std::vector<const Builder::tDynamicEdgeData*> edges;
    for (unsigned e = 0; e < builder.getNoEdges(); ++e) {
        if (builder.getEdgeData(e).isDistant)
            edges.push_back(&builder.getEdgeData(e));
    }
    return edges;
}

TEST(DistantContacts, PartSlidingIntoAnotherIsBlockedOnlyAlongThatWay)
{
    BlockBeforeWall scene;
    const kxContactDiagram& diagram = *scene.fixture->diagram;
    ASSERT_EQ(diagram.getNoDirections(), 3u);  // z, x, y
    ASSERT_EQ(diagram.getDirectionFromId(1), Vec3d(1, 0, 0));

    Builder builder(*scene.hierarchy, diagram, 2);
    kxDistantContacts contacts(builder);
    EXPECT_EQ(contacts.getFacingAngle(), 20.0f);
    EXPECT_EQ(contacts.getBlockedShare(), 0.33333f);
    EXPECT_EQ(contacts.getSampleBudget(), 500u);
    contacts.computeDistantContacts(2, nullptr);
    EXPECT_FLOAT_EQ(contacts.getDistanceScale(), std::sqrt(118.0f));

    const auto edges = distantEdges(builder);
    EXPECT_EQ(contacts.getNoPushedConstraints(), unsigned(edges.size()));
    const Builder::tDynamicEdgeData* blockWall = nullptr;
    for (const Builder::tDynamicEdgeData* edge : edges) {
        EXPECT_LT(edge->groupA, edge->groupB);
        EXPECT_EQ(edge->admissibleIds.size(), edge->signedIds.size());
        if (edge->groupA == 1 && edge->groupB == 2) {
            blockWall = edge;
            continue;
        }
        // Anything else can only be the parts sitting on the plate, along z.
        for (const unsigned id : edge->admissibleIds)
            EXPECT_EQ(id & ~kSign, 0u) << edge->groupA << "-" << edge->groupB;
    }
    ASSERT_NE(blockWall, nullptr);
    // The block moving along +x (the wall moving along -x, seen from the
    // block) is blocked; every sample of its +x face hits the wall 3 away.
    EXPECT_EQ(blockWall->admissibleIds, std::vector<unsigned>{1});
    EXPECT_EQ(blockWall->signedIds,
              std::vector<unsigned>{kxDistantContacts::strongBlockingCode(3.0f, contacts.getDistanceScale(),
                                                                          contacts.getNearThreshold())});
    EXPECT_EQ(blockWall->isDistant, 1u);
}

TEST(DistantContacts, ConstraintsDoNotDependOnTheThreadCount)
{
    BlockBeforeWall scene;
    std::vector<std::vector<unsigned>> reference;
    for (const unsigned threads : {1u, 2u, 3u, 8u}) {
        kxDisassemblyHierarchy hierarchy(*scene.fixture->groups);
        Builder builder(hierarchy, *scene.fixture->diagram, 2);
        kxDistantContacts(builder).computeDistantContacts(threads, nullptr);
        std::vector<std::vector<unsigned>> pushed;
        for (const auto* edge : distantEdges(builder)) {
            pushed.push_back({edge->groupA, edge->groupB});
            pushed.back().insert(pushed.back().end(), edge->admissibleIds.begin(), edge->admissibleIds.end());
            pushed.back().insert(pushed.back().end(), edge->signedIds.begin(), edge->signedIds.end());
        }
        if (threads == 1)
            reference = pushed;
        EXPECT_EQ(pushed, reference) << threads << " threads";
    }
}

// With the wall in the way, the block no longer leaves along +x.
TEST(DistantContacts, HierarchyAvoidsBlockedDirections)
{
    BlockBeforeWall scene;
    StdoutCapture capture;
    for (const bool withDistant : {false, true}) {
        const auto plan = hierarchy_test::planHierarchy(*scene.fixture, 2, withDistant);
        const auto& h = *plan.hierarchy;
        for (unsigned n = 0; n < h.getNoNodes(); ++n) {
            const auto& node = h.getNode(n);
            if (node.noGroups == 0xFFFFFFFFu || node.firstChild == 0xFFFFFFFFu)
                continue;
            const auto moving = groupsOfNode(h, node.secondChild);
            const auto fixed = groupsOfNode(h, node.firstChild);
            const bool blockLeavesWall = moving == std::vector<unsigned>{1} &&
                                         std::find(fixed.begin(), fixed.end(), 2u) != fixed.end();
            if (blockLeavesWall && withDistant) {
                EXPECT_NE(node.splitId, 1u) << "the block slides into the wall";
            }
        }
        for (const auto& sweep : hierarchy_test::sweepEverySplit(*scene.fixture, *plan.builder)) {
            if (withDistant) {
                EXPECT_TRUE(sweep.result.separates) << "split " << sweep.node;
            }
        }
    }
}

TEST(DistantContacts, SamplesCoverTheFacingSideWithinTheBudget)
{
    BlockBeforeWall scene;
    Builder builder(*scene.hierarchy, *scene.fixture->diagram, 1);
    kxDistantContacts contacts(builder);
    kx::kxPointer<kx::kxVertexBuffer> samples;
    const unsigned count = contacts.sampleMesh(1, 1, Vec3f(1, 0, 0), samples);
    ASSERT_EQ(count, 500u);
    ASSERT_TRUE(samples);
    EXPECT_GE(samples->GetVertexQuantity(), 500);
    float loY = 1e9f, hiY = -1e9f, loZ = 1e9f, hiZ = -1e9f;
    unsigned lowerHalf = 0;
    for (unsigned s = 0; s < count; ++s) {
        const Vec3f& p = samples->Position3(int(s));
        EXPECT_EQ(p[0], 2.0f);  // only the +x face of the block faces +x
        EXPECT_EQ(samples->Normal3(int(s)), Vec3f(1, 0, 0));
        loY = std::min(loY, p[1]);
        hiY = std::max(hiY, p[1]);
        loZ = std::min(loZ, p[2]);
        hiZ = std::max(hiZ, p[2]);
        lowerHalf += p[2] < 0.5f ? 1u : 0u;
    }
    EXPECT_LT(loY, 0.05f);
    EXPECT_GT(hiY, 0.95f);
    EXPECT_LT(loZ, 0.05f);
    EXPECT_GT(hiZ, 0.95f);
    EXPECT_NEAR(double(lowerHalf), 250.0, 25.0);

    // The same call reuses the buffer and places the same points.
    const kx::kxVertexBuffer* buffer = samples.get();
    const Vec3f first = samples->Position3(0);
    EXPECT_EQ(contacts.sampleMesh(1, 1, Vec3f(1, 0, 0), samples), 500u);
    EXPECT_EQ(samples.get(), buffer);
    EXPECT_EQ(samples->Position3(0), first);

    // A face-on budget: area shares. The plate's top (30) against its +x
    // end (3) for a direction between +z and +x.
    contacts.setSampleBudget(330);
    Vec3f diagonal(1, 0, 1);
    diagonal.Normalize();
    ASSERT_EQ(contacts.sampleMesh(0, 7, diagonal, samples), 330u);
    unsigned onTop = 0;
    for (unsigned s = 0; s < 330; ++s)
        onTop += samples->Position3(int(s))[2] == 0.0f ? 1u : 0u;
    EXPECT_NEAR(double(onTop), 300.0, 2.0);
    // A zero budget places nothing.
    contacts.setSampleBudget(0);
    EXPECT_EQ(contacts.sampleMesh(0, 7, diagonal, samples), 0u);
}

}  // namespace
