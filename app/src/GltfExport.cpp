// Binary glTF 2.0 writer for exploded views: a JSON chunk built with
// nlohmann::json and one binary chunk holding every buffer view's data, each
// view 4-byte aligned. Compressed views hold meshopt-encoded bytes and
// declare their decoded size on a data-less fallback buffer.
#include "velmora/GltfExport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "GltfMesh.h"
#include "RigidCopies.h"
#include "kxBBox.h"
#include "velmora/OutputFile.h"

namespace velmora {
namespace {

using json = nlohmann::json;
using Vec3f = Wm4::Vector3<float>;
using Mat3f = Wm4::Matrix3<float>;

constexpr uint32_t kGlbMagic = 0x46546C67;  // "glTF"
constexpr uint32_t kGlbVersion = 2;
constexpr uint32_t kChunkJson = 0x4E4F534A;
constexpr uint32_t kChunkBin = 0x004E4942;
constexpr int kByte = 5120;
constexpr int kUnsignedShort = 5123;
constexpr int kUnsignedInt = 5125;
constexpr int kFloat = 5126;
constexpr int kArrayBuffer = 34962;
constexpr int kElementArrayBuffer = 34963;
// How far, against its size, a vertex of a placed copy may lie from where
// the shared mesh puts it: far below what a view shows.
constexpr double kRigidCopyTolerance = 1e-5;
constexpr int kModeLines = 1;
constexpr int kModeTriangles = 4;
constexpr float kPi = 3.14159265358979f;

// A fixed palette of distinguishable, muted colours (sRGB).
constexpr std::array<uint32_t, 10> kPalette = {0x4E79A7, 0xF28E2B, 0xE15759, 0x76B7B2, 0x59A14F,
                                               0xEDC948, 0xB07AA1, 0xFF9DA7, 0x9C755F, 0xBAB0AC};

float linearFromSrgb(uint32_t byte)
{
    const float c = float(byte) / 255.0f;
    return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f);
}

Colour paletteColour(size_t k)
{
    const uint32_t rgb = kPalette[k % kPalette.size()];
    return {linearFromSrgb((rgb >> 16) & 0xFF), linearFromSrgb((rgb >> 8) & 0xFF), linearFromSrgb(rgb & 0xFF), 1.0f};
}

json vec3Json(const Vec3f& v) { return {v.X(), v.Y(), v.Z()}; }

// Column-major 4x4 of the affine map x -> m x + t.
json matrixJson(const Mat3f& m, const Vec3f& t)
{
    json out = json::array();
    for (int c = 0; c < 3; ++c)
        out.insert(out.end(), {m[0][c], m[1][c], m[2][c], 0.0f});
    out.insert(out.end(), {t.X(), t.Y(), t.Z(), 1.0f});
    return out;
}

// Sets `node`'s matrix to the affine map x -> m x + t unless it is the identity.
void setMatrix(json& node, const Mat3f& m, const Vec3f& t)
{
    if (m != Mat3f::IDENTITY || t != Vec3f::ZERO)
        node["matrix"] = matrixJson(m, t);
}

// The assembly's frame to glTF's: metres, and +Z turned to +Y for Z-up inputs.
Mat3f toGltfFrame(const GlbOptions& options)
{
    const float s = float(metresPer(options.units));
    return options.zUp ? Mat3f(s, 0, 0, 0, 0, s, 0, -s, 0) : Mat3f(s, 0, 0, 0, s, 0, 0, 0, s);
}

// The JSON document and the binary chunk under construction.
class GlbBuilder {
public:
    GlbBuilder()
    {
        mJson["asset"] = {{"version", "2.0"}, {"generator", "velmora"}};
        for (const char* array : {"nodes", "meshes", "materials", "accessors", "bufferViews", "cameras"})
            mJson[array] = json::array();
    }

    // Appends `item` to the top-level array `array`; returns its index.
    int add(const char* array, json item)
    {
        mJson[array].push_back(std::move(item));
        return int(mJson[array].size() - 1);
    }
    json& at(const char* array, int index) { return mJson[array][size_t(index)]; }
    json& document() { return mJson; }

