#include "kxExplodedViewAnimation.h"

#include <algorithm>
#include <utility>

#include "kxHierarchyWalk.h"
#include "velmora/LogSink.h"

using kxHierarchyWalk::forEachGroup;
using kxHierarchyWalk::isInnerNode;
using Vec3f = Wm4::Vector3<float>;

namespace {

constexpr unsigned kNone = kxExplosionDiagram::kNone;
constexpr float kFinalTranslationTolerance = 0.001f;

// The child of a split that moves, and the one that stays.
unsigned movingChild(const kxDisassemblyHierarchy::tTreeNode& tree, const kxExplosionDiagram::tSplitData& split)
{
    return kxExplosionDiagram::firstChildMoves(split) ? tree.firstChild : tree.secondChild;
}

unsigned stayingChild(const kxDisassemblyHierarchy::tTreeNode& tree, const kxExplosionDiagram::tSplitData& split)
{
    return kxExplosionDiagram::firstChildMoves(split) ? tree.secondChild : tree.firstChild;
}

// Detaches the keyframe controllers of `mesh`, putting back the local
// translation the first of them started from.
void detachKeyframeControllers(kx::kxTriMesh& mesh)
{
    const std::vector<kx::kxController*> controllers = mesh.GetControllers();
    bool restored = false;
    for (kx::kxController* controller : controllers) {
        auto* keyframes = dynamic_cast<kx::kxKeyframeController*>(controller);
        if (keyframes == nullptr)
            continue;
        if (!restored)
            mesh.editLocalTransform(true).SetTranslate(keyframes->GetKeyToLocal().GetTranslate());
        restored = true;
        kx::kxController::DetachController(keyframes);
    }
}

}  // namespace

kxExplodedViewAnimation::kxExplodedViewAnimation(const kxExplosionDiagram& diagram)
    : mMeshGroups(&diagram.getMeshGroups()),
      mHierarchy(&diagram.getHierarchy()),
      mExplosionDiagram(&diagram),
      mPolicy(kOptimalPolicy),
      mPlayStyle(kPlayExplosion),
      mBaseSpeed(1.0f),
      mTimeUnit(1.0f)
{
}

void kxExplodedViewAnimation::createKeyFrameControllers()
{
    std::vector<unsigned> referenceSplit;
    computePerGroupReferenceSplit(referenceSplit);
    mGlobalBBox = kx::kxBBox();

    std::vector<unsigned> timeIndex(mHierarchy->getNoNodes(), 0u);
    if (mPolicy == kOptimalPolicy)
        computeOptimalTimeIndex(timeIndex);
    else
        computeTimeIndexPerSplit(0, 0, timeIndex);
    const unsigned finalTime = *std::max_element(timeIndex.begin(), timeIndex.end());

    std::vector<tKeyFrameMap> keyFrames(mMeshGroups->getNoGroups());
    createKeyFramesIteration(0, timeIndex, keyFrames);
    computeTranslationClamping(referenceSplit, timeIndex, keyFrames);

    for (unsigned group = 0; group < keyFrames.size(); ++group) {
        tKeyFrames keys = buildGroupKeyFrames(group, keyFrames[group], finalTime);
        applyPlayStyle(keys, finalTime);
        attachControllers(group, std::move(keys));
    }
}

void kxExplodedViewAnimation::computePerGroupReferenceSplit(std::vector<unsigned>& referenceSplit) const
{
    referenceSplit.assign(mMeshGroups->getNoGroups(), kNone);
    for (unsigned node = 0; node < mHierarchy->getNoNodes(); ++node) {
        const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
        if (kxHierarchyWalk::isUnusedSlot(tree))
            continue;
        if (isInnerNode(*mHierarchy, node)) {
            const unsigned moving = kxExplosionDiagram::movingReferenceGroup(mExplosionDiagram->getSplitData(node));
            if (moving != kNone)
                referenceSplit[mExplosionDiagram->getReferenceGroup(moving)] = node;
            continue;
        }
        const unsigned leafReference =
            mExplosionDiagram->getReferenceGroup(mHierarchy->getGroupIdFromOrderedIndex(tree.start));
        const unsigned governing = referenceSplit[leafReference];
        forEachGroup(*mHierarchy, node, [&](unsigned group) { referenceSplit[group] = governing; });
    }
}

unsigned kxExplodedViewAnimation::computeTimeIndexPerSplit(unsigned node, unsigned time,
                                                           std::vector<unsigned>& timeIndex) const
{
    if (!isInnerNode(*mHierarchy, node))
        return 0;
    const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
    timeIndex[node] = time + 1;
    unsigned firstStart = time + 1, secondStart = time + 1;
    if (mPolicy == kOptimalPolicy) {
        // The staying side's own splits may run together with this one.
        const bool firstMoves = kxExplosionDiagram::firstChildMoves(mExplosionDiagram->getSplitData(node));
        (firstMoves ? secondStart : firstStart) = time;
    }
    const unsigned a = computeTimeIndexPerSplit(tree.firstChild, firstStart, timeIndex);
    const unsigned b =
        computeTimeIndexPerSplit(tree.secondChild, secondStart + (mPolicy == kSequentialPolicy ? a : 0), timeIndex);
    return a + b + 1;
}

