// Writes a generated machine assembly (see MachineAssembly.h) to a new folder,
// one mesh file per part, so that the command-line tool can be timed on it:
//
//   generate_assembly PARTS FOLDER [--stl]     a grid of modules, PARTS parts
//   generate_assembly dense FOLDER [--stl]     7 parts, about 3.5 million triangles
//   generate_assembly cubes:XxYxZ FOLDER [--stl]  a grid of touching unit cubes
//
// Files are Wavefront OBJ, or binary STL with --stl. The folder must not exist
// yet or be empty: nothing already there is ever replaced.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "MachineAssembly.h"

namespace {

using velmora_bench::Vec3f;

void writeObj(const velmora::Part& part, std::ofstream& out)
{
    const kx::kxVertexBuffer& vb = *part.mesh->GetVertexBuffer();
    const kx::kxIndexBuffer& ib = *part.mesh->GetIndexBuffer();
    out << "o " << part.name << '\n';
    char line[128];
    for (int v = 0; v < vb.GetVertexQuantity(); ++v) {
        const Vec3f& p = vb.Position3(v);
        std::snprintf(line, sizeof line, "v %.9g %.9g %.9g\n", double(p[0]), double(p[1]), double(p[2]));
        out << line;
    }
    for (int i = 0; i < ib.GetIndexQuantity(); i += 3) {
        const unsigned* t = ib.GetData() + i;
        out << "f " << t[0] + 1 << ' ' << t[1] + 1 << ' ' << t[2] + 1 << '\n';
    }
}

void writeStl(const velmora::Part& part, std::ofstream& out)
{
    const kx::kxVertexBuffer& vb = *part.mesh->GetVertexBuffer();
    const kx::kxIndexBuffer& ib = *part.mesh->GetIndexBuffer();
    char header[80] = {};
    std::snprintf(header, sizeof header, "%s", part.name.c_str());
    out.write(header, sizeof header);
    const uint32_t count = uint32_t(ib.GetIndexQuantity() / 3);
    out.write(reinterpret_cast<const char*>(&count), sizeof count);
    for (int i = 0; i < ib.GetIndexQuantity(); i += 3) {
        const unsigned* t = ib.GetData() + i;
        const Vec3f& a = vb.Position3(int(t[0]));
        const Vec3f& b = vb.Position3(int(t[1]));
        const Vec3f& c = vb.Position3(int(t[2]));
        const Vec3f normal = (b - a).UnitCross(c - a);
        float record[12];
        for (int k = 0; k < 3; ++k) {
            record[k] = normal[k];
            record[3 + k] = a[k];
            record[6 + k] = b[k];
            record[9 + k] = c[k];
        }
        const uint16_t attributes = 0;
        out.write(reinterpret_cast<const char*>(record), sizeof record);
        out.write(reinterpret_cast<const char*>(&attributes), sizeof attributes);
    }
}

int usage()
{
    std::cerr << "usage: generate_assembly PARTS|dense|cubes:XxYxZ FOLDER [--stl]\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3 || argc > 4 || (argc == 4 && std::string(argv[3]) != "--stl"))
        return usage();
    const std::string size = argv[1];
    const std::filesystem::path folder = argv[2];
    const bool stl = argc == 4;
    std::error_code ec;
    if (std::filesystem::exists(folder, ec) && !std::filesystem::is_empty(folder, ec)) {
        std::cerr << "generate_assembly: error: " << folder << " is not empty\n";
        return 2;
    }
    velmora::Assembly assembly;
    unsigned x = 0, y = 0, z = 0;
    if (size == "dense") {
        assembly = velmora_bench::MachineAssemblyBuilder::dense(5, 768, 100);
    } else if (std::sscanf(size.c_str(), "cubes:%ux%ux%u", &x, &y, &z) == 3) {
        if (x == 0 || y == 0 || z == 0 || x * y * z > 100000)
            return usage();
        assembly = velmora_bench::MachineAssemblyBuilder::cubeGrid(x, y, z);
    } else {
        const unsigned long parts = std::strtoul(size.c_str(), nullptr, 10);
        if (parts == 0 || parts > 100000)
            return usage();
        assembly = velmora_bench::MachineAssemblyBuilder::grid(unsigned(parts));
    }
    std::filesystem::create_directories(folder, ec);
    for (const velmora::Part& part : assembly.parts) {
        std::ofstream out(folder / (part.name + (stl ? ".stl" : ".obj")), std::ios::binary);
        stl ? writeStl(part, out) : writeObj(part, out);
        if (!out) {
            std::cerr << "generate_assembly: error: cannot write " << part.name << " in " << folder << "\n";
            return 3;
        }
    }
    std::cout << assembly.parts.size() << " parts, " << assembly.triangleCount() << " triangles in " << folder
              << "\n";
    return 0;
}
