// A glTF 2.0 reader for what assembly import needs: node hierarchy with
// matrices or TRS, triangle primitives with float or quantised positions and
// optional indices, base colours of their materials, buffers in a GLB chunk,
// in external files or in base64 data URIs, and meshopt-compressed views
// (decoded once, on loading).
//
// Nothing in the file is trusted: every index is checked against its array,
// every accessor against its view and buffer once (with arithmetic that
// cannot overflow) before it is read, external buffers are regular files in
// the asset's folder or below it, and the instances a node hierarchy expands
// to are limited. Whatever is wrong becomes an InputError naming the file.
#include <meshoptimizer.h>
#include <sys/stat.h>

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
constexpr size_t kMaxStride = 252;                 // the largest byteStride glTF allows
constexpr size_t kMaxNodeVisits = 1'000'000;       // a node listed twice as a child doubles what lies below
constexpr size_t kMaxInstances = 100'000;
constexpr size_t kMaxDecodedBytes = size_t(1) << 31;  // larger decoded views are refused as malformed

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

// a + b and a * b, or false when the result does not fit.
bool addFits(size_t a, size_t b, size_t& sum) { return !__builtin_add_overflow(a, b, &sum); }
bool mulFits(size_t a, size_t b, size_t& product) { return !__builtin_mul_overflow(a, b, &product); }

// The decoded %XX escapes of a relative URI.
std::string decodePercent(const std::string& uri)
{
    std::string out;
    for (size_t k = 0; k < uri.size(); ++k) {
        if (uri[k] == '%' && k + 2 < uri.size() && std::isxdigit((unsigned char)uri[k + 1]) &&
            std::isxdigit((unsigned char)uri[k + 2])) {
            out.push_back(char(std::stoi(uri.substr(k + 1, 2), nullptr, 16)));
            k += 2;
        } else {
            out.push_back(uri[k]);
        }
    }
    return out;
}