    // A view of `size` bytes copied into the binary chunk.
    int addView(const void* data, size_t size, int target, size_t stride)
    {
        json view = {{"buffer", 0}, {"byteOffset", appendBinary(data, size)}, {"byteLength", size}};
        if (target != 0)
            view["target"] = target;
        if (stride != 0)
            view["byteStride"] = stride;
        return add("bufferViews", std::move(view));
    }

    // A meshopt-encoded view of `count` elements of `stride` bytes.
    int addEncodedView(const std::vector<unsigned char>& encoded, size_t count, size_t stride, bool triangles,
                       int target)
    {
        json view = {{"buffer", 1}, {"byteOffset", mFallbackLength}, {"byteLength", count * stride}, {"target", target}};
        mFallbackLength += (count * stride + 3) & ~size_t(3);
        if (!triangles)
            view["byteStride"] = stride;
        view["extensions"]["EXT_meshopt_compression"] = {{"buffer", 0},
                                                         {"byteOffset", appendBinary(encoded.data(), encoded.size())},
                                                         {"byteLength", encoded.size()},
                                                         {"byteStride", stride},
                                                         {"count", count},
                                                         {"mode", triangles ? "TRIANGLES" : "ATTRIBUTES"}};
        return add("bufferViews", std::move(view));
    }

    int addAccessor(int view, int componentType, size_t count, const char* type, bool normalized = false)
    {
        json accessor = {{"bufferView", view}, {"componentType", componentType}, {"count", count}, {"type", type}};
        if (normalized)
            accessor["normalized"] = true;
        return add("accessors", std::move(accessor));
    }

    // A float accessor over `values` (`width` floats per element).
    int addFloats(const std::vector<float>& values, const char* type, size_t width, int target)
    {
        return addAccessor(addView(values.data(), values.size() * sizeof(float), target, 0), kFloat,
                           values.size() / width, type);
    }

    void addChild(int parent, int child) { mJson["nodes"][size_t(parent)]["children"].push_back(child); }

    std::vector<unsigned char> finish(const std::vector<int>& roots)
    {
        mJson["scenes"] = json::array({{{"nodes", roots}}});
        mJson["scene"] = 0;
        if (!mBinary.empty())
            mJson["buffers"] = json::array({{{"byteLength", mBinary.size()}}});
        if (mFallbackLength > 0)
            mJson["buffers"].push_back(
                {{"byteLength", mFallbackLength}, {"extensions", {{"EXT_meshopt_compression", {{"fallback", true}}}}}});
        for (const char* array : {"meshes", "materials", "accessors", "bufferViews", "cameras"}) {
            if (mJson[array].empty())
                mJson.erase(array);
        }
        std::string text = mJson.dump(-1, ' ', false, json::error_handler_t::replace);
        text.resize((text.size() + 3) & ~size_t(3), ' ');
        std::vector<unsigned char> out;
        const size_t total = 12 + 8 + text.size() + (mBinary.empty() ? 0 : 8 + mBinary.size());
        out.reserve(total);
        for (uint32_t word : {kGlbMagic, kGlbVersion, uint32_t(total), uint32_t(text.size()), kChunkJson})
            appendU32(out, word);
        out.insert(out.end(), text.begin(), text.end());
        if (!mBinary.empty()) {
            appendU32(out, uint32_t(mBinary.size()));
            appendU32(out, kChunkBin);
            out.insert(out.end(), mBinary.begin(), mBinary.end());
        }
        return out;
    }

private:
    size_t appendBinary(const void* data, size_t size)
    {
        const size_t start = mBinary.size();
        mBinary.resize(start + size);
        if (size > 0)
            std::memcpy(mBinary.data() + start, data, size);
        mBinary.resize((mBinary.size() + 3) & ~size_t(3), 0);
        return start;
    }

    static void appendU32(std::vector<unsigned char>& out, uint32_t value)
    {
        for (int b = 0; b < 4; ++b)
            out.push_back(static_cast<unsigned char>(value >> (8 * b)));
    }

