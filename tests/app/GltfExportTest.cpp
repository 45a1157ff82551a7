// The binary glTF export of exploded views: read back, the file has one node
// per part under a root converting to metres and Y-up, with its mesh in the
// part's frame and one translation channel reproducing its group's keys;
// meshes are indexed, smooth where faces meet at small angles, shared by
// identical parts; colours become shared materials; compressed files decode
// to the same parts; and the Khronos glTF validator finds no error in any
// kind of file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <tuple>
#include <nlohmann/json.hpp>

#include "../explosion/ExplosionPipeline.h"
#include "kxExplodedViewAnimation.h"
#include "kxExplosionDiagram.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/GltfExport.h"
#include "velmora/Import.h"
#include "CliRun.h"

namespace {

using json = nlohmann::json;
using Vec3f = Wm4::Vector3<float>;
namespace fs = std::filesystem;

uint32_t u32At(const std::vector<unsigned char>& bytes, size_t offset)
{
    uint32_t v = 0;
    std::memcpy(&v, bytes.data() + offset, 4);
    return v;
}

// A GLB read back: its JSON document and binary chunk, the layout checked.
struct Glb {
    json document;
    std::vector<unsigned char> binary;

    explicit Glb(const std::vector<unsigned char>& bytes)
    {
        EXPECT_EQ(0x46546C67u, u32At(bytes, 0));
        EXPECT_EQ(2u, u32At(bytes, 4));
        EXPECT_EQ(bytes.size(), u32At(bytes, 8));
        const size_t jsonLength = u32At(bytes, 12);
        EXPECT_EQ(0x4E4F534Au, u32At(bytes, 16));
        EXPECT_EQ(0u, jsonLength % 4);
        document = json::parse(bytes.begin() + 20, bytes.begin() + 20 + std::ptrdiff_t(jsonLength));
        const size_t binOffset = 20 + jsonLength;
        if (binOffset == bytes.size())
            return;
        EXPECT_EQ(0x004E4942u, u32At(bytes, binOffset + 4));
        binary.assign(bytes.begin() + std::ptrdiff_t(binOffset + 8), bytes.end());
        EXPECT_EQ(u32At(bytes, binOffset), binary.size());
        EXPECT_EQ(binary.size(), document["buffers"][0]["byteLength"].get<size_t>());
    }

    // The floats of a float accessor, `width` per element.
    std::vector<float> floats(int accessorIndex, int width) const
    {
        const json& accessor = document["accessors"][size_t(accessorIndex)];
        EXPECT_EQ(5126, accessor["componentType"].get<int>());
        const json& view = document["bufferViews"][accessor["bufferView"].get<size_t>()];
        const size_t count = accessor["count"].get<size_t>() * size_t(width);
        EXPECT_EQ(count * 4, view["byteLength"].get<size_t>());
        std::vector<float> out(count);
        std::memcpy(out.data(), binary.data() + view["byteOffset"].get<size_t>(), count * 4);
        return out;
    }
    std::vector<Vec3f> vectors(int accessorIndex) const
    {
        const std::vector<float> f = floats(accessorIndex, 3);
        std::vector<Vec3f> out;
        for (size_t i = 0; i + 2 < f.size(); i += 3)
            out.emplace_back(f[i], f[i + 1], f[i + 2]);
        return out;
    }
    const json& node(const std::string& name) const
    {
        for (const json& n : document["nodes"]) {
            if (n["name"] == name)
                return n;
        }
        ADD_FAILURE() << "no node " << name;
        return document["nodes"][0];
    }
    size_t nodeIndex(const std::string& name) const { return size_t(&node(name) - &document["nodes"][0]); }
    const json& primitive(const json& node) const
    {
        return document["meshes"][node["mesh"].get<size_t>()]["primitives"][0];
    }
    // The node below a part's node that carries its mesh.
    const json& meshNode(const std::string& part) const
    {
        const json& children = node(part)["children"];
        EXPECT_EQ(1u, children.size()) << part;
        return document["nodes"][children[0].get<size_t>()];
    }
    // The values of an unsigned short or int index accessor.
    std::vector<uint32_t> indices(int accessorIndex) const
    {
        const json& accessor = document["accessors"][size_t(accessorIndex)];
        const json& view = document["bufferViews"][accessor["bufferView"].get<size_t>()];
        const size_t size = accessor["componentType"].get<int>() == 5123 ? 2 : 4;
        std::vector<uint32_t> out(accessor["count"].get<size_t>());
        for (size_t k = 0; k < out.size(); ++k)
            std::memcpy(&out[k], binary.data() + view["byteOffset"].get<size_t>() + k * size, size);
        return out;
    }
    // The triangle corners of a part's mesh as its mesh node places them.
    std::vector<Vec3f> placedCorners(const std::string& part) const
    {
        const json& mesh = meshNode(part);
        const json& prim = primitive(mesh);
        const std::vector<Vec3f> positions = vectors(prim["attributes"]["POSITION"].get<int>());
        const kx::kxGenericTransformation<float> place = transformOf(mesh.value("matrix", json()));
        std::vector<Vec3f> corners;
        for (uint32_t i : indices(prim["indices"].get<int>()))
            corners.push_back(place.ApplyForward(positions.at(i)));
        return corners;
    }
    // A node's matrix as a transformation (the identity when it has none).
    static kx::kxGenericTransformation<float> transformOf(const json& m)
    {
        if (m.is_null())
            return {};
        return {Wm4::Matrix3<float>(m[0], m[4], m[8], m[1], m[5], m[9], m[2], m[6], m[10]), {m[12], m[13], m[14]}};
    }
};

Vec3f vec3Of(const json& array) { return Vec3f(array[0].get<float>(), array[1].get<float>(), array[2].get<float>()); }

// The stack exploded and animated; keys read back from the controllers.
struct ExplodedStack {
    std::unique_ptr<explosion_test::PlannedAssembly> plan =
        explosion_test::planHierarchy(velmora::makeDemoAssembly("stack"));
    kxExplosionDiagram diagram{plan->builder()};
    std::vector<velmora::GroupKeyframes> keys;
    std::vector<Vec3f> offsets;

