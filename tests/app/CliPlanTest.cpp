#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "CliRun.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

using cli_test::CliRun;
using cli_test::run;

// One OBJ object: the box [lo, hi] with outward faces.
std::string objBox(const std::string& name, const float lo[3], const float hi[3], unsigned firstVertex)
{
    std::ostringstream obj;
    obj << "o " << name << "\n";
    for (int c = 0; c < 8; ++c)
        obj << "v " << ((c & 1) ? hi[0] : lo[0]) << " " << ((c & 2) ? hi[1] : lo[1]) << " "
            << ((c & 4) ? hi[2] : lo[2]) << "\n";
    const unsigned faces[12][3] = {{0, 2, 3}, {0, 3, 1}, {4, 5, 7}, {4, 7, 6}, {0, 1, 5}, {0, 5, 4},
                                   {2, 6, 7}, {2, 7, 3}, {0, 4, 6}, {0, 6, 2}, {1, 3, 7}, {1, 7, 5}};
    for (const auto& f : faces)
        obj << "f " << firstVertex + f[0] << " " << firstVertex + f[1] << " " << firstVertex + f[2] << "\n";
    return obj.str();
}

// Three 2 x 2 x 1 slabs stacked along z: base, middle, top.
class CliPlanTest : public velmora_test::TempDirTest {
protected:
    CliPlanTest() : TempDirTest("velmora-cli-plan-") {}

    void SetUp() override
    {
        TempDirTest::SetUp();
        std::ofstream obj(dir / "stack.obj");
        const char* names[3] = {"base", "middle", "top"};
        for (unsigned k = 0; k < 3; ++k) {
            const float lo[3] = {0, 0, float(k)}, hi[3] = {2, 2, float(k + 1)};
            obj << objBox(names[k], lo, hi, 1 + 8 * k);
        }
        input = (dir / "stack.obj").string();
    }

    json readJson(const fs::path& path) const { return json::parse(std::ifstream(path)); }

    std::string input;
};

std::set<std::string> namesOf(const json& node)
{
    return node["names"].get<std::set<std::string>>();
}

const json& nodeById(const json& report, unsigned id)
{
    for (const json& node : report["hierarchy"]["nodes"])
        if (node["id"] == id)
            return node;
    throw std::out_of_range("no node " + std::to_string(id));
}

// Every report node is consistent with its parent and children, the leaves
// are the groups, and every split direction is a unit line of the set.
void expectWellFormedHierarchy(const json& report)
{
    const json& nodes = report["hierarchy"]["nodes"];
    const size_t groups = report["groups"].size();
    ASSERT_EQ(nodes.size(), 2 * groups - 1) << report["hierarchy"].dump();
    EXPECT_TRUE(nodes[0]["parent"].is_null());
    EXPECT_EQ(nodes[0]["groups"].size(), groups);
    size_t leaves = 0;
    for (const json& node : nodes) {
        if (node["split"].is_null()) {
            ++leaves;
            continue;
        }
        const json& split = node["split"];
        const json& moving = nodeById(report, split["moving"]);
        const json& staying = nodeById(report, split["staying"]);
        EXPECT_EQ(moving["parent"], node["id"]);
        EXPECT_EQ(staying["parent"], node["id"]);
        EXPECT_EQ(moving["groups"].size() + staying["groups"].size(), node["groups"].size());
        EXPECT_EQ(split["direction"], report["directions"][split["directionId"].get<unsigned>()]);
    }
    EXPECT_EQ(leaves, groups);
}

