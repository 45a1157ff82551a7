// Builds small CAD assemblies in an OpenCASCADE XDE document and writes them
// as STEP, so the tests read files made by a real CAD writer: products with
// names and colours, assemblies with placed (and rotated) instances, and a
// choice of the file's length unit.
#pragma once

#ifdef VELMORA_WITH_STEP

#include <TDF_Label.hxx>
#include <TDocStd_Document.hxx>
#include <TopoDS_Shape.hxx>
#include <XCAFDoc_ColorTool.hxx>
#include <XCAFDoc_ShapeTool.hxx>
#include <gp_Trsf.hxx>
#include <optional>
#include <string>

#include "velmora/Assembly.h"

namespace step_test {

class XdeBuilder {
public:
    XdeBuilder();
    ~XdeBuilder();
    XdeBuilder(const XdeBuilder&) = delete;
    XdeBuilder& operator=(const XdeBuilder&) = delete;

    // A product holding `shape`.
    TDF_Label addPart(const TopoDS_Shape& shape, const std::string& name,
                      std::optional<velmora::Colour> colour = std::nullopt);
    // An empty assembly product (free until placed in another).
    TDF_Label addAssembly(const std::string& name);
    // Places `product` in `assembly` by `placement`; an empty name leaves the instance unnamed.
    TDF_Label addInstance(const TDF_Label& assembly, const TDF_Label& product, const gp_Trsf& placement,
                          const std::string& name = "", std::optional<velmora::Colour> colour = std::nullopt);
    // Writes the document as STEP (AP214) with lengths in `unit` ("MM", "INCH", …).
    void write(const std::string& path, const char* unit = "MM");
    // Writes the document as IGES, solids as solids (B-rep mode), in millimetres.
    void writeIges(const std::string& path);

private:
    Handle(TDocStd_Document) mDoc;
    Handle(XCAFDoc_ShapeTool) mShapes;
    Handle(XCAFDoc_ColorTool) mColours;
};

// Shapes in millimetres.
TopoDS_Shape box(double x0, double y0, double z0, double x1, double y1, double z1);
// A cylinder around the z axis through (x, y) from z0 to z1.
TopoDS_Shape cylinder(double x, double y, double radius, double z0, double z1);
// A flange plate [0, 100]² × [0, 10] with four bores of radius 5 at (20|80, 20|80).
TopoDS_Shape flangePlate();
// A bolt in its own frame: shank of radius 5 from z = 0 to 10, head of radius 8 from 10 to 15.
TopoDS_Shape bolt();
// A face only (no solid).
TopoDS_Shape squareFace();

gp_Trsf translation(double x, double y, double z);
// A rotation by `degrees` about the z axis, then a translation.
gp_Trsf rotationZ(double degrees, double x, double y, double z);

// The bore centres of flangePlate().
constexpr double kBoreCentres[4][2] = {{20, 20}, {80, 20}, {20, 80}, {80, 80}};

}  // namespace step_test

#endif
