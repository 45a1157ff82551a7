// STEP assemblies written by OpenCASCADE's own writer, read back through the
// importer: names, tree, placements, colours, units, tessellation and the
// contacts that follow; broken files answer with one error naming the file.
#ifdef VELMORA_WITH_STEP

#include <gtest/gtest.h>

#include <BRepBuilderAPI_Transform.hxx>
#include <BRepPrimAPI_MakeCone.hxx>
#include <BRepPrimAPI_MakeSphere.hxx>
#include <gp_Ax2.hxx>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "CliRun.h"
#include "GltfTree.h"
#include "StdoutCapture.h"
#include "StepWriter.h"
#include "AssemblyChecks.h"
#include "velmora/Import.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;
using namespace step_test;
using velmora::Assembly;
using velmora::Colour;
using Vec3 = Wm4::Vector3<float>;

using namespace assembly_test;

namespace {

const Colour kRed{1, 0, 0, 1}, kGreen{0, 1, 0, 1}, kBlue{0, 0, 1, 1};

class StepImportTest : public velmora_test::TempDirTest {
protected:
    StepImportTest() : TempDirTest("velmora-step-") {}

    std::string path(const std::string& name) const { return (dir / name).string(); }

    // A plate with four bores, one bolt product placed in each: the second
    // instance coloured green on the instance, the fourth named.
    std::string writeFlange(const std::string& name, const char* unit = "MM")
    {
        XdeBuilder doc;
        const TDF_Label top = doc.addAssembly("flange-assembly");
        doc.addInstance(top, doc.addPart(flangePlate(), "plate", kBlue), gp_Trsf());
        const TDF_Label boltPart = doc.addPart(bolt(), "bolt", kRed);
        for (int k = 0; k < 4; ++k)
            doc.addInstance(top, boltPart, translation(kBoreCentres[k][0], kBoreCentres[k][1], 0),
                            k == 3 ? "bolt-special" : "", k == 1 ? std::optional<Colour>(kGreen) : std::nullopt);
        doc.write(path(name), unit);
        return path(name);
    }

