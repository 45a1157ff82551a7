// Exploding a saved plan: the view made from a plan report equals the one
// made by planning afresh, byte for byte; reports that are not plans of the
// inputs, or not plans at all, are refused with one line.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

#include "CliRun.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Explode.h"
#include "velmora/PlanReader.h"
#include "velmora/Report.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::unique_ptr<velmora::Plan> planFrom(const velmora::Assembly& assembly, const velmora::SavedPlan* saved)
{
    velmora::PlanOptions options;
    options.hierarchy = true;
    options.threads = 2;
    if (saved) {
        options.angleTolerance = saved->angleTolerance;
        options.distantContacts = saved->distantContacts;
        options.keepTogether = velmora::keepTogetherGroupIds(*saved, assembly);
        options.savedHierarchy = &saved->hierarchy;
    }
    return velmora::planAssembly(assembly, options);
}

TEST(PlanReader, DemoViewsFromASavedPlanEqualFreshOnes)
{
    std::vector<velmora::ExplodeOptions> styles(4);
    styles[0].glb.compress = false;
    styles[1].policy = 0, styles[1].playStyle = 3, styles[1].speed = 0.8f;
    styles[2].policy = 1, styles[2].glb.lines = true;
    styles[3].staticPose = true, styles[3].splitDistance = 3.0f;
    for (const std::string& name : velmora::demoAssemblyNames()) {
        SCOPED_TRACE(name);
        const velmora::Assembly assembly = velmora::makeDemoAssembly(name);
        const auto fresh = planFrom(assembly, nullptr);
        const velmora::SavedPlan saved = velmora::parsePlanReport(velmora::planReport(*fresh).dump());
        velmora::checkPlanFits(saved, assembly);
        const auto replayed = planFrom(assembly, &saved);
        velmora::checkDirectionsFit(saved, replayed->diagram());
        EXPECT_EQ(velmora::planReport(*replayed)["hierarchy"], velmora::planReport(*fresh)["hierarchy"]);
        for (size_t s = 0; s < styles.size(); ++s) {
            const velmora::ExplodedView a = velmora::explodeAssembly(*fresh, styles[s]);
            const velmora::ExplodedView b = velmora::explodeAssembly(*replayed, styles[s]);
            EXPECT_TRUE(a.glb == b.glb) << "style " << s;
            EXPECT_EQ(velmora::explodeReport(*fresh, a, styles[s])["explosion"],
                      velmora::explodeReport(*replayed, b, styles[s])["explosion"])
                << "style " << s;
        }
    }
}

std::string fileText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Through the command line, on the shipped example and the corpus
// assemblies beside this checkout: `explode --plan` writes the same GLB and
// the same `explosion` keys as `explode`.
TEST(PlanReader, CliExplodesASavedPlanAsItWouldPlanIt)
{
    const fs::path dir = fs::temp_directory_path() / ("velmora-plan-reader-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    // Each input with its styles: plain flags, or none for the default style.
    const std::vector<std::string> plain = {"--no-compress", "--lines", "--pose", "exploded", "--policy", "1"};
    const std::vector<std::pair<fs::path, std::vector<std::vector<std::string>>>> inputs = {
        {fs::path(VELMORA_EXAMPLES_DIR) / "assemblies" / "pins.glb", {{}, plain}},
        {fs::path(VELMORA_CORPUS_DIR) / "rod_linkage", {{}}}};
    for (const auto& [input, styles] : inputs) {
        if (!fs::exists(input))
            continue;  // the corpus is not beside this checkout
        SCOPED_TRACE(input.string());
        const std::string plan = (dir / "plan.json").string();
        ASSERT_EQ(cli_test::run({"plan", input.string(), "-o", plan}).status, 0);
        for (const std::vector<std::string>& style : styles) {
            std::vector<std::string> fresh = {"explode", input.string(), "-o", (dir / "a.glb").string(), "--report",
                                              (dir / "a.json").string()};
            fresh.insert(fresh.end(), style.begin(), style.end());
            std::vector<std::string> replay = {"explode", input.string(), "--plan", plan, "-o",
                                               (dir / "b.glb").string(), "--report", (dir / "b.json").string()};
            replay.insert(replay.end(), style.begin(), style.end());
            const cli_test::CliRun a = cli_test::run(fresh), b = cli_test::run(replay);
            ASSERT_EQ(a.status, 0) << a.err;
            ASSERT_EQ(b.status, 0) << b.err;
            EXPECT_TRUE(fileText(dir / "a.glb") == fileText(dir / "b.glb"));
            EXPECT_EQ(json::parse(fileText(dir / "a.json"))["explosion"],
                      json::parse(fileText(dir / "b.json"))["explosion"]);
        }
        // The saved plan is an input: naming it as an output is a usage error.
        const std::string before = fileText(plan);
        const cli_test::CliRun self = cli_test::run({"explode", input.string(), "--plan", plan, "-o", plan});
        EXPECT_EQ(self.status, 2);
        EXPECT_EQ(fileText(plan), before);
    }
    fs::remove_all(dir);
}

// A valid report of a two-part assembly (box a, box b) split once.
json smallReport()
{
    return json::parse(R"({
      "parts": [{"name": "a", "group": 0, "triangles": 12}, {"name": "b", "group": 1, "triangles": 12}],
      "groups": [{"name": "a", "parts": [0]}, {"name": "b", "parts": [1]}],
      "directions": [[0, 0, 1]],
      "settings": {"angleTolerance": 5.0, "distantContacts": true, "keepTogether": []},
      "hierarchy": {"nodes": [
        {"id": 0, "parent": null, "groups": [0, 1], "split": {"directionId": 0, "moving": 2, "staying": 1}},
        {"id": 1, "parent": 0, "groups": [0], "split": null},
        {"id": 2, "parent": 0, "groups": [1], "split": null}]}
    })");
}

