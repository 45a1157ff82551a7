// Reading assemblies from files: STL, OBJ, PLY, 3MF, glTF and GLB, and STEP
// and IGES assemblies when built with OpenCASCADE (by file extension, in any
// letter case); a directory is read as one assembly
// with one file per part, in file-name order. Every mesh keeps its node's
// world transform and a unique name. Problems with the input are reported as
// InputError naming the file.
#pragma once

#include <string>
#include <vector>

#include "velmora/Assembly.h"

namespace velmora {

struct ImportOptions {
    GroupBy groupBy = GroupBy::Mesh;
    unsigned groupLevel = 1;         // the tree depth that GroupBy::Level groups at
    // Tessellation of CAD solids (STEP, IGES):
    double deflection = 0.0;         // chord tolerance in mm; 0: relative to each solid's size
    double angularDeflection = 0.0;  // degrees; 0: the default (a 10 mm bore gets at least 32 segments)
    unsigned threads = 0;            // 0: one per hardware thread
    bool verbose = false;            // the CAD kernel's messages on standard error, else hidden
};

// Reads every input (files or directories) into one assembly and forms its
// groups. Throws InputError when an input is missing, unreadable, of an
// unsupported format, truncated, holds non-finite coordinates, or when no
// usable triangle is left at all.
Assembly importAssembly(const std::vector<std::string>& inputs, const ImportOptions& options = {});

// The files an import of `inputs` reads: files as given, folders expanded.
// Throws InputError when a folder cannot be listed or holds no mesh file.
std::vector<std::string> listInputFiles(const std::vector<std::string>& inputs);

// True for file names whose extension the importer reads.
bool isSupportedMeshFile(const std::string& path);

}  // namespace velmora