    // machine: a base, and a motor sub-assembly (housing and shaft) turned by
    // 90° about z and moved to (50, 10, 10).
    std::string writeMachine(const std::string& name)
    {
        XdeBuilder doc;
        const TDF_Label top = doc.addAssembly("machine");
        doc.addInstance(top, doc.addPart(box(0, 0, 0, 100, 60, 10), "base"), gp_Trsf());
        const TDF_Label motor = doc.addAssembly("motor");
        doc.addInstance(motor, doc.addPart(box(0, 0, 0, 40, 20, 20), "housing"), gp_Trsf());
        doc.addInstance(motor, doc.addPart(cylinder(20, 10, 3, 20, 40), "shaft"), gp_Trsf());
        doc.addInstance(top, motor, rotationZ(90, 50, 10, 10));
        doc.write(path(name));
        return path(name);
    }

};

std::string textOf(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// An entity instance of a STEP file, to edit: its label ("#12") and its
// top-level arguments, found at [begin, end) of the file's text.
struct StepInstance {
    std::string label;
    std::vector<std::string> args;
    size_t begin = 0, end = 0;
};

// The last (or first) instance of `type` in `text`.
StepInstance findInstance(const std::string& text, const std::string& type, bool last = true)
{
    const std::string needle = " " + type + "(";
    const size_t at = last ? text.rfind(needle) : text.find(needle);
    StepInstance instance;
    if (at == std::string::npos) {
        ADD_FAILURE() << "no " << type;
        return instance;
    }
    const size_t hash = text.rfind('#', at);
    instance.label = text.substr(hash, text.find(' ', hash) - hash);
    instance.begin = at + needle.size();
    int depth = 0;
    std::string arg;
    for (size_t k = instance.begin; k < text.size() && instance.end == 0; ++k) {
        const char c = text[k];
        if (depth == 0 && (c == ',' || c == ')')) {
            instance.args.push_back(arg);
            arg.clear();
            instance.end = c == ')' ? k : 0;
            continue;
        }
        depth += c == '(' ? 1 : c == ')' ? -1 : 0;
        arg += c;
    }
    return instance;
}

// `text` with the arguments of `instance` replaced by its `args`.
std::string withArguments(const std::string& text, const StepInstance& instance)
{
    std::string joined = instance.args.empty() ? "" : instance.args[0];
    for (size_t k = 1; k < instance.args.size(); ++k)
        joined += "," + instance.args[k];
    return text.substr(0, instance.begin) + joined + text.substr(instance.end);
}

// `text` with argument `index` of the last instance of `type` set to `value`.
std::string withLastArgument(const std::string& text, const std::string& type, size_t index, const std::string& value)
{
    StepInstance instance = findInstance(text, type);
    instance.args.at(index) = value;
    return withArguments(text, instance);
}

unsigned partIndex(const Assembly& assembly, const std::string& name)
{
    for (unsigned p = 0; p < assembly.parts.size(); ++p)
        if (assembly.parts[p].name == name)
            return p;
    ADD_FAILURE() << "no part " << name;
    return 0;
}

void expectNear(const Vec3& actual, const Vec3& expected, float tolerance, const std::string& what)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(actual[i], expected[i], tolerance) << what << " axis " << i;
}

// Distinct vertices of the part on the circle of `radius` around (x, y) at height z.
int verticesOnCircle(const velmora::Part& part, float x, float y, float z, float radius)
{
    std::set<std::tuple<float, float>> found;
    const kx::kxVertexBuffer& vb = *part.mesh->GetVertexBuffer();
    for (int v = 0; v < vb.GetVertexQuantity(); ++v) {
        const Vec3 p = part.mesh->World.ApplyForward(vb.Position3(v));
        if (std::abs(p.Z() - z) < 1e-3f && std::abs(std::hypot(p.X() - x, p.Y() - y) - radius) < 1e-2f)
            found.insert({p.X(), p.Y()});
    }
    return int(found.size());
}

TEST_F(StepImportTest, BoltedFlangeKeepsNamesColoursPlacementsAndUnits)
{
    const Assembly assembly = velmora::importAssembly({writeFlange("flange.step")});
    ASSERT_EQ(assembly.parts.size(), 5u);
    std::vector<std::string> names;
    for (const velmora::Part& part : assembly.parts)
        names.push_back(part.name);
    EXPECT_EQ(names, (std::vector<std::string>{"plate", "bolt", "bolt#2", "bolt#3", "bolt-special"}));
    EXPECT_EQ(assembly.units, "mm");
    EXPECT_TRUE(assembly.warnings.empty()) << assembly.warnings.front();
    EXPECT_EQ(assembly.groups.size(), 5u);

    const std::map<std::string, Colour> colours = {
        {"plate", kBlue}, {"bolt", kRed}, {"bolt#2", kGreen}, {"bolt#3", kRed}, {"bolt-special", kRed}};
    for (const auto& [name, colour] : colours) {
        const velmora::Part& part = assembly.parts[partIndex(assembly, name)];
        EXPECT_EQ(part.node, "flange-assembly") << name;
        ASSERT_TRUE(part.colour.has_value()) << name;
        EXPECT_NEAR(part.colour->r, colour.r, 1e-3) << name;
        EXPECT_NEAR(part.colour->g, colour.g, 1e-3) << name;
        EXPECT_NEAR(part.colour->b, colour.b, 1e-3) << name;
    }

    // The four bolts share one tessellation, each placed in its bore.
    const char* bolts[4] = {"bolt", "bolt#2", "bolt#3", "bolt-special"};
    for (int k = 0; k < 4; ++k) {
        const velmora::Part& part = assembly.parts[partIndex(assembly, bolts[k])];
        EXPECT_EQ(part.mesh->GetVertexBuffer(), assembly.parts[1].mesh->GetVertexBuffer());
        Vec3 lo, hi;
        partBounds(part, lo, hi);
        const float cx = float(kBoreCentres[k][0]), cy = float(kBoreCentres[k][1]);
        expectNear(lo, {cx - 8, cy - 8, 0}, 0.05f, bolts[k]);
        expectNear(hi, {cx + 8, cy + 8, 15}, 0.05f, bolts[k]);
        EXPECT_NEAR(signedVolume(part), M_PI * (25 * 10 + 64 * 5), 0.01 * M_PI * (25 * 10 + 64 * 5)) << bolts[k];
    }
    const velmora::Part& plate = assembly.parts[0];
    EXPECT_NEAR(signedVolume(plate), 100000 - 4 * M_PI * 25 * 10, 100.0);
    Vec3 lo, hi;
    velmora::assemblyBounds(assembly, lo, hi);
    expectNear(lo, {0, 0, 0}, 1e-3f, "assembly min");
    expectNear(hi, {100, 100, 15}, 1e-3f, "assembly max");
    // The default tessellation gives a 10 mm bore at least 32 segments.
    EXPECT_GE(verticesOnCircle(plate, 20, 20, 10, 5), 32);
}

TEST_F(StepImportTest, TessellationOptionsAndThreadCount)
{
    const std::string file = writeFlange("flange.stp");
    velmora::ImportOptions coarse;
    coarse.deflection = 2.0;
    coarse.angularDeflection = 60.0;
    const Assembly rough = velmora::importAssembly({file}, coarse);
    EXPECT_LT(verticesOnCircle(rough.parts[0], 20, 20, 10, 5), 32);
    EXPECT_LT(rough.triangleCount(), velmora::importAssembly({file}).triangleCount());
    const cli_test::CliRun run =
        cli_test::run({"info", file, "--deflection", "2", "--angular-deflection", "60", "-o", "-"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(nlohmann::json::parse(run.out)["triangles"], rough.triangleCount());
    EXPECT_EQ(cli_test::run({"info", file, "--angular-deflection", "91"}).status, 2);

    // The meshes do not depend on how many threads tessellate them.
    velmora::ImportOptions one, many;
    one.threads = 1;
    many.threads = 3;
    const Assembly a = velmora::importAssembly({file}, one), b = velmora::importAssembly({file}, many);
    ASSERT_EQ(a.parts.size(), b.parts.size());
    for (size_t p = 0; p < a.parts.size(); ++p) {
        const kx::kxTriMesh &ma = *a.parts[p].mesh, &mb = *b.parts[p].mesh;
        ASSERT_EQ(ma.GetTriangleQuantity(), mb.GetTriangleQuantity());
        ASSERT_EQ(ma.GetVertexBuffer()->GetVertexQuantity(), mb.GetVertexBuffer()->GetVertexQuantity());
        EXPECT_TRUE(std::equal(ma.GetIndexBuffer()->GetData(), ma.GetIndexBuffer()->GetData() + 3 * ma.GetTriangleQuantity(),
                               mb.GetIndexBuffer()->GetData()));
        for (int v = 0; v < ma.GetVertexBuffer()->GetVertexQuantity(); ++v)
            ASSERT_EQ(ma.GetVertexBuffer()->Position3(v), mb.GetVertexBuffer()->Position3(v));
    }
}

TEST_F(StepImportTest, InchFileReadsInMillimetres)
{
    const Assembly mm = velmora::importAssembly({writeFlange("flange-mm.step")});
    const Assembly inch = velmora::importAssembly({writeFlange("flange-in.step", "INCH")});
    EXPECT_EQ(inch.units, "mm");
    ASSERT_EQ(inch.parts.size(), mm.parts.size());
    for (size_t p = 0; p < mm.parts.size(); ++p) {
        Vec3 loA, hiA, loB, hiB;
        partBounds(mm.parts[p], loA, hiA);
        partBounds(inch.parts[p], loB, hiB);
        expectNear(loB, loA, 0.05f, mm.parts[p].name);
        expectNear(hiB, hiA, 0.05f, mm.parts[p].name);
    }
}

TEST_F(StepImportTest, NestedSubAssemblyIsPlacedByItsRotation)
{
    const std::string file = writeMachine("machine.step");
    const Assembly assembly = velmora::importAssembly({file});
    ASSERT_EQ(assembly.parts.size(), 3u);
    const velmora::Part& housing = assembly.parts[partIndex(assembly, "housing")];
    const velmora::Part& shaft = assembly.parts[partIndex(assembly, "shaft")];
    EXPECT_EQ(assembly.parts[partIndex(assembly, "base")].node, "machine");
    EXPECT_EQ(housing.node, "machine/motor");
    EXPECT_EQ(shaft.node, "machine/motor");
    Vec3 lo, hi;
    partBounds(housing, lo, hi);
    expectNear(lo, {30, 10, 10}, 1e-3f, "housing min");
    expectNear(hi, {50, 50, 30}, 1e-3f, "housing max");
    partBounds(shaft, lo, hi);
    expectNear((lo + hi) * 0.5f, {40, 30, 40}, 0.05f, "shaft centre");
    EXPECT_NEAR(hi.Z() - lo.Z(), 20, 1e-3);

    // Every child of the top assembly moves as one: the base alone, the motor as one.
    const Assembly grouped = velmora::importAssembly({file}, {velmora::GroupBy::Level, 1});
    ASSERT_EQ(grouped.groups.size(), 2u);
    EXPECT_EQ(grouped.groups[0].name, "base");
    EXPECT_EQ(grouped.groups[1].name, "machine/motor");
    EXPECT_EQ(grouped.groups[1].parts, (std::vector<unsigned>{1, 2}));
    // One level deeper every part of this tree is on its own.
    EXPECT_EQ(velmora::importAssembly({file}, {velmora::GroupBy::Level, 2}).groups.size(), 3u);

    // The same tree as glTF gives the same groups at every level.
    gltf_test::writeMachine(path("machine.gltf"));
    for (unsigned level : {1u, 2u}) {
        const Assembly step = velmora::importAssembly({file}, {velmora::GroupBy::Level, level});
        const Assembly gltf = velmora::importAssembly({path("machine.gltf")}, {velmora::GroupBy::Level, level});
        EXPECT_EQ(groupsByName(step), groupsByName(gltf)) << "level " << level;
    }
}

TEST_F(StepImportTest, MirroredSolidFacesOutwards)
{
    XdeBuilder doc;
    const TDF_Label top = doc.addAssembly("brackets");
    const TopoDS_Shape bracket = box(10, 0, 0, 30, 20, 5);
    gp_Trsf mirror;
    mirror.SetMirror(gp_Ax2(gp::Origin(), gp::DX()));  // x -> -x
    doc.addInstance(top, doc.addPart(bracket, "bracket"), gp_Trsf());
    doc.addInstance(top, doc.addPart(BRepBuilderAPI_Transform(bracket, mirror, true).Shape(), "bracket-mirrored"),
                    gp_Trsf());
    doc.write(path("brackets.step"));
    const Assembly assembly = velmora::importAssembly({path("brackets.step")});
    ASSERT_EQ(assembly.parts.size(), 2u);
    for (const velmora::Part& part : assembly.parts)
        EXPECT_NEAR(signedVolume(part), 20 * 20 * 5, 1e-2) << part.name;
    Vec3 lo, hi;
    partBounds(assembly.parts[1], lo, hi);
    expectNear(lo, {-30, 0, 0}, 1e-3f, "mirrored min");
    expectNear(hi, {-10, 20, 5}, 1e-3f, "mirrored max");
}

TEST_F(StepImportTest, SolidsWithAPoleOrAnApexClose)
{
    XdeBuilder doc;
    const TDF_Label top = doc.addAssembly("tips");
    doc.addInstance(top, doc.addPart(BRepPrimAPI_MakeSphere(gp_Pnt(0, 0, 0), 5).Shape(), "ball"), gp_Trsf());
    doc.addInstance(top, doc.addPart(BRepPrimAPI_MakeCone(gp_Ax2(gp_Pnt(20, 0, 0), gp::DZ()), 5, 0, 10).Shape(), "cone"),
                    gp_Trsf());
    doc.write(path("tips.step"));
    const Assembly assembly = velmora::importAssembly({path("tips.step")});
    EXPECT_TRUE(assembly.warnings.empty()) << assembly.warnings.front();
    ASSERT_EQ(assembly.parts.size(), 2u);
    EXPECT_NEAR(signedVolume(assembly.parts[0]), 4.0 / 3.0 * M_PI * 125, 0.01 * 4.0 / 3.0 * M_PI * 125);
    EXPECT_NEAR(signedVolume(assembly.parts[1]), M_PI * 25 * 10 / 3, 0.01 * M_PI * 25 * 10 / 3);
}

TEST_F(StepImportTest, ContactsFollowTheBoltedFlange)
{
    const cli_test::CliRun run = cli_test::run({"contacts", writeFlange("flange.step"), "-o", "-"});
    ASSERT_EQ(run.status, 0) << run.err;
    const nlohmann::json report = nlohmann::json::parse(run.out);
    EXPECT_EQ(report["units"], "mm");
    EXPECT_EQ(report["parts"][2]["colour"], nlohmann::json({0.0, 1.0, 0.0, 1.0}));
    std::set<std::string> boltsTouchingPlate;
    for (const nlohmann::json& contact : report["contacts"]) {
        const std::string a = contact["names"][0], b = contact["names"][1];
        ASSERT_TRUE(a == "plate" || b == "plate") << a << " touches " << b;
        boltsTouchingPlate.insert(a == "plate" ? b : a);
        // The bolt leaves the plate straight up and only so.
        const double sense = a == "plate" ? -1.0 : 1.0;
        for (const nlohmann::json& d : contact["directions"]) {
            EXPECT_NEAR(sense * d[2].get<double>(), 1.0, 1e-3) << d;
        }
    }
    EXPECT_EQ(boltsTouchingPlate, (std::set<std::string>{"bolt", "bolt#2", "bolt#3", "bolt-special"}));
}

TEST_F(StepImportTest, BrokenFilesAreOneErrorNamingTheFile)
{
    const std::string good = writeFlange("good.step");
    std::ifstream in(good, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), {});
    XdeBuilder faceOnly;
    faceOnly.addPart(squareFace(), "sheet");
    faceOnly.write(path("sheet.step"));
    // Cycles the converter would follow for ever: the motor's last part
    // replaced by the motor itself (as a product), or by the whole machine
    // (as a representation).
    const std::string machine = textOf(writeMachine("machine.step"));
    StepInstance usage = findInstance(machine, "NEXT_ASSEMBLY_USAGE_OCCURRENCE");
    usage.args.at(4) = usage.args.at(3);
    std::ofstream(path("used-cycle.step")) << withArguments(machine, usage);
    StepInstance placement = findInstance(machine, "REPRESENTATION_RELATIONSHIP");
    placement.args.at(2) = findInstance(machine, "SHAPE_DEFINITION_REPRESENTATION", false).args.at(1);
    std::ofstream(path("placed-cycle.step")) << withArguments(machine, placement);
    // Damage: a solid whose shell does not exist; an edge of a face that is
    // itself (OpenCASCADE's parser recurses for ever on it).
    std::ofstream(path("dangling.step")) << withLastArgument(machine, "MANIFOLD_SOLID_BREP", 1, "#999999");
    const StepInstance edge = findInstance(machine, "ORIENTED_EDGE");
    std::ofstream(path("edge-loop.step")) << withLastArgument(machine, "ORIENTED_EDGE", 3, edge.label);
    struct Case {
        std::string file, expected;
    };
    const std::vector<Case> cases = {
        {path("half.step"), ": cannot read: not a valid STEP file (corrupt or truncated)"},
        {path("garbage.STEP"), ": cannot read: not a valid STEP file (corrupt or truncated)"},
        {path("sheet.step"), ": cannot read: the file holds no solid"},
        {path("dangling.step"), ": cannot read: not a valid STEP file (corrupt or truncated): Unresolved Reference"},
        {path("edge-loop.step"), ": cannot read: the importer failed"},
        {path("used-cycle.step"), ": cannot read: the assembly refers to itself (cyclic reference at #"},
        {path("placed-cycle.step"), ": cannot read: the assembly refers to itself (cyclic reference at #"},
    };
    std::ofstream(path("half.step"), std::ios::binary) << text.substr(0, text.size() / 2);
    std::ofstream(path("garbage.STEP"), std::ios::binary) << "ISO-10303-21;\nHEADER;\nthis is not STEP\n";
    for (const Case& c : cases) {
        try {
            velmora::importAssembly({c.file});
            ADD_FAILURE() << c.file << " was accepted";
        } catch (const velmora::InputError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(c.file + c.expected, 0), 0u) << e.what();
        }
        const cli_test::CliRun run = cli_test::run({"info", c.file, "-o", "-"});
        EXPECT_EQ(run.status, 3);
        EXPECT_TRUE(run.out.empty());
        EXPECT_EQ(run.err.rfind("velmora: error: " + c.file, 0), 0u) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    }
}

TEST_F(StepImportTest, AnUnreadableSolidIsSkippedAndTheRestPlanned)
{
    const std::string file = path("broken.step");
    std::ofstream(file) << withLastArgument(textOf(writeMachine("machine.step")), "CLOSED_SHELL", 1, "()");
    const cli_test::CliRun run = cli_test::run({"plan", file, "-o", "-"});
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string warning = file + ": part 'shaft' holds no solid that could be read; skipped";
    EXPECT_EQ(run.err, "velmora: warning: " + warning + "\n");
    const nlohmann::json report = nlohmann::json::parse(run.out);
    EXPECT_EQ(report["warnings"], nlohmann::json::array({warning}));
    ASSERT_EQ(report["parts"].size(), 2u);
    EXPECT_EQ(report["parts"][0]["name"], "base");
    EXPECT_EQ(report["parts"][1]["name"], "housing");
}

TEST_F(StepImportTest, AFolderMixingFormatsReadsEveryFile)
{
    fs::create_directories(dir / "mixed");
    writeMachine("mixed/machine.STEP");
    std::ofstream(path("mixed/tetra.obj")) << "v 0 0 50\nv 1 0 50\nv 0 1 50\nv 0 0 51\nf 1 3 2\nf 1 2 4\nf 1 4 3\nf 2 3 4\n";
    std::ofstream(path("mixed/notes.txt")) << "not a mesh";
    const Assembly assembly = velmora::importAssembly({path("mixed")});
    std::vector<std::string> names;
    for (const velmora::Part& part : assembly.parts)
        names.push_back(part.name);
    EXPECT_EQ(names, (std::vector<std::string>{"machine/base", "machine/housing", "machine/shaft", "tetra"}));
    EXPECT_EQ(assembly.units, "mm");
}

TEST_F(StepImportTest, IgesSolidsReadThroughTheSamePath)
{
    XdeBuilder doc;
    doc.addPart(flangePlate(), "plate", kBlue);
    doc.writeIges(path("plate.IGS"));
    const Assembly assembly = velmora::importAssembly({path("plate.IGS")});
    ASSERT_EQ(assembly.parts.size(), 1u);
    EXPECT_EQ(assembly.parts[0].name, "plate");
    EXPECT_EQ(assembly.units, "mm");
    EXPECT_TRUE(assembly.warnings.empty()) << assembly.warnings.front();
    EXPECT_NEAR(signedVolume(assembly.parts[0]), 100000 - 4 * M_PI * 25 * 10, 100.0);
}

TEST_F(StepImportTest, KernelMessagesAreHiddenOrOnStandardError)
{
    const std::string file = path("garbage.step");
    std::ofstream(file) << "ISO-10303-21;\nHEADER;\nthis is not STEP\n";
    for (bool verbose : {false, true}) {
        std::ostringstream err;
        std::streambuf* savedErr = std::cerr.rdbuf(err.rdbuf());
        velmora_test::StdoutCapture out;
        velmora::ImportOptions options;
        options.verbose = verbose;
        EXPECT_THROW(velmora::importAssembly({file}, options), velmora::InputError);
        std::cerr.rdbuf(savedErr);
        EXPECT_EQ(out.text(), "") << "verbose " << verbose;
        EXPECT_EQ(err.str().find("StepFile") != std::string::npos, verbose) << err.str();
    }
}

}  // namespace

#else

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "CliRun.h"

TEST(StepImportWithoutKernel, StepInputIsRefusedClearly)
{
    const std::string file = (std::filesystem::temp_directory_path() / "velmora-no-kernel.step").string();
    std::ofstream(file) << "ISO-10303-21;\n";
    const cli_test::CliRun run = cli_test::run({"info", file});
    std::filesystem::remove(file);
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "velmora: error: " + file + ": cannot read: built without STEP support\n");
}

#endif