    ExplodedStack()
    {
        diagram.computeTranslationHierarchy(2.0f);
        kxExplodedViewAnimation animation(diagram);
        animation.setAnimationPlayStyle(kxExplodedViewAnimation::kPlayExplosionAndBack);
        animation.createKeyFrameControllers();
        keys = velmora::readGroupKeyframes(plan->groups());
        for (unsigned g = 0; g < plan->groups().getNoGroups(); ++g)
            offsets.push_back(diagram.getFinalPerGroupTranslation(g));
    }
};

const ExplodedStack& explodedStack()
{
    static const ExplodedStack stack;
    return stack;
}

// The corners of every triangle of a part, in the assembly's frame.
std::vector<Vec3f> worldCorners(const velmora::Part& part)
{
    std::vector<Vec3f> corners;
    const kx::kxTriMesh& mesh = *part.mesh;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int c[3];
        mesh.GetTriangle(t, c[0], c[1], c[2]);
        for (int i : c)
            corners.push_back(mesh.World.ApplyForward(mesh.GetVertexBuffer()->Position3(i)));
    }
    return corners;
}

velmora::Part partOf(const std::string& name, kx::kxPointer<kx::kxTriMesh> mesh,
                     const kx::kxGenericTransformation<float>& world)
{
    mesh->SetName(name);
    mesh->World = world;
    return {name, "(test)", "", mesh, std::nullopt};
}

// Three parts: a rotated, scaled box with its own unit normals (pointing
// out of its centre), a mirrored box without usable normals, and a box with
// one degenerate triangle added.
velmora::Assembly normalsAssembly()
{
    velmora::Assembly assembly;
    kx::kxPointer<kx::kxTriMesh> given = velmora::shapes::box({-1, -1, -1}, {1, 1, 1});
    for (int v = 0; v < given->GetVertexBuffer()->GetVertexQuantity(); ++v) {
        Vec3f n = given->GetVertexBuffer()->Position3(v);
        n.Normalize();
        given->GetVertexBuffer()->Normal3(v) = n;
    }
    const Wm4::Matrix3<float> rotation = Wm4::Matrix3<float>::FromAxisAngle(Vec3f(0, 0, 1), 0.5f);
    assembly.parts.push_back(partOf("given", given, {rotation * Wm4::Matrix3<float>(2, 0, 0, 0, 1, 0, 0, 0, 1),
                                                     Vec3f(5, 0, 0)}));
    assembly.parts.push_back(partOf("mirrored", velmora::shapes::box({0, 0, 0}, {1, 2, 3}),
                                    {Wm4::Matrix3<float>(-1, 0, 0, 0, 1, 0, 0, 0, 1), Vec3f(-5, 0, 0)}));
    kx::kxPointer<kx::kxTriMesh> withDegenerate = velmora::shapes::box({0, 5, 0}, {1, 6, 1});
    kx::kxPointer<kx::kxIndexBuffer> indices = new kx::kxIndexBuffer(3 * 13, 1);
    std::memcpy(indices->GetData(), withDegenerate->GetIndexBuffer()->GetData(), 36 * sizeof(unsigned));
    indices->GetData()[36] = indices->GetData()[37] = indices->GetData()[38] = 0;
    withDegenerate->SetIndexBuffer(indices);
    assembly.parts.push_back(partOf("degenerate", withDegenerate, {}));
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    return assembly;
}

