#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <random>
#include <set>
#include <thread>

#include "GeometryMeshes.h"
#include "TestMeshes.h"
#include "Wm4DistTriangle3Triangle3.h"
#include "kxContactFaces.h"

using velmora_test::Vec3f;
using Contacts = std::vector<kxContactFaces::tContactFacesData>;

namespace {

constexpr float kMinNormalDot = -0.70710677f;

struct FaceSets {
    std::vector<unsigned> a;  // ascending triangle indices
    std::vector<unsigned> b;
};

float triangleDistance(const kx::kxTriMesh& a, int s, const kx::kxTriMesh& b, int t)
{
    Vec3f ta[3], tb[3];
    velmora_test::triangleCorners(a, s, ta);
    velmora_test::triangleCorners(b, t, tb);
    return Wm4::DistTriangle3Triangle3<float>(ta, tb).Get();
}

// All pairs of triangles: the opposed ones closer than the tolerance.
FaceSets bruteForceContacts(const kxMeshAndBVH& A, const kxMeshAndBVH& B, float tolerance)
{
    std::set<unsigned> a, b;
    for (int s = 0; s < A.mMesh->GetTriangleQuantity(); ++s) {
        for (int t = 0; t < B.mMesh->GetTriangleQuantity(); ++t) {
            if (A.mTriangleNormals[s].Dot(B.mTriangleNormals[t]) <= kMinNormalDot &&
                triangleDistance(*A.mMesh, s, *B.mMesh, t) < tolerance) {
                a.insert(unsigned(s));
                b.insert(unsigned(t));
            }
        }
    }
    return {{a.begin(), a.end()}, {b.begin(), b.end()}};
}

float bruteForceMinDistance(const kxMeshAndBVH& A, const kxMeshAndBVH& B)
{
    float best = FLT_MAX;
    for (int s = 0; s < A.mMesh->GetTriangleQuantity(); ++s) {
        for (int t = 0; t < B.mMesh->GetTriangleQuantity(); ++t)
            best = std::min(best, triangleDistance(*A.mMesh, s, *B.mMesh, t));
    }
    return best;
}

std::vector<unsigned> sorted(std::vector<unsigned> v)
{
    std::sort(v.begin(), v.end());
    return v;
}

// A face list must follow the slot order of the part's tree.
void expectSlotOrder(const std::vector<unsigned>& faces, const kxMeshAndBVH& part)
{
    std::vector<unsigned> slotOf(part.mBVH->getNoPrimitives());
    for (unsigned slot = 0; slot < slotOf.size(); ++slot)
        slotOf[part.mBVH->getPrimitive(slot)] = slot;
    for (size_t i = 1; i < faces.size(); ++i)
        EXPECT_LT(slotOf[faces[i - 1]], slotOf[faces[i]]);
}

void expectFacesMatchBruteForce(const kxMeshAndBVH& A, const kxMeshAndBVH& B, float tolerance, size_t minimumFaces)
{
    const FaceSets expected = bruteForceContacts(A, B, tolerance);
    kxContactFaces faces(&A, &B, tolerance);
    std::vector<unsigned> facesA{99}, facesB;
    faces.getContactFacesList(facesA, facesB);
    EXPECT_EQ(sorted(facesA), expected.a);
    EXPECT_EQ(sorted(facesB), expected.b);
    expectSlotOrder(facesA, A);
    expectSlotOrder(facesB, B);
    EXPECT_GE(expected.a.size(), minimumFaces) << "the case should have contacts";
    // A second call reuses the distances and gives the same lists.
    std::vector<unsigned> againA, againB;
    faces.getContactFacesList(againA, againB);
    EXPECT_EQ(againA, facesA);
    EXPECT_EQ(againB, facesB);
}

// Moves every vertex of `mesh` along z by a random amount in [-amount, amount].
void jitterZ(kx::kxTriMesh& mesh, std::mt19937& rng, float amount)
{
    std::uniform_real_distribution<float> jitter(-amount, amount);
    for (int v = 0; v < mesh.GetVertexBuffer()->GetVertexQuantity(); ++v)
        mesh.GetVertexBuffer()->Position3(v)[2] += jitter(rng);
}

// Meshes and their parts, kept alive together.
struct Assembly {
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    std::vector<kxMeshAndBVH> parts;
};

Assembly assemble(std::vector<kx::kxPointer<kx::kxTriMesh>> meshes)
{
    Assembly assembly{std::move(meshes), {}};
    kxContactFaces::InitializeBVHList(velmora_test::rawPointers(assembly.meshes), assembly.parts);
    return assembly;
}

float boxDistance(const kx::kxBBox& p, const kx::kxBBox& q)
{
    float sum = 0.0f;
    for (int k = 0; k < 3; ++k) {
        const float gap = std::max({q.min[k] - p.max[k], p.min[k] - q.max[k], 0.0f});
        sum += gap * gap;
    }
    return std::sqrt(sum);
}

// A unit square at height z (triangles 0 and 1) facing up or down.
kx::kxPointer<kx::kxTriMesh> square(float z, bool facingUp)
{
    return velmora_test::makeGrid(Vec3f(0, 0, z), Vec3f(1, 0, 0), Vec3f(0, 1, 0), 1, 1, !facingUp);
}

}  // namespace

