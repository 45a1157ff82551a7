// The removal's animation plays the printed instructions: one stretch per
// instruction in which exactly its groups move, along its direction, while
// the base stays exactly at zero; checked on hand-made instructions, on the
// demo assemblies and, through the command line, in the written GLB.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <unistd.h>

#include "CliRun.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/RemovalAnimation.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

using Vec3f = Wm4::Vector3<float>;
using Vec3d = Wm4::Vector3<double>;

TEST(RemovalAnimation, KeysOfHandMadeInstructions)
{
    const std::vector<velmora::RemovalInstruction> steps = {
        {{1, 2}, Vec3d(0, 0, 1), false}, {{2}, Vec3d(1, 0, 0), false}, {{1}, Vec3d(0, -1, 0), true}};
    const std::vector<velmora::GroupKeyframes> keys = velmora::removalKeyframes(4, steps, 2.0f, 0.5f);
    ASSERT_EQ(keys.size(), 4u);
    const std::vector<std::vector<Vec3f>> expected = {
        {Vec3f(0, 0, 0), Vec3f(0, 0, 0), Vec3f(0, 0, 0), Vec3f(0, 0, 0)},
        {Vec3f(0, 0, 0), Vec3f(0, 0, 2), Vec3f(0, 0, 2), Vec3f(0, -2, 2)},
        {Vec3f(0, 0, 0), Vec3f(0, 0, 2), Vec3f(2, 0, 2), Vec3f(2, 0, 2)},
        {Vec3f(0, 0, 0), Vec3f(0, 0, 0), Vec3f(0, 0, 0), Vec3f(0, 0, 0)},
    };
    for (unsigned g = 0; g < 4; ++g) {
        EXPECT_EQ(keys[g].times, (std::vector<float>{0.0f, 0.5f, 1.0f, 1.5f})) << g;
        EXPECT_EQ(keys[g].translations, expected[g]) << g;
    }

    EXPECT_TRUE(velmora::removalKeyframes(3, {}, 1.0f, 1.0f)[0].times.empty());
    EXPECT_THROW(velmora::removalKeyframes(2, steps, 1.0f, 1.0f), std::invalid_argument);
    for (const auto& [travel, seconds] : std::vector<std::pair<float, float>>{{0, 1}, {1, 0}, {-1, 1}, {1, NAN}})
        EXPECT_THROW(velmora::removalKeyframes(4, steps, travel, seconds), std::invalid_argument);
}

// Checks that `keys` (per group, or per part through `groupOf`) play
// `steps`: one stretch per step in which its members move by one common
// positive multiple of its direction and all others keep their place; the
// base never leaves zero.
void expectPlaysInstructions(const std::vector<velmora::GroupKeyframes>& keys,
                             const std::vector<std::set<unsigned>>& moving, const std::vector<Vec3d>& directions,
                             const std::set<unsigned>& still)
{
    ASSERT_FALSE(keys.empty());
    const size_t stretches = moving.size();
    for (size_t s = 0; s < stretches; ++s) {
        SCOPED_TRACE("stretch " + std::to_string(s + 1));
        float travel = -1;
        for (unsigned k = 0; k < keys.size(); ++k) {
            ASSERT_EQ(keys[k].translations.size(), stretches + 1) << k;
            EXPECT_EQ(keys[k].times, keys[0].times) << k;
            const Vec3f delta = keys[k].translations[s + 1] - keys[k].translations[s];
            if (!moving[s].count(k)) {
                EXPECT_EQ(delta, Vec3f(0, 0, 0)) << k;
                continue;
            }
            const Vec3f along(float(directions[s][0]), float(directions[s][1]), float(directions[s][2]));
            EXPECT_GT(delta.Dot(along), 0.0f) << k;
            EXPECT_NEAR((delta - along * delta.Dot(along)).Length(), 0.0f, 1e-4f * delta.Length()) << k;
            if (travel < 0)
                travel = delta.Length();
            EXPECT_NEAR(delta.Length(), travel, 1e-4f * travel) << k;
        }
    }
    for (unsigned k : still)
        for (const Vec3f& t : keys.at(k).translations)
            EXPECT_EQ(t, Vec3f(0, 0, 0)) << k;
}

TEST(RemovalAnimation, DemoRemovalsPlayTheirInstructions)
{
    for (const std::string& name : velmora::demoAssemblyNames()) {
        const velmora::Assembly assembly = velmora::makeDemoAssembly(name);
        velmora::PlanOptions planning;
        planning.hierarchy = true;
        planning.threads = 1;
        const auto plan = velmora::planAssembly(assembly, planning);
        for (unsigned part = 0; part < assembly.parts.size(); ++part) {
            SCOPED_TRACE(name + ": " + assembly.parts[part].name);
            const velmora::RemovalProcedure removal = velmora::planRemoval(*plan, part, false);
            const unsigned base = velmora::removalBase(assembly, removal.group);
            const auto steps = velmora::removalInstructions(*plan, removal, base);
            velmora::ExplodeOptions options;
            options.glb.compress = false;
            const velmora::ExplodedView view = velmora::removalView(assembly, steps, base, options);
            std::vector<std::set<unsigned>> moving;
            std::vector<Vec3d> directions;
            for (const velmora::RemovalInstruction& step : steps) {
                moving.emplace_back(step.groups.begin(), step.groups.end());
                directions.push_back(step.direction);
            }
            expectPlaysInstructions(view.keyframes, moving, directions, {base});
            EXPECT_EQ(view.splitDistance, velmora::defaultSplitDistance(assembly));
            EXPECT_FLOAT_EQ(view.duration, float(steps.size()));  // one second a step without a speed
            for (unsigned g = 0; g < view.offsets.size(); ++g)
                EXPECT_EQ(view.offsets[g], view.keyframes[g].translations.back()) << g;
            EXPECT_EQ(view.offsets[base], Vec3f(0, 0, 0));

            options.staticPose = true;
            const velmora::ExplodedView pose = velmora::removalView(assembly, steps, base, options);
            EXPECT_EQ(pose.offsets, view.offsets);
            EXPECT_TRUE(pose.keyframes.empty());
        }
    }
}

