// The explosion diagram on real hierarchies (the demo assemblies and a brick
// wall): facing groups stand apart by the split distance, no two meshes meet
// in the exploded pose, results are repeatable, and baking into the scene
// can be undone.
#include <array>
#include <random>

#include "ExplosionFixtures.h"

using namespace explosion_test;
using Access = kxExplosionDiagramTestAccess;
using Diagram = kxExplosionDiagram;

namespace {

using Triangle = std::array<Vec3f, 3>;

// A prism moved by a translation.
Diagram::tBoundingPlanesMinMax moved(const Diagram::tBoundingPlanesMinMax& prism,
                                     const Diagram::tOrthogonalDirectionSet& set, const Vec3f& t)
{
    Diagram::tBoundingPlanesMinMax out = prism;
    for (int k = 0; k < 5; ++k) {
        out.range[k].min += t.Dot(set.directions[k]);
        out.range[k].max += t.Dot(set.directions[k]);
    }
    return out;
}

bool overlapAcrossAxis(const Diagram::tBoundingPlanesMinMax& p, const Diagram::tBoundingPlanesMinMax& q)
{
    for (int k = 1; k < 5; ++k) {
        if (p.range[k].min >= q.range[k].max || q.range[k].min >= p.range[k].max)
            return false;
    }
    return true;
}

// Along the axis, the gap between two prisms in whichever order they stand.
float gapAlongAxis(const Diagram::tBoundingPlanesMinMax& p, const Diagram::tBoundingPlanesMinMax& q)
{
    return std::max(q.range[0].min - p.range[0].max, p.range[0].min - q.range[0].max);
}

// Every split: each pair of groups facing each other across it (their moved
// prisms overlap across the split direction) stands apart along it by at
// least the split distance, the reference pair included.
void expectSidesApart(const PlannedAssembly& plan, const Diagram& diagram, float distance)
{
    std::vector<Diagram::tOrthogonalDirectionSet> sets;
    std::vector<Diagram::tBoundingPlanesMinMax> planes;
    Access::computeBoundingPrisms(diagram, sets, planes);
    const unsigned noDirections = unsigned(sets.size());
    const kxDisassemblyHierarchy& h = plan.hierarchy();
    const float tolerance = 1e-3f * distance;
    for (unsigned node = 0; node < h.getNoNodes(); ++node) {
        if (!isSplit(h, node) || !Diagram::hasReferencePair(diagram.getSplitData(node)))
            continue;
        const unsigned k = h.getNode(node).splitId;
        auto finalPrism = [&](unsigned g) {
            return moved(planes[g * noDirections + k], sets[k], diagram.getFinalPerGroupTranslation(g));
        };
        const Diagram::tSplitData& split = diagram.getSplitData(node);
        EXPECT_GE(gapAlongAxis(finalPrism(Diagram::firstReferenceGroup(split)), finalPrism(split.secondGroup)),
                  distance - tolerance)
            << "reference pair of node " << node;
        for (unsigned g1 : groupsOfNode(h, h.getNode(node).firstChild)) {
            for (unsigned g2 : groupsOfNode(h, h.getNode(node).secondChild)) {
                if (!overlapAcrossAxis(finalPrism(g1), finalPrism(g2)))
                    continue;
                EXPECT_GE(gapAlongAxis(finalPrism(g1), finalPrism(g2)), distance - tolerance)
                    << "node " << node << " groups " << g1 << ", " << g2;
            }
        }
    }
}

std::vector<Triangle> movedTriangles(const kx::kxTriMesh& mesh, const Vec3f& t)
{
    std::vector<Triangle> triangles;
    for (int i = 0; i < mesh.GetTriangleQuantity(); ++i) {
        int c[3];
        mesh.GetTriangle(i, c[0], c[1], c[2]);
        Triangle triangle;
        for (int j = 0; j < 3; ++j)
            triangle[size_t(j)] = mesh.GetVertexBuffer()->Position3(c[j]) + t;
        triangles.push_back(triangle);
    }
    return triangles;
}

kx::kxBBox boundsOf(const Triangle& triangle)
{
    kx::kxBBox box;
    for (const Vec3f& p : triangle)
        box.selfExpand(p);
    return box;
}

// Whether two triangle soups come within `gap` of each other.
bool meshesMeet(const std::vector<Triangle>& a, const std::vector<Triangle>& b, float gap)
{
    for (const Triangle& ta : a) {
        const kx::kxBBox boxA = boundsOf(ta).grow(gap);
        for (const Triangle& tb : b) {
            const kx::kxBBox boxB = boundsOf(tb);
            bool apart = false;
            for (int k = 0; k < 3; ++k)
                apart = apart || boxA.max[k] < boxB.min[k] || boxB.max[k] < boxA.min[k];
            if (!apart && Wm4::DistTriangle3Triangle3<float>(ta.data(), tb.data()).Get() <= gap)
                return true;
        }
    }
    return false;
}

}  // namespace

