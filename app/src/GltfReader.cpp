// A glTF 2.0 reader for what assembly import needs: node hierarchy with
// matrices or TRS, triangle primitives with float or quantised positions and
// optional indices, base colours of their materials, buffers in a GLB chunk,
// in external files or in base64 data URIs, and meshopt-compressed views
// (decoded once, on loading).
#include <meshoptimizer.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "SourceFile.h"
#include "velmora/Assembly.h"

namespace velmora {
namespace {

using json = nlohmann::json;
namespace fs = std::filesystem;

constexpr uint32_t kGlbMagic = 0x46546C67;  // "glTF"
constexpr uint32_t kChunkJson = 0x4E4F534A;
constexpr uint32_t kChunkBin = 0x004E4942;
constexpr int kFloat = 5126;
constexpr int kModeTriangles = 4;
// Decoded views larger than this are refused as malformed.
constexpr size_t kMaxDecodedBytes = size_t(1) << 31;

// A position component of `componentType` as a float (glTF's rules for
// normalised integers).
float componentValue(const unsigned char* bytes, int componentType, bool normalized)
{
    switch (componentType) {
    case 5120: {
        int8_t v;
        std::memcpy(&v, bytes, 1);
        return normalized ? std::max(float(v) / 127.0f, -1.0f) : float(v);
    }
    case 5121:
        return normalized ? float(bytes[0]) / 255.0f : float(bytes[0]);
    case 5122: {
        int16_t v;
        std::memcpy(&v, bytes, 2);
        return normalized ? std::max(float(v) / 32767.0f, -1.0f) : float(v);
    }
    case 5123: {
        uint16_t v;
        std::memcpy(&v, bytes, 2);
        return normalized ? float(v) / 65535.0f : float(v);
    }
    default: {
        float v;
        std::memcpy(&v, bytes, 4);
        return v;
    }
    }
}

size_t componentSize(int componentType)
{
    switch (componentType) {
    case 5120:
    case 5121:
        return 1;
    case 5122:
    case 5123:
        return 2;
    case 5125:
    case kFloat:
        return 4;
    default:
        return 0;
    }
}

std::vector<unsigned char> readBytes(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw InputError(file + ": cannot open the file");
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

uint32_t readU32(const std::vector<unsigned char>& bytes, size_t offset)
{
    uint32_t v = 0;
    std::memcpy(&v, bytes.data() + offset, 4);
    return v;
}

std::vector<unsigned char> decodeBase64(const std::string& text, const std::string& file)
{
    std::vector<unsigned char> out;
    uint32_t buffer = 0;
    int bits = 0;
    for (char c : text) {
        int value;
        if (c >= 'A' && c <= 'Z')
            value = c - 'A';
        else if (c >= 'a' && c <= 'z')
            value = c - 'a' + 26;
        else if (c >= '0' && c <= '9')
            value = c - '0' + 52;
        else if (c == '+')
            value = 62;
        else if (c == '/')
            value = 63;
        else if (c == '=')
            break;
        else
            throw InputError(file + ": malformed base64 data in a buffer");
        buffer = (buffer << 6) | uint32_t(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<unsigned char>((buffer >> bits) & 0xFF));
        }
    }
    return out;
}

class GltfDocument {
public:
    GltfDocument(const std::string& file, bool binary) : mFile(file)
    {
        std::vector<unsigned char> bytes = readBytes(file);
        std::vector<unsigned char> glbChunk;
        std::string text;
        if (binary) {
            splitGlb(bytes, text, glbChunk);
        } else {
            text.assign(bytes.begin(), bytes.end());
        }
        try {
            mJson = json::parse(text);
        } catch (const json::exception& e) {
            throw InputError(file + ": cannot read: malformed JSON (" + e.what() + ")");
        }
        loadBuffers(std::move(glbChunk));
        decodeCompressedViews();
    }

