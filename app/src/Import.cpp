#include "velmora/Import.h"

#include "SourceFile.h"
#include "StepReader.h"
#include "velmora/ChildProcess.h"
#include "velmora/OutputFile.h"

#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/Importer.hpp>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <set>

namespace velmora {
namespace {

namespace fs = std::filesystem;

// How long the third-party importer may take for one file; CAD files are
// tessellated as well as parsed, and large assemblies take minutes.
constexpr std::chrono::seconds kImporterTimeLimit{120};
constexpr std::chrono::seconds kCadTimeLimit{600};

bool isFinite(const Wm4::Vector3<float>& v) { return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]); }

bool isDegenerate(const Wm4::Vector3<float>& a, const Wm4::Vector3<float>& b, const Wm4::Vector3<float>& c)
{
    return (b - a).Cross(c - a).SquaredLength() == 0.0f;
}

}  // namespace

kx::kxPointer<kx::kxTriMesh> buildMesh(const SourceMesh& src, const std::string& file)
{
    for (const Wm4::Vector3<float>& p : src.positions) {
        if (!isFinite(p))
            throw InputError(file + ": non-finite vertex coordinate");
    }
    std::vector<unsigned> kept;
    kept.reserve(src.indices.size());
    for (size_t t = 0; t + 2 < src.indices.size(); t += 3) {
        const unsigned* i = &src.indices[t];
        if (i[0] >= src.positions.size() || i[1] >= src.positions.size() || i[2] >= src.positions.size())
            throw InputError(file + ": a triangle refers to a vertex that does not exist");
        if (!isDegenerate(src.positions[i[0]], src.positions[i[1]], src.positions[i[2]]))
            kept.insert(kept.end(), i, i + 3);
    }
    if (kept.empty())
        return nullptr;
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, static_cast<int>(src.positions.size()));
    std::copy(src.positions.begin(), src.positions.end(), &vb->Position3(0));
    kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(static_cast<int>(kept.size()), 1);
    std::copy(kept.begin(), kept.end(), ib->GetData());
    return new kx::kxTriMesh(vb, ib);
}

namespace {

// ---- Assimp: every format it reads well except glTF ----

kx::kxGenericTransformation<float> toTransformation(const aiMatrix4x4& m)
{
    return {Wm4::Matrix3<float>(m.a1, m.a2, m.a3, m.b1, m.b2, m.b3, m.c1, m.c2, m.c3), {m.a4, m.b4, m.c4}};
}

std::string assimpNodePath(const aiNode& node, const aiScene& scene)
{
    if (&node == scene.mRootNode)
        return "";
    std::string path = node.mName.C_Str();
    for (const aiNode* p = node.mParent; p != nullptr && p != scene.mRootNode; p = p->mParent)
        path = std::string(p->mName.C_Str()) + "/" + path;
    return path;
}

void collectAssimpInstances(const aiScene& scene, const aiNode& node, const aiMatrix4x4& parent, SourceFile& out)
{
    const aiMatrix4x4 world = parent * node.mTransformation;
    const bool isRoot = &node == scene.mRootNode;
    for (unsigned k = 0; k < node.mNumMeshes; ++k) {
        const unsigned mesh = node.mMeshes[k];
        out.instances.push_back({isRoot ? "" : node.mName.C_Str(), assimpNodePath(node, scene),
                                 scene.mMeshes[mesh]->mName.C_Str(), node.mNumMeshes == 1, int(mesh),
                                 toTransformation(world), {}});
    }
    for (unsigned c = 0; c < node.mNumChildren; ++c)
        collectAssimpInstances(scene, *node.mChildren[c], world, out);
}

// The diffuse colour of a material the file defines (not Assimp's stand-in).
std::optional<Colour> diffuseColour(const aiScene& scene, unsigned materialIndex)
{
    if (materialIndex >= scene.mNumMaterials)
        return std::nullopt;
    const aiMaterial& material = *scene.mMaterials[materialIndex];
    aiColor4D diffuse;
    if (material.GetName() == aiString(AI_DEFAULT_MATERIAL_NAME) ||
        material.Get(AI_MATKEY_COLOR_DIFFUSE, diffuse) != aiReturn_SUCCESS)
        return std::nullopt;
    float opacity = 1.0f;
    if (material.Get(AI_MATKEY_OPACITY, opacity) != aiReturn_SUCCESS)
        opacity = diffuse.a;
    auto unit = [](float c) { return std::isfinite(c) ? std::clamp(c, 0.0f, 1.0f) : 1.0f; };
    return Colour{unit(diffuse.r), unit(diffuse.g), unit(diffuse.b), unit(opacity)};
}

SourceFile readWithAssimp(const std::string& file)
{
    Assimp::Importer importer;
    importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
    const aiScene* scene = importer.ReadFile(
        file, aiProcess_Triangulate | aiProcess_SortByPType | aiProcess_JoinIdenticalVertices |
                  aiProcess_ValidateDataStructure);
    if (scene == nullptr || (scene->mFlags & AI_SCENE_FLAGS_INCOMPLETE) || scene->mRootNode == nullptr) {
        const std::string why = importer.GetErrorString();
        throw InputError(file + ": cannot read: " + (why.empty() ? "no mesh data" : why));
    }
    SourceFile out;
    for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
        const aiMesh& src = *scene->mMeshes[m];
        SourceMesh mesh;
        for (unsigned v = 0; v < src.mNumVertices; ++v)
            mesh.positions.emplace_back(src.mVertices[v].x, src.mVertices[v].y, src.mVertices[v].z);
        for (unsigned f = 0; f < src.mNumFaces; ++f) {
            if (src.mFaces[f].mNumIndices == 3)
                mesh.indices.insert(mesh.indices.end(), src.mFaces[f].mIndices, src.mFaces[f].mIndices + 3);
        }
        mesh.colour = diffuseColour(*scene, src.mMaterialIndex);
        out.meshes.push_back(std::move(mesh));
    }
    collectAssimpInstances(*scene, *scene->mRootNode, aiMatrix4x4(), out);
    return out;
}

