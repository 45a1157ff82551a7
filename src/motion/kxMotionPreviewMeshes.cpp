// kxMotionDetect: preview meshes that draw removal directions, sliding lines
// and rotation axes at a contact point.
#include "kxMotionDetect.h"
#include "kxMotionGeometry.h"
#include "kxPreviewMeshBuilder.h"

namespace {

using Vec3 = Wm4::Vector3<double>;

// Proportions of the arrows and axes, as fractions of their length.
constexpr double kHeadLength = 0.2;
constexpr double kHeadRadius = 0.06;
constexpr double kShaftRadius = 0.025;
constexpr double kRingInnerRadius = 0.08;
constexpr double kRingOuterRadius = 0.12;

// An arrow from `origin` along the unit `direction`, `length` long; with
// `bothSenses` it spans origin ± length with a head at each end.
void addArrow(tPreviewMeshBuilder& builder, const Vec3& origin, const Vec3& direction, double length, bool bothSenses)
{
    const Vec3 tip = origin + direction * length;
    const Vec3 tail = bothSenses ? origin - direction * length : origin;
    const Vec3 headBase = tip - direction * (kHeadLength * length);
    const Vec3 tailBase = bothSenses ? tail + direction * (kHeadLength * length) : tail;
    builder.addRod(tailBase, headBase, kShaftRadius * length);
    builder.addArrowHead(headBase, tip, kHeadRadius * length);
    if (bothSenses)
        builder.addArrowHead(tailBase, tail, kHeadRadius * length);
}

}  // namespace

kx::kxPointer<kx::kxTriMesh> kxMotionDetect::computeDisassemblyDirectionMesh(const Wm4::Vector3<float>& point,
                                                                             float length)
{
    Vec3 directions[3];
    bool bothSenses[3];
    const unsigned count = computeRemovalDirection(directions, bothSenses);
    tPreviewMeshBuilder builder;
    for (unsigned i = 0; i < count; ++i)
        addArrow(builder, kxMotionGeometry::widen(point), directions[i], double(length), bothSenses[i]);
    return builder.build();
}

kx::kxPointer<kx::kxTriMesh> kxMotionDetect::computeTranslationMesh(const Wm4::Vector3<float>& point, float length)
{
    Vec3 lines[3];
    const unsigned count = getBestTranslationParameters(lines);
    tPreviewMeshBuilder builder;
    for (unsigned i = 0; i < count; ++i)
        addArrow(builder, kxMotionGeometry::widen(point), lines[i], double(length), true);
    return builder.build();
}

kx::kxPointer<kx::kxTriMesh> kxMotionDetect::ComputeAxisMesh(const Wm4::Vector3<double>& axis,
                                                             const Wm4::Vector3<double>& point, float length)
{
    Vec3 direction = axis;
    direction.Normalize();
    const double half = 0.5 * double(length);
    tPreviewMeshBuilder builder;
    builder.addRod(point - direction * half, point + direction * half, kShaftRadius * double(length));
    builder.addRing(point, direction, kRingInnerRadius * double(length), kRingOuterRadius * double(length));
    return builder.build();
}
