#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "CliRun.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;

namespace {

using cli_test::CliRun;
using cli_test::run;

class CliTest : public velmora_test::TempDirTest {
protected:
    CliTest() : TempDirTest("velmora-cli-") {}

    void SetUp() override
    {
        TempDirTest::SetUp();
        std::ofstream(dir / "pair.obj") << "o left\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 2 3\nf 1 2 4\nf 1 3 4\nf 2 3 4\n"
                                           "o right\nv 2 0 0\nv 3 0 0\nv 2 1 0\nv 2 0 1\nf 5 6 7\nf 5 6 8\nf 5 7 8\nf 6 7 8\n";
    }
};

TEST_F(CliTest, VersionAndHelp)
{
    CliRun version = run({"--version"});
    EXPECT_EQ(version.status, velmora::kExitOk);
    EXPECT_EQ(version.out, "velmora 1.0.0.17 2022-7\n");

    CliRun help = run({"--help"});
    EXPECT_EQ(help.status, velmora::kExitOk);
    EXPECT_NE(help.out.find("info"), std::string::npos);
}

TEST_F(CliTest, InfoReportsPartsAndGroupsAsJson)
{
    const std::string input = (dir / "pair.obj").string();
    CliRun r = run({"info", input, "--group-by", "file"});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    const nlohmann::json report = nlohmann::json::parse(r.out);
    EXPECT_EQ(report["parts"].size(), 2u);
    EXPECT_EQ(report["groups"].size(), 1u);
    EXPECT_EQ(report["triangles"], 8);
    EXPECT_EQ(report["bounds"]["max"], nlohmann::json::array({3.0, 1.0, 1.0}));

    const fs::path outFile = dir / "report.json";
    r = run({"info", input, "-o", outFile.string()});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    EXPECT_TRUE(r.out.empty());
    EXPECT_EQ(nlohmann::json::parse(std::ifstream(outFile))["groups"].size(), 2u);
}

TEST_F(CliTest, BadInputFailsWithoutLeavingAnOutputFile)
{
    const fs::path outFile = dir / "report.json";
    std::ofstream(dir / "broken.stl") << "solid x\n facet normal 0 0 0\n  outer loop\n   vertex 0 0";
    for (const std::string& input : {(dir / "missing.stl").string(), (dir / "broken.stl").string()}) {
        CliRun r = run({"info", input, "-o", outFile.string()});
        EXPECT_EQ(r.status, velmora::kExitInput) << r.err;
        EXPECT_EQ(r.err.rfind("velmora: error: " + input, 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << "one line: " << r.err;
        EXPECT_FALSE(fs::exists(outFile));
    }
    size_t leftovers = 0;
    for (const auto& entry : fs::directory_iterator(dir))
        leftovers += entry.path().string().find("velmora-tmp") != std::string::npos;
    EXPECT_EQ(leftovers, 0u);
}

}  // namespace

namespace {

// The contacts of a demo report as "first-second" name pairs.
std::set<std::string> contactPairs(const nlohmann::json& report)
{
    std::set<std::string> pairs;
    for (const auto& c : report["contacts"])
        pairs.insert(c["names"][0].get<std::string>() + "-" + c["names"][1].get<std::string>());
    return pairs;
}

bool hasDirection(const nlohmann::json& contact, double x, double y, double z)
{
    for (const auto& d : contact["directions"]) {
        if (d[0].get<double>() * x + d[1].get<double>() * y + d[2].get<double>() * z > 0.999)
            return true;
    }
    return false;
}

TEST(CliDemo, DemoAssembliesGiveTheExpectedContacts)
{
    CliRun lid = run({"demo", "lid-on-box", "--threads", "2"});
    ASSERT_EQ(lid.status, velmora::kExitOk) << lid.err;
    const nlohmann::json lidReport = nlohmann::json::parse(lid.out);
    ASSERT_EQ(lidReport["contacts"].size(), 1u);
    EXPECT_TRUE(hasDirection(lidReport["contacts"][0], 0, 0, -1));
    EXPECT_FALSE(hasDirection(lidReport["contacts"][0], 0, 0, 1));
    EXPECT_EQ(lidReport["settings"]["threads"], 2);

    CliRun peg = run({"demo", "peg-in-hole"});
    ASSERT_EQ(peg.status, velmora::kExitOk) << peg.err;
    const nlohmann::json pegReport = nlohmann::json::parse(peg.out);
    EXPECT_EQ(contactPairs(pegReport), (std::set<std::string>{"plate-washer", "plate-peg", "washer-peg"}));
    for (const auto& c : pegReport["contacts"]) {
        if (c["names"][1] == "peg" && c["names"][0] == "plate") {
            // The shaft slides along the hole's axis, both ways, and nowhere else.
            EXPECT_EQ(c["directions"].size(), 2u);
            EXPECT_TRUE(hasDirection(c, 0, 0, 1));
            EXPECT_TRUE(hasDirection(c, 0, 0, -1));
        }
        if (c["names"][0] == "washer") {
            // The peg's head holds the washer down.
            EXPECT_EQ(c["directions"].size(), 1u);
            EXPECT_TRUE(hasDirection(c, 0, 0, -1));
        }
    }

    CliRun list = run({"demo", "--list"});
    EXPECT_EQ(list.status, velmora::kExitOk);
    EXPECT_NE(list.out.find("stack"), std::string::npos);
    CliRun unknown = run({"demo", "teapot"});
    EXPECT_EQ(unknown.status, velmora::kExitInput);
    EXPECT_NE(unknown.err.find("known: lid-on-box"), std::string::npos);
}

}  // namespace
