// Meshes and a small planning pipeline for the verification tests: boxes
// merged into one mesh per part, and a builder over hand-given contacts with
// the specified distant search run before its solvers are made.
#pragma once

#include <memory>
#include <vector>

#include "GeometryMeshes.h"
#include "StdoutCapture.h"
#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxDistantContacts.h"
#include "kxMeshGroups.h"

namespace verify_test {

using Vec3f = Wm4::Vector3<float>;
using Vec3d = Wm4::Vector3<double>;

struct BoxSpec {
    Vec3f lo, hi;
};

// One mesh holding every box (each closed, facing outwards).
inline kx::kxPointer<kx::kxTriMesh> boxesMesh(const std::vector<BoxSpec>& boxes)
{
    std::vector<kx::kxPointer<kx::kxTriMesh>> parts;
    int noVertices = 0, noTriangles = 0;
    for (const BoxSpec& b : boxes) {
        parts.push_back(velmora_test::makeTessellatedBox(b.lo, b.hi, 1));
        noVertices += parts.back()->GetVertexBuffer()->GetVertexQuantity();
        noTriangles += parts.back()->GetTriangleQuantity();
    }
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, noVertices);
    kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(3 * noTriangles, 1);
    int base = 0, index = 0;
    for (const auto& part : parts) {
        const kx::kxVertexBuffer& source = *part->GetVertexBuffer();
        for (int i = 0; i < source.GetVertexQuantity(); ++i)
            vb->Position3(base + i) = source.Position3(i);
        for (int t = 0; t < part->GetTriangleQuantity(); ++t) {
            int i0 = 0, i1 = 0, i2 = 0;
            part->GetTriangle(t, i0, i1, i2);
            for (int i : {i0, i1, i2})
                ib->GetData()[index++] = unsigned(base + i);
        }
        base += source.GetVertexQuantity();
    }
    return new kx::kxTriMesh(vb, ib);
}

inline kx::kxPointer<kx::kxTriMesh> boxMesh(const Vec3f& lo, const Vec3f& hi) { return boxesMesh({{lo, hi}}); }

// Groups (one per mesh), contacts given by hand, and a builder whose
// hierarchy the specified search plans after the specified distant search.
class HandPlan {
public:
    explicit HandPlan(std::vector<kx::kxPointer<kx::kxTriMesh>> meshes)
        : mMeshes(std::move(meshes)), mGroups(raw(mMeshes), nullptr), mDiagram(0, 16, mGroups), mHierarchy(mGroups)
    {
    }
    // Group a may leave group b along each of `directions` (in this order).
    void addContact(unsigned a, unsigned b, const std::vector<Vec3d>& directions)
    {
        mDiagram.pushContactEdge(a, b, directions.empty() ? nullptr : directions.data(), unsigned(directions.size()),
                                 Vec3f(1, 1, 1));
    }
    // With `clustering` (borrowed) given to the builder.
    void plan(unsigned threads, kxGroupsClustering* clustering = nullptr)
    {
        velmora_test::StdoutCapture quiet;
        mDiagram.computeDirectionSet(5.0f);
        mBuilder = std::make_unique<kxDisassemblyHierarchyBuilder>(mHierarchy, mDiagram, threads);
        kxDistantContacts(*mBuilder).computeDistantContacts(threads, nullptr);
        mDistantConstraints = mBuilder->getNoDistantConstraints();
        mBuilder->setGroupsClustering(clustering);
        mBuilder->initSolver();
        mBuilder->computeGroupsHierarchy(0, nullptr);
    }

    const kxMeshGroups& groups() const { return mGroups; }
    const kxDisassemblyHierarchy& hierarchy() const { return mHierarchy; }
    kxDisassemblyHierarchyBuilder& builder() { return *mBuilder; }
    unsigned distantConstraints() const { return mDistantConstraints; }

private:
    static std::vector<kx::kxTriMesh*> raw(const std::vector<kx::kxPointer<kx::kxTriMesh>>& meshes)
    {
        return std::vector<kx::kxTriMesh*>(meshes.begin(), meshes.end());
    }

    std::vector<kx::kxPointer<kx::kxTriMesh>> mMeshes;
    kxMeshGroups mGroups;
    kxContactDiagram mDiagram;
    kxDisassemblyHierarchy mHierarchy;
    std::unique_ptr<kxDisassemblyHierarchyBuilder> mBuilder;
    unsigned mDistantConstraints = 0;
};

}  // namespace verify_test
