// The verification stage through the command line: a box standing on a base
// with an identical copy of itself modelled in the same place.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "CliRun.h"
#include "TempDirTest.h"

namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

// An OBJ object `name`: the box [lo, hi], its vertices numbered from `first`;
// with no name, one more box of the object before it.
std::string objBox(const std::string& name, const float lo[3], const float hi[3], unsigned first)
{
    std::ostringstream obj;
    if (!name.empty())
        obj << "o " << name << "\n";
    for (unsigned c = 0; c < 8; ++c)
        obj << "v " << ((c & 1) ? hi[0] : lo[0]) << " " << ((c & 2) ? hi[1] : lo[1]) << " "
            << ((c & 4) ? hi[2] : lo[2]) << "\n";
    const unsigned faces[12][3] = {{0, 2, 3}, {0, 3, 1}, {4, 5, 7}, {4, 7, 6}, {0, 1, 5}, {0, 5, 4},
                                   {2, 6, 7}, {2, 7, 3}, {0, 4, 6}, {0, 6, 2}, {1, 3, 7}, {1, 7, 5}};
    for (const auto& f : faces)
        obj << "f " << first + f[0] << " " << first + f[1] << " " << first + f[2] << "\n";
    return obj.str();
}

class CliVerifyTest : public velmora_test::TempDirTest {
protected:
    CliVerifyTest() : TempDirTest("velmora-cli-verify-") {}

    void SetUp() override
    {
        TempDirTest::SetUp();
        std::ofstream obj(dir / "copies.obj");
        const float baseLo[3] = {-2, -2, -1}, baseHi[3] = {4, 4, 0}, lo[3] = {0, 0, 0}, hi[3] = {2, 2, 1};
        obj << objBox("base", baseLo, baseHi, 1) << objBox("box", lo, hi, 9) << objBox("copy", lo, hi, 17);
        input = (dir / "copies.obj").string();
    }

    std::string input;
};

TEST_F(CliVerifyTest, PlanReportsSplitsVerifiedAndTheCopies)
{
    const auto report = (dir / "plan.json").string();
    const cli_test::CliRun run = cli_test::run({"plan", input, "--threads", "1", "-o", report});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("velmora: warning: 2 parts interfere in the assembled pose: box/copy (1)\n"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("velmora: warning: 1 pairs of parts are identical copies in the same place: box/copy\n"),
              std::string::npos)
        << run.err;

    const json plan = json::parse(std::ifstream(report));
    EXPECT_EQ(plan["duplicates"], json::parse(R"([{"groups": [1, 2], "names": ["box", "copy"]}])"));
    ASSERT_EQ(plan["interferences"].size(), 1u);
    EXPECT_EQ(plan["interferences"][0]["names"], json::parse(R"(["box", "copy"])"));
    EXPECT_DOUBLE_EQ(plan["interferences"][0]["depth"].get<double>(), 1.0);
    unsigned splits = 0;
    for (const json& node : plan["hierarchy"]["nodes"]) {
        if (node["split"].is_null())
            continue;
        ++splits;
        EXPECT_TRUE(node["split"]["verified"].get<bool>()) << node.dump();
        EXPECT_FALSE(node["split"].contains("blockedBy"));
    }
    EXPECT_EQ(plan["verification"]["splits"], splits);
    EXPECT_EQ(plan["verification"]["verified"], splits);
    EXPECT_EQ(plan["verification"]["unverified"], 0);
    EXPECT_TRUE(plan["timings"].contains("verificationMs"));
}

TEST_F(CliVerifyTest, NoVerifyLeavesReportAndTerminalAsBefore)
{
    const auto report = (dir / "plan.json").string();
    const cli_test::CliRun run = cli_test::run({"plan", input, "--threads", "1", "--no-verify", "-o", report});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err.find("warning"), std::string::npos) << run.err;
    const json plan = json::parse(std::ifstream(report));
    for (const char* key : {"verification", "interferences", "duplicates", "stuck", "freedBySweep", "keptTogether"})
        EXPECT_FALSE(plan.contains(key)) << key;
    for (const json& node : plan["hierarchy"]["nodes"]) {
        if (node["split"].is_null())
            continue;
        EXPECT_FALSE(node["split"].contains("verified"));
    }
}

TEST_F(CliVerifyTest, ABlockShutInACaseStaysWithIt)
{
    // Six walls around a cavity; the block rests on the floor and may only
    // lift off it, into the ceiling.
    const float walls[6][2][3] = {{{-1, -1, -1}, {3, 3, 0}}, {{-1, -1, 2}, {3, 3, 3}}, {{-1, -1, 0}, {0, 3, 2}},
                                  {{2, -1, 0}, {3, 3, 2}},   {{0, -1, 0}, {2, 0, 2}},  {{0, 2, 0}, {2, 3, 2}}};
    const float lo[3] = {0.5f, 0.5f, 0}, hi[3] = {1.5f, 1.5f, 1};
    const auto input = (dir / "captive.obj").string();
    {
        std::ofstream obj(input);
        obj << "o case\n";
        for (unsigned w = 0; w < 6; ++w)
            obj << objBox("", walls[w][0], walls[w][1], 1 + 8 * w);
        obj << objBox("block", lo, hi, 49);
    }
    const auto report = (dir / "plan.json").string();
    const cli_test::CliRun run = cli_test::run({"plan", input, "--threads", "1", "-o", report});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("velmora: warning: 1 pairs of parts stay together: no split separates them without "
                           "collision: case/block\n"),
              std::string::npos)
        << run.err;
    const json plan = json::parse(std::ifstream(report));
    EXPECT_EQ(plan["keptTogether"], json::parse(R"([{"groups": [0, 1], "names": ["case", "block"]}])"));
    EXPECT_EQ(plan["verification"]["splits"], 0);
    EXPECT_EQ(plan["hierarchy"]["nodes"].size(), 1u);

    // Without verification the library's split lifts the block through the ceiling.
    const cli_test::CliRun unverified = cli_test::run({"plan", input, "--threads", "1", "--no-verify", "-o", report});
    ASSERT_EQ(unverified.status, 0) << unverified.err;
    EXPECT_EQ(json::parse(std::ifstream(report))["hierarchy"]["nodes"].size(), 3u);
}

}  // namespace
