#include "StepReader.h"

#include "StepFileChecks.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#ifdef VELMORA_WITH_STEP
#include <BRepBndLib.hxx>
#include <BRepBuilderAPI_MakeSolid.hxx>
#include <BRepBuilderAPI_Sewing.hxx>
#include <BRepMesh_IncrementalMesh.hxx>
#include <BRep_Tool.hxx>
#include <Bnd_Box.hxx>
#include <IGESCAFControl_Reader.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Message_PrinterOStream.hxx>
#include <Poly_PolygonOnTriangulation.hxx>
#include <Poly_Triangulation.hxx>
#include <Quantity_ColorRGBA.hxx>
#include <STEPCAFControl_Reader.hxx>
#include <Standard_Failure.hxx>
#include <TCollection_AsciiString.hxx>
#include <TDF_LabelSequence.hxx>
#include <TDF_Tool.hxx>
#include <TDataStd_Name.hxx>
#include <TDocStd_Document.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Face.hxx>
#include <TopoDS_Shell.hxx>
#include <TopoDS_Solid.hxx>
#include <TopoDS_Vertex.hxx>
#include <UnitsMethods_LengthUnit.hxx>
#include <XCAFApp_Application.hxx>
#include <XCAFDoc_ColorTool.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <XCAFDoc_ShapeTool.hxx>
#include <atomic>
#include <cmath>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>
#endif

