// Bad files and bad options through the command line: every one ends with
// the exact exit status and one-line message a user sees, never a crash or an
// internal error. Also: what the tool does with awkward but valid inputs
// (links to nothing, names that are not UTF-8) and how a crashing or hanging
// third-party reader is contained.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "CliRun.h"
#include "velmora/Assembly.h"
#include "velmora/ChildProcess.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;
using json = nlohmann::json;

namespace {

using cli_test::CliRun;
using cli_test::run;

class BadInputs : public velmora_test::TempDirTest {
protected:
    BadInputs() : TempDirTest("velmora-bad-") {}

    std::string write(const std::string& name, const std::string& bytes)
    {
        std::ofstream(dir / name, std::ios::binary) << bytes;
        return (dir / name).string();
    }

};

constexpr const char* kTetra = "o t\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 2 3\nf 1 2 4\nf 1 3 4\nf 2 3 4\n";
const std::string kTetraPoints = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\n";

std::string bytesOf(const void* data, size_t size) { return std::string(static_cast<const char*>(data), size); }

// One triangle: nine floats, then the corner indices 0 1 2 as bytes (39 bytes).
std::string triangleBuffer(uint8_t lastIndex = 2)
{
    const float positions[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    const uint8_t indices[3] = {0, 1, lastIndex};
    return bytesOf(positions, sizeof positions) + bytesOf(indices, sizeof indices);
}

// A glTF with one indexed triangle in "tri.bin", then changed by `patch`.
std::string gltfText(const std::function<void(json&)>& patch)
{
    json doc = json::parse(R"({
      "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}],
      "nodes": [{"name": "tri", "mesh": 0}],
      "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 1}]}],
      "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3"},
                    {"bufferView": 1, "componentType": 5121, "count": 3, "type": "SCALAR"}],
      "bufferViews": [{"buffer": 0, "byteLength": 36}, {"buffer": 0, "byteOffset": 36, "byteLength": 3}],
      "buffers": [{"uri": "tri.bin", "byteLength": 39}]
    })");
    patch(doc);
    return doc.dump();
}

// 41 nodes, each listing the next one twice: 2^40 paths to the last one.
void doublingNodes(json& doc)
{
    doc["nodes"] = json::array();
    for (int k = 0; k < 40; ++k)
        doc["nodes"].push_back({{"children", {k + 1, k + 1}}});
    doc["nodes"].push_back({{"mesh", 0}});
}

std::string binaryStl(uint32_t count, const std::vector<float>& corners)
{
    std::string s(80, ' ');
    s += bytesOf(&count, 4);
    for (size_t t = 0; t * 9 < corners.size(); ++t)
        s += std::string(12, '\0') + bytesOf(corners.data() + 9 * t, 36) + std::string(2, '\0');
    return s;
}

const std::string kFacet = " facet normal 0 0 1\n  outer loop\n   vertex 0 0 0\n   vertex 1 0 0\n   vertex 0 1 0\n"
                           "  endloop\n endfacet\n";

