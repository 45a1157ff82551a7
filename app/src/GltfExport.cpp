// Binary glTF 2.0 writer for exploded views: a JSON chunk built with
// nlohmann::json and one binary chunk holding every accessor's data, each
// accessor in its own 4-byte aligned buffer view.
#include "velmora/GltfExport.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "kxBBox.h"
#include "velmora/OutputFile.h"

namespace velmora {
namespace {

using json = nlohmann::json;
using Vec3f = Wm4::Vector3<float>;

constexpr uint32_t kGlbMagic = 0x46546C67;  // "glTF"
constexpr uint32_t kGlbVersion = 2;
constexpr uint32_t kChunkJson = 0x4E4F534A;
constexpr uint32_t kChunkBin = 0x004E4942;
constexpr int kFloat = 5126;
constexpr int kUnsignedInt = 5125;
constexpr int kArrayBuffer = 34962;
constexpr int kElementArrayBuffer = 34963;
constexpr int kModeTriangles = 4;

// One part's triangles ready for the file, in the assembly's frame.
struct PartGeometry {
    std::vector<Vec3f> positions;
    std::vector<Vec3f> normals;
    std::vector<uint32_t> indices;  // empty: unindexed, three vertices per triangle
};

// The normal matrix of `m` up to a positive factor (cofactors, with the sign
// of the determinant so that mirrored frames keep normals outward).
Wm4::Matrix3<double> normalMatrix(const Wm4::Matrix3<float>& m)
{
    const Wm4::Matrix3<double> md(m);
    const Wm4::Matrix3<double> cofactors = md.Adjoint().Transpose();
    return md.Determinant() < 0.0 ? -cofactors : cofactors;
}

// `v` scaled to unit length in double precision; false when it has no length.
bool unitVector(const Wm4::Vector3<double>& v, Vec3f& out)
{
    const double length = v.Length();
    if (!(length > 0.0) || !std::isfinite(length))
        return false;
    out = Vec3f(float(v.X() / length), float(v.Y() / length), float(v.Z() / length));
    return true;
}

Wm4::Vector3<double> toDouble(const Vec3f& v) { return {double(v.X()), double(v.Y()), double(v.Z())}; }

// Corner indices of every triangle, reversed when the frame mirrors.
std::vector<uint32_t> triangleCorners(const kx::kxTriMesh& mesh, bool mirrored)
{
    std::vector<uint32_t> corners;
    corners.reserve(size_t(mesh.GetTriangleQuantity()) * 3);
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i0, i1, i2;
        mesh.GetTriangle(t, i0, i1, i2);
        corners.insert(corners.end(), {uint32_t(i0), mirrored ? uint32_t(i2) : uint32_t(i1),
                                       mirrored ? uint32_t(i1) : uint32_t(i2)});
    }
    return corners;
}

// The mesh's own normals in the assembly's frame, when every vertex has one.
bool transformedVertexNormals(const kx::kxTriMesh& mesh, std::vector<Vec3f>& normals)
{
    const kx::kxVertexBuffer& vertices = *mesh.GetVertexBuffer();
    if (vertices.GetAttributes().GetNormalChannels() != 3)
        return false;
    const Wm4::Matrix3<double> toWorld = normalMatrix(mesh.World.GetMatrix());
    normals.resize(size_t(vertices.GetVertexQuantity()));
    for (int v = 0; v < vertices.GetVertexQuantity(); ++v) {
        if (!unitVector(toWorld * toDouble(vertices.Normal3(v)), normals[size_t(v)]))
            return false;
    }
    return true;
}

PartGeometry partGeometry(const kx::kxTriMesh& mesh)
{
    PartGeometry out;
    const kx::kxVertexBuffer* vertices = mesh.GetVertexBuffer();
    if (vertices == nullptr)
        return out;
    const bool mirrored = mesh.World.GetMatrix().Determinant() < 0.0f;
    std::vector<uint32_t> corners = triangleCorners(mesh, mirrored);
    if (corners.empty())
        return out;
    std::vector<Vec3f> world(size_t(vertices->GetVertexQuantity()));
    for (int v = 0; v < vertices->GetVertexQuantity(); ++v)
        world[size_t(v)] = mesh.World.ApplyForward(vertices->Position3(v));

    if (transformedVertexNormals(mesh, out.normals)) {
        out.positions = std::move(world);
        out.indices = std::move(corners);
        return out;
    }
    // Flat shading: three vertices of its own per triangle; a triangle
    // without area has no normal and is left out.
    out.normals.clear();
    for (size_t c = 0; c + 2 < corners.size(); c += 3) {
        const Vec3f &p0 = world[corners[c]], &p1 = world[corners[c + 1]], &p2 = world[corners[c + 2]];
        Vec3f normal;
        if (!unitVector(toDouble(p1 - p0).Cross(toDouble(p2 - p0)), normal))
            continue;
        out.positions.insert(out.positions.end(), {p0, p1, p2});
        out.normals.insert(out.normals.end(), {normal, normal, normal});
    }
    return out;
}

// The JSON document and the binary chunk under construction.
class GlbBuilder {
public:
    GlbBuilder()
    {
        mJson["asset"] = {{"version", "2.0"}, {"generator", "velmora"}};
        for (const char* array : {"nodes", "meshes", "accessors", "bufferViews"})
            mJson[array] = json::array();
    }