    SourceFile read() const
    {
        SourceFile out;
        try {
            for (const json& mesh : mJson.value("meshes", json::array()))
                out.meshes.push_back(readMesh(mesh));
            out.units = "m";
            const json& scenes = mJson.value("scenes", json::array());
            const size_t sceneIndex = mJson.value("scene", 0);
            if (sceneIndex < scenes.size())
                collectNodes(scenes[sceneIndex].value("nodes", json::array()), "", {}, out, 0);
        } catch (const json::exception& e) {
            throw InputError(mFile + ": cannot read: " + e.what());
        }
        return out;
    }

private:
    void splitGlb(const std::vector<unsigned char>& bytes, std::string& text, std::vector<unsigned char>& bin) const
    {
        if (bytes.size() < 20 || readU32(bytes, 0) != kGlbMagic)
            throw InputError(mFile + ": cannot read: not a binary glTF file");
        if (readU32(bytes, 4) != 2)
            throw InputError(mFile + ": cannot read: only glTF 2.0 is supported");
        const size_t total = std::min<size_t>(readU32(bytes, 8), bytes.size());
        size_t offset = 12;
        while (offset + 8 <= total) {
            const size_t length = readU32(bytes, offset);
            const uint32_t type = readU32(bytes, offset + 4);
            if (offset + 8 + length > total)
                throw InputError(mFile + ": cannot read: the file is truncated");
            const auto begin = bytes.begin() + std::ptrdiff_t(offset + 8);
            if (type == kChunkJson && text.empty())
                text.assign(begin, begin + std::ptrdiff_t(length));
            else if (type == kChunkBin && bin.empty())
                bin.assign(begin, begin + std::ptrdiff_t(length));
            offset += 8 + length;
        }
        if (text.empty())
            throw InputError(mFile + ": cannot read: no JSON chunk");
    }

    void loadBuffers(std::vector<unsigned char> glbChunk)
    {
        for (const json& buffer : mJson.value("buffers", json::array())) {
            if (!buffer.contains("uri")) {
                mBuffers.push_back(std::move(glbChunk));
                continue;
            }
            const std::string uri = buffer["uri"].get<std::string>();
            const size_t comma = uri.find(',');
            if (uri.rfind("data:", 0) == 0 && comma != std::string::npos)
                mBuffers.push_back(decodeBase64(uri.substr(comma + 1), mFile));
            else
                mBuffers.push_back(readBytes((fs::path(mFile).parent_path() / uri).string()));
        }
    }

    // The bytes of element k of an accessor, checked against its view and buffer.
    const unsigned char* element(const json& accessor, size_t k, size_t elementSize) const
    {
        const size_t viewIndex = accessor.at("bufferView").get<size_t>();
        const json& view = mJson.at("bufferViews").at(viewIndex);
        const auto decoded = mDecodedViews.find(viewIndex);
        const bool isDecoded = decoded != mDecodedViews.end();
        const std::vector<unsigned char>& buffer =
            isDecoded ? decoded->second : mBuffers.at(view.at("buffer").get<size_t>());
        const size_t viewOffset = isDecoded ? 0 : view.value("byteOffset", size_t(0));
        const size_t viewLength = view.at("byteLength").get<size_t>();
        const size_t stride = view.value("byteStride", elementSize);
        const size_t offset = accessor.value("byteOffset", size_t(0)) + k * stride;
        if (offset + elementSize > viewLength || viewOffset + offset + elementSize > buffer.size())
            throw InputError(mFile + ": an accessor reads past the end of its buffer");
        return buffer.data() + viewOffset + offset;
    }

