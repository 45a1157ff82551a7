#include "kxContactDiagram.h"

#include <cmath>

#include "velmora/LogSink.h"

kxContactDiagram::kxContactDiagram(unsigned /*unused*/, unsigned capacity, const kxMeshGroups& groups)
    : mMeshGroups(groups), mVerbose(false), mAngleTolerance(0.0f)
{
    mEdgeDirections.reserve(capacity);
    mEdgeDirectionIds.reserve(capacity);
    mEdges.reserve(capacity);
    mContactPoints.reserve(capacity);
}

kxContactDiagram::kxContactDiagram(const kxContactDiagram& other) = default;

kxContactDiagram::~kxContactDiagram() = default;

void kxContactDiagram::pushContactEdge(unsigned meshId0, unsigned meshId1, const Wm4::Vector3<double>* directions,
                                       unsigned count, const Wm4::Vector3<float>& point)
{
    const unsigned group0 = mMeshGroups.getGroupIdFromMeshId(meshId0);
    const unsigned group1 = mMeshGroups.getGroupIdFromMeshId(meshId1);
    if (group0 == group1)
        return;
    mEdges.push_back({meshId0, meshId1, group0, group1});
    mEdgeDirections.emplace_back(directions, directions + count);
    mEdgeDirectionIds.emplace_back(count, 0u);
    mContactPoints.push_back(point);
}

namespace {

// The line through `seed` refined twice: the normalised mean of every entry
// within the tolerance of it, opposite entries counted with flipped sign.
Wm4::Vector3<double> refineRepresentative(const std::vector<Wm4::Vector3<double>>& entries, size_t begin, size_t end,
                                          double cosTolerance)
{
    Wm4::Vector3<double> r = entries[begin];
    for (int pass = 0; pass < 2; ++pass) {
        Wm4::Vector3<double> sum;
        double count = 0.0;
        for (size_t j = begin; j < end; ++j) {
            const double d = r.Dot(entries[j]);
            if (d > 0.0 && d >= cosTolerance) {
                sum += entries[j];
                count += 1.0;
            } else if (d <= 0.0 && -d >= cosTolerance) {
                sum -= entries[j];
                count += 1.0;
            }
        }
        if (count > 0.0) {
            r = sum / count;
            r.Normalize();
        }
    }
    return r;
}

}  // namespace

void kxContactDiagram::computeDirectionSet(float angleTolerance)
{
    if (mVerbose)
        velmora::logLine("computing direction set");
    mAngleTolerance = angleTolerance;
    const double c = std::cos(double(angleTolerance) * 3.14159265358979323846 / 180.0);

    std::vector<Wm4::Vector3<double>> entries;
    for (const auto& directions : mEdgeDirections)
        entries.insert(entries.end(), directions.begin(), directions.end());
    size_t remaining = entries.size();
    std::vector<unsigned> startIndex(remaining), assignment(remaining, 0u);
    for (size_t j = 0; j < remaining; ++j)
        startIndex[j] = static_cast<unsigned>(j);
    if (mVerbose)
        velmora::LogStream() << "no directions: " << remaining;

    for (size_t k = 0; k < remaining; ++k) {
        const Wm4::Vector3<double> r = refineRepresentative(entries, k, remaining, c);
        entries[k] = r;
        // The seed joins its own line (|r·r| = 1 >= c).
        assignment[startIndex[k]] = static_cast<unsigned>(2 * k);
        size_t next = k + 1;
        for (size_t j = k + 1; j < remaining; ++j) {
            const double d = r.Dot(entries[j]);
            if (std::fabs(d) >= c) {
                assignment[startIndex[j]] = static_cast<unsigned>(2 * k + (d > 0.0 ? 0 : 1));
            } else {
                entries[next] = entries[j];
                startIndex[next] = startIndex[j];
                ++next;
            }
        }
        remaining = next;
    }
    entries.resize(remaining);
    mDirections = std::move(entries);

    size_t flat = 0;
    for (auto& ids : mEdgeDirectionIds)
        for (unsigned& id : ids)
            id = assignment[flat++];
    if (mVerbose)
        velmora::LogStream() << "no unique directions: " << remaining;
}