// `mesh` with its vertices turned and moved in its own buffer, the way CAD
// exports write each placed instance of a part.
kx::kxPointer<kx::kxTriMesh> bakedCopy(const kx::kxTriMesh& mesh, const Wm4::Matrix3<float>& rotation,
                                       const Vec3f& translation)
{
    kx::kxAttributes attributes;
    attributes.SetPositionChannels(3);
    const kx::kxVertexBuffer& source = *mesh.GetVertexBuffer();
    kx::kxPointer<kx::kxVertexBuffer> vertices = new kx::kxVertexBuffer(attributes, source.GetVertexQuantity());
    for (int v = 0; v < source.GetVertexQuantity(); ++v)
        vertices->Position3(v) = rotation * source.Position3(v) + translation;
    return new kx::kxTriMesh(vertices, mesh.GetIndexBuffer());
}

fs::path temporaryDirectory()
{
    const fs::path dir = fs::temp_directory_path() / ("velmora-gltf-export-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    return dir;
}

std::string runCommand(const std::string& command)
{
    std::string output;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return output;
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0;)
        output.append(buffer, n);
    ::pclose(pipe);
    return output;
}

// The gltf-validator package in <build>/gltf-validator, installed there with
// npm on first use; empty when Node.js or the package is not available.
fs::path validatorPackage()
{
    if (runCommand("node --version 2>/dev/null").empty())
        return {};
    std::error_code ec;
    const fs::path build = fs::read_symlink("/proc/self/exe", ec).parent_path().parent_path();
    const fs::path prefix = (ec ? fs::current_path() : build) / "gltf-validator";
    const fs::path package = prefix / "node_modules" / "gltf-validator";
    if (!fs::exists(package / "package.json"))
        runCommand("npm install --prefix '" + prefix.string() +
                   "' gltf-validator --no-audit --no-fund --silent >/dev/null 2>&1");
    return fs::exists(package / "package.json") ? package : fs::path();
}

// The validator's reports on several files in one run: per file, the number
// of errors and their messages.
json validate(const fs::path& package, const std::vector<fs::path>& files, const fs::path& scratch)
{
    const fs::path script = scratch / "validate.js";
    std::ofstream(script) << R"(const fs = require('fs');
const validator = require(process.argv[2]);
(async () => {
  const reports = [];
  for (const file of process.argv.slice(3)) {
    try {
      const report = await validator.validateBytes(new Uint8Array(fs.readFileSync(file)));
      reports.push({numErrors: report.issues.numErrors,
                    errors: report.issues.messages.filter((m) => m.severity === 0)});
    } catch (error) {
      reports.push({numErrors: -1, errors: [String(error)]});
    }
  }
  console.log(JSON.stringify(reports));
})();
)";
    std::string command = "node '" + script.string() + "' '" + package.string() + "'";
    for (const fs::path& file : files)
        command += " '" + file.string() + "'";
    const std::string output = runCommand(command + " 2>&1");
    try {
        return json::parse(output);
    } catch (const json::exception&) {
        return {{{"numErrors", -1}, {"errors", output}}};
    }
}

std::vector<Vec3f> centroids(const std::vector<Vec3f>& corners)
{
    std::vector<Vec3f> out;
    for (size_t c = 0; c + 2 < corners.size(); c += 3)
        out.push_back((corners[c] + corners[c + 1] + corners[c + 2]) / 3.0f);
    return out;
}

// The largest distance from a point of `a` to the nearest point of `b`.
float farthestFromNearest(const std::vector<Vec3f>& a, const std::vector<Vec3f>& b)
{
    float worst = 0.0f;
    for (const Vec3f& p : a) {
        float nearest = std::numeric_limits<float>::max();
        for (const Vec3f& q : b)
            nearest = std::min(nearest, (p - q).SquaredLength());
        worst = std::max(worst, std::sqrt(nearest));
    }
    return worst;
}

// Two triangle soups compared without regard to triangle order: as many
// triangles, every centroid of each near one of the other.
void expectSameSoup(const std::vector<Vec3f>& expected, const std::vector<Vec3f>& actual, float tolerance,
                    const std::string& what)
{
    const std::vector<Vec3f> a = centroids(expected), b = centroids(actual);
    ASSERT_EQ(a.size(), b.size()) << what;
    EXPECT_LT(farthestFromNearest(a, b), tolerance) << what;
    EXPECT_LT(farthestFromNearest(b, a), tolerance) << what;
}

std::vector<Vec3f> shifted(std::vector<Vec3f> points, const Vec3f& by)
{
    for (Vec3f& p : points)
        p += by;
    return points;
}

velmora::GlbOptions plainOptions()
{
    velmora::GlbOptions options;
    options.compress = false;
    return options;
}

const velmora::Part& partNamed(const velmora::Assembly& assembly, const std::string& name)
{
    for (const velmora::Part& part : assembly.parts)
        if (part.name == name)
            return part;
    ADD_FAILURE() << "no part " << name;
    return assembly.parts.front();
}