TEST_F(CliPlanTest, PlanReportsTheHierarchyAndHonoursKeepTogether)
{
    CliRun plain = run({"plan", input, "--threads", "2"});
    ASSERT_EQ(plain.status, velmora::kExitOk) << plain.err;
    const json report = json::parse(plain.out);
    expectWellFormedHierarchy(report);
    EXPECT_EQ(report["settings"]["distantContacts"], true);
    EXPECT_TRUE(report["timings"].contains("hierarchyMs"));
    EXPECT_TRUE(report["timings"].contains("distantMs"));
    EXPECT_EQ(plain.err, "") << "the library's lines stay quiet without -v";

    // Base and top kept as one: the middle slab has to slide out sideways.
    const fs::path out = dir / "kept.json";
    CliRun kept = run({"plan", input, "--keep-together", "base,top", "--no-distant", "-o", out.string()});
    ASSERT_EQ(kept.status, velmora::kExitOk) << kept.err;
    const json keptReport = readJson(out);
    expectWellFormedHierarchy(keptReport);
    EXPECT_EQ(keptReport["settings"]["distantContacts"], false);
    EXPECT_EQ(keptReport["settings"]["keepTogether"], json::array({json::array({"base", "top"})}));
    EXPECT_EQ(keptReport["hierarchy"]["distantConstraints"], 0);
    const json& root = keptReport["hierarchy"]["nodes"][0];
    const std::set<std::set<std::string>> sides = {namesOf(nodeById(keptReport, root["split"]["moving"])),
                                                   namesOf(nodeById(keptReport, root["split"]["staying"]))};
    EXPECT_EQ(sides, (std::set<std::set<std::string>>{{"middle"}, {"base", "top"}}));
    EXPECT_NEAR(root["split"]["direction"][2].get<double>(), 0.0, 1e-6);

    CliRun unknown = run({"plan", input, "--keep-together", "base,lid"});
    EXPECT_EQ(unknown.status, velmora::kExitInput);
    EXPECT_NE(unknown.err.find("no part is named 'lid'"), std::string::npos) << unknown.err;
    CliRun single = run({"plan", input, "--keep-together", "base"});
    EXPECT_EQ(single.status, velmora::kExitInput);
}

TEST_F(CliPlanTest, ExplodeWritesAGlbAndItsReport)
{
    const fs::path glb = dir / "stack.glb";
    const fs::path report = dir / "explode.json";
    CliRun r = run({"explode", input, "-o", glb.string(), "--report", report.string(), "--policy", "0", "--speed", "0"});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("wrote " + glb.string()), std::string::npos);
    std::ifstream file(glb, std::ios::binary);
    char magic[4] = {};
    file.read(magic, 4);
    EXPECT_EQ(std::string(magic, 4), "glTF");

    const json explode = readJson(report);
    expectWellFormedHierarchy(explode);
    const json& explosion = explode["explosion"];
    EXPECT_EQ(explosion["policy"], 0);
    EXPECT_EQ(explosion["playStyle"], 1);
    EXPECT_NEAR(explosion["splitDistance"].get<double>(), 0.1 * std::sqrt(17.0), 1e-5);  // bounds 2 x 2 x 3
    EXPECT_EQ(explosion["offsets"].size(), 3u);
    // One split at a time in sequence: two splits, two seconds.
    EXPECT_NEAR(explosion["durationSeconds"].get<double>(), 2.0, 1e-6);
    // The largest part stays still; the inputs do not state a unit.
    EXPECT_EQ(explosion["base"], json::array({"base"}));
    EXPECT_EQ(explosion["offsets"][explosion["baseGroup"].get<size_t>()], json::array({0.0, 0.0, 0.0}));
    EXPECT_EQ(explosion["units"], "mm");
    EXPECT_EQ(explosion["animation"], "explode");
    EXPECT_EQ(explosion["compressed"], true);

    CliRun fixed = run({"explode", input, "-o", glb.string(), "--report", "-", "--fix", "top", "--units", "in",
                        "--no-compress", "--lines"});
    ASSERT_EQ(fixed.status, velmora::kExitOk) << fixed.err;
    const json fixedReport = json::parse(fixed.out);
    EXPECT_EQ(fixedReport["explosion"]["base"], json::array({"top"}));
    EXPECT_EQ(fixedReport["explosion"]["units"], "in");
    EXPECT_EQ(fixedReport["explosion"]["compressed"], false);
    CliRun unknownBase = run({"explode", input, "-o", (dir / "never.glb").string(), "--fix", "lid"});
    EXPECT_EQ(unknownBase.status, velmora::kExitInput);
    EXPECT_NE(unknownBase.err.find("velmora: error: no part is named 'lid'"), std::string::npos) << unknownBase.err;
    EXPECT_FALSE(fs::exists(dir / "never.glb"));

    CliRun pose = run({"explode", input, "-o", glb.string(), "--report", "-", "--pose", "exploded",
                       "--split-distance", "0.5"});
    ASSERT_EQ(pose.status, velmora::kExitOk) << pose.err;
    const json poseReport = json::parse(pose.out);
    EXPECT_TRUE(poseReport["explosion"]["playStyle"].is_null());
    EXPECT_EQ(poseReport["explosion"]["splitDistance"], 0.5);

    for (const std::vector<std::string>& bad :
         {std::vector<std::string>{"explode", input}, {"explode", input, "-o", glb.string(), "--policy", "3"},
          {"explode", input, "-o", glb.string(), "--play-style", "4"},
          {"explode", input, "-o", glb.string(), "--pose", "sideways"},
          {"explode", input, "-o", glb.string(), "--units", "furlong"},
          {"explode", input, "-o", glb.string(), "--speed", "-1"},
          {"explode", input, "-o", "-", "--report", "-"}}) {
        CliRun b = run(bad);
        EXPECT_EQ(b.status, velmora::kExitUsage) << b.err;
    }
}

