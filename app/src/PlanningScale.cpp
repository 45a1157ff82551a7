#include "velmora/PlanningScale.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <sstream>

namespace velmora {
namespace {

// Below this size the assembly's coordinates are resolved only by denormal
// floats (a size of 2^24 smallest normal floats).
constexpr double kSmallestSize = double(FLT_MIN) * 16777216.0;

// A planning-frame coordinate beyond this squares past the float range.
constexpr double kLargestCoordinate = 18446744073709551616.0;  // 2^64

struct Extent {
    double lo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL};
    double hi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    double largestSide() const { return std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]}); }
    double largestMagnitude() const
    {
        double m = 0.0;
        for (int i = 0; i < 3; ++i)
            m = std::max({m, std::fabs(lo[i]), std::fabs(hi[i])});
        return m;
    }
};

std::string lengthText(double length)
{
    std::ostringstream text;
    text.precision(3);
    text << length;
    return text.str();
}

// The box of all vertices; throws on the first one that is not finite.
Extent extentOf(const Assembly& assembly, const std::vector<kx::kxPointer<kx::kxTriMesh>>& groupMeshes)
{
    Extent extent;
    for (size_t g = 0; g < groupMeshes.size(); ++g) {
        const kx::kxVertexBuffer& vertices = *groupMeshes[g]->GetVertexBuffer();
        for (int v = 0; v < vertices.GetVertexQuantity(); ++v) {
            const Wm4::Vector3<float>& p = vertices.Position3(v);
            for (int i = 0; i < 3; ++i) {
                if (!std::isfinite(p[i]))
                    throw InputError("'" + assembly.groups[g].name + "' has a coordinate that is not a finite number");
                extent.lo[i] = std::min(extent.lo[i], double(p[i]));
                extent.hi[i] = std::max(extent.hi[i], double(p[i]));
            }
        }
    }
    return extent;
}

}  // namespace

void checkFiniteCoordinates(const Assembly& assembly, const std::vector<kx::kxPointer<kx::kxTriMesh>>& groupMeshes)
{
    extentOf(assembly, groupMeshes);
}

double planningScale(const Assembly& assembly, const std::vector<kx::kxPointer<kx::kxTriMesh>>& groupMeshes)
{
    const Extent extent = extentOf(assembly, groupMeshes);
    const double size = extent.largestSide();
    if (!(size > 0.0))
        throw InputError("the assembly has no size: all its vertices lie in one point");
    if (size < kSmallestSize)
        throw InputError("the assembly is too small to plan: it spans " + lengthText(size) +
                         " units, below what float coordinates resolve");
    int sizeExponent = 0;
    int planningExponent = 0;
    std::frexp(size, &sizeExponent);
    std::frexp(kPlanningExtent, &planningExponent);
    const double factor = std::ldexp(1.0, planningExponent - sizeExponent);
    if (!(extent.largestMagnitude() * factor < kLargestCoordinate))
        throw InputError("the assembly lies too far from the origin for its size (" + lengthText(size) +
                         " units wide at " + lengthText(extent.largestMagnitude()) + ")");
    return factor;
}

void scalePositions(const std::vector<kx::kxPointer<kx::kxTriMesh>>& meshes, double factor)
{
    const float f = float(factor);
    for (const kx::kxPointer<kx::kxTriMesh>& mesh : meshes) {
        kx::kxVertexBuffer& vertices = *mesh->GetVertexBuffer();
        for (int v = 0; v < vertices.GetVertexQuantity(); ++v)
            vertices.Position3(v) *= f;
    }
}

}  // namespace velmora