// The translation keys of every animated node of a GLB written without
// compression, by node name.
std::map<std::string, velmora::GroupKeyframes> glbKeys(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto u32At = [&](size_t at) {
        uint32_t v = 0;
        std::memcpy(&v, bytes.data() + at, 4);
        return v;
    };
    const size_t jsonLength = u32At(12);
    const json doc = json::parse(bytes.begin() + 20, bytes.begin() + 20 + std::ptrdiff_t(jsonLength));
    const char* binary = bytes.data() + 20 + jsonLength + 8;
    auto floats = [&](size_t accessor) {
        const json& a = doc["accessors"][accessor];
        const json& view = doc["bufferViews"][a["bufferView"].get<size_t>()];
        std::vector<float> out(a["count"].get<size_t>() * (a["type"] == "VEC3" ? 3 : 1));
        std::memcpy(out.data(), binary + view.value("byteOffset", 0) + a.value("byteOffset", 0), out.size() * 4);
        return out;
    };
    std::map<std::string, velmora::GroupKeyframes> keys;
    const json& animation = doc["animations"].at(0);
    for (const json& channel : animation["channels"]) {
        const json& sampler = animation["samplers"][channel["sampler"].get<size_t>()];
        velmora::GroupKeyframes& k = keys[doc["nodes"][channel["target"]["node"].get<size_t>()]["name"]];
        k.times = floats(sampler["input"].get<size_t>());
        const std::vector<float> t = floats(sampler["output"].get<size_t>());
        for (size_t i = 0; i + 2 < t.size(); i += 3)
            k.translations.emplace_back(t[i], t[i + 1], t[i + 2]);
    }
    return keys;
}

// `velmora remove --gltf` on real assemblies: the animation named after the
// removal has one stretch per instruction of the report, in which only the
// parts it names move, and the part that stays in place never moves.
TEST(RemovalAnimation, RemoveGltfPlaysTheReportedInstructions)
{
    const std::vector<std::pair<fs::path, std::string>> cases = {
        {fs::path(VELMORA_EXAMPLES_DIR) / "assemblies" / "pins.glb", "sides#1:5:2:4:3"},
        {fs::path(VELMORA_EXAMPLES_DIR) / "assemblies" / "pins.glb", "dowel#1:9:6:8:7"},
        {fs::path(VELMORA_CORPUS_DIR) / "pins.glb", "dowel#1:12:6:8:7"},
    };
    const fs::path dir = fs::temp_directory_path() / ("velmora-removal-animation-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    for (const auto& [input, part] : cases) {
        if (!fs::exists(input))
            continue;  // the corpus is not beside this checkout
        SCOPED_TRACE(input.string() + ": " + part);
        const fs::path report = dir / "r.json", glb = dir / "r.glb";
        const cli_test::CliRun r =
            cli_test::run({"remove", input.string(), "--part", part, "-o", report.string(), "--gltf", glb.string(),
                           "--no-compress"});
        ASSERT_EQ(r.status, 0) << r.err;
        std::ifstream reportIn(report);
        const json removal = json::parse(reportIn)["removal"];
        const std::map<std::string, velmora::GroupKeyframes> byName = glbKeys(glb);
        std::vector<velmora::GroupKeyframes> keys;
        std::map<std::string, unsigned> index;
        for (const auto& [name, k] : byName) {
            index[name] = unsigned(keys.size());
            keys.push_back(k);
        }
        std::vector<std::set<unsigned>> moving;
        std::vector<Vec3d> directions;
        for (const json& step : removal["instructions"]) {
            moving.emplace_back();
            for (const json& name : step["parts"])
                moving.back().insert(index.at(name.get<std::string>()));
            directions.emplace_back(step["direction"][0].get<double>(), step["direction"][1].get<double>(),
                                    step["direction"][2].get<double>());
        }
        ASSERT_FALSE(moving.empty());
        EXPECT_EQ(removal["instructions"].back()["target"], true);
        EXPECT_TRUE(moving.back().count(index.at(part)));
        std::set<unsigned> still;
        for (const json& name : removal["base"])
            still.insert(index.at(name.get<std::string>()));
        expectPlaysInstructions(keys, moving, directions, still);
    }
    fs::remove_all(dir);
}

}  // namespace