    json mJson;
    std::vector<unsigned char> mBinary;
    size_t mFallbackLength = 0;
};

std::vector<float> flatten(const std::vector<Vec3f>& vectors)
{
    std::vector<float> out;
    out.reserve(vectors.size() * 3);
    for (const Vec3f& v : vectors)
        out.insert(out.end(), {v.X(), v.Y(), v.Z()});
    return out;
}

// One glTF mesh and the map from its stored vertices to the part's frame.
struct StoredMesh {
    int mesh = -1;
    Vec3f origin;
    float step = 1.0f;
};

// Index data as 16-bit values when every index fits.
std::vector<uint16_t> shortIndices(const std::vector<uint32_t>& indices)
{
    return std::vector<uint16_t>(indices.begin(), indices.end());
}

int addIndices(GlbBuilder& builder, const ShadedMesh& shaded, bool compress)
{
    const bool shorts = shaded.positions.size() <= 65535;
    const size_t size = shorts ? 2 : 4;
    int view;
    if (compress) {
        view = builder.addEncodedView(encodeTriangles(shaded.indices, shaded.positions.size()), shaded.indices.size(),
                                      size, true, kElementArrayBuffer);
    } else if (shorts) {
        const std::vector<uint16_t> values = shortIndices(shaded.indices);
        view = builder.addView(values.data(), values.size() * size, kElementArrayBuffer, 0);
    } else {
        view = builder.addView(shaded.indices.data(), shaded.indices.size() * size, kElementArrayBuffer, 0);
    }
    return builder.addAccessor(view, shorts ? kUnsignedShort : kUnsignedInt, shaded.indices.size(), "SCALAR");
}

// The POSITION and NORMAL accessors; `stored` receives the dequantisation.
std::pair<int, int> addAttributes(GlbBuilder& builder, const ShadedMesh& shaded, bool compress, StoredMesh& stored)
{
    const size_t n = shaded.positions.size();
    if (!compress) {
        const int position = builder.addFloats(flatten(shaded.positions), "VEC3", 3, kArrayBuffer);
        kx::kxBBox bounds(shaded.positions.front(), shaded.positions.front());
        for (const Vec3f& p : shaded.positions)
            bounds.selfExpand(p);
        builder.at("accessors", position)["min"] = vec3Json(bounds.min);
        builder.at("accessors", position)["max"] = vec3Json(bounds.max);
        return {position, builder.addFloats(flatten(shaded.normals), "VEC3", 3, kArrayBuffer)};
    }
    const QuantisedPositions q = quantisePositions(shaded.positions);
    stored.origin = q.origin;
    stored.step = q.step;
    const int position = builder.addAccessor(
        builder.addEncodedView(encodeVertices(q.values.data(), n, 8), n, 8, false, kArrayBuffer), kUnsignedShort, n,
        "VEC3");
    builder.at("accessors", position)["min"] = {q.lo[0], q.lo[1], q.lo[2]};
    builder.at("accessors", position)["max"] = {q.hi[0], q.hi[1], q.hi[2]};
    const std::vector<int8_t> normals = quantiseNormals(shaded.normals);
    const int normal = builder.addAccessor(
        builder.addEncodedView(encodeVertices(normals.data(), n, 4), n, 4, false, kArrayBuffer), kByte, n, "VEC3",
        true);
    return {position, normal};
}

json materialJson(const Colour& c, const std::string& name)
{
    json material = {{"name", name},
                     {"pbrMetallicRoughness",
                      {{"baseColorFactor", {c.r, c.g, c.b, c.a}}, {"metallicFactor", 0.1}, {"roughnessFactor", 0.6}}}};
    if (c.a < 1.0f)
        material["alphaMode"] = "BLEND";
    return material;
}

// Writes the parts under the root node: node tree, meshes, materials.
class SceneWriter {
public:
    SceneWriter(GlbBuilder& builder, const Assembly& assembly, const GlbOptions& options)
        : mBuilder(builder), mAssembly(assembly), mOptions(options)
    {
        json root = {{"name", "assembly"}, {"extras", {{"units", options.units}, {"upAxis", options.zUp ? "Z" : "Y"}}}};
        setMatrix(root, toGltfFrame(options), Vec3f::ZERO);
        mRoot = mBuilder.add("nodes", std::move(root));
        mPaths[""] = mRoot;
        std::vector<const kx::kxTriMesh*> meshes;
        for (const Part& part : assembly.parts)
            meshes.push_back(part.mesh.get());
        mCopies = findRigidCopies(meshes, kRigidCopyTolerance);
    }