    // Appends an accessor over `count` elements of `type` taken from `data`.
    template <class T>
    int addAccessor(const std::vector<T>& data, const char* type, int componentType, int target)
    {
        json view = {{"buffer", 0}, {"byteOffset", mBinary.size()}, {"byteLength", data.size() * sizeof(T)}};
        if (target != 0)
            view["target"] = target;
        const size_t start = mBinary.size();
        mBinary.resize(start + data.size() * sizeof(T));
        std::memcpy(mBinary.data() + start, data.data(), data.size() * sizeof(T));
        mBinary.resize((mBinary.size() + 3) & ~size_t(3), 0);
        mJson["bufferViews"].push_back(view);
        mJson["accessors"].push_back({{"bufferView", mJson["bufferViews"].size() - 1},
                                      {"componentType", componentType},
                                      {"count", data.size()},
                                      {"type", type}});
        return int(mJson["accessors"].size() - 1);
    }

    int addVec3Accessor(const std::vector<Vec3f>& data, int target, bool withBounds)
    {
        const int accessor = addAccessor(data, "VEC3", kFloat, target);
        if (withBounds) {
            kx::kxBBox bounds(data.front(), data.front());
            for (const Vec3f& p : data)
                bounds.selfExpand(p);
            mJson["accessors"][size_t(accessor)]["min"] = {bounds.min.X(), bounds.min.Y(), bounds.min.Z()};
            mJson["accessors"][size_t(accessor)]["max"] = {bounds.max.X(), bounds.max.Y(), bounds.max.Z()};
        }
        return accessor;
    }

    int addTimeAccessor(const std::vector<float>& times)
    {
        const int accessor = addAccessor(times, "SCALAR", kFloat, 0);
        mJson["accessors"][size_t(accessor)]["min"] = {times.front()};
        mJson["accessors"][size_t(accessor)]["max"] = {times.back()};
        return accessor;
    }

    // A node named after the part with its mesh (when it has triangles).
    int addPartNode(const Part& part, const Vec3f& translation)
    {
        json node = {{"name", part.name}, {"translation", {translation.X(), translation.Y(), translation.Z()}}};
        const PartGeometry geometry = part.mesh != nullptr ? partGeometry(*part.mesh) : PartGeometry();
        if (!geometry.positions.empty()) {
            json primitive = {{"attributes",
                               {{"POSITION", addVec3Accessor(geometry.positions, kArrayBuffer, true)},
                                {"NORMAL", addVec3Accessor(geometry.normals, kArrayBuffer, false)}}},
                              {"mode", kModeTriangles}};
            if (!geometry.indices.empty())
                primitive["indices"] = addAccessor(geometry.indices, "SCALAR", kUnsignedInt, kElementArrayBuffer);
            mJson["meshes"].push_back({{"name", part.name}, {"primitives", json::array({primitive})}});
            node["mesh"] = mJson["meshes"].size() - 1;
        }
        mJson["nodes"].push_back(node);
        return int(mJson["nodes"].size() - 1);
    }

    json& document() { return mJson; }

    std::vector<unsigned char> finish()
    {
        json scene = {{"nodes", json::array()}};
        for (size_t n = 0; n < mJson["nodes"].size(); ++n)
            scene["nodes"].push_back(n);
        mJson["scenes"] = json::array({scene});
        mJson["scene"] = 0;
        if (!mBinary.empty())
            mJson["buffers"] = json::array({{{"byteLength", mBinary.size()}}});
        for (const char* array : {"meshes", "accessors", "bufferViews"}) {
            if (mJson[array].empty())
                mJson.erase(array);
        }

        std::string text = mJson.dump(-1, ' ', false, json::error_handler_t::replace);
        text.resize((text.size() + 3) & ~size_t(3), ' ');
        std::vector<unsigned char> out;
        const size_t total = 12 + 8 + text.size() + (mBinary.empty() ? 0 : 8 + mBinary.size());
        appendU32(out, kGlbMagic);
        appendU32(out, kGlbVersion);
        appendU32(out, uint32_t(total));
        appendU32(out, uint32_t(text.size()));
        appendU32(out, kChunkJson);
        out.insert(out.end(), text.begin(), text.end());
        if (!mBinary.empty()) {
            appendU32(out, uint32_t(mBinary.size()));
            appendU32(out, kChunkBin);
            out.insert(out.end(), mBinary.begin(), mBinary.end());
        }
        return out;
    }

private:
    static void appendU32(std::vector<unsigned char>& out, uint32_t value)
    {
        for (int b = 0; b < 4; ++b)
            out.push_back(static_cast<unsigned char>(value >> (8 * b)));
    }

