// What a file loader hands the importer: the meshes of one file and where
// they are placed. Internal to the app layer.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kxSceneGraph.h"
#include "velmora/Assembly.h"

namespace velmora {

// One placement of a mesh of a file, as a loader reports it.
struct SourceInstance {
    std::string node;      // the placing node's name ("" when the file has no nodes)
    std::string nodePath;  // '/'-separated names below the root
    std::string mesh;      // the mesh's name
    bool nodeHasOneMesh = true;
    int meshIndex = 0;     // instances of one mesh index share their geometry
    kx::kxGenericTransformation<float> world;
    std::optional<Colour> colour;  // the file's colour for this placement, when it gives one
};

// Geometry of one mesh of a file: positions and triangle corner indices.
struct SourceMesh {
    std::vector<Wm4::Vector3<float>> positions;
    std::vector<unsigned> indices;
};

struct SourceFile {
    std::vector<SourceMesh> meshes;
    std::vector<SourceInstance> instances;
    std::string units;                  // length unit of the coordinates, "" when unknown
    std::vector<std::string> warnings;  // what the loader skipped, for the user to see
};

// `names` made distinct in order: a repeated name gets "#2", "#3", … so that
// sibling nodes that share a name stay apart in node paths. Empty names stay empty.
std::vector<std::string> distinctSiblingNames(const std::vector<std::string>& names);

// Reads a glTF 2.0 file (.gltf with external or embedded buffers, or binary
// .glb). Throws InputError naming the file on anything it cannot read.
SourceFile readGltf(const std::string& file, bool binary);

}  // namespace velmora
