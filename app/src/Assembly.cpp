#include "velmora/Assembly.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace velmora {

GroupBy parseGroupBy(const std::string& text)
{
    if (text == "mesh")
        return GroupBy::Mesh;
    if (text == "node")
        return GroupBy::Node;
    if (text == "file")
        return GroupBy::File;
    if (text == "subassembly" || parseGroupLevel(text) > 1 || text == "level:1")
        return GroupBy::Level;
    throw InputError("unknown grouping '" + text + "' (expected mesh, node, file, subassembly or level:N)");
}

unsigned parseGroupLevel(const std::string& text)
{
    const std::string prefix = "level:";
    if (text.rfind(prefix, 0) != 0 || text.size() == prefix.size() || text.size() > prefix.size() + 4)
        return 1;
    const std::string digits = text.substr(prefix.size());
    if (!std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isdigit(c); }))
        return 1;
    return unsigned(std::max(1, std::stoi(digits)));
}

const char* toString(GroupBy mode)
{
    switch (mode) {
    case GroupBy::Mesh:
        return "mesh";
    case GroupBy::Node:
        return "node";
    case GroupBy::File:
        return "file";
    case GroupBy::Level:
        return "level";
    }
    return "mesh";
}

size_t Assembly::triangleCount() const
{
    size_t total = 0;
    for (const Part& part : parts)
        total += static_cast<size_t>(part.mesh->GetTriangleQuantity());
    return total;
}

namespace {

std::string firstNode(const std::string& path) { return path.substr(0, path.find('/')); }

// The top assembly of every file: the first node all its parts share, or "".
std::map<std::string, std::string> topNodesByFile(const Assembly& assembly)
{
    std::map<std::string, std::string> top;
    for (const Part& part : assembly.parts) {
        const auto [it, fresh] = top.emplace(part.file, firstNode(part.node));
        if (!fresh && it->second != firstNode(part.node))
            it->second.clear();
    }
    return top;
}

// The first `level` nodes of `path` below `top`, as a path that starts at
// the top; "" when `path` does not reach that deep.
std::string nodeAtLevel(const std::string& path, const std::string& top, unsigned level)
{
    size_t end = top.empty() ? 0 : top.size() + 1;
    if (end > path.size())
        return "";
    for (unsigned k = 0; k < level; ++k) {
        if (end >= path.size())
            return "";
        const size_t slash = path.find('/', end);
        end = slash == std::string::npos ? path.size() : slash + 1;
    }
    return path.substr(0, end == path.size() ? end : end - 1);
}

// Where a part goes: a key shared by the parts of one group, and the group's name.
struct GroupSlot {
    std::string key, name;
};

GroupSlot groupSlot(const Part& part, GroupBy mode, const std::string& levelNode)
{
    switch (mode) {
    case GroupBy::Mesh:
        break;
    case GroupBy::Node:
        if (!part.node.empty())
            return {part.file + "\n" + part.node, part.node};
        break;
    case GroupBy::File:
        return {part.file, part.file};
    case GroupBy::Level:
        if (!levelNode.empty())
            return {part.file + "\n" + levelNode, levelNode};
        break;
    }
    return {part.name, part.name};
}

}  // namespace

void assignGroups(Assembly& assembly, GroupBy mode, unsigned level)
{
    assembly.groups.clear();
    const std::map<std::string, std::string> tops = topNodesByFile(assembly);
    std::map<std::string, unsigned> groupOfKey;
    for (unsigned p = 0; p < assembly.parts.size(); ++p) {
        const Part& part = assembly.parts[p];
        const std::string levelNode =
            mode == GroupBy::Level ? nodeAtLevel(part.node, tops.at(part.file), level) : std::string();
        const GroupSlot slot = groupSlot(part, mode, levelNode);
        auto [it, fresh] = groupOfKey.emplace(slot.key, static_cast<unsigned>(assembly.groups.size()));
        if (fresh)
            assembly.groups.push_back({slot.name, {}});
        assembly.groups[it->second].parts.push_back(p);
    }
    // A group of one part is known by the part's own name.
    for (Group& group : assembly.groups) {
        if (group.parts.size() == 1)
            group.name = assembly.parts[group.parts[0]].name;
    }
}

std::vector<kx::kxPointer<kx::kxTriMesh>> mergeGroups(const Assembly& assembly)
{
    std::vector<kx::kxPointer<kx::kxTriMesh>> merged;
    for (const Group& group : assembly.groups) {
        int vertexCount = 0, indexCount = 0;
        for (unsigned p : group.parts) {
            vertexCount += assembly.parts[p].mesh->GetVertexBuffer()->GetVertexQuantity();
            indexCount += 3 * assembly.parts[p].mesh->GetTriangleQuantity();
        }
        kx::kxAttributes attr;
        attr.SetPositionChannels(3);
        attr.SetNormalChannels(3);
        kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, vertexCount);
        kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(indexCount, 1);
        int vertexBase = 0, indexBase = 0;
        for (unsigned p : group.parts) {
            const kx::kxTriMesh& mesh = *assembly.parts[p].mesh;
            const kx::kxVertexBuffer& src = *mesh.GetVertexBuffer();
            const bool hasNormals = src.GetAttributes().HasNormal();
            for (int v = 0; v < src.GetVertexQuantity(); ++v) {
                vb->Position3(vertexBase + v) = mesh.World.ApplyForward(src.Position3(v));
                if (hasNormals) {
                    Wm4::Vector3<float> n = mesh.World.ApplyForwardVector(src.Normal3(v));
                    n.Normalize();
                    vb->Normal3(vertexBase + v) = n;
                }
            }
            const unsigned* indices = mesh.GetIndexBuffer()->GetData();
            for (int k = 0; k < 3 * mesh.GetTriangleQuantity(); ++k)
                ib->GetData()[indexBase + k] = indices[k] + static_cast<unsigned>(vertexBase);
            vertexBase += src.GetVertexQuantity();
            indexBase += 3 * mesh.GetTriangleQuantity();
        }
        kx::kxPointer<kx::kxTriMesh> mesh = new kx::kxTriMesh(vb, ib);
        mesh->SetName(group.name);
        merged.push_back(mesh);
    }
    return merged;
}

void assemblyBounds(const Assembly& assembly, Wm4::Vector3<float>& lo, Wm4::Vector3<float>& hi)
{
    const float big = Wm4::Math<float>::MAX_REAL;
    lo = {big, big, big};
    hi = {-big, -big, -big};
    for (const Part& part : assembly.parts) {
        const kx::kxVertexBuffer& vb = *part.mesh->GetVertexBuffer();
        for (int v = 0; v < vb.GetVertexQuantity(); ++v) {
            const Wm4::Vector3<float> p = part.mesh->World.ApplyForward(vb.Position3(v));
            for (int i = 0; i < 3; ++i) {
                lo[i] = std::min(lo[i], p[i]);
                hi[i] = std::max(hi[i], p[i]);
            }
        }
    }
}

unsigned groupOfPart(const Assembly& assembly, unsigned part)
{
    for (unsigned g = 0; g < assembly.groups.size(); ++g) {
        const std::vector<unsigned>& parts = assembly.groups[g].parts;
        if (std::binary_search(parts.begin(), parts.end(), part))
            return g;
    }
    throw std::out_of_range("part " + std::to_string(part) + " is in no group");
}

std::vector<std::string> partNamesOf(const Assembly& assembly, const std::vector<unsigned>& groups)
{
    std::vector<std::string> names;
    for (unsigned g : groups)
        for (unsigned p : assembly.groups[g].parts)
            names.push_back(assembly.parts[p].name);
    return names;
}

}  // namespace velmora
