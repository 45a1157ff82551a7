// tPreviewMeshBuilder: collects flat-shaded triangles (each with its own three
// vertices carrying the face normal) for the small preview meshes of motion
// analysis: rods, arrow heads and rings around a line, built from circular
// frustums with a fixed number of segments. Every closed part is wound
// counter-clockwise seen from outside.
#pragma once

#include <vector>

#include "Wm4.h"
#include "kxSceneGraph.h"

class tPreviewMeshBuilder {
public:
    // A closed cylinder from `from` to `to`.
    void addRod(const Wm4::Vector3<double>& from, const Wm4::Vector3<double>& to, double radius);
    // A closed cone with its base disk at `base` and its apex at `apex`.
    void addArrowHead(const Wm4::Vector3<double>& base, const Wm4::Vector3<double>& apex, double radius);
    // A flat two-sided annulus around `centre`, perpendicular to the unit `axis`.
    void addRing(const Wm4::Vector3<double>& centre, const Wm4::Vector3<double>& axis, double innerRadius,
                 double outerRadius);
    // The collected triangles as a mesh (positions and normals); null when empty.
    kx::kxPointer<kx::kxTriMesh> build() const;

private:
    // The lateral surface between the circle of radius r0 about c0 and the circle
    // of radius r1 about c1, both perpendicular to the unit `axis`; its triangles
    // face away from the axis for c1 ahead of c0 along it. With c0 = c1 it is a
    // flat annulus (or a disk when a radius is 0) facing +axis when r0 > r1 and
    // −axis when r0 < r1. Zero-area triangles are skipped.
    void addFrustum(const Wm4::Vector3<double>& axis, const Wm4::Vector3<double>& c0, double r0,
                    const Wm4::Vector3<double>& c1, double r1);
    void addTriangle(const Wm4::Vector3<double>& a, const Wm4::Vector3<double>& b, const Wm4::Vector3<double>& c);

    std::vector<Wm4::Vector3<float>> mPositions;
    std::vector<Wm4::Vector3<float>> mNormals;
};