// The assembly-frame corners of a part read back from a file whose root node
// carries `root` (the frame conversion: a scaled rotation about the origin,
// undone by its transpose over the squared scale).
std::vector<Vec3f> assemblyFrameCorners(const velmora::Part& part, const kx::kxGenericTransformation<float>& root)
{
    const Wm4::Matrix3<float>& m = root.GetMatrix();
    const Wm4::Matrix3<float> back = m.Transpose() * (1.0f / (m * Vec3f::UNIT_X).SquaredLength());
    std::vector<Vec3f> corners = worldCorners(part);
    for (Vec3f& c : corners)
        c = back * c;
    return corners;
}

std::vector<unsigned char> readFile(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

TEST(GltfExport, AnimatedViewReproducesTheKeysUnderAMetreYUpRoot)
{
    const ExplodedStack& stack = explodedStack();
    const velmora::Assembly& assembly = stack.plan->assembly();
    const Glb glb(velmora::buildAnimatedGlb(assembly, stack.keys, plainOptions()));
    const json& doc = glb.document;
    EXPECT_EQ("2.0", doc["asset"]["version"]);
    EXPECT_FALSE(doc.contains("extensionsRequired"));

    // Scene: the root converting millimetres, Z-up, to metres, Y-up; a camera.
    const json& scene = doc["scenes"][doc["scene"].get<size_t>()]["nodes"];
    ASSERT_EQ(2u, scene.size());
    const json& root = doc["nodes"][scene[0].get<size_t>()];
    EXPECT_EQ("assembly", root["name"]);
    EXPECT_EQ(root["matrix"].get<std::vector<float>>(),
              (std::vector<float>{0.001f, 0, 0, 0, 0, 0, -0.001f, 0, 0, 0.001f, 0, 0, 0, 0, 0, 1}));
    const json& camera = doc["nodes"][scene[1].get<size_t>()];
    ASSERT_TRUE(camera.contains("camera"));
    EXPECT_EQ("perspective", doc["cameras"][0]["type"]);

    ASSERT_EQ(1u, doc["animations"].size());
    const json& animation = doc["animations"][0];
    EXPECT_EQ("explode", animation["name"]);
    ASSERT_EQ(assembly.parts.size(), animation["channels"].size());
    for (size_t g = 0; g < assembly.groups.size(); ++g) {
        const velmora::GroupKeyframes& keys = stack.keys[g];
        ASSERT_GT(keys.times.size(), 1u);
        for (unsigned partIndex : assembly.groups[g].parts) {
            const velmora::Part& part = assembly.parts[partIndex];
            SCOPED_TRACE(part.name);
            const json& node = glb.node(part.name);
            EXPECT_EQ(keys.translations.front(), vec3Of(node["translation"]));
            EXPECT_EQ(g, node["extras"]["group"].get<size_t>());
            EXPECT_EQ(part.name, node["extras"]["part"]);
            unsigned channels = 0;
            for (const json& channel : animation["channels"]) {
                if (channel["target"]["node"].get<size_t>() != glb.nodeIndex(part.name))
                    continue;
                ++channels;
                EXPECT_EQ("translation", channel["target"]["path"]);
                const json& sampler = animation["samplers"][channel["sampler"].get<size_t>()];
                EXPECT_EQ("LINEAR", sampler["interpolation"]);
                EXPECT_EQ(keys.times, glb.floats(sampler["input"].get<int>(), 1));
                EXPECT_EQ(keys.translations, glb.vectors(sampler["output"].get<int>()));
            }
            EXPECT_EQ(1u, channels);
            // The mesh node places the part's own triangles where they are in the assembly.
            expectSameSoup(worldCorners(part), glb.placedCorners(part.name), 1e-5f, part.name);
            const json& primitive = glb.primitive(glb.meshNode(part.name));
            for (const Vec3f& n : glb.vectors(primitive["attributes"]["NORMAL"].get<int>()))
                EXPECT_NEAR(1.0f, n.Length(), 1e-6f);
        }
    }
}

TEST(GltfExport, SmoothNormalsShareVerticesAndKeepCreases)
{
    velmora::Assembly assembly;
    assembly.parts.push_back({"cylinder", "(test)", "",
                              velmora::shapes::lathe({{0, 0}, {1, 0}, {1, 2}, {0, 2}}, 64), std::nullopt});
    assembly.parts.push_back({"box", "(test)", "", velmora::shapes::box({0, 0, 0}, {1, 1, 1}), std::nullopt});
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    const std::vector<Vec3f> none(2, Vec3f::ZERO);

    const Glb glb(velmora::buildExplodedPoseGlb(assembly, none, plainOptions()));
    // The cylinder: one vertex per ring point on the side (radial normals)
    // and one per cap point (axial normals), the two caps' centres included.
    const json& cylinder = glb.primitive(glb.meshNode("cylinder"));
    EXPECT_EQ(256u * 3, glb.indices(cylinder["indices"].get<int>()).size());
    const std::vector<Vec3f> positions = glb.vectors(cylinder["attributes"]["POSITION"].get<int>());
    const std::vector<Vec3f> normals = glb.vectors(cylinder["attributes"]["NORMAL"].get<int>());
    ASSERT_EQ(258u, positions.size());
    unsigned radial = 0, axial = 0;
    for (size_t v = 0; v < positions.size(); ++v) {
        const Vec3f outward(positions[v].X(), positions[v].Y(), 0.0f);
        if (std::fabs(normals[v].Z()) > 0.99999f)
            ++axial;
        else if (std::fabs(normals[v].Z()) < 1e-6f && normals[v].Dot(outward) > 0.99999f)
            ++radial;
    }
    EXPECT_EQ(128u, radial);
    EXPECT_EQ(130u, axial);
    // The box: four flat vertices per face.
    const json& box = glb.primitive(glb.meshNode("box"));
    EXPECT_EQ(24u, glb.vectors(box["attributes"]["POSITION"].get<int>()).size());
    for (const Vec3f& n : glb.vectors(box["attributes"]["NORMAL"].get<int>()))
        EXPECT_NEAR(1.0f, std::fabs(n.X()) + std::fabs(n.Y()) + std::fabs(n.Z()), 1e-6f);

    // With every angle below the crease angle, the box is one smooth surface.
    velmora::GlbOptions smooth = plainOptions();
    smooth.creaseAngle = 180.0f;
    const Glb allSmooth(velmora::buildExplodedPoseGlb(assembly, none, smooth));
    EXPECT_EQ(8u, allSmooth.vectors(allSmooth.primitive(allSmooth.meshNode("box"))["attributes"]["POSITION"].get<int>())
                      .size());
}

TEST(GltfExport, IdenticalPartsShareAMeshAndEqualColoursAMaterial)
{
    velmora::Assembly assembly;
    const kx::kxPointer<kx::kxTriMesh> shape = velmora::shapes::box({0, 0, 0}, {1, 1, 1});
    for (const char* name : {"pin#1", "pin#2"}) {
        kx::kxPointer<kx::kxTriMesh> instance = new kx::kxTriMesh(shape->GetVertexBuffer(), shape->GetIndexBuffer());
        instance->World = kx::kxGenericTransformation<float>(Wm4::Matrix3<float>(true), Vec3f(float(3 * assembly.parts.size()), 0, 0));
        assembly.parts.push_back({name, "(test)", "", instance, std::nullopt});
    }
    const velmora::Colour red{0.5f, 0.1f, 0.1f, 1.0f};
    assembly.parts.push_back({"red", "(test)", "", velmora::shapes::box({0, 4, 0}, {2, 6, 2}), red});
    assembly.parts.push_back({"red too", "(test)", "", velmora::shapes::lathe({{0, 0}, {1, 0}, {0, 1}}, 16), red});
    assembly.parts.push_back({"plain", "(test)", "", velmora::shapes::box({0, 9, 0}, {1, 11, 1}), std::nullopt});
    // Placed copies of the pin written as meshes of their own: one turned a
    // quarter about Z, one turned by a mirror (never a copy).
    const Wm4::Matrix3<float> quarter(0, -1, 0, 1, 0, 0, 0, 0, 1), mirror(-1, 0, 0, 0, 1, 0, 0, 0, 1);
    assembly.parts.push_back({"pin placed", "(test)", "", bakedCopy(*shape, quarter, Vec3f(7, 1, 0)), std::nullopt});
    assembly.parts.push_back({"pin mirrored", "(test)", "", bakedCopy(*shape, mirror, Vec3f(9, 1, 0)), std::nullopt});
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    const Glb glb(velmora::buildExplodedPoseGlb(assembly, std::vector<Vec3f>(7, Vec3f::ZERO)));

    EXPECT_EQ(5u, glb.document["meshes"].size());
    EXPECT_EQ(glb.meshNode("pin#1")["mesh"], glb.meshNode("pin#2")["mesh"]);
    EXPECT_EQ(glb.meshNode("pin#1")["mesh"], glb.meshNode("pin placed")["mesh"]);
    EXPECT_NE(glb.meshNode("pin#1")["mesh"], glb.meshNode("pin mirrored")["mesh"]);
    const auto materialOf = [&](const std::string& part) { return glb.primitive(glb.meshNode(part))["material"]; };
    EXPECT_EQ(4u, glb.document["materials"].size());
    EXPECT_EQ(materialOf("red"), materialOf("red too"));
    EXPECT_EQ(materialOf("pin#1"), materialOf("pin placed"));
    const auto colourOf = [&](const std::string& part) {
        return glb.document["materials"][materialOf(part).get<size_t>()]["pbrMetallicRoughness"]["baseColorFactor"];
    };
    EXPECT_EQ(colourOf("red"), json({0.5f, 0.1f, 0.1f, 1.0f}));
    // Parts without a colour take the palette's in the order of their meshes:
    // first a steel blue (sRGB 4E79A7, in linear terms), then an orange.
    const json pin = colourOf("pin#1");
    EXPECT_NEAR(pin[0].get<double>(), 0.07618, 1e-4);
    EXPECT_NEAR(pin[1].get<double>(), 0.19120, 1e-4);
    EXPECT_NEAR(pin[2].get<double>(), 0.38643, 1e-4);
    EXPECT_NE(materialOf("plain"), materialOf("pin#1"));
    EXPECT_NEAR(colourOf("plain")[0].get<double>(), 0.88792, 1e-4);
}

TEST(GltfExport, FilesReadBackAsTheAssemblyCompressedOrNot)
{
    velmora::Assembly assembly = normalsAssembly();
    assembly.parts[0].node = "outer/inner";
    assembly.parts[1].node = "outer";
    assembly.parts[1].colour = velmora::Colour{0.2f, 0.4f, 0.6f, 1.0f};
    // A turned copy of the mirrored part, stored once and placed by its node.
    velmora::Part turned = partOf("turned copy", bakedCopy(*assembly.parts[1].mesh,
                                                            Wm4::Matrix3<float>::FromAxisAngle(Vec3f(0.6f, 0.8f, 0), 0.9f),
                                                            Vec3f(3, 9, -4)), {});
    turned.colour = assembly.parts[1].colour;
    assembly.parts.push_back(turned);
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    const std::vector<Vec3f> offsets = {Vec3f(0, 0, 0), Vec3f(0, 0, 10), Vec3f(0, 20, 0), Vec3f(5, 0, 0)};
    const fs::path dir = temporaryDirectory();
    for (bool compress : {false, true}) {
        SCOPED_TRACE(compress ? "compressed" : "plain");
        velmora::GlbOptions options;
        options.compress = compress;
        const std::vector<unsigned char> bytes = velmora::buildExplodedPoseGlb(assembly, offsets, options);
        const Glb glb(bytes);
        EXPECT_EQ(glb.meshNode("mirrored")["mesh"], glb.meshNode("turned copy")["mesh"]);
        if (compress) {
            EXPECT_EQ(glb.document["extensionsRequired"], json({"KHR_mesh_quantization", "EXT_meshopt_compression"}));
            EXPECT_TRUE(glb.document["buffers"][1]["extensions"]["EXT_meshopt_compression"]["fallback"].get<bool>());
            for (const json& view : glb.document["bufferViews"]) {
                if (!view.contains("extensions"))
                    continue;
                const json& meshopt = view["extensions"]["EXT_meshopt_compression"];
                EXPECT_EQ(1, view["buffer"]);
                EXPECT_EQ(view["byteLength"].get<size_t>(), meshopt["count"].get<size_t>() * meshopt["byteStride"].get<size_t>());
            }
        }
        const fs::path file = dir / (compress ? "compressed.glb" : "plain.glb");
        velmora::writeGlbFile(bytes, file.string());
        const velmora::Assembly back = velmora::importAssembly({file.string()});
        EXPECT_EQ("m", back.units);
        ASSERT_EQ(assembly.parts.size(), back.parts.size());
        const kx::kxGenericTransformation<float> root = Glb::transformOf(glb.document["nodes"][0].value("matrix", json()));
        for (size_t p = 0; p < assembly.parts.size(); ++p) {
            const velmora::Part& part = assembly.parts[p];
            const velmora::Part& read = partNamed(back, part.name);
            SCOPED_TRACE(part.name);
            const std::string above = part.node.empty() ? "assembly/" : "assembly/" + part.node + "/";
            EXPECT_EQ(above + part.name + "/" + part.name, read.node);
            ASSERT_TRUE(read.colour.has_value());
            if (part.colour) {
                EXPECT_EQ(std::tie(part.colour->r, part.colour->g, part.colour->b),
                          std::tie(read.colour->r, read.colour->g, read.colour->b));
            }
            // Mirrored or not, every part is where its offset puts it (the
            // triangle without area left out).
            const std::vector<Vec3f> readCorners = assemblyFrameCorners(read, root);
            EXPECT_EQ(part.name == "degenerate" ? 12 : part.mesh->GetTriangleQuantity(), read.mesh->GetTriangleQuantity());
            std::vector<Vec3f> expected = shifted(worldCorners(part), offsets[p]);
            if (part.name == "degenerate")
                expected.resize(36);
            expectSameSoup(expected, readCorners, compress ? 1e-3f : 1e-5f, part.name);
        }
    }
    fs::remove_all(dir);
}

// The CLI end to end on a real glTF input: names, colours, triangle counts and
// exploded offsets read back from the file agree with the report and the input.
TEST(GltfExport, ExplodedPinsAgreeWithTheReport)
{
    const fs::path input = fs::path(VELMORA_EXAMPLES_DIR) / "assemblies" / "pins.glb";
    const fs::path dir = temporaryDirectory();
    const fs::path view = dir / "pins-view.glb", report = dir / "pins.json";
    const cli_test::CliRun run = cli_test::run(
        {"explode", input.string(), "-o", view.string(), "--report", report.string(), "--pose", "exploded"});
    ASSERT_EQ(0, run.status) << run.err;
    EXPECT_LE(fs::file_size(view), 2 * fs::file_size(input));
    const json explosion = json::parse(readFile(report))["explosion"];
    const json parts = json::parse(readFile(report))["parts"];
    const velmora::Assembly original = velmora::importAssembly({input.string()});
    const velmora::Assembly back = velmora::importAssembly({view.string()});
    const kx::kxGenericTransformation<float> root = Glb::transformOf(Glb(readFile(view)).document["nodes"][0].value("matrix", json()));
    ASSERT_EQ(original.parts.size(), back.parts.size());
    for (const json& reported : parts) {
        const std::string name = reported["name"];
        SCOPED_TRACE(name);
        const velmora::Part& before = partNamed(original, name);
        const velmora::Part& after = partNamed(back, name);
        EXPECT_EQ(reported["triangles"].get<int>(), after.mesh->GetTriangleQuantity());
        ASSERT_TRUE(before.colour && after.colour);
        EXPECT_EQ(std::tie(before.colour->r, before.colour->g, before.colour->b, before.colour->a),
                  std::tie(after.colour->r, after.colour->g, after.colour->b, after.colour->a));
        const Vec3f offset = vec3Of(explosion["offsets"][reported["group"].get<size_t>()]);
        // Positions are quantised to 1/65535 of the part's largest extent.
        velmora::Assembly one;
        one.parts = {before};
        Vec3f lo, hi;
        velmora::assemblyBounds(one, lo, hi);
        const float step = std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]}) / 65535.0f;
        expectSameSoup(shifted(worldCorners(before), offset), assemblyFrameCorners(after, root), step + 1e-4f, name);
    }
    const json& base = explosion["offsets"][explosion["baseGroup"].get<size_t>()];
    EXPECT_EQ(base, json::array({0.0, 0.0, 0.0}));
    fs::remove_all(dir);
}

