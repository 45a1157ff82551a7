#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "velmora/Cli.h"

namespace fs = std::filesystem;

namespace {

struct CliRun {
    int status;
    std::string out;
    std::string err;
};

CliRun run(std::vector<std::string> args)
{
    args.insert(args.begin(), "velmora");
    std::vector<const char*> argv;
    for (const std::string& a : args)
        argv.push_back(a.c_str());
    std::ostringstream out, err;
    const int status = velmora::runCli(static_cast<int>(argv.size()), argv.data(), out, err);
    return {status, out.str(), err.str()};
}

class CliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir = fs::temp_directory_path() /
              ("velmora-cli-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir);
        fs::create_directories(dir);
        std::ofstream(dir / "pair.obj") << "o left\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 2 3\nf 1 2 4\nf 1 3 4\nf 2 3 4\n"
                                           "o right\nv 2 0 0\nv 3 0 0\nv 2 1 0\nv 2 0 1\nf 5 6 7\nf 5 6 8\nf 5 7 8\nf 6 7 8\n";
    }
    void TearDown() override { fs::remove_all(dir); }
    fs::path dir;
};

TEST_F(CliTest, VersionHelpAndUsageErrors)
{
    CliRun version = run({"--version"});
    EXPECT_EQ(version.status, velmora::kExitOk);
    EXPECT_EQ(version.out, "velmora 1.0.0.17 2022-7\n");

    CliRun help = run({"--help"});
    EXPECT_EQ(help.status, velmora::kExitOk);
    EXPECT_NE(help.out.find("info"), std::string::npos);

    for (const std::vector<std::string>& bad : {std::vector<std::string>{}, {"bogus"}, {"info"},
                                                {"info", "x.stl", "--group-by", "part"}}) {
        CliRun r = run(bad);
        EXPECT_EQ(r.status, velmora::kExitUsage) << r.err;
        EXPECT_TRUE(r.out.empty());
        EXPECT_NE(r.err.find("velmora"), std::string::npos);
    }
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
        leftovers += entry.path().string().find(".partial-") != std::string::npos;
    EXPECT_EQ(leftovers, 0u);
}

}  // namespace
