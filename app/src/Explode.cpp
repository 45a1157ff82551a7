#include "velmora/Explode.h"

#include <cmath>

#include "kxExplodedViewAnimation.h"
#include "kxExplosionDiagram.h"
#include "velmora/FixedBase.h"

namespace velmora {
namespace {

// Doublings of the split distance tried to pull overlapping parts apart.
constexpr unsigned kMaxWidenings = 4;

void checkOptions(const ExplodeOptions& options)
{
    if (options.policy > 2)
        throw InputError("the animation policy must be 0, 1 or 2");
    if (options.playStyle > 3)
        throw InputError("the play style must be 0, 1, 2 or 3");
    if (!std::isfinite(options.splitDistance) || options.splitDistance < 0)
        throw InputError("the split distance must be a finite number of at least 0");
    if (!std::isfinite(options.speed) || options.speed < 0)
        throw InputError("the speed must be a finite number of at least 0");
}

// The group kept still: the asked one, else that of the largest part.
unsigned baseGroup(const Assembly& assembly, int asked)
{
    if (asked < 0)
        return groupOfPart(assembly, largestPart(assembly));
    if (size_t(asked) >= assembly.groups.size())
        throw InputError("the base group " + std::to_string(asked) + " does not exist");
    return unsigned(asked);
}

// Shortest stretch of a retimed animation, in seconds.
constexpr float kMinimumStretchSeconds = 0.2f;

float animationDuration(const std::vector<GroupKeyframes>& keyframes)
{
    float duration = 0;
    for (const GroupKeyframes& keys : keyframes)
        if (!keys.times.empty())
            duration = std::max(duration, keys.times.back());
    return duration;
}

// Per group, the group whose motion it shows: itself, or for a member of a
// keep-together set of several groups the set's leader. The leader is the
// base when the set holds it (so the base stays still), else the member
// moved least from the base: the splits inside the set add to the motion
// the set gets as a whole, so the least moved member shows it best.
std::vector<unsigned> rigidSetLeaders(const Plan& plan, const std::vector<Wm4::Vector3<float>>& offsets,
                                      unsigned base)
{
    std::vector<unsigned> leaders(offsets.size());
    for (unsigned g = 0; g < leaders.size(); ++g)
        leaders[g] = g;
    const auto travel = [&](unsigned g) { return (offsets[g] - offsets[base]).SquaredLength(); };
    for (const std::vector<unsigned>& set : plan.keepTogether()) {
        if (set.empty())
            continue;
        unsigned leader = set.front();
        for (unsigned g : set)
            if (g == base || (leader != base && travel(g) < travel(leader)))
                leader = g;
        for (unsigned g : set)
            leaders[g] = leader;
    }
    return leaders;
}

// Every group's item replaced by its leader's (none without leaders).
template <typename T>
void followLeaders(std::vector<T>& items, const std::vector<unsigned>& leaders)
{
    for (unsigned g = 0; g < leaders.size(); ++g)
        if (leaders[g] != g)
            items[g] = items[leaders[g]];
}

}  // namespace

float diagonal(const Assembly& assembly)
{
    Wm4::Vector3<float> lo, hi;
    assemblyBounds(assembly, lo, hi);
    return (hi - lo).Length();
}

float defaultSplitDistance(const Assembly& assembly) { return 0.1f * diagonal(assembly); }

ExplodedView explodeAssembly(const Plan& plan, const ExplodeOptions& options)
{
    checkOptions(options);
    if (!plan.hasHierarchy())
        throw std::logic_error("explodeAssembly needs a plan with a hierarchy");
    ExplodedView view;
    view.splitDistance = options.splitDistance > 0 ? options.splitDistance : defaultSplitDistance(plan.assembly());
    view.base = baseGroup(plan.assembly(), options.base);
    GlbOptions glb = options.glb;
    glb.baseGroup = int(view.base);

    // The library works in the plan's frame: lengths go in scaled and come back unscaled.
    const float toPlanning = float(plan.planningScale());
    const float toWorld = float(1.0 / plan.planningScale());
    if (!std::isfinite(view.splitDistance * toPlanning))
        throw InputError("the split distance is too large for this assembly");
    kxExplosionDiagram diagram(plan.builder());
    std::vector<unsigned> leaders;
    for (;;) {
        diagram.computeTranslationHierarchy(view.splitDistance * toPlanning);
        view.offsets.clear();
        for (unsigned g = 0; g < plan.assembly().groups.size(); ++g)
            view.offsets.push_back(diagram.getFinalPerGroupTranslation(g));
        leaders = options.explodeInside ? std::vector<unsigned>() : rigidSetLeaders(plan, view.offsets, view.base);
        followLeaders(view.offsets, leaders);
        if (!plan.verification())
            break;
        view.overlaps = plan.verification()->verifier->overlapsAtOffsets(view.offsets);
        if (view.overlaps.empty() || view.widenings == kMaxWidenings)
            break;
        view.splitDistance *= 2.0f;
        ++view.widenings;
    }
    for (Wm4::Vector3<float>& offset : view.offsets)
        offset *= toWorld;
    for (Interference& overlap : view.overlaps)
        overlap.depth *= toWorld;
    view.offsets = offsetsRelativeTo(view.offsets, view.base);
    if (options.staticPose) {
        view.glb = buildExplodedPoseGlb(plan.assembly(), view.offsets, glb);
        return view;
    }

    kxExplodedViewAnimation animation(diagram);
    animation.setAnimationPolicy(kxExplodedViewAnimation::tAnimationPolicy(options.policy));
    animation.setAnimationPlayStyle(kxExplodedViewAnimation::tAnimationPlayStyle(options.playStyle));
    animation.createKeyFrameControllers();
    std::vector<GroupKeyframes> keyframes = readGroupKeyframes(plan.groups());
    for (GroupKeyframes& keys : keyframes)
        for (Wm4::Vector3<float>& translation : keys.translations)
            translation *= toWorld;
    view.keyframes = keyframesRelativeTo(keyframes, view.base);
    followLeaders(view.keyframes, leaders);
    if (options.speed > 0)
        view.keyframes = retimedByTravel(view.keyframes, options.speed * diagonal(plan.assembly()),
                                         kMinimumStretchSeconds);
    view.duration = animationDuration(view.keyframes);
    view.glb = buildAnimatedGlb(plan.assembly(), view.keyframes, glb);
    return view;
}

}  // namespace velmora