TEST(GltfExport, RejectsKeysThatDoNotFitTheAssembly)
{
    const velmora::Assembly assembly = normalsAssembly();
    EXPECT_THROW(velmora::buildAnimatedGlb(assembly, std::vector<velmora::GroupKeyframes>(2)), std::invalid_argument);
    EXPECT_THROW(velmora::buildExplodedPoseGlb(assembly, std::vector<Vec3f>(4)), std::invalid_argument);
    std::vector<velmora::GroupKeyframes> keys(3);
    keys[1] = {{0.0f, 1.0f, 1.0f}, {Vec3f::ZERO, Vec3f::ZERO, Vec3f::ZERO}};
    EXPECT_THROW(velmora::buildAnimatedGlb(assembly, keys), std::invalid_argument);
    keys[1] = {{0.0f, 1.0f}, {Vec3f::ZERO}};
    EXPECT_THROW(velmora::buildAnimatedGlb(assembly, keys), std::invalid_argument);
    // Groups without keys are simply not animated.
    keys[1] = {{0.0f, 1.0f}, {Vec3f::ZERO, Vec3f(0, 0, 1)}};
    const Glb glb(velmora::buildAnimatedGlb(assembly, keys));
    EXPECT_EQ(1u, glb.document["animations"][0]["channels"].size());
}


