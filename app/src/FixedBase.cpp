#include "velmora/FixedBase.h"

#include <algorithm>
#include <cmath>

namespace velmora {
namespace {

using Vec3f = Wm4::Vector3<float>;

// The sorted distinct key times of `groups`.
std::vector<float> unionOfTimes(const std::vector<const GroupKeyframes*>& groups)
{
    std::vector<float> times;
    for (const GroupKeyframes* keys : groups)
        times.insert(times.end(), keys->times.begin(), keys->times.end());
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    return times;
}

// Position of `t` on the piecewise-linear map from `from` to `to` (same sizes, ascending).
float remapTime(const std::vector<float>& from, const std::vector<float>& to, float t)
{
    const auto at = std::lower_bound(from.begin(), from.end(), t);
    return to[size_t(at - from.begin())];
}

}  // namespace

double partVolume(const Part& part)
{
    const kx::kxTriMesh& mesh = *part.mesh;
    double sixTimesVolume = 0.0;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i[3];
        mesh.GetTriangle(t, i[0], i[1], i[2]);
        Wm4::Vector3<double> p[3];
        for (int c = 0; c < 3; ++c) {
            const Vec3f w = mesh.World.ApplyForward(mesh.GetVertexBuffer()->Position3(i[c]));
            p[c] = Wm4::Vector3<double>(w.X(), w.Y(), w.Z());
        }
        sixTimesVolume += p[0].Dot(p[1].Cross(p[2]));
    }
    return std::fabs(sixTimesVolume) / 6.0;
}

unsigned largestPart(const Assembly& assembly)
{
    unsigned best = 0;
    double bestVolume = -1.0;
    for (unsigned p = 0; p < assembly.parts.size(); ++p) {
        const double volume = partVolume(assembly.parts[p]);
        if (volume > bestVolume)
            best = p, bestVolume = volume;
    }
    return best;
}

std::vector<Vec3f> offsetsRelativeTo(const std::vector<Vec3f>& offsets, unsigned base)
{
    std::vector<Vec3f> out;
    out.reserve(offsets.size());
    for (const Vec3f& offset : offsets)
        out.push_back(offset - offsets.at(base));
    return out;
}

Vec3f translationAt(const GroupKeyframes& keys, float time)
{
    if (keys.times.empty())
        return Vec3f::ZERO;
    const auto after = std::upper_bound(keys.times.begin(), keys.times.end(), time);
    if (after == keys.times.begin())
        return keys.translations.front();
    if (after == keys.times.end())
        return keys.translations.back();
    const size_t k = size_t(after - keys.times.begin());
    const float t0 = keys.times[k - 1], t1 = keys.times[k];
    if (time == t0)
        return keys.translations[k - 1];
    const float u = (time - t0) / (t1 - t0);
    return keys.translations[k - 1] + (keys.translations[k] - keys.translations[k - 1]) * u;
}

std::vector<GroupKeyframes> keyframesRelativeTo(const std::vector<GroupKeyframes>& keyframes, unsigned base)
{
    const GroupKeyframes& baseKeys = keyframes.at(base);
    std::vector<GroupKeyframes> out(keyframes.size());
    for (size_t g = 0; g < keyframes.size(); ++g) {
        if (g == base || baseKeys.times.empty()) {
            out[g] = keyframes[g];
            if (g == base)
                std::fill(out[g].translations.begin(), out[g].translations.end(), Vec3f::ZERO);
            continue;
        }
        out[g].times = unionOfTimes({&keyframes[g], &baseKeys});
        for (float t : out[g].times)
            out[g].translations.push_back(translationAt(keyframes[g], t) - translationAt(baseKeys, t));
    }
    return out;
}

std::vector<GroupKeyframes> retimedByTravel(const std::vector<GroupKeyframes>& keyframes, float speed,
                                            float minimumSeconds)
{
    std::vector<const GroupKeyframes*> groups;
    for (const GroupKeyframes& keys : keyframes)
        groups.push_back(&keys);
    const std::vector<float> times = unionOfTimes(groups);
    if (times.empty())
        return keyframes;
    std::vector<float> retimed = {times.front()};
    for (size_t i = 1; i < times.size(); ++i) {
        float travel = 0.0f;
        for (const GroupKeyframes& keys : keyframes)
            travel = std::max(travel, (translationAt(keys, times[i]) - translationAt(keys, times[i - 1])).Length());
        retimed.push_back(retimed.back() + std::max(travel / speed, minimumSeconds));
    }
    std::vector<GroupKeyframes> out = keyframes;
    for (GroupKeyframes& keys : out)
        for (float& t : keys.times)
            t = remapTime(times, retimed, t);
    return out;
}

}  // namespace velmora