    void appendPrimitive(const json& primitive, SourceMesh& mesh) const
    {
        if (primitive.value("mode", kModeTriangles) != kModeTriangles || !primitive.contains("attributes") ||
            !primitive["attributes"].contains("POSITION"))
            return;
        const json& positions = mJson.at("accessors").at(primitive["attributes"]["POSITION"].get<size_t>());
        const int positionType = positions.at("componentType").get<int>();
        const size_t positionSize = componentSize(positionType);
        if (positionSize == 0 || positionType == 5125 || positions.at("type").get<std::string>() != "VEC3")
            throw InputError(mFile + ": positions that are not three floats or quantised integers are not supported");
        const bool normalized = positions.value("normalized", false);
        const unsigned base = static_cast<unsigned>(mesh.positions.size());
        const size_t count = positions.at("count").get<size_t>();
        for (size_t v = 0; v < count; ++v) {
            const unsigned char* bytes = element(positions, v, 3 * positionSize);
            mesh.positions.emplace_back(componentValue(bytes, positionType, normalized),
                                        componentValue(bytes + positionSize, positionType, normalized),
                                        componentValue(bytes + 2 * positionSize, positionType, normalized));
        }
        if (!mesh.colour && primitive.contains("material"))
            mesh.colour = baseColour(mJson.at("materials").at(primitive["material"].get<size_t>()));
        if (!primitive.contains("indices")) {
            for (size_t v = 0; v < count; ++v)
                mesh.indices.push_back(base + static_cast<unsigned>(v));
            return;
        }
        const json& indices = mJson.at("accessors").at(primitive["indices"].get<size_t>());
        const int type = indices.at("componentType").get<int>();
        const size_t size = type == 5121 ? 1 : type == 5123 ? 2 : type == 5125 ? 4 : 0;
        if (size == 0)
            throw InputError(mFile + ": unsupported index type");
        for (size_t k = 0; k < indices.at("count").get<size_t>(); ++k) {
            const unsigned char* bytes = element(indices, k, size);
            uint32_t index = 0;
            std::memcpy(&index, bytes, size);  // little-endian, as glTF stores it
            mesh.indices.push_back(base + index);
        }
    }

    // A material's base colour factor (glTF's default: opaque white).
    static Colour baseColour(const json& material)
    {
        const json factor = material.value("pbrMetallicRoughness", json::object())
                                .value("baseColorFactor", json::array({1.0, 1.0, 1.0, 1.0}));
        if (!factor.is_array() || factor.size() != 4)
            return {1.0f, 1.0f, 1.0f, 1.0f};
        float c[4];
        for (size_t k = 0; k < 4; ++k) {
            const float v = factor[k].is_number() ? factor[k].get<float>() : 1.0f;
            c[k] = std::isfinite(v) ? std::clamp(v, 0.0f, 1.0f) : 1.0f;
        }
        return {c[0], c[1], c[2], c[3]};
    }

    // Decodes every meshopt-compressed view into mDecodedViews.
    void decodeCompressedViews()
    {
        try {
            const json& views = mJson.value("bufferViews", json::array());
            for (size_t v = 0; v < views.size(); ++v) {
                const json& extensions = views[v].value("extensions", json::object());
                if (extensions.contains("EXT_meshopt_compression"))
                    mDecodedViews[v] = decodeView(extensions["EXT_meshopt_compression"]);
            }
        } catch (const json::exception& e) {
            throw InputError(mFile + ": cannot read: " + e.what());
        }
    }

    std::vector<unsigned char> decodeView(const json& compression) const
    {
        const size_t bufferIndex = compression.at("buffer").get<size_t>();
        if (bufferIndex >= mBuffers.size())
            throw InputError(mFile + ": a compressed buffer view refers to a buffer that does not exist");
        const std::vector<unsigned char>& buffer = mBuffers[bufferIndex];
        const size_t offset = compression.value("byteOffset", size_t(0));
        const size_t length = compression.at("byteLength").get<size_t>();
        const size_t stride = compression.at("byteStride").get<size_t>();
        const size_t count = compression.at("count").get<size_t>();
        const std::string mode = compression.at("mode").get<std::string>();
        if (offset > buffer.size() || length > buffer.size() - offset || stride == 0 || stride > 256 ||
            count > kMaxDecodedBytes / stride)
            throw InputError(mFile + ": a compressed buffer view lies outside its buffer");
        if (compression.value("filter", std::string("NONE")) != "NONE")
            throw InputError(mFile + ": compressed views with filters are not supported");
        std::vector<unsigned char> out(count * stride);
        const unsigned char* data = buffer.data() + offset;
        int status = -1;
        if (mode == "ATTRIBUTES" && stride % 4 == 0)
            status = meshopt_decodeVertexBuffer(out.data(), count, stride, data, length);
        else if (mode == "TRIANGLES" && (stride == 2 || stride == 4) && count % 3 == 0)
            status = meshopt_decodeIndexBuffer(out.data(), count, stride, data, length);
        else if (mode == "INDICES" && (stride == 2 || stride == 4))
            status = meshopt_decodeIndexSequence(out.data(), count, stride, data, length);
        if (status != 0)
            throw InputError(mFile + ": a compressed buffer view cannot be decoded");
        return out;
    }

