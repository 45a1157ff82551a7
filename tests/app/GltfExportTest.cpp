// The binary glTF export of exploded views: read back, the file has one node
// per part with its mesh in the assembly's frame and one translation channel
// reproducing its group's keys; normals are unit and outward; and the
// Khronos glTF validator finds no error in it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "../explosion/ExplosionPipeline.h"
#include "kxExplodedViewAnimation.h"
#include "kxExplosionDiagram.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/GltfExport.h"
#include "velmora/Import.h"

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

// The validator's report on a file: the number of errors and their messages.
json validate(const fs::path& package, const fs::path& file, const fs::path& scratch)
{
    const fs::path script = scratch / "validate.js";
    std::ofstream(script) << R"(const fs = require('fs');
const validator = require(process.argv[2]);
validator.validateBytes(new Uint8Array(fs.readFileSync(process.argv[3]))).then(
  (report) => console.log(JSON.stringify({numErrors: report.issues.numErrors,
    errors: report.issues.messages.filter((m) => m.severity === 0)})),
  (error) => console.log(JSON.stringify({numErrors: -1, errors: [String(error)]})));
)";
    const std::string output =
        runCommand("node '" + script.string() + "' '" + package.string() + "' '" + file.string() + "' 2>&1");
    try {
        return json::parse(output);
    } catch (const json::exception&) {
        return {{"numErrors", -1}, {"errors", output}};
    }
}

}  // namespace

TEST(GltfExport, AnimatedViewHasOneAnimatedNodePerPart)
{
    const ExplodedStack& stack = explodedStack();
    const velmora::Assembly& assembly = stack.plan->assembly();
    const Glb glb(velmora::buildAnimatedGlb(assembly, stack.keys));
    const json& doc = glb.document;
    EXPECT_EQ("2.0", doc["asset"]["version"]);
    ASSERT_EQ(assembly.parts.size(), doc["nodes"].size());
    EXPECT_EQ(assembly.parts.size(), doc["scenes"][doc["scene"].get<size_t>()]["nodes"].size());
    ASSERT_EQ(1u, doc["animations"].size());
    const json& animation = doc["animations"][0];
    ASSERT_EQ(assembly.parts.size(), animation["channels"].size());

    for (size_t g = 0; g < assembly.groups.size(); ++g) {
        const velmora::GroupKeyframes& keys = stack.keys[g];
        ASSERT_GT(keys.times.size(), 1u);
        // The keys read from the controllers end where the explosion does
        // (play style 3: out and back, so at the middle key).
        EXPECT_EQ(Vec3f::ZERO, keys.translations.back());
        EXPECT_EQ(stack.offsets[g], keys.translations[keys.translations.size() / 2]);
        for (unsigned partIndex : assembly.groups[g].parts) {
            const velmora::Part& part = assembly.parts[partIndex];
            SCOPED_TRACE(part.name);
            const json& node = glb.node(part.name);
            EXPECT_EQ(keys.translations.front(), vec3Of(node["translation"]));
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

            // Flat shading (the demo meshes carry no normals): the world
            // corners of every triangle in order, unit normals.
            const json& primitive = glb.primitive(node);
            EXPECT_FALSE(primitive.contains("indices"));
            const int positionAccessor = primitive["attributes"]["POSITION"].get<int>();
            const std::vector<Vec3f> positions = glb.vectors(positionAccessor);
            EXPECT_EQ(worldCorners(part), positions);
            for (const Vec3f& n : glb.vectors(primitive["attributes"]["NORMAL"].get<int>()))
                EXPECT_NEAR(1.0f, n.Length(), 1e-6f);
            const json& accessor = doc["accessors"][size_t(positionAccessor)];
            for (int k = 0; k < 3; ++k) {
                float lo = positions[0][k], hi = positions[0][k];
                for (const Vec3f& p : positions) {
                    lo = std::min(lo, p[k]);
                    hi = std::max(hi, p[k]);
                }
                EXPECT_EQ(lo, accessor["min"][size_t(k)].get<float>());
                EXPECT_EQ(hi, accessor["max"][size_t(k)].get<float>());
            }
        }
    }
}