TEST_F(CliPlanTest, RemoveListsTheStepsAndWritesThemAsJson)
{
    const fs::path report = dir / "remove.json";
    const fs::path glb = dir / "remove.glb";
    CliRun r = run({"remove", input, "--part", "base", "-o", report.string(), "--gltf", glb.string()});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    EXPECT_EQ(r.out.rfind("Taking out base (middle stays in place): ", 0), 0u) << r.out;
    EXPECT_TRUE(fs::exists(glb));

    const json removal = readJson(report)["removal"];
    EXPECT_EQ(removal["part"], "base");
    const json& steps = removal["steps"];
    ASSERT_GE(steps.size(), 1u);
    EXPECT_EQ(steps.back()["parts"], json::array({"base"}));
    EXPECT_EQ(steps.back()["target"], true);
    EXPECT_TRUE(steps.back()["direction"].is_null());
    std::set<std::string> moved;
    for (size_t s = 0; s < steps.size(); ++s) {
        EXPECT_EQ(steps[s]["step"], s + 1);
        if (s + 1 < steps.size())
            for (const json& part : steps[s]["parts"])
                moved.insert(part.get<std::string>());
    }
    EXPECT_EQ(moved, (std::set<std::string>{"middle", "top"}));

    // As instructions, with the largest other part (middle, the first of
    // three equal boxes after base) still: base comes out downwards, and
    // nothing that moves is the part that stays.
    EXPECT_EQ(removal["base"], json::array({"middle"}));
    const json& instructions = removal["instructions"];
    ASSERT_GE(instructions.size(), 1u);
    for (const json& step : instructions) {
        // One numbered line per instruction on the terminal.
        EXPECT_NE(r.out.find("  " + std::to_string(step["step"].get<int>()) + ". take out "), std::string::npos);
        EXPECT_EQ(std::count(step["parts"].begin(), step["parts"].end(), "middle"), 0) << step;
        EXPECT_NEAR(std::hypot(step["direction"][0].get<double>(), step["direction"][1].get<double>(),
                               step["direction"][2].get<double>()),
                    1.0, 1e-9);
    }
    EXPECT_EQ(instructions.back()["parts"], json::array({"base"}));
    EXPECT_EQ(instructions.back()["target"], true);
    EXPECT_EQ(instructions.back()["direction"], json::array({0.0, 0.0, -1.0}));
    EXPECT_NE(r.out.find(". take out base along -Z\n"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("middle along"), std::string::npos) << r.out;

    // Holding the top, the base leaves downwards too; the top itself never moves.
    CliRun held = run({"remove", input, "--part", "base", "--fix", "top", "-o", "-"});
    ASSERT_EQ(held.status, velmora::kExitOk) << held.err;
    const json heldRemoval = json::parse(held.out)["removal"];
    EXPECT_EQ(heldRemoval["base"], json::array({"top"}));
    for (const json& step : heldRemoval["instructions"])
        EXPECT_EQ(std::count(step["parts"].begin(), step["parts"].end(), "top"), 0) << step;
    CliRun self = run({"remove", input, "--part", "base", "--fix", "base"});
    EXPECT_EQ(self.status, velmora::kExitInput);

    CliRun top = run({"remove", input, "--part", "top"});
    ASSERT_EQ(top.status, velmora::kExitOk) << top.err;
    EXPECT_EQ(top.out.rfind("Taking out top (base stays in place): ", 0), 0u) << top.out;

    CliRun typo = run({"remove", input, "--part", "midle"});
    EXPECT_EQ(typo.status, velmora::kExitInput);
    EXPECT_EQ(typo.err, "velmora: error: no part is named 'midle'; closest: middle, base, top\n");
    CliRun missing = run({"remove", input});
    EXPECT_EQ(missing.status, velmora::kExitUsage);
}

TEST(CliDemoPlan, DemoPlansTheWholeHierarchyAndWritesTheView)
{
    const fs::path dir = fs::temp_directory_path() / "velmora-demo-plan";
    fs::remove_all(dir);
    fs::create_directories(dir);
    const fs::path glb = dir / "elsewhere.glb";
    CliRun demo = run({"demo", "lid-on-box", "--gltf", glb.string()});
    ASSERT_EQ(demo.status, velmora::kExitOk) << demo.err;
    expectWellFormedHierarchy(json::parse(demo.out));
    EXPECT_TRUE(fs::exists(glb));
    EXPECT_NE(demo.err.find("lid-on-box: 2 parts, 1 contacts, 1 splits"), std::string::npos) << demo.err;

    // A report file gets the view beside it.
    CliRun beside = run({"demo", "lid-on-box", "-o", (dir / "lid.json").string()});
    ASSERT_EQ(beside.status, velmora::kExitOk) << beside.err;
    EXPECT_TRUE(fs::exists(dir / "lid.json"));
    EXPECT_TRUE(fs::exists(dir / "lid.glb"));
    fs::remove_all(dir);
}

// Middle and top kept as one: they come off the base as one piece unless
// asked to explode inside the set.
TEST_F(CliPlanTest, KeptTogetherSetsMoveAsOnePieceUnlessExplodedInside)
{
    const fs::path glb = dir / "kept.glb";
    const std::vector<std::string> common = {"explode", input, "-o", glb.string(), "--report", "-",
                                             "--keep-together", "middle,top", "--pose", "exploded"};
    CliRun whole = run(common);
    ASSERT_EQ(whole.status, velmora::kExitOk) << whole.err;
    const json wholeView = json::parse(whole.out)["explosion"];
    EXPECT_EQ(wholeView["explodeInside"], false);
    EXPECT_EQ(wholeView["base"], json::array({"base"}));
    EXPECT_EQ(wholeView["offsets"][0], json::array({0.0, 0.0, 0.0}));
    EXPECT_EQ(wholeView["offsets"][1], wholeView["offsets"][2]);
    EXPECT_GT(wholeView["offsets"][1][2].get<double>(), 0.0);  // the set leaves the base upwards

    std::vector<std::string> insideArgs = common;
    insideArgs.push_back("--explode-inside");
    CliRun inside = run(insideArgs);
    ASSERT_EQ(inside.status, velmora::kExitOk) << inside.err;
    const json insideView = json::parse(inside.out)["explosion"];
    EXPECT_EQ(insideView["explodeInside"], true);
    EXPECT_EQ(insideView["offsets"][0], json::array({0.0, 0.0, 0.0}));
    EXPECT_GT(insideView["offsets"][2][2].get<double>(), insideView["offsets"][1][2].get<double>());
}

}  // namespace