TEST_F(BadInputs, EveryBadFileAndOptionHasItsExitStatusAndMessage)
{
    write("tri.bin", triangleBuffer());
    write("bad-index.bin", triangleBuffer(7));
    ASSERT_EQ(::mkfifo((dir / "pipe.bin").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo((dir / "pipe.stl").c_str(), 0600), 0);
    fs::create_directories(dir / "empty-folder");
    const std::string obj = write("ok.obj", kTetra);
    write("bad.mtl", "newmtl a\nKd 1 0\n");
    const std::string d = dir.string() + "/";
    auto gltf = [&](const std::string& name, const std::function<void(json&)>& patch) {
        return write(name + ".gltf", gltfText(patch));
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    constexpr int usage = velmora::kExitUsage, input = velmora::kExitInput;
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string message;  // after "velmora: error: "
    };
    const std::vector<Case> cases = {
        // The command line.
        {{}, usage, "a command is required: info, contacts, plan, explode, remove or demo"},
        {{"bogus", obj}, usage, "unknown command 'bogus'"},
        {{"--frob"}, usage, "a command is required: info, contacts, plan, explode, remove or demo"},
        {{"info"}, usage, "an input is required (mesh files or folders)"},
        {{"info", obj, "--frob"}, usage, "unknown option '--frob'"},
        {{"info", obj, "--group-by", "part"}, usage, "--group-by: unknown grouping 'part' (expected mesh, node, file, subassembly or level:N)"},
        {{"plan", obj, "--threads", "300"}, usage, "--threads: must be a whole number from 0 to 256, not '300'"},
        {{"plan", obj, "--threads", "-1"}, usage, "--threads: must be a whole number from 0 to 256, not '-1'"},
        {{"plan", obj, "--threads", "2x"}, usage, "--threads: must be a whole number from 0 to 256, not '2x'"},
        {{"plan", obj, "--threads"}, usage, "--threads: a value is missing"},
        {{"plan", obj, "--angle-tolerance", "nan"}, usage,
         "--angle-tolerance: must be a number from 0.001 to 89.999, not 'nan'"},
        {{"contacts", obj, "--angle-tolerance", "90"}, usage,
         "--angle-tolerance: must be a number from 0.001 to 89.999, not '90'"},
        {{"plan", obj, "--angle-tolerance", "0x10"}, usage,
         "--angle-tolerance: must be a number from 0.001 to 89.999, not '0x10'"},
        {{"explode", obj, "-o", d + "v.glb", "--split-distance", "nan"}, usage,
         "--split-distance: must be a number from 0 to 1e+09, not 'nan'"},
        {{"explode", obj, "-o", d + "v.glb", "--split-distance", "1e38"}, usage,
         "--split-distance: must be a number from 0 to 1e+09, not '1e38'"},
        {{"explode", obj, "-o", d + "v.glb", "--split-distance", "inf"}, usage,
         "--split-distance: must be a number from 0 to 1e+09, not 'inf'"},
        {{"explode", obj, "-o", d + "v.glb", "--split-distance", "-1"}, usage,
         "--split-distance: must be a number from 0 to 1e+09, not '-1'"},
        {{"explode", obj, "-o", d + "v.glb", "--policy", "3"}, usage,
         "--policy: must be a whole number from 0 to 2, not '3'"},
        {{"explode", obj, "-o", d + "v.glb", "--play-style", "4"}, usage,
         "--play-style: must be a whole number from 0 to 3, not '4'"},
        {{"explode", obj, "-o", d + "v.glb", "--pose", "still"}, usage,
         "--pose: must be one of animated or exploded, not 'still'"},
        {{"explode", obj}, usage, "--output is required"},
        {{"remove", obj}, usage, "--part is required"},
        {{"plan", obj, "-o", obj}, usage, obj + ": the output is the input file '" + obj + "'"},
        // Files of any format.
        {{"info", d + "missing.stl"}, input, d + "missing.stl: no such file"},
        {{"info", write("empty.stl", "")}, input, d + "empty.stl: the file is empty"},
        {{"info", write("notes.txt", "hello")}, input, d + "notes.txt: unsupported format '.txt'"},
        {{"info", write("scene.dae", "<COLLADA/>")}, input, d + "scene.dae: unsupported format '.dae'"},
        {{"info", d + "pipe.stl"}, input, d + "pipe.stl: not a regular file"},
        {{"info", d + "empty-folder"}, input, d + "empty-folder: the directory holds no mesh file"},
        {{"info", write("flat.obj", "v 0 0 0\nv 1 0 0\nv 2 0 0\nf 1 2 3\n")}, input, d + "flat.obj: no triangles"},
        {{"info", write("nan.obj", "v 0 0 0\nv nan 0 0\nv 0 1 0\nf 1 2 3\n")}, input,
         d + "nan.obj: non-finite vertex coordinate"},
        {{"info", write("huge.ply", "ply\nformat ascii 1.0\nelement vertex 1000000000\nproperty float x\n"
                                    "property float y\nproperty float z\nend_header\n0 0 0\n")},
         input, d + "huge.ply: cannot read: the header declares more data than the file holds"},
        // STL.
        {{"info", write("short.stl", binaryStl(2, {0, 0, 0, 1, 0, 0, 0, 1, 0}))}, input,
         d + "short.stl: cannot read: a binary STL with a count of 2 triangles has 184 bytes, this file 134"},
        {{"info", write("cut.stl", "solid cut\n" + kFacet + kFacet)}, input,
         d + "cut.stl: cannot read: line 15: the file ends before 'endsolid'"},
        {{"info", write("word.stl", "solid w\n facet normal 0 0 1\n  outer loop\n   vertex 0 0 x\n")}, input,
         d + "word.stl: cannot read: line 4: 'x' is not a number"},
        {{"info", write("far.stl", "solid w\n facet normal 0 0 1\n  outer loop\n   vertex 1e39 0 0\n")}, input,
         d + "far.stl: cannot read: line 4: '1e39' is out of the range of a float"},
        {{"info", write("typo.stl", "solid t\n facett normal 0 0 1\n")}, input,
         d + "typo.stl: cannot read: line 2: expected 'facet' or 'endsolid', found 'facett'"},
        {{"info", write("hello.stl", "hello")}, input,
         d + "hello.stl: cannot read: neither an ASCII STL (no 'solid') nor a complete binary one"},
        {{"info", write("nan.stl", binaryStl(1, {0, 0, 0, nan, 0, 0, 0, 1, 0}))}, input,
         d + "nan.stl: non-finite vertex coordinate"},
        // OBJ and its material libraries.
        {{"info", write("word.obj", "v 0 0 x\n")}, input, d + "word.obj: cannot read: line 1: 'x' is not a number"},
        {{"info", write("wide.obj", "v 1e999999999999999999999 0 0\n")}, input,
         d + "wide.obj: cannot read: line 1: '1e999999999999999999999' is not a number"},
        {{"info", write("short-v.obj", "o s\nv 0 0\n")}, input,
         d + "short-v.obj: cannot read: line 2: a vertex has 2 numbers, fewer than 3"},
        {{"info", write("long-v.obj", "v 1 2 3 4 5 6 7\n")}, input,
         d + "long-v.obj: cannot read: line 1: a vertex has more than 6 numbers"},
        {{"info", write("five-v.obj", "v 1 2 3 4 5\n")}, input,
         d + "five-v.obj: cannot read: line 1: a vertex has 5 numbers (expected x y z, x y z w or x y z r g b)"},
        {{"info", write("weight.obj", "v 1 2 3 0\n")}, input, d + "weight.obj: cannot read: line 1: a vertex has the weight 0"},
        {{"info", write("zero.obj", kTetraPoints + "f 0 1 2\n")}, input,
         d + "zero.obj: cannot read: line 5: the vertex index 0 (indices start at 1)"},
        {{"info", write("before.obj", kTetraPoints + "f -5 1 2\n")}, input,
         d + "before.obj: cannot read: line 5: the relative index -5 points before the first one"},
        {{"info", write("past.obj", kTetraPoints + "f 1 2 9\n")}, input,
         d + "past.obj: cannot read: a face refers to the vertex 9 of 4"},
        {{"info", write("no-normal.obj", kTetraPoints + "f 1//1 2//1 3//1\n")}, input,
         d + "no-normal.obj: cannot read: a face refers to the normal 1 of 0"},
        {{"info", write("no-uv.obj", kTetraPoints + "vt 0 0\nf 1/1 2/2 3/1\n")}, input,
         d + "no-uv.obj: cannot read: a face refers to the texture coordinate 2 of 1"},
        {{"info", write("half.obj", kTetraPoints + "f 1.5 2 3\n")}, input,
         d + "half.obj: cannot read: line 5: '1.5' is not a vertex index"},
        {{"info", write("far.obj", kTetraPoints + "f 1 2 99999999999\n")}, input,
         d + "far.obj: cannot read: line 5: the index 99999999999 is out of range"},
        {{"info", write("edge.obj", kTetraPoints + "f 1 2\n")}, input,
         d + "edge.obj: cannot read: line 5: a face has 2 corners, fewer than 3"},
        {{"info", write("nul.obj", std::string("v 0 0 0\0\n", 10))}, input,
         d + "nul.obj: cannot read: a zero byte in a text file"},
        {{"info", write("paint.obj", "mtllib bad.mtl\n" + kTetraPoints + "f 1 2 3\n")}, input,
         d + "bad.mtl: cannot read: line 2: a diffuse colour has 2 numbers, fewer than 3"},
        // glTF and GLB.
        {{"info", write("garbage.glb", std::string(64, 'x'))}, input,
         d + "garbage.glb: cannot read: not a binary glTF file"},
        {{"info", write("array.gltf", "[1, 2]")}, input, d + "array.gltf: cannot read: the JSON is not an object"},
        {{"info", gltf("uri-number", [](json& g) { g["buffers"][0]["uri"] = 5; })}, input,
         d + "uri-number.gltf: cannot read: a buffer's uri is not a string"},
        {{"info", gltf("buffer-index", [](json& g) { g["bufferViews"][0]["buffer"] = 7; })}, input,
         d + "buffer-index.gltf: cannot read: a buffer index is out of range"},
        {{"info", gltf("negative-offset", [](json& g) { g["accessors"][0]["byteOffset"] = -4; })}, input,
         d + "negative-offset.gltf: cannot read: 'byteOffset' is not a non-negative integer"},
        {{"info", gltf("huge-offset", [](json& g) { g["accessors"][0]["byteOffset"] = 18446744073709551000u; })},
         input, d + "huge-offset.gltf: cannot read: an accessor reads past the end of its buffer view"},
        {{"info", gltf("huge-view", [](json& g) { g["bufferViews"][0]["byteOffset"] = 9223372036854775808u; })},
         input, d + "huge-view.gltf: cannot read: a buffer view reaches past the end of its buffer"},
        {{"info", gltf("stride-0-count", [](json& g) {
              g["bufferViews"][0]["byteStride"] = 0;
              g["accessors"][0]["count"] = 4000000000u;
          })},
         input, d + "stride-0-count.gltf: cannot read: an accessor reads past the end of its buffer view"},
        {{"info", gltf("negative-stride", [](json& g) { g["bufferViews"][0]["byteStride"] = -12; })}, input,
         d + "negative-stride.gltf: cannot read: 'byteStride' is not a non-negative integer"},
        {{"info", gltf("wide-stride", [](json& g) { g["bufferViews"][0]["byteStride"] = 4096; })}, input,
         d + "wide-stride.gltf: cannot read: a buffer view's byteStride is out of range"},
        {{"info", gltf("narrow-stride", [](json& g) { g["bufferViews"][0]["byteStride"] = 4; })}, input,
         d + "narrow-stride.gltf: cannot read: a buffer view's byteStride is out of range"},
        {{"info", gltf("doubling", doublingNodes)}, input,
         d + "doubling.gltf: cannot read: the node hierarchy places more than 100000 meshes or visits more than "
             "1000000 nodes"},
        {{"info", gltf("cycle", [](json& g) { g["nodes"][0]["children"] = {0}; })}, input,
         d + "cycle.gltf: a node reference is out of range or cyclic"},
        {{"info", gltf("root-index", [](json& g) { g["scenes"][0]["nodes"] = {5}; })}, input,
         d + "root-index.gltf: cannot read: a node index is out of range"},
        {{"info", gltf("mesh-index", [](json& g) { g["nodes"][0]["mesh"] = 3; })}, input,
         d + "mesh-index.gltf: a node refers to a mesh that does not exist"},
        {{"info", gltf("dev-zero", [](json& g) { g["buffers"][0]["uri"] = "/dev/zero"; })}, input,
         d + "dev-zero.gltf: cannot read: buffer '/dev/zero' is not a file beside the asset"},
        {{"info", gltf("parent", [](json& g) { g["buffers"][0]["uri"] = "../tri.bin"; })}, input,
         d + "parent.gltf: cannot read: buffer '../tri.bin' is not a file beside the asset"},
        {{"info", gltf("fifo", [](json& g) { g["buffers"][0]["uri"] = "pipe.bin"; })}, input,
         d + "fifo.gltf: cannot read: buffer 'pipe.bin' is not a regular file"},
        {{"info", gltf("gone", [](json& g) { g["buffers"][0]["uri"] = "gone.bin"; })}, input,
         d + "gone.gltf: cannot read: buffer 'gone.bin' does not exist"},
        {{"info", gltf("bad-index", [](json& g) { g["buffers"][0]["uri"] = "bad-index.bin"; })}, input,
         d + "bad-index.gltf: cannot read: an index refers to a vertex that does not exist"},
        {{"info", gltf("int-positions", [](json& g) { g["accessors"][0]["componentType"] = 5125; })}, input,
         d + "int-positions.gltf: positions that are not three floats or quantised integers are not supported"},
        {{"info", gltf("meshes-object", [](json& g) { g["meshes"] = json::object(); })}, input,
         d + "meshes-object.gltf: cannot read: 'meshes' is not an array"},
        {{"info", gltf("base64", [](json& g) { g["buffers"][0]["uri"] = "data:application/octet-stream;base64,A*"; })},
         input, d + "base64.gltf: malformed base64 data in a buffer"},
    };
    ASSERT_GE(cases.size(), 40u);
    for (const Case& c : cases) {
        const CliRun r = run(c.args);
        const std::string label = c.args.empty() ? "(no arguments)" : c.args[0] + " " + c.args.back();
        EXPECT_EQ(r.status, c.status) << label << "\n" << r.err;
        EXPECT_EQ(r.err, "velmora: error: " + c.message + "\n") << label;
        EXPECT_TRUE(r.out.empty()) << label;
    }
    // The unchanged document reads: the failures above come from what was changed.
    const CliRun good = run({"info", gltf("good", [](json&) {})});
    EXPECT_EQ(good.status, velmora::kExitOk) << good.err;
}

TEST_F(BadInputs, ALinkToNothingInAFolderIsSkippedWithAWarning)
{
    write("a.obj", kTetra);
    fs::create_symlink(dir / "gone.stl", dir / "z-dead.stl");
    const CliRun r = run({"info", dir.string()});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    EXPECT_EQ(r.err, "velmora: warning: " + (dir / "z-dead.stl").string() + ": the link points to nothing; skipped\n");
    EXPECT_EQ(json::parse(r.out)["parts"].size(), 1u);
}

TEST_F(BadInputs, NamesThatAreNotUtf8AreWrittenWithReplacementCharacters)
{
    write("caf\xe9.stl", "solid x\n" + kFacet + "endsolid x\n");
    write("pair.obj", std::string(kTetra) + "o caf\xe9\nv 5 0 0\nv 6 0 0\nv 5 1 0\nf 5 6 7\n");
    const CliRun r = run({"info", dir.string()});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    const json report = json::parse(r.out);  // valid UTF-8, or this throws
    std::vector<std::string> names;
    for (const json& part : report["parts"])
        names.push_back(part["name"]);
    EXPECT_EQ(names, (std::vector<std::string>{"caf\xef\xbf\xbd", "pair/t", "pair/caf\xef\xbf\xbd"}));
    const CliRun view = run({"explode", dir.string(), "-o", (dir / "view.glb").string()});
    EXPECT_EQ(view.status, velmora::kExitOk) << view.err;
}

TEST(ChildProcess, ResultsErrorsCrashesAndHangsOfTheChild)
{
    using namespace std::chrono_literals;
    const std::string big(3 << 20, 'x');  // more than a pipe holds at once
    EXPECT_EQ(velmora::runInChildProcess([&] { return big; }, 60s), big);
    EXPECT_EQ(velmora::runInChildProcess([] { return std::string(); }, 60s), "");
    // What the child writes to std::cerr reaches the caller only when asked for.
    std::ostringstream messages;
    auto noisy = []() -> std::string {
        std::cerr << "a note";
        return "result";
    };
    EXPECT_EQ(velmora::runInChildProcess(noisy, 60s, &messages), "result");
    EXPECT_EQ(messages.str(), "a note");
    try {
        velmora::runInChildProcess([]() -> std::string { throw velmora::InputError("f.obj: bad"); }, 60s);
        ADD_FAILURE() << "no error";
    } catch (const velmora::InputError& e) {
        EXPECT_STREQ(e.what(), "f.obj: bad");
    }
    struct Failure {
        std::function<std::string()> work;
        std::chrono::milliseconds limit;  // ample for a crash report under a sanitizer
        bool timedOut;
    };
    const std::vector<Failure> failures = {
        {[]() -> std::string { ::raise(SIGSEGV); return {}; }, 60s, false},
        {[]() -> std::string { std::abort(); }, 60s, false},
        {[]() -> std::string { throw std::runtime_error("not an input error"); }, 60s, false},
        {[]() -> std::string { for (;;) std::this_thread::sleep_for(1s); }, 300ms, true},
    };
    for (const Failure& f : failures) {
        try {
            velmora::runInChildProcess(f.work, f.limit);
            ADD_FAILURE() << "no failure";
        } catch (const velmora::ChildProcessFailure& e) {
            EXPECT_EQ(e.timedOut(), f.timedOut) << e.what();
        }
    }
}

}  // namespace
