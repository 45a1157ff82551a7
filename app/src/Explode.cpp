#include "velmora/Explode.h"

#include <cmath>

#include "kxExplodedViewAnimation.h"
#include "kxExplosionDiagram.h"

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
}

float animationDuration(const std::vector<GroupKeyframes>& keyframes)
{
    float duration = 0;
    for (const GroupKeyframes& keys : keyframes)
        if (!keys.times.empty())
            duration = std::max(duration, keys.times.back());
    return duration;
}

}  // namespace

float defaultSplitDistance(const Assembly& assembly)
{
    Wm4::Vector3<float> lo, hi;
    assemblyBounds(assembly, lo, hi);
    return 0.1f * (hi - lo).Length();
}

ExplodedView explodeAssembly(const Plan& plan, const ExplodeOptions& options)
{
    checkOptions(options);
    if (!plan.hasHierarchy())
        throw std::logic_error("explodeAssembly needs a plan with a hierarchy");
    ExplodedView view;
    view.splitDistance = options.splitDistance > 0 ? options.splitDistance : defaultSplitDistance(plan.assembly());

    kxExplosionDiagram diagram(plan.builder());
    for (;;) {
        diagram.computeTranslationHierarchy(view.splitDistance);
        view.offsets.clear();
        for (unsigned g = 0; g < plan.assembly().groups.size(); ++g)
            view.offsets.push_back(diagram.getFinalPerGroupTranslation(g));
        if (!plan.verification())
            break;
        view.overlaps = plan.verification()->verifier->overlapsAtOffsets(view.offsets);
        if (view.overlaps.empty() || view.widenings == kMaxWidenings)
            break;
        view.splitDistance *= 2.0f;
        ++view.widenings;
    }
    if (options.staticPose) {
        view.glb = buildExplodedPoseGlb(plan.assembly(), view.offsets);
        return view;
    }

    kxExplodedViewAnimation animation(diagram);
    animation.setAnimationPolicy(kxExplodedViewAnimation::tAnimationPolicy(options.policy));
    animation.setAnimationPlayStyle(kxExplodedViewAnimation::tAnimationPlayStyle(options.playStyle));
    animation.createKeyFrameControllers();
    view.keyframes = readGroupKeyframes(plan.groups());
    view.duration = animationDuration(view.keyframes);
    view.glb = buildAnimatedGlb(plan.assembly(), view.keyframes);
    return view;
}

}  // namespace velmora