std::vector<unsigned char> readBytes(const std::string& file)
{
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        throw InputError(file + ": cannot open the file");
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
    GltfDocument(const std::vector<unsigned char>& bytes, const std::string& file, bool binary) : mFile(file)
    {
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
        if (!mJson.is_object())
            throw InputError(file + ": cannot read: the JSON is not an object");
        loadBuffers(std::move(glbChunk));
        decodeCompressedViews();
    }

    SourceFile read() const
    {
        SourceFile out;
        for (const json& mesh : array(mJson, "meshes"))
            out.meshes.push_back(readMesh(mesh));
        out.units = "m";
        const json& scenes = array(mJson, "scenes");
        if (!scenes.empty()) {
            const json& scene = scenes[index(mJson, "scene", scenes.size(), 0)];
            size_t visits = 0;
            collectNodes(array(scene, "nodes"), "", {}, out, 0, visits);
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

    [[noreturn]] void fail(const std::string& why) const { throw InputError(mFile + ": cannot read: " + why); }

    // obj[key] as an array (empty when absent).
    const json& array(const json& obj, const char* key) const
    {
        static const json empty = json::array();
        if (!obj.is_object() || !obj.contains(key))
            return empty;
        if (!obj[key].is_array())
            fail(std::string("'") + key + "' is not an array");
        return obj[key];
    }

    // A non-negative integer below `limit`.
    size_t asIndex(const json& value, size_t limit, const char* what) const
    {
        if (!value.is_number_unsigned() || value.get<uint64_t>() >= limit)
            fail(std::string("a ") + what + " index is out of range");
        return size_t(value.get<uint64_t>());
    }

    // obj[key] as an index below `limit`, or `fallback` when absent.
    size_t index(const json& obj, const char* key, size_t limit, size_t fallback) const
    {
        if (!obj.contains(key))
            return fallback;
        return asIndex(obj[key], limit, key);
    }

    // obj[key] as a non-negative integer (any size), or `fallback` when absent.
    size_t number(const json& obj, const char* key, size_t fallback) const
    {
        if (!obj.contains(key))
            return fallback;
        if (!obj[key].is_number_unsigned())
            fail(std::string("'") + key + "' is not a non-negative integer");
        const uint64_t value = obj[key].get<uint64_t>();
        return value > SIZE_MAX ? SIZE_MAX : size_t(value);
    }

    // The external file a buffer URI names: a regular file in the asset's folder or below it.
    std::string externalBuffer(const std::string& uri) const
    {
        const fs::path relative = fs::path(decodePercent(uri)).lexically_normal();
        if (uri.find(':') != std::string::npos || relative.is_absolute() || relative.empty() ||
            *relative.begin() == "..")
            fail("buffer '" + uri + "' is not a file beside the asset");
        const fs::path path = fs::path(mFile).parent_path() / relative;
        struct stat info {};
        if (::stat(path.c_str(), &info) != 0)
            fail("buffer '" + uri + "' does not exist");
        if (!S_ISREG(info.st_mode))
            fail("buffer '" + uri + "' is not a regular file");
        return path.string();
    }

    void loadBuffers(std::vector<unsigned char> glbChunk)
    {
        for (const json& buffer : array(mJson, "buffers")) {
            if (!buffer.is_object() || !buffer.contains("uri")) {
                mBuffers.push_back(std::move(glbChunk));
                continue;
            }
            if (!buffer["uri"].is_string())
                fail("a buffer's uri is not a string");
            const std::string uri = buffer["uri"].get<std::string>();
            const size_t comma = uri.find(',');
            if (uri.rfind("data:", 0) == 0 && comma != std::string::npos)
                mBuffers.push_back(decodeBase64(uri.substr(comma + 1), mFile));
            else
                mBuffers.push_back(readBytes(externalBuffer(uri)));
        }
    }

    // Where an accessor's elements lie: element k starts at first + k * stride.
    struct Elements {
        const unsigned char* first = nullptr;
        size_t stride = 0;
        size_t count = 0;
        const unsigned char* at(size_t k) const { return first + k * stride; }
    };

    // The elements of an accessor, every one of them checked to lie inside
    // its view and buffer.
    Elements elements(const json& accessor, size_t elementSize) const
    {
        if (!accessor.contains("bufferView"))
            fail("an accessor without a buffer view is not supported");
        const json& views = array(mJson, "bufferViews");
        const size_t viewIndex = asIndex(accessor["bufferView"], views.size(), "buffer view");
        const json& view = views[viewIndex];
        if (!view.is_object() || !view.contains("buffer"))
            fail("a buffer view names no buffer");
        // A compressed view reads from its decoded bytes, which start at the view.
        const auto decoded = mDecodedViews.find(viewIndex);
        const bool isDecoded = decoded != mDecodedViews.end();
        const std::vector<unsigned char>& buffer =
            isDecoded ? decoded->second : mBuffers.at(asIndex(view["buffer"], mBuffers.size(), "buffer"));
        const size_t viewOffset = isDecoded ? 0 : number(view, "byteOffset", 0);
        const size_t viewLength = number(view, "byteLength", SIZE_MAX);
        size_t stride = number(view, "byteStride", 0);
        if (stride == 0)
            stride = elementSize;  // tightly packed
        if (stride < elementSize || stride > kMaxStride)
            fail("a buffer view's byteStride is out of range");
        Elements out{nullptr, stride, number(accessor, "count", SIZE_MAX)};
        const size_t offset = number(accessor, "byteOffset", 0);
        size_t viewEnd = 0, span = 0, end = 0;
        if (!addFits(viewOffset, viewLength, viewEnd) || viewEnd > buffer.size())
            fail("a buffer view reaches past the end of its buffer");
        if (out.count > 0 && (!mulFits(out.count - 1, stride, span) || !addFits(span, elementSize, span) ||
                              !addFits(offset, span, end) || end > viewLength))
            fail("an accessor reads past the end of its buffer view");
        out.first = buffer.data() + viewOffset + offset;
        return out;
    }

    const json& accessor(const json& reference) const
    {
        const json& accessors = array(mJson, "accessors");
        const json& a = accessors[asIndex(reference, accessors.size(), "accessor")];
        if (!a.is_object() || !a.contains("componentType") || !a["componentType"].is_number_integer())
            fail("an accessor has no component type");
        return a;
    }

    void appendPrimitive(const json& primitive, SourceMesh& mesh) const
    {
        if (!primitive.is_object() || !primitive.contains("attributes") || !primitive["attributes"].is_object() ||
            !primitive["attributes"].contains("POSITION"))
            return;
        if (primitive.contains("mode") && primitive["mode"] != kModeTriangles)
            return;
        const json& positions = accessor(primitive["attributes"]["POSITION"]);
        const int positionType = positions["componentType"].get<int>();
        const size_t positionSize = componentSize(positionType);
        if (positionSize == 0 || positionType == 5125 || !positions.contains("type") || positions["type"] != "VEC3")
            throw InputError(mFile + ": positions that are not three floats or quantised integers are not supported");
        const bool normalized = positions.value("normalized", false) == true;
        const Elements points = elements(positions, 3 * positionSize);
        if (mesh.positions.size() + points.count > UINT32_MAX)
            fail("a mesh has too many vertices");
        const unsigned base = static_cast<unsigned>(mesh.positions.size());
        for (size_t v = 0; v < points.count; ++v) {
            const unsigned char* bytes = points.at(v);
            mesh.positions.emplace_back(componentValue(bytes, positionType, normalized),
                                        componentValue(bytes + positionSize, positionType, normalized),
                                        componentValue(bytes + 2 * positionSize, positionType, normalized));
        }
        if (!mesh.colour && primitive.contains("material")) {
            const json& materials = array(mJson, "materials");
            mesh.colour = baseColour(materials[asIndex(primitive["material"], materials.size(), "material")]);
        }
        if (!primitive.contains("indices")) {
            for (size_t v = 0; v < points.count; ++v)
                mesh.indices.push_back(base + static_cast<unsigned>(v));
            return;
        }
        const json& indices = accessor(primitive["indices"]);
        const int type = indices["componentType"].get<int>();
        const size_t size = type == 5121 ? 1 : type == 5123 ? 2 : type == 5125 ? 4 : 0;
        if (size == 0)
            throw InputError(mFile + ": unsupported index type");
        const Elements corners = elements(indices, size);
        for (size_t k = 0; k < corners.count; ++k) {
            uint32_t index = 0;
            std::memcpy(&index, corners.at(k), size);  // little-endian, as glTF stores it
            if (index >= points.count)
                fail("an index refers to a vertex that does not exist");
            mesh.indices.push_back(base + index);
        }
    }

    // A material's base colour factor (glTF's default: opaque white).
    static Colour baseColour(const json& material)
    {
        if (!material.is_object() || !material.contains("pbrMetallicRoughness") ||
            !material["pbrMetallicRoughness"].is_object())
            return {1.0f, 1.0f, 1.0f, 1.0f};
        const json factor = material["pbrMetallicRoughness"].value("baseColorFactor", json::array({1, 1, 1, 1}));
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
        const json& views = array(mJson, "bufferViews");
        for (size_t v = 0; v < views.size(); ++v) {
            if (!views[v].is_object() || !views[v].contains("extensions") || !views[v]["extensions"].is_object())
                continue;
            const json& extensions = views[v]["extensions"];
            if (extensions.contains("EXT_meshopt_compression"))
                mDecodedViews[v] = decodeView(extensions["EXT_meshopt_compression"]);
        }
    }

    std::string text(const json& obj, const char* key, const std::string& fallback) const
    {
        if (!obj.contains(key))
            return fallback;
        if (!obj[key].is_string())
            fail(std::string("'") + key + "' is not a string");
        return obj[key].get<std::string>();
    }

    std::vector<unsigned char> decodeView(const json& compression) const
    {
        if (!compression.is_object() || !compression.contains("buffer"))
            fail("a compressed buffer view names no buffer");
        const std::vector<unsigned char>& buffer = mBuffers[asIndex(compression["buffer"], mBuffers.size(), "buffer")];
        const size_t offset = number(compression, "byteOffset", 0);
        const size_t length = number(compression, "byteLength", SIZE_MAX);
        const size_t stride = number(compression, "byteStride", 0);
        const size_t count = number(compression, "count", SIZE_MAX);
        const std::string mode = text(compression, "mode", "");
        if (offset > buffer.size() || length > buffer.size() - offset || stride == 0 || stride > 256 ||
            count > kMaxDecodedBytes / stride)
            throw InputError(mFile + ": a compressed buffer view lies outside its buffer");
        if (text(compression, "filter", "NONE") != "NONE")
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
        for (const json& primitive : array(mesh, "primitives"))
            appendPrimitive(primitive, out);
        return out;
    }

    // obj[key] as `n` numbers, or empty when absent or of another length.
    std::vector<float> numbers(const json& obj, const char* key, size_t n) const
    {
        const json& values = array(obj, key);
        std::vector<float> out;
        if (values.size() != n)
            return out;
        for (const json& v : values) {
            if (!v.is_number())
                fail(std::string("'") + key + "' holds something that is not a number");
            out.push_back(v.get<float>());
        }
        return out;
    }

    kx::kxGenericTransformation<float> localTransform(const json& node) const
    {
        const std::vector<float> m = numbers(node, "matrix", 16);  // column-major
        if (!m.empty())
            return {Wm4::Matrix3<float>(m[0], m[4], m[8], m[1], m[5], m[9], m[2], m[6], m[10]),
                    {m[12], m[13], m[14]}};
        Wm4::Matrix3<float> rotation(true), scale(true);
        Wm4::Vector3<float> translate;
        const std::vector<float> q = numbers(node, "rotation", 4);
        if (q.size() == 4) {
            const float x = q[0], y = q[1], z = q[2], w = q[3];
            rotation = Wm4::Matrix3<float>(1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w),
                                           2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w),
                                           2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y));
        }
        const std::vector<float> s = numbers(node, "scale", 3);
        const std::vector<float> t = numbers(node, "translation", 3);
        for (int i = 0; i < 3; ++i) {
            if (s.size() == 3)
                scale[i][i] = s[size_t(i)];
            if (t.size() == 3)
                translate[i] = t[size_t(i)];
        }
        return {rotation * scale, translate};
    }

    static std::string nameOf(const json& obj)
    {
        return obj.is_object() && obj.contains("name") && obj["name"].is_string() ? obj["name"].get<std::string>()
                                                                                  : std::string();
    }

    // The nodes `indices` below `parentPath`; siblings that share a name get
    // distinct path entries so that they never read as one node.
    void collectNodes(const json& indices, const std::string& parentPath,
                      const kx::kxGenericTransformation<float>& parent, SourceFile& out, int depth,
                      size_t& visits) const
    {
        const json& nodes = array(mJson, "nodes");
        std::vector<size_t> children;
        std::vector<std::string> names;
        for (const json& index : indices) {
            children.push_back(asIndex(index, nodes.size(), "node"));
            names.push_back(nameOf(nodes[children.back()]));
        }
        names = distinctSiblingNames(names);
        for (size_t k = 0; k < children.size(); ++k)
            collectInstances(children[k], names[k], parentPath, parent, out, depth, visits);
    }

    void collectInstances(size_t nodeIndex, const std::string& name, const std::string& parentPath,
                          const kx::kxGenericTransformation<float>& parent, SourceFile& out, int depth,
                          size_t& visits) const
    {
        if (depth > 256)
            throw InputError(mFile + ": a node reference is out of range or cyclic");
        if (++visits > kMaxNodeVisits || out.instances.size() >= kMaxInstances)
            fail("the node hierarchy places more than " + std::to_string(kMaxInstances) +
                 " meshes or visits more than " + std::to_string(kMaxNodeVisits) + " nodes");
        const json& nodes = array(mJson, "nodes");
        const json& node = nodes[nodeIndex];
        if (!node.is_object())
            fail("a node is not an object");
        const auto world = kx::kxGenericTransformation<float>::Product(parent, localTransform(node));
        const std::string path = parentPath.empty() ? name : parentPath + "/" + name;
        if (node.contains("mesh")) {
            const json& meshes = array(mJson, "meshes");
            if (!node["mesh"].is_number_unsigned() || node["mesh"].get<uint64_t>() >= meshes.size())
                throw InputError(mFile + ": a node refers to a mesh that does not exist");
            const size_t mesh = node["mesh"].get<size_t>();
            out.instances.push_back({name, path, nameOf(meshes[mesh]), true, int(mesh), world, std::nullopt});
        }
        collectNodes(array(node, "children"), path, world, out, depth + 1, visits);
    }

    std::string mFile;
    json mJson;
    std::vector<std::vector<unsigned char>> mBuffers;
    std::map<size_t, std::vector<unsigned char>> mDecodedViews;  // by view index
};

}  // namespace

SourceFile readGltf(const std::string& file, bool binary) { return parseGltf(readBytes(file), file, binary); }

SourceFile parseGltf(const std::vector<unsigned char>& bytes, const std::string& file, bool binary)
{
    try {
        return GltfDocument(bytes, file, binary).read();
    } catch (const json::exception& e) {  // a value of an unexpected type the checks above let through
        throw InputError(file + ": cannot read: " + e.what());
    }
}

}  // namespace velmora
