// A saved plan whose contacts, blocking constraints or verdicts were edited
// is refused by `explode --plan` and `remove --plan` with exit status 3 and
// one line, before anything is written: an unknown group, a group joined to
// itself, numbers that are not finite or not unit directions, direction ids
// outside the set, penalties that do not match, and contacts whose
// directions no longer give the saved direction set (which shows that the
// contacts are taken from the report, not computed again).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "CliRun.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr const char* kOverflow = "(a number too large for a double)";

class SavedPlanTamper : public velmora_test::TempDirTest {
protected:
    SavedPlanTamper() : TempDirTest("velmora-saved-plan-tamper-") {}
};

TEST_F(SavedPlanTamper, EditedReportsAreOneLineInputErrors)
{
    const std::string pins = (fs::path(VELMORA_EXAMPLES_DIR) / "assemblies" / "pins.glb").string();
    const std::string plan = (dir / "plan.json").string();
    ASSERT_EQ(cli_test::run({"plan", pins, "--threads", "2", "-o", plan}).status, 0);
    json saved;
    std::ifstream(plan) >> saved;
    ASSERT_FALSE(saved["hierarchy"]["distant"].empty());
    ASSERT_FALSE(saved["contacts"][0]["directions"].empty());

    using Edit = std::function<void(json&)>;
    const std::vector<std::pair<const char*, Edit>> edits = {
        {"a contact with an unknown group", [](json& r) { r["contacts"][0]["groups"][1] = 99; }},
        {"a contact of a group with itself", [](json& r) { r["contacts"][0]["groups"][1] = r["contacts"][0]["groups"][0]; }},
        {"a contact with one group", [](json& r) { r["contacts"][0]["groups"] = {0}; }},
        {"an infinite direction", [](json& r) { r["contacts"][0]["directions"][0] = {kOverflow, 0, 0}; }},
        {"a direction of text", [](json& r) { r["contacts"][0]["directions"][0] = {"nan", 0, 0}; }},
        {"a direction not of unit length", [](json& r) { r["contacts"][0]["directions"][0] = {2, 0, 0}; }},
        {"a point beyond single precision", [](json& r) { r["contacts"][0]["point"] = {1e39, 0, 0}; }},
        {"a contact without zeroArea", [](json& r) { r["contacts"][0].erase("zeroArea"); }},
        {"a turned contact direction", [](json& r) { r["contacts"][0]["directions"][0] = {0.6, 0.8, 0}; }},
        {"a blocking constraint with an unknown group", [](json& r) { r["hierarchy"]["distant"][0]["groups"][0] = 7; }},
        {"a direction id outside the set", [](json& r) { r["hierarchy"]["distant"][0]["directionIds"][0] = 1000000; }},
        {"a negative direction id", [](json& r) { r["hierarchy"]["distant"][0]["directionIds"][0] = -1; }},
        {"a penalty missing", [](json& r) { r["hierarchy"]["distant"][0]["penalties"].erase(0); }},
        {"constraints that are not a list", [](json& r) { r["hierarchy"]["distant"] = "none"; }},
        {"a verdict that is not true or false", [](json& r) { r["hierarchy"]["nodes"][0]["split"]["verified"] = 1; }},
        {"a split child out of range", [](json& r) { r["hierarchy"]["nodes"][0]["split"]["moving"] = 4096; }},
        {"a part with other triangles", [](json& r) { r["parts"][2]["triangles"] = 1; }},
    };
    const std::string glb = (dir / "view.glb").string();
    for (const auto& [what, edit] : edits) {
        json report = saved;
        edit(report);
        const std::string tampered = (dir / "tampered.json").string();
        std::string text = report.dump();
        // JSON has no infinity: a number too large for a double stands for it.
        for (size_t at; (at = text.find(json(kOverflow).dump())) != std::string::npos;)
            text.replace(at, json(kOverflow).dump().size(), "1e999");
        std::ofstream(tampered) << text;
        for (const std::vector<std::string>& args :
             {std::vector<std::string>{"explode", pins, "--plan", tampered, "-o", glb},
              std::vector<std::string>{"remove", pins, "--part", "dowel#1:9:6:8:7", "--plan", tampered, "--gltf", glb}}) {
            const cli_test::CliRun r = cli_test::run(args);
            EXPECT_EQ(r.status, 3) << what << ": " << r.err;
            EXPECT_EQ(r.err.rfind("velmora: error: ", 0), 0u) << what << ": " << r.err;
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << what << ": " << r.err;
            EXPECT_FALSE(fs::exists(glb)) << what;
        }
    }
}

}  // namespace