namespace velmora {

namespace {

std::string lowerExtensionOf(const std::string& path)
{
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

bool isIgesFile(const std::string& path)
{
    const std::string ext = lowerExtensionOf(path);
    return ext == ".igs" || ext == ".iges";
}

}  // namespace

bool isCadFile(const std::string& path)
{
    const std::string ext = lowerExtensionOf(path);
    return ext == ".step" || ext == ".stp" || isIgesFile(path);
}

#ifndef VELMORA_WITH_STEP

SourceFile readCad(const std::string& file, const CadOptions&)
{
    throw InputError(file + ": cannot read: built without STEP support");
}

#else

namespace {

// Replaces the printers of OpenCASCADE's default messenger while it lives:
// its messages go to standard error when verbose and nowhere otherwise.
class OcctMessages {
public:
    explicit OcctMessages(bool verbose) : mMessenger(Message::DefaultMessenger()), mSaved(mMessenger->Printers())
    {
        mMessenger->ChangePrinters().Clear();
        if (verbose) {
            Handle(Message_PrinterOStream) printer = new Message_PrinterOStream("cerr", false, Message_Info);
            printer->SetToColorize(false);
            mMessenger->AddPrinter(printer);
        }
    }
    ~OcctMessages() { mMessenger->ChangePrinters() = mSaved; }
    OcctMessages(const OcctMessages&) = delete;
    OcctMessages& operator=(const OcctMessages&) = delete;

private:
    Handle(Message_Messenger) mMessenger;
    Message_SequenceOfPrinters mSaved;
};

// An XDE document that is closed when it goes out of scope.
class XdeDocument {
public:
    XdeDocument() : mApp(XCAFApp_Application::GetApplication())
    {
        mApp->NewDocument("MDTV-XCAF", mDoc);
        XCAFDoc_DocumentTool::SetLengthUnit(mDoc, 1.0, UnitsMethods_LengthUnit_Millimeter);
    }
    ~XdeDocument() { mApp->Close(mDoc); }
    XdeDocument(const XdeDocument&) = delete;
    XdeDocument& operator=(const XdeDocument&) = delete;
    const Handle(TDocStd_Document)& get() const { return mDoc; }

private:
    Handle(XCAFApp_Application) mApp;
    Handle(TDocStd_Document) mDoc;
};

template <class Reader>
void readFile(Reader& reader, const std::string& file, const char* format)
{
    reader.SetColorMode(true);
    reader.SetNameMode(true);
    reader.SetLayerMode(true);
    if (reader.ReadFile(file.c_str()) != IFSelect_RetDone)
        throw InputError(file + ": cannot read: not a valid " + format + " file (corrupt or truncated)");
}

template <class Reader>
void transferInto(Reader& reader, const std::string& file, const char* format, Handle(TDocStd_Document) doc)
{
    if (!reader.Transfer(doc))
        throw InputError(file + ": cannot read: the " + std::string(format) + " data could not be converted");
}

// The file's content in `doc`, lengths in millimetres.
void readDocument(const std::string& file, const Handle(TDocStd_Document)& doc)
{
    static std::mutex unitSetting;  // the reader's unit is a process-wide setting
    std::lock_guard<std::mutex> lock(unitSetting);
    Interface_Static::SetCVal("xstep.cascade.unit", "MM");
    if (isIgesFile(file)) {
        IGESCAFControl_Reader reader;
        readFile(reader, file, "IGES");
        transferInto(reader, file, "IGES", doc);
    } else {
        STEPCAFControl_Reader reader;
        readFile(reader, file, "STEP");
        const std::string fault = stepFileFault(reader.Reader());
        if (!fault.empty())
            throw InputError(file + ": cannot read: " + fault);
        transferInto(reader, file, "STEP", doc);
    }
}

std::string labelName(const TDF_Label& label)
{
    Handle(TDataStd_Name) name;
    if (!label.FindAttribute(TDataStd_Name::GetID(), name))
        return "";
    return TCollection_AsciiString(name->Get()).ToCString();
}

std::optional<Colour> toColour(const Quantity_ColorRGBA& rgba)
{
    double r, g, b;
    rgba.GetRGB().Values(r, g, b, Quantity_TOC_RGB);
    return Colour{float(r), float(g), float(b), rgba.Alpha()};
}

std::string entryOf(const TDF_Label& label)
{
    TCollection_AsciiString entry;
    TDF_Tool::Entry(label, entry);
    return entry.ToCString();
}

kx::kxGenericTransformation<float> toTransformation(const TopLoc_Location& location)
{
    const gp_Trsf t = location.Transformation();
    const gp_Mat m = t.VectorialPart();
    const gp_XYZ v = t.TranslationPart();
    return {Wm4::Matrix3<float>(float(m(1, 1)), float(m(1, 2)), float(m(1, 3)), float(m(2, 1)), float(m(2, 2)),
                                float(m(2, 3)), float(m(3, 1)), float(m(3, 2)), float(m(3, 3))),
            {float(v.X()), float(v.Y()), float(v.Z())}};
}

// The solids of `shape`. A shape without solids (as IGES and surface-model
// STEP files give them) has its closed shells, sewn from its faces when it
// has no shells either, taken as solids; open sheets are not solids.
std::vector<TopoDS_Shape> solidsOf(const TopoDS_Shape& shape)
{
    constexpr double kSewingTolerance = 1e-3;  // mm: edges of neighbouring faces closer than this are joined
    std::vector<TopoDS_Shape> solids;
    for (TopExp_Explorer it(shape, TopAbs_SOLID); it.More(); it.Next())
        solids.push_back(it.Current());
    if (!solids.empty())
        return solids;
    TopoDS_Shape shells = shape;
    if (!TopExp_Explorer(shape, TopAbs_SHELL).More() && TopExp_Explorer(shape, TopAbs_FACE).More()) {
        BRepBuilderAPI_Sewing sewing(kSewingTolerance);
        sewing.Add(shape);
        sewing.Perform();
        shells = sewing.SewedShape();
    }
    for (TopExp_Explorer it(shells, TopAbs_SHELL); it.More(); it.Next()) {
        if (BRep_Tool::IsClosed(it.Current()))
            solids.push_back(BRepBuilderAPI_MakeSolid(TopoDS::Shell(it.Current())).Solid());
    }
    return solids;
}

// Bounds on the tree a small file can describe: a product placed twice in
// each of its parents doubles what lies below it at every level.
constexpr size_t kMaxVisits = 1'000'000;
constexpr size_t kMaxSolids = 100'000;

// Walks the assembly tree from its free shapes: every leaf solid becomes an
// instance placed by the product of the locations above it; distinct solids
// are collected once as prototypes.
class AssemblyWalker {
public:
    AssemblyWalker(const std::string& file, const Handle(TDocStd_Document)& doc)
        : mFile(file),
          mShapes(XCAFDoc_DocumentTool::ShapeTool(doc->Main())),
          mColours(XCAFDoc_DocumentTool::ColorTool(doc->Main()))
    {
    }

