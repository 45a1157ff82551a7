#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "CliRun.h"
#include "velmora/Assembly.h"
#include "velmora/ViewerPage.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;

namespace {

using cli_test::CliRun;
using cli_test::run;

std::vector<unsigned char> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

std::string readFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

size_t occurrences(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

// The text of the <script> element with id `id`.
std::string scriptText(const std::string& page, const std::string& id)
{
    const size_t open = page.find("<script id=\"" + id + "\"");
    const size_t start = page.find('>', open) + 1;
    return open == std::string::npos ? "" : page.substr(start, page.find("</script>", start) - start);
}

TEST(ViewerPage, Base64FollowsTheStandardVectors)
{
    const std::vector<std::pair<std::string, std::string>> table = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, encoded] : table)
        EXPECT_EQ(velmora::base64(bytesOf(plain)), encoded) << plain;
    EXPECT_EQ(velmora::base64({0xff, 0xfe, 0x00}), "//4A");
    EXPECT_EQ(velmora::base64({0xfb, 0xff}), "+/8=");
}

TEST(ViewerPage, GzipStreamsCarryTheirHeaderAndTheInputSize)
{
    for (size_t size : {size_t(0), size_t(1), size_t(100000)}) {
        const std::vector<unsigned char> input(size, 'a');
        const std::vector<unsigned char> packed = velmora::gzipped(input);
        ASSERT_GE(packed.size(), 18u);
        EXPECT_EQ(packed[0], 0x1f);
        EXPECT_EQ(packed[1], 0x8b);
        EXPECT_EQ(packed[2], 8) << "deflate";
        const size_t n = packed.size();
        const uint32_t isize = packed[n - 4] | packed[n - 3] << 8 | packed[n - 2] << 16 | uint32_t(packed[n - 1]) << 24;
        EXPECT_EQ(isize, size);
        EXPECT_EQ(velmora::gzipped(input), packed) << "the same bytes every time";
    }
    EXPECT_LT(velmora::gzipped(std::vector<unsigned char>(100000, 'a')).size(), 1000u);
}

TEST(ViewerPage, EmbeddedJsonCannotCloseItsScriptAndReadsBackTheSame)
{
    const velmora::Json report = {{"name", "a</script><b>"}, {"more", {"x</", "<", "/"}}, {"n", 1.5}};
    const std::string text = velmora::scriptSafeJson(report);
    EXPECT_EQ(text.find("</"), std::string::npos) << text;
    EXPECT_EQ(velmora::Json::parse(text), report);
}

TEST(ViewerPage, PageHoldsTheGlbTheReportAndTheScriptAndNothingToFetch)
{
    const std::vector<unsigned char> glb = {'g', 'l', 'T', 'F', 2, 0, 0, 0, 0xff};
    const velmora::Json report = {{"parts", velmora::Json::array({{{"name", "</script>"}}})}};
    if (!velmora::viewerBuiltIn()) {
        EXPECT_THROW(velmora::viewerPage("t", glb, report), velmora::InputError);
        GTEST_SKIP() << "this build has no viewer";
    }
    const std::string page = velmora::viewerPage("a<b & \"c\"", glb, report);
    EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0u);
    EXPECT_NE(page.find("<title>a&lt;b &amp; &quot;c&quot;</title>"), std::string::npos);
    EXPECT_EQ(occurrences(page, "<script"), 4u);
    EXPECT_EQ(occurrences(page, "</script>"), 4u);
    EXPECT_EQ(scriptText(page, "velmora-glb"), velmora::base64(velmora::gzipped(glb)));
    EXPECT_EQ(scriptText(page, "velmora-viewer"), velmora::viewerScript());
    EXPECT_EQ(velmora::Json::parse(scriptText(page, "velmora-report")), report);
    for (const char* fetching : {" src=\"http", " href=\"http", "<link", "<iframe"})
        EXPECT_EQ(page.find(fetching), std::string::npos) << fetching;

    const std::string empty = velmora::viewerPage("t", glb, velmora::Json());
    EXPECT_EQ(scriptText(empty, "velmora-report"), "");
}

class ViewerCli : public velmora_test::TempDirTest {
protected:
    ViewerCli() : TempDirTest("velmora-page-") {}
    std::string at(const char* name) const { return (dir / name).string(); }
    const std::string pins = std::string(VELMORA_EXAMPLES_DIR) + "/assemblies/pins.glb";
};

