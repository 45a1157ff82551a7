#include "velmora/Cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <ostream>

#include "VelmoraVersion.h"
#include "kxSystem.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Explode.h"
#include "velmora/Import.h"
#include "velmora/OutputFile.h"
#include "velmora/VerificationReport.h"
#include "velmora/Removal.h"
#include "velmora/Report.h"
#include "velmora/TerminalProgress.h"

namespace velmora {
namespace {

struct InputFlags {
    std::vector<std::string> inputs;
    std::string groupBy = "mesh";
};

// Options of the commands that plan an assembly.
struct PlanFlags {
    unsigned threads = 0;
    float angleTolerance = 5.0f;
    bool verbose = false;
    bool noDistant = false;
    bool noVerify = false;
    std::vector<std::string> keepTogether;  // comma-separated part names, one set per use
};

struct ExplodeFlags {
    std::string glb;
    std::string report;
    std::string pose = "animated";
    ExplodeOptions options;
};

struct RemoveFlags {
    std::string part;
    std::string report;
    std::string glb;
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

void addOutputFlag(CLI::App& command, std::string& output, const std::string& what)
{
    command.add_option("-o,--output", output, what + " file, or - for standard output");
}

// The planner's flags; with `hierarchy`, also those of the hierarchy search.
void addPlanFlags(CLI::App& command, PlanFlags& flags, bool hierarchy)
{
    command.add_option("--threads", flags.threads, "Worker threads (0: one per hardware thread)")
        ->check(CLI::Range(0u, 256u))
        ->capture_default_str();
    command.add_option("--angle-tolerance", flags.angleTolerance, "Degrees under which removal directions merge")
        ->check(CLI::Range(0.001f, 89.999f))
        ->capture_default_str();
    command.add_flag("-v,--verbose", flags.verbose, "Show the library's progress lines on standard error");
    if (!hierarchy)
        return;
    command.add_flag("--no-distant", flags.noDistant,
                     "Ignore parts that block each other without touching (faster, less safe splits)");
    command.add_flag("--no-verify", flags.noVerify,
                     "Skip sweeping every split for collisions and re-planning the ones that collide");
    command.add_option("--keep-together", flags.keepTogether,
                       "Comma-separated part names that come out as one sub-assembly (repeatable)")
        ->type_name("PART,PART…");
}

void addExplodeFlags(CLI::App& command, ExplodeFlags& flags)
{
    command.add_option("--policy", flags.options.policy,
                       "Animation schedule: 0 one split at a time, 1 by depth, 2 independent splits together")
        ->check(CLI::Range(0u, 2u))
        ->capture_default_str();
    command.add_option("--play-style", flags.options.playStyle,
                       "0 assemble, 1 explode, 2 assemble and back, 3 explode and back")
        ->check(CLI::Range(0u, 3u))
        ->capture_default_str();
    command.add_option("--split-distance", flags.options.splitDistance,
                       "Gap between the two sides of every split (0: a tenth of the bounds' diagonal)")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command.add_option("--pose", flags.pose, "animated: the explode animation; exploded: the final pose only")
        ->check(CLI::IsMember({"animated", "exploded"}))
        ->capture_default_str();
}

Assembly importWithWarnings(const InputFlags& flags, std::ostream& err)
{
    Assembly assembly = importAssembly(flags.inputs, {parseGroupBy(flags.groupBy)});
    for (const std::string& warning : assembly.warnings)
        err << "velmora: warning: " << warning << "\n";
    return assembly;
}

void writeJson(const Json& report, OutputFile& file)
{
    file.stream() << report.dump(2) << "\n";
    file.commit();
}

// The keep-together sets as group ids: every named part's group.
std::vector<std::vector<unsigned>> keepTogetherGroups(const Assembly& assembly, const std::vector<std::string>& sets)
{
    std::vector<std::vector<unsigned>> groups;
    for (const std::string& set : sets) {
        std::vector<unsigned> ids;
        std::stringstream names(set);
        for (std::string name; std::getline(names, name, ',');)
            if (!name.empty())
                ids.push_back(groupOfPart(assembly, findPart(assembly, name)));
        groups.push_back(std::move(ids));
    }
    return groups;
}

// Runs the library on `assembly`: its own output lines go to standard error
// and a progress bar shows when standard error is a terminal.
std::unique_ptr<Plan> runPlanner(const Assembly& assembly, const PlanFlags& flags, bool hierarchy, std::ostream& err)
{
    TerminalProgress progress(err, TerminalProgress::stderrIsTerminal());
    PlanOptions options;
    options.threads = flags.threads;
    options.angleTolerance = flags.angleTolerance;
    options.progress = &progress;
    options.verbose = flags.verbose;
    options.onStage = [&](const std::string& stage) { progress.setStage(stage); };
    options.hierarchy = hierarchy;
    options.distantContacts = !flags.noDistant;
    options.keepTogether = keepTogetherGroups(assembly, flags.keepTogether);
    options.verify = hierarchy && !flags.noVerify;
    std::unique_ptr<Plan> plan;
    {
        LibraryOutput lines(flags.verbose);
        plan = planAssembly(assembly, options);
    }
    progress.finish();
    for (const std::string& warning : verificationWarnings(*plan))
        err << "velmora: warning: " << warning << "\n";
    return plan;
}

// Adds the import time to a report's timings.
void addImportTime(Json& report, double importMs)
{
    report["timings"]["importMs"] = importMs;
    report["timings"]["totalMs"] = report["timings"]["totalMs"].get<double>() + importMs;
}

Json inputsJson(const InputFlags& inputs)
{
    return {{"inputs", inputs.inputs}, {"groupBy", inputs.groupBy}};
}

int runInfo(const InputFlags& inputs, const std::string& output, std::ostream& out, std::ostream& err)
{
    OutputFile file(output, out);
    kx::kxTimer timer;
    Json report = assemblyReport(importWithWarnings(inputs, err));
    report["timings"] = {{"importMs", timer.getElapsedMs()}};
    writeJson(report, file);
    return kExitOk;
}

// The contacts report, or with `hierarchy` the plan report, of the inputs.
int runPlanReport(const InputFlags& inputs, const PlanFlags& flags, bool hierarchy, const std::string& output,
                  std::ostream& out, std::ostream& err)
{
    OutputFile file(output, out);  // fail on an unwritable output before the work
    kx::kxTimer timer;
    const Assembly assembly = importWithWarnings(inputs, err);
    const double importMs = timer.getElapsedMs();
    const std::unique_ptr<Plan> plan = runPlanner(assembly, flags, hierarchy, err);
    Json report = inputsJson(inputs);
    report.update(hierarchy ? planReport(*plan) : contactsReport(*plan));
    addImportTime(report, importMs);
    writeJson(report, file);
    return kExitOk;
}

// The report file a command writes beside its glTF when `report` names one
// (null otherwise); opened before the work so an unwritable path fails early.
std::unique_ptr<OutputFile> openOptionalReport(const std::string& report, const std::string& glb,
                                               std::ostream& out)
{
    if (glb == "-" && report == "-")
        throw InputError("the glTF and the report cannot both go to standard output");
    return report.empty() ? nullptr : std::make_unique<OutputFile>(report, out);
}

// Explodes a planned assembly, writes the GLB and, when `reportFile` is
// given, `report` completed with the exploded view.
void writeExplodedView(const Plan& plan, const ExplodeFlags& flags, bool verbose, OutputFile* reportFile,
                       Json report, std::ostream& err)
{
    ExplodeOptions options = flags.options;
    options.staticPose = flags.pose == "exploded";
    kx::kxTimer timer;
    ExplodedView view;
    {
        LibraryOutput lines(verbose);
        view = explodeAssembly(plan, options);
    }
    for (const std::string& warning : explodedPoseWarnings(plan, view))
        err << "velmora: warning: " << warning << "\n";
    const double explodeMs = timer.getElapsedMs();
    writeGlbFile(view.glb, flags.glb);
    if (flags.glb != "-") {
        err << "velmora: wrote " << flags.glb << " (" << plan.assembly().parts.size() << " parts, "
            << (options.staticPose ? "exploded pose" : "animation of ");
        if (!options.staticPose)
            err << view.duration << " s";
        err << ")\n";
    }
    if (!reportFile)
        return;
    report.update(explodeReport(plan, view, options));
    report["timings"]["explodeMs"] = explodeMs;
    writeJson(report, *reportFile);
}

int runExplode(const InputFlags& inputs, const PlanFlags& flags, const ExplodeFlags& explode, std::ostream& out,
               std::ostream& err)
{
    const std::unique_ptr<OutputFile> reportFile = openOptionalReport(explode.report, explode.glb, out);
    kx::kxTimer timer;
    const Assembly assembly = importWithWarnings(inputs, err);
    const double importMs = timer.getElapsedMs();
    const std::unique_ptr<Plan> plan = runPlanner(assembly, flags, true, err);
    Json report = inputsJson(inputs);
    report["timings"]["importMs"] = importMs;
    writeExplodedView(*plan, explode, flags.verbose, reportFile.get(), report, err);
    return kExitOk;
}

// Three decimals, with no "-0.000" for components that round to zero.
std::string formatDirection(const Wm4::Vector3<double>& d)
{
    auto rounded = [](double x) { return std::round(x * 1000.0) / 1000.0 + 0.0; };
    char text[96];
    std::snprintf(text, sizeof text, "(%.3f, %.3f, %.3f)", rounded(d[0]), rounded(d[1]), rounded(d[2]));
    return text;
}

std::string joinedPartNames(const Assembly& assembly, const std::vector<unsigned>& groups)
{
    std::string names;
    for (const std::string& name : partNamesOf(assembly, groups))
        names += (names.empty() ? "" : ", ") + name;
    return names;
}

// The steps as a numbered list for people.
void printRemovalSteps(const Assembly& assembly, const RemovalProcedure& removal, std::ostream& out)
{
    const size_t n = removal.steps.size();
    out << "Taking out " << assembly.parts[removal.part].name << ": " << n << (n == 1 ? " step" : " steps")
        << "\n";
    for (size_t s = 0; s < n; ++s) {
        const RemovalStep& step = removal.steps[s];
        out << "  " << s + 1 << ". ";
        if (step.sense == 0)
            out << "take out " << joinedPartNames(assembly, step.groups) << "\n";
        else
            out << "move " << joinedPartNames(assembly, step.groups) << " along " << formatDirection(step.direction)
                << "\n";
    }
}

int runRemove(const InputFlags& inputs, const PlanFlags& flags, const RemoveFlags& remove, std::ostream& out,
              std::ostream& err)
{
    const std::unique_ptr<OutputFile> reportFile = openOptionalReport(remove.report, remove.glb, out);
    kx::kxTimer timer;
    const Assembly assembly = importWithWarnings(inputs, err);
    const unsigned part = findPart(assembly, remove.part);
    const double importMs = timer.getElapsedMs();
    const std::unique_ptr<Plan> plan = runPlanner(assembly, flags, true, err);
    timer.reset();
    RemovalProcedure removal;
    {
        LibraryOutput lines(flags.verbose);
        removal = planRemoval(*plan, part, !remove.glb.empty());
    }
    const double removalMs = timer.getElapsedMs();
    const bool listToStdout = remove.report != "-" && remove.glb != "-";
    printRemovalSteps(assembly, removal, listToStdout ? out : err);
    if (reportFile) {
        Json report = inputsJson(inputs);
        report.update(removalReport(*plan, removal));
        report["timings"]["importMs"] = importMs;
        report["timings"]["removalMs"] = removalMs;
        writeJson(report, *reportFile);
    }
    if (!remove.glb.empty()) {
        ExplodeFlags steps;
        steps.glb = remove.glb;
        steps.options.policy = 0;  // one step after the other
        writeExplodedView(*plan, steps, flags.verbose, nullptr, Json::object(), err);
    }
    return kExitOk;
}

std::string viewBesideReport(const std::string& report)
{
    return std::filesystem::path(report).replace_extension(".glb").string();
}

int runDemo(const std::string& name, bool list, const PlanFlags& flags, const std::string& output,
            const std::string& glb, std::ostream& out, std::ostream& err)
{
    if (list) {
        for (const std::string& n : demoAssemblyNames())
            out << n << "\n";
        return kExitOk;
    }
    OutputFile file(output, out);
    kx::kxTimer timer;
    const Assembly assembly = makeDemoAssembly(name);
    const double importMs = timer.getElapsedMs();
    const std::unique_ptr<Plan> plan = runPlanner(assembly, flags, true, err);
    Json report = {{"demo", name}};
    report.update(planReport(*plan));
    addImportTime(report, importMs);
    const Json& nodes = report["hierarchy"]["nodes"];
    const auto splits = std::count_if(nodes.begin(), nodes.end(), [](const Json& n) { return !n["split"].is_null(); });
    err << "velmora: " << name << ": " << assembly.parts.size() << " parts, " << plan->diagram().getNoContacts()
        << " contacts, " << splits << " splits, "
        << plan->builder().getNoDistantConstraints() << " distant blocking constraints\n";
    // The exploded view goes beside a report written to a file.
    const std::string viewPath = !glb.empty() || output == "-" ? glb : viewBesideReport(output);
    if (!viewPath.empty()) {
        ExplodeFlags explode;
        explode.glb = viewPath;
        writeExplodedView(*plan, explode, flags.verbose, nullptr, Json::object(), err);
    }
    writeJson(report, file);
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

    // Only one command runs, so all of them share the flags they have in common.
    InputFlags inputs;
    PlanFlags planning;
    std::string report = "-";

    CLI::App* info = app.add_subcommand("info", "Import an assembly and report its parts, groups and bounds");
    addInputFlags(*info, inputs);
    addOutputFlag(*info, report, "Report");

    CLI::App* contacts = app.add_subcommand(
        "contacts", "Report the contacts between parts, their removal directions and the direction set");
    addInputFlags(*contacts, inputs);
    addOutputFlag(*contacts, report, "Report");
    addPlanFlags(*contacts, planning, false);

    CLI::App* plan = app.add_subcommand("plan", "Report the contacts and the disassembly hierarchy");
    addInputFlags(*plan, inputs);
    addOutputFlag(*plan, report, "Report");
    addPlanFlags(*plan, planning, true);

    ExplodeFlags explodeFlags;
    CLI::App* explode = app.add_subcommand("explode", "Write the exploded view as an animated binary glTF (.glb)");
    addInputFlags(*explode, inputs);
    explode->add_option("-o,--output", explodeFlags.glb, "The .glb file, or - for standard output")->required();
    explode->add_option("--report", explodeFlags.report, "Also write the plan and the offsets as JSON");
    addPlanFlags(*explode, planning, true);
    addExplodeFlags(*explode, explodeFlags);

    RemoveFlags removeFlags;
    CLI::App* remove = app.add_subcommand("remove", "List the ordered steps that take one part out");
    addInputFlags(*remove, inputs);
    remove->add_option("--part", removeFlags.part, "Name of the part to take out")->required();
    remove->add_option("-o,--output", removeFlags.report, "Also write the steps as JSON (- for standard output)");
    remove->add_option("--gltf", removeFlags.glb, "Also write the steps as an animated .glb");
    addPlanFlags(*remove, planning, true);

    std::string demoName = "stack";
    bool demoList = false;
    std::string demoGlb;
    CLI::App* demo = app.add_subcommand("demo", "Plan a built-in sample assembly and report it");
    demo->add_option("name", demoName, "Sample assembly (see --list)")->capture_default_str();
    demo->add_flag("--list", demoList, "List the sample assemblies");
    addOutputFlag(*demo, report, "Report");
    demo->add_option("--gltf", demoGlb,
                     "Write the exploded view as an animated .glb here (default: beside a report file)");
    addPlanFlags(*demo, planning, false);

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
            return runInfo(inputs, report, out, err);
        if (contacts->parsed() || plan->parsed())
            return runPlanReport(inputs, planning, plan->parsed(), report, out, err);
        if (explode->parsed())
            return runExplode(inputs, planning, explodeFlags, out, err);
        if (remove->parsed())
            return runRemove(inputs, planning, removeFlags, out, err);
        if (demo->parsed())
            return runDemo(demoName, demoList, planning, report, demoGlb, out, err);
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
