#include "velmora/Cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <optional>
#include <ostream>

#include "OptionChecks.h"
#include "VelmoraVersion.h"
#include "kxSystem.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Deliverables.h"
#include "velmora/Explode.h"
#include "velmora/Import.h"
#include "velmora/LogSink.h"
#include "velmora/OutputFile.h"
#include "velmora/PlanReader.h"
#include "velmora/VerificationReport.h"
#include "velmora/Removal.h"
#include "velmora/RemovalAnimation.h"
#include "velmora/RemovalInstructions.h"
#include "velmora/Report.h"
#include "velmora/TerminalProgress.h"
#include "velmora/ViewerPage.h"

namespace velmora {
namespace {

// The largest gap between the sides of a split: far beyond any assembly, small
// enough that the translations it adds up to stay finite in single precision.
constexpr double kLongestSplitDistance = 1e9;

// The commands, for the message about an unknown one.
const std::vector<std::string> kCommands = {"info", "contacts", "plan", "explode", "remove", "demo"};

// Why the command word of `argv` is not a command, or "" when it is (or when
// the first argument is an option such as --help).
std::string commandProblem(int argc, const char* const* argv)
{
    if (argc < 2)
        return "a command is required: info, contacts, plan, explode, remove or demo";
    const std::string word = argv[1];
    if (word.rfind("-", 0) == 0 || std::find(kCommands.begin(), kCommands.end(), word) != kCommands.end())
        return "";
    return "unknown command '" + word + "'";
}

struct InputFlags {
    std::vector<std::string> inputs;
    std::string groupBy = "mesh";
    double deflection = 0.0;
    double angularDeflection = 0.0;
    bool verbose = false;
};

// Options of the commands that plan an assembly.
struct PlanFlags {
    unsigned threads = 0;
    float angleTolerance = 5.0f;
    bool verbose = false;
    bool noDistant = false;
    bool noVerify = false;
    std::vector<std::string> keepTogether;  // comma-separated part names, one set per use
    bool noNormaliseScale = false;
    bool lockZeroArea = false;
};

struct ExplodeFlags {
    std::string glb;
    std::string html;
    std::string report;
    std::string pose = "animated";
    ViewRequest view;           // what stays still, the unit, the library's options
    std::string title;          // of the page
    std::string plan;           // a saved plan report to explode instead of planning
};

struct RemoveFlags {
    std::string part;
    std::string report;
    std::string glb;
    std::string html;
    ExplodeFlags view;  // how the steps' view is written and what stays still
};

CLI::Validator groupingValidator()
{
    return CLI::Validator(
        [](std::string& text) {
            try {
                parseGroupBy(text);
                return std::string();
            } catch (const InputError& e) {
                return std::string(e.what());
            }
        },
        "GROUPING");
}

void addInputFlags(CLI::App& command, InputFlags& flags)
{
    command.add_option("inputs", flags.inputs, "Mesh files or directories (a directory is one part per file)")
        ->required()
        ->type_name("INPUT");
    command.add_option("--group-by", flags.groupBy, "Parts that move as one: mesh, node, file, subassembly or level:N")
        ->check(groupingValidator())
        ->capture_default_str();
    command.add_option("--deflection", flags.deflection,
                       "STEP/IGES tessellation: largest chord error in mm (0: relative to each solid's size)")
        ->check(CLI::NonNegativeNumber);
    command.add_option("--angular-deflection", flags.angularDeflection,
                       "STEP/IGES tessellation: largest angle in degrees between neighbouring facets (0: 10)")
        ->check(CLI::Range(0.0, 90.0));
}

void addOutputFlag(CLI::App& command, std::string& output, const std::string& what)
{
    command.add_option("-o,--output", output, what + " file, or - for standard output");
}

// The planner's flags; with `hierarchy`, also those of the hierarchy search.
void addPlanFlags(CLI::App& command, PlanFlags& flags, bool hierarchy)
{
    command.add_option("--threads", flags.threads, "Worker threads (0: one per hardware thread)")
        ->check(wholeNumberFrom(0, 256))
        ->capture_default_str();
    command.add_option("--angle-tolerance", flags.angleTolerance, "Degrees under which removal directions merge")
        ->check(numberFrom(0.001, 89.999))
        ->capture_default_str();
    command.add_flag("-v,--verbose", flags.verbose, "Show the library's progress lines on standard error");
    command.add_flag("--no-normalise-scale", flags.noNormaliseScale,
                     "Plan in the input's own units (results then depend on the unit it was drawn in)");
    command.add_flag("--lock-zero-area", flags.lockZeroArea,
                     "Let contacts only along an edge or at a corner lock their parts, as the library does");
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

// How the view is written: shared by the commands that write one.
void addViewFlags(CLI::App& command, ExplodeFlags& flags)
{
    command.add_option("--fix", flags.view.fix, "The part that stays still (default: the largest)")->type_name("PART");
    command.add_option("--units", flags.view.units, "Length unit of inputs that do not state one")
        ->check(CLI::IsMember({"mm", "cm", "m", "in"}))
        ->capture_default_str();
    command.add_flag("--compress,!--no-compress", flags.view.options.glb.compress,
                     "Quantised, meshopt-compressed geometry (--no-compress: plain floats for any viewer)")
        ->capture_default_str();
    command.add_flag("--lines", flags.view.options.glb.lines, "A line from every moving part's place to its exploded one");
    command.add_option("--crease-angle", flags.view.options.glb.creaseAngle, "Degrees between faces above which edges stay sharp")
        ->check(CLI::Range(0.0f, 180.0f))
        ->capture_default_str();
    command.add_option("--speed", flags.view.options.speed,
                       "Travel per second in diagonals of the assembly (0: one second per split)")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
}

void addExplodeFlags(CLI::App& command, ExplodeFlags& flags)
{
    command.add_option("--policy", flags.view.options.policy,
                       "Animation schedule: 0 one split at a time, 1 by depth, 2 independent splits together")
        ->check(wholeNumberFrom(0, 2))
        ->capture_default_str();
    command.add_option("--play-style", flags.view.options.playStyle,
                       "0 assemble, 1 explode, 2 assemble and back, 3 explode and back")
        ->check(wholeNumberFrom(0, 3))
        ->capture_default_str();
    command.add_option("--split-distance", flags.view.options.splitDistance,
                       "Gap between the two sides of every split (0: a tenth of the bounds' diagonal)")
        ->check(numberFrom(0, kLongestSplitDistance))
        ->capture_default_str();
    command.add_option("--pose", flags.pose, "animated: the explode animation; exploded: the final pose only")
        ->check(oneOf({"animated", "exploded"}))
        ->capture_default_str();
    command.add_flag("--explode-inside", flags.view.options.explodeInside,
                     "Explode the --keep-together sets too (default: each moves as one piece)");
    addViewFlags(command, flags);
}

// Refuses outputs that would overwrite an input or each other; run before
// any output is opened.
void checkOutputs(const InputFlags& inputs, const std::vector<std::string>& outputs)
{
    checkOutputsAgainstInputs(outputs, inputs.inputs.empty() ? std::vector<std::string>{}
                                                              : listInputFiles(inputs.inputs));
}

Assembly importWithWarnings(const InputFlags& flags, std::ostream& err)
{
    ImportOptions options;
    options.groupBy = parseGroupBy(flags.groupBy);
    options.groupLevel = parseGroupLevel(flags.groupBy);
    options.deflection = flags.deflection;
    options.angularDeflection = flags.angularDeflection;
    options.verbose = flags.verbose;
    Assembly assembly = importAssembly(flags.inputs, options);
    for (const std::string& warning : assembly.warnings)
        err << "velmora: warning: " << warning << "\n";
    return assembly;
}

void writeJson(const Json& report, OutputFile& file)
{
    // Names come from files and may hold bytes that are not UTF-8: replaced, not fatal.
    file.stream() << report.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
    file.commit();
}

// The keep-together sets as group ids: the groups of every part each name
// names (a part, a node, or a pattern).
std::vector<std::vector<unsigned>> keepTogetherGroups(const Assembly& assembly, const std::vector<std::string>& sets)
{
    std::vector<std::vector<unsigned>> groups;
    for (const std::string& set : sets) {
        std::vector<unsigned> ids;
        std::stringstream names(set);
        for (std::string name; std::getline(names, name, ',');)
            if (!name.empty())
                for (unsigned part : findParts(assembly, name)) {
                    const unsigned group = groupOfPart(assembly, part);
                    if (std::find(ids.begin(), ids.end(), group) == ids.end())
                        ids.push_back(group);
                }
        groups.push_back(std::move(ids));
    }
    return groups;
}

// Runs the library on `assembly`: its own output lines go to standard error
// and a progress bar shows when standard error is a terminal.
// Plans `assembly`; with `saved`, under its settings and taking its tree's
// splits instead of searching.
std::unique_ptr<Plan> runPlanner(const Assembly& assembly, const PlanFlags& flags, bool hierarchy, std::ostream& err,
                                 const SavedPlan* saved = nullptr)
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
    options.normaliseScale = !flags.noNormaliseScale;
    options.freeZeroAreaContacts = !flags.lockZeroArea;
    options.keepTogether = keepTogetherGroups(assembly, flags.keepTogether);
    options.verify = hierarchy && !flags.noVerify;
    if (saved) {
        options.angleTolerance = saved->angleTolerance;
        options.distantContacts = saved->distantContacts;
        options.keepTogether = keepTogetherGroupIds(*saved, assembly);
        options.savedPlan = saved;
        // The saved contacts and verdicts are those of the report's frame and checks.
        options.normaliseScale = saved->normaliseScale.value_or(options.normaliseScale);
        options.freeZeroAreaContacts = saved->freeZeroAreaContacts.value_or(options.freeZeroAreaContacts);
        if (saved->holdsConstraints())
            options.verify = options.verify && saved->verification.has_value();
    }
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
    checkOutputs(inputs, {output});
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
    checkOutputs(inputs, {output});
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

// The output `path` names, or null when it is empty (not asked for).
std::unique_ptr<OutputFile> openOptionalOutput(const std::string& path, std::ostream& out)
{
    return path.empty() ? nullptr : std::make_unique<OutputFile>(path, out);
}


// The page `--html` asks for (null when it does not), opened before the
// work; the caller has checked it against the inputs and the other outputs.
std::unique_ptr<OutputFile> openPage(const std::string& html, std::ostream& out)
{
    if (html.empty())
        return nullptr;
    requireViewer();
    return std::make_unique<OutputFile>(html, out);
}

void writePage(OutputFile& file, const ExplodeFlags& flags, const std::vector<unsigned char>& glb, const Json& report,
               std::ostream& err)
{
    const std::string page = viewerPage(flags.title, glb, report);
    file.stream() << page;
    file.commit();
    if (flags.html != "-") {
        char size[32];
        std::snprintf(size, sizeof size, "%.2f MB", double(page.size()) / 1e6);
        err << "velmora: wrote " << flags.html << " (page of " << size << ")\n";
    }
}

// Writes what was opened for `view`: its GLB to `glbFile`, `report` completed
// with it to `reportFile`, and the page to `pageFile` (each may be null).
void writeView(const Plan& plan, const ExplodeFlags& flags, const ExplodeOptions& options, const ExplodedView& view,
               double explodeMs, OutputFile* glbFile, OutputFile* reportFile, Json report, std::ostream& err,
               OutputFile* pageFile)
{
    if (glbFile) {
        glbFile->stream().write(reinterpret_cast<const char*>(view.glb.data()), std::streamsize(view.glb.size()));
        glbFile->commit();
    }
    if (glbFile && flags.glb != "-") {
        err << "velmora: wrote " << flags.glb << " (" << plan.assembly().parts.size() << " parts, "
            << (options.staticPose ? "exploded pose" : "animation of ");
        if (!options.staticPose)
            err << view.duration << " s";
        err << ")\n";
    }
    if (!reportFile && !pageFile)
        return;
    report.update(explodeReport(plan, view, options));
    report["timings"]["explodeMs"] = explodeMs;
    if (reportFile)
        writeJson(report, *reportFile);
    if (pageFile)
        writePage(*pageFile, flags, view.glb, report, err);
}

// Explodes a planned assembly with `options` and writes what was opened for it.
void writeExplodedView(const Plan& plan, const ExplodeFlags& flags, const ExplodeOptions& options, bool verbose,
                       OutputFile* glbFile, OutputFile* reportFile, Json report, std::ostream& err,
                       OutputFile* pageFile = nullptr)
{
    kx::kxTimer timer;
    ExplodedView view;
    {
        LibraryOutput lines(verbose);
        view = explodeAssembly(plan, options);
    }
    for (const std::string& warning : explodedPoseWarnings(plan, view))
        err << "velmora: warning: " << warning << "\n";
    writeView(plan, flags, options, view, timer.getElapsedMs(), glbFile, reportFile, std::move(report), err, pageFile);
}

// The saved plan report at `path`, none when no path is given.
std::optional<SavedPlan> readOptionalPlan(const std::string& path)
{
    return path.empty() ? std::nullopt : std::optional<SavedPlan>(readPlanReport(path));
}

int runExplode(const InputFlags& inputs, const PlanFlags& flags, const ExplodeFlags& explode, std::ostream& out,
               std::ostream& err)
{
    std::vector<std::string> inputFiles = listInputFiles(inputs.inputs);
    if (!explode.plan.empty())
        inputFiles.push_back(explode.plan);  // a saved plan is an input too
    checkOutputsAgainstInputs({explode.glb, explode.report, explode.html}, inputFiles);
    const std::unique_ptr<OutputFile> reportFile = openOptionalOutput(explode.report, out);
    const std::unique_ptr<OutputFile> glbFile = openOptionalOutput(explode.glb, out);
    const std::unique_ptr<OutputFile> pageFile = openPage(explode.html, out);
    const std::optional<SavedPlan> saved = readOptionalPlan(explode.plan);
    kx::kxTimer timer;
    const Assembly assembly = importWithWarnings(inputs, err);
    if (saved)
        checkPlanFits(*saved, assembly);
    if (!explode.view.fix.empty())
        findPart(assembly, explode.view.fix);  // an unknown name fails before the planning
    const double importMs = timer.getElapsedMs();
    const std::unique_ptr<Plan> plan = runPlanner(assembly, flags, true, err, saved ? &*saved : nullptr);
    if (saved)
        checkDirectionsFit(*saved, plan->diagram());
    Json report = inputsJson(inputs);
    report["timings"]["importMs"] = importMs;
    ExplodeFlags titled = explode;
    titled.title = explodedViewTitle(inputsTitle(inputs.inputs));
    titled.view.options.staticPose = explode.pose == "exploded";
    const ExplodeOptions options = resolveViewOptions(assembly, titled.view);
    writeExplodedView(*plan, titled, options, flags.verbose, glbFile.get(), reportFile.get(), report, err,
                      pageFile.get());
    return kExitOk;
}

int runRemove(const InputFlags& inputs, const PlanFlags& flags, const RemoveFlags& remove, std::ostream& out,
              std::ostream& err)
{
    std::vector<std::string> inputFiles = listInputFiles(inputs.inputs);
    if (!remove.view.plan.empty())
        inputFiles.push_back(remove.view.plan);  // a saved plan is an input too
    checkOutputsAgainstInputs({remove.report, remove.glb, remove.html}, inputFiles);
    const std::unique_ptr<OutputFile> reportFile = openOptionalOutput(remove.report, out);
    const std::unique_ptr<OutputFile> glbFile = openOptionalOutput(remove.glb, out);
    const std::unique_ptr<OutputFile> pageFile = openPage(remove.html, out);
    const std::optional<SavedPlan> saved = readOptionalPlan(remove.view.plan);
    kx::kxTimer timer;
    const Assembly assembly = importWithWarnings(inputs, err);
    if (saved)
        checkPlanFits(*saved, assembly);
    const unsigned part = findPart(assembly, remove.part);
    const unsigned base = removalBaseGroup(assembly, part, remove.view.view.fix);
    const double importMs = timer.getElapsedMs();
    const std::unique_ptr<Plan> plan = runPlanner(assembly, flags, true, err, saved ? &*saved : nullptr);
    if (saved)
        checkDirectionsFit(*saved, plan->diagram());
    timer.reset();
    RemovalPlan removal;
    {
        LibraryOutput lines(flags.verbose);
        removal = planRemovalFor(*plan, part, base, !remove.glb.empty() || pageFile);
    }
    const double removalMs = timer.getElapsedMs();
    const bool listToStdout = remove.report != "-" && remove.glb != "-" && remove.html != "-";
    (listToStdout ? out : err) << removalInstructionsText(assembly, removal);
    Json report = inputsJson(inputs);
    report.update(removalReport(*plan, removal.procedure));
    addRemovalInstructions(report, assembly, removal);
    report["timings"]["importMs"] = importMs;
    report["timings"]["removalMs"] = removalMs;
    if (reportFile)
        writeJson(report, *reportFile);
    if (glbFile || pageFile) {
        ExplodeFlags steps = remove.view;
        steps.glb = remove.glb;
        steps.html = remove.html;
        steps.title = removalTitle(inputsTitle(inputs.inputs), assembly, removal);
        const ExplodeOptions options = removalViewOptions(assembly, steps.view, removal);
        timer.reset();
        const ExplodedView view = removalView(assembly, removal.instructions, removal.base, options);
        writeView(*plan, steps, options, view, timer.getElapsedMs(), glbFile.get(), nullptr, report, err,
                  pageFile.get());
    }
    return kExitOk;
}

std::string besideReport(const std::string& report, const char* extension)
{
    return std::filesystem::path(report).replace_extension(extension).string();
}

int runDemo(const std::string& name, bool list, const PlanFlags& flags, const std::string& output,
            const std::string& glb, std::ostream& out, std::ostream& err)
{
    if (list) {
        for (const std::string& n : demoAssemblyNames())
            out << n << "\n";
        return kExitOk;
    }
    // The exploded view goes beside a report written to a file.
    const std::string viewPath = !glb.empty() || output == "-" ? glb : besideReport(output, ".glb");
    // The page goes beside a report written to a file, in builds that have the viewer.
    ExplodeFlags explode;
    explode.glb = viewPath;
    explode.html = output != "-" && viewerBuiltIn() ? besideReport(output, ".html") : "";
    explode.title = explodedViewTitle(name);
    checkOutputs({}, {output, viewPath, explode.html});
    OutputFile file(output, out);
    const std::unique_ptr<OutputFile> viewFile = openOptionalOutput(viewPath, out);
    const std::unique_ptr<OutputFile> pageFile = openPage(explode.html, out);
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
    if (viewFile || pageFile) {
        const ExplodeOptions options = resolveViewOptions(assembly, explode.view);
        writeExplodedView(*plan, explode, options, flags.verbose, viewFile.get(), nullptr, report, err,
                          pageFile.get());
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
    explode->add_option("--html", explodeFlags.html, "Also write a self-contained HTML page that shows the plan");
    explode->add_option("--plan", explodeFlags.plan,
                        "A report of `velmora plan` on the same inputs: explode its tree instead of planning")
        ->type_name("PLAN.json");
    addPlanFlags(*explode, planning, true);
    addExplodeFlags(*explode, explodeFlags);

    RemoveFlags removeFlags;
    CLI::App* remove = app.add_subcommand("remove", "List the ordered steps that take one part out");
    addInputFlags(*remove, inputs);
    remove->add_option("--part", removeFlags.part, "Name of the part to take out")->required();
    remove->add_option("-o,--output", removeFlags.report, "Also write the steps as JSON (- for standard output)");
    remove->add_option("--gltf", removeFlags.glb, "Also write the steps as an animated .glb");
    remove->add_option("--html", removeFlags.html, "Also write the steps as a self-contained HTML page");
    remove->add_option("--plan", removeFlags.view.plan,
                       "A report of `velmora plan` on the same inputs: take its tree instead of planning")
        ->type_name("PLAN.json");
    addPlanFlags(*remove, planning, true);
    addViewFlags(*remove, removeFlags.view);

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

    if (const std::string problem = commandProblem(argc, argv); !problem.empty()) {
        err << "velmora: error: " << problem << "\n";
        return kExitUsage;
    }
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
        err << "velmora: error: " << describeParseError(e) << "\n";
        return kExitUsage;
    }

    // The library's lines go to standard output, where LibraryOutput sends
    // them to standard error or nowhere while the library runs.
    const ScopedLogSink libraryLines(standardOutputLogSink());
    inputs.verbose = planning.verbose;
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
    } catch (const UsageError& e) {
        err << "velmora: error: " << e.what() << "\n";
        return kExitUsage;
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