TEST(ContactFaces, FacesMatchAllPairsOnStructuredMeshes)
{
    std::mt19937 rng(31);
    {
        SCOPED_TRACE("jittered grids face to face");
        auto a = velmora_test::makeGrid(Vec3f(0, 0, 0), Vec3f(2, 0, 0), Vec3f(0, 2, 0), 20, 20);
        auto b = velmora_test::makeGrid(Vec3f(0.05f, -0.1f, 0.004f), Vec3f(2, 0, 0), Vec3f(0, 2.1f, 0), 17, 23, true);
        jitterZ(*a, rng, 0.006f);
        jitterZ(*b, rng, 0.006f);
        const Assembly assembly = assemble({a, b});
    const auto& parts = assembly.parts;
        expectFacesMatchBruteForce(parts[0], parts[1], 0.008f, 50);
    }
    {
        SCOPED_TRACE("peg in a hole");
        auto peg = velmora_test::makeCylinder(48, 1.0f, 2.0f);
        auto hole = velmora_test::makeCylinder(40, 1.004f, 1.5f);
        // The hole's surface faces inwards: reverse the winding.
        unsigned* idx = hole->GetIndexBuffer()->GetData();
        for (int t = 0; t < hole->GetTriangleQuantity(); ++t)
            std::swap(idx[3 * t + 1], idx[3 * t + 2]);
        const Assembly assembly = assemble({peg, hole});
    const auto& parts = assembly.parts;
        expectFacesMatchBruteForce(parts[0], parts[1], 0.01f, 20);
        expectFacesMatchBruteForce(parts[1], parts[0], 0.01f, 20);
    }
    {
        SCOPED_TRACE("stacked tessellated boxes");
        auto lower = velmora_test::makeTessellatedBox(Vec3f(0, 0, 0), Vec3f(1, 1, 1), 6);
        auto upper = velmora_test::makeTessellatedBox(Vec3f(0.2f, -0.1f, 1.0005f), Vec3f(0.9f, 0.8f, 2), 5);
        const Assembly assembly = assemble({lower, upper});
    const auto& parts = assembly.parts;
        expectFacesMatchBruteForce(parts[0], parts[1], 0.001f, 20);
    }
}

TEST(ContactFaces, FacesMatchAllPairsOnRandomSoups)
{
    std::mt19937 rng(8);
    for (int trial = 0; trial < 6; ++trial) {
        SCOPED_TRACE(trial);
        auto a = velmora_test::makeRandomSoup(rng, 250, Vec3f(-1, -1, -1), Vec3f(1, 1, 1), 0.25f);
        auto b = velmora_test::makeRandomSoup(rng, 200, Vec3f(-0.5f, -1, -1), Vec3f(1.5f, 1, 1), 0.2f);
        const Assembly assembly = assemble({a, b});
    const auto& parts = assembly.parts;
        expectFacesMatchBruteForce(parts[0], parts[1], 0.02f + 0.02f * float(trial), 5);
    }
}