TEST_F(ViewerCli, ExplodeAndRemoveEmbedWhatTheyWrite)
{
    if (!velmora::viewerBuiltIn()) {
        CliRun r = run({"explode", pins, "-o", at("v.glb"), "--html", at("v.html")});
        EXPECT_EQ(r.status, velmora::kExitInput);
        EXPECT_EQ(r.err, "velmora: error: --html: built without the viewer\n");
        EXPECT_TRUE(fs::is_empty(dir)) << "nothing is written";
        GTEST_SKIP() << "this build has no viewer";
    }
    CliRun r = run({"explode", pins, "-o", at("v.glb"), "--report", at("v.json"), "--html", at("v.html")});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    EXPECT_NE(r.err.find("velmora: wrote " + at("v.html") + " (page of "), std::string::npos) << r.err;
    const std::string page = readFile(dir / "v.html");
    EXPECT_EQ(scriptText(page, "velmora-glb"), velmora::base64(velmora::gzipped(bytesOf(readFile(dir / "v.glb")))));
    EXPECT_EQ(velmora::Json::parse(scriptText(page, "velmora-report")), velmora::Json::parse(readFile(dir / "v.json")));

    // A removal's page without its glTF: the steps, the hierarchy and the offsets of the removal's view.
    r = run({"remove", pins, "--part", "dowel#1:9:6:8:7", "-o", at("r.json"), "--html", at("r.html")});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    EXPECT_EQ(r.out.rfind("Taking out dowel#1:9:6:8:7 (sides#1:5:2:4:3 stays in place): 1 step\n", 0), 0u) << r.out;
    const velmora::Json embedded = velmora::Json::parse(scriptText(readFile(dir / "r.html"), "velmora-report"));
    const velmora::Json written = velmora::Json::parse(readFile(dir / "r.json"));
    EXPECT_EQ(embedded["removal"], written["removal"]);
    EXPECT_EQ(embedded["parts"], written["parts"]);
    EXPECT_EQ(embedded["explosion"]["offsets"].size(), written["groups"].size());
    // The removal rewrites the tree: one split per step that moves something.
    EXPECT_EQ(embedded["hierarchy"]["nodes"].size(), 2 * written["removal"]["steps"].size() - 1);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 5) << "no .glb for remove";

    // The demo writes its page beside its report and its glTF.
    r = run({"demo", "stack", "-o", at("stack.json")});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    for (const char* name : {"stack.json", "stack.glb", "stack.html"})
        EXPECT_TRUE(fs::exists(dir / name)) << name;
    EXPECT_NE(readFile(dir / "stack.html").find("<title>stack: exploded view</title>"), std::string::npos);
}

TEST_F(ViewerCli, PageOutputsAreCheckedBeforeTheWork)
{
    if (!velmora::viewerBuiltIn())
        GTEST_SKIP() << "this build has no viewer";
    // A page sharing its file with another output or an input is a usage error; a missing folder, bad input.
    const int usage = velmora::kExitUsage, badInput = velmora::kExitInput;
    const std::vector<std::pair<int, std::vector<std::string>>> bad = {
        {usage, {"explode", pins, "-o", at("v.glb"), "--html", at("v.glb")}},
        {usage, {"explode", pins, "-o", at("v.glb"), "--report", at("v.json"), "--html", at("v.json")}},
        {usage, {"explode", pins, "-o", "-", "--html", "-"}},
        {badInput, {"explode", pins, "-o", at("v.glb"), "--html", at("missing/v.html")}},
        {usage, {"remove", pins, "--part", "sides#1:5:2:4:3", "--gltf", at("r.glb"), "--html", at("r.glb")}},
        {badInput, {"remove", pins, "--part", "sides#1:5:2:4:3", "--html", at("missing/r.html")}},
        {usage, {"explode", at("copy.glb"), "-o", at("v.glb"), "--html", at("copy.glb")}},
    };
    fs::copy_file(pins, dir / "copy.glb");
    const std::string input = readFile(dir / "copy.glb");
    for (const auto& [status, args] : bad) {
        CliRun r = run(args);
        EXPECT_EQ(r.status, status) << args.back();
        EXPECT_EQ(r.err.rfind("velmora: error: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_TRUE(r.out.empty()) << "no work before the check: " << r.out;
        EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1)
            << "nothing written, nothing left behind for " << args.back();
    }
    EXPECT_EQ(readFile(dir / "copy.glb"), input) << "the input is untouched";
}

}  // namespace