// A compressed file whose compressed views are tampered with is refused as
// bad input, naming the file.
TEST(GltfExport, ReaderRefusesBrokenCompressedViews)
{
    const std::vector<unsigned char> bytes =
        velmora::buildExplodedPoseGlb(normalsAssembly(), std::vector<Vec3f>(3, Vec3f::ZERO));
    const Glb glb(bytes);
    const fs::path dir = temporaryDirectory();
    const std::vector<std::pair<std::string, std::function<void(json&)>>> tamperings = {
        {"offset", [](json& m) { m["byteOffset"] = 1u << 30; }},
        {"length", [](json& m) { m["byteLength"] = 3; }},
        {"buffer", [](json& m) { m["buffer"] = 7; }},
        {"filter", [](json& m) { m["filter"] = "OCTAHEDRAL"; }},
        {"mode", [](json& m) { m["mode"] = "STRIPS"; }},
        {"count", [](json& m) { m["count"] = size_t(1) << 40; }},
        {"type", [](json& m) { m["byteStride"] = "eight"; }},
    };
    for (const auto& [what, tamper] : tamperings) {
        json document = glb.document;
        tamper(document["bufferViews"][0]["extensions"]["EXT_meshopt_compression"]);
        std::string text = document.dump();
        text.resize((text.size() + 3) & ~size_t(3), ' ');
        std::vector<unsigned char> out;
        const auto word = [&out](size_t value) {
            for (int b = 0; b < 4; ++b)
                out.push_back(static_cast<unsigned char>(value >> (8 * b)));
        };
        const size_t total = 12 + 8 + text.size() + 8 + glb.binary.size();
        for (size_t value : {size_t(0x46546C67u), size_t(2), total, text.size(), size_t(0x4E4F534Au)})
            word(value);
        out.insert(out.end(), text.begin(), text.end());
        word(glb.binary.size());
        word(0x004E4942u);
        out.insert(out.end(), glb.binary.begin(), glb.binary.end());
        const fs::path file = dir / ("tampered-" + what + ".glb");
        velmora::writeGlbFile(out, file.string());
        try {
            velmora::importAssembly({file.string()});
            ADD_FAILURE() << what << ": accepted";
        } catch (const velmora::InputError& e) {
            EXPECT_NE(std::string(e.what()).find(file.string()), std::string::npos) << e.what();
        }
    }
    fs::remove_all(dir);
}

