// Exploding a saved plan: the view made from a plan report equals the one
// made by planning afresh, byte for byte; reports that are not plans of the
// inputs, or not plans at all, are refused with one line.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "CliRun.h"
#include "TempDirTest.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Explode.h"
#include "velmora/PlanReader.h"
#include "velmora/Report.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// A plan of `assembly` on two threads, verified; from `saved`, rebuilt from
// the report as `explode --plan` does.
std::unique_ptr<velmora::Plan> planFrom(const velmora::Assembly& assembly, const velmora::SavedPlan* saved,
                                        bool normaliseScale = true)
{
    velmora::PlanOptions options;
    options.hierarchy = true;
    options.threads = 2;
    options.verify = true;
    options.normaliseScale = normaliseScale;
    if (saved) {
        options.angleTolerance = saved->angleTolerance;
        options.distantContacts = saved->distantContacts;
        options.keepTogether = velmora::keepTogetherGroupIds(*saved, assembly);
        options.savedPlan = saved;
    }
    return velmora::planAssembly(assembly, options);
}

// A report without what changes from run to run (the stage timings).
json withoutTimings(json report)
{
    report.erase("timings");
    if (report.contains("verification"))
        report["verification"].erase("timeMs");
    return report;
}

TEST(PlanReader, DemoViewsFromASavedPlanEqualFreshOnes)
{
    std::vector<velmora::ExplodeOptions> styles(4);
    styles[0].glb.compress = false;
    styles[1].policy = 0, styles[1].playStyle = 3, styles[1].speed = 0.8f;
    styles[2].policy = 1, styles[2].glb.lines = true, styles[2].base = 1;
    styles[3].staticPose = true, styles[3].splitDistance = 3.0f;
    for (const std::string& name : velmora::demoAssemblyNames()) {
        for (const bool normalise : {true, false}) {
            SCOPED_TRACE(name + (normalise ? "" : " in its own units"));
            const velmora::Assembly assembly = velmora::makeDemoAssembly(name);
            const auto fresh = planFrom(assembly, nullptr, normalise);
            const velmora::SavedPlan saved = velmora::parsePlanReport(velmora::planReport(*fresh).dump());
            ASSERT_TRUE(saved.holdsConstraints());
            velmora::checkPlanFits(saved, assembly);
            const auto replayed = planFrom(assembly, &saved, normalise);
            EXPECT_EQ(withoutTimings(velmora::planReport(*replayed)), withoutTimings(velmora::planReport(*fresh)));
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
}

std::string fileText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class SavedPlanCli : public velmora_test::TempDirTest {
protected:
    SavedPlanCli() : TempDirTest("velmora-saved-plan-") {}

    // Runs `args` with the outputs in this test's folder under `tag`; the
    // GLB's bytes and the report without its timings.
    std::pair<std::string, json> outputs(std::vector<std::string> args, const std::string& tag, bool remove)
    {
        const std::string glb = (dir / (tag + ".glb")).string(), report = (dir / (tag + ".json")).string();
        const std::vector<std::string> files =
            remove ? std::vector<std::string>{"--gltf", glb, "-o", report} : std::vector<std::string>{"-o", glb, "--report", report};
        args.insert(args.end(), files.begin(), files.end());
        const cli_test::CliRun r = cli_test::run(args);
        EXPECT_EQ(r.status, 0) << r.err;
        return {fileText(glb), withoutTimings(json::parse(fileText(report), nullptr, false))};
    }
};

// Through the command line, on the shipped example and the corpus
// assemblies beside this checkout: `explode --plan` and `remove --plan`
// write the same GLB, byte for byte, and the same report (but for its
// timings) as planning afresh with the flags the plan was made with.
TEST_F(SavedPlanCli, ExplodesASavedPlanAsItWouldPlanIt)
{
    const fs::path pins = fs::path(VELMORA_EXAMPLES_DIR) / "assemblies" / "pins.glb";
    const fs::path rods = fs::path(VELMORA_CORPUS_DIR) / "rod_linkage";
    const fs::path beams = fs::path(VELMORA_CORPUS_DIR) / "beam_assembly";
    using Flags = std::vector<std::string>;
    struct Case {
        fs::path input;
        Flags planning;  // given to `plan` and to the fresh run
        Flags view;      // given to both runs
        std::string removed;  // a part: `remove` instead of `explode`
    };
    const std::vector<Case> cases = {
        {pins, {}, {}, ""},
        {pins, {"--no-normalise-scale"}, {"--no-compress", "--lines", "--pose", "exploded", "--policy", "1"}, ""},
        {pins, {"--keep-together", "dowel#1:9:6:8:7,dowel#1:10:6:8:7"}, {"--explode-inside", "--fix", "dowel#1:11:6:8:7"}, ""},
        {pins, {"--no-verify", "--lock-zero-area"}, {"--lines"}, "dowel#1:12:6:8:7"},
        {rods, {}, {"--fix", "028_rods-1_holder-1", "--lines"}, ""},
        {rods, {"--keep-together", "018_rod_assembly-1_shaft-1,019_rod_assembly-1_bearing-1"}, {}, "020_rods-1_rod_assembly-4_shaft-1"},
        {beams, {"--no-normalise-scale"}, {"--explode-inside"}, ""},
    };
    for (size_t c = 0; c < cases.size(); ++c) {
        const Case& k = cases[c];
        if (!fs::exists(k.input))
            continue;  // the corpus is not beside this checkout
        SCOPED_TRACE("case " + std::to_string(c) + ": " + k.input.string());
        const std::string plan = (dir / "plan.json").string();
        Flags planArgs = {"plan", k.input.string(), "--threads", "2", "-o", plan};
        planArgs.insert(planArgs.end(), k.planning.begin(), k.planning.end());
        ASSERT_EQ(cli_test::run(planArgs).status, 0);
        const Flags command = k.removed.empty() ? Flags{"explode", k.input.string()}
                                                : Flags{"remove", k.input.string(), "--part", k.removed};
        Flags fresh = command, replay = command;
        fresh.insert(fresh.end(), k.planning.begin(), k.planning.end());
        replay.insert(replay.end(), {"--plan", plan});
        for (Flags* args : {&fresh, &replay}) {
            args->insert(args->end(), k.view.begin(), k.view.end());
            args->insert(args->end(), {"--threads", "2"});
        }
        const auto [glbA, reportA] = outputs(fresh, "fresh", !k.removed.empty());
        const auto [glbB, reportB] = outputs(replay, "replay", !k.removed.empty());
        EXPECT_FALSE(glbA.empty());
        EXPECT_TRUE(glbA == glbB);
        EXPECT_EQ(reportA, reportB);
    }
}

// A report written before the blocking constraints were saved still
// explodes the same: its contacts are computed again.
TEST_F(SavedPlanCli, OlderReportsWithoutConstraintsStillReplay)
{
    const std::string pins = (fs::path(VELMORA_EXAMPLES_DIR) / "assemblies" / "pins.glb").string();
    const std::string plan = (dir / "plan.json").string(), older = (dir / "older.json").string();
    ASSERT_EQ(cli_test::run({"plan", pins, "-o", plan}).status, 0);
    json report = json::parse(fileText(plan));
    report["hierarchy"].erase("distant");
    std::ofstream(older) << report.dump();
    ASSERT_FALSE(velmora::parsePlanReport(report.dump()).holdsConstraints());
    const auto [glbA, reportA] = outputs({"explode", pins}, "fresh", false);
    const auto [glbB, reportB] = outputs({"explode", pins, "--plan", older}, "replay", false);
    EXPECT_TRUE(glbA == glbB);
    EXPECT_EQ(reportA["explosion"], reportB["explosion"]);

    // The saved plan is an input: naming it as an output is a usage error.
    const std::string before = fileText(plan);
    EXPECT_EQ(cli_test::run({"explode", pins, "--plan", plan, "-o", plan}).status, 2);
    EXPECT_EQ(cli_test::run({"remove", pins, "--part", "dowel#1:9:6:8:7", "--plan", plan, "-o", plan}).status, 2);
    EXPECT_EQ(fileText(plan), before);
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