TEST(ExplosionDemo, FacingGroupsStandApartAndMeshesDoNotMeet)
{
    for (const std::string& name : sharedPlanNames()) {
        SCOPED_TRACE(name);
        const PlannedAssembly& plan = sharedPlan(name);
        const float distance = splitDistanceFor(plan.assembly());
        Diagram diagram(plan.builder());
        diagram.computeTranslationHierarchy(distance);
        expectSidesApart(plan, diagram, distance);

        const unsigned n = plan.groups().getNoGroups();
        std::vector<std::vector<Triangle>> triangles;
        for (unsigned g = 0; g < n; ++g)
            triangles.push_back(
                movedTriangles(*plan.groups().getMeshFromGroup(g, 0), diagram.getFinalPerGroupTranslation(g)));
        for (unsigned g1 = 0; g1 < n; ++g1) {
            for (unsigned g2 = g1 + 1; g2 < n; ++g2)
                EXPECT_FALSE(meshesMeet(triangles[g1], triangles[g2], 1e-4f * distance)) << g1 << ", " << g2;
        }
    }
}

TEST(ExplosionDemo, RepeatableAndCopyable)
{
    const PlannedAssembly& plan = sharedPlan("stack");
    Diagram diagram(plan.builder());
    diagram.computeTranslationHierarchy(1.5f);
    std::vector<Vec3f> first;
    for (unsigned g = 0; g < plan.groups().getNoGroups(); ++g)
        first.push_back(diagram.getFinalPerGroupTranslation(g));
    diagram.computeTranslationHierarchy(4.0f);
    diagram.computeTranslationHierarchy(1.5f);
    for (unsigned g = 0; g < plan.groups().getNoGroups(); ++g)
        EXPECT_EQ(first[g], diagram.getFinalPerGroupTranslation(g)) << g;
    const Diagram copy(diagram);
    for (unsigned node = 0; node < plan.hierarchy().getNoNodes(); ++node)
        EXPECT_EQ(diagram.getPerSplitTranslation(node), copy.getPerSplitTranslation(node));
}

TEST(ExplosionDemo, BakingMovesEveryMeshByItsGroupTranslationAndUnbakingRestoresIt)
{
    // A column of four boxes, each leaving the one below upwards.
    HandAssembly hand({box({0, 0, 0}, {1, 1, 1}), box({0, 0, 1}, {1, 1, 2}), box({0, 0, 2}, {1, 1, 3}),
                       box({0, 0, 3}, {1, 1, 4})});
    const Vec3d up(0, 0, 1);
    for (unsigned g = 1; g < 4; ++g)
        hand.addContact(g, g - 1, {up});
    hand.finishEdges();
    const unsigned k = hand.lineOf(up);
    hand.splitRaw(0, {1, 2, 3}, k);
    hand.splitRaw(2, {2, 3}, k);
    hand.splitRaw(4, {3}, k);
    hand.commit();
    Diagram diagram(hand.builder());
    diagram.computeTranslationHierarchy(1.0f);
    const unsigned n = 4;
    for (unsigned g = 1; g < n; ++g)
        ASSERT_NE(Vec3f::ZERO, diagram.getFinalPerGroupTranslation(g) - diagram.getFinalPerGroupTranslation(g - 1));

    // Parentless meshes with random rotation, scale and translation; one
    // mesh under a rotated parent; one with a singular world matrix.
    std::mt19937 random(7);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    kx::kxPointer<kx::kxNode> parent = new kx::kxNode;
    parent->editLocalTransform(true) =
        kx::kxGenericTransformation<float>(Wm4::Matrix3<float>::FromAxisAngle(Vec3f(0, 0, 1), 0.7f), Vec3f(3, 1, 2));
    parent->UpdateGS();
    const unsigned parented = 1, singular = 2;
    std::vector<kx::kxGenericTransformation<float>> before;
    std::vector<Vec3f> worldBefore;
    for (unsigned g = 0; g < n; ++g) {
        kx::kxTriMesh& mesh = *hand.mesh(g);
        Vec3f axis(uniform(random), uniform(random), uniform(random) + 2.0f);
        axis.Normalize();
        const Wm4::Matrix3<float> matrix =
            g == singular ? Wm4::Matrix3<float>(1, 0, 0, 0, 1, 0, 0, 0, 0)
                          : Wm4::Matrix3<float>::FromAxisAngle(axis, 3.0f * uniform(random)) * (1.5f + uniform(random));
        mesh.editLocalTransform(true) = kx::kxGenericTransformation<float>(
            matrix, Vec3f(10 * uniform(random), 10 * uniform(random), 10 * uniform(random)));
        if (g == parented)
            parent->AttachChild(&mesh);
        mesh.UpdateGS();
        mesh.clearLocalTransformChanged();
        before.push_back(mesh.GetLocalTransform());
        worldBefore.push_back(mesh.World.GetTranslate());
    }

    diagram.bakeTranslations();
    for (unsigned g = 0; g < n; ++g) {
        kx::kxTriMesh& mesh = *hand.mesh(g);
        EXPECT_TRUE(mesh.isLocalTransformChanged());
        EXPECT_EQ(before[g].GetMatrix(), mesh.GetLocalTransform().GetMatrix());
        mesh.UpdateGS();
        if (g == singular) {
            EXPECT_EQ(before[g].GetTranslate(), mesh.GetLocalTransform().GetTranslate());
            continue;
        }
        const Vec3f F = diagram.getFinalPerGroupTranslation(g);
        expectVectorNear(worldBefore[g] + F, mesh.World.GetTranslate(), 1e-4f * (1.0f + F.Length()));
    }
    diagram.unbakeTranslations();
    for (unsigned g = 0; g < n; ++g) {
        const kx::kxGenericTransformation<float>& local = hand.mesh(g)->GetLocalTransform();
        EXPECT_EQ(before[g].GetMatrix(), local.GetMatrix());
        expectVectorNear(before[g].GetTranslate(), local.GetTranslate(), 1e-5f);
    }
}