    int root() const { return mRoot; }

    // The part's node (translated by `translation`) and its mesh node.
    int addPart(unsigned part, unsigned group, const Vec3f& translation)
    {
        const Part& p = mAssembly.parts[part];
        json extras = {{"part", p.name}, {"group", group}, {"base", int(group) == mOptions.baseGroup}};
        const int node = mBuilder.add("nodes", {{"name", p.name}, {"translation", vec3Json(translation)}, {"extras", extras}});
        mBuilder.addChild(pathNode(parentPath(p)), node);
        const StoredMesh& stored = meshOf(part);
        const RigidCopy& copy = mCopies[part];
        const Mat3f& world = p.mesh->World.GetMatrix();
        json meshNode = {{"name", p.name}};
        setMatrix(meshNode, world * copy.rotation * stored.step,
                  world * (copy.rotation * stored.origin + copy.translation) + p.mesh->World.GetTranslate());
        if (stored.mesh >= 0)
            meshNode["mesh"] = stored.mesh;
        mBuilder.addChild(node, mBuilder.add("nodes", std::move(meshNode)));
        return node;
    }

    // One LINES mesh under the root from each moved part's centre to where the offset takes it.
    void addLines(const std::vector<Vec3f>& groupOffsets)
    {
        std::vector<Vec3f> ends;
        for (size_t g = 0; g < mAssembly.groups.size(); ++g) {
            if (groupOffsets[g] == Vec3f::ZERO)
                continue;
            for (unsigned part : mAssembly.groups[g].parts) {
                const Vec3f centre = partCentre(part);
                ends.insert(ends.end(), {centre, centre + groupOffsets[g]});
            }
        }
        if (ends.empty())
            return;
        const int position = mBuilder.addFloats(flatten(ends), "VEC3", 3, kArrayBuffer);
        kx::kxBBox bounds(ends.front(), ends.front());
        for (const Vec3f& p : ends)
            bounds.selfExpand(p);
        mBuilder.at("accessors", position)["min"] = vec3Json(bounds.min);
        mBuilder.at("accessors", position)["max"] = vec3Json(bounds.max);
        const int material = mBuilder.add("materials", materialJson({0.02f, 0.02f, 0.02f, 1.0f}, "explosion lines"));
        const json primitive = {{"attributes", {{"POSITION", position}}}, {"mode", kModeLines}, {"material", material}};
        const int mesh =
            mBuilder.add("meshes", {{"name", "explosion lines"}, {"primitives", json::array({primitive})}});
        mBuilder.addChild(mRoot, mBuilder.add("nodes", {{"name", "explosion lines"}, {"mesh", mesh}}));
    }

    Vec3f partCentre(unsigned part) const
    {
        Assembly one;
        one.parts = {mAssembly.parts[part]};
        Vec3f lo, hi;
        assemblyBounds(one, lo, hi);
        return (lo + hi) * 0.5f;
    }

private:
    // The path of the nodes above a part: its node path without a last
    // segment that is the part itself (readers that include the part's own
    // node in the path).
    static std::string parentPath(const Part& part)
    {
        const size_t slash = part.node.rfind('/');
        const std::string last = slash == std::string::npos ? part.node : part.node.substr(slash + 1);
        if (last != part.name)
            return part.node;
        return slash == std::string::npos ? "" : part.node.substr(0, slash);
    }