    void walk(SourceFile& out)
    {
        TDF_LabelSequence roots;
        mShapes->GetFreeShapes(roots);
        std::vector<std::string> names;
        for (const TDF_Label& root : roots)
            names.push_back(labelName(root));
        names = distinctSiblingNames(names);
        for (int k = 1; k <= roots.Length(); ++k)
            visit(roots(k), {}, "", names[size_t(k - 1)], std::nullopt, std::nullopt, out);
    }

    const TopTools_IndexedMapOfShape& prototypes() const { return mPrototypes; }

private:
    std::optional<Colour> colourOf(const TDF_Label& label) const
    {
        Quantity_ColorRGBA rgba;
        if (mColours->GetColor(label, XCAFDoc_ColorSurf, rgba) || mColours->GetColor(label, XCAFDoc_ColorGen, rgba))
            return toColour(rgba);
        return std::nullopt;
    }

    std::optional<Colour> colourOf(const TopoDS_Shape& shape) const
    {
        Quantity_ColorRGBA rgba;
        if (mColours->GetColor(shape, XCAFDoc_ColorSurf, rgba) || mColours->GetColor(shape, XCAFDoc_ColorGen, rgba))
            return toColour(rgba);
        return std::nullopt;
    }

    // `label` is a shape definition placed at `world`, known as `name` below
    // `parentPath`; `instanceColour` is its placement's own colour.
    void visit(const TDF_Label& label, const TopLoc_Location& world, const std::string& parentPath,
               const std::string& name, std::optional<Colour> instanceColour, std::optional<Colour> inherited,
               SourceFile& out)
    {
        if (++mVisits > kMaxVisits || out.instances.size() >= kMaxSolids)
            throw InputError(mFile + ": cannot read: the assembly places more than " + std::to_string(kMaxSolids) +
                             " solids or visits more than " + std::to_string(kMaxVisits) + " components");
        const std::string entry = entryOf(label);
        if (!mOnPath.insert(entry).second)
            throw InputError(mFile + ": cannot read: the assembly refers to itself (cyclic reference at '" + name +
                             "')");
        const std::optional<Colour> ownColour = instanceColour ? instanceColour : colourOf(label);
        if (XCAFDoc_ShapeTool::IsAssembly(label))
            visitComponents(label, world, parentPath.empty() ? name : parentPath + "/" + name,
                            ownColour ? ownColour : inherited, out);
        else
            addSolids(label, world, parentPath, name, instanceColour, ownColour ? ownColour : inherited, out);
        mOnPath.erase(entry);
    }

    void visitComponents(const TDF_Label& assembly, const TopLoc_Location& world, const std::string& path,
                         std::optional<Colour> colour, SourceFile& out)
    {
        TDF_LabelSequence components;
        XCAFDoc_ShapeTool::GetComponents(assembly, components);
        std::vector<TDF_Label> referred;
        std::vector<std::string> names;
        for (const TDF_Label& component : components) {
            TDF_Label shape;
            if (!XCAFDoc_ShapeTool::GetReferredShape(component, shape))
                shape = component;
            const std::string instance = instanceName(component);
            referred.push_back(shape);
            names.push_back(instance.empty() ? labelName(shape) : instance);
        }
        names = distinctSiblingNames(names);
        for (size_t k = 0; k < referred.size(); ++k) {
            const TDF_Label& component = components(int(k) + 1);
            visit(referred[k], world * XCAFDoc_ShapeTool::GetLocation(component), path, names[k],
                  colourOf(component), colour, out);
        }
    }

