// Sample assemblies generated in code, for `velmora demo`, tests and
// benchmarks. Round parts share their segment count, so a pin and its hole
// have coincident faces, as in CAD exports.
#pragma once

#include <string>
#include <vector>

#include "velmora/Assembly.h"

namespace velmora {

// "lid-on-box", "peg-in-hole", "stack", and "pins" (the real pins.glb shipped
// in examples/, when present).
std::vector<std::string> demoAssemblyNames();

// The named demo assembly, grouped one group per part. Throws InputError for
// an unknown name (listing the known ones).
Assembly makeDemoAssembly(const std::string& name);

// A synthetic assembly of `parts` bricks laid in courses of ten, each course
// shifted by half a brick (a running-bond wall standing on the xy plane):
// every brick touches its neighbours in the course and two bricks below.
Assembly makeBrickWall(unsigned parts);

// Mesh builders the demos are made of (outward-facing triangles).
namespace shapes {
// Axis-aligned box.
kx::kxPointer<kx::kxTriMesh> box(const Wm4::Vector3<float>& lo, const Wm4::Vector3<float>& hi);
// Solid of revolution about the z axis through (cx, cy): `profile` is a
// polyline of (radius, z) points; points with radius 0 lie on the axis. An
// open profile must start and end on the axis; otherwise it is closed.
kx::kxPointer<kx::kxTriMesh> lathe(const std::vector<Wm4::Vector2<float>>& profile, unsigned segments, float cx = 0.0f,
                                   float cy = 0.0f);
// A round plate between z0 and z1 (radius R about the origin) with a round
// through-hole of radius r centred at (hx, hy); the hole must lie inside.
kx::kxPointer<kx::kxTriMesh> plateWithHole(float R, float hx, float hy, float r, float z0, float z1, unsigned segments);
}  // namespace shapes

}  // namespace velmora
