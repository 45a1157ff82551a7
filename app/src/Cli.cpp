#include "velmora/Cli.h"

#include <CLI/CLI.hpp>
#include <ostream>

#include "VelmoraVersion.h"
#include "kxSystem.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Import.h"
#include "velmora/OutputFile.h"
#include "velmora/Report.h"
#include "velmora/TerminalProgress.h"

namespace velmora {
namespace {

// Options of the commands that plan an assembly.
struct PlanFlags {
    std::string output = "-";
    unsigned threads = 0;
    float angleTolerance = 5.0f;
    bool verbose = false;
};

struct InputFlags {
    std::vector<std::string> inputs;
    std::string groupBy = "mesh";
};

void addInputFlags(CLI::App& command, InputFlags& flags)
{
    command.add_option("inputs", flags.inputs, "Mesh files or directories (a directory is one part per file)")
        ->required()
        ->type_name("INPUT");
    command.add_option("--group-by", flags.groupBy, "Parts that move as one: mesh, node or file")
        ->check(CLI::IsMember({"mesh", "node", "file"}))
        ->capture_default_str();
}

void addOutputFlag(CLI::App& command, std::string& output)
{
    command.add_option("-o,--output", output, "Report file, or - for standard output")->capture_default_str();
}

void addPlanFlags(CLI::App& command, PlanFlags& flags)
{
    addOutputFlag(command, flags.output);
    command.add_option("--threads", flags.threads, "Worker threads (0: one per hardware thread)")
        ->check(CLI::Range(0u, 256u))
        ->capture_default_str();
    command.add_option("--angle-tolerance", flags.angleTolerance, "Degrees under which removal directions merge")
        ->check(CLI::Range(0.001f, 89.999f))
        ->capture_default_str();
    command.add_flag("-v,--verbose", flags.verbose, "Show the library's progress lines on standard error");
}

Assembly importWithWarnings(const InputFlags& flags, std::ostream& err)
{
    Assembly assembly = importAssembly(flags.inputs, {parseGroupBy(flags.groupBy)});
    for (const std::string& warning : assembly.warnings)
        err << "velmora: warning: " << warning << "\n";
    return assembly;
}

int writeReport(const Json& report, const std::string& output, std::ostream& out)
{
    OutputFile file(output, out);
    file.stream() << report.dump(2) << "\n";
    file.commit();
    return kExitOk;
}

int runInfo(const InputFlags& inputs, const std::string& output, std::ostream& out, std::ostream& err)
{
    kx::kxTimer timer;
    Json report = assemblyReport(importWithWarnings(inputs, err));
    report["timings"] = {{"importMs", timer.getElapsedMs()}};
    return writeReport(report, output, out);
}

// Plans `assembly` with the library's own output lines sent to standard
// error and a progress bar when standard error is a terminal.
Json planReport(const Assembly& assembly, const PlanFlags& flags, double importMs, std::ostream& err)
{
    TerminalProgress progress(err, TerminalProgress::stderrIsTerminal());
    progress.setStage("contacts");
    std::unique_ptr<Plan> plan;
    {
        StdoutToStderr quiet;
        plan = planAssembly(assembly, {flags.threads, flags.angleTolerance, &progress, flags.verbose});
    }
    progress.finish();
    Json report = contactsReport(*plan);
    report["timings"]["importMs"] = importMs;
    report["timings"]["totalMs"] = report["timings"]["totalMs"].get<double>() + importMs;
    return report;
}

int runContacts(const InputFlags& inputs, const PlanFlags& flags, std::ostream& out, std::ostream& err)
{
    OutputFile file(flags.output, out);  // fail on an unwritable output before the work
    kx::kxTimer timer;
    const Assembly assembly = importWithWarnings(inputs, err);
    Json report = {{"inputs", inputs.inputs}, {"groupBy", inputs.groupBy}};
    report.update(planReport(assembly, flags, timer.getElapsedMs(), err));
    file.stream() << report.dump(2) << "\n";
    file.commit();
    return kExitOk;
}

int runDemo(const std::string& name, bool list, const PlanFlags& flags, std::ostream& out, std::ostream& err)
{
    if (list) {
        for (const std::string& n : demoAssemblyNames())
            out << n << "\n";
        return kExitOk;
    }
    OutputFile file(flags.output, out);
    kx::kxTimer timer;
    const Assembly assembly = makeDemoAssembly(name);
    Json report = {{"demo", name}};
    report.update(planReport(assembly, flags, timer.getElapsedMs(), err));
    file.stream() << report.dump(2) << "\n";
    file.commit();
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
    app.footer("Exit status: 0 success, 2 bad usage, 3 bad input, 4 internal error.");

    InputFlags infoInputs;
    std::string infoOutput = "-";
    CLI::App* info = app.add_subcommand("info", "Import an assembly and report its parts, groups and bounds");
    addInputFlags(*info, infoInputs);
    addOutputFlag(*info, infoOutput);

    InputFlags contactInputs;
    PlanFlags contactFlags;
    CLI::App* contacts =
        app.add_subcommand("contacts", "Report the contacts between parts, their removal directions and the direction set");
    addInputFlags(*contacts, contactInputs);
    addPlanFlags(*contacts, contactFlags);

    std::string demoName = "stack";
    bool demoList = false;
    PlanFlags demoFlags;
    CLI::App* demo = app.add_subcommand("demo", "Run the contacts report on a built-in sample assembly");
    demo->add_option("name", demoName, "Sample assembly (see --list)")->capture_default_str();
    demo->add_flag("--list", demoList, "List the sample assemblies");
    addPlanFlags(*demo, demoFlags);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return kExitOk;
    } catch (const CLI::CallForAllHelp&) {
        out << app.help("", CLI::AppFormatMode::All);
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
            return runInfo(infoInputs, infoOutput, out, err);
        if (contacts->parsed())
            return runContacts(contactInputs, contactFlags, out, err);
        if (demo->parsed())
            return runDemo(demoName, demoList, demoFlags, out, err);
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