    // The name the file gives an instance. Writers that leave it blank put a
    // bare occurrence number or OpenCASCADE's "=>[0:1:…]" label there (the
    // reader takes the number when the name is empty): neither counts.
    static std::string instanceName(const TDF_Label& component)
    {
        const std::string name = labelName(component);
        const bool number = !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) {
            return std::isdigit(c);
        });
        return number || name.rfind("=>", 0) == 0 ? "" : name;
    }

    void addSolids(const TDF_Label& label, const TopLoc_Location& world, const std::string& parentPath,
                   const std::string& name, std::optional<Colour> instanceColour, std::optional<Colour> colour,
                   SourceFile& out)
    {
        const std::vector<TopoDS_Shape> solids = solidsOf(XCAFDoc_ShapeTool::GetShape(label));
        if (solids.empty())
            out.warnings.push_back(mFile + ": part '" + name + "' holds no solid that could be read; skipped");
        for (const TopoDS_Shape& solid : solids) {
            const int prototype = mPrototypes.Add(solid) - 1;
            std::optional<Colour> solidColour = instanceColour ? instanceColour : colourOf(solid);
            out.instances.push_back({name, parentPath, name, true, prototype, toTransformation(world),
                                     solidColour ? solidColour : colour});
        }
    }

    std::string mFile;
    Handle(XCAFDoc_ShapeTool) mShapes;
    Handle(XCAFDoc_ColorTool) mColours;
    TopTools_IndexedMapOfShape mPrototypes;
    std::set<std::string> mOnPath;  // entries of the shapes being visited, to catch cycles
    size_t mVisits = 0;
};

// One tessellated solid: its welded mesh, whether every edge of it is shared
// by exactly two triangles of opposite sense, and why it failed if it did.
struct SolidMesh {
    SourceMesh mesh;
    bool closed = false;
    std::string failure;
};

struct PositionKey {
    float x, y, z;
    bool operator==(const PositionKey&) const = default;
};

struct PositionHash {
    size_t operator()(const PositionKey& k) const
    {
        const std::hash<float> h;
        return h(k.x) * 73856093u ^ h(k.y) * 19349663u ^ h(k.z) * 83492791u;
    }
};

// Builds one solid's mesh face by face. Faces meet along shared edges, whose
// discretisation the mesher makes once: a node on an edge is the same vertex
// in every face (joined by edge and place along it, corners by vertex), even
// where the faces' surfaces put it a hair apart; other nodes join when their
// positions are equal.
class SolidWelder {
public:
    explicit SolidWelder(SourceMesh& mesh) : mMesh(mesh) {}

    // Appends the triangles of `face`; reversed faces get their corners
    // swapped so every triangle faces out of the solid. False when the face
    // has no triangulation.
    bool appendFace(const TopoDS_Face& face)
    {
        TopLoc_Location location;
        const Handle(Poly_Triangulation) triangulation = BRep_Tool::Triangulation(face, location);
        if (triangulation.IsNull() || triangulation->NbTriangles() == 0)
            return false;
        const gp_Trsf placement = location.Transformation();
        mIndex.assign(size_t(triangulation->NbNodes()) + 1, kUnset);
        for (TopExp_Explorer edges(face, TopAbs_EDGE); edges.More(); edges.Next())
            joinEdgeNodes(TopoDS::Edge(edges.Current()), triangulation, location, placement);
        for (int n = 1; n <= triangulation->NbNodes(); ++n) {
            if (mIndex[size_t(n)] == kUnset)
                mIndex[size_t(n)] = vertexAt(triangulation->Node(n).Transformed(placement));
        }
        const bool reversed = face.Orientation() == TopAbs_REVERSED;
        for (int t = 1; t <= triangulation->NbTriangles(); ++t) {
            int a, b, c;
            triangulation->Triangle(t).Get(a, b, c);
            if (reversed)
                std::swap(b, c);
            const unsigned corners[3] = {mIndex[size_t(a)], mIndex[size_t(b)], mIndex[size_t(c)]};
            if (corners[0] != corners[1] && corners[1] != corners[2] && corners[2] != corners[0])
                mMesh.indices.insert(mMesh.indices.end(), corners, corners + 3);  // others collapsed at a point
        }
        return true;
    }

private:
    static constexpr unsigned kUnset = ~0u;

