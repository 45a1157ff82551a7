#include "StepWriter.h"

#ifdef VELMORA_WITH_STEP

#include <BRepAlgoAPI_Cut.hxx>
#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <IGESCAFControl_Writer.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Quantity_Color.hxx>
#include <STEPCAFControl_Writer.hxx>
#include <TDataStd_Name.hxx>
#include <XCAFApp_Application.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <gp_Ax2.hxx>
#include <gp_Pln.hxx>
#include <stdexcept>

namespace step_test {

XdeBuilder::XdeBuilder()
{
    XCAFApp_Application::GetApplication()->NewDocument("MDTV-XCAF", mDoc);
    mShapes = XCAFDoc_DocumentTool::ShapeTool(mDoc->Main());
    mColours = XCAFDoc_DocumentTool::ColorTool(mDoc->Main());
}

XdeBuilder::~XdeBuilder() { XCAFApp_Application::GetApplication()->Close(mDoc); }

namespace {

void setName(const TDF_Label& label, const std::string& name)
{
    if (!name.empty())
        TDataStd_Name::Set(label, TCollection_ExtendedString(name.c_str()));
}

}  // namespace

TDF_Label XdeBuilder::addPart(const TopoDS_Shape& shape, const std::string& name,
                              std::optional<velmora::Colour> colour)
{
    const TDF_Label label = mShapes->AddShape(shape, false);
    setName(label, name);
    if (colour)
        mColours->SetColor(label, Quantity_Color(colour->r, colour->g, colour->b, Quantity_TOC_RGB),
                           XCAFDoc_ColorSurf);
    return label;
}

TDF_Label XdeBuilder::addAssembly(const std::string& name)
{
    const TDF_Label label = mShapes->NewShape();
    setName(label, name);
    return label;
}

TDF_Label XdeBuilder::addInstance(const TDF_Label& assembly, const TDF_Label& product, const gp_Trsf& placement,
                                  const std::string& name, std::optional<velmora::Colour> colour)
{
    const TDF_Label component = mShapes->AddComponent(assembly, product, TopLoc_Location(placement));
    setName(component, name);
    if (colour)
        mColours->SetColor(component, Quantity_Color(colour->r, colour->g, colour->b, Quantity_TOC_RGB),
                           XCAFDoc_ColorSurf);
    return component;
}

void XdeBuilder::write(const std::string& path, const char* unit)
{
    mShapes->UpdateAssemblies();
    const Handle(Message_Messenger) messenger = Message::DefaultMessenger();
    const Message_SequenceOfPrinters printers = messenger->Printers();
    messenger->ChangePrinters().Clear();
    Interface_Static::SetCVal("write.step.unit", unit);
    STEPCAFControl_Writer writer;
    writer.SetColorMode(true);
    writer.SetNameMode(true);
    const bool ok = writer.Transfer(mDoc, STEPControl_AsIs) && writer.Write(path.c_str()) == IFSelect_RetDone;
    Interface_Static::SetCVal("write.step.unit", "MM");
    messenger->ChangePrinters() = printers;
    if (!ok)
        throw std::runtime_error("cannot write " + path);
}

void XdeBuilder::writeIges(const std::string& path)
{
    mShapes->UpdateAssemblies();
    Interface_Static::SetIVal("write.iges.brep.mode", 1);
    IGESCAFControl_Writer writer;
    const bool ok = writer.Transfer(mDoc) && writer.Write(path.c_str());
    Interface_Static::SetIVal("write.iges.brep.mode", 0);
    if (!ok)
        throw std::runtime_error("cannot write " + path);
}

TopoDS_Shape box(double x0, double y0, double z0, double x1, double y1, double z1)
{
    return BRepPrimAPI_MakeBox(gp_Pnt(x0, y0, z0), gp_Pnt(x1, y1, z1)).Shape();
}

TopoDS_Shape cylinder(double x, double y, double radius, double z0, double z1)
{
    return BRepPrimAPI_MakeCylinder(gp_Ax2(gp_Pnt(x, y, z0), gp::DZ()), radius, z1 - z0).Shape();
}

TopoDS_Shape flangePlate()
{
    TopoDS_Shape plate = box(0, 0, 0, 100, 100, 10);
    for (const auto& c : kBoreCentres)
        plate = BRepAlgoAPI_Cut(plate, cylinder(c[0], c[1], 5, -1, 11)).Shape();
    return plate;
}

TopoDS_Shape bolt() { return BRepAlgoAPI_Fuse(cylinder(0, 0, 5, 0, 10), cylinder(0, 0, 8, 10, 15)).Shape(); }

TopoDS_Shape squareFace() { return BRepBuilderAPI_MakeFace(gp_Pln(gp::XOY()), 0, 10, 0, 10).Shape(); }

gp_Trsf translation(double x, double y, double z)
{
    gp_Trsf t;
    t.SetTranslation(gp_Vec(x, y, z));
    return t;
}

gp_Trsf rotationZ(double degrees, double x, double y, double z)
{
    gp_Trsf r;
    r.SetRotation(gp::OZ(), degrees * M_PI / 180.0);
    return translation(x, y, z) * r;
}

}  // namespace step_test

#endif
