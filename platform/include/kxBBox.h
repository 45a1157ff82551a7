// kx::kxBBox: an axis-aligned box given by its minimum and maximum corners.
//
// Invariant: a box is either empty (min = +FLT_MAX and max = -FLT_MAX on every
// axis, so that any union or expansion replaces it) or holds min <= max on every
// axis. Boxes are closed: a point on a face is inside, boxes that share a face
// overlap. All operations are plain value computations with no allocation.
#pragma once

#include <algorithm>
#include <cfloat>

#include "Wm4Vector3.h"

namespace kx {

class kxBBox {
public:
    // The empty box.
    kxBBox() : min(FLT_MAX, FLT_MAX, FLT_MAX), max(-FLT_MAX, -FLT_MAX, -FLT_MAX) {}
    kxBBox(const Wm4::Vector3<float>& minCorner, const Wm4::Vector3<float>& maxCorner)
        : min(minCorner), max(maxCorner)
    {
    }

    bool isEmpty() const { return min[0] > max[0] || min[1] > max[1] || min[2] > max[2]; }
    Wm4::Vector3<float> getCenter() const { return (min + max) * 0.5f; }
    Wm4::Vector3<float> getExtent() const { return max - min; }
    // Largest side length (negative for the empty box).
    float getMaxExtent() const
    {
        const Wm4::Vector3<float> e = getExtent();
        return std::max(std::max(e[0], e[1]), e[2]);
    }
    // Length of the diagonal from min to max (infinite for the empty box).
    float getDiagonalLength() const { return getExtent().Length(); }
    // Half the surface area: the measure a surface-area heuristic compares.
    float getHalfArea() const
    {
        const Wm4::Vector3<float> e = getExtent();
        return e[0] * e[1] + e[1] * e[2] + e[2] * e[0];
    }

    // A copy enlarged by `margin` on every side (a negative margin shrinks it).
    kxBBox grow(float margin) const
    {
        const Wm4::Vector3<float> m(margin, margin, margin);
        return {min - m, max + m};
    }
    // Whether the closed box and the closed triangle share a point. Exact
    // separating-axis test over the 13 candidate axes (3 box normals, the
    // triangle normal, 9 edge cross products), evaluated in double precision.
    // A degenerate triangle is tested as the segment or point it is.
    bool overlapsTriangle(const Wm4::Vector3<float>& p0, const Wm4::Vector3<float>& p1,
                          const Wm4::Vector3<float>& p2) const;
    bool containsPoint(const Wm4::Vector3<float>& point) const;

    // The smallest box enclosing this box and `other`.
    kxBBox bboxUnion(const kxBBox& other) const
    {
        kxBBox result = *this;
        result.selfUnion(other);
        return result;
    }
    // Grows this box to enclose `other`.
    void selfUnion(const kxBBox& other)
    {
        for (int k = 0; k < 3; ++k) {
            min[k] = std::min(min[k], other.min[k]);
            max[k] = std::max(max[k], other.max[k]);
        }
    }
    // Grows this box to enclose `point`.
    void selfExpand(const Wm4::Vector3<float>& point)
    {
        for (int k = 0; k < 3; ++k) {
            min[k] = std::min(min[k], point[k]);
            max[k] = std::max(max[k], point[k]);
        }
    }

    Wm4::Vector3<float> min;
    Wm4::Vector3<float> max;
};

}  // namespace kx