    void joinEdgeNodes(const TopoDS_Edge& edge, const Handle(Poly_Triangulation)& triangulation,
                       const TopLoc_Location& location, const gp_Trsf& placement)
    {
        const Handle(Poly_PolygonOnTriangulation)& polygon =
            BRep_Tool::PolygonOnTriangulation(edge, triangulation, location);
        if (polygon.IsNull())
            return;
        TopoDS_Vertex first, last;
        TopExp::Vertices(TopoDS::Edge(edge.Oriented(TopAbs_FORWARD)), first, last);
        // A degenerated edge (the pole of a sphere, the apex of a cone) is
        // one point: all its nodes are its vertex.
        const bool point = BRep_Tool::Degenerated(edge);
        const TColStd_Array1OfInteger& nodes = polygon->Nodes();
        for (int k = nodes.Lower(); k <= nodes.Upper(); ++k) {
            const bool atFirst = k == nodes.Lower() || point, atLast = k == nodes.Upper();
            const void* key = atFirst ? first.TShape().get() : atLast ? last.TShape().get() : edge.TShape().get();
            const int along = atFirst || atLast ? 0 : k - nodes.Lower();
            const auto [it, fresh] = mShared.emplace(std::make_pair(key, along), 0u);
            if (fresh)
                it->second = vertexAt(triangulation->Node(nodes(k)).Transformed(placement));
            mIndex[size_t(nodes(k))] = it->second;
        }
    }

    unsigned vertexAt(const gp_Pnt& p)
    {
        const PositionKey key{float(p.X()), float(p.Y()), float(p.Z())};
        const auto [it, fresh] = mByPosition.emplace(key, unsigned(mMesh.positions.size()));
        if (fresh)
            mMesh.positions.emplace_back(key.x, key.y, key.z);
        return it->second;
    }

