#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <string>

#include "GeometryMeshes.h"
#include "TestMeshes.h"
#include "kxMeshLib.h"

using kx::kxMeshProcessing;
using velmora_test::Vec3f;

namespace {

// The corner positions of every triangle, in order: what welding and
// smoothing must never change.
std::vector<Vec3f> trianglePositions(const kx::kxTriMesh& mesh)
{
    std::vector<Vec3f> out;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        Vec3f corners[3];
        velmora_test::triangleCorners(mesh, t, corners);
        out.insert(out.end(), corners, corners + 3);
    }
    return out;
}

Vec3f faceNormal(const kx::kxTriMesh& mesh, int t)
{
    Vec3f p[3];
    velmora_test::triangleCorners(mesh, t, p);
    return (p[1] - p[0]).UnitCross(p[2] - p[0]);
}

Vec3f cornerNormal(const kx::kxTriMesh& mesh, int t, int k)
{
    return mesh.GetVertexBuffer()->Normal3(int(mesh.GetIndexBuffer()->GetData()[3 * t + k]));
}

}  // namespace

TEST(MeshProcessing, WeldingACubeSoupGivesEightVertices)
{
    const auto cube = velmora_test::makeBox(Vec3f(0, 0, 0), Vec3f(1, 2, 3));
    const auto soup = velmora_test::makeSoupCopy(*cube);
    ASSERT_EQ(soup->GetVertexBuffer()->GetVertexQuantity(), 36);
    const std::vector<Vec3f> before = trianglePositions(*soup);
    kx::kxPointer<kx::kxVertexBuffer> oldBuffer = soup->GetVertexBuffer();

    EXPECT_EQ(kxMeshProcessing::WeldSimilarVertices(soup, 0.0f, true), 8);
    EXPECT_EQ(soup->GetVertexBuffer()->GetVertexQuantity(), 8);
    EXPECT_EQ(soup->GetTriangleQuantity(), 12);
    EXPECT_EQ(trianglePositions(*soup), before);
    EXPECT_EQ(oldBuffer->GetVertexQuantity(), 36) << "the old buffer is replaced, not edited";
    // Kept vertices stay in first-use order: the soup's first triangle keeps 0, 1, 2.
    int i0, i1, i2;
    soup->GetTriangle(0, i0, i1, i2);
    EXPECT_EQ(std::vector<int>({i0, i1, i2}), std::vector<int>({0, 1, 2}));
    // Welded, the cube is one connected piece again.
    std::vector<std::vector<unsigned>> components;
    EXPECT_EQ(kxMeshProcessing::ClusterizeConnectedComponents(soup, components), 1u);
}