velmora::Assembly twoBoxes()
{
    velmora::Assembly assembly;
    assembly.parts.push_back({"a", "(test)", "", velmora::shapes::box({0, 0, 0}, {1, 1, 1}), std::nullopt});
    assembly.parts.push_back({"b", "(test)", "", velmora::shapes::box({0, 0, 1}, {1, 1, 2}), std::nullopt});
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    return assembly;
}

void expectOneLineInputError(const std::function<void()>& call, const std::string& what)
{
    try {
        call();
        ADD_FAILURE() << what << ": accepted";
    } catch (const velmora::InputError& e) {
        EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos) << what;
    }
}

TEST(PlanReader, RefusesWhatIsNotAPlanOfTheInputs)
{
    const velmora::SavedPlan good = velmora::parsePlanReport(smallReport().dump());
    ASSERT_EQ(good.hierarchy.size(), 3u);
    EXPECT_EQ(good.hierarchy[0].moving, 2u);
    EXPECT_EQ(good.hierarchy[0].parent, velmora::SavedHierarchyNode::kNone);
    EXPECT_EQ(good.noDirections, 1u);
    velmora::checkPlanFits(good, twoBoxes());

    using Edit = std::function<void(json&)>;
    const std::vector<std::pair<const char*, Edit>> malformed = {
        {"a string", [](json& r) { r = "plan"; }},
        {"no hierarchy", [](json& r) { r.erase("hierarchy"); }},
        {"parts not an array", [](json& r) { r["parts"] = 3; }},
        {"a negative group", [](json& r) { r["parts"][0]["group"] = -1; }},
        {"a fractional count", [](json& r) { r["parts"][1]["triangles"] = 1.5; }},
        {"a huge id", [](json& r) { r["hierarchy"]["nodes"][1]["id"] = 1e20; }},
        {"a name that is a number", [](json& r) { r["parts"][0]["name"] = 7; }},
        {"a split without its moving side", [](json& r) { r["hierarchy"]["nodes"][0]["split"].erase("moving"); }},
        {"a split that is a list", [](json& r) { r["hierarchy"]["nodes"][0]["split"] = json::array(); }},
        {"a textual tolerance", [](json& r) { r["settings"]["angleTolerance"] = "5"; }},
        {"groups of names", [](json& r) { r["groups"][0]["parts"] = {"a"}; }},
        {"a direction of two numbers", [](json& r) { r["directions"][0] = {0, 1}; }},
        {"a direction of text", [](json& r) { r["directions"][0] = {"x", 0, 1}; }},
    };
    for (const auto& [what, edit] : malformed) {
        json report = smallReport();
        edit(report);
        expectOneLineInputError([&] { velmora::parsePlanReport(report.dump()); }, what);
    }
    for (const std::string text : {"", "{", "[1, 2", "{\"parts\": [}", "\xff\xfe"})
        expectOneLineInputError([&] { velmora::parsePlanReport(text); }, "text " + text);

    const std::vector<std::pair<const char*, Edit>> otherInputs = {
        {"a renamed part", [](json& r) { r["parts"][1]["name"] = "c"; }},
        {"another triangle count", [](json& r) { r["parts"][0]["triangles"] = 10; }},
        {"a missing part", [](json& r) { r["parts"].erase(1); }},
        {"another grouping", [](json& r) {
             r["parts"][1]["group"] = 0;
             r["groups"] = json::parse(R"([{"name": "ab", "parts": [0, 1]}])");
         }},
    };
    // A plan made with another angle tolerance has another direction set.
    const velmora::Assembly demo = velmora::makeDemoAssembly("peg-in-hole");
    const velmora::SavedPlan sameDemo = velmora::parsePlanReport(velmora::planReport(*planFrom(demo, nullptr)).dump());
    velmora::SavedPlan turned = sameDemo;
    turned.directions.front() = -turned.directions.front();
    const auto demoPlan = planFrom(demo, &sameDemo);
    velmora::checkDirectionsFit(sameDemo, demoPlan->diagram());
    expectOneLineInputError([&] { velmora::checkDirectionsFit(turned, demoPlan->diagram()); }, "turned direction");
    turned.directions.pop_back();
    expectOneLineInputError([&] { velmora::checkDirectionsFit(turned, demoPlan->diagram()); }, "fewer directions");

    for (const auto& [what, edit] : otherInputs) {
        json report = smallReport();
        edit(report);
        const velmora::SavedPlan plan = velmora::parsePlanReport(report.dump());
        expectOneLineInputError([&] { velmora::checkPlanFits(plan, twoBoxes()); }, what);
    }
}

}  // namespace