    // The node of a '/'-separated path, created with its ancestors on first use.
    int pathNode(const std::string& path)
    {
        const auto found = mPaths.find(path);
        if (found != mPaths.end())
            return found->second;
        const size_t slash = path.rfind('/');
        const int parent = pathNode(slash == std::string::npos ? "" : path.substr(0, slash));
        const int node = mBuilder.add("nodes", {{"name", slash == std::string::npos ? path : path.substr(slash + 1)}});
        mBuilder.addChild(parent, node);
        mPaths[path] = node;
        return node;
    }

    // The stored mesh of a part: parts whose meshes are rigid copies of one
    // mesh and that have the same colour share one.
    const StoredMesh& meshOf(unsigned part)
    {
        const Part& p = mAssembly.parts[part];
        const kx::kxTriMesh& geometry = *mAssembly.parts[mCopies[part].source].mesh;
        const Key key{geometry.GetVertexBuffer(), geometry.GetIndexBuffer(), p.colour.has_value(),
                      p.colour ? std::make_tuple(p.colour->r, p.colour->g, p.colour->b, p.colour->a)
                               : std::make_tuple(0.f, 0.f, 0.f, 0.f)};
        const auto found = mMeshes.find(key);
        if (found != mMeshes.end())
            return found->second;
        StoredMesh& stored = mMeshes[key];
        const ShadedMesh shaded = shadeMesh(geometry, double(mOptions.creaseAngle) * kPi / 180.0);
        if (shaded.indices.empty())
            return stored;
        const auto [position, normal] = addAttributes(mBuilder, shaded, mOptions.compress, stored);
        json primitive = {{"attributes", {{"POSITION", position}, {"NORMAL", normal}}},
                          {"indices", addIndices(mBuilder, shaded, mOptions.compress)},
                          {"material", materialOf(p.colour ? *p.colour : paletteColour(mPaletteUsed++))},
                          {"mode", kModeTriangles}};
        stored.mesh = mBuilder.add("meshes", {{"name", p.name}, {"primitives", json::array({primitive})}});
        return stored;
    }

    int materialOf(const Colour& c)
    {
        const auto key = std::make_tuple(c.r, c.g, c.b, c.a);
        const auto found = mMaterials.find(key);
        if (found != mMaterials.end())
            return found->second;
        return mMaterials[key] = mBuilder.add("materials", materialJson(c, "colour " + std::to_string(mMaterials.size())));
    }

    using ColourKey = std::tuple<float, float, float, float>;
    using Key = std::tuple<const void*, const void*, bool, ColourKey>;