// Every kind of file the tool writes, checked in one validator run.
TEST(GltfExport, PassesTheKhronosValidator)
{
    const fs::path package = validatorPackage();
    if (package.empty())
        GTEST_SKIP() << "Node.js or the gltf-validator package is not available";
    const ExplodedStack& stack = explodedStack();
    const velmora::Assembly& assembly = stack.plan->assembly();
    velmora::GlbOptions lines;
    lines.lines = true;
    const fs::path dir = temporaryDirectory();
    const std::vector<std::pair<std::string, std::vector<unsigned char>>> built = {
        {"animated.glb", velmora::buildAnimatedGlb(assembly, stack.keys)},
        {"animated-plain.glb", velmora::buildAnimatedGlb(assembly, stack.keys, plainOptions())},
        {"pose.glb", velmora::buildExplodedPoseGlb(assembly, stack.offsets)},
        {"pose-plain.glb", velmora::buildExplodedPoseGlb(assembly, stack.offsets, plainOptions())},
        {"lines.glb", velmora::buildAnimatedGlb(assembly, stack.keys, lines)},
        {"normals.glb", velmora::buildExplodedPoseGlb(normalsAssembly(), std::vector<Vec3f>(3, Vec3f::ZERO))},
    };
    std::vector<fs::path> files;
    for (const auto& [name, bytes] : built) {
        files.push_back(dir / name);
        velmora::writeGlbFile(bytes, files.back().string());
    }
    const std::string pins = (fs::path(VELMORA_EXAMPLES_DIR) / "assemblies" / "pins.glb").string();
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"explode", pins, "--lines"}, {"explode", pins, "--no-compress", "--pose", "exploded"},
          {"remove", pins, "--part", "sides#1:5:2:4:3"}}) {
        files.push_back(dir / ("cli-" + std::to_string(files.size()) + ".glb"));
        std::vector<std::string> withOutput = args;
        withOutput.insert(withOutput.end(), {args[0] == "remove" ? "--gltf" : "-o", files.back().string()});
        const cli_test::CliRun run = cli_test::run(withOutput);
        ASSERT_EQ(0, run.status) << run.err;
    }
    const json reports = validate(package, files, dir);
    ASSERT_EQ(files.size(), reports.size()) << reports.dump(2);
    for (size_t f = 0; f < files.size(); ++f)
        EXPECT_EQ(0, reports[f]["numErrors"].get<int>()) << files[f] << ": " << reports[f]["errors"].dump(2);
    fs::remove_all(dir);
}

