// The Python binding of the app layer: velmora._velmora. Assemblies come from
// files or numpy arrays, plans are the app's Plan, and every dictionary is
// the app's own JSON report (the command-line tool's), parsed by Python.
//
// Views and removals take the command-line tool's defaults and resolve the
// part kept still as it does (velmora/Deliverables.h), so their reports,
// glTF files and pages are the tool's.
//
// The GIL is released while the library works; callbacks (progress, library
// lines) take it back for the moment they run. InputError becomes OSError
// (FileNotFoundError) when an input path does not exist and ValueError otherwise, with the
// message the command-line tool prints.
#include <pybind11/functional.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <optional>

#include "VelmoraVersion.h"
#include "kxSystem.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Deliverables.h"
#include "velmora/Explode.h"
#include "velmora/Import.h"
#include "velmora/LogSink.h"
#include "velmora/MeshAssembly.h"
#include "velmora/Removal.h"
#include "velmora/Report.h"
#include "velmora/ViewerPage.h"

namespace py = pybind11;

namespace velmora {
namespace {

// An assembly and what the command-line tool's reports say about its origin.
struct PyAssembly {
    Assembly assembly;
    Json origin = Json::object();  // {"inputs", "groupBy"} for files; empty for meshes
    double importMs = 0;
    std::string subject = "assembly";  // what page titles call it
};

// Exploding and removal attach animation to the plan's meshes, so one plan
// does one of them at a time (`busy`), even from several Python threads.
struct PyPlan {
    std::shared_ptr<Plan> plan;
    Json origin;
    double importMs = 0;
    std::string subject;
    std::string fix;  // the part views keep still unless they name another
    std::shared_ptr<std::mutex> busy = std::make_shared<std::mutex>();
};

struct PyExplodedView {
    ExplodedView view;
    Json report;
    std::string title;
};

// A removal and what shows it: the view is made on first use, from the plan.
struct PyRemoval {
    PyPlan plan;
    RemovalPlan removal;
    ViewRequest request;
    Json report;
    std::shared_ptr<RemovalView> view;
};

py::object parseJson(const Json& json)
{
    return py::module_::import("json").attr("loads")(json.dump());
}

// Runs `work` without the GIL, turning InputError into ValueError.
template <class F>
auto withoutGil(F&& work)
{
    try {
        py::gil_scoped_release release;
        return work();
    } catch (const InputError& e) {
        throw py::value_error(e.what());
    }
}

std::vector<std::string> pathList(const py::object& paths)
{
    py::module_ os = py::module_::import("os");
    if (py::isinstance<py::str>(paths) || py::hasattr(paths, "__fspath__"))
        return {os.attr("fsdecode")(paths).cast<std::string>()};
    std::vector<std::string> list;
    for (const py::handle& p : paths)
        list.push_back(os.attr("fsdecode")(p).cast<std::string>());
    return list;
}

PyAssembly load(const py::object& paths, const std::string& groupBy, double deflection, double angularDeflection)
{
    const std::vector<std::string> inputs = pathList(paths);
    PyAssembly result;
    kx::kxTimer timer;
    try {
        ImportOptions options;
        options.groupBy = parseGroupBy(groupBy);
        options.groupLevel = parseGroupLevel(groupBy);
        options.deflection = deflection;
        options.angularDeflection = angularDeflection;
        if (!(deflection >= 0) || !(angularDeflection >= 0 && angularDeflection <= 90))
            throw InputError("the deflection must be at least 0 and the angular deflection 0 to 90 degrees");
        py::gil_scoped_release release;
        result.assembly = importAssembly(inputs, options);
    } catch (const InputError& e) {
        std::error_code ec;
        const bool missing = std::any_of(inputs.begin(), inputs.end(),
                                         [&](const std::string& input) { return !std::filesystem::exists(input, ec); });
        PyErr_SetString(missing ? PyExc_FileNotFoundError : PyExc_ValueError, e.what());
        throw py::error_already_set();
    }
    result.importMs = timer.getElapsedMs();
    result.origin = {{"inputs", inputs}, {"groupBy", groupBy}};
    result.subject = inputsTitle(inputs);
    return result;
}

// An (n, 3) C-contiguous array of `T`; ValueError naming `what` otherwise.
template <class T>
py::array_t<T> rowsOfThree(const py::handle& object, const std::string& name, const char* what)
{
    const py::array array = py::array::ensure(object);
    if (!array || array.ndim() != 2 || array.shape(1) != 3)
        throw py::value_error(name + ": " + what + " must be an array of shape (n, 3)");
    const bool wantFloat = std::is_floating_point_v<T>;
    const char kind = array.dtype().kind();
    if (wantFloat ? (kind != 'f') : (kind != 'i' && kind != 'u'))
        throw py::value_error(name + ": " + what + " must hold " + (wantFloat ? "floats" : "integers") +
                              ", not " + py::str(array.dtype()).cast<std::string>());
    return py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(array);
}

NamedMesh namedMesh(const py::handle& item, size_t ordinal)
{
    py::object name, vertices, faces;
    if (py::hasattr(item, "vertices") && py::hasattr(item, "faces")) {
        name = py::getattr(item, "name", py::str("mesh" + std::to_string(ordinal)));
        vertices = item.attr("vertices");
        faces = item.attr("faces");
    } else {
        const py::tuple triple = py::tuple(py::reinterpret_borrow<py::object>(item));
        if (triple.size() != 3)
            throw py::value_error("a mesh is (name, vertices, faces) or has vertices and faces attributes");
        name = triple[0];
        vertices = triple[1];
        faces = triple[2];
    }
    NamedMesh mesh;
    mesh.name = py::str(name).cast<std::string>();
    const auto v = rowsOfThree<double>(vertices, mesh.name, "vertices");
    const auto f = rowsOfThree<long long>(faces, mesh.name, "faces");
    const auto vr = v.unchecked<2>();
    const auto fr = f.unchecked<2>();
    for (py::ssize_t i = 0; i < vr.shape(0); ++i)
        mesh.positions.emplace_back(float(vr(i, 0)), float(vr(i, 1)), float(vr(i, 2)));
    for (py::ssize_t i = 0; i < fr.shape(0); ++i)
        for (int c = 0; c < 3; ++c) {
            if (fr(i, c) < 0 || fr(i, c) >= vr.shape(0))
                throw py::value_error(mesh.name + ": a triangle refers to a vertex that does not exist");
            mesh.indices.push_back(unsigned(fr(i, c)));
        }
    return mesh;
}

std::vector<std::string> partNames(const PyAssembly& a)
{
    std::vector<std::string> names;
    for (const Part& part : a.assembly.parts)
        names.push_back(part.name);
    return names;
}

PyAssembly demo(const std::string& name)
{
    PyAssembly result;
    kx::kxTimer timer;
    result.assembly = withoutGil([&] { return makeDemoAssembly(name); });
    result.importMs = timer.getElapsedMs();
    result.origin = {{"demo", name}};
    result.subject = name;
    return result;
}

PyAssembly fromMeshes(const py::iterable& meshes)
{
    std::vector<NamedMesh> named;
    for (const py::handle& item : meshes)
        named.push_back(namedMesh(item, named.size()));
    PyAssembly result;
    result.assembly = withoutGil([&] { return assemblyFromMeshes(named); });
    return result;
}

// Calls `callback` from a library thread (GIL held): an exception it raises
// cannot travel through the library, so Python reports it as unraisable.
template <class... Args>
void callReportingErrors(const py::object& callback, const char* what, Args&&... args)
{
    try {
        callback(std::forward<Args>(args)...);
    } catch (py::error_already_set& e) {
        e.discard_as_unraisable(what);
    }
}

// Reports progress to a Python callable as (stage, fraction), at most once
// per percent, from whichever thread the library calls on.
class PythonProgress : public kx::kxProgressNotifierInterface {
public:
    explicit PythonProgress(py::object callback) : mCallback(std::move(callback)) {}