TEST(GltfExport, StaticPoseTranslatesEveryPartByItsGroupOffset)
{
    const ExplodedStack& stack = explodedStack();
    const velmora::Assembly& assembly = stack.plan->assembly();
    const std::vector<unsigned char> bytes = velmora::buildExplodedPoseGlb(assembly, stack.offsets);
    const Glb glb(bytes);
    EXPECT_FALSE(glb.document.contains("animations"));
    for (size_t g = 0; g < assembly.groups.size(); ++g) {
        for (unsigned part : assembly.groups[g].parts)
            EXPECT_EQ(stack.offsets[g], vec3Of(glb.node(assembly.parts[part].name)["translation"]));
    }

    // The importer reads it back as the exploded assembly.
    const fs::path file = temporaryDirectory() / "pose.glb";
    velmora::writeGlbFile(bytes, file.string());
    const velmora::Assembly back = velmora::importAssembly({file.string()});
    ASSERT_EQ(assembly.parts.size(), back.parts.size());
    for (size_t g = 0; g < assembly.groups.size(); ++g) {
        for (unsigned part : assembly.groups[g].parts) {
            Vec3f lo, hi, backLo, backHi;
            velmora::Assembly one, oneBack;
            one.parts = {assembly.parts[part]};
            const auto found = std::find_if(back.parts.begin(), back.parts.end(), [&](const velmora::Part& p) {
                return p.name.find(assembly.parts[part].name) != std::string::npos;
            });
            ASSERT_NE(back.parts.end(), found) << assembly.parts[part].name;
            oneBack.parts = {*found};
            velmora::assemblyBounds(one, lo, hi);
            velmora::assemblyBounds(oneBack, backLo, backHi);
            for (int k = 0; k < 3; ++k) {
                EXPECT_NEAR(lo[k] + stack.offsets[g][k], backLo[k], 1e-4f);
                EXPECT_NEAR(hi[k] + stack.offsets[g][k], backHi[k], 1e-4f);
            }
        }
    }
    fs::remove_all(file.parent_path());
}

TEST(GltfExport, GivenNormalsFollowTheFrameAndMirroredPartsFaceOutwards)
{
    const velmora::Assembly assembly = normalsAssembly();
    const std::vector<Vec3f> none(assembly.groups.size(), Vec3f::ZERO);
    const Glb glb(velmora::buildExplodedPoseGlb(assembly, none));

    // Given normals: indexed, one normal per vertex through the normal matrix.
    const velmora::Part& given = assembly.parts[0];
    const json& indexed = glb.primitive(glb.node("given"));
    ASSERT_TRUE(indexed.contains("indices"));
    const std::vector<Vec3f> normals = glb.vectors(indexed["attributes"]["NORMAL"].get<int>());
    ASSERT_EQ(size_t(given.mesh->GetVertexBuffer()->GetVertexQuantity()), normals.size());
    const Vec3f centre = given.mesh->World.GetTranslate();
    const std::vector<Vec3f> positions = glb.vectors(indexed["attributes"]["POSITION"].get<int>());
    for (size_t v = 0; v < normals.size(); ++v) {
        EXPECT_NEAR(1.0f, normals[v].Length(), 1e-6f);
        // A corner normal of a box stretched along a rotated x leans toward
        // its short axes but still points away from the centre.
        EXPECT_GT(normals[v].Dot(positions[v] - centre), 0.0f);
    }

    // Mirrored: flat normals still point out of the box.
    const json& mirrored = glb.primitive(glb.node("mirrored"));
    const std::vector<Vec3f> corners = glb.vectors(mirrored["attributes"]["POSITION"].get<int>());
    const std::vector<Vec3f> flat = glb.vectors(mirrored["attributes"]["NORMAL"].get<int>());
    ASSERT_EQ(36u, corners.size());
    const Vec3f middle(-5.5f, 1.0f, 1.5f);
    for (size_t c = 0; c < corners.size(); c += 3) {
        const Vec3f centroid = (corners[c] + corners[c + 1] + corners[c + 2]) / 3.0f;
        EXPECT_GT(flat[c].Dot(centroid - middle), 0.0f);
        const Vec3f winding = (corners[c + 1] - corners[c]).Cross(corners[c + 2] - corners[c]);
        EXPECT_GT(winding.Dot(flat[c]), 0.0f);
    }

    // The triangle without area is left out.
    const json& degenerate = glb.primitive(glb.node("degenerate"));
    EXPECT_EQ(36u, glb.vectors(degenerate["attributes"]["POSITION"].get<int>()).size());
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

TEST(GltfExport, PassesTheKhronosValidator)
{
    const fs::path package = validatorPackage();
    if (package.empty())
        GTEST_SKIP() << "Node.js or the gltf-validator package is not available";
    const ExplodedStack& stack = explodedStack();
    const fs::path dir = temporaryDirectory();
    const std::vector<std::pair<std::string, std::vector<unsigned char>>> files = {
        {"animated.glb", velmora::buildAnimatedGlb(stack.plan->assembly(), stack.keys)},
        {"pose.glb", velmora::buildExplodedPoseGlb(stack.plan->assembly(), stack.offsets)},
        {"normals.glb", velmora::buildExplodedPoseGlb(normalsAssembly(), std::vector<Vec3f>(3, Vec3f::ZERO))},
    };
    for (const auto& [name, bytes] : files) {
        const fs::path file = dir / name;
        velmora::writeGlbFile(bytes, file.string());
        const json report = validate(package, file, dir);
        EXPECT_EQ(0, report["numErrors"].get<int>()) << name << ": " << report["errors"].dump(2);
    }
    fs::remove_all(dir);
}