TEST(MeshProcessing, WeldingToleranceAndChannels)
{
    // Four vertices: 1 is 0.01 from 0, 2 is 0.01 from 1 (0.02 from 0), 3 far away.
    auto mesh = velmora_test::makeMesh({Vec3f(0, 0, 0), Vec3f(0.01f, 0, 0), Vec3f(0.02f, 0, 0), Vec3f(1, 0, 0)},
                                       {0, 1, 3, 1, 2, 3});
    EXPECT_EQ(kxMeshProcessing::WeldSimilarVertices(mesh, 0.0f, true), 4) << "no equal positions";
    // 1 merges into 0; 2 is 0.02 from the kept vertex 0 and stays.
    EXPECT_EQ(kxMeshProcessing::WeldSimilarVertices(mesh, 0.015f, true), 3);
    EXPECT_EQ(mesh->GetIndexBuffer()->GetData()[1], 0u);
    EXPECT_EQ(mesh->GetIndexBuffer()->GetData()[3], 0u);
    EXPECT_EQ(mesh->GetIndexBuffer()->GetData()[4], 1u);
    EXPECT_EQ(mesh->GetVertexBuffer()->Position3(1), Vec3f(0.02f, 0, 0));
    EXPECT_EQ(kxMeshProcessing::WeldSimilarVertices(mesh, -1.0f, true), 3) << "negative tolerance welds nothing";

    // Equal positions with different normals merge only when positions alone count.
    for (bool positionsOnly : {true, false}) {
        auto twoNormals = velmora_test::makeMesh({Vec3f(0, 0, 0), Vec3f(0, 0, 0), Vec3f(1, 0, 0)}, {0, 2, 1});
        twoNormals->GetVertexBuffer()->Normal3(0) = Vec3f(0, 0, 1);
        twoNormals->GetVertexBuffer()->Normal3(1) = Vec3f(0, 1, 0);
        EXPECT_EQ(kxMeshProcessing::WeldSimilarVertices(twoNormals, 0.0f, positionsOnly), positionsOnly ? 2 : 3);
    }
    // A non-finite vertex never merges, not even with itself.
    const float nan = std::nanf("");
    auto withNaN = velmora_test::makeMesh({Vec3f(nan, 0, 0), Vec3f(nan, 0, 0), Vec3f(1, 0, 0)}, {0, 1, 2});
    EXPECT_EQ(kxMeshProcessing::WeldSimilarVertices(withNaN, 0.5f, true), 3);
    // Exact welding: -0 is 0, the first of equal vertices is kept, infinite ones stay apart.
    const float inf = std::numeric_limits<float>::infinity();
    auto exact = velmora_test::makeMesh({Vec3f(1, 0, 0), Vec3f(-0.0f, 0, 0), Vec3f(inf, 0, 0), Vec3f(0, 0, 0),
                                         Vec3f(inf, 0, 0), Vec3f(1, 0, 0)},
                                        {0, 1, 2, 3, 4, 5});
    EXPECT_EQ(kxMeshProcessing::WeldSimilarVertices(exact, 0.0f, true), 4);
    const unsigned* welded = exact->GetIndexBuffer()->GetData();
    EXPECT_EQ(std::vector<unsigned>(welded, welded + 6), (std::vector<unsigned>{0, 1, 2, 1, 3, 0}));
    EXPECT_EQ(exact->GetVertexBuffer()->Position3(1)[0], -0.0f);
}

TEST(MeshProcessing, WeldingMatchesBruteForceOnRandomPoints)
{
    std::mt19937 rng(11);
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    for (unsigned i = 0; i < 600; ++i) {
        // Coordinates on a coarse lattice so that many points coincide or lie close.
        Vec3f p = velmora_test::randomPoint(rng, Vec3f(0, 0, 0), Vec3f(4, 4, 4));
        for (int k = 0; k < 3; ++k)
            p[k] = std::round(p[k] * 2.0f) * 0.5f + (i % 3 == 0 ? 0.01f * float(i % 7) : 0.0f);
        positions.push_back(p);
        indices.push_back(i);
    }
    for (float tolerance : {0.0f, 0.02f, 0.05f, 0.6f}) {
        // Reference: greedy over kept vertices in index order.
        std::vector<unsigned> kept;
        std::vector<unsigned> expectedIndex(positions.size());
        for (unsigned v = 0; v < positions.size(); ++v) {
            unsigned found = unsigned(kept.size());
            for (unsigned k = 0; k < kept.size() && found == kept.size(); ++k) {
                if ((positions[kept[k]] - positions[v]).Length() <= tolerance)
                    found = k;
            }
            if (found == kept.size())
                kept.push_back(v);
            expectedIndex[v] = found;
        }
        auto mesh = velmora_test::makeMesh(positions, indices);
        EXPECT_EQ(kxMeshProcessing::WeldSimilarVertices(mesh, tolerance, true), int(kept.size())) << tolerance;
        for (unsigned v = 0; v < positions.size(); ++v)
            ASSERT_EQ(mesh->GetIndexBuffer()->GetData()[v], expectedIndex[v]) << "tolerance " << tolerance;
    }
}