    SourceMesh& mMesh;
    std::vector<unsigned> mIndex;  // the current face's nodes → mesh vertices
    std::map<std::pair<const void*, int>, unsigned> mShared;
    std::unordered_map<PositionKey, unsigned, PositionHash> mByPosition;
};

// True when every directed edge appears once and its reverse once.
bool isClosed(const std::vector<unsigned>& indices)
{
    std::vector<uint64_t> edges;
    edges.reserve(indices.size());
    for (size_t t = 0; t + 2 < indices.size(); t += 3)
        for (int k = 0; k < 3; ++k)
            edges.push_back(uint64_t(indices[t + size_t(k)]) << 32 | indices[t + size_t((k + 1) % 3)]);
    std::sort(edges.begin(), edges.end());
    if (std::adjacent_find(edges.begin(), edges.end()) != edges.end())
        return false;
    return std::all_of(edges.begin(), edges.end(), [&](uint64_t e) {
        return std::binary_search(edges.begin(), edges.end(), e << 32 | e >> 32);
    });
}

double signedVolume(const SourceMesh& mesh)
{
    double volume = 0.0;
    for (size_t t = 0; t + 2 < mesh.indices.size(); t += 3) {
        const Wm4::Vector3<float>& a = mesh.positions[mesh.indices[t]];
        const Wm4::Vector3<float>& b = mesh.positions[mesh.indices[t + 1]];
        const Wm4::Vector3<float>& c = mesh.positions[mesh.indices[t + 2]];
        volume += double(a.Dot(b.Cross(c)));
    }
    return volume / 6.0;
}

double chordTolerance(const TopoDS_Shape& solid, const CadOptions& options)
{
    if (options.deflection > 0.0)
        return options.deflection;
    Bnd_Box box;
    BRepBndLib::Add(solid, box);
    return box.IsVoid() ? 1.0 : kRelativeDeflection * std::sqrt(box.SquareExtent());
}

SolidMesh tessellate(const TopoDS_Shape& solid, const CadOptions& options, bool parallelFaces)
{
    SolidMesh out;
    try {
        const double angle = options.angularDeflection > 0.0 ? options.angularDeflection : kDefaultAngularDeflection;
        BRepMesh_IncrementalMesh mesher(solid, chordTolerance(solid, options), false, angle * M_PI / 180.0,
                                        parallelFaces);
        SolidWelder welder(out.mesh);
        bool everyFace = true;
        for (TopExp_Explorer faces(solid, TopAbs_FACE); faces.More(); faces.Next())
            everyFace = welder.appendFace(TopoDS::Face(faces.Current())) && everyFace;
        if (out.mesh.indices.empty()) {
            out.failure = "could not be tessellated";
            return out;
        }
        out.closed = everyFace && isClosed(out.mesh.indices);
        if (out.closed && signedVolume(out.mesh) < 0.0) {
            for (size_t t = 0; t + 2 < out.mesh.indices.size(); t += 3)
                std::swap(out.mesh.indices[t + 1], out.mesh.indices[t + 2]);
        }
    } catch (const Standard_Failure& e) {
        out.failure = std::string("could not be tessellated (") + e.GetMessageString() + ")";
    } catch (const std::exception& e) {
        out.failure = std::string("could not be tessellated (") + e.what() + ")";
    }
    return out;
}

// Tessellates every prototype, spread over `options.threads` threads; the
// result does not depend on the thread count.
std::vector<SolidMesh> tessellateAll(const TopTools_IndexedMapOfShape& prototypes, const CadOptions& options)
{
    const size_t n = size_t(prototypes.Extent());
    std::vector<SolidMesh> meshes(n);
    const unsigned hardware = std::max(1u, std::thread::hardware_concurrency());
    const unsigned threads = unsigned(std::min<size_t>(n, options.threads ? options.threads : hardware));
    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t k; (k = next++) < n;)
            meshes[k] = tessellate(prototypes(int(k) + 1), options, n == 1 && threads != 1 && hardware > 1);
    };
    if (threads <= 1) {
        work();
        return meshes;
    }
    std::vector<std::thread> pool;
    for (unsigned t = 0; t < threads; ++t)
        pool.emplace_back(work);
    for (std::thread& thread : pool)
        thread.join();
    return meshes;
}

// Moves the tessellations into `out`, dropping the instances of solids that
// failed, and says which solids were skipped or did not close.
void attachMeshes(std::vector<SolidMesh>& meshes, const std::string& file, SourceFile& out)
{
    std::vector<SourceInstance> kept;
    std::vector<bool> reported(meshes.size(), false);
    for (SourceInstance& instance : out.instances) {
        const SolidMesh& mesh = meshes[size_t(instance.meshIndex)];
        const std::string what = file + ": solid '" + instance.node + "' ";
        if (!mesh.failure.empty()) {
            out.warnings.push_back(what + mesh.failure + "; skipped");
            continue;
        }
        if (!mesh.closed && !reported[size_t(instance.meshIndex)])
            out.warnings.push_back(what + "did not close (its mesh has holes)");
        reported[size_t(instance.meshIndex)] = true;
        kept.push_back(std::move(instance));
    }
    if (kept.empty())
        throw InputError(file + ": cannot read: no solid could be tessellated");
    out.instances = std::move(kept);
    for (SolidMesh& mesh : meshes)
        out.meshes.push_back(std::move(mesh.mesh));
}

}  // namespace

SourceFile readCad(const std::string& file, const CadOptions& options)
{
    const OcctMessages messages(options.verbose);
    try {
        XdeDocument doc;
        readDocument(file, doc.get());
        SourceFile out;
        out.units = "mm";
        AssemblyWalker walker(file, doc.get());
        walker.walk(out);
        if (out.instances.empty())
            throw InputError(file + ": cannot read: the file holds no solid");
        std::vector<SolidMesh> meshes = tessellateAll(walker.prototypes(), options);
        attachMeshes(meshes, file, out);
        return out;
    } catch (const Standard_Failure& e) {
        throw InputError(file + ": cannot read: " + e.GetMessageString());
    }
}

#endif

}  // namespace velmora
