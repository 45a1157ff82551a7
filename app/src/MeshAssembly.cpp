#include "velmora/MeshAssembly.h"

#include <set>

#include "SourceFile.h"

namespace velmora {
namespace {

void checkName(const std::string& name, std::set<std::string>& seen)
{
    if (name.empty())
        throw InputError("a mesh has no name");
    if (!seen.insert(name).second)
        throw InputError(name + ": two meshes have this name");
}

}  // namespace

Assembly assemblyFromMeshes(const std::vector<NamedMesh>& meshes)
{
    if (meshes.empty())
        throw InputError("no mesh given");
    Assembly assembly;
    std::set<std::string> names;
    for (const NamedMesh& input : meshes) {
        checkName(input.name, names);
        if (input.indices.size() % 3 != 0)
            throw InputError(input.name + ": the corner count is not a multiple of three");
        kx::kxPointer<kx::kxTriMesh> mesh = buildMesh({input.positions, input.indices, std::nullopt}, input.name);
        if (mesh == nullptr)
            throw InputError(input.name + ": no usable triangle");
        mesh->SetName(input.name);
        assembly.parts.push_back({input.name, "", "", mesh, std::nullopt});
    }
    assignGroups(assembly, GroupBy::Mesh);
    return assembly;
}

}  // namespace velmora
