// kxExplosionDiagram: the bounding prisms every separation test runs on, and
// baking the final translations into the scene and back out.
#include <algorithm>
#include <cmath>
#include <limits>

#include "kxExplosionDiagram.h"

using Vec3f = Wm4::Vector3<float>;

kxExplosionDiagram::tOrthogonalDirectionSet kxExplosionDiagram::makeOrthogonalDirectionSet(
    const Wm4::Vector3<double>& direction)
{
    constexpr float kQuarterPi = 0.7853982f;
    const Vec3f d(float(direction.X()), float(direction.Y()), float(direction.Z()));
    Vec3f u = std::fabs(d.X()) > std::fabs(d.Y()) ? d.Cross(Vec3f::UNIT_Y) : d.Cross(Vec3f::UNIT_X);
    u.Normalize();
    const Vec3f v = u.Cross(d);
    tOrthogonalDirectionSet set;
    set.directions[0] = d;
    for (int j = 0; j < 4; ++j) {
        const float angle = float(j) * kQuarterPi;
        set.directions[1 + j] = u * std::sin(angle) + v * std::cos(angle);
    }
    return set;
}

void kxExplosionDiagram::computeBoundingPrisms(tDirectionSets& directions, tPrisms& planes) const
{
    const unsigned noDirections = mContactDiagram->getNoDirections();
    const unsigned noGroups = mMeshGroups->getNoGroups();
    directions.resize(noDirections);
    for (unsigned k = 0; k < noDirections; ++k)
        directions[k] = makeOrthogonalDirectionSet(mContactDiagram->getDirectionFromId(k));

    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    tBoundingPlanesMinMax empty;
    std::fill(std::begin(empty.range), std::end(empty.range), tBoundingPlanesMinMax::tRange{kInfinity, -kInfinity});
    planes.assign(size_t(noGroups) * noDirections, empty);

    for (unsigned group = 0; group < noGroups; ++group) {
        tBoundingPlanesMinMax* groupPlanes = planes.data() + size_t(group) * noDirections;
        for (unsigned i = 0; i < mMeshGroups->getGroupSize(group); ++i) {
            const kx::kxTriMesh* mesh = mMeshGroups->getMeshFromGroup(group, i);
            const kx::kxVertexBuffer* vertices = mesh ? mesh->GetVertexBuffer() : nullptr;
            if (vertices == nullptr)
                continue;
            for (int v = 0; v < vertices->GetVertexQuantity(); ++v) {
                const Vec3f& position = vertices->Position3(v);
                for (unsigned k = 0; k < noDirections; ++k) {
                    for (int j = 0; j < 5; ++j) {
                        const float x = position.Dot(directions[k].directions[j]);
                        tBoundingPlanesMinMax::tRange& range = groupPlanes[k].range[j];
                        range.min = std::min(range.min, x);
                        range.max = std::max(range.max, x);
                    }
                }
            }
        }
    }
}

void kxExplosionDiagram::fixTranslationAlignment(const tDirectionSets&, const tPrisms&, std::vector<tSplitData>&) const
{
    // Nothing to adjust: every split direction is a unit vector along its set
    // direction (within the contact diagram's angle tolerance), and the
    // translation passes take the part of a reference-pair offset across the
    // split direction out themselves, so the split data already line up.
}

void kxExplosionDiagram::applyTranslationToMeshes(float sign) const
{
    for (unsigned group = 0; group < mMeshGroups->getNoGroups(); ++group) {
        const Vec3f& translation = mFinalPerGroupTranslations[group];
        for (unsigned i = 0; i < mMeshGroups->getGroupSize(group); ++i) {
            kx::kxTriMesh* mesh = mMeshGroups->editMeshFromGroup(group, i);
            if (mesh == nullptr)
                continue;
            kx::kxGenericTransformation<float>& local = mesh->editLocalTransform(true);
            // World-space offset into the parent's frame, then into the local one.
            const Wm4::Matrix3<float> worldInverse = mesh->World.GetMatrix().Inverse();
            const Vec3f offset = local.GetMatrix() * (worldInverse * translation);
            local.SetTranslate(local.GetTranslate() + offset * sign);
        }
    }
}

void kxExplosionDiagram::bakeTranslations() const { applyTranslationToMeshes(1.0f); }

void kxExplosionDiagram::unbakeTranslations() const { applyTranslationToMeshes(-1.0f); }