    void setStage(const std::string& stage)
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStage = stage;
        mTotal = mDone = 0;
        mShown = -1;
    }
    void setProgressRange(double total) override
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mTotal = total;
        mDone = 0;
        report();
    }
    void incrementProgress(double step) override
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mDone += step;
        report();
    }

private:
    void report()
    {
        const double fraction = mTotal > 0 ? std::min(1.0, mDone / mTotal) : 0.0;
        const int percent = int(fraction * 100);
        if (percent == mShown)
            return;
        mShown = percent;
        py::gil_scoped_acquire gil;
        callReportingErrors(mCallback, "velmora progress callback", mStage, fraction);
    }

    py::object mCallback;
    std::mutex mMutex;
    std::string mStage;
    double mTotal = 0, mDone = 0;
    int mShown = -1;
};

std::vector<std::vector<unsigned>> keepTogetherGroups(const Assembly& assembly,
                                                      const std::vector<std::vector<std::string>>& sets)
{
    std::vector<std::vector<unsigned>> groups;
    for (const auto& set : sets) {
        std::vector<unsigned> ids;
        for (const std::string& name : set)
            ids.push_back(groupOfPart(assembly, findPart(assembly, name)));
        groups.push_back(std::move(ids));
    }
    return groups;
}

PyPlan plan(const PyAssembly& a, unsigned threads, bool distant, const std::vector<std::vector<std::string>>& keep,
            float angleTolerance, const py::object& progress, const std::optional<std::string>& fix, bool verify,
            bool normaliseScale, bool freeZeroArea)
{
    std::unique_ptr<PythonProgress> notifier;
    PlanOptions options;
    options.threads = threads;
    options.angleTolerance = angleTolerance;
    options.hierarchy = true;
    options.distantContacts = distant;
    options.verify = verify;
    options.normaliseScale = normaliseScale;
    options.freeZeroAreaContacts = freeZeroArea;
    if (!progress.is_none()) {
        notifier = std::make_unique<PythonProgress>(progress);
        options.progress = notifier.get();
        options.onStage = [&](const std::string& stage) { notifier->setStage(stage); };
    }
    PyPlan result;
    result.origin = a.origin;
    result.importMs = a.importMs;
    result.subject = a.subject;
    result.fix = fix.value_or("");
    result.plan = withoutGil([&] {
        if (!result.fix.empty())
            findPart(a.assembly, result.fix);  // an unknown name fails before the planning
        options.keepTogether = keepTogetherGroups(a.assembly, keep);
        return std::shared_ptr<Plan>(planAssembly(a.assembly, options));
    });
    return result;
}

