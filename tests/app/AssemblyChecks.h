// Checkers over imported assemblies shared by the import tests: the groups as
// sets of part names, a part's bounds and the volume its triangles enclose.
#pragma once

#include <set>
#include <string>

#include "velmora/Assembly.h"

namespace assembly_test {

inline std::set<std::set<std::string>> groupsByName(const velmora::Assembly& assembly)
{
    std::set<std::set<std::string>> groups;
    for (const velmora::Group& group : assembly.groups) {
        std::set<std::string> names;
        for (unsigned p : group.parts)
            names.insert(assembly.parts[p].name);
        groups.insert(names);
    }
    return groups;
}

inline void partBounds(const velmora::Part& part, Wm4::Vector3<float>& lo, Wm4::Vector3<float>& hi)
{
    velmora::Assembly one;
    one.parts.push_back(part);
    velmora::assemblyBounds(one, lo, hi);
}

// Volume enclosed by the part's triangles in world coordinates: positive
// when they face outwards.
inline double signedVolume(const velmora::Part& part)
{
    const kx::kxTriMesh& mesh = *part.mesh;
    double volume = 0;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i[3];
        mesh.GetTriangle(t, i[0], i[1], i[2]);
        Wm4::Vector3<float> p[3];
        for (int k = 0; k < 3; ++k)
            p[k] = mesh.World.ApplyForward(mesh.GetVertexBuffer()->Position3(i[k]));
        volume += double(p[0].Dot(p[1].Cross(p[2]))) / 6.0;
    }
    return volume;
}

}  // namespace assembly_test