    GlbBuilder& mBuilder;
    const Assembly& mAssembly;
    const GlbOptions& mOptions;
    int mRoot = 0;
    std::map<std::string, int> mPaths;
    std::map<Key, StoredMesh> mMeshes;
    std::map<ColourKey, int> mMaterials;
    size_t mPaletteUsed = 0;
    std::vector<RigidCopy> mCopies;
};

// The unit quaternion (x, y, z, w) of a rotation matrix.
json quaternionJson(const Mat3f& r)
{
    const float trace = r[0][0] + r[1][1] + r[2][2];
    float x, y, z, w;
    if (trace > 0) {
        const float s = 0.5f / std::sqrt(trace + 1.0f);
        w = 0.25f / s, x = (r[2][1] - r[1][2]) * s, y = (r[0][2] - r[2][0]) * s, z = (r[1][0] - r[0][1]) * s;
    } else if (r[0][0] > r[1][1] && r[0][0] > r[2][2]) {
        const float s = 2.0f * std::sqrt(1.0f + r[0][0] - r[1][1] - r[2][2]);
        w = (r[2][1] - r[1][2]) / s, x = 0.25f * s, y = (r[0][1] + r[1][0]) / s, z = (r[0][2] + r[2][0]) / s;
    } else if (r[1][1] > r[2][2]) {
        const float s = 2.0f * std::sqrt(1.0f + r[1][1] - r[0][0] - r[2][2]);
        w = (r[0][2] - r[2][0]) / s, x = (r[0][1] + r[1][0]) / s, y = 0.25f * s, z = (r[1][2] + r[2][1]) / s;
    } else {
        const float s = 2.0f * std::sqrt(1.0f + r[2][2] - r[0][0] - r[1][1]);
        w = (r[1][0] - r[0][1]) / s, x = (r[0][2] + r[2][0]) / s, y = (r[1][2] + r[2][1]) / s, z = 0.25f * s;
    }
    const float length = std::sqrt(x * x + y * y + z * z + w * w);
    return {x / length, y / length, z / length, w / length};
}

// The assembly axis (0, 1, 2) along which the offsets move the most in total.
int mainExplosionAxis(const std::vector<Vec3f>& offsets)
{
    float total[3] = {0, 0, 0};
    for (const Vec3f& offset : offsets)
        for (int k = 0; k < 3; ++k)
            total[k] += std::fabs(offset[k]);
    return int(std::max_element(total, total + 3) - total);
}

// A perspective camera node at scene level framing the exploded pose from a
// three-quarter view across the main explosion axis.
int addCamera(GlbBuilder& builder, const Assembly& assembly, const std::vector<Vec3f>& offsets,
              const GlbOptions& options)
{
    const Mat3f frame = toGltfFrame(options);
    Vec3f lo, hi;
    assemblyBounds(assembly, lo, hi);
    Vec3f offsetLo = Vec3f::ZERO, offsetHi = Vec3f::ZERO;
    for (const Vec3f& offset : offsets)
        for (int k = 0; k < 3; ++k)
            offsetLo[k] = std::min(offsetLo[k], offset[k]), offsetHi[k] = std::max(offsetHi[k], offset[k]);
    // The exploded pose lies within the assembled bounds widened by the offsets.
    const Vec3f a = frame * (lo + offsetLo), b = frame * (hi + offsetHi);
    const Vec3f centre = (a + b) * 0.5f;
    const float radius = std::max(0.5f * (b - a).Length(), 1e-6f);

    Vec3f axis = Vec3f::ZERO;
    axis[mainExplosionAxis(offsets)] = 1.0f;
    axis = frame * axis;
    axis.Normalize();
    Vec3f back;  // from the centre toward the camera
    if (std::fabs(axis.Y()) > 0.9f) {
        back = Vec3f(1.0f, 0.4f, 1.6f);
    } else {
        Vec3f across = axis.Cross(Vec3f::UNIT_Y);
        across.Normalize();
        back = across + axis * 0.55f + Vec3f::UNIT_Y * 0.5f;
    }
    back.Normalize();
    const float yfov = 0.6f;
    const float distance = 1.05f * radius / std::sin(0.5f * yfov);
    Vec3f right = Vec3f::UNIT_Y.Cross(back);
    right.Normalize();
    const Vec3f up = back.Cross(right);
    const Mat3f rotation(right, up, back, true);  // columns
    const int camera = builder.add(
        "cameras", {{"type", "perspective"}, {"perspective", {{"yfov", yfov}, {"znear", 0.01f * distance}}}});
    return builder.add("nodes", {{"name", "camera"},
                                 {"camera", camera},
                                 {"translation", vec3Json(centre + back * distance)},
                                 {"rotation", quaternionJson(rotation)}});
}

void declareExtensions(GlbBuilder& builder, const GlbOptions& options)
{
    if (!options.compress)
        return;
    const json names = {"KHR_mesh_quantization", "EXT_meshopt_compression"};
    builder.document()["extensionsUsed"] = names;
    builder.document()["extensionsRequired"] = names;
}

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

// Per group, the key farthest from the assembled place: the exploded pose.
std::vector<Vec3f> farthestKeys(const std::vector<GroupKeyframes>& keyframes)
{
    std::vector<Vec3f> out;
    for (const GroupKeyframes& keys : keyframes) {
        Vec3f farthest = Vec3f::ZERO;
        for (const Vec3f& t : keys.translations)
            if (t.SquaredLength() > farthest.SquaredLength())
                farthest = t;
        out.push_back(farthest);
    }
    return out;
}

// One translation channel per part node, one sampler per animated group.
class AnimationWriter {
public:
    AnimationWriter(const std::vector<GroupKeyframes>& keyframes, const std::string& name)
        : mKeyframes(keyframes), mName(name)
    {
    }

