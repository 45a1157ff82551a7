// Reading assemblies from files: STL, OBJ, PLY, 3MF, glTF and GLB (by file
// extension, in any letter case); a directory is read as one assembly
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
