#include "TestMeshes.h"

#include <filesystem>

namespace velmora_test {

kx::kxPointer<kx::kxTriMesh> makeMesh(const std::vector<Wm4::Vector3<float>>& positions,
                                      const std::vector<unsigned>& indices)
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, static_cast<int>(positions.size()));
    for (size_t i = 0; i < positions.size(); ++i)
        vb->Position3(static_cast<int>(i)) = positions[i];
    kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(static_cast<int>(indices.size()), 1);
    for (size_t k = 0; k < indices.size(); ++k)
        ib->GetData()[k] = indices[k];
    return new kx::kxTriMesh(vb, ib);
}

kx::kxPointer<kx::kxTriMesh> makeBox(const Wm4::Vector3<float>& lo, const Wm4::Vector3<float>& hi)
{
    std::vector<Wm4::Vector3<float>> corners;
    for (int c = 0; c < 8; ++c)
        corners.emplace_back((c & 1) ? hi[0] : lo[0], (c & 2) ? hi[1] : lo[1], (c & 4) ? hi[2] : lo[2]);
    // Two counter-clockwise (seen from outside) triangles per face.
    const std::vector<unsigned> indices = {
        0, 2, 3, 0, 3, 1,  // -z
        4, 5, 7, 4, 7, 6,  // +z
        0, 1, 5, 0, 5, 4,  // -y
        2, 6, 7, 2, 7, 3,  // +y
        0, 4, 6, 0, 6, 2,  // -x
        1, 3, 7, 1, 7, 5,  // +x
    };
    return makeMesh(corners, indices);
}

std::vector<kx::kxTriMesh*> rawPointers(const std::vector<kx::kxPointer<kx::kxTriMesh>>& meshes)
{
    std::vector<kx::kxTriMesh*> raw;
    for (const auto& m : meshes)
        raw.push_back(m.get());
    return raw;
}

std::string corpusDir()
{
    std::error_code ec;
    return std::filesystem::is_directory(VELMORA_CORPUS_DIR, ec) ? std::string(VELMORA_CORPUS_DIR) : std::string();
}

}  // namespace velmora_test