// A third-party reader run in a child process: its crashes and endless
// loops on damaged files become an error about the file, not the end of
// this process. What it writes to std::cerr is copied to `messages`.
SourceFile readInChildProcess(const std::string& file, const std::function<SourceFile()>& read,
                              std::chrono::seconds limit = kImporterTimeLimit, std::ostream* messages = nullptr)
{
    try {
        return decodeSourceFile(runInChildProcess([&] { return encodeSourceFile(read()); }, limit, messages));
    } catch (const ChildProcessFailure& failure) {
        throw InputError(file + ": cannot read: the importer failed" +
                         (failure.timedOut() ? std::string(" (") + failure.what() + ")" : std::string()));
    }
}

SourceFile readContained(const std::string& file)
{
    return readInChildProcess(file, [&] { return readWithAssimp(file); });
}

// OpenCASCADE in a child process, like the mesh importer; its messages,
// shown only when verbose, reach standard error from there.
SourceFile readCadContained(const std::string& file, const CadOptions& options)
{
    return readInChildProcess(file, [&] { return readCad(file, options); }, kCadTimeLimit,
                              options.verbose ? &std::cerr : nullptr);
}

SourceFile readPly(const std::string& file)
{
    checkPlyHeader(file);
    return readContained(file);
}

// Every format accepted, by file extension: the one place a format is added.
struct Format {
    const char* extension;
    SourceFile (*read)(const std::string& file);
};
constexpr Format kFormats[] = {
    {".stl", readStl},
    {".obj", readObj},
    {".ply", readPly},
    {".3mf", readContained},
    {".gltf", [](const std::string& file) { return readGltf(file, false); }},
    {".glb", [](const std::string& file) { return readGltf(file, true); }},
};

// ---- parts from any loader ----

