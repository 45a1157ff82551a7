// Reading CAD exchange files (STEP, IGES) into meshes: the assembly tree is
// walked with every leaf solid placed by its chain of instance placements,
// named after its instance (else its product), coloured as the file says, in
// millimetres whatever the file's unit. Each distinct solid is tessellated
// once into one welded mesh whose triangles face outwards; the instances
// share it. Internal to the app layer.
#pragma once

#include <string>

#include "SourceFile.h"

namespace velmora {

struct CadOptions {
    double deflection = 0.0;         // chord tolerance in mm; 0: relative to each solid's size
    double angularDeflection = 0.0;  // degrees between neighbouring normals; 0: the default
    unsigned threads = 0;            // tessellation threads; 0: one per hardware thread
    bool verbose = false;            // OpenCASCADE's messages on standard error, else hidden
};

// The defaults: relative chord tolerance (a fraction of a solid's bounding-box
// diagonal) and angle, fine enough that a 10 mm bore gets at least 32 segments.
constexpr double kRelativeDeflection = 0.001;
constexpr double kDefaultAngularDeflection = 10.0;

// True for the extensions readCad takes (.step, .stp, .igs, .iges, any case).
bool isCadFile(const std::string& path);

// Reads one STEP or IGES file. Throws InputError naming the file when it cannot
// be read, holds no solid, or no solid could be tessellated (and when the
// program was built without OpenCASCADE); solids skipped for other reasons are
// listed in the result's warnings.
SourceFile readCad(const std::string& file, const CadOptions& options);

}  // namespace velmora