TEST(MeshProcessing, SmoothingKeepsCubeFacesFlatAndRoundsCylinders)
{
    const double angle = 0.820304811000824;  // 47 degrees
    auto cube = velmora_test::makeBox(Vec3f(0, 0, 0), Vec3f(1, 1, 1));
    const std::vector<Vec3f> cubeCorners = trianglePositions(*cube);
    kxMeshProcessing::SmoothenNormals(cube, angle);
    EXPECT_EQ(cube->GetVertexBuffer()->GetVertexQuantity(), 24) << "each corner split three ways";
    EXPECT_EQ(trianglePositions(*cube), cubeCorners);
    for (int t = 0; t < cube->GetTriangleQuantity(); ++t) {
        for (int k = 0; k < 3; ++k)
            EXPECT_LT((cornerNormal(*cube, t, k) - faceNormal(*cube, t)).Length(), 1e-6f) << t << " " << k;
    }

    auto cylinder = velmora_test::makeCylinder(64, 2.0f, 3.0f);
    const std::vector<Vec3f> cylinderCorners = trianglePositions(*cylinder);
    kxMeshProcessing::SmoothenNormals(cylinder, angle);
    EXPECT_EQ(trianglePositions(*cylinder), cylinderCorners);
    // 128 ring vertices split into a side copy and a cap copy, plus two centres.
    EXPECT_EQ(cylinder->GetVertexBuffer()->GetVertexQuantity(), 2 * 128 + 2);
    for (int t = 0; t < cylinder->GetTriangleQuantity(); ++t) {
        const bool side = std::abs(faceNormal(*cylinder, t)[2]) < 0.5f;
        for (int k = 0; k < 3; ++k) {
            const Vec3f n = cornerNormal(*cylinder, t, k);
            Vec3f p[3];
            velmora_test::triangleCorners(*cylinder, t, p);
            const Vec3f expected = side ? Vec3f(p[k][0], p[k][1], 0) / 2.0f : faceNormal(*cylinder, t);
            EXPECT_LT((n - expected).Length(), 1e-5f) << "triangle " << t << " corner " << k;
        }
    }

    // With an angle above 90 degrees the cube's corners average all three faces.
    auto rounded = velmora_test::makeBox(Vec3f(0, 0, 0), Vec3f(1, 1, 1));
    kxMeshProcessing::SmoothenNormals(rounded, 1.6);
    EXPECT_EQ(rounded->GetVertexBuffer()->GetVertexQuantity(), 8);
    const Vec3f n = rounded->GetVertexBuffer()->Normal3(7);  // corner (1, 1, 1)
    const float third = 1.0f / std::sqrt(3.0f);
    EXPECT_LT((n - Vec3f(third, third, third)).Length(), 1e-6f);
}

TEST(MeshProcessing, SmoothingOfDegenerateAndUnusedVertices)
{
    // Triangle 1 is degenerate (a repeated vertex); vertex 4 is unused.
    auto mesh = velmora_test::makeMesh({Vec3f(0, 0, 0), Vec3f(1, 0, 0), Vec3f(0, 1, 0), Vec3f(2, 0, 0), Vec3f(9, 9, 9)},
                                       {0, 1, 2, 1, 3, 3});
    mesh->GetVertexBuffer()->Normal3(4) = Vec3f(1, 0, 0);
    kxMeshProcessing::SmoothenNormals(mesh, 0.5);
    EXPECT_EQ(cornerNormal(*mesh, 0, 1), Vec3f(0, 0, 1)) << "the degenerate neighbour does not count";
    EXPECT_EQ(cornerNormal(*mesh, 1, 0), Vec3f(0, 0, 0));
    EXPECT_EQ(cornerNormal(*mesh, 1, 1), Vec3f(0, 0, 0));
    const auto& positions = mesh->GetVertexBuffer()->GetPositions();
    const auto unused = std::find(positions.begin(), positions.end(), Vec3f(9, 9, 9));
    ASSERT_NE(unused, positions.end());
    EXPECT_EQ(mesh->GetVertexBuffer()->Normal3(int(unused - positions.begin())), Vec3f(1, 0, 0));
}