    SourceMesh readMesh(const json& mesh) const
    {
        SourceMesh out;
        for (const json& primitive : mesh.value("primitives", json::array()))
            appendPrimitive(primitive, out);
        return out;
    }

    static kx::kxGenericTransformation<float> localTransform(const json& node)
    {
        if (node.contains("matrix")) {  // column-major
            const std::vector<float> m = node["matrix"].get<std::vector<float>>();
            if (m.size() == 16)
                return {Wm4::Matrix3<float>(m[0], m[4], m[8], m[1], m[5], m[9], m[2], m[6], m[10]),
                        {m[12], m[13], m[14]}};
        }
        Wm4::Matrix3<float> rotation(true), scale(true);
        Wm4::Vector3<float> translate;
        if (node.contains("rotation")) {
            const std::vector<float> q = node["rotation"].get<std::vector<float>>();
            if (q.size() == 4) {
                const float x = q[0], y = q[1], z = q[2], w = q[3];
                rotation = Wm4::Matrix3<float>(1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w),
                                               2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w),
                                               2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y));
            }
        }
        const std::vector<float> s = node.value("scale", std::vector<float>{});
        const std::vector<float> t = node.value("translation", std::vector<float>{});
        for (int i = 0; i < 3; ++i) {
            if (s.size() == 3)
                scale[i][i] = s[size_t(i)];
            if (t.size() == 3)
                translate[i] = t[size_t(i)];
        }
        return {rotation * scale, translate};
    }

    const json& nodeAt(int nodeIndex, int depth) const
    {
        const json& nodes = mJson.at("nodes");
        if (nodeIndex < 0 || size_t(nodeIndex) >= nodes.size() || depth > 256)
            throw InputError(mFile + ": a node reference is out of range or cyclic");
        return nodes[size_t(nodeIndex)];
    }

    // The nodes `indices` below `parentPath`; siblings that share a name get
    // distinct path entries so that they never read as one node.
    void collectNodes(const json& indices, const std::string& parentPath,
                      const kx::kxGenericTransformation<float>& parent, SourceFile& out, int depth) const
    {
        std::vector<std::string> names;
        for (const json& index : indices)
            names.push_back(nodeAt(index.get<int>(), depth).value("name", std::string()));
        names = distinctSiblingNames(names);
        for (size_t k = 0; k < names.size(); ++k)
            collectInstances(indices[k].get<int>(), names[k], parentPath, parent, out, depth);
    }

    void collectInstances(int nodeIndex, const std::string& name, const std::string& parentPath,
                          const kx::kxGenericTransformation<float>& parent, SourceFile& out, int depth) const
    {
        const json& node = nodeAt(nodeIndex, depth);
        const auto world = kx::kxGenericTransformation<float>::Product(parent, localTransform(node));
        const std::string path = parentPath.empty() ? name : parentPath + "/" + name;
        if (node.contains("mesh")) {
            const int mesh = node["mesh"].get<int>();
            if (mesh < 0 || size_t(mesh) >= mJson.at("meshes").size())
                throw InputError(mFile + ": a node refers to a mesh that does not exist");
            const std::string meshName = mJson["meshes"][size_t(mesh)].value("name", std::string());
            out.instances.push_back({name, path, meshName, true, mesh, world, {}});
        }
        collectNodes(node.value("children", json::array()), path, world, out, depth + 1);
    }

    std::string mFile;
    json mJson;
    std::vector<std::vector<unsigned char>> mBuffers;
    std::map<size_t, std::vector<unsigned char>> mDecodedViews;  // by view index
};

}  // namespace

SourceFile readGltf(const std::string& file, bool binary) { return GltfDocument(file, binary).read(); }

}  // namespace velmora