// The command-line tool's plan report: origin, plan, import time.
Json fullPlanReport(const PyPlan& p)
{
    Json report = p.origin;
    report.update(planReport(*p.plan));
    if (!p.origin.empty()) {
        report["timings"]["importMs"] = p.importMs;
        report["timings"]["totalMs"] = report["timings"]["totalMs"].get<double>() + p.importMs;
    }
    return report;
}

py::array_t<double> directionsArray(const kxContactDiagram& diagram)
{
    const unsigned n = diagram.getNoDirections();
    py::array_t<double> out({py::ssize_t(n), py::ssize_t(3)});
    auto w = out.mutable_unchecked<2>();
    for (unsigned d = 0; d < n; ++d) {
        const Wm4::Vector3<double>& v = diagram.getDirectionFromId(d);
        for (int c = 0; c < 3; ++c)
            w(d, c) = v[c];
    }
    return out;
}

// The view options the command-line tool's flags of the same names set.
struct PyViewArgs {
    std::optional<std::string> fix;
    float speed;
    bool compress;
    bool lines;
    float creaseAngle;
    std::string units;
};

ViewRequest viewRequest(const PyPlan& p, const PyViewArgs& args)
{
    ViewRequest request;
    request.fix = args.fix.value_or(p.fix);
    request.options.speed = args.speed;
    request.options.glb.compress = args.compress;
    request.options.glb.lines = args.lines;
    request.options.glb.creaseAngle = args.creaseAngle;
    request.units = args.units;
    metresPer(args.units);  // an unknown unit fails before the work
    return request;
}