TEST(MeshProcessing, ConnectedComponents)
{
    const auto a = velmora_test::makeBox(Vec3f(0, 0, 0), Vec3f(1, 1, 1));
    const auto b = velmora_test::makeBox(Vec3f(3, 0, 0), Vec3f(4, 1, 1));
    // Two disjoint boxes in one mesh, their triangles interleaved.
    std::vector<Vec3f> positions = a->GetVertexBuffer()->GetPositions();
    const auto& pb = b->GetVertexBuffer()->GetPositions();
    positions.insert(positions.end(), pb.begin(), pb.end());
    std::vector<unsigned> indices;
    for (int t = 0; t < 12; ++t) {
        for (int k = 0; k < 3; ++k)
            indices.push_back(a->GetIndexBuffer()->GetData()[3 * t + k]);
        for (int k = 0; k < 3; ++k)
            indices.push_back(8 + b->GetIndexBuffer()->GetData()[3 * t + k]);
    }
    const auto both = velmora_test::makeMesh(positions, indices);
    std::vector<std::vector<unsigned>> components{{42}};
    ASSERT_EQ(kxMeshProcessing::ClusterizeConnectedComponents(both, components), 2u);
    ASSERT_EQ(components.size(), 2u);
    for (unsigned c = 0; c < 2; ++c) {
        ASSERT_EQ(components[c].size(), 12u);
        for (unsigned i = 0; i < 12; ++i)
            EXPECT_EQ(components[c][i], 2 * i + c);
    }
    // A soup is all separate triangles; welding joins each box again.
    auto soup = velmora_test::makeSoupCopy(*both);
    EXPECT_EQ(kxMeshProcessing::ClusterizeConnectedComponents(soup, components), 24u);
    kxMeshProcessing::WeldSimilarVertices(soup, 0.0f, true);
    EXPECT_EQ(kxMeshProcessing::ClusterizeConnectedComponents(soup, components), 2u);
    const auto empty = velmora_test::makeMesh({}, {});
    EXPECT_EQ(kxMeshProcessing::ClusterizeConnectedComponents(empty, components), 0u);
    EXPECT_TRUE(components.empty());
}

TEST(MeshLib, PointsToGeometryAndObjFile)
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> points = new kx::kxVertexBuffer(attr, 7);
    for (int i = 0; i < 7; ++i) {
        points->Position3(i) = Vec3f(float(i), 0.5f, -1);
        points->Normal3(i) = Vec3f(0, 0, 2);
    }
    const auto cloud = kx::kxDataToGeometry::VertexBufferToGeometry(points, 1);
    EXPECT_EQ(cloud->GetTriangleQuantity(), 0);
    EXPECT_EQ(cloud->GetVertexBuffer(), points.get());
    const auto triangles = kx::kxDataToGeometry::VertexBufferToGeometry(points, 3);
    ASSERT_EQ(triangles->GetTriangleQuantity(), 2);
    int i0, i1, i2;
    triangles->GetTriangle(1, i0, i1, i2);
    EXPECT_EQ(std::vector<int>({i0, i1, i2}), std::vector<int>({3, 4, 5}));
    EXPECT_EQ(kx::kxDataToGeometry::VertexBufferToGeometry(nullptr, 1), nullptr);

    kx::kxPointer<kx::kxNode> root = new kx::kxNode();
    root->AttachChild(cloud);
    root->AttachChild(triangles);
    triangles->SetName("tris");
    triangles->World.SetTranslate(Vec3f(0, 0, 10));
    const std::string path = (std::filesystem::temp_directory_path() / "velmora_meshlib_test.obj").string();
    ASSERT_TRUE(kx::kxMeshManager::saveMesh(root, path));
    std::ifstream in(path);
    std::string line;
    std::vector<std::string> faces;
    int vertices = 0, normals = 0, objects = 0;
    bool movedVertex = false;
    while (std::getline(in, line)) {
        vertices += line.rfind("v ", 0) == 0;
        normals += line.rfind("vn ", 0) == 0;
        objects += line.rfind("o ", 0) == 0;
        movedVertex = movedVertex || line == "v 0 0.5 9";
        if (line.rfind("f ", 0) == 0)
            faces.push_back(line);
    }
    std::filesystem::remove(path);
    EXPECT_EQ(vertices, 14);
    EXPECT_EQ(normals, 14);
    EXPECT_EQ(objects, 2);
    EXPECT_TRUE(movedVertex) << "positions go through World";
    EXPECT_EQ(faces, std::vector<std::string>({"f 8//8 9//9 10//10", "f 11//11 12//12 13//13"}));
    EXPECT_FALSE(kx::kxMeshManager::saveMesh(root, "/nonexistent-dir/x.obj"));
}