    json mJson;
    std::vector<unsigned char> mBinary;
};

void checkGroupCount(const Assembly& assembly, size_t count, const char* what)
{
    if (count != assembly.groups.size())
        throw std::invalid_argument(std::string("glTF export: ") + what + " for " + std::to_string(count) +
                                    " groups, the assembly has " + std::to_string(assembly.groups.size()));
}

void checkKeyframes(const GroupKeyframes& keys, size_t group)
{
    bool valid = keys.times.size() == keys.translations.size();
    for (size_t k = 0; valid && k < keys.times.size(); ++k)
        valid = std::isfinite(keys.times[k]) && (k == 0 || keys.times[k] > keys.times[k - 1]);
    if (!valid)
        throw std::invalid_argument("glTF export: the keys of group " + std::to_string(group) +
                                    " are not strictly ascending finite times with one translation each");
}

}  // namespace

std::vector<unsigned char> buildAnimatedGlb(const Assembly& assembly, const std::vector<GroupKeyframes>& keyframes)
{
    checkGroupCount(assembly, keyframes.size(), "keys");
    for (size_t g = 0; g < keyframes.size(); ++g)
        checkKeyframes(keyframes[g], g);

    GlbBuilder builder;
    json channels = json::array(), samplers = json::array();
    for (size_t g = 0; g < assembly.groups.size(); ++g) {
        const GroupKeyframes& keys = keyframes[g];
        const Vec3f start = keys.translations.empty() ? Vec3f::ZERO : keys.translations.front();
        std::vector<int> nodes;
        for (unsigned part : assembly.groups[g].parts)
            nodes.push_back(builder.addPartNode(assembly.parts[part], start));
        if (keys.times.empty())
            continue;
        const int input = builder.addTimeAccessor(keys.times);
        const int output = builder.addVec3Accessor(keys.translations, 0, false);
        for (int node : nodes) {
            samplers.push_back({{"input", input}, {"output", output}, {"interpolation", "LINEAR"}});
            channels.push_back(
                {{"sampler", samplers.size() - 1}, {"target", {{"node", node}, {"path", "translation"}}}});
        }
    }
    if (!channels.empty())
        builder.document()["animations"] =
            json::array({{{"name", "explode"}, {"channels", channels}, {"samplers", samplers}}});
    return builder.finish();
}

std::vector<unsigned char> buildExplodedPoseGlb(const Assembly& assembly, const std::vector<Vec3f>& offsets)
{
    checkGroupCount(assembly, offsets.size(), "offsets");
    GlbBuilder builder;
    for (size_t g = 0; g < assembly.groups.size(); ++g) {
        for (unsigned part : assembly.groups[g].parts)
            builder.addPartNode(assembly.parts[part], offsets[g]);
    }
    return builder.finish();
}

void writeGlbFile(const std::vector<unsigned char>& bytes, const std::string& path)
{
    OutputFile file(path, std::cout);
    file.stream().write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    file.commit();
}

std::vector<GroupKeyframes> readGroupKeyframes(const kxMeshGroups& groups)
{
    std::vector<GroupKeyframes> keyframes(groups.getNoGroups());
    for (unsigned g = 0; g < groups.getNoGroups(); ++g) {
        const kx::kxTriMesh* mesh = groups.getGroupSize(g) > 0 ? groups.getMeshFromGroup(g, 0) : nullptr;
        if (mesh == nullptr)
            continue;
        for (kx::kxController* controller : mesh->GetControllers()) {
            const auto* keys = dynamic_cast<const kx::kxKeyframeController*>(controller);
            if (keys == nullptr)
                continue;
            for (int k = 0; k < keys->GetKeyQuantity(); ++k) {
                keyframes[g].times.push_back((*keys->GetTimes())[k]);
                keyframes[g].translations.push_back((*keys->GetTranslations())[k]);
            }
            break;
        }
    }
    return keyframes;
}

}  // namespace velmora