void kxExplodedViewAnimation::computeOptimalTimeIndex(std::vector<unsigned>& timeIndex) const
{
    // Start from the child rule and delay the splits that interact with an
    // enclosing split they would otherwise run together with.
    computeTimeIndexPerSplit(0, 0, timeIndex);
    std::vector<unsigned> stayingAncestors;
    splitTimeConstraintsIteration(0, 0, stayingAncestors, timeIndex);
}

void kxExplodedViewAnimation::splitTimeConstraintsIteration(unsigned node, unsigned delay,
                                                            std::vector<unsigned>& stayingAncestors,
                                                            std::vector<unsigned>& timeIndex) const
{
    if (!isInnerNode(*mHierarchy, node))
        return;
    const unsigned childRuleTime = timeIndex[node];
    unsigned time = childRuleTime + delay;
    for (unsigned enclosing : stayingAncestors) {
        if (movingSideCrossesSplit(node, enclosing))
            time = std::max(time, timeIndex[enclosing] + 1);
    }
    timeIndex[node] = time;

    const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
    const kxExplosionDiagram::tSplitData& split = mExplosionDiagram->getSplitData(node);
    splitTimeConstraintsIteration(movingChild(tree, split), time - childRuleTime, stayingAncestors, timeIndex);
    stayingAncestors.push_back(node);
    splitTimeConstraintsIteration(stayingChild(tree, split), time - childRuleTime, stayingAncestors, timeIndex);
    stayingAncestors.pop_back();
}

bool kxExplodedViewAnimation::movingSideCrossesSplit(unsigned node, unsigned enclosing) const
{
    const kxDisassemblyHierarchyBuilder& builder = mExplosionDiagram->getBuilder();
    const kxDisassemblyHierarchy::tTreeNode& moving =
        mHierarchy->getNode(movingChild(mHierarchy->getNode(node), mExplosionDiagram->getSplitData(node)));
    auto inMovingSide = [&](unsigned group) {
        const unsigned position = mHierarchy->getOrderedIndexFromGroupId(group);
        return position >= moving.start && position < moving.start + moving.noGroups;
    };
    const kxHierarchyWalk::tEdgeRange edges = kxHierarchyWalk::crossingEdges(builder, enclosing);
    for (unsigned e = edges.first; e < edges.end; ++e) {
        const kxDisassemblyHierarchyBuilder::tDynamicEdgeData& edge = builder.getEdgeData(e);
        if (inMovingSide(edge.groupA) || inMovingSide(edge.groupB))
            return true;
    }
    return false;
}

void kxExplodedViewAnimation::createKeyFramesIteration(unsigned node, const std::vector<unsigned>& timeIndex,
                                                       std::vector<tKeyFrameMap>& keyFrames) const
{
    if (!isInnerNode(*mHierarchy, node))
        return;
    const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
    createKeyFramesIteration(tree.secondChild, timeIndex, keyFrames);
    createKeyFramesIteration(tree.firstChild, timeIndex, keyFrames);

    const kxExplosionDiagram::tSplitData& split = mExplosionDiagram->getSplitData(node);
    const unsigned moving = movingChild(tree, split);
    const unsigned movingGroup = kxExplosionDiagram::movingReferenceGroup(split);
    const unsigned reference = movingGroup != kNone ? mExplosionDiagram->getReferenceGroup(movingGroup) : kNone;
    const Vec3f& increment = mExplosionDiagram->getPerSplitTranslation(moving);
    forEachGroup(*mHierarchy, moving, [&](unsigned group) {
        auto [entry, inserted] = keyFrames[group].try_emplace(timeIndex[node], reference, increment);
        if (!inserted)
            entry->second.second += increment;
    });
}

void kxExplodedViewAnimation::computeTranslationClampingProcessingOrder(unsigned node, unsigned group,
                                                                        std::vector<unsigned>& order) const
{
    while (isInnerNode(*mHierarchy, node)) {
        const kxDisassemblyHierarchy::tTreeNode& tree = mHierarchy->getNode(node);
        const kxExplosionDiagram::tSplitData& split = mExplosionDiagram->getSplitData(node);
        computeTranslationClampingProcessingOrder(stayingChild(tree, split), group, order);
        group = kxExplosionDiagram::movingReferenceGroup(split);
        node = movingChild(tree, split);
    }
    if (group != kNone)
        order.push_back(mExplosionDiagram->getReferenceGroup(group));
}

