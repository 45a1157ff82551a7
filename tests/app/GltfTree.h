// Writes small glTF files whose node tree the tests choose: every mesh node
// holds the same closed tetrahedron (outward-facing), placed by the node's
// translation, rotation and scale.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace gltf_test {

struct Node {
    std::string name;
    bool mesh = false;
    std::vector<int> children;
    std::array<float, 3> translation{0, 0, 0};
    std::array<float, 4> rotation{0, 0, 0, 1};  // x, y, z, w
    std::array<float, 3> scale{1, 1, 1};
};

inline std::string base64(const std::string& bytes)
{
    static const char* digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t n = std::min<size_t>(3, bytes.size() - i);
        uint32_t chunk = 0;
        for (size_t k = 0; k < 3; ++k)
            chunk = chunk << 8 | (k < n ? uint8_t(bytes[i + k]) : 0u);
        for (size_t k = 0; k < 4; ++k)
            out += k <= n ? digits[(chunk >> (18 - 6 * k)) & 63] : '=';
    }
    return out;
}

// A glTF whose scene roots are `roots`, nodes indexed as in `nodes`.
inline void writeTree(const std::string& path, const std::vector<Node>& nodes, const std::vector<int>& roots)
{
    // The tetrahedron (0,0,0), (1,0,0), (0,1,0), (0,0,1), triangles facing out.
    const float positions[12] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    const uint32_t indices[12] = {0, 2, 1, 0, 1, 3, 0, 3, 2, 1, 2, 3};
    std::string bytes(reinterpret_cast<const char*>(positions), sizeof positions);
    bytes.append(reinterpret_cast<const char*>(indices), sizeof indices);
    nlohmann::json doc = {
        {"asset", {{"version", "2.0"}}},
        {"scene", 0},
        {"scenes", {{{"nodes", roots}}}},
        {"meshes", {{{"name", "tetra"}, {"primitives", {{{"attributes", {{"POSITION", 0}}}, {"indices", 1}}}}}}},
        {"accessors",
         {{{"bufferView", 0}, {"componentType", 5126}, {"count", 4}, {"type", "VEC3"}},
          {{"bufferView", 1}, {"componentType", 5125}, {"count", 12}, {"type", "SCALAR"}}}},
        {"bufferViews",
         {{{"buffer", 0}, {"byteLength", 48}}, {{"buffer", 0}, {"byteOffset", 48}, {"byteLength", 48}}}},
        {"buffers", {{{"byteLength", 96}, {"uri", "data:application/octet-stream;base64," + base64(bytes)}}}},
        {"nodes", nlohmann::json::array()}};
    for (const Node& node : nodes) {
        nlohmann::json n = {{"name", node.name},
                            {"translation", node.translation},
                            {"rotation", node.rotation},
                            {"scale", node.scale}};
        if (node.mesh)
            n["mesh"] = 0;
        if (!node.children.empty())
            n["children"] = node.children;
        doc["nodes"].push_back(n);
    }
    std::ofstream(path) << doc.dump();
}

// The machine of the STEP tests as a glTF tree: machine → base, motor (turned
// 90° about z, moved to (50, 10, 10)) → housing, shaft.
inline void writeMachine(const std::string& path)
{
    const float s = 0.70710678f;
    writeTree(path,
              {{"machine", false, {1, 2}},
               {"base", true, {}},
               {"motor", false, {3, 4}, {50, 10, 10}, {0, 0, s, s}},
               {"housing", true, {}},
               {"shaft", true, {}}},
              {0});
}

}  // namespace gltf_test