PyExplodedView explode(const PyPlan& p, unsigned policy, unsigned playStyle, float splitDistance, bool staticPose,
                       const PyViewArgs& args)
{
    PyExplodedView result;
    kx::kxTimer timer;
    ExplodeOptions options;
    result.view = withoutGil([&] {
        ViewRequest request = viewRequest(p, args);
        request.options.policy = policy;
        request.options.playStyle = playStyle;
        request.options.splitDistance = splitDistance;
        request.options.staticPose = staticPose;
        options = resolveViewOptions(p.plan->assembly(), request);
        const std::lock_guard<std::mutex> lock(*p.busy);
        return explodeAssembly(*p.plan, options);
    });
    const double explodeMs = timer.getElapsedMs();
    result.report = p.origin;
    if (!p.origin.empty())
        result.report["timings"]["importMs"] = p.importMs;
    result.report.update(explodeReport(*p.plan, result.view, options));
    result.report["timings"]["explodeMs"] = explodeMs;
    result.title = explodedViewTitle(p.subject);
    return result;
}

py::array_t<double> offsetsArray(const ExplodedView& view)
{
    py::array_t<double> out({py::ssize_t(view.offsets.size()), py::ssize_t(3)});
    auto w = out.mutable_unchecked<2>();
    for (size_t g = 0; g < view.offsets.size(); ++g)
        for (int c = 0; c < 3; ++c)
            w(py::ssize_t(g), c) = view.offsets[g][c];
    return out;
}

PyRemoval removal(const PyPlan& p, const std::string& part, const PyViewArgs& args)
{
    PyRemoval result;
    result.plan = p;
    kx::kxTimer timer;
    withoutGil([&] {
        result.request = viewRequest(p, args);
        const Assembly& assembly = p.plan->assembly();
        const unsigned index = findPart(assembly, part);
        const unsigned base = removalBaseGroup(assembly, index, result.request.fix);
        const std::lock_guard<std::mutex> lock(*p.busy);
        result.removal = planRemovalFor(*p.plan, index, base, false);
        return 0;
    });
    const double removalMs = timer.getElapsedMs();
    result.report = p.origin;
    result.report.update(removalReport(*p.plan, result.removal.procedure));
    addRemovalInstructions(result.report, p.plan->assembly(), result.removal);
    if (!p.origin.empty())
        result.report["timings"]["importMs"] = p.importMs;
    result.report["timings"]["removalMs"] = removalMs;
    return result;
}

// The view of the removal's steps and the report its page embeds.
const RemovalView& removalView(PyRemoval& r)
{
    withoutGil([&] {
        const std::lock_guard<std::mutex> lock(*r.plan.busy);
        if (r.view)
            return 0;
        kx::kxTimer timer;
        auto made = std::make_shared<RemovalView>(explodeRemoval(*r.plan.plan, r.request, r.removal));
        Json report = r.report;
        report.update(made->report);
        report["timings"]["explodeMs"] = timer.getElapsedMs();
        made->report = std::move(report);
        r.view = std::move(made);
        return 0;
    });
    return *r.view;
}

std::string removalPageTitle(const PyRemoval& r)
{
    return removalTitle(r.plan.subject, r.plan.plan->assembly(), r.removal);
}

// Writes the viewer page; the file appears only when complete.
void savePage(const std::string& title, const std::vector<unsigned char>& glb, const Json& report,
              const py::object& path)
{
    const std::string file = pathList(path).front();
    withoutGil([&] {
        const std::string page = viewerPage(title, glb, report);
        writeGlbFile(std::vector<unsigned char>(page.begin(), page.end()), file);
        return 0;
    });
}

void saveGlb(const std::vector<unsigned char>& glb, const py::object& path)
{
    const std::string file = pathList(path).front();
    withoutGil([&] { writeGlbFile(glb, file); return 0; });
}

// True while the library's sink calls into Python: it must go before the
// interpreter does (see the atexit hook in the module's initialisation).
bool gPythonSink = false;

void setLogCallback(const py::object& callback)
{
    gPythonSink = !callback.is_none();
    if (!gPythonSink) {
        setLogSink({});
        return;
    }
    setLogSink([callback](std::string_view line) {
        py::gil_scoped_acquire gil;
        callReportingErrors(callback, "velmora log callback", py::str(line.data(), line.size()));
    });
}

void dropPythonSink()
{
    if (gPythonSink)
        setLogCallback(py::none());
}

}  // namespace
}  // namespace velmora

