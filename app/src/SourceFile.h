// What a file loader hands the importer: the meshes of one file and where
// they are placed. Internal to the app layer.
#pragma once

#include <functional>
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
    std::optional<Colour> colour;  // its material's base colour, when it has a material
};

struct SourceFile {
    std::vector<SourceMesh> meshes;
    std::vector<SourceInstance> instances;
    std::string units;                  // length unit of the coordinates, "" when unknown ("m" for glTF)
    std::vector<std::string> warnings;  // what the loader skipped, for the user to see
};

// The mesh of a part: non-degenerate triangles only; null when none is left.
// Throws InputError naming `file` on a non-finite coordinate or a corner
// index past the last vertex.
kx::kxPointer<kx::kxTriMesh> buildMesh(const SourceMesh& src, const std::string& file);

// `names` made distinct in order: a repeated name gets "#2", "#3", … so that
// sibling nodes that share a name stay apart in node paths. Empty names stay empty.
std::vector<std::string> distinctSiblingNames(const std::vector<std::string>& names);

// Reads a glTF 2.0 file (.gltf with external or embedded buffers, or binary
// .glb), including quantised attributes (KHR_mesh_quantization) and
// meshopt-compressed buffer views (EXT_meshopt_compression). Throws
// InputError naming the file on anything it cannot read.
SourceFile readGltf(const std::string& file, bool binary);
// The same from the file's bytes; external buffers are looked up beside `file`.
SourceFile parseGltf(const std::vector<unsigned char>& bytes, const std::string& file, bool binary);

// Reads an STL file, ASCII or binary, strictly. Throws InputError naming the
// file on anything it cannot read.
SourceFile readStl(const std::string& file);
SourceFile parseStl(const std::string& bytes, const std::string& file);

// The text of a material library an OBJ file names ("mtllib"), and in
// `where` the name its errors give; nullopt when there is no such library.
using MaterialLibraries = std::function<std::optional<std::string>(const std::string& name, std::string& where)>;

// Reads a Wavefront OBJ file and the material libraries beside it, strictly.
// Throws InputError naming the file on anything it cannot read.
SourceFile readObj(const std::string& file);
SourceFile parseObj(const std::string& bytes, const std::string& file, const MaterialLibraries& libraries);

// A SourceFile as bytes and back (for meshes read in a child process);
// decoding throws InputError on bytes that are not a whole encoded file.
std::string encodeSourceFile(const SourceFile& source);
SourceFile decodeSourceFile(const std::string& bytes);

// Throws InputError when the header of a PLY file declares more elements
// than the file's size can hold (checked before the file is parsed).
void checkPlyHeader(const std::string& file);

}  // namespace velmora