TEST(ContactFaces, MinDistanceMatchesAllPairs)
{
    std::mt19937 rng(17);
    for (int trial = 0; trial < 8; ++trial) {
        SCOPED_TRACE(trial);
        const float offset = 0.4f * float(trial);  // overlapping at first, then apart
        auto a = velmora_test::makeRandomSoup(rng, 150, Vec3f(-1, -1, -1), Vec3f(1, 1, 1), 0.2f);
        auto b = velmora_test::makeRandomSoup(rng, 120, Vec3f(offset, -1, -1), Vec3f(offset + 2, 1, 1), 0.2f);
        const Assembly assembly = assemble({a, b});
    const auto& parts = assembly.parts;
        const float expected = bruteForceMinDistance(parts[0], parts[1]);
        const kxContactFaces faces(&parts[0], &parts[1], 0.0f);
        EXPECT_FLOAT_EQ(faces.computeMinDistance(), expected);
        Vec3f pa, pb;
        const float withPoints = faces.computeMinDistance(pa, pb);
        EXPECT_FLOAT_EQ(withPoints, expected);
        EXPECT_NEAR((pa - pb).Length(), expected, 1e-5f);
        // The early stop: the answer is within the tolerance, never below the truth.
        const kxContactFaces loose(&parts[0], &parts[1], expected + 0.3f);
        const float early = loose.computeMinDistance();
        EXPECT_GE(early, expected);
        EXPECT_LE(early, expected + 0.3f);
    }
    // Structured: a sphere above a grid.
    auto ball = velmora_test::makeSphere(Vec3f(0.3f, 0.2f, 1.37f), 0.5f, 12, 24);
    auto plate = velmora_test::makeGrid(Vec3f(-1, -1, 0), Vec3f(2, 0, 0), Vec3f(0, 2, 0), 9, 9);
    const Assembly assembly = assemble({ball, plate});
    const auto& parts = assembly.parts;
    Vec3f pa, pb;
    EXPECT_FLOAT_EQ(kxContactFaces(&parts[0], &parts[1], 0.0f).computeMinDistance(pa, pb),
                    bruteForceMinDistance(parts[0], parts[1]));
    EXPECT_NEAR(pb[2], 0.0f, 1e-6f);
    EXPECT_NEAR(pa[2], 0.87f, 0.01f);
}

TEST(ContactFaces, SquaresFaceToFaceAndStacked)
{
    {
        const Assembly assembly = assemble({square(0, true), square(0, false)});
    const auto& parts = assembly.parts;
        Contacts contacts;
        const float tolerance = kxContactFaces::ProcessParts(parts, contacts);
        EXPECT_FLOAT_EQ(tolerance, 0.001f);
        ASSERT_EQ(contacts.size(), 1u);
        EXPECT_EQ(contacts[0].partA, 0u);
        EXPECT_EQ(contacts[0].partB, 1u);
        EXPECT_EQ(sorted(contacts[0].facesA), (std::vector<unsigned>{0, 1}));
        EXPECT_EQ(sorted(contacts[0].facesB), (std::vector<unsigned>{0, 1}));
    }
    {
        const Assembly assembly = assemble({square(0, true), square(0, true)});
    const auto& parts = assembly.parts;
        Contacts contacts{{7, 8, {1}, {2}}};
        kxContactFaces::ProcessParts(parts, contacts);
        EXPECT_TRUE(contacts.empty()) << "equal normals never touch";
    }
}