PYBIND11_MODULE(_velmora, m)
{
    using namespace velmora;
    const ViewRequest defaults;
    m.doc() = "Plans how a mechanical assembly comes apart from its part meshes.";
    m.attr("__version__") = Velmora::Version::GetDescStringMajorMinorReleaseRevision(false);

    py::class_<PyAssembly>(m, "Assembly", "Parts (one triangle mesh each) and the rigid groups they form.")
        .def_static("from_meshes", &fromMeshes, py::arg("meshes"),
                    "An assembly of one part per mesh: (name, vertices (n, 3) floats, faces (m, 3) integers)\n"
                    "triples, or objects with `vertices` and `faces` (and optionally `name`) attributes.")
        .def_property_readonly("parts", &partNames, "The part names, in part order.")
        .def_property_readonly("units", [](const PyAssembly& a) { return a.assembly.units; })
        .def_property_readonly("warnings", [](const PyAssembly& a) { return a.assembly.warnings; })
        .def("to_dict", [](const PyAssembly& a) { return parseJson(assemblyReport(a.assembly)); },
             "The command-line tool's `info` report (without timings).")
        .def("plan", &plan, py::kw_only(), py::arg("threads") = 0u, py::arg("distant") = true,
             py::arg("keep_together") = std::vector<std::vector<std::string>>{}, py::arg("angle_tolerance") = 5.0f,
             py::arg("progress") = py::none(), py::arg("fix") = py::none(), py::arg("verify") = true,
             py::arg("normalise_scale") = true, py::arg("free_zero_area") = true,
             "Plans the contacts, removal directions and disassembly hierarchy (the GIL is released).\n"
             "`keep_together`: lists of part names that come out as one sub-assembly. `progress`: called\n"
             "with (stage, fraction). `fix`: the part the plan's views keep still (default: the largest).\n"
             "`verify`: sweep every split and re-plan the colliding ones, as the tool does (its\n"
             "--no-verify is verify=False); `normalise_scale` and `free_zero_area` as the tool's\n"
             "--no-normalise-scale and --lock-zero-area when False.");

    py::class_<PyPlan>(m, "Plan", "A planned assembly.")
        .def("to_dict", [](const PyPlan& p) { return parseJson(fullPlanReport(p)); },
             "The command-line tool's `plan` report.")
        .def("to_json", [](const PyPlan& p) { return fullPlanReport(p).dump(2) + "\n"; },
             "The `plan` report as the command-line tool writes it, byte for byte.")
        .def_property_readonly("contacts", [](const PyPlan& p) { return parseJson(contactsReport(*p.plan)["contacts"]); })
        .def_property_readonly("directions", [](const PyPlan& p) { return directionsArray(p.plan->diagram()); },
                               "The direction set: one unit row per line (the report's `directions`).")
        .def_property_readonly("hierarchy", [](const PyPlan& p) { return parseJson(planReport(*p.plan)["hierarchy"]["nodes"]); })
        .def("explode",
             [](const PyPlan& p, unsigned policy, unsigned playStyle, float splitDistance, bool staticPose,
                const std::optional<std::string>& fix, float speed, bool compress, bool lines, float creaseAngle,
                const std::string& units) {
                 return explode(p, policy, playStyle, splitDistance, staticPose,
                                {fix, speed, compress, lines, creaseAngle, units});
             },
             py::kw_only(), py::arg("policy") = defaults.options.policy,
             py::arg("play_style") = defaults.options.playStyle, py::arg("split_distance") = 0.0f,
             py::arg("static") = false, py::arg("fix") = py::none(), py::arg("speed") = defaults.options.speed,
             py::arg("compress") = defaults.options.glb.compress, py::arg("lines") = defaults.options.glb.lines,
             py::arg("crease_angle") = defaults.options.glb.creaseAngle, py::arg("units") = defaults.units,
             "The exploded view, as `velmora explode` makes it with the flags of the same names: per-group\n"
             "offsets, the animation and its binary glTF. `fix`: the part kept still (default: the plan's).")
        .def("remove",
             [](const PyPlan& p, const std::string& part, const std::optional<std::string>& fix, float speed,
                bool compress, bool lines, float creaseAngle, const std::string& units) {
                 return removal(p, part, {fix, speed, compress, lines, creaseAngle, units});
             },
             py::arg("part"), py::kw_only(), py::arg("fix") = py::none(), py::arg("speed") = defaults.options.speed,
             py::arg("compress") = defaults.options.glb.compress, py::arg("lines") = defaults.options.glb.lines,
             py::arg("crease_angle") = defaults.options.glb.creaseAngle, py::arg("units") = defaults.units,
             "Taking out the named part, as `velmora remove` plans it: the instructions, the report and\n"
             "the view of the steps (the view options are those of explode()).");

    py::class_<PyRemoval>(m, "Removal", "The steps that take one part out, as instructions for a person.")
        .def_property_readonly("instructions", [](const PyRemoval& r) { return parseJson(r.report["removal"]["instructions"]); },
                               "One dictionary per step: what moves (`parts`, `groups`) and its `direction`.")
        .def_property_readonly("base", [](const PyRemoval& r) { return parseJson(r.report["removal"]["base"]); },
                               "The parts that stay in place.")
        .def_property_readonly("text", [](const PyRemoval& r) {
            return removalInstructionsText(r.plan.plan->assembly(), r.removal);
        }, "The numbered steps as `velmora remove` prints them.")
        .def("to_dict", [](const PyRemoval& r) { return parseJson(r.report); },
             "The command-line tool's `remove -o` report.")
        .def("to_json", [](const PyRemoval& r) { return r.report.dump(2) + "\n"; },
             "The `remove -o` report as the command-line tool writes it.")
        .def("save_glb", [](PyRemoval& r, const py::object& path) { saveGlb(removalView(r).view.glb, path); },
             py::arg("path"), "Writes the steps as an animated binary glTF (`remove --gltf`).")
        .def("save_html", [](PyRemoval& r, const py::object& path) {
            const RemovalView& view = removalView(r);
            savePage(removalPageTitle(r), view.view.glb, view.report, path);
        }, py::arg("path"), "Writes the steps as a self-contained HTML page (`remove --html`); raises\n"
                            "ValueError \"built without the viewer\" in builds without it.");

    py::class_<PyExplodedView>(m, "ExplodedView")
        .def_property_readonly("offsets", [](const PyExplodedView& v) { return offsetsArray(v.view); })
        .def_property_readonly("duration", [](const PyExplodedView& v) { return v.view.duration; })
        .def_property_readonly("split_distance", [](const PyExplodedView& v) { return v.view.splitDistance; })
        .def("to_dict", [](const PyExplodedView& v) { return parseJson(v.report); },
             "The command-line tool's `explode --report` report.")
        .def("to_json", [](const PyExplodedView& v) { return v.report.dump(2) + "\n"; },
             "The `explode --report` report as the command-line tool writes it.")
        .def("save_glb", [](const PyExplodedView& v, const py::object& path) { saveGlb(v.view.glb, path); },
             py::arg("path"), "Writes the binary glTF; the file appears only when complete.")
        .def("save_html", [](const PyExplodedView& v, const py::object& path) {
            savePage(v.title, v.view.glb, v.report, path);
        }, py::arg("path"), "Writes the self-contained HTML page (`explode --html`); raises ValueError\n"
                            "\"built without the viewer\" in builds without it.");

    m.def("load", &load, py::arg("paths"), py::arg("group_by") = "mesh", py::arg("deflection") = 0.0,
          py::arg("angular_deflection") = 0.0,
          "Reads files or folders (a folder is one part per file) into one assembly. `group_by`: mesh,\n"
          "node, file, subassembly or level:N. STEP/IGES tessellation: `deflection` (largest chord error\n"
          "in mm, 0: relative to each solid's size), `angular_deflection` (degrees, 0: 10).");
    m.attr("viewer_built_in") = viewerBuiltIn();
    m.def("demo", &demo, py::arg("name"), "A built-in sample assembly, as `velmora demo NAME` plans it.");
    m.def("demo_names", &demoAssemblyNames, "The names of the built-in sample assemblies.");
    m.def("set_log", &setLogCallback, py::arg("callback"),
          "Routes the library's own lines to `callback(line)`; None (the default) drops them.");
    py::module_::import("atexit").attr("register")(py::cpp_function(&dropPythonSink));
}
