#include "kxMeshManager.h"

#include <fstream>
#include <vector>

#include "kxTriMesh.h"

namespace kx {

namespace {

void collectMeshes(const kxSpatial* object, std::vector<const kxTriMesh*>& meshes)
{
    if (const auto* mesh = dynamic_cast<const kxTriMesh*>(object)) {
        meshes.push_back(mesh);
        return;
    }
    if (const auto* node = dynamic_cast<const kxNode*>(object)) {
        for (int i = 0; i < node->GetQuantity(); ++i)
            collectMeshes(node->GetChild(i), meshes);
    }
}

// Writes one mesh; `base` is the number of vertices written before it.
void writeMesh(std::ostream& out, const kxTriMesh& mesh, size_t index, size_t base)
{
    const kxVertexBuffer* vb = mesh.GetVertexBuffer();
    const int noVertices = vb ? vb->GetVertexQuantity() : 0;
    const bool withNormals = vb && vb->GetAttributes().HasNormal();
    out << "o " << (mesh.GetName().empty() ? "mesh_" + std::to_string(index) : mesh.GetName()) << '\n';
    for (int v = 0; v < noVertices; ++v) {
        const Wm4::Vector3<float> p = mesh.World.ApplyForward(vb->Position3(v));
        out << "v " << p[0] << ' ' << p[1] << ' ' << p[2] << '\n';
    }
    for (int v = 0; withNormals && v < noVertices; ++v) {
        Wm4::Vector3<float> n = mesh.World.ApplyForwardVector(vb->Normal3(v));
        n.Normalize();
        out << "vn " << n[0] << ' ' << n[1] << ' ' << n[2] << '\n';
    }
    int i[3];
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        mesh.GetTriangle(t, i[0], i[1], i[2]);
        out << 'f';
        for (int k : i) {
            const size_t objIndex = base + size_t(k) + 1;
            out << ' ' << objIndex;
            if (withNormals)
                out << "//" << objIndex;
        }
        out << '\n';
    }
}

}  // namespace

bool kxMeshManager::saveMesh(const kxSpatial* object, const std::string& path)
{
    std::ofstream out(path);
    if (!out)
        return false;
    out.precision(9);
    std::vector<const kxTriMesh*> meshes;
    collectMeshes(object, meshes);
    size_t base = 0;
    for (size_t m = 0; m < meshes.size(); ++m) {
        writeMesh(out, *meshes[m], m, base);
        base += meshes[m]->GetVertexBuffer() ? size_t(meshes[m]->GetVertexBuffer()->GetVertexQuantity()) : 0;
    }
    out.flush();
    return bool(out);
}

}  // namespace kx