// A vertical triangle far to the side widens part A to 3 units, so the tolerance
// is 0.001 × 3 while the boxes of the parts overlap.
TEST(ContactFaces, GapEqualToTheToleranceIsNoContact)
{
    const float tolerance = 0.001f * 3.0f;
    auto partA = [] {
        return velmora_test::makeMesh({Vec3f(0, 0, 0), Vec3f(1, 0, 0), Vec3f(1, 1, 0), Vec3f(0, 1, 0), Vec3f(2, 0, 0),
                                       Vec3f(3, 0, 0), Vec3f(3, 0, 1)},
                                      {0, 1, 2, 0, 2, 3, 4, 5, 6});
    };
    for (const float gap : {tolerance, std::nextafter(tolerance, 0.0f)}) {
        SCOPED_TRACE(gap);
        const Assembly assembly = assemble({partA(), square(gap, false)});
    const auto& parts = assembly.parts;
        Contacts contacts;
        EXPECT_EQ(kxContactFaces::ProcessParts(parts, contacts), tolerance);
        EXPECT_EQ(contacts.size(), gap < tolerance ? 1u : 0u);
        // The minimum distance is the gap; a collision needs tolerance >= distance.
        EXPECT_EQ(kxContactFaces(&parts[0], &parts[1], 0.0f).computeMinDistance(), gap);
        std::vector<kxContactFaces::tCollisionData> collisions;
        kxContactFaces::DetectCollisions(parts, collisions, gap);
        ASSERT_EQ(collisions.size(), 1u);
        EXPECT_EQ(collisions[0].partA, 0u);
        EXPECT_EQ(collisions[0].partB, 1u);
        kxContactFaces::DetectCollisions(parts, collisions, std::nextafter(gap, 0.0f));
        EXPECT_TRUE(collisions.empty());
    }
}

TEST(ContactFaces, OnePartNoPartsAndPairOrder)
{
    Assembly assembly = assemble({velmora_test::makeBox(Vec3f(0, 0, 0), Vec3f(1, 1, 1))});
    const auto& parts = assembly.parts;
    Contacts contacts;
    EXPECT_FLOAT_EQ(kxContactFaces::ProcessParts(parts, contacts), 0.001f);
    EXPECT_TRUE(contacts.empty());
    std::vector<kxContactFaces::tCollisionData> collisions;
    kxContactFaces::DetectCollisions(parts, collisions, 10.0f);
    EXPECT_TRUE(collisions.empty()) << "a part never pairs with itself";

    assembly = assemble({});
    EXPECT_EQ(kxContactFaces::ProcessParts(parts, contacts), 0.0f);
    EXPECT_TRUE(contacts.empty());

    // Three boxes stacked: top (0), bottom (1), middle (2).
    assembly = assemble({velmora_test::makeBox(Vec3f(0, 0, 2), Vec3f(1, 1, 3)),
                        velmora_test::makeBox(Vec3f(0, 0, 0), Vec3f(1, 1, 1)),
                        velmora_test::makeBox(Vec3f(0, 0, 1), Vec3f(1, 1, 2))});
    kxContactFaces::ProcessParts(parts, contacts);
    ASSERT_EQ(contacts.size(), 2u);
    EXPECT_EQ(contacts[0].partA, 0u);
    EXPECT_EQ(contacts[0].partB, 2u);
    EXPECT_EQ(contacts[1].partA, 1u);
    EXPECT_EQ(contacts[1].partB, 2u);
    // makeBox: triangles 0, 1 face -z and 2, 3 face +z.
    EXPECT_EQ(sorted(contacts[0].facesA), (std::vector<unsigned>{0, 1}));  // bottom of the top box
    EXPECT_EQ(sorted(contacts[0].facesB), (std::vector<unsigned>{2, 3}));  // top of the middle box
    EXPECT_EQ(sorted(contacts[1].facesA), (std::vector<unsigned>{2, 3}));
    EXPECT_EQ(sorted(contacts[1].facesB), (std::vector<unsigned>{0, 1}));
}

