// Names users type for parts: part names, node names and paths, shell-style
// patterns, and the suggestions an unknown name gets.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "CliRun.h"
#include "GltfTree.h"
#include "velmora/Import.h"
#include "velmora/Removal.h"

namespace {

velmora::Assembly namedAssembly()
{
    velmora::Assembly assembly;
    const std::pair<const char*, const char*> parts[] = {
        {"engine_camshaft-1", "engine"}, {"engine_crank-1", "engine"}, {"screw", "machine/motor"},
        {"screw#2", "machine/motor"},    {"housing", "machine/motor"}, {"motor", "machine"},
        {"base", "machine"},
    };
    for (const auto& [name, node] : parts)
        assembly.parts.push_back({name, "a.step", node, nullptr, std::nullopt});
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    return assembly;
}

TEST(PartNames, NamesNodesAndPatternsResolveToParts)
{
    const velmora::Assembly assembly = namedAssembly();
    const std::vector<std::pair<std::string, std::vector<unsigned>>> cases = {
        {"housing", {4}},         {"motor", {5}},  // a part's own name wins over the node "motor"
        {"machine/motor", {2, 3, 4}}, {"engine", {0, 1}},       {"screw*", {2, 3}},
        {"*crank*", {1}},         {"screw#?", {3}},             {"mach*", {2, 3, 4, 5, 6}},
        {"[bh]*", {4, 6}},        {"machine", {2, 3, 4, 5, 6}},
    };
    for (const auto& [name, expected] : cases)
        EXPECT_EQ(velmora::findParts(assembly, name), expected) << name;
}

TEST(PartNames, UnknownNamesSuggestByContentAndDistance)
{
    const velmora::Assembly assembly = namedAssembly();
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"camshaft", "no part is named 'camshaft'; containing it: engine_camshaft-1; closest: "},
        {"hosing", "no part is named 'hosing'; closest: housing, engine, base"},
        {"bolt*", "no part is named 'bolt*'; closest: "},
    };
    for (const auto& [name, expected] : cases) {
        try {
            velmora::findParts(assembly, name);
            ADD_FAILURE() << name << " was found";
        } catch (const velmora::InputError& e) {
            EXPECT_EQ(std::string(e.what()).substr(0, expected.size()), expected);
        }
    }
}

TEST(PartNames, OnePartOnlyWhenTheNamedPartsMoveAsOne)
{
    velmora::Assembly assembly = namedAssembly();
    EXPECT_EQ(velmora::findPart(assembly, "screw#2"), 3u);
    EXPECT_THROW(velmora::findPart(assembly, "machine/motor"), velmora::InputError);
    velmora::assignGroups(assembly, velmora::GroupBy::Node);
    EXPECT_EQ(velmora::findPart(assembly, "machine/motor"), 2u);
}

TEST(PartNames, KeepTogetherTakesANodeName)
{
    const std::filesystem::path file = std::filesystem::temp_directory_path() / "velmora-names-machine.gltf";
    gltf_test::writeMachine(file.string());
    const cli_test::CliRun run =
        cli_test::run({"plan", file.string(), "--keep-together", "motor", "--no-distant", "-o", "-"});
    std::filesystem::remove(file);
    ASSERT_EQ(run.status, 0) << run.err;
    const nlohmann::json report = nlohmann::json::parse(run.out);
    EXPECT_EQ(report["settings"]["keepTogether"], nlohmann::json::parse(R"([["housing", "shaft"]])"));
}

}  // namespace

namespace {

// The rod linkage of the corpus: 13 shafts in nested sub-assemblies, part
// names carrying their whole path.
TEST(PartNamesCorpus, RodLinkageShaftsByPatternAndSuggestion)
{
    const std::filesystem::path folder = std::filesystem::path(VELMORA_CORPUS_DIR) / "rod_linkage";
    if (!std::filesystem::is_directory(folder))
        GTEST_SKIP() << "no corpus at " << folder;
    const velmora::Assembly assembly = velmora::importAssembly({folder.string()});
    EXPECT_EQ(velmora::findParts(assembly, "*_shaft-1").size(), 13u);
    EXPECT_EQ(velmora::findParts(assembly, "*holder*").size(), 3u);
    try {
        velmora::findParts(assembly, "holder");
        ADD_FAILURE() << "a part is named holder";
    } catch (const velmora::InputError& e) {
        EXPECT_NE(std::string(e.what()).find("containing it: rods-1_holder-1, rods-2_holder-1, "
                                             "rods-3_holder-1; closest: "),
                  std::string::npos)
            << e.what();
    }
}

}  // namespace