    void addGroup(GlbBuilder& builder, unsigned g, const std::vector<int>& nodes)
    {
        const GroupKeyframes& keys = mKeyframes[g];
        if (keys.times.empty())
            return;
        const int input = builder.addFloats(keys.times, "SCALAR", 1, 0);
        builder.at("accessors", input)["min"] = {keys.times.front()};
        builder.at("accessors", input)["max"] = {keys.times.back()};
        const int output = builder.addFloats(flatten(keys.translations), "VEC3", 3, 0);
        mSamplers.push_back({{"input", input}, {"output", output}, {"interpolation", "LINEAR"}});
        for (int node : nodes)
            mChannels.push_back(
                {{"sampler", mSamplers.size() - 1}, {"target", {{"node", node}, {"path", "translation"}}}});
    }

    void finish(GlbBuilder& builder) const
    {
        if (!mChannels.empty())
            builder.document()["animations"] =
                json::array({{{"name", mName}, {"channels", mChannels}, {"samplers", mSamplers}}});
    }

private:
    const std::vector<GroupKeyframes>& mKeyframes;
    std::string mName;
    json mChannels = json::array(), mSamplers = json::array();
};

// The whole file: parts translated by `start`, optional lines and the camera
// for the exploded pose `exploded`, and the animation when there is one.
std::vector<unsigned char> buildGlb(const Assembly& assembly, const std::vector<Vec3f>& start,
                                    const std::vector<Vec3f>& exploded, const GlbOptions& options,
                                    AnimationWriter* animation)
{
    GlbBuilder builder;
    declareExtensions(builder, options);
    SceneWriter scene(builder, assembly, options);
    for (unsigned g = 0; g < assembly.groups.size(); ++g) {
        std::vector<int> nodes;
        for (unsigned part : assembly.groups[g].parts)
            nodes.push_back(scene.addPart(part, g, start[g]));
        if (animation != nullptr)
            animation->addGroup(builder, g, nodes);
    }
    if (animation != nullptr)
        animation->finish(builder);
    if (options.lines)
        scene.addLines(exploded);
    const int camera = addCamera(builder, assembly, exploded, options);
    return builder.finish({scene.root(), camera});
}

}  // namespace

double metresPer(const std::string& units)
{
    static const std::map<std::string, double> kMetres = {{"mm", 0.001}, {"cm", 0.01}, {"m", 1.0}, {"in", 0.0254}};
    const auto found = kMetres.find(units);
    if (found == kMetres.end())
        throw InputError("unknown length unit '" + units + "' (mm, cm, m or in)");
    return found->second;
}

bool isZUp(const Assembly& assembly)
{
    return !std::all_of(assembly.parts.begin(), assembly.parts.end(), [](const Part& part) {
        std::string ext = std::filesystem::path(part.file).extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
        return ext == ".gltf" || ext == ".glb";
    });
}

std::vector<unsigned char> buildAnimatedGlb(const Assembly& assembly, const std::vector<GroupKeyframes>& keyframes,
                                            const GlbOptions& options)
{
    checkGroupCount(assembly, keyframes.size(), "keys");
    for (size_t g = 0; g < keyframes.size(); ++g)
        checkKeyframes(keyframes[g], g);
    std::vector<Vec3f> start;
    for (const GroupKeyframes& keys : keyframes)
        start.push_back(keys.translations.empty() ? Vec3f::ZERO : keys.translations.front());

    AnimationWriter animation(keyframes, options.animationName);
    return buildGlb(assembly, start, farthestKeys(keyframes), options, &animation);
}

std::vector<unsigned char> buildExplodedPoseGlb(const Assembly& assembly, const std::vector<Vec3f>& offsets,
                                                const GlbOptions& options)
{
    checkGroupCount(assembly, offsets.size(), "offsets");
    return buildGlb(assembly, offsets, offsets, options, nullptr);
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
