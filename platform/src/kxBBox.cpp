#include "kxBBox.h"

#include <algorithm>
#include <cmath>

namespace kx {

namespace {

struct Vec3d {
    double x, y, z;
};

Vec3d sub(const Vec3d& a, const Vec3d& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
double dot(const Vec3d& a, const Vec3d& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec3d cross(const Vec3d& a, const Vec3d& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

// The triangle (corners relative to the box centre) and the box (half sides)
// are separated along `axis` when the triangle's projection lies entirely
// outside the box's projection [-r, r]. A zero axis never separates.
bool separatedAlong(const Vec3d& axis, const Vec3d v[3], const Vec3d& half)
{
    const double r = half.x * std::abs(axis.x) + half.y * std::abs(axis.y) + half.z * std::abs(axis.z);
    const double t0 = dot(axis, v[0]);
    const double t1 = dot(axis, v[1]);
    const double t2 = dot(axis, v[2]);
    return std::min({t0, t1, t2}) > r || std::max({t0, t1, t2}) < -r;
}

}  // namespace

bool kxBBox::overlapsTriangle(const Wm4::Vector3<float>& p0, const Wm4::Vector3<float>& p1,
                              const Wm4::Vector3<float>& p2) const
{
    if (isEmpty())
        return false;
    // Differences and half sums of floats are exact in double, so the box is
    // represented exactly and the corners nearly so.
    const Vec3d centre{(double(min[0]) + max[0]) * 0.5, (double(min[1]) + max[1]) * 0.5,
                       (double(min[2]) + max[2]) * 0.5};
    const Vec3d half{(double(max[0]) - min[0]) * 0.5, (double(max[1]) - min[1]) * 0.5,
                     (double(max[2]) - min[2]) * 0.5};
    const Wm4::Vector3<float>* corners[3] = {&p0, &p1, &p2};
    Vec3d v[3];
    for (int i = 0; i < 3; ++i)
        v[i] = sub(Vec3d{(*corners[i])[0], (*corners[i])[1], (*corners[i])[2]}, centre);

    const Vec3d boxAxes[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (const Vec3d& axis : boxAxes) {
        if (separatedAlong(axis, v, half))
            return false;
    }
    const Vec3d edges[3] = {sub(v[1], v[0]), sub(v[2], v[1]), sub(v[0], v[2])};
    if (separatedAlong(cross(edges[0], edges[1]), v, half))
        return false;
    for (const Vec3d& boxAxis : boxAxes) {
        for (const Vec3d& edge : edges) {
            if (separatedAlong(cross(boxAxis, edge), v, half))
                return false;
        }
    }
    return true;
}

bool kxBBox::containsPoint(const Wm4::Vector3<float>& point) const
{
    for (int k = 0; k < 3; ++k) {
        if (point[k] < min[k] || point[k] > max[k])
            return false;
    }
    return true;
}

}  // namespace kx