std::string lowerExtension(const std::string& path)
{
    std::string ext = fs::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

// A mesh file read by the loader of its extension.
SourceFile readMeshFile(const std::string& file)
{
    const std::string ext = lowerExtension(file);
    const auto format =
        std::find_if(std::begin(kFormats), std::end(kFormats), [&](const Format& f) { return ext == f.extension; });
    if (format == std::end(kFormats))
        throw InputError(file + ": unsupported format '" + fs::path(file).extension().string() + "'");
    return format->read(file);
}

bool sameNode(const SourceInstance& a, const SourceInstance& b)
{
    return !a.nodeHasOneMesh && !b.nodeHasOneMesh && a.node == b.node && a.nodePath == b.nodePath &&
           std::memcmp(&a.world, &b.world, sizeof a.world) == 0;
}

// `source` with the meshes that one node places side by side (an object
// that a loader split by material) joined into one mesh, so that an object
// stays one part.
SourceFile joinMeshesOfEachNode(SourceFile source)
{
    std::vector<SourceInstance> joined;
    for (size_t first = 0, end; first < source.instances.size(); first = end) {
        for (end = first + 1; end < source.instances.size() && sameNode(source.instances[first], source.instances[end]);)
            ++end;
        SourceInstance instance = source.instances[first];
        if (end - first > 1) {
            SourceMesh mesh;
            for (size_t k = first; k < end; ++k) {
                const SourceMesh& part = source.meshes.at(size_t(source.instances[k].meshIndex));
                const unsigned base = unsigned(mesh.positions.size());
                mesh.positions.insert(mesh.positions.end(), part.positions.begin(), part.positions.end());
                for (unsigned index : part.indices)
                    mesh.indices.push_back(base + index);
            }
            instance.meshIndex = int(source.meshes.size());
            instance.nodeHasOneMesh = true;
            source.meshes.push_back(std::move(mesh));
        }
        joined.push_back(std::move(instance));
    }
    source.instances = std::move(joined);
    return source;
}

// A readable label for one mesh instance of a file with several.
std::string instanceLabel(const SourceInstance& instance, unsigned ordinal)
{
    if (instance.nodeHasOneMesh && !instance.node.empty())
        return instance.node;
    if (!instance.mesh.empty())
        return instance.node.empty() ? instance.mesh : instance.node + ":" + instance.mesh;
    return "mesh" + std::to_string(ordinal);
}

CadOptions cadOptions(const ImportOptions& options)
{
    return {options.deflection, options.angularDeflection, options.threads, options.verbose};
}

bool isMirroring(const kx::kxGenericTransformation<float>& world)
{
    const Wm4::Matrix3<float>& m = world.GetMatrix();
    return m.Determinant() < 0.0f;
}

// The same triangles with the other winding, for placements that mirror.
kx::kxPointer<kx::kxIndexBuffer> reversedWinding(const kx::kxTriMesh& mesh)
{
    const int count = 3 * mesh.GetTriangleQuantity();
    kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(count, 1);
    const unsigned* src = mesh.GetIndexBuffer()->GetData();
    unsigned* dst = ib->GetData();
    for (int t = 0; t < count; t += 3) {
        dst[t] = src[t];
        dst[t + 1] = src[t + 2];
        dst[t + 2] = src[t + 1];
    }
    return ib;
}

class FileReader {
public:
    FileReader(Assembly& assembly, bool prefixWithFile, const CadOptions& cad)
        : mAssembly(assembly), mPrefixWithFile(prefixWithFile), mCad(cad)
    {
    }

    void read(const fs::path& path)
    {
        const std::string file = path.string();
        std::error_code ec;
        if (!fs::exists(path, ec))
            throw InputError(file + ": no such file");
        if (!fs::is_regular_file(path, ec))
            throw InputError(file + ": not a regular file");
        if (fs::file_size(path, ec) == 0)
            throw InputError(file + ": the file is empty");
        const std::string ext = lowerExtension(file);
        const SourceFile source =
            joinMeshesOfEachNode(isCadFile(file) ? readCadContained(file, mCad) : readMeshFile(file));
        addParts(source, file, path.stem().string());
        mAssembly.warnings.insert(mAssembly.warnings.end(), source.warnings.begin(), source.warnings.end());
        if (mAssembly.units.empty())
            mAssembly.units = source.units;
    }

private:
    void addParts(const SourceFile& source, const std::string& file, const std::string& stem)
    {
        std::vector<kx::kxPointer<kx::kxTriMesh>> geometry;
        for (const SourceMesh& mesh : source.meshes)
            geometry.push_back(buildMesh(mesh, file));
        std::vector<kx::kxPointer<kx::kxIndexBuffer>> mirrored(geometry.size());
        unsigned kept = 0;
        for (unsigned k = 0; k < source.instances.size(); ++k) {
            const SourceInstance& instance = source.instances[k];
            const kx::kxTriMesh* mesh = geometry.at(size_t(instance.meshIndex));
            std::string label = source.instances.size() == 1 ? stem : instanceLabel(instance, k);
            if (mesh == nullptr) {
                mAssembly.warnings.push_back(file + ": mesh '" + label + "' has no usable triangle; skipped");
                continue;
            }
            if (mPrefixWithFile && source.instances.size() > 1)
                label = stem + "/" + label;
            // Instances of one mesh share its buffers but have their own
            // placement; mirroring ones share the reversed triangles, so
            // that every part still faces outwards.
            kx::kxPointer<kx::kxIndexBuffer> triangles = mesh->GetIndexBuffer();
            if (isMirroring(instance.world)) {
                kx::kxPointer<kx::kxIndexBuffer>& reversed = mirrored[size_t(instance.meshIndex)];
                if (reversed == nullptr)
                    reversed = reversedWinding(*mesh);
                triangles = reversed;
            }
            kx::kxPointer<kx::kxTriMesh> part = new kx::kxTriMesh(mesh->GetVertexBuffer(), triangles);
            part->World = instance.world;
            part->editLocalTransform(false) = instance.world;
            checkPlacement(*part, file, label);
            part->SetName(uniqueName(label));
            // The placement's own colour wins over its mesh's material.
            const std::optional<Colour>& meshColour = source.meshes[size_t(instance.meshIndex)].colour;
            mAssembly.parts.push_back({part->GetName(), file, instance.nodePath, part,
                                       instance.colour ? instance.colour : meshColour});
            ++kept;
        }
        if (kept == 0)
            throw InputError(file + ": no triangles");
    }

    static void checkPlacement(const kx::kxTriMesh& mesh, const std::string& file, const std::string& label)
    {
        const kx::kxVertexBuffer& vb = *mesh.GetVertexBuffer();
        for (int v = 0; v < vb.GetVertexQuantity(); ++v) {
            if (!isFinite(mesh.World.ApplyForward(vb.Position3(v))))
                throw InputError(file + ": non-finite coordinate after placing mesh '" + label + "'");
        }
    }

    std::string uniqueName(const std::string& wanted)
    {
        const std::string base = wanted.empty() ? "part" : wanted;
        std::string name = base;
        for (unsigned k = 2; mNames.count(name); ++k)
            name = base + "#" + std::to_string(k);
        mNames.insert(name);
        return name;
    }

    Assembly& mAssembly;
    bool mPrefixWithFile;
    CadOptions mCad;
    std::set<std::string> mNames;
};

// A folder's mesh files in file-name order. Our own temporary outputs and
// links to nothing are left out, the latter with a warning.
std::vector<fs::path> meshFilesIn(const std::string& folder, std::vector<std::string>& warnings)
{
    std::vector<fs::path> files;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        const fs::path& path = it->path();
        if (OutputFile::isTemporaryName(path.filename().string()) || !isSupportedMeshFile(path.string()))
            continue;
        std::error_code entryError;
        if (it->is_symlink(entryError) && !fs::exists(path, entryError)) {
            warnings.push_back(path.string() + ": the link points to nothing; skipped");
            continue;
        }
        if (it->is_regular_file(entryError))
            files.push_back(path);
    }
    if (ec)
        throw InputError(folder + ": cannot list the directory: " + ec.message());
    if (files.empty())
        throw InputError(folder + ": the directory holds no mesh file");
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<fs::path> expandInputs(const std::vector<std::string>& inputs, std::vector<std::string>& warnings)
{
    std::vector<fs::path> files;
    for (const std::string& input : inputs) {
        std::error_code ec;
        if (!fs::is_directory(input, ec)) {
            files.emplace_back(input);
            continue;
        }
        const std::vector<fs::path> inFolder = meshFilesIn(input, warnings);
        files.insert(files.end(), inFolder.begin(), inFolder.end());
    }
    return files;
}

}  // namespace

bool isSupportedMeshFile(const std::string& path)
{
    const std::string ext = lowerExtension(path);
    return isCadFile(path) ||
           std::any_of(std::begin(kFormats), std::end(kFormats), [&](const Format& f) { return ext == f.extension; });
}

std::vector<std::string> listInputFiles(const std::vector<std::string>& inputs)
{
    std::vector<std::string> warnings;
    std::vector<std::string> files;
    for (const fs::path& file : expandInputs(inputs, warnings))
        files.push_back(file.string());
    return files;
}

Assembly importAssembly(const std::vector<std::string>& inputs, const ImportOptions& options)
{
    if (inputs.empty())
        throw InputError("no input given");
    Assembly assembly;
    const std::vector<fs::path> files = expandInputs(inputs, assembly.warnings);
    FileReader reader(assembly, files.size() > 1, cadOptions(options));
    for (const fs::path& file : files)
        reader.read(file);
    if (assembly.parts.empty())
        throw InputError("no usable triangle in the input");
    assignGroups(assembly, options.groupBy, options.groupLevel);
    return assembly;
}

}  // namespace velmora
