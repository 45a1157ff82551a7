#include "GeometryMeshes.h"

#include <cmath>

#include "TestMeshes.h"

namespace velmora_test {

namespace {

constexpr float kPi = 3.14159265358979f;

// Appends the triangles (a, b, c) and (a, c, d) of the quad a b c d.
void pushQuad(std::vector<unsigned>& indices, unsigned a, unsigned b, unsigned c, unsigned d)
{
    indices.insert(indices.end(), {a, b, c, a, c, d});
}

// Appends a grid of nu × nv cells to the lists.
void appendGrid(std::vector<Vec3f>& positions, std::vector<unsigned>& indices, const Vec3f& origin,
                const Vec3f& edgeU, const Vec3f& edgeV, int nu, int nv, bool flip)
{
    const unsigned base = static_cast<unsigned>(positions.size());
    for (int j = 0; j <= nv; ++j) {
        for (int i = 0; i <= nu; ++i)
            positions.push_back(origin + edgeU * (float(i) / float(nu)) + edgeV * (float(j) / float(nv)));
    }
    const auto at = [&](int i, int j) { return base + unsigned(j * (nu + 1) + i); };
    for (int j = 0; j < nv; ++j) {
        for (int i = 0; i < nu; ++i) {
            if (flip)
                pushQuad(indices, at(i, j), at(i, j + 1), at(i + 1, j + 1), at(i + 1, j));
            else
                pushQuad(indices, at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j + 1));
        }
    }
}

}  // namespace

void triangleCorners(const kx::kxTriMesh& mesh, int t, Vec3f out[3])
{
    int i[3];
    mesh.GetTriangle(t, i[0], i[1], i[2]);
    for (int k = 0; k < 3; ++k)
        out[k] = mesh.GetVertexBuffer()->Position3(i[k]);
}

kx::kxPointer<kx::kxTriMesh> makeGrid(const Vec3f& origin, const Vec3f& edgeU, const Vec3f& edgeV, int nu, int nv,
                                      bool flip)
{
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    appendGrid(positions, indices, origin, edgeU, edgeV, nu, nv, flip);
    return makeMesh(positions, indices);
}

kx::kxPointer<kx::kxTriMesh> makeTessellatedBox(const Vec3f& lo, const Vec3f& hi, int n)
{
    const Vec3f e = hi - lo;
    const Vec3f ex(e[0], 0, 0), ey(0, e[1], 0), ez(0, 0, e[2]);
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    // Each face as origin and two edges whose cross product points outwards.
    appendGrid(positions, indices, lo, ey, ex, n, n, false);       // -z
    appendGrid(positions, indices, lo + ez, ex, ey, n, n, false);  // +z
    appendGrid(positions, indices, lo, ex, ez, n, n, false);       // -y
    appendGrid(positions, indices, lo + ey, ez, ex, n, n, false);  // +y
    appendGrid(positions, indices, lo, ez, ey, n, n, false);       // -x
    appendGrid(positions, indices, lo + ex, ey, ez, n, n, false);  // +x
    return makeMesh(positions, indices);
}

kx::kxPointer<kx::kxTriMesh> makeCylinder(int segments, float radius, float height)
{
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    for (int ring = 0; ring < 2; ++ring) {
        for (int s = 0; s < segments; ++s) {
            const float angle = 2.0f * kPi * float(s) / float(segments);
            positions.emplace_back(radius * std::cos(angle), radius * std::sin(angle), ring * height);
        }
    }
    const unsigned bottomCentre = static_cast<unsigned>(positions.size());
    positions.emplace_back(0.0f, 0.0f, 0.0f);
    positions.emplace_back(0.0f, 0.0f, height);
    const unsigned topCentre = bottomCentre + 1;
    const unsigned n = static_cast<unsigned>(segments);
    for (unsigned s = 0; s < n; ++s) {
        const unsigned next = (s + 1) % n;
        pushQuad(indices, s, next, n + next, n + s);
        indices.insert(indices.end(), {bottomCentre, next, s});
        indices.insert(indices.end(), {topCentre, n + s, n + next});
    }
    return makeMesh(positions, indices);
}

kx::kxPointer<kx::kxTriMesh> makeSphere(const Vec3f& centre, float radius, int rings, int segments)
{
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    positions.push_back(centre + Vec3f(0, 0, radius));
    for (int r = 1; r < rings; ++r) {
        const float polar = kPi * float(r) / float(rings);
        for (int s = 0; s < segments; ++s) {
            const float azimuth = 2.0f * kPi * float(s) / float(segments);
            positions.push_back(centre + Vec3f(std::sin(polar) * std::cos(azimuth), std::sin(polar) * std::sin(azimuth),
                                               std::cos(polar)) * radius);
        }
    }
    positions.push_back(centre - Vec3f(0, 0, radius));
    const unsigned south = static_cast<unsigned>(positions.size() - 1);
    const unsigned n = static_cast<unsigned>(segments);
    const auto at = [&](int ring, unsigned s) { return 1 + unsigned(ring - 1) * n + s % n; };
    for (unsigned s = 0; s < n; ++s) {
        indices.insert(indices.end(), {0u, at(1, s), at(1, s + 1)});
        for (int r = 1; r + 1 < rings; ++r)
            pushQuad(indices, at(r, s), at(r + 1, s), at(r + 1, s + 1), at(r, s + 1));
        indices.insert(indices.end(), {south, at(rings - 1, s + 1), at(rings - 1, s)});
    }
    return makeMesh(positions, indices);
}

Vec3f randomPoint(std::mt19937& rng, const Vec3f& lo, const Vec3f& hi)
{
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    Vec3f p;
    for (int k = 0; k < 3; ++k)
        p[k] = lo[k] + (hi[k] - lo[k]) * unit(rng);
    return p;
}

Vec3f randomUnitVector(std::mt19937& rng)
{
    std::normal_distribution<float> normal(0.0f, 1.0f);
    Vec3f v;
    do {
        v = Vec3f(normal(rng), normal(rng), normal(rng));
    } while (v.Length() < 1e-3f);
    return v / v.Length();
}

kx::kxPointer<kx::kxTriMesh> makeRandomSoup(std::mt19937& rng, int count, const Vec3f& lo, const Vec3f& hi,
                                            float size)
{
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    const Vec3f spread(size, size, size);
    for (int t = 0; t < count; ++t) {
        const Vec3f centre = randomPoint(rng, lo, hi);
        for (int k = 0; k < 3; ++k) {
            indices.push_back(static_cast<unsigned>(positions.size()));
            positions.push_back(randomPoint(rng, centre - spread, centre + spread));
        }
    }
    return makeMesh(positions, indices);
}

kx::kxPointer<kx::kxTriMesh> makeSoupCopy(const kx::kxTriMesh& mesh)
{
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        Vec3f corners[3];
        triangleCorners(mesh, t, corners);
        for (const Vec3f& p : corners) {
            indices.push_back(static_cast<unsigned>(positions.size()));
            positions.push_back(p);
        }
    }
    return makeMesh(positions, indices);
}

kx::kxPointer<kx::kxTriMesh> makeTranslatedCopy(const kx::kxTriMesh& mesh, const Vec3f& offset)
{
    std::vector<Vec3f> positions = mesh.GetVertexBuffer()->GetPositions();
    for (Vec3f& p : positions)
        p += offset;
    const kx::kxIndexBuffer& ib = *mesh.GetIndexBuffer();
    return makeMesh(positions, std::vector<unsigned>(ib.GetData(), ib.GetData() + ib.GetIndexQuantity()));
}

}  // namespace velmora_test