TEST(ContactFaces, ProcessPartsMatchesAllPairsOnAnAssembly)
{
    std::mt19937 rng(4);
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    // A row of touching tessellated boxes, a jittered plate under them, soups around.
    for (int i = 0; i < 4; ++i)
        meshes.push_back(velmora_test::makeTessellatedBox(Vec3f(float(i), 0, 0), Vec3f(float(i) + 1, 1, 1), 3));
    auto plate = velmora_test::makeGrid(Vec3f(-0.5f, -0.5f, -0.001f), Vec3f(5, 0, 0), Vec3f(0, 2, 0), 25, 10);
    jitterZ(*plate, rng, 0.002f);
    meshes.push_back(plate);
    for (int i = 0; i < 3; ++i)
        meshes.push_back(velmora_test::makeRandomSoup(rng, 60, Vec3f(float(i), 0.8f, 0.8f),
                                                      Vec3f(float(i) + 1.2f, 1.4f, 1.4f), 0.2f));
    const Assembly assembly = assemble(meshes);
    const auto& parts = assembly.parts;
    Contacts contacts;
    const float tolerance = kxContactFaces::ProcessParts(parts, contacts);
    EXPECT_FLOAT_EQ(tolerance, 0.001f * 5.0f);

    Contacts expected;
    for (unsigned i = 0; i < parts.size(); ++i) {
        for (unsigned j = i + 1; j < parts.size(); ++j) {
            const FaceSets sets = bruteForceContacts(parts[i], parts[j], tolerance);
            if (!sets.a.empty())
                expected.push_back({i, j, sets.a, sets.b});
        }
    }
    ASSERT_EQ(contacts.size(), expected.size());
    EXPECT_GE(contacts.size(), 8u);
    for (size_t k = 0; k < contacts.size(); ++k) {
        SCOPED_TRACE(k);
        EXPECT_EQ(contacts[k].partA, expected[k].partA);
        EXPECT_EQ(contacts[k].partB, expected[k].partB);
        EXPECT_EQ(sorted(contacts[k].facesA), expected[k].facesA);
        EXPECT_EQ(sorted(contacts[k].facesB), expected[k].facesB);
    }

    // Collisions: root boxes closer than the tolerance and meshes within it.
    for (const float collisionTolerance : {0.0001f, 0.01f, 0.2f}) {
        std::vector<kxContactFaces::tCollisionData> collisions;
        kxContactFaces::DetectCollisions(parts, collisions, collisionTolerance);
        std::vector<std::pair<unsigned, unsigned>> got, want;
        for (const auto& c : collisions)
            got.emplace_back(c.partA, c.partB);
        for (unsigned i = 0; i < parts.size(); ++i) {
            for (unsigned j = i + 1; j < parts.size(); ++j) {
                if (boxDistance(parts[i].mBVH->getNode(0).box, parts[j].mBVH->getNode(0).box) < collisionTolerance &&
                    bruteForceMinDistance(parts[i], parts[j]) <= collisionTolerance)
                    want.emplace_back(i, j);
            }
        }
        EXPECT_EQ(got, want) << collisionTolerance;
    }
}

// Several threads run ProcessParts on the same parts at once and all get the
// single-thread answer (also run under ThreadSanitizer).
TEST(ContactFaces, ProcessPartsIsReentrant)
{
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            meshes.push_back(velmora_test::makeTessellatedBox(Vec3f(float(i), float(j), 0),
                                                              Vec3f(float(i) + 1, float(j) + 1, 1), 4));
    }
    const Assembly assembly = assemble(meshes);
    const auto& parts = assembly.parts;
    Contacts reference;
    kxContactFaces::ProcessParts(parts, reference);
    // 12 face-to-face neighbours and 8 diagonal ones whose side faces meet along an edge.
    ASSERT_EQ(reference.size(), 20u);

    std::vector<Contacts> results(4);
    std::vector<std::thread> threads;
    for (size_t k = 0; k < results.size(); ++k)
        threads.emplace_back([&, k] { kxContactFaces::ProcessParts(parts, results[k]); });
    for (std::thread& t : threads)
        t.join();
    for (const Contacts& result : results) {
        ASSERT_EQ(result.size(), reference.size());
        for (size_t c = 0; c < result.size(); ++c) {
            EXPECT_EQ(result[c].partA, reference[c].partA);
            EXPECT_EQ(result[c].partB, reference[c].partB);
            EXPECT_EQ(result[c].facesA, reference[c].facesA);
            EXPECT_EQ(result[c].facesB, reference[c].facesB);
        }
    }
}
