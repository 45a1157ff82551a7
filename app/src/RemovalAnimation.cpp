#include "velmora/RemovalAnimation.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace velmora {
namespace {

using Vec3f = Wm4::Vector3<float>;

// Shortest stretch of the animation, in seconds, however short the travel.
constexpr float kMinimumStretchSeconds = 0.2f;

bool positiveFinite(float value) { return std::isfinite(value) && value > 0; }

void checkOptions(const ExplodeOptions& options)
{
    if (!std::isfinite(options.splitDistance) || options.splitDistance < 0)
        throw InputError("the split distance must be a finite number of at least 0");
    if (!std::isfinite(options.speed) || options.speed < 0)
        throw InputError("the speed must be a finite number of at least 0");
}

// Moves the groups of `instruction` by `travel` along its direction.
void carryOut(const RemovalInstruction& instruction, float travel, std::vector<Vec3f>& place)
{
    const Vec3f step = Vec3f(float(instruction.direction[0]), float(instruction.direction[1]),
                             float(instruction.direction[2])) * travel;
    for (unsigned group : instruction.groups)
        place.at(group) += step;
}

// Each group's place after every instruction has been carried out.
std::vector<Vec3f> finalOffsets(unsigned groupCount, const std::vector<RemovalInstruction>& instructions, float travel)
{
    std::vector<Vec3f> offsets(groupCount, Vec3f(0, 0, 0));
    for (const RemovalInstruction& instruction : instructions)
        carryOut(instruction, travel, offsets);
    return offsets;
}

float stretchSeconds(float travel, float speed, float diagonal)
{
    if (speed <= 0 || diagonal <= 0)
        return 1.0f;
    return std::max(travel / (speed * diagonal), kMinimumStretchSeconds);
}

}  // namespace

std::vector<GroupKeyframes> removalKeyframes(unsigned groupCount, const std::vector<RemovalInstruction>& instructions,
                                             float travel, float seconds)
{
    if (!positiveFinite(travel) || !positiveFinite(seconds))
        throw std::invalid_argument("removal keys need a positive, finite travel and duration");
    for (const RemovalInstruction& instruction : instructions)
        if (std::any_of(instruction.groups.begin(), instruction.groups.end(),
                        [&](unsigned g) { return g >= groupCount; }))
            throw std::invalid_argument("a removal instruction names a group that does not exist");
    std::vector<GroupKeyframes> keys(groupCount);
    if (instructions.empty())
        return keys;
    std::vector<Vec3f> place(groupCount, Vec3f(0, 0, 0));
    auto addKeys = [&](float time) {
        for (unsigned g = 0; g < groupCount; ++g) {
            keys[g].times.push_back(time);
            keys[g].translations.push_back(place[g]);
        }
    };
    addKeys(0);
    for (size_t i = 0; i < instructions.size(); ++i) {
        carryOut(instructions[i], travel, place);
        addKeys(float(i + 1) * seconds);
    }
    return keys;
}

ExplodedView removalView(const Assembly& assembly, const std::vector<RemovalInstruction>& instructions,
                         unsigned base, const ExplodeOptions& options)
{
    checkOptions(options);
    const unsigned groupCount = unsigned(assembly.groups.size());
    if (base >= groupCount)
        throw InputError("the base group " + std::to_string(base) + " does not exist");
    ExplodedView view;
    view.base = base;
    view.splitDistance = options.splitDistance > 0 ? options.splitDistance : defaultSplitDistance(assembly);
    view.offsets = finalOffsets(groupCount, instructions, view.splitDistance);
    GlbOptions glb = options.glb;
    glb.baseGroup = int(base);
    if (options.staticPose || instructions.empty()) {
        view.glb = buildExplodedPoseGlb(assembly, view.offsets, glb);
        return view;
    }
    const float seconds = stretchSeconds(view.splitDistance, options.speed, diagonal(assembly));
    view.keyframes = removalKeyframes(groupCount, instructions, view.splitDistance, seconds);
    view.duration = float(instructions.size()) * seconds;
    view.glb = buildAnimatedGlb(assembly, view.keyframes, glb);
    return view;
}

}  // namespace velmora
