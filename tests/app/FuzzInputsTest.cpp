// The fuzzers' seeds and every input that once made a reader or the command
// line fail, replayed on each test run: seeds read, regressions end in a
// clean input or usage error, never a crash or an internal error.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "CliRun.h"
#include "velmora/Import.h"
#include "velmora/PlanReader.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;

namespace {

const fs::path kFuzzDir = fs::path(VELMORA_EXAMPLES_DIR) / ".." / "fuzz";

std::vector<fs::path> filesIn(const fs::path& folder)
{
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

class FuzzInputs : public velmora_test::TempDirTest {
protected:
    FuzzInputs() : TempDirTest("velmora-fuzz-") {}

    // The mesh file as the importer would meet it, alone in a folder.
    std::string placed(const fs::path& file)
    {
        const fs::path copy = dir / file.filename();
        fs::copy_file(file, copy, fs::copy_options::overwrite_existing);
        return copy.string();
    }

};

TEST_F(FuzzInputs, SeedsReadAndRegressionsAreInputErrors)
{
    size_t replayed = 0;
#ifdef VELMORA_WITH_STEP
    const std::vector<std::string> readers = {"gltf", "stl", "obj", "step"};
#else
    const std::vector<std::string> readers = {"gltf", "stl", "obj"};
#endif
    for (const std::string& reader : readers) {
        for (const fs::path& seed : filesIn(kFuzzDir / "seeds" / reader)) {
            const velmora::Assembly assembly = velmora::importAssembly({placed(seed)});
            EXPECT_FALSE(assembly.parts.empty()) << seed;
        }
        for (const fs::path& input : filesIn(kFuzzDir / "regressions" / reader)) {
            EXPECT_THROW(velmora::importAssembly({placed(input)}), velmora::InputError) << input;
            ++replayed;
        }
    }
    EXPECT_GE(replayed, 17u);
}

TEST_F(FuzzInputs, PlanSeedsParseAndRegressionsAreInputErrors)
{
    auto text = [](const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    for (const fs::path& seed : filesIn(kFuzzDir / "seeds" / "plan"))
        EXPECT_FALSE(velmora::parsePlanReport(text(seed)).hierarchy.empty()) << seed;
    const std::vector<fs::path> regressions = filesIn(kFuzzDir / "regressions" / "plan");
    EXPECT_GE(regressions.size(), 4u);
    for (const fs::path& input : regressions)
        EXPECT_THROW(velmora::parsePlanReport(text(input)), velmora::InputError) << input;
}

TEST_F(FuzzInputs, CommandLinesEndInUsageOrInputErrors)
{
    const fs::path before = fs::current_path();
    fs::current_path(dir);  // relative names in the argument lists meet an empty folder
    for (const char* kind : {"seeds", "regressions"}) {
        for (const fs::path& file : filesIn(kFuzzDir / kind / "options")) {
            std::vector<std::string> args;
            std::ifstream lines(file);
            for (std::string line; std::getline(lines, line);)
                args.push_back(line);
            const cli_test::CliRun r = cli_test::run(args);
            EXPECT_NE(r.status, velmora::kExitInternal) << file << "\n" << r.err;
            if (r.status != velmora::kExitOk) {
                EXPECT_EQ(r.err.rfind("velmora: error: ", 0), 0u) << file << "\n" << r.err;
                EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << file << "\n" << r.err;
            }
        }
    }
    fs::current_path(before);
    EXPECT_TRUE(fs::is_empty(dir)) << "an argument list left a file behind";
}

}  // namespace
