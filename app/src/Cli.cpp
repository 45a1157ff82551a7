#include "velmora/Cli.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <ostream>

#include "VelmoraVersion.h"
#include "kxSystem.h"
#include "velmora/Import.h"
#include "velmora/OutputFile.h"

namespace velmora {
namespace {

using json = nlohmann::ordered_json;

json vectorJson(const Wm4::Vector3<float>& v) { return json::array({v[0], v[1], v[2]}); }

// Options shared by every command that reads an assembly.
struct InputOptions {
    std::vector<std::string> inputs;
    std::string groupBy = "mesh";
    std::string output = "-";
};

void addInputOptions(CLI::App& command, InputOptions& options)
{
    command.add_option("inputs", options.inputs, "Mesh files or directories (one part per file)")
        ->required()
        ->type_name("INPUT");
    command.add_option("--group-by", options.groupBy, "Parts that move as one: mesh, node or file")
        ->check(CLI::IsMember({"mesh", "node", "file"}))
        ->capture_default_str();
    command.add_option("-o,--output", options.output, "Report file, or - for standard output")->capture_default_str();
}

json assemblyJson(const Assembly& assembly)
{
    json parts = json::array();
    std::vector<unsigned> groupOfPart(assembly.parts.size());
    for (unsigned g = 0; g < assembly.groups.size(); ++g)
        for (unsigned p : assembly.groups[g].parts)
            groupOfPart[p] = g;
    for (unsigned p = 0; p < assembly.parts.size(); ++p) {
        const Part& part = assembly.parts[p];
        parts.push_back({{"name", part.name},
                         {"file", part.file},
                         {"node", part.node},
                         {"group", groupOfPart[p]},
                         {"triangles", part.mesh->GetTriangleQuantity()},
                         {"vertices", part.mesh->GetVertexBuffer()->GetVertexQuantity()}});
    }
    json groups = json::array();
    for (const Group& group : assembly.groups)
        groups.push_back({{"name", group.name}, {"parts", group.parts}});
    Wm4::Vector3<float> lo, hi;
    assemblyBounds(assembly, lo, hi);
    return {{"parts", parts},
            {"groups", groups},
            {"triangles", assembly.triangleCount()},
            {"bounds", {{"min", vectorJson(lo)}, {"max", vectorJson(hi)}}},
            {"warnings", assembly.warnings}};
}

int runInfo(const InputOptions& options, std::ostream& out, std::ostream& err)
{
    OutputFile output(options.output, out);
    kx::kxTimer timer;
    Assembly assembly = importAssembly(options.inputs, {parseGroupBy(options.groupBy)});
    for (const std::string& warning : assembly.warnings)
        err << "velmora: warning: " << warning << "\n";
    json report = {{"velmora", Velmora::Version::GetDescStringMajorMinorReleaseRevision(false)},
                   {"inputs", options.inputs},
                   {"groupBy", options.groupBy}};
    report.update(assemblyJson(assembly));
    report["timings"] = {{"importMs", timer.getElapsedMs()}};
    output.stream() << report.dump(2) << "\n";
    output.commit();
    return kExitOk;
}

}  // namespace

int runCli(int argc, const char* const* argv, std::ostream& out, std::ostream& err)
{
    CLI::App app{"velmora: how an assembly of part meshes comes apart"};
    app.name("velmora");
    app.set_version_flag("--version", std::string("velmora ") +
                                          Velmora::Version::GetDescStringMajorMinorReleaseRevisionDate());
    app.require_subcommand(1);

    InputOptions infoOptions;
    CLI::App* info = app.add_subcommand("info", "Import an assembly and report its parts, groups and bounds");
    addInputOptions(*info, infoOptions);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        out << app.help();
        return kExitOk;
    } catch (const CLI::CallForVersion& e) {
        out << e.what() << "\n";
        return kExitOk;
    } catch (const CLI::ParseError& e) {
        err << "velmora: " << e.what() << "\n" << "Run 'velmora --help' for usage.\n";
        return kExitUsage;
    }

    try {
        if (info->parsed())
            return runInfo(infoOptions, out, err);
    } catch (const InputError& e) {
        err << "velmora: error: " << e.what() << "\n";
        return kExitInput;
    } catch (const std::exception& e) {
        err << "velmora: internal error: " << e.what() << "\n";
        return kExitInternal;
    }
    return kExitUsage;
}

}  // namespace velmora