// The camera looks at the exploded pose: every corner of every part, in
// glTF's frame, lies in front of it within half its vertical field of view.
TEST(GltfExport, CameraSeesTheWholeExplodedPose)
{
    const ExplodedStack& stack = explodedStack();
    const velmora::Assembly& assembly = stack.plan->assembly();
    const Glb glb(velmora::buildExplodedPoseGlb(assembly, stack.offsets, plainOptions()));
    const json& scene = glb.document["scenes"][0]["nodes"];
    const json& camera = glb.document["nodes"][scene[1].get<size_t>()];
    const double halfFov = 0.5 * glb.document["cameras"][camera["camera"].get<size_t>()]["perspective"]["yfov"].get<double>();
    const Vec3f eye = vec3Of(camera["translation"]);
    const json& q = camera["rotation"];
    const Vec3f axis(q[0].get<float>(), q[1].get<float>(), q[2].get<float>());
    const float w = q[3].get<float>();
    // The camera looks down its -Z: that axis turned by the rotation.
    const Vec3f back(0, 0, 1);
    const Vec3f t = axis.Cross(back) * 2.0f;
    const Vec3f forward = -(back + t * w + axis.Cross(t));
    const kx::kxGenericTransformation<float> root = Glb::transformOf(glb.document["nodes"][0].value("matrix", json()));
    for (size_t g = 0; g < assembly.groups.size(); ++g)
        for (unsigned part : assembly.groups[g].parts)
            for (const Vec3f& corner : shifted(worldCorners(assembly.parts[part]), stack.offsets[g])) {
                Vec3f toCorner = root.ApplyForward(corner) - eye;
                toCorner.Normalize();
                EXPECT_LT(std::acos(std::clamp(double(toCorner.Dot(forward)), -1.0, 1.0)), halfFov);
            }
}