void kxExplodedViewAnimation::computeTranslationClamping(const std::vector<unsigned>& referenceSplit,
                                                         const std::vector<unsigned>& timeIndex,
                                                         std::vector<tKeyFrameMap>& keyFrames) const
{
    std::vector<unsigned> order;
    computeTranslationClampingProcessingOrder(0, kNone, order);
    for (unsigned group = 0; group < keyFrames.size(); ++group)
        order.push_back(group);  // the groups the order does not reach, after it
    std::vector<bool> clamped(keyFrames.size(), false);
    for (unsigned group : order) {
        if (clamped[group])
            continue;
        clamped[group] = true;
        const unsigned split = referenceSplit[group];
        clampGroupTranslation(group, split != kNone ? timeIndex[split] : kNone, keyFrames[group]);
    }
}

void kxExplodedViewAnimation::clampGroupTranslation(unsigned group, unsigned governingTime,
                                                    tKeyFrameMap& keyFrames) const
{
    if (keyFrames.empty())
        return;
    Vec3f sum = Vec3f::ZERO;
    for (const auto& entry : keyFrames)
        sum += entry.second.second;
    const auto governing = keyFrames.find(governingTime);
    auto& target = governing != keyFrames.end() ? governing->second : keyFrames.rbegin()->second;
    target.second += mExplosionDiagram->getFinalPerGroupTranslation(group) - sum;
}

kxExplodedViewAnimation::tKeyFrames kxExplodedViewAnimation::buildGroupKeyFrames(unsigned group,
                                                                                 const tKeyFrameMap& keyFrames,
                                                                                 unsigned finalTime) const
{
    tKeyFrames keys;
    keys.times.push_back(0.0f);
    keys.translations.push_back(Vec3f::ZERO);
    unsigned previous = 0;
    Vec3f sum = Vec3f::ZERO;
    for (const auto& [time, entry] : keyFrames) {
        if (time - previous > 1) {
            keys.times.push_back(float(time - 1));
            keys.translations.push_back(sum);
        }
        sum += entry.second;
        keys.times.push_back(float(time));
        keys.translations.push_back(sum);
        previous = time;
    }
    if (previous < finalTime) {
        keys.times.push_back(float(finalTime));
        keys.translations.push_back(sum);
    }
    const Vec3f miss = sum - mExplosionDiagram->getFinalPerGroupTranslation(group);
    if (miss.Length() > kFinalTranslationTolerance)
        velmora::LogStream() << "error: " << group << ": " << miss.X() << " " << miss.Y() << " " << miss.Z();
    return keys;
}

void kxExplodedViewAnimation::applyPlayStyle(tKeyFrames& keys, unsigned finalTime) const
{
    if (mPlayStyle == kPlayAssembly || mPlayStyle == kPlayAssemblyAndBack) {
        std::reverse(keys.times.begin(), keys.times.end());
        std::reverse(keys.translations.begin(), keys.translations.end());
        for (float& time : keys.times)
            time = float(finalTime) - time;
    }
    if (mPlayStyle == kPlayAssemblyAndBack || mPlayStyle == kPlayExplosionAndBack) {
        // The way back: the same keys mirrored about the last one.
        const size_t k = keys.times.size() - 1;
        const float end = keys.times[k];
        for (size_t i = k; i-- > 0;) {
            keys.times.push_back(2.0f * end - keys.times[i]);
            keys.translations.push_back(keys.translations[i]);
        }
    }
    const float secondsPerIndex = mTimeUnit / mBaseSpeed;
    for (float& time : keys.times)
        time *= secondsPerIndex;
}

void kxExplodedViewAnimation::attachControllers(unsigned group, tKeyFrames&& keys)
{
    kx::kxPointer<kx::kxTSharedArray<float>> times = new kx::kxTSharedArray<float>(std::move(keys.times));
    kx::kxPointer<kx::kxTSharedArray<Vec3f>> translations =
        new kx::kxTSharedArray<Vec3f>(std::move(keys.translations));
    for (unsigned i = 0; i < mMeshGroups->getGroupSize(group); ++i) {
        kx::kxTriMesh* mesh = mMeshGroups->editMeshFromGroup(group, i);
        if (mesh == nullptr)
            continue;
        detachKeyframeControllers(*mesh);
        // A key is a world-space offset: into the mesh's local frame as baking does it.
        const kx::kxGenericTransformation<float>& local = mesh->GetLocalTransform();
        const kx::kxGenericTransformation<float> keyToLocal(local.GetMatrix() * mesh->World.GetMatrix().Inverse(),
                                                            local.GetTranslate());
        kx::kxController::AttachController(mesh, new kx::kxKeyframeController(times, translations, keyToLocal));
        if (const kx::kxVertexBuffer* vertices = mesh->GetVertexBuffer()) {
            for (int v = 0; v < vertices->GetVertexQuantity(); ++v)
                mGlobalBBox.selfExpand(vertices->Position3(v));
        }
    }
}
